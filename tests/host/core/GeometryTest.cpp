#include "host/core/Geometry.h"
#include "tests/support/LogCapture.h"

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

using namespace Kestrion;
using Points = std::vector<Eigen::Vector3d>;

namespace {

Eigen::Matrix3d rowsOf(const std::array<Eigen::Vector3d, 3>& axes) {
    Eigen::Matrix3d r;
    for (int i = 0; i < 3; ++i)
        r.row(i) = axes[static_cast<std::size_t>(i)].transpose();
    return r;
}

// A box grid of 3 x 3 x 3 points with spreads 40, 12 and 3 along x, y, z, plus six points that
// skew it towards +x and +y, rotated by `rotation` and moved to `centre`.
Points anisotropicCloud(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& centre) {
    Points local;
    for (int i = -1; i <= 1; ++i)
        for (int j = -1; j <= 1; ++j)
            for (int k = -1; k <= 1; ++k)
                local.emplace_back(40.0 * i, 12.0 * j, 3.0 * k);
    // Skew towards +x and +y without moving the centroid or correlating the coordinates.
    for (double s : {60.0, -30.0, -30.0}) {
        local.emplace_back(s, 0, 0);
        local.emplace_back(0, s / 3.0, 0);
    }
    for (auto& p : local)
        p = rotation * p + centre;
    return local;
}

} // namespace

TEST(FitAxesPCA, AnisotropicCloudGivesOrderedRightHandedAxesWithPositiveSkew) {
    const Eigen::Matrix3d rotation =
        Eigen::AngleAxisd(0.8, Eigen::Vector3d(1, -2, 0.5).normalized()).toRotationMatrix();
    const Eigen::Vector3d centre(100, -40, 900);
    const Points points = anisotropicCloud(rotation, centre);

    Eigen::Vector3d centroid;
    std::array<Eigen::Vector3d, 3> axes;
    ASSERT_TRUE(Geometry::fitAxesPCA(points, centroid, axes));
    EXPECT_TRUE(centroid.isApprox(centre, 1e-12)); // the cloud is balanced around its centre
    // The cloud is skewed towards +x, +y in its own frame, so the first two axes are the
    // rotated x and y, not their opposites; the third follows by handedness.
    EXPECT_NEAR(axes[0].dot(rotation.col(0)), 1.0, 1e-6);
    EXPECT_NEAR(axes[1].dot(rotation.col(1)), 1.0, 1e-6);
    EXPECT_NEAR(axes[2].dot(rotation.col(2)), 1.0, 1e-6);
}

TEST(FitAxesPCA, SymmetricPlanarMarkerPutsTheFirstPointOnThePositiveSide) {
    // A rectangle of four fiducials (symmetric: no skew), first point at (-30, -10).
    for (const Points& points : {Points{{-30, -10, 5}, {30, -10, 5}, {30, 10, 5}, {-30, 10, 5}},
                                 Points{{30, 10, 5}, {-30, 10, 5}, {-30, -10, 5}, {30, -10, 5}}}) {
        Eigen::Vector3d centroid;
        std::array<Eigen::Vector3d, 3> axes;
        ASSERT_TRUE(Geometry::fitAxesPCA(points, centroid, axes));
        const Eigen::Vector3d first = rowsOf(axes) * (points[0] - centroid);
        EXPECT_TRUE(first.isApprox(Eigen::Vector3d(30, 10, 0), 1e-9)) << first;
        EXPECT_NEAR(axes[2].dot(axes[0].cross(axes[1])), 1.0, 1e-12);
    }
}

TEST(FitAxesPCA, DegenerateSetsFailClearlyUnlessCollinearIsAllowed) {
    TestSupport::LogCapture capture;
    const Eigen::Vector3d untouched(1, 2, 3);
    Eigen::Vector3d centroid = untouched;
    std::array<Eigen::Vector3d, 3> axes;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Points line = {{10, 0, 0}, {12, 2, 1}, {14, 4, 2}, {20, 10, 5}}; // skewed towards the last point
    EXPECT_FALSE(Geometry::fitAxesPCA({{0, 0, 0}, {1, 0, 0}}, centroid, axes));
    EXPECT_FALSE(Geometry::fitAxesPCA({{7, 8, 9}, {7, 8, 9}, {7, 8, 9}}, centroid, axes, true));
    EXPECT_FALSE(Geometry::fitAxesPCA({{0, 0, 0}, {1, 0, 0}, {0, nan, 0}}, centroid, axes));
    EXPECT_FALSE(Geometry::fitAxesPCA(line, centroid, axes));
    EXPECT_TRUE(
        capture->contains(Log::Warning, "Geometry",
                          "fitAxesPCA: the points are collinear, the second and third axes are undefined"));
    EXPECT_EQ(capture->size(), 4u) << capture->dump();
    EXPECT_EQ(centroid, untouched);

    ASSERT_TRUE(Geometry::fitAxesPCA(line, centroid, axes, true));
    EXPECT_NEAR(axes[0].dot(Eigen::Vector3d(2, 2, 1) / 3.0), 1.0, 1e-12); // along the line, towards the skew
    const Eigen::Matrix3d r = rowsOf(axes);
    EXPECT_TRUE((r * r.transpose()).isApprox(Eigen::Matrix3d::Identity(), 1e-12));
    EXPECT_NEAR(r.determinant(), 1.0, 1e-12);
}
