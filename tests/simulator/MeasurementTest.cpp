// The measurement against the truth: fiducials, detections, marker poses, and the seed.

#include "tests/simulator/SimulatorTestSupport.h"

#include <cmath>
#include <map>
#include <set>

using namespace Kestrion::SimulatorTest;

namespace {

// spryTrack 180 preset: focal length 1200 px, baseline 180 mm, blob centre noise 0.03 px.
constexpr double FocalPx = 1200.0;
constexpr double BaselineMM = 180.0;
constexpr double PixelNoise = 0.03;

/// Depth standard deviation of a stereo pair: z^2 / (f B) times the disparity noise.
double depthSigma(double z) {
    return z * z / (FocalPx * BaselineMM) * PixelNoise * std::sqrt(2.0);
}

const char* StrayScene = R"({"seed": 3, "devices": [{"model": "spryTrack 180", "serial": 77}],
    "strays": [[-60, 20, 400], [40, -30, 400], [0, 0, 900], [80, 40, 900], [-100, 60, 1300], [60, -50, 1300]]})";

struct Accumulator {
    double sumZSquared = 0.0;
    double sumLateralSquared = 0.0;
    Eigen::Vector3d sum = Eigen::Vector3d::Zero();
    double worst = 0.0;
    int n = 0;
    void add(const Eigen::Vector3d& error) {
        worst = std::max(worst, error.norm());
        sumZSquared += error.z() * error.z();
        sumLateralSquared += error.x() * error.x() + error.y() * error.y();
        sum += error;
        ++n;
    }
    double rms() const { return std::sqrt((sumZSquared + sumLateralSquared) / n); }
    double zSigma() const { return std::sqrt(sumZSquared / n); }
    double lateralRms() const { return std::sqrt(sumLateralSquared / n); }
    Eigen::Vector3d bias() const { return sum / n; }
};

} // namespace

TEST(Measurement, TriangulatedFiducialsScatterAroundTheTruthAsTheStereoGeometryPredicts) {
    SceneGuard scene(StrayScene);
    Camera camera;
    Accumulator near;
    Accumulator mid;
    Accumulator far;
    double maxEpipolar = 0.0;
    double sumTriangulation = 0.0;
    int fiducials = 0;
    for (int frame = 0; frame < 400; ++frame) {
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
        const auto truth = camera.truth();
        ASSERT_EQ(+camera.frame->threeDFiducialsCount, 6u) << "every stray seen once, no ghost";
        ASSERT_EQ(camera.frame->rawDataLeftCount + camera.frame->rawDataRightCount, 12u);
        std::set<uint32> leftUsed;
        for (uint32 i = 0; i < camera.frame->threeDFiducialsCount; ++i) {
            const ftk3DFiducial& f = camera.frame->threeDFiducials[i];
            const Eigen::Vector3d p(f.positionMM.x, f.positionMM.y, f.positionMM.z);
            // The nearest true position is the one it measures (strays are > 50 mm apart).
            Eigen::Vector3d nearest = Eigen::Vector3d::Zero();
            double best = 1e9;
            for (uint32 s = 0; s < truth->straysCount; ++s) {
                const Eigen::Vector3d t(truth->straysMM[s][0], truth->straysMM[s][1], truth->straysMM[s][2]);
                if ((p - t).norm() < best) {
                    best = (p - t).norm();
                    nearest = t;
                }
            }
            ASSERT_LT(best, 3.0);
            Accumulator& bucket = nearest.z() < 500 ? near : (nearest.z() < 1000 ? mid : far);
            bucket.add(p - nearest);
            maxEpipolar = std::max<double>(maxEpipolar, f.epipolarErrorPixels);
            sumTriangulation += f.triangulationErrorMM;
            ++fiducials;
            EXPECT_TRUE(f.probability > 0.f && f.probability <= 1.f);
            // One left and one right blob each, of the sphere's apparent size (11.5 mm: about 34 px
            // wide at 400 mm, 11 px at 1300 mm); a disc of diameter w covers about pi w^2 / 4 pixels.
            ASSERT_TRUE(f.leftIndex < 6 && f.rightIndex < 6 && leftUsed.insert(f.leftIndex).second);
            const ftkRawData& blob = camera.frame->rawDataLeft[f.leftIndex];
            EXPECT_NEAR(+blob.width, FocalPx * 11.5 / f.positionMM.z, 2.0) << "at z " << f.positionMM.z;
            EXPECT_NEAR(blob.pixelsCount, M_PI * blob.width * blob.height / 4.0,
                        0.25 * M_PI * blob.width * blob.height / 4.0);
            EXPECT_EQ(uint32(blob.status) + uint32(f.status), 0u)
                << "no edge touched, inside the working volume";
        }
    }
    // The spread along the viewing direction follows z^2 / (f B) and dominates the lateral one.
    for (auto [bucket, z] : {std::pair{&near, 400.0}, {&mid, 900.0}, {&far, 1300.0}}) {
        EXPECT_NEAR(bucket->zSigma(), depthSigma(z), 0.35 * depthSigma(z)) << "at z " << z;
        EXPECT_LT(bucket->lateralRms(), bucket->zSigma()) << "at z " << z;
        EXPECT_LT(bucket->bias().norm(), 0.3 * depthSigma(z) + 0.01) << "at z " << z;
    }
    // Epipolar and triangulation errors are computed from the noisy detections: small, not zero.
    EXPECT_LT(maxEpipolar, 0.3);
    EXPECT_GT(sumTriangulation / fiducials, 0.001);
    EXPECT_LT(sumTriangulation / fiducials, 0.2);
}

TEST(Measurement, EstimatedPosesOfTheShippedMarkersStayWithinAFewSigmasOfTheTruth) {
    SceneGuard scene; // the default scene: markers 1000 and 1001 moving
    Camera camera;
    camera.registerDefaultMarkers();
    constexpr int Frames = 600; // 11 s of the 54 Hz camera
    std::map<uint32, Accumulator> translation;
    std::map<uint32, double> rotationSquared;
    for (int frame = 0; frame < Frames; ++frame) {
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
        const auto truth = camera.truth();
        for (uint32 id : {1000u, 1001u}) {
            const ftkMarker* m = findMarker(*camera.frame, id);
            const ftkSimMarkerTruth* t = findTruth(*truth, id);
            ASSERT_NE(t, nullptr);
            ASSERT_NE(m, nullptr) << "marker " << id << " lost at frame " << frame;
            EXPECT_EQ(m->geometryPresenceMask, 0xFu);
            EXPECT_LT(m->registrationErrorMM, 0.5f);
            const Eigen::Vector3d error =
                Eigen::Vector3f(m->translationMM[0], m->translationMM[1], m->translationMM[2])
                    .cast<double>() -
                Eigen::Map<const Eigen::Vector3d>(t->translationMM);
            translation[id].add(error);
            rotationSquared[id] += std::pow(rotationErrorDeg(*m, *t), 2);
            // Each correspondence points at the fiducial that measures that true fiducial.
            for (int i = 0; i < 4; ++i) {
                ASSERT_LT(m->fiducialCorresp[i], +camera.frame->threeDFiducialsCount);
                const ftk3DPoint& p = camera.frame->threeDFiducials[m->fiducialCorresp[i]].positionMM;
                EXPECT_LT(
                    (Eigen::Vector3d(p.x, p.y, p.z) - Eigen::Map<const Eigen::Vector3d>(t->fiducialsMM[i]))
                        .norm(),
                    1.5);
            }
            EXPECT_EQ(m->fiducialCorresp[4], INVALID_ID);
            EXPECT_EQ(m->fiducialCorresp[5], INVALID_ID);
        }
    }
    for (uint32 id : {1000u, 1001u}) {
        SCOPED_TRACE(id);
        EXPECT_LT(translation[id].rms(), 0.3);
        EXPECT_LT(translation[id].worst, 5 * 0.3);
        EXPECT_LT(translation[id].bias().norm(), 0.1);
        EXPECT_LT(std::sqrt(rotationSquared[id] / Frames), 0.35);
        // Real estimates, not copies of the truth.
        EXPECT_GT(translation[id].rms(), 0.01);
    }
}

TEST(Measurement, TheSameSeedGivesTheSameFramesAndAnotherSeedOthers) {
    // The bytes of 20 frames' fiducials and left detections, and of the last left image.
    const auto record = [](const std::string& seed) {
        std::string json = StrayScene;
        SceneGuard scene(json.replace(json.find("3,"), 1, seed));
        Camera camera(Camera::Capacities{true});
        EXPECT_EQ(camera.setInt(6003, 1), ftkError::FTK_OK);
        std::string bytes;
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(camera.fetch(), ftkError::FTK_OK);
            EXPECT_EQ(+camera.frame->threeDFiducialsCount, 6u);
            bytes.append(reinterpret_cast<const char*>(camera.frame->threeDFiducials),
                         6 * sizeof(ftk3DFiducial));
            bytes.append(reinterpret_cast<const char*>(camera.frame->rawDataLeft), 6 * sizeof(ftkRawData));
        }
        return bytes.append(reinterpret_cast<const char*>(camera.frame->imageLeftPixels), 2048 * 1088);
    };
    const std::string first = record("11");
    EXPECT_TRUE(first == record("11")) << "the same seed";
    EXPECT_TRUE(first != record("12")) << "another seed";
}
