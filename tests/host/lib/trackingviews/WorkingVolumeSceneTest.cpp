// What the 3D view draws for a frame: the camera model's volume, tracked instruments placed by
// their pose, tips and raw fiducials.

#include "host/lib/trackingviews/WorkingVolumeScene.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/WorkingVolume.h"

#include <Eigen/Geometry>

#include <gtest/gtest.h>

using namespace Kestrion;

namespace {

std::vector<Eigen::Vector3f> positions(const std::vector<WorkingVolumeScene::Vertex>& vertices,
                                       const Eigen::Vector3f& colour) {
    std::vector<Eigen::Vector3f> result;
    for (const auto& v : vertices)
        if (v.colour == colour)
            result.push_back(v.position);
    return result;
}

} // namespace

TEST(WorkingVolumeScene, PlacesTrackedMarkersByTheirPoseWithTipsAndRawFiducials) {
    WorkingVolumeScene scene;
    scene.build(nullptr);
    const std::size_t cameraLines = scene.lines().size();
    EXPECT_EQ(cameraLines, 24u); // the camera's box
    scene.setVolume(WorkingVolume{200.0, 1400.0, 0.5, 0.25});
    scene.build(nullptr);
    EXPECT_EQ(positions(scene.lines(), WorkingVolumeScene::VolumeColour).size(), 24u); // 12 edges
    EXPECT_TRUE(scene.points().empty());

    TrackingInstrument tracked(TrackerID("atracsys-1000", "pointer"));
    tracked.quality = 0.9;
    tracked.matrix.block<3, 3>(0, 0) =
        Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitZ()).toRotationMatrix();
    tracked.matrix.block<3, 1>(0, 3) = Eigen::Vector3d(10, 20, 800);
    TrackingInstrument lost(TrackerID("atracsys-1001", "reference")); // quality 0
    TrackingInstrument noGeometry(TrackerID("atracsys-1002", "probe"));
    noGeometry.quality = 0.5;
    noGeometry.matrix.block<3, 1>(0, 3) = Eigen::Vector3d(-50, 0, 600);
    TrackingStreamData frame(nullptr, {tracked, lost, noGeometry}, 1, 1);
    auto tips = std::make_shared<InstrumentTipData>();
    tips->entries().push_back({"atracsys-1000", {0, 0, -100}, {10, 20, 700}});
    frame.addComponent(tips);
    auto raw = std::make_shared<TrackingInstrumentFiducialsData>();
    raw->addFiducial({1, 2, 3}, 0, 0, 1.0, 0.1, 0.1, 10, 10);
    frame.addComponent(raw);
    scene.setGeometry("atracsys-1000", {{0, 0, 0}, {30, 0, 0}});
    scene.setGeometry("atracsys-1001", {{0, 0, 0}});
    scene.build(&frame);

    EXPECT_EQ(scene.instrumentsDrawn(), 2u);
    // The geometry turned by 90 degrees about z: (30, 0, 0) goes to (0, 30, 0) from the origin.
    EXPECT_EQ(positions(scene.points(), WorkingVolumeScene::MarkerColour),
              (std::vector<Eigen::Vector3f>{{10, 20, 800}, {10, 50, 800}, {-50, 0, 600}}));
    EXPECT_EQ(positions(scene.points(), WorkingVolumeScene::TipColour),
              (std::vector<Eigen::Vector3f>{{10, 20, 700}}));
    EXPECT_EQ(positions(scene.rawPoints(), WorkingVolumeScene::RawFiducialColour),
              (std::vector<Eigen::Vector3f>{{1, 2, 3}}));
    // The x axis (red) of the turned marker points along the camera's y.
    const auto red = positions(scene.lines(), Eigen::Vector3f(1, 0, 0));
    ASSERT_EQ(red.size(), 4u);
    EXPECT_TRUE(red[1].isApprox(Eigen::Vector3f(10, 20 + WorkingVolumeScene::AxisLengthMM, 800)));

    // The stream's status decides over the quality.
    auto status = std::make_shared<InstrumentStatusData>();
    status->entries().push_back({"atracsys-1000", InstrumentStatusData::State::Unmatched, "", 0.0, 2, 4});
    frame.addComponent(status);
    scene.build(&frame);
    EXPECT_EQ(scene.instrumentsDrawn(), 1u);

    // The last frame of a stream that no longer delivers: what it tracked is drawn as lost, at its
    // last place, without axes, tips or raw fiducials.
    scene.build(&frame, false);
    EXPECT_EQ(scene.instrumentsDrawn(), 0u);
    EXPECT_EQ(scene.instrumentsLost(), 1u);
    EXPECT_TRUE(positions(scene.points(), WorkingVolumeScene::MarkerColour).empty());
    EXPECT_EQ(positions(scene.points(), WorkingVolumeScene::LostColour),
              (std::vector<Eigen::Vector3f>{{-50, 0, 600}}));
    EXPECT_TRUE(scene.rawPoints().empty());
    EXPECT_EQ(scene.lines().size(), cameraLines + 24u + 2u) << "the camera, its volume and its axis alone";
}
