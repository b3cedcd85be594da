// The binary layout of the camera interface: the plugin must build unchanged against the vendor's
// library, so the records stay packed to one byte and the enumerations keep their storage types,
// even where everything would still compile otherwise.

#include <ftkInterface.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace {

static_assert(std::is_same_v<std::underlying_type_t<ftkError>, int32>);
static_assert(std::is_same_v<std::underlying_type_t<ftkDeviceType>, int8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkOptionType>, uint8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkOptionGetter>, uint8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkComponent>, uint8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkQueryStatus>, int8>);
static_assert(std::is_same_v<std::underlying_type_t<ftkPixelFormat>, uint8>);

// Packed records: any padding changes these sizes.
static_assert(sizeof(ftkOptionStatus) == 4 && sizeof(ftkStatus) == 4);
static_assert(sizeof(ftkOptionsInfo) == 34 && offsetof(ftkOptionsInfo, name) == 10);
static_assert(offsetof(ftkBuffer, size) == BUFFER_MAX_SIZE && sizeof(ftkBuffer) == BUFFER_MAX_SIZE + 4);
static_assert(sizeof(ftk3DPoint) == 12 && sizeof(ftkGeometry) == 8 + 6 * 12);
static_assert(sizeof(ftkVersionSize) == 8);
static_assert(sizeof(ftkImageHeader) == 29 && offsetof(ftkImageHeader, width) == 21);
static_assert(sizeof(ftkRawData) == 20);
static_assert(sizeof(ftk3DFiducial) == 36);
static_assert(sizeof(ftkMarker) == 92 && offsetof(ftkMarker, rotation) == 40);
static_assert(sizeof(ftkEvent) == 32);

// Frame record: pointer (8), version/size (8), status (1) per container; containers with a count
// add 4 bytes before their status, so most fields sit at odd addresses.
static_assert(offsetof(ftkFrameQuery, internalData) == 17);
static_assert(offsetof(ftkFrameQuery, eventsCount) == 41);
static_assert(offsetof(ftkFrameQuery, rawDataLeftCount) == 96);
static_assert(offsetof(ftkFrameQuery, threeDFiducialsCount) == 138);
static_assert(offsetof(ftkFrameQuery, markers) == 143);
static_assert(sizeof(ftkFrameQuery) == 164);

} // namespace

// The bit fields are laid out from bit 0 in declaration order, and the uint32 conversions agree
// with them in both directions.
TEST(InterfaceLayout, StatusBitsRoundTripThroughUint32) {
    ftkStatus status{};
    status.RightEdge = 1;
    EXPECT_EQ(uint32(status), 0x1u);
    status = ftkStatus{};
    status.ThreeDcrop = 1;
    status.BottomEdge = 1;
    EXPECT_EQ(uint32(status), 0x42u);

    const ftkStatus fromBits(0x24u);
    EXPECT_EQ(fromBits.LeftEdge, 1u);
    EXPECT_EQ(fromBits.WorkingVolume, 1u);
    EXPECT_EQ(fromBits.RightEdge + fromBits.BottomEdge + fromBits.TopEdge + fromBits.SensorCrop, 0u);
    EXPECT_EQ(uint32(ftkStatus(0xDEADBEEFu)), 0xDEADBEEFu);

    ftkOptionStatus access{};
    access.write = 1;
    access.globalOption = 1;
    uint32 accessBits = 0;
    std::memcpy(&accessBits, &access, sizeof(access));
    EXPECT_EQ(accessBits, 0x12u);
}
