#include "atracsys/stream/AtracsysGeometryWarnings.h"

#include "atracsys/geometry-checks/AtracsysAmbiguityCheck.h"

#include "host/core/Log.h"

#include <algorithm>

namespace Kestrion::SpryTrack {

namespace {

AmbiguityGeometry toChecked(const AtracsysGeometry& geometry) {
    AmbiguityGeometry result{geometry.path(), {}};
    const ftkGeometry& g = geometry.geometry();
    for (std::uint32_t i = 0; i < g.pointsCount && i < FTK_MAX_FIDUCIALS; ++i)
        result.points.emplace_back(g.positions[i].x, g.positions[i].y, g.positions[i].z);
    return result;
}

} // namespace

void warnAboutAmbiguity(const AtracsysInstruments& registry, const std::string& id, double toleranceMM) {
    if (!Log::isAccepted(Log::Warning, AmbiguityCategory))
        return;
    const auto geometries = registry.specialObjects();
    const auto added = std::find_if(geometries.begin(), geometries.end(),
                                    [&id](const auto& entry) { return entry.first == id; });
    if (added == geometries.end())
        return;
    std::vector<AmbiguityGeometry> others;
    for (const auto& [otherId, geometry] : geometries)
        if (otherId != id)
            others.push_back(toChecked(*geometry));
    const AtracsysAmbiguityCheck check(toleranceMM);
    for (const AmbiguityFinding& finding : check.check(toChecked(*added->second), others))
        KESTRION_LOG(Log::Warning, AmbiguityCategory, finding.text);
}

void explainDuplicateId(AtracsysInstruments& registry, const std::string& id, const std::string& path) {
    std::string existing;
    registry.modifyAll([&](const std::string& otherId, AtracsysGeometry& geometry) {
        if (otherId == id)
            existing = geometry.path();
    });
    if (existing.empty())
        return;
    KESTRION_LOG(Log::Error, "AtracsysTrackingStream",
                 "AtracsysTrackingStream: Cannot add the geometry of "
                     << path << ": its instrument id " << id << " is that of the geometry loaded from "
                     << existing);
}

} // namespace Kestrion::SpryTrack
