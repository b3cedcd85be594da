#pragma once

#include "host/stream/DataComponent.h"

#include <Eigen/Core>

#include <optional>
#include <string>
#include <vector>

namespace Kestrion {

class TrackingStreamData;

/// The instruments of a frame in the frame of a chosen reference instrument: for every other
/// instrument tracked in the same frame as the reference, inv(T_reference) * T_instrument, and
/// its tip in the reference's frame when it has one. An instrument has an entry only when it and
/// the reference are both tracked in this frame (isInstrumentTracked); when the reference is not,
/// there is no entry at all and readers say "reference not seen".
class ReferencePoseData : public DataComponent {
public:
    struct Entry {
        std::string instrumentId;
        Eigen::Matrix4d poseInReference = Eigen::Matrix4d::Identity();
        std::optional<Eigen::Vector3d> tipInReference;
    };

    /// Computes the component of a frame (whose tips, InstrumentTipData, are attached already).
    static ReferencePoseData compute(const TrackingStreamData& frame, const std::string& referenceId);

    const std::string& referenceId() const { return m_referenceId; }
    /// Whether the reference is tracked in this frame.
    bool referenceTracked() const { return m_referenceTracked; }
    const std::vector<Entry>& entries() const { return m_entries; }
    /// The entry of that instrument, or null (not valid in this frame).
    const Entry* find(const std::string& instrumentId) const;

private:
    std::string m_referenceId;
    bool m_referenceTracked = false;
    std::vector<Entry> m_entries;
};

} // namespace Kestrion
