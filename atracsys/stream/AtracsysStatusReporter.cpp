#include "atracsys/stream/AtracsysStatusReporter.h"

#include <algorithm>

namespace Kestrion::SpryTrack {

std::shared_ptr<InstrumentStatusData>
AtracsysStatusReporter::report(const ftkFrameQuery& frame, AtracsysInstruments& registry,
                               const std::vector<TrackingInstrument>& instruments,
                               const AtracsysInstrumentStatusEvaluator::Settings& settings) {
    readFrame(frame);
    readInstruments(registry, instruments);
    m_instruments.resize(m_instrumentCount);
    m_evaluator.evaluate(m_frame, m_instruments, settings, m_entries);
    auto status = std::make_shared<InstrumentStatusData>();
    status->entries() = m_entries; // the consumers keep theirs; the working copy stays here
    return status;
}

void AtracsysStatusReporter::readFrame(const ftkFrameQuery& frame) {
    // The counts are those of a bounded frame (see AtracsysFrameConverter::bounded).
    const std::uint32_t fiducials = frame.threeDFiducials ? frame.threeDFiducialsCount : 0;
    m_frame.fiducials.resize(fiducials);
    for (std::uint32_t i = 0; i < fiducials; ++i) {
        const ftk3DPoint& p = frame.threeDFiducials[i].positionMM;
        m_frame.fiducials[i] = Eigen::Vector3d(p.x, p.y, p.z);
    }
    const std::uint32_t markers = frame.markers ? frame.markersCount : 0;
    m_frame.markers.resize(markers);
    for (std::uint32_t m = 0; m < markers; ++m) {
        const ftkMarker& marker = frame.markers[m];
        StatusMarker& out = m_frame.markers[m];
        out.geometryId = marker.geometryId;
        out.registrationErrorMM = marker.registrationErrorMM;
        for (int q = 0; q < StatusMaxGeometryPoints; ++q)
            out.fiducials[q] =
                marker.fiducialCorresp[q] < fiducials ? marker.fiducialCorresp[q] : StatusNoFiducial;
    }
}

void AtracsysStatusReporter::readInstruments(AtracsysInstruments& registry,
                                             const std::vector<TrackingInstrument>& instruments) {
    // The records are refilled in place, so that their id strings keep their capacity.
    m_instrumentCount = 0;
    if (m_instruments.size() < instruments.size())
        m_instruments.resize(instruments.size());
    // One pass under the registry's lock, both in id order; copies only, no call back into it.
    registry.modifyAll([this, &instruments](const std::string& id, AtracsysGeometry& geometry) {
        if (m_instrumentCount >= instruments.size() || instruments[m_instrumentCount].ID() != id)
            return; // created after the frame's snapshot: in the next frame
        StatusInstrument& out = m_instruments[m_instrumentCount];
        out.id.assign(id);
        out.active = instruments[m_instrumentCount].active;
        const ftkGeometry& g = geometry.geometry();
        out.geometryId = g.geometryId;
        out.onCamera = geometry.isOnDevice();
        out.pointCount = g.pointsCount;
        const std::uint32_t points = std::min<std::uint32_t>(g.pointsCount, StatusMaxGeometryPoints);
        for (std::uint32_t q = 0; q < points; ++q)
            out.points[q] = Eigen::Vector3d(g.positions[q].x, g.positions[q].y, g.positions[q].z);
        ++m_instrumentCount;
    });
}

} // namespace Kestrion::SpryTrack
