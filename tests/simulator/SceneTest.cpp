// Scene files with geometry and trajectory files, the shipped examples, malformed scenes.

#include "tests/simulator/SimulatorTestSupport.h"

#include <cmath>

using namespace Kestrion::SimulatorTest;

namespace {

const std::string Data = std::string(KESTRION_TEST_DATA_DIR) + "/simulator/";

} // namespace

TEST(Scenes, SceneFilesNameGeometryAndTrajectoryFilesBesideThem) {
    SceneGuard scene;
    ASSERT_TRUE(ftkSimLoadSceneFile((Data + "recorded.json").c_str())) << controlError();
    Camera camera;
    EXPECT_EQ(enumerate(camera.lib).devices.size(), 2u);
    EXPECT_EQ(std::make_pair(camera.serial, camera.type),
              std::make_pair(uint64(0x300), ftkDeviceType::DEV_SPRYTRACK_300));
    ASSERT_EQ(camera.setGeometry(makeGeometry(1001, Marker1001)), ftkError::FTK_OK);

    // Frame 30 of the 60 Hz spryTrack 300 is half-way between the first two samples.
    ASSERT_TRUE(ftkSimStep(0x300, 29));
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    const auto truth = camera.truth();
    ASSERT_EQ(truth->frameCounter, 30u);
    EXPECT_NEAR(truth->markers[0].translationMM[0], 50.0, 1e-9);
    EXPECT_NEAR(truth->markers[0].translationMM[2], 1300.0, 1e-9);
    EXPECT_NEAR(truth->markers[0].rotation[1][0], std::sin(M_PI / 4), 1e-9) << "45 degrees about z";
    EXPECT_EQ(truth->markers[0].geometryId, 1001u) << "id from the geometry file";
    ASSERT_NE(findMarker(*camera.frame, 1001), nullptr);
    EXPECT_NEAR(findMarker(*camera.frame, 1001)->translationMM[2], 1300.0, 1.0);

    // Past the last sample it holds still (no loop).
    ASSERT_TRUE(ftkSimStep(0x300, 1000));
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_NEAR(camera.truth()->markers[0].translationMM[2], 1600.0, 1e-9);
}

TEST(Scenes, TheShippedExampleScenesLoad) {
    SceneGuard scene;
    for (const char* file :
         {"default.json", "fusiontrack500-two-markers.json", "unreliable-spryTrack.json"}) {
        EXPECT_TRUE(
            ftkSimLoadSceneFile((std::string(KESTRION_SOURCE_DIR) + "/simulator/scenes/" + file).c_str()))
            << controlError();
        Camera camera;
        EXPECT_NE(camera.serial, 0u) << file;
        EXPECT_EQ(camera.fetch(), ftkError::FTK_OK) << file;
        EXPECT_EQ(camera.truth()->markersCount, 2u) << file;
    }
}

TEST(Scenes, MalformedScenesAreRefusedWithFileAndPlaceAndTheCurrentSceneStays) {
    SceneGuard scene(R"({"devices": [{"serial": 61}]})");
    const std::pair<const char*, const char*> cases[] = {
        {R"({"devices": [)", "scene (text): not valid JSON: "},
        {R"({"device": []})", "scene (text): device: unknown key"},
        {R"({"devices": [{"model": "spryTrack 9000"}]})",
         "scene (text): devices[0].model: unknown model 'spryTrack 9000' (spryTrack 180, spryTrack 300, "
         "fusionTrack 250, fusionTrack 500, simulator)"},
        {R"({"markers": [{"geometryFile": "nowhere.ini"}]})",
         "scene (text): markers[0].geometryFile: cannot open geometry file './nowhere.ini'"},
        {R"({"devices": [{"clockDriftPPM": 2000}]})",
         "scene (text): devices[0].clockDriftPPM: must be between -1000 and 1000"},
        {R"({"devices": [{"deliveryJitterMS": -1}]})",
         "scene (text): devices[0].deliveryJitterMS: must be between 0 and 100"},
    };
    for (const auto& [json, message] : cases) {
        EXPECT_FALSE(ftkSimLoadScene(json)) << json;
        EXPECT_EQ(controlError().rfind(message, 0), 0u) << controlError();
    }
    EXPECT_FALSE(ftkSimLoadSceneFile((Data + "broken.json").c_str()));
    EXPECT_EQ(controlError(),
              "scene " + Data + "broken.json: markers[0].fiducials[1]: must be an array of three numbers");
    EXPECT_FALSE(ftkSimLoadSceneFile((Data + "absent.json").c_str()));
    EXPECT_EQ(controlError(), "scene " + Data + "absent.json: cannot open the file");

    Camera camera;
    EXPECT_EQ(camera.serial, 61u) << "the last good scene is still there";
}
