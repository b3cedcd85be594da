// Once warmed up, fetching frames allocates nothing. Counted by replacing the global allocation
// functions, which the library's allocations also go through: an executable of its own.

#include "tests/simulator/SimulatorTestSupport.h"

#include <atomic>
#include <cstdlib>
#include <new>

static std::atomic<long> allocations{0};

void* operator new(std::size_t size) {
    ++allocations;
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

using namespace Kestrion::SimulatorTest;

TEST(Allocation, FetchingFramesAllocatesNothingOnceWarmedUp) {
    SceneGuard scene;
    Camera camera(Camera::Capacities{true});
    camera.registerDefaultMarkers();
    // The default scene repeats every 84 s (markers of 12 s and 7 s periods): after one cycle
    // every buffer has met the busiest frame of the scene, and both markers are seen all along.
    // Images (fixed in size) are sent at the start and the end only, to keep the test quick.
    constexpr int Cycle = 84 * 54;
    const auto run = [&](int frames, bool images) {
        ASSERT_EQ(camera.setInt(6003, images ? 1 : 0), ftkError::FTK_OK);
        for (int i = 0; i < frames; ++i) {
            ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
            ASSERT_EQ(+camera.frame->markersCount, 2u);
            ASSERT_EQ(camera.frame->imageLeftStat,
                      images ? ftkQueryStatus::QS_OK : ftkQueryStatus::QS_WAR_SKIPPED);
        }
    };
    run(50, true);
    run(Cycle - 50, false);
    const long before = allocations.load();
    run(Cycle - 100, false);
    const long afterFrames = allocations.load();
    run(100, true);
    EXPECT_EQ(afterFrames - before, 0);
    EXPECT_EQ(allocations.load() - afterFrames, 0) << "the option call itself may not allocate either";
}
