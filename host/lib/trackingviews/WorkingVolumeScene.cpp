#include "host/lib/trackingviews/WorkingVolumeScene.h"

#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentTracking.h"

namespace Kestrion {

const Eigen::Vector3f WorkingVolumeScene::CameraColour(0.85f, 0.85f, 0.85f);
const Eigen::Vector3f WorkingVolumeScene::VolumeColour(0.3f, 0.55f, 1.0f);
const Eigen::Vector3f WorkingVolumeScene::MarkerColour(1.0f, 0.85f, 0.0f);
const Eigen::Vector3f WorkingVolumeScene::TipColour(1.0f, 0.0f, 1.0f);
const Eigen::Vector3f WorkingVolumeScene::RawFiducialColour(0.0f, 1.0f, 1.0f);
const Eigen::Vector3f WorkingVolumeScene::LostColour(0.45f, 0.45f, 0.45f);

void WorkingVolumeScene::setGeometry(const std::string& instrumentId,
                                     std::vector<Eigen::Vector3d> fiducials) {
    m_geometries[instrumentId] = std::move(fiducials);
}

void WorkingVolumeScene::addLine(const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                                 const Eigen::Vector3f& colour) {
    m_lines.push_back({a.cast<float>(), colour});
    m_lines.push_back({b.cast<float>(), colour});
}

void WorkingVolumeScene::build(const TrackingStreamData* frame, bool current) {
    m_lines.clear();
    m_points.clear();
    m_rawPoints.clear();
    m_instrumentsDrawn = 0;
    m_instrumentsLost = 0;

    // The camera: a box 200 x 50 x 50 mm behind its origin, and its optical axis to the volume.
    const Eigen::Vector3d box[] = {{-100, -25, -50}, {100, -25, -50}, {100, 25, -50}, {-100, 25, -50},
                                   {-100, -25, 0},   {100, -25, 0},   {100, 25, 0},   {-100, 25, 0}};
    for (int i = 0; i < 4; ++i) {
        addLine(box[i], box[(i + 1) % 4], CameraColour);
        addLine(box[4 + i], box[4 + (i + 1) % 4], CameraColour);
        addLine(box[i], box[4 + i], CameraColour);
    }
    if (m_volume) {
        const auto c = m_volume->corners();
        for (int i = 0; i < 4; ++i) {
            addLine(c[i], c[(i + 1) % 4], VolumeColour);
            addLine(c[4 + i], c[4 + (i + 1) % 4], VolumeColour);
            addLine(c[i], c[4 + i], VolumeColour);
        }
        addLine({0, 0, 0}, {0, 0, m_volume->nearMM}, CameraColour);
    }
    if (!frame)
        return;

    const auto* tips = frame->component<InstrumentTipData>();
    for (const TrackingInstrument& instrument : frame->instruments()) {
        if (!isInstrumentTracked(*frame, instrument))
            continue;
        const Eigen::Matrix3d r = instrument.rotation();
        const Eigen::Vector3d t = instrument.translation();
        const Eigen::Vector3f& markerColour = current ? MarkerColour : LostColour;
        const auto geometry = m_geometries.find(instrument.ID());
        if (geometry != m_geometries.end() && !geometry->second.empty())
            for (const Eigen::Vector3d& fiducial : geometry->second)
                m_points.push_back({(r * fiducial + t).cast<float>(), markerColour});
        else
            m_points.push_back({t.cast<float>(), markerColour});
        if (!current) {
            ++m_instrumentsLost; // where it was last seen, without the pose's axes and tip
            continue;
        }
        ++m_instrumentsDrawn;
        for (int axis = 0; axis < 3; ++axis) {
            Eigen::Vector3f colour = Eigen::Vector3f::Zero();
            colour[axis] = 1.0f;
            addLine(t, t + r.col(axis) * AxisLengthMM, colour);
        }
        if (const InstrumentTipData::Entry* tip = tips ? tips->find(instrument.ID()) : nullptr) {
            m_points.push_back({tip->tipInCamera.cast<float>(), TipColour});
            addLine(t, tip->tipInCamera, TipColour);
        }
    }
    if (!current)
        return;
    if (const auto* fiducials = frame->component<TrackingInstrumentFiducialsData>())
        for (const Eigen::Vector3d& position : fiducials->positions())
            m_rawPoints.push_back({position.cast<float>(), RawFiducialColour});
}

} // namespace Kestrion
