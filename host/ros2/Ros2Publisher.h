#pragma once

#include "host/core/SignalConnection.h"
#include "host/ros2/Ros2Settings.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Kestrion {
class StreamData;
class TrackingStream;
} // namespace Kestrion

namespace Kestrion::Ros2 {

class Ros2Diagnostics;
class Ros2Participant;

/// Publishes a tracking stream to ROS 2 over DDS, as a ROS 2 node would: /tf, a PoseStamped per
/// tool on /<namespace>/<tool>/pose, the raw fiducials as a PointCloud2 on /<namespace>/fiducials
/// and the camera's and tools' state on /diagnostics. See docs/ros2.md.
///
/// Threads. The stream's worker only puts the frame into a one-frame slot (a newer frame replaces
/// one not yet taken; the replaced ones are counted while a subscriber is matched). While frames
/// flow to a subscriber the publisher's thread looks at the slot every 0.25 ms; otherwise the
/// worker wakes it when a subscriber is matched. That thread builds and writes the messages, only
/// for the topics a subscriber is matched on, and sends the diagnostics on a change and once a
/// second. Without any subscriber the worker's cost is the slot's swap. start(), serve(), stop()
/// and the counters may be called from any thread but the stream's worker.
class Ros2Publisher {
public:
    explicit Ros2Publisher(Ros2Settings settings = {});
    /// Stops publishing (see stop()).
    ~Ros2Publisher();
    Ros2Publisher(const Ros2Publisher&) = delete;
    Ros2Publisher& operator=(const Ros2Publisher&) = delete;

    /// Joins the DDS domain (settings, ROS_DOMAIN_ID, CYCLONEDDS_URI) and starts the publisher's
    /// thread. False (and a logged error, also in *error) when the settings or DDS refuse.
    bool start(std::string* error = nullptr);
    /// Publishes `stream` from now on (null: none); asks it for the instruments' status while it
    /// does. The stream must outlive its publishing: call serve(nullptr) or stop() first.
    void serve(TrackingStream* stream);
    /// Ends publishing: the reliable topics' subscribers get what was written (waited for, 1 s at
    /// most), then the participant leaves the domain.
    void stop();

    bool isPublishing() const { return m_thread.joinable(); }
    const Ros2Settings& settings() const { return m_settings; }
    /// The domain joined, and where the data goes in words ("loopback only", "interface eth0",
    /// "CYCLONEDDS_URI"); valid once started.
    int domainId() const { return m_domainId; }
    const std::string& reach() const { return m_reach; }
    /// Subscribers (distinct DDS participants: nodes, processes) matched on any of the topics.
    std::size_t subscribers() const { return m_subscribers.load(std::memory_order_relaxed); }
    /// Frames whose messages went to at least one subscriber.
    std::uint64_t framesPublished() const { return m_framesPublished.load(std::memory_order_relaxed); }
    /// Frames never published because a newer one arrived first while a subscriber was matched.
    std::uint64_t framesSkipped() const { return m_framesSkipped.load(std::memory_order_relaxed); }

    /// What the stream's data signal calls, on the stream's worker thread: hands the frame over.
    void onStreamData(const std::shared_ptr<const StreamData>& data);

    /// The warning shown when the data may leave this computer.
    static constexpr const char* NetworkWarning = "reachable from the network, without authentication";

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void publishDiagnostics(Ros2Diagnostics& diagnostics, const std::shared_ptr<const StreamData>& newest,
                            Clock::time_point now);

    const Ros2Settings m_settings;
    int m_domainId = 0;
    std::string m_reach;
    std::unique_ptr<Ros2Participant> m_participant;
    std::thread m_thread;

    // The stream published. m_serveMutex orders serve() against stop() and guards m_stream, which
    // the publisher's thread reads for the stream's health (a snapshot, a few assignments); the
    // worker never takes it.
    mutable std::mutex m_serveMutex;
    TrackingStream* m_stream = nullptr;
    SignalConnection m_dataConnection;

    // The hand-off slot, filled by the worker and emptied by the publisher's thread; the lock is
    // held for a pointer swap and the flags only. The same lock orders the wake-ups (worker, DDS
    // listener threads, stop) against the thread's wait, so that none is lost.
    std::mutex m_slotMutex;
    std::condition_variable m_wake;
    std::shared_ptr<const StreamData> m_slot;
    bool m_frameWaiting = false;
    bool m_matchesChanged = false;
    bool m_stopping = false;
    bool m_polling = false; // the thread looks at the slot by itself: no wake-up needed
    std::atomic<bool> m_anyMatched{false};

    std::atomic<std::size_t> m_subscribers{0};
    std::atomic<std::uint64_t> m_framesPublished{0};
    std::atomic<std::uint64_t> m_framesSkipped{0};
};

} // namespace Kestrion::Ros2
