// Geometry files that load but cannot work as meant: the warnings that say why, with the file,
// section and key, while the values read stand.

#include "atracsys/device/AtracsysGeometryHelpers.h"

#include "tests/support/LogCapture.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;

TEST(GeometryFileWarnings, NumbersThatDoNotParseAndGeometriesTheCameraCannotUse) {
    QTemporaryDir dir;
    auto write = [&dir](const std::string& name, const std::string& text) {
        const std::string path = dir.filePath(QString::fromStdString(name)).toStdString();
        std::ofstream(path) << text;
        return path;
    };
    TestSupport::LogCapture capture(Log::Warning);
    const std::string typo = write("typo.ini", "[geometry]\ncount=3\nid=12OO\n[fiducial0]\nx=0\ny=0\nz=0\n"
                                               "[fiducial1]\nx=1,5\ny=40\nz=0\n[fiducial2]\nx=30\ny=0\nz=\n");
    const auto loaded = loadGeometry(typo);
    ASSERT_TRUE(loaded) << "the file loads as before";
    EXPECT_EQ(loaded->geometryId, 12u);
    const std::vector<std::string> expected = {
        "AtracsysTracking: " + typo +
            ": the value \"12OO\" of key \"id\" in section \"geometry\" is not a number; "
            "it is read as 12",
        "AtracsysTracking: " + typo +
            ": the value \"1,5\" of key \"x\" in section \"fiducial1\" is not a number; "
            "it is read as 1",
        "AtracsysTracking: " + typo +
            ": the value \"\" of key \"z\" in section \"fiducial2\" is not a number; it "
            "is read as 0"};
    ASSERT_EQ(capture->size(), expected.size()) << capture->dump();
    for (const std::string& message : expected)
        EXPECT_TRUE(capture->contains(Log::Warning, "", message)) << message << "\n" << capture->dump();

    capture->clear();
    const std::string two = write("two.ini", "[geometry]\ncount=2\nid=5\n[fiducial0]\nx=0\ny=0\nz=0\n"
                                             "[fiducial1]\nx=50\ny=0\nz=0\n");
    const std::string point = write("point.ini", "[geometry]\ncount=3\nid=6\n[fiducial0]\nx=1\ny=2\nz=3\n"
                                                 "[fiducial1]\nx=1\ny=2\nz=3\n[fiducial2]\nx=1\ny=2\nz=3\n");
    EXPECT_TRUE(loadGeometry(two) && loadGeometry(point));
    EXPECT_TRUE(loadGeometry(":/markers/geometry1000.ini")) << "a good file gets no warning";
    EXPECT_EQ(capture->size(), 2u) << capture->dump();
    EXPECT_TRUE(
        capture->contains(Log::Warning, "",
                          "AtracsysTracking: " + two +
                              ": geometry 5 has 2 fiducials; the camera needs at least 3 and refuses it"))
        << capture->dump();
    EXPECT_TRUE(
        capture->contains(Log::Warning, "",
                          "AtracsysTracking: " + point +
                              ": all 3 fiducials of geometry 6 are at one point; the camera cannot find "
                              "its distances"))
        << capture->dump();
}
