// Recording a session from the stream's panel on the simulated camera: the files it writes read
// back with the frames the indicator showed, twice in a row, never over an existing file, from the
// start of tracking, and across a camera lost and reopened while "Reconnect" is checked.

#include "atracsys/gui/AtracsysRecordingPanel.h"
#include "atracsys/gui/AtracsysTrackingController.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/core/Properties.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/QtHelpers.h"
#include "recording/RecordingReader.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"
#include "tests/support/LogCapture.h"

#include <QCheckBox>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <filesystem>

using namespace Kestrion;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

struct RecordingAlgorithm : AtracsysTrackingController::CreateAlgorithm {
    explicit RecordingAlgorithm(AtracsysTrackingStream* stream) { setStream(stream); }
};

/// Frames and gaps of a complete recording file; frames -1 when it cannot be read whole.
struct FileContents {
    long long frames = -1;
    std::size_t gaps = 0;
};

FileContents read(const std::string& file) {
    Recording::RecordingReader reader;
    if (!reader.open(file))
        return {};
    Recording::Frame frame;
    while (reader.next(frame) == Recording::RecordingReader::Next::Frame) {
    }
    if (reader.cutShort())
        return {};
    return {static_cast<long long>(reader.framesRead()), reader.gaps().size()};
}

class RecordingPanelTest : public ::testing::Test {
protected:
    explicit RecordingPanelTest(const std::string& sceneFile = GuiTest::dataFile("static-marker.json"))
        : scene(sceneFile) {}
    void SetUp() override {
        window.setWorkspaceFile(folder.filePath("workspace.kws").toStdString());
        controller.setMainWindow(&window);
        controller.init();
        ASSERT_TRUE(panel());
    }
    AtracsysRecordingPanel* panel() { return controller.recordingPanel(); }
    std::string path(const char* name) { return folder.filePath(name).toStdString(); }
    /// The stream's recording status once the condition holds; none after 30 s.
    std::optional<RecordingStatus> statusWhen(const std::function<bool(const RecordingStatus&)>& condition) {
        std::optional<RecordingStatus> status;
        GuiTest::processEventsUntil([&] {
            status = stream->recordingStatus();
            return status && condition(*status);
        });
        return status && condition(*status) ? status : std::nullopt;
    }
    /// Clicks "Record..." answering the file dialog with `file`; the request is kept.
    void record(const std::string& file) {
        QtHelpers::ScopedFileDialogHook hook([&](const QtHelpers::FileDialogRequest& r) {
            request = r;
            return file;
        });
        panel()->recordButton()->click();
        ASSERT_TRUE(GuiTest::processEventsUntil(
            [&] { return !panel()->starting() && panel()->recordButton()->isEnabled(); }));
    }
    static bool complete(const RecordingStatus& s) { return s.state == RecordingStatus::State::Complete; }

    GuiTest::Application application;
    TrackingStreamTest::SceneGuard scene;
    QTemporaryDir folder;
    AtracsysTrackingStream* stream = new AtracsysTrackingStream("Atracsys Tracking Stream");
    RecordingAlgorithm algorithm{stream};
    MainWindow window;
    AtracsysTrackingController controller{&algorithm};
    QtHelpers::FileDialogRequest request;
};

/// The camera of the scene "replug.json": unplugged at its 27th frame, back 54 frames later.
class RecordingPanelReplugTest : public RecordingPanelTest {
protected:
    RecordingPanelReplugTest()
        : RecordingPanelTest("replug.json") {}
};

} // namespace

TEST_F(RecordingPanelTest, RecordsTwiceWhileTrackingAndReadsBackWhatTheIndicatorShowed) {
    TestSupport::LogCapture capture;
    EXPECT_EQ(panel()->indicator()->text(), "Not recording");
    EXPECT_FALSE(panel()->imagesCheck()->isEnabled()) << "the stream fetches no images";
    ASSERT_TRUE(stream->open());
    // Asked for before tracking starts, the recording begins with it.
    record(path("first.krec"));
    EXPECT_EQ(request.kind, QtHelpers::FileDialogRequest::Kind::Save);
    EXPECT_EQ(QFileInfo(QString::fromStdString(request.startPath)).absolutePath(), folder.path())
        << "the dialog starts in the workspace's folder";
    EXPECT_FALSE(request.confirmOverwrite);
    EXPECT_EQ(panel()->indicator()->text(), "Records to first.krec when tracking starts");
    EXPECT_EQ(panel()->recordButton()->text(), "Stop recording");
    ASSERT_TRUE(stream->start());

    for (const char* name : {"first.krec", "second.krec"}) {
        if (std::string(name) == "second.krec")
            record(path(name)); // at once, the stream running
        ASSERT_TRUE(statusWhen([](const RecordingStatus& s) { return s.frames >= 20; })) << name;
        panel()->refresh();
        EXPECT_TRUE(
            panel()->indicator()->text().startsWith(QStringLiteral("\u25CF Recording %1: 00:00:").arg(name)))
            << panel()->indicator()->text().toStdString();
        EXPECT_EQ(panel()->recordButton()->text(), "Stop recording");
        panel()->recordButton()->click();
        const auto done = statusWhen(complete);
        ASSERT_TRUE(done && complete(*done));
        panel()->refresh();
        // The figures shown are those of the file.
        const FileContents contents = read(path(name));
        EXPECT_EQ(contents.frames, static_cast<long long>(done->frames));
        EXPECT_EQ(panel()->indicator()->text(),
                  QStringLiteral("Recorded %1: %2 frames, %3, 0 dropped")
                      .arg(name)
                      .arg(contents.frames)
                      .arg(AtracsysRecordingPanel::size(std::filesystem::file_size(path(name)))));
        EXPECT_EQ(panel()->recordButton()->text(), "Record...");
    }

    // An existing file is refused and left as it was.
    const auto before = std::filesystem::file_size(path("first.krec"));
    record(path("first.krec"));
    const QString refusal = QStringLiteral("Not recording: %1 exists; choose another name")
                                .arg(QString::fromStdString(path("first.krec")));
    EXPECT_EQ(panel()->indicator()->text(), refusal);
    EXPECT_TRUE(capture->contains(Log::Warning, "AtracsysRecordingPanel", refusal.toStdString()));
    EXPECT_EQ(std::filesystem::file_size(path("first.krec")), before);
    EXPECT_EQ(stream->recordingStatus()->file, path("second.krec"));
    ASSERT_TRUE(stream->close());
}

TEST_F(RecordingPanelReplugTest, RecordingGoesOnWhenTheCameraIsReopened) {
    stream->setReconnect(true);
    controller.updateGUI();
    ASSERT_TRUE(stream->open());
    const std::uint64_t serial = stream->cameraInUse().serialNumber;
    record(path("reopened.krec")); // from the start, before the camera is unplugged
    ASSERT_TRUE(stream->start());
    const auto waiting =
        statusWhen([](const RecordingStatus& s) { return s.state == RecordingStatus::State::Waiting; });
    ASSERT_TRUE(waiting);
    EXPECT_GT(waiting->frames, 0u);
    panel()->refresh();
    EXPECT_TRUE(panel()->indicator()->text().startsWith("Recording reopened.krec waits for the camera: "));
    EXPECT_EQ(panel()->recordButton()->text(), "Stop recording");
    ASSERT_TRUE(ftkSimStep(serial, 60)); // the camera's clock passes the end of the disconnection
    ASSERT_TRUE(statusWhen([&](const RecordingStatus& s) {
        return s.state == RecordingStatus::State::Recording && s.gaps == 1 &&
               s.frames >= waiting->frames + 10;
    }));
    panel()->recordButton()->click();
    const auto done = statusWhen(complete);
    ASSERT_TRUE(done);
    const FileContents contents = read(path("reopened.krec"));
    EXPECT_EQ(contents.frames, static_cast<long long>(done->frames));
    EXPECT_EQ(contents.gaps, 1u);
    stream->setReconnect(false);
    controller.updateGUI();
    ASSERT_TRUE(stream->close());
}

// The indicator's figures, from a status as the stream gives it.
TEST(RecordingIndicator, ShowsTheStatusFigures) {
    RecordingStatus status;
    status.file = "/data/run.krec";
    status.frames = 3242;
    status.bytes = 12'400'000;
    status.dropped = 3;
    status.startedUS = 1'000'000'000;
    EXPECT_EQ(AtracsysRecordingPanel::describe(status, status.startedUS + 3'725'500'000ull),
              "\u25CF Recording run.krec: 01:02:05, 3242 frames, 12.4 MB, 3 dropped");
    status.state = RecordingStatus::State::CutShort;
    status.reason = "a write failed";
    EXPECT_EQ(AtracsysRecordingPanel::describe(status, 0),
              "Recording run.krec cut short after 3242 frames: a write failed");
    EXPECT_EQ(AtracsysRecordingPanel::describe(std::nullopt, 0), "Not recording");
    EXPECT_EQ(AtracsysRecordingPanel::size(999), "999 B");
    EXPECT_EQ(AtracsysRecordingPanel::size(850'400), "850 kB");
    EXPECT_EQ(AtracsysRecordingPanel::size(2'500'000'000ull), "2.50 GB");
}
