#pragma once

#include "simulator/src/FaultRule.h"
#include "simulator/src/FrameData.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Kestrion::Simulator {

/// The faults of one device and their progress. Not locked: the owning device calls it under
/// its own mutex.
class FaultScript {
public:
    /// What one fetch must do according to the script.
    struct FetchOutcome {
        ftkError error = ftkError::FTK_OK;  ///< Non-zero: return it, deliver nothing.
        bool disconnect = false;            ///< The device disconnects now ...
        std::optional<double> reconnectAtS; ///< ... and comes back at this device time, if set.
        DeliveryFaults delivery;
        /// The call-counted delivery faults this fetch used (their indices), and the script they
        /// belong to, so that an empty fetch can give them back (onEmptyFetch).
        std::vector<std::size_t> deliveryFaults;
        std::uint64_t generation = 0;
    };

    void add(const FaultRule& fault);
    void clear();
    bool empty() const { return m_faults.empty(); }

    /// Called once per ftkGetLastFrame with the device's fetch number (from 1) and time.
    FetchOutcome onFetch(std::uint64_t fetchNumber, double timeS);

    /// A fetch admitted by onFetch delivered no frame (it waited in vain): the counts its delivery
    /// faults used go back to them, so that they mark the frames that are delivered.
    void onEmptyFetch(const FetchOutcome& outcome);

    /// Called while a fetch waits for a frame: the disconnections due by device time `timeS` (or
    /// at once), so that an unplugging is seen during the wait. Fetch-counted faults wait for
    /// the next fetch.
    FetchOutcome onWait(double timeS);

    /// True when a NoDevice fault hides the device.
    bool hidesDevice() const;
    /// Status for ftkEnumerateDevices, and whether the device is still reported.
    std::optional<ftkError> enumerationStatus(bool& reportDevices);
    std::optional<ftkError> optionEnumerationStatus();
    /// Refusal of a read (set false, with its getter) or write (set true) of one option.
    std::optional<ftkError> optionRefusal(std::uint32_t id, const std::string& name, bool set,
                                          ftkOptionGetter what);
    /// Refusal of ftkSetGeometry (clear false) or ftkClearGeometry (clear true).
    std::optional<ftkError> geometryRefusal(std::uint32_t geometryId, bool clear);
    /// Malformations of an option in the enumeration (0: none).
    FaultRule::Malformations malformations(std::uint32_t id, const std::string& name) const;

private:
    struct Active {
        FaultRule rule;
        std::int64_t remaining;
        bool started = false;
    };

    /// Whether a call-counted fault applies now, consuming one count when it does.
    static bool consume(Active& fault);
    static bool fetchTriggered(Active& fault, std::uint64_t fetchNumber, double timeS);

    std::vector<Active> m_faults;
    /// Changes when the faults are cleared (indices of an earlier outcome are then stale).
    std::uint64_t m_generation = 0;
};

} // namespace Kestrion::Simulator
