#include "python/src/PythonFrameQueue.h"

#include "host/stream/StreamData.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace Kestrion::Python {
namespace {

std::shared_ptr<const StreamData> item(std::uint64_t number) {
    return std::make_shared<StreamData>(nullptr, number);
}

TEST(PythonFrameQueue, GivesEveryFrameInOrderAndDropsTheOldestWhenFull) {
    PythonFrameQueue queue(3);
    for (std::uint64_t n = 1; n <= 5; ++n)
        queue.push(item(n));
    EXPECT_EQ(queue.pushed(), 5u);
    EXPECT_EQ(queue.dropped(), 2u); // 1 and 2 made room
    for (std::uint64_t n = 3; n <= 5; ++n) {
        auto frame = queue.take(std::chrono::milliseconds(0), false);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->arrivalTimestamp(), n);
    }
    EXPECT_FALSE(queue.take(std::chrono::milliseconds(1), false));
}

TEST(PythonFrameQueue, TheNewestSkipsTheOlderFramesWithoutCountingThemAsDropped) {
    PythonFrameQueue queue(8);
    for (std::uint64_t n = 1; n <= 4; ++n)
        queue.push(item(n));
    auto frame = queue.take(std::chrono::milliseconds(0), true);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->arrivalTimestamp(), 4u);
    EXPECT_EQ(queue.size(), 0u);
    EXPECT_EQ(queue.dropped(), 0u);
    queue.push(item(5)); // the ring goes on after a newest take
    EXPECT_EQ(queue.take(std::chrono::milliseconds(0), false)->arrivalTimestamp(), 5u);
}

TEST(PythonFrameQueue, CloseEndsAWaitAndRefusesLaterFramesButKeepsTheQueuedOnes) {
    PythonFrameQueue queue(4);
    queue.push(item(1));
    std::thread closer([&queue] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        queue.close();
    });
    EXPECT_TRUE(queue.take(std::chrono::seconds(10), false));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(queue.take(std::chrono::seconds(10), false)); // woken by the close, not the timeout
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    closer.join();
    queue.push(item(2));
    EXPECT_EQ(queue.pushed(), 1u);
    EXPECT_FALSE(queue.take(std::chrono::milliseconds(0), false));
}

TEST(PythonFrameQueue, AProducerAndAConsumerLoseNothingWhileTheQueueHoldsTheBacklog) {
    constexpr std::uint64_t Frames = 20000;
    PythonFrameQueue queue(Frames);
    std::thread producer([&queue] {
        for (std::uint64_t n = 1; n <= Frames; ++n)
            queue.push(item(n));
    });
    std::uint64_t expected = 1;
    while (expected <= Frames) {
        auto frame = queue.take(std::chrono::seconds(10), false);
        ASSERT_TRUE(frame);
        ASSERT_EQ(frame->arrivalTimestamp(), expected);
        ++expected;
    }
    producer.join();
    EXPECT_EQ(queue.dropped(), 0u);
}

TEST(PythonFrameQueue, UnderOverflowEveryFrameIsEitherTakenOrCountedAsDropped) {
    constexpr std::uint64_t Frames = 20000;
    PythonFrameQueue queue(16);
    std::atomic<bool> done{false};
    std::thread producer([&] {
        for (std::uint64_t n = 1; n <= Frames; ++n)
            queue.push(item(n));
        done = true;
    });
    std::uint64_t taken = 0;
    std::uint64_t last = 0;
    while (!done || queue.size() > 0) {
        if (auto frame = queue.take(std::chrono::milliseconds(1), taken % 7 == 0)) {
            ASSERT_GT(frame->arrivalTimestamp(), last); // never an older frame after a newer one
            last = frame->arrivalTimestamp();
            ++taken;
        }
    }
    producer.join();
    EXPECT_EQ(queue.pushed(), Frames);
    EXPECT_LE(taken + queue.dropped(), Frames); // a newest take skips frames without dropping them
    EXPECT_EQ(last, Frames);
}

} // namespace
} // namespace Kestrion::Python
