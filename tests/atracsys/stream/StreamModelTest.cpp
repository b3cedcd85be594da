// The stream as an object: the single-instance rule, instrument ids, settings and configuration,
// geometries while no camera is open. No frame is fetched here.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "atracsys/stream/AtracsysFrameConverter.h"
#include "atracsys/stream/AtracsysGeometry.h"
#include "atracsys/stream/AtracsysInstrumentId.h"

#include "host/core/Properties.h"
#include "host/core/PropertiesXml.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <stdexcept>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

std::vector<std::string> instrumentIds(AtracsysTrackingStream& stream) {
    std::vector<std::string> ids;
    for (const auto& instrument : stream.instruments())
        ids.push_back(instrument.ID());
    return ids;
}

/// A fresh folder under the system's temporary folder, removed with the object.
struct TemporaryFolder {
    std::filesystem::path path;
    TemporaryFolder() {
        path = std::filesystem::temp_directory_path() /
               ("trackingstream-test-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
};

} // namespace

TEST(TrackingStreamModel, OnlyOneStreamAtATime) {
    {
        AtracsysTrackingStream first("first");
        try {
            AtracsysTrackingStream second("second");
            FAIL() << "a second stream was built";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(),
                         "Can not create a second instance of AtracsysTrackingStream. Only a single "
                         "instance is allowed.");
        }
        EXPECT_TRUE(AtracsysTrackingStream::exists())
            << "the refused stream did not take the first one's place";
    }
    EXPECT_FALSE(AtracsysTrackingStream::exists());
    AtracsysTrackingStream again("again");
    EXPECT_TRUE(AtracsysTrackingStream::exists());
}

TEST(TrackingStreamModel, InstrumentIdsRoundTripAndRejectForeignIds) {
    using SpryTrack::createId;
    using SpryTrack::extractAtracsysId;
    EXPECT_EQ(createId(1004), "atracsys-1004");
    EXPECT_EQ(createId(-3), "atracsys--3");
    for (int id : {1007, INT_MIN, INT_MAX})
        EXPECT_EQ(extractAtracsysId(createId(id)), id);
    for (const char* foreign : {"atracsys", "atracsys-", "atracsys-marker"})
        EXPECT_THROW(extractAtracsysId(foreign), std::invalid_argument) << foreign;
    EXPECT_THROW(extractAtracsysId("atracsys-99999999999"), std::out_of_range);
}

TEST(TrackingStreamModel, ReservedGeometryIdsMoveOnlyForTheSpryTrackFamilyName) {
    TestSupport::LogCapture capture;
    ftkGeometry geometry{};
    geometry.geometryId = 5;
    EXPECT_TRUE(SpryTrack::moveOutOfReservedIds("SpryTrack", geometry));
    EXPECT_EQ(geometry.geometryId, 1005u);
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory,
                                  "INI marker files with ids < 1000 are not supported with this Atracsys SDK "
                                  "version. Values 0 to 1000 are reserved"));
    EXPECT_TRUE(capture->contains(Log::Warning, StreamCategory, "INI marker id is changed from 5 to 1005"));
    geometry.geometryId = 999;
    EXPECT_TRUE(SpryTrack::moveOutOfReservedIds("SpryTrack", geometry));
    EXPECT_EQ(geometry.geometryId, 1999u);

    capture->clear();
    for (const auto& [family, id] :
         {std::pair<const char*, std::uint32_t>{"SpryTrack", 1000}, {"sTk 180", 5}, {"", 5}}) {
        geometry.geometryId = id;
        EXPECT_FALSE(SpryTrack::moveOutOfReservedIds(family, geometry)) << family;
        EXPECT_EQ(geometry.geometryId, id) << family;
    }
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(TrackingStreamModel, QualityFallsWithTheRegistrationError) {
    using SpryTrack::AtracsysFrameConverter;
    EXPECT_DOUBLE_EQ(AtracsysFrameConverter::quality(0.0), 1.0);
    EXPECT_DOUBLE_EQ(AtracsysFrameConverter::quality(2.5), 0.75);
    EXPECT_DOUBLE_EQ(AtracsysFrameConverter::quality(10.0), 0.0);
    EXPECT_DOUBLE_EQ(AtracsysFrameConverter::quality(12.0), 0.0);
}

TEST(TrackingStreamModel, ConfigurationOfAClosedStream) {
    AtracsysTrackingStream stream("stream");
    Properties written;
    stream.configuration(&written);
    EXPECT_EQ(written.paramNames(),
              (std::vector<std::string>{"Distance matching tolerance", "fiducialQueryMode", "queryImages",
                                        "connect", "maxFiducialMarkerDistance"}));
    for (const char* hidden : {"fiducialQueryMode", "queryImages", "connect"})
        EXPECT_EQ(written.paramAttribute(hidden, "hidden"), std::optional<std::string>("true")) << hidden;
    EXPECT_FALSE(written.paramAttribute("maxFiducialMarkerDistance", "hidden"));
    const Properties* targets = written.subProperty("TrackingTargets");
    ASSERT_TRUE(targets);
    EXPECT_EQ(targets->attribute("hidden"), std::optional<std::string>("true"));
    EXPECT_TRUE(targets->subProperties().empty());

    // An integration time below 1 is not written; a cached one is, while the stream is closed.
    // "connect" asks for a start after the open, but a closed stream writes itself unconnected.
    Properties settings;
    settings.setParam("imageIntegrationTime", 0);
    settings.setParam("connect", true);
    stream.configure(&settings);
    EXPECT_TRUE(stream.startAfterInit());
    Properties again;
    stream.configuration(&again);
    EXPECT_FALSE(again.hasParam("imageIntegrationTime"));
    EXPECT_EQ(again.param("connect", true), false);

    settings.setParam("imageIntegrationTime", 350);
    stream.configure(&settings);
    Properties cached;
    stream.configuration(&cached);
    EXPECT_EQ(cached.param("imageIntegrationTime", 0), 350);
    EXPECT_EQ(cached.paramNames()[1], "imageIntegrationTime");

    stream.setMaxFiducialMarkerDistance(42.5);
    stream.configure(nullptr); // null trees are ignored
    stream.configuration(nullptr);
    EXPECT_EQ(stream.maxFiducialMarkerDistance(), 42.5);
}

TEST(TrackingStreamModel, TrackingTargetsLoadRelativeFilesAndResources) {
    TestSupport::LogCapture capture;
    TemporaryFolder folder;
    std::filesystem::copy_file(dataFile("geometry1000.ini"), folder.path / "geometry1000.ini");
    const std::string xml =
        "<properties name=\"Atracsys Tracking Stream\">"
        "<properties name=\"TrackingTargets\" hidden=\"true\">"
        "<properties name=\"pointer\"><param name=\"Path\" "
        "type=\"string\">geometry1000.ini</param></properties>"
        "<properties name=\"no path\"/>"
        "<properties name=\"missing\"><param name=\"Path\" type=\"string\">nowhere.ini</param></properties>"
        "<properties name=\"resource\"><param name=\"Path\" "
        "type=\"string\">:/stream-test/geometry1001.ini</param></properties>"
        "</properties></properties>";
    std::ofstream(folder.path / "settings.kws") << xml;
    auto settings = PropertiesXml::readFile(Filesystem::Path((folder.path / "settings.kws").string()));
    ASSERT_TRUE(settings);

    AtracsysTrackingStream stream("stream");
    stream.configure(&*settings);
    EXPECT_EQ(instrumentIds(stream), (std::vector<std::string>{"atracsys-1000", "atracsys-1001"}));
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory,
                                  "Cannot load geometry from file " + (folder.path / "nowhere.ini").string()))
        << capture->dump();
    ASSERT_TRUE(stream.registry().find("atracsys-1000"));
    EXPECT_EQ(stream.registry().find("atracsys-1000")->id.name, "pointer");
    EXPECT_EQ(stream.registry().find("atracsys-1001")->id.name, "resource");

    Properties written;
    stream.configuration(&written);
    const Properties* targets = written.subProperty("TrackingTargets");
    ASSERT_TRUE(targets);
    ASSERT_EQ(targets->subProperties().size(), 2u);
    EXPECT_EQ(targets->subProperties()[0]->name(), "pointer");
    EXPECT_EQ(targets->subProperties()[0]->param("Path", std::string()),
              (folder.path / "geometry1000.ini").string());
    EXPECT_EQ(targets->subProperties()[1]->name(), "resource");
    EXPECT_EQ(targets->subProperties()[1]->param("Path", std::string()), ":/stream-test/geometry1001.ini");

    // Without "TrackingTargets" the settings are read and nothing else happens.
    Properties plain;
    plain.setParam("maxFiducialMarkerDistance", 12.0);
    stream.configure(&plain);
    EXPECT_EQ(stream.maxFiducialMarkerDistance(), 12.0);
    EXPECT_EQ(stream.instruments().size(), 2u);
}

TEST(TrackingStreamModel, ConfigurationRoundTripsThroughAWorkspaceFile) {
    TemporaryFolder folder;
    const std::string workspace = (folder.path / "workspace.kws").string();
    {
        AtracsysTrackingStream stream("stream");
        ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
        ASSERT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
        stream.setFiducialQueryMode(AtracsysTrackingStream::AllFiducials);
        stream.setQueryImages(true);
        stream.setMaxFiducialMarkerDistance(77.25);
        Properties settings;
        settings.setParam("imageIntegrationTime", 420);
        settings.setParam("Distance matching tolerance", 3.0f);
        stream.configure(&settings);
        Properties root("Workspace");
        stream.configuration(root.addSubProperties("Atracsys Tracking Stream"));
        ASSERT_TRUE(PropertiesXml::writeFile(root, Filesystem::Path(workspace)));
    }
    auto root = PropertiesXml::readFile(Filesystem::Path(workspace));
    ASSERT_TRUE(root);
    const Properties* saved = root->subProperty("Atracsys Tracking Stream");
    ASSERT_TRUE(saved);
    AtracsysTrackingStream stream("restored");
    stream.configure(saved);
    EXPECT_EQ(stream.fiducialQueryMode(), AtracsysTrackingStream::AllFiducials);
    EXPECT_TRUE(stream.queryImages());
    EXPECT_FALSE(stream.startAfterInit());
    EXPECT_EQ(stream.maxFiducialMarkerDistance(), 77.25);
    EXPECT_EQ(instrumentIds(stream), (std::vector<std::string>{"atracsys-1000", "atracsys-1001"}));
    EXPECT_EQ(stream.registry().find("atracsys-1000")->id.name, "tool");
    Properties rewritten("Atracsys Tracking Stream");
    stream.configuration(&rewritten);
    EXPECT_EQ(rewritten, *saved);
}

TEST(TrackingStreamModel, GeometriesWhileClosed) {
    TestSupport::LogCapture capture;
    AtracsysTrackingStream stream("stream");
    std::vector<InstrumentModifications> signalled;
    auto connection = stream.signalInstrumentsModified.connect(
        [&signalled](InstrumentModifications m) { signalled.push_back(m); });

    // Id 8 is kept as it is: no device, so no device family that reserves it.
    ASSERT_TRUE(stream.addGeometry("small", std::string(KESTRION_TEST_DATA_DIR) + "/geometry/geometry4.ini"));
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    EXPECT_EQ(instrumentIds(stream), (std::vector<std::string>{"atracsys-1000", "atracsys-8"}));
    EXPECT_EQ(stream.registry().mainId(), "atracsys-8") << "the first instrument is the main one";
    ASSERT_EQ(signalled.size(), 2u);
    EXPECT_TRUE(signalled[0].testFlag(InstrumentModification::InstrumentsChanged));
    for (const auto& [id, geometry] : stream.registry().specialObjects())
        EXPECT_FALSE(geometry->isOnDevice()) << id;
    EXPECT_EQ(stream.registry().find("atracsys-1000")->quality, 0.0);

    // The same id again is refused by the registry and changes nothing.
    EXPECT_FALSE(stream.addGeometry("other", dataFile("geometry1000.ini")));
    EXPECT_TRUE(capture->contains(Log::Error, "ThreadSafeInstruments",
                                  "create: Instrument with ID atracsys-1000 already exists"));
    EXPECT_EQ(stream.registry().find("atracsys-1000")->id.name, "tool");
    EXPECT_EQ(signalled.size(), 2u);

    EXPECT_EQ(stream.geometryCoordinates("atracsys-8"),
              (std::vector<Eigen::Vector3d>{{0, 0, 0}, {0, 72.5, 0}, {-38.25, 31, 0}, {-12, -52.75, 0}}));
    EXPECT_TRUE(stream.geometryCoordinates("atracsys-5").empty());
    EXPECT_TRUE(capture->contains(Log::Error, "ThreadSafeInstruments",
                                  "modify: Special object for instrument with ID atracsys-5 does not exist"));
    EXPECT_TRUE(
        capture->contains(Log::Error, StreamCategory,
                          "Cannot query geometry coordinates from id atracsys-5 from tracking system"));

    // Without a device nothing can be cleared on it: the instrument stays.
    EXPECT_FALSE(stream.removeGeometry("atracsys-8"));
    EXPECT_TRUE(capture->contains(
        Log::Warning, StreamCategory,
        "AtracsysTracking: Cannot remove geometry with id atracsys-8 from tracking system"));
    EXPECT_EQ(stream.instruments().size(), 2u);

    EXPECT_FALSE(stream.addGeometry("broken", dataFile("tracking.json")));
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory,
                                  "Cannot load geometry from file " + dataFile("tracking.json")));
    connection.disconnect();
}
