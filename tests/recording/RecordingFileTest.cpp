// The recording file: every record type written and read back, and files cut short, damaged,
// foreign or too new.

#include "recording/RecordCodec.h"
#include "recording/RecordingReader.h"
#include "recording/RecordingWriter.h"
#include "tests/support/FileSizeLimit.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <tuple>

using namespace Kestrion::Recording;

namespace {

class RecordingFile : public ::testing::Test {
protected:
    void SetUp() override {
        m_folder = std::filesystem::temp_directory_path() /
                   ("recording-test-" + std::to_string(::getpid()) + "-" +
                    ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }
    std::string path(const std::string& name) const { return (m_folder / name).string(); }

    std::filesystem::path m_folder;
};

SessionHeader header(bool images) {
    SessionHeader h;
    h.deviceType = 2;
    h.serialNumber = 0x53544b3138300001ull;
    h.deviceName = "fTk 500";
    h.startedUS = 1795581503295995ull;
    h.withImages = images;
    h.options.push_back({2003, "Distance matching tolerance", OptionValue::Type::Float32, true, 0, 1.5f, ""});
    h.options.push_back({6000, "Enable embedded processing", OptionValue::Type::Int32, true, 1, 0.f, ""});
    h.options.push_back(
        {42, "Data Directory", OptionValue::Type::Data, true, 0, 0.f, std::string("a\0b", 3)});
    h.options.push_back({43, "Counter of lost frames", OptionValue::Type::Int32, false, 0, 0.f, ""});
    h.geometries.push_back(
        {1000, 1, {{0.f, 0.f, 0.f}, {25.5f, 0.f, 0.f}, {0.f, 41.2f, 0.f}}, "/m/geometry1000.ini"});
    return h;
}

Frame frame(std::uint32_t counter, bool images) {
    Frame f;
    f.hostTimeUS = 1000 + counter;
    f.statuses = {0, -1, -1, 0, 1, 0, 2, 0};
    f.hasImageHeader = true;
    f.header = {1795581503295995ull + counter * 18519ull, 7, counter, 0, 64, 48, 64};
    f.rawLeft = {{10.5f, 20.25f, 3, 40, 5, 6}, {11.f, 21.f, 0, 41, 7, 8}};
    f.rawRight = {{12.5f, 22.25f, 0, 42, 5, 6}};
    f.fiducials = {{0, 0, 0, {1.f, 2.f, 700.f}, 0.1f, 0.02f, 1.f},
                   {64, 1, 0, {-1.f, 2.5f, 701.f}, 0.3f, 0.04f, 0.5f}};
    Marker m;
    m.trackingId = 3;
    m.geometryId = 1000 + counter;
    m.presenceMask = 0b111;
    m.correspondences = {0, 1, 2, Marker::InvalidIndex, Marker::InvalidIndex, Marker::InvalidIndex};
    m.rotation = {0.f, -1.f, 0.f, 1.f, 0.f, 0.f, 0.f, 0.f, 1.f};
    m.translationMM = {60.f, -60.f, 1000.f};
    m.registrationErrorMM = 0.12f;
    f.markers = {m};
    f.hasImages = images;
    if (images) {
        f.imageLeft.assign(64 * 48, 0);
        f.imageRight.assign(64 * 48, 0);
        for (std::size_t i = 0; i < f.imageLeft.size(); i += 7) {
            f.imageLeft[i] = static_cast<std::uint8_t>(i * 31 + counter);
            f.imageRight[i] = static_cast<std::uint8_t>(i * 17);
        }
    }
    return f;
}

/// The bytes a record would hold: two values are equal when they encode alike.
std::vector<std::uint8_t> bytes(const SessionHeader& h) {
    std::vector<std::uint8_t> out;
    RecordCodec::encodeSession(h, out);
    return out;
}

std::vector<std::uint8_t> bytes(const Frame& f) {
    RecordCodec codec;
    std::vector<std::uint8_t> out;
    codec.encodeFrame(f, true, out);
    return out;
}

std::string write(const std::string& file, int frames, bool images, bool finish = true) {
    RecordingWriter writer;
    EXPECT_TRUE(writer.open(file, header(images))) << writer.error();
    for (int i = 0; i < frames; ++i)
        EXPECT_TRUE(writer.write(frame(static_cast<std::uint32_t>(i), images))) << writer.error();
    if (finish)
        EXPECT_TRUE(writer.finish(5)) << writer.error();
    else
        EXPECT_TRUE(writer.flush());
    return finish ? file : file + ".part";
}

std::vector<char> content(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void store(const std::string& file, const std::vector<char>& data) {
    std::ofstream(file, std::ios::binary | std::ios::trunc).write(data.data(), std::streamsize(data.size()));
}

/// Frames read before the reader stopped; `error` gets its message when it failed.
int readAll(const std::string& file, std::string& error, bool* cutShort = nullptr) {
    RecordingReader reader;
    if (!reader.open(file)) {
        error = reader.error();
        return -1;
    }
    Frame f;
    int frames = 0;
    for (;;) {
        const auto next = reader.next(f);
        if (next == RecordingReader::Next::Failed)
            error = reader.error();
        if (next != RecordingReader::Next::Frame)
            break;
        ++frames;
    }
    if (cutShort)
        *cutShort = reader.cutShort();
    return frames;
}

} // namespace

TEST_F(RecordingFile, EveryRecordReadsBackAsWritten) {
    for (const bool images : {false, true}) {
        SCOPED_TRACE(images ? "with images" : "without images");
        const std::string file = write(path(images ? "i.krec" : "n.krec"), 3, images);
        EXPECT_FALSE(std::filesystem::exists(file + ".part"));
        RecordingReader reader;
        ASSERT_TRUE(reader.open(file)) << reader.error();
        EXPECT_EQ(reader.version(), 3);
        EXPECT_EQ(bytes(reader.header()), bytes(header(images)));
        EXPECT_EQ(reader.header().options[2].data, std::string("a\0b", 3));
        Frame f;
        std::vector<std::uint64_t> offsets;
        for (std::uint32_t i = 0; i < 3; ++i) {
            offsets.push_back(reader.position());
            ASSERT_EQ(reader.next(f), RecordingReader::Next::Frame) << reader.error();
            EXPECT_EQ(bytes(f), bytes(frame(i, images)));
            EXPECT_EQ(f.imageLeft, frame(i, images).imageLeft);
        }
        EXPECT_EQ(reader.next(f), RecordingReader::Next::End);
        EXPECT_FALSE(reader.cutShort());
        EXPECT_EQ(reader.framesDropped(), 5u);
        ASSERT_TRUE(reader.readFrameAt(offsets[1], 1, f)) << reader.error();
        EXPECT_EQ(f.header.counter, 1u);
    }
}

TEST_F(RecordingFile, ExistingFilesAreNotReplaced) {
    const std::string file = write(path("a.krec"), 1, false);
    RecordingWriter again;
    EXPECT_FALSE(again.open(file, header(false)));
    EXPECT_EQ(again.error(), "recording " + file + ": cannot record over an existing file: File exists");
    RecordingWriter replacing;
    EXPECT_TRUE(replacing.open(file, header(false), true));
    RecordingWriter besidePart;
    EXPECT_FALSE(besidePart.open(file, header(false), true));
    EXPECT_EQ(besidePart.error(), "recording " + file + ": cannot create " + file + ".part: File exists");
}

// Cut off by a kill or a full disk: the whole frames before the cut are read, wherever it falls.
TEST_F(RecordingFile, RecordingCutShortReadsToItsLastWholeFrame) {
    const std::string part = write(path("cut.krec"), 4, true, false);
    const std::vector<char> whole = content(part);
    RecordingReader probe;
    ASSERT_TRUE(probe.open(part));
    Frame f;
    std::vector<std::uint64_t> ends;
    while (probe.next(f) == RecordingReader::Next::Frame)
        ends.push_back(probe.position());
    ASSERT_EQ(ends.size(), 4u);
    for (const std::uint64_t cut : {ends[3], ends[3] - 1, ends[2] + 3, ends[2] + 1}) {
        SCOPED_TRACE(cut);
        store(part, std::vector<char>(whole.begin(), whole.begin() + std::ptrdiff_t(cut)));
        std::string error;
        bool cutShort = false;
        EXPECT_EQ(readAll(part, error, &cutShort), cut == ends[3] ? 4 : 3);
        EXPECT_TRUE(cutShort);
        EXPECT_EQ(error, "");
    }
    store(part, std::vector<char>(whole.begin(), whole.begin() + 30));
    std::string error;
    EXPECT_EQ(readAll(part, error), -1);
    EXPECT_EQ(error, "recording " + part + ": header: the file ends inside the session header");
}

TEST_F(RecordingFile, DamagedForeignAndNewerFilesAreRefusedByName) {
    const std::string file = write(path("d.krec"), 4, false);
    const std::vector<char> whole = content(file);
    RecordingReader probe;
    ASSERT_TRUE(probe.open(file));
    Frame f;
    probe.next(f);
    probe.next(f);
    const auto frame2 = static_cast<std::ptrdiff_t>(probe.position());
    struct Row {
        const char* name;
        std::ptrdiff_t at;
        std::vector<char> bytes;
        std::string error;
    };
    const Row rows[] = {
        {"flipped bit in frame 2",
         frame2 + 40,
         {'\x55'},
         "frame 2: damaged, its checksum does not match its content"},
        {"huge length of frame 2",
         frame2,
         {'\xff', '\xff', '\xff', '\x7f'},
         "frame 2: damaged, its record claims 2147483647 bytes"},
        {"foreign file",
         0,
         {'P', 'K', '\x03', '\x04'},
         "not a recording (no recording signature at its start)"},
        {"newer format",
         8,
         {'\x04', '\x00', '\x04', '\x00'},
         "written in format version 4, which needs a reader of version 4 or newer; this program reads up to "
         "version 3"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<char> damaged = whole;
        std::copy(row.bytes.begin(), row.bytes.end(), damaged.begin() + row.at);
        store(file, damaged);
        std::string error;
        readAll(file, error);
        EXPECT_EQ(error, "recording " + file + ": " + row.error);
    }
    store(file, {});
    std::string error;
    EXPECT_EQ(readAll(file, error), -1);
    EXPECT_EQ(error, "recording " + file + ": not a recording (no recording signature at its start)");
}

// A later version may add kinds of records; a reader skips those it does not know.
TEST_F(RecordingFile, UnknownRecordKindsAreSkipped) {
    const std::string part = write(path("u.krec"), 1, false, false);
    std::vector<char> data = content(part);
    std::vector<std::uint8_t> extra;
    RecordCodec::frameRecord(static_cast<RecordCodec::RecordType>(9), {1, 2, 3}, extra);
    data.insert(data.end(), extra.begin(), extra.end());
    std::vector<std::uint8_t> second;
    std::vector<std::uint8_t> payload;
    RecordCodec codec;
    codec.encodeFrame(frame(1, false), false, payload);
    RecordCodec::frameRecord(RecordCodec::FrameRecord, payload, second);
    data.insert(data.end(), second.begin(), second.end());
    store(part, data);
    std::string error;
    EXPECT_EQ(readAll(part, error), 2);
    EXPECT_EQ(error, "");
}

// A geometry registered while recording is read back with the number of frames before it.
TEST_F(RecordingFile, GeometriesAddedWhileRecordingKeepTheirPlace) {
    const std::string file = path("g.krec");
    const Geometry added{1001, 2, {{1.f, 2.f, 3.f}, {4.f, 5.f, 6.f}}, "/m/geometry1001.ini"};
    RecordingWriter writer;
    ASSERT_TRUE(writer.open(file, header(false)));
    ASSERT_TRUE(writer.write(frame(0, false)));
    ASSERT_TRUE(writer.writeGeometry(added));
    ASSERT_TRUE(writer.write(frame(1, false)));
    ASSERT_TRUE(writer.finish(0)) << writer.error();
    std::string error;
    EXPECT_EQ(readAll(file, error), 2) << error;
    RecordingReader reader;
    ASSERT_TRUE(reader.open(file));
    Frame f;
    while (reader.next(f) == RecordingReader::Next::Frame) {
    }
    ASSERT_EQ(reader.geometriesAdded().size(), 1u);
    EXPECT_EQ(reader.geometriesAdded()[0].beforeFrame, 1u);
    const Geometry& read = reader.geometriesAdded()[0].geometry;
    EXPECT_EQ(std::make_tuple(read.id, read.version, read.pointsMM, read.path),
              std::make_tuple(added.id, added.version, added.pointsMM, added.path));
}

// A full disk (here a file size limit) ends the recording with the file, the frames written and the
// reason; the ".part" file reads up to its last whole frame.
// A gap where the camera was lost and reopened is read back at its place; the file stays readable
// by the oldest readers, which skip it.
TEST_F(RecordingFile, GapsOfAReopenedCameraKeepTheirPlace) {
    const std::string file = path("gap.krec");
    RecordingWriter writer;
    ASSERT_TRUE(writer.open(file, header(false)));
    ASSERT_TRUE(writer.write(frame(0, false)));
    ASSERT_TRUE(writer.writeGap({0, 1795581503400000ull, 1795581505650000ull}));
    ASSERT_TRUE(writer.write(frame(0, false))); // the reopened camera counts anew
    ASSERT_TRUE(writer.finish(0)) << writer.error();
    const std::vector<char> data = content(file);
    EXPECT_EQ(std::vector<char>(data.begin() + 8, data.begin() + 12),
              (std::vector<char>{'\x03', '\x00', '\x01', '\x00'})); // version 3, minimum reader 1

    RecordingReader reader;
    ASSERT_TRUE(reader.open(file));
    Frame f;
    std::vector<std::uint64_t> positions;
    for (positions.push_back(reader.position()); reader.next(f) == RecordingReader::Next::Frame;)
        positions.push_back(reader.position());
    EXPECT_EQ(reader.framesRead(), 2u);
    EXPECT_FALSE(reader.cutShort());
    // The position seen before the second frame is the gap's: reading the frame there passes it.
    f.hostTimeUS = 0;
    ASSERT_TRUE(reader.readFrameAt(positions[1], 1, f)) << reader.error();
    EXPECT_EQ(f.hostTimeUS, frame(0, false).hostTimeUS);
    ASSERT_EQ(reader.gaps().size(), 1u);
    EXPECT_EQ(std::make_tuple(reader.gaps()[0].beforeFrame, reader.gaps()[0].interruptedUS,
                              reader.gaps()[0].resumedUS),
              std::make_tuple(1u, 1795581503400000ull, 1795581505650000ull));
}

/// A file of frame 0 and a frame 1 whose image header says width x height (its images as
/// recorded, 64 x 48), each record with a checksum that matches.
std::vector<char> withImageSize(const std::string& file, std::uint16_t width, std::uint16_t height) {
    write(file, 1, true);
    std::vector<char> data = content(file);
    data.resize(data.size() - RecordCodec::RecordHeadSize - 16 -
                RecordCodec::RecordTailSize); // the end record
    std::vector<std::uint8_t> payload, record;
    RecordCodec codec;
    codec.encodeFrame(frame(1, true), true, payload);
    // The image header's width and height: after the host time, the statuses, the presence
    // byte, the two timestamps, the counter and the format.
    constexpr std::size_t WidthAt = 8 + 8 + 1 + 8 + 8 + 4 + 1;
    std::memcpy(payload.data() + WidthAt, &width, 2);
    std::memcpy(payload.data() + WidthAt + 2, &height, 2);
    RecordCodec::frameRecord(RecordCodec::FrameRecord, payload, record);
    data.insert(data.end(), record.begin(), record.end());
    return data;
}

// Image sizes are checked before anything is allocated: no larger than the camera's sensor (the
// recording's first images), nor than 64 MiB, with the file and the frame named.
TEST_F(RecordingFile, ImagesLargerThanTheSensorOrTheLimitAreRefused) {
    const std::string file = path("large.krec");
    const struct {
        std::uint16_t width, height;
        const char* error;
    } rows[] = {
        {128, 48,
         "frame 1: an image of 128 x 48 pixels is larger than the camera's sensor (64 x 48, the size of the "
         "recording's first images)"},
        {65535, 65535, "frame 1: an image of 65535 x 65535 pixels is over the limit of 64 MiB"},
        {32, 48, "frame 1: an image holds 3072 bytes instead of 32 x 48"},
    };
    for (const auto& row : rows) {
        store(file + ".x", withImageSize(file, row.width, row.height));
        std::string error;
        EXPECT_EQ(readAll(file + ".x", error), 1);
        EXPECT_EQ(error, "recording " + file + ".x: " + row.error);
        std::filesystem::remove(file);
    }
}

TEST_F(RecordingFile, AFullDiskEndsTheRecordingAndKeepsItsWholeFrames) {
    const std::string file = path("full.krec");
    RecordingWriter writer;
    ASSERT_TRUE(writer.open(file, header(true)));
    bool ok = true, finished = false;
    std::uint32_t written = 0;
    {
        Kestrion::TestSupport::FileSizeLimit full(64 * 1024);
        ASSERT_TRUE(full.applied);
        for (; ok && written < 10000; ++written)
            ok = writer.write(frame(written, true)) && writer.flush();
        finished = writer.finish(0);
    }

    EXPECT_FALSE(finished);
    EXPECT_EQ(writer.error().rfind("recording " + file + ": write failed after ", 0), 0u) << writer.error();
    EXPECT_NE(writer.error().find("File too large"), std::string::npos) << writer.error();
    EXPECT_FALSE(std::filesystem::exists(file));
    std::string error;
    bool cutShort = false;
    const int frames = readAll(file + ".part", error, &cutShort);
    EXPECT_GT(frames, 0);
    EXPECT_LE(frames, int(written));
    EXPECT_TRUE(cutShort);
    EXPECT_EQ(error, "");
}
