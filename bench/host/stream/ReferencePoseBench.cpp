#include "host/stream/InstrumentStatusData.h"
#include "host/stream/InstrumentTipData.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/InstrumentNames.h"
#include "host/stream/state/ReferencePoseData.h"

#include <Eigen/Geometry>
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

using namespace Kestrion;

namespace {

// A tracking stream that only serves as the holder of the names and the reference.
class HostOnlyStream : public TrackingStream {
public:
    HostOnlyStream()
        : TrackingStream("Reference bench") {}
    std::vector<TrackingInstrument> instruments() const override { return {}; }
};

// The host's per-frame additions on a frame of `count` instruments, all tracked, each with a
// status entry and half of them with a tip: what every frame of a camera stream pays once a
// reference is chosen (names attached, poses and tips computed in the reference's frame).
void BM_CompleteFrameWithReference(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    HostOnlyStream stream;
    InstrumentNames names;
    std::vector<TrackingInstrument> instruments;
    auto status = std::make_shared<InstrumentStatusData>();
    auto tips = std::make_shared<InstrumentTipData>();
    for (int n = 0; n < count; ++n) {
        const std::string id = "atracsys-" + std::to_string(1000 + n);
        TrackingInstrument instrument{TrackerID(id)};
        instrument.matrix.block<3, 3>(0, 0) =
            Eigen::AngleAxisd(0.1 * n, Eigen::Vector3d(1, 2, 3).normalized()).toRotationMatrix();
        instrument.matrix.block<3, 1>(0, 3) = Eigen::Vector3d(10.0 * n, -5.0, 700.0 + n);
        instrument.quality = 0.95;
        instruments.push_back(instrument);
        InstrumentStatusData::Entry entry;
        entry.instrumentId = id;
        entry.state = InstrumentStatusData::State::Tracked;
        status->entries().push_back(entry);
        if (n % 2 == 1)
            tips->entries().push_back({id, Eigen::Vector3d(0, 0, 120), Eigen::Vector3d(1, 2, 3)});
        names.setName(id, "Tool" + std::to_string(n));
    }
    stream.setInstrumentNames(names);
    stream.setReferenceInstrument("atracsys-1000");
    TrackingStreamData frame(&stream, instruments, 1, 1);
    frame.addComponent(status);
    frame.addComponent(tips);
    for (auto _ : state) {
        // What completeFrame adds to every frame: the names (a shared pointer) and the poses in
        // the reference's frame.
        auto attached = stream.instrumentNames();
        const ReferencePoseData poses = ReferencePoseData::compute(frame, stream.referenceInstrument());
        benchmark::DoNotOptimize(attached.get());
        benchmark::DoNotOptimize(poses.entries().data());
    }
}
BENCHMARK(BM_CompleteFrameWithReference)->Arg(2)->Arg(16);

} // namespace
