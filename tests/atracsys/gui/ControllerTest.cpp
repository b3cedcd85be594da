// The stream's control panel and the markers widget on the simulated camera: the panel's controls
// through open, start, stop and close, its switches and binding to the stream; making, loading back
// and optimising a marker.

#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "atracsys/gui/AtracsysMarkersWidget.h"
#include "atracsys/gui/AtracsysTrackingController.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/core/Properties.h"
#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/GlView.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/ProgressWidget.h"
#include "host/lib/widgets/PropertiesWidget.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/lib/widgets/UrlOpenRecorder.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"
#include "tests/support/LogCapture.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace Kestrion;
using Kestrion::SpryTrack::AtracsysTrackingStream;
using State = Stream::State;

namespace {

constexpr const char* ControllerCategory = "AtracsysTrackingController";
constexpr const char* MarkersCategory = "AtracsysMarkersWidget";
const std::string MarkersFolder = std::string(KESTRION_SOURCE_DIR) + "/data/markers/";
using Points = std::vector<Eigen::Vector3d>;

/// Holds the stream's control thread when the stream enters a state, until released, so that
/// the panel can be seen in that transitional state.
class StateLatch {
public:
    StateLatch(Stream& stream, State held) {
        m_connection = stream.signalStateChanged.connect([this, held](State state) {
            if (state != held)
                return;
            std::unique_lock<std::mutex> lock(m_mutex); // the control thread waits, the test releases
            m_reached = true;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_released; });
        });
    }
    ~StateLatch() {
        release();
        m_connection.disconnect();
    }
    bool waitReached() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(30), [this] { return m_reached; });
    }
    void release() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_released = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_reached = false;
    bool m_released = false;
    SignalConnection m_connection;
};

/// The stream-creating algorithm as the host hands it to the panel: with its stream made.
struct AlgorithmWithStream : AtracsysTrackingController::CreateAlgorithm {
    explicit AlgorithmWithStream(AtracsysTrackingStream* stream) { setStream(stream); }
};

class TrackingControllerTest : public ::testing::Test {
protected:
    QPushButton* connectionButton() { return buttonAt(0, 0); }
    QPushButton* startButton() { return buttonAt(0, 1); }
    QComboBox* combo() { return controller.findChild<QComboBox*>(); }
    QCheckBox* imagesCheck() { return controller.findChild<QCheckBox*>(); }
    QGridLayout* grid() { return qobject_cast<QGridLayout*>(controller.findChild<QGroupBox*>()->layout()); }
    QPushButton* buttonAt(int row, int column) {
        return qobject_cast<QPushButton*>(grid()->itemAtPosition(row, column)->widget());
    }

    GuiTest::Application application;
    TrackingStreamTest::SceneGuard scene{GuiTest::dataFile("static-marker.json")};
    AtracsysTrackingStream* stream =
        new AtracsysTrackingStream("Atracsys Tracking Stream"); // the algorithm owns it
    AlgorithmWithStream algorithm{stream};
    DisplayWidgetMulti display;
    AtracsysTrackingController controller{&algorithm};
};

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

TEST_F(TrackingControllerTest, PanelLayout) {
    auto* box = controller.findChild<QGroupBox*>();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->title(), "General");
    EXPECT_EQ(connectionButton()->text(), "Init");
    EXPECT_EQ(startButton()->text(), "Start");
    EXPECT_EQ(qobject_cast<QLabel*>(grid()->itemAtPosition(1, 0)->widget())->text(), "Fiducial Mode:");
    EXPECT_EQ(grid()->itemAtPosition(1, 1)->widget(), combo());
    QStringList items;
    for (int i = 0; i < combo()->count(); ++i)
        items << combo()->itemText(i);
    EXPECT_EQ(items, QStringList({"None", "Belonging to marker", "All in marker vicinity", "All"}));
    EXPECT_EQ(grid()->itemAtPosition(2, 0)->widget(), imagesCheck());
    EXPECT_EQ(imagesCheck()->text(), "Show images");

    // The stream's properties below the general box, with their names split into words.
    auto* properties = controller.findChild<PropertiesWidget*>();
    ASSERT_TRUE(properties);
    EXPECT_TRUE(properties->camelCaseSplitting());
    auto* layout = qobject_cast<QVBoxLayout*>(controller.layout());
    EXPECT_LT(layout->indexOf(box), layout->indexOf(properties));
    EXPECT_FALSE(controller.isEnabled()) << "no stream bound before init";
    for (const char* type : {"TrackingInstrument", "QList<TrackingInstrument>"})
        EXPECT_NE(QMetaType::type(type), QMetaType::UnknownType) << type;

    MainWindow window;
    controller.setMainWindow(&window);
    controller.init();
    EXPECT_TRUE(controller.isEnabled());
    ASSERT_TRUE(controller.markersWidget());
    EXPECT_EQ(controller.markersWidget()->mainWindow(), &window);
    EXPECT_TRUE(
        controller.markersWidget()->findChild<QPushButton*>("optimizeGeomButton")->isVisibleTo(&controller));
    EXPECT_GT(layout->indexOf(controller.markersWidget()), layout->indexOf(box));
}

TEST_F(TrackingControllerTest, ControlsFollowTheStreamThroughOpenStartStopAndClose) {
    TestSupport::LogCapture capture;
    controller.init();
    EXPECT_EQ(connectionButton()->text(), "Open Connection");
    EXPECT_FALSE(startButton()->isEnabled());

    {
        // Opening is not waited for: the panel shows it while it lasts.
        StateLatch opening(*stream, State::Opening);
        connectionButton()->click();
        ASSERT_TRUE(opening.waitReached());
        ASSERT_TRUE(
            GuiTest::processEventsUntil([&] { return connectionButton()->text() == "Initializing..."; }));
        EXPECT_FALSE(startButton()->isEnabled());
    }
    ASSERT_TRUE(
        GuiTest::processEventsUntil([&] { return connectionButton()->text() == "Close Connection"; }));
    EXPECT_TRUE(stream->isInitialized());
    EXPECT_TRUE(startButton()->isEnabled());
    EXPECT_FALSE(imagesCheck()->isEnabled()) << "images are chosen before opening";

    // Starting is waited for; with no instrument it warns and starts anyway.
    startButton()->click();
    EXPECT_EQ(stream->currentState(), State::Running);
    EXPECT_EQ(startButton()->text(), "Stop");
    EXPECT_TRUE(capture->contains(Log::Warning, ControllerCategory, "AtracsysTracking: Instruments empty!"))
        << capture->dump();

    startButton()->click();
    EXPECT_EQ(stream->currentState(), State::Open);
    EXPECT_EQ(startButton()->text(), "Start");

    {
        // Pressed while the stream is starting, the button stops it.
        StateLatch starting(*stream, State::Starting);
        std::future<bool> started = stream->startAsync();
        ASSERT_TRUE(starting.waitReached());
        controller.updateGUI();
        EXPECT_EQ(startButton()->text(), "Starting...");
        std::thread release([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            starting.release();
        });
        startButton()->click(); // waits for the stop, which runs once the start has finished
        release.join();
        EXPECT_TRUE(started.get());
        EXPECT_EQ(stream->currentState(), State::Open);
        EXPECT_EQ(startButton()->text(), "Start");
    }
    EXPECT_EQ(capture->count(Log::Warning, ControllerCategory, "AtracsysTracking: Instruments empty!"), 1u);

    {
        startButton()->click();
        ASSERT_EQ(stream->currentState(), State::Running);
        StateLatch stopping(*stream, State::Stopping);
        std::future<bool> stopped = stream->stopAsync();
        ASSERT_TRUE(stopping.waitReached());
        controller.updateGUI();
        EXPECT_EQ(startButton()->text(), "Stopping...");
        stopping.release();
        EXPECT_TRUE(stopped.get());
    }

    {
        StateLatch closing(*stream, State::Closing);
        connectionButton()->click();
        ASSERT_TRUE(closing.waitReached());
        ASSERT_TRUE(GuiTest::processEventsUntil([&] { return connectionButton()->text() == "Closing..."; }));
    }
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return connectionButton()->text() == "Open Connection"; }));
    EXPECT_FALSE(startButton()->isEnabled());
    EXPECT_TRUE(imagesCheck()->isEnabled());
}

TEST_F(TrackingControllerTest, FiducialModeImagesAndPropertiesReachTheStream) {
    controller.setDisplayWidget(&display);
    controller.init();
    EXPECT_FALSE(controller.renderer()) << "no images asked for";
    combo()->setCurrentText("All");
    EXPECT_EQ(stream->fiducialQueryMode(), AtracsysTrackingStreamBase::AllFiducials);
    combo()->setCurrentIndex(1);
    EXPECT_EQ(stream->fiducialQueryMode(), AtracsysTrackingStreamBase::MarkerFiducials);

    // Settings changed elsewhere are shown.
    stream->setFiducialQueryMode(AtracsysTrackingStreamBase::FiducialsNearMarkers);
    stream->setQueryImages(true);
    controller.updateGUI();
    EXPECT_EQ(combo()->currentIndex(), 2);
    EXPECT_TRUE(imagesCheck()->isChecked());
    stream->setQueryImages(false);
    controller.updateGUI();

    // Checking creates the camera view; unchecking keeps it; checking again makes a fresh one.
    imagesCheck()->setChecked(true);
    EXPECT_TRUE(stream->queryImages());
    AtracsysRenderer* first = controller.renderer();
    ASSERT_TRUE(first);
    EXPECT_EQ(display.viewCount(), 2);
    imagesCheck()->setChecked(false);
    EXPECT_FALSE(stream->queryImages());
    EXPECT_EQ(controller.renderer(), first);
    imagesCheck()->setChecked(true);
    ASSERT_TRUE(controller.renderer());
    EXPECT_NE(controller.renderer(), first);
    EXPECT_EQ(display.viewCount(), 2) << "the replaced view's cameras are gone";
    EXPECT_EQ(controller.renderer()->cameraView(0).view.data(), display.views()[0]);

    // Property edits reach the stream; the properties then show what the open camera reports.
    ASSERT_TRUE(stream->open());
    auto* properties = controller.findChild<PropertiesWidget*>();
    auto* distance = qobject_cast<QDoubleSpinBox*>(properties->editor("maxFiducialMarkerDistance"));
    ASSERT_TRUE(distance);
    distance->setValue(42.5);
    EXPECT_EQ(stream->maxFiducialMarkerDistance(), 42.5);
    // The integration time has one control, the markers widget's; the key stays in the settings.
    ASSERT_TRUE(GuiTest::processEventsUntil(
        [&] { return properties->properties().hasParam("imageIntegrationTime"); }));
    EXPECT_EQ(properties->editor("imageIntegrationTime"), nullptr);
    auto* integration = controller.findChild<QSpinBox*>("integrationTimeSpinbox");
    ASSERT_TRUE(integration && integration->isVisibleTo(&controller));
    controller.markersWidget()->updateGUI();
    EXPECT_EQ(integration->value(), stream->imageIntegrationTime());
    ASSERT_TRUE(stream->close());
}

TEST_F(TrackingControllerTest, FramePacingAndReconnectionReachTheStream) {
    TestSupport::LogCapture capture;
    Properties workspace; // a workspace saved with "Reconnect" checked
    workspace.setParam("reconnect", true);
    stream->configure(&workspace);
    controller.init();
    auto* pacing = controller.findChild<QSpinBox*>("framePacingSpin");
    ASSERT_TRUE(pacing);
    EXPECT_EQ(pacing->value(), 10);
    pacing->setValue(0);
    EXPECT_EQ(stream->framePacingMs(), 0);
    EXPECT_EQ(pacing->text(), "camera");

    auto* reconnect = qobject_cast<QCheckBox*>(grid()->itemAtPosition(5, 0)->widget());
    auto* waiting = qobject_cast<QLabel*>(grid()->itemAtPosition(5, 1)->widget());
    ASSERT_TRUE(reconnect && waiting);
    EXPECT_EQ(reconnect->text(), "Reconnect");
    EXPECT_TRUE(reconnect->isChecked()) << "shows the stream's setting";
    ASSERT_TRUE(stream->open());
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return startButton()->isEnabled(); }));
    startButton()->click();
    ASSERT_TRUE(GuiTest::processEventsUntil(
        [&] { return controller.reconnector()->state() == StreamReconnector::State::Watching; }));

    // Unplugged for good: the panel says that it waits; unchecking ends the waiting.
    ASSERT_TRUE(ftkSimInjectFault(stream->cameraInUse().serialNumber, R"({"kind": "disconnection"})"));
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return waiting->text() == "waiting for the camera"; }));
    reconnect->setChecked(false);
    EXPECT_FALSE(stream->reconnect()) << "saved unchecked";
    EXPECT_EQ(controller.reconnector()->state(), StreamReconnector::State::Idle);
    EXPECT_EQ(waiting->text(), "");
}

TEST(ControllerWithoutStream, IsDisabledAndSaysSo) {
    GuiTest::ensureApplication();
    TestSupport::LogCapture capture;
    AtracsysTrackingController::CreateAlgorithm algorithm; // never computed: no stream
    AtracsysTrackingController controller(&algorithm);
    controller.init();
    EXPECT_TRUE(capture->contains(Log::Error, "", "Stream not available for initialization!"))
        << capture->dump();
    EXPECT_FALSE(controller.isEnabled());
    controller.onQueryImagesStateChanged(Qt::Checked); // nothing to do without a stream
    EXPECT_FALSE(controller.renderer());
}

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
    EXPECT_TRUE(capture->contains(Log::Debug, MarkersCategory,
                                  "Fiducial query mode changed to ALL for marker creation"))
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
    EXPECT_TRUE(capture->contains(Log::Info, MarkersCategory,
                                  "Fiducial query mode changed to MARKER for marker optimization"))
        << capture->dump();
    EXPECT_TRUE(capture->contains(Log::Info, MarkersCategory, "Run optimization on tracker atracsys-1000"));
    EXPECT_FALSE(optimize->isEnabled()) << "one optimisation at a time";

    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return !widget.isOptimizing() && dialogs > 0; }))
        << capture->dump();
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return optimize->isEnabled(); }));
    EXPECT_TRUE(
        capture->contains(Log::Info, MarkersCategory, "the marker geometry has been written to " + target));
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
        EXPECT_TRUE(capture->contains(Log::Warning, MarkersCategory, "No active tracker to be optimized."))
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
    EXPECT_TRUE(
        capture->contains(Log::Warning, MarkersCategory, "Coordinates from marker could not be retrieved."))
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
        while (!capture->contains(Log::Warning, MarkersCategory, waiting) &&
               std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        sawWaiting = capture->contains(Log::Warning, MarkersCategory, waiting);
        window.progress()->cancelAll();
    });
    widget.reset();
    user.join();
    EXPECT_TRUE(sawWaiting) << capture->dump();
    EXPECT_TRUE(window.progress()->tasks().empty()) << "the optimisation ended before the widget went";
    ASSERT_TRUE(stream.close());
}
