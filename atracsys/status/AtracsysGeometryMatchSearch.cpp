#include "atracsys/status/AtracsysGeometryMatchSearch.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::SpryTrack {

double AtracsysGeometryMatchSearch::span(const StatusInstrument& geometry) {
    const std::uint32_t count = std::min<std::uint32_t>(geometry.pointCount, StatusMaxGeometryPoints);
    double longest = 0.0;
    for (std::uint32_t i = 0; i < count; ++i)
        for (std::uint32_t j = i + 1; j < count; ++j)
            longest = std::max(longest, (geometry.points[i] - geometry.points[j]).norm());
    return longest;
}

void AtracsysGeometryMatchSearch::search(const StatusInstrument& geometry, const AtracsysFiducialPairs& pairs,
                                         double toleranceMM, double windowMM) {
    m_pairs = &pairs;
    m_count = std::min<std::uint32_t>(geometry.pointCount, StatusMaxGeometryPoints);
    m_tolerance = toleranceMM;
    m_window = windowMM;
    m_steps = 0;
    m_close = Match();
    m_near = Match();
    for (std::uint32_t i = 0; i < m_count; ++i)
        for (std::uint32_t j = 0; j < m_count; ++j)
            m_expected[i][j] = (geometry.points[i] - geometry.points[j]).norm();

    // Every set is reached once, from the pair of its two lowest points: a seed (i, j) is only
    // extended by points after j.
    for (std::uint32_t i = 0; i < m_count; ++i) {
        for (std::uint32_t j = i + 1; j < m_count; ++j) {
            const double expected = m_expected[i][j];
            pairs.forPairsWithin(expected - windowMM, expected + windowMM,
                                 [&](std::uint32_t a, std::uint32_t b, double measured) {
                                     for (int orientation = 0; orientation < 2; ++orientation) {
                                         m_current = Match();
                                         std::fill(std::begin(m_current.fiducial),
                                                   std::end(m_current.fiducial), StatusNoFiducial);
                                         m_current.fiducial[i] = orientation == 0 ? a : b;
                                         m_current.fiducial[j] = orientation == 0 ? b : a;
                                         m_current.matched = 2;
                                         m_current.worstDeviationMM = std::abs(measured - expected);
                                         m_current.worstFirst = static_cast<int>(i);
                                         m_current.worstSecond = static_cast<int>(j);
                                         m_current.worstMeasuredMM = measured;
                                         m_current.worstExpectedMM = expected;
                                         extend(j + 1);
                                     }
                                 });
        }
    }
}

void AtracsysGeometryMatchSearch::extend(std::uint32_t point) {
    if (++m_steps > MaxSteps)
        return;
    // Outside the tolerance only sets of three or more count: none may be reachable any more.
    if (m_current.worstDeviationMM > m_tolerance && m_current.matched + (m_count - point) < 3)
        return;
    if (point >= m_count) {
        consider();
        return;
    }
    // Candidates for this point lie near the first fiducial placed,
    // at the geometry's distance from it, give or take the window.
    std::uint32_t anchorPoint = 0;
    while (m_current.fiducial[anchorPoint] == StatusNoFiducial)
        ++anchorPoint;
    const double expected = m_expected[point][anchorPoint];
    const auto [first, last] =
        m_pairs->neighboursWithin(m_current.fiducial[anchorPoint], expected - m_window, expected + m_window);
    const Match saved = m_current;
    for (const AtracsysFiducialPairs::Neighbour* it = first; it != last; ++it) {
        const std::uint32_t candidate = it->fiducial;
        bool fits = true;
        double worst = saved.worstDeviationMM;
        int worstOther = -1;
        for (std::uint32_t q = 0; q < point && fits; ++q) {
            const std::uint32_t placed = saved.fiducial[q];
            if (placed == StatusNoFiducial)
                continue;
            if (placed == candidate) {
                fits = false;
                break;
            }
            const double deviation = std::abs(m_pairs->distance(candidate, placed) - m_expected[point][q]);
            fits = deviation <= m_window;
            if (deviation > worst) {
                worst = deviation;
                worstOther = static_cast<int>(q);
            }
        }
        if (!fits)
            continue;
        m_current = saved;
        m_current.fiducial[point] = candidate;
        ++m_current.matched;
        if (worstOther >= 0) {
            m_current.worstDeviationMM = worst;
            m_current.worstFirst = worstOther;
            m_current.worstSecond = static_cast<int>(point);
            m_current.worstMeasuredMM = m_pairs->distance(candidate, saved.fiducial[worstOther]);
            m_current.worstExpectedMM = m_expected[point][worstOther];
        }
        extend(point + 1);
    }
    // The point may also be one that is not seen.
    m_current = saved;
    extend(point + 1);
}

bool AtracsysGeometryMatchSearch::better(const Match& candidate, const Match& best) {
    if (candidate.matched != best.matched)
        return candidate.matched > best.matched;
    return candidate.worstDeviationMM < best.worstDeviationMM;
}

void AtracsysGeometryMatchSearch::consider() {
    if (m_current.worstDeviationMM <= m_tolerance && better(m_current, m_close))
        m_close = m_current;
    if (m_current.matched >= 3 && better(m_current, m_near))
        m_near = m_current;
}

} // namespace Kestrion::SpryTrack
