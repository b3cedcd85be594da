// The markers widget's pivot calibration on the simulated camera (stepped clock, the stream's own
// worker thread): recording with progress, the result shown, cancel, and the tip saved into the
// tool's own geometry file, which is then loaded again with its tip.

#include "atracsys/device/AtracsysGeometryHelpers.h"
#include "atracsys/gui/AtracsysMarkersWidget.h"
#include "atracsys/gui/AtracsysPivotCalibrationPanel.h"
#include "tests/atracsys/gui/GuiTestSupport.h"
#include "tests/atracsys/stream/StreamTestSupport.h"
#include "tests/support/LogCapture.h"

#include "host/core/File.h"
#include "host/lib/widgets/QtHelpers.h"
#include "host/stream/InstrumentTipData.h"

#include <QLabel>
#include <QPushButton>

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

namespace {

constexpr const char* WidgetCategory = "AtracsysMarkersWidget";

std::string label(QWidget& widget) {
    return widget.findChild<QLabel*>("pivotResultLabel")->text().toStdString();
}

} // namespace

TEST(PivotPanel, RecordsShowsTheResultAndSavesTheTipIntoTheToolsFile) {
    GuiTest::ensureApplication();
    GuiTest::TemporaryHome home;
    SceneGuard scene(KESTRION_TEST_DATA_DIR "/calibration/pivot.json");
    TestSupport::LogCapture capture;
    const std::string tool = home.path() + "/tool.ini";
    const std::string original = *Filesystem::File::readText(dataFile("geometry1000.ini"));
    ASSERT_TRUE(Filesystem::File::writeText(tool, original));

    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    AtracsysMarkersWidget widget(&stream, true);
    auto* panel = widget.findChild<AtracsysPivotCalibrationPanel*>("pivotCalibrationPanel");
    auto* start = widget.findChild<QPushButton*>("pivotCalibrationButton");
    auto* save = widget.findChild<QPushButton*>("pivotSaveButton");
    ASSERT_TRUE(panel && start && save);

    // Without a tool nothing is recorded; the camera is opened and started on the way.
    start->click();
    EXPECT_TRUE(capture->contains(Log::Info, WidgetCategory,
                                  "Fiducial query mode changed to MARKER for pivot calibration"));
    EXPECT_TRUE(capture->contains(Log::Warning, WidgetCategory, "No active tracker for pivot calibration."));
    EXPECT_FALSE(panel->isRecording());
    ASSERT_TRUE(stream.addGeometry("tool", tool));

    // Cancelled: no result, nothing to save.
    start->click();
    EXPECT_TRUE(panel->isRecording());
    EXPECT_TRUE(
        capture->contains(Log::Info, WidgetCategory, "Run pivot calibration on tracker atracsys-1000"));
    widget.findChild<QPushButton*>("pivotCancelButton")->click();
    EXPECT_FALSE(panel->isRecording());
    EXPECT_EQ(label(widget), "Pivot calibration cancelled.");

    panel->setFrames(200);
    start->click();
    ASSERT_TRUE(GuiTest::processEventsUntil([&] { return panel->result().has_value(); }));
    const auto& result = *panel->result();
    ASSERT_TRUE(result.solved()) << result.refusal;
    EXPECT_LT((result.tipInMarker - Eigen::Vector3d(45, 35, 150)).norm(), 0.5);
    EXPECT_EQ(label(widget).rfind("Tip in the marker's frame: ", 0), 0u) << label(widget);
    EXPECT_EQ(capture->countContaining("Pivot calibration of atracsys-1000: tip "), 1u) << capture->dump();
    ASSERT_TRUE(save->isEnabled());

    // The tool's own file gets the tip, without a question, and is loaded again.
    std::size_t dialogs = 0;
    QtHelpers::ScopedFileDialogHook noDialog([&](const QtHelpers::FileDialogRequest&) {
        ++dialogs;
        return std::string();
    });
    save->click();
    EXPECT_EQ(dialogs, 0u);
    EXPECT_TRUE(capture->contains(Log::Info, WidgetCategory, "the tool tip has been written to " + tool));
    EXPECT_NE(label(widget).find("Tip saved to " + tool + "; the tool tracks it now."), std::string::npos)
        << label(widget);
    EXPECT_FALSE(save->isEnabled());
    EXPECT_EQ(Filesystem::File::readText(tool)->rfind(original + "[pivot]\nx=", 0), 0u);
    Recorder recorder(stream);
    ASSERT_TRUE(waitFor([&] {
        const auto data = recorder.lastData();
        return data && trackingOf(data)->component<InstrumentTipData>();
    })) << "the reloaded tool reports its tip";
    stream.close();
}

TEST(PivotPanel, AnOptimisedGeometryKeepsTheToolTipOnlyInItsOriginalFrame) {
    GuiTest::ensureApplication();
    GuiTest::TemporaryHome home;
    SceneGuard scene(GuiTest::dataFile("static-marker.json"));
    TestSupport::LogCapture capture;
    const std::string tool = home.path() + "/tool.ini", target = home.path() + "/optimized.ini";
    ASSERT_TRUE(Filesystem::File::writeText(
        tool, *Filesystem::File::readText(KESTRION_SOURCE_DIR "/data/markers/geometry1000.ini") +
                  "[pivot]\nx=1.5\ny=-2\nz=150\n"));
    SpryTrack::AtracsysTrackingStream stream("Atracsys Tracking Stream");
    AtracsysMarkersWidget widget(&stream, true);
    QtHelpers::ScopedFileDialogHook hook([&](const QtHelpers::FileDialogRequest&) { return target; });
    for (bool keep : {true, false}) {
        Properties parameters;
        parameters.setParam("recordedFrames", 30);
        parameters.setParam("keepCoordinateLocation", keep);
        widget.setOptimizationParameters(parameters);
        ASSERT_TRUE(stream.addGeometry("tool", tool));
        ASSERT_TRUE(Filesystem::File::remove(target));
        widget.onOptimizeMarker();
        ASSERT_TRUE(GuiTest::processEventsUntil(
            [&] { return !widget.isOptimizing() && Filesystem::File::readText(target).has_value(); }));
        const auto saved = SpryTrack::AtracsysHelpers::loadGeometryFile(target);
        ASSERT_TRUE(saved && saved->tip.has_value() == keep) << keep;
        EXPECT_TRUE(!keep || (*saved->tip - Eigen::Vector3d(1.5, -2, 150)).norm() < 1e-3);
    }
    EXPECT_EQ(capture->count(Log::Warning, WidgetCategory,
                             "The tool tip of atracsys-1000 is not kept: the optimized geometry has a new "
                             "coordinate frame, calibrate the tip again"),
              1u);
    stream.close();
}
