// `kestrion track --ros2 --csv` in-process on the simulated camera with the stepped clock, read by
// subscriber processes: every pose they get is the CSV's pose of its frame, every tracked frame is
// either received or counted as skipped, a hidden tool never appears, and the diagnostics follow
// a tool out of view and back.
#include "Ros2TestSupport.h"

#include "host/apps/kestrion/CommandContext.h"
#include "host/apps/kestrion/TrackCommand.h"
#include "simulator/control/ftkSimulator.h"

#include <Eigen/Geometry>

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

namespace Kestrion::Ros2 {
namespace {

using Ros2Test::Received;
using Ros2Test::SubscriberProcess;

struct CsvRow {
    std::uint64_t captureUS = 0;
    Eigen::Matrix4d pose = Eigen::Matrix4d::Identity();
};

/// The rows of atracsys-1000 in order (tracked ones with their pose), and the rows of atracsys-1001.
void readCsv(const std::string& path, std::vector<std::optional<CsvRow>>& tool, std::size_t& hiddenRows,
             std::size_t& hiddenTracked) {
    std::ifstream file(path);
    std::string line;
    const auto split = [](const std::string& text) {
        std::vector<std::string> fields;
        std::stringstream s(text);
        for (std::string field; std::getline(s, field, ',');)
            fields.push_back(field);
        return fields;
    };
    std::getline(file, line);
    std::map<std::string, std::size_t> column; // the header's names
    for (const std::string& name : split(line))
        column.emplace(name, column.size());
    const std::size_t instrument = column["instrument"], tracked = column["tracked"], x = column["x_mm"],
                      r11 = column["r11"];
    ASSERT_TRUE(instrument > 0 && tracked > 0 && x > 0 && r11 > 0) << line;
    while (std::getline(file, line)) {
        const std::vector<std::string> f = split(line);
        ASSERT_GE(f.size(), r11 + 9) << line;
        if (f[instrument] == "atracsys-1001") {
            ++hiddenRows;
            hiddenTracked += f[tracked] == "1";
            continue;
        }
        if (f[tracked] != "1") {
            tool.emplace_back();
            continue;
        }
        CsvRow row;
        row.captureUS = std::stoull(f[column["capture_us"]]);
        for (std::size_t i = 0; i < 3; ++i) {
            row.pose(i, 3) = std::stod(f[x + i]);
            for (std::size_t j = 0; j < 3; ++j)
                row.pose(i, j) = std::stod(f[r11 + 3 * i + j]);
        }
        tool.push_back(row);
    }
}

/// Whether a received transform is the CSV's pose, to the CSV's digits (0.0001 mm, 1e-7).
bool sameAsCsv(const Received& r, const Eigen::Matrix4d& csv) {
    const Eigen::Quaterniond q(r.rotation[3], r.rotation[0], r.rotation[1], r.rotation[2]);
    const Eigen::Vector3d t(r.translation[0], r.translation[1], r.translation[2]);
    return (q.toRotationMatrix() - csv.block<3, 3>(0, 0)).cwiseAbs().maxCoeff() < 1.5e-7 &&
           (t * 1000.0 - csv.block<3, 1>(0, 3)).cwiseAbs().maxCoeff() < 1.5e-4;
}

TEST(Ros2TrackEndToEnd, SubscribersGetEveryTrackedPoseOfTheCsvAndNothingOfAHiddenTool) {
    ::unsetenv("CYCLONEDDS_URI");
    QTemporaryDir folder;
    const std::string markers = std::string(KESTRION_SOURCE_DIR) + "/data/markers/";
    // Marker 1000 orbits and is out of view from 3 s of device time on; 1001 is never seen.
    const std::string scene =
        R"({"devices": [{"model": "spryTrack 180", "serial": "0x53544b3138300001"}],
            "markers": [{"geometryFile": ")" +
        markers + R"(geometry1000.ini", "motion": {"type": "orbit", "center": [40, 0, 750],
                         "radiusMM": 120, "periodS": 12},
                         "occlusions": [{"fromS": 3, "toS": 100000, "camera": "both"}]},
                        {"geometryFile": ")" +
        markers + R"(geometry1001.ini", "motion": {"type": "static", "position": [100, 0, 900]},
                         "occlusions": [{"fromS": 0, "toS": 100000, "camera": "both"}]}],
            "strays": [[-150, 120, 900], [150, -80, 1000]]})";
    ftkSimSetSteppedClock(true);
    ASSERT_TRUE(ftkSimLoadScene(scene.c_str()));

    const int domain = Ros2Test::testDomain();
    std::vector<std::unique_ptr<SubscriberProcess>> subscribers;
    for (int i = 0; i < 2; ++i) {
        subscribers.push_back(std::make_unique<SubscriberProcess>(
            domain, "atracsys", std::vector<std::string>{"atracsys_1000", "atracsys_1001"}));
        ASSERT_TRUE(subscribers.back()->waitFor([](const auto& lines) { return !lines.empty(); }));
    }

    const std::string csv = folder.filePath("run.csv").toStdString();
    std::ostringstream out, err;
    int status = -1;
    std::atomic<bool> done{false};
    std::thread run([&] {
        Cli::CommandContext context(out, err, {KESTRION_PLUGIN_FOLDER});
        status = Cli::TrackCommand().run(context, {"--ros2", "--ros2-domain", std::to_string(domain),
                                                   "--geometry", ":/markers/geometry1000.ini", "--geometry",
                                                   ":/markers/geometry1001.ini", "--fiducials", "all",
                                                   "--frames", "400", "--poll-ms", "3", "--csv", csv});
        done = true;
    });
    // The subscribers read while the command tracks.
    while (!done)
        for (auto& subscriber : subscribers)
            subscriber->pump();
    run.join();
    ftkSimSetSteppedClock(false);
    ftkSimResetScene();
    for (auto& subscriber : subscribers)
        ASSERT_TRUE(subscriber->finish());
    ASSERT_EQ(status, 0) << out.str() << err.str();
    const std::string text = out.str();
    EXPECT_NE(
        text.find("Publishing ROS 2 on domain " + std::to_string(domain) +
                  ", loopback only: /tf from atracsys_camera, /atracsys/<tool>/pose, /atracsys/fiducials, "
                  "/diagnostics\n"),
        std::string::npos)
        << text;
    EXPECT_NE(text.find("ROS 2 domain " + std::to_string(domain) +
                        " (loopback only): publishing, 2 subscriber(s), "),
              std::string::npos)
        << text;
    const std::size_t summary = text.find("ROS 2: ");
    ASSERT_NE(summary, std::string::npos) << text;
    std::uint64_t published = 0, skipped = 0;
    ASSERT_EQ(std::sscanf(text.c_str() + summary, "ROS 2: %llu frame(s) published, %llu skipped",
                          reinterpret_cast<unsigned long long*>(&published),
                          reinterpret_cast<unsigned long long*>(&skipped)),
              2);

    std::vector<std::optional<CsvRow>> rows;
    std::size_t hiddenRows = 0, hiddenTracked = 0;
    readCsv(csv, rows, hiddenRows, hiddenTracked);
    ASSERT_EQ(rows.size(), 400u);
    EXPECT_EQ(hiddenRows, 400u);
    EXPECT_EQ(hiddenTracked, 0u);

    for (auto& subscriber : subscribers) {
        // Each received transform of the tool is the pose of a later CSV row than the one before.
        std::size_t row = 0, received = 0, firstRow = rows.size();
        std::uint64_t lastStamp = 0;
        for (const auto& line : subscriber->lines()) {
            const auto r = Ros2Test::parseLine(line);
            if (!r)
                continue;
            EXPECT_TRUE(r->child.find("1001") == std::string::npos && r->tool != "atracsys_1001") << line;
            if (r->kind != "tf" || r->child != "atracsys_1000")
                continue;
            EXPECT_EQ(r->parent, "atracsys_camera");
            EXPECT_GT(r->stampUS, lastStamp);
            lastStamp = r->stampUS;
            std::size_t match = row;
            while (match < rows.size() && !(rows[match] && sameAsCsv(*r, rows[match]->pose)))
                ++match;
            // The stream delivers a few more frames than the CSV takes before it closes: what is
            // not in the CSV comes after it. A wrong pose in between ends the count short below.
            if (match == rows.size())
                break;
            row = match;
            EXPECT_EQ(r->stampUS, rows[row]->captureUS) << "not stamped with the frame's time";
            firstRow = std::min(firstRow, row);
            ++row;
            ++received;
        }
        // Every tracked frame from the first received on came, unless the publisher skipped it.
        std::size_t tracked = 0;
        for (std::size_t i = firstRow; i < rows.size(); ++i)
            tracked += rows[i].has_value();
        EXPECT_GT(received, 0u);
        EXPECT_LE(received, published);
        EXPECT_GE(received + skipped, tracked) << received << " received, " << skipped << " skipped";
        EXPECT_TRUE(subscriber->has("cloud "));
        EXPECT_TRUE(subscriber->has("diag atracsys: atracsys_1001|1|not in view|atracsys-1001|reason="));
        std::string toolDiagnostics;
        for (const auto& line : subscriber->lines())
            if (line.rfind("diag atracsys: ", 0) == 0)
                toolDiagnostics += line + "\n";
        // A subscriber matched before the end sees the tool out of view; one that got diagnostics
        // before the tool went out of view (however slow its discovery) also saw it tracked.
        EXPECT_TRUE(subscriber->has("diag atracsys: atracsys_1000|1|not in view|atracsys-1000|reason="))
            << toolDiagnostics;
        std::size_t firstHidden = 0;
        while (firstHidden < rows.size() && rows[firstHidden])
            ++firstHidden;
        unsigned long long itemsAtFirst = 0;
        for (const auto& line : subscriber->lines())
            if (std::sscanf(line.c_str(), "diag atracsys: camera|%*d|%*[^|]|%*[^|]|data items=%llu",
                            &itemsAtFirst) == 1)
                break;
        if (itemsAtFirst > 0 && itemsAtFirst < firstHidden) {
            EXPECT_TRUE(subscriber->has("diag atracsys: atracsys_1000|0|tracked|atracsys-1000|reason="));
        }
    }
}

} // namespace
} // namespace Kestrion::Ros2
