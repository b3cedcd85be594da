#pragma once

#include "simulator/src/FrameData.h"
#include "simulator/src/FrameProducer.h"
#include "simulator/src/FrameTruth.h"
#include "simulator/src/SensorImage.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Kestrion::Simulator {

/// Where a device's frames come from and when each can be fetched: measured from the scene on the
/// device's own clock (LiveFrameSource) or played from a recording at its recorded pace
/// (ReplayFrameSource). The device asks it which frame is current, when the next one comes and
/// for the frame's content; faults, options, delivery and waiting stay the device's.
///
/// Two modes, chosen per call by the simulator's clock: free running, frames come with time;
/// stepped, time stands still and each fetch takes the next frame. Switching keeps the frame
/// index increasing. Not locked: the owning device calls it with its mutex held.
class FrameSource {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~FrameSource() = default;

    /// Free running: the newest frame that can be fetched at `now`. Stepped: the last one taken.
    virtual std::uint64_t currentIndex(bool stepped, TimePoint now) = 0;
    /// Stepped: takes the next frame and returns its index.
    virtual std::uint64_t takeNext(bool stepped, TimePoint now) = 0;
    /// Stepped: skips frames without delivering them.
    virtual void skip(bool stepped, TimePoint now, std::uint64_t frames) = 0;
    /// Free running: when frame `index` can be fetched; none when it never will.
    virtual std::optional<TimePoint> arrival(std::uint64_t index) const = 0;
    /// Device time of frame `index` in seconds (the fault script's times).
    virtual double timeS(std::uint64_t index) const = 0;

    /// Frame `index` is about to be delivered at `now`.
    virtual void delivering(std::uint64_t /*index*/, TimePoint /*now*/) {}
    /// Whether frame `index` lies past the last one there is, with the reason in `message`.
    virtual bool pastEnd(std::uint64_t /*index*/, std::string& /*message*/) const { return false; }
    /// Whether frame `index` is the last one there is.
    virtual bool isLast(std::uint64_t /*index*/) const { return false; }

    /// Makes frame `index` (all but a measured frame's images) and its truth. False with the
    /// reason in `error` when it cannot be made.
    virtual bool produce(std::uint64_t index, const ProductionSettings& settings, FrameData& frame,
                         FrameTruth& truth, std::string& error) = 0;
    /// Draws the images of the frame last produced into a caller's record, for sources whose
    /// frames do not carry their own.
    virtual void drawImages(const ProductionSettings& /*settings*/, SensorImage& /*left*/,
                            SensorImage& /*right*/) {}
    /// When frame `index` was exposed, on the host's system clock (µs since the epoch, UTC);
    /// false when that is not known.
    virtual bool exposureTime(std::uint64_t /*index*/, std::int64_t& /*exposureUS*/) const { return false; }

    /// A recording played back: the device offers "Replay ended".
    virtual bool replays() const { return false; }
    /// A replay whose markers are found again in the recorded fiducials.
    virtual bool rematchesMarkers() const { return false; }
};

} // namespace Kestrion::Simulator
