#include "host/lib/trackingviews/WorkingVolumeScene.h"

#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

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

void WorkingVolumeScene::addCamera(const Eigen::Matrix4d& placement) {
    const auto place = [&](const Eigen::Vector3d& p) -> Eigen::Vector3d {
        return placement.block<3, 3>(0, 0) * p + placement.block<3, 1>(0, 3);
    };
    // The camera: a box 200 x 50 x 50 mm behind its origin, and its optical axis to the volume.
    const Eigen::Vector3d box[] = {{-100, -25, -50}, {100, -25, -50}, {100, 25, -50}, {-100, 25, -50},
                                   {-100, -25, 0},   {100, -25, 0},   {100, 25, 0},   {-100, 25, 0}};
    for (int i = 0; i < 4; ++i) {
        addLine(place(box[i]), place(box[(i + 1) % 4]), CameraColour);
        addLine(place(box[4 + i]), place(box[4 + (i + 1) % 4]), CameraColour);
        addLine(place(box[i]), place(box[4 + i]), CameraColour);
    }
    if (m_volume) {
        const auto c = m_volume->corners();
        for (int i = 0; i < 4; ++i) {
            addLine(place(c[i]), place(c[(i + 1) % 4]), VolumeColour);
            addLine(place(c[4 + i]), place(c[4 + (i + 1) % 4]), VolumeColour);
            addLine(place(c[i]), place(c[4 + i]), VolumeColour);
        }
        addLine(place({0, 0, 0}), place({0, 0, m_volume->nearMM}), CameraColour);
    }
}

void WorkingVolumeScene::addInstrument(const std::string& id, const Eigen::Matrix4d& pose,
                                       const Eigen::Vector3d* tip) {
    const Eigen::Matrix3d r = pose.block<3, 3>(0, 0);
    const Eigen::Vector3d t = pose.block<3, 1>(0, 3);
    const auto geometry = m_geometries.find(id);
    if (geometry != m_geometries.end() && !geometry->second.empty())
        for (const Eigen::Vector3d& fiducial : geometry->second)
            m_points.push_back({(r * fiducial + t).cast<float>(), MarkerColour});
    else
        m_points.push_back({t.cast<float>(), MarkerColour});
    ++m_instrumentsDrawn;
    for (int axis = 0; axis < 3; ++axis) {
        Eigen::Vector3f colour = Eigen::Vector3f::Zero();
        colour[axis] = 1.0f;
        addLine(t, t + r.col(axis) * AxisLengthMM, colour);
    }
    if (tip) {
        m_points.push_back({tip->cast<float>(), TipColour});
        addLine(t, *tip, TipColour);
    }
}

void WorkingVolumeScene::build(const TrackingStreamData* frame, bool current) {
    m_lines.clear();
    m_points.clear();
    m_rawPoints.clear();
    m_instrumentsDrawn = 0;
    m_instrumentsLost = 0;
    m_referenceSeen = true;
    if (!m_referenceId.empty()) {
        m_referenceSeen = false;
        if (frame)
            buildInReference(*frame, current);
        return;
    }
    addCamera(Eigen::Matrix4d::Identity());
    if (!frame)
        return;

    const auto* tips = frame->component<InstrumentTipData>();
    for (const TrackingInstrument& instrument : frame->instruments()) {
        if (!isInstrumentTracked(*frame, instrument))
            continue;
        if (current) {
            const InstrumentTipData::Entry* tip = tips ? tips->find(instrument.ID()) : nullptr;
            addInstrument(instrument.ID(), instrument.matrix, tip ? &tip->tipInCamera : nullptr);
            continue;
        }
        // Where it was last seen, grey, without the pose's axes and tip.
        const Eigen::Matrix3d r = instrument.rotation();
        const Eigen::Vector3d t = instrument.translation();
        const auto geometry = m_geometries.find(instrument.ID());
        if (geometry != m_geometries.end() && !geometry->second.empty())
            for (const Eigen::Vector3d& fiducial : geometry->second)
                m_points.push_back({(r * fiducial + t).cast<float>(), LostColour});
        else
            m_points.push_back({t.cast<float>(), LostColour});
        ++m_instrumentsLost;
    }
    if (!current)
        return;
    if (const auto* fiducials = frame->component<TrackingInstrumentFiducialsData>())
        for (const Eigen::Vector3d& position : fiducials->positions())
            m_rawPoints.push_back({position.cast<float>(), RawFiducialColour});
}

void WorkingVolumeScene::buildInReference(const TrackingStreamData& frame, bool current) {
    // The host's relative poses, and only those computed for this reference in this frame.
    const auto* poses = frame.component<ReferencePoseData>();
    const TrackingInstrument* reference = frame.instrument(m_referenceId);
    if (!current || !poses || poses->referenceId() != m_referenceId || !poses->referenceTracked() ||
        !reference)
        return;
    m_referenceSeen = true;
    Eigen::Matrix4d inverse = Eigen::Matrix4d::Identity(); // camera coordinates to the reference's
    inverse.block<3, 3>(0, 0) = reference->rotation().transpose();
    inverse.block<3, 1>(0, 3) = -reference->rotation().transpose() * reference->translation();
    addCamera(inverse);
    const auto* tips = frame.component<InstrumentTipData>();
    const InstrumentTipData::Entry* referenceTip = tips ? tips->find(m_referenceId) : nullptr;
    const Eigen::Vector3d referenceTipInItsFrame =
        referenceTip ? referenceTip->tipInMarker : Eigen::Vector3d();
    addInstrument(m_referenceId, Eigen::Matrix4d::Identity(),
                  referenceTip ? &referenceTipInItsFrame : nullptr);
    for (const ReferencePoseData::Entry& entry : poses->entries())
        addInstrument(entry.instrumentId, entry.poseInReference,
                      entry.tipInReference ? &*entry.tipInReference : nullptr);
    if (const auto* fiducials = frame.component<TrackingInstrumentFiducialsData>())
        for (const Eigen::Vector3d& position : fiducials->positions())
            m_rawPoints.push_back(
                {(inverse.block<3, 3>(0, 0) * position + inverse.block<3, 1>(0, 3)).cast<float>(),
                 RawFiducialColour});
}

} // namespace Kestrion
