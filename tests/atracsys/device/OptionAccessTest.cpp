#include "atracsys/device/AtracsysOptionHelpers.h"
#include "tests/atracsys/device/OptionTestSupport.h"
#include "tests/atracsys/device/SimulatedCamera.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;
using namespace Kestrion::TestSupport;

namespace {

constexpr std::uint64_t serial = 0x5354;

std::string sceneWithFaults(const std::string& faults) {
    return R"({"devices": [{"model": "spryTrack 180", "serial": "0x5354", "faults": [)" + faults + "]}]}";
}

ftkBuffer bufferOf(const std::string& text) {
    ftkBuffer buffer{};
    std::memcpy(buffer.data, text.c_str(), text.size() + 1);
    buffer.size = static_cast<std::uint32_t>(text.size() + 1);
    return buffer;
}

} // namespace

TEST(OptionTable, MapsEveryReportedNameToItsIdAndKeepsTheFirstIdOfADuplicate) {
    SimulatedCamera camera(sceneWithFaults(
        R"({"kind": "malformedOption", "option": "Distance matching tolerance", "malformation": "duplicateName"},
           {"kind": "malformedOption", "option": "User-LED frequency", "malformation": "nullName"})"));
    LogCapture capture;

    const std::vector<ReportedOption> reported = reportedOptions(camera.lib(), serial);
    std::set<std::string> names;
    std::vector<std::uint32_t> toleranceIds;
    for (const ReportedOption& option : reported) {
        if (option.hasName)
            names.insert(option.name);
        if (option.name == "Distance matching tolerance")
            toleranceIds.push_back(option.id);
    }
    ASSERT_EQ(toleranceIds.size(), 2u) << "the duplicate is reported under a second id";

    const OptionTable table = enumerateOptions(camera.lib(), serial);
    EXPECT_EQ(table.size(), names.size());
    for (const ReportedOption& option : reported) {
        if (option.hasName && option.name != "Distance matching tolerance") {
            EXPECT_EQ(table.at(option.name), option.id) << option.name;
        }
    }
    EXPECT_EQ(table.at("Distance matching tolerance"), toleranceIds.front());
    EXPECT_EQ(table.count("User-LED frequency"), 0u) << "an option without a name cannot be looked up";
    EXPECT_EQ(table.count("Image Integration Time"), 1u);

    const std::unique_ptr<OptionTable> forDevice = getOptionsForDevice(camera.lib(), serial);
    ASSERT_NE(forDevice, nullptr);
    EXPECT_EQ(*forDevice, table);

    // The named callback ignores a missing table.
    ftkOptionsInfo info{};
    info.name = "x";
    optionEnumerator(serial, nullptr, &info);
    OptionTable direct;
    optionEnumerator(serial, &direct, &info);
    EXPECT_EQ(direct, (OptionTable{{"x", 0u}}));
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(OptionTable, AFailedEnumerationIsLoggedByEnumerateOptionsAndNullForGetOptionsForDevice) {
    for (const char* code : {"FTK_ERR_INTERNAL", "FTK_WAR_NOT_SUPPORTED"}) {
        SimulatedCamera camera(
            sceneWithFaults(R"({"kind": "optionEnumerationStatus", "code": ")" + std::string(code) + "\"}"));
        LogCapture capture;
        // The options reported before the failure are kept.
        const OptionTable partial = enumerateOptions(camera.lib(), serial);
        EXPECT_EQ(partial.size(), reportedOptions(camera.lib(), serial).size()) << code;
        EXPECT_EQ(capture->count(Log::Error, "", "Enumerating option failed"), 1u) << capture->dump();
        EXPECT_EQ(capture->size(), 1u) << capture->dump();

        capture->clear();
        EXPECT_EQ(getOptionsForDevice(camera.lib(), serial), nullptr) << code;
        EXPECT_EQ(capture->size(), 0u) << capture->dump();
    }
    // An unknown serial fails the same way.
    SimulatedCamera camera(sceneWithFaults(""));
    LogCapture capture;
    EXPECT_TRUE(enumerateOptions(camera.lib(), serial + 1).empty());
    EXPECT_EQ(capture->count(Log::Error, "", "Enumerating option failed"), 1u);
    EXPECT_EQ(getOptionsForDevice(camera.lib(), serial + 1), nullptr);
}

TEST(OptionAccess, ReadsAndWritesIntegerFloatAndDataOptionsByName) {
    SimulatedCamera camera(sceneWithFaults(""));
    LogCapture capture;
    const OptionTable options = enumerateOptions(camera.lib(), serial);

    EXPECT_EQ(getOption<int>(camera.lib(), serial, options, "Image Integration Time"), 200);
    EXPECT_TRUE(setOption<int>(camera.lib(), serial, options, "Image Integration Time", 350));
    EXPECT_EQ(getOption<int>(camera.lib(), serial, options, "Image Integration Time"), 350);

    EXPECT_EQ(getOption<float>(camera.lib(), serial, options, "Distance matching tolerance"), 2.0f);
    EXPECT_TRUE(setOption<float>(camera.lib(), serial, options, "Distance matching tolerance", 3.5f));
    EXPECT_EQ(getOption<float>(camera.lib(), serial, options, "Distance matching tolerance"), 3.5f);

    // Data options are the library's global ones (serial 0).
    const OptionTable globals = enumerateOptions(camera.lib(), 0);
    const std::optional<ftkBuffer> directory =
        getOption<ftkBuffer>(camera.lib(), 0, globals, "Data Directory");
    ASSERT_TRUE(directory.has_value());
    EXPECT_STREQ(directory->data, "data");
    const ftkBuffer calibration = bufferOf("/opt/calibration");
    EXPECT_TRUE(setOption<ftkBuffer>(camera.lib(), 0, globals, "Data Directory", calibration));
    const std::optional<ftkBuffer> changed = getOption<ftkBuffer>(camera.lib(), 0, globals, "Data Directory");
    ASSERT_TRUE(changed.has_value());
    EXPECT_EQ(changed->size, calibration.size);
    EXPECT_STREQ(changed->data, "/opt/calibration");

    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(OptionAccess, UnknownNamesAreLoggedWhileSdkRefusalsAreSilent) {
    SimulatedCamera camera(sceneWithFaults(
        R"({"kind": "optionRefusal", "option": "Image Integration Time", "operation": "both",
            "code": "FTK_ERR_INV_OPT_ACC"})"));
    const OptionTable options = enumerateOptions(camera.lib(), serial);
    LogCapture capture;

    EXPECT_FALSE(getOption<int>(camera.lib(), serial, options, "Foo").has_value());
    EXPECT_FALSE(getOption<float>(camera.lib(), serial, options, "Foo").has_value());
    EXPECT_FALSE(getOption<ftkBuffer>(camera.lib(), serial, options, "image integration time").has_value());
    EXPECT_EQ(
        capture->count(Log::Error, "AtracsysHelpers", "Failed to get value - option < Foo > not available"),
        2u)
        << capture->dump();
    EXPECT_TRUE(capture->contains(Log::Error, "AtracsysHelpers",
                                  "Failed to get value - option < image integration time > not available"));

    EXPECT_FALSE(setOption<int>(camera.lib(), serial, options, "Foo", 1));
    EXPECT_FALSE(setOption<float>(camera.lib(), serial, options, "Foo", 1.0f));
    EXPECT_FALSE(setOption<ftkBuffer>(camera.lib(), serial, options, "Foo", bufferOf("x")));
    EXPECT_EQ(
        capture->count(Log::Error, "AtracsysHelpers", "Failed to set value - option < Foo > not available"),
        3u);
    EXPECT_EQ(capture->size(), 6u) << capture->dump();

    // Refused by the device, read-only, of another type, or an unknown device: no line here.
    capture->clear();
    EXPECT_FALSE(getOption<int>(camera.lib(), serial, options, "Image Integration Time").has_value());
    EXPECT_FALSE(setOption<int>(camera.lib(), serial, options, "Image Integration Time", 300));
    EXPECT_FALSE(setOption<float>(camera.lib(), serial, options, "Sensor temperature", 30.0f));
    EXPECT_FALSE(getOption<float>(camera.lib(), serial, options, "Enables IR strobe").has_value());
    EXPECT_FALSE(getOption<int>(camera.lib(), serial + 1, options, "Enables IR strobe").has_value());
    EXPECT_EQ(getOption<int>(camera.lib(), serial, options, "Enables IR strobe"), 1);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}
