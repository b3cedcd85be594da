#include "atracsys/status/AtracsysFiducialPairs.h"

namespace Kestrion::SpryTrack {

void AtracsysFiducialPairs::build(const std::vector<Eigen::Vector3d>& fiducials, double reachMM,
                                  double binWidthMM) {
    const std::size_t n = fiducials.size();
    m_fiducials = &fiducials;
    m_binWidth = binWidthMM > 0.0 ? binWidthMM : 1.0;
    const double reach = std::max(reachMM, 0.0);
    const std::size_t bins = static_cast<std::size_t>(reach / m_binWidth) + 1;
    m_binStart.assign(bins + 1, 0);
    m_neighbourStart.assign(n + 1, 0);
    m_pairs.clear();
    // Squared distances first: only pairs within the reach are measured and kept.
    const double reachSquared = reach * reach;
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = i + 1; j < n; ++j) {
            const double squared = (fiducials[i] - fiducials[j]).squaredNorm();
            if (squared > reachSquared)
                continue;
            const double d = std::sqrt(squared);
            m_pairs.push_back({static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j), d});
            ++m_neighbourStart[i + 1];
            ++m_neighbourStart[j + 1];
            ++m_binStart[binOf(d) + 1];
        }
    for (std::size_t i = 0; i < n; ++i)
        m_neighbourStart[i + 1] += m_neighbourStart[i];
    for (std::size_t b = 0; b < bins; ++b)
        m_binStart[b + 1] += m_binStart[b];

    m_neighbours.resize(m_neighbourStart[n]);
    m_fill.assign(m_neighbourStart.begin(), m_neighbourStart.end() - 1);
    for (const Pair& pair : m_pairs) {
        m_neighbours[m_fill[pair.a]++] = {pair.b, pair.distanceMM};
        m_neighbours[m_fill[pair.b]++] = {pair.a, pair.distanceMM};
    }
    // Each fiducial's neighbours by distance, so that a search takes those at one distance at once.
    for (std::size_t i = 0; i < n; ++i)
        std::sort(m_neighbours.begin() + m_neighbourStart[i], m_neighbours.begin() + m_neighbourStart[i + 1],
                  [](const Neighbour& a, const Neighbour& b) { return a.distanceMM < b.distanceMM; });

    m_sorted.resize(m_pairs.size());
    m_fill.assign(m_binStart.begin(), m_binStart.end() - 1);
    for (const Pair& pair : m_pairs)
        m_sorted[m_fill[binOf(pair.distanceMM)]++] = pair;
}

std::pair<const AtracsysFiducialPairs::Neighbour*, const AtracsysFiducialPairs::Neighbour*>
AtracsysFiducialPairs::neighboursWithin(std::uint32_t a, double fromMM, double toMM) const {
    const Neighbour* begin = m_neighbours.data() + m_neighbourStart[a];
    const Neighbour* end = m_neighbours.data() + m_neighbourStart[a + 1];
    const Neighbour* first =
        std::lower_bound(begin, end, fromMM, [](const Neighbour& n, double d) { return n.distanceMM < d; });
    const Neighbour* last =
        std::upper_bound(first, end, toMM, [](double d, const Neighbour& n) { return d < n.distanceMM; });
    return {first, last};
}

} // namespace Kestrion::SpryTrack
