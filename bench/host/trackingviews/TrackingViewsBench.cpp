// The tracking views' costs: what the stream's worker thread pays per frame to hand it to a view
// (the latest-frame slot), and what the GUI thread pays per refresh of the instrument table and
// of the 3D scene.

#include "host/lib/trackingviews/InstrumentTableModel.h"
#include "host/lib/trackingviews/LatestTrackingFrame.h"
#include "host/lib/trackingviews/WorkingVolumeScene.h"
#include "host/stream/CompoundStreamData.h"
#include "host/stream/InstrumentStatusData.h"
#include "host/stream/TrackingInstrumentFiducialsData.h"
#include "host/stream/TrackingStreamData.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

using namespace Kestrion;

namespace {

/// A compound frame of `count` tracked instruments with the status and 4 raw fiducials each.
std::shared_ptr<const StreamData> frame(int count, std::uint64_t arrivalMs) {
    std::vector<TrackingInstrument> instruments;
    auto status = std::make_shared<InstrumentStatusData>();
    auto fiducials = std::make_shared<TrackingInstrumentFiducialsData>();
    for (int i = 0; i < count; ++i) {
        TrackingInstrument instrument(
            TrackerID("atracsys-" + std::to_string(1000 + i), "tool " + std::to_string(i)));
        instrument.quality = 0.99;
        instrument.matrix(0, 3) = 10.0 * i;
        instrument.matrix(2, 3) = 800.0;
        instruments.push_back(instrument);
        status->entries().push_back({instrument.ID(), InstrumentStatusData::State::Tracked,
                                     "tracked, registration error 0.05 mm", 0.05, 4, 4});
        for (int f = 0; f < 4; ++f)
            fiducials->addFiducial({10.0 * i + f, 0, 800}, 0, static_cast<std::uint32_t>(i), 1, 0.1, 0.1, 20,
                                   20);
    }
    auto tracking =
        std::make_shared<TrackingStreamData>(nullptr, std::move(instruments), arrivalMs, arrivalMs);
    tracking->addComponent(status);
    tracking->addComponent(fiducials);
    return std::make_shared<CompoundStreamData>(tracking, std::vector<std::shared_ptr<const StreamData>>{});
}

/// The worker's part: one put per frame, the view taking every other frame.
void LatestFramePut(benchmark::State& state) {
    LatestTrackingFrame latest;
    const std::shared_ptr<const StreamData> frames[] = {frame(16, 1), frame(16, 2)};
    std::uint64_t i = 0;
    for (auto _ : state) {
        latest.put(frames[i & 1]);
        if (++i % 2 == 0)
            benchmark::DoNotOptimize(latest.take());
    }
}
BENCHMARK(LatestFramePut);

/// The GUI thread's part per refresh: the table and the 3D scene for a frame.
void ViewRefresh(benchmark::State& state) {
    const auto data = frame(static_cast<int>(state.range(0)), 1000);
    const auto& tracking =
        static_cast<const TrackingStreamData&>(*static_cast<const CompoundStreamData&>(*data).mainData());
    InstrumentTableModel model;
    WorkingVolumeScene scene;
    scene.setVolume(WorkingVolume{200.0, 1400.0, 0.85, 0.45});
    for (const auto& instrument : tracking.instruments())
        scene.setGeometry(instrument.ID(), {{0, 0, 0}, {30, 0, 0}, {0, 40, 0}, {0, 0, 50}});
    std::uint64_t now = 1000;
    for (auto _ : state) {
        model.showFrame(tracking, ++now);
        scene.build(&tracking);
        benchmark::DoNotOptimize(scene.points().data());
    }
}
BENCHMARK(ViewRefresh)->Arg(4)->Arg(16);

} // namespace
