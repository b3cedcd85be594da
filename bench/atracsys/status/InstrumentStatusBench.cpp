// The instrument status of one frame: 16 instruments of four fiducials each and 64 raw fiducials
// in a 4 x 4 grid of markers 150 mm apart, 0.9 m from the camera.
//
// Argument: how many of the 16 instruments the camera tracks. The untracked ones are searched
// among all fiducials: of those, one in four has two fiducials in view (partly seen), one in four
// a fiducial moved by 2 mm (nearly matched), the others are out of view; stray fiducials fill the
// frame to 64.

#include "atracsys/status/AtracsysInstrumentStatusEvaluator.h"

#include <benchmark/benchmark.h>

#include <random>

using namespace Kestrion;
using namespace Kestrion::SpryTrack;

namespace {

/// Instrument k: four fiducials whose six distances differ from every other instrument's.
StatusInstrument instrument(int k) {
    StatusInstrument result;
    result.id = "atracsys-" + std::to_string(1000 + k);
    result.geometryId = static_cast<std::uint32_t>(1000 + k);
    result.onCamera = true;
    result.pointCount = 4;
    const double a = 40.0 + 3.0 * k;
    const double b = 55.0 + 4.0 * k;
    result.points[0] = {0, 0, 0};
    result.points[1] = {a, 0, 0};
    result.points[2] = {0, b, 0};
    result.points[3] = {0.6 * a, 0.7 * b, 8.0};
    return result;
}

void frameWithTracked(int tracked, StatusFrame& frame, std::vector<StatusInstrument>& instruments) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> spread(-400.0, 400.0);
    for (int k = 0; k < 16; ++k) {
        instruments.push_back(instrument(k));
        const Eigen::Vector3d at(-225.0 + 150.0 * (k % 4), -225.0 + 150.0 * (k / 4), 900.0);
        const int untracked = k - tracked;
        if (untracked >= 0 && untracked % 4 >= 2)
            continue; // out of view
        StatusMarker marker;
        marker.geometryId = instruments.back().geometryId;
        marker.registrationErrorMM = 0.1;
        for (std::uint32_t q = 0; q < 4; ++q) {
            if (untracked >= 0 && untracked % 4 == 0 && q >= 2)
                break; // partly seen
            marker.fiducials[q] = static_cast<std::uint32_t>(frame.fiducials.size());
            frame.fiducials.push_back(instruments.back().points[q] + at);
        }
        if (untracked >= 0 && untracked % 4 == 1)
            frame.fiducials.back().x() += 2.0; // nearly matched
        if (untracked < 0)
            frame.markers.push_back(marker);
    }
    while (frame.fiducials.size() < 64)
        frame.fiducials.push_back({spread(random), spread(random), 900.0 + spread(random)});
}

void BM_InstrumentStatus(benchmark::State& state) {
    StatusFrame frame;
    std::vector<StatusInstrument> instruments;
    frameWithTracked(static_cast<int>(state.range(0)), frame, instruments);
    AtracsysInstrumentStatusEvaluator evaluator;
    std::vector<InstrumentStatusData::Entry> entries;
    for (auto _ : state) {
        evaluator.evaluate(frame, instruments, {1.0, 0.5}, entries);
        benchmark::DoNotOptimize(entries.data());
    }
    state.counters["fiducials"] = static_cast<double>(frame.fiducials.size());
}
BENCHMARK(BM_InstrumentStatus)->Arg(16)->Arg(12)->Arg(8)->Arg(0)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
