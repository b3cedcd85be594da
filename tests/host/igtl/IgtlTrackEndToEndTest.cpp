// `kestrion track --igtl` against OpenIGTLink's own example clients (built from Debian's
// openigtlink-examples sources), beside a client that never reads and one that sends garbage.
#include "IgtlTestClient.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

namespace Kestrion::Igtl {
namespace {

using Pose = std::array<double, 12>; // x, y, z, then the rotation row by row

std::vector<std::string> splitCsv(const std::string& line) {
    std::vector<std::string> fields;
    std::stringstream s(line);
    for (std::string field; std::getline(s, field, ',');)
        fields.push_back(field);
    return fields;
}

/// The tracked rows of the recording by the frame's time (ms), the time OpenIGTLink messages
/// carry: the capture time when the CSV has it, else the arrival (which two frames may share).
std::multimap<std::uint64_t, Pose> readCsv(const std::string& path, std::size_t* rows) {
    // Keyed by the capture time in µs, the time the OpenIGTLink headers carry.
    std::multimap<std::uint64_t, Pose> poses;
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    const auto header = splitCsv(line);
    const auto capture = std::find(header.begin(), header.end(), "capture_us");
    *rows = 0;
    if (capture == header.end())
        return poses;
    const std::size_t timeColumn = capture - header.begin();
    while (std::getline(file, line)) {
        ++*rows;
        const auto fields = splitCsv(line);
        if (fields.size() < 22 || fields[8] != "1")
            continue;
        Pose pose;
        for (std::size_t i = 0; i < 12; ++i)
            pose[i] = std::stod(fields[10 + i]);
        poses.emplace(std::stoull(fields[timeColumn]), pose);
    }
    return poses;
}

/// A 4x4 matrix as the example clients print it (rows of "a, b, c, d").
bool readMatrix(std::istream& in, Pose& pose) {
    std::string line;
    std::getline(in, line); // "============="
    for (int r = 0; r < 3; ++r) {
        double v[4];
        std::getline(in, line);
        if (std::sscanf(line.c_str(), "%lf, %lf, %lf, %lf", &v[0], &v[1], &v[2], &v[3]) != 4)
            return false;
        pose[r] = v[3];
        for (int c = 0; c < 3; ++c)
            pose[3 + 3 * r + c] = v[c];
    }
    return true;
}

/// Within 0.001 mm and 1e-6 in rotation. The example clients print six significant digits, so
/// the scene keeps every coordinate under 1000 mm.
bool same(const Pose& a, const Pose& b) {
    for (int i = 0; i < 12; ++i)
        if (std::abs(a[i] - b[i]) > (i < 3 ? 1e-3 : 1e-6))
            return false;
    return true;
}

QProcess* launch(QProcess& process, const QString& program, const QStringList& arguments) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"KESTRION_LICENSE", "FTK_SIMULATOR_SCENE"})
        env.remove(name);
    env.insert("KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER);
    env.insert("ASAN_OPTIONS", "detect_leaks=0"); // the example clients end with exit()
    process.setProcessEnvironment(env);
    // The example clients print the header on std::cerr and the matrices on std::cout, which the
    // former flushes: merged, the lines keep their order.
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    return &process;
}

TEST(IgtlTrackEndToEnd, ExampleClientsGetTheRecordedPosesWhileBrokenClientsCannotHarmTheRun) {
    QTemporaryDir folder;
    const std::string csv = folder.filePath("run.csv").toStdString();
    QProcess track;
    launch(track, KESTRION_APP,
           {"track", "--igtl", "0", "--geometry", ":/markers/geometry1000.ini", "--duration", "4", "--csv",
            QString::fromStdString(csv)});
    std::string out;
    const std::string serving = "Serving OpenIGTLink on 127.0.0.1:";
    while (out.find('\n', out.find(serving)) == std::string::npos && track.waitForReadyRead(60000))
        out += track.readAllStandardOutput().toStdString();
    ASSERT_NE(out.find(serving), std::string::npos) << out;
    const int port = std::stoi(out.substr(out.find(serving) + serving.size()));

    QProcess receiver, tracker;
    launch(receiver, IGTL_RECEIVE_CLIENT, {"127.0.0.1", QString::number(port)});
    launch(tracker, IGTL_TRACKING_DATA_CLIENT, {"127.0.0.1", QString::number(port), "100"});
    IgtlTest::IgtlTestClient silent(port, 4096);
    IgtlTest::IgtlTestClient garbage(port);
    std::mt19937 random(19);
    std::vector<std::uint8_t> noise(4096);
    for (auto& byte : noise)
        byte = static_cast<std::uint8_t>(random());
    noise[0] = 0x47; // not a header version
    garbage.send(noise);

    ASSERT_TRUE(track.waitForFinished(120000));
    out += track.readAllStandardOutput().toStdString();
    EXPECT_EQ(track.exitCode(), 0) << out;
    for (QProcess* client : {&receiver, &tracker})
        if (!client->waitForFinished(30000))
            client->kill();
    const std::string version = std::to_string(noise[0] * 256 + noise[1]);
    EXPECT_NE(out.find("OpenIGTLink client " + garbage.address() + " dropped: unsupported header version " +
                       version),
              std::string::npos)
        << out;

    // The table lists the clients with what each was sent and dropped.
    EXPECT_NE(out.find("OpenIGTLink 127.0.0.1:" + std::to_string(port) + ": "), std::string::npos);
    const std::size_t silentLine = out.find("\n  " + silent.address() + " ");
    ASSERT_NE(silentLine, std::string::npos) << out;
    const std::string clientRow = out.substr(silentLine + 1, out.find('\n', silentLine + 1) - silentLine - 1);
    EXPECT_NE(clientRow.find(" sent "), std::string::npos) << clientRow;
    EXPECT_NE(clientRow.find(" dropped "), std::string::npos) << clientRow;

    // The recording is complete: one row per frame.
    std::size_t rows = 0;
    const auto recorded = readCsv(csv, &rows);
    ASSERT_FALSE(recorded.empty());
    EXPECT_NE(out.find("Recorded " + std::to_string(rows) + " rows"), std::string::npos);
    EXPECT_NE(out.find("Summary: " + std::to_string(rows) + " frames received"), std::string::npos) << out;

    // Every TRANSFORM is the recorded pose of its frame, and nearly every frame came.
    std::istringstream received(receiver.readAllStandardOutput().toStdString());
    std::uint64_t stampUS = 0, firstUS = 0, matched = 0;
    for (std::string line; std::getline(received, line);) {
        unsigned long long seconds = 0, nanoseconds = 0;
        if (std::sscanf(line.c_str(), "Time stamp: %llu.%llu", &seconds, &nanoseconds) == 2)
            stampUS = seconds * 1000000 + (nanoseconds + 500) / 1000; // the header's 2^-32 s, rounded
        if (line != "Receiving TRANSFORM data type.")
            continue;
        Pose pose;
        ASSERT_TRUE(readMatrix(received, pose));
        if (recorded.empty() || stampUS > recorded.rbegin()->first)
            break; // served after the recording ended, while the camera closed
        const auto [first, last] = recorded.equal_range(stampUS);
        ASSERT_NE(first, last) << "no recorded frame at " << stampUS;
        EXPECT_TRUE(std::any_of(first, last, [&](const auto& row) { return same(pose, row.second); }))
            << "at " << stampUS;
        firstUS = firstUS ? firstUS : stampUS;
        ++matched;
    }
    const auto since = static_cast<std::size_t>(std::distance(recorded.lower_bound(firstUS), recorded.end()));
    EXPECT_GT(matched, 0u);
    EXPECT_GE(matched * 10, since * 9) << matched << " of " << since << " frames";

    // TDATA (the client stops it after ten messages): each element a recorded pose.
    std::istringstream tdata(tracker.readAllStandardOutput().toStdString());
    std::size_t elements = 0;
    for (std::string line; std::getline(tdata, line);) {
        if (line != " Name       : atracsys-1000")
            continue;
        Pose pose;
        std::getline(tdata, line); // type
        std::getline(tdata, line); // "Matrix :"
        ASSERT_TRUE(readMatrix(tdata, pose));
        bool found = false;
        for (const auto& [ms, row] : recorded)
            found = found || same(pose, row);
        EXPECT_TRUE(found);
        ++elements;
    }
    EXPECT_GE(elements, 1u);
}

} // namespace
} // namespace Kestrion::Igtl

namespace Kestrion::Igtl {
namespace {

TEST(IgtlTrackEndToEnd, AnAddressItCannotServeOnEndsTheCommandBeforeTracking) {
    QProcess track;
    launch(track, KESTRION_APP, {"track", "--igtl", "0", "--igtl-bind", "256.1.1.1", "--duration", "1"});
    ASSERT_TRUE(track.waitForFinished(120000));
    const std::string out = track.readAllStandardOutput().toStdString();
    EXPECT_EQ(track.exitCode(), 1) << out;
    EXPECT_NE(
        out.find("kestrion track: OpenIGTLink server cannot listen on 256.1.1.1:0: not an IPv4 address\n"),
        std::string::npos)
        << out;
    EXPECT_EQ(out.find("Tracking "), std::string::npos);
}

} // namespace
} // namespace Kestrion::Igtl
