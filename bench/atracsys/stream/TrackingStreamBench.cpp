// Per-frame processing of the tracking stream's acquisition loop, without the wait for the
// camera: the simulated camera (stepped clock) delivers each frame at once and only the stream's
// own work on it is timed (checks, fiducial selection, images, instrument poses, data emission
// to one receiver). Reported per configuration: mean (the benchmark's time), median and 99th
// percentile of the per-frame wall times, and the 99th percentile of the per-frame CPU times of
// the thread (cpu_p99_us), which a shared machine's other processes do not inflate.
//
// Arguments: markers in view, 3D fiducials in the frame (4 per marker, the rest stray
// fiducials), fiducial query mode, images (0 off, 1 on: two 1280 x 1024 grey images).

#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/core/Log.h"
#include "host/stream/StreamData.h"

#include "simulator/control/ftkSimulator.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <time.h>

using namespace Kestrion;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

/// Marker k: four fiducials whose six distances differ from every other marker's.
std::vector<std::array<double, 3>> markerFiducials(int k) {
    const double a = 40.0 + 3.0 * k;
    const double b = 55.0 + 4.0 * k;
    return {{0, 0, 0}, {a, 0, 0}, {0, b, 0}, {0.6 * a, 0.7 * b, 8.0}};
}

std::string scene(int markers, int fiducials, bool images) {
    std::ostringstream s;
    s << R"({"seed": 9, "devices": [{"model": "spryTrack 180", "serial": "0x5354b00000000001")";
    if (images)
        s << R"(, "width": 1280, "height": 1024)";
    s << "}], \"markers\": [";
    for (int k = 0; k < markers; ++k) {
        s << (k ? "," : "") << R"({"geometryId": )" << 1000 + k << R"(, "fiducials": [)";
        const auto points = markerFiducials(k);
        for (std::size_t i = 0; i < points.size(); ++i)
            s << (i ? "," : "") << "[" << points[i][0] << "," << points[i][1] << "," << points[i][2] << "]";
        // A 4 x 4 grid, 150 mm apart, 0.9 m from the camera.
        s << R"(], "motion": {"type": "static", "position": [)" << -225 + 150 * (k % 4) << ","
          << -225 + 150 * (k / 4) << ",900]}}";
    }
    s << "], \"strays\": [";
    std::mt19937 random(17);
    std::uniform_real_distribution<double> x(-250, 250), y(-200, 200), z(700, 1300);
    for (int i = 0; i < fiducials - 4 * markers; ++i)
        s << (i ? "," : "") << "[" << x(random) << "," << y(random) << "," << z(random) << "]";
    s << "]}";
    return s.str();
}

/// CPU time of this thread: unlike the wall time, it leaves out the time the thread waited while
/// other processes ran (a shared machine), but counts page faults and the like.
std::chrono::nanoseconds threadCpuTime() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return std::chrono::seconds(t.tv_sec) + std::chrono::nanoseconds(t.tv_nsec);
}

/// The stream with the two halves of its doWork reachable.
class MeasuredStream : public AtracsysTrackingStream {
public:
    MeasuredStream()
        : AtracsysTrackingStream("Atracsys Tracking Stream") {}
    using AtracsysTrackingStream::fetchFrame;
    using AtracsysTrackingStream::processFrame;
};

void BM_ProcessFrame(benchmark::State& state) {
    const int markers = static_cast<int>(state.range(0));
    const int fiducials = static_cast<int>(state.range(1));
    const auto mode = static_cast<AtracsysTrackingStream::FiducialQueryMode>(state.range(2));
    const bool images = state.range(3) != 0;
    Log::setGlobalLevel(Log::Error);
    if (!ftkSimLoadScene(scene(markers, fiducials, images).c_str())) {
        char error[512] = {};
        ftkSimGetLastError(error, sizeof(error));
        state.SkipWithError(error);
        return;
    }
    ftkSimSetSteppedClock(true);

    const auto folder = std::filesystem::temp_directory_path() / "bench-atracsys-stream";
    std::filesystem::create_directories(folder);
    std::vector<std::chrono::nanoseconds> times;
    std::vector<std::chrono::nanoseconds> cpuTimes;
    double seenMarkers = 0.0;
    double seenFiducials = 0.0;
    {
        MeasuredStream stream;
        stream.setQueryImages(images);
        stream.setFiducialQueryMode(mode);
        if (!stream.open()) {
            state.SkipWithError("the stream does not open");
            return;
        }
        for (int k = 0; k < markers; ++k) {
            const auto path = folder / ("geometry" + std::to_string(1000 + k) + ".ini");
            std::ofstream ini(path);
            const auto points = markerFiducials(k);
            ini << "[geometry]\ncount=4\nid=" << 1000 + k << "\n";
            for (std::size_t i = 0; i < points.size(); ++i)
                ini << "[fiducial" << i << "]\nx=" << points[i][0] << "\ny=" << points[i][1]
                    << "\nz=" << points[i][2] << "\n";
            ini.close();
            stream.addGeometry("marker " + std::to_string(k), path.string());
        }
        // One receiver that keeps the last frame, as a consumer of the data does.
        std::shared_ptr<const StreamData> last;
        auto keep =
            stream.signalStreamData.connect([&last](std::shared_ptr<const StreamData> d) { last = d; });
        auto update =
            stream.signalAtracsysUpdate.connect([](AtracsysUpdate& u) { benchmark::DoNotOptimize(&u); });

        times.reserve(state.max_iterations);
        cpuTimes.reserve(state.max_iterations);
        for (auto _ : state) {
            ftkFrameQuery* frame = nullptr;
            if (stream.fetchFrame(frame) != ftkError::FTK_OK || !frame) {
                state.SkipWithError("fetch failed");
                break;
            }
            seenMarkers += frame->markersCount;
            seenFiducials += frame->threeDFiducialsCount;
            auto wakeUp = Stream::Clock::now();
            const auto cpuStart = threadCpuTime();
            const auto start = std::chrono::steady_clock::now();
            stream.processFrame(*frame, wakeUp);
            const auto elapsed = std::chrono::steady_clock::now() - start;
            cpuTimes.push_back(threadCpuTime() - cpuStart);
            state.SetIterationTime(std::chrono::duration<double>(elapsed).count());
            times.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed));
        }
        keep.disconnect();
        update.disconnect();
        stream.close();
    }
    ftkSimSetSteppedClock(false);
    ftkSimResetScene();
    if (times.empty())
        return;
    std::sort(times.begin(), times.end());
    std::sort(cpuTimes.begin(), cpuTimes.end());
    auto percentile = [](const std::vector<std::chrono::nanoseconds>& sorted, double p) {
        return std::chrono::duration<double, std::micro>(sorted[std::size_t(p * double(sorted.size() - 1))])
            .count();
    };
    state.counters["median_us"] = percentile(times, 0.5);
    state.counters["p99_us"] = percentile(times, 0.99);
    state.counters["cpu_p99_us"] = percentile(cpuTimes, 0.99);
    state.counters["markers"] = seenMarkers / double(times.size());
    state.counters["fiducials"] = seenFiducials / double(times.size());
}

void frameArguments(benchmark::internal::Benchmark* b) {
    for (int markers : {1, 4, 16})
        for (int fiducials : {4, 64, 256})
            if (fiducials >= 4 * markers)
                for (int mode : {0, 1, 2, 3})
                    b->Args({markers, fiducials, mode, 0});
    for (int mode : {0, 3})
        b->Args({16, 64, mode, 1});
    b->Args({1, 4, 0, 1});
}

BENCHMARK(BM_ProcessFrame)
    ->ArgNames({"markers", "fiducials", "mode", "images"})
    ->Apply(frameArguments)
    ->UseManualTime()
    ->Iterations(2000)
    ->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
