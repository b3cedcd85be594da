// Frame timing: the free-running rate and the stepped clock.

#include "tests/simulator/SimulatorTestSupport.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

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

        // Frame n is exposed at start + n / rate (the device's clock running 20 ppm fast) and
        // reaches the host up to 2 ms later; a sample's frame was the newest arrived within its
        // bracket, so the true rate lies between these bounds whatever the scheduling.
        const double frames = double(last.counter - first.counter);
        const double jitterS = 0.002;
        const double lowest = (frames - 1.0) / (seconds(last.after - first.before) + jitterS);
        const double highest = (frames + 1.0) / (seconds(last.before - first.after) - jitterS);
        const double hostRate = c.rateHz * (1.0 + 20e-6);
        EXPECT_LE(lowest, hostRate) << c.scene;
        EXPECT_GE(highest, hostRate) << c.scene;
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

// The device's clock counts from the device's start and runs fast against the host's by the
// scene's drift; the ground truth gives each frame's exposure and arrival on the host's clock.
TEST(Clock, DeviceTimeCountsFromTheDeviceStartAndDriftsAgainstTheHost) {
    SceneGuard scene(R"({"seed": 5, "devices": [{"serial": 9, "model": "fusionTrack 500",
                         "clockDriftPPM": 400, "deliveryJitterMS": 6}]})",
                     true);
    Camera camera;
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    const auto first = camera.truth();
    EXPECT_EQ(+camera.frame->imageHeader->timestampUS,
              uint64(std::llround(first->frameCounter * 1e6 / 335.0)))
        << "microseconds since the device started, not since the epoch";
    int64 exposure = 0;
    ASSERT_TRUE(ftkSimGetExposureTime(9, first->frameCounter, &exposure));
    EXPECT_EQ(exposure, first->exposureUS);
    const int64 nowUS = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
    EXPECT_NEAR(double(first->exposureUS), double(nowUS), 60e6) << "on the host's clock, since the epoch";

    std::vector<double> delaysUS;
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
        const auto t = camera.truth();
        delaysUS.push_back(double(t->deliverableUS - t->exposureUS));
    }
    const auto last = camera.truth();
    const double deviceUS = double(last->timestampUS - first->timestampUS);
    const double hostUS = double(last->exposureUS - first->exposureUS);
    EXPECT_NEAR(deviceUS / hostUS, 1.0 + 400e-6, 2e-6) << "the device's clock runs 400 ppm fast";

    // Delays between 0 and 6 ms, spread over that range; arrivals keep the frames' order, so a
    // delay may exceed its own draw when an earlier frame came late.
    EXPECT_GE(*std::min_element(delaysUS.begin(), delaysUS.end()), 0.0);
    EXPECT_LE(*std::max_element(delaysUS.begin(), delaysUS.end()), 6000.0 + 1.0);
    EXPECT_LT(*std::min_element(delaysUS.begin(), delaysUS.end()), 500.0);
    EXPECT_GT(*std::max_element(delaysUS.begin(), delaysUS.end()), 5000.0);

    // The same seed gives the same delays.
    SceneGuard again(R"({"seed": 5, "devices": [{"serial": 9, "model": "fusionTrack 500",
                         "clockDriftPPM": 400, "deliveryJitterMS": 6}]})",
                     true);
    Camera replayed;
    ASSERT_EQ(replayed.fetch(), ftkError::FTK_OK);
    for (std::size_t i = 0; i < 20; ++i) {
        ASSERT_EQ(replayed.fetch(), ftkError::FTK_OK);
        const auto t = replayed.truth();
        EXPECT_EQ(double(t->deliverableUS - t->exposureUS), delaysUS[i]) << i;
    }
}

// Free running, a frame is never handed out before its delivery delay has passed, and frames come
// in order however the delays fall.
TEST(Clock, FreeRunningFramesArriveAfterTheirDeliveryDelay) {
    SceneGuard scene(R"({"devices": [{"serial": 9, "model": "fusionTrack 500", "deliveryJitterMS": 8}]})",
                     false);
    Camera camera;
    int64 previous = -1;
    int delayed = 0;
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(camera.fetch(1000), ftkError::FTK_OK);
        const int64 nowUS = std::chrono::duration_cast<std::chrono::microseconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count();
        const auto t = camera.truth();
        EXPECT_GT(int64(t->frameCounter), previous);
        previous = int64(t->frameCounter);
        EXPECT_GE(nowUS + 50, t->deliverableUS) << "handed out before it arrived, frame " << t->frameCounter;
        delayed += t->deliverableUS - t->exposureUS > 3000 ? 1 : 0;
    }
    EXPECT_GT(delayed, 10) << "delays beyond a frame period happen";
}
