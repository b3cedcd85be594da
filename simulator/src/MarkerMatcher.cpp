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
        if (ca.rms != cb.rms) {
            return ca.rms < cb.rms;
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
        for (int r = 0; r < 3; ++r) {
            for (int col = 0; col < 3; ++col) {
                marker.rotation[r][col] = static_cast<float>(c.rotation(r, col));
            }
            marker.translationMM[r] = static_cast<float>(c.translation(r));
        }
        marker.registrationErrorMM = static_cast<float>(c.rms);
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
    for (std::size_t f = 0; f < m_positions.size(); ++f) {
        if (m_used[f]) {
            continue;
        }
        bool consistent = true;
        for (int q = 0; q < point && consistent; ++q) {
            if (m_assignment[q] == INVALID_ID) {
                continue;
            }
            const double d = (m_positions[f] - m_positions[m_assignment[q]]).norm();
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
    Eigen::Vector3d from[FTK_MAX_FIDUCIALS];
    Eigen::Vector3d to[FTK_MAX_FIDUCIALS];
    int n = 0;
    Candidate c;
    c.geometry = geometryIndex;
    c.matched = matched;
    for (int i = 0; i < FTK_MAX_FIDUCIALS; ++i) {
        c.fiducial[i] = INVALID_ID;
    }
    for (int i = 0; i < g.count; ++i) {
        c.fiducial[i] = m_assignment[i];
        if (m_assignment[i] != INVALID_ID) {
            from[n] = g.points[i];
            to[n] = m_positions[m_assignment[i]];
            ++n;
        }
    }
    c.rms = RigidFit::fit(from, to, n, c.rotation, c.translation);
    m_candidates.push_back(c);
}

} // namespace Kestrion::Simulator
