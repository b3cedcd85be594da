// The integration-time option id is cached once per process, so this executable holds a single
// test that starts from an empty cache.
#include "atracsys/device/AtracsysOptionHelpers.h"
#include "tests/atracsys/device/SimulatedCamera.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;
using namespace Kestrion::TestSupport;

TEST(IntegrationTime, ADeviceWithoutTheOptionIsAskedForOptionZero) {
    constexpr std::uint64_t sn = 0x180;
    // The device reports its integration-time option without a name: no option of that name.
    SimulatedCamera camera(R"({"devices": [{"model": "spryTrack 180", "serial": "0x180",
        "faults": [{"kind": "malformedOption", "option": "Image Integration Time", "malformation": "nullName"}]}]})");
    const ftkLibrary lib = camera.lib();
    LogCapture capture;

    const std::unique_ptr<unsigned> id = getIntegrationTimeOptionId(lib, sn);
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(*id, 0u);

    // Option 0 does not exist on this device.
    int value = -1;
    EXPECT_FALSE(getIntegrationTime(lib, sn, value));
    EXPECT_FALSE(setIntegrationTime(lib, sn, 300));

    // The name stays in the cached table with id 0, even once the device names the option again.
    ASSERT_TRUE(ftkSimClearFaults(sn));
    EXPECT_EQ(*getIntegrationTimeOptionId(lib, sn), 0u);
    EXPECT_FALSE(getIntegrationTime(lib, sn, value));
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}
