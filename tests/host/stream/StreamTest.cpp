#include "host/stream/Stream.h"
#include "host/stream/StreamData.h"
#include "tests/host/stream/StreamTestSupport.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <thread>

using namespace Kestrion;
using namespace std::chrono_literals;
using TestSupport::ScriptedStream;
using State = Stream::State;

namespace {

enum class Op { Open, Start, Stop, Close };

bool run(Stream& s, Op op) {
    switch (op) {
    case Op::Open:
        return s.open();
    case Op::Start:
        return s.start();
    case Op::Stop:
        return s.stop();
    case Op::Close:
        return s.close();
    }
    return false;
}

void bringTo(ScriptedStream& s, State state) {
    if (state != State::Closed) {
        ASSERT_TRUE(s.open());
    }
    if (state == State::Running) {
        ASSERT_TRUE(s.start());
    }
    ASSERT_EQ(s.currentState(), state);
    s.takeStates();
    s.resetCounts();
}

struct Transition {
    State from;
    Op op;
    bool result;
    State to;
    int opens, starts, stops, closes;
    std::vector<State> announced;
};

} // namespace

TEST(Stream, LegalAndIllegalTransitions) {
    TestSupport::LogCapture capture;
    using S = State;
    const std::vector<Transition> table = {
        {S::Closed, Op::Open, true, S::Open, 1, 0, 0, 0, {S::Opening, S::Open}},
        {S::Closed, Op::Start, false, S::Closed, 0, 0, 0, 0, {}},
        {S::Closed, Op::Stop, false, S::Closed, 0, 0, 0, 0, {}},
        {S::Closed, Op::Close, true, S::Closed, 0, 0, 0, 0, {}},
        {S::Open, Op::Open, true, S::Open, 0, 0, 0, 0, {}},
        {S::Open, Op::Start, true, S::Running, 0, 1, 0, 0, {S::Starting, S::Running}},
        {S::Open, Op::Stop, true, S::Open, 0, 0, 0, 0, {}},
        {S::Open, Op::Close, true, S::Closed, 0, 0, 0, 1, {S::Closing, S::Closed}},
        {S::Running, Op::Open, true, S::Running, 0, 0, 0, 0, {}},
        {S::Running, Op::Start, true, S::Running, 0, 0, 0, 0, {}},
        {S::Running, Op::Stop, true, S::Open, 0, 0, 1, 0, {S::Stopping, S::Open}},
        {S::Running, Op::Close, true, S::Closed, 0, 0, 1, 1, {S::Stopping, S::Open, S::Closing, S::Closed}},
    };
    for (int mode : {Stream::NoThreadMode, Stream::WorkerThreadMode}) {
        for (std::size_t i = 0; i < table.size(); ++i) {
            const auto& t = table[i];
            SCOPED_TRACE("mode " + std::to_string(mode) + ", row " + std::to_string(i));
            ScriptedStream s(mode);
            bringTo(s, t.from);
            EXPECT_EQ(run(s, t.op), t.result);
            EXPECT_EQ(s.currentState(), t.to);
            EXPECT_EQ((std::vector<int>{s.opens, s.starts, s.stops, s.closes}),
                      (std::vector<int>{t.opens, t.starts, t.stops, t.closes}));
            EXPECT_EQ(s.takeStates(), t.announced);
        }
    }
    EXPECT_EQ(capture->count(Log::Warning, "Stream", "Stream 'Test stream': cannot start a closed stream"),
              2u);
    EXPECT_EQ(capture->count(Log::Warning, "Stream", "Stream 'Test stream': cannot stop a closed stream"),
              2u);
}

TEST(Stream, FailedTransitionsReturnToThePreviousState) {
    using S = State;
    struct Failure {
        State from;
        Op op;
        std::atomic<bool> ScriptedStream::*result;
        State to;
        std::vector<State> announced;
    };
    const std::vector<Failure> table = {
        {S::Closed, Op::Open, &ScriptedStream::openResult, S::Closed, {S::Opening, S::Closed}},
        {S::Open, Op::Start, &ScriptedStream::startResult, S::Open, {S::Starting, S::Open}},
        {S::Running, Op::Stop, &ScriptedStream::stopResult, S::Running, {S::Stopping, S::Running}},
        {S::Open, Op::Close, &ScriptedStream::closeResult, S::Open, {S::Closing, S::Open}},
        {S::Running,
         Op::Close,
         &ScriptedStream::closeResult,
         S::Open,
         {S::Stopping, S::Open, S::Closing, S::Open}},
        {S::Running, Op::Close, &ScriptedStream::stopResult, S::Running, {S::Stopping, S::Running}},
    };
    for (std::size_t i = 0; i < table.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i));
        const auto& f = table[i];
        ScriptedStream s(Stream::WorkerThreadMode);
        bringTo(s, f.from);
        (s.*f.result) = false;
        EXPECT_FALSE(run(s, f.op));
        EXPECT_EQ(s.currentState(), f.to);
        EXPECT_EQ(s.takeStates(), f.announced);
        if (f.to == S::Running) { // the worker runs again after a failed stop
            const int before = s.works.load();
            EXPECT_TRUE(s.states.waitFor([&] { return s.works.load() > before + 2; }));
        }
        s.openResult = s.startResult = s.stopResult = s.closeResult = true;
    }
}

TEST(Stream, FuturesReportResultsAndRethrowExceptions) {
    ScriptedStream s;
    s.throwOnOpen = true;
    auto failed = s.openAsync();
    try {
        failed.get();
        ADD_FAILURE() << "open should have thrown";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "device unplugged");
    }
    EXPECT_EQ(s.takeStates(), (std::vector<State>{State::Opening, State::Closed}));
    EXPECT_THROW(s.open(), std::runtime_error); // the synchronous form rethrows too
    s.takeStates();

    s.throwOnOpen = false;
    // Transitions queued one after the other run in order.
    auto opened = s.openAsync();
    auto started = s.startAsync();
    auto stopped = s.stopAsync();
    auto closed = s.closeAsync();
    EXPECT_TRUE(opened.get() && started.get() && stopped.get() && closed.get());
    EXPECT_EQ(s.takeStates(),
              (std::vector<State>{State::Opening, State::Open, State::Starting, State::Running,
                                  State::Stopping, State::Open, State::Closing, State::Closed}));
}

TEST(Stream, WorkerSleepsUntilTheReturnedTimeWakesAtOnceOnStopAndEmitsOnItsThread) {
    ScriptedStream s(Stream::WorkerThreadMode);
    s.work = [] { return Stream::Clock::now() + 10s; };
    ASSERT_TRUE(s.open());
    ASSERT_TRUE(s.start());
    ASSERT_TRUE(s.states.waitFor([&] { return s.works.load() == 1; }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(s.stop());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s) << "stop waited for the worker's sleep";
    EXPECT_EQ(s.works.load(), 1); // slept, not called again

    // A short sleep makes doWork run again and again, on a new worker after the stop; what it emits
    // reaches the receivers in order, on the worker's thread.
    TestSupport::Waiter received;
    std::vector<std::uint64_t> stamps;
    std::thread::id receiverThread;
    s.signalStreamData.connect([&](std::shared_ptr<const StreamData> data) {
        received.update([&] {
            stamps.push_back(data->deviceTimestamp());
            receiverThread = std::this_thread::get_id();
        });
    });
    std::uint64_t frame = 0;
    s.work = [&] {
        s.emitStreamData(std::make_shared<StreamData>(&s, 0, ++frame));
        return Stream::Clock::now() + 1ms;
    };
    ASSERT_TRUE(s.start());
    ASSERT_TRUE(received.waitFor([&] { return stamps.size() >= 5; }));
    const auto beginClose = std::chrono::steady_clock::now();
    EXPECT_TRUE(s.close());
    EXPECT_LT(std::chrono::steady_clock::now() - beginClose, 1s);
    const int calls = s.works.load();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(s.works.load(), calls); // no doWork after close returned
    std::lock_guard<std::mutex> lock(received.mutex());
    stamps.resize(5);
    EXPECT_EQ(stamps, (std::vector<std::uint64_t>{1, 2, 3, 4, 5}));
    EXPECT_NE(receiverThread, std::this_thread::get_id());
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
    TestSupport::Waiter gate;
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
    EXPECT_TRUE(stopped.get());
    EXPECT_TRUE(closeReturned.load());
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
    std::atomic<int> closes{0};

protected:
    bool closeImpl() override {
        ++closes;
        return true;
    }
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
