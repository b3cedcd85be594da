#include "host/lib/PluginDescriptor.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

const QString GuiPluginDir = QStringLiteral(KESTRION_TEST_PLUGIN_DIR);
const QString App = QStringLiteral(KESTRION_GUI_APP);

/// Runs the desktop host (or a wrapper with the host's path among its arguments) on the test
/// plugins and the given Qt platform: its exit code (-1 when it did not finish) and its output.
std::pair<int, std::string> runGui(const QString& program, const QStringList& arguments,
                                   const QString& platform) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("KESTRION_PLUGIN_PATH"), GuiPluginDir);
    env.remove(QStringLiteral("KESTRION_LICENSE"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), platform);
    // Qt's platform plugins leave allocations at exit; the host's own are checked in-process.
    env.insert(QStringLiteral("ASAN_OPTIONS"),
               env.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool finished = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit;
    return {finished ? process.exitCode() : -1, QString::fromLocal8Bit(process.readAll()).toStdString()};
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
    const std::string missing = dir.filePath("missing.kws").toStdString();
    auto [exitCode, output] =
        runGui(App, {"--workspace", QString::fromStdString(missing), "--screenshot", shot, "--after", "200"},
               "offscreen");
    EXPECT_EQ(exitCode, 1) << output;
    for (const std::string& line :
         {std::string("Loaded plugin Test.Base from libTestPluginB_Base.so"),
          "Cannot load workspace " + missing + ": no such file", "Screenshot saved to " + shot.toStdString()})
        EXPECT_NE(output.find(line), std::string::npos) << output;
    expectWindowPicture(shot);

    const QString xvfbRun = QStandardPaths::findExecutable("xvfb-run");
    if (xvfbRun.isEmpty())
        GTEST_SKIP() << "xvfb-run is not installed";
    QFile::remove(shot);
    std::tie(exitCode, output) = runGui(
        xvfbRun, {"-a", "-s", "-screen 0 1280x1024x24", App, "--screenshot", shot, "--after", "500"}, "xcb");
    EXPECT_EQ(exitCode, 0) << output;
    expectWindowPicture(shot);
}

// Help and version need no display: the X11 platform with no display to connect to.
TEST(KestrionGuiProcess, AnswersHelpAndVersionWithoutADisplay) {
    const auto run = [](const QStringList& arguments) {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        process.setProcessEnvironment(env);
        process.start(App, arguments);
        const bool finished = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit;
        return std::make_pair(finished ? process.exitCode() : -1,
                              QString::fromLocal8Bit(process.readAllStandardOutput()).toStdString());
    };
    auto [exitCode, output] = run({"--help"});
    EXPECT_EQ(exitCode, 0) << output;
    EXPECT_EQ(output.rfind("Usage: kestrion-gui [--plugin-path FOLDER]...", 0), 0u) << output;
    std::tie(exitCode, output) = run({"-geometry", "800x600", "--version"});
    EXPECT_EQ(exitCode, 0) << output;
    EXPECT_EQ(output, std::string("kestrion-gui ") + Kestrion::PluginDescriptor::HostVersion + "\n");
}

} // namespace
