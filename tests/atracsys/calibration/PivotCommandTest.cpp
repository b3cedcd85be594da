// `kestrion pivot` as a user runs it, with the plugin library and the simulated camera (free
// running clock: a few dozen frames per run, generous timeouts).

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <Eigen/Core>

#include <cstdio>
#include <sstream>

using namespace Kestrion::HardeningTest;

namespace {

const std::string DataDir = std::string(KESTRION_TEST_DATA_DIR);

class PivotCommand : public ::testing::Test {
protected:
    ProcessResult pivot(std::vector<std::string> arguments, const std::string& scene = "") const {
        arguments.insert(arguments.begin(), "pivot");
        std::map<std::string, std::string> variables{{"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER}};
        if (!scene.empty())
            variables["FTK_SIMULATOR_SCENE"] = DataDir + "/calibration/" + scene;
        return runProcess(KESTRION_APP, arguments, variables, folder.path());
    }
    std::string tool() const {
        return folder.write("tool.ini", readFile(DataDir + "/trackingstream/geometry1000.ini"));
    }

    TemporaryFolder folder;
};

/// The three numbers that `format` reads after `label` in `text`.
Eigen::Vector3d numbers(const std::string& text, const std::string& label, const char* format) {
    Eigen::Vector3d v = Eigen::Vector3d::Constant(1e9);
    const auto at = text.find(label);
    if (at != std::string::npos)
        std::sscanf(text.c_str() + at + label.size(), format, &v.x(), &v.y(), &v.z());
    return v;
}

} // namespace

TEST_F(PivotCommand, FindsAndSavesTheTipKeepingTheRestOfTheFile) {
    const std::string path = tool();
    const std::string before = readFile(path);
    const ProcessResult result = pivot({"--geometry", "tool.ini", "--frames", "80", "--save"}, "pivot.json");
    ASSERT_EQ(result.exitCode, 0) << result;
    EXPECT_TRUE(
        result.outHas("Recording 80 frames of atracsys-1000 (tool.ini): pivot the tool about its tip"))
        << result;
    EXPECT_TRUE(result.outHas("Recorded 80/80 frames\n")) << result;
    EXPECT_TRUE(result.outHas("Frames:                     80 used, ")) << result;
    EXPECT_LT(
        (numbers(result.out, "Tip in the marker's frame:", "%lf %lf %lf") - Eigen::Vector3d(45, 35, 150))
            .norm(),
        1.0)
        << result;
    EXPECT_LT(
        (numbers(result.out, "Pivot point (camera frame):", "%lf %lf %lf") - Eigen::Vector3d(20, 10, 850))
            .norm(),
        1.0)
        << result;
    EXPECT_TRUE(result.outHas("Tip saved to tool.ini\n")) << result;

    // The file keeps every line and gains the tip.
    const std::string saved = readFile(path);
    ASSERT_EQ(saved.rfind(before + "[pivot]\nx=", 0), 0u) << saved;
    EXPECT_LT((numbers(saved, "[pivot]\n", "x=%lf\ny=%lf\nz=%lf") - Eigen::Vector3d(45, 35, 150)).norm(), 1.0)
        << saved;
    EXPECT_EQ(folderEntries(folder.path()), std::vector<std::string>{"tool.ini"}) << "no temporary file left";
}

TEST_F(PivotCommand, RecordingsWithoutATipAndBadInputChangeNoFile) {
    const std::string path = tool();
    const std::string before = readFile(path);
    folder.write("notes.ini", "[notes]\ncount=4\n");
    const std::string noTip = "kestrion pivot: no tip found: ";
    const struct {
        std::string arguments; // separated by blanks
        std::string scene;
        int exitCode;
        std::string message;
    } cases[] = {
        {"--frames 30 --save", "still.json", 1,
         noTip + "the tool never moved: its orientations stay within "},
        {"--frames 30 --save", "sliding.json", 1,
         noTip + "the tool was moved without turning about a fixed tip"},
        {"--frames 10 --save", "pivot.json", 1, noTip + "10 frames recorded, at least 20 are needed\n"},
        {"--geometry", "", 2, "kestrion pivot: --geometry needs a value (see kestrion pivot --help)\n"},
        {"--frames 0", "", 2, "kestrion pivot: --frames must be a whole number from 1 to 100000, not '0'"},
        {"--geometry :/markers/geometry1000.ini --save", "", 2, "--save needs a geometry file on disk, "},
        {"--geometry missing.ini", "", 1, "kestrion pivot: cannot read geometry file missing.ini: "},
        {"--geometry notes.ini --save", "", 1, "kestrion pivot: notes.ini is not a marker geometry file"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments;
        std::istringstream words(
            c.arguments.rfind("--geometry", 0) == 0 ? c.arguments : "--geometry tool.ini " + c.arguments);
        for (std::string word; words >> word;)
            arguments.push_back(word);
        const ProcessResult result = pivot(arguments, c.scene);
        EXPECT_EQ(result.exitCode, c.exitCode) << result;
        EXPECT_TRUE(result.errHas(c.message)) << c.message << "\n" << result;
        EXPECT_EQ(readFile(path), before);
    }
    EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"notes.ini", "tool.ini"}));
}
