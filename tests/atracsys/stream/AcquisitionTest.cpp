// The acquisition loop frame by frame on the simulated camera with its stepped clock: poses
// against the simulator's ground truth, quality, fiducial selection and camera images. The test
// plays the worker thread: the stream is open, not started, and each round() is one doWork.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "atracsys/stream/AtracsysInstrumentId.h"

#include "host/core/Time.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/SubstreamBase.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <functional>
#include <tuple>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;
using Kestrion::SpryTrack::createId;

namespace {

constexpr std::uint32_t NoInstrument = TrackingInstrumentFiducialsData::NoInstrument;

/// Runs one round and returns its data (fails the test when the round emitted none).
std::shared_ptr<const CompoundStreamData> frame(ProbedStream& stream, Recorder& recorder) {
    const std::size_t before = recorder.dataCount();
    stream.round();
    EXPECT_EQ(recorder.dataCount(), before + 1) << "one data item per frame";
    return recorder.lastData();
}

double angleDegrees(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b) {
    return Eigen::AngleAxisd(a.transpose() * b).angle() * 180.0 / M_PI;
}

/// Index of the fiducial nearest to a point, with its distance.
std::pair<std::size_t, double> nearest(const std::vector<Eigen::Vector3d>& points, const Eigen::Vector3d& p) {
    std::pair<std::size_t, double> best{points.size(), 1e300};
    for (std::size_t i = 0; i < points.size(); ++i)
        if ((points[i] - p).norm() < best.second)
            best = {i, (points[i] - p).norm()};
    return best;
}

} // namespace

TEST(TrackingStreamAcquisition, PosesFollowTheGroundTruth) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.openWithMarkers());

    // Tolerances: the simulated camera measures with 0.03 px of noise at 0.6 m to 1.15 m and the
    // markers carry 0.03 mm of manufacturing error. The origin of marker 1001 lies 100 mm from
    // its centre, so rotation noise moves it most: errors reach 0.6 mm and 0.6° at 1.15 m. A
    // swapped axis, a transposed rotation or a lost millimetre would all exceed the bounds.
    constexpr double TranslationToleranceMM = 1.0;
    constexpr double RotationToleranceDeg = 1.0;
    int tracked = 0;
    int untracked = 0;
    for (int i = 0; i < 120; ++i) {
        const std::uint64_t before = Time::utcMilliseconds();
        const auto wait = stream.round();
        const std::uint64_t after = Time::utcMilliseconds();
        EXPECT_GE(wait.count(), 10);
        EXPECT_LT(wait.count(), 400);
        const auto tracking = trackingOf(recorder.lastData());
        ASSERT_TRUE(tracking);
        ASSERT_EQ(recorder.dataCount(), std::size_t(i + 1));
        EXPECT_EQ(tracking->stream(), &stream);
        const auto truth = stream.truth();
        ASSERT_TRUE(truth);
        ASSERT_EQ(truth->markersCount, 2u);
        for (std::uint32_t m = 0; m < truth->markersCount; ++m) {
            const ftkSimMarkerTruth& t = truth->markers[m];
            const TrackingInstrument* instrument = tracking->instrument(createId(int(t.geometryId)));
            ASSERT_TRUE(instrument);
            EXPECT_GE(instrument->timestamp, before);
            EXPECT_LE(instrument->timestamp, after);
            if (instrument->quality == 0.0) {
                EXPECT_EQ(instrument->matrix, Eigen::Matrix4d::Identity()) << "untracked is identity";
                EXPECT_LT(std::bitset<32>(t.detectedMask).count(), 4u) << "a fully seen marker is tracked";
                ++untracked;
                continue;
            }
            ++tracked;
            const Eigen::Map<const Eigen::Vector3d> position(t.translationMM);
            const Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>> rotation(&t.rotation[0][0]);
            EXPECT_LT((instrument->translation() - position).norm(), TranslationToleranceMM)
                << "marker " << t.geometryId << " frame " << truth->frameCounter;
            EXPECT_LT(angleDegrees(instrument->rotation(), rotation), RotationToleranceDeg)
                << "marker " << t.geometryId << " frame " << truth->frameCounter;
            EXPECT_GT(instrument->quality, 0.95);
            EXPECT_LE(instrument->quality, 1.0);
            EXPECT_EQ(instrument->matrix.row(3), Eigen::RowVector4d(0, 0, 0, 1));
        }
        EXPECT_EQ(tracking->deviceTimestamp(), tracking->instruments()[0].timestamp);
        EXPECT_FALSE(fiducialsOf(recorder.lastData())) << "no fiducials without a fiducial mode";
        EXPECT_TRUE(recorder.lastData()->subData().empty()) << "no images without images";
    }
    EXPECT_GT(tracked, 200) << "the markers are in view nearly all the time";
    EXPECT_EQ(recorder.updateCount(), 0u);

    // An instrument taken out of tracking shows untracked while its marker is seen.
    stream.registry().setActive("atracsys-1001", false);
    int seen = 0;
    for (int i = 0; i < 5; ++i) {
        const TrackingInstrument* reference =
            trackingOf(frame(stream, recorder))->instrument("atracsys-1001");
        ASSERT_TRUE(reference);
        EXPECT_EQ(std::make_tuple(reference->active, reference->quality, reference->matrix),
                  std::make_tuple(false, 0.0, Eigen::Matrix4d(Eigen::Matrix4d::Identity())));
        for (std::uint32_t m = 0; m < stream.truth()->markersCount; ++m)
            seen += stream.truth()->markers[m].geometryId == 1001 &&
                    std::bitset<32>(stream.truth()->markers[m].detectedMask).count() >= 4;
    }
    EXPECT_GT(seen, 0);
    EXPECT_EQ(capture->countContaining("AtracsysTrackingStream: "), 0u) << capture->dump();
}

TEST(TrackingStreamAcquisition, QualityFollowsTheRegistrationError) {
    SceneGuard scene("quality.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    stream.setFiducialQueryMode(AtracsysTrackingStream::MarkerFiducials);

    // Two fiducials of the marker are 2 mm off: with the default matching tolerance of 1 mm the
    // camera does not recognise it.
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(trackingOf(frame(stream, recorder))->instrument("atracsys-1000")->quality, 0.0);
    ASSERT_TRUE(stream.close());

    // The tolerance is written to the device at the next open.
    Properties settings;
    settings.setParam("Distance matching tolerance", 5.0f);
    stream.configure(&settings);
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.start()); // pushes the geometry again
    ASSERT_TRUE(stream.stop());
    const std::vector<Eigen::Vector3d> geometry = stream.geometryCoordinates("atracsys-1000");
    ASSERT_EQ(geometry.size(), 4u);
    for (int i = 0; i < 10; ++i) {
        const auto data = frame(stream, recorder);
        const TrackingInstrument* instrument = trackingOf(data)->instrument("atracsys-1000");
        const TrackingInstrumentFiducialsData* fiducials = fiducialsOf(data);
        ASSERT_TRUE(fiducials);
        ASSERT_EQ(fiducials->size(), 4u) << "the marker's fiducials, in the geometry's order";
        double sum = 0.0;
        for (std::size_t k = 0; k < 4; ++k)
            sum +=
                (instrument->rotation() * geometry[k] + instrument->translation() - fiducials->positions()[k])
                    .squaredNorm();
        const double registrationError = std::sqrt(sum / 4.0);
        EXPECT_GT(registrationError, 0.5);
        EXPECT_LT(registrationError, 2.5);
        EXPECT_NEAR(instrument->quality, 1.0 - registrationError / 10.0, 2e-4);
    }
    EXPECT_EQ(capture->countContaining("AtracsysTrackingStream: "), 0u) << capture->dump();
}

TEST(TrackingStreamAcquisition, FiducialModesSelectExactlyTheirFiducials) {
    SceneGuard scene("selection.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.openWithMarkers());
    const std::size_t toolHash = std::hash<std::string>{}("atracsys-1000");
    const std::size_t referenceHash = std::hash<std::string>{}("atracsys-1001");
    const std::size_t unownedHash = std::hash<std::string>{}("");

    auto select = [&](AtracsysTrackingStream::FiducialQueryMode mode, double distance = 100.0) {
        stream.setFiducialQueryMode(mode);
        stream.setMaxFiducialMarkerDistance(distance);
        return frame(stream, recorder);
    };

    EXPECT_FALSE(fiducialsOf(select(AtracsysTrackingStream::NoFiducials)));

    // All: the eight marker fiducials and the three strays, each with its owner.
    const auto all = select(AtracsysTrackingStream::AllFiducials);
    const TrackingInstrumentFiducialsData* everything = fiducialsOf(all);
    ASSERT_TRUE(everything);
    ASSERT_EQ(everything->size(), 11u);
    EXPECT_TRUE(everything->hasQualities());
    const auto& instruments = trackingOf(all)->instruments();
    ASSERT_EQ(instruments.size(), 2u);
    ASSERT_EQ(instruments[0].ID(), "atracsys-1000");
    const Eigen::Vector3d toolOrigin = instruments[0].translation();
    const Eigen::Vector3d referenceOrigin = instruments[1].translation();
    EXPECT_LT((toolOrigin - Eigen::Vector3d(0, 0, 800)).norm(), 0.05);
    std::array<int, 3> owners{};
    for (std::size_t i = 0; i < everything->size(); ++i) {
        const std::uint32_t index = everything->instrumentIndices()[i];
        const std::size_t hash = everything->idHashes()[i];
        if (index == 0)
            EXPECT_EQ(hash, toolHash);
        else if (index == 1)
            EXPECT_EQ(hash, referenceHash);
        else
            EXPECT_EQ(hash, unownedHash);
        ++owners[index == NoInstrument ? 2 : index];
        EXPECT_GT(everything->leftPixelCounts()[i], 0u);
        EXPECT_GT(everything->rightPixelCounts()[i], 0u);
        EXPECT_GT(everything->probabilities()[i], 0.0);
        EXPECT_LE(everything->probabilities()[i], 1.0);
        EXPECT_GE(everything->triangulationErrors()[i], 0.0);
    }
    EXPECT_EQ(owners, (std::array<int, 3>{4, 4, 3}));
    const std::vector<Eigen::Vector3d>& positions = everything->positions();

    // Belonging to a marker: each marker's fiducials in its geometry's order.
    const TrackingInstrumentFiducialsData* owned =
        fiducialsOf(select(AtracsysTrackingStream::MarkerFiducials));
    ASSERT_TRUE(owned);
    ASSERT_EQ(owned->size(), 8u);
    for (std::size_t i = 0; i < 8; ++i) {
        const std::uint32_t instrument = owned->instrumentIndices()[i];
        ASSERT_NE(instrument, NoInstrument);
        const auto coordinates = stream.geometryCoordinates(instruments[instrument].ID());
        const Eigen::Vector3d expected =
            instruments[instrument].rotation() * coordinates[i % 4] + instruments[instrument].translation();
        EXPECT_LT((owned->positions()[i] - expected).norm(), 0.05) << i;
        EXPECT_EQ(owned->instrumentIndices()[i], owned->instrumentIndices()[i - i % 4])
            << "grouped by marker";
    }

    // In the vicinity of 100 mm: the tool's four fiducials (0 to 96.5 mm from its origin), the
    // stray 60 mm from it, three of the reference's (0, 62.2 and 83 mm); not the reference's
    // fourth (129.7 mm) nor the two far strays.
    const TrackingInstrumentFiducialsData* near =
        fiducialsOf(select(AtracsysTrackingStream::FiducialsNearMarkers));
    ASSERT_TRUE(near);
    ASSERT_EQ(near->size(), 8u);
    const auto [stray, strayOffset] = nearest(positions, Eigen::Vector3d(0, -60, 800));
    EXPECT_LT(strayOffset, 0.05);
    const auto [farReference, farOffset] = nearest(positions, referenceOrigin + Eigen::Vector3d(-67, 111, 0));
    EXPECT_LT(farOffset, 0.05);
    auto selects = [](const TrackingInstrumentFiducialsData* data, const Eigen::Vector3d& p) {
        return nearest(data->positions(), p).second == 0.0;
    };
    EXPECT_TRUE(selects(near, positions[stray]));
    EXPECT_FALSE(selects(near, positions[farReference]));
    for (std::size_t i = 1; i < near->size(); ++i)
        EXPECT_LT(nearest(positions, near->positions()[i - 1]).first,
                  nearest(positions, near->positions()[i]).first)
            << "in fiducial order";

    // No marker in view: nothing is near a marker and no fiducial keeps an owner of an earlier frame.
    ASSERT_TRUE(stream.removeGeometry("atracsys-1000"));
    ASSERT_TRUE(stream.removeGeometry("atracsys-1001"));
    const TrackingInstrumentFiducialsData* none =
        fiducialsOf(select(AtracsysTrackingStream::FiducialsNearMarkers, 1e6));
    ASSERT_TRUE(none);
    EXPECT_TRUE(none->empty());
    const TrackingInstrumentFiducialsData* unowned =
        fiducialsOf(select(AtracsysTrackingStream::AllFiducials));
    EXPECT_EQ(unowned->instrumentIndices(), std::vector<std::uint32_t>(11, NoInstrument));
    EXPECT_EQ(unowned->idHashes(), std::vector<std::size_t>(11, unownedHash));
    EXPECT_EQ(capture->countContaining("AtracsysTrackingStream: "), 0u) << capture->dump();
}

TEST(TrackingStreamAcquisition, CameraImagesComeWithTheirUpdate) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    stream.setQueryImages(true);
    stream.setFiducialQueryMode(AtracsysTrackingStream::AllFiducials);
    ASSERT_TRUE(stream.openWithMarkers());

    // Images are copies: one kept from the first frame does not change with later frames.
    std::shared_ptr<SharedImage> kept;
    std::vector<std::uint8_t> keptPixels;
    for (int i = 0; i < 3; ++i) {
        const auto data = frame(stream, recorder);
        if (i == 0) {
            kept = recorder.lastUpdate().left.image;
            const auto* pixels = static_cast<const std::uint8_t*>(kept->image()->rawData());
            keptPixels.assign(pixels, pixels + kept->image()->byteSize());
        }
        ASSERT_EQ(recorder.updateCount(), std::size_t(i + 1)) << "one camera update per frame";
        const AtracsysUpdate update = recorder.lastUpdate();
        const TrackingInstrumentFiducialsData* fiducials = fiducialsOf(data);
        ASSERT_TRUE(fiducials);
        ASSERT_GT(fiducials->size(), 4u);
        const auto tracking = trackingOf(data);
        ASSERT_EQ(data->subData().size(), 2u);
        for (int camera = 0; camera < 2; ++camera) {
            const AtracsysSingleCameraUpdate& side = camera == 0 ? update.left : update.right;
            ASSERT_TRUE(side.image);
            const ImageDescriptor& descriptor = side.image->descriptor();
            EXPECT_EQ(std::make_tuple(descriptor.pixelType, descriptor.channels, descriptor.width,
                                      descriptor.height),
                      std::make_tuple(PixelType::UInt8, 1, 2048, 1088));
            ASSERT_EQ(side.fiducials.size(), fiducials->size());
            ASSERT_EQ(side.fiducialSizes.size(), fiducials->size());
            auto image = side.image->typed<std::uint8_t>();
            ASSERT_TRUE(image);
            for (std::size_t f = 0; f < side.fiducials.size(); ++f) {
                const Eigen::Vector2d& c = side.fiducials[f];
                ASSERT_TRUE(c.x() >= 0 && c.y() >= 0 && c.x() < 2048 && c.y() < 1088);
                EXPECT_GT(side.fiducialSizes[f].x(), 0.0);
                EXPECT_GT(side.fiducialSizes[f].y(), 0.0);
                EXPECT_GT(image->at(int(c.x()), int(c.y())), image->at(0, 0) + 20)
                    << "a blob where the detection is";
            }
            // The image data of the substream shares the update's image.
            auto item = std::dynamic_pointer_cast<const ImageStreamData>(data->subData()[camera]);
            ASSERT_TRUE(item);
            EXPECT_EQ(item->image(), side.image);
            EXPECT_EQ(item->imageStream(), &stream.substream(camera)->stream());
            EXPECT_EQ(item->deviceTimestamp(), tracking->deviceTimestamp());
            EXPECT_EQ(item->arrivalTimestamp(), tracking->instruments()[0].timestamp);
        }
        EXPECT_NE(update.left.image, update.right.image);
    }
    const auto* pixels = static_cast<const std::uint8_t*>(kept->image()->rawData());
    EXPECT_TRUE(std::equal(keptPixels.begin(), keptPixels.end(), pixels));
    const auto* latest =
        static_cast<const std::uint8_t*>(recorder.lastUpdate().left.image->image()->rawData());
    EXPECT_FALSE(std::equal(keptPixels.begin(), keptPixels.end(), latest)) << "the markers moved";

    // Without instruments the images carry the frame's own time as their device time.
    ASSERT_TRUE(stream.removeGeometry("atracsys-1000"));
    ASSERT_TRUE(stream.removeGeometry("atracsys-1001"));
    const std::uint64_t before = Time::utcMilliseconds();
    const auto alone = frame(stream, recorder);
    EXPECT_EQ(trackingOf(alone)->deviceTimestamp(), 0u);
    ASSERT_EQ(alone->subData().size(), 2u);
    for (const auto& item : alone->subData()) {
        EXPECT_GE(item->deviceTimestamp(), before);
        EXPECT_EQ(item->deviceTimestamp(), item->arrivalTimestamp());
    }

    // Images requested while the camera was opened without them: the frames have none.
    ASSERT_TRUE(stream.close());
    stream.setQueryImages(false);
    ASSERT_TRUE(stream.open());
    EXPECT_EQ(stream.numSubstreams(), 0u);
    EXPECT_TRUE(frame(stream, recorder)->subData().empty());
    EXPECT_EQ(recorder.updateCount(), 4u);
    stream.setQueryImages(true);
    EXPECT_TRUE(frame(stream, recorder)->subData().empty());
    EXPECT_EQ(recorder.updateCount(), 4u);
    EXPECT_TRUE(
        capture->contains(Log::Warning, StreamCategory, "AtracsysTrackingStream: Raw images not available."));
}
