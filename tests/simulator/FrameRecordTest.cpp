// The interface's records as the plugin sees them: packed to one byte like the vendor's (the plugin
// builds unchanged against either library), and allocated by the library with the requested
// capacities.

#include <ftkInterface.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

// Any padding changes these sizes; the frame record's fields then sit at odd addresses.
static_assert(sizeof(ftkOptionsInfo) == 34 && sizeof(ftkGeometry) == 8 + 6 * 12 &&
              sizeof(ftkImageHeader) == 29);
static_assert(sizeof(ftkRawData) == 20 && sizeof(ftk3DFiducial) == 36 && sizeof(ftkMarker) == 92);
static_assert(sizeof(ftkFrameQuery) == 164 && offsetof(ftkFrameQuery, markers) == 143);

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
