#pragma once

#include <ftkInterface.h>

#include <Eigen/Core>

#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// A registered marker geometry with its inter-fiducial distances, precomputed for matching.
struct RegisteredGeometry {
    std::uint32_t id = 0;
    int count = 0;
    Eigen::Vector3d points[FTK_MAX_FIDUCIALS];
    double distances[FTK_MAX_FIDUCIALS][FTK_MAX_FIDUCIALS] = {};
};

/// The geometries registered on one device through one library handle, with the rules of the C
/// interface. Not locked: the owning session locks.
class GeometryRegistry {
public:
    /// FTK_ERR_GEOM_PTS for fewer than 3 or more than FTK_MAX_FIDUCIALS points (or a position that
    /// is not a finite number), FTK_ERR_GEOM_REGISTERED when the id is already registered.
    ftkError add(const ftkGeometry& geometry);
    /// FTK_WAR_GEOM_ID when the id is not registered.
    ftkError remove(std::uint32_t geometryId);

    const std::vector<RegisteredGeometry>& geometries() const { return m_geometries; }

private:
    std::vector<RegisteredGeometry> m_geometries;
};

} // namespace Kestrion::Simulator
