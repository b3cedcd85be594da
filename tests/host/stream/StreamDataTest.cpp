#include "host/core/Time.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/ImageStream.h"
#include "host/stream/ImageStreamData.h"
#include "host/stream/StreamGroup.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;

namespace {

// A tracking stream offering its camera images as substreams, the way a camera stream does.
class CameraStream : public TrackingStream, public StreamGroup<CameraStream> {
public:
    CameraStream()
        : TrackingStream("Camera") {}
    ~CameraStream() override { close(); }

    std::vector<TrackingInstrument> instruments() const override { return list; }

    std::vector<TrackingInstrument> list; // these tests use one thread
};

TrackingInstrument instrument(const std::string& id, std::uint64_t timestamp, bool active) {
    TrackingInstrument i(TrackerID(id, "Tool " + id, "M1"), active);
    i.timestamp = timestamp;
    i.quality = 0.5;
    return i;
}

std::shared_ptr<SharedImage> smallImage() {
    return std::make_shared<SharedImage>(
        std::make_shared<ImageU8>(ImageDescriptor(PixelType::UInt8, 1, 2, 2)));
}

} // namespace

TEST(TrackingStream, CreatesDataFromItsInstrumentsAndAnnouncesModifications) {
    CameraStream camera;
    camera.list = {instrument("a", 1000, true), instrument("b", 1500, false), instrument("c", 1200, true)};
    const auto before = Time::utcMilliseconds();
    auto data = camera.createTrackingStreamData();
    ASSERT_TRUE(data);
    EXPECT_EQ(data->deviceTimestamp(), 1500u); // the latest instrument measurement
    EXPECT_GE(data->arrivalTimestamp(), before);
    EXPECT_LE(data->arrivalTimestamp(), Time::utcMilliseconds());
    EXPECT_EQ(data->numInstruments(true), 2u);
    EXPECT_EQ(data->instrument("b")->id.name, "Tool b");
    EXPECT_EQ(data->instrument("z"), nullptr);
    camera.list.clear();
    EXPECT_EQ(data->instruments().size(), 3u); // a snapshot

    std::vector<InstrumentModifications> announced;
    camera.signalInstrumentsModified.connect([&](InstrumentModifications m) { announced.push_back(m); });
    camera.emitSignals({});
    camera.emitSignals(InstrumentModification::PoseChanged);
    EXPECT_EQ(announced, std::vector<InstrumentModifications>{InstrumentModification::PoseChanged});
}

TEST(TrackingStreamData, FiducialQualitiesAreCompleteOnlyWhenEveryListMatchesThePositions) {
    TrackingStreamData data(nullptr, {});
    EXPECT_EQ(data.component<TrackingInstrumentFiducialsData>(), nullptr);
    auto fiducials = std::make_unique<TrackingInstrumentFiducialsData>();
    fiducials->addFiducial({1, 2, 3}, 42u, 0u, 1.0, 0.2, 0.05, 30u, 28u);
    EXPECT_TRUE(fiducials->hasQualities());
    fiducials->positions().push_back({7, 8, 9}); // a fiducial without qualities
    fiducials->probabilities().push_back(1.0);
    fiducials->epipolarErrors().push_back(0.1);
    EXPECT_FALSE(fiducials->hasQualities()); // triangulation error still missing
    fiducials->triangulationErrors().push_back(0.1);
    EXPECT_TRUE(fiducials->hasQualities());
    fiducials->probabilities().push_back(1.0); // more qualities than fiducials
    EXPECT_FALSE(fiducials->hasQualities());

    data.addComponent(std::move(fiducials));
    ASSERT_NE(data.component<TrackingInstrumentFiducialsData>(), nullptr);
    EXPECT_EQ(data.component<TrackingInstrumentFiducialsData>()->size(), 2u);
}

TEST(CompoundStreamData, TakesTheMainItemsTimesAndFindsItemsByType) {
    CameraStream camera;
    ImageStream images("Images");
    auto tracking = std::make_shared<TrackingStreamData>(&camera, std::vector<TrackingInstrument>{}, 100, 90);
    auto left = std::make_shared<ImageStreamData>(&images, smallImage(), 101, 91);
    auto inner = std::make_shared<CompoundStreamData>(left, std::vector<std::shared_ptr<const StreamData>>{});
    auto compound =
        std::make_shared<CompoundStreamData>(tracking, std::vector<std::shared_ptr<const StreamData>>{inner});
    EXPECT_EQ(compound->stream(), &camera);
    EXPECT_EQ(compound->arrivalTimestamp(), 100u);
    EXPECT_EQ(compound->deviceTimestamp(), 90u);
    std::shared_ptr<const StreamData> asData = compound;
    EXPECT_EQ(findStreamData<TrackingStreamData>(asData), tracking);
    EXPECT_EQ(findStreamData<ImageStreamData>(asData), left); // found in a nested compound
    EXPECT_EQ(findStreamData<ImageStreamData>(tracking), nullptr);
}

TEST(StreamGroup, OwnsSubstreamsByIndexAndRoutesSubData) {
    TestSupport::LogCapture capture;
    CameraStream camera;
    auto right = std::make_shared<Substream<ImageStream>>(camera, 1, "Camera (right)");
    auto left = std::make_shared<Substream<ImageStream>>(camera, 0, "Camera (left)");
    EXPECT_TRUE(camera.addSubstream(right));
    EXPECT_TRUE(camera.addSubstream(left));
    EXPECT_FALSE(camera.addSubstream(std::make_shared<Substream<ImageStream>>(camera, 1, "Duplicate")));
    EXPECT_TRUE(
        capture->contains(Log::Error, "StreamGroup", "addSubstream: substream index 1 already exists"))
        << capture->dump();
    CameraStream other;
    EXPECT_FALSE(camera.addSubstream(std::make_shared<Substream<ImageStream>>(other, 2, "Foreign")));
    EXPECT_TRUE(capture->contains(Log::Error, "StreamGroup",
                                  "addSubstream: substream 'Foreign' belongs to another stream"));

    EXPECT_EQ(camera.children(), (std::vector<Stream*>{left.get(), right.get()})); // by index
    EXPECT_EQ(camera.substream("Camera (right)"), right);

    std::vector<std::shared_ptr<const StreamData>> onMain, onLeft, onRight;
    camera.signalStreamData.connect([&](std::shared_ptr<const StreamData> d) { onMain.push_back(d); });
    left->signalStreamData.connect([&](std::shared_ptr<const StreamData> d) { onLeft.push_back(d); });
    right->signalStreamData.connect([&](std::shared_ptr<const StreamData> d) { onRight.push_back(d); });

    auto leftImage = std::make_shared<ImageStreamData>(left.get(), smallImage());
    auto rightImage = std::make_shared<ImageStreamData>(right.get(), smallImage());
    ImageStream unrelated("Unrelated");
    auto stray = std::make_shared<ImageStreamData>(&unrelated, smallImage());
    auto compound = std::make_shared<CompoundStreamData>(
        camera.createTrackingStreamData(),
        std::vector<std::shared_ptr<const StreamData>>{rightImage, stray, leftImage});
    camera.emitMainAndSubSignals(compound, true);
    EXPECT_EQ(onMain, (std::vector<std::shared_ptr<const StreamData>>{compound}));
    EXPECT_EQ(onLeft, (std::vector<std::shared_ptr<const StreamData>>{leftImage}));
    EXPECT_EQ(onRight, (std::vector<std::shared_ptr<const StreamData>>{rightImage}));

    camera.emitMainAndSubSignals(compound, false); // the main stream only
    EXPECT_EQ(onMain.size(), 2u);
    EXPECT_EQ(onLeft.size(), 1u);
    // Every item that went out is in the health of the stream it went out on.
    EXPECT_EQ(camera.health().snapshot().dataItems, 2u);
    EXPECT_EQ(left->health().snapshot().dataItems, 1u);

    // A removed substream gets nothing more and dies with its last owner.
    std::weak_ptr<Substream<ImageStream>> weakRight = right;
    right.reset();
    EXPECT_TRUE(camera.removeSubstream(1));
    EXPECT_FALSE(camera.removeSubstream(1));
    EXPECT_TRUE(weakRight.expired());
    camera.emitMainAndSubSignals(compound, true);
    EXPECT_EQ(onLeft.size(), 2u);
}
