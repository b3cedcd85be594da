#include "simulator/src/GeometryRegistry.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::Simulator {

ftkError GeometryRegistry::add(const ftkGeometry& geometry) {
    const std::uint32_t count = geometry.pointsCount;
    if (count < 3 || count > FTK_MAX_FIDUCIALS) {
        return ftkError::FTK_ERR_GEOM_PTS;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        const ftk3DPoint& p = geometry.positions[i];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
            return ftkError::FTK_ERR_GEOM_PTS;
        }
    }
    const bool known = std::any_of(m_geometries.begin(), m_geometries.end(),
                                   [&](const RegisteredGeometry& g) { return g.id == geometry.geometryId; });
    if (known) {
        return ftkError::FTK_ERR_GEOM_REGISTERED;
    }
    RegisteredGeometry g;
    g.id = geometry.geometryId;
    g.count = static_cast<int>(count);
    for (int i = 0; i < g.count; ++i) {
        const ftk3DPoint& p = geometry.positions[i];
        g.points[i] = Eigen::Vector3d(p.x, p.y, p.z);
    }
    for (int i = 0; i < g.count; ++i) {
        for (int j = 0; j < g.count; ++j) {
            g.distances[i][j] = (g.points[i] - g.points[j]).norm();
        }
    }
    m_geometries.push_back(g);
    return ftkError::FTK_OK;
}

ftkError GeometryRegistry::remove(std::uint32_t geometryId) {
    const auto it = std::find_if(m_geometries.begin(), m_geometries.end(),
                                 [&](const RegisteredGeometry& g) { return g.id == geometryId; });
    if (it == m_geometries.end()) {
        return ftkError::FTK_WAR_GEOM_ID;
    }
    m_geometries.erase(it);
    return ftkError::FTK_OK;
}

} // namespace Kestrion::Simulator
