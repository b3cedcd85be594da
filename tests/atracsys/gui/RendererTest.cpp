// The camera view: two views in the display, one ellipse and cross per detected fiducial,
// updates from the acquisition thread drawn on the GUI thread.

#include "atracsys/gui/AtracsysRenderer.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/core/SharedImageSet.h"
#include "host/core/TypedImage.h"
#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/GlEllipse.h"
#include "host/lib/widgets/GlLine.h"
#include "host/lib/widgets/GlView.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/support/LogCapture.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <thread>
#include <tuple>

using namespace Kestrion;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

/// A camera part with n fiducials at (100 + 50 i, 200 + 10 i), of size (8 + i) x (6 + i).
AtracsysSingleCameraUpdate cameraWith(std::size_t n) {
    AtracsysSingleCameraUpdate camera;
    camera.image = std::make_shared<SharedImage>(
        std::make_shared<TypedImage<std::uint8_t>>(ImageDescriptor(PixelType::UInt8, 1, 640, 480)));
    for (std::size_t i = 0; i < n; ++i) {
        camera.fiducials.emplace_back(100.0 + 50.0 * i, 200.0 + 10.0 * i);
        camera.fiducialSizes.emplace_back(8.0 + i, 6.0 + i);
    }
    return camera;
}

AtracsysUpdate updateWith(std::size_t left, std::size_t right) {
    return {cameraWith(left), cameraWith(right)};
}

/// Emits the update on another thread, as the acquisition loop does, then lets the GUI thread
/// run the queued redraw.
void deliver(AtracsysTrackingStream& stream, AtracsysUpdate update) {
    std::thread acquisition([&] { stream.signalAtracsysUpdate.emitSignal(update); });
    acquisition.join();
    QCoreApplication::processEvents();
}

std::size_t objectCount(const AtracsysRenderer& renderer, std::size_t camera) {
    return renderer.cameraView(camera).view->objects().size();
}

void expectAnnotated(const AtracsysRenderer::AtracsysView& view, const AtracsysSingleCameraUpdate& camera) {
    ASSERT_EQ(view.ellipses.size(), camera.fiducials.size());
    ASSERT_EQ(view.horizontalLines.size(), camera.fiducials.size());
    ASSERT_EQ(view.verticalLines.size(), camera.fiducials.size());
    for (std::size_t i = 0; i < camera.fiducials.size(); ++i) {
        const Eigen::Vector3d p(camera.fiducials[i].x(), camera.fiducials[i].y(), 0);
        const Eigen::Vector3d s(camera.fiducialSizes[i].x(), camera.fiducialSizes[i].y(), 0);
        const Eigen::Vector3d armX(0.8 * s.x(), 0, 0), armY(0, 0.8 * s.y(), 0);
        const GlEllipse& ellipse = *view.ellipses[i];
        const GlLine& horizontal = *view.horizontalLines[i];
        const GlLine& vertical = *view.verticalLines[i];
        EXPECT_EQ(ellipse.corner1(), p - s / 2) << i;
        EXPECT_EQ(ellipse.corner2(), p + s / 2) << i;
        EXPECT_TRUE(horizontal.from().isApprox(p - armX) && horizontal.to().isApprox(p + armX)) << i;
        EXPECT_TRUE(vertical.from().isApprox(p - armY) && vertical.to().isApprox(p + armY)) << i;
        EXPECT_EQ(std::make_tuple(ellipse.lineWidth(), horizontal.lineWidth(), vertical.lineWidth()),
                  std::make_tuple(2.0, 1.5, 1.5));
        for (const GlObject* object :
             std::initializer_list<const GlObject*>{&ellipse, &horizontal, &vertical})
            EXPECT_TRUE(object->isVisible() && object->color() == Eigen::Vector4d(0.0, 1.0, 1.0, 1.0)) << i;
    }
}

class RendererTest : public ::testing::Test {
protected:
    GuiTest::Application application;
    AtracsysTrackingStream stream{"Atracsys Tracking Stream"};
    DisplayWidgetMulti display;
};

} // namespace

TEST_F(RendererTest, OwnsTwoViewsOfTheDisplayForItsLifetimeWhenThereIsRoom) {
    display.addView2D(); // a view of someone else stays
    {
        AtracsysRenderer renderer(stream, display);
        EXPECT_NE(renderer.metaObject()->indexOfSlot("updateAnnotations()"), -1) << "drawn from queued calls";
        ASSERT_EQ(display.viewCount(), 3);
        for (std::size_t camera = 0; camera < 2; ++camera) {
            const auto& view = renderer.cameraView(camera);
            ASSERT_TRUE(view.view && view.imageSet);
            EXPECT_EQ(display.views()[camera + 1], view.view.data());
            EXPECT_TRUE(view.view->fitToView());
            EXPECT_EQ(view.view->imageSet(), view.imageSet);
        }
        EXPECT_EQ(stream.signalAtracsysUpdate.numConnections(), 1u);
    }
    EXPECT_EQ(display.viewCount(), 1);
    EXPECT_EQ(stream.signalAtracsysUpdate.numConnections(), 0u);
    deliver(stream, updateWith(1, 1)); // reaches nobody: the renderer went

    TestSupport::LogCapture capture;
    display.setMaxViews(1);
    {
        AtracsysRenderer renderer(stream, display);
        EXPECT_TRUE(capture->contains(Log::Error, "AtracsysRenderer", "Could not create views"))
            << capture->dump();
        EXPECT_FALSE(renderer.cameraView(0).imageSet || renderer.cameraView(1).imageSet);
        deliver(stream, updateWith(2, 2)); // harmless
    }
    EXPECT_EQ(display.viewCount(), 1);
}

TEST_F(RendererTest, AnnotationsFollowTheFiducialsOfEachFrameThatHasTheirSizes) {
    TestSupport::LogCapture capture;
    AtracsysRenderer renderer(stream, display);

    AtracsysUpdate three = updateWith(3, 1);
    deliver(stream, three);
    EXPECT_EQ(objectCount(renderer, 0), 9u);
    EXPECT_EQ(objectCount(renderer, 1), 3u);
    expectAnnotated(renderer.cameraView(0), three.left);
    expectAnnotated(renderer.cameraView(1), three.right);
    EXPECT_EQ(renderer.cameraView(1).imageSet->get(0), three.right.image);

    // 3 -> 5: exactly two ellipses and four lines more; the existing ones are kept and moved.
    const GlEllipse* firstEllipse = renderer.cameraView(0).ellipses[0].get();
    AtracsysUpdate five = updateWith(5, 1);
    five.left.fiducials[0] = {321.5, 123.25};
    deliver(stream, five);
    EXPECT_EQ(objectCount(renderer, 0), 15u);
    EXPECT_EQ(renderer.cameraView(0).ellipses[0].get(), firstEllipse);
    expectAnnotated(renderer.cameraView(0), five.left);

    // 5 -> 2 removes three triples; no fiducial removes all of them.
    deliver(stream, updateWith(2, 0));
    EXPECT_EQ(objectCount(renderer, 0), 6u);
    EXPECT_EQ(objectCount(renderer, 1), 0u);
    expectAnnotated(renderer.cameraView(0), updateWith(2, 0).left);
    deliver(stream, updateWith(0, 0));
    EXPECT_EQ(objectCount(renderer, 0), 0u);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();

    // Positions without matching sizes: reported, that camera's marks neither moved nor shown.
    deliver(stream, updateWith(2, 2));
    AtracsysUpdate mismatch = updateWith(3, 2);
    mismatch.left.fiducialSizes.pop_back();
    mismatch.left.fiducials[0] = {10.0, 10.0};
    deliver(stream, mismatch);
    EXPECT_EQ(capture->count(Log::Error, "", "Size does not match!!!"), 1u) << capture->dump();
    const auto& left = renderer.cameraView(0);
    ASSERT_EQ(left.ellipses.size(), 3u);
    EXPECT_EQ(left.ellipses[0]->center(), Eigen::Vector3d(100.0, 200.0, 0.0)) << "not moved by that frame";
    EXPECT_FALSE(left.ellipses[2]->isVisible() || left.horizontalLines[2]->isVisible() ||
                 left.verticalLines[2]->isVisible());
    expectAnnotated(renderer.cameraView(1), mismatch.right);

    deliver(stream, updateWith(3, 2));
    expectAnnotated(renderer.cameraView(0), updateWith(3, 2).left);
    EXPECT_EQ(capture->count(Log::Error, "", "Size does not match!!!"), 1u);
}

TEST_F(RendererTest, FramesArrivingFasterThanTheGuiDrawsAreShownOnceTheLatest) {
    AtracsysRenderer renderer(stream, display);
    std::thread acquisition([&] {
        for (std::size_t n = 1; n <= 6; ++n) {
            AtracsysUpdate update = updateWith(n, 7 - n);
            stream.signalAtracsysUpdate.emitSignal(update);
        }
    });
    acquisition.join();
    EXPECT_EQ(objectCount(renderer, 0), 0u) << "nothing is drawn on the acquisition thread";
    QCoreApplication::processEvents();
    EXPECT_EQ(objectCount(renderer, 0), 18u);
    EXPECT_EQ(objectCount(renderer, 1), 3u);
}
