// The desktop host under Xvfb with the plugin: a workspace opens the stream with images on; the
// screenshot shows both camera images with an ellipse and a cross on every reported fiducial.

#include "atracsys/stream/AtracsysTrackingStream.h"

#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"

#include <Eigen/Core>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRect>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <future>
#include <iostream>
#include <sstream>

using namespace Kestrion;

namespace {

const char* const Scene = "static-marker.json";
const QString Screenshot =
    QStringLiteral(KESTRION_BINARY_DIR "/screenshots/kestrion-gui-atracsys-camera.png");

/// What the camera reports for the scene: one camera update (the marker stands still).
AtracsysUpdate expectedUpdate() {
    TrackingStreamTest::SceneGuard scene(GuiTest::dataFile(Scene));
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    stream.setQueryImages(true);
    stream.setFiducialQueryMode(AtracsysTrackingStreamBase::AllFiducials);
    std::promise<AtracsysUpdate> first; // set by the worker, read by the test
    std::atomic<bool> received{false};
    SignalConnection connection = stream.signalAtracsysUpdate.connect([&](AtracsysUpdate& latest) {
        if (!received.exchange(true))
            first.set_value(latest);
    });
    EXPECT_TRUE(stream.open() && stream.start());
    std::future<AtracsysUpdate> update = first.get_future();
    const bool ready = update.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    connection.disconnect();
    stream.close();
    return ready ? update.get() : AtracsysUpdate{}; // the caller checks the fiducials
}

/// Camera image pixels: grey, darker than anything else the window paints (the sensor's dark level).
bool isCameraBackground(QRgb pixel) {
    return qRed(pixel) == qGreen(pixel) && qGreen(pixel) == qBlue(pixel) && qRed(pixel) <= 10;
}

/// True when a pixel within one pixel of `at` is cyan (green and blue well above red), which
/// only an annotation paints.
bool cyanNear(const QImage& picture, const QPointF& at) {
    for (int y = int(std::floor(at.y())) - 1; y <= int(std::floor(at.y())) + 1; ++y)
        for (int x = int(std::floor(at.x())) - 1; x <= int(std::floor(at.x())) + 1; ++x)
            if (picture.valid(x, y) && qGreen(picture.pixel(x, y)) - qRed(picture.pixel(x, y)) > 90 &&
                qBlue(picture.pixel(x, y)) - qRed(picture.pixel(x, y)) > 90)
                return true;
    return false;
}

/// The runs of indices whose count reaches the threshold, as [begin, end) pairs.
std::vector<std::pair<int, int>> runs(const std::vector<int>& counts, int threshold) {
    std::vector<std::pair<int, int>> result;
    for (int i = 0; i < int(counts.size()); ++i)
        if (counts[i] >= threshold && !result.empty() && result.back().second == i)
            ++result.back().second;
        else if (counts[i] >= threshold)
            result.emplace_back(i, i + 1);
    return result;
}

/// The rectangles of the camera images in the picture, left to right: runs of columns, then of
/// rows within them, holding many camera-background pixels.
std::vector<QRect> cameraImages(const QImage& picture) {
    std::vector<int> columns(picture.width(), 0);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            columns[x] += isCameraBackground(picture.pixel(x, y)) ? 1 : 0;
    std::vector<QRect> images;
    for (const auto& [left, right] : runs(columns, 100)) {
        std::vector<int> rows(picture.height(), 0);
        for (int y = 0; y < picture.height(); ++y)
            for (int x = left; x < right; ++x)
                rows[y] += isCameraBackground(picture.pixel(x, y)) ? 1 : 0;
        for (const auto& [top, bottom] : runs(rows, (right - left) / 2))
            if (right - left > 400 && bottom - top > 200)
                images.emplace_back(QPoint(left, top), QPoint(right - 1, bottom - 1));
    }
    return images;
}

/// What is wrong with the picture: empty when it shows both camera images, each fiducial with its
/// ellipse and its cross.
std::string problemsOf(const QImage& picture, const AtracsysUpdate& expected) {
    if (picture.isNull())
        return "no picture";
    const std::vector<QRect> images = cameraImages(picture);
    if (images.size() != 2)
        return "found " + std::to_string(images.size()) + " camera images instead of two side by side";
    std::ostringstream problems;
    const std::array<const AtracsysSingleCameraUpdate*, 2> cameras = {&expected.left, &expected.right};
    for (std::size_t c = 0; c < 2; ++c) {
        // The whole 2048 x 1088 image, scaled to fit its view; annotations are in image pixels.
        const QRect& area = images[c];
        const double scale = area.width() / 2048.0;
        if (std::abs(area.height() - 1088.0 * scale) > 3.0)
            problems << "camera " << c << ": image area " << area.width() << " x " << area.height() << "\n";
        for (std::size_t i = 0; i < cameras[c]->fiducials.size(); ++i) {
            const Eigen::Vector2d p = cameras[c]->fiducials[i];
            const Eigen::Vector2d s = cameras[c]->fiducialSizes[i];
            if (s.minCoeff() * scale < 6.0)
                problems << "camera " << c << ": fiducial " << i << " too small to tell its marks apart\n";
            // Points only the ellipse covers (its rim at 45 degrees) and only the cross covers (just
            // inside the end of each arm, which reach 0.8 of the size, past the ellipse at 0.5).
            const double rim = std::sqrt(0.5) / 2.0, arm = 0.75;
            const std::pair<const char*, Eigen::Vector2d> marks[] = {
                {"ellipse", {rim, rim}},   {"ellipse", {-rim, rim}}, {"ellipse", {rim, -rim}},
                {"ellipse", {-rim, -rim}}, {"cross", {arm, 0}},      {"cross", {-arm, 0}},
                {"cross", {0, arm}},       {"cross", {0, -arm}}};
            for (const auto& [mark, offset] : marks) {
                const Eigen::Vector2d point = p + offset.cwiseProduct(s);
                if (!cyanNear(picture,
                              QPointF(area.left() + point.x() * scale, area.top() + point.y() * scale)))
                    problems << "camera " << c << ": fiducial " << i << " has no " << mark << " at "
                             << point.transpose() << "\n";
            }
        }
    }
    return problems.str();
}

/// kestrion-gui under xvfb-run with the workspace, taking the screenshot `afterMs` after start.
std::string runKestrionGui(const QString& xvfbRun, const QString& workspace, int afterMs) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("KESTRION_PLUGIN_PATH", KESTRION_ATRACSYS_PLUGIN_DIR);
    env.remove("KESTRION_LICENSE"); // the licence beside the host covers the bundled plugins
    env.insert("FTK_SIMULATOR_SCENE", QString::fromStdString(GuiTest::dataFile(Scene)));
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("ASAN_OPTIONS", env.value("ASAN_OPTIONS") + ":detect_leaks=0"); // Qt's platform plugins
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::MergedChannels);
    // A window large enough to show the fiducials' marks several pixels wide.
    process.start(xvfbRun, {"-a", "-s", "-screen 0 3200x1800x24", KESTRION_GUI_APP, "-geometry",
                            "3000x1600+0+0", "--workspace", workspace, "--screenshot", Screenshot, "--after",
                            QString::number(afterMs)});
    const bool finished = process.waitForFinished(afterMs + 120000);
    const std::string output = QString::fromLocal8Bit(process.readAll()).toStdString();
    EXPECT_TRUE(finished) << output;
    EXPECT_EQ(process.exitCode(), 0) << output;
    return output;
}

} // namespace

TEST(KestrionGuiWithPlugin, ScreenshotShowsThePanelAndBothCameraImagesWithTheirAnnotations) {
    const QString xvfbRun = QStandardPaths::findExecutable("xvfb-run");
    ASSERT_FALSE(xvfbRun.isEmpty()) << "xvfb-run is not installed (scripts/setup installs the package xvfb)";
    GuiTest::ensureApplication();
    const AtracsysUpdate expected = expectedUpdate();
    ASSERT_EQ(expected.left.fiducials.size() + expected.right.fiducials.size(), 8u);

    QTemporaryDir dir;
    const QString workspace = dir.filePath("camera.kws");
    {
        QFile file(workspace);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(R"(<?xml version="1.0" encoding="UTF-8"?>
<properties name="Workspace"><properties name="Algorithms"><properties name="Atracsys.SpryTrackStream">
  <param name="open" type="bool">true</param><param name="start" type="bool">true</param>
  <param name="queryImages" type="bool">true</param><param name="fiducialQueryMode" type="int">3</param>
</properties></properties></properties>
)");
    }
    ASSERT_TRUE(QDir().mkpath(QFileInfo(Screenshot).path()));
    std::cout << "Screenshot: " << Screenshot.toStdString() << std::endl;

    // The first frames reach the window after the camera has opened: a busy machine gets a later
    // screenshot rather than a failure.
    std::string problems;
    std::string output;
    for (const int afterMs : {3000, 10000, 30000}) {
        QFile::remove(Screenshot);
        output = runKestrionGui(xvfbRun, workspace, afterMs);
        if (::testing::Test::HasFailure())
            return;
        problems = problemsOf(QImage(Screenshot), expected);
        if (problems.empty())
            break;
        std::cout << "Screenshot after " << afterMs << " ms: " << problems << std::endl;
    }
    EXPECT_EQ(problems, "") << output;
    EXPECT_NE(output.find("[INFO] kestrion-gui: Atracsys.SpryTrackStream shown with the panel "
                          "Kestrion::AtracsysTrackingController"),
              std::string::npos)
        << output;
}
