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

#include <QTemporaryDir>

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
}

TEST(TrackingStreamModel, IdsReservedGeometryIdsAndQuality) {
    using SpryTrack::createId;
    using SpryTrack::extractAtracsysId;
    EXPECT_EQ(extractAtracsysId(createId(INT_MIN)), INT_MIN);
    EXPECT_THROW(extractAtracsysId("atracsys-marker"), std::invalid_argument);

    // Reserved ids move only under the literal family name "SpryTrack".
    TestSupport::LogCapture capture;
    ftkGeometry geometry{};
    for (const auto& [family, id, moved] :
         {std::tuple<const char*, std::uint32_t, std::uint32_t>{"SpryTrack", 5, 1005},
          {"SpryTrack", 999, 1999},
          {"SpryTrack", 1000, 1000},
          {"sTk 180", 5, 5},
          {"", 5, 5}}) {
        geometry.geometryId = id;
        EXPECT_EQ(SpryTrack::moveOutOfReservedIds(family, geometry), moved != id) << family << id;
        EXPECT_EQ(geometry.geometryId, moved) << family << id;
    }
    EXPECT_TRUE(capture->contains(Log::Error, StreamCategory,
                                  "INI marker files with ids < 1000 are not supported with this Atracsys SDK "
                                  "version. Values 0 to 1000 are reserved"));
    EXPECT_TRUE(capture->contains(Log::Warning, StreamCategory, "INI marker id is changed from 5 to 1005"));
    EXPECT_EQ(capture->size(), 4u) << capture->dump();

    EXPECT_DOUBLE_EQ(SpryTrack::AtracsysFrameConverter::quality(12.0), 0.0) << "never below zero";
}

TEST(TrackingStreamModel, ConfigurationOfAClosedStream) {
    AtracsysTrackingStream stream("stream");
    // An integration time below 1 is not written; "connect" asks for a start after the open, but a
    // closed stream writes itself unconnected.
    Properties settings;
    settings.setParam("imageIntegrationTime", 0);
    settings.setParam("connect", true);
    stream.configure(&settings);
    EXPECT_TRUE(stream.startAfterInit());
    Properties written;
    stream.configuration(&written);
    EXPECT_EQ(written.paramNames(),
              (std::vector<std::string>{"Distance matching tolerance", "fiducialQueryMode", "queryImages",
                                        "connect", "maxFiducialMarkerDistance"}));
    EXPECT_EQ(written.param("connect", true), false);
    for (const char* hidden : {"fiducialQueryMode", "queryImages", "connect"})
        EXPECT_EQ(written.paramAttribute(hidden, "hidden"), std::optional<std::string>("true")) << hidden;
    EXPECT_FALSE(written.paramAttribute("maxFiducialMarkerDistance", "hidden"));
    ASSERT_TRUE(written.subProperty("TrackingTargets"));
    EXPECT_EQ(written.subProperty("TrackingTargets")->attribute("hidden"),
              std::optional<std::string>("true"));
    stream.configure(nullptr); // null trees are ignored
    stream.configuration(nullptr);
}

TEST(TrackingStreamModel, TrackingTargetsLoadRelativeFilesAndResourcesAndRoundTrip) {
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    ASSERT_TRUE(std::filesystem::copy_file(dataFile("geometry1000.ini"),
                                           folder.filePath("geometry1000.ini").toStdString()));
    const std::string settingsFile = folder.filePath("settings.kws").toStdString();
    std::ofstream(settingsFile) << "<properties name=\"Atracsys Tracking Stream\">"
                                   "<param name=\"fiducialQueryMode\" type=\"int\">2</param>"
                                   "<param name=\"queryImages\" type=\"bool\">true</param>"
                                   "<param name=\"maxFiducialMarkerDistance\" type=\"double\">77.25</param>"
                                   "<param name=\"imageIntegrationTime\" type=\"int\">420</param>"
                                   "<properties name=\"TrackingTargets\" hidden=\"true\">"
                                   "<properties name=\"pointer\"><param name=\"Path\" "
                                   "type=\"string\">geometry1000.ini</param></properties>"
                                   "<properties name=\"no path\"/>"
                                   "<properties name=\"missing\"><param name=\"Path\" "
                                   "type=\"string\">nowhere.ini</param></properties>"
                                   "<properties name=\"resource\"><param name=\"Path\" "
                                   "type=\"string\">:/stream-test/geometry1001.ini</param></properties>"
                                   "</properties></properties>";
    auto settings = PropertiesXml::readFile(Filesystem::Path(settingsFile));
    ASSERT_TRUE(settings);

    Properties written;
    {
        AtracsysTrackingStream stream("stream");
        stream.configure(&*settings);
        EXPECT_EQ(instrumentIds(stream), (std::vector<std::string>{"atracsys-1000", "atracsys-1001"}));
        EXPECT_TRUE(capture->contains(Log::Error, StreamCategory,
                                      "Cannot load geometry from file " +
                                          folder.filePath("nowhere.ini").toStdString()))
            << capture->dump();
        EXPECT_EQ(stream.registry().find("atracsys-1000")->id.name, "pointer");
        EXPECT_EQ(stream.fiducialQueryMode(), AtracsysTrackingStream::FiducialsNearMarkers);
        EXPECT_TRUE(stream.queryImages());
        EXPECT_EQ(stream.maxFiducialMarkerDistance(), 77.25);

        stream.configuration(&written);
        // Without "TrackingTargets" the settings are read and nothing else happens.
        Properties plain;
        plain.setParam("maxFiducialMarkerDistance", 12.0);
        stream.configure(&plain);
        EXPECT_EQ(stream.maxFiducialMarkerDistance(), 12.0);
        EXPECT_EQ(stream.instruments().size(), 2u);
    }
    // Written back with the paths as loaded (made absolute, resources kept), and read again alike.
    const Properties* targets = written.subProperty("TrackingTargets");
    ASSERT_TRUE(targets);
    ASSERT_EQ(targets->subProperties().size(), 2u);
    EXPECT_EQ(std::make_pair(targets->subProperties()[0]->name(),
                             targets->subProperties()[0]->param("Path", std::string())),
              std::make_pair(std::string("pointer"), folder.filePath("geometry1000.ini").toStdString()));
    EXPECT_EQ(std::make_pair(targets->subProperties()[1]->name(),
                             targets->subProperties()[1]->param("Path", std::string())),
              std::make_pair(std::string("resource"), std::string(":/stream-test/geometry1001.ini")));
    ASSERT_TRUE(PropertiesXml::writeFile(written, Filesystem::Path(settingsFile)));
    auto reread = PropertiesXml::readFile(Filesystem::Path(settingsFile));
    ASSERT_TRUE(reread);
    AtracsysTrackingStream restored("restored");
    restored.configure(&*reread);
    Properties rewritten;
    restored.configuration(&rewritten);
    EXPECT_EQ(rewritten, written);
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
    ASSERT_EQ(signalled.size(), 2u);
    EXPECT_TRUE(signalled[0].testFlag(InstrumentModification::InstrumentsChanged));
    for (const auto& [id, geometry] : stream.registry().specialObjects())
        EXPECT_FALSE(geometry->isOnDevice()) << id;
    EXPECT_FALSE(stream.addGeometry("other", dataFile("geometry1000.ini"))) << "the same id again";

    EXPECT_TRUE(stream.geometryCoordinates("atracsys-5").empty());
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
