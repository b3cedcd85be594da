// Everything a user hands to the system that can be wrong: geometry files, workspaces, simulator
// scenes, command lines, plugin folder contents. Each is named, the process fails, no file changes.

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

using namespace Kestrion::HardeningTest;

namespace {

const std::string Corpus = std::string(KESTRION_SOURCE_DIR) + "/tests/fuzz/corpus";

ProcessResult kestrion(const TemporaryFolder& folder, const std::vector<std::string>& arguments,
                       std::map<std::string, std::string> variables = {}) {
    variables.emplace("KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER);
    return runProcess(KESTRION_APP, arguments, variables, folder.path());
}

/// The desktop host offscreen; Qt's offscreen platform leaks its screen at exit (not ours).
std::map<std::string, std::string> guiEnvironment() {
    const char* asan = std::getenv("ASAN_OPTIONS");
    return {{"QT_QPA_PLATFORM", "offscreen"},
            {"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER},
            {"ASAN_OPTIONS", std::string(asan ? asan : "") + ":detect_leaks=0"}};
}

std::string workspace(const std::string& block) {
    return "<properties name=\"Workspace\"><properties name=\"Algorithms\">"
           "<properties name=\"Atracsys.SpryTrackStream\">" +
           block + "</properties></properties></properties>\n";
}

} // namespace

// The broken geometry files of the fuzz corpus: refused by name before tracking, the earlier
// recording kept, no partial one left.
TEST(BadInput, BrokenGeometryFilesAreNamedAndNothingIsWritten) {
    std::vector<std::string> broken;
    for (const auto& entry : std::filesystem::directory_iterator(Corpus))
        if (entry.path().filename().string().rfind("broken-", 0) == 0)
            broken.push_back(entry.path().string());
    ASSERT_GE(broken.size(), 10u);
    for (const std::string& source : broken) {
        SCOPED_TRACE(source);
        TemporaryFolder folder;
        const std::string file = folder.write("marker.ini", readFile(source));
        const std::string csv = folder.write("poses.csv", "earlier recording\n");
        const ProcessResult r =
            kestrion(folder, {"track", "--geometry", file, "--csv", csv, "--force", "--duration", "1"});
        EXPECT_EQ(r.exitCode, 1) << r;
        EXPECT_TRUE(r.errHas("kestrion track: geometry file " + file + " could not be loaded")) << r;
        EXPECT_FALSE(r.outHas("Tracking ")) << r;
        EXPECT_EQ(readFile(csv), "earlier recording\n");
        EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"marker.ini", "poses.csv"}));
    }
}

// Broken workspaces, named with their problem by `kestrion track`, `kestrion run` and the desktop
// host; status 1, the file left as it was. A missing marker file loads, but the run fails.
TEST(BadInput, BrokenWorkspacesAreNamedWithTheProblem) {
    TemporaryFolder folder;
    struct Row {
        const char* name;
        std::string file;
        std::string message;    ///< of kestrion track
        std::string hostReason; ///< of kestrion run and the desktop host; empty: not run there
    };
    const std::string missing = folder.path("missing.kws");
    const std::string truncated =
        folder.write("truncated.kws", "<properties name=\"Workspace\">\n<properties");
    const std::string noStream = folder.write("other.kws", "<properties name=\"Workspace\"><properties "
                                                           "name=\"Algorithms\"/></properties>\n");
    const std::string wrongType = folder.write(
        "types.kws", workspace("<param name=\"fiducialQueryMode\" type=\"int\">all of them</param>"));
    const std::string noGeometry =
        folder.write("markers.kws",
                     workspace("<properties name=\"TrackingTargets\"><properties name=\"probe\"><param "
                               "name=\"Path\" type=\"string\">probe.ini</param></properties></properties>"));
    const std::string aFolder = folder.path("folder.kws");
    std::filesystem::create_directory(aFolder);
    const Row rows[] = {
        {"missing", missing, "kestrion track: workspace " + missing + ": ", ""},
        {"truncated", truncated, "kestrion track: workspace " + truncated + ": " + truncated + ":2",
         truncated + ":2:11: Premature end of document."},
        {"a folder", aFolder, "kestrion track: workspace " + aFolder + ": ", "not a file"},
        {"without the stream", noStream,
         "kestrion track: workspace " + noStream +
             ": no Atracsys.SpryTrackStream algorithm in its \"Algorithms\" block",
         ""},
        {"wrong type", wrongType, "kestrion track: workspace " + wrongType + ": ",
         wrongType + ":1:165: value 'all of them' of parameter 'fiducialQueryMode' is not a valid int"},
        {"missing geometry", noGeometry,
         "kestrion track: geometry file " + folder.path("probe.ini") + ": No such file or directory", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string before = readFile(row.file);
        ProcessResult r = kestrion(folder, {"track", "--workspace", row.file, "--duration", "1"});
        EXPECT_EQ(r.exitCode, 1) << r;
        EXPECT_TRUE(r.errHas(row.message)) << row.message << "\n" << r;
        EXPECT_FALSE(r.outHas("Tracking ")) << r;
        if (!row.hostReason.empty()) {
            const std::string line =
                "[ERROR] Workspace: Cannot load workspace " + row.file + ": " + row.hostReason + "\n";
            r = kestrion(folder, {"run", row.file});
            EXPECT_EQ(r.exitCode, 1) << r;
            EXPECT_TRUE(r.errHas(line)) << line << r;
            EXPECT_TRUE(r.outHas("Not loaded")) << r;
            r = runProcess(KESTRION_GUI_APP,
                           {"--workspace", row.file, "--screenshot", folder.path("shot.png"), "--after", "0"},
                           guiEnvironment(), folder.path());
            EXPECT_EQ(r.exitCode, 1) << r;
            EXPECT_TRUE(r.errHas(line)) << line << r;
        }
        EXPECT_EQ(readFile(row.file), before) << "the workspace is left as it was";
    }

    const ProcessResult r = kestrion(folder, {"run", noGeometry});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("[ERROR] AtracsysTrackingStream: Cannot load geometry from file " +
                         folder.path("probe.ini")))
        << r;
    EXPECT_TRUE(
        r.errHas("kestrion run: 1 error(s) logged while computing the workspace " + noGeometry + "\n"))
        << r;
    // The algorithm computed, yet the run failed: the summary says so too.
    EXPECT_TRUE(r.outHas("Summary: 1 of 1 algorithms computed, 1 error(s) logged; failed (exit status 1)\n"))
        << r;
}

// Simulator scenes that cannot be loaded: named with the place, the command fails without tracking.
TEST(BadInput, BrokenScenesAreNamedWithThePlace) {
    TemporaryFolder folder;
    struct Row {
        const char* name;
        std::string scene;
        std::string message;
    };
    const std::string truncated = folder.write("truncated.json", "{\"devices\": [{\"model\": ");
    const std::string badMotion = folder.write(
        "motion.json", R"({"markers": [{"geometryId": 1000, "fiducials": [[0,0,0],[50,0,0],[0,60,0]],
                           "motion": {"type": "orbit", "center": [0,0,800], "radiusMM": 100, "periodS": -1}}]})");
    const Row rows[] = {
        {"truncated", truncated, "ftkInit: scene " + truncated + ": not valid JSON: "},
        {"bad motion", badMotion,
         "ftkInit: scene " + badMotion + ": markers[0].motion.periodS: must be positive"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const ProcessResult r =
            kestrion(folder, {"track", "--duration", "1"}, {{"FTK_SIMULATOR_SCENE", row.scene}});
        EXPECT_EQ(r.exitCode, 1) << r;
        EXPECT_TRUE(r.errHas(row.message)) << row.message << "\n" << r;
        EXPECT_TRUE(r.errHas("kestrion track: the camera could not be opened")) << r;
    }
}

// Wrong command lines of `kestrion track` and the desktop host: status 2, option and value named.
TEST(BadInput, CommandLinesAreExplained) {
    TemporaryFolder folder;
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows{
        {{"--duration", "nan"}, "--duration takes a positive number of seconds, not 'nan'"},
        {{"--duration", "1s"}, "--duration takes a positive number of seconds, not '1s'"},
        {{"--refresh", "0"}, "--refresh takes a positive number of seconds, not '0'"},
        {{"--frames", "1e3"}, "--frames takes a positive number of frames, not '1e3'"},
        {{"--frames", "99999999999999999999999"},
         "--frames takes a positive number of frames, not '99999999999999999999999'"},
        {{"--integration-time", "0"}, "--integration-time takes microseconds from 1 to 1000000, not '0'"},
        {{"--fiducials", "ALL"}, "--fiducials takes none, marker, vicinity or all, not 'ALL'"},
        {{"--geometry"}, "option --geometry needs a value"},
        {{"--csv", ""}, "option --csv needs a value"},
        {{"--csv", "a.csv", "extra"}, "unexpected argument 'extra'"},
        {{"-x"}, "unknown option '-x'"},
    };
    for (const auto& [arguments, message] : rows) {
        std::vector<std::string> command{"track"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ProcessResult r = kestrion(folder, command);
        EXPECT_EQ(r.exitCode, 2) << r;
        EXPECT_EQ(r.err, "kestrion track: " + message + " (see kestrion track --help)\n") << r;
        EXPECT_EQ(r.out, "") << r;
    }
    // The desktop host gives its usage, before any window.
    for (const auto& [arguments, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--after", "soon", "--screenshot", "shot.png"},
              "--after needs a number of milliseconds, not \"soon\""},
             {{"--workspace"}, "--workspace needs a value"},
             {{"--fullscreen"}, "unknown argument \"--fullscreen\""}}) {
        const ProcessResult r = runProcess(KESTRION_GUI_APP, arguments, guiEnvironment(), folder.path());
        EXPECT_EQ(r.exitCode, 2) << r;
        EXPECT_TRUE(r.errHas("kestrion-gui: " + message)) << message << "\n" << r;
        EXPECT_TRUE(r.errHas("Usage: kestrion-gui")) << r;
    }
    EXPECT_TRUE(folderEntries(folder.path()).empty()) << "no file made, no screenshot taken";
}

// Foreign files in the plugin folder are reported with their reason and skipped; the tracking
// plugin beside them still loads and tracks.
TEST(BadInput, ForeignFilesInThePluginFolderAreReportedAndSkipped) {
    TemporaryFolder folder;
    const std::string plugins = folder.path("plugins");
    std::filesystem::create_directory(plugins);
    for (const auto& entry : std::filesystem::directory_iterator(KESTRION_PLUGIN_FOLDER))
        std::filesystem::copy(entry.path(), plugins + "/" + entry.path().filename().string());
    folder.write("plugins/README.txt", "plugins of the navigation host\n");
    folder.write("plugins/libAtracsysBroken.so", "not a library\n");
    std::filesystem::copy_file(CAMERA_LIBRARY, plugins + "/libCamera.so");
    const std::vector<std::string> before = folderEntries(plugins);

    const std::string notALibrary =
        "Plugin libAtracsysBroken.so skipped: not a loadable library: " + plugins +
        "/libAtracsysBroken.so: file too short";
    const std::string noDescriptor =
        "Plugin libCamera.so skipped: no plugin descriptor (symbol kestrionPluginDescriptor not found)";
    ProcessResult r = kestrion(folder, {"plugins"}, {{"KESTRION_PLUGIN_PATH", plugins}});
    EXPECT_EQ(r.exitCode, 0) << "the listing itself worked" << r;
    EXPECT_TRUE(r.outHas("Summary: 1 active, 0 inactive, 2 failed")) << r;
    EXPECT_TRUE(r.errHas("[ERROR] PluginLoader: " + notALibrary)) << r;
    EXPECT_TRUE(r.errHas("[ERROR] PluginLoader: " + noDescriptor)) << r;

    r = kestrion(folder, {"track", "--frames", "20"}, {{"KESTRION_PLUGIN_PATH", plugins}});
    EXPECT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.outHas("Summary: 20 frames received")) << r;
    EXPECT_EQ(folderEntries(plugins), before);
}
