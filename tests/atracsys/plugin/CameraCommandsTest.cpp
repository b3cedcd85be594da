// `kestrion cameras`, the camera choice of `kestrion track --serial` and its reconnection, as a
// user runs them, with the plugin library and the simulated camera (free-running clock).

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Kestrion::HardeningTest;

const char* const TwoCameras = R"({"devices": [{"model": "fusionTrack 500", "serial": "0x46544b3530300003"},
                                               {"model": "spryTrack 180", "serial": "0x53544b3138300003"}]})";

class CameraCommands : public ::testing::Test {
protected:
    ProcessResult kestrion(std::vector<std::string> arguments, const std::string& sceneJson) const {
        return runProcess(KESTRION_APP, arguments,
                          {{"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER},
                           {"FTK_SIMULATOR_SCENE", folder.write("scene.json", sceneJson)}},
                          folder.path());
    }

    TemporaryFolder folder;
};

} // namespace

TEST_F(CameraCommands, CamerasListsEveryCameraAndTrackUsesTheChosenOne) {
    const ProcessResult list = kestrion({"cameras"}, TwoCameras);
    ASSERT_EQ(list.exitCode, 0) << list;
    EXPECT_EQ(list.out, "Type             Serial number\n"
                        "fTk 500          0x46544b3530300003\n"
                        "sTk 180          0x53544b3138300003\n");

    const ProcessResult unchosen = kestrion({"track", "--frames", "5"}, TwoCameras);
    ASSERT_EQ(unchosen.exitCode, 0) << unchosen;
    EXPECT_TRUE(unchosen.outHas("Using camera sTk 180 0x53544b3138300003; also connected: fTk 500 "
                                "0x46544b3530300003 (choose one with --serial)\n"))
        << unchosen;

    const ProcessResult chosen =
        kestrion({"track", "--frames", "5", "--serial", "0x46544b3530300003"}, TwoCameras);
    ASSERT_EQ(chosen.exitCode, 0) << chosen;
    EXPECT_TRUE(chosen.outHas("Device: fTk 500, serial 0x46544b3530300003")) << chosen;

    const ProcessResult none = kestrion({"cameras"}, R"({"devices": []})");
    EXPECT_EQ(none.err, "kestrion cameras: no camera connected\n");
}

TEST_F(CameraCommands, TrackWaitsForAnUnpluggedCameraAndRecordsOnIntoTheSameFile) {
    // Unplugged from 1 s to 3.5 s of the camera's time: missed for a second, then reopened once a
    // second until it is back.
    const ProcessResult r =
        kestrion({"track", "--duration", "6", "--reconnect", "--refresh", "0.25", "--csv", "run.csv"},
                 R"({"devices": [{"model": "spryTrack 180", "serial": 16,
                         "faults": [{"kind": "disconnection", "atTimeS": 1, "durationS": 2.5}]}]})");
    ASSERT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.outHas("State: waiting for the camera\n")) << r;
    // The 135 frames missed while unplugged are not counted as dropped.
    const std::size_t summary = r.out.find("Summary: ");
    ASSERT_NE(summary, std::string::npos) << r;
    const std::size_t dropped = r.out.find(" frames received, ", summary);
    EXPECT_LT(std::stol(r.out.substr(dropped + 18)), 135) << r;
    // The outage is counted as without --reconnect: once, from the last frame to the first again.
    EXPECT_TRUE(r.outHas("; the camera stopped delivering 1 time(s), ")) << r;

    // One file: the rows before the unplugging (counters up to 54), then those after the return
    // (from 189 on), and nothing between.
    std::istringstream csv(readFile(folder.path("run.csv")));
    std::string line;
    long before = 0, after = 0;
    for (std::getline(csv, line); std::getline(csv, line);) {
        const long counter = std::stol(line.substr(line.find(',') + 1));
        EXPECT_TRUE(counter <= 54 || counter >= 189) << counter;
        ++(counter <= 54 ? before : after);
    }
    EXPECT_TRUE(before > 0 && after > 0) << r;
}
