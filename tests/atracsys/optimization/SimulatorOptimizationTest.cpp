// End to end on the simulated camera: a marker made 0.3 mm off its geometry file is recorded
// through the running tracking stream, and the refined geometry comes out closer to the true
// fiducials than the file.
#include "atracsys/optimization/AtracsysGeometryOptimizationAlgorithm.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "simulator/control/ftkSimulator.h"
#include "tests/atracsys/optimization/SyntheticMarker.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

namespace Kestrion {
namespace {

using namespace OptimizationTest;

const std::string kDataDir = KESTRION_TEST_DATA_DIR "/optimization";

// The true fiducials of marker 1300 in the scene: the file's positions plus the errors the scene
// gives them.
Points trueFiducials() {
    Points truth = asymmetricMarker();
    const Points errors{{0.25, -0.3, 0.2}, {-0.3, 0.2, 0.35}, {0.3, 0.25, -0.3}, {-0.2, -0.35, 0.3}};
    for (std::size_t i = 0; i < truth.size(); ++i)
        truth[i] += errors[i];
    return truth;
}

class SimulatedScene {
public:
    SimulatedScene() {
        ftkSimSetSteppedClock(true); // before the devices exist: they start at frame 0
        char error[512] = {};
        if (!ftkSimLoadSceneFile((kDataDir + "/manufacturing-error.json").c_str()) &&
            ftkSimGetLastError(error, sizeof error) > 0)
            ADD_FAILURE() << "scene refused: " << error;
    }
    ~SimulatedScene() {
        ftkSimSetSteppedClock(false);
        ftkSimResetScene();
    }
};

TEST(SimulatorOptimization, RefinedGeometryIsCloserToTheTruthThanTheFile) {
    TestSupport::LogCapture capture(Log::Warning);
    SimulatedScene scene;
    SpryTrack::AtracsysTrackingStream stream("Atracsys");
    stream.setFiducialQueryMode(AtracsysTrackingStreamBase::MarkerFiducials);
    ASSERT_TRUE(stream.addGeometry("marker", kDataDir + "/geometry1300.ini"));
    ASSERT_TRUE(stream.open()) << capture->dump();
    ASSERT_TRUE(stream.start()) << capture->dump();

    AtracsysGeometryOptimizationAlgorithm algo(&stream);
    algo.setGeometryId("atracsys-1300");
    algo.compute(); // records 500 frames from the stream's worker thread, then optimises
    stream.stop();
    stream.close();

    ASSERT_EQ(algo.status(), Algorithm::Success) << capture->dump();
    const Points result = algo.optimizedCoordinates();
    ASSERT_EQ(result.size(), 4u);
    const Points truth = trueFiducials();
    const double before = alignedRms(asymmetricMarker(), truth);
    const double after = alignedRms(result, truth);
    EXPECT_GT(before, 0.2);
    EXPECT_LT(after, before / 3.0) << "file " << before << " mm, refined " << after << " mm";
    // Kept in the file's frame: fiducial by fiducial next to the file's positions.
    EXPECT_LT(rms(result, asymmetricMarker()), 1.0);
    EXPECT_TRUE(
        capture->contains(Log::Warning, "OptimizeGeometryAlgorithm", "Optimize marker with 4 fiducials."));
}

} // namespace
} // namespace Kestrion
