#include "host/stream/state/ReferencePoseData.h"

#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentTracking.h"

#include <Eigen/Geometry>

namespace Kestrion {

ReferencePoseData ReferencePoseData::compute(const TrackingStreamData& frame,
                                             const std::string& referenceId) {
    ReferencePoseData data;
    data.m_referenceId = referenceId;
    const TrackingInstrument* reference = frame.instrument(referenceId);
    data.m_referenceTracked = reference && isInstrumentTracked(frame, *reference);
    if (!data.m_referenceTracked)
        return data;
    // A rigid inverse: the rotation's transpose, no general 4x4 inversion.
    Eigen::Matrix4d inverse = Eigen::Matrix4d::Identity();
    const Eigen::Matrix3d rotationT = reference->matrix.block<3, 3>(0, 0).transpose();
    inverse.block<3, 3>(0, 0) = rotationT;
    inverse.block<3, 1>(0, 3) = -rotationT * reference->matrix.block<3, 1>(0, 3);
    const auto* tips = frame.component<InstrumentTipData>();
    data.m_entries.reserve(frame.instruments().size());
    for (const auto& instrument : frame.instruments()) {
        if (instrument.ID() == referenceId || !isInstrumentTracked(frame, instrument))
            continue;
        Entry entry;
        entry.instrumentId = instrument.ID();
        entry.poseInReference = inverse * instrument.matrix;
        if (const auto* tip = tips ? tips->find(instrument.ID()) : nullptr)
            entry.tipInReference = (inverse * tip->tipInCamera.homogeneous()).head<3>();
        data.m_entries.push_back(std::move(entry));
    }
    return data;
}

const ReferencePoseData::Entry* ReferencePoseData::find(const std::string& instrumentId) const {
    for (const auto& entry : m_entries)
        if (entry.instrumentId == instrumentId)
            return &entry;
    return nullptr;
}

} // namespace Kestrion
