// What the camera stream tells the host as data: each frame's capture time, names and poses in the
// reference's frame; its failures on the stream's health; the geometries the camera refused.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/state/CaptureTimeData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/ReferencePoseData.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

TEST(FrameDataAndHealth, FramesCarryTheirCaptureTimeNamesAndPosesInTheReferencesFrame) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture quiet;
    ProbedStream stream;
    Recorder recorder(stream);
    InstrumentNames names;
    ASSERT_FALSE(names.setName("atracsys-1000", "Stylus"));
    stream.setInstrumentNames(names);
    stream.setReferenceInstrument("atracsys-1001");
    ASSERT_TRUE(stream.openWithMarkers());
    for (int i = 0; i < 20; ++i)
        stream.round();
    ASSERT_EQ(recorder.dataCount(), 20u);

    std::uint64_t lastCapture = 0;
    for (std::size_t i = 0; i < recorder.dataCount(); ++i) {
        SCOPED_TRACE(i);
        const auto tracking = trackingOf(recorder.dataAt(i));
        const auto* capture = tracking->component<CaptureTimeData>();
        const auto* device = tracking->component<DeviceFrameInfo>();
        ASSERT_TRUE(capture && device);
        EXPECT_EQ(capture->deviceTimeUS(), device->deviceTimestampUS());
        EXPECT_GT(capture->captureTimeUS(), lastCapture);
        EXPECT_LE(capture->captureTimeUS() / 1000, tracking->arrivalTimestamp()) << "captured after arrival";
        lastCapture = capture->captureTimeUS();

        const auto* frameNames = tracking->component<InstrumentNames>();
        ASSERT_TRUE(frameNames);
        EXPECT_EQ(frameNames->transformName("atracsys-1000"), "Stylus");
        const auto* reference = tracking->component<ReferencePoseData>();
        ASSERT_TRUE(reference) << "the reference is tracked in every frame of the scene";
        EXPECT_EQ(reference->referenceId(), "atracsys-1001");
        EXPECT_TRUE(reference->find("atracsys-1000"));
    }
}

TEST(FrameDataAndHealth, FailuresAndRefusedGeometriesReachTheHostAsData) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.open());
    const std::uint64_t serial = stream.serialNumber();
    ASSERT_TRUE(ftkSimInjectFault(serial, R"({"kind": "geometryRefusal", "geometryId": 1001})"));
    EXPECT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    EXPECT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
    auto refusals = stream.refusedInstruments();
    ASSERT_EQ(refusals.size(), 1u);
    EXPECT_EQ(refusals[0].instrumentId, "atracsys-1001");
    EXPECT_EQ(refusals[0].source, dataFile("geometry1001.ini"));
    EXPECT_EQ(refusals[0].reason.rfind("the camera refused the geometry (error 20)", 0), 0u)
        << refusals[0].reason;
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory,
                                  "Cannot set geometry loaded from " + dataFile("geometry1001.ini") +
                                      " to tracking system"));

    // A new connection forgets the old refusals; the start's push notes them anew, or not once
    // the camera takes the geometry.
    stream.close();
    ASSERT_TRUE(stream.open());
    EXPECT_TRUE(stream.refusedInstruments().empty());
    ASSERT_TRUE(stream.start());
    EXPECT_EQ(stream.refusedInstruments().size(), 1u);
    stream.stop();
    stream.close();
    ASSERT_TRUE(ftkSimClearFaults(serial));
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.start());
    stream.stop();
    EXPECT_TRUE(stream.refusedInstruments().empty());

    // A failed fetch is on the health, in words, until the next frame.
    stream.injectFaultAt(1, R"("kind": "fetchError", "code": "FTK_ERR_DISCONNECTION")");
    stream.round();
    EXPECT_EQ(stream.health().snapshot().lastError, "the camera is disconnected (ftkGetLastFrame error 50)");
    stream.injectFaultAt(1, R"("kind": "internalError")");
    stream.round();
    EXPECT_EQ(stream.health().snapshot().lastError, "Internal system error, report to Atracsys.");
    const std::size_t before = recorder.dataCount();
    stream.round();
    ASSERT_EQ(recorder.dataCount(), before + 1);
    EXPECT_EQ(stream.health().snapshot().lastError, "") << "a frame came";
}
