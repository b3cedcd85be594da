#include "host/lib/widgets/GlView.h"
#include "host/core/SharedImageSet.h"
#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/GlEllipse.h"
#include "host/lib/widgets/GlLine.h"
#include "host/lib/widgets/ImageConversion.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QPointer>
#include <QTest>
#include <QWheelEvent>

#include <gtest/gtest.h>

#include <memory>

using namespace Kestrion;

namespace {

constexpr int Grey = 40;

QImage greyImage(int width, int height, int value = Grey) {
    QImage image(width, height, QImage::Format_Grayscale8);
    image.fill(value);
    return image;
}

bool isCyan(QRgb pixel) {
    return qRed(pixel) < 100 && qGreen(pixel) > 150 && qBlue(pixel) > 150;
}

bool isImage(QRgb pixel) {
    return qRed(pixel) == Grey && qGreen(pixel) == Grey && qBlue(pixel) == Grey;
}

class GlViewTest : public ::testing::Test {
protected:
    void SetUp() override { TestSupport::guiApplication(); }
};

TEST_F(GlViewTest, DrawsTheImageScaledToFitWithAnnotationsInImageCoordinates) {
    GlView view;
    view.setImage(greyImage(100, 50));
    GlEllipse ellipse(Eigen::Vector3d(20, 10, 0), Eigen::Vector3d(40, 30, 0));
    ellipse.setColor(0.0, 1.0, 1.0);
    ellipse.setLineWidth(2.0);
    GlLine line(Eigen::Vector3d(50, 25, 0), Eigen::Vector3d(90, 25, 0));
    line.setColor(Eigen::Vector3f(0.0f, 1.0f, 1.0f));
    line.setLineWidth(3.0);
    view.addObject(&ellipse);
    view.addObject(&line);
    view.addObject(&line); // once only
    EXPECT_EQ(view.objects().size(), 2u);

    // 200x100: scale 2, no margin. The ellipse box becomes (40, 20)-(80, 60).
    QImage shot = view.renderImage(QSize(200, 100));
    EXPECT_TRUE(isCyan(shot.pixel(79, 40)));  // right end of the ellipse
    EXPECT_TRUE(isCyan(shot.pixel(40, 40)));  // left end
    EXPECT_TRUE(isCyan(shot.pixel(60, 20)));  // top
    EXPECT_TRUE(isImage(shot.pixel(60, 40))); // inside: not filled
    EXPECT_TRUE(isImage(shot.pixel(42, 22))); // inside the box, outside the ellipse
    EXPECT_TRUE(isCyan(shot.pixel(140, 50))); // the line: y 50, x 100..180
    EXPECT_TRUE(isCyan(shot.pixel(101, 49)));
    EXPECT_TRUE(isImage(shot.pixel(140, 45)));
    EXPECT_TRUE(isImage(shot.pixel(95, 50)));
    EXPECT_TRUE(isImage(shot.pixel(185, 50)));
    EXPECT_TRUE(isImage(shot.pixel(2, 2)));

    // 200x200: the image is centred with bands above and below (y 50..150).
    shot = view.renderImage(QSize(200, 200));
    EXPECT_FALSE(isImage(shot.pixel(100, 20)));
    EXPECT_FALSE(isCyan(shot.pixel(100, 20)));
    EXPECT_TRUE(isImage(shot.pixel(100, 60)));
    EXPECT_TRUE(isCyan(shot.pixel(79, 90)));
    EXPECT_TRUE(isCyan(shot.pixel(140, 100)));

    // One screen pixel per image pixel, centred.
    view.setFitToView(false);
    shot = view.renderImage(QSize(200, 100));
    EXPECT_TRUE(isCyan(shot.pixel(50 + 39, 25 + 20))); // image (39.5, 20) is on the ellipse
    EXPECT_FALSE(isImage(shot.pixel(20, 50)));         // left of the image
    EXPECT_TRUE(isImage(shot.pixel(60, 50)));
}

TEST_F(GlViewTest, HiddenRemovedAndDestroyedAnnotationsAreNotDrawn) {
    GlView view;
    view.setImage(greyImage(100, 50));
    auto ellipse = std::make_unique<GlEllipse>(Eigen::Vector3d(20, 10, 0), Eigen::Vector3d(40, 30, 0));
    ellipse->setColor(0.0, 1.0, 1.0);
    ellipse->setLineWidth(2.0);
    GlLine line(Eigen::Vector3d(50, 25, 0), Eigen::Vector3d(90, 25, 0));
    line.setColor(0.0, 1.0, 1.0);
    line.setLineWidth(3.0);
    view.addObject(ellipse.get());
    view.addObject(&line);

    line.setVisible(false);
    QImage shot = view.renderImage(QSize(200, 100));
    EXPECT_TRUE(isImage(shot.pixel(140, 50)));
    EXPECT_TRUE(isCyan(shot.pixel(79, 40)));
    line.setVisible(true);

    EXPECT_TRUE(view.removeObject(&line));
    EXPECT_FALSE(view.removeObject(&line));
    EXPECT_TRUE(line.views().empty());
    shot = view.renderImage(QSize(200, 100));
    EXPECT_TRUE(isImage(shot.pixel(140, 50)));

    ellipse.reset(); // a destroyed annotation leaves its views
    EXPECT_TRUE(view.objects().empty());
    shot = view.renderImage(QSize(200, 100));
    EXPECT_TRUE(isImage(shot.pixel(79, 40)));

    // A view destroyed first lets go of its annotations, which stay usable.
    auto other = std::make_unique<GlView>();
    other->addObject(&line);
    view.addObject(&line);
    other.reset();
    EXPECT_EQ(line.views().size(), 1u);
    EXPECT_EQ(line.views().front(), &view);
}

TEST_F(GlViewTest, DashesAndPointsChangeWhatIsDrawn) {
    GlView view;
    view.setImage(greyImage(100, 50));
    GlLine line(Eigen::Vector3d(10, 25, 0), Eigen::Vector3d(90, 25, 0));
    line.setColor(0.0, 1.0, 1.0);
    line.setLineWidth(2.0);
    view.addObject(&line);

    const auto countCyan = [&](const QImage& shot) {
        int cyan = 0;
        for (int x = 30; x < 170; ++x)
            cyan += isCyan(shot.pixel(x, 49)) ? 1 : 0;
        return cyan;
    };
    EXPECT_EQ(countCyan(view.renderImage(QSize(200, 100))), 140);
    line.setDashed(true);
    const int dashed = countCyan(view.renderImage(QSize(200, 100)));
    EXPECT_GT(dashed, 40);
    EXPECT_LT(dashed, 100);

    // Points: squares of 8 screen pixels on both ends, reaching off the line.
    line.setDashed(false);
    EXPECT_TRUE(isImage(view.renderImage(QSize(200, 100)).pixel(20, 46)));
    line.setPointSize(8.0);
    const QImage shot = view.renderImage(QSize(200, 100));
    EXPECT_TRUE(isCyan(shot.pixel(20, 46)));
    EXPECT_TRUE(isCyan(shot.pixel(180, 53)));
    EXPECT_TRUE(isImage(shot.pixel(20, 40)));
}

TEST_F(GlViewTest, DisplayCreatesArrangesAndDeletesViews) {
    TestSupport::LogCapture capture;
    DisplayWidgetMulti display;
    display.resize(400, 200);
    display.setMaxViews(2);
    QPointer<GlView> left = display.addView2D(true, false);
    QPointer<GlView> right = display.addView2D();
    ASSERT_TRUE(left && right);
    EXPECT_EQ(left->parentWidget(), &display);
    EXPECT_TRUE(left->fitToView());
    EXPECT_FALSE(left->isInteractive());
    EXPECT_EQ(display.viewCount(), 2);
    EXPECT_EQ(display.addView2D(), nullptr);
    EXPECT_TRUE(capture->contains(Log::Error, "DisplayWidgetMulti",
                                  "Cannot add a view: the display already holds 2 views, the most it shows"))
        << capture->dump();

    display.show();
    QCoreApplication::processEvents();
    EXPECT_LT(left->geometry().right(), right->geometry().left()); // side by side

    GlView stranger;
    EXPECT_FALSE(display.removeView(&stranger));
    EXPECT_FALSE(display.removeView(nullptr));
    EXPECT_TRUE(display.removeView(left));
    EXPECT_TRUE(left.isNull());
    EXPECT_EQ(display.views(), std::vector<GlView*>{right.data()});
    EXPECT_NE(display.addView2D(false, true), nullptr);
    display.removeAllViews();
    EXPECT_TRUE(right.isNull());
    EXPECT_EQ(display.viewCount(), 0);
}

TEST_F(GlViewTest, InteractiveViewsZoomAroundTheCursorPanAndReset) {
    GlView view(true, true);
    view.setImage(greyImage(100, 50));
    view.resize(200, 100);
    const QPointF cursor(60, 40);
    const QPointF underCursor = view.imageToView().inverted().map(cursor);

    QWheelEvent zoomIn(cursor, view.mapToGlobal(cursor.toPoint()), QPoint(), QPoint(0, 240), Qt::NoButton,
                       Qt::NoModifier, Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(&view, &zoomIn);
    EXPECT_NEAR(view.zoom(), 1.5625, 1e-9);
    const QPointF after = view.imageToView().map(underCursor);
    EXPECT_NEAR(after.x(), cursor.x(), 1e-9);
    EXPECT_NEAR(after.y(), cursor.y(), 1e-9);

    QTest::mousePress(&view, Qt::LeftButton, Qt::NoModifier, QPoint(100, 50));
    QMouseEvent move(QEvent::MouseMove, QPointF(110, 45), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &move);
    QTest::mouseRelease(&view, Qt::LeftButton, Qt::NoModifier, QPoint(110, 45));
    EXPECT_NEAR(view.imageToView().map(underCursor).x(), cursor.x() + 10, 1e-9);

    QTest::mouseDClick(&view, Qt::LeftButton);
    EXPECT_EQ(view.zoom(), 1.0);
    EXPECT_EQ(view.pan(), QPointF());

    view.setInteractive(false);
    QCoreApplication::sendEvent(&view, &zoomIn);
    EXPECT_EQ(view.zoom(), 1.0);
}

} // namespace

namespace {

std::shared_ptr<SharedImage> cameraImage(int width, int height, std::uint8_t value) {
    auto image =
        std::make_shared<TypedImage<std::uint8_t>>(ImageDescriptor(PixelType::UInt8, 1, width, height));
    std::fill(image->data(), image->data() + image->descriptor().elementCount(), value);
    return std::make_shared<SharedImage>(image);
}

TEST_F(GlViewTest, ShowsTheFirstImageOfAnImageSetAndFollowsItsChanges) {
    GlView view;
    auto set = std::make_shared<SharedImageSet>();
    view.setImageSet(set);
    EXPECT_TRUE(view.image().isNull());
    EXPECT_FALSE(isImage(view.renderImage(QSize(200, 100)).pixel(100, 50)));

    std::shared_ptr<SharedImage> first = cameraImage(100, 50, Grey);
    set->setFirst(first);
    set->add(cameraImage(10, 10, 200));
    QImage shot = view.renderImage(QSize(200, 100));
    EXPECT_EQ(view.image().size(), QSize(100, 50));
    EXPECT_TRUE(isImage(shot.pixel(100, 50)));

    // New pixels in the same image show once it is marked dirty.
    auto pixels = first->typed<std::uint8_t>();
    ASSERT_TRUE(pixels);
    pixels->at(50, 25) = 255;
    EXPECT_TRUE(isImage(view.renderImage(QSize(200, 100)).pixel(101, 51)));
    first->setDirty();
    EXPECT_EQ(qRed(view.renderImage(QSize(200, 100)).pixel(101, 51)), 255);

    // A replaced first image of another size changes the image coordinates.
    set->setFirst(cameraImage(50, 50, Grey));
    set->setModified();
    shot = view.renderImage(QSize(200, 100));
    EXPECT_EQ(view.image().size(), QSize(50, 50));
    EXPECT_FALSE(isImage(shot.pixel(10, 50))); // band beside a square image
    EXPECT_TRUE(isImage(shot.pixel(100, 50)));

    view.setImage(QImage());
    EXPECT_EQ(view.imageSet(), nullptr);
}

TEST_F(GlViewTest, ConvertsHostImagesToQImages) {
    TypedImage<std::uint8_t> rgb(ImageDescriptor(PixelType::UInt8, 3, 3, 2));
    rgb.at(2, 1, 0) = 10;
    rgb.at(2, 1, 1) = 20;
    rgb.at(2, 1, 2) = 30;
    QImage converted = toQImage(rgb);
    EXPECT_EQ(converted.format(), QImage::Format_RGB888);
    EXPECT_EQ(converted.pixel(2, 1), qRgb(10, 20, 30));
    EXPECT_EQ(converted.pixel(0, 0), qRgb(0, 0, 0));

    TypedImage<std::uint16_t> deep(ImageDescriptor(PixelType::UInt16, 1, 5, 3)); // odd width: padded rows
    deep.at(4, 2) = 65535;
    converted = toQImage(deep);
    EXPECT_EQ(converted.format(), QImage::Format_Grayscale16);
    EXPECT_EQ(qRed(converted.pixel(4, 2)), 255);
    EXPECT_EQ(qRed(converted.pixel(3, 2)), 0);

    TypedImage<float> depth(ImageDescriptor(PixelType::Float, 1, 3, 1));
    depth.at(0, 0) = -2.0f;
    depth.at(1, 0) = 0.0f;
    depth.at(2, 0) = 2.0f;
    converted = toQImage(depth);
    EXPECT_EQ(converted.format(), QImage::Format_Grayscale8);
    EXPECT_EQ(qRed(converted.pixel(0, 0)), 0);
    EXPECT_EQ(qRed(converted.pixel(1, 0)), 128);
    EXPECT_EQ(qRed(converted.pixel(2, 0)), 255);

    EXPECT_TRUE(toQImage(TypedImage<std::uint8_t>(ImageDescriptor(PixelType::UInt8, 1, 0, 0))).isNull());
}

} // namespace
