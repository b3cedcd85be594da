// What a fetch puts into the frame record: containers up to their capacities, and images.

#include "tests/simulator/SimulatorTestSupport.h"

#include <cmath>
#include <cstring>
#include <tuple>

using namespace Kestrion::SimulatorTest;

namespace {

/// The default scene with both markers registered, fetched once into a record of these capacities.
struct Fetched {
    Fetched(const Camera::Capacities& capacities)
        : camera(capacities) {
        camera.registerDefaultMarkers();
        EXPECT_EQ(camera.fetch(), ftkError::FTK_OK);
    }
    SceneGuard scene;
    Camera camera;
};

} // namespace

TEST(FrameContent, ContainersAreFilledToCapacityAndReportOverflow) {
    // The default scene's first frame: 11 detections per camera, 11 fiducials, 2 markers.
    Fetched full(Camera::Capacities{false, 20, 11, 11, 11, 2});
    const ftkFrameQuery& f = *full.camera.frame;
    ASSERT_EQ(
        std::make_tuple(+f.rawDataLeftCount, +f.rawDataRightCount, +f.threeDFiducialsCount, +f.markersCount),
        std::make_tuple(11u, 11u, 11u, 2u));
    for (ftkQueryStatus s : {f.rawDataLeftStat, f.rawDataRightStat, f.threeDFiducialsStat, f.markersStat,
                             f.imageHeaderStat, f.eventsStat}) {
        EXPECT_EQ(s, ftkQueryStatus::QS_OK) << "exactly full is no overflow";
    }
    EXPECT_EQ(+f.eventsCount, 0u);

    Fetched small(Camera::Capacities{false, 0, 3, 2, 4, 1});
    const ftkFrameQuery& s = *small.camera.frame;
    EXPECT_EQ(
        std::make_tuple(+s.rawDataLeftCount, +s.rawDataRightCount, +s.threeDFiducialsCount, +s.markersCount),
        std::make_tuple(3u, 2u, 4u, 1u));
    for (ftkQueryStatus status :
         {s.rawDataLeftStat, s.rawDataRightStat, s.threeDFiducialsStat, s.markersStat}) {
        EXPECT_EQ(status, ftkQueryStatus::QS_ERR_OVERFLOW);
    }
    // The same frame (same scene and seed): the small record holds the first entries.
    EXPECT_EQ(+s.imageHeader->counter, +f.imageHeader->counter);
    EXPECT_EQ(std::memcmp(s.rawDataLeft, f.rawDataLeft, 3 * sizeof(ftkRawData)), 0);
    EXPECT_EQ(std::memcmp(s.threeDFiducials, f.threeDFiducials, 4 * sizeof(ftk3DFiducial)), 0);
    EXPECT_EQ(s.markers[0].geometryId, f.markers[0].geometryId);
}

TEST(FrameContent, ImagesComeOnlyWhenPixelsAreRequestedAndImageSendingIsOn) {
    Fetched withPixels(Camera::Capacities{true});
    Camera& camera = withPixels.camera;
    const ftkFrameQuery& f = *camera.frame;
    // The spryTrack sends no images until option 6003 is set.
    EXPECT_EQ(f.imageLeftStat, ftkQueryStatus::QS_WAR_SKIPPED);
    EXPECT_EQ(f.imageRightStat, ftkQueryStatus::QS_WAR_SKIPPED);

    ASSERT_EQ(camera.setInt(6003, 1), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    ASSERT_EQ(f.imageLeftStat, ftkQueryStatus::QS_OK);
    ASSERT_EQ(f.imageRightStat, ftkQueryStatus::QS_OK);
    const ftkImageHeader& h = *f.imageHeader;
    EXPECT_EQ(std::make_tuple(+h.width, +h.height, +h.imageStrideInBytes, h.format),
              std::make_tuple(uint16(2048), uint16(1088), int32(2048), ftkPixelFormat::GRAY8));

    // A bright blob at every detection, dark sensor elsewhere.
    const auto pixel = [](const uint8* image, const ftkRawData& blob) {
        return image[int(blob.centerYPixels) * 2048 + int(blob.centerXPixels)];
    };
    for (bool left : {true, false}) {
        const uint8* image = left ? f.imageLeftPixels : f.imageRightPixels;
        ASSERT_EQ(left ? +f.rawDataLeftCount : +f.rawDataRightCount, 11u);
        long dark = 0;
        for (uint32 i = 0; i < 1000; ++i) {
            EXPECT_TRUE(i >= 11 || pixel(image, (left ? f.rawDataLeft : f.rawDataRight)[i]) >= 200) << i;
            dark += image[(i * 2221) % (2048 * 1088)];
        }
        EXPECT_LT(dark / 1000, 12) << "the sensor is mostly dark";
    }

    // A short integration time gives dim blobs.
    ASSERT_EQ(camera.setInt(camera.option("Image Integration Time"), 50), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    const uint8 dim = pixel(f.imageLeftPixels, f.rawDataLeft[0]);
    EXPECT_GT(dim, 60);
    EXPECT_LT(dim, 110);

    // Without the infrared strobe passive fiducials are not seen at all.
    ASSERT_EQ(camera.setInt(camera.option("Enables IR strobe"), 0), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(f.rawDataLeftCount + f.threeDFiducialsCount + f.markersCount, 0u);

    // A record without pixel buffers never gets images.
    Camera noPixels;
    ASSERT_EQ(noPixels.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(noPixels.frame->imageLeftStat, ftkQueryStatus::QS_ERR_INVALID_RESERVED_SIZE);
    EXPECT_EQ(static_cast<const void*>(noPixels.frame->imageLeftPixels), nullptr);
}

TEST(FrameContent, ImagesOfLaterFramesKeepNoTraceOfEarlierBlobs) {
    // A record reused from frame to frame only redraws where blobs were: after the markers have
    // moved, its image must equal a new record's everywhere but at the current blobs.
    SceneGuard scene;
    Camera reused(Camera::Capacities{true});
    Camera fresh(Camera::Capacities{true});
    ASSERT_EQ(reused.setInt(6003, 1), ftkError::FTK_OK);
    ASSERT_EQ(reused.fetch(), ftkError::FTK_OK);
    const ftkFrameQuery& r = *reused.frame;
    const std::vector<ftkRawData> early(r.rawDataLeft, r.rawDataLeft + r.rawDataLeftCount);
    ASSERT_TRUE(ftkSimStep(0, 100)); // about two seconds: the markers move by many pixels
    ASSERT_EQ(fresh.fetch(), ftkError::FTK_OK);
    ASSERT_EQ(reused.fetch(), ftkError::FTK_OK);

    constexpr int Width = 2048;
    std::vector<bool> blob(Width * 1088, false); // the blobs of both later frames, with a margin
    for (const ftkFrameQuery* q : {fresh.frame, reused.frame}) {
        for (uint32 i = 0; i < q->rawDataLeftCount; ++i) {
            const ftkRawData& d = q->rawDataLeft[i];
            for (int y = int(d.centerYPixels - d.height / 2.0f) - 3;
                 y <= int(d.centerYPixels + d.height / 2.0f) + 3; ++y)
                for (int x = int(d.centerXPixels - d.width / 2.0f) - 3;
                     x <= int(d.centerXPixels + d.width / 2.0f) + 3; ++x)
                    if (x >= 0 && y >= 0 && x < Width && y < 1088)
                        blob[y * Width + x] = true;
        }
    }
    int moved = 0;
    for (const ftkRawData& d : early)
        moved += blob[int(d.centerYPixels) * Width + int(d.centerXPixels)] ? 0 : 1;
    ASSERT_GT(moved, 5) << "the earlier blobs must lie elsewhere";
    int differing = 0;
    for (std::size_t i = 0; i < blob.size(); ++i)
        differing += !blob[i] && r.imageLeftPixels[i] != fresh.frame->imageLeftPixels[i] ? 1 : 0;
    EXPECT_EQ(differing, 0);
}
