// Time of the pivot solve for a recording of N frames: a tool pivoting over a 30 degree cone
// with 0.1 mm of noise on its tip and one frame in fifty slipped out of the divot, so that the
// outlier rounds run too. Reports the tip error (tip_error_mm) and the frames rejected.
#include "host/calibration/PivotCalibration.h"

#include <benchmark/benchmark.h>

#include <Eigen/Geometry>

#include <cmath>
#include <random>

namespace {

using namespace Kestrion;

const Eigen::Vector3d Tip(12.0, -4.0, 160.0);
const Eigen::Vector3d Pivot(20.0, 10.0, 850.0);

std::vector<Eigen::Matrix4d> recording(int frames) {
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 0.1);
    std::vector<Eigen::Matrix4d> poses;
    for (int i = 0; i < frames; ++i) {
        const double phase = 2.0 * M_PI * 3.0 * i / frames;
        const Eigen::Matrix3d rotation =
            Eigen::AngleAxisd(30.0 * M_PI / 180.0, Eigen::Vector3d(std::cos(phase), std::sin(phase), 0.0))
                .toRotationMatrix();
        Eigen::Vector3d where = Pivot + Eigen::Vector3d(noise(random), noise(random), noise(random));
        if (i % 50 == 25)
            where.x() += 5.0;
        Eigen::Matrix4d pose = Eigen::Matrix4d::Identity();
        pose.topLeftCorner<3, 3>() = rotation;
        pose.topRightCorner<3, 1>() = where - rotation * Tip;
        poses.push_back(pose);
    }
    return poses;
}

void BM_PivotSolve(benchmark::State& state) {
    const auto poses = recording(static_cast<int>(state.range(0)));
    PivotCalibration calibration;
    PivotCalibration::Result result;
    for (auto _ : state) {
        result = calibration.solve(poses);
        benchmark::DoNotOptimize(result);
    }
    state.counters["tip_error_mm"] = (result.tipInMarker - Tip).norm();
    state.counters["rejected"] = static_cast<double>(result.rejectedFrames);
    state.counters["rms_mm"] = result.rmsMM;
}
BENCHMARK(BM_PivotSolve)->Arg(100)->Arg(500)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
