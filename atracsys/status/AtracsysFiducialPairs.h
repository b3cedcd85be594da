#pragma once

#include <Eigen/Core>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kestrion::SpryTrack {

/// The distances between the raw fiducials of one frame, for finding sets of fiducials that look
/// like a marker geometry: the pairs no farther apart than a reach (the longest distance of the
/// geometries looked for), sorted into bins by distance, and each fiducial's neighbours within
/// the reach sorted by distance. One object serves every frame; its buffers keep their capacity.
class AtracsysFiducialPairs {
public:
    struct Neighbour {
        std::uint32_t fiducial;
        double distanceMM;
    };

    /// Measures the fiducials (which must stay alive and unchanged while the pairs are used);
    /// `binWidthMM` is the width of a distance bin (> 0).
    void build(const std::vector<Eigen::Vector3d>& fiducials, double reachMM, double binWidthMM);

    std::size_t size() const { return m_fiducials ? m_fiducials->size() : 0; }
    double distance(std::uint32_t a, std::uint32_t b) const {
        return ((*m_fiducials)[a] - (*m_fiducials)[b]).norm();
    }

    /// The neighbours of `a` whose distance to it lies in [fromMM, toMM].
    std::pair<const Neighbour*, const Neighbour*> neighboursWithin(std::uint32_t a, double fromMM,
                                                                   double toMM) const;

    /// Calls visit(a, b, distance) for every pair a < b whose distance lies in [fromMM, toMM].
    template <class Visit>
    void forPairsWithin(double fromMM, double toMM, Visit&& visit) const {
        if (m_binStart.size() < 2 || toMM < fromMM)
            return;
        const std::size_t bins = m_binStart.size() - 1;
        const std::size_t first = binOf(fromMM);
        if (first >= bins)
            return;
        const std::size_t end = m_binStart[std::min(binOf(toMM) + 1, bins)];
        for (std::size_t p = m_binStart[first]; p < end; ++p) {
            const Pair& pair = m_sorted[p];
            if (pair.distanceMM >= fromMM && pair.distanceMM <= toMM)
                visit(pair.a, pair.b, pair.distanceMM);
        }
    }

private:
    struct Pair {
        std::uint32_t a;
        std::uint32_t b;
        double distanceMM;
    };
    std::size_t binOf(double distanceMM) const {
        return distanceMM <= 0.0 ? 0 : static_cast<std::size_t>(distanceMM / m_binWidth);
    }

    const std::vector<Eigen::Vector3d>* m_fiducials = nullptr;
    double m_binWidth = 1.0;
    std::vector<Pair> m_pairs;  // within the reach, in index order
    std::vector<Pair> m_sorted; // the same by bin
    std::vector<std::uint32_t> m_binStart;
    std::vector<std::uint32_t> m_neighbourStart;
    std::vector<Neighbour> m_neighbours;
    std::vector<std::uint32_t> m_fill;
};

} // namespace Kestrion::SpryTrack
