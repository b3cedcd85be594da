// A pivot calibration's tip saved where the tool is: into its own geometry file (the rest kept,
// the tool loaded again so that the stream and the instrument view's tip column show the new tip
// at once), into a copy in the workspace's folder for a compiled-in geometry, and never into a
// read-only file, the file and the reason said.

#include "atracsys/gui/AtracsysPivotCalibrationPanel.h"
#include "atracsys/gui/AtracsysToolTipSaver.h"
#include "host/core/File.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/QtHelpers.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"
#include "tests/support/LogCapture.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kind = AtracsysToolTipSaver::Outcome::Kind;

namespace {

const std::string Tool = "atracsys-1000";

std::string text(const std::string& path) {
    return Filesystem::File::readText(Filesystem::Path(path)).value_or("(unreadable)");
}
std::string marker() {
    return text(KESTRION_SOURCE_DIR "/data/markers/geometry1000.ini");
}
std::string pathOf(SpryTrack::AtracsysTrackingStream& stream) {
    return AtracsysPivotCalibrationPanel::geometryPath(stream, Tool);
}

/// Answers the file dialogs with `answer` and keeps what they asked.
struct Dialogs {
    std::vector<QtHelpers::FileDialogRequest> requests;
    std::string answer;
    QtHelpers::ScopedFileDialogHook hook{[this](const QtHelpers::FileDialogRequest& request) {
        requests.push_back(request);
        return answer;
    }};
};

} // namespace

TEST(ToolTipSave, WritesTheToolsOwnFileKeepingTheRestAndTheInstrumentViewShowsTheNewTipAtOnce) {
    GuiTest::ensureApplication();
    SceneGuard scene(GuiTest::dataFile("static-marker.json"));
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    const std::string tool = folder.filePath("tool.ini").toStdString(), notes = "[maker]\nserial=77\n";
    ASSERT_TRUE(
        Filesystem::File::writeText(tool, "; lab stylus\n" + marker() + "[pivot]\nx=1\ny=2\nz=3\n" + notes));
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.open() && stream.addGeometry("tool", tool) && stream.start());
    InstrumentView view;
    view.setStream(&stream);
    const auto tipCell = [&] {
        view.refresh();
        return view.model()->data(view.model()->index(0, InstrumentTableModel::Tip)).toString();
    };
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return !tipCell().isEmpty(); }));
    const QString oldTip = tipCell();

    Dialogs dialogs;
    const AtracsysToolTipSaver::Outcome outcome =
        AtracsysToolTipSaver::save(stream, Tool, Eigen::Vector3d(-1.25, 0.5, 148.75), "/elsewhere");
    ASSERT_EQ(outcome.kind, Kind::Saved) << outcome.error;
    EXPECT_EQ(outcome.file, tool);
    EXPECT_TRUE(dialogs.requests.empty()) << "the tool's own file, without a question";
    EXPECT_EQ(text(tool), "; lab stylus\n" + marker() + notes + "[pivot]\nx=-1.250\ny=0.500\nz=148.750\n");
    EXPECT_TRUE(
        capture->contains(Log::Info, "AtracsysMarkersWidget", "the tool tip has been written to " + tool));
    // The tip moved by about 146 mm in the marker's frame: so does the tip column.
    ASSERT_TRUE(GuiTest::processEventsUntil([&] {
        const QStringList was = oldTip.split(", "), now = tipCell().split(", ");
        return now.size() == 3 &&
               Eigen::Vector3d(now[0].toDouble() - was[0].toDouble(), now[1].toDouble() - was[1].toDouble(),
                               now[2].toDouble() - was[2].toDouble())
                       .norm() > 140.0;
    })) << tipCell().toStdString();
    EXPECT_EQ(pathOf(stream), tool);
    view.setStream(nullptr);
    stream.close();
}

TEST(ToolTipSave, AReadOnlyOrMissingFileIsLeftAsItIsAndTheFailureNamesItAndWhy) {
    GuiTest::ensureApplication();
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    const std::string tool = folder.filePath("tool.ini").toStdString();
    ASSERT_TRUE(Filesystem::File::writeText(tool, marker()));
    ASSERT_TRUE(QFile::setPermissions(QString::fromStdString(tool), QFile::ReadOwner | QFile::ReadOther));
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.addGeometry("tool", tool));
    Dialogs dialogs;
    EXPECT_EQ(AtracsysToolTipSaver::save(stream, Tool, Eigen::Vector3d(0, 0, 150), "").error,
              "cannot write " + tool + ": the file is read-only");
    EXPECT_TRUE(capture->contains(Log::Error, "AtracsysMarkersWidget",
                                  "The tool tip of atracsys-1000 was not saved: cannot write " + tool +
                                      ": the file is read-only"));
    EXPECT_EQ(text(tool), marker());
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden).size(), 1) << "no temporary file";
    EXPECT_EQ(pathOf(stream), tool) << "the tool stays loaded";

    ASSERT_TRUE(QFile::remove(QString::fromStdString(tool)));
    EXPECT_EQ(AtracsysToolTipSaver::save(stream, Tool, Eigen::Vector3d(0, 0, 150), "").error,
              "cannot read " + tool + ": No such file or directory");
    EXPECT_FALSE(QFile::exists(QString::fromStdString(tool)));
    EXPECT_TRUE(dialogs.requests.empty());
}

TEST(ToolTipSave, ACompiledInGeometryIsCopiedWithItsTipWhereTheUserChoosesInTheWorkspacesFolder) {
    GuiTest::ensureApplication();
    SceneGuard scene(GuiTest::dataFile("static-marker.json"));
    QTemporaryDir folder;
    const std::string workspaceFolder = folder.path().toStdString(), copy = workspaceFolder + "/stylus.ini";
    MainWindow window;
    window.setWorkspaceFile(workspaceFolder + "/or3.kws");
    QWidget panel;
    window.addControllerPanel(&panel, QStringLiteral("Atracsys"));
    EXPECT_EQ(AtracsysToolTipSaver::workspaceFolder(new QWidget(&panel)), workspaceFolder);

    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.addGeometry("Marker 1000", ":/markers/geometry1000.ini"));
    const Eigen::Vector3d tip(0, 0, -148.5);
    Dialogs dialogs; // cancelled: nothing written
    EXPECT_EQ(AtracsysToolTipSaver::save(stream, Tool, tip, workspaceFolder).kind, Kind::Cancelled);
    ASSERT_EQ(dialogs.requests.size(), 1u);
    EXPECT_EQ(dialogs.requests[0].startPath, workspaceFolder + "/geometry1000.ini");
    // Saved while the stream is closed: the tool comes from the copy when the stream starts.
    dialogs.answer = copy;
    EXPECT_EQ(AtracsysToolTipSaver::save(stream, Tool, tip, workspaceFolder).kind, Kind::Saved);
    EXPECT_EQ(pathOf(stream), copy);
    ASSERT_TRUE(stream.open() && stream.start());
    ASSERT_EQ(stream.refusedInstruments().size(), 0u);
    // And saved again while it tracks (the geometry is on the camera): taken off and put back.
    EXPECT_EQ(AtracsysToolTipSaver::save(stream, Tool, tip, workspaceFolder).kind, Kind::Saved);
    EXPECT_EQ(text(copy), marker() + "[pivot]\nx=0.000\ny=0.000\nz=-148.500\n");
    // The tool now comes from the copy (a workspace saved now names it), under the same entry.
    EXPECT_EQ(pathOf(stream), copy);
    ASSERT_EQ(stream.instruments().size(), 1u);
    EXPECT_EQ(stream.instruments()[0].id.name, "Marker 1000");
    window.removeControllerPanel(&panel);
    stream.close();
}
