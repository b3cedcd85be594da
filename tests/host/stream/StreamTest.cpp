#include "host/stream/Stream.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Kestrion {
/// Readable states in test failures.
void PrintTo(Stream::State state, std::ostream* out) {
    *out << Stream::stateName(state);
}
} // namespace Kestrion

using namespace std::chrono_literals;
using State = Kestrion::Stream::State;

namespace {
using namespace Kestrion;

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
        return std::exchange(seen, {});
    }
    bool waitForState(State s) {
        return states.waitFor([&] { return currentState() == s; });
    }

    std::atomic<bool> openResult{true}, startResult{true}, stopResult{true}, closeResult{true};
    std::atomic<int> opens{0}, starts{0}, stops{0}, closes{0}, works{0};
    std::function<std::optional<Clock::time_point>()> work; // set while no worker runs
    Waiter states;
    std::vector<State> seen; // guarded by states.mutex()

protected:
    bool openImpl() override {
        ++opens;
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

enum class Op { Open, Start, Stop, Close };

bool run(Stream& s, Op op) {
    return op == Op::Open ? s.open() : op == Op::Start ? s.start() : op == Op::Stop ? s.stop() : s.close();
}

void bringTo(ScriptedStream& s, State state) {
    ASSERT_TRUE(state == State::Closed || s.open());
    ASSERT_TRUE(state != State::Running || s.start());
    ASSERT_EQ(s.currentState(), state);
    s.takeStates();
    s.opens = s.starts = s.stops = s.closes = 0;
}

struct Transition {
    State from;
    Op op;
    std::atomic<bool> ScriptedStream::*fails; // the impl made to fail, or null
    bool result;
    State to;
    int opens, starts, stops, closes;
    std::vector<State> announced;
};

} // namespace

TEST(Stream, TransitionsRefusalsAndFailures) {
    TestSupport::LogCapture capture;
    using S = State;
    using SS = ScriptedStream;
    const std::vector<Transition> table = {
        {S::Closed, Op::Open, nullptr, true, S::Open, 1, 0, 0, 0, {S::Opening, S::Open}},
        {S::Closed, Op::Start, nullptr, false, S::Closed, 0, 0, 0, 0, {}},
        {S::Closed, Op::Stop, nullptr, false, S::Closed, 0, 0, 0, 0, {}},
        {S::Closed, Op::Close, nullptr, true, S::Closed, 0, 0, 0, 0, {}},
        {S::Open, Op::Open, nullptr, true, S::Open, 0, 0, 0, 0, {}},
        {S::Open, Op::Start, nullptr, true, S::Running, 0, 1, 0, 0, {S::Starting, S::Running}},
        {S::Open, Op::Stop, nullptr, true, S::Open, 0, 0, 0, 0, {}},
        {S::Open, Op::Close, nullptr, true, S::Closed, 0, 0, 0, 1, {S::Closing, S::Closed}},
        {S::Running, Op::Open, nullptr, true, S::Running, 0, 0, 0, 0, {}},
        {S::Running, Op::Start, nullptr, true, S::Running, 0, 0, 0, 0, {}},
        {S::Running, Op::Stop, nullptr, true, S::Open, 0, 0, 1, 0, {S::Stopping, S::Open}},
        {S::Running,
         Op::Close,
         nullptr,
         true,
         S::Closed,
         0,
         0,
         1,
         1,
         {S::Stopping, S::Open, S::Closing, S::Closed}},
        // A failed transition returns to the state before it.
        {S::Closed, Op::Open, &SS::openResult, false, S::Closed, 1, 0, 0, 0, {S::Opening, S::Closed}},
        {S::Open, Op::Start, &SS::startResult, false, S::Open, 0, 1, 0, 0, {S::Starting, S::Open}},
        {S::Running, Op::Stop, &SS::stopResult, false, S::Running, 0, 0, 1, 0, {S::Stopping, S::Running}},
        {S::Open, Op::Close, &SS::closeResult, false, S::Open, 0, 0, 0, 1, {S::Closing, S::Open}},
        {S::Running,
         Op::Close,
         &SS::closeResult,
         false,
         S::Open,
         0,
         0,
         1,
         1,
         {S::Stopping, S::Open, S::Closing, S::Open}},
        {S::Running, Op::Close, &SS::stopResult, false, S::Running, 0, 0, 1, 0, {S::Stopping, S::Running}},
    };
    for (int mode : {Stream::NoThreadMode, Stream::WorkerThreadMode}) {
        for (std::size_t i = 0; i < table.size(); ++i) {
            const auto& t = table[i];
            SCOPED_TRACE("mode " + std::to_string(mode) + ", row " + std::to_string(i));
            ScriptedStream s(mode);
            bringTo(s, t.from);
            if (t.fails)
                (s.*t.fails) = false;
            EXPECT_EQ(run(s, t.op), t.result);
            EXPECT_EQ(s.currentState(), t.to);
            EXPECT_EQ((std::vector<int>{s.opens, s.starts, s.stops, s.closes}),
                      (std::vector<int>{t.opens, t.starts, t.stops, t.closes}));
            EXPECT_EQ(s.takeStates(), t.announced);
            if (mode == Stream::WorkerThreadMode && t.fails && t.to == S::Running) { // works again
                const int before = s.works.load();
                EXPECT_TRUE(s.states.waitFor([&] { return s.works.load() > before + 2; }));
            }
            s.openResult = s.startResult = s.stopResult = s.closeResult = true;
        }
    }
    EXPECT_EQ(capture->count(Log::Warning, "Stream", "Stream 'Test stream': cannot start a closed stream"),
              2u);
    EXPECT_EQ(capture->count(Log::Warning, "Stream", "Stream 'Test stream': cannot stop a closed stream"),
              2u);
}

TEST(Stream, WorkerSleepsUntilTheReturnedTimeAndWakesAtOnceOnStop) {
    ScriptedStream s(Stream::WorkerThreadMode);
    s.work = [] { return Stream::Clock::now() + 10s; };
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.start());
    ASSERT_TRUE(s.states.waitFor([&] { return s.works.load() == 1; }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(s.stop());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s) << "stop waited for the worker's sleep";
    EXPECT_EQ(s.works.load(), 1); // slept, not called again

    // With short sleeps doWork runs again and again; none runs once close returned.
    s.work = nullptr;
    ASSERT_TRUE(s.start());
    ASSERT_TRUE(s.states.waitFor([&] { return s.works.load() >= 5; }));
    EXPECT_TRUE(s.close());
    const int calls = s.works.load();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(s.works.load(), calls);
}

TEST(Stream, CloseFromInsideDoWork) {
    ScriptedStream s(Stream::WorkerThreadMode);
    std::atomic<int> firstResult{-1}, secondResult{-1};
    s.work = [&] {
        if (s.works.load() == 1) {
            firstResult = s.close();
            secondResult = s.close(); // twice in a row
        }
        return Stream::Clock::now() + 1ms;
    };
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.start());
    ASSERT_TRUE(s.waitForState(State::Closed));
    EXPECT_EQ(firstResult + secondResult, 2);
    // The worker left after the doWork that asked for the close; stop and close ran once.
    EXPECT_EQ((std::vector<int>{s.works, s.stops, s.closes}), (std::vector<int>{1, 1, 1}));

    // The stream can run again, with a new worker.
    s.work = nullptr;
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.start());
    EXPECT_TRUE(s.states.waitFor([&] { return s.works.load() >= 3; }));
}

TEST(Stream, CloseFromDoWorkWhileAnotherThreadStops) {
    ScriptedStream s(Stream::WorkerThreadMode);
    Waiter gate;
    bool stopping = false;
    s.signalStateChanged.connect([&](State state) {
        if (state == State::Stopping)
            gate.update([&] { stopping = true; });
    });
    std::atomic<bool> closeReturned{false};
    s.work = [&] {
        // Block until another thread is stopping the stream (and waits for this worker), then close.
        gate.waitFor([&] { return stopping; });
        s.close();
        closeReturned = true;
        return Stream::Clock::now() + 1ms;
    };
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.start());
    ASSERT_TRUE(s.states.waitFor([&] { return s.works.load() == 1; }));
    auto stopped = s.stopAsync();
    ASSERT_EQ(stopped.wait_for(10s), std::future_status::ready) << "stop and close from doWork deadlocked";
    EXPECT_TRUE(stopped.get() && closeReturned);
    ASSERT_TRUE(s.waitForState(State::Closed));
    EXPECT_EQ(s.closes.load(), 1);
}

TEST(Stream, ExceptionInDoWorkStopsTheStream) {
    TestSupport::LogCapture capture;
    ScriptedStream s(Stream::WorkerThreadMode);
    s.work = []() -> std::optional<Stream::Clock::time_point> { throw std::runtime_error("sensor fault"); };
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.start());
    ASSERT_TRUE(s.waitForState(State::Open));
    EXPECT_EQ(s.works.load(), 1);
    EXPECT_TRUE(capture->contains(
        Log::Error, "Stream",
        "Stream 'Test stream': doWork threw an exception, the stream is stopped: sensor fault"))
        << capture->dump();
}

TEST(Stream, TransitionsFromTheControlThreadAreQueuedNotAwaited) {
    TestSupport::LogCapture capture;
    ScriptedStream s;
    std::atomic<int> syncResult{-1};
    s.signalStateChanged.connect([&](State state) {
        if (state == State::Open && s.starts.load() == 0) {
            syncResult = s.start(); // would wait for itself
            s.startAsync();
        }
    });
    ASSERT_TRUE(s.open());
    EXPECT_TRUE(s.waitForState(State::Running));
    EXPECT_EQ(syncResult.load(), 0);
    EXPECT_TRUE(
        capture->contains(Log::Error, "Stream",
                          "Stream 'Test stream': start() cannot wait on the stream's own control thread; use "
                          "startAsync()"))
        << capture->dump();
}

namespace {
// Overrides an impl but forgets to close in its destructor.
class ForgetfulStream : public Stream {
public:
    ForgetfulStream()
        : Stream("Forgetful") {}

protected:
    bool closeImpl() override { return true; }
};
} // namespace

TEST(Stream, DestructionClosesThroughTheDerivedClass) {
    TestSupport::LogCapture capture;
    std::vector<State> announced;
    {
        auto s = std::make_unique<ScriptedStream>(Stream::WorkerThreadMode);
        ASSERT_TRUE(s->open());
        ASSERT_TRUE(s->start());
        s->signalStateChanged.connect([&](State state) { announced.push_back(state); }); // joined before read
        s.reset(); // ~ScriptedStream closes: stop and close run while the object is whole
    }
    EXPECT_EQ(announced, (std::vector<State>{State::Stopping, State::Open, State::Closing, State::Closed}));
    {
        ScriptedStream neverOpened; // needs no control thread to close
    }
    {
        ForgetfulStream forgetful;
        ASSERT_TRUE(forgetful.open());
    }
    EXPECT_TRUE(
        capture->contains(Log::Error, "Stream",
                          "Stream 'Forgetful' destroyed while open: derived streams must call close() in "
                          "their destructor"))
        << capture->dump();
    EXPECT_EQ(capture->countContaining("destroyed while"), 1u);
}

TEST(Stream, ConcurrentTransitionsFollowTheStateMachine) {
    TestSupport::LogCapture capture; // refused starts and stops warn
    ScriptedStream s(Stream::WorkerThreadMode);
    // Every announced state must follow from the one before.
    const std::map<State, std::vector<State>> next = {
        {State::Closed, {State::Opening}},
        {State::Opening, {State::Open, State::Closed}},
        {State::Open, {State::Starting, State::Closing}},
        {State::Starting, {State::Running, State::Open}},
        {State::Running, {State::Stopping}},
        {State::Stopping, {State::Open, State::Running}},
        {State::Closing, {State::Closed, State::Open}},
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 2; ++seed)
        threads.emplace_back([&s, seed] {
            std::mt19937 random(seed);
            for (int i = 0; i < 100; ++i) {
                const Op op = static_cast<Op>(random() % 4);
                if (random() % 2)
                    run(s, op);
                else
                    (op == Op::Open    ? s.openAsync()
                     : op == Op::Start ? s.startAsync()
                     : op == Op::Stop  ? s.stopAsync()
                                       : s.closeAsync())
                        .wait();
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_TRUE(s.close());
    const auto states = s.takeStates();
    ASSERT_FALSE(states.empty());
    State previous = State::Closed;
    for (std::size_t i = 0; i < states.size(); ++i) {
        const auto& allowed = next.at(previous);
        ASSERT_NE(std::find(allowed.begin(), allowed.end(), states[i]), allowed.end())
            << "state " << Stream::stateName(states[i]) << " after " << Stream::stateName(previous) << " at "
            << i;
        previous = states[i];
    }
    EXPECT_EQ(previous, State::Closed);
}
