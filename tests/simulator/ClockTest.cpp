// Frame timing: the free-running rate, waiting for a newer frame up to the timeout, and the
// stepped clock.

#include "tests/simulator/SimulatorTestSupport.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace Kestrion::SimulatorTest;
using Clock = std::chrono::steady_clock;

TEST(Clock, FreeRunningFramesComeAtTheModelRate) {
    SceneGuard scene(std::string(), false); // default spryTrack 180, 54 Hz
    Camera camera;
    ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
    const uint32 firstCounter = camera.frame->imageHeader->counter;
    const uint64 firstStamp = camera.frame->imageHeader->timestampUS;
    const auto start = Clock::now();
    uint32 previous = firstCounter;
    // Fetch for about two seconds; each fetch waits for the next frame.
    while (Clock::now() - start < std::chrono::seconds(2)) {
        ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
        const uint32 counter = camera.frame->imageHeader->counter;
        EXPECT_GT(counter, previous) << "a record never gets the same frame twice";
        previous = counter;
    }
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const uint32 frames = previous - firstCounter;
    // Scheduling delays shift the two ends by at most a few milliseconds each.
    EXPECT_NEAR(frames / elapsed, 54.0, 54.0 * 0.02);
    // The timestamps are spaced by the frame period whatever the machine does.
    const double period = double(camera.frame->imageHeader->timestampUS - firstStamp) / frames;
    EXPECT_NEAR(period, 1e6 / 54.0, 1.0);
}

TEST(Clock, GetLastFrameWaitsForANewerFrameUpToItsTimeout) {
    // A slow camera: a frame every 2 s.
    SceneGuard scene(R"({"devices": [{"serial": 9, "rateHz": 0.5}]})", false);
    Camera camera;
    ASSERT_EQ(camera.fetch(0), ftkError::FTK_OK) << "the current frame is there at once";
    const uint32 counter = camera.frame->imageHeader->counter;
    const auto before = Clock::now();
    EXPECT_EQ(camera.fetch(150), ftkError::FTK_WAR_NO_FRAME);
    const auto waited = Clock::now() - before;
    EXPECT_GE(waited, std::chrono::milliseconds(150));
    EXPECT_LT(waited, std::chrono::milliseconds(1900));
    EXPECT_EQ(+camera.frame->imageHeader->counter, counter) << "the record keeps its frame";
    EXPECT_NE(camera.errorText().find("<warning code=\"-1\" name=\"FTK_WAR_NO_FRAME\">"), std::string::npos)
        << camera.errorText();

    // Another record has not seen that frame yet.
    ftkFrameQuery* other = ftkCreateFrame();
    ASSERT_EQ(ftkSetFrameOptions(false, 0, 16, 16, 16, 4, other), ftkError::FTK_OK);
    EXPECT_EQ(ftkGetLastFrame(camera.lib, camera.serial, other, 0), ftkError::FTK_OK);
    EXPECT_EQ(+other->imageHeader->counter, counter);
    ftkDeleteFrame(other);

    // Long enough for the next one: it is delivered as soon as it exists.
    ASSERT_EQ(camera.fetch(3000), ftkError::FTK_OK);
    EXPECT_EQ(+camera.frame->imageHeader->counter, counter + 1);
}

TEST(Clock, SteppedClockDeliversConsecutiveFramesAtOnceAndFreeRunningContinuesFromThere) {
    SceneGuard scene(R"({"devices": [{"serial": 9, "model": "fusionTrack 500"}]})", true);
    Camera camera;
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    const uint32 first = camera.frame->imageHeader->counter;
    const uint64 stamp = camera.frame->imageHeader->timestampUS;
    for (uint32 i = 1; i <= 5; ++i) {
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
        EXPECT_EQ(+camera.frame->imageHeader->counter, first + i);
    }
    EXPECT_NEAR(double(camera.frame->imageHeader->timestampUS - stamp), 5 * 1e6 / 335.0, 1.0);
    ASSERT_TRUE(ftkSimStep(9, 100));
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(+camera.frame->imageHeader->counter, first + 106);
    EXPECT_EQ(camera.truth()->frameCounter, first + 106u);
    EXPECT_NEAR(camera.truth()->timeS, (first + 106) / 335.0, 1e-9);
    EXPECT_FALSE(ftkSimStep(12345, 1)) << "unknown serial";

    ftkSimSetSteppedClock(false);
    EXPECT_FALSE(ftkSimStep(9, 1)) << "only a stepped clock can be stepped";
    ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
    EXPECT_GT(+camera.frame->imageHeader->counter, first + 106);
}
