// The camera clock's mapping onto the host's clock, on synthetic frames: a camera at 335 Hz whose
// clock runs 20 ppm fast, frames delivered with several milliseconds of jitter.

#include "atracsys/stream/AtracsysCaptureTimeEstimator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

using Kestrion::SpryTrack::AtracsysCaptureTimeEstimator;

namespace {

constexpr double PeriodUS = 1e6 / 335.0;
constexpr std::uint64_t HostStartUS = 1'760'000'000'000'000ull; // a UTC time in 2025
constexpr double MinimumDelayUS = 40.0;

struct Frame {
    std::uint64_t deviceUS;
    std::uint64_t exposureUS; // on the host's clock: the truth
    std::uint64_t arrivalUS;
};

/// `seconds` of frames; the camera clock starts at `deviceStartUS` and runs `drift` fast against
/// the host's; each frame arrives after the minimum delay plus an exponential jitter (mean 1.5 ms,
/// up to 8 ms), and frames from `lateFromS` to `lateToS` arrive 20 ms late on top (a busy machine).
std::vector<Frame> frames(double seconds, double drift = 20e-6, std::uint64_t deviceStartUS = 5'000,
                          double lateFromS = -1, double lateToS = -1, unsigned seed = 7) {
    std::mt19937 random(seed);
    std::exponential_distribution<double> jitter(1.0 / 1500.0);
    std::vector<Frame> result;
    for (int i = 0; i < static_cast<int>(seconds * 335.0); ++i) {
        const double device = static_cast<double>(deviceStartUS) + i * PeriodUS;
        const double exposure = static_cast<double>(HostStartUS) + (device - deviceStartUS) / (1.0 + drift);
        double delay = MinimumDelayUS + std::min(jitter(random), 8000.0);
        const double atS = i / 335.0;
        if (atS >= lateFromS && atS < lateToS)
            delay += 20000.0;
        result.push_back({static_cast<std::uint64_t>(device), static_cast<std::uint64_t>(exposure),
                          static_cast<std::uint64_t>(exposure + delay)});
    }
    return result;
}

/// Largest |capture - exposure| after the first second, checking the guarantees on every frame.
double worstErrorAfterFirstSecond(AtracsysCaptureTimeEstimator& estimator, const std::vector<Frame>& run) {
    double worst = 0;
    std::uint64_t last = 0;
    for (std::size_t i = 0; i < run.size(); ++i) {
        const std::uint64_t capture = estimator.captureTime(run[i].deviceUS, run[i].arrivalUS);
        EXPECT_LE(capture, run[i].arrivalUS) << "frame " << i << " captured after its arrival";
        EXPECT_GT(capture, last) << "frame " << i << " not after the one before";
        last = capture;
        if (i >= 335)
            worst = std::max(worst,
                             std::abs(static_cast<double>(capture) - static_cast<double>(run[i].exposureUS)));
    }
    return worst;
}

} // namespace

TEST(CaptureTimeEstimator, DeliveryJitterAndDriftStayOutOfTheCaptureTime) {
    AtracsysCaptureTimeEstimator estimator;
    const std::vector<Frame> run = frames(60.0);
    // The arrival itself is off by up to 8 ms: the mapping must not be.
    EXPECT_LT(worstErrorAfterFirstSecond(estimator, run), 100.0);
    EXPECT_NEAR(estimator.drift(), -20e-6, 5e-6) << "host µs per camera µs, minus 1";
}

TEST(CaptureTimeEstimator, ASecondOfLateFramesDoesNotMoveIt) {
    AtracsysCaptureTimeEstimator estimator;
    EXPECT_LT(worstErrorAfterFirstSecond(estimator, frames(20.0, 20e-6, 5'000, 8.0, 9.5)), 100.0);
    EXPECT_NEAR(estimator.drift(), -20e-6, 5e-6);
}

TEST(CaptureTimeEstimator, FramesArrivingTogetherStillGetIncreasingTimes) {
    AtracsysCaptureTimeEstimator estimator;
    std::vector<Frame> run = frames(3.0, 0.0);
    // The host stalled: ten frames arrive in the same microsecond, the last one's arrival.
    for (std::size_t i = 500; i < 510; ++i)
        run[i].arrivalUS = run[509].arrivalUS;
    worstErrorAfterFirstSecond(estimator, run); // the guarantees are checked inside
}

TEST(CaptureTimeEstimator, AReopenedCameraOrAHostClockSetBackStartsAfresh) {
    AtracsysCaptureTimeEstimator estimator;
    std::vector<Frame> first = frames(5.0, 50e-6);
    worstErrorAfterFirstSecond(estimator, first);
    // Reopened: the camera's clock starts again near 0, the host's goes on.
    std::vector<Frame> second = frames(5.0, 0.0, 1'000, -1, -1, 11);
    for (Frame& frame : second) {
        frame.exposureUS += 6'000'000;
        frame.arrivalUS += 6'000'000;
    }
    const std::uint64_t capture = estimator.captureTime(second[0].deviceUS, second[0].arrivalUS);
    EXPECT_LE(capture, second[0].arrivalUS);
    EXPECT_GT(capture, first.back().arrivalUS) << "the old offset would put it years back";
    EXPECT_EQ(estimator.drift(), 0.0) << "the drift of the old run is forgotten";
    estimator.reset();
    EXPECT_LT(worstErrorAfterFirstSecond(estimator, second), 100.0);

    // The host's clock set back a second: the next frame is still not captured after it arrived.
    const Frame& last = second.back();
    const std::uint64_t back = estimator.captureTime(last.deviceUS + static_cast<std::uint64_t>(PeriodUS),
                                                     last.arrivalUS - 1'000'000);
    EXPECT_LE(back, last.arrivalUS - 1'000'000);
}
