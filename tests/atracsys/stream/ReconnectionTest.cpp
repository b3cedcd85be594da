// The stream brought back after its camera was unplugged and plugged back: the simulated camera
// disconnects at 0.5 s of its (stepped) time for 1 s; the test steps its clock past the end.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/connection/StreamReconnector.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using namespace std::chrono_literals;

namespace {

std::uint32_t counterOf(const std::shared_ptr<const CompoundStreamData>& data) {
    const auto tracking = trackingOf(data);
    const auto* info = tracking ? tracking->component<DeviceFrameInfo>() : nullptr;
    return info ? info->frameCounter() : 0;
}

} // namespace

TEST(StreamReconnection, TrackingResumesWhenTheCameraIsBackWithNothingLostBefore) {
    SceneGuard scene("replug.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    std::vector<std::uint32_t> counters; // the worker thread appends, the test reads after it ends
    std::mutex countersMutex;
    auto connection = stream.signalStreamData.connect([&](const std::shared_ptr<const StreamData>& data) {
        const std::uint32_t counter = counterOf(std::dynamic_pointer_cast<const CompoundStreamData>(data));
        std::lock_guard<std::mutex> lock(countersMutex);
        counters.push_back(counter);
    });
    const auto frames = [&] {
        std::lock_guard<std::mutex> lock(countersMutex);
        return counters.size();
    };
    ASSERT_TRUE(stream.openWithMarkers());
    const std::uint64_t serial = stream.serialNumber();

    StreamReconnector reconnector(stream, {500ms}); // lost after the health's 500 ms of silence
    std::vector<StreamReconnector::State> states;
    auto stateConnection =
        reconnector.signalStateChanged.connect([&](StreamReconnector::State s) { states.push_back(s); });
    ASSERT_TRUE(stream.start());
    reconnector.arm();

    // Unplugged at frame 27 (0.5 s at 54 Hz); reopening fails while the camera is away.
    ASSERT_TRUE(waitFor([&] { return reconnector.attempts() >= 2; }));
    EXPECT_EQ(reconnector.state(), StreamReconnector::State::Waiting);
    const std::size_t beforeReturn = frames();

    const std::uint64_t attemptsAtReturn = reconnector.attempts();
    const auto returned = std::chrono::steady_clock::now();
    ASSERT_TRUE(ftkSimStep(serial, 60)); // the camera's clock passes the end of the disconnection
    ASSERT_TRUE(waitFor([&] { return frames() > beforeReturn; }));
    const auto resumedAfter = std::chrono::steady_clock::now() - returned;
    EXPECT_LT(resumedAfter, 2s);
    EXPECT_LE(reconnector.attempts(), attemptsAtReturn + 1) << "the first reopening after the return works";
    ASSERT_TRUE(waitFor([&] { return reconnector.state() == StreamReconnector::State::Watching; }));

    reconnector.disarm();
    ASSERT_TRUE(stream.close());
    connection.disconnect();
    stateConnection.disconnect();

    // Every frame up to the unplugging arrived, then the ones after the return.
    ASSERT_GE(counters.size(), beforeReturn + 1);
    ASSERT_EQ(beforeReturn, 26u);
    for (std::size_t i = 0; i < beforeReturn; ++i)
        EXPECT_EQ(counters[i], i + 1) << i;
    EXPECT_GT(counters[beforeReturn], 27u + 60u);
    // The health saw one outage, from the last frame before the unplugging to the first after.
    const StreamHealth::Snapshot health = stream.health().snapshot();
    EXPECT_EQ(health.reopenings, reconnector.reopenings());
    EXPECT_GE(health.reopenings, 2u);
    EXPECT_EQ(health.outages, 1u);
    EXPECT_EQ(states, (std::vector<StreamReconnector::State>{
                          StreamReconnector::State::Watching, StreamReconnector::State::Waiting,
                          StreamReconnector::State::Watching, StreamReconnector::State::Idle}));
    EXPECT_EQ(capture->count(Log::Warning, "StreamReconnector",
                             "Atracsys Tracking Stream: the camera stopped; waiting for the camera"),
              1u);
    EXPECT_EQ(capture->count(Log::Info, "StreamReconnector",
                             "Atracsys Tracking Stream: the camera is back; tracking again"),
              1u);
}
