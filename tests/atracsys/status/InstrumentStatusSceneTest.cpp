// The instrument status of the tracking stream on the simulated camera: one scene shows a marker
// with a hidden fiducial, one with a fiducial moved by twice the tolerance, one in full view, one
// outside the view and one that a nearly equal geometry also describes; a geometry of two
// fiducials is refused by the camera.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/core/Properties.h"
#include "host/stream/InstrumentStatusData.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <regex>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using State = InstrumentStatusData::State;

namespace {

std::string statusFile(const std::string& name) {
    return std::string(KESTRION_TEST_DATA_DIR) + "/status/" + name;
}

const InstrumentStatusData* statusOf(const std::shared_ptr<const CompoundStreamData>& data) {
    const auto tracking = trackingOf(data);
    return tracking ? tracking->component<InstrumentStatusData>() : nullptr;
}

} // namespace

TEST(InstrumentStatusScene, EachMarkerOfTheSceneGetsItsReason) {
    SceneGuard scene(statusFile("status.json"));
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.open());
    for (const char* id : {"1100", "1101", "1102", "1103", "1104", "1105", "1000"})
        stream.addGeometry(std::string("marker ") + id, statusFile(std::string("geometry") + id + ".ini"));
    EXPECT_EQ(capture->count(4, "AtracsysTrackingStream",
                             "Cannot set geometry loaded from " + statusFile("geometry1103.ini") +
                                 " to tracking system"),
              1u);
    // The nearly equal geometry is named when it is added.
    EXPECT_EQ(capture->count(
                  3, "AtracsysAmbiguityCheck",
                  statusFile("geometry1105.ini") + " and " + statusFile("geometry1104.ini") +
                      " could be confused: fiducials 0, 1, 2, 3 of " + statusFile("geometry1105.ini") +
                      " lie at the distances of fiducials 0, 1, 2, 3 of " + statusFile("geometry1104.ini") +
                      " (at most 0.19 mm apart: fiducial2-fiducial3 61.84 mm against fiducial2-fiducial3 "
                      "61.64 mm; Distance matching tolerance 1.00 mm)"),
              1u)
        << capture->dump();

    stream.round();
    EXPECT_FALSE(statusOf(recorder.lastData())) << "nobody asked for the status";

    stream.requestInstrumentStatus();
    stream.round();
    const InstrumentStatusData* status = statusOf(recorder.lastData());
    ASSERT_TRUE(status);
    ASSERT_EQ(status->entries().size(), 7u);
    auto entry = [status](const char* id) {
        const InstrumentStatusData::Entry* found = status->find(std::string("atracsys-") + id);
        EXPECT_TRUE(found) << id;
        return found ? *found : InstrumentStatusData::Entry();
    };
    EXPECT_EQ(entry("1000").state, State::NotInView);
    EXPECT_EQ(entry("1000").reason, "no fiducial of the geometry in view");
    EXPECT_EQ(entry("1100").state, State::PartlySeen);
    EXPECT_EQ(entry("1100").reason, "fiducials 0, 2 of 3 found; 1 missing");
    EXPECT_EQ(entry("1101").state, State::Unmatched);
    EXPECT_TRUE(
        std::regex_match(entry("1101").reason,
                         std::regex("fiducials 0, 1, 2 nearly at the geometry's distances, not matched: "
                                    "fiducial0-fiducial2 measures 42\\.[23]\\d mm, [12]\\.\\d\\d mm off the "
                                    "geometry's 40\\.31 mm \\(Distance matching tolerance 1\\.00 mm\\)")))
        << entry("1101").reason;
    EXPECT_EQ(entry("1102").state, State::Tracked) << entry("1102").reason;
    EXPECT_TRUE(
        std::regex_match(entry("1102").reason, std::regex("tracked, registration error 0\\.\\d\\d mm")))
        << entry("1102").reason;
    EXPECT_EQ(entry("1102").fiducialsFound, 3u);
    EXPECT_EQ(entry("1103").state, State::NotOnCamera);
    EXPECT_EQ(entry("1103").reason, "not on the camera: refused, 2 fiducials, at least 3 needed");
    // The camera gives the one physical marker to one of the two nearly equal geometries.
    const bool first = InstrumentStatusData::isTracked(entry("1104").state);
    const char* other = first ? "1105" : "1104";
    EXPECT_NE(first, InstrumentStatusData::isTracked(entry("1105").state));
    EXPECT_EQ(entry(other).reason,
              std::string("fiducials 0, 1, 2, 3 at the geometry's distances are taken by ") + "atracsys-" +
                  (first ? "1104" : "1105"));

    // A lower threshold, set through the stream's settings, turns the clean marker's error into a
    // high one; the settings keep it.
    Properties settings;
    settings.setParam("registrationErrorThreshold", 0.0);
    stream.configure(&settings);
    Properties written;
    stream.configuration(&written);
    EXPECT_EQ(written.param("registrationErrorThreshold", 0.5), 0.0);
    stream.round();
    EXPECT_EQ(statusOf(recorder.lastData())->find("atracsys-1102")->state, State::TrackedHighError);
    stream.releaseInstrumentStatus();
    stream.round();
    EXPECT_FALSE(statusOf(recorder.lastData()));
}
