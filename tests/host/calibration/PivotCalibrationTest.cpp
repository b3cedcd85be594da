// The pivot solve on synthetic poses: a tool whose tip rests at a known point while the marker
// turns about it, with noise and outliers, and the recordings that cannot determine a tip.

#include "host/calibration/PivotCalibration.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <Eigen/Geometry>

#include <cmath>
#include <random>

using namespace Kestrion;
using Outcome = PivotCalibration::Outcome;

namespace {

constexpr double Pi = 3.14159265358979323846;
const Eigen::Vector3d Tip(4.0, -7.5, -152.0);
const Eigen::Vector3d Pivot(35.0, -20.0, 820.0);

Eigen::Matrix4d pose(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& translation) {
    Eigen::Matrix4d m = Eigen::Matrix4d::Identity();
    m.topLeftCorner<3, 3>() = rotation;
    m.topRightCorner<3, 1>() = translation;
    return m;
}

/// The tool tilted by `coneDeg` about the tip, swept around the cone over `n` frames and turned to
/// and fro about its own axis by `spinDeg`, with the tip's position disturbed by `noiseMM` per
/// coordinate.
std::vector<Eigen::Matrix4d> pivoting(int n, double coneDeg, double noiseMM, double spinDeg = 0.0) {
    std::mt19937 random(3);
    std::normal_distribution<double> noise(0.0, noiseMM);
    std::vector<Eigen::Matrix4d> poses;
    for (int i = 0; i < n; ++i) {
        const double phase = 2.0 * Pi * i / n;
        const Eigen::Vector3d tiltAxis(std::cos(phase), std::sin(phase), 0.0);
        const Eigen::Matrix3d rotation =
            (Eigen::AngleAxisd(coneDeg * Pi / 180.0, tiltAxis) *
             Eigen::AngleAxisd(spinDeg * Pi / 180.0 * std::sin(phase), Eigen::Vector3d::UnitZ()))
                .toRotationMatrix();
        const Eigen::Vector3d where = Pivot + Eigen::Vector3d(noise(random), noise(random), noise(random));
        poses.push_back(pose(rotation, where - rotation * Tip));
    }
    return poses;
}

} // namespace

TEST(PivotCalibration, FindsTheTipAndPivotPointAndDropsOutliers) {
    TestSupport::LogCapture capture;
    PivotCalibration calibration;
    // Noise of 0.1 mm per coordinate gives an RMS distance of sqrt(3) * 0.1 mm, a little less
    // for the fit's own six unknowns.
    auto poses = pivoting(400, 25.0, 0.1, 10.0);
    auto result = calibration.solve(poses);
    ASSERT_TRUE(result.solved()) << result.refusal;
    EXPECT_LT((result.tipInMarker - Tip).norm(), 0.05);
    EXPECT_LT((result.pivotInCamera - Pivot).norm(), 0.05);
    EXPECT_NEAR(result.rmsMM, std::sqrt(3.0) * 0.1, 0.02);
    EXPECT_GT(result.spreadDeg, 50.0) << "opposite sides of a 25 degree cone, turned";
    EXPECT_NEAR(PivotCalibration::angularSpreadDeg(pivoting(400, 25.0, 0.0)), 50.0, 1e-6);
    EXPECT_EQ(result.usedFrames + result.rejectedFrames, 400u);
    EXPECT_LE(result.rejectedFrames, 4u) << "noise alone rejects next to nothing";

    // Frames where the tip slipped out of its divot by several millimetres are dropped and counted.
    const std::size_t cleanRejected = result.rejectedFrames;
    for (int i = 0; i < 400; i += 40)
        poses[static_cast<std::size_t>(i)](0, 3) += 6.0 + i / 100.0;
    result = calibration.solve(poses);
    ASSERT_TRUE(result.solved()) << result.refusal;
    EXPECT_GE(result.rejectedFrames, cleanRejected + 10);
    EXPECT_LE(result.rejectedFrames, cleanRejected + 12);
    EXPECT_LT((result.tipInMarker - Tip).norm(), 0.05);
    EXPECT_LT(result.rmsMM, 0.2);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(PivotCalibration, RecordingsThatCannotDetermineATipAreRefusedWithTheReason) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    const Eigen::Matrix3d still =
        Eigen::AngleAxisd(0.4, Eigen::Vector3d(1, 2, 3).normalized()).toRotationMatrix();
    std::vector<Eigen::Matrix4d> resting, sliding, swinging, waving;
    for (int i = 0; i < 100; ++i) {
        const double t = i / 100.0;
        resting.push_back(pose(still, Pivot + 0.05 * Eigen::Vector3d(uniform(random), uniform(random), 0)));
        sliding.push_back(pose(still, Pivot + Eigen::Vector3d(80.0 * t, -30.0 * t, 10.0 * t)));
        // Swung to and fro in one plane: the tip along the swing's axis stays unknown.
        const Eigen::Matrix3d swing =
            Eigen::AngleAxisd((60.0 * t - 30.0) * Pi / 180.0, Eigen::Vector3d::UnitX()).toRotationMatrix();
        swinging.push_back(pose(swing, Pivot - swing * Tip));
        // Turned and carried about freely: no point stays fixed.
        const Eigen::Matrix3d turn =
            Eigen::AngleAxisd(0.6 * uniform(random),
                              Eigen::Vector3d(uniform(random), uniform(random), 1).normalized())
                .toRotationMatrix();
        waving.push_back(
            pose(turn, Pivot + 40.0 * Eigen::Vector3d(uniform(random), uniform(random), uniform(random))));
    }
    const std::string prefix = "Pivot calibration refused: ";
    const struct {
        std::vector<Eigen::Matrix4d> poses;
        Outcome outcome;
        std::string reason;
    } cases[] = {
        {pivoting(19, 25.0, 0.0), Outcome::TooFewFrames, "19 frames recorded, at least 20 are needed"},
        {resting, Outcome::NeverMoved,
         "the tool never moved: its orientations stay within 0.0 degrees and its positions within 0.1 mm"},
        {sliding, Outcome::Translated,
         "the tool was moved without turning about a fixed tip: its positions spread over 42.6 mm while its "
         "orientations stay within 0.0 degrees"},
        {pivoting(100, 6.0, 0.0), Outcome::SmallSpread,
         "the orientations spread over only 12.0 degrees, at least 20 are needed: tilt the tool further "
         "about "
         "its tip"},
        {swinging, Outcome::SingleAxis,
         "the tool turned about one axis only, which leaves the tip along that axis undetermined: tilt it in "
         "more than one direction"},
    };
    for (const auto& c : cases) {
        TestSupport::LogCapture capture;
        const auto result = PivotCalibration().solve(c.poses);
        EXPECT_EQ(result.outcome, c.outcome) << c.reason;
        EXPECT_EQ(result.refusal, c.reason);
        EXPECT_EQ(capture->count(Log::Warning, "PivotCalibration", prefix + c.reason), 1u) << capture->dump();
        EXPECT_EQ(capture->size(), 1u) << capture->dump();
    }
    const auto waved = PivotCalibration().solve(waving);
    EXPECT_EQ(waved.outcome, Outcome::NoFixedTip);
    EXPECT_EQ(waved.refusal.rfind("no fixed tip: ", 0), 0u) << waved.refusal;
}
