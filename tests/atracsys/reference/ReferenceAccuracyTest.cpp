// Poses in a reference marker's frame, measured by the simulated camera against the scene's true
// poses: accurate while both markers are seen, and absent in every frame where either is hidden.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/stream/state/InstrumentTracking.h"
#include "host/stream/state/ReferencePoseData.h"

#include <Eigen/Geometry>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

namespace {

Eigen::Matrix4d truePose(const ftkSimMarkerTruth& marker) {
    Eigen::Matrix4d pose = Eigen::Matrix4d::Identity();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            pose(r, c) = marker.rotation[r][c];
        pose(r, 3) = marker.translationMM[r];
    }
    return pose;
}

const ftkSimMarkerTruth* markerTruth(const ftkSimFrameTruth& truth, std::uint32_t geometryId) {
    for (std::uint32_t i = 0; i < truth.markersCount; ++i)
        if (truth.markers[i].geometryId == geometryId)
            return &truth.markers[i];
    return nullptr;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

} // namespace

TEST(ReferenceAccuracy, ToolInTheReferenceFrameMatchesTheTruthAndVanishesWhenEitherIsHidden) {
    SceneGuard scene(dataFile("reference.json"));
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.openWithMarkers()); // tool atracsys-1000, reference atracsys-1001
    const std::string referenceId = "atracsys-1001";
    const std::string toolId = "atracsys-1000";

    std::vector<double> positionErrors;
    std::vector<double> angleErrorsDeg;
    std::size_t hiddenFrames = 0;
    for (int frame = 0; frame < 360; ++frame) {
        stream.round();
        const auto tracking = trackingOf(recorder.lastData());
        const auto truth = stream.truth();
        ASSERT_TRUE(tracking && truth) << "frame " << frame;
        const ReferencePoseData poses = ReferencePoseData::compute(*tracking, referenceId);
        const ftkSimMarkerTruth* reference = markerTruth(*truth, 1001);
        const ftkSimMarkerTruth* tool = markerTruth(*truth, 1000);
        ASSERT_TRUE(reference && tool);
        const bool bothSeen = reference->detectedMask == 0xF && tool->detectedMask == 0xF;
        const auto* entry = poses.find(toolId);
        if (reference->detectedMask == 0 || tool->detectedMask == 0) {
            ++hiddenFrames;
            EXPECT_EQ(entry, nullptr) << "frame " << frame << ": a relative pose while a marker is hidden";
            continue;
        }
        if (!bothSeen || !entry)
            continue;
        const Eigen::Matrix4d expected = truePose(*reference).inverse() * truePose(*tool);
        positionErrors.push_back(
            (entry->poseInReference.block<3, 1>(0, 3) - expected.block<3, 1>(0, 3)).norm());
        const Eigen::Matrix3d difference =
            expected.block<3, 3>(0, 0).transpose() * entry->poseInReference.block<3, 3>(0, 0);
        angleErrorsDeg.push_back(Eigen::AngleAxisd(difference).angle() * 180.0 / M_PI);
    }
    // 54 Hz: about one second hidden for each marker.
    EXPECT_GT(hiddenFrames, 90u);
    ASSERT_GT(positionErrors.size(), 150u);
    EXPECT_LT(median(positionErrors), 0.2);
    EXPECT_LT(median(angleErrorsDeg), 0.1);
}
