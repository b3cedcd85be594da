// Writing a tip into a geometry text: the [pivot] section replaced, every other line kept.

#include "atracsys/calibration/AtracsysPivotFile.h"
#include "atracsys/calibration/AtracsysToolTipFileFormat.h"
#include "host/core/File.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Kestrion;

TEST(PivotFile, TheTipReplacesThePivotSectionAndKeepsTheRest) {
    const Eigen::Vector3d tip(1.5, -2.25, 150.0);
    const std::string pivot = "[pivot]\nx=1.500\ny=-2.250\nz=150.000\n";
    // An old tip in the middle goes, up to the next section; comments and order stay.
    EXPECT_EQ(
        AtracsysPivotFile::withPivot("; tool\n[geometry]\ncount=1\n[pivot]\nx=9\n\n[fiducial0]\nx=0\n", tip),
        "; tool\n[geometry]\ncount=1\n[fiducial0]\nx=0\n" + pivot);
    // A last line without its line end gets one; CR LF files stay CR LF.
    EXPECT_EQ(AtracsysPivotFile::withPivot("[geometry]\nid=3", tip), "[geometry]\nid=3\n" + pivot);
    EXPECT_EQ(AtracsysPivotFile::withPivot("[geometry]\r\nid=3\r\n[pivot]\r\nz=1\r\n", tip),
              "[geometry]\r\nid=3\r\n[pivot]\r\nx=1.500\r\ny=-2.250\r\nz=150.000\r\n");

    EXPECT_EQ(AtracsysPivotFile::fiducialCount("[fiducial0]\ncount=9\n[geometry]\r\ncount=4\r\nid=1\n"), 4u);
    EXPECT_EQ(AtracsysPivotFile::fiducialCount("[geometry]\ncount=3\ncount=5\n"), 5u)
        << "the last value counts";
    for (const char* text : {"[geometry]\nid=1\n", "[geometry]\ncount=4x\n", "[geometry]\ncount=-1\n",
                             "[geometry]\ncount=99999999999\n", "count=4\n", "[geometry]\ncount = 4\n"})
        EXPECT_FALSE(AtracsysPivotFile::fiducialCount(text).has_value()) << text;
}

// What the host reads and writes of a geometry file goes through the plugin's format.
TEST(PivotFile, TheHostReadsAndWritesToolTipsThroughThePluginsFormat) {
    QTemporaryDir folder;
    const std::string tool = folder.filePath("tool.INI").toStdString();
    const std::string notes = folder.filePath("notes.ini").toStdString();
    const std::string missing = folder.filePath("missing.ini").toStdString();
    ASSERT_TRUE(Filesystem::File::writeText(Filesystem::Path(tool), "[geometry]\ncount=4\nid=7\n"));
    ASSERT_TRUE(Filesystem::File::writeText(Filesystem::Path(notes), "nothing of a marker\n"));
    const AtracsysToolTipFileFormat format;
    EXPECT_TRUE(format.claims(tool));
    EXPECT_FALSE(format.claims(folder.filePath("tool.json").toStdString()));

    std::string error;
    auto facts = format.read(tool, error);
    ASSERT_TRUE(facts) << error;
    EXPECT_EQ(facts->fiducials, 4u);
    EXPECT_FALSE(facts->tip);
    ASSERT_TRUE(format.saveTip(tool, Eigen::Vector3d(1, 2, 150), error)) << error;
    facts = format.read(tool, error);
    ASSERT_TRUE(facts && facts->tip);
    EXPECT_EQ(*facts->tip, Eigen::Vector3d(1, 2, 150));

    EXPECT_FALSE(format.read(missing, error));
    EXPECT_EQ(error.rfind("cannot read geometry file " + missing + ": ", 0), 0u) << error;
    EXPECT_FALSE(format.read(notes, error)->fiducials);
    EXPECT_FALSE(format.saveTip(notes, Eigen::Vector3d::Zero(), error));
    EXPECT_EQ(error, notes + " is not a marker geometry file (it has no [geometry] section)");
    EXPECT_EQ(*Filesystem::File::readText(Filesystem::Path(notes)), "nothing of a marker\n");
}
