#include "host/core/Math.h"
#include "tests/support/LogCapture.h"

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace Kestrion;
using Points = std::vector<Eigen::Vector3d>;

namespace {

// A 6-fiducial marker shape (millimetres), not planar.
Points markerShape() {
    return {{0, 0, 0}, {50, 0, 0}, {0, 80, 0}, {-40, 30, 10}, {25, 60, -15}, {70, 90, 5}};
}

Eigen::Matrix4d pose(double angle, const Eigen::Vector3d& axis, const Eigen::Vector3d& translation) {
    Eigen::Matrix4d t = Eigen::Matrix4d::Identity();
    t.topLeftCorner<3, 3>() = Eigen::AngleAxisd(angle, axis.normalized()).toRotationMatrix();
    t.topRightCorner<3, 1>() = translation;
    return t;
}

Points transformed(const Eigen::Matrix4d& t, const Points& points) {
    Points out;
    for (const auto& p : points)
        out.push_back(Math::transformPointAffine(t, p));
    return out;
}

double rotationDeterminant(const Eigen::Matrix4d& t) {
    return t.topLeftCorner<3, 3>().determinant();
}

} // namespace

TEST(FitRigidTransform, RecoversKnownPosesExactlyIncludingPlanarSets) {
    const Points shape = markerShape();
    const Points planar = {{0, 0, 0}, {60, 0, 0}, {60, 40, 0}, {0, 40, 0}};
    const Eigen::Matrix4d poses[] = {
        pose(0.0, Eigen::Vector3d::UnitZ(), {0, 0, 0}), pose(0.7, Eigen::Vector3d(1, 2, 3), {100, -50, 1200}),
        pose(M_PI - 1e-3, Eigen::Vector3d(0, 1, 0), {-3, 4, 5}), // near half turn
        pose(M_PI, Eigen::Vector3d(1, 0, 0), {10, 0, 0}),        // exact half turn
    };
    for (const auto& truth : poses) {
        for (const Points* from : {&shape, &planar}) {
            double rms = -1.0;
            const auto fit = Math::fitRigidTransform(*from, transformed(truth, *from), &rms);
            ASSERT_TRUE(fit.has_value());
            EXPECT_LT((*fit - truth).norm(), 1e-8) << *fit << "\n\n" << truth;
            EXPECT_NEAR(rms, 0.0, 1e-9);
        }
    }
}

TEST(FitRigidTransform, NoisyPointsGiveAnRmsOfTheNoiseLevel) {
    std::mt19937 rng(42);
    std::normal_distribution<double> noise(0.0, 0.05);
    const Points shape = markerShape();
    const Eigen::Matrix4d truth = pose(-1.1, Eigen::Vector3d(0.3, -1, 0.2), {20, 30, -900});
    Points measured = transformed(truth, shape);
    for (auto& p : measured)
        p += Eigen::Vector3d(noise(rng), noise(rng), noise(rng));
    double rms = 0.0;
    const auto fit = Math::fitRigidTransform(shape, measured, &rms);
    ASSERT_TRUE(fit.has_value());
    EXPECT_LT((fit->topRightCorner<3, 1>() - truth.topRightCorner<3, 1>()).norm(), 0.5);
    const Eigen::Matrix3d delta = fit->topLeftCorner<3, 3>().transpose() * truth.topLeftCorner<3, 3>();
    EXPECT_LT(Eigen::AngleAxisd(delta).angle(), 0.005);
    // Six points, six degrees of freedom: the residual is below the per-axis noise times sqrt(3).
    EXPECT_GT(rms, 0.01);
    EXPECT_LT(rms, 0.05 * std::sqrt(3.0));
}

TEST(FitRigidTransform, RmsHasTheExpectedValueAndIgnoresTheScaleOfTheWeights) {
    // A regular tetrahedron around the origin, every vertex pushed outwards by 0.3: by symmetry the
    // best rigid fit is the identity and every residual is 0.3.
    const Points tetra = {{1, 1, 1}, {1, -1, -1}, {-1, 1, -1}, {-1, -1, 1}};
    Points pushed;
    for (const auto& p : tetra)
        pushed.push_back(p + 0.3 * p.normalized());
    for (double w : {1.0, 7.0, 1e-6}) {
        double rms = 0.0;
        const auto fit = Math::fitRigidTransform(tetra, pushed, std::vector<double>(4, w), &rms);
        ASSERT_TRUE(fit.has_value());
        EXPECT_TRUE(fit->isApprox(Eigen::Matrix4d::Identity(), 1e-9)) << *fit;
        EXPECT_NEAR(rms, 0.3, 1e-12);
    }
}

TEST(FitRigidTransform, DownWeightedOutlierDoesNotPullTheFit) {
    const Points shape = markerShape();
    const Eigen::Matrix4d truth = pose(0.9, Eigen::Vector3d(-1, 0.5, 2), {-30, 70, 800});
    Points measured = transformed(truth, shape);
    measured[3] += Eigen::Vector3d(25, -40, 10); // a 48 mm outlier
    std::vector<double> weights(6, 1.0);
    weights[3] = 1e-9;
    double rms = 0.0;
    const auto fit = Math::fitRigidTransform(shape, measured, weights, &rms);
    ASSERT_TRUE(fit.has_value());
    EXPECT_LT((*fit - truth).norm(), 1e-5);
    EXPECT_LT(rms, 1e-3);
}

TEST(FitRigidTransform, MirroredPointsGetAProperRotationNotAReflection) {
    const Points shape = markerShape();
    Points mirrored;
    for (const auto& p : shape)
        mirrored.emplace_back(-p.x(), p.y(), p.z());
    double rms = 0.0;
    const auto fit = Math::fitRigidTransform(shape, mirrored, &rms);
    ASSERT_TRUE(fit.has_value());
    EXPECT_NEAR(rotationDeterminant(*fit), 1.0, 1e-12);
    // It is the best proper rotation: perturbed ones are all worse.
    for (double angle : {0.05, -0.05}) {
        const Eigen::Matrix4d nudged = *fit * pose(angle, Eigen::Vector3d(1, 2, -1), {0, 0, 0});
        double sum = 0.0;
        for (std::size_t i = 0; i < shape.size(); ++i)
            sum += (Math::transformPointAffine(nudged, shape[i]) - mirrored[i]).squaredNorm();
        EXPECT_GT(std::sqrt(sum / 6.0), rms);
    }
}

TEST(FitRigidTransform, DegenerateInputsFailWithAMessageAndLeaveRmsAlone) {
    TestSupport::LogCapture capture;
    const Points shape = markerShape();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    double rms = -7.0;

    struct Case {
        Points from, to;
        std::vector<double> weights;
        std::string message; // after "fitRigidTransform: "
    };
    const Points line = {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {-5, -5, -5}};
    const Points two(shape.begin(), shape.begin() + 2), four(shape.begin(), shape.begin() + 4);
    Points withNan = shape;
    withNan[2].y() = nan;
    const std::vector<double> ones(6, 1.0);
    const std::string badWeight = " (weights must be finite and >= 0)";
    const std::string notSpread = "points are collinear or coincident";
    const Case cases[] = {
        {shape, Points(shape.begin(), shape.end() - 1), ones, "point counts differ (6 source, 5 target)"},
        {shape, shape, std::vector<double>(5, 1.0), "5 weights for 6 points"},
        {two, two, {1.0, 1.0}, "at least 3 points are needed, got 2"},
        {shape, shape, std::vector<double>(6, 0.0), "all weights are zero"},
        {shape, shape, {1, 1, -0.5, 1, 1, 1}, "weight 2 is -0.5" + badWeight},
        {shape, shape, {1, 1, 1, nan, 1, 1}, "weight 3 is nan" + badWeight},
        {withNan, shape, ones, "point 2 has a non-finite coordinate"},
        {line, four, {1, 1, 1, 1}, "the source " + notSpread},
        {four, line, {1, 1, 1, 1}, "the target " + notSpread},
        // Only two points carry weight: as good as two points, so the rotation about them is free.
        {shape, shape, {1, 0, 0, 0, 1, 0}, "the source " + notSpread},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        capture->clear();
        EXPECT_FALSE(Math::fitRigidTransform(c.from, c.to, c.weights, &rms).has_value());
        EXPECT_TRUE(capture->contains(Log::Warning, "Math", "fitRigidTransform: " + c.message))
            << capture->dump();
        EXPECT_EQ(rms, -7.0);
    }
    // Nearly, but not exactly, collinear points still give a finite proper rotation.
    Points thin = line;
    thin[1].x() += 1e-3;
    const auto fit = Math::fitRigidTransform(thin, transformed(pose(0.3, {0, 0, 1}, {1, 2, 3}), thin), &rms);
    ASSERT_TRUE(fit.has_value());
    EXPECT_TRUE(fit->allFinite());
    EXPECT_NEAR(rotationDeterminant(*fit), 1.0, 1e-9);
}
