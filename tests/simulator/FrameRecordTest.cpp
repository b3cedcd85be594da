// The interface's records as the plugin sees them: packed to one byte like the vendor's (the plugin
// builds unchanged against either library), and allocated by the library with the requested
// capacities.

#include <ftkInterface.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

// The values and storage types the vendor's library uses: the plugin built against either library
// must read the same codes, capacities and records.
static_assert(std::is_same_v<std::underlying_type_t<ftkError>, int32> &&
              std::is_same_v<std::underlying_type_t<ftkDeviceType>, int8> &&
              std::is_same_v<std::underlying_type_t<ftkOptionType>, uint8> &&
              std::is_same_v<std::underlying_type_t<ftkOptionGetter>, uint8> &&
              std::is_same_v<std::underlying_type_t<ftkComponent>, uint8> &&
              std::is_same_v<std::underlying_type_t<ftkQueryStatus>, int8> &&
              std::is_same_v<std::underlying_type_t<ftkPixelFormat>, uint8>);
static_assert(FTK_MAX_FIDUCIALS == 6 && INVALID_ID == 0xFFFFFFFFu && BUFFER_MAX_SIZE == 10240);
static_assert(int(ftkError::FTK_WAR_NO_FRAME) == -1 && int(ftkError::FTK_WAR_OPT_VAL_RANGE) == -101 &&
              int(ftkError::FTK_WAR_OPT_GLOBAL_ONLY) == -103 && int(ftkError::FTK_ERR_INTERNAL) == 4 &&
              int(ftkError::FTK_ERR_INIT) == 10 && int(ftkError::FTK_ERR_GEOM_PTS) == 20 &&
              int(ftkError::FTK_ERR_GEOM_REGISTERED) == 21 && int(ftkError::FTK_ERR_DISCONNECTION) == 50 &&
              int(ftkError::FTK_ERR_INV_OPT) == 100 && int(ftkError::FTK_ERR_INV_OPT_PAR) == 103);
static_assert(int(ftkDeviceType::DEV_SIMULATOR) == 0 && int(ftkDeviceType::DEV_FUSIONTRACK_500) == 2 &&
              int(ftkDeviceType::DEV_FUSIONTRACK_250) == 3 && int(ftkDeviceType::DEV_SPRYTRACK_180) == 4 &&
              int(ftkDeviceType::DEV_SPRYTRACK_300) == 5 && int(ftkDeviceType::DEV_UNKNOWN_DEVICE) == 127);
static_assert(int(ftkOptionType::FTK_FLOAT32) == 1 && int(ftkOptionType::FTK_DATA) == 3 &&
              int(ftkOptionGetter::FTK_VALUE) == 3 && int(ftkComponent::FTK_LIBRARY) == 100 &&
              int(ftkQueryStatus::QS_WAR_SKIPPED) == -1 && int(ftkQueryStatus::QS_ERR_OVERFLOW) == 1 &&
              int(ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE) == 2 && int(ftkPixelFormat::GRAY8) == 0);

// Packed records in the vendor's field order: any padding or reordering moves these offsets, and the
// frame record's fields then sit elsewhere than the library writes them.
static_assert(sizeof(ftkOptionStatus) == 4 && sizeof(ftkOptionsInfo) == 34 &&
              offsetof(ftkOptionsInfo, name) == 10);
static_assert(offsetof(ftkBuffer, size) == BUFFER_MAX_SIZE && sizeof(ftkGeometry) == 8 + 6 * 12);
static_assert(sizeof(ftkImageHeader) == 29 && offsetof(ftkImageHeader, width) == 21);
static_assert(sizeof(ftkRawData) == 20 && sizeof(ftk3DFiducial) == 36 && sizeof(ftkMarker) == 92 &&
              offsetof(ftkMarker, rotation) == 40 && sizeof(ftkEvent) == 32);
static_assert(offsetof(ftkFrameQuery, internalData) == 17 && offsetof(ftkFrameQuery, eventsCount) == 41 &&
              offsetof(ftkFrameQuery, rawDataLeftCount) == 96 &&
              offsetof(ftkFrameQuery, threeDFiducialsCount) == 138 &&
              offsetof(ftkFrameQuery, markers) == 143 && sizeof(ftkFrameQuery) == 164);

// The bit fields are laid out from bit 0 in declaration order, and the uint32 conversions agree.
TEST(FrameRecord, StatusBitsRoundTripThroughUint32) {
    ftkStatus status{};
    status.ThreeDcrop = 1;
    status.BottomEdge = 1;
    EXPECT_EQ(uint32(status), 0x42u);
    const ftkStatus fromBits(0x24u);
    EXPECT_EQ(fromBits.LeftEdge + 2 * fromBits.WorkingVolume + 4 * fromBits.TopEdge + 8 * fromBits.SensorCrop,
              3u);
    EXPECT_EQ(uint32(ftkStatus(0xDEADBEEFu)), 0xDEADBEEFu);
    ftkOptionStatus access{};
    access.globalOption = 1;
    EXPECT_EQ(std::memcmp(&access, "\x10\0\0\0", 4), 0);
}

TEST(FrameRecord, SetFrameOptionsAllocatesTheRequestedCapacitiesForRecordsOfTheLibraryOnly) {
    ftkFrameQuery* frame = ftkCreateFrame();
    ASSERT_NE(frame, nullptr);
    ASSERT_EQ(ftkSetFrameOptions(true, 20, 128, 64, 256, 16, frame), ftkError::FTK_OK);
    ASSERT_NE(static_cast<const void*>(frame->imageHeader), nullptr);
    const std::pair<uint32, std::size_t> reserved[] = {
        {frame->eventsVersionSize.ReservedSize, 20 * sizeof(ftkEvent)},
        {frame->rawDataLeftVersionSize.ReservedSize, 128 * sizeof(ftkRawData)},
        {frame->rawDataRightVersionSize.ReservedSize, 64 * sizeof(ftkRawData)},
        {frame->threeDFiducialsVersionSize.ReservedSize, 256 * sizeof(ftk3DFiducial)},
        {frame->markersVersionSize.ReservedSize, 16 * sizeof(ftkMarker)}};
    for (const auto& [size, expected] : reserved) {
        EXPECT_EQ(size, expected);
    }
    // Every entry is writable (the address sanitizer build checks the extent).
    frame->markers[15].geometryId = 1;
    frame->events[19]->Type = 1;
    frame->rawDataRight[63].pixelsCount = 1;

    // Options can be set again with other capacities; a zero capacity leaves no container.
    ASSERT_EQ(ftkSetFrameOptions(false, 0, 4, 4, 8, 0, frame), ftkError::FTK_OK);
    EXPECT_EQ(static_cast<const void*>(frame->markers), nullptr);
    EXPECT_EQ(+frame->markersVersionSize.ReservedSize, 0u);
    EXPECT_EQ(+frame->threeDFiducialsVersionSize.ReservedSize, 8 * sizeof(ftk3DFiducial));
    EXPECT_EQ(ftkDeleteFrame(frame), ftkError::FTK_OK);
    // A deleted record, or one the library did not make, is refused: no double free.
    EXPECT_EQ(ftkDeleteFrame(frame), ftkError::FTK_ERR_INIT);
    ftkFrameQuery onStack{};
    EXPECT_EQ(ftkSetFrameOptions(true, 1, 1, 1, 1, 1, &onStack), ftkError::FTK_ERR_INIT);
    EXPECT_EQ(ftkSetFrameOptions(true, 1, 1, 1, 1, 1, nullptr), ftkError::FTK_ERR_INIT);
    EXPECT_EQ(ftkDeleteFrame(&onStack), ftkError::FTK_ERR_INIT);
    EXPECT_EQ(ftkDeleteFrame(nullptr), ftkError::FTK_ERR_INV_PTR);
}
