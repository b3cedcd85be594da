// The markers widget on the simulated camera: making, loading back and optimising a marker.

#include "atracsys/gui/AtracsysMarkersWidget.h"
#include "atracsys/stream/AtracsysTrackingStream.h"

#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/ProgressWidget.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/lib/widgets/UrlOpenRecorder.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"
#include "tests/support/LogCapture.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kestrion;
using Kestrion::SpryTrack::AtracsysTrackingStream;
using Points = std::vector<Eigen::Vector3d>;

namespace {

constexpr const char* Category = "AtracsysMarkersWidget";
const std::string MarkersFolder = std::string(KESTRION_SOURCE_DIR) + "/data/markers/";

/// The fiducials of a geometry file, in its order.
Points filePoints(const std::string& path) {
    const auto geometry = SpryTrack::AtracsysHelpers::loadGeometry(path);
    Points points;
    if (geometry)
        for (std::uint32_t i = 0; i < geometry->pointsCount; ++i)
            points.emplace_back(geometry->positions[i].x, geometry->positions[i].y, geometry->positions[i].z);
    return points;
}

/// The distances between all pairs of points, sorted.
std::vector<double> distances(const Points& points) {
    std::vector<double> result;
    for (std::size_t i = 0; i < points.size(); ++i)
        for (std::size_t j = i + 1; j < points.size(); ++j)
            result.push_back((points[i] - points[j]).norm());
    std::sort(result.begin(), result.end());
    return result;
}

class MarkersWidgetOnSimulator : public ::testing::Test {
protected:
    GuiTest::Application application;
    TrackingStreamTest::SceneGuard scene{GuiTest::dataFile("static-marker.json")};
    GuiTest::TemporaryHome home;
    QTemporaryDir output;
    UrlOpenRecorder urls;
};

} // namespace

TEST_F(MarkersWidgetOnSimulator, MarkerMadeFromTheFiducialsInViewIsSavedLoadedAndTracked) {
    TestSupport::LogCapture capture;
    AtracsysTrackingStream stream("Atracsys Tracking Stream");
    AtracsysMarkersWidget widget(&stream, true);
    auto* spin = widget.findChild<QSpinBox*>("integrationTimeSpinbox");
    widget.findChild<QLineEdit*>("nameEdit")->setText("Probe");

    const std::string target = output.filePath("probe.ini").toStdString();
    // Answers the save dialog, then the open dialog of "Load from file...".
    QtHelpers::ScopedFileDialogHook dialogs([&](const QtHelpers::FileDialogRequest&) { return target; });
    widget.findChild<QPushButton*>("createButton")->click();
    EXPECT_TRUE(
        capture->contains(Log::Debug, Category, "Fiducial query mode changed to ALL for marker creation"))
        << capture->dump();
    EXPECT_EQ(stream.currentState(), Stream::State::Running) << "opened and started for the marker";

    ASSERT_TRUE(GuiTest::processEventsUntil([&] {
        return QFileInfo::exists(QString::fromStdString(target));
    })) << capture->dump();
    EXPECT_FALSE(widget.isMarkerRequested()) << "one marker per request";

    // The new geometry has the marker's shape (to the camera's noise) and got the first free id.
    const std::vector<double> made = distances(filePoints(target)),
                              truth = distances(filePoints(MarkersFolder + "geometry1000.ini"));
    ASSERT_EQ(made.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NEAR(made[i], truth[i], 0.5) << i;
    EXPECT_EQ(SpryTrack::AtracsysHelpers::loadGeometry(target)->geometryId, 1000u);

    // The camera settings follow the open stream.
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return spin->isEnabled(); }));
    EXPECT_EQ(spin->value(), stream.imageIntegrationTime());
    spin->setValue(250);
    EXPECT_EQ(stream.imageIntegrationTime(), 250);

    // Loaded back, the new marker is tracked.
    widget.findChild<QPushButton*>("loadButton")->click();
    ASSERT_EQ(stream.numInstruments(false), 1u);
    ASSERT_EQ(stream.instruments()[0].ID(), "atracsys-1000");
    EXPECT_TRUE(GuiTest::processEventsUntil([&] { return stream.instruments()[0].quality > 0.9; }))
        << capture->dump();
    EXPECT_EQ(widget.nextAvailableId(), 1001u);
    ASSERT_TRUE(stream.close());
}

TEST_F(MarkersWidgetOnSimulator, OptimisesTheTrackedMarkerAndSavesTheRefinedGeometry) {
    TestSupport::LogCapture capture;
    AtracsysTrackingStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.addGeometry("geometry1000.ini", MarkersFolder + "geometry1000.ini"));
    AtracsysMarkersWidget widget(&stream, true);
    Properties parameters;
    parameters.setParam("recordedFrames", 120);
    widget.setOptimizationParameters(parameters);

    const std::string target = output.filePath("geometry1000_optimized.ini").toStdString();
    int dialogs = 0;
    QtHelpers::ScopedFileDialogHook hook([&](const QtHelpers::FileDialogRequest&) {
        ++dialogs;
        return target;
    });
    auto* optimize = widget.findChild<QPushButton*>("optimizeGeomButton");
    optimize->click();
    EXPECT_TRUE(capture->contains(Log::Info, Category,
                                  "Fiducial query mode changed to MARKER for marker optimization"))
        << capture->dump();
    EXPECT_TRUE(capture->contains(Log::Info, Category, "Run optimization on tracker atracsys-1000"));
    EXPECT_FALSE(optimize->isEnabled()) << "one optimisation at a time";

    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return !widget.isOptimizing() && dialogs > 0; }))
        << capture->dump();
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return optimize->isEnabled(); }));
    EXPECT_TRUE(capture->contains(Log::Info, Category, "the marker geometry has been written to " + target));
    EXPECT_EQ(stream.numInstruments(false), 0u) << "the old geometry is removed";

    // How close the refined geometry comes to the truth is the optimisation's own tests' concern.
    const auto geometry = SpryTrack::AtracsysHelpers::loadGeometry(target);
    ASSERT_TRUE(geometry);
    EXPECT_EQ(std::make_pair(geometry->geometryId, geometry->pointsCount), std::make_pair(1000u, 4u));
    ASSERT_TRUE(stream.close());
}

TEST_F(MarkersWidgetOnSimulator, OptimisationNeedsAnActiveTrackerAndItsCoordinates) {
    TestSupport::LogCapture capture;
    {
        AtracsysTrackingStream stream("Atracsys Tracking Stream");
        AtracsysMarkersWidget widget(&stream, true);
        widget.onOptimizeMarker();
        EXPECT_TRUE(capture->contains(Log::Warning, Category, "No active tracker to be optimized."))
            << capture->dump();
        EXPECT_FALSE(widget.isOptimizing());
        ASSERT_TRUE(stream.close());
    }

    // A stream that loses the marker's coordinates once the recording started.
    class ForgetfulStream : public AtracsysTrackingStream {
    public:
        using AtracsysTrackingStream::AtracsysTrackingStream;
        std::vector<Eigen::Vector3d> geometryCoordinates(const std::string& id) override {
            if (++calls > 1)
                return {};
            return AtracsysTrackingStream::geometryCoordinates(id);
        }
        std::atomic<int> calls{0};
    };
    ForgetfulStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.addGeometry("geometry1000.ini", MarkersFolder + "geometry1000.ini"));
    int dialogs = 0;
    QtHelpers::ScopedFileDialogHook hook([&](const QtHelpers::FileDialogRequest&) {
        ++dialogs;
        return output.filePath("x.ini").toStdString();
    });
    AtracsysMarkersWidget widget(&stream, true);
    Properties parameters;
    parameters.setParam("recordedFrames", 20);
    parameters.setParam("optimizationMode", 0);
    widget.setOptimizationParameters(parameters);
    widget.onOptimizeMarker();
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return !widget.isOptimizing(); }));
    QCoreApplication::processEvents();
    EXPECT_TRUE(capture->contains(Log::Warning, Category, "Coordinates from marker could not be retrieved."))
        << capture->dump();
    EXPECT_EQ(dialogs, 0);
    EXPECT_EQ(stream.numInstruments(false), 1u) << "the geometry stays when nothing replaces it";
    ASSERT_TRUE(stream.close());
}

TEST_F(MarkersWidgetOnSimulator, ClosingWaitsForARunningOptimisation) {
    TestSupport::LogCapture capture(Log::Info);
    MainWindow window;
    AtracsysTrackingStream stream("Atracsys Tracking Stream");
    // Marker 1001 is not in the scene: its recording never ends by itself.
    ASSERT_TRUE(stream.addGeometry("geometry1001.ini", MarkersFolder + "geometry1001.ini"));
    auto widget = std::make_unique<AtracsysMarkersWidget>(&stream, true);
    widget->setMainWindow(&window);
    widget->onOptimizeMarker();
    ASSERT_TRUE(widget->isOptimizing());
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return window.progressWidget()->rowCount() == 1; }));
    EXPECT_EQ(window.progressWidget()->descriptionLabel(0)->text(), "Record geometry...");

    const std::string waiting = "Cannot close AtracsysMarkersWidget while initializing Tracking Hardware. "
                                "Waiting until initialization has finished.";
    std::atomic<bool> sawWaiting{false};
    std::thread user([&] {
        // The user cancels the recording while the widget waits for it.
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!capture->contains(Log::Warning, Category, waiting) && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        sawWaiting = capture->contains(Log::Warning, Category, waiting);
        window.progress()->cancelAll();
    });
    widget.reset();
    user.join();
    EXPECT_TRUE(sawWaiting) << capture->dump();
    EXPECT_TRUE(window.progress()->tasks().empty()) << "the optimisation ended before the widget went";
    ASSERT_TRUE(stream.close());
}
