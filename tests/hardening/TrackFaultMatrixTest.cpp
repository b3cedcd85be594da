// `kestrion track` against a camera with one scripted fault: what the user sees on stderr, the
// exit status, and what was recorded.

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <string>

using namespace Kestrion::HardeningTest;

namespace {

const std::string Serial = "0x53544b3138300001";
const std::string CameraLost = "kestrion track: the camera stopped delivering frames";

/// The built-in default scene with `faults` (a JSON list) on its camera.
std::string sceneWithFaults(const TemporaryFolder& folder, const std::string& faults) {
    std::string scene = readFile(std::string(KESTRION_SOURCE_DIR) + "/simulator/scenes/default.json");
    const std::string device = "\"serial\": \"" + Serial + "\"";
    const std::size_t at = scene.find(device);
    if (at == std::string::npos)
        return {};
    scene.insert(at + device.size(), ", \"faults\": " + faults);
    return folder.write("scene.json", scene);
}

ProcessResult track(const TemporaryFolder& folder, const std::string& scene,
                    std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "track");
    return runProcess(KESTRION_APP, arguments,
                      {{"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER}, {"FTK_SIMULATOR_SCENE", scene}},
                      folder.path());
}

std::size_t lines(const std::string& text) {
    std::size_t count = 0;
    for (char c : text)
        count += c == '\n';
    return count;
}

} // namespace

// Frame faults while recording: a run that ends by itself keeps the command going, frames the
// stream cannot use end it with status 1; the rows recorded up to then are kept.
TEST(TrackFaultMatrix, FrameFaultsWhileRecording) {
    struct Row {
        const char* name;
        const char* faults;
        std::string line; ///< on stderr; empty: nothing
        int exitCode;
    };
    const std::string error = "[ERROR] AtracsysTrackingStream: AtracsysTrackingStream: ";
    const Row rows[] = {
        {"run of failed fetches",
         R"([{"kind": "fetchError", "code": "FTK_ERR_SYNC", "atFetch": 40, "count": 52}])",
         error + "ftkGetLastFrame returned not FTK_OK but [30 ] for 52 times in a row!", 0},
        {"skipped marker data", R"([{"kind": "skipped", "atFetch": 40, "count": 5}])", "", 0},
        {"marker overflow", R"([{"kind": "markerOverflow", "atFetch": 40, "count": 1}])",
         error + "Marker overflow. Please increase cstMarkersCount.", 1},
        {"disconnection", R"([{"kind": "disconnection", "atFetch": 40}])",
         error + "ftkGetLastFrame returned not FTK_OK but [50 ] for 51 times in a row!", 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TemporaryFolder folder;
        const std::string scene = sceneWithFaults(folder, row.faults);
        ASSERT_FALSE(scene.empty());
        const ProcessResult r = track(folder, scene, {"--csv", folder.path("poses.csv"), "--duration", "4"});
        EXPECT_EQ(r.exitCode, row.exitCode) << r;
        EXPECT_TRUE(row.line.empty() ? r.err.empty() : r.errHas(row.line)) << r;
        EXPECT_EQ(r.errHas(CameraLost), row.exitCode != 0) << r;
        // The rows recorded are kept either way, under the name asked for.
        EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"poses.csv", "scene.json"}));
        const std::string csv = readFile(folder.path("poses.csv"));
        EXPECT_GT(lines(csv), 39u * 2) << "two instruments per frame before the fault";
        EXPECT_TRUE(
            r.outHas("Recorded " + std::to_string(lines(csv) - 1) + " rows to " + folder.path("poses.csv")))
            << r;
    }
}

// Faults that keep the camera, a marker or a setting from being used.
TEST(TrackFaultMatrix, DeviceFaultsAtStart) {
    struct Row {
        const char* name;
        const char* faults;
        std::vector<std::string> lines;
        int exitCode;
    };
    const Row rows[] = {
        {"failed enumeration",
         R"([{"kind": "enumerationStatus", "reportDevices": false}])",
         {"kestrion track: no camera found\n"},
         1},
        {"option table not read",
         R"([{"kind": "optionEnumerationStatus", "code": "FTK_ERR_INTERNAL"}])",
         {"[ERROR] Enumerating option failed",
          // without the option table the integration time cannot be found
          "kestrion track: the camera did not take the integration time of 300 us; it uses an unknown "
          "value\n"},
         0},
        {"refused geometry",
         R"([{"kind": "geometryRefusal", "geometryId": 1001}])",
         {"[ERROR] AtracsysTrackingStream: Cannot set geometry loaded from :/markers/geometry1001.ini to "
          "tracking system",
          "kestrion track: the camera refused the geometry of :/markers/geometry1001.ini\n"},
         1},
        {"integration time refused",
         R"([{"kind": "optionRefusal", "option": "Image Integration Time"}])",
         {"kestrion track: the camera did not take the integration time of 300 us; it uses 200 us\n"},
         0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TemporaryFolder folder;
        const ProcessResult r = track(folder, sceneWithFaults(folder, row.faults),
                                      {"--duration", "2", "--integration-time", "300"});
        EXPECT_EQ(r.exitCode, row.exitCode) << r;
        for (const auto& line : row.lines)
            EXPECT_TRUE(r.errHas(line)) << line << "\n" << r;
        EXPECT_EQ(r.outHas("Summary: "), row.exitCode == 0) << r;
        // A run that tracks reports the integration time only when the camera did not take it.
        const bool refused = row.lines.back().find("integration time") != std::string::npos;
        if (row.exitCode == 0) {
            EXPECT_EQ(r.errHas("integration time"), refused) << r;
        }
    }
}
