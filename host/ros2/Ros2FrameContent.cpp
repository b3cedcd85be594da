#include "host/ros2/Ros2FrameContent.h"

#include "host/ros2/Ros2Names.h"
#include "host/ros2/Ros2Settings.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

namespace Kestrion::Ros2 {

namespace {

constexpr double MetresPerMm = 0.001;

} // namespace

Eigen::Quaterniond Ros2FrameContent::quaternion(const Eigen::Matrix3d& rotation) {
    Eigen::Quaterniond q(rotation);
    q.normalize();
    if (q.w() < 0.0)
        q.coeffs() = -q.coeffs();
    return q;
}

void Ros2FrameContent::fill(const TrackingStreamData& frame, const Ros2Settings& settings) {
    stampUS = frameTimeUS(frame);
    transforms.clear();
    poses.clear();
    tools.clear();
    fiducials.clear();
    const auto* names = frame.component<InstrumentNames>();
    const auto* tips = frame.component<InstrumentTipData>();
    const auto* reference = frame.component<ReferencePoseData>();
    const std::string referenceName =
        reference ? Ros2Names::toolName(names, reference->referenceId()) : std::string();

    auto add = [&](const std::string& parent, const std::string& tool, const Eigen::Matrix4d& pose) {
        const Eigen::Quaterniond rotation = quaternion(pose.block<3, 3>(0, 0));
        const Eigen::Vector3d translation = pose.block<3, 1>(0, 3) * MetresPerMm;
        transforms.push_back({parent, tool, translation, rotation});
        poses.push_back({tool, parent, translation, rotation});
    };
    for (const TrackingInstrument& instrument : frame.instruments()) {
        const std::string tool = Ros2Names::toolName(names, instrument.ID());
        tools.push_back(tool);
        if (!isInstrumentTracked(frame, instrument))
            continue;
        if (!reference || instrument.ID() == reference->referenceId()) {
            add(settings.frameId, tool, instrument.matrix);
        } else if (const ReferencePoseData::Entry* entry = reference->find(instrument.ID())) {
            add(referenceName, tool, entry->poseInReference);
        } else {
            continue; // the reference is not seen: the tool has no place in the tree
        }
        if (const InstrumentTipData::Entry* tip = tips ? tips->find(instrument.ID()) : nullptr)
            transforms.push_back(
                {tool, tool + "_tip", tip->tipInMarker * MetresPerMm, Eigen::Quaterniond::Identity()});
    }

    const auto* raw = frame.component<TrackingInstrumentFiducialsData>();
    hasFiducials = raw != nullptr;
    if (raw) {
        fiducials.reserve(raw->size() * 3);
        for (const Eigen::Vector3d& p : raw->positions())
            for (int i = 0; i < 3; ++i)
                fiducials.push_back(static_cast<float>(p(i) * MetresPerMm));
    }
}

} // namespace Kestrion::Ros2
