// The ROS 2 publisher's cost to the stream's worker thread (the hand-off of one frame) without a
// subscriber and with one, and the delay from a frame's emission to a subscriber's receipt of its
// /tf message on the loopback, at the fastest camera's 335 Hz. The subscriber is another process
// (bench_host_ros2_receiver), as a ROS 2 node would be.
#include "host/ros2/Ros2Publisher.h"
#include "host/stream/TrackingStream.h"
#include "host/stream/TrackingStreamData.h"
#include "host/stream/state/CaptureTimeData.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Kestrion;

namespace {

class BenchStream : public TrackingStream {
public:
    BenchStream()
        : TrackingStream("bench") {}
    ~BenchStream() override { close(); }
    std::vector<TrackingInstrument> instruments() const override { return {}; }
};

std::uint64_t monotonicUS() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000u +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000u;
}

/// A frame of two tracked tools stamped with the emission time (CLOCK_MONOTONIC), which the
/// receiver compares with its own clock.
std::shared_ptr<const StreamData> frame(BenchStream& stream) {
    std::vector<TrackingInstrument> tools;
    for (int i = 0; i < 2; ++i) {
        TrackingInstrument tool{TrackerID("atracsys-" + std::to_string(1000 + i))};
        tool.quality = 0.95;
        tool.matrix(2, 3) = 750.0 + i;
        tools.push_back(tool);
    }
    auto data = std::make_shared<TrackingStreamData>(&stream, tools, 0, 0);
    data->addComponent(std::make_shared<CaptureTimeData>(monotonicUS(), 0));
    return data;
}

double threadCpuSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

int benchDomain() {
    return 200 + static_cast<int>(::getpid() % 30);
}

/// bench_host_ros2_receiver as a child process: its stdin ends it, its stdout gives its figures.
class Receiver {
public:
    explicit Receiver(int domain) {
        int input[2], output[2];
        if (::pipe(input) != 0 || ::pipe(output) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::dup2(input[0], STDIN_FILENO);
            ::dup2(output[1], STDOUT_FILENO);
            ::close(input[1]);
            ::close(output[0]);
            ::execl(ROS2_BENCH_RECEIVER, ROS2_BENCH_RECEIVER, std::to_string(domain).c_str(), nullptr);
            ::_exit(127);
        }
        ::close(input[0]);
        ::close(output[1]);
        m_input = input[1];
        m_output = ::fdopen(output[0], "r");
        char line[64] = {};
        m_ready = m_output && std::fgets(line, sizeof line, m_output) && std::string(line) == "ready\n";
    }
    ~Receiver() {
        finish();
        if (m_output)
            std::fclose(m_output);
    }
    bool ready() const { return m_ready; }
    /// Ends it; its figures: messages, median and 99th percentile of the delay (µs).
    std::vector<double> finish() {
        std::vector<double> figures(3, 0.0);
        if (m_input >= 0)
            ::close(m_input);
        m_input = -1;
        if (m_pid > 0) {
            if (m_output)
                std::fscanf(m_output, "%lf %lf %lf", &figures[0], &figures[1], &figures[2]);
            ::waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
        return figures;
    }

private:
    pid_t m_pid = -1;
    int m_input = -1;
    std::FILE* m_output = nullptr;
    bool m_ready = false;
};

bool waitForSubscribers(const Ros2::Ros2Publisher& publisher, std::size_t count) {
    for (int i = 0; i < 1000 && publisher.subscribers() < count; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return publisher.subscribers() >= count;
}

Ros2::Ros2Settings settings() {
    Ros2::Ros2Settings s;
    s.domainId = benchDomain();
    return s;
}

// What doWork's emission costs with the publisher connected: the slot it fills.
void BM_WorkerHandOff(benchmark::State& state) {
    ::unsetenv("CYCLONEDDS_URI");
    BenchStream stream;
    Ros2::Ros2Publisher publisher(settings());
    publisher.start();
    publisher.serve(&stream);
    std::unique_ptr<Receiver> receiver;
    if (state.range(0) > 0) {
        receiver = std::make_unique<Receiver>(benchDomain());
        if (!receiver->ready() || !waitForSubscribers(publisher, 1)) {
            state.SkipWithError("the receiver did not subscribe");
            return;
        }
    }
    std::vector<std::shared_ptr<const StreamData>> frames;
    for (int i = 0; i < 64; ++i)
        frames.push_back(frame(stream));
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
        // The camera's pace, a frame every few milliseconds: the publisher gets to work in between.
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    std::sort(costs.begin(), costs.end());
    std::sort(cpuCosts.begin(), cpuCosts.end());
    state.counters["median_us"] = costs[costs.size() / 2];
    state.counters["p99_us"] = costs[costs.size() * 99 / 100];
    state.counters["cpu_median_us"] = cpuCosts[cpuCosts.size() / 2];
    state.counters["published"] = static_cast<double>(publisher.framesPublished());
    publisher.stop();
}
BENCHMARK(BM_WorkerHandOff)->Arg(0)->Arg(1)->Iterations(4000)->UseManualTime()->Unit(benchmark::kMicrosecond);

// From the emission on the worker thread to the receiver's take of the /tf message, at 335 Hz.
void BM_EmissionToReceipt335Hz(benchmark::State& state) {
    ::unsetenv("CYCLONEDDS_URI");
    constexpr int Frames = 3000;
    const auto period = std::chrono::microseconds(2985);
    for (auto _ : state) {
        BenchStream stream;
        Ros2::Ros2Publisher publisher(settings());
        publisher.start();
        publisher.serve(&stream);
        Receiver receiver(benchDomain());
        if (!receiver.ready() || !waitForSubscribers(publisher, 1)) {
            state.SkipWithError("the receiver did not subscribe");
            return;
        }
        auto due = std::chrono::steady_clock::now();
        for (int i = 0; i < Frames; ++i) {
            due += period;
            std::this_thread::sleep_until(due);
            stream.signalStreamData.emitSignal(frame(stream));
        }
        publisher.stop(); // waits until the receiver acknowledged the last messages
        const std::vector<double> figures = receiver.finish();
        state.counters["received"] = figures[0];
        state.counters["median_us"] = figures[1];
        state.counters["p99_us"] = figures[2];
        state.counters["skipped"] = static_cast<double>(publisher.framesSkipped());
        state.SetIterationTime(Frames * 2985e-6);
    }
}
BENCHMARK(BM_EmissionToReceipt335Hz)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
