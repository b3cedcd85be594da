#include "host/stream/ThreadSafeInstruments.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

using namespace Kestrion;

namespace {

struct Geometry {
    int id = 0;
    bool onDevice = true;
    double fiducials[6][3] = {};
    std::unique_ptr<Geometry> clone() const { return std::make_unique<Geometry>(*this); }
};

// One frame of the acquisition loop's registry work: reset every instrument, then write the pose
// and quality of each detected marker (here: all of them).
void BM_PrepareUpdateAndModify(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    ThreadSafeInstruments<Geometry> registry;
    std::vector<std::string> ids;
    for (int n = 0; n < count; ++n) {
        ids.push_back("atracsys-" + std::to_string(1000 + n));
        auto geometry = std::make_unique<Geometry>();
        geometry->id = 1000 + n;
        registry.create(TrackerID(ids.back(), "Marker " + std::to_string(n), "M"), std::move(geometry), true);
    }
    const double rotation[3][3] = {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}};
    unsigned long long timestamp = 1'700'000'000'000ULL;
    for (auto _ : state) {
        InstrumentModifications flags = registry.prepareUpdate(++timestamp);
        for (int n = 0; n < count; ++n) {
            const double registrationError = 0.1 * n;
            flags |= registry.modify(ids[static_cast<std::size_t>(n)],
                                     [&](const std::string&, TrackingInstrument& instrument, Geometry&) {
                                         if (!instrument.active)
                                             return;
                                         for (int r = 0; r < 3; ++r)
                                             for (int c = 0; c < 3; ++c)
                                                 instrument.matrix(r, c) = rotation[r][c];
                                         instrument.matrix(0, 3) = 10.0 + n;
                                         instrument.matrix(1, 3) = 20.0;
                                         instrument.matrix(2, 3) = 500.0;
                                         instrument.quality = std::max(0.0, 1.0 - registrationError / 10.0);
                                     });
        }
        benchmark::DoNotOptimize(flags);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.SetLabel("items = instrument updates");
}
BENCHMARK(BM_PrepareUpdateAndModify)->Arg(16)->Arg(4);

} // namespace
