#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;

namespace {

const std::string dataDir = KESTRION_TEST_DATA_DIR "/geometry/";

std::optional<ftkGeometry> loadText(const std::string& text) {
    std::istringstream in(text);
    return loadFile(in);
}

std::string missingSection(const std::string& section) {
    return "AtracsysTracking: Parsing INI file, could not find section \"" + section + "\"";
}

std::string missingKey(const std::string& key, const std::string& section) {
    return "AtracsysTracking: Parsing INI file, could not find key \"" + key + "\" in section \"" + section +
           "\"";
}

void expectPosition(const ftkGeometry& geometry, unsigned i, float x, float y, float z) {
    const ftk3DPoint& p = geometry.positions[i];
    EXPECT_TRUE(p.x == x && p.y == y && p.z == z)
        << "fiducial " << i << ": " << p.x << " " << p.y << " " << p.z;
}

void expectUnusedPositionsZero(const ftkGeometry& geometry) {
    for (unsigned i = geometry.pointsCount; i < FTK_MAX_FIDUCIALS; ++i)
        expectPosition(geometry, i, 0.0f, 0.0f, 0.0f);
}

const char* const example = "[fiducial0]\nx=0\ny=0\nz=0\n"
                            "[fiducial1]\nx=25.5\ny=0\nz=0\n"
                            "[fiducial2]\nx=0\ny=41.2\nz=0\n"
                            "[geometry]\ncount=3\nid=1200\n";

} // namespace

TEST(GeometryLoading, IgnoresSectionOrderCommentsExtraSectionsAndLineEndings) {
    TestSupport::LogCapture capture;
    // Geometry first, comments, blank lines, a tip section and a fiducial beyond the count.
    const auto field = loadGeometry(dataDir + "geometry4.ini");
    ASSERT_TRUE(field.has_value()) << capture->dump();
    EXPECT_EQ(field->geometryId, 8u);
    EXPECT_EQ(field->pointsCount, 4u);
    expectPosition(*field, 1, 0.0f, 72.5f, 0.0f);
    expectPosition(*field, 3, -12.0f, -52.75f, 0.0f);
    expectUnusedPositionsZero(*field);
    EXPECT_TRUE(capture->contains(Log::Info, "", "Loading geometry 8, composed of 4 fiducials"));
}

TEST(GeometryLoading, MissingSectionsAndKeysAreNamedAndNothingIsLoaded) {
    const std::string fiducial0 = "[fiducial0]\nx=0\ny=0\nz=0\n";
    const std::pair<std::string, std::string> cases[] = {
        {fiducial0, missingSection("geometry")},
        {"[geometry]\nid=3\n", missingKey("count", "geometry")},
        {"[geometry]\ncount=0\n", missingKey("id", "geometry")},
        // Count 3 with sections for fiducials 0 and 1 only.
        {"[geometry]\ncount=3\nid=4\n" + fiducial0 + "[fiducial1]\nx=1\ny=0\nz=0\n",
         missingSection("fiducial2")},
        {"[geometry]\ncount=2\nid=4\n" + fiducial0 + "[fiducial1]\nx=1\ny=0\n", missingKey("z", "fiducial1")},
        // Blanks around "=" belong to the key: "x " is defined, "x" is not.
        {"[geometry]\ncount=1\nid=4\n[fiducial0]\nx = 1\ny=0\nz=0\n", missingKey("x", "fiducial0")},
    };
    for (const auto& [text, message] : cases) {
        TestSupport::LogCapture capture;
        EXPECT_FALSE(loadText(text).has_value()) << text;
        EXPECT_EQ(capture->count(Log::Error, "", message), 1u) << capture->dump();
        // Besides the error, only the "Loading geometry" line once the geometry section was read.
        EXPECT_EQ(capture->size(), capture->countContaining("Loading geometry 4, composed of ") + 1u)
            << capture->dump();
    }

    // A malformed text fails in the INI parser, which logs nothing.
    TestSupport::LogCapture capture;
    EXPECT_FALSE(loadText("count=3\n[geometry]\ncount=0\nid=1\n").has_value());
    EXPECT_FALSE(loadText("[geometry]\ncount=0\nid=1\n# comment\n").has_value());
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(GeometryLoading, NumbersAreReadLeniently) {
    TestSupport::LogCapture capture;
    // Non-numeric text reads as 0, a numeric prefix as its number, values wrap to 32 bits; extra
    // keys are ignored.
    const auto lenient =
        loadText("[geometry]\ncount=1abc\nid=abc\nname=tool\n[fiducial0]\nx=abc\ny=-2.5e1mm\nz= 7\n");
    ASSERT_TRUE(lenient.has_value()) << capture->dump();
    EXPECT_EQ(lenient->geometryId, 0u);
    EXPECT_EQ(lenient->pointsCount, 1u);
    expectPosition(*lenient, 0, 0.0f, -25.0f, 7.0f);
    EXPECT_TRUE(capture->contains(Log::Info, "", "Loading geometry 0, composed of 1 fiducials"));

    // Count 0 loads an empty geometry, and says so.
    const auto wrapped = loadText("[geometry]\ncount=4294967296\nid=-1\n");
    ASSERT_TRUE(wrapped.has_value());
    EXPECT_TRUE(capture->contains(Log::Info, "", "Loading geometry 4294967295, composed of 0 fiducials"));
    EXPECT_EQ(wrapped->geometryId, 4294967295u);
    EXPECT_EQ(wrapped->pointsCount, 0u);
    expectUnusedPositionsZero(*wrapped);

    // Coordinates beyond single precision become infinities rather than undefined values.
    const auto huge = loadText("[geometry]\ncount=1\nid=1\n[fiducial0]\nx=1e300\ny=-1e300\nz=1e-300\n");
    ASSERT_TRUE(huge.has_value());
    EXPECT_EQ(huge->positions[0].x, std::numeric_limits<float>::infinity());
    EXPECT_EQ(huge->positions[0].y, -std::numeric_limits<float>::infinity());
    EXPECT_EQ(huge->positions[0].z, 0.0f);
}

TEST(GeometryLoading, CountsBeyondTheRecordCapacityAreRefused) {
    std::string text = "[geometry]\ncount=7\nid=9\n";
    for (int i = 0; i < 8; ++i)
        text += "[fiducial" + std::to_string(i) + "]\nx=" + std::to_string(i) + "\ny=1\nz=2\n";
    TestSupport::LogCapture capture;
    EXPECT_FALSE(loadText(text).has_value());
    EXPECT_TRUE(capture->contains(Log::Info, "", "Loading geometry 9, composed of 7 fiducials"));
    EXPECT_TRUE(capture->contains(
        Log::Error, "",
        "AtracsysTracking: Parsing INI file, geometry 9 has 7 fiducials, more than the maximum of 6"))
        << capture->dump();
    // A count that wraps from a negative number is refused the same way.
    EXPECT_FALSE(loadText("[geometry]\ncount=-1\nid=9\n").has_value());
    EXPECT_EQ(capture->countContaining("has 4294967295 fiducials, more than the maximum of 6"), 1u);
    // Exactly the capacity loads.
    text.replace(text.find("count=7"), 7, "count=6");
    const auto full = loadText(text);
    ASSERT_TRUE(full.has_value());
    EXPECT_EQ(full->pointsCount, 6u);
    expectPosition(*full, 5, 5.0f, 1.0f, 2.0f);
}

TEST(GeometryLoading, ReadsTheRecordFromTextDiskAndCompiledInResources) {
    TestSupport::LogCapture capture;
    const auto text = loadText(example);
    ASSERT_TRUE(text.has_value()) << capture->dump();
    EXPECT_EQ(text->geometryId, 1200u);
    EXPECT_EQ(text->pointsCount, 3u);
    EXPECT_EQ(text->version, 0u);
    expectPosition(*text, 1, 25.5f, 0.0f, 0.0f);
    expectPosition(*text, 2, 0.0f, 41.2f, 0.0f);
    expectUnusedPositionsZero(*text);
    // The same text on disk and in the resources, with LF or CR LF line ends: byte-identical records.
    for (const std::string& path : {dataDir + "geometry1200.ini", dataDir + "geometry1200-crlf.ini",
                                    std::string(":/test-geometry/geometry1200.ini"),
                                    std::string(":/test-geometry/geometry1200-crlf.ini")}) {
        const auto same = loadGeometry(path);
        ASSERT_TRUE(same.has_value()) << path << capture->dump();
        EXPECT_EQ(std::memcmp(&*text, &*same, sizeof(ftkGeometry)), 0) << path;
    }
    EXPECT_EQ(capture->count(Log::Info, "", "Loading geometry 1200, composed of 3 fiducials"), 5u);

    // The example markers compiled into the plugin.
    const auto marker = loadGeometry(":/markers/geometry1000.ini");
    ASSERT_TRUE(marker.has_value()) << capture->dump();
    EXPECT_EQ(marker->geometryId, 1000u);
    EXPECT_EQ(marker->pointsCount, 4u);
    expectPosition(*marker, 1, 31.0f, 82.0f, 0.0f);
    expectPosition(*marker, 3, 61.0f, 46.0f, 0.0f);

    // Files that cannot be opened fail without a message of their own.
    capture->clear();
    EXPECT_FALSE(loadGeometry(":/test-geometry/missing.ini").has_value());
    EXPECT_FALSE(loadGeometry(dataDir + "missing.ini").has_value());
    EXPECT_EQ(capture->size(), 0u) << capture->dump();

    // Only a leading ":/" selects the resources; a file written on disk loads from its path.
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const std::string path = dir.filePath("geometry3.ini").toStdString();
    std::ofstream(path) << "[geometry]\r\ncount=0\r\nid=3";
    const auto written = loadGeometry(path);
    ASSERT_TRUE(written.has_value());
    EXPECT_EQ(written->geometryId, 3u);
    EXPECT_FALSE(loadGeometry("./:/test-geometry/geometry1200.ini").has_value());
}
