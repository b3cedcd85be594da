// The camera view on the simulated camera: both images are shown with an ellipse and a cross
// painted on every fiducial the camera detected.

#include "atracsys/gui/AtracsysRenderer.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "host/core/SharedImageSet.h"
#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/GlEllipse.h"
#include "host/lib/widgets/GlView.h"
#include "tests/atracsys/gui/AnnotationPixels.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/gui/SimulatorScene.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <mutex>

using namespace Kestrion;
using Kestrion::SpryTrack::AtracsysTrackingStream;

TEST(RendererOnSimulator, PaintsBothCameraImagesWithAnAnnotationOnEveryFiducial) {
    GuiTest::ensureApplication();
    GuiTest::SceneGuard scene("two-markers.json");
    TestSupport::LogCapture capture(Log::Info);
    AtracsysTrackingStream stream("Atracsys Tracking Stream");
    stream.setQueryImages(true);
    stream.setFiducialQueryMode(AtracsysTrackingStreamBase::AllFiducials);
    DisplayWidgetMulti display;
    display.resize(1024, 400);
    AtracsysRenderer renderer(stream, display);

    // The test's own copy of what the stream sent last, to compare with what is shown.
    std::mutex mutex;
    AtracsysUpdate last;
    std::size_t updates = 0;
    SignalConnection recorder = stream.signalAtracsysUpdate.connect([&](AtracsysUpdate& update) {
        std::lock_guard<std::mutex> lock(mutex); // the test thread reads it
        last = update;
        ++updates;
    });

    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.start());
    ASSERT_TRUE(GuiTest::processEventsUntil([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return updates >= 5;
    }));
    ASSERT_TRUE(stream.stop());
    recorder.disconnect();
    // The redraw queued by the last frame.
    ASSERT_TRUE(GuiTest::processEventsUntil([&] {
        return renderer.cameraView(0).imageSet->get(0) == last.left.image &&
               renderer.cameraView(1).imageSet->get(0) == last.right.image;
    }));

    const std::array<const AtracsysSingleCameraUpdate*, 2> cameras = {&last.left, &last.right};
    for (std::size_t c = 0; c < 2; ++c) {
        SCOPED_TRACE(c == 0 ? "left camera" : "right camera");
        const AtracsysSingleCameraUpdate& camera = *cameras[c];
        const AtracsysRenderer::AtracsysView& view = renderer.cameraView(c);
        ASSERT_GE(camera.fiducials.size(), 5u) << "the markers' fiducials and the stray are in view";
        ASSERT_EQ(view.ellipses.size(), camera.fiducials.size());
        EXPECT_EQ(view.view->objects().size(), 3 * camera.fiducials.size());

        const QSize imageSize = view.view->image().size();
        ASSERT_EQ(imageSize, QSize(2048, 1088));
        const QImage picture = view.view->renderImage(imageSize);
        const QTransform toPicture = view.view->imageToView(QSizeF(imageSize));
        for (std::size_t i = 0; i < camera.fiducials.size(); ++i) {
            const Eigen::Vector2d p = camera.fiducials[i];
            const Eigen::Vector2d s = camera.fiducialSizes[i];
            EXPECT_TRUE(view.ellipses[i]->center().head<2>().isApprox(p)) << i;
            for (const Eigen::Vector2d& point : GuiTest::ellipseRimPoints(p, s))
                EXPECT_TRUE(GuiTest::cyanNear(picture, toPicture, point)) << "ellipse of fiducial " << i;
            for (const Eigen::Vector2d& point : GuiTest::crossArmEnds(p, s))
                EXPECT_TRUE(GuiTest::cyanNear(picture, toPicture, point)) << "cross of fiducial " << i;
        }
        // Nothing is painted away from the fiducials.
        EXPECT_FALSE(GuiTest::cyanNear(picture, toPicture, {10.0, 10.0}, 5));
        EXPECT_FALSE(GuiTest::isCyan(picture.pixel(imageSize.width() / 2, imageSize.height() - 5)));
    }
    ASSERT_TRUE(stream.close());
}
