#pragma once

#include "host/stream/Stream.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace Kestrion {
/// Readable states in test failures.
inline void PrintTo(Stream::State state, std::ostream* out) {
    *out << Stream::stateName(state);
}
} // namespace Kestrion

namespace Kestrion::TestSupport {

/// Waits for conditions that other threads make true; every wait has a generous bound.
class Waiter {
public:
    template <class F>
    void update(F&& f) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            f();
        }
        m_cv.notify_all();
    }
    template <class Predicate>
    bool waitFor(Predicate&& p, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cv.wait_for(lock, timeout, p);
    }
    std::mutex& mutex() { return m_mutex; }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
};

/// A stream whose impls count their calls and return what the test chose; in worker mode its
/// doWork runs the test's function (set before start).
class ScriptedStream : public Stream {
public:
    explicit ScriptedStream(int mode = NoThreadMode, std::string name = "Test stream")
        : Stream(std::move(name))
        , m_mode(mode) {
        signalStateChanged.connect([this](State s) { states.update([&] { seen.push_back(s); }); });
    }
    ~ScriptedStream() override { close(); }

    int threadingMode() const override { return m_mode; }

    std::vector<State> takeStates() {
        std::lock_guard<std::mutex> lock(states.mutex());
        auto result = seen;
        seen.clear();
        return result;
    }
    bool waitForState(State s) {
        return states.waitFor([&] { return currentState() == s; });
    }
    void resetCounts() { opens = starts = stops = closes = works = 0; }

    std::atomic<bool> openResult{true}, startResult{true}, stopResult{true}, closeResult{true};
    std::atomic<bool> throwOnOpen{false};
    std::atomic<int> opens{0}, starts{0}, stops{0}, closes{0}, works{0};
    std::function<std::optional<Clock::time_point>()> work; // set while no worker runs
    Waiter states;
    std::vector<State> seen; // guarded by states.mutex()

    using Stream::emitStreamData;

protected:
    bool openImpl() override {
        ++opens;
        if (throwOnOpen)
            throw std::runtime_error("device unplugged");
        return openResult;
    }
    bool startImpl() override {
        ++starts;
        return startResult;
    }
    bool stopImpl() override {
        ++stops;
        return stopResult;
    }
    bool closeImpl() override {
        ++closes;
        return closeResult;
    }
    std::optional<Clock::time_point> doWork() override {
        states.update([&] { ++works; }); // wakes tests waiting for a number of calls
        return work ? work() : Clock::now() + std::chrono::milliseconds(1);
    }

private:
    int m_mode;
};

} // namespace Kestrion::TestSupport
