// `kestrion check-geometry` as a user runs it: geometry files on disk and among the plugin's
// resources, checked through the plugin without opening the camera.

#include "tests/hardening/ProcessRun.h"

#include <gtest/gtest.h>

#include <map>
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
              "kestrion check-geometry: create: Instrument with ID atracsys-1104 already exists: two of "
              "the files have the same geometry id, so the camera would hold only the first\n")
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
