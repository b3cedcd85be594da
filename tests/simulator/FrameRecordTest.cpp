// Frame records through the C interface: allocation of the containers with the requested
// capacities, and refusal of records the library did not make.

#include <ftkInterface.h>

#include <gtest/gtest.h>

TEST(FrameRecord, SetFrameOptionsAllocatesTheRequestedCapacities) {
    ftkFrameQuery* frame = ftkCreateFrame();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(static_cast<const void*>(frame->markers), nullptr);
    EXPECT_EQ(+frame->markersCount, 0u);

    ASSERT_EQ(ftkSetFrameOptions(true, 20, 128, 64, 256, 16, frame), ftkError::FTK_OK);
    ASSERT_NE(static_cast<const void*>(frame->imageHeader), nullptr);
    ASSERT_NE(static_cast<const void*>(frame->events), nullptr);
    ASSERT_NE(static_cast<const void*>(frame->rawDataLeft), nullptr);
    ASSERT_NE(static_cast<const void*>(frame->rawDataRight), nullptr);
    ASSERT_NE(static_cast<const void*>(frame->threeDFiducials), nullptr);
    ASSERT_NE(static_cast<const void*>(frame->markers), nullptr);
    EXPECT_EQ(+frame->eventsVersionSize.ReservedSize, 20 * sizeof(ftkEvent));
    EXPECT_EQ(+frame->rawDataLeftVersionSize.ReservedSize, 128 * sizeof(ftkRawData));
    EXPECT_EQ(+frame->rawDataRightVersionSize.ReservedSize, 64 * sizeof(ftkRawData));
    EXPECT_EQ(+frame->threeDFiducialsVersionSize.ReservedSize, 256 * sizeof(ftk3DFiducial));
    EXPECT_EQ(+frame->markersVersionSize.ReservedSize, 16 * sizeof(ftkMarker));
    EXPECT_EQ(frame->markersCount + frame->threeDFiducialsCount + frame->rawDataLeftCount, 0u);
    // Every entry is writable (the address sanitizer build checks the extent).
    frame->markers[15].geometryId = 1;
    frame->events[19]->Type = 1;

    // Options can be set again with other capacities; a zero capacity leaves no container.
    ASSERT_EQ(ftkSetFrameOptions(false, 0, 4, 4, 8, 0, frame), ftkError::FTK_OK);
    EXPECT_EQ(static_cast<const void*>(frame->markers), nullptr);
    EXPECT_EQ(+frame->markersVersionSize.ReservedSize, 0u);
    EXPECT_EQ(+frame->threeDFiducialsVersionSize.ReservedSize, 8 * sizeof(ftk3DFiducial));
    EXPECT_EQ(ftkDeleteFrame(frame), ftkError::FTK_OK);
}

TEST(FrameRecord, RecordsNotMadeByCreateFrameAreRefused) {
    ftkFrameQuery onStack{};
    EXPECT_EQ(ftkSetFrameOptions(true, 1, 1, 1, 1, 1, &onStack), ftkError::FTK_ERR_INIT);
    EXPECT_EQ(ftkSetFrameOptions(true, 1, 1, 1, 1, 1, nullptr), ftkError::FTK_ERR_INIT);
    EXPECT_EQ(ftkDeleteFrame(&onStack), ftkError::FTK_ERR_INIT);
    EXPECT_EQ(ftkDeleteFrame(nullptr), ftkError::FTK_ERR_INV_PTR);

    ftkFrameQuery* frame = ftkCreateFrame();
    ASSERT_EQ(ftkDeleteFrame(frame), ftkError::FTK_OK);
    // A deleted record is no longer known: deleting or configuring it again is refused, not a
    // double free.
    EXPECT_EQ(ftkDeleteFrame(frame), ftkError::FTK_ERR_INIT);
}
