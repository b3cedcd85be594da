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

/// The three numbers after `label` in `text`.
Eigen::Vector3d numbersAfter(const std::string& text, const std::string& label) {
    Eigen::Vector3d v = Eigen::Vector3d::Constant(1e9);
    const auto at = text.find(label);
    if (at != std::string::npos)
        std::istringstream(text.substr(at + label.size())) >> v.x() >> v.y() >> v.z();
    return v;
}

/// The tip of a geometry file's [pivot] section as the command writes it.
Eigen::Vector3d savedTip(const std::string& text) {
    Eigen::Vector3d v = Eigen::Vector3d::Constant(1e9);
    const auto at = text.find("[pivot]\n");
    if (at != std::string::npos)
        std::sscanf(text.c_str() + at, "[pivot]\nx=%lf\ny=%lf\nz=%lf\n", &v.x(), &v.y(), &v.z());
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
    EXPECT_LT((numbersAfter(result.out, "Tip in the marker's frame:") - Eigen::Vector3d(45, 35, 150)).norm(),
              1.0)
        << result;
    EXPECT_LT((numbersAfter(result.out, "Pivot point (camera frame):") - Eigen::Vector3d(20, 10, 850)).norm(),
              1.0)
        << result;
    EXPECT_TRUE(result.outHas("Tip saved to tool.ini\n")) << result;

    // The file keeps every line and gains the tip; a second save replaces it.
    const std::string saved = readFile(path);
    ASSERT_EQ(saved.rfind(before + "[pivot]\nx=", 0), 0u) << saved;
    EXPECT_LT((savedTip(saved) - Eigen::Vector3d(45, 35, 150)).norm(), 1.0) << saved;
    ASSERT_EQ(pivot({"--geometry", "tool.ini", "--frames", "80", "--save"}, "pivot.json").exitCode, 0);
    const std::string again = readFile(path);
    EXPECT_EQ(again.find("[pivot]"), again.rfind("[pivot]")) << again;
    EXPECT_EQ(folderEntries(folder.path()), std::vector<std::string>{"tool.ini"}) << "no temporary file left";
}

TEST_F(PivotCommand, RecordingsWithoutATipAndBadInputChangeNoFile) {
    const std::string path = tool();
    const std::string before = readFile(path);
    const struct {
        std::vector<std::string> arguments;
        std::string scene;
        int exitCode;
        std::string message;
    } cases[] = {
        {{"--geometry", "tool.ini", "--frames", "30", "--save"},
         "still.json",
         1,
         "kestrion pivot: no tip found: the tool never moved: its orientations stay within "},
        {{"--geometry", "tool.ini", "--frames", "30", "--save"},
         "sliding.json",
         1,
         "kestrion pivot: no tip found: the tool was moved without turning about a fixed tip: its positions "
         "spread over "},
        {{"--geometry", "tool.ini", "--frames", "10", "--save"},
         "pivot.json",
         1,
         "kestrion pivot: no tip found: 10 frames recorded, at least 20 are needed\n"},
        {{"--frames", "30"},
         "",
         2,
         "kestrion pivot: --geometry FILE is required (see kestrion pivot --help)\n"},
        {{"--geometry", "tool.ini", "--frames", "0"},
         "",
         2,
         "kestrion pivot: --frames must be a whole number from 1 to 100000, not '0'"},
        {{"--geometry", "tool.ini", "--geometry", "other.ini"},
         "",
         2,
         "kestrion pivot: --geometry is given twice: one tool is calibrated at a time"},
        {{"--geometry", ":/markers/geometry1000.ini", "--save"},
         "",
         2,
         "kestrion pivot: --save needs a geometry file on disk, :/markers/geometry1000.ini is compiled in"},
        {{"--geometry", "missing.ini"}, "", 1, "kestrion pivot: cannot read geometry file missing.ini: "},
        {{"--geometry", folder.write("notes.ini", "[notes]\ncount=4\n"), "--save"},
         "",
         1,
         " is not a marker geometry file (no fiducial count in a [geometry] section)\n"},
    };
    for (const auto& c : cases) {
        const ProcessResult result = pivot(c.arguments, c.scene);
        EXPECT_EQ(result.exitCode, c.exitCode) << result;
        EXPECT_TRUE(result.errHas(c.message)) << c.message << "\n" << result;
        EXPECT_EQ(readFile(path), before);
    }
    EXPECT_EQ(folderEntries(folder.path()), (std::vector<std::string>{"notes.ini", "tool.ini"}));
}
