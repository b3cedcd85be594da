// Library handles: opening and closing, the leak counters and the error text.

#include "tests/simulator/SimulatorTestSupport.h"

using namespace Kestrion::SimulatorTest;

TEST(Library, HandlesAreCountedAndRefusedOnceClosed) {
    SceneGuard scene;
    const size_t libraries = ftkSimLiveLibraries();
    const size_t frames = ftkSimLiveFrames();
    ftkLibrary lib = ftkInit();
    ftkFrameQuery* frame = ftkCreateFrame();
    EXPECT_EQ(ftkSimLiveLibraries(), libraries + 1);
    EXPECT_EQ(ftkSimLiveFrames(), frames + 1);

    ftkLibrary copy = lib;
    EXPECT_EQ(ftkClose(&lib), ftkError::FTK_OK);
    EXPECT_EQ(ftkClose(&copy), ftkError::FTK_ERR_INV_PTR) << "already closed";
    char text[256];
    EXPECT_NE(ftkGetLastErrorString(copy, sizeof(text), text), ftkError::FTK_OK);
    EXPECT_EQ(ftkGetLastFrame(copy, 1, frame, 0), ftkError::FTK_ERR_INV_PTR);
    EXPECT_EQ(enumerate(copy).status, ftkError::FTK_ERR_INV_PTR);
    EXPECT_EQ(ftkSimLiveLibraries(), libraries);

    EXPECT_EQ(ftkDeleteFrame(frame), ftkError::FTK_OK);
    EXPECT_EQ(ftkSimLiveFrames(), frames);
}

TEST(Library, TheErrorTextDescribesTheLastErrorAndWarningAsXml) {
    SceneGuard scene;
    Camera camera;
    EXPECT_EQ(camera.errorText(),
              "<ftkError>\n<errors></errors>\n<warnings></warnings>\n<messages>No error reported</messages>\n"
              "</ftkError>");
    EXPECT_EQ(camera.getInt(999), ftkError::FTK_ERR_INV_OPT);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial, 77), ftkError::FTK_WAR_GEOM_ID);
    EXPECT_EQ(camera.fetch(), ftkError::FTK_OK) << "success leaves the last failure in place";
    EXPECT_EQ(camera.errorText(),
              "<ftkError>\n<errors><error code=\"100\" name=\"FTK_ERR_INV_OPT\">Unknown option "
              "999 of device 0x53544b3138300001</error></errors>\n<warnings><warning "
              "code=\"-11\" name=\"FTK_WAR_GEOM_ID\">Geometry 77 is not registered on device "
              "0x53544b3138300001</warning></warnings>\n<messages>2 failures and warnings "
              "reported</messages>\n</ftkError>");

    // Frames and records the library does not know.
    ftkFrameQuery stray{};
    EXPECT_EQ(ftkGetLastFrame(camera.lib, camera.serial, &stray, 0), ftkError::FTK_ERR_INIT);
    EXPECT_EQ(ftkGetLastFrame(camera.lib, camera.serial, nullptr, 0), ftkError::FTK_ERR_INV_PTR);
    EXPECT_EQ(ftkGetLastFrame(camera.lib, 12, camera.frame, 0), ftkError::FTK_ERR_INV_SN);
    EXPECT_NE(camera.errorText().find("No device with serial 0x000000000000000c"), std::string::npos);
}
