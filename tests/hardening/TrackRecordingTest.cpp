// `kestrion track --record` and its replay through the simulated camera, as a user runs them:
// the replay gives the recording run's CSV and sequence again, a recording killed mid-write
// replays to its last whole frame, and files that cannot be replayed are refused by name.

#include "tests/hardening/ProcessRun.h"
#include "tests/hardening/TrackRun.h"

#include "recording/RecordingReader.h"

#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace Kestrion::HardeningTest;

namespace {

std::map<std::string, std::string> replay(const std::string& file, const std::string& markers = "recorded") {
    return {{"FTK_SIMULATOR_REPLAY", file},
            {"FTK_SIMULATOR_REPLAY_PACE", "fetch"},
            {"FTK_SIMULATOR_REPLAY_MARKERS", markers}};
}

/// The CSV without the host's times (arrival_ms, device_ms, and capture_us, which is mapped onto
/// the host's clock by the arrivals), which a replay cannot keep.
std::string withoutArrivalTimes(const std::string& csv) {
    std::istringstream in(csv);
    std::string line;
    std::string out;
    while (std::getline(in, line)) {
        std::vector<std::string> fields;
        std::size_t start = 0;
        for (std::size_t comma = line.find(','); comma != std::string::npos; comma = line.find(',', start)) {
            fields.push_back(line.substr(start, comma - start));
            start = comma + 1;
        }
        fields.push_back(line.substr(start)); // quoted commas stay in the last fields, compared as they are
        for (std::size_t i = 0; i < fields.size(); ++i)
            if (i != 2 && i != 3 && i != 5)
                out += fields[i] + (i + 1 < fields.size() ? "," : "\n");
    }
    return out;
}

/// The sequence file without its timestamps: capture times, mapped onto the host's clock by the
/// arrivals, which a replay cannot keep.
std::string withoutTimestamps(const std::string& sequence) {
    std::istringstream in(sequence);
    std::string out;
    for (std::string line; std::getline(in, line);)
        if (line.find("_Timestamp = ") == std::string::npos)
            out += line + "\n";
    return out;
}

/// The camera frames of a CSV by device counter: each frame's rows without the run's frame number
/// and the host's times (arrival_ms, device_ms, capture_us). Rows written without a new camera frame (the
/// same device counter again: while fetches fail, the run shows every instrument untracked) are not camera
/// frames.
std::map<std::string, std::string> cameraFrames(const std::string& csv) {
    std::istringstream in(csv);
    std::map<std::string, std::string> frames;
    std::string line, frame, counter;
    bool skipping = false;
    std::getline(in, line); // the header
    while (std::getline(in, line)) {
        std::vector<std::string> fields;
        std::istringstream columns(line);
        for (std::string field; std::getline(columns, field, ',');)
            fields.push_back(field);
        if (fields[0] != frame) {
            frame = fields[0];
            skipping = fields[1] == counter;
            counter = fields[1];
        }
        if (skipping)
            continue;
        std::string& rows = frames[counter];
        for (std::size_t i = 4; i < fields.size(); ++i)
            if (i != 5)
                rows += fields[i] + (i + 1 < fields.size() ? "," : "\n");
    }
    return frames;
}

std::uint64_t wholeFrames(const std::string& file) {
    Kestrion::Recording::RecordingReader reader;
    EXPECT_TRUE(reader.open(file)) << reader.error();
    Kestrion::Recording::Frame frame;
    while (reader.next(frame) == Kestrion::Recording::RecordingReader::Next::Frame) {
    }
    return reader.framesRead();
}

} // namespace

TEST(TrackRecording, ReplayGivesTheRecordingRunsCsvAndSequenceAgain) {
    TemporaryFolder folder;
    const ProcessResult recorded = track(
        folder, {"--frames", "60", "--record", "run.krec", "--csv", "run.csv", "--sequence", "run.igs.mha"});
    ASSERT_EQ(recorded.exitCode, 0) << recorded;
    EXPECT_TRUE(recorded.outHas("Recorded the camera's frames to run.krec\n")) << recorded;
    EXPECT_TRUE(recorded.outHas("Wrote 60 frames to run.igs.mha\n")) << recorded;
    const std::string csv = withoutArrivalTimes(readFile(folder.path("run.csv")));
    const std::string sequence = withoutTimestamps(readFile(folder.path("run.igs.mha")));
    ASSERT_EQ(std::count(csv.begin(), csv.end(), '\n'), 121);
    EXPECT_NE(sequence.find("Seq_Frame0059_Atracsys1001ToTrackerTransformStatus = OK\n"), std::string::npos);

    for (const std::string markers : {"recorded", "matched"}) {
        SCOPED_TRACE(markers);
        const ProcessResult replayed =
            track(folder, {"--frames", "60", "--csv", markers + ".csv", "--sequence", markers + ".igs.mha"},
                  replay(folder.path("run.krec"), markers));
        ASSERT_EQ(replayed.exitCode, 0) << replayed;
        EXPECT_EQ(withoutArrivalTimes(readFile(folder.path(markers + ".csv"))), csv);
        EXPECT_EQ(withoutTimestamps(readFile(folder.path(markers + ".igs.mha"))), sequence);
    }
}

// With --reconnect, a camera unplugged for 1.5 s is reopened and the recording goes on in the same
// file, a gap marking the time without frames: its replay gives every frame of the live CSV.
TEST(TrackRecording, RecordingGoesOnAcrossAReconnectionAndReplaysEveryFrame) {
    TemporaryFolder folder;
    const std::string scene = folder.write("unplugged.json", R"({
        "seed": 7,
        "devices": [{"model": "spryTrack 180", "serial": "0x53544b3138300001",
                     "faults": [{"kind": "disconnection", "atTimeS": 1.5, "durationS": 1.5}]}],
        "markers": [{"geometryId": 1000, "fiducials": [[0, 0, 0], [31, 82, 0], [96, -10, 0], [61, 46, 0]],
                     "motion": {"type": "orbit", "center": [40, 0, 750], "axis": [0, 1, 0], "radiusMM": 120,
                                "periodS": 12}}]})");
    const ProcessResult recorded =
        track(folder, {"--duration", "6", "--reconnect", "--record", "run.krec", "--csv", "run.csv"},
              {{"FTK_SIMULATOR_SCENE", scene}});
    ASSERT_EQ(recorded.exitCode, 0) << recorded;
    Kestrion::Recording::RecordingReader reader;
    ASSERT_TRUE(reader.open(folder.path("run.krec"))) << reader.error();
    Kestrion::Recording::Frame frame;
    while (reader.next(frame) == Kestrion::Recording::RecordingReader::Next::Frame) {
    }
    EXPECT_FALSE(reader.cutShort());
    ASSERT_EQ(reader.gaps().size(), 1u) << recorded;
    EXPECT_GT(reader.gaps()[0].beforeFrame, 0u);
    EXPECT_LT(reader.gaps()[0].beforeFrame, reader.framesRead());

    // Every camera frame of the live run is in the replay, as it was; the recording may hold a
    // few more (fetched while the run was not reading: just after the reopening, after its end).
    const auto live = cameraFrames(readFile(folder.path("run.csv")));
    EXPECT_GT(live.size(), 200u);
    const ProcessResult replayed =
        track(folder, {"--frames", std::to_string(reader.framesRead()), "--csv", "replayed.csv"},
              replay(folder.path("run.krec")));
    ASSERT_EQ(replayed.exitCode, 0) << replayed;
    const auto again = cameraFrames(readFile(folder.path("replayed.csv")));
    EXPECT_EQ(again.size(), reader.framesRead());
    for (const auto& [counter, rows] : live) {
        const auto found = again.find(counter);
        ASSERT_NE(found, again.end()) << "frame " << counter << " of the live run is not replayed";
        EXPECT_EQ(found->second, rows) << "frame " << counter;
    }
}

// A replay ends with the recording: the command says after how many frames and succeeds, also
// when --frames or --duration asked for more; the table shows no tool as tracked after the end.
TEST(TrackRecording, AReplayEndsWithItsRecording) {
    TemporaryFolder folder;
    ASSERT_EQ(track(folder, {"--frames", "40", "--record", "short.krec"}).exitCode, 0);
    const std::string frames = std::to_string(wholeFrames(folder.path("short.krec"))); // 40 or a few more
    for (const std::string pace : {"fetch", "recorded"}) {
        SCOPED_TRACE(pace);
        auto variables = replay(folder.path("short.krec"));
        variables["FTK_SIMULATOR_REPLAY_PACE"] = pace;
        std::vector<std::string> arguments{"--duration", "20", "--csv", pace + ".csv"};
        if (pace == "fetch")
            arguments.insert(arguments.end(), {"--frames", "1000"});
        const auto started = std::chrono::steady_clock::now();
        const ProcessResult r = track(folder, arguments, variables);
        EXPECT_EQ(r.exitCode, 0) << r;
        // Fetched one by one every frame comes; at the recorded pace a busy machine may fetch a
        // frame too late to get it, which the summary counts as dropped.
        unsigned received = 0, dropped = 0;
        const std::size_t summary = r.out.find("Summary: ");
        ASSERT_NE(summary, std::string::npos) << r;
        ASSERT_EQ(std::sscanf(r.out.c_str() + summary, "Summary: %u frames received, %u dropped", &received,
                              &dropped),
                  2)
            << r;
        EXPECT_EQ(std::to_string(received + dropped), frames) << r;
        EXPECT_TRUE(pace == "recorded" || dropped == 0) << r;
        EXPECT_TRUE(r.outHas("\nThe recording ended after " + std::to_string(received) + " frames\n")) << r;
        EXPECT_TRUE(r.outHas("Camera: the recording has ended\n")) << r;
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(15))
            << "not the whole --duration";
        EXPECT_FALSE(r.errHas("stopped delivering")) << r;
    }
}

TEST(TrackRecording, RecordedImagesAreReplayed) {
    TemporaryFolder folder;
    const ProcessResult recorded =
        track(folder, {"--frames", "3", "--record", "images.krec", "--record-images"});
    ASSERT_EQ(recorded.exitCode, 0) << recorded;
    const ProcessResult replayed =
        track(folder, {"--frames", "3", "--images", "png"}, replay(folder.path("images.krec")));
    ASSERT_EQ(replayed.exitCode, 0) << replayed;
    EXPECT_TRUE(replayed.outHas("Saved 1 image pair(s) to png\n")) << replayed;
}

// A recording process killed mid-write leaves its ".part" file, which replays up to its last
// whole frame.
TEST(TrackRecording, KilledRecordingReplaysToItsLastWholeFrame) {
    TemporaryFolder folder;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("KESTRION_PLUGIN_PATH", KESTRION_PLUGIN_FOLDER);
    env.remove("FTK_SIMULATOR_SCENE");
    QProcess recorder;
    recorder.setProcessEnvironment(env);
    recorder.setWorkingDirectory(QString::fromStdString(folder.path()));
    recorder.start(KESTRION_APP,
                   {"track", "--record", "killed.krec", "--duration", "600", "--refresh", "100"});
    ASSERT_TRUE(recorder.waitForStarted(60000));
    const std::string part = folder.path("killed.krec.part");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    const auto size = [&part] {
        std::error_code missing;
        const auto bytes = std::filesystem::file_size(part, missing);
        return missing ? 0 : bytes;
    };
    while (size() < 40000 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    recorder.kill(); // SIGKILL: no chance to finish the file
    ASSERT_TRUE(recorder.waitForFinished(60000));
    ASSERT_GE(size(), 40000u) << "the recording grew";
    EXPECT_FALSE(std::filesystem::exists(folder.path("killed.krec")));

    const std::uint64_t frames = wholeFrames(part);
    ASSERT_GT(frames, 10u);
    const ProcessResult replayed =
        track(folder, {"--frames", std::to_string(frames), "--csv", "replayed.csv"}, replay(part));
    ASSERT_EQ(replayed.exitCode, 0) << replayed;
    EXPECT_TRUE(replayed.errHas("ftkInit: recording " + part + ": cut short")) << replayed;
    EXPECT_TRUE(replayed.errHas("; replaying its " + std::to_string(frames) + " whole frames\n")) << replayed;
    EXPECT_TRUE(replayed.outHas("Summary: " + std::to_string(frames) + " frames received")) << replayed;
}

TEST(TrackRecording, FilesThatCannotBeReplayedAreRefusedByName) {
    TemporaryFolder folder;
    ASSERT_EQ(track(folder, {"--frames", "2", "--record", "good.krec"}).exitCode, 0);
    std::string newer = readFile(folder.path("good.krec"));
    newer[10] = '\x05'; // the oldest reader able to read it: version 5
    struct Row {
        const char* name;
        std::string content;
        std::string problem;
    };
    const Row rows[] = {
        {"foreign", "frame,device_counter\n", "not a recording (no recording signature at its start)"},
        {"newer", newer,
         "written in format version 3, which needs a reader of version 5 or newer; this program reads up to "
         "version 3"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string file = folder.write(std::string(row.name) + ".krec", row.content);
        const ProcessResult r = track(folder, {"--frames", "2"}, replay(file));
        EXPECT_EQ(r.exitCode, 1) << r;
        EXPECT_TRUE(r.errHas("ftkInit: recording " + file + ": " + row.problem + "\n")) << r;
        EXPECT_TRUE(r.errHas("kestrion track: the camera could not be opened\n")) << r;
    }
    auto slow = replay(folder.path("good.krec"));
    slow["FTK_SIMULATOR_REPLAY_PACE"] = "slow";
    const ProcessResult badPace = track(folder, {"--frames", "2"}, slow);
    EXPECT_EQ(badPace.exitCode, 1) << badPace;
    EXPECT_TRUE(badPace.errHas("ftkInit: FTK_SIMULATOR_REPLAY_PACE: recorded or fetch, not 'slow'\n"))
        << badPace;
    const ProcessResult existing = track(folder, {"--frames", "2", "--record", "good.krec"});
    EXPECT_EQ(existing.exitCode, 1) << existing;
    EXPECT_TRUE(existing.errHas("recording file good.krec: exists; give --force to replace it")) << existing;
    const ProcessResult lone = track(folder, {"--record-images"});
    EXPECT_EQ(lone.exitCode, 2) << lone;
    EXPECT_TRUE(lone.errHas("kestrion track: --record-images needs --record FILE")) << lone;
}
