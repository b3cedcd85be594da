// The acquisition loop frame by frame on the simulated camera with its stepped clock: poses
// against the simulator's ground truth, quality, fiducial selection and camera images. The test
// plays the worker thread: the stream is open, not started, and each round() is one doWork.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "atracsys/stream/AtracsysInstrumentId.h"

#include "host/core/Time.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/SubstreamBase.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>

#include <QTemporaryDir>

#include <algorithm>
#include <bitset>
#include <cmath>
#include <fstream>
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

bool fullySeen(const ftkSimMarkerTruth& truth) {
    return std::bitset<32>(truth.detectedMask).count() >= 4;
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
    for (int i = 0; i < 120; ++i) {
        const std::uint64_t before = Time::utcMilliseconds();
        const auto wait = stream.round();
        const std::uint64_t after = Time::utcMilliseconds();
        EXPECT_TRUE(wait.count() >= 10 && wait.count() < 400) << wait.count();
        ASSERT_EQ(recorder.dataCount(), std::size_t(i + 1));
        const auto tracking = trackingOf(recorder.lastData());
        const auto truth = stream.truth();
        ASSERT_TRUE(tracking && truth);
        ASSERT_EQ(truth->markersCount, 2u);
        for (std::uint32_t m = 0; m < truth->markersCount; ++m) {
            const ftkSimMarkerTruth& t = truth->markers[m];
            SCOPED_TRACE("marker " + std::to_string(t.geometryId) + " frame " +
                         std::to_string(truth->frameCounter));
            const TrackingInstrument* instrument = tracking->instrument(createId(int(t.geometryId)));
            ASSERT_TRUE(instrument);
            EXPECT_TRUE(instrument->timestamp >= before && instrument->timestamp <= after);
            if (instrument->quality == 0.0) {
                EXPECT_EQ(instrument->matrix, Eigen::Matrix4d::Identity()) << "untracked is identity";
                EXPECT_FALSE(fullySeen(t)) << "a fully seen marker is tracked";
                continue;
            }
            ++tracked;
            const Eigen::Map<const Eigen::Vector3d> position(t.translationMM);
            const Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>> rotation(&t.rotation[0][0]);
            EXPECT_LT((instrument->translation() - position).norm(), TranslationToleranceMM);
            EXPECT_LT(Eigen::AngleAxisd(instrument->rotation().transpose() * rotation).angle() * 180.0 / M_PI,
                      RotationToleranceDeg);
            EXPECT_TRUE(instrument->quality > 0.95 && instrument->quality <= 1.0) << instrument->quality;
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
        const auto truth = stream.truth();
        for (std::uint32_t m = 0; m < truth->markersCount; ++m)
            seen += truth->markers[m].geometryId == 1001 && fullySeen(truth->markers[m]);
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
        EXPECT_TRUE(registrationError > 0.5 && registrationError < 2.5) << registrationError;
        EXPECT_NEAR(instrument->quality, 1.0 - registrationError / 10.0, 2e-4);
    }
    EXPECT_EQ(capture->countContaining("AtracsysTrackingStream: "), 0u) << capture->dump();
}

TEST(TrackingStreamAcquisition, TrackedToolTipsAreReportedWhereThePoseCarriesThem) {
    SceneGuard scene("tracking.json");
    QTemporaryDir dir;
    const std::string withTip = dir.filePath("geometry1000.ini").toStdString();
    {
        std::ifstream in(dataFile("geometry1000.ini"));
        std::ofstream(withTip) << in.rdbuf() << "\n[pivot]\nx=10\ny=-20\nz=-150.5\n";
    }
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.addGeometry("tool", withTip));
    ASSERT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
    int tracked = 0;
    for (int i = 0; i < 60; ++i) {
        const auto tracking = trackingOf(frame(stream, recorder));
        const TrackingInstrument* tool = tracking->instrument("atracsys-1000");
        const InstrumentTipData* tips = tracking->component<InstrumentTipData>();
        if (tool->quality == 0.0) {
            EXPECT_EQ(tips, nullptr) << "an untracked tool has no tip position";
            continue;
        }
        ++tracked;
        ASSERT_TRUE(tips && tips->entries().size() == 1u) << "the reference has no tip";
        const InstrumentTipData::Entry* entry = &tips->entries()[0];
        EXPECT_EQ(entry->instrumentId, "atracsys-1000");
        EXPECT_EQ(entry->tipInMarker, Eigen::Vector3d(10, -20, -150.5));
        EXPECT_LT(
            (entry->tipInCamera - (tool->matrix * Eigen::Vector4d(10, -20, -150.5, 1)).head<3>()).norm(),
            1e-9);
    }
    EXPECT_GT(tracked, 30);
}

TEST(TrackingStreamAcquisition, FiducialModesSelectExactlyTheirFiducials) {
    SceneGuard scene("selection.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.openWithMarkers());
    const std::hash<std::string> hash;
    auto select = [&](AtracsysTrackingStream::FiducialQueryMode mode, double distance = 100.0) {
        stream.setFiducialQueryMode(mode);
        stream.setMaxFiducialMarkerDistance(distance);
        return frame(stream, recorder);
    };
    auto holds = [](const TrackingInstrumentFiducialsData* data, const Eigen::Vector3d& p) {
        return std::any_of(data->positions().begin(), data->positions().end(),
                           [&](const Eigen::Vector3d& q) { return (q - p).norm() < 0.05; });
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
    const std::size_t hashes[] = {hash("atracsys-1000"), hash("atracsys-1001"), hash("")};
    std::array<int, 3> owners{};
    for (std::size_t i = 0; i < everything->size(); ++i) {
        const std::uint32_t index = everything->instrumentIndices()[i];
        const std::size_t owner = index == NoInstrument ? 2 : index;
        ASSERT_LT(owner, 3u);
        EXPECT_EQ(everything->idHashes()[i], hashes[owner]) << i;
        ++owners[owner];
    }
    EXPECT_EQ(owners, (std::array<int, 3>{4, 4, 3}));

    // Belonging to a marker (their order is the geometry's, which the quality test relies on).
    const TrackingInstrumentFiducialsData* owned =
        fiducialsOf(select(AtracsysTrackingStream::MarkerFiducials));
    ASSERT_TRUE(owned);
    EXPECT_EQ(owned->instrumentIndices(), (std::vector<std::uint32_t>{1, 1, 1, 1, 0, 0, 0, 0}));

    // In the vicinity of 100 mm: the tool's four fiducials (0 to 96.5 mm from its origin), the
    // stray 60 mm from it, three of the reference's (0, 62.2 and 83 mm); not the reference's
    // fourth (129.7 mm) nor the two far strays.
    EXPECT_LT((instruments[0].translation() - Eigen::Vector3d(0, 0, 800)).norm(), 0.05);
    const TrackingInstrumentFiducialsData* near =
        fiducialsOf(select(AtracsysTrackingStream::FiducialsNearMarkers));
    ASSERT_TRUE(near);
    EXPECT_EQ(near->size(), 8u);
    EXPECT_TRUE(holds(everything, Eigen::Vector3d(0, -60, 800)) && holds(near, Eigen::Vector3d(0, -60, 800)));
    const Eigen::Vector3d farReference = instruments[1].translation() + Eigen::Vector3d(-67, 111, 0);
    EXPECT_TRUE(holds(everything, farReference) && !holds(near, farReference));

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
    EXPECT_EQ(unowned->idHashes(), std::vector<std::size_t>(11, hash("")));
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

    auto pixels = [](const std::shared_ptr<SharedImage>& image) {
        const auto* data = static_cast<const std::uint8_t*>(image->image()->rawData());
        return std::vector<std::uint8_t>(data, data + image->image()->byteSize());
    };
    std::shared_ptr<SharedImage> kept; // of the first frame: a copy, unchanged by later frames
    std::vector<std::uint8_t> keptPixels;
    for (int i = 0; i < 3; ++i) {
        const auto data = frame(stream, recorder);
        ASSERT_EQ(recorder.updateCount(), std::size_t(i + 1)) << "one camera update per frame";
        const AtracsysUpdate update = recorder.lastUpdate();
        if (i == 0)
            keptPixels = pixels(kept = update.left.image);
        const TrackingInstrumentFiducialsData* fiducials = fiducialsOf(data);
        ASSERT_TRUE(fiducials);
        ASSERT_GT(fiducials->size(), 4u);
        ASSERT_EQ(data->subData().size(), 2u);
        EXPECT_NE(update.left.image, update.right.image);
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
            for (std::size_t f = 0; f < side.fiducials.size(); ++f) {
                const Eigen::Vector2d& c = side.fiducials[f];
                ASSERT_TRUE(c.x() >= 0 && c.y() >= 0 && c.x() < 2048 && c.y() < 1088);
                EXPECT_TRUE(side.fiducialSizes[f].x() > 0.0 && side.fiducialSizes[f].y() > 0.0);
                EXPECT_GT(image->at(int(c.x()), int(c.y())), image->at(0, 0) + 20)
                    << "a blob where the detection is";
            }
            // The image data of the substream shares the update's image.
            auto item = std::dynamic_pointer_cast<const ImageStreamData>(data->subData()[camera]);
            ASSERT_TRUE(item);
            EXPECT_EQ(item->image(), side.image);
            EXPECT_EQ(item->imageStream(), &stream.substream(camera)->stream());
            EXPECT_EQ(item->deviceTimestamp(), trackingOf(data)->deviceTimestamp());
        }
    }
    EXPECT_EQ(pixels(kept), keptPixels);
    EXPECT_NE(pixels(recorder.lastUpdate().left.image), keptPixels) << "the markers moved";

    // Without instruments the images carry the frame's own time as their device time.
    ASSERT_TRUE(stream.removeGeometry("atracsys-1000"));
    ASSERT_TRUE(stream.removeGeometry("atracsys-1001"));
    const std::uint64_t before = Time::utcMilliseconds();
    const auto alone = frame(stream, recorder);
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
    stream.setQueryImages(true);
    EXPECT_TRUE(frame(stream, recorder)->subData().empty());
    EXPECT_EQ(recorder.updateCount(), 4u);
    EXPECT_TRUE(
        capture->contains(Log::Warning, StreamCategory, "AtracsysTrackingStream: Raw images not available."));
}
