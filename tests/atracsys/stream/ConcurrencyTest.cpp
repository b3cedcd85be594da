// The stream running on its worker thread while another thread changes its geometries and
// settings, and while receivers of its data call back into it. Run under ThreadSanitizer.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;

TEST(TrackingStreamConcurrency, GeometriesChangeWhileTheStreamRuns) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    stream.setFiducialQueryMode(AtracsysTrackingStream::AllFiducials);

    // A receiver on the worker thread that checks each frame and calls back into the stream: no
    // lock of the stream may be held while its data is emitted.
    std::atomic<int> inconsistent{0};
    std::atomic<int> frames{0};
    auto checker = stream.signalStreamData.connect([&](std::shared_ptr<const StreamData> data) {
        auto tracking = findStreamData<TrackingStreamData>(data);
        const auto* fiducials = tracking ? tracking->component<TrackingInstrumentFiducialsData>() : nullptr;
        if (!fiducials) {
            ++inconsistent;
            return;
        }
        for (std::uint32_t index : fiducials->instrumentIndices())
            if (index != TrackingInstrumentFiducialsData::NoInstrument &&
                index >= tracking->instruments().size())
                ++inconsistent;
        // Both of the stream's locks are free: the registry's and the device's.
        for (const auto& instrument : tracking->instruments())
            stream.registry().find(instrument.ID());
        if (stream.imageIntegrationTime() < 1)
            ++inconsistent;
        ++frames;
    });

    ASSERT_TRUE(stream.open());
    ASSERT_TRUE(stream.start());
    std::thread editor([&] {
        for (int i = 0; i < 25; ++i) {
            const std::size_t seen = recorder.dataCount();
            EXPECT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
            EXPECT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
            recorder.waitForData(seen + 2);
            stream.setFiducialQueryMode(AtracsysTrackingStream::FiducialQueryMode(1 + i % 3));
            stream.setMaxFiducialMarkerDistance(50.0 + i);
            Properties settings;
            stream.configuration(&settings);
            EXPECT_GE(stream.imageIntegrationTime(), 1);
            EXPECT_TRUE(stream.removeGeometry("atracsys-1000"));
            recorder.waitForData(seen + 3);
            EXPECT_TRUE(stream.removeGeometry("atracsys-1001"));
        }
    });
    editor.join();

    // Settled: both markers back, both tracked.
    ASSERT_TRUE(stream.addGeometry("tool", dataFile("geometry1000.ini")));
    ASSERT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));
    ASSERT_TRUE(waitFor([&] {
        auto tracking = trackingOf(recorder.lastData());
        return tracking && tracking->instruments().size() == 2 && tracking->instruments()[0].quality > 0.0 &&
               tracking->instruments()[1].quality > 0.0;
    }));
    ASSERT_TRUE(stream.close());
    checker.disconnect();
    EXPECT_GT(frames.load(), 50);
    EXPECT_EQ(inconsistent.load(), 0);
    std::size_t problems = 0;
    for (const auto& record : capture->records())
        problems += record.level >= Log::Warning ? 1 : 0;
    EXPECT_EQ(problems, 0u) << "no warning or error on the way" << capture->dump();
}
