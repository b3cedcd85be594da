// Faults of the camera during acquisition, scripted on the simulated camera, frame by frame where
// the test steps the stream and on the stream's own worker thread where the fault closes it.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

bool tracked(AtracsysTrackingStream& stream, const std::string& id) {
    auto instrument = stream.registry().find(id);
    return instrument && instrument->quality > 0.0;
}

} // namespace

TEST(TrackingStreamFaults, RunsOfFailedFetchesAreReportedAfterFiftyAndEndWithAGoodFrame) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.openWithMarkers());
    for (int i = 0; i < 3; ++i)
        stream.round();
    ASSERT_TRUE(recorder.dataCount() == 3u && tracked(stream, "atracsys-1000"));

    // "No new frame yet" inside the run neither counts, ends it, nor joins its codes.
    stream.injectFaultAt(1, R"("kind": "fetchError", "code": "FTK_ERR_SYNC", "count": 30)");
    stream.injectFaultAt(31, R"("kind": "fetchError", "code": "FTK_WAR_NO_FRAME", "count": 5)");
    stream.injectFaultAt(36, R"("kind": "fetchError", "code": "FTK_WAR_FRAME", "count": 25)");
    const std::size_t modifications = recorder.modificationCount();
    for (int round = 1; round <= 55; ++round)
        EXPECT_LT(stream.round().count(), 400) << round;
    EXPECT_EQ(capture->countContaining("ftkGetLastFrame"), 0u) << "fifty failures in a row are silent";
    EXPECT_EQ(std::make_pair(recorder.dataCount(), recorder.modificationCount()),
              std::make_pair(3ul, modifications));
    EXPECT_TRUE(tracked(stream, "atracsys-1000")) << "the last poses stay until the run is reported";

    for (int failure = 51; failure <= 55; ++failure) {
        EXPECT_GE(stream.round().count(), 500) << "the stream backs off";
        EXPECT_EQ(
            capture->count(Log::Error, StreamCategory,
                           "AtracsysTrackingStream: ftkGetLastFrame returned not FTK_OK but [-10 30 ] for " +
                               std::to_string(failure) + " times in a row!"),
            1u)
            << capture->dump();
    }
    EXPECT_EQ(capture->countContaining("ftkGetLastFrame"), 5u);
    EXPECT_FALSE(tracked(stream, "atracsys-1000") || tracked(stream, "atracsys-1001"))
        << "reported runs show the instruments untracked";
    EXPECT_EQ(stream.registry().find("atracsys-1000")->matrix, Eigen::Matrix4d::Identity());
    EXPECT_GT(recorder.modificationCount(), modifications);
    EXPECT_EQ(recorder.dataCount(), 3u);

    // A good frame ends the run: tracking resumes and a new failure starts counting from one.
    EXPECT_LT(stream.round().count(), 400);
    EXPECT_TRUE(recorder.dataCount() == 4u && tracked(stream, "atracsys-1000"));
    stream.injectFaultAt(1, R"("kind": "fetchError", "code": "FTK_ERR_SYNC", "count": 50)");
    for (int i = 0; i < 50; ++i)
        stream.round();
    EXPECT_EQ(capture->countContaining("ftkGetLastFrame"), 5u) << "a new run of fifty is silent again";
    stream.round();
    EXPECT_TRUE(recorder.dataCount() == 5u && stream.currentState() == Stream::State::Open);
}

TEST(TrackingStreamFaults, AnUnknownMarkerStatusClosesTheStreamAfterItsFrame) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    const HeldResources held;
    {
        ProbedStream stream;
        Recorder recorder(stream);
        ASSERT_TRUE(stream.openWithMarkers());

        // A status the camera does not define (the simulated one never sends it): the frame is
        // fetched as usual and given that status before it is processed.
        ftkFrameQuery* record = nullptr;
        ASSERT_EQ(stream.fetchFrame(record), ftkError::FTK_OK);
        ftkFrameQuery frame = *record;
        frame.markersStat = static_cast<ftkQueryStatus>(5);
        auto wakeUp = Stream::Clock::now();
        stream.processFrame(frame, wakeUp);
        EXPECT_EQ(capture->count(Log::Error, StreamCategory, "AtracsysTrackingStream: Invalid frame status."),
                  1u)
            << capture->dump();
        EXPECT_EQ(stream.currentState(), Stream::State::Closed);
        ASSERT_EQ(recorder.dataCount(), 1u) << "the frame itself still goes out";
        EXPECT_TRUE(tracked(stream, "atracsys-1000"));
    }
    // The record given up by the report was still read; the stream releases it at the latest
    // when it goes.
    held.expectBaseline("stream gone");
}

TEST(TrackingStreamFaults, MarkerOverflowAndAnInvalidReservedSizeCloseTheStreamWithoutTrackingData) {
    // The overflowing frame's camera update still goes out; nothing of a frame with an invalid
    // reserved size is used.
    struct Row {
        const char* fault;
        std::size_t updates;
        std::vector<std::string> errors;
    };
    const Row rows[] = {
        {"markerOverflow",
         5,
         {"AtracsysTrackingStream: Marker overflow. Please increase cstMarkersCount.",
          "AtracsysTrackingStream: Invalid frame status.", "AtracsysTrackingStream: Marker overflow!"}},
        {"invalidReservedSize", 4, {"AtracsysTrackingStream: Invalid reserved marker size."}},
    };
    SceneGuard scene("tracking.json");
    const HeldResources held;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.fault);
        TestSupport::LogCapture capture;
        ProbedStream stream;
        Recorder recorder(stream);
        stream.setQueryImages(true);
        stream.setFiducialQueryMode(AtracsysTrackingStream::AllFiducials);
        ASSERT_TRUE(stream.openWithMarkers());
        stream.injectFaultAt(5, std::string(R"("kind": ")") + row.fault + "\"");
        ASSERT_TRUE(stream.start());
        ASSERT_TRUE(waitFor([&] { return stream.currentState() == Stream::State::Closed; }));
        EXPECT_EQ(recorder.dataCount(), 4u);
        EXPECT_EQ(recorder.updateCount(), row.updates);
        EXPECT_EQ(recorder.lastUpdate().left.fiducials.size(), fiducialsOf(recorder.lastData())->size());
        std::size_t errors = 0; // the stream's own reports, beside the SDK's texts
        for (const LogRecord& record : capture->records())
            errors += record.level == Log::Error && record.category == StreamCategory;
        EXPECT_EQ(errors, row.errors.size()) << capture->dump();
        for (const std::string& error : row.errors)
            EXPECT_EQ(capture->count(Log::Error, StreamCategory, error), 1u) << error;
        held.expectBaseline("closed by the fault");
    }
}
