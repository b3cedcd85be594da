// Geometries and marker matching: registration, symmetric layouts, tolerance, occlusions.

#include "tests/simulator/SimulatorTestSupport.h"

#include <cmath>
#include <map>

using namespace Kestrion::SimulatorTest;

namespace {

const Points Square = {{0, 0, 0}, {60, 0, 0}, {60, 60, 0}, {0, 60, 0}};

} // namespace

TEST(Matching, ASymmetricLayoutIsFoundButItsPoseIsOnlyKnownUpToItsSymmetry) {
    SceneGuard scene(R"({"seed": 5, "markers": [
        {"geometryId": 1100, "fiducials": [[0,0,0],[31,82,0],[96,-10,0],[61,46,0]],
         "motion": {"type": "sinusoid", "position": [-60, -40, 800], "amplitudeMM": [30, 10, 60], "periodS": 4,
                    "amplitudeDeg": [10, 15, 20]}},
        {"geometryId": 1200, "fiducials": [[0,0,0],[60,0,0],[60,60,0],[0,60,0]],
         "motion": {"type": "sinusoid", "position": [60, 60, 900], "amplitudeMM": [20, 10, 40], "periodS": 5,
                    "amplitudeDeg": [10, 10, 30]}}]})");
    Camera camera;
    ASSERT_EQ(camera.setGeometry(makeGeometry(1100, Marker1000)), ftkError::FTK_OK);
    ASSERT_EQ(camera.setGeometry(makeGeometry(1200, Square)), ftkError::FTK_OK);
    int flipped = 0;
    for (int frame = 0; frame < 200; ++frame) {
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
        const auto truth = camera.truth();
        const ftkMarker* a = findMarker(*camera.frame, 1100);
        const ftkMarker* s = findMarker(*camera.frame, 1200);
        ASSERT_NE(a, nullptr);
        ASSERT_NE(s, nullptr);
        EXPECT_LT(rotationErrorDeg(*a, *findTruth(*truth, 1100)), 1.0);
        const ftkSimMarkerTruth& t = *findTruth(*truth, 1200);
        // Whatever symmetric equivalent was chosen, it puts the geometry onto the true fiducials.
        EXPECT_LT(s->registrationErrorMM, 0.5f);
        Eigen::Matrix3d r;
        for (int k = 0; k < 9; ++k) {
            r(k / 3, k % 3) = s->rotation[k / 3][k % 3];
        }
        for (int i = 0; i < 4; ++i) {
            const Eigen::Vector3d placed =
                r * Eigen::Vector3d(Square[i][0], Square[i][1], Square[i][2]) +
                Eigen::Vector3d(s->translationMM[0], s->translationMM[1], s->translationMM[2]);
            double nearest = 1e9;
            for (uint32 k = 0; k < t.fiducialsCount; ++k) {
                const double* f = t.fiducialsMM[k];
                nearest = std::min(nearest, (placed - Eigen::Vector3d(f[0], f[1], f[2])).norm());
            }
            EXPECT_LT(nearest, 1.0);
        }
        if (rotationErrorDeg(*s, t) > 45.0) {
            ++flipped;
        }
    }
    // The noise decides between the equally good assignments: the pose flips from frame to frame.
    EXPECT_GT(flipped, 20);
    EXPECT_LT(flipped, 200);
}

TEST(Matching, TheDistanceToleranceOptionDecidesWhetherAWornMarkerStillMatches) {
    // Fiducial 3 sits 1.6 mm away from where the geometry file says.
    SceneGuard scene(R"({"seed": 9, "markers": [{"geometryId": 1300,
        "fiducials": [[0,0,0],[31,82,0],[96,-10,0],[61,46,0]], "fiducialErrorsMM": [[0,0,0],[0,0,0],[0,0,0],[1.6,0,0]],
        "motion": {"type": "static", "position": [0, 0, 1200], "rotationDeg": [0, 60, 0]}}]})");
    Camera camera;
    ASSERT_EQ(camera.setGeometry(makeGeometry(1300, Marker1000)), ftkError::FTK_OK);
    const uint32 tolerance = camera.option("Distance matching tolerance");
    const auto masks = [&](float value) {
        EXPECT_EQ(camera.setFloat(tolerance, value), ftkError::FTK_OK);
        std::map<uint32, int> count;
        for (int frame = 0; frame < 100; ++frame) {
            EXPECT_EQ(camera.fetch(), ftkError::FTK_OK);
            const ftkMarker* m = findMarker(*camera.frame, 1300);
            ++count[m ? m->geometryPresenceMask : 0u];
        }
        return count;
    };
    // Loose: all four fiducials, with a visible registration error.
    EXPECT_GE(masks(2.5f)[0xF], 95);
    EXPECT_GT(camera.frame->markers[0].registrationErrorMM, 0.4f);
    // The plugin's 1 mm: the worn fiducial is left out, the other three still make the marker.
    EXPECT_GE(masks(1.0f)[0x7], 95);
    // Tighter than the measurement noise: the marker is mostly lost.
    EXPECT_GE(masks(0.1f)[0u], 50);
}

TEST(Matching, OccludedFiducialsThinTheMarkerOutUntilItIsLostAndItsTrackingIdRenews) {
    // 54 Hz: frame n is at n / 54 s. Fiducial 2 is hidden from the left camera during [1, 2) s,
    // fiducials 0 and 1 from both cameras during [3, 4) s.
    SceneGuard scene(
        R"({"markers": [{"geometryId": 1400, "fiducials": [[0,0,0],[31,82,0],[96,-10,0],[61,46,0]],
        "motion": {"type": "static", "position": [20, 0, 800]},
        "occlusions": [{"fromS": 1, "toS": 2, "fiducials": [2], "camera": "left"},
                       {"fromS": 3, "toS": 4, "fiducials": [0, 1]}]}],
        "strays": [[-120, 60, 700], [150, -80, 900]]})");
    Camera camera;
    ASSERT_EQ(camera.setGeometry(makeGeometry(1400, Marker1000)), ftkError::FTK_OK);
    const auto fetchAfter = [&](uint32 skipped) {
        EXPECT_TRUE(skipped == 0 || ftkSimStep(camera.serial, skipped));
        EXPECT_EQ(camera.fetch(), ftkError::FTK_OK);
        return findMarker(*camera.frame, 1400);
    };
    ASSERT_NE(fetchAfter(0), nullptr); // t = 1/54 s
    const uint32 trackingId = camera.frame->markers[0].id;
    const ftkMarker* m = fetchAfter(0);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->id, trackingId) << "kept while continuously seen";
    EXPECT_EQ(m->geometryPresenceMask, 0xFu);
    EXPECT_EQ(+camera.frame->threeDFiducialsCount, 6u);
    EXPECT_LT(m->registrationErrorMM, 0.5f) << "no stray taken for a fiducial";

    m = fetchAfter(80); // t = 83/54 s = 1.54 s
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->geometryPresenceMask, 0xBu);
    EXPECT_EQ(m->fiducialCorresp[2], INVALID_ID);
    EXPECT_EQ(camera.frame->rawDataLeftCount + 1, +camera.frame->rawDataRightCount);
    EXPECT_EQ(camera.truth()->markers[0].detectedMask, 0xBu);

    EXPECT_EQ(fetchAfter(108), nullptr) << "two fiducials are not a marker"; // t = 3.56 s
    EXPECT_EQ(camera.truth()->markers[0].detectedMask, 0xCu);

    m = fetchAfter(30); // t = 223/54 s = 4.13 s
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->geometryPresenceMask, 0xFu);
    EXPECT_NE(m->id, trackingId) << "a marker found again is a new track";
}

TEST(Geometries, RegistrationAndRemovalFollowTheInterfaceRules) {
    SceneGuard scene;
    Camera camera;
    const Points six = {{0, 0, 0}, {50, 0, 0}, {0, 70, 0}, {40, 60, 10}, {90, 30, 0}, {-20, 40, 5}};
    ftkGeometry seven = makeGeometry(2003, six);
    seven.pointsCount = 7;
    ftkGeometry notANumber = makeGeometry(2004, six);
    notANumber.positions[2].y = std::nanf("");
    const std::pair<ftkGeometry, ftkError> rows[] = {
        {makeGeometry(2000, {six.begin(), six.begin() + 2}), ftkError::FTK_ERR_GEOM_PTS},
        {makeGeometry(2001, {six.begin(), six.begin() + 3}), ftkError::FTK_OK},
        {makeGeometry(2002, six), ftkError::FTK_OK},
        {seven, ftkError::FTK_ERR_GEOM_PTS},
        {notANumber, ftkError::FTK_ERR_GEOM_PTS},
        {makeGeometry(2001, six), ftkError::FTK_ERR_GEOM_REGISTERED},
    };
    for (const auto& [geometry, expected] : rows) {
        EXPECT_EQ(camera.setGeometry(geometry), expected) << geometry.geometryId;
    }
    EXPECT_NE(camera.errorText().find("FTK_ERR_GEOM_REGISTERED"), std::string::npos);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial, 2001), ftkError::FTK_OK);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial, 2001), ftkError::FTK_WAR_GEOM_ID);
    EXPECT_EQ(camera.setGeometry(makeGeometry(2001, six)), ftkError::FTK_OK)
        << "cleared ids can be used again";
    EXPECT_EQ(ftkSetGeometry(camera.lib, camera.serial, nullptr), ftkError::FTK_ERR_INV_PTR);
    EXPECT_EQ(ftkSetGeometry(camera.lib, camera.serial + 1, &seven), ftkError::FTK_ERR_INV_SN);
    EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial + 1, 2001), ftkError::FTK_ERR_INV_SN);

    // A removed geometry is no longer matched.
    camera.registerDefaultMarkers();
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_NE(findMarker(*camera.frame, 1000), nullptr);
    ASSERT_EQ(ftkClearGeometry(camera.lib, camera.serial, 1000), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(findMarker(*camera.frame, 1000), nullptr);
    EXPECT_NE(findMarker(*camera.frame, 1001), nullptr);
}
