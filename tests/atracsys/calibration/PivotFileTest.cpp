// Writing a tip into a geometry text: the [pivot] section replaced, every other line kept.

#include "atracsys/calibration/AtracsysPivotFile.h"

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
