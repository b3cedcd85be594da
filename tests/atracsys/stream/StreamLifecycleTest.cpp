// Opening, starting, stopping and closing the stream on the simulated camera, and the geometry
// operations while it is open.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/stream/ImageStream.h"
#include "host/stream/SubstreamBase.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

constexpr std::uint64_t TrackingSerial = 0x53544b3138307701ull;

/// "id:1 id:0" for the instruments on the device (1) or not (0).
std::string onDevice(AtracsysTrackingStream& stream) {
    std::string flags;
    for (const auto& [id, geometry] : stream.registry().specialObjects())
        flags += (flags.empty() ? "" : " ") + id + (geometry->isOnDevice() ? ":1" : ":0");
    return flags;
}

void inject(const std::string& fault) {
    ASSERT_TRUE(ftkSimInjectFault(TrackingSerial, fault.c_str())) << fault;
}

} // namespace

TEST(TrackingStreamLifecycle, OpenStartStopCloseAndOpenAgain) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    const HeldResources held;
    ProbedStream stream;
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    ASSERT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));

    ASSERT_TRUE(stream.open());
    EXPECT_TRUE(stream.isInitialized());
    EXPECT_TRUE(capture->contains(Log::Info, "", "AtracsysTracking: Detected sTk 180, SN 0x53544b3138307701"))
        << capture->dump();
    EXPECT_TRUE(capture->contains(Log::Info, StreamCategory, "Onboard processing disabled."));
    EXPECT_TRUE(capture->contains(Log::Info, StreamCategory, "Disabled sending images on the SpryTrack."));
    EXPECT_EQ(std::make_pair(stream.intOption(6000), stream.intOption(6003)),
              std::make_pair(std::optional<int>(1), std::optional<int>(0)));
    EXPECT_EQ(stream.floatOption("Distance matching tolerance"), std::optional<float>(1.0f));
    EXPECT_EQ(stream.numSubstreams(), 0u);
    EXPECT_EQ(onDevice(stream), "atracsys-1000:0 atracsys-1001:0") << "opening does not push geometries";

    ASSERT_TRUE(stream.start());
    EXPECT_EQ(onDevice(stream), "atracsys-1000:1 atracsys-1001:1");
    ASSERT_TRUE(stream.stop());
    EXPECT_TRUE(stream.isInitialized());
    ASSERT_TRUE(stream.close());
    EXPECT_FALSE(stream.isInitialized());
    EXPECT_EQ(onDevice(stream), "atracsys-1000:0 atracsys-1001:0");
    held.expectBaseline("closed");

    // A new connection gets the geometries again at its start.
    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.start());
    EXPECT_EQ(onDevice(stream), "atracsys-1000:1 atracsys-1001:1");
    ASSERT_TRUE(stream.close()) << "closing a running stream stops it first";
    EXPECT_EQ(stream.currentState(), Stream::State::Closed);
    held.expectBaseline("closed");
    EXPECT_EQ(capture->countContaining("AtracsysTrackingStream: "), 0u) << capture->dump();
}

TEST(TrackingStreamLifecycle, OpenWritesTheChosenOptions) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Properties settings;
    settings.setParam("Distance matching tolerance", 3.5f);
    stream.configure(&settings);
    stream.setQueryImages(true);
    ASSERT_TRUE(stream.open());
    EXPECT_EQ(stream.floatOption("Distance matching tolerance"), std::optional<float>(3.5f));
    EXPECT_TRUE(capture->contains(Log::Info, StreamCategory, "Enabled sending images on the SpryTrack."));
    EXPECT_EQ(stream.intOption(6003), std::optional<int>(1));
    ASSERT_EQ(stream.numSubstreams(), 2u);
    EXPECT_EQ(stream.substream(0)->stream().name(), "Camera (left)");
    EXPECT_EQ(stream.substream(1)->stream().name(), "Camera (right)");
    EXPECT_TRUE(dynamic_cast<ImageStream*>(&stream.substream(1)->stream()));
    ASSERT_TRUE(stream.close());

    // Without images the substreams go at the next open; refused options are reported.
    stream.setQueryImages(false);
    inject(R"({"kind": "optionRefusal", "option": 6000, "code": "FTK_ERR_INV_OPT_VAL"})");
    inject(R"({"kind": "optionRefusal", "option": 6003, "code": "FTK_ERR_INV_OPT_VAL"})");
    ASSERT_TRUE(stream.open()) << "refused options do not stop the open";
    EXPECT_EQ(stream.numSubstreams(), 0u);
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory, "Onboard processing could not be disabled."));
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory, "Could not disable images on the SpryTrack."));
    ASSERT_TRUE(stream.close());
    stream.setQueryImages(true);
    ASSERT_TRUE(stream.open());
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory, "Could not enable images on the SpryTrack."));
    ASSERT_TRUE(stream.close());
    ftkSimClearFaults(TrackingSerial);
}

TEST(TrackingStreamLifecycle, OnlyTheNamedSpryTrackModelsGetTheirFixedOptions) {
    // The name table stops at the spryTrack 180: a spryTrack 300 is "UNKNOWN", so the fixed options
    // meant for the spryTrack family are not written to it and it is left as it comes.
    struct Row {
        const char* scene;
        const char* detected;
        std::optional<int> fixedOptions; // the camera's own values of the options 6000 and 6003
    };
    for (const Row& row :
         {Row{"fusiontrack.json", "AtracsysTracking: Detected fTk 500, SN 0x4654356b30307704", std::nullopt},
          Row{"sprytrack300.json", "AtracsysTracking: Detected UNKNOWN, SN 0x53544b3330307705", 0}}) {
        SCOPED_TRACE(row.scene);
        SceneGuard scene(row.scene);
        TestSupport::LogCapture capture;
        ProbedStream stream;
        stream.setQueryImages(true);
        ASSERT_TRUE(stream.open());
        EXPECT_TRUE(capture->contains(Log::Info, "", row.detected)) << capture->dump();
        EXPECT_EQ(capture->countContaining("Onboard processing") +
                      capture->countContaining("on the SpryTrack"),
                  0u);
        EXPECT_EQ(std::make_pair(stream.intOption(6000), stream.intOption(6003)),
                  std::make_pair(row.fixedOptions, row.fixedOptions));
        ASSERT_TRUE(stream.close());
    }
}

TEST(TrackingStreamLifecycle, GeometriesWhileOpen) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.open());

    // Added while open: on the device at once.
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    EXPECT_EQ(onDevice(stream), "atracsys-1000:1");
    EXPECT_EQ(recorder.modificationCount(), 1u);
    EXPECT_EQ(stream.geometryCoordinates("atracsys-1000"),
              (std::vector<Eigen::Vector3d>{{0, 0, 0}, {31, 82, 0}, {96, -10, 0}, {61, 46, 0}}));

    // Geometries refused by the device are pushed again at start (the long-running fault tests
    // check that); accepted ones stay on it.
    ASSERT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
    ASSERT_TRUE(stream.start());
    EXPECT_EQ(onDevice(stream), "atracsys-1000:1 atracsys-1001:1");
    ASSERT_TRUE(stream.stop());

    // Removing: an instrument the device clears goes, and is gone from the device too.
    const std::size_t modifications = recorder.modificationCount();
    EXPECT_TRUE(stream.removeGeometry("atracsys-1001"));
    EXPECT_FALSE(stream.registry().find("atracsys-1001"));
    EXPECT_EQ(recorder.modificationCount(), modifications + 1);
    EXPECT_FALSE(stream.removeGeometry("atracsys-1001"));
    ASSERT_TRUE(stream.close());
}

TEST(TrackingStreamLifecycle, IntegrationTimeIsLiveWhileOpenAndCachedWhileClosed) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    EXPECT_EQ(stream.imageIntegrationTime(), -1) << "no device to ask";
    stream.setImageIntegrationTime(300); // refused without device: not cached
    Properties written;
    stream.configuration(&written);
    EXPECT_FALSE(written.hasParam("imageIntegrationTime"));

    Properties settings;
    settings.setParam("imageIntegrationTime", 450);
    stream.configure(&settings); // cached, applied at start
    ASSERT_TRUE(stream.open());
    EXPECT_EQ(stream.imageIntegrationTime(), 200) << "the device's own value until the start";
    ASSERT_TRUE(stream.start());
    EXPECT_EQ(stream.imageIntegrationTime(), 450);
    ASSERT_TRUE(stream.stop());
    settings.setParam("imageIntegrationTime", 700);
    stream.configure(&settings); // applied at once while open
    EXPECT_EQ(stream.imageIntegrationTime(), 700);
    // Below the device's minimum: the device clamps it and answers with a warning, so the
    // stream does not take the value as accepted.
    stream.setImageIntegrationTime(20);
    EXPECT_EQ(stream.imageIntegrationTime(), 50);

    Properties live;
    stream.configuration(&live);
    EXPECT_EQ(std::make_pair(live.param("imageIntegrationTime", 0), live.param("connect", false)),
              std::make_pair(50, true));
    ASSERT_TRUE(stream.close());
    Properties closed;
    stream.configuration(&closed);
    EXPECT_EQ(std::make_pair(closed.param("imageIntegrationTime", 0), closed.param("connect", true)),
              std::make_pair(700, false))
        << "while closed, the last accepted value";
}
