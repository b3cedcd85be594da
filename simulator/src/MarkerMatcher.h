#pragma once

#include "simulator/src/GeometryRegistry.h"

#include <ftkInterface.h>

#include <Eigen/Core>

#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// Finds registered geometries among a frame's 3D fiducials by their inter-fiducial distances and
/// fits their poses.
///
/// For every geometry, every assignment of its points to distinct fiducials (a point may stay
/// unmatched) whose pairwise distances all agree with the geometry within the tolerance, and
/// that matches at least three points, is a candidate. Candidates of all geometries are ranked by
/// the number of matched points, then by how closely the matched distances agree with the
/// registered ones; they are accepted in that order
/// when their geometry is not found yet and none of their fiducials is taken. A symmetric
/// geometry therefore yields whichever of its equivalent assignments fits the noisy data best,
/// as with a real camera.
class MarkerMatcher {
public:
    /// Search steps per geometry and frame before the search gives up on that geometry (keeps a
    /// pathological cloud of fiducials from stalling a frame).
    static constexpr std::size_t MaxSearchSteps = 200000;

    /// Writes one marker per found geometry into `markers` (cleared first; its capacity is
    /// reused). Tracking ids (`id`) are left 0 for the caller.
    void match(const std::vector<ftk3DFiducial>& fiducials, const std::vector<RegisteredGeometry>& geometries,
               double toleranceMM, std::vector<ftkMarker>& markers);

private:
    struct Candidate {
        std::size_t geometry;
        int matched;
        double residual; ///< Mean squared difference of matched and registered distances.
        std::uint32_t fiducial[FTK_MAX_FIDUCIALS];
    };

    void search(const RegisteredGeometry& g, std::size_t geometryIndex, int point, int matched);
    void addCandidate(const RegisteredGeometry& g, std::size_t geometryIndex, int matched);

    // Scratch reused from frame to frame.
    std::vector<Eigen::Vector3d> m_positions;
    std::vector<double> m_distances; ///< n x n, row-major.
    std::vector<std::size_t>
        m_neighbourStart; ///< Fiducial i's neighbours: m_neighbours[start[i], start[i + 1]).
    std::vector<std::uint32_t> m_neighbours;
    std::vector<std::size_t> m_fill;
    std::vector<char> m_used;
    std::vector<Candidate> m_candidates;
    std::vector<std::size_t> m_order;
    std::vector<char> m_taken;
    std::vector<char> m_geometryFound;
    std::uint32_t m_assignment[FTK_MAX_FIDUCIALS] = {};
    double m_tolerance = 0.0;
    std::size_t m_steps = 0;
};

} // namespace Kestrion::Simulator
