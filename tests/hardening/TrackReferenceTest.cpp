// `kestrion track` with named instruments and a reference marker, as a user runs it: the CSV's
// poses in the reference's frame agree with its camera-frame poses, exist only in frames where
// both markers are tracked, the sequence file names them so that 3D Slicer's importer finds them,
// and a recording replayed with a reference chosen afterwards gives the same relative poses.

#include "tests/hardening/ProcessRun.h"
#include "tests/hardening/TrackRun.h"
#include "tests/support/CsvLine.h"

#include <Eigen/Core>
#include <Eigen/LU>
#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

using namespace Kestrion::HardeningTest;

namespace {

/// A CSV file as rows of named fields; quoted fields may hold commas.
std::vector<std::map<std::string, std::string>> readRows(const std::string& file) {
    std::vector<std::map<std::string, std::string>> rows;
    std::ifstream in(file);
    std::vector<std::string> header;
    for (std::string line; std::getline(in, line);) {
        const std::vector<std::string> fields = Kestrion::TestSupport::csvFields(line);
        if (header.empty()) {
            header = fields;
            continue;
        }
        std::map<std::string, std::string> row;
        for (std::size_t i = 0; i < header.size() && i < fields.size(); ++i)
            row[header[i]] = fields[i];
        rows.push_back(row);
    }
    return rows;
}

Eigen::Matrix4d pose(const std::map<std::string, std::string>& row, const std::string& prefix) {
    Eigen::Matrix4d m = Eigen::Matrix4d::Identity();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            m(r, c) = std::stod(row.at(prefix + "r" + std::to_string(r + 1) + std::to_string(c + 1)));
        m(r, 3) = std::stod(row.at(prefix + std::string(1, "xyz"[r]) + "_mm"));
    }
    return m;
}

/// The frames' rows of each instrument: frame number -> row.
std::map<std::string, std::map<std::string, std::string>>
byFrame(const std::vector<std::map<std::string, std::string>>& rows, const std::string& instrument) {
    std::map<std::string, std::map<std::string, std::string>> frames;
    for (const auto& row : rows)
        if (row.at("instrument") == instrument)
            frames[row.at("frame")] = row;
    return frames;
}

} // namespace

TEST(TrackReference, RelativePosesAreRightNamedAndKeptByAReplay) {
    TemporaryFolder folder;
    const std::vector<std::string> names = {"--name", "atracsys-1000=Stylus", "--name",
                                            "atracsys-1001=Reference"};
    std::vector<std::string> live = {"--frames", "120",        "--csv",     "live.csv",    "--record",
                                     "s.krec",   "--sequence", "s.igs.mha", "--reference", "atracsys-1001"};
    live.insert(live.end(), names.begin(), names.end());
    const ProcessResult recorded = track(folder, live);
    ASSERT_EQ(recorded.exitCode, 0) << recorded;

    const auto rows = readRows(folder.path("live.csv"));
    const auto tool = byFrame(rows, "atracsys-1000");
    const auto reference = byFrame(rows, "atracsys-1001");
    ASSERT_EQ(tool.size(), 120u);
    std::size_t valid = 0;
    std::size_t referenceMissing = 0;
    for (const auto& [frame, row] : tool) {
        const auto& ref = reference.at(frame);
        EXPECT_EQ(ref.at("ref_x_mm"), "") << "the reference has no pose in its own frame";
        if (row.at("tracked") == "1" && ref.at("tracked") == "1") {
            ++valid;
            const Eigen::Matrix4d expected = pose(ref, "").inverse() * pose(row, "");
            EXPECT_LT((pose(row, "ref_") - expected).cwiseAbs().maxCoeff(), 2e-3) << "frame " << frame;
        } else {
            EXPECT_EQ(row.at("ref_x_mm"), "") << "frame " << frame;
            if (ref.at("tracked") != "1") {
                ++referenceMissing;
                EXPECT_NE(row.at("reason").find("reference not seen"), std::string::npos) << row.at("reason");
            }
        }
    }
    EXPECT_GT(valid, 10u);

    // The sequence importer splits <From>To<To>Transform, makes <From>'s first letter upper case
    // and looks the field up again, case-sensitively: every name must survive that.
    const std::string sequence = readFile(folder.path("s.igs.mha"));
    std::set<std::string> fields;
    const std::regex field(R"(Seq_Frame\d+_(\w+)Transform = )");
    for (std::sregex_iterator it(sequence.begin(), sequence.end(), field), end; it != end; ++it)
        fields.insert((*it)[1]);
    EXPECT_TRUE(fields.count("StylusToReference")) << sequence.substr(0, 2000);
    EXPECT_TRUE(fields.count("StylusToTracker"));
    for (const std::string& name : fields) {
        std::string imported = name;
        imported[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(imported[0])));
        EXPECT_EQ(imported, name);
    }

    // The same recording replayed, the reference chosen only now.
    std::vector<std::string> again = {"--frames",   "120",         "--csv",
                                      "replay.csv", "--reference", "atracsys-1001"};
    const ProcessResult replayed = track(folder, again,
                                         {{"FTK_SIMULATOR_REPLAY", folder.path("s.krec")},
                                          {"FTK_SIMULATOR_REPLAY_PACE", "fetch"},
                                          {"FTK_SIMULATOR_REPLAY_MARKERS", "recorded"}});
    ASSERT_EQ(replayed.exitCode, 0) << replayed;
    const auto replayTool = byFrame(readRows(folder.path("replay.csv")), "atracsys-1000");
    ASSERT_EQ(replayTool.size(), tool.size());
    for (const auto& [frame, row] : tool)
        for (const char* column : {"ref_x_mm", "ref_y_mm", "ref_z_mm", "ref_r11", "ref_r23", "ref_r32"})
            EXPECT_EQ(replayTool.at(frame).at(column), row.at(column)) << "frame " << frame << " " << column;
}

TEST(TrackReference, BadNamesAndUnknownInstrumentsAreRefusedByName) {
    TemporaryFolder folder;
    const ProcessResult badName = track(folder, {"--name", "atracsys-1000=my-tool"});
    EXPECT_EQ(badName.exitCode, 2) << badName;
    EXPECT_TRUE(
        badName.errHas("--name atracsys-1000=my-tool: instrument name 'my-tool' may hold only letters "
                       "and digits (as in StylusToReference)"))
        << badName;
    const ProcessResult twice =
        track(folder, {"--name", "atracsys-1000=Stylus", "--name", "atracsys-1001=Stylus"});
    EXPECT_EQ(twice.exitCode, 2) << twice;
    EXPECT_TRUE(twice.errHas("--name: 'Stylus' is given to both atracsys-1000 and atracsys-1001")) << twice;
    const ProcessResult unknown = track(folder, {"--frames", "5", "--reference", "atracsys-1005"});
    EXPECT_EQ(unknown.exitCode, 1) << unknown;
    EXPECT_TRUE(unknown.errHas(
        "kestrion track: reference atracsys-1005: no instrument atracsys-1005 (instruments: atracsys-1000, "
        "atracsys-1001)"))
        << unknown;
}
