// The OpenIGTLink server's cost to the stream's worker thread (the hand-off of one frame) with
// 0, 1 and 8 clients connected and reading, and the delay from the frame's emission to its
// TRANSFORM arriving at a client on the loopback address; what the desktop host's panel costs its
// GUI thread (a Start and a Stop, a refresh with clients connected).
#include "tests/host/igtl/IgtlTestClient.h"

#include "host/core/Log.h"
#include "host/igtl/IgtlServer.h"
#include "host/igtl/IgtlServerAlgorithm.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <time.h>
#include <vector>

using namespace Kestrion;
using Kestrion::Igtl::IgtlTest::IgtlTestClient;

namespace {

class BenchStream : public TrackingStream {
public:
    BenchStream()
        : TrackingStream("bench") {}
    ~BenchStream() override { close(); }
    std::vector<TrackingInstrument> instruments() const override { return {}; }
};

std::shared_ptr<const StreamData> frame(BenchStream& stream, std::uint64_t timestampMs) {
    std::vector<TrackingInstrument> tools;
    for (int i = 0; i < 2; ++i) {
        TrackingInstrument tool{TrackerID("atracsys-" + std::to_string(1000 + i))};
        tool.quality = 0.95;
        tool.matrix(2, 3) = 750.0 + i;
        tools.push_back(tool);
    }
    return std::make_shared<TrackingStreamData>(&stream, tools, timestampMs, timestampMs);
}

double threadCpuSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

Igtl::IgtlServerSettings loopback() {
    Igtl::IgtlServerSettings settings;
    settings.port = 0;
    return settings;
}

// What doWork's emission costs with the server connected: the slot the server fills.
void BM_WorkerHandOff(benchmark::State& state) {
    BenchStream stream;
    Igtl::IgtlServer server(loopback());
    server.start();
    server.serve(&stream);
    std::vector<std::unique_ptr<IgtlTestClient>> clients;
    for (int i = 0; i < state.range(0); ++i)
        clients.push_back(std::make_unique<IgtlTestClient>(server.port()));
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    for (auto& client : clients)
        readers.emplace_back([&done, &client] {
            while (!done.load())
                client->next("none", std::chrono::milliseconds(100));
        });
    std::uint64_t timestampMs = 1'700'000'000'000ULL;
    std::vector<std::shared_ptr<const StreamData>> frames;
    for (int i = 0; i < 64; ++i)
        frames.push_back(frame(stream, ++timestampMs));
    std::size_t next = 0;
    std::vector<double> costs, cpuCosts;
    costs.reserve(static_cast<std::size_t>(state.max_iterations));
    cpuCosts.reserve(static_cast<std::size_t>(state.max_iterations));
    for (auto _ : state) {
        const double cpuStart = threadCpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        stream.signalStreamData.emitSignal(frames[next]);
        const double cost = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        cpuCosts.push_back((threadCpuSeconds() - cpuStart) * 1e6);
        state.SetIterationTime(cost);
        costs.push_back(cost * 1e6);
        next = (next + 1) % frames.size();
        // The camera's pace, a frame every few milliseconds: the server gets to work in between.
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    std::sort(costs.begin(), costs.end());
    std::sort(cpuCosts.begin(), cpuCosts.end());
    state.counters["median_us"] = costs[costs.size() / 2];
    state.counters["p99_us"] = costs[costs.size() * 99 / 100];
    // The worker's own CPU time: the wall time above also holds the moments the system gives the
    // woken server thread the CPU first.
    state.counters["cpu_median_us"] = cpuCosts[cpuCosts.size() / 2];
    done = true;
    for (auto& reader : readers)
        reader.join();
    server.stop();
}
BENCHMARK(BM_WorkerHandOff)
    ->Arg(0)
    ->Arg(1)
    ->Arg(8)
    ->Iterations(4000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

// From the emission on the worker thread to the whole TRANSFORM read by a client.
void BM_EmissionToReceipt(benchmark::State& state) {
    BenchStream stream;
    Igtl::IgtlServer server(loopback());
    server.start();
    server.serve(&stream);
    IgtlTestClient client(server.port());
    client.next("STATUS");
    std::vector<double> delays;
    delays.reserve(static_cast<std::size_t>(state.max_iterations));
    std::uint64_t timestampMs = 1'700'000'000'000ULL;
    for (auto _ : state) {
        auto data = frame(stream, ++timestampMs);
        const auto start = std::chrono::steady_clock::now();
        stream.signalStreamData.emitSignal(data);
        if (!client.next("TRANSFORM")) {
            state.SkipWithError("no TRANSFORM received");
            break;
        }
        const double delay = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(delay);
        delays.push_back(delay * 1e6);
        client.next("TRANSFORM"); // the frame's second instrument
    }
    std::sort(delays.begin(), delays.end());
    if (!delays.empty()) {
        state.counters["median_us"] = delays[delays.size() / 2];
        state.counters["p99_us"] = delays[delays.size() * 99 / 100];
    }
    server.stop();
}
BENCHMARK(BM_EmissionToReceipt)->Iterations(4000)->UseManualTime()->Unit(benchmark::kMicrosecond);

// A click on Start then Stop in the panel: bind and listen, start the server's threads, then
// end them and close the socket, all on the GUI thread.
void BM_PanelStartStop(benchmark::State& state) {
    Log::setConsoleEnabled(false); // two info lines per iteration
    Igtl::IgtlServerAlgorithm server;
    server.setPort(0);
    for (auto _ : state) {
        if (!server.start()) {
            state.SkipWithError("cannot listen");
            break;
        }
        server.stop();
    }
    Log::setConsoleEnabled(true);
}
BENCHMARK(BM_PanelStartStop)->Iterations(500)->Unit(benchmark::kMicrosecond);

// The panel's refresh, twice a second: the server's state and its list of N connected clients.
void BM_PanelRefreshRead(benchmark::State& state) {
    Log::setConsoleEnabled(false); // a line per client
    Igtl::IgtlServerAlgorithm server;
    server.setPort(0);
    server.start();
    std::vector<std::unique_ptr<IgtlTestClient>> clients;
    for (int i = 0; i < state.range(0); ++i) {
        clients.push_back(std::make_unique<IgtlTestClient>(server.port()));
        clients.back()->next("STATUS");
    }
    while (server.clients().size() < clients.size())
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the server publishes its list
    for (auto _ : state) {
        benchmark::DoNotOptimize(server.state());
        benchmark::DoNotOptimize(server.clients());
    }
    server.stop();
    Log::setConsoleEnabled(true);
}
BENCHMARK(BM_PanelRefreshRead)->Arg(1)->Arg(16)->Unit(benchmark::kMicrosecond);

} // namespace
