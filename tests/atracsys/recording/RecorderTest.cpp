// The recorder on the running stream: what it writes for each fetched frame and for the camera,
// its log lines, and the frames it drops when its writer falls behind.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "atracsys/recording/AtracsysRecorder.h"
#include "host/core/Properties.h"
#include "host/core/Time.h"
#include "host/stream/DeviceFrameInfo.h"
#include "recording/RecordingReader.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>
#include <tuple>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

namespace {

constexpr const char* Category = "AtracsysRecorder";

std::string freshFile(const std::string& name) {
    const auto file = std::filesystem::temp_directory_path() / (std::to_string(::getpid()) + "-" + name);
    std::filesystem::remove(file);
    return file.string();
}

} // namespace

TEST(Recorder, RecordsEveryFetchedFrameWithTheCamerasDescription) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture log;
    const std::string file = freshFile("stream.krec");
    std::vector<std::shared_ptr<const CompoundStreamData>> emitted;
    {
        ProbedStream stream;
        Properties settings;
        settings.setParam("recordFile", file);
        stream.configure(&settings);
        ASSERT_TRUE(stream.openWithMarkers());
        Recorder data(stream);
        ASSERT_TRUE(stream.start());
        ASSERT_TRUE(data.waitForData(30));
        for (std::size_t i = 0; i < data.dataCount(); ++i)
            emitted.push_back(data.dataAt(i));
        // A geometry registered while recording goes into the file at its place among the frames.
        ASSERT_TRUE(stream.removeGeometry("atracsys-1001"));
        ASSERT_TRUE(stream.addGeometry("again", dataFile("geometry1001.ini")));
        ASSERT_TRUE(data.waitForData(emitted.size() + 5));
        stream.close();
    } // the stream goes: the recorder finishes its file

    Recording::RecordingReader reader;
    ASSERT_TRUE(reader.open(file)) << reader.error();
    const Recording::SessionHeader& header = reader.header();
    EXPECT_EQ(header.deviceType, static_cast<int>(ftkDeviceType::DEV_SPRYTRACK_180));
    EXPECT_NE(header.serialNumber, 0u);
    EXPECT_FALSE(header.withImages);
    ASSERT_EQ(header.geometries.size(), 2u);
    EXPECT_EQ(header.geometries[0].id, 1000u);
    EXPECT_EQ(header.geometries[0].path, dataFile("geometry1000.ini"));
    EXPECT_EQ(header.geometries[1].pointsMM.size(), 4u);
    const auto tolerance = std::find_if(header.options.begin(), header.options.end(), [](const auto& o) {
        return o.name == "Distance matching tolerance";
    });
    ASSERT_NE(tolerance, header.options.end());
    EXPECT_TRUE(tolerance->readable);
    EXPECT_EQ(tolerance->floatValue, 1.0f); // as the stream wrote it at open

    Recording::Frame frame;
    std::uint64_t frames = 0;
    std::uint32_t firstCounter = 0;
    while (reader.next(frame) == Recording::RecordingReader::Next::Frame) {
        // The device's counter may start anywhere (its clock ran before it was stepped).
        if (frames == 0)
            firstCounter = frame.header.counter;
        EXPECT_EQ(frame.header.counter, firstCounter + frames) << "every fetched frame, in order";
        if (frames < emitted.size()) {
            // The frame the stream emitted from it carries the recorded markers' poses.
            const auto tracking = trackingOf(emitted[frames]);
            const auto* device = tracking->component<DeviceFrameInfo>();
            ASSERT_NE(device, nullptr);
            EXPECT_EQ(device->frameCounter(), frame.header.counter);
            ASSERT_EQ(frame.markers.size(), 2u);
            for (const auto& marker : frame.markers) {
                for (const auto& instrument : tracking->instruments()) {
                    if (instrument.ID() == "atracsys-" + std::to_string(marker.geometryId)) {
                        EXPECT_EQ(instrument.matrix(2, 3), double(marker.translationMM[2]));
                    }
                }
            }
        }
        ++frames;
    }
    EXPECT_FALSE(reader.cutShort()) << reader.error();
    EXPECT_GE(frames, emitted.size() + 5);
    ASSERT_EQ(reader.geometriesAdded().size(), 1u);
    EXPECT_EQ(reader.geometriesAdded()[0].geometry.id, 1001u);
    EXPECT_EQ(reader.geometriesAdded()[0].geometry.path, dataFile("geometry1001.ini"));
    EXPECT_GE(reader.geometriesAdded()[0].beforeFrame, emitted.size());
    EXPECT_LE(reader.geometriesAdded()[0].beforeFrame, frames - 5);
    EXPECT_TRUE(log->contains(Log::Info, Category, "Recording frames to " + file));
    EXPECT_TRUE(
        log->contains(Log::Info, Category, "Recorded " + std::to_string(frames) + " frames to " + file));
    std::filesystem::remove(file);
}

// With no room in its queue every frame is dropped, counted, logged and noted in the file; the
// worker's call never waits for the writer.
TEST(Recorder, DropsAndCountsFramesTheWriterCannotTake) {
    TestSupport::LogCapture log;
    const std::string file = freshFile("drops.krec");
    SpryTrack::AtracsysRecorder recorder(SpryTrack::AtracsysRecorder::Limits{0, 0});
    recorder.setTarget(file, false);
    ASSERT_TRUE(recorder.start(Recording::SessionHeader{}));
    const ftkFrameQuery nothing{};
    for (int i = 0; i < 5; ++i)
        recorder.record(nothing);
    recorder.finish();
    recorder.wait();
    EXPECT_EQ(recorder.framesDropped(), 5u);
    EXPECT_TRUE(
        log->contains(Log::Warning, Category,
                      "Recording " + file + ".part: 5 frame(s) dropped so far, the writer does not keep up"));
    EXPECT_TRUE(
        log->contains(Log::Warning, Category, "Recorded 0 frames to " + file + "; 5 frame(s) were dropped"));
    Recording::RecordingReader reader;
    ASSERT_TRUE(reader.open(file));
    Recording::Frame frame;
    EXPECT_EQ(reader.next(frame), Recording::RecordingReader::Next::End);
    EXPECT_EQ(reader.framesDropped(), 5u);

    // A second start of the same recorder, or another recorder on the same file, records nothing.
    EXPECT_FALSE(recorder.start(Recording::SessionHeader{}));
    SpryTrack::AtracsysRecorder other;
    other.setTarget(file, false);
    EXPECT_FALSE(other.start(Recording::SessionHeader{}));
    EXPECT_TRUE(log->contains(Log::Error, Category,
                              "recording " + file + ": cannot record over an existing file: File exists"));
    std::filesystem::remove(file);
}

namespace {

/// The stream's recording status once the condition holds (bounded wait, 20 s).
template <class Condition>
std::optional<RecordingStatus> statusWhen(const TrackingStream& stream, Condition condition) {
    std::optional<RecordingStatus> status = stream.recordingStatus();
    for (int i = 0; i < 2000 && !(status && condition(*status)); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        status = stream.recordingStatus();
    }
    return status;
}

} // namespace

// The recording belongs to the session: a camera closed to be reopened (as the reconnector does
// it) goes on into the same file after a gap; a deliberate close ends it, complete.
TEST(Recorder, GoesOnAcrossAReopenedCameraIntoTheSameFile) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture log;
    const std::string file = freshFile("reopened.krec");
    std::size_t before = 0, emitted = 0;
    std::optional<RecordingStatus> waiting, back, done;
    {
        ProbedStream stream;
        Properties settings;
        settings.setParam("recordFile", file);
        stream.configure(&settings);
        ASSERT_TRUE(stream.openWithMarkers());
        Recorder data(stream);
        ASSERT_TRUE(stream.start());
        ASSERT_TRUE(data.waitForData(10));
        stream.health().noteReopening();
        stream.close();
        before = data.dataCount();
        waiting = stream.recordingStatus();
        ASSERT_TRUE(stream.open() && stream.start());
        ASSERT_TRUE(data.waitForData(before + 10));
        back = stream.recordingStatus();
        stream.close(); // deliberate: the recording ends
        done = statusWhen(
            stream, [](const RecordingStatus& s) { return s.state != RecordingStatus::State::Recording; });
        emitted = data.dataCount();
    }
    ASSERT_TRUE(waiting && back && done);
    EXPECT_EQ(waiting->state, RecordingStatus::State::Waiting);
    EXPECT_EQ(std::make_tuple(back->state, back->gaps),
              std::make_tuple(RecordingStatus::State::Recording, 1u));
    EXPECT_EQ(std::make_tuple(done->state, done->frames, done->writtenFile, done->reason),
              std::make_tuple(RecordingStatus::State::Complete, std::uint64_t(emitted), file, std::string()));

    Recording::RecordingReader reader;
    ASSERT_TRUE(reader.open(file)) << reader.error();
    Recording::Frame frame;
    while (reader.next(frame) == Recording::RecordingReader::Next::Frame) {
    }
    EXPECT_FALSE(reader.cutShort());
    EXPECT_EQ(reader.framesRead(), emitted);
    ASSERT_EQ(reader.gaps().size(), 1u);
    EXPECT_EQ(reader.gaps()[0].beforeFrame, before);
    EXPECT_GT(reader.gaps()[0].resumedUS, reader.gaps()[0].interruptedUS);
    EXPECT_TRUE(
        log->contains(Log::Info, Category, "Recording to " + file + " goes on: the camera was reopened"));
    std::filesystem::remove(file);
}

// Another camera after the reopening cannot go on in the file: it ends, cut short, as data. The
// recorder then starts again on another file while its first writer may still run.
TEST(Recorder, EndsCutShortForAnotherCameraAndStartsAgainSafely) {
    TestSupport::LogCapture log;
    const std::string first = freshFile("first.krec");
    const std::string second = freshFile("second.krec");
    Recording::SessionHeader header;
    header.serialNumber = 0x10;
    header.deviceType = 4;
    SpryTrack::AtracsysRecorder recorder;
    recorder.setTarget(first, false);
    ASSERT_TRUE(recorder.start(header));
    recorder.interrupt();
    EXPECT_TRUE(recorder.interrupted());
    recorder.resume(0x11, 4);
    const auto cut = recorder.status();
    ASSERT_TRUE(cut);
    EXPECT_EQ(
        std::make_tuple(cut->state, cut->reason),
        std::make_tuple(
            RecordingStatus::State::CutShort,
            std::string("the camera reopened is another one (serial 0x11, the recording's camera 0x10)")));

    recorder.setTarget(second, false);
    ASSERT_TRUE(recorder.start(header));
    EXPECT_EQ(recorder.status()->state, RecordingStatus::State::Recording);
    EXPECT_TRUE(
        log->contains(Log::Warning, Category,
                      "Recording " + first +
                          " cut short after 0 frames: the camera reopened is another one (serial 0x11, the "
                          "recording's camera 0x10)"));
    recorder.finish();
    recorder.wait();
    EXPECT_EQ(recorder.status()->state, RecordingStatus::State::Complete);
    for (const std::string& file : {first, second}) {
        Recording::RecordingReader reader;
        ASSERT_TRUE(reader.open(file)) << reader.error();
        Recording::Frame frame;
        EXPECT_EQ(reader.next(frame), Recording::RecordingReader::Next::End);
        EXPECT_FALSE(reader.cutShort());
        std::filesystem::remove(file);
    }
}

namespace {

/// The frames of a recording file, read to its end; -1 when it cannot be read.
long long framesIn(const std::string& file) {
    Recording::RecordingReader reader;
    if (!reader.open(file))
        return -1;
    Recording::Frame frame;
    while (reader.next(frame) == Recording::RecordingReader::Next::Frame) {
    }
    return reader.cutShort() ? -1 : static_cast<long long>(reader.framesRead());
}

} // namespace

// Recordings started and stopped while the stream runs: each file holds the frames its status
// counted, a stopped recording is not started again by the next start, and an existing file is
// refused as data.
TEST(Recorder, StartsAndStopsTwiceWhileTheStreamRuns) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture log;
    const std::string first = freshFile("runtime-first.krec");
    const std::string second = freshFile("runtime-second.krec");
    const auto complete = [](const RecordingStatus& s) {
        return s.state == RecordingStatus::State::Complete;
    };
    std::optional<RecordingStatus> done[2], refused, afterRestart;
    const auto beganUS = std::uint64_t(Time::utcMilliseconds()) * 1000;
    {
        ProbedStream stream;
        ASSERT_TRUE(stream.openWithMarkers());
        Recorder data(stream);
        ASSERT_TRUE(stream.start());
        ASSERT_TRUE(data.waitForData(5));
        EXPECT_FALSE(stream.recordingStatus()) << "nothing recorded before it was asked for";
        const std::string files[2] = {first, second};
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(stream.recordTo(files[i], false));
            ASSERT_TRUE(statusWhen(stream, [](const RecordingStatus& s) { return s.frames >= 10; }));
            stream.stopRecording();
            done[i] = statusWhen(stream, complete);
        }
        EXPECT_FALSE(stream.recordTo(first, false));
        refused = stream.recordingStatus();
        stream.close();
        ASSERT_TRUE(stream.open() && stream.start());
        ASSERT_TRUE(data.waitForData(data.dataCount() + 10));
        afterRestart = stream.recordingStatus();
    }
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(done[i] && complete(*done[i]));
        const std::string file = i == 0 ? first : second;
        EXPECT_EQ(done[i]->writtenFile, file);
        EXPECT_EQ(framesIn(file), static_cast<long long>(done[i]->frames));
        EXPECT_GE(done[i]->frames, 10u);
        EXPECT_EQ(done[i]->bytes, std::filesystem::file_size(file));
        EXPECT_GE(done[i]->startedUS, beganUS);
        EXPECT_TRUE(log->contains(Log::Info, Category, "Recording frames to " + file));
    }
    ASSERT_TRUE(refused);
    EXPECT_EQ(std::make_tuple(refused->state, refused->reason),
              std::make_tuple(RecordingStatus::State::CutShort,
                              "recording " + first + ": cannot record over an existing file: File exists"));
    ASSERT_TRUE(afterRestart);
    EXPECT_EQ(afterRestart->file, first) << "no recording began at the restart";
    std::filesystem::remove(first);
    std::filesystem::remove(second);
}
