#include "python/src/PythonFrame.h"
#include "python/src/PythonFrameQueue.h"

#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"

#include <benchmark/benchmark.h>

namespace Kestrion::Python {
namespace {

/// A frame as the camera stream makes it: two tracked instruments with their status, 10 fiducials.
std::shared_ptr<const StreamData> typicalFrame() {
    std::vector<TrackingInstrument> instruments;
    for (const char* id : {"atracsys-1000", "atracsys-1001"}) {
        TrackingInstrument instrument(TrackerID(id, id));
        instrument.matrix(0, 3) = 10.0;
        instrument.matrix(2, 3) = 800.0;
        instrument.quality = 0.99;
        instruments.push_back(instrument);
    }
    auto frame = std::make_shared<TrackingStreamData>(nullptr, instruments, 1000, 1000);
    auto status = std::make_shared<InstrumentStatusData>();
    for (const auto& instrument : instruments)
        status->entries().push_back({instrument.ID(), InstrumentStatusData::State::Tracked,
                                     "tracked, registration error 0.07 mm", 0.07, 4, 4});
    frame->addComponent(status);
    auto fiducials = std::make_shared<TrackingInstrumentFiducialsData>();
    for (int i = 0; i < 10; ++i)
        fiducials->addFiducial(Eigen::Vector3d(i, i, 800.0), 0, 0, 1.0, 0.1, 0.1, 20, 20);
    frame->addComponent(fiducials);
    return frame;
}

/// The worker's side and the consumer's side of one frame, on one thread (no wait).
void BM_QueuePushTake(benchmark::State& state) {
    PythonFrameQueue queue(4096);
    const auto frame = typicalFrame();
    for (auto _ : state) {
        queue.push(frame);
        benchmark::DoNotOptimize(queue.take(std::chrono::nanoseconds(0), false));
    }
}
BENCHMARK(BM_QueuePushTake);

/// What frame.tools reads from the host's data, before Python objects are made of it.
void BM_FrameTools(benchmark::State& state) {
    const auto frame = PythonFrame::fromStreamData(typicalFrame());
    for (auto _ : state)
        benchmark::DoNotOptimize(frame->tools());
}
BENCHMARK(BM_FrameTools);

} // namespace
} // namespace Kestrion::Python

BENCHMARK_MAIN();
