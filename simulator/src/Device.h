#pragma once

#include "simulator/src/FaultScript.h"
#include "simulator/src/FrameData.h"
#include "simulator/src/FrameProducer.h"
#include "simulator/src/FrameTruth.h"
#include "simulator/src/OptionTable.h"
#include "simulator/src/SceneDescription.h"
#include "simulator/src/SensorImage.h"

#include <ftkInterface.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion::Simulator {

class FrameSource;

/// One simulated camera. Devices live for the process (or until a new scene replaces them for
/// handles opened later); every library handle connected to a device shares its options, clock,
/// faults and frames, as with a physical camera. Its frames come from a FrameSource: measured
/// from the scene (a camera) or played from a recording (a replay).
///
/// Thread safety: every member is guarded by m_mutex, because frames are fetched on one thread
/// while options are read or written, faults injected and the clock stepped on others. The
/// mutex is never held while waiting for a frame (the wait releases it on m_wake) nor while
/// calling a caller's callback. Lock order: a device's mutex before a session's.
class Device {
public:
    /// A camera measuring the scene.
    Device(const DeviceDescription& description, std::shared_ptr<const SceneDescription> scene,
           const std::atomic<bool>& steppedClock);
    /// A device whose frames come from `source` (a replay offers "Replay ended").
    Device(const DeviceDescription& description, std::shared_ptr<const SceneDescription> scene,
           std::unique_ptr<FrameSource> source, const std::atomic<bool>& steppedClock);
    ~Device();

    /// Markers are matched again in the replayed fiducials rather than taken as recorded. Fixed
    /// at construction, so it needs no lock.
    bool rematchesReplay() const { return m_rematch; }

    std::uint64_t serial() const { return m_serial; }
    ftkDeviceType type() const { return m_model.type; }
    const DeviceModel& model() const { return m_model; }
    /// The scene the device was made from (fixed for its life).
    const SceneDescription& scene() const { return *m_scene; }

    /// Hidden by a "no device" fault: not enumerated, serial unknown.
    bool hidden();
    /// Whether ftkEnumerateDevices reports this device, and the status the enumeration returns.
    bool enumerate(ftkError& status);

    // Options (the C interface's rules plus scripted refusals and disconnection).
    ftkError getInt(std::uint32_t id, ftkOptionGetter what, std::int32_t& out, std::string& message);
    ftkError setInt(std::uint32_t id, std::int32_t value, std::string& message);
    ftkError getFloat(std::uint32_t id, ftkOptionGetter what, float& out, std::string& message);
    ftkError setFloat(std::uint32_t id, float value, std::string& message);
    ftkError getData(std::uint32_t id, ftkBuffer& out, std::string& message);
    ftkError setData(std::uint32_t id, const ftkBuffer& value, std::string& message);
    /// The option descriptions as the enumeration reports them (malformations applied), and the
    /// enumeration's status. The strings stay valid while the device lives.
    ftkError optionInfos(std::vector<ftkOptionsInfo>& infos);
    /// Applies a scene's initial option value; false with a message when it does not fit.
    bool applySetting(const OptionSetting& setting, std::string& message);

    /// A scripted refusal of a geometry registration or removal, if any.
    std::optional<ftkError> geometryRefusal(std::uint32_t geometryId, bool clear);

    /// First half of a fetch: disconnection and scripted fetch faults, then the index of the frame
    /// to deliver, waiting up to timeoutMS for one newer than `lastIndex` (when `hasLast`).
    /// FTK_WAR_NO_FRAME when none came; FTK_ERR_DISCONNECTION when the device is unplugged, also
    /// during the wait.
    ftkError admitFetch(bool hasLast, std::uint64_t lastIndex, std::uint32_t timeoutMS, std::uint64_t& index,
                        DeliveryFaults& faults, std::string& message);

    /// Second half: with the device locked (see lock()), makes sure frame `index` is produced
    /// (with images when wanted and enabled) and counts the delivery. FTK_ERR_READ with the
    /// reason in `message` when a replayed frame cannot be read; nothing is delivered then.
    ftkError frameLocked(std::uint64_t index, bool wantImages, const FrameData*& frame, bool& withImages,
                         std::string& message);
    /// With the device locked, after frameLocked() said `withImages`: draws the images of a
    /// measured frame into a record's buffers (a replayed frame carries its own).
    void drawImagesLocked(SensorImage& left, SensorImage& right);
    const FrameTruth& truthLocked() const { return m_truth; }
    float matchingToleranceLocked() const;
    std::unique_lock<std::mutex> lock() { return std::unique_lock<std::mutex>(m_mutex); }

    // Control.
    void addFault(const FaultRule& fault);
    void clearFaults();
    /// Stepped clock: skips frames without delivering them.
    void skipFrames(std::uint64_t frames);
    /// The simulator's clock changed mode: a fetch waiting for a frame looks again at once.
    void clockChanged();
    std::uint64_t fetchCount();
    bool disconnected();
    /// When frame `index` was exposed, on the host's system clock (µs since the epoch, UTC);
    /// false for a replay, whose frames were exposed when they were recorded.
    bool exposureTime(std::uint64_t index, std::int64_t& exposureUS);

private:
    ftkError optionGate(std::uint32_t id, bool set, ftkOptionGetter what, std::string& message);
    /// An option call under the mutex: the gate, then `call`, with its failure in words.
    template <typename Call>
    ftkError optionCall(std::uint32_t id, bool set, ftkOptionGetter what, std::string& message, Call call);
    void mirrorProcessingOptions(std::uint32_t id);
    ProductionSettings settingsLocked() const;
    /// Free running: waits (without the lock) for a frame newer than `lastIndex` until the
    /// deadline, waking early when the clock, the faults or the connection change.
    ftkError waitLocked(std::unique_lock<std::mutex>& lock, std::uint64_t lastIndex,
                        std::chrono::steady_clock::time_point deadline, std::uint32_t timeoutMS,
                        std::uint64_t& index, std::string& message);
    /// Waits until a frame's arrival, the last SpinAhead of it without sleeping; may return early
    /// (a wake-up, or the start of that last stretch).
    void waitForArrivalLocked(std::unique_lock<std::mutex>& lock,
                              std::chrono::steady_clock::time_point arrival);
    /// Makes frame `index` into m_frame; false with the reason when it cannot be made.
    bool produceLocked(std::uint64_t index, std::string& message);
    /// Makes frame `index` ahead of its delivery (see waitLocked).
    void prepareLocked(std::uint64_t index);
    /// The frame a fetch takes: FTK_WAR_NO_FRAME past the end of a replay.
    ftkError deliverLocked(std::uint64_t index, std::chrono::steady_clock::time_point now,
                           std::string& message);
    /// Whether the device is disconnected now, ending a disconnection whose time is over.
    bool disconnectedLocked();
    /// Device time of the current frame, in seconds (fault triggers and reconnection).
    double currentTimeLocked(bool next);

    const std::uint64_t m_serial;
    const DeviceModel m_model;
    const std::shared_ptr<const SceneDescription> m_scene;
    const std::atomic<bool>& m_steppedClock;

    std::mutex m_mutex;
    std::condition_variable m_wake; ///< Wakes a waiting fetch: clock, faults or connection changed.
    OptionTable m_options;
    FaultScript m_faults;
    std::unique_ptr<FrameSource> m_source;
    bool m_rematch = false;
    FrameData m_frame;
    FrameTruth m_truth;
    bool m_frameValid = false;
    /// The frame last made ahead of its delivery, made at most once.
    std::optional<std::uint64_t> m_preparedIndex;
    /// How long before a frame's arrival a waiting fetch makes it.
    static constexpr std::chrono::microseconds PrepareAhead{1000};
    /// How long before a frame's arrival a waiting fetch stops sleeping: a little more than a
    /// timer's usual lateness, so that little of it is spent spinning.
    static constexpr std::chrono::microseconds SpinAhead{80};
    std::uint64_t m_fetches = 0;
    bool m_delivered = false;
    std::uint64_t m_lastDelivered = 0;
    std::uint64_t m_lostFrames = 0;
    bool m_disconnected = false;
    std::optional<double> m_reconnectAtS; ///< Device time at which a disconnection ends.
};

} // namespace Kestrion::Simulator
