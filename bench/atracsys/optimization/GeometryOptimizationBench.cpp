// Geometry refinement against the simulated camera's ground truth. One recording of 500 frames of
// marker 1300 (4 fiducials, made about 0.3 mm off its geometry file) is taken once through the
// running tracking stream; each benchmark then solves a fresh copy of it in one mode and reports
// the solve time and the RMS distance to the true fiducials (after rigid alignment) of the file's
// geometry (rms_before_mm) and of the refined one (rms_after_mm).
#include "atracsys/optimization/AtracsysGeometryOptimizationAlgorithm.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/core/Log.h"
#include "host/core/Math.h"
#include "simulator/control/ftkSimulator.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace Kestrion;
using Points = std::vector<Eigen::Vector3d>;
using Algo = AtracsysGeometryOptimizationAlgorithm;

const std::string kDataDir = KESTRION_TEST_DATA_DIR "/optimization";
const std::string kMarkerId = "atracsys-1300";

class Harness : public AtracsysGeometryOptimizationAlgorithm {
public:
    using AtracsysGeometryOptimizationAlgorithm::AtracsysGeometryOptimizationAlgorithm;
    using AtracsysGeometryOptimizationAlgorithm::recording;
    using AtracsysGeometryOptimizationAlgorithm::setOriginalCoordinates;
};

// The file's positions and the errors the scene adds to them (tests/data/optimization).
const Points kFile{{0.0, 0.0, 0.0}, {52.0, 0.0, 0.0}, {18.0, 61.0, 0.0}, {-30.0, 30.0, 12.0}};
Points trueFiducials() {
    const Points errors{{0.25, -0.3, 0.2}, {-0.3, 0.2, 0.35}, {0.3, 0.25, -0.3}, {-0.2, -0.35, 0.3}};
    Points truth;
    for (std::size_t i = 0; i < kFile.size(); ++i)
        truth.push_back(kFile[i] + errors[i]);
    return truth;
}

double alignedRms(const Points& a, const Points& b) {
    double rms = -1.0;
    Math::fitRigidTransform(a, b, &rms);
    return rms;
}

struct Recorded {
    Points original;
    AtracsysGeometryRecording frames;
};

// Records through the stream exactly as the markers widget does (compute() on the stream's data),
// with the best-frame mode so that the recording is left at its own scale.
const Recorded& recording() {
    static const Recorded recorded = [] {
        Recorded out;
        Log::setGlobalLevel(Log::Error);
        if (!ftkSimLoadSceneFile((kDataDir + "/manufacturing-error.json").c_str())) {
            std::fprintf(stderr, "scene refused\n");
            std::exit(1);
        }
        ftkSimSetSteppedClock(true);
        SpryTrack::AtracsysTrackingStream stream("Atracsys");
        stream.setFiducialQueryMode(AtracsysTrackingStreamBase::MarkerFiducials);
        if (!stream.addGeometry("marker", kDataDir + "/geometry1300.ini") || !stream.open() ||
            !stream.start()) {
            std::fprintf(stderr, "stream could not start\n");
            std::exit(1);
        }
        Harness algo(&stream);
        algo.setGeometryId(kMarkerId);
        algo.setRecordedFrames(500);
        algo.setOptimizationMode(Algo::BestFrame);
        algo.compute();
        stream.stop();
        stream.close();
        ftkSimSetSteppedClock(false);
        out.original = algo.originalCoordinates();
        out.frames = algo.recording();
        return out;
    }();
    return recorded;
}

void BM_GeometryOptimization(benchmark::State& state) {
    const auto mode = static_cast<Algo::OptimizationMode>(state.range(0));
    const Recorded& recorded = recording();
    Points result;
    int evaluations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        Harness algo(nullptr);
        algo.setOptimizationMode(mode);
        algo.setOriginalCoordinates(recorded.original);
        algo.recording() = recorded.frames; // the nonlinear mode scales its recording in place
        state.ResumeTiming();
        result = algo.runGeometryOptimization();
        benchmark::DoNotOptimize(result.data());
        evaluations = algo.optimizer() ? algo.optimizer()->evaluations() : 0;
    }
    const Points truth = trueFiducials();
    state.counters["frames"] = static_cast<double>(recorded.frames.size());
    state.counters["evaluations"] = evaluations;
    state.counters["rms_before_mm"] = alignedRms(kFile, truth);
    state.counters["rms_after_mm"] = result.size() == truth.size() ? alignedRms(result, truth) : -1.0;
}

BENCHMARK(BM_GeometryOptimization)
    ->ArgName("mode")
    ->Arg(0)
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
