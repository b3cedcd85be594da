#include "host/lib/widgets/GlView.h"
#include "host/core/SharedImageSet.h"
#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/GlEllipse.h"
#include "host/lib/widgets/GlLine.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QMouseEvent>
#include <QPointer>
#include <QTest>
#include <QWheelEvent>

#include <gtest/gtest.h>

#include <memory>

using namespace Kestrion;

namespace {

constexpr int Grey = 40;

bool isCyan(QRgb pixel) {
    return qRed(pixel) < 100 && qGreen(pixel) > 150 && qBlue(pixel) > 150;
}

bool isImage(QRgb pixel) {
    return qRed(pixel) == Grey && qGreen(pixel) == Grey && qBlue(pixel) == Grey;
}

/// A 100x50 grey image with a cyan ellipse in the box (20, 10)-(40, 30) and a cyan line from
/// (50, 25) to (90, 25), in image coordinates.
class GlViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestSupport::guiApplication();
        view = std::make_unique<GlView>();
        QImage image(100, 50, QImage::Format_Grayscale8);
        image.fill(Grey);
        view->setImage(image);
        ellipse = std::make_unique<GlEllipse>(Eigen::Vector3d(20, 10, 0), Eigen::Vector3d(40, 30, 0));
        ellipse->setColor(0.0, 1.0, 1.0);
        ellipse->setLineWidth(2.0);
        line = std::make_unique<GlLine>(Eigen::Vector3d(50, 25, 0), Eigen::Vector3d(90, 25, 0));
        line->setColor(Eigen::Vector3f(0.0f, 1.0f, 1.0f));
        line->setLineWidth(3.0);
        view->addObject(ellipse.get());
        view->addObject(line.get());
    }
    QImage shot(int width = 200, int height = 100) const { return view->renderImage(QSize(width, height)); }

    std::unique_ptr<GlView> view;
    std::unique_ptr<GlEllipse> ellipse;
    std::unique_ptr<GlLine> line;
};

TEST_F(GlViewTest, DrawsTheImageScaledToFitWithAnnotationsInImageCoordinates) {
    view->addObject(line.get()); // once only
    EXPECT_EQ(view->objects().size(), 2u);

    // 200x100: scale 2, no margin. The ellipse box becomes (40, 20)-(80, 60), the line y 50, x 100..180.
    QImage image = shot();
    for (const QPoint cyan : {QPoint(79, 40), QPoint(40, 40), QPoint(60, 20), QPoint(140, 50)})
        EXPECT_TRUE(isCyan(image.pixel(cyan))) << cyan.x() << "," << cyan.y();
    // Inside the ellipse (not filled), inside its box, and around the line.
    for (const QPoint grey : {QPoint(60, 40), QPoint(42, 22), QPoint(140, 45), QPoint(185, 50)})
        EXPECT_TRUE(isImage(image.pixel(grey))) << grey.x() << "," << grey.y();

    // 200x200: the image is centred with bands above and below (y 50..150).
    image = shot(200, 200);
    EXPECT_FALSE(isImage(image.pixel(100, 20)));
    EXPECT_TRUE(isCyan(image.pixel(79, 90)));
}

TEST_F(GlViewTest, HiddenRemovedAndDestroyedAnnotationsAreNotDrawn) {
    line->setVisible(false);
    EXPECT_TRUE(isImage(shot().pixel(140, 50)));
    line->setVisible(true);

    EXPECT_TRUE(view->removeObject(line.get()));
    EXPECT_TRUE(line->views().empty());
    EXPECT_TRUE(isImage(shot().pixel(140, 50)));

    ellipse.reset(); // a destroyed annotation leaves its views
    EXPECT_TRUE(view->objects().empty());
    EXPECT_TRUE(isImage(shot().pixel(79, 40)));

    // A view destroyed first lets go of its annotations, which stay usable.
    auto other = std::make_unique<GlView>();
    other->addObject(line.get());
    view->addObject(line.get());
    other.reset();
    EXPECT_EQ(line->views(), std::vector<GlView*>{view.get()});
}

// The renderer's tests cover the display's views being added and removed one by one.
TEST_F(GlViewTest, DisplayRefusesViewsBeyondItsMostAndArrangesThemSideBySide) {
    TestSupport::LogCapture capture;
    DisplayWidgetMulti display;
    display.resize(400, 200);
    display.setMaxViews(2);
    QPointer<GlView> left = display.addView2D(true, false);
    QPointer<GlView> right = display.addView2D();
    ASSERT_TRUE(left && right);
    EXPECT_EQ(display.addView2D(), nullptr);
    EXPECT_TRUE(capture->contains(Log::Error, "DisplayWidgetMulti",
                                  "Cannot add a view: the display already holds 2 views, the most it shows"))
        << capture->dump();
    display.show();
    QCoreApplication::processEvents();
    EXPECT_LT(left->geometry().right(), right->geometry().left());
    display.removeAllViews();
    EXPECT_TRUE(left.isNull() && right.isNull());
}

std::shared_ptr<SharedImage> cameraImage(int width, int height, std::uint8_t value) {
    auto image =
        std::make_shared<TypedImage<std::uint8_t>>(ImageDescriptor(PixelType::UInt8, 1, width, height));
    std::fill(image->data(), image->data() + image->descriptor().elementCount(), value);
    return std::make_shared<SharedImage>(image);
}

TEST_F(GlViewTest, ShowsTheFirstImageOfAnImageSetAndFollowsItsChanges) {
    view->removeAllObjects();
    auto set = std::make_shared<SharedImageSet>();
    view->setImageSet(set);
    EXPECT_TRUE(view->image().isNull());

    std::shared_ptr<SharedImage> first = cameraImage(100, 50, Grey);
    set->setFirst(first);
    set->add(cameraImage(10, 10, 200));
    EXPECT_TRUE(isImage(shot().pixel(100, 50)));
    EXPECT_EQ(view->image().size(), QSize(100, 50));

    // New pixels in the same image show once it is marked dirty.
    auto pixels = first->typed<std::uint8_t>();
    ASSERT_TRUE(pixels);
    pixels->at(50, 25) = 255;
    EXPECT_TRUE(isImage(shot().pixel(101, 51)));
    first->setDirty();
    EXPECT_EQ(qRed(shot().pixel(101, 51)), 255);

    // A replaced first image of another size changes the image coordinates.
    set->setFirst(cameraImage(50, 50, Grey));
    set->setModified();
    const QImage image = shot();
    EXPECT_FALSE(isImage(image.pixel(10, 50))); // band beside a square image
    EXPECT_TRUE(isImage(image.pixel(100, 50)));
}

} // namespace

// Camera views made as not interactive by their creator still zoom and pan in the desktop host.
TEST_F(GlViewTest, DisplaysOfTheDesktopHostZoomAndPanEveryViewWithItsAnnotations) {
    DisplayWidgetMulti display;
    GlView* early = display.addView2D(true, false);
    display.setZoomAndPanForAllViews(true);
    GlView* late = display.addView2D(true, false);
    EXPECT_TRUE(early->isInteractive() && late->isInteractive());

    // The 100x50 image fills a 200x100 view at scale 2; two wheel steps about the view's centre
    // zoom by 1.25^2 there, then a drag moves everything by (-30, 10).
    QImage image(100, 50, QImage::Format_Grayscale8);
    image.fill(Grey);
    early->setImage(image);
    early->addObject(ellipse.get());
    early->resize(200, 100);
    QWheelEvent wheel(QPointF(100, 50), QPointF(100, 50), QPoint(), QPoint(0, 240), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(early, &wheel);
    EXPECT_DOUBLE_EQ(early->zoom(), 1.5625);
    QTest::mousePress(early, Qt::LeftButton, Qt::NoModifier, QPoint(100, 50));
    QMouseEvent drag(QEvent::MouseMove, QPointF(70, 60), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(early, &drag);
    QTest::mouseRelease(early, Qt::LeftButton, Qt::NoModifier, QPoint(70, 60));
    // The ellipse's right end, image (40, 20), was at view (80, 40): now 100 + 1.5625 * (80 - 100)
    // - 30 = 38.75 and 50 + 1.5625 * (40 - 50) + 10 = 44.375.
    const QPointF end = early->imageToView().map(QPointF(40, 20));
    EXPECT_NEAR(end.x(), 38.75, 1e-9);
    EXPECT_NEAR(end.y(), 44.375, 1e-9);
    EXPECT_TRUE(isCyan(early->renderImage().pixel(38, 44)));
    QTest::mouseDClick(early, Qt::LeftButton);
    EXPECT_DOUBLE_EQ(early->zoom(), 1.0);
    early->removeObject(ellipse.get());
}
