#pragma once

#include "host/stream/DataComponent.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Kestrion {

/// Why each instrument of a tracking frame is or is not tracked, attached to the frame by a
/// producer that can tell (a camera stream that sees the raw fiducials). Consumers (tables, views,
/// network servers) read it without knowing the camera; a frame without it only says tracked or
/// not through the instruments' quality.
///
/// Producers compute it only while some consumer asks for it (TrackingStream::
/// requestInstrumentStatus), so that it costs nothing otherwise.
class InstrumentStatusData : public DataComponent {
public:
    /// What the producer concluded, from best to worst. The order is stable: it is shown and sent.
    enum class State : std::uint8_t {
        Tracked = 0,          ///< tracked, registration error within the threshold
        TrackedHighError = 1, ///< tracked, registration error above the threshold
        PartlySeen = 2,       ///< some of the geometry's fiducials found at its distances, not all
        Unmatched = 3,        ///< fiducials at nearly the geometry's distances, outside the tolerance
        NotInView = 4,        ///< nothing of the geometry in view
        NotOnCamera = 5,      ///< the geometry is not on the camera (refused or not yet pushed)
        Inactive = 6,         ///< the instrument takes no part in tracking
    };

    struct Entry {
        /// The instrument's id (TrackingInstrument::ID()).
        std::string instrumentId;
        State state = State::NotInView;
        /// The reason in words, for the user ("fiducials 2, 3 of 4 found; 1 missing").
        std::string reason;
        /// Registration error in millimetres while tracked; NaN otherwise.
        double registrationErrorMm = std::numeric_limits<double>::quiet_NaN();
        /// Fiducials of the geometry found in the frame, and the geometry's count.
        std::uint32_t fiducialsFound = 0;
        std::uint32_t fiducialsExpected = 0;
    };

    std::vector<Entry>& entries() { return m_entries; }
    const std::vector<Entry>& entries() const { return m_entries; }
    /// The entry of that instrument, or null.
    const Entry* find(const std::string& instrumentId) const;

    /// True for Tracked and TrackedHighError.
    static bool isTracked(State state) { return state == State::Tracked || state == State::TrackedHighError; }
    /// A short name of the state ("tracked", "high error", "partly seen", "unmatched",
    /// "not in view", "not on camera", "inactive").
    static const char* stateName(State state);

private:
    std::vector<Entry> m_entries;
};

} // namespace Kestrion
