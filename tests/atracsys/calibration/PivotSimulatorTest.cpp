// Pivot calibration end to end on the simulated camera: the tracking stream's frames recorded
// under the recording rules and solved, against the simulator's truth of the tip.

#include "host/calibration/PivotCalibration.h"
#include "host/calibration/PivotRecording.h"
#include "tests/atracsys/stream/StreamTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

TEST(PivotSimulator, FiveHundredFramesOverAThirtyDegreeConeFindTheTip) {
    SceneGuard scene(KESTRION_TEST_DATA_DIR "/calibration/pivot.json");
    ProbedStream stream;
    Recorder recorder(stream);
    stream.setFiducialQueryMode(SpryTrack::AtracsysTrackingStream::MarkerFiducials);
    ASSERT_TRUE(stream.openWithMarkers());
    double tip[3], pivot[3];
    ASSERT_TRUE(ftkSimGetPivotTruth(stream.serialNumber(), 1000, tip, pivot));
    const Eigen::Vector3d trueTip(tip[0], tip[1], tip[2]), truePivot(pivot[0], pivot[1], pivot[2]);

    PivotRecording recording("atracsys-1000", 4, 500);
    PivotRecording other("atracsys-1001", 3, 0); // the wrong fiducial count: never complete
    recording.start();
    other.start();
    double simulatedSquares = 0.0; // where the measured poses put the true tip, from the pivot point
    for (int round = 0; recording.isRecording() && round < 2000; ++round) {
        stream.round();
        const auto tracking = trackingOf(recorder.lastData());
        ASSERT_TRUE(tracking);
        const std::size_t before = recording.acceptedFrames();
        recording.add(*tracking);
        other.add(*tracking);
        if (recording.acceptedFrames() > before) {
            const Eigen::Matrix4d& pose = tracking->instrument("atracsys-1000")->matrix;
            simulatedSquares +=
                (pose.topLeftCorner<3, 3>() * trueTip + pose.topRightCorner<3, 1>() - truePivot)
                    .squaredNorm();
        }
    }
    ASSERT_EQ(recording.acceptedFrames(), 500u);
    EXPECT_FALSE(recording.isRecording()) << "stops by itself after its frames";
    EXPECT_EQ(other.acceptedFrames(), 0u);
    EXPECT_GT(other.incompleteFrames(), 400u);

    const auto result = PivotCalibration().solve(recording.poses());
    ASSERT_TRUE(result.solved()) << result.refusal;
    EXPECT_LT((result.tipInMarker - trueTip).norm(), 0.25) << result.tipInMarker.transpose();
    EXPECT_LT((result.pivotInCamera - truePivot).norm(), 0.5) << result.pivotInCamera.transpose();
    const double simulatedRms = std::sqrt(simulatedSquares / 500.0);
    EXPECT_NEAR(result.rmsMM, simulatedRms, 0.3 * simulatedRms) << "simulated " << simulatedRms;
    EXPECT_NEAR(result.spreadDeg, 60.0, 3.0);
}
