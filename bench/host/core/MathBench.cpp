#include "host/core/Geometry.h"
#include "host/core/Math.h"

#include <Eigen/Geometry>
#include <benchmark/benchmark.h>

#include <random>

namespace {

using Points = std::vector<Eigen::Vector3d>;

// A marker of `count` fiducials and a noisy observation of it in front of the camera, in millimetres.
void makeMarker(int count, Points& marker, Points& observed) {
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> coordinate(-60.0, 60.0);
    std::normal_distribution<double> noise(0.0, 0.1);
    const Eigen::Matrix3d r =
        Eigen::AngleAxisd(0.6, Eigen::Vector3d(1, -1, 2).normalized()).toRotationMatrix();
    marker.clear();
    observed.clear();
    for (int i = 0; i < count; ++i) {
        marker.emplace_back(coordinate(rng), coordinate(rng), 0.2 * coordinate(rng));
        observed.push_back(r * marker.back() + Eigen::Vector3d(30, -10, 950) +
                           Eigen::Vector3d(noise(rng), noise(rng), noise(rng)));
    }
}

void BM_FitRigidTransform(benchmark::State& state) {
    Points marker, observed;
    makeMarker(static_cast<int>(state.range(0)), marker, observed);
    double rms = 0.0;
    for (auto _ : state) {
        auto fit = Kestrion::Math::fitRigidTransform(marker, observed, &rms);
        benchmark::DoNotOptimize(fit);
    }
    state.counters["rms_mm"] = rms;
}
BENCHMARK(BM_FitRigidTransform)->Arg(4)->Arg(6);

void BM_FitRigidTransformWeighted(benchmark::State& state) {
    Points marker, observed;
    makeMarker(static_cast<int>(state.range(0)), marker, observed);
    const std::vector<double> weights(marker.size(), 4.0);
    double rms = 0.0;
    for (auto _ : state) {
        auto fit = Kestrion::Math::fitRigidTransform(marker, observed, weights, &rms);
        benchmark::DoNotOptimize(fit);
    }
}
BENCHMARK(BM_FitRigidTransformWeighted)->Arg(4)->Arg(6);

void BM_FitAxesPCA(benchmark::State& state) {
    Points marker, observed;
    makeMarker(static_cast<int>(state.range(0)), marker, observed);
    Eigen::Vector3d centroid;
    std::array<Eigen::Vector3d, 3> axes;
    for (auto _ : state) {
        bool ok = Kestrion::Geometry::fitAxesPCA(observed, centroid, axes);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(axes);
    }
}
BENCHMARK(BM_FitAxesPCA)->Arg(6);

} // namespace
