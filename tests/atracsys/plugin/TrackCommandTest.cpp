// `kestrion track` as a user runs it: the real command-line host, the plugin library from the
// plugin folder and the simulated camera (free-running clock, so the timeouts are generous).

#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string DataDir = std::string(KESTRION_TEST_DATA_DIR) + "/plugin";

struct Result {
    int exitCode = -1;
    std::string out;
    std::string err;
    bool outHas(const std::string& text) const { return out.find(text) != std::string::npos; }
    bool errHas(const std::string& text) const { return err.find(text) != std::string::npos; }
};

std::ostream& operator<<(std::ostream& s, const Result& r) {
    return s << "exit " << r.exitCode << "\n--- stdout\n" << r.out << "--- stderr\n" << r.err;
}

QProcessEnvironment environment(const std::map<std::string, std::string>& variables) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("KESTRION_LICENSE");
    env.remove("FTK_SIMULATOR_SCENE");
    env.insert("KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER);
    for (const auto& [name, value] : variables)
        env.insert(QString::fromStdString(name), QString::fromStdString(value));
    return env;
}

QStringList toArguments(const std::vector<std::string>& arguments) {
    QStringList list{"track"};
    for (const auto& a : arguments)
        list << QString::fromStdString(a);
    return list;
}

Result finish(QProcess& process) {
    Result result;
    if (!process.waitForFinished(180000) || process.exitStatus() != QProcess::NormalExit)
        return result;
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput().toStdString();
    result.err = process.readAllStandardError().toStdString();
    return result;
}

Result track(const std::vector<std::string>& arguments,
             const std::map<std::string, std::string>& variables = {}) {
    QProcess process;
    process.setProcessEnvironment(environment(variables));
    process.start(QString(KESTRION_APP), toArguments(arguments));
    return finish(process);
}

std::vector<std::vector<std::string>> readCsv(const std::string& file) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> fields;
        std::stringstream s(line);
        std::string field;
        while (std::getline(s, field, ','))
            fields.push_back(field);
        rows.push_back(fields);
    }
    return rows;
}

class TrackCommand : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestrion-track-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        m_dir = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    std::string path(const std::string& name) const { return m_dir + "/" + name; }

    std::string m_dir;
};

} // namespace

TEST_F(TrackCommand, RecordsEveryFrameOfAStaticMarkerAtItsTruePose) {
    const std::string csv = path("poses.csv");
    const Result r = track({"--frames", "200", "--csv", csv, "--geometry", ":/markers/geometry1000.ini"},
                           {{"FTK_SIMULATOR_SCENE", DataDir + "/static-marker.json"}});
    ASSERT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.outHas("Device: sTk 180, serial 0x53544b3138300001")) << r;
    EXPECT_TRUE(r.outHas("Summary: 200 frames received")) << r;
    EXPECT_TRUE(r.outHas("Recorded 200 rows to " + csv)) << r;
    EXPECT_FALSE(std::filesystem::exists(csv + ".part"));

    const auto rows = readCsv(csv);
    ASSERT_EQ(rows.size(), 201u);
    ASSERT_EQ(rows[0].size(), 21u);
    EXPECT_EQ(rows[0][0], "frame");
    // Truth of the scene: translation (25, -40, 850) mm, rotation of 30 degrees about z.
    const double c = std::cos(M_PI / 6.0), s = std::sin(M_PI / 6.0);
    const double truth[] = {25, -40, 850, c, -s, 0, s, c, 0, 0, 0, 1};
    long long previousCounter = -1;
    long long gaps = 0;
    for (std::size_t i = 1; i < rows.size(); ++i) {
        const auto& row = rows[i];
        ASSERT_EQ(row.size(), 21u) << "row " << i;
        EXPECT_EQ(std::stoull(row[0]), i - 1);
        EXPECT_EQ(row[5], "atracsys-1000");
        EXPECT_EQ(row[6], "geometry1000");
        EXPECT_EQ(row[7], "1") << "row " << i;
        EXPECT_GT(std::stod(row[8]), 0.9);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(std::stod(row[9 + k]), truth[k], 0.5) << "row " << i << " axis " << k;
        for (int k = 3; k < 12; ++k)
            EXPECT_NEAR(std::stod(row[9 + k]), truth[k], 0.01) << "row " << i << " rotation " << k - 3;
        EXPECT_GE(std::stoull(row[2]), std::stoull(rows[1][2])); // arrival after the first frame
        const long long counter = std::stoll(row[1]);
        EXPECT_GT(counter, previousCounter);
        if (previousCounter >= 0)
            gaps += counter - previousCounter - 1;
        previousCounter = counter;
    }
    // The dropped count shown is the sum of the counter gaps recorded.
    EXPECT_TRUE(r.outHas("200 frames received, " + std::to_string(gaps) + " dropped")) << r;
}

TEST_F(TrackCommand, EndsCleanlyOnTerminationAndSavesMarkedImages) {
    const std::string csv = path("run.csv");
    QProcess process;
    process.setProcessEnvironment(environment({}));
    process.start(QString(KESTRION_APP), toArguments({"--csv", csv, "--images", path("images")}));
    ASSERT_TRUE(process.waitForStarted(60000));
    // Wait until tracking runs and a first image pair is on disk, then ask it to end.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    bool saved = false;
    while (!saved && std::chrono::steady_clock::now() < deadline && process.state() == QProcess::Running) {
        process.waitForReadyRead(200);
        saved = std::filesystem::exists(path("images")) && !std::filesystem::is_empty(path("images"));
    }
    ASSERT_TRUE(saved) << process.readAllStandardError().toStdString();
    process.terminate(); // SIGTERM, like Ctrl-C's SIGINT
    const Result r = finish(process);
    ASSERT_EQ(r.exitCode, 0) << r;
    EXPECT_TRUE(r.outHas("ended by signal")) << r;
    EXPECT_TRUE(std::filesystem::exists(csv)) << r;
    EXPECT_FALSE(std::filesystem::exists(csv + ".part"));
    bool left = false, right = false;
    for (const auto& entry : std::filesystem::directory_iterator(path("images"))) {
        const std::string name = entry.path().filename().string();
        left = left || name.find("-left.png") != std::string::npos;
        right = right || name.find("-right.png") != std::string::npos;
        EXPECT_GT(entry.file_size(), 1000u) << name;
    }
    EXPECT_TRUE(left && right);
    // Every recorded frame has its two instruments (the example markers).
    const auto rows = readCsv(csv);
    ASSERT_GT(rows.size(), 1u);
    EXPECT_EQ((rows.size() - 1) % 2, 0u);
}

TEST_F(TrackCommand, FailuresNameTheProblemAndExitNonZero) {
    std::ofstream(path("broken.ini")) << "[geometry]\ncount=2\nid=1007\n[fiducial0]\nx=0\ny=0\nz=0\n";
    Result r = track({"--geometry", path("broken.ini"), "--duration", "1"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: geometry file " + path("broken.ini") +
                         " could not be loaded: AtracsysTracking: Parsing INI file, could not find section "
                         "\"fiducial1\""))
        << r;

    r = track({"--geometry", path("missing.ini")});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(
        r.errHas("kestrion track: geometry file " + path("missing.ini") + ": No such file or directory"))
        << r;

    std::ofstream(path("nodevice.json")) << R"({"devices": []})";
    r = track({"--duration", "1"}, {{"FTK_SIMULATOR_SCENE", path("nodevice.json")}});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: no camera found")) << r;

    r = track({"--duration", "1"}, {{"KESTRION_LICENSE", DataDir + "/without-atracsys.lic"}});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: the Atracsys tracking plugin is not licensed")) << r;

    r = track({"--duration", "1"}, {{"KESTRION_PLUGIN_PATH", m_dir}});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: no Atracsys tracking plugin found in " + m_dir)) << r;

    r = track({"--csv", path("no/such/folder/out.csv"), "--duration", "1"});
    EXPECT_EQ(r.exitCode, 1) << r;
    EXPECT_TRUE(r.errHas("kestrion track: CSV file " + path("no/such/folder/out.csv") + ": cannot create"))
        << r;

    r = track({"--frames", "0"});
    EXPECT_EQ(r.exitCode, 2) << r;
    EXPECT_TRUE(r.errHas("--frames takes a positive number of frames, not '0'")) << r;
}
