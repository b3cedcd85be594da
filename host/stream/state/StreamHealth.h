#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace Kestrion {

/// Whether a stream delivers data, defined once for every reader (tables, views, servers, the
/// reconnector, the command-line summary). The stream notes what happens (started, a data item, a
/// failure with its reason, a reopening, the end of its data, stopped); a reader takes a snapshot
/// at its own time and sees the state as of that time.
///
/// A running stream is delivering while its last data item (or its start) is more recent than
/// the silence threshold: the configured minimum (default 500 ms) or ten periods of the data rate
/// measured so far, whichever is longer. A silence longer than that is an outage; outages are
/// counted with their total time once data comes back, and the current one is in the snapshot.
///
/// Threads. Written by the stream's worker (data items, failures) and control thread (start,
/// stop), read from any thread: one mutex guards the few fields; it is held for a handful of
/// assignments only, never across a call out.
class StreamHealth {
public:
    using Clock = std::chrono::steady_clock;

    enum class State {
        Stopped,       ///< the stream is not running (closed, open, or between a stop and a start)
        Delivering,    ///< running, data within the silence threshold
        NotDelivering, ///< running, no data for longer than the threshold
        Ended,         ///< the source has no more data (a replayed recording played to its end)
    };

    struct Snapshot {
        State state = State::Stopped;
        /// Time since the last data item; none before the first one of this run (a reopening
        /// continues the run).
        std::optional<Clock::duration> sinceLastData;
        /// Data items since the health was created (all runs).
        std::uint64_t dataItems = 0;
        /// Outages that ended (data came back after a silence over the threshold), with their
        /// total duration; a current outage is not in these two.
        std::uint64_t outages = 0;
        Clock::duration outageTime{};
        /// Times the stream was reopened after it was lost.
        std::uint64_t reopenings = 0;
        /// A reopening was announced (noteReopening()) and its start has not come yet: a close
        /// now is part of bringing the stream back, not the end of the session.
        bool reopening = false;
        /// The last failure reported by the producer, in words (empty: none since the last data
        /// item), and why the data ended (State::Ended).
        std::string lastError;
        std::string endReason;
        /// The threshold in force.
        Clock::duration silenceThreshold{};
        /// The measured period between data items (zero until two were seen).
        Clock::duration dataPeriod{};

        bool delivering() const { return state == State::Delivering; }
    };

    /// Sets the minimum silence that counts as not delivering (default 500 ms).
    void setSilenceThreshold(std::chrono::milliseconds minimum);
    std::chrono::milliseconds silenceThreshold() const;

    void noteStarted(Clock::time_point now = Clock::now());
    void noteStopped();
    void noteData(Clock::time_point now = Clock::now());
    /// A failure of the producer (a fetch error, a lost device) with its reason in words.
    void noteFailure(std::string reason);
    /// A lost stream is being reopened: the next start continues the outage instead of beginning
    /// a new run (called by whoever reopens it, before the start).
    void noteReopening();
    /// The source has no more data; stays until the next start.
    void noteEnded(std::string reason);

    Snapshot snapshot(Clock::time_point now = Clock::now()) const;

    /// "stopped", "delivering", "not delivering", "ended".
    static const char* stateName(State state);

private:
    Clock::duration thresholdLocked() const;

    mutable std::mutex m_mutex;
    std::chrono::milliseconds m_minimum{500};
    bool m_running = false;
    bool m_ended = false;
    bool m_reopening = false;
    Clock::time_point m_startedAt{};
    std::optional<Clock::time_point> m_lastData;
    Clock::duration m_period{};
    std::uint64_t m_dataItems = 0;
    std::uint64_t m_outages = 0;
    Clock::duration m_outageTime{};
    std::uint64_t m_reopenings = 0;
    std::string m_lastError;
    std::string m_endReason;
};

} // namespace Kestrion
