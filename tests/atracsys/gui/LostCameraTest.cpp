// The desktop host's views when the simulated camera stops delivering: unplugged, stopped,
// closed, and a replayed recording at its end. None of them may show an instrument as tracked,
// the 3D view draws the last poses as lost and the camera views say that their image is old.

#include "atracsys/gui/AtracsysRenderer.h"
#include "host/core/Properties.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/lib/trackingviews/WorkingVolumeView.h"
#include "host/lib/widgets/DisplayWidgetMulti.h"
#include "host/lib/widgets/GlView.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

using namespace Kestrion;
using State = Stream::State;

namespace {

const std::string Marker = std::string(KESTRION_SOURCE_DIR) + "/data/markers/geometry1000.ini";

/// The stream with images, the instrument view, the 3D view and the camera views on it.
class Views {
public:
    explicit Views(const Properties* settings = nullptr) {
        if (settings)
            stream.configure(settings);
        stream.setQueryImages(true);
        renderer = std::make_unique<AtracsysRenderer>(stream, display);
        instruments.setStream(&stream);
        volume.setStream(&stream);
    }
    ~Views() {
        instruments.setStream(nullptr);
        volume.setStream(nullptr);
        renderer.reset();
        stream.close();
    }

    bool openAndTrack() {
        return stream.open() && stream.addGeometry("pointer", Marker) && stream.start() && until([this] {
                   return instruments.model()->rowCount() == 1 && instruments.model()->isTracked(0);
               });
    }
    /// Refreshes the views (as their timers do) until the condition holds.
    bool until(const std::function<bool()>& condition) {
        return GuiTest::processEventsUntil([&] {
            instruments.refresh();
            volume.refresh();
            return condition();
        });
    }
    bool trackedAnywhere() {
        return instruments.model()->isTracked(0) || volume.scene().instrumentsDrawn() > 0;
    }
    QString reason() const {
        return instruments.model()
            ->data(instruments.model()->index(0, InstrumentTableModel::Reason))
            .toString();
    }
    QString overlay(std::size_t camera) const { return renderer->cameraView(camera).view->overlayText(); }
    /// Everything the user sees says that nothing is current.
    void expectNothingCurrent(const QString& why) {
        EXPECT_FALSE(instruments.model()->isTracked(0));
        EXPECT_EQ(
            instruments.model()->data(instruments.model()->index(0, InstrumentTableModel::Status)).toString(),
            "not tracked");
        EXPECT_EQ(reason(), why);
        EXPECT_EQ(volume.scene().instrumentsDrawn(), 0u);
        EXPECT_EQ(volume.scene().instrumentsLost(), 1u) << "drawn where it was last seen, as lost";
        EXPECT_TRUE(volume.scene().rawPoints().empty());
        ASSERT_TRUE(
            GuiTest::processEventsUntil([&] { return overlay(0) == AtracsysRenderer::NoCurrentImage; }));
        EXPECT_EQ(overlay(1), AtracsysRenderer::NoCurrentImage);
    }

    GuiTest::Application application;
    TrackingStreamTest::ProbedStream stream;
    DisplayWidgetMulti display;
    std::unique_ptr<AtracsysRenderer> renderer;
    InstrumentView instruments;
    WorkingVolumeView volume;
};

class LostCamera : public ::testing::Test {
protected:
    TrackingStreamTest::SceneGuard m_scene{GuiTest::dataFile("static-marker.json")};
};

} // namespace

TEST_F(LostCamera, AnUnpluggedCameraLeavesNothingTrackedAndSaysSo) {
    Views views;
    ASSERT_TRUE(views.openAndTrack());
    EXPECT_EQ(views.instruments.stateText(), "");
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return views.overlay(0).isEmpty(); }));

    ASSERT_TRUE(ftkSimInjectFault(views.stream.serialNumber(), R"({"kind": "disconnection"})"));
    ASSERT_TRUE(views.until([&] { return !views.trackedAnywhere(); }));
    EXPECT_EQ(views.stream.currentState(), State::Running) << "the stream waits for its camera";
    views.expectNothingCurrent("camera not delivering");
    EXPECT_TRUE(views.instruments.stateText().startsWith(
        "The camera of \"Atracsys Tracking Stream\" is not delivering: no data for "))
        << views.instruments.stateText().toStdString();
}

TEST_F(LostCamera, StoppingOrClosingTheStreamLeavesNothingTracked) {
    Views views;
    ASSERT_TRUE(views.openAndTrack());
    ASSERT_TRUE(views.stream.stop());
    ASSERT_TRUE(views.until([&] { return !views.trackedAnywhere(); }));
    views.expectNothingCurrent("stream open");
    EXPECT_EQ(views.instruments.stateText(), "The stream \"Atracsys Tracking Stream\" stopped; it is open.");

    ASSERT_TRUE(views.stream.start());
    ASSERT_TRUE(views.until([&] { return views.instruments.model()->isTracked(0); }));
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return views.overlay(0).isEmpty(); }));
    ASSERT_TRUE(views.stream.close());
    ASSERT_TRUE(views.until([&] { return !views.trackedAnywhere(); }));
    views.expectNothingCurrent("stream closed");
    EXPECT_EQ(views.instruments.stateText(),
              "The stream \"Atracsys Tracking Stream\" stopped; it is closed.");
}

TEST_F(LostCamera, AReplayedRecordingAtItsEndLeavesNothingTracked) {
    const std::string recording =
        (std::filesystem::temp_directory_path() / (std::to_string(::getpid()) + "-lost-camera.krec"))
            .string();
    std::filesystem::remove(recording);
    {
        Properties settings;
        settings.setParam("recordFile", recording);
        settings.setParam("recordImages", true);
        Views views(&settings);
        ASSERT_TRUE(views.openAndTrack());
        ASSERT_TRUE(views.until([&] { return views.stream.health().snapshot().dataItems >= 40; }));
    } // the stream goes: its recording is complete
    ASSERT_TRUE(ftkSimLoadReplay(recording.c_str(), false));

    Views replay;
    ASSERT_TRUE(replay.openAndTrack()) << "the recording plays";
    ASSERT_TRUE(replay.until([&] { return !replay.trackedAnywhere(); }));
    EXPECT_EQ(replay.stream.currentState(), State::Running);
    const QString why = replay.reason();
    EXPECT_TRUE(why == "data ended" || why == "camera not delivering") << why.toStdString();
    replay.expectNothingCurrent(why);
    std::filesystem::remove(recording);
}
