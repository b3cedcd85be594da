// Frames per second the simulated camera produces with the stepped clock (no waiting): the whole
// fetch, from the scene's motion to the filled frame record, with marker matching. The figure to
// watch is frames/s without images: it must stay at least ten times the fastest model's rate
// (fusionTrack 500, 335 Hz), so the simulator is never what limits the plugin's benchmarks.

#include "simulator/control/ftkSimulator.h"

#include <ftkInterface.h>

#include <benchmark/benchmark.h>

#include <string>

namespace {

/// A stepped scene opened with one frame record and the given geometries registered.
class SteppedCamera {
public:
    SteppedCamera(const char* scene, bool images) {
        ftkSimSetSteppedClock(true);
        ok = scene == nullptr ? ftkSimResetScene() : ftkSimLoadScene(scene);
        lib = ftkInit();
        ftkEnumerateDevices(
            lib, [](uint64 sn, void* user, ftkDeviceType) { *static_cast<uint64*>(user) = sn; }, &serial);
        frame = ftkCreateFrame();
        ftkSetFrameOptions(images, 20, 128, 128, 256, 16, frame);
        ftkSetInt32(lib, serial, 6003, images ? 1 : 0);
    }
    ~SteppedCamera() {
        ftkDeleteFrame(frame);
        ftkClose(&lib);
        ftkSimSetSteppedClock(false);
        ftkSimResetScene();
    }
    void addGeometry(uint32 id, std::initializer_list<ftk3DPoint> points) {
        ftkGeometry g{};
        g.geometryId = id;
        g.pointsCount = static_cast<uint32>(points.size());
        uint32 i = 0;
        for (const ftk3DPoint& p : points) {
            g.positions[i++] = p;
        }
        ftkSetGeometry(lib, serial, &g);
    }

    bool ok = false;
    ftkLibrary lib = nullptr;
    uint64 serial = 0;
    ftkFrameQuery* frame = nullptr;
};

void fetchLoop(benchmark::State& state, SteppedCamera& camera, uint32 expectedMarkers) {
    if (!camera.ok || camera.serial == 0) {
        state.SkipWithError("scene not loaded");
        return;
    }
    for (auto _ : state) {
        if (ftkGetLastFrame(camera.lib, camera.serial, camera.frame, 0) != ftkError::FTK_OK ||
            camera.frame->markersCount != expectedMarkers) {
            state.SkipWithError("unexpected frame");
            break;
        }
        benchmark::DoNotOptimize(camera.frame->markers);
    }
    state.counters["frames/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["fiducials"] = camera.frame->threeDFiducialsCount;
}

/// The default scene: one spryTrack 180, two four-fiducial markers, three strays.
void BM_DefaultScene(benchmark::State& state) {
    const bool images = state.range(0) != 0;
    SteppedCamera camera(nullptr, images);
    camera.addGeometry(1000, {{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}});
    camera.addGeometry(1001, {{0, 0, 0}, {-1, 83, 0}, {-62, -5, 0}, {-67, 111, 0}});
    fetchLoop(state, camera, 2);
}
BENCHMARK(BM_DefaultScene)->ArgName("images")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

/// A busy fusionTrack 500 scene: six markers and forty strays (64 fiducials a frame).
void BM_BusyFusionTrack(benchmark::State& state) {
    std::string scene =
        R"({"seed": 4, "devices": [{"model": "fusionTrack 500", "serial": 500}], "markers": [)";
    for (int m = 0; m < 6; ++m) {
        scene +=
            (m ? "," : "") + std::string(R"({"geometryId": )") + std::to_string(1100 + m) +
            R"(, "fiducials": [[0,0,0],[31,82,0],[96,-10,0],[61,46,0]], "motion": {"type": "orbit", "center": [)" +
            std::to_string(-450 + 180 * m) + R"(, 0, 1800], "radiusMM": 60, "periodS": )" +
            std::to_string(3 + m) + "}}";
    }
    scene += R"(], "strays": [)";
    for (int s = 0; s < 40; ++s) {
        scene += (s ? "," : "") + std::string("[") + std::to_string(-500 + 25 * s) + ", " +
                 std::to_string(s % 2 ? 250 + 3 * s : -250 - 3 * s) + ", " + std::to_string(1400 + 20 * s) +
                 "]";
    }
    scene += "]}";
    const bool images = state.range(0) != 0;
    SteppedCamera camera(scene.c_str(), images);
    for (int m = 0; m < 6; ++m) {
        camera.addGeometry(1100 + m, {{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}});
    }
    fetchLoop(state, camera, 6);
}
BENCHMARK(BM_BusyFusionTrack)->ArgName("images")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

/// Every model on the same work: the two markers of the default scene and three strays, in the
/// middle of the model's working volume.
void BM_Model(benchmark::State& state) {
    const struct {
        const char* name;
        int depthMM;
    } models[] = {{"spryTrack 180", 800},
                  {"spryTrack 300", 1150},
                  {"fusionTrack 250", 1400},
                  {"fusionTrack 500", 1800},
                  {"simulator", 800}};
    const auto& model = models[state.range(0)];
    const std::string depth = std::to_string(model.depthMM);
    const std::string scene = R"({"seed": 2, "devices": [{"model": ")" + std::string(model.name) +
                              R"(", "serial": 77}], "markers": [
        {"geometryId": 1000, "fiducials": [[0,0,0],[31,82,0],[96,-10,0],[61,46,0]],
         "motion": {"type": "orbit", "center": [-60, 0, )" +
                              depth + R"(], "radiusMM": 40, "periodS": 4}},
        {"geometryId": 1001, "fiducials": [[0,0,0],[-1,83,0],[-62,-5,0],[-67,111,0]],
         "motion": {"type": "sinusoid", "position": [80, 20, )" +
                              depth + R"(], "amplitudeMM": [30, 20, 10], "periodS": 3}}],
        "strays": [[-150, 120, )" +
                              depth + "], [170, -90, " + depth + "], [20, 160, " + depth + "]]}";
    state.SetLabel(model.name);
    SteppedCamera camera(scene.c_str(), state.range(1) != 0);
    camera.addGeometry(1000, {{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}});
    camera.addGeometry(1001, {{0, 0, 0}, {-1, 83, 0}, {-62, -5, 0}, {-67, 111, 0}});
    fetchLoop(state, camera, 2);
}
BENCHMARK(BM_Model)
    ->ArgNames({"model", "images"})
    ->ArgsProduct({{0, 1, 2, 3, 4}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
