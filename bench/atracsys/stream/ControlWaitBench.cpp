// How long a control call made from another thread (the user interface's) takes while the
// camera-paced stream runs at 335 Hz (fusionTrack 500, simulator/scenes/fusiontrack500-two-markers.json):
// the time from the call to its return, which includes the wait for the device mutex that the
// acquisition holds across its fetch. The budget is one frame period (2985 µs) plus the call
// itself, measured here on the same stream open but not running (nothing else wants the mutex).
//
// Arguments: the call (0 setImageIntegrationTime, 1 addGeometry, 2 removeGeometry), and whether
// the stream runs (1) or is only open (0: the call alone). Between calls the thread sleeps a
// varying 0-3 ms, so that the calls fall on every phase of the frame period.
//
// Reported: median, 99th percentile and largest duration (µs), and the calls over the budget
// (frame period + the call's median alone).

#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/core/Log.h"

#include "simulator/control/ftkSimulator.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

using namespace Kestrion;

namespace {

constexpr double FramePeriodUS = 1e6 / 335.0;
const std::string Markers = std::string(KESTRION_SOURCE_DIR) + "/data/markers/";
std::map<int, double> aloneMedianUS; // per call: its median with the stream open but not running

double percentile(std::vector<double> values, double p) {
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

void BM_ControlCallWait(benchmark::State& state) {
    Log::setGlobalLevel(Log::Fatal);
    const int call = static_cast<int>(state.range(0));
    const bool running = state.range(1) == 1;
    ftkSimSetSteppedClock(false);
    ftkSimLoadSceneFile(
        (std::string(KESTRION_SOURCE_DIR) + "/simulator/scenes/fusiontrack500-two-markers.json").c_str());
    std::vector<double> durations;
    {
        SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
        stream.setFramePacingMs(0); // paced by the camera, as `kestrion track`
        stream.open();
        stream.addGeometry("tool", Markers + "geometry1000.ini");
        if (running) {
            stream.start();
            std::this_thread::sleep_for(std::chrono::milliseconds(300)); // frames flow
        }
        const int calls = 400;
        durations.reserve(calls);
        for (auto _ : state) {
            for (int i = 0; i < calls; ++i) {
                // The geometry to remove is added (untimed) before the call, the one added removed after.
                if (call == 2)
                    stream.addGeometry("reference", Markers + "geometry1001.ini");
                const auto begin = std::chrono::steady_clock::now();
                if (call == 0)
                    stream.setImageIntegrationTime(i % 2 ? 300 : 350);
                else if (call == 1)
                    stream.addGeometry("reference", Markers + "geometry1001.ini");
                else
                    stream.removeGeometry("atracsys-1001");
                const auto end = std::chrono::steady_clock::now();
                durations.push_back(std::chrono::duration<double, std::micro>(end - begin).count());
                if (call == 1)
                    stream.removeGeometry("atracsys-1001");
                std::this_thread::sleep_for(std::chrono::microseconds((i * 743) % 3000));
            }
        }
        stream.close();
    }
    ftkSimResetScene();
    const double median = percentile(durations, 0.5);
    if (!running)
        aloneMedianUS[call] = median;
    const double budget = FramePeriodUS + aloneMedianUS[call];
    state.counters["median_us"] = median;
    state.counters["p99_us"] = percentile(durations, 0.99);
    state.counters["max_us"] = percentile(durations, 1.0);
    state.counters["budget_us"] = budget;
    state.counters["over_budget"] = static_cast<double>(
        std::count_if(durations.begin(), durations.end(), [budget](double d) { return d > budget; }));
    state.counters["calls"] = static_cast<double>(durations.size());
}

} // namespace

// Each call alone first (its median is the budget's second term), then with the stream running.
BENCHMARK(BM_ControlCallWait)
    ->ArgNames({"call", "running"})
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({2, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Args({2, 1})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();
