// File > Open Recording... in the desktop host's session, with the plugin's replay set-up and its
// stream on the simulated camera: a session recorded before becomes the camera, played to its end
// by a stream created for it, then again by that stream reopened.

#include "atracsys/plugin/AtracsysAlgorithmFactory.h"
#include "atracsys/plugin/AtracsysReplayAlgorithm.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/apps/kestrion-gui/GuiSession.h"
#include "host/apps/kestrion-gui/RecordingReplay.h"
#include "host/lib/CommandAlgorithms.h"
#include "host/lib/FactoryRegistry.h"
#include "host/lib/widgets/MainWindow.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"
#include "tests/support/WaitFor.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>

using namespace Kestrion;

TEST(OpenRecording, TheRecordingBecomesTheCameraOfTheSessionsStream) {
    GuiTest::ensureApplication();
    TrackingStreamTest::SceneGuard scene{GuiTest::dataFile("static-marker.json")};
    QTemporaryDir folder;
    const std::string file = folder.filePath("session.krec").toStdString();
    std::uint64_t recorded = 0;
    {
        SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
        ASSERT_TRUE(stream.open() && stream.start());
        ASSERT_TRUE(stream.recordTo(file, false));
        ASSERT_TRUE(TestSupport::waitFor(
            [&] { return stream.recordingStatus() && stream.recordingStatus()->frames >= 30; }));
        stream.stopRecording();
        ASSERT_TRUE(TestSupport::waitFor(
            [&] { return stream.recordingStatus()->state == RecordingStatus::State::Complete; }));
        recorded = stream.recordingStatus()->frames;
    }

    FactoryRegistry registry;
    registry.addAlgorithmFactory(std::make_unique<AtracsysAlgorithmFactory>(), "test");
    CommandAlgorithms::instance().add("test", Gui::RecordingReplay::SetupAlgorithm,
                                      [] { return std::make_unique<SpryTrack::AtracsysReplayAlgorithm>(); });
    MainWindow window;
    {
        Gui::GuiSession session(window, registry);
        // No stream yet: one is created, opened and started on the recording, and plays it to its end.
        ASSERT_TRUE(Gui::RecordingReplay::open(session, file));
        session.waitForComputations();
        ASSERT_EQ(session.trackingStreams().size(), 1u);
        TrackingStream& stream = *session.trackingStreams()[0];
        const auto ended = [&] { return stream.health().snapshot().state == StreamHealth::State::Ended; };
        ASSERT_TRUE(GuiTest::processEventsUntil(ended));
        // Started during the computation: the stream's own count of the frames it emitted.
        EXPECT_EQ(stream.health().snapshot().dataItems, recorded) << "every recorded frame, once";
        // Opened again: the session's stream is reopened on it and plays it from its start.
        std::atomic<std::uint64_t> frames{0};
        auto counting =
            stream.signalStreamData.connect([&](const std::shared_ptr<const StreamData>&) { ++frames; });
        ASSERT_TRUE(Gui::RecordingReplay::open(session, file));
        ASSERT_TRUE(GuiTest::processEventsUntil(ended));
        EXPECT_EQ(frames.load(), recorded);
        counting.disconnect();
        session.closeAll();
    }
    CommandAlgorithms::instance().remove("test");
    ftkSimResetScene();
}
