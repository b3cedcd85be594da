// The capture time of the camera stream's frames against the simulated camera's truth: the
// camera's clock runs 20 ppm fast and starts with the device, frames reach the host up to 5 ms
// after their exposure, and after the first second the capture times follow the exposures without
// that jitter, as close to them as the most prompt arrival. How close that is depends on the
// machine (tens of µs on a quiet one): bench_atracsys_frame_latency reports it.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/stream/DeviceFrameInfo.h"
#include "host/stream/state/CaptureTimeData.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

namespace {

constexpr const char* Scene = R"({"seed": 3, "devices": [{"model": "fusionTrack 500", "serial": 91,
    "clockDriftPPM": 20, "deliveryJitterMS": 5}], "markers": [{"geometryId": 1000,
    "fiducials": [[0, 0, 0], [31, 82, 0], [96, -10, 0], [61, 46, 0]],
    "motion": {"type": "static", "position": [0, 0, 1500]}}]})";

} // namespace

TEST(CaptureTime, FollowsTheExposuresWithoutTheDeliveryJitter) {
    TestSupport::LogCapture quiet;
    ftkSimSetSteppedClock(false); // real delivery: the arrivals are the computer's own
    ASSERT_TRUE(ftkSimLoadScene(Scene));
    {
        ProbedStream stream;
        stream.setFramePacingMs(0);
        // Without images: copying them into the frame record is a constant part of the delay
        // between delivery and the fetch's return, which no estimate can see.
        stream.setQueryImages(false);
        // Records each frame's data with its emission time: an arrival on the computer's clock,
        // later than the fetch's return by the stream's own work.
        Recorder recorder(stream);
        ASSERT_TRUE(stream.open() && stream.start());
        // 2.5 s at 335 Hz; a busy machine may drop some, which the mapping does not need.
        ASSERT_TRUE(recorder.waitForData(830, std::chrono::seconds(30)));
        stream.close();

        const auto first = trackingOf(recorder.dataAt(0))->component<DeviceFrameInfo>();
        ASSERT_TRUE(first);
        std::size_t checked = 0;
        std::vector<double> errors, arrivals; // against the exposure, µs
        std::vector<double> excess;           // error beyond the most prompt arrival until then, µs
        double promptest = 1e9;
        for (std::size_t i = 0; i < recorder.dataCount(); ++i) {
            const auto tracking = trackingOf(recorder.dataAt(i));
            const auto* device = tracking->component<DeviceFrameInfo>();
            const auto* capture = tracking->component<CaptureTimeData>();
            ASSERT_TRUE(device && capture);
            int64 exposure = 0;
            ASSERT_TRUE(ftkSimGetExposureTime(91, device->frameCounter(), &exposure));
            const double arrival = recorder.emittedUSAt(i) - double(exposure);
            promptest = std::min(promptest, arrival);
            if (device->deviceTimestampUS() - first->deviceTimestampUS() < 1'000'000)
                continue; // the first second
            arrivals.push_back(arrival);
            errors.push_back(static_cast<double>(capture->captureTimeUS()) - double(exposure));
            excess.push_back(errors.back() - promptest);
            ++checked;
        }
        ASSERT_GT(checked, 300u);
        // What remains of the capture time's error is the smallest delay between the frame's
        // delivery and the fetch's return (the library's copy, the stamp, the scheduling of the
        // fetching thread), plus the clocks' drift until it is fitted. The estimate keeps the
        // smallest delay it sees: its error is at most that of the most prompt arrival so far
        // (emitted after the fetch's return, so later still), plus the drift, not the arrivals'
        // typical delay; and the delivery's jitter, which the arrivals carry, is gone. Never
        // before the exposure.
        const auto spread = [](std::vector<double>& values) {
            std::sort(values.begin(), values.end());
            return values[values.size() * 19 / 20] - values[values.size() / 20];
        };
        const double captureSpread = spread(errors), arrivalSpread = spread(arrivals);
        RecordProperty("capture_minus_exposure_us", std::to_string(errors.front()) + " .. " +
                                                        std::to_string(errors[errors.size() / 2]) + " .. " +
                                                        std::to_string(errors.back()));
        EXPECT_GT(errors.front(), -50.0) << "captured before the exposure";
        EXPECT_GT(arrivalSpread, 1000.0) << "the arrivals themselves carry the jitter";
        EXPECT_LT(captureSpread, std::max(100.0, arrivalSpread / 10))
            << "µs between the 5th and 95th percentiles of the error, against " << arrivalSpread
            << " µs for the arrivals";
        std::sort(excess.begin(), excess.end());
        EXPECT_LT(excess[excess.size() / 2], 50.0)
            << "median µs of the error beyond the most prompt arrival until the frame";
    }
    ftkSimResetScene();
}
