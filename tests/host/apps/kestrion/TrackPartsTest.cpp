#include "host/apps/kestrion/TrackCsvWriter.h"
#include "host/apps/kestrion/TrackOptions.h"
#include "host/apps/kestrion/TrackStatistics.h"
#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"
#include "tests/support/FileSizeLimit.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

using namespace Kestrion;
using namespace Kestrion::Cli;

namespace {

/// A frame of instrument atracsys-1000, with an instrument status entry when `reason` is given.
TrackingStreamData frame(std::uint64_t arrivalMs, bool tracked, const char* reason = nullptr) {
    TrackingInstrument instrument(TrackerID("atracsys-1000", "pointer"));
    if (tracked) {
        instrument.matrix(0, 3) = 1.5;
        instrument.matrix(1, 3) = -2.25;
        instrument.matrix(2, 3) = 800.0;
        instrument.quality = 0.75;
    }
    TrackingStreamData data(nullptr, {instrument}, arrivalMs, arrivalMs);
    if (reason) {
        auto status = std::make_shared<InstrumentStatusData>();
        InstrumentStatusData::Entry entry;
        entry.instrumentId = "atracsys-1000";
        entry.state =
            tracked ? InstrumentStatusData::State::Tracked : InstrumentStatusData::State::PartlySeen;
        entry.reason = reason;
        if (tracked)
            entry.registrationErrorMm = 0.25;
        status->entries().push_back(entry);
        data.addComponent(status);
    }
    return data;
}

/// The health of a camera that delivers, or that has not for `silentS` seconds.
StreamHealth::Snapshot health(double silentS = 0.0) {
    StreamHealth::Snapshot snapshot;
    snapshot.state = silentS > 0.0 ? StreamHealth::State::NotDelivering : StreamHealth::State::Delivering;
    snapshot.sinceLastData =
        std::chrono::duration_cast<StreamHealth::Clock::duration>(std::chrono::duration<double>(silentS));
    return snapshot;
}

} // namespace

TEST(TrackOptions, ParsesEveryOptionAndRejectsBadValuesWithAReason) {
    std::string error;
    const auto options = TrackOptions::parse({"--geometry", "a.ini",       "--geometry",
                                              ":/b.ini",    "--fiducials", "vicinity",
                                              "--images",   "dir",         "--integration-time",
                                              "350",        "--duration",  "2.5",
                                              "--frames",   "10",          "--csv",
                                              "x.csv",      "--force",     "--igtl",
                                              "0",          "--igtl-bind", "0.0.0.0"},
                                             &error);
    ASSERT_TRUE(options) << error;
    EXPECT_EQ(options->geometries, (std::vector<std::string>{"a.ini", ":/b.ini"}));
    EXPECT_EQ(options->fiducialMode, 2);
    EXPECT_EQ(options->imagesFolder, "dir");
    EXPECT_EQ(options->integrationTimeUS, 350);
    EXPECT_DOUBLE_EQ(*options->durationS, 2.5);
    EXPECT_EQ(options->frames, 10u);
    EXPECT_EQ(options->csvFile, "x.csv");
    EXPECT_TRUE(options->force);
    EXPECT_EQ(options->igtlPort, 0);
    EXPECT_EQ(options->igtlBind, "0.0.0.0");

    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
        {{"--bogus"}, "unknown option '--bogus'"},
        {{"--geometry"}, "option --geometry needs a value"},
        {{"--fiducials", "most"}, "--fiducials takes none, marker, vicinity or all, not 'most'"},
        {{"--integration-time", "0"}, "--integration-time takes microseconds from 1 to 1000000, not '0'"},
        {{"--frames", "-3"}, "--frames takes a positive number of frames, not '-3'"},
        {{"--duration", "nan"}, "--duration takes a positive number of seconds, not 'nan'"},
        {{"--workspace", "a.kws", "--workspace", "b.kws"}, "option --workspace given twice"},
        {{"--igtl", "65536"}, "--igtl takes a TCP port from 0 to 65535, not '65536'"},
        {{"--igtl-bind", "0.0.0.0"}, "--igtl-bind needs --igtl PORT"},
    };
    for (const auto& [arguments, message] : bad) {
        EXPECT_FALSE(TrackOptions::parse(arguments, &error));
        EXPECT_EQ(error, message);
    }
}

TEST(TrackOptions, PacingCameraAndReconnectionOptions) {
    std::string error;
    const auto defaults = TrackOptions::parse({}, &error);
    ASSERT_TRUE(defaults) << error;
    EXPECT_EQ(defaults->pollMs, 0) << "paced by the camera unless asked";
    EXPECT_FALSE(defaults->serialNumber || defaults->reconnect);
    const auto options =
        TrackOptions::parse({"--poll-ms", "10", "--reconnect", "--serial", "0x46544B3530300001"}, &error);
    ASSERT_TRUE(options) << error;
    EXPECT_EQ(options->pollMs, 10);
    EXPECT_EQ(options->serialNumber, 0x46544b3530300001u);
    EXPECT_TRUE(options->reconnect);

    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
        {{"--poll-ms", "-1"}, "--poll-ms takes milliseconds from 0 to 1000, not '-1'"},
        {{"--serial", "0"}, "--serial takes a camera's serial number (0x... or decimal), not '0'"},
        {{"--serial", "0x1g"}, "--serial takes a camera's serial number (0x... or decimal), not '0x1g'"},
        {{"--serial", "0x10000000000000000"},
         "--serial takes a camera's serial number (0x... or decimal), not '0x10000000000000000'"},
        {{"--reconnect", "yes"}, "unexpected argument 'yes'"},
    };
    for (const auto& [arguments, message] : bad) {
        EXPECT_FALSE(TrackOptions::parse(arguments, &error));
        EXPECT_EQ(error, message);
    }
}

TEST(TrackStatistics, CountsCounterGapsAsDroppedAndShowsThePoseOnlyWhileTracked) {
    TrackStatistics statistics;
    const DeviceFrameInfo f1("sTk 180", 0xABCDull, 0xFFFFFFFEu, 10);
    const DeviceFrameInfo f2("sTk 180", 0xABCDull, 0xFFFFFFFFu, 20);
    const DeviceFrameInfo f3("sTk 180", 0xABCDull, 2u, 30); // 0 and 1 never arrived
    statistics.add(frame(1000, true), &f1);
    statistics.add(frame(1020, false), &f2);
    statistics.add(frame(1040, false), &f3);
    // A frame without device information counts, no gap.
    statistics.add(frame(1060, false, "fiducials 0, 2 of 3 found; 1 missing"), nullptr);
    EXPECT_EQ(statistics.framesWithPose(), 1u);
    std::string table = statistics.table(3500, 2.0, 50.0, health());
    EXPECT_NE(table.find("Device: sTk 180, serial 0x000000000000abcd"), std::string::npos) << table;
    EXPECT_NE(table.find("Frames: 4 received, 2 dropped, 50.0 Hz"), std::string::npos) << table;
    // Untracked now: no pose, when it was last tracked (2.5 s before "now") and why not.
    EXPECT_NE(table.find("Quality  Last seen  Status\n"
                         "atracsys-1000    pointer                       -          -          -        -  "
                         "2.5 s ago  fiducials 0, 2 of 3 found; 1 missing\n"),
              std::string::npos)
        << table;
    statistics.add(frame(3400, true), nullptr);
    table = statistics.table(3500, 2.0, 50.0, health());
    EXPECT_NE(table.find("atracsys-1000    pointer                    1.50      -2.25     800.00    0.750  "
                         "0.1 s ago\n"),
              std::string::npos)
        << table;

    TrackStatistics never;
    never.add(frame(1000, false), nullptr);
    EXPECT_NE(never.table(2000, 1.0, 1.0, health()).find("never"), std::string::npos);
    EXPECT_NE(never.table(2000, 1.0, 1.0, health()).find("Device: (no frame yet)"), std::string::npos);
}

// The last frame of a camera that stopped delivering is a past one: no tool is shown as tracked
// then, and tracking shows again with the frames.
TEST(TrackStatistics, ShowsNoToolAsTrackedWhileTheCameraIsNotDelivering) {
    TrackStatistics statistics;
    statistics.add(frame(1000, true, "tracked, registration error 0.25 mm"), nullptr);
    std::string table = statistics.table(4000, 4.0, 0.0, health(3.0));
    EXPECT_NE(table.find("Camera: not delivering, last frame 3.0 s ago\n"), std::string::npos) << table;
    EXPECT_NE(table.find("atracsys-1000    pointer                       -          -          -        -  "
                         "3.0 s ago  camera not delivering\n"),
              std::string::npos)
        << table;
    EXPECT_EQ(table.find("tracked"), std::string::npos) << table;
    statistics.add(frame(4100, true, "tracked, registration error 0.25 mm"), nullptr);
    table = statistics.table(4100, 4.1, 10.0, health());
    EXPECT_EQ(table.find("Camera:"), std::string::npos) << table;
    EXPECT_NE(table.find("800.00    0.750  0.0 s ago  tracked, registration error 0.25 mm\n"),
              std::string::npos)
        << table;
}

class TrackCsvWriterTest : public ::testing::Test {
protected:
    QTemporaryDir m_temp;
    const std::string m_dir = m_temp.path().toStdString();
};

TEST_F(TrackCsvWriterTest, TheFileAppearsOnlyWhenCompleteWithOneRowPerInstrumentAndFrame) {
    const std::string file = m_dir + "/poses.csv";
    TrackCsvWriter writer;
    ASSERT_TRUE(writer.open(file)) << writer.error();
    const DeviceFrameInfo device("sTk 180", 1, 41, 123456789);
    TrackingStreamData captured = frame(1000, true);
    captured.addComponent(std::make_shared<CaptureTimeData>(999876, 123456789)); // 124 us before arrival
    EXPECT_TRUE(writer.write(0, captured, &device));
    EXPECT_TRUE(writer.write(1, frame(1017, false), nullptr));
    EXPECT_TRUE(writer.write(2, frame(1034, true, "tracked, registration error 0.25 mm"), nullptr));
    EXPECT_TRUE(writer.write(3, frame(1051, false, "fiducials 0, 2 of 3 found; 1 missing"), nullptr));
    EXPECT_FALSE(std::filesystem::exists(file)); // still being written
    ASSERT_TRUE(writer.close()) << writer.error();
    EXPECT_FALSE(std::filesystem::exists(file + ".part"));
    std::ifstream in(file);
    EXPECT_EQ(
        std::string(std::istreambuf_iterator<char>(in), {}),
        "frame,device_counter,arrival_ms,device_ms,device_time_us,capture_us,instrument,name,tracked,"
        "quality,x_mm,y_mm,z_mm,r11,r12,r13,r21,r22,r23,r31,r32,r33,registration_error_mm,status,reason\n"
        "0,41,1000,1000,123456789,999876,atracsys-1000,pointer,1,0.7500,1.5000,-2.2500,800.0000,"
        "1.0000000,0.0000000,0.0000000,0.0000000,1.0000000,0.0000000,0.0000000,0.0000000,1.0000000,,,\n"
        "1,,1017,1017,,1017000,atracsys-1000,pointer,0,0.0000,,,,,,,,,,,,,,,\n"
        "2,,1034,1034,,1034000,atracsys-1000,pointer,1,0.7500,1.5000,-2.2500,800.0000,"
        "1.0000000,0.0000000,0.0000000,0.0000000,1.0000000,0.0000000,0.0000000,0.0000000,1.0000000,"
        "0.2500,tracked,\"tracked, registration error 0.25 mm\"\n"
        "3,,1051,1051,,1051000,atracsys-1000,pointer,0,0.0000,,,,,,,,,,,,,,"
        "partly seen,\"fiducials 0, 2 of 3 found; 1 missing\"\n");
}

// Rows reach the ".part" file at each flush (the command flushes at least once a second), not
// only at the end: a run killed meanwhile keeps them.
TEST_F(TrackCsvWriterTest, FlushedRowsAreInThePartialFileBeforeTheEnd) {
    const std::string file = m_dir + "/live.csv";
    TrackCsvWriter writer;
    ASSERT_TRUE(writer.open(file));
    const auto partLines = [&file] {
        std::ifstream in(file + ".part");
        const std::string text(std::istreambuf_iterator<char>(in), {});
        return std::count(text.begin(), text.end(), '\n');
    };
    for (std::uint64_t i = 0; i < 3; ++i)
        ASSERT_TRUE(writer.write(i, frame(1000 + i, true), nullptr));
    ASSERT_TRUE(writer.flush()) << writer.error();
    EXPECT_EQ(partLines(), 4) << "the header and three rows";
    ASSERT_TRUE(writer.write(3, frame(1003, false), nullptr));
    ASSERT_TRUE(writer.flush());
    EXPECT_EQ(partLines(), 5);
    ASSERT_TRUE(writer.close()) << writer.error();
    EXPECT_EQ(writer.rowsWritten(), 4u);
}

TEST_F(TrackCsvWriterTest, AFailedWriteIsReportedWithTheFileAndReasonAndKeepsThePartialFile) {
    const std::string file = m_dir + "/big.csv";
    TrackCsvWriter writer;
    ASSERT_TRUE(writer.open(file));
    bool ok = true, closed = false;
    {
        TestSupport::FileSizeLimit full(64 * 1024);
        ASSERT_TRUE(full.applied);
        for (std::uint64_t i = 0; ok && i < 100000; ++i)
            ok = writer.write(i, frame(1000 + i, true), nullptr);
        closed = writer.close();
    }

    EXPECT_FALSE(closed);
    EXPECT_TRUE(writer.failed());
    const std::string said = "CSV file " + file + ": write failed after ";
    ASSERT_EQ(writer.error().rfind(said, 0), 0u) << writer.error();
    EXPECT_NE(writer.error().find(" rows: File too large"), std::string::npos) << writer.error();
    EXPECT_FALSE(std::filesystem::exists(file)); // never a silently truncated file
    // The ".part" file holds exactly the rows the error counts, each whole, and nothing more.
    std::ifstream in(file + ".part");
    const std::string kept(std::istreambuf_iterator<char>(in), {});
    ASSERT_FALSE(kept.empty());
    EXPECT_EQ(kept.back(), '\n');
    EXPECT_EQ(static_cast<std::size_t>(std::count(kept.begin(), kept.end(), '\n')),
              std::stoull(writer.error().substr(said.size())) + 1)
        << "a header and the rows counted";
    EXPECT_FALSE(writer.write(0, frame(1, true), nullptr)); // the recording has ended
}
