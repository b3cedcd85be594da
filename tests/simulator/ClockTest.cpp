// Frame timing: the free-running rate and the stepped clock.

#include "tests/simulator/SimulatorTestSupport.h"

#include <chrono>

using namespace Kestrion::SimulatorTest;
using Clock = std::chrono::steady_clock;

namespace {

/// The frame that was the newest at some moment between `before` and `after`.
struct Sample {
    Clock::time_point before, after;
    uint32 counter = 0;
};

/// Samples until the call is bracketed within 1 ms (a loaded machine may preempt the test
/// between the clock reads and the fetch; a later try is not).
Sample sampleCurrentFrame(const Camera& camera) {
    Sample sample;
    for (int attempt = 0; attempt < 200; ++attempt) {
        ftkFrameQuery* fresh = ftkCreateFrame(); // a record with no frame yet never waits
        EXPECT_EQ(ftkSetFrameOptions(false, 0, 16, 16, 16, 4, fresh), ftkError::FTK_OK);
        sample.before = Clock::now();
        const ftkError status = ftkGetLastFrame(camera.lib, camera.serial, fresh, 0);
        sample.after = Clock::now();
        sample.counter = fresh->imageHeader->counter;
        ftkDeleteFrame(fresh);
        EXPECT_EQ(status, ftkError::FTK_OK);
        if (sample.after - sample.before < std::chrono::milliseconds(1)) {
            break;
        }
    }
    return sample;
}

double seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

} // namespace

TEST(Clock, FreeRunningFramesComeAtTheModelRate) {
    // The slowest and the fastest model, each watched long enough for the counters to pin the rate
    // down to well within 2% (two frames of uncertainty over the window).
    const struct {
        const char* scene;
        double rateHz;
        double windowS;
    } cameras[] = {
        {R"({"devices": [{"serial": 9, "model": "spryTrack 180"}]})", 54.0, 3.0},
        {R"({"devices": [{"serial": 9, "model": "fusionTrack 500"}]})", 335.0, 1.0},
    };
    for (const auto& c : cameras) {
        SceneGuard scene(c.scene, false);
        Camera camera;
        const Sample first = sampleCurrentFrame(camera);
        // Fetching all along: each fetch waits for the next frame and never gets one twice.
        int64 previous = -1;
        while (Clock::now() - first.after < std::chrono::duration<double>(c.windowS)) {
            ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
            EXPECT_GT(int64(camera.frame->imageHeader->counter), previous) << "never the same frame twice";
            previous = camera.frame->imageHeader->counter;
        }
        const Sample last = sampleCurrentFrame(camera);

        // Frame n exists from start + n / rate; a sample's frame was the newest within its
        // bracket, so the true rate lies between these bounds whatever the scheduling.
        const double frames = double(last.counter - first.counter);
        const double lowest = (frames - 1.0) / seconds(last.after - first.before);
        const double highest = (frames + 1.0) / seconds(last.before - first.after);
        EXPECT_LE(lowest, c.rateHz) << c.scene;
        EXPECT_GE(highest, c.rateHz) << c.scene;
        EXPECT_LT(highest - lowest, 0.02 * c.rateHz) << "not measured to within 2%: " << c.scene;
    }
}

TEST(Clock, SteppedClockDeliversConsecutiveFramesAtOnceAndFreeRunningContinuesFromThere) {
    SceneGuard scene(R"({"devices": [{"serial": 9, "model": "fusionTrack 500"}]})", true);
    Camera camera;
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    const uint32 first = camera.frame->imageHeader->counter;
    const uint64 stamp = camera.frame->imageHeader->timestampUS;
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(+camera.frame->imageHeader->counter, first + 1);
    EXPECT_NEAR(double(camera.frame->imageHeader->timestampUS - stamp), 1e6 / 335.0, 1.0);
    ASSERT_TRUE(ftkSimStep(9, 104));
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(+camera.frame->imageHeader->counter, first + 106);
    EXPECT_NEAR(camera.truth()->timeS, (first + 106) / 335.0, 1e-9);

    ftkSimSetSteppedClock(false);
    EXPECT_FALSE(ftkSimStep(9, 1)) << "only a stepped clock can be stepped";
    ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
    EXPECT_GT(+camera.frame->imageHeader->counter, first + 106);
}
