#pragma once

#include "host/stream/DataComponent.h"

#include <Eigen/Core>

#include <string>
#include <vector>

namespace Kestrion {

/// The tool tips of a tracking frame's tracked instruments that have one (a calibrated point in
/// the marker's frame, for example from a pivot calibration): one entry per such instrument,
/// with the tip in the marker's frame and where the frame's pose puts it in camera coordinates
/// (millimetres). Instruments without a tip, and instruments not tracked in the frame, have no
/// entry. The tip's pose is the instrument's pose with the translation replaced by tipInCamera.
class InstrumentTipData : public DataComponent {
public:
    struct Entry {
        std::string instrumentId;
        Eigen::Vector3d tipInMarker = Eigen::Vector3d::Zero();
        Eigen::Vector3d tipInCamera = Eigen::Vector3d::Zero();
    };

    std::vector<Entry>& entries() { return m_entries; }
    const std::vector<Entry>& entries() const { return m_entries; }
    /// The entry of that instrument, or null.
    const Entry* find(const std::string& instrumentId) const {
        for (const auto& entry : m_entries)
            if (entry.instrumentId == instrumentId)
                return &entry;
        return nullptr;
    }

private:
    std::vector<Entry> m_entries;
};

} // namespace Kestrion
