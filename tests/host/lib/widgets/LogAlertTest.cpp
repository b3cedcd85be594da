// Problems seen where the user looks: warnings and errors stay in the status bar until read, and
// the log view follows its newest line unless the user scrolled up.

#include "host/core/Log.h"
#include "host/lib/widgets/LogAlertWidget.h"
#include "host/lib/widgets/LogWidget.h"
#include "host/lib/widgets/MainWindow.h"
#include "tests/support/LogCapture.h"
#include "tests/support/gui/GuiTestApplication.h"

#include <QAbstractButton>
#include <QDockWidget>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <thread>

using namespace Kestrion;

TEST(LogAlert, WarningsAndErrorsStayInTheStatusBarUntilRead) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    MainWindow window;
    LogAlertWidget* alert = window.logAlert();
    window.logDock()->hide();
    Log::log(Log::Info, "Test", "nothing to see", __FILE__, __LINE__); // not an alert

    std::thread worker(
        []() { KESTRION_LOG_WARN("AtracsysTrackingController", "AtracsysTracking: Instruments empty!"); });
    worker.join();
    alert->flush();
    EXPECT_EQ(alert->text(), "WARNING [AtracsysTrackingController] AtracsysTracking: Instruments empty!");
    Log::log(Log::Error, "", "Stream not available for initialization!", __FILE__, __LINE__);
    alert->flush();
    alert->flush(); // stays until read
    EXPECT_EQ(alert->unread(), 2);
    EXPECT_EQ(alert->text(), "ERROR Stream not available for initialization! (+1 more)");

    // Reading: the click hides the alert and shows the log.
    QSignalSpy shown(alert, &LogAlertWidget::showLogRequested);
    alert->findChild<QAbstractButton*>()->click();
    EXPECT_EQ(shown.count(), 1);
    EXPECT_EQ(alert->unread(), 0);
    EXPECT_EQ(alert->text(), "");
    EXPECT_FALSE(window.logDock()->isHidden());
}

TEST(LogAlert, TheLogFollowsItsNewestLineUnlessScrolledUp) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    LogWidget log;
    log.setMaximumLines(80); // older lines drop off the top
    auto* bar = log.findChild<QPlainTextEdit*>()->verticalScrollBar();
    const auto logLines = [&log](int count, const std::string& text) {
        for (int i = 0; i < count; ++i)
            Log::log(Log::Info, "Test", text + std::to_string(i), __FILE__, __LINE__);
        log.flush();
    };
    log.resize(400, 600);
    log.show();
    logLines(60, "at start-up ");
    log.resize(400, 120); // the window takes its size, docks are arranged
    QCoreApplication::processEvents();
    ASSERT_GT(bar->maximum(), 0);
    EXPECT_EQ(bar->value(), bar->maximum());
    logLines(30, "more ");
    EXPECT_EQ(bar->value(), bar->maximum()) << "follows the newest line";

    bar->triggerAction(QAbstractSlider::SliderPageStepSub); // the user scrolls up to read
    logLines(30, "later ");
    EXPECT_LT(bar->value(), bar->maximum()) << "stays where the user reads";
    bar->triggerAction(QAbstractSlider::SliderToMaximum); // back at the bottom: follows again
    logLines(30, "last ");
    EXPECT_EQ(bar->value(), bar->maximum());
}

TEST(LogAlert, ARepeatedMessageIsOneLineWithACountAndAResolvedAlertGoes) {
    TestSupport::guiApplication();
    TestSupport::LogCapture capture;
    MainWindow window;
    LogAlertWidget* alert = window.logAlert();
    LogWidget log;
    const std::string failing = "AtracsysTrackingStream: ftkGetLastFrame returned not FTK_OK but [-3 ] for ";
    for (int i = 51; i <= 53; ++i)
        Log::log(Log::Error, "AtracsysTrackingStream", failing + std::to_string(i) + " times in a row!",
                 __FILE__, __LINE__);
    for (int i = 0; i < 4; ++i)
        Log::log(Log::Warning, "AtracsysTrackingStream", "AtracsysTrackingStream: Raw images not available.",
                 __FILE__, __LINE__);
    alert->flush();
    log.flush();
    EXPECT_EQ(alert->unread(), 2);
    EXPECT_EQ(alert->text(),
              "WARNING [AtracsysTrackingStream] AtracsysTrackingStream: Raw images not available. "
              "(4 times) (+1 more)");
    ASSERT_EQ(log.lineCount(), 2) << log.text().toStdString();
    const QStringList lines = log.text().split('\n');
    EXPECT_TRUE(lines[0].endsWith(QString::fromStdString(failing) + "53 times in a row! (3 times)"))
        << lines[0].toStdString();
    EXPECT_TRUE(lines[1].endsWith("Raw images not available. (4 times)")) << lines[1].toStdString();

    // The same error again moves it to the front with its count; a different line breaks the run.
    Log::log(Log::Error, "AtracsysTrackingStream", failing + "54 times in a row!", __FILE__, __LINE__);
    Log::log(Log::Info, "Test", "tick 1", __FILE__, __LINE__);
    Log::log(Log::Info, "Test", "tick 2", __FILE__, __LINE__); // information folds only when identical
    alert->flush();
    log.flush();
    EXPECT_EQ(alert->text(), "ERROR [AtracsysTrackingStream] " + QString::fromStdString(failing) +
                                 "54 times in a row! (4 times) (+1 more)");
    EXPECT_EQ(log.lineCount(), 5);

    // Resolved: the part of the system that raised the alerts withdraws them.
    Log::log(Log::Error, "Workspace", "Cannot save workspace /nowhere/x.kws", __FILE__, __LINE__);
    alert->resolve("AtracsysTrackingStream");
    EXPECT_EQ(alert->text(), "ERROR [Workspace] Cannot save workspace /nowhere/x.kws");
    alert->resolve("Workspace");
    EXPECT_EQ(alert->text(), "");
    EXPECT_EQ(alert->unread(), 0);
}
