// `kestrion check-geometry` as a user runs it: geometry files on disk and among the plugin's
// resources, checked through the plugin without opening the camera.

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Kestrion::HardeningTest;

const std::string DataDir = std::string(KESTRION_TEST_DATA_DIR);

ProcessResult checkGeometry(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "check-geometry");
    return runProcess(KESTRION_APP, arguments, {{"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER}}, DataDir);
}

} // namespace

TEST(CheckGeometryCommand, ReportsMirroredSymmetricAndConfusableGeometriesOneLineEach) {
    ProcessResult r = checkGeometry(
        {"geometry-checks/handed.ini", "geometry-checks/mirrored.ini", "geometry-checks/symmetric.ini"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_EQ(
        r.out,
        "geometry-checks/mirrored.ini is the mirror image of geometry-checks/handed.ini: fiducials 0, 1, 2, "
        "3 "
        "of geometry-checks/mirrored.ini and 0, 1, 2, 3 of geometry-checks/handed.ini lie at the same "
        "distances (at most 0.00 mm apart: fiducial2-fiducial3 52.20 mm against fiducial2-fiducial3 52.20 "
        "mm) but no rotation maps one onto the other\n"
        "geometry-checks/symmetric.ini is symmetric: its fiducials 0, 1, 2, 3 match themselves as 1, 0, 3, 2 "
        "(distances at most 0.00 mm apart: fiducial2-fiducial3 80.00 mm against fiducial3-fiducial2 80.00 "
        "mm), so its pose can flip\n")
        << r;
    EXPECT_EQ(r.err, "") << "the plugin's warnings are printed once, by the command";

    // Nearly equal markers (the default tolerance is checked at addGeometry): at a tighter tolerance
    // the three fiducials they share exactly still.
    r = checkGeometry({"--tolerance", "0.1", "status/geometry1104.ini", "status/geometry1105.ini"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_EQ(r.out,
              "status/geometry1105.ini and status/geometry1104.ini could be confused: fiducials 0, 1, 2 of "
              "status/geometry1105.ini lie at the distances of fiducials 0, 1, 2 of status/geometry1104.ini "
              "(at most 0.00 mm apart: fiducial1-fiducial2 67.08 mm against fiducial1-fiducial2 67.08 mm; "
              "Distance matching tolerance 0.10 mm)\n")
        << r;
}

TEST(CheckGeometryCommand, ExampleMarkersPassAndBadInputIsNamed) {
    ProcessResult r = checkGeometry({":/markers/geometry1000.ini", ":/markers/geometry1001.ini"});
    EXPECT_EQ(r.exitCode, 0) << r;
    EXPECT_EQ(r.out, "No ambiguity found in 2 geometry file(s) (Distance matching tolerance 1.00 mm)\n") << r;

    r = checkGeometry({"geometry-checks/missing.ini", "status/geometry1104.ini", "status/geometry1104.ini"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_EQ(r.err,
              "kestrion check-geometry: geometry file geometry-checks/missing.ini could not be loaded\n"
              "kestrion check-geometry: geometry file status/geometry1104.ini could not be loaded: its "
              "instrument id atracsys-1104 is that of the geometry loaded from status/geometry1104.ini\n")
        << r;

    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
        {{}, "kestrion check-geometry: no geometry file given (see kestrion check-geometry --help)\n"},
        {{"--tolerance", "-1", "a.ini"},
         "kestrion check-geometry: --tolerance takes a positive number of millimetres, not '-1' (see "
         "kestrion "
         "check-geometry --help)\n"},
        {{"--mirror", "a.ini"},
         "kestrion check-geometry: unknown option '--mirror' (see kestrion check-geometry "
         "--help)\n"},
    };
    for (const auto& [arguments, message] : bad) {
        r = checkGeometry(arguments);
        EXPECT_EQ(r.exitCode, 2) << r;
        EXPECT_EQ(r.err, message) << r;
    }
}

// What makes the camera refuse a file, or tracking warn about it, is said in tracking's words,
// and makes the check fail.
TEST(CheckGeometryCommand, SaysWhatTrackingWouldOfEachFile) {
    const struct {
        const char* file;
        std::string line;
    } rows[] = {
        {"geometry-checks/two-fiducials.ini",
         "geometry-checks/two-fiducials.ini: geometry 1310 has 2 fiducials; the camera needs at least 3 and "
         "refuses it\n"},
        {"geometry-checks/bad-numbers.ini",
         "geometry-checks/bad-numbers.ini: the value \"12OO\" of key \"id\" in section \"geometry\" is not a "
         "number; it is read as 12\n"
         "geometry-checks/bad-numbers.ini: the value \"4,5\" of key \"x\" in section \"fiducial1\" is not a "
         "number; it is read as 4\n"},
        {"geometry-checks/one-point.ini", "geometry-checks/one-point.ini: all 3 fiducials of geometry 1320 "
                                          "are at one point; the camera cannot "
                                          "find its distances\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        const ProcessResult r = checkGeometry({row.file});
        EXPECT_EQ(r.exitCode, 1) << r;
        EXPECT_EQ(r.out.rfind(row.line, 0), 0u) << r; // first (the ambiguity checks may add more)
        EXPECT_EQ(r.err, "") << r;
        // `kestrion track` gives the same words when it loads the file.
        const ProcessResult tracked =
            runProcess(KESTRION_APP, {"track", "--geometry", row.file, "--frames", "1"},
                       {{"KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER}}, DataDir);
        std::istringstream lines(row.line);
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(tracked.errHas("AtracsysTracking: " + DataDir + "/" + line + "\n")) << line << "\n"
                                                                                            << tracked;
    }
}
