#include "simulator/src/MarkerMatcher.h"

#include "simulator/src/RigidFit.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::Simulator {

void MarkerMatcher::match(const std::vector<ftk3DFiducial>& fiducials,
                          const std::vector<RegisteredGeometry>& geometries, double toleranceMM,
                          std::vector<ftkMarker>& markers) {
    markers.clear();
    m_candidates.clear();
    if (geometries.empty() || fiducials.size() < 3) {
        return;
    }
    m_positions.resize(fiducials.size());
    for (std::size_t i = 0; i < fiducials.size(); ++i) {
        const ftk3DPoint& p = fiducials[i].positionMM;
        m_positions[i] = Eigen::Vector3d(p.x, p.y, p.z);
    }
    // Pairwise distances once per frame, and for each fiducial the others close enough to belong
    // to one registered marker with it; the search only walks those.
    double reach = 0.0;
    for (const RegisteredGeometry& g : geometries) {
        for (int i = 0; i < g.count; ++i) {
            for (int j = 0; j < g.count; ++j) {
                reach = std::max(reach, g.distances[i][j]);
            }
        }
    }
    reach += toleranceMM;
    const std::size_t n = fiducials.size();
    m_distances.resize(n * n);
    m_neighbourStart.assign(n + 1, 0);
    for (std::size_t i = 0; i < n; ++i) {
        m_distances[i * n + i] = 0.0;
        for (std::size_t j = i + 1; j < n; ++j) {
            const double d = (m_positions[i] - m_positions[j]).norm();
            m_distances[i * n + j] = d;
            m_distances[j * n + i] = d;
            if (d <= reach) {
                ++m_neighbourStart[i + 1];
                ++m_neighbourStart[j + 1];
            }
        }
    }
    for (std::size_t i = 0; i < n; ++i) {
        m_neighbourStart[i + 1] += m_neighbourStart[i];
    }
    // Reserved for the worst case of this many fiducials, so that busier frames do not reallocate.
    m_neighbours.reserve(n * (n - 1));
    m_neighbours.resize(m_neighbourStart[n]);
    m_fill.assign(m_neighbourStart.begin(), m_neighbourStart.end() - 1);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            if (j != i && m_distances[i * n + j] <= reach) {
                m_neighbours[m_fill[i]++] = static_cast<std::uint32_t>(j);
            }
        }
    }
    m_used.assign(fiducials.size(), 0);
    m_tolerance = toleranceMM;
    for (std::size_t g = 0; g < geometries.size(); ++g) {
        m_steps = 0;
        search(geometries[g], g, 0, 0);
    }

    m_order.resize(m_candidates.size());
    for (std::size_t i = 0; i < m_order.size(); ++i) {
        m_order[i] = i;
    }
    std::sort(m_order.begin(), m_order.end(), [&](std::size_t a, std::size_t b) {
        const Candidate& ca = m_candidates[a];
        const Candidate& cb = m_candidates[b];
        if (ca.matched != cb.matched) {
            return ca.matched > cb.matched;
        }
        if (ca.residual != cb.residual) {
            return ca.residual < cb.residual;
        }
        return a < b;
    });

    m_taken.assign(fiducials.size(), 0);
    m_geometryFound.assign(geometries.size(), 0);
    for (std::size_t index : m_order) {
        const Candidate& c = m_candidates[index];
        const RegisteredGeometry& g = geometries[c.geometry];
        if (m_geometryFound[c.geometry]) {
            continue;
        }
        bool free = true;
        for (int i = 0; i < g.count && free; ++i) {
            free = c.fiducial[i] == INVALID_ID || !m_taken[c.fiducial[i]];
        }
        if (!free) {
            continue;
        }
        m_geometryFound[c.geometry] = 1;
        ftkMarker marker{};
        marker.status = 0u;
        marker.geometryId = g.id;
        for (int i = 0; i < FTK_MAX_FIDUCIALS; ++i) {
            marker.fiducialCorresp[i] = INVALID_ID;
        }
        for (int i = 0; i < g.count; ++i) {
            marker.fiducialCorresp[i] = c.fiducial[i];
            if (c.fiducial[i] != INVALID_ID) {
                m_taken[c.fiducial[i]] = 1;
                marker.geometryPresenceMask |= 1u << i;
            }
        }
        Eigen::Vector3d from[FTK_MAX_FIDUCIALS];
        Eigen::Vector3d to[FTK_MAX_FIDUCIALS];
        int matched = 0;
        for (int i = 0; i < g.count; ++i) {
            if (c.fiducial[i] != INVALID_ID) {
                from[matched] = g.points[i];
                to[matched] = m_positions[c.fiducial[i]];
                ++matched;
            }
        }
        Eigen::Matrix3d rotation;
        Eigen::Vector3d translation;
        const double rms = RigidFit::fit(from, to, matched, rotation, translation);
        for (int r = 0; r < 3; ++r) {
            for (int col = 0; col < 3; ++col) {
                marker.rotation[r][col] = static_cast<float>(rotation(r, col));
            }
            marker.translationMM[r] = static_cast<float>(translation(r));
        }
        marker.registrationErrorMM = static_cast<float>(rms);
        markers.push_back(marker);
    }
}

void MarkerMatcher::search(const RegisteredGeometry& g, std::size_t geometryIndex, int point, int matched) {
    if (++m_steps > MaxSearchSteps) {
        return;
    }
    if (point == g.count) {
        if (matched >= 3) {
            addCandidate(g, geometryIndex, matched);
        }
        return;
    }
    // Once a point is placed, only its neighbours can take the others.
    int anchor = -1;
    for (int q = 0; q < point && anchor < 0; ++q) {
        anchor = m_assignment[q] != INVALID_ID ? q : -1;
    }
    const std::size_t begin = anchor < 0 ? 0 : m_neighbourStart[m_assignment[anchor]];
    const std::size_t end = anchor < 0 ? m_positions.size() : m_neighbourStart[m_assignment[anchor] + 1];
    for (std::size_t k = begin; k < end; ++k) {
        const std::size_t f = anchor < 0 ? k : m_neighbours[k];
        if (m_used[f]) {
            continue;
        }
        bool consistent = true;
        for (int q = 0; q < point && consistent; ++q) {
            if (m_assignment[q] == INVALID_ID) {
                continue;
            }
            const double d = m_distances[f * m_positions.size() + m_assignment[q]];
            consistent = std::abs(d - g.distances[point][q]) <= m_tolerance;
        }
        if (!consistent) {
            continue;
        }
        m_assignment[point] = static_cast<std::uint32_t>(f);
        m_used[f] = 1;
        search(g, geometryIndex, point + 1, matched + 1);
        m_used[f] = 0;
    }
    // Leave this point unmatched when three matches are still reachable without it.
    if (matched + (g.count - point - 1) >= 3) {
        m_assignment[point] = INVALID_ID;
        search(g, geometryIndex, point + 1, matched);
    }
}

void MarkerMatcher::addCandidate(const RegisteredGeometry& g, std::size_t geometryIndex, int matched) {
    // Ranked by how well the matched distances agree; only accepted candidates are fitted.
    Candidate c;
    c.geometry = geometryIndex;
    c.matched = matched;
    double sum = 0.0;
    int pairs = 0;
    const std::size_t n = m_positions.size();
    for (int i = 0; i < FTK_MAX_FIDUCIALS; ++i) {
        c.fiducial[i] = i < g.count ? m_assignment[i] : INVALID_ID;
    }
    for (int i = 0; i < g.count; ++i) {
        for (int j = i + 1; j < g.count; ++j) {
            if (c.fiducial[i] != INVALID_ID && c.fiducial[j] != INVALID_ID) {
                const double e = m_distances[c.fiducial[i] * n + c.fiducial[j]] - g.distances[i][j];
                sum += e * e;
                ++pairs;
            }
        }
    }
    c.residual = sum / pairs;
    m_candidates.push_back(c);
}

} // namespace Kestrion::Simulator
