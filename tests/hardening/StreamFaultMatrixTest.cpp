// Faults of the simulated camera hit while the stream runs on its worker thread: the line reported,
// the state left, whether tracking comes back, and every handle and frame record given back.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

constexpr const char* Category = "AtracsysTrackingStream";
constexpr std::uint64_t TrackingSerial = 0x53544b3138307701ull;
const std::string NoDevice = "AtracsysTracking: No SpryTrack device connected";

bool tracked(AtracsysTrackingStream& stream, const std::string& id) {
    auto instrument = stream.registry().find(id);
    return instrument && instrument->quality > 0.0;
}

/// Opens with both scene markers, starts, and waits until both are tracked.
void startTracking(ProbedStream& stream, Recorder& recorder) {
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    ASSERT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
    ASSERT_TRUE(stream.start());
    ASSERT_TRUE(waitFor([&] {
        return recorder.dataCount() > 2 && tracked(stream, "atracsys-1000") &&
               tracked(stream, "atracsys-1001");
    }));
}

} // namespace

// Faults of the frame fetch. Runs of failures and single bad frames leave the stream running and
// tracking resumes by itself; frames the stream cannot use close it, and a new open tracks again;
// a camera that is gone stays gone until it is plugged back in (a new scene), then opens again.
TEST(StreamFaultMatrix, FrameFaultsWhileRunning) {
    enum class After { Resumes, Closes, WaitsForCamera };
    struct Row {
        const char* name;
        const char* fault;
        int level;
        std::string text;
        After after;
    };
    const std::string fetchFailures = "AtracsysTrackingStream: ftkGetLastFrame returned not FTK_OK but ";
    const Row rows[] = {
        {"run of failed fetches", R"({"kind": "fetchError", "code": "FTK_ERR_SYNC", "count": 53})",
         Log::Error, fetchFailures + "[30 ] for 53 times in a row!", After::Resumes},
        {"internal error", R"({"kind": "internalError"})", Log::Error,
         "AtracsysTrackingStream: Internal system error, report to Atracsys.", After::Resumes},
        {"skipped marker data", R"({"kind": "skipped", "count": 3})", Log::Debug, "QS WAR SKIPPED",
         After::Resumes},
        {"marker overflow", R"({"kind": "markerOverflow", "count": 1})", Log::Error,
         "AtracsysTrackingStream: Marker overflow!", After::Closes},
        {"invalid reserved size", R"({"kind": "invalidReservedSize", "count": 1})", Log::Error,
         "AtracsysTrackingStream: Invalid reserved marker size.", After::Closes},
        {"disconnection", R"({"kind": "disconnection"})", Log::Error,
         fetchFailures + "[50 ] for 51 times in a row!", After::WaitsForCamera},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SceneGuard scene("tracking.json");
        TestSupport::LogCapture capture;
        const HeldResources baseline;
        {
            ProbedStream stream;
            Recorder recorder(stream);
            startTracking(stream, recorder);
            ASSERT_TRUE(ftkSimInjectFault(TrackingSerial, row.fault));
            ASSERT_TRUE(waitFor([&] { return capture->count(row.level, Category, row.text) > 0; }))
                << capture->dump();

            switch (row.after) {
            case After::Resumes: {
                EXPECT_EQ(stream.currentState(), Stream::State::Running);
                const std::size_t seen = recorder.dataCount();
                EXPECT_TRUE(waitFor([&] {
                    return recorder.dataCount() > seen + 3 && tracked(stream, "atracsys-1000");
                })) << "tracking comes back without a new open";
                break;
            }
            case After::Closes:
                EXPECT_TRUE(waitFor([&] { return stream.currentState() == Stream::State::Closed; }));
                baseline.expectBaseline("closed by the stream");
                break;
            case After::WaitsForCamera:
                EXPECT_EQ(stream.currentState(), Stream::State::Running);
                EXPECT_FALSE(tracked(stream, "atracsys-1000")) << "instruments show untracked";
                break;
            }
            ASSERT_TRUE(stream.close());
            baseline.expectBaseline("closed");

            if (row.after == After::WaitsForCamera) {
                EXPECT_FALSE(stream.open());
                EXPECT_TRUE(capture->contains(Log::Error, "", NoDevice));
                baseline.expectBaseline("failed open");
                ASSERT_TRUE(ftkSimLoadSceneFile(dataFile("tracking.json").c_str())) << "plugged back in";
            }
            // A new open tracks again, with the instruments that were loaded.
            const std::size_t seen = recorder.dataCount();
            ASSERT_TRUE(stream.open());
            ASSERT_TRUE(stream.start());
            EXPECT_TRUE(
                waitFor([&] { return recorder.dataCount() > seen + 3 && tracked(stream, "atracsys-1001"); }));
            ASSERT_TRUE(stream.close());
        }
        baseline.expectBaseline("closed");
    }
}

// Geometry refusals while tracking: the refused marker is reported and stays untracked while the
// other goes on, a refused removal keeps the instrument, and once the device accepts again a
// restart puts the refused geometry on it.
TEST(StreamFaultMatrix, GeometryRefusalsWhileRunning) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    const HeldResources baseline;
    {
        ProbedStream stream;
        Recorder recorder(stream);
        startTracking(stream, recorder);
        ASSERT_TRUE(stream.removeGeometry("atracsys-1001"));
        ASSERT_TRUE(ftkSimInjectFault(TrackingSerial, R"({"kind": "geometryRefusal", "geometryId": 1001})"));
        EXPECT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
        EXPECT_EQ(capture->count(Log::Error, Category,
                                 "Cannot set geometry loaded from " + dataFile("geometry1001.ini") +
                                     " to tracking system"),
                  1u)
            << capture->dump();
        std::size_t seen = recorder.dataCount();
        ASSERT_TRUE(recorder.waitForData(seen + 5));
        EXPECT_FALSE(tracked(stream, "atracsys-1001"));
        EXPECT_TRUE(tracked(stream, "atracsys-1000")) << "the other marker goes on";

        ASSERT_TRUE(ftkSimClearFaults(TrackingSerial));
        ASSERT_TRUE(
            ftkSimInjectFault(TrackingSerial, R"({"kind": "geometryRefusal", "operation": "clear"})"));
        EXPECT_FALSE(stream.removeGeometry("atracsys-1000"));
        EXPECT_TRUE(capture->contains(
            Log::Warning, Category,
            "AtracsysTracking: Cannot remove geometry with id atracsys-1000 from tracking system"));
        EXPECT_TRUE(stream.registry().find("atracsys-1000"));

        ASSERT_TRUE(ftkSimClearFaults(TrackingSerial));
        ASSERT_TRUE(stream.stop());
        ASSERT_TRUE(stream.start());
        seen = recorder.dataCount();
        EXPECT_TRUE(
            waitFor([&] { return recorder.dataCount() > seen + 2 && tracked(stream, "atracsys-1001"); }));
        ASSERT_TRUE(stream.close());
    }
    baseline.expectBaseline("end");
}

// Faults met when the stream opens again: the open fails or goes on with its line, neither way
// keeps a handle or a frame record, and tracking comes back.
TEST(StreamFaultMatrix, DeviceFaultsAtOpen) {
    const std::pair<const char*, std::string> rows[] = {
        {R"({"kind": "enumerationStatus", "reportDevices": false})", NoDevice},
        {R"({"kind": "enumerationStatus", "code": "FTK_ERR_INTERNAL"})",
         "AtracsysTracking: <ftkError>\n<errors><error code=\"4\" name=\"FTK_ERR_INTERNAL\">Device "
         "enumeration "
         "reported a problem (simulated fault)</error></errors>\n<warnings></warnings>\n<messages>1 failures "
         "and warnings reported</messages>\n</ftkError>"},
    };
    for (const auto& [fault, line] : rows) {
        SCOPED_TRACE(fault);
        SceneGuard scene("tracking.json");
        TestSupport::LogCapture capture;
        const HeldResources baseline;
        {
            ProbedStream stream;
            Recorder recorder(stream);
            startTracking(stream, recorder);
            ASSERT_TRUE(stream.close());
            ASSERT_TRUE(ftkSimInjectFault(TrackingSerial, fault));
            const bool opened = stream.open();
            EXPECT_EQ(opened, line != NoDevice);
            EXPECT_TRUE(capture->contains(Log::Error, "", line)) << capture->dump();
            if (!opened) {
                baseline.expectBaseline("failed open");
                ASSERT_TRUE(ftkSimClearFaults(TrackingSerial));
                ASSERT_TRUE(stream.open()) << "the camera answers again";
            }
            const std::size_t seen = recorder.dataCount();
            ASSERT_TRUE(stream.start());
            EXPECT_TRUE(
                waitFor([&] { return recorder.dataCount() > seen + 2 && tracked(stream, "atracsys-1000"); }));
            ASSERT_TRUE(stream.close());
        }
        baseline.expectBaseline("closed");
    }
}
