// SDK calls failing at open, at close and when the acquisition loop needs a new frame record:
// each is reported with its message, the stream stays in a state it can leave, and no library
// handle or frame record is left behind (the simulated camera counts them).

#include "tests/atracsys/stream/SdkFaultShim.h"
#include "tests/atracsys/stream/StreamTestSupport.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <new>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using SdkFaults::Fault;

TEST(TrackingStreamDeviceFailures, FailedOpensAreReportedAndGiveEverythingBack) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    const HeldResources held;
    ProbedStream stream;

    struct Case {
        Fault fault;
        const char* message;
    };
    const Case cases[] = {
        {Fault::InitReturnsNull, "Cannot initialize Atracsys tracking driver"},
        {Fault::InitThrows, "Cannot initialize and connect Atracsys tracking system"},
        {Fault::CreateFrameFails, "AtracsysTrackingStream: Cannot create frame instance."},
        {Fault::FrameOptionsFail, "AtracsysTrackingStream: Cannot set frame options."},
    };
    for (const Case& c : cases) {
        SdkFaults::arm(c.fault);
        EXPECT_FALSE(stream.open()) << c.message;
        EXPECT_FALSE(SdkFaults::pending()) << c.message;
        EXPECT_EQ(capture->count(Log::Error, StreamCategory, c.message), 1u) << capture->dump();
        EXPECT_EQ(stream.currentState(), Stream::State::Closed);
        EXPECT_FALSE(stream.isInitialized());
        held.expectBaseline(c.message);
    }
    // The two errors reported through the stream also log the SDK's own text of the failure.
    std::size_t sdkTexts = 0;
    for (const LogRecord& record : capture->records())
        sdkTexts += record.level == Log::Error && record.message.rfind("AtracsysTracking: ", 0) == 0;
    EXPECT_EQ(sdkTexts, 2u) << capture->dump();

    // No camera: discovery says so, and the open fails without a line of its own.
    const std::uint64_t serial = 0x53544b3138307701ull;
    ASSERT_TRUE(ftkSimInjectFault(serial, R"({"kind": "noDevice"})"));
    capture->clear();
    EXPECT_FALSE(stream.open());
    ftkSimClearFaults(serial);
    EXPECT_TRUE(capture->contains(Log::Error, "", "AtracsysTracking: No SpryTrack device connected"));
    for (const LogRecord& record : capture->records())
        EXPECT_NE(record.category, StreamCategory) << capture->dump();
    EXPECT_EQ(stream.currentState(), Stream::State::Closed);
    held.expectBaseline("no device");

    // Nothing of the failures sticks: the next open works and tracks.
    Recorder recorder(stream);
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    stream.round();
    ASSERT_EQ(recorder.dataCount(), 1u);
    EXPECT_GT(trackingOf(recorder.lastData())->instrument("atracsys-1000")->quality, 0.9);
    ASSERT_TRUE(stream.close());
    held.expectBaseline("after the good open");
}

TEST(TrackingStreamDeviceFailures, AFailedCloseKeepsTheStreamOpenUntilClosedAgain) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    const HeldResources held;
    ProbedStream stream;
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));

    SdkFaults::arm(Fault::CloseFails);
    EXPECT_FALSE(stream.close());
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory, "Cannot close Atracsys tracking library"));
    EXPECT_EQ(stream.currentState(), Stream::State::Open);
    EXPECT_TRUE(stream.registry().specialObjects().at(0).second->isOnDevice())
        << "a failed close does not touch the geometries";
    held.expectBaseline("the handle is given up even so");

    // Rounds on the half-closed stream find no device: the stream closes itself.
    stream.round();
    EXPECT_EQ(stream.currentState(), Stream::State::Closed);
    EXPECT_FALSE(stream.registry().specialObjects().at(0).second->isOnDevice());
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.start());
    EXPECT_TRUE(stream.registry().specialObjects().at(0).second->isOnDevice());
    ASSERT_TRUE(stream.close());
    held.expectBaseline("closed");
}

TEST(TrackingStreamDeviceFailures, FailuresInsideAnAcquisitionRoundCloseTheStream) {
    struct Row {
        Fault fault;
        bool afterInternalError; // which gives the frame record up, so the round must make a new one
        std::string message;
    };
    const Row rows[] = {
        {Fault::CreateFrameFails, true, "AtracsysTrackingStream: Cannot create frame instance."},
        {Fault::FrameOptionsFail, true, "AtracsysTrackingStream: Cannot set frame options."},
        {Fault::FetchThrows, false,
         "An unexpected exception occured while running the background thread: " +
             std::string(std::bad_alloc().what())},
    };
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    const HeldResources held;
    ProbedStream stream;
    Recorder recorder(stream);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.message);
        ASSERT_TRUE(stream.open()) << "a new open tracks again";
        stream.round();
        const std::size_t data = recorder.dataCount();
        ASSERT_GT(data, 0u);
        if (row.afterInternalError) {
            ASSERT_TRUE(stream.injectFaultAt(1, R"("kind": "internalError")"));
            stream.round();
        }
        SdkFaults::arm(row.fault);
        const auto wait = stream.round();
        EXPECT_GE(wait.count(), 10) << "the round still says when to come again";
        EXPECT_LT(wait.count(), 400);
        EXPECT_FALSE(SdkFaults::pending());
        EXPECT_EQ(capture->count(Log::Error, StreamCategory, row.message), 1u) << capture->dump();
        EXPECT_EQ(stream.currentState(), Stream::State::Closed);
        EXPECT_EQ(recorder.dataCount(), data);
        held.expectBaseline("closed by the round");
    }
}
