#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fstream>

namespace {

const std::string PluginDir = KESTRION_TEST_PLUGIN_DIR;

struct Result {
    int exitCode = -1;
    std::string out;
    std::string err;
    bool has(const std::string& line) const { return out.find(line + "\n") != std::string::npos; }
    bool hasError(const std::string& line) const { return err.find(line + "\n") != std::string::npos; }
};

std::ostream& operator<<(std::ostream& s, const Result& r) {
    return s << "exit " << r.exitCode << "\n--- stdout\n" << r.out << "--- stderr\n" << r.err;
}

/// Runs kestrion with the arguments, without plugin path and licence variables.
Result kestrion(const std::vector<std::string>& arguments) {
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("KESTRION_PLUGIN_PATH");
    env.remove("KESTRION_LICENSE");
    process.setProcessEnvironment(env);
    QStringList args;
    for (const auto& a : arguments)
        args << QString::fromStdString(a);
    process.start(QString(KESTRION_APP), args);
    Result result;
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit)
        return result;
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput().toStdString();
    result.err = process.readAllStandardError().toStdString();
    return result;
}

class KestrionCommand : public ::testing::Test {
protected:
    std::string workspace(const std::string& name, const std::string& algorithms) {
        const std::string file = m_dir + "/" + name;
        std::ofstream(file) << "<properties name=\"Workspace\">\n<properties name=\"Algorithms\">\n"
                            << algorithms << "</properties>\n</properties>\n";
        return file;
    }

    QTemporaryDir m_temp;
    const std::string m_dir = m_temp.path().toStdString();
};

} // namespace

TEST_F(KestrionCommand, PluginsListsEveryLibraryWithItsStatusAndAlgorithms) {
    const Result r = kestrion({"plugins", "--plugin-path", PluginDir});
    ASSERT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.has("Plugins in " + PluginDir + ":")) << r;
    EXPECT_TRUE(r.has("libTestPluginB_Base.so\n"
                      "  id:           Test.Base\n"
                      "  status:       active\n"
                      "  version:      (none)\n"
                      "  author:       Kestrion test team\n"
                      "  description:  Test plugin Test.Base\n"
                      "  depends on:   Kestrion.Stream\n"
                      "  build flags:  GLIBCXX_DEBUG:_GLIBCXX_DEBUG\n"
                      "  algorithms:   TestBase.Recorder  [Test;TestBase;Recorder]"))
        << r;
    // Failed and inactive plugins show their reason (the loader's tests check every reason).
    EXPECT_TRUE(r.has("libTestPluginUnlicensed.so\n"
                      "  id:           Test.Unlicensed\n"
                      "  status:       inactive: init() returned 1, the plugin stays inactive"))
        << r;
    EXPECT_TRUE(r.has("Built in: Kestrion.Stream")) << r;
    EXPECT_TRUE(r.has("Summary: 2 active, 2 inactive, 8 failed")) << r;
}

TEST_F(KestrionCommand, RunConvertsCreatesConfiguresAndComputesTheWorkspace) {
    const std::string file =
        workspace("case.kws", "<properties name=\"TestOld.Recorder\">"
                              "<param name=\"value\" type=\"int\">7</param></properties>\n"
                              "<properties name=\"TestDependent.Recorder\">"
                              "<param name=\"label\" type=\"string\">dep</param></properties>\n");
    const Result r = kestrion({"--log-level", "info", "run", file, "--plugin-path", PluginDir});
    EXPECT_EQ(r.exitCode, 0) << r;
    EXPECT_EQ(r.out, "Workspace " + file +
                         "\n"
                         "  converted: Renamed TestOld.Recorder to TestBase.Recorder\n"
                         "  TestBase.Recorder: computed with label=default, value=7, fail=false\n"
                         "  TestDependent.Recorder: computed with label=dep, value=0, fail=false\n"
                         "Summary: 2 of 2 algorithms computed\n");
    // Default properties first, then the workspace's configuration.
    EXPECT_TRUE(r.hasError("[INFO] TestPlugin: TestBase.Recorder computed: label=default value=7")) << r;
    EXPECT_TRUE(r.hasError("[INFO] TestPlugin: TestDependent.Recorder computed: label=dep value=0")) << r;

    // An unknown or failing algorithm makes the run fail; the others still run.
    const std::string mixed =
        workspace("mixed.kws", "<properties name=\"Nobody.Knows\"/>\n"
                               "<properties name=\"TestBase.Recorder\">"
                               "<param name=\"fail\" type=\"bool\">true</param></properties>\n"
                               "<properties name=\"TestBase.Recorder\"/>\n");
    const Result m = kestrion({"run", mixed, "--plugin-path", PluginDir});
    EXPECT_EQ(m.exitCode, 1) << m;
    EXPECT_EQ(m.out, "Workspace " + mixed +
                         "\n"
                         "  Nobody.Knows: unknown algorithm\n"
                         "  TestBase.Recorder: failed with label=default, value=0, fail=true\n"
                         "  TestBase.Recorder: computed with label=default, value=0, fail=false\n"
                         "Summary: 1 of 3 algorithms computed; failed (exit status 1)\n");
}

TEST_F(KestrionCommand, AnUnreadableWorkspaceIsExplainedAtAnyLogLevel) {
    // Printed even when the log level hides errors.
    const std::string missing = m_dir + "/missing.kws";
    const Result r = kestrion({"run", missing, "--plugin-path", PluginDir, "--log-level", "fatal"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_EQ(r.err, "kestrion run: Cannot load workspace " + missing + ": no such file\n");
}

TEST_F(KestrionCommand, BadArgumentsAreExplainedWithExitCodeTwo) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{}, "kestrion: no command given (see kestrion --help)\n"},
        {{"--verbose", "plugins"}, "kestrion: unknown option '--verbose' (see kestrion --help)\n"},
        {{"plugins", "--log-level"}, "kestrion: option --log-level needs a value (see kestrion --help)\n"},
        {{"plugins", "extra"},
         "kestrion plugins: unexpected argument 'extra' (see kestrion plugins --help)\n"},
        {{"run"}, "kestrion run: no workspace given (see kestrion run --help)\n"},
        {{"run", "a.kws", "b.kws"}, "kestrion run: too many arguments (see kestrion run --help)\n"},
    };
    for (const auto& [arguments, message] : cases) {
        const Result r = kestrion(arguments);
        EXPECT_EQ(r.exitCode, 2) << r;
        EXPECT_EQ(r.err, message) << r;
        EXPECT_EQ(r.out, "") << r;
    }

    const std::string missingFolder = m_dir + "/no-plugins-here";
    const Result r = kestrion({"run", m_dir + "/x.kws", "--plugin-path", missingFolder});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_EQ(r.err, "kestrion: plugin folder " + missingFolder + " does not exist\n") << r;
}
