#include "simulator/src/StereoMatcher.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::Simulator {

namespace {

constexpr std::uint32_t None = 0xFFFFFFFFu;

} // namespace

StereoMatcher::StereoMatcher(const StereoCamera& camera, const DeviceModel& model)
    : m_camera(camera)
    , m_model(model) {}

std::uint32_t StereoMatcher::root(std::uint32_t node) {
    while (m_parent[node] != node) {
        m_parent[node] = m_parent[m_parent[node]];
        node = m_parent[node];
    }
    return node;
}

void StereoMatcher::match(const std::vector<Blob>& left, const std::vector<Blob>& right, double tolerancePx,
                          std::vector<Result>& pairs) {
    pairs.clear();
    m_candidates.clear();
    m_candidatesPerLeft.assign(left.size(), 0);
    const std::uint32_t nodes = static_cast<std::uint32_t>(left.size() + right.size());
    m_parent.resize(nodes);
    for (std::uint32_t i = 0; i < nodes; ++i) {
        m_parent[i] = i;
    }
    const double radius = 0.5 * m_model.fiducialDiameterMM;
    for (std::uint32_t l = 0; l < left.size(); ++l) {
        const Eigen::Vector2d pl(left[l].x, left[l].y);
        const Eigen::Vector3d line = m_camera.epipolarLine(pl);
        for (std::uint32_t r = 0; r < right.size(); ++r) {
            const Eigen::Vector2d pr(right[r].x, right[r].y);
            const double e = std::abs(line.x() * pr.x() + line.y() * pr.y() + line.z());
            if (e > tolerancePx) {
                continue;
            }
            double triangulationError = 0.0;
            const Eigen::Vector3d p = m_camera.triangulate(pl, pr, triangulationError);
            if (p.z() <= 0.0) {
                continue;
            }
            // A ghost made of two different fiducials' blobs sits at a depth its blobs' sizes
            // disagree with.
            const double expectedRadius = m_camera.focalPx() * radius / p.z();
            const double sizeMismatch = std::abs(std::log(left[l].radius / expectedRadius));
            const bool inVolume = p.z() >= m_model.minDepthMM && p.z() <= m_model.maxDepthMM;
            m_candidates.push_back(Candidate{l, r, inVolume, e / tolerancePx + 4.0 * sizeMismatch});
            ++m_candidatesPerLeft[l];
            const std::uint32_t a = root(l);
            const std::uint32_t b = root(static_cast<std::uint32_t>(left.size()) + r);
            if (a != b) {
                m_parent[a] = b;
            }
        }
    }

    m_usedLeft.assign(left.size(), 0);
    m_usedRight.assign(right.size(), 0);
    m_rightOfLeft.assign(left.size(), None);
    // Candidates of one group share a root; resolve each group once.
    m_order.resize(m_candidates.size());
    m_roots.resize(m_candidates.size());
    for (std::size_t i = 0; i < m_order.size(); ++i) {
        m_order[i] = i;
        m_roots[i] = root(m_candidates[i].left);
    }
    std::sort(m_order.begin(), m_order.end(), [&](std::size_t a, std::size_t b) {
        return m_roots[a] != m_roots[b] ? m_roots[a] < m_roots[b] : a < b;
    });
    for (std::size_t i = 0; i < m_order.size();) {
        const std::uint32_t group = m_roots[m_order[i]];
        m_group.clear();
        while (i < m_order.size() && m_roots[m_order[i]] == group) {
            m_group.push_back(m_order[i]);
            ++i;
        }
        resolveGroup();
    }
    for (std::uint32_t l = 0; l < left.size(); ++l) {
        if (m_rightOfLeft[l] != None) {
            pairs.push_back(Result{l, m_rightOfLeft[l], m_candidatesPerLeft[l]});
        }
    }
}

void StereoMatcher::resolveGroup() {
    if (m_group.size() == 1) {
        const Candidate& c = m_candidates[m_group.front()];
        m_rightOfLeft[c.left] = c.right;
        return;
    }
    if (m_group.size() <= MaxExhaustiveGroup) {
        m_current.clear();
        m_best.clear();
        m_bestPairs = -1;
        m_bestInVolume = -1;
        m_bestCost = 0.0;
        search(0, 0, 0, 0.0);
    } else {
        // Greedy: in-volume first, then by cost.
        std::sort(m_group.begin(), m_group.end(), [&](std::size_t a, std::size_t b) {
            const Candidate& ca = m_candidates[a];
            const Candidate& cb = m_candidates[b];
            if (ca.inVolume != cb.inVolume) {
                return ca.inVolume;
            }
            return ca.cost != cb.cost ? ca.cost < cb.cost : a < b;
        });
        m_best.clear();
        for (std::size_t index : m_group) {
            const Candidate& c = m_candidates[index];
            if (!m_usedLeft[c.left] && !m_usedRight[c.right]) {
                m_usedLeft[c.left] = 1;
                m_usedRight[c.right] = 1;
                m_best.push_back(index);
            }
        }
    }
    for (std::size_t index : m_best) {
        m_rightOfLeft[m_candidates[index].left] = m_candidates[index].right;
    }
}

void StereoMatcher::search(std::size_t next, int pairs, int inVolume, double cost) {
    if (next == m_group.size()) {
        const bool better = pairs > m_bestPairs || (pairs == m_bestPairs && inVolume > m_bestInVolume) ||
                            (pairs == m_bestPairs && inVolume == m_bestInVolume && cost < m_bestCost);
        if (better) {
            m_bestPairs = pairs;
            m_bestInVolume = inVolume;
            m_bestCost = cost;
            m_best = m_current;
        }
        return;
    }
    const Candidate& c = m_candidates[m_group[next]];
    if (!m_usedLeft[c.left] && !m_usedRight[c.right]) {
        m_usedLeft[c.left] = 1;
        m_usedRight[c.right] = 1;
        m_current.push_back(m_group[next]);
        search(next + 1, pairs + 1, inVolume + (c.inVolume ? 1 : 0), cost + c.cost);
        m_current.pop_back();
        m_usedLeft[c.left] = 0;
        m_usedRight[c.right] = 0;
    }
    search(next + 1, pairs, inVolume, cost);
}

} // namespace Kestrion::Simulator
