// The tracking stream cycled open, start, stop, close for a long time (KESTRION_SOAK_SECONDS,
// default 60) with images and fiducial mode switched, while one thread adds and removes a marker
// and another changes the integration time: memory stays flat, every handle is given back.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/core/Log.h"
#include "host/core/LogSink.h"
#include "host/stream/CompoundStreamData.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <unistd.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;
using Kestrion::SpryTrack::AtracsysTrackingStream;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool AddressSanitizer = true;
#else
constexpr bool AddressSanitizer = false;
#endif

/// Resident memory of this process, in bytes.
std::size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::size_t size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

/// Keeps the first warnings and errors from every thread and counts them all (a capture of every
/// record would grow for the whole run). A removal while the stream is closed is refused (no
/// camera connected), so the next add finds the marker still there: those two lines are the
/// expected outcome of the race between the threads, not problems.
class ProblemSink : public LogSink {
public:
    void write(const LogRecord& record) override {
        if (record.level < Log::Warning ||
            record.message ==
                "AtracsysTracking: Cannot remove geometry with id atracsys-1000 from tracking system" ||
            record.message == "create: Instrument with ID atracsys-1000 already exists" ||
            (record.message.rfind("AtracsysTrackingStream: Cannot add the geometry of ", 0) == 0 &&
             record.message.find(": its instrument id atracsys-1000 is that of the geometry loaded from ") !=
                 std::string::npos))
            return; // a remove refused while closed keeps the marker, so the next add finds it there
        std::lock_guard<std::mutex> lock(mutex); // records come from the test's three threads
        if (++problems <= 20)
            first += record.category + ": " + record.message + "\n";
    }
    std::mutex mutex;
    std::size_t problems = 0;
    std::string first;
};

} // namespace

TEST(StreamSoak, CyclesWithGeometryAndSettingChangesKeepMemoryFlat) {
    SceneGuard scene("tracking.json");
    ftkSimSetSteppedClock(false); // frames at the camera's own rate, as in use
    auto problems = std::make_shared<ProblemSink>();
    Log::setConsoleEnabled(false);
    const int previousLevel = Log::globalLevel();
    Log::setGlobalLevel(Log::Warning);
    Log::addSink(problems);

    const HeldResources baseline;
    const char* soakSeconds = std::getenv("KESTRION_SOAK_SECONDS");
    const double seconds = soakSeconds && std::atof(soakSeconds) > 0 ? std::atof(soakSeconds) : 60.0;
    std::size_t rssStart = 0;
    std::size_t cycles = 0;
    std::atomic<std::size_t> frames{0};
    std::atomic<std::size_t> withImages{0};
    std::atomic<std::size_t> geometryChanges{0};
    std::atomic<bool> done{false};
    {
        ProbedStream stream;
        auto counter = stream.signalStreamData.connect([&](std::shared_ptr<const StreamData> data) {
            auto* compound = dynamic_cast<const CompoundStreamData*>(data.get());
            if (compound && !compound->subData().empty())
                ++withImages;
            ++frames;
        });
        ASSERT_TRUE(stream.addGeometry("reference", dataFile("geometry1001.ini")));

        // One open/start/stop/close cycle; the images and the fiducial mode change before it.
        auto cycle = [&](std::size_t n) {
            stream.setQueryImages(n % 2 == 1);
            stream.setFiducialQueryMode(AtracsysTrackingStream::FiducialQueryMode(n % 4));
            if (!stream.open())
                return false;
            for (int run = 0; run < 2; ++run) {
                const std::size_t seen = frames.load();
                if (!stream.start() || !waitFor([&] { return frames.load() > seen + 5; }))
                    return false;
                if (!stream.stop())
                    return false;
            }
            return stream.close();
        };
        // Warm-up: the first cycle fills the pools and caches that then stay.
        ASSERT_TRUE(cycle(0));
        ASSERT_TRUE(cycle(1));
        rssStart = residentBytes();

        std::thread geometries([&] {
            // Adds and removes a marker, whatever state the stream is in.
            while (!done.load()) {
                stream.addGeometry("tool", dataFile("geometry1000.ini"));
                std::this_thread::sleep_for(std::chrono::milliseconds(3));
                stream.removeGeometry("atracsys-1000");
                ++geometryChanges;
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        std::thread settings([&] {
            while (!done.load()) {
                const int time = stream.imageIntegrationTime();
                if (time > 0)
                    stream.setImageIntegrationTime(time == 300 ? 250 : 300);
                std::this_thread::sleep_for(std::chrono::milliseconds(7));
            }
        });
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        bool ok = true;
        while (ok && std::chrono::steady_clock::now() < end)
            ok = cycle(2 + cycles++);
        done = true;
        geometries.join();
        settings.join();
        counter.disconnect();
        EXPECT_TRUE(ok) << "cycle " << cycles << " failed";
        EXPECT_TRUE(stream.close());
    }
    const std::size_t rssEnd = residentBytes();
    Log::removeSink(problems);
    Log::setGlobalLevel(previousLevel);
    Log::setConsoleEnabled(true);

    std::printf(
        "soak: %.0f s, %zu cycles, %zu frames (%zu with images), %zu geometry add/remove, RSS %.1f MB "
        "at start, %.1f MB at end\n",
        seconds, cycles, frames.load(), withImages.load(), geometryChanges.load(), rssStart / 1048576.0,
        rssEnd / 1048576.0);
    EXPECT_TRUE(cycles > 2 && withImages.load() > 0 && geometryChanges.load() > 10);
    EXPECT_EQ(problems->problems, 0u) << problems->first;
    baseline.expectBaseline("after the soak");
    // Generous: noise of the allocator and of the images in flight stays well below this. Under
    // AddressSanitizer freed memory sits in its quarantine (up to 256 MB) before it is reused.
    const std::size_t bound = 48u * 1048576u + (AddressSanitizer ? 300u * 1048576u : 0u);
    EXPECT_LT(rssEnd, rssStart + bound) << "memory grew by " << (rssEnd - rssStart) / 1048576.0 << " MB";
}
