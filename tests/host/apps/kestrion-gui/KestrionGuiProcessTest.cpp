#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <ostream>

namespace {

const QString PluginDir = QStringLiteral(KESTRION_TEST_PLUGIN_DIR);
const QString App = QStringLiteral(KESTRION_GUI_APP);

struct GuiRun {
    bool finished = false;
    int exitCode = -1;
    QString output;
};

std::ostream& operator<<(std::ostream& out, const GuiRun& run) {
    return out << "exit " << run.exitCode << (run.finished ? "" : " (did not finish)") << "\n"
               << run.output.toStdString();
}

/// Runs the desktop host (or a wrapper with the host's path among its arguments) on the test
/// plugins and the given Qt platform.
GuiRun runGui(const QString& program, const QStringList& arguments, const QString& platform) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("KESTRION_PLUGIN_PATH"), PluginDir);
    env.remove(QStringLiteral("KESTRION_LICENSE"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), platform);
    // Qt's platform plugins leave allocations at exit; the host's own are checked in-process.
    env.insert(QStringLiteral("ASAN_OPTIONS"),
               env.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    GuiRun run;
    run.finished = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit;
    run.exitCode = process.exitCode();
    run.output = QString::fromLocal8Bit(process.readAll());
    return run;
}

/// The screenshot shows the window: its size, and more than one colour.
void expectWindowPicture(const QString& file) {
    QImage picture(file);
    ASSERT_FALSE(picture.isNull()) << file.toStdString();
    EXPECT_GE(picture.width(), 400);
    EXPECT_GE(picture.height(), 300);
    EXPECT_GT(
        picture.convertToFormat(QImage::Format_RGB32).convertToFormat(QImage::Format_Indexed8).colorCount(),
        1);
}

// A workspace that cannot be loaded fails the run, but the window is still shown and captured.
TEST(KestrionGuiProcess, TakesAScreenshotOffscreenAndUnderXvfbAndExits) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString shot = dir.filePath("shot.png");
    const QString missing = dir.filePath("missing.kws");
    GuiRun run = runGui(App, {"--workspace", missing, "--screenshot", shot, "--after", "200"}, "offscreen");
    ASSERT_TRUE(run.finished) << run;
    EXPECT_EQ(run.exitCode, 1) << run;
    EXPECT_TRUE(run.output.contains("Loaded plugin Test.Base from libTestPluginB_Base.so")) << run;
    EXPECT_TRUE(run.output.contains("Cannot load workspace " + missing + ": no such file")) << run;
    EXPECT_TRUE(run.output.contains("Screenshot saved to " + shot)) << run;
    expectWindowPicture(shot);

    const QString xvfbRun = QStandardPaths::findExecutable("xvfb-run");
    if (xvfbRun.isEmpty())
        GTEST_SKIP() << "xvfb-run is not installed";
    QFile::remove(shot);
    run = runGui(xvfbRun, {"-a", "-s", "-screen 0 1280x1024x24", App, "--screenshot", shot, "--after", "500"},
                 "xcb");
    ASSERT_TRUE(run.finished) << run;
    EXPECT_EQ(run.exitCode, 0) << run;
    expectWindowPicture(shot);
}

} // namespace
