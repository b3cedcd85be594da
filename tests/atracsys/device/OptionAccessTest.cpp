#include "atracsys/device/AtracsysOptionHelpers.h"
#include "tests/atracsys/device/SimulatedCamera.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;
using namespace Kestrion::TestSupport;

namespace {

constexpr std::uint64_t serial = simulatedSerial;

} // namespace

TEST(OptionTable, MapsEveryReportedNameToItsIdAndKeepsTheFirstIdOfADuplicate) {
    SimulatedCamera camera(sceneWithFaults(
        R"({"kind": "malformedOption", "option": "Distance matching tolerance", "malformation": "duplicateName"},
           {"kind": "malformedOption", "option": "User-LED frequency", "malformation": "nullName"})"));
    LogCapture capture;
    const OptionTable table = enumerateOptions(camera.lib(), serial);

    // Expected: the first id of each named option, in the SDK's order.
    OptionTable expected;
    std::size_t duplicates = 0;
    for (const ReportedOption& option : camera.reportedOptions(serial))
        if (option.hasName)
            duplicates += expected.emplace(option.name, option.id).second ? 0 : 1;
    EXPECT_EQ(duplicates, 1u);
    EXPECT_EQ(table, expected);
    const std::unique_ptr<OptionTable> forDevice = getOptionsForDevice(camera.lib(), serial);
    ASSERT_NE(forDevice, nullptr);
    EXPECT_EQ(*forDevice, expected);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(OptionTable, AFailedEnumerationIsLoggedByEnumerateOptionsAndNullForGetOptionsForDevice) {
    for (const char* code : {"FTK_ERR_INTERNAL", "FTK_WAR_NOT_SUPPORTED"}) {
        SimulatedCamera camera(
            sceneWithFaults(R"({"kind": "optionEnumerationStatus", "code": ")" + std::string(code) + "\"}"));
        LogCapture capture;
        // The options reported before the failure are kept.
        EXPECT_EQ(enumerateOptions(camera.lib(), serial).size(), camera.reportedOptions(serial).size())
            << code;
        EXPECT_EQ(capture->count(Log::Error, "", "Enumerating option failed"), 1u) << capture->dump();
        EXPECT_EQ(getOptionsForDevice(camera.lib(), serial), nullptr) << code;
        EXPECT_TRUE(enumerateOptions(camera.lib(), serial + 1).empty()) << "unknown serial";
        EXPECT_EQ(getOptionsForDevice(camera.lib(), serial + 1), nullptr);
        EXPECT_EQ(capture->size(), 2u) << capture->dump();
    }
}

TEST(OptionAccess, UnknownNamesAreLoggedWhileSdkRefusalsAreSilent) {
    SimulatedCamera camera(sceneWithFaults(R"({"kind": "optionRefusal", "option": "Image Integration Time",
                                               "operation": "both", "code": "FTK_ERR_INV_OPT_ACC"})"));
    const ftkLibrary lib = camera.lib();
    const OptionTable options = enumerateOptions(lib, serial);
    LogCapture capture;

    EXPECT_FALSE(getOption<int>(lib, serial, options, "Foo").has_value());
    EXPECT_FALSE(getOption<ftkBuffer>(lib, serial, options, "image integration time").has_value());
    EXPECT_FALSE(setOption<float>(lib, serial, options, "Foo", 1.0f));
    EXPECT_TRUE(capture->contains(Log::Error, "AtracsysHelpers",
                                  "Failed to get value - option < Foo > not available"));
    EXPECT_TRUE(capture->contains(Log::Error, "AtracsysHelpers",
                                  "Failed to get value - option < image integration time > not available"));
    EXPECT_TRUE(capture->contains(Log::Error, "AtracsysHelpers",
                                  "Failed to set value - option < Foo > not available"));
    EXPECT_EQ(capture->size(), 3u) << capture->dump();

    // Refused by the device, read-only, of another type, or an unknown device: no line here.
    capture->clear();
    EXPECT_FALSE(getOption<int>(lib, serial, options, "Image Integration Time").has_value());
    EXPECT_FALSE(setOption<int>(lib, serial, options, "Image Integration Time", 300));
    EXPECT_FALSE(setOption<float>(lib, serial, options, "Sensor temperature", 30.0f));
    EXPECT_FALSE(getOption<float>(lib, serial, options, "Enables IR strobe").has_value());
    EXPECT_FALSE(getOption<int>(lib, serial + 1, options, "Enables IR strobe").has_value());
    EXPECT_EQ(getOption<int>(lib, serial, options, "Enables IR strobe"), 1);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(OptionAccess, AWriteClampedByTheDeviceIsReportedAsNotDone) {
    SimulatedCamera camera(R"({"devices": [{"serial": "0x5354", "extraOptions": [
        {"id": 903, "name": "Gain", "type": "float", "min": 0.5, "max": 2.9, "default": 1}]}]})");
    const OptionTable options = enumerateOptions(camera.lib(), serial);
    LogCapture capture;
    EXPECT_FALSE(setOption<float>(camera.lib(), serial, options, "Gain", 3.0f));
    EXPECT_EQ(getOption<float>(camera.lib(), serial, options, "Gain"), 2.9f);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}
