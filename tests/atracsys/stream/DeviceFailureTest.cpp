// SDK calls failing at open, at close and when the acquisition loop needs a new frame record:
// each is reported with its message, the stream stays in a state it can leave, and no library
// handle or frame record is left behind (the simulated camera counts them).

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

namespace {

// Failures the simulated camera cannot be made to give. This executable is linked with -Wl,--wrap
// for the functions below, so the stream's calls reach the __wrap_ functions, which fail once when
// armed and otherwise pass the call on to the simulated camera (__real_).
enum class Fault {
    None,
    InitReturnsNull,
    InitThrows,
    CreateFrameFails,
    FrameOptionsFail,
    CloseFails,
    FetchThrows
};

// Armed on the test thread, taken on the stream's control thread.
std::atomic<Fault> armed{Fault::None};

bool take(Fault fault) {
    Fault expected = fault;
    return armed.compare_exchange_strong(expected, Fault::None);
}

} // namespace

extern "C" {

ftkLibrary __real_ftkInit();
ftkError __real_ftkClose(ftkLibrary* lib);
ftkFrameQuery* __real_ftkCreateFrame();
ftkError __real_ftkSetFrameOptions(bool pixels, uint32 eventsSize, uint32 leftRawDataSize,
                                   uint32 rightRawDataSize, uint32 threeDFiducialsSize, uint32 markersSize,
                                   ftkFrameQuery* frame);
ftkError __real_ftkGetLastFrame(ftkLibrary lib, uint64 sn, ftkFrameQuery* frame, uint32 timeoutMS);

ftkLibrary __wrap_ftkInit() {
    if (take(Fault::InitReturnsNull))
        return nullptr;
    if (take(Fault::InitThrows))
        throw std::bad_alloc();
    return __real_ftkInit();
}

ftkError __wrap_ftkClose(ftkLibrary* lib) {
    const ftkError result = __real_ftkClose(lib); // the handle is gone even when the close "fails"
    return take(Fault::CloseFails) ? ftkError::FTK_ERR_INTERNAL : result;
}

ftkFrameQuery* __wrap_ftkCreateFrame() {
    return take(Fault::CreateFrameFails) ? nullptr : __real_ftkCreateFrame();
}

ftkError __wrap_ftkSetFrameOptions(bool pixels, uint32 eventsSize, uint32 leftRawDataSize,
                                   uint32 rightRawDataSize, uint32 threeDFiducialsSize, uint32 markersSize,
                                   ftkFrameQuery* frame) {
    if (take(Fault::FrameOptionsFail))
        return ftkError::FTK_ERR_INV_OPT_VAL; // the record stays allocated
    return __real_ftkSetFrameOptions(pixels, eventsSize, leftRawDataSize, rightRawDataSize,
                                     threeDFiducialsSize, markersSize, frame);
}

ftkError __wrap_ftkGetLastFrame(ftkLibrary lib, uint64 sn, ftkFrameQuery* frame, uint32 timeoutMS) {
    if (take(Fault::FetchThrows))
        throw std::bad_alloc();
    return __real_ftkGetLastFrame(lib, sn, frame, timeoutMS);
}

} // extern "C"

TEST(TrackingStreamDeviceFailures, FailedOpensAreReportedAndGiveEverythingBack) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    const HeldResources held;
    ProbedStream stream;
    const std::pair<Fault, const char*> cases[] = {
        {Fault::InitReturnsNull, "Cannot initialize Atracsys tracking driver"},
        {Fault::InitThrows, "Cannot initialize and connect Atracsys tracking system"},
        {Fault::CreateFrameFails, "AtracsysTrackingStream: Cannot create frame instance."},
        {Fault::FrameOptionsFail, "AtracsysTrackingStream: Cannot set frame options."},
    };
    for (const auto& [fault, message] : cases) {
        armed = fault;
        EXPECT_FALSE(stream.open()) << message;
        EXPECT_EQ(armed.load(), Fault::None) << message;
        EXPECT_EQ(capture->count(Log::Error, StreamCategory, message), 1u) << capture->dump();
        EXPECT_EQ(stream.currentState(), Stream::State::Closed);
        EXPECT_FALSE(stream.isInitialized());
        held.expectBaseline(message);
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
    EXPECT_EQ(capture->size(), 1u) << capture->dump();
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
    auto onDevice = [&stream] { return stream.registry().specialObjects().at(0).second->isOnDevice(); };

    armed = Fault::CloseFails;
    EXPECT_FALSE(stream.close());
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory, "Cannot close Atracsys tracking library"));
    EXPECT_EQ(stream.currentState(), Stream::State::Open);
    EXPECT_TRUE(onDevice()) << "a failed close does not touch the geometries";
    held.expectBaseline("the handle is given up even so");

    // Rounds on the half-closed stream find no device: the stream closes itself.
    stream.round();
    EXPECT_EQ(stream.currentState(), Stream::State::Closed);
    EXPECT_FALSE(onDevice());
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.start());
    EXPECT_TRUE(onDevice());
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
        armed = row.fault;
        const auto wait = stream.round();
        EXPECT_TRUE(wait.count() >= 10 && wait.count() < 400) << "the round still says when to come again";
        EXPECT_EQ(armed.load(), Fault::None);
        EXPECT_EQ(capture->count(Log::Error, StreamCategory, row.message), 1u) << capture->dump();
        EXPECT_EQ(stream.currentState(), Stream::State::Closed);
        EXPECT_EQ(recorder.dataCount(), data);
        held.expectBaseline("closed by the round");
    }
}
