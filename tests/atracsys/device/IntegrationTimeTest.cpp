// The integration-time option id is cached once per process, so this executable holds a single
// test that starts from an empty cache.
#include "atracsys/device/AtracsysOptionHelpers.h"
#include "tests/atracsys/device/SimulatedCamera.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;
using namespace Kestrion::TestSupport;

TEST(IntegrationTime, IsReadAndWrittenThroughAnOptionTableFetchedOncePerProcess) {
    constexpr std::uint64_t first = 0x180;
    constexpr std::uint64_t second = 0x250;
    SimulatedCamera camera(R"({"devices": [
        {"model": "spryTrack 180", "serial": "0x180",
         "faults": [{"kind": "optionEnumerationStatus", "code": "FTK_ERR_INTERNAL", "count": 2}]},
        {"model": "fusionTrack 250", "serial": "0x250"}]})");
    const ftkLibrary lib = camera.lib();
    // Asked of the second device: enumerating the first one would use up its fault.
    const std::uint32_t id = camera.reportedOption(second, "Image Integration Time").id;
    ASSERT_NE(id, 0u);
    LogCapture capture;

    // The first fetch of the table fails: nothing is cached and the next call tries again.
    int value = -1;
    EXPECT_EQ(getIntegrationTimeOptionId(lib, first), nullptr);
    EXPECT_FALSE(getIntegrationTime(lib, first, value));
    ASSERT_NE(getIntegrationTimeOptionId(lib, first), nullptr);
    EXPECT_EQ(*getIntegrationTimeOptionId(lib, first), id);

    EXPECT_TRUE(setIntegrationTime(lib, first, 450));
    EXPECT_TRUE(getIntegrationTime(lib, first, value));
    EXPECT_EQ(value, 450);
    const OptionTable options = enumerateOptions(lib, first);
    EXPECT_EQ(getOption<int>(lib, first, options, "Image Integration Time"), 450);

    // The table is not fetched again: a device that now hides the option's name, and another
    // device whose enumeration fails, are still served by the cached id.
    ASSERT_TRUE(ftkSimInjectFault(first, R"({"kind": "malformedOption", "option": "Image Integration Time",
                                             "malformation": "nullName"})"));
    ASSERT_TRUE(
        ftkSimInjectFault(second, R"({"kind": "optionEnumerationStatus", "code": "FTK_ERR_INTERNAL"})"));
    ASSERT_NE(getIntegrationTimeOptionId(lib, second), nullptr);
    EXPECT_EQ(*getIntegrationTimeOptionId(lib, second), id);
    EXPECT_TRUE(setIntegrationTime(lib, second, 1000));
    EXPECT_TRUE(getIntegrationTime(lib, second, value));
    EXPECT_EQ(value, 1000);
    EXPECT_TRUE(getIntegrationTime(lib, first, value));
    EXPECT_EQ(value, 450);

    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}
