#pragma once

#include "host/core/Signal.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace Kestrion {

class Stream;

/// Keeps a stream running across a camera that is unplugged and plugged back: once armed, a
/// stream that has closed itself, or that runs but is not delivering by its health (the one
/// answer to "is the camera delivering?", StreamHealth), is closed and reopened and restarted
/// every `retryInterval` until it runs again. Each reopening is noted in the stream's health
/// before the stream is opened again, so that the health counts the silence until the data comes
/// back as one outage and readers see the reopenings.
///
/// Threads. The watching and the reopening run on the reconnector's own thread, never on the
/// stream's worker thread: reopening closes the stream, which joins that worker. Nothing runs on
/// the worker thread. Call arm() and disarm() from the thread that owns the stream (not from a
/// receiver of the stream's signals); disarm() before a deliberate stop or close, so that it is
/// not undone.
class StreamReconnector {
public:
    enum class State {
        Idle,     ///< Not armed.
        Watching, ///< Armed; the stream runs and delivers.
        Waiting   ///< The camera is gone; reopening once per retry interval.
    };
    struct Timing {
        std::chrono::milliseconds retryInterval{1000};
    };

    /// Reopens once a second once the stream's health says it is not delivering.
    explicit StreamReconnector(Stream& stream);
    StreamReconnector(Stream& stream, Timing timing);
    /// Disarms and ends the thread; the stream is left as it is.
    ~StreamReconnector();
    StreamReconnector(const StreamReconnector&) = delete;
    StreamReconnector& operator=(const StreamReconnector&) = delete;

    /// Starts watching.
    void arm();
    /// Stops watching; waits for a reopening in progress to end.
    void disarm();

    State state() const { return m_state.load(); }
    /// How many times the stream was brought back.
    std::uint64_t reconnections() const { return m_reconnections.load(); }
    /// Reopenings tried since the camera was lost last (reset when it is back).
    std::uint64_t attempts() const { return m_attempts.load(); }
    /// Reopenings begun so far, counted before the stream is opened again: a consumer of the
    /// stream's data that sees this count change knows that the frames after it may come from a
    /// camera that starts its frame counter anew, even before the reopening is reported done.
    /// The stream's health counts the same (StreamHealth::Snapshot::reopenings).
    std::uint64_t reopenings() const { return m_reopenings.load(); }

    /// State changes, emitted on the reconnector's thread (or the caller's, for arm/disarm); a
    /// receiver reads state() for the latest.
    Signal<State> signalStateChanged;

private:
    using SteadyClock = std::chrono::steady_clock;

    void run();
    bool lost() const;
    /// One close, open and start; true when the stream runs again.
    bool reopen();
    /// (m_mutex) Sets the state; true when it changed. The change is emitted after the unlock.
    bool changeState(State state);

    Stream& m_stream;
    const Timing m_timing;
    std::atomic<State> m_state{State::Idle};
    std::atomic<std::uint64_t> m_reconnections{0};
    std::atomic<std::uint64_t> m_attempts{0};
    std::atomic<std::uint64_t> m_reopenings{0};

    // Guards m_armed, m_reopening, m_exit and the changes of m_state: arm/disarm and the destructor
    // meet the thread here, and disarm must know that no reopening runs any more. Never held while
    // the stream is called or a signal is emitted.
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_armed = false;
    bool m_reopening = false;
    bool m_exit = false;
    std::thread m_thread;
};

} // namespace Kestrion
