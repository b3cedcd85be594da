// The recorder's cost to the stream's worker thread (one hand-over: copy into a pooled buffer and
// queue) and, fed at a camera's rate for a while as the stream feeds it, whether its writer keeps
// up: frames dropped, file size per minute and the recorder's CPU time (hand-overs, writer and
// its image compression helper) as a share of one core.
//
// Frames are real simulated camera frames (a fusionTrack 500 at 335 Hz without images, a
// spryTrack 180 at 54 Hz with both 2048 x 1088 images), fetched once into a ring of frame records
// and handed over in turn, so that the simulation's own cost stays out of the figures.

#include "atracsys/recording/AtracsysRecorder.h"
#include "host/core/Log.h"
#include "simulator/control/ftkSimulator.h"

#include <ftkInterface.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

using namespace Kestrion;

namespace {

const char* const FusionTrack = R"({"devices": [{"model": "fusionTrack 500", "serial": "0x46544b3530300001"}],
 "markers": [{"geometryId": 1000, "fiducials": [[0,0,0],[31,82,0],[96,-10,0],[61,46,0]],
   "motion": {"type": "orbit", "center": [0,0,1500], "axis": [0,1,0], "radiusMM": 200, "periodS": 10}},
  {"geometryId": 1001, "fiducials": [[0,0,0],[-1,83,0],[-62,-5,0],[-67,111,0]],
   "motion": {"type": "static", "position": [100,-150,1500]}}],
 "strays": [[-200,200,2000],[500,150,1400]]})";

/// A ring of frames fetched from the simulated camera (stepped clock).
class FrameRing {
public:
    FrameRing(bool images, std::size_t count) {
        ftkSimSetSteppedClock(true);
        images ? ftkSimResetScene() : ftkSimLoadScene(FusionTrack);
        m_lib = ftkInit();
        ftkEnumerateDevices(
            m_lib, [](uint64 sn, void* user, ftkDeviceType) { *static_cast<uint64*>(user) = sn; }, &m_serial);
        ftkSetInt32(m_lib, m_serial, 6003, images ? 1 : 0);
        for (std::size_t i = 0; i < count; ++i) {
            ftkFrameQuery* frame = ftkCreateFrame();
            ftkSetFrameOptions(images, 20, 128, 128, 256, 16, frame);
            ftkGetLastFrame(m_lib, m_serial, frame, 100);
            m_frames.push_back(frame);
        }
    }
    ~FrameRing() {
        for (ftkFrameQuery* frame : m_frames)
            ftkDeleteFrame(frame);
        ftkClose(&m_lib);
        ftkSimSetSteppedClock(false);
        ftkSimResetScene();
    }
    const ftkFrameQuery& operator[](std::size_t i) const { return *m_frames[i % m_frames.size()]; }

private:
    ftkLibrary m_lib = nullptr;
    uint64 m_serial = 0;
    std::vector<ftkFrameQuery*> m_frames;
};

std::string freshFile() {
    const auto file = std::filesystem::temp_directory_path() / "bench-recorder.krec";
    std::filesystem::remove(file);
    return file.string();
}

/// CPU seconds of this process so far (user and system, every thread).
double processCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void BM_RecorderHandOver(benchmark::State& state) {
    Log::setConsoleEnabled(false);
    const bool images = state.range(0) != 0;
    FrameRing ring(images, 4);
    const std::string file = freshFile();
    // Room for every frame of the run: the figure is the hand-over, never the drop path.
    SpryTrack::AtracsysRecorder recorder(SpryTrack::AtracsysRecorder::Limits{1u << 20, std::size_t(8) << 30});
    recorder.setTarget(file, images);
    Recording::SessionHeader header;
    header.withImages = images;
    recorder.start(header);
    std::size_t i = 0;
    for (auto _ : state)
        recorder.record(ring[i++]);
    recorder.finish();
    recorder.wait();
    state.counters["dropped"] = double(recorder.framesDropped());
    std::filesystem::remove(file);
}
BENCHMARK(BM_RecorderHandOver)->Arg(0)->Iterations(20000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RecorderHandOver)->Arg(1)->Iterations(300)->Unit(benchmark::kMicrosecond);

/// Frames handed over at `rate` Hz for `seconds`, paced on the steady clock as a camera would.
void BM_RecorderPaced(benchmark::State& state) {
    Log::setConsoleEnabled(false);
    const double rate = double(state.range(0));
    const bool images = state.range(1) != 0;
    const double seconds = double(state.range(2));
    FrameRing ring(images, 16);
    const std::string file = freshFile();
    double cpu = 0.0;
    std::uint64_t dropped = 0;
    std::uint64_t frames = 0;
    for (auto _ : state) {
        SpryTrack::AtracsysRecorder recorder;
        recorder.setTarget(file, images);
        Recording::SessionHeader header;
        header.withImages = images;
        recorder.start(header);
        const double cpuBefore = processCpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        const auto period = std::chrono::duration<double>(1.0 / rate);
        for (frames = 0; std::chrono::steady_clock::now() - start < std::chrono::duration<double>(seconds);
             ++frames) {
            recorder.record(ring[frames]);
            std::this_thread::sleep_until(
                start +
                std::chrono::duration_cast<std::chrono::steady_clock::duration>(period * double(frames + 1)));
        }
        recorder.finish();
        recorder.wait();
        // Everything the process did meanwhile is the recorder's: the frames were fetched
        // beforehand, and this thread only hands over and sleeps.
        cpu = processCpuSeconds() - cpuBefore;
        dropped = recorder.framesDropped();
    }
    const double bytes = double(std::filesystem::file_size(file));
    state.counters["frames"] = double(frames);
    state.counters["dropped"] = double(dropped);
    state.counters["MB_per_min"] = bytes / 1e6 * 60.0 / seconds;
    state.counters["recorder_cpu_pct"] = 100.0 * cpu / seconds;
    std::filesystem::remove(file);
}
BENCHMARK(BM_RecorderPaced)->Args({335, 0, 20})->Args({54, 1, 20})->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

BENCHMARK_MAIN();
