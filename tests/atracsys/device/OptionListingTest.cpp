#include "atracsys/device/AtracsysOptionHelpers.h"
#include "tests/atracsys/device/SimulatedCamera.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;
using namespace Kestrion::TestSupport;

namespace {

constexpr std::uint64_t listedSerial = simulatedSerial;

std::string refusedReads(const std::string& option, int count) {
    return R"({"kind": "optionRefusal", "option": ")" + option + R"(", "operation": "get", "count": )" +
           std::to_string(count) + "}";
}

/// Whether the exact info line `text` was logged without category; the capture is shown if not.
testing::AssertionResult logged(LogCapture& capture, const std::string& text) {
    if (capture->contains(Log::Info, "", text))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no line \"" << text << "\" in\n" << capture->dump();
}

/// Whether the listing logged the option's line, built from what the device `sn` reports, with `values`.
testing::AssertionResult listed(LogCapture& capture, const SimulatedCamera& camera, const std::string& name,
                                const std::string& type, bool writable, const std::string& values,
                                std::uint64_t sn = listedSerial) {
    const ReportedOption option = camera.reportedOption(sn, name);
    return logged(capture, "Option (" + std::to_string(option.id) + ") " + name + " | Type : " + type +
                               " | Description : " + option.description + " | Unit: " + option.unit +
                               " | Read access : 1 | Write access : " + (writable ? "1" : "0") + values);
}

} // namespace

TEST(OptionListing, LogsEveryOptionWithItsCurrentValueAndBounds) {
    SimulatedCamera camera(sceneWithFaults(""));
    const ftkLibrary lib = camera.lib();
    const std::size_t reported = camera.reportedOptions(listedSerial).size();
    LogCapture capture;
    logAvailableOptions(lib, listedSerial);

    EXPECT_TRUE(listed(capture, camera, "Image Integration Time", "FTK_INT32", true,
                       " | Value : 200 | Min : 50 | Max: 10000 | Default : 200"));
    // Float values keep six significant digits; float bounds are truncated toward zero.
    EXPECT_TRUE(listed(capture, camera, "Distance matching tolerance", "FTK_FLOAT32", true,
                       " | Value : 2 | Min : 0 | Max: 10 | Default : 2"));
    EXPECT_TRUE(listed(capture, camera, "Sensor temperature", "FTK_FLOAT32", false,
                       " | Value : 25 | Min : -40 | Max: 125 | Default : 25"));
    EXPECT_EQ(capture->countContaining("Option ("), reported) << capture->dump();
    EXPECT_EQ(capture->size(), reported);

    // A value changed on the device shows as such, with its float formatting.
    const OptionTable options = enumerateOptions(lib, listedSerial);
    ASSERT_TRUE(setOption<float>(lib, listedSerial, options, "Distance matching tolerance", 1.234567f));
    capture->clear();
    logAvailableOptions(lib, listedSerial);
    EXPECT_TRUE(listed(capture, camera, "Distance matching tolerance", "FTK_FLOAT32", true,
                       " | Value : 1.23457 | Min : 0 | Max: 10 | Default : 2"));

    // Data options (the library's global ones) show no value.
    capture->clear();
    logAvailableOptions(lib, 0);
    EXPECT_TRUE(listed(capture, camera, "Data Directory", "FTK_DATA", true, " | Value : ---", 0));
}

TEST(OptionListing, FailedReadsAreReportedAndUnreadBoundsShowTheirSentinels) {
    SimulatedCamera camera(sceneWithFaults(refusedReads("Image Integration Time", 2) + ", " +
                                           refusedReads("User-LED frequency", -1) + ", " +
                                           refusedReads("Distance matching tolerance", 2) + ", " +
                                           refusedReads("Epipolar matching tolerance", -1)));
    const ftkLibrary lib = camera.lib();
    LogCapture capture;
    logAvailableOptions(lib, listedSerial);

    // Current value and minimum refused: the integer minimum shows "---", the float one "0".
    EXPECT_TRUE(listed(capture, camera, "Image Integration Time", "FTK_INT32", true,
                       " | Value : -2147483648 | Min : --- | Max: 10000 | Default : 200"));
    EXPECT_TRUE(listed(capture, camera, "Distance matching tolerance", "FTK_FLOAT32", true,
                       " | Value : 1.17549e-38 | Min : 0 | Max: 10 | Default : 2"));
    // Every read refused.
    EXPECT_TRUE(listed(capture, camera, "User-LED frequency", "FTK_INT32", true,
                       " | Value : -2147483648 | Min : --- | Max: --- | Default : ---"));
    EXPECT_TRUE(listed(capture, camera, "Epipolar matching tolerance", "FTK_FLOAT32", true,
                       " | Value : 1.17549e-38 | Min : 0 | Max: 0 | Default : 0"));

    EXPECT_EQ(capture->count(Log::Error, "", "Getting option failed"), 4u);
    EXPECT_EQ(capture->count(Log::Debug, "", "Skip minimum value"), 4u);
    EXPECT_EQ(capture->count(Log::Debug, "", "Skip maximum value"), 2u);
    EXPECT_EQ(capture->count(Log::Debug, "", "Skip default value"), 2u);
    EXPECT_EQ(capture->size(), camera.reportedOptions(listedSerial).size() + 12u) << capture->dump();
}

TEST(OptionListing, UnreadableMalformedAndFractionalOptionsAndAFailedEnumeration) {
    SimulatedCamera camera(R"({"devices": [{"model": "spryTrack 180", "serial": "0x5354",
        "extraOptions": [
            {"id": 900, "name": "Offset", "type": "float", "min": -1.7, "max": 2.9, "default": 1.25,
             "unit": "mm", "description": "Offset of the working volume"},
            {"id": 902, "name": "Factory counter", "min": 0, "max": 9, "read": false, "description": "Counter"}],
        "faults": [
            {"kind": "malformedOption", "option": "Enables IR strobe", "malformation": "nullDescription"},
            {"kind": "malformedOption", "option": "User-LED frequency", "malformation": "nullUnit"},
            {"kind": "malformedOption", "option": "Image Integration Time", "malformation": "unknownType"},
            {"kind": "malformedOption", "option": "Sensor temperature", "malformation": "nullName"}]}]})");
    const ftkLibrary lib = camera.lib();
    const std::vector<ReportedOption> reported = camera.reportedOptions(listedSerial);
    LogCapture capture;
    logAvailableOptions(lib, listedSerial);

    // Float bounds are truncated toward zero: -1.7 shows -1 and 2.9 shows 2.
    EXPECT_TRUE(listed(capture, camera, "Offset", "FTK_FLOAT32", true,
                       " | Value : 1.25 | Min : -1 | Max: 2 | Default : 1"));

    // An option that cannot be read is listed as reported, without values and without a read.
    EXPECT_TRUE(logged(capture, "Option (902) Factory counter | Type : FTK_INT32 | Description : Counter | "
                                "Unit:  | Read access : 0 | Write access : 1"));

    // A missing description, unit or name ends the option's text there; the values still follow.
    EXPECT_TRUE(logged(
        capture, "Option (" + std::to_string(camera.reportedOption(listedSerial, "Enables IR strobe").id) +
                     ") Enables IR strobe | Type : FTK_INT32 | Description :  | Value : 1 | Min : "
                     "0 | Max: 1 | Default : 1"));
    const ReportedOption frequency = camera.reportedOption(listedSerial, "User-LED frequency");
    EXPECT_TRUE(logged(
        capture, "Option (" + std::to_string(frequency.id) +
                     ") User-LED frequency | Type : FTK_INT32 | Description : " + frequency.description +
                     " | Unit:  | Value : 0 | Min : 0 | Max: 50 | Default : 0"));
    const auto unnamed =
        std::find_if(reported.begin(), reported.end(), [](const ReportedOption& o) { return !o.hasName; });
    ASSERT_NE(unnamed, reported.end());
    EXPECT_TRUE(logged(capture, "Option (" + std::to_string(unnamed->id) +
                                    ")  | Value : 25 | Min : -40 | Max: 125 | Default : 25"));

    // An option of an unknown type reads as an integer in its line, then is reported as unknown
    // and logged without values.
    EXPECT_TRUE(listed(capture, camera, "Image Integration Time", "FTK_INT32", true, ""));
    EXPECT_EQ(capture->count(Log::Error, "", "Unknown option type"), 1u);
    EXPECT_EQ(capture->size(), reported.size() + 1u) << capture->dump();

    // The enumeration fails: one line, and nothing is listed.
    ASSERT_TRUE(ftkSimInjectFault(listedSerial,
                                  R"({"kind": "optionEnumerationStatus", "code": "FTK_ERR_INTERNAL"})"));
    capture->clear();
    logAvailableOptions(lib, listedSerial);
    EXPECT_TRUE(capture->contains(Log::Error, "", "Enumerating option failed"));
    EXPECT_EQ(capture->size(), 1u) << capture->dump();
}
