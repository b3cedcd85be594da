#include "host/core/Signal.h"
#include "host/core/SignalDebouncer.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace Kestrion;
using namespace std::chrono_literals;

namespace {

// Opened by one thread, waited for by another with a generous bound.
struct Latch {
    void open() {
        std::lock_guard<std::mutex> lock(mutex); // the waiting thread reads isOpen
        isOpen = true;
        cv.notify_all();
    }
    bool wait() {
        std::unique_lock<std::mutex> lock(mutex);
        return cv.wait_for(lock, 10s, [&] { return isOpen; });
    }
    std::mutex mutex;
    std::condition_variable cv;
    bool isOpen = false;
};

struct Counter : SignalReceiver {
    void onValue(int v) { values.push_back(v); }
    std::vector<int> values;
};

} // namespace

TEST(Signal, CallsSlotsInOrderAndEndsConnectionsFromEitherSide) {
    Signal<int&, std::string> signal;
    std::vector<std::string> calls;
    auto first = signal.connect([&](int& v, std::string s) {
        calls.push_back("first " + s);
        ++v; // a reference argument reaches every slot as the same object
    });
    auto second =
        signal.connect([&](int& v, std::string s) { calls.push_back("second " + s + std::to_string(v)); });
    int value = 1;
    signal.emitSignal(value, "a");
    EXPECT_EQ(value, 2);
    first.disconnect();
    first.disconnect(); // idempotent
    signal(value, "b");
    signal.disconnectAll();
    EXPECT_FALSE(second.connected());
    signal(value, "c");
    EXPECT_EQ(calls, (std::vector<std::string>{"first a", "second a2", "second b2"}));

    SignalConnection late; // a handle may outlive its signal
    {
        late = Signal<>().connect([] {});
    }
    EXPECT_FALSE(late.connected());
    late.disconnect();
}

TEST(Signal, ExceptionPolicyFollowsTheFlag) {
    TestSupport::LogCapture capture;
    int after = 0;
    Signal<> logging;
    logging.connect([] { throw std::runtime_error("boom"); });
    logging.connect([&] { ++after; });
    EXPECT_NO_THROW(logging.emitSignal());
    EXPECT_EQ(after, 1);
    SignalImpl<true> propagating;
    propagating.connect([] { throw std::runtime_error("boom"); });
    propagating.connect([&] { ++after; });
    EXPECT_THROW(propagating.emitSignal(), std::runtime_error);
    EXPECT_EQ(after, 1);
    EXPECT_EQ(capture->count(Log::Error, "Signal", "A signal receiver threw an exception: boom"), 1u);
}

TEST(Signal, ConnectionsChangedDuringAnEmission) {
    Signal<int> signal;
    std::vector<std::string> calls;
    SignalConnection self, later, added;
    self = signal.connect([&](int) {
        calls.push_back("self");
        self.disconnect(); // from inside its own call: must not wait for itself
        later.disconnect();
        added = signal.connect([&](int) { calls.push_back("added"); });
    });
    later = signal.connect([&](int) { calls.push_back("later"); });
    signal(1);
    EXPECT_EQ(calls, (std::vector<std::string>{"self"})); // a slot connected meanwhile waits for the next
    signal(2);
    EXPECT_EQ(calls, (std::vector<std::string>{"self", "added"}));

    // A slot may destroy its own signal.
    auto owned = std::make_unique<Signal<>>();
    int calledAfterDestruction = 0;
    owned->connect([&] { owned.reset(); });
    owned->connect([&] { ++calledAfterDestruction; });
    owned->emitSignal();
    EXPECT_EQ(calledAfterDestruction, 0);
}

TEST(SignalReceiver, DestructionEndsItsConnectionsOnly) {
    Signal<int> signal;
    signal.connect([](int) {});
    {
        Counter counter;
        auto connection = signal.connect(&counter, &Counter::onValue);
        signal.connect(&counter, [&counter](int v) { counter.values.push_back(-v); });
        signal(3);
        EXPECT_EQ(counter.values, (std::vector<int>{3, -3}));
        Counter copy(counter); // connections belong to the original
        EXPECT_EQ(copy.numConnections(), 0u);
        connection.disconnect();
        EXPECT_EQ(counter.numConnections(), 1u);
    }
    EXPECT_EQ(signal.numConnections(), 1u);

    Counter survivor; // the signal may die first
    { Signal<int>().connect(&survivor, &Counter::onValue); }
    EXPECT_EQ(survivor.numConnections(), 0u);
}

namespace {
struct Watch {
    std::atomic<bool> destroyed{false};
    std::atomic<int> violations{0};
    Latch called;
};

// A receiver whose slot uses its members; it ends its connections before its members die.
class BusyReceiver : public SignalReceiver {
public:
    BusyReceiver(Signal<int>& signal, Watch& watch)
        : m_watch(watch) {
        signal.connect(this, &BusyReceiver::onValue);
    }
    ~BusyReceiver() override {
        disconnectAllSignals();
        m_watch.destroyed = true;
    }
    void onValue(int v) {
        m_watch.violations += m_watch.destroyed ? 1 : 0;
        m_sum += v; // member memory, touched only while connected
        m_watch.called.open();
        std::this_thread::sleep_for(100us);
        m_watch.violations += m_watch.destroyed ? 1 : 0;
    }

private:
    Watch& m_watch;
    std::atomic<long> m_sum{0};
};
} // namespace

TEST(SignalReceiver, DestroyedWhileOtherThreadsEmit) {
    Signal<int> signal;
    std::atomic<bool> stopEmitting{false};
    std::vector<std::thread> emitters;
    for (int t = 0; t < 2; ++t)
        emitters.emplace_back([&] {
            while (!stopEmitting)
                signal(1);
        });
    for (int round = 0; round < 20; ++round) {
        Watch watch;
        auto receiver = std::make_unique<BusyReceiver>(signal, watch);
        ASSERT_TRUE(watch.called.wait()); // destroyed while its slot is being called
        receiver.reset();
        std::this_thread::sleep_for(1ms); // a chance for the emitters to call a slot that should be gone
        EXPECT_EQ(watch.violations.load(), 0) << "round " << round;
    }
    stopEmitting = true;
    for (auto& t : emitters)
        t.join();
}

TEST(SignalDebouncer, SlowReceiverGetsTheLatestValueAndSkipsTheRest) {
    Signal<const std::vector<int>&> signal;
    Latch started, release;
    std::mutex mutex;
    std::vector<int> received;
    SignalDebouncer debouncer(signal, [&](std::vector<int>& values) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            received.push_back(values.at(0));
        }
        if (values.at(0) == 1) {
            started.open();
            release.wait();
        }
    });
    std::vector<int> data{1};
    signal(data);
    ASSERT_TRUE(started.wait());
    for (data[0] = 2; data[0] <= 4; ++data[0])
        signal(data);
    data[0] = 99; // the debouncer delivers its own copy, not the emitter's object
    release.open();
    ASSERT_TRUE(debouncer.waitUntilIdle(10s));
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(received, (std::vector<int>{1, 4}));
    EXPECT_EQ(debouncer.droppedCount(), 2u);
}

TEST(SignalDebouncer, DestructionDropsWaitingValueAndWaitsForTheReceiver) {
    Signal<int> signal;
    Latch started, release;
    std::atomic<int> calls{0};
    std::atomic<bool> receiverDone{false};
    auto debouncer = std::make_unique<SignalDebouncer<int>>(signal, [&](int&) {
        ++calls;
        started.open();
        release.wait();
        receiverDone = true;
    });
    signal(1);
    ASSERT_TRUE(started.wait());
    signal(2); // waits behind the busy receiver, dropped by the destruction
    std::thread releaser([&] {
        std::this_thread::sleep_for(20ms);
        release.open();
    });
    debouncer.reset();
    EXPECT_TRUE(receiverDone.load()); // destruction returned only after the running call ended
    releaser.join();
    signal(3); // no longer connected
    EXPECT_EQ(calls.load(), 1);
}
