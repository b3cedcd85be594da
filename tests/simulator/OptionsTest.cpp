// Device and global options: the table a device offers and the status codes of reads and writes.

#include "tests/simulator/SimulatorTestSupport.h"

#include <cmath>
#include <tuple>

using namespace Kestrion::SimulatorTest;

TEST(Options, ReadsAndWritesAnswerWithTheInterfaceStatusCodes) {
    SceneGuard scene;
    Camera camera;
    const uint32 integration = camera.option("Image Integration Time");
    const uint32 tolerance = camera.option("Distance matching tolerance");
    ftkLibrary lib = camera.lib;
    const uint64 sn = camera.serial;

    // Out of range: clamped, with a warning.
    int32 max = 0;
    int32 value = 0;
    ASSERT_EQ(camera.getInt(integration, ftkOptionGetter::FTK_MAX_VAL, &max), ftkError::FTK_OK);
    EXPECT_EQ(camera.setInt(integration, max + 1000), ftkError::FTK_WAR_OPT_VAL_RANGE);
    EXPECT_EQ(camera.getInt(integration, ftkOptionGetter::FTK_VALUE, &value), ftkError::FTK_OK);
    EXPECT_EQ(value, max);
    EXPECT_NE(camera.errorText().find("FTK_WAR_OPT_VAL_RANGE"), std::string::npos);

    // Bad value, wrong type, unknown id, read-only, bad getter, unknown device, null output.
    EXPECT_EQ(camera.setFloat(tolerance, std::nanf("")), ftkError::FTK_ERR_INV_OPT_VAL);
    EXPECT_EQ(camera.getFloat(integration), ftkError::FTK_ERR_INV_OPT_PAR);
    EXPECT_EQ(camera.setInt(tolerance, 1), ftkError::FTK_ERR_INV_OPT_PAR);
    EXPECT_EQ(camera.getInt(424242), ftkError::FTK_ERR_INV_OPT);
    EXPECT_EQ(camera.setInt(camera.option("Counter of lost frames"), 0), ftkError::FTK_ERR_INV_OPT_ACC);
    EXPECT_EQ(camera.getInt(integration, static_cast<ftkOptionGetter>(7)), ftkError::FTK_ERR_INV_OPT_PAR);
    EXPECT_EQ(ftkGetInt32(lib, sn + 1, integration, &value, ftkOptionGetter::FTK_VALUE),
              ftkError::FTK_ERR_INV_SN);
    EXPECT_EQ(ftkGetInt32(lib, sn, integration, nullptr, ftkOptionGetter::FTK_VALUE),
              ftkError::FTK_ERR_INV_PTR);

    // The processing switches are two views of one setting.
    ASSERT_EQ(camera.setInt(6000, 1), ftkError::FTK_OK);
    ASSERT_EQ(camera.getInt(camera.option("Enable embedded processing"), ftkOptionGetter::FTK_VALUE, &value),
              ftkError::FTK_OK);
    EXPECT_EQ(value, 0);

    // The lost frame counter counts the frames no fetch picked up.
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK) << "consecutive fetches lose nothing";
    ASSERT_TRUE(ftkSimStep(camera.serial, 5));
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    ASSERT_EQ(camera.getInt(camera.option("Counter of lost frames"), ftkOptionGetter::FTK_VALUE, &value),
              ftkError::FTK_OK);
    EXPECT_EQ(value, 5);

    // The global data option through a device serial answers with a warning; oversized data is refused.
    ftkBuffer buffer{};
    EXPECT_EQ(ftkGetData(lib, sn, 1, &buffer), ftkError::FTK_WAR_OPT_GLOBAL_ONLY);
    EXPECT_EQ(ftkGetData(lib, sn, integration, &buffer), ftkError::FTK_ERR_INV_OPT_PAR);
    buffer.size = BUFFER_MAX_SIZE + 1;
    EXPECT_EQ(ftkSetData(lib, 0, 1, &buffer), ftkError::FTK_ERR_INV_OPT_VAL);
}

TEST(Options, SceneOptionsGiveInitialValuesAndAccessAndBadOnesAreRefused) {
    SceneGuard scene(R"({"devices": [{"serial": 5, "extraOptions": [
        {"id": 900, "name": "Gain", "type": "float", "min": 0.5, "max": 2.9, "default": 1.25, "unit": "x"},
        {"id": 902, "name": "Calibration", "type": "data", "default": "abc", "write": false}],
        "options": {"Gain": 2.5, "Image Integration Time": 420, "2003": 1.5}}]})");
    Camera camera;
    int32 value = 0;
    float number = 0.f;
    EXPECT_EQ(camera.getInt(camera.option("Image Integration Time"), ftkOptionGetter::FTK_VALUE, &value),
              ftkError::FTK_OK);
    EXPECT_EQ(value, 420);
    EXPECT_EQ(camera.getFloat(2003, ftkOptionGetter::FTK_VALUE, &number), ftkError::FTK_OK);
    EXPECT_FLOAT_EQ(number, 1.5f) << "an option named by its id";
    EXPECT_EQ(camera.getFloat(900, ftkOptionGetter::FTK_VALUE, &number), ftkError::FTK_OK);
    EXPECT_FLOAT_EQ(number, 2.5f) << "an extra option set by the scene";
    EXPECT_EQ(enumerateOptions(camera.lib, 5).back().type, 3) << "extra options come after the model's own";
    ftkBuffer buffer{};
    ASSERT_EQ(ftkGetData(camera.lib, 5, 902, &buffer), ftkError::FTK_OK);
    EXPECT_EQ(std::string(buffer.data, buffer.size), "abc");
    EXPECT_EQ(ftkSetData(camera.lib, 5, 902, &buffer), ftkError::FTK_ERR_INV_OPT_ACC);

    const std::pair<const char*, const char*> refused[] = {
        {R"("options": {"Image Integration Time": 99999})",
         "devices[0].options: option \"Image Integration Time\""},
        {R"("extraOptions": [{"id": 16, "name": "Twice"}])",
         "devices[0].extraOptions[0].id: the device already has an option 16"},
        {R"("extraOptions": [{"id": 900, "name": "A", "type": "float", "min": 1, "max": 2, "default": 3}])",
         "devices[0].extraOptions[0]: needs min <= default <= max"},
    };
    for (const auto& [device, reason] : refused) {
        EXPECT_FALSE(ftkSimLoadScene((R"({"devices": [{)" + std::string(device) + "}]}").c_str()));
        EXPECT_NE(controlError().find(reason), std::string::npos) << controlError();
    }
}
