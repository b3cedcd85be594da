#include "host/lib/widgets/MainWindow.h"
#include "host/core/Log.h"
#include "host/lib/widgets/LogWidget.h"
#include "host/lib/widgets/ProgressWidget.h"
#include "host/lib/widgets/QtHelpers.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QDir>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kestrion;
using TestSupport::waitFor;

namespace {

class MainWindowTest : public ::testing::Test {
protected:
    void SetUp() override { TestSupport::guiApplication(); }
};

TEST_F(MainWindowTest, ProgressRowsFollowWorkerTasksAndCancelThem) {
    ProgressWidget widget;
    EXPECT_TRUE(widget.isHidden());
    std::atomic<bool> sawCancel{false};
    std::thread worker([&]() {
        ProgressTask task = widget.addTask(10, "Record geometry");
        ProgressTask busy = widget.addTask(0, "Waiting for the camera");
        task.setProgress(7);
        task.setDescription("Record geometry: 7 frames");
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!task.wasCanceled() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        sawCancel = task.wasCanceled();
    });

    ASSERT_TRUE(waitFor([&]() {
        return widget.rowCount() == 2 && widget.progressBar(0)->value() == 7 &&
               widget.descriptionLabel(0)->text() == "Record geometry: 7 frames";
    }));
    EXPECT_EQ(widget.progressBar(0)->maximum(), 10);
    EXPECT_EQ(widget.descriptionLabel(1)->text(), "Waiting for the camera");
    EXPECT_EQ(widget.progressBar(1)->maximum(), 0); // busy bar

    widget.cancelButton(0)->click();
    worker.join();
    EXPECT_TRUE(sawCancel.load());
    ASSERT_TRUE(waitFor([&]() { return widget.rowCount() == 0; }));
    EXPECT_TRUE(widget.isHidden());
}

TEST_F(MainWindowTest, TasksOutliveTheirDisplay) {
    auto widget = std::make_unique<ProgressWidget>();
    ProgressTask task = widget->addTask(5, "Optimize");
    task.setProgress(1);
    widget.reset(); // queued refreshes and later updates go nowhere
    task.setProgress(2);
    QCoreApplication::processEvents();
    task.cancel();
    EXPECT_TRUE(task.wasCanceled());
}

TEST_F(MainWindowTest, LogLinesFromAnyThreadReachTheLogWidget) {
    TestSupport::LogCapture capture; // keeps the console quiet
    LogWidget widget;
    std::thread worker(
        []() { KESTRION_LOG_WARN("AtracsysTrackingController", "AtracsysTracking: Instruments empty!"); });
    worker.join();
    Log::log(Log::Error, "", "Stream not available for initialization!", __FILE__, __LINE__);
    ASSERT_TRUE(waitFor([&]() { return widget.lineCount() == 2; }));
    const QString text = widget.text();
    EXPECT_TRUE(text.contains("WARNING [AtracsysTrackingController] AtracsysTracking: Instruments empty!"))
        << text.toStdString();
    EXPECT_TRUE(text.contains("ERROR Stream not available for initialization!")) << text.toStdString();
    EXPECT_LT(text.indexOf("Instruments empty"), text.indexOf("Stream not available"));

    widget.setMaximumLines(3);
    for (int i = 0; i < 5; ++i)
        Log::log(Log::Info, "Test", "line " + std::to_string(i), __FILE__, __LINE__);
    widget.flush();
    EXPECT_EQ(widget.lineCount(), 3);
    EXPECT_TRUE(widget.text().endsWith("[Test] line 4"));
}

TEST_F(MainWindowTest, FileDialogsProposeADefaultAndRememberTheFolderPerKey) {
    QTemporaryDir temp;
    const std::string folder = temp.path().toStdString();
    std::vector<QtHelpers::FileDialogRequest> requests;
    std::string answer = folder + "/marker1";
    QtHelpers::ScopedFileDialogHook hook([&](const QtHelpers::FileDialogRequest& request) {
        requests.push_back(request);
        return answer;
    });
    const std::string type = "ini-" + std::to_string(QCoreApplication::applicationPid()); // fresh key

    EXPECT_EQ(QtHelpers::getSaveFilename("Save marker geometry", type, "newmarker"),
              folder + "/marker1." + type);
    EXPECT_EQ(requests[0].filter, type + " files (*." + type + ");;All files (*)");
    EXPECT_EQ(requests[0].startPath,
              QDir::home().filePath(QString::fromStdString("newmarker." + type)).toStdString());

    // The next dialog starts where the last file went; a chosen extension is kept.
    answer = folder + "/other.txt";
    EXPECT_EQ(QtHelpers::getSaveFilename("Save", type, "newmarker"), folder + "/other.txt");
    EXPECT_EQ(requests[1].startPath, folder + "/newmarker." + type);

    // Open dialogs remember their own folder; cancelling gives nothing and forgets nothing.
    answer.clear();
    EXPECT_EQ(QtHelpers::getOpenFilename("Select Geometry file", "Geometry files (*.ini)", type + "-open"),
              "");
    EXPECT_EQ(requests[2].startPath, QDir::homePath().toStdString());
    EXPECT_EQ(QtHelpers::getSaveFilename("Save", type, "newmarker"), "");
    EXPECT_EQ(QtHelpers::lastSaveFolder(type), folder);
}

} // namespace
