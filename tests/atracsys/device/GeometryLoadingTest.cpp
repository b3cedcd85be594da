#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <cstring>
#include <fstream>
#include <sstream>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;

namespace {

const std::string dataDir = KESTRION_TEST_DATA_DIR "/geometry/";

std::optional<ftkGeometry> loadText(const std::string& text) {
    std::istringstream in(text);
    return loadFile(in);
}

/// "id count | x,y,z ..." over every position of the record, the unused ones included.
std::string render(const std::optional<ftkGeometry>& geometry) {
    if (!geometry)
        return "nothing";
    std::ostringstream text;
    text << geometry->geometryId << " " << geometry->pointsCount << " |";
    for (const ftk3DPoint& p : geometry->positions)
        text << " " << p.x << "," << p.y << "," << p.z;
    return text.str();
}

std::string missingKey(const std::string& key, const std::string& section) {
    return "AtracsysTracking: Parsing INI file, could not find key \"" + key + "\" in section \"" + section +
           "\"";
}

} // namespace

TEST(GeometryLoading, MissingSectionsAndKeysAreNamedAndNothingIsLoaded) {
    const std::string fiducial0 = "[fiducial0]\nx=0\ny=0\nz=0\n";
    const std::string noSection = "AtracsysTracking: Parsing INI file, could not find section ";
    const std::pair<std::string, std::string> cases[] = {
        {fiducial0, noSection + "\"geometry\""},
        {"[geometry]\nid=3\n", missingKey("count", "geometry")},
        {"[geometry]\ncount=0\n", missingKey("id", "geometry")},
        {"[geometry]\ncount=3\nid=4\n" + fiducial0 + "[fiducial1]\nx=1\ny=0\nz=0\n",
         noSection + "\"fiducial2\""},
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

TEST(GeometryLoading, NumbersAreReadLenientlyAndCountsAreBoundedByTheRecord) {
    TestSupport::LogCapture capture;
    // Non-numeric text reads as 0, a numeric prefix as its number, values wrap to 32 bits, extra keys
    // are ignored, and coordinates beyond single precision become infinities.
    EXPECT_EQ(
        render(loadText("[geometry]\ncount=1abc\nid=abc\nname=tool\n[fiducial0]\nx=abc\ny=-2.5e1mm\nz= 7\n")),
        "0 1 | 0,-25,7 0,0,0 0,0,0 0,0,0 0,0,0 0,0,0");
    EXPECT_TRUE(capture->contains(Log::Info, "", "Loading geometry 0, composed of 1 fiducials"));
    EXPECT_EQ(render(loadText("[geometry]\ncount=4294967296\nid=-1\n")),
              "4294967295 0 | 0,0,0 0,0,0 0,0,0 0,0,0 0,0,0 0,0,0");
    EXPECT_TRUE(capture->contains(Log::Info, "", "Loading geometry 4294967295, composed of 0 fiducials"));
    EXPECT_EQ(render(loadText("[geometry]\ncount=1\nid=1\n[fiducial0]\nx=1e300\ny=-1e300\nz=1e-300\n")),
              "1 1 | inf,-inf,0 0,0,0 0,0,0 0,0,0 0,0,0 0,0,0");

    std::string text = "[geometry]\ncount=7\nid=9\n";
    for (int i = 0; i < 8; ++i)
        text += "[fiducial" + std::to_string(i) + "]\nx=" + std::to_string(i) + "\ny=1\nz=2\n";
    EXPECT_FALSE(loadText(text).has_value());
    EXPECT_TRUE(capture->contains(
        Log::Error, "",
        "AtracsysTracking: Parsing INI file, geometry 9 has 7 fiducials, more than the maximum of 6"))
        << capture->dump();
    EXPECT_FALSE(loadText("[geometry]\ncount=-1\nid=9\n").has_value());
    EXPECT_EQ(capture->countContaining("has 4294967295 fiducials, more than the maximum of 6"), 1u);
    text.replace(text.find("count=7"), 7, "count=6");
    EXPECT_EQ(render(loadText(text)), "9 6 | 0,1,2 1,1,2 2,1,2 3,1,2 4,1,2 5,1,2");
}

TEST(GeometryLoading, ReadsTheRecordFromTextDiskAndCompiledInResources) {
    TestSupport::LogCapture capture;
    // Geometry first, comments, blank lines, a tip section and a fiducial beyond the count.
    EXPECT_EQ(render(loadGeometry(dataDir + "geometry4.ini")),
              "8 4 | 0,0,0 0,72.5,0 -38.25,31,0 -12,-52.75,0 0,0,0 0,0,0");
    EXPECT_TRUE(capture->contains(Log::Info, "", "Loading geometry 8, composed of 4 fiducials"));

    const auto text = loadText("[fiducial0]\nx=0\ny=0\nz=0\n[fiducial1]\nx=25.5\ny=0\nz=0\n"
                               "[fiducial2]\nx=0\ny=41.2\nz=0\n[geometry]\ncount=3\nid=1200\n");
    EXPECT_EQ(render(text), "1200 3 | 0,0,0 25.5,0,0 0,41.2,0 0,0,0 0,0,0 0,0,0");
    EXPECT_EQ(text->version, 0u);
    // The same text on disk and in the resources, with LF or CR LF line ends: byte-identical records.
    for (const std::string& path : {dataDir + "geometry1200.ini", dataDir + "geometry1200-crlf.ini",
                                    std::string(":/test-geometry/geometry1200.ini"),
                                    std::string(":/test-geometry/geometry1200-crlf.ini")}) {
        const auto same = loadGeometry(path);
        ASSERT_TRUE(same.has_value()) << path << capture->dump();
        EXPECT_EQ(std::memcmp(&*text, &*same, sizeof(ftkGeometry)), 0) << path;
    }
    // The example markers compiled into the plugin.
    EXPECT_EQ(render(loadGeometry(":/markers/geometry1000.ini")),
              "1000 4 | 0,0,0 31,82,0 96,-10,0 61,46,0 0,0,0 0,0,0");

    // Files that cannot be opened fail without a message of their own.
    capture->clear();
    EXPECT_FALSE(loadGeometry(":/test-geometry/missing.ini").has_value());
    EXPECT_FALSE(loadGeometry(dataDir + "missing.ini").has_value());
    EXPECT_EQ(capture->size(), 0u) << capture->dump();

    // Only a leading ":/" selects the resources; a file written on disk loads from its path.
    QTemporaryDir dir;
    const std::string path = dir.filePath("geometry3.ini").toStdString();
    std::ofstream(path) << "[geometry]\r\ncount=0\r\nid=3";
    EXPECT_EQ(render(loadGeometry(path)), "3 0 | 0,0,0 0,0,0 0,0,0 0,0,0 0,0,0 0,0,0");
    EXPECT_FALSE(loadGeometry("./:/test-geometry/geometry1200.ini").has_value());
}

TEST(GeometryLoading, TheToolTipComesFromThePivotSectionAndABrokenOneIsLeftOut) {
    TestSupport::LogCapture capture;
    // The field's file loads with its tip, and with the same record and messages as without it.
    const auto field = loadGeometryFile(dataDir + "geometry4.ini");
    ASSERT_TRUE(field.has_value());
    ASSERT_TRUE(field->tip.has_value());
    EXPECT_EQ(*field->tip, Eigen::Vector3d(0, 0, -148.5));
    EXPECT_EQ(render(field->geometry), "8 4 | 0,0,0 0,72.5,0 -38.25,31,0 -12,-52.75,0 0,0,0 0,0,0");
    EXPECT_EQ(capture->size(), 1u) << capture->dump();
    const auto noTip = loadGeometryFile(dataDir + "geometry1200.ini");
    ASSERT_TRUE(noTip.has_value());
    EXPECT_FALSE(noTip->tip.has_value());

    QTemporaryDir dir;
    const std::string base = "[geometry]\ncount=0\nid=5\n[pivot]\n";
    const std::string prefix = "AtracsysTracking: Parsing INI file, geometry 5 is loaded without tip: ";
    const std::pair<std::string, std::string> broken[] = {
        {"x=1\ny=2\n", "could not find key \"z\" in section \"pivot\""},
        {"x=1\ny=2mm\nz=3\n", "key \"y\" in section \"pivot\" is not a finite number: \"2mm\""},
        {"x=1\ny=2\nz=1e999\n", "key \"z\" in section \"pivot\" is not a finite number: \"1e999\""},
    };
    for (const auto& [keys, reason] : broken) {
        capture->clear();
        const std::string path = dir.filePath("broken.ini").toStdString();
        std::ofstream(path) << base << keys;
        const auto loaded = loadGeometryFile(path);
        ASSERT_TRUE(loaded.has_value()) << keys;
        EXPECT_FALSE(loaded->tip.has_value()) << keys;
        EXPECT_EQ(capture->count(Log::Warning, "", prefix + reason), 1u) << capture->dump();
    }
    // Blanks after a number are accepted, as a hand-edited file has them.
    const std::string path = dir.filePath("blanks.ini").toStdString();
    std::ofstream(path) << base << "x= -1.5 \ny=2\t\nz=+3e1\n";
    EXPECT_EQ(loadGeometryFile(path)->tip, Eigen::Vector3d(-1.5, 2, 30));
}
