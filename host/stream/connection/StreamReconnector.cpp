#include "host/stream/connection/StreamReconnector.h"

#include "host/core/Log.h"
#include "host/stream/Stream.h"

#include <algorithm>

namespace Kestrion {

namespace {

constexpr const char* Category = "StreamReconnector";

} // namespace

StreamReconnector::StreamReconnector(Stream& stream)
    : StreamReconnector(stream, Timing{}) {}

StreamReconnector::StreamReconnector(Stream& stream, Timing timing)
    : m_stream(stream)
    , m_timing(timing) {
    m_thread = std::thread([this] { run(); });
}

StreamReconnector::~StreamReconnector() {
    disarm();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_exit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void StreamReconnector::arm() {
    bool changed = false;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_armed = true;
        changed = changeState(State::Watching);
    }
    m_wake.notify_all();
    if (changed)
        signalStateChanged.emitSignal(State::Watching);
}

void StreamReconnector::disarm() {
    bool changed = false;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_armed = false;
        m_wake.notify_all();
        m_wake.wait(lock, [this] { return !m_reopening; });
        changed = changeState(State::Idle);
    }
    if (changed)
        signalStateChanged.emitSignal(State::Idle);
}

bool StreamReconnector::lost() const {
    const Stream::State state = m_stream.currentState();
    if (state == Stream::State::Closed)
        return true;
    if (state != Stream::State::Running)
        return false; // a transition is under way
    // A source that ended (a replay at its end) has nothing more to give when reopened.
    return m_stream.health().snapshot().state == StreamHealth::State::NotDelivering;
}

void StreamReconnector::run() {
    // Checked a few times per interval, so that losses and returns are seen promptly.
    const auto tick = std::max(std::chrono::milliseconds(10),
                               std::min(m_timing.retryInterval, m_stream.health().silenceThreshold()) / 10);
    SteadyClock::time_point nextAttempt;
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_exit) {
        m_wake.wait_for(lock, tick);
        if (m_exit || !m_armed)
            continue;
        const auto now = SteadyClock::now();
        if (m_state.load() == State::Watching) {
            if (!lost())
                continue;
            m_attempts.store(0);
            nextAttempt = now;
            changeState(State::Waiting);
            lock.unlock(); // receivers of the state may call disarm()
            KESTRION_LOG_WARN(Category, m_stream.name() << ": the camera stopped; waiting for the camera");
            signalStateChanged.emitSignal(State::Waiting);
            lock.lock();
            continue;
        }
        if (m_state.load() != State::Waiting || now < nextAttempt)
            continue;
        m_reopening = true;
        lock.unlock();
        const bool back = reopen();
        if (back) {
            ++m_reconnections;
            KESTRION_LOG_INFO(Category, m_stream.name() << ": the camera is back; tracking again");
        }
        lock.lock();
        m_reopening = false;
        m_wake.notify_all();
        nextAttempt = SteadyClock::now() + m_timing.retryInterval;
        if (back && m_armed && changeState(State::Watching)) {
            lock.unlock();
            signalStateChanged.emitSignal(State::Watching);
            lock.lock();
        }
    }
}

bool StreamReconnector::reopen() {
    ++m_attempts;
    ++m_reopenings; // before the first frame of the reopened stream can be emitted
    m_stream.health().noteReopening();
    if (m_stream.currentState() != Stream::State::Closed)
        m_stream.close();
    if (m_stream.open() && m_stream.start())
        return true;
    m_stream.close(); // a failed start leaves the stream open
    return false;
}

bool StreamReconnector::changeState(State state) {
    return m_state.exchange(state) != state;
}

} // namespace Kestrion
