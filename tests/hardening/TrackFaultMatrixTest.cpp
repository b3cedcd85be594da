// `kestrion track` against a camera with one scripted fault, and recording when files are in the
// way or the disk fills up: what the user sees on stderr, the exit status, and what was recorded.

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QProcessEnvironment>

#include <algorithm>
#include <chrono>
#include <filesystem>
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

/// `kestrion track` run by the shell after `shellPrefix` (limits for the process).
ProcessResult trackInShell(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                           const std::string& shellPrefix = "") {
    std::string command = shellPrefix + "exec '" + std::string(KESTRION_APP) + "' track";
    for (const auto& argument : arguments)
        command += " '" + argument + "'";
    return runProcess("/bin/sh", {"-c", command}, {{"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER}},
                      folder.path());
}

std::size_t lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
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
    // The faults start after 40 frames (0.75 s at 54 Hz): by time, since the camera-paced fetch
    // waits for a frame in several calls. Those on delivered frames last a few frames.
    const Row rows[] = {
        {"run of failed fetches",
         R"([{"kind": "fetchError", "code": "FTK_ERR_SYNC", "atTimeS": 0.75, "count": 52}])",
         error + "ftkGetLastFrame returned not FTK_OK but [30 ] for 52 times in a row!", 0},
        {"skipped marker data", R"([{"kind": "skipped", "atTimeS": 0.75, "durationS": 0.1}])", "", 0},
        {"marker overflow", R"([{"kind": "markerOverflow", "atTimeS": 0.75, "durationS": 0.05}])",
         error + "Marker overflow. Please increase cstMarkersCount.", 1},
        {"disconnection", R"([{"kind": "disconnection", "atTimeS": 0.75}])",
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

TEST(TrackFaultMatrix, FailedRecordingsKeepEveryExistingFile) {
    TemporaryFolder folder;
    const std::string csv = folder.path("poses.csv");
    const std::string earlier = "frame,earlier recording\n0,kept\n";

    // The partial file of an earlier run is named and kept, before the camera opens; --force
    // replaces it.
    folder.write("poses.csv.part", "rows of a run that was killed\n");
    ProcessResult r = trackInShell(folder, {"--csv", csv, "--frames", "5"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: CSV file " + csv + ": " + csv +
                         ".part exists, left by an earlier run; give --force to replace it\n"))
        << r;
    EXPECT_FALSE(r.outHas("Tracking ")) << r;
    EXPECT_EQ(readFile(csv + ".part"), "rows of a run that was killed\n");
    r = trackInShell(folder, {"--csv", csv, "--frames", "5", "--force"});
    EXPECT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.outHas("Recorded 10 rows to " + csv)) << r;
    EXPECT_FALSE(std::filesystem::exists(csv + ".part"));
    std::filesystem::remove(csv);

    // The disk fills up during the recording (a file size limit, which holds for root too): the
    // earlier recording under that name stays whole, the ".part" holds exactly the rows the
    // message counts, each whole.
    folder.write("poses.csv", earlier);
    r = trackInShell(folder, {"--csv", csv, "--frames", "300", "--force"}, "trap '' XFSZ; ulimit -f 64; ");
    EXPECT_EQ(r.exitCode, 1) << r;
    const std::string said = "kestrion track: CSV file " + csv + ": write failed after ";
    ASSERT_TRUE(r.errHas(said)) << r;
    EXPECT_TRUE(r.errHas(" rows: File too large; recording stopped, " + csv +
                         ".part holds the rows written so far\n"))
        << r;
    EXPECT_EQ(readFile(csv), earlier);
    const std::string kept = readFile(csv + ".part");
    EXPECT_EQ(kept.rfind("frame,device_counter,", 0), 0u);
    EXPECT_EQ(lines(kept), std::stoull(r.err.substr(r.err.find(said) + said.size())) + 1) << r;
    EXPECT_EQ(kept.back(), '\n');

    // An existing recording is replaced only when asked to, and refused before tracking otherwise.
    std::filesystem::remove(csv + ".part");
    r = trackInShell(folder, {"--csv", csv, "--frames", "5"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: CSV file " + csv + ": exists; give --force to replace it\n")) << r;
    EXPECT_FALSE(r.outHas("Tracking ")) << r;
    EXPECT_EQ(readFile(csv), earlier);
    r = trackInShell(folder, {"--csv", csv, "--frames", "5", "--force"});
    EXPECT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.outHas("Recorded 10 rows to " + csv)) << r;
    EXPECT_EQ(readFile(csv).rfind("frame,device_counter,", 0), 0u);
    EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"poses.csv"}));
}

TEST(TrackFaultMatrix, CameraImagesNeverReplaceOrTruncateAFile) {
    TemporaryFolder folder;
    const std::string images = folder.path("images");

    // A folder with the images of an earlier run: refused before tracking, nothing replaced.
    folder.write("images/frame-12-left.png", "earlier image");
    ProcessResult r = trackInShell(folder, {"--images", images, "--frames", "5"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: image folder " + images +
                         ": holds the output of an earlier run (frame-12-left.png); choose an empty or new "
                         "folder, or give --force to replace it\n"))
        << r;
    EXPECT_EQ(readFile(images + "/frame-12-left.png"), "earlier image");

    // The disk fills up while an image is written: the saving stops, no partial image is left.
    std::filesystem::remove_all(images);
    r = trackInShell(folder, {"--images", images, "--frames", "30"}, "trap '' XFSZ; ulimit -f 16; ");
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: image " + images + "/frame-")) << r;
    EXPECT_TRUE(r.errHas("; no more images are saved\n")) << r;
    EXPECT_TRUE(folderEntries(images).empty()) << "no truncated or temporary image";
}

// A camera that stops delivering for 2 s and comes back, without --reconnect: while it is silent
// the table says so and shows no tool as tracked (its last frame is a past one); then tracking
// shows again, and the summary counts the outage.
TEST(TrackFaultMatrix, ASilentCameraShowsNoToolAsTrackedAndTheOutageIsCounted) {
    TemporaryFolder folder;
    const std::string scene = sceneWithFaults(
        folder, R"([{"kind": "fetchError", "code": "FTK_ERR_SYNC", "atTimeS": 1, "durationS": 2}])");
    ASSERT_FALSE(scene.empty());
    const ProcessResult r = track(folder, scene, {"--duration", "4.5", "--refresh", "0.25"});
    ASSERT_EQ(r.exitCode, 0) << r;
    // The tables refreshed inside the outage: "Camera: not delivering" up to the next table.
    std::size_t silentTables = 0;
    for (std::size_t at = r.out.find("Camera: not delivering, last frame "); at != std::string::npos;
         at = r.out.find("Camera: not delivering, last frame ", at + 1)) {
        ++silentTables;
        const std::string table = r.out.substr(at, r.out.find("\n\n", at) - at);
        EXPECT_EQ(table.find("tracked, registration error"), std::string::npos) << table;
        EXPECT_NE(table.find("camera not delivering\n"), std::string::npos) << table;
    }
    EXPECT_GE(silentTables, 3u) << r;
    const std::string last = r.out.substr(r.out.rfind("Frames: "));
    EXPECT_NE(last.find("  tracked, registration error "), std::string::npos) << "tracked again\n" << r;
    EXPECT_TRUE(r.outHas("; the camera stopped delivering 1 time(s), 2.")) << r;
}

// A run killed without a chance to finish (kill -9) leaves its rows in the ".part" file up to
// the last second, whole.
TEST(TrackFaultMatrix, AKilledRunKeepsItsRowsUpToTheLastSecond) {
    TemporaryFolder folder;
    const std::string csv = folder.path("poses.csv");
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("FTK_SIMULATOR_SCENE");
    env.remove("KESTRION_LICENSE");
    env.insert("KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER);
    process.setProcessEnvironment(env);
    process.start(KESTRION_APP, {"track", "--csv", QString::fromStdString(csv)});
    ASSERT_TRUE(process.waitForStarted(60000));
    // 100 frames (two rows each) reach the file while the run goes on, a second or two in.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    std::size_t rows = 0;
    while (rows < 200 && std::chrono::steady_clock::now() < deadline &&
           process.state() == QProcess::Running) {
        process.waitForReadyRead(100);
        process.readAllStandardOutput();
        const std::string part = readFile(csv + ".part");
        rows = part.empty() ? 0 : lines(part) - 1;
    }
    const bool running = process.state() == QProcess::Running;
    process.kill();
    process.waitForFinished(60000);
    ASSERT_TRUE(running) << process.readAllStandardError().toStdString();
    ASSERT_GE(rows, 200u) << "rows in the .part while the run went on";
    const std::string kept = readFile(csv + ".part");
    EXPECT_EQ(kept.back(), '\n');
    EXPECT_GE(lines(kept) - 1, rows);
    EXPECT_FALSE(std::filesystem::exists(csv));
}

// A session recording the disk cannot hold is cut short: the command says so with the frames it
// holds and where, and never that it recorded the camera's frames.
TEST(TrackFaultMatrix, ARecordingCutShortIsSaidWithItsFrames) {
    TemporaryFolder folder;
    const std::string file = folder.path("run.krec");
    const ProcessResult r = trackInShell(folder, {"--record", file, "--record-images", "--frames", "60"},
                                         "trap '' XFSZ; ulimit -f 2048; ");
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_FALSE(r.outHas("Recorded the camera's frames")) << r;
    const std::string said = "kestrion track: the recording " + file + " was cut short after ";
    ASSERT_TRUE(r.errHas(said)) << r;
    const std::string line = r.err.substr(r.err.find(said));
    EXPECT_NE(line.find(" frames: "), std::string::npos) << line;
    EXPECT_NE(line.find("; " + file + ".part holds them\n"), std::string::npos) << line;
    EXPECT_FALSE(std::filesystem::exists(file));
}
