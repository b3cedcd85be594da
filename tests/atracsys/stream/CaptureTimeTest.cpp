// The capture time of the camera stream's frames against the simulated camera's truth: the
// camera's clock runs 20 ppm fast and starts with the device, frames reach the host up to 5 ms
// after their exposure, and after the first second every frame's capture time is within 0.1 ms of
// when it was exposed.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/state/CaptureTimeData.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

namespace {

constexpr const char* Scene = R"({"seed": 3, "devices": [{"model": "fusionTrack 500", "serial": 91,
    "clockDriftPPM": 20, "deliveryJitterMS": 5}], "markers": [{"geometryId": 1000,
    "fiducials": [[0, 0, 0], [31, 82, 0], [96, -10, 0], [61, 46, 0]],
    "motion": {"type": "static", "position": [0, 0, 1500]}}]})";

} // namespace

TEST(CaptureTime, WithinATenthOfAMillisecondOfTheExposureDespiteTheDeliveryJitter) {
    TestSupport::LogCapture quiet;
    ftkSimSetSteppedClock(false); // real delivery: the arrivals are the computer's own
    ASSERT_TRUE(ftkSimLoadScene(Scene));
    {
        ProbedStream stream;
        stream.setFramePacingMs(0);
        Recorder recorder(stream);
        ASSERT_TRUE(stream.open() && stream.start());
        // 2.5 s at 335 Hz; a busy machine may drop some, which the mapping does not need.
        ASSERT_TRUE(recorder.waitForData(830, std::chrono::seconds(30)));
        stream.close();

        const auto first = trackingOf(recorder.dataAt(0))->component<DeviceFrameInfo>();
        ASSERT_TRUE(first);
        std::size_t checked = 0;
        double worst = 0;
        double worstArrival = 0;
        for (std::size_t i = 0; i < recorder.dataCount(); ++i) {
            const auto tracking = trackingOf(recorder.dataAt(i));
            const auto* device = tracking->component<DeviceFrameInfo>();
            const auto* capture = tracking->component<CaptureTimeData>();
            ASSERT_TRUE(device && capture);
            if (device->deviceTimestampUS() - first->deviceTimestampUS() < 1'000'000)
                continue; // the first second
            int64 exposure = 0;
            ASSERT_TRUE(ftkSimGetExposureTime(91, device->frameCounter(), &exposure));
            worst =
                std::max(worst, std::abs(static_cast<double>(capture->captureTimeUS()) - double(exposure)));
            worstArrival =
                std::max(worstArrival, double(tracking->arrivalTimestamp()) * 1000.0 - double(exposure));
            ++checked;
        }
        EXPECT_GT(checked, 300u);
        EXPECT_LT(worst, 100.0) << "µs between capture time and exposure";
        EXPECT_GT(worstArrival, 1000.0) << "the arrivals themselves carry the jitter";
    }
    ftkSimResetScene();
}
