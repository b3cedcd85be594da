// Recording through the stream's data signal: frames built here are emitted on a real (closed)
// tracking stream's signal, as its worker thread would emit them.
#include "atracsys/optimization/AtracsysGeometryOptimizationAlgorithm.h"
#include "atracsys/stream/AtracsysTrackingStream.h"
#include "host/core/Progress.h"
#include "host/core/Properties.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"
#include "tests/atracsys/optimization/SyntheticMarker.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>
#include <mutex>
#include <sstream>
#include <thread>
#include <tuple>

namespace Kestrion {
namespace {

using namespace OptimizationTest;
using Algo = AtracsysGeometryOptimizationAlgorithm;

const char* const kOptimization = "OptimizationGeometryAlgorithm";
const char* const kOptimize = "OptimizeGeometryAlgorithm";
const std::string kMarkerId = "atracsys-1300";

class Harness : public AtracsysGeometryOptimizationAlgorithm {
public:
    using AtracsysGeometryOptimizationAlgorithm::AtracsysGeometryOptimizationAlgorithm;
    using AtracsysGeometryOptimizationAlgorithm::recording;
};

using TestSupport::waitFor;

// Keeps what a progress display would show of the tasks: description and steps, and the last count.
class ProgressLog : public Progress {
public:
    ~ProgressLog() override { detachTasks(); }
    std::vector<std::pair<std::string, int>> seen() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_seen;
    }
    std::atomic<int> lastDone{0};

protected:
    void taskAdded(const std::shared_ptr<ProgressTaskState>& task) override { taskChanged(task); }
    void taskChanged(const std::shared_ptr<ProgressTaskState>& task) override {
        lastDone = task->done();
        std::lock_guard<std::mutex> lock(m_mutex); // notifications come from the computing thread
        if (m_seen.empty() || m_seen.back().first != task->description())
            m_seen.emplace_back(task->description(), task->steps());
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<std::string, int>> m_seen;
};

struct FrameInput {
    Points positions;
    std::vector<double> triangulationErrors;
    std::string instrumentId = kMarkerId;
    double quality = 0.95;
    bool active = true;
    bool withFiducials = true;
};

/// A frame of the marker seen with these fiducials, all else as in FrameInput.
FrameInput view(Points positions, std::vector<double> triangulationErrors) {
    FrameInput input;
    input.positions = std::move(positions);
    input.triangulationErrors = std::move(triangulationErrors);
    return input;
}

std::shared_ptr<const StreamData> makeFrame(const FrameInput& input) {
    TrackingInstrument instrument{TrackerID(input.instrumentId, "marker"), input.active};
    instrument.quality = input.quality;
    auto tracking =
        std::make_shared<TrackingStreamData>(nullptr, std::vector<TrackingInstrument>{instrument});
    if (input.withFiducials) {
        auto fiducials = std::make_shared<TrackingInstrumentFiducialsData>();
        for (std::size_t i = 0; i < input.positions.size(); ++i)
            fiducials->addFiducial(input.positions[i], 0, 0, 1.0, 0.1, input.triangulationErrors[i], 10, 10);
        tracking->addComponent(fiducials);
    }
    return std::make_shared<CompoundStreamData>(tracking, std::vector<std::shared_ptr<const StreamData>>{});
}

class GeometryRecording : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(stream.addGeometry("marker", KESTRION_TEST_DATA_DIR "/optimization/geometry1300.ini"));
        ASSERT_EQ(stream.geometryCoordinates(kMarkerId).size(), 4u);
        algo.setGeometryId(kMarkerId);
        algo.setProgress(&progress);
    }
    void TearDown() override {
        if (worker.joinable())
            worker.join();
    }

    void startCompute() {
        worker = std::thread([this] { algo.compute(); });
        ASSERT_TRUE(waitFor([this] { return algo.isRecording(); }));
    }
    void finishCompute() {
        if (worker.joinable())
            worker.join();
    }
    // A good view of the true marker, its fiducials delivered in `order`.
    std::shared_ptr<const StreamData> goodFrame() {
        return makeFrame(view(reordered(observe(truth, randomPose(rng), 0.05, rng), {2, 0, 3, 1}),
                              {0.1, 0.12, 0.14, 0.16}));
    }
    void emit(const std::shared_ptr<const StreamData>& data) { stream.signalStreamData.emitSignal(data); }

    SpryTrack::AtracsysTrackingStream stream{"Atracsys"};
    ProgressLog progress;
    Harness algo{&stream};
    std::thread worker;
    std::mt19937 rng{17};
    Points truth = [] {
        std::mt19937 r(23);
        return perturbed(asymmetricMarker(), 0.3, r);
    }();
};

TEST_F(GeometryRecording, RecordsEnoughFramesThenRefinesTheGeometry) {
    TestSupport::LogCapture capture(Log::Info);
    algo.setRecordedFrames(60);
    // Frames before compute() are ignored without a word.
    emit(goodFrame());
    emit(makeFrame(FrameInput{}));
    EXPECT_EQ(algo.recording().size(), 0u);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();

    startCompute();
    EXPECT_TRUE(capture->contains(Log::Warning, kOptimize, "Optimize marker with 4 fiducials."))
        << capture->dump();
    // Poses change from frame to frame, but the marker moves little between two frames.
    const Eigen::Matrix4d base = randomPose(rng);
    for (int i = 0; i < 60; ++i) {
        Eigen::Matrix4d pose = base;
        pose(0, 3) += 0.5 * i;
        emit(makeFrame(
            view(reordered(observe(truth, pose, 0.05, rng), {2, 0, 3, 1}), {0.1, 0.12, 0.14, 0.16})));
    }
    finishCompute();
    EXPECT_EQ(algo.status(), Algorithm::Success) << capture->dump();
    ASSERT_EQ(algo.recording().size(), 60u);
    EXPECT_EQ(algo.recording().frameErrors()[0], 0.16); // the worst fiducial of the frame

    const Points result = algo.optimizedCoordinates();
    ASSERT_EQ(result.size(), 4u);
    EXPECT_LT(alignedRms(result, truth), 0.05);
    EXPECT_LT(alignedRms(result, truth), alignedRms(stream.geometryCoordinates(kMarkerId), truth) / 3.0);

    // Progress: the recording task with one step per frame, then the optimisation.
    const auto seen = progress.seen();
    EXPECT_EQ(seen.front(), std::make_pair(std::string("Record geometry..."), 60));
    EXPECT_EQ(seen.back().first, "Optimize...");
    EXPECT_EQ(progress.lastDone.load(), 60);

    // Frames after the recording change nothing.
    const std::size_t logged = capture->size();
    emit(goodFrame());
    EXPECT_EQ(algo.recording().size(), 60u);
    EXPECT_EQ(algo.optimizedCoordinates(), result);
    EXPECT_EQ(capture->size(), logged);
}

TEST_F(GeometryRecording, RefusedFramesAreReportedAndNotCounted) {
    TestSupport::LogCapture capture;
    algo.setRecordedFrames(3);
    algo.setOptimizationMode(Algo::BestFrame); // leaves the recording at its scale
    startCompute();

    // Frames refused before any is recorded, each with its line.
    FrameInput inactive, noFiducials, other = view({{0, 0, 0}}, {0.1});
    inactive.active = false;
    noFiducials.withFiducials = false;
    other.instrumentId = "atracsys-1001";
    // Quality must be above 0.8: exactly 0.8 is refused.
    FrameInput poor = view(observe(truth, randomPose(rng), 0.0, rng), {0.1, 0.1, 0.1, 0.1});
    poor.quality = 0.8;
    const std::tuple<FrameInput, int, const char*, const char*> refused[] = {
        {inactive, Log::Error, kOptimization,
         "Optimization requires at least one active tracking instrument."},
        {noFiducials, Log::Error, kOptimization, "TrackingStream does not have valid fiducials raw data."},
        {other, Log::Error, kOptimization, "atracsys-1300 not found in active instruments."},
        {poor, Log::Error, kOptimize, "Instrument needs to be visible during recording all the time."},
        {view({{0, 0, 900}, {50, 0, 900}, {0, 50, 900}}, {0.1, 0.1, 0.1}), Log::Warning, kOptimize,
         "Number of fiducial do not match : 3 in the frame, 4 in the geometry"},
    };
    for (const auto& [input, level, category, message] : refused) {
        emit(makeFrame(input));
        EXPECT_EQ(capture->count(level, category, message), 1u) << message << "\n" << capture->dump();
    }
    EXPECT_EQ(algo.recording().size(), 0u);

    // The first accepted frame fixes the slots; quality just above the limit is enough.
    const Eigen::Matrix4d pose = randomPose(rng);
    FrameInput first = view(observe(truth, pose, 0.0, rng), {0.1, 0.2, 0.1, 100.0});
    first.quality = 0.81;
    emit(makeFrame(first));
    ASSERT_EQ(algo.recording().size(), 1u) << capture->dump();
    EXPECT_EQ(algo.recording().frameErrors()[0], 100.0); // exactly 100.0 is kept

    FrameInput tooBig = first;
    tooBig.triangulationErrors = {0.1, 100.5, 0.1, 0.1};
    emit(makeFrame(tooBig));
    EXPECT_TRUE(
        capture->contains(Log::Warning, kOptimize, "Triangulation error too big : 100.5 (skip data)"));

    // A fiducial 20 mm from every slot leaves its slot empty.
    FrameInput moved = first;
    moved.triangulationErrors = {0.1, 0.1, 0.1, 0.1};
    moved.positions[3] += Eigen::Vector3d(20.0, 0.0, 0.0);
    emit(makeFrame(moved));
    EXPECT_TRUE(capture->contains(Log::Warning, kOptimize, "Not all markers found : 3"));

    // Two fiducials within 15 mm of slot 0: the later one takes it, slot 1 stays empty.
    FrameInput clash = moved;
    clash.positions = first.positions;
    clash.positions[1] = first.positions[0] + Eigen::Vector3d(0.0, 5.0, 0.0);
    emit(makeFrame(clash));
    std::ostringstream pos;
    pos << "POS 0 ) already found : " << clash.positions[0].transpose()
        << " - now : " << clash.positions[1].transpose();
    EXPECT_TRUE(capture->contains(Log::Error, "", pos.str())) << capture->dump();
    EXPECT_EQ(capture->count(Log::Warning, kOptimize, "Not all markers found : 3"), 2u);
    EXPECT_EQ(algo.recording().size(), 1u);
    EXPECT_TRUE(algo.isRecording());

    // Later frames deliver their fiducials in another order: the slots keep the first frame's.
    FrameInput shuffled = first;
    shuffled.positions = reordered(observe(truth, pose, 0.05, rng), {3, 1, 0, 2});
    shuffled.triangulationErrors = {0.4, 0.2, 0.1, 0.3};
    emit(makeFrame(shuffled));
    emit(makeFrame(shuffled));
    finishCompute();
    ASSERT_EQ(algo.recording().size(), 3u);
    const auto& slots = algo.recording().frames()[1];
    for (std::size_t j = 0; j < 4; ++j)
        EXPECT_LT((slots[j] - first.positions[j]).norm(), 1.0) << j;
    EXPECT_EQ(algo.recording().fiducialErrors()[1], (std::vector<double>{0.1, 0.2, 0.3, 0.4}));
    EXPECT_EQ(algo.recording().frameErrors()[1], 0.4);
}

TEST_F(GeometryRecording, CancellingOptimisesWhatWasRecordedAndFailsWithoutFrames) {
    TestSupport::LogCapture capture(Log::Info);
    startCompute(); // 500 frames by default
    EXPECT_EQ(progress.seen().front(), std::make_pair(std::string("Record geometry..."), 500));
    const Eigen::Matrix4d pose = randomPose(rng);
    for (int i = 0; i < 120; ++i)
        emit(makeFrame(view(observe(truth, pose, 0.05, rng), {0.1, 0.1, 0.1, 0.1})));
    // The progress shows the frames recorded so far.
    EXPECT_TRUE(waitFor([this] { return progress.lastDone.load() == 120; }));
    progress.cancelAll();
    finishCompute();
    EXPECT_EQ(algo.recording().size(), 120u);
    EXPECT_EQ(algo.status(), Algorithm::Success) << capture->dump();
    EXPECT_LT(alignedRms(algo.optimizedCoordinates(), truth), 0.05);

    // Cancelled before any frame: nothing to optimise.
    Harness empty(&stream);
    empty.setGeometryId(kMarkerId);
    empty.setProgress(&progress);
    worker = std::thread([&] { empty.compute(); });
    ASSERT_TRUE(waitFor([&] { return empty.isRecording(); }));
    progress.cancelAll();
    finishCompute();
    EXPECT_EQ(empty.status(), Algorithm::Error);
}

TEST_F(GeometryRecording, AnUnknownGeometryFailsAtOnce) {
    TestSupport::LogCapture capture;
    ProgressLog noTask;
    Harness unknown(&stream);
    unknown.setProgress(&noTask); // no progress task either
    unknown.setGeometryId("atracsys-4242");
    unknown.compute();
    EXPECT_EQ(unknown.status(), Algorithm::Error);
    EXPECT_TRUE(capture->contains(Log::Error, "AtracsysGeometryOptimizationAlgorithm",
                                  "Original coordinates could not be retrieved."))
        << capture->dump();
    EXPECT_TRUE(noTask.seen().empty());
}

TEST_F(GeometryRecording, SettingsAreReadAndWrittenUnderTheirWorkspaceNames) {
    Harness fresh(&stream);
    Properties settings;
    settings.setParam("geometryId", std::string("atracsys-1300"));
    settings.setParam("optimizationMode", 1);
    settings.setParam("keepCoordinateLocation", false);
    settings.setParam("recordedFrames", 120);
    fresh.configure(&settings);
    EXPECT_EQ(fresh.optimizationMode(), Algo::WeightedAverage);
    EXPECT_EQ(fresh.recordedFrames(), 120);
    Properties written;
    fresh.configuration(&written);
    EXPECT_EQ(written, settings);
}

TEST_F(GeometryRecording, AnAlgorithmGoneNoLongerReceivesFrames) {
    TestSupport::LogCapture capture;
    const std::size_t before = stream.signalStreamData.numConnections();
    {
        Harness shortLived(&stream);
        EXPECT_EQ(stream.signalStreamData.numConnections(), before + 1);
    }
    EXPECT_EQ(stream.signalStreamData.numConnections(), before);
    emit(goodFrame());
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

} // namespace
} // namespace Kestrion
