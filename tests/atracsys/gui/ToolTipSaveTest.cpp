// A pivot calibration's tip saved where the tool is: into its own geometry file (the rest of the
// file kept, the tool loaded again so that the stream and the instrument view show the new tip at
// once), into a copy in the workspace's folder for a geometry compiled into the plugin, and never
// into a read-only file, with the file and the reason said.

#include "atracsys/gui/AtracsysPivotCalibrationPanel.h"
#include "atracsys/gui/AtracsysToolTipSaver.h"
#include "host/core/File.h"
#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/InstrumentView.h"
#include "host/lib/widgets/MainWindow.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/stream/InstrumentTipData.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"
#include "tests/support/LogCapture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTableView>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kind = AtracsysToolTipSaver::Outcome::Kind;

namespace {

constexpr const char* Category = "AtracsysMarkersWidget";
const std::string Tool = "atracsys-1000";

std::string text(const std::string& path) {
    return Filesystem::File::readText(Filesystem::Path(path)).value_or("(unreadable)");
}

/// The example marker's geometry file, also compiled into the plugin.
std::string marker() {
    return text(KESTRION_SOURCE_DIR "/data/markers/geometry1000.ini");
}

/// Counts the file dialogs shown and answers them with `answer`.
struct Dialogs {
    std::vector<QtHelpers::FileDialogRequest> requests;
    std::string answer;
    QtHelpers::ScopedFileDialogHook hook{[this](const QtHelpers::FileDialogRequest& request) {
        requests.push_back(request);
        return answer;
    }};
};

} // namespace

TEST(ToolTipSave, WritesTheToolsOwnFileKeepingTheRestAndTheStreamTracksTheNewTipAtOnce) {
    GuiTest::ensureApplication();
    SceneGuard scene(GuiTest::dataFile("static-marker.json"));
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    const std::string tool = folder.filePath("tool.ini").toStdString();
    ASSERT_TRUE(Filesystem::File::writeText(Filesystem::Path(tool),
                                            "; stylus of the lab\n" + marker() +
                                                "[pivot]\nx=1\ny=2\nz=3\n[maker]\nserial=77\n"));
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.open() && stream.addGeometry("tool", tool) && stream.start());
    InstrumentView view;
    view.setStream(&stream);
    Recorder recorder(stream);
    const auto tipOfNewestFrame = [&]() -> std::optional<InstrumentTipData::Entry> {
        const auto data = recorder.lastData();
        const auto* tips = data ? trackingOf(data)->component<InstrumentTipData>() : nullptr;
        const InstrumentTipData::Entry* entry = tips ? tips->find(Tool) : nullptr;
        return entry ? std::optional<InstrumentTipData::Entry>(*entry) : std::nullopt;
    };
    ASSERT_TRUE(waitUntil([&] { return tipOfNewestFrame().has_value(); }));

    Dialogs dialogs;
    const Eigen::Vector3d tip(-1.25, 0.5, 148.75);
    const AtracsysToolTipSaver::Outcome outcome = AtracsysToolTipSaver::save(stream, Tool, tip, "/elsewhere");
    ASSERT_EQ(outcome.kind, Kind::Saved) << outcome.error;
    EXPECT_EQ(outcome.file, tool);
    EXPECT_TRUE(dialogs.requests.empty()) << "the tool's own file, without a question";
    // The old tip replaced, the comment, the geometry and the other section kept.
    EXPECT_EQ(text(tool), "; stylus of the lab\n" + marker() +
                              "[maker]\nserial=77\n[pivot]\nx=-1.250\ny=0.500\nz=148.750\n");
    EXPECT_TRUE(capture->contains(Log::Info, Category, "the tool tip has been written to " + tool));
    EXPECT_EQ(AtracsysPivotCalibrationPanel::geometryPath(stream, Tool), tool);

    // The stream tracks the new tip, and the instrument view's tip column shows where it is.
    ASSERT_TRUE(waitUntil([&] {
        const auto entry = tipOfNewestFrame();
        return entry && (entry->tipInMarker - tip).norm() < 1e-9;
    }));
    const Eigen::Vector3d tipInCamera = tipOfNewestFrame()->tipInCamera;
    ASSERT_TRUE(GuiTest::processEventsUntil([&] {
        view.refresh();
        const QStringList cell =
            view.model()->data(view.model()->index(0, InstrumentTableModel::Tip)).toString().split(", ");
        return cell.size() == 3 &&
               (Eigen::Vector3d(cell[0].toDouble(), cell[1].toDouble(), cell[2].toDouble()) - tipInCamera)
                       .norm() < 1.0;
    }));
    EXPECT_FALSE(view.table()->isColumnHidden(InstrumentTableModel::Tip));
    view.setStream(nullptr);
    stream.close();
}

TEST(ToolTipSave, AFileThatCannotBeWrittenStaysAsItIsAndTheFailureNamesItAndWhy) {
    GuiTest::ensureApplication();
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    const std::string tool = folder.filePath("tool.ini").toStdString();
    ASSERT_TRUE(Filesystem::File::writeText(Filesystem::Path(tool), marker()));
    ASSERT_TRUE(QFile::setPermissions(QString::fromStdString(tool),
                                      QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther));
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.addGeometry("tool", tool));
    Dialogs dialogs;

    AtracsysToolTipSaver::Outcome outcome =
        AtracsysToolTipSaver::save(stream, Tool, Eigen::Vector3d(0, 0, 150), "");
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_EQ(outcome.error, "cannot write " + tool + ": the file is read-only");
    EXPECT_TRUE(capture->contains(Log::Error, Category,
                                  "The tool tip of atracsys-1000 was not saved: cannot write " + tool +
                                      ": the file is read-only"));
    EXPECT_EQ(text(tool), marker());
    EXPECT_EQ(QFileInfo(QString::fromStdString(tool)).permissions() & QFile::WriteOwner, 0);
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files | QDir::Hidden).size(), 1)
        << "no temporary file left";
    EXPECT_EQ(stream.instruments().size(), 1u) << "the tool stays loaded";
    EXPECT_EQ(AtracsysPivotCalibrationPanel::geometryPath(stream, Tool), tool);

    // A file gone since the tool was loaded.
    ASSERT_TRUE(QFile::setPermissions(QString::fromStdString(tool), QFile::ReadOwner | QFile::WriteOwner));
    ASSERT_TRUE(Filesystem::File::remove(Filesystem::Path(tool)));
    outcome = AtracsysToolTipSaver::save(stream, Tool, Eigen::Vector3d(0, 0, 150), "");
    EXPECT_EQ(outcome.kind, Kind::Failed);
    EXPECT_EQ(outcome.error, "cannot read " + tool + ": No such file or directory");
    EXPECT_FALSE(QFile::exists(QString::fromStdString(tool)));
    // No tool of that id.
    outcome = AtracsysToolTipSaver::save(stream, "atracsys-4242", Eigen::Vector3d::Zero(), "");
    EXPECT_EQ(outcome.error, "the tool atracsys-4242 is no longer loaded");
    EXPECT_TRUE(dialogs.requests.empty());
}

TEST(ToolTipSave, ACompiledInGeometryIsCopiedWithItsTipWhereTheUserChoosesInTheWorkspacesFolder) {
    GuiTest::ensureApplication();
    TestSupport::LogCapture capture;
    QTemporaryDir folder;
    const std::string workspaceFolder = folder.filePath("or3").toStdString();
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(workspaceFolder)));
    MainWindow window;
    window.setWorkspaceFile(workspaceFolder + "/tracking.kws");
    auto* panel = new QWidget;
    window.addControllerPanel(panel, QStringLiteral("Atracsys"));
    auto* child = new QWidget(panel);
    EXPECT_EQ(AtracsysToolTipSaver::workspaceFolder(child), workspaceFolder);
    EXPECT_EQ(AtracsysToolTipSaver::workspaceFolder(nullptr), "");

    SceneGuard scene(GuiTest::dataFile("static-marker.json"));
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    ASSERT_TRUE(stream.addGeometry("Marker 1000", ":/markers/geometry1000.ini"));
    Dialogs dialogs; // cancelled first: nothing written, the tool as it was
    const Eigen::Vector3d tip(0, 0, -148.5);
    EXPECT_EQ(AtracsysToolTipSaver::save(stream, Tool, tip, workspaceFolder).kind, Kind::Cancelled);
    ASSERT_EQ(dialogs.requests.size(), 1u);
    EXPECT_EQ(dialogs.requests[0].kind, QtHelpers::FileDialogRequest::Kind::Save);
    EXPECT_EQ(dialogs.requests[0].startPath, workspaceFolder + "/geometry1000.ini");
    EXPECT_EQ(AtracsysPivotCalibrationPanel::geometryPath(stream, Tool), ":/markers/geometry1000.ini");

    // While the camera does not track, the tool cannot be loaded again: said, the tool kept.
    const std::string copy = workspaceFolder + "/stylus.ini";
    dialogs.answer = copy;
    EXPECT_EQ(
        AtracsysToolTipSaver::save(stream, Tool, tip, workspaceFolder).error,
        "the tip was written to " + copy +
            ", but the tool could not be loaded again from it: the stream must be tracking (start it and "
            "save the tip again)");
    EXPECT_EQ(AtracsysPivotCalibrationPanel::geometryPath(stream, Tool), ":/markers/geometry1000.ini");

    ASSERT_TRUE(Filesystem::File::remove(Filesystem::Path(copy)));
    ASSERT_TRUE(stream.open() && stream.start());
    const AtracsysToolTipSaver::Outcome outcome =
        AtracsysToolTipSaver::save(stream, Tool, tip, workspaceFolder);
    ASSERT_EQ(outcome.kind, Kind::Saved) << outcome.error;
    EXPECT_EQ(outcome.file, copy);
    EXPECT_EQ(text(copy), marker() + "[pivot]\nx=0.000\ny=0.000\nz=-148.500\n");
    // The tool now comes from the copy (a workspace saved now names it), under the same entry.
    EXPECT_EQ(AtracsysPivotCalibrationPanel::geometryPath(stream, Tool), copy);
    ASSERT_EQ(stream.instruments().size(), 1u);
    EXPECT_EQ(stream.instruments()[0].id.name, "Marker 1000");
    EXPECT_TRUE(capture->contains(Log::Info, Category, "the tool tip has been written to " + copy));
    window.removeControllerPanel(panel);
    delete panel;
    stream.close();
}
