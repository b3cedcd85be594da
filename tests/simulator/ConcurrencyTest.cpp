// Fetching while other threads change geometries and options, inject faults and open handles.

#include "tests/simulator/SimulatorTestSupport.h"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

using namespace Kestrion::SimulatorTest;

TEST(Concurrency, FetchingWhileGeometriesOptionsAndHandlesChangeOnOtherThreads) {
    SceneGuard scene; // default scene, stepped clock
    const size_t libraries = ftkSimLiveLibraries();
    const size_t frames = ftkSimLiveFrames();
    {
        Camera camera(Camera::Capacities{true});
        const ftkGeometry b = makeGeometry(1001, Marker1001);
        ASSERT_EQ(camera.setGeometry(makeGeometry(1000, Marker1000)), ftkError::FTK_OK);
        const uint32 tolerance = camera.option("Distance matching tolerance");
        std::atomic<bool> stop{false};
        std::atomic<int> badFrames{0};

        std::thread geometries([&] {
            for (int i = 0; i < 400; ++i) {
                EXPECT_EQ(camera.setGeometry(b), ftkError::FTK_OK);
                EXPECT_EQ(ftkClearGeometry(camera.lib, camera.serial, 1001), ftkError::FTK_OK);
            }
        });
        std::thread options([&] {
            for (int i = 0; i < 400; ++i) {
                EXPECT_EQ(camera.setInt(6003, i % 2), ftkError::FTK_OK);
                EXPECT_EQ(camera.setFloat(tolerance, i % 2 ? 1.0f : 2.0f), ftkError::FTK_OK);
                EXPECT_EQ(camera.getInt(60), ftkError::FTK_OK);
            }
        });
        std::thread control([&] {
            auto truth = std::make_unique<ftkSimFrameTruth>();
            for (int i = 0; i < 200; ++i) {
                ftkSimGetFrameTruth(camera.lib, camera.serial, truth.get());
                EXPECT_TRUE(ftkSimInjectFault(camera.serial, R"({"kind": "skipped"})"));
                Camera other;
                EXPECT_EQ(other.fetch(), ftkError::FTK_OK);
            }
        });
        std::thread fetcher([&] {
            uint32 previous = 0;
            while (!stop.load()) {
                if (camera.fetch() != ftkError::FTK_OK) {
                    ++badFrames;
                    continue;
                }
                const ftkFrameQuery& f = *camera.frame;
                // Every marker is one of the registered geometries; counters only grow.
                for (uint32 m = 0; m < f.markersCount; ++m) {
                    if (f.markers[m].geometryId != 1000 && f.markers[m].geometryId != 1001) {
                        ++badFrames;
                    }
                }
                if (f.imageHeader->counter <= previous) {
                    ++badFrames;
                }
                previous = f.imageHeader->counter;
            }
        });
        geometries.join();
        options.join();
        control.join();
        stop = true;
        fetcher.join();
        EXPECT_EQ(badFrames.load(), 0);
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
        EXPECT_NE(findMarker(*camera.frame, 1000), nullptr);
    }
    EXPECT_EQ(ftkSimLiveLibraries(), libraries);
    EXPECT_EQ(ftkSimLiveFrames(), frames);
}

// A fetch waits for a newer frame up to its timeout, keeping its record's frame, and holds up no
// other call on the device meanwhile.
TEST(Concurrency, AFetchWaitsForANewerFrameWithoutHoldingUpOtherCalls) {
    SceneGuard scene(R"({"devices": [{"serial": 9, "rateHz": 0.5}]})", false); // a frame every 2 s
    Camera camera;
    ASSERT_EQ(camera.fetch(0), ftkError::FTK_OK) << "the current frame is there at once";
    const uint32 counter = camera.frame->imageHeader->counter;
    std::atomic<bool> waiting{true};
    std::chrono::steady_clock::duration waited{};
    std::thread fetcher([&] {
        const auto before = std::chrono::steady_clock::now();
        EXPECT_EQ(camera.fetch(1500), ftkError::FTK_WAR_NO_FRAME);
        waited = std::chrono::steady_clock::now() - before;
        waiting = false;
    });
    EXPECT_EQ(camera.setInt(16, 100), ftkError::FTK_OK);
    EXPECT_EQ(camera.setGeometry(makeGeometry(1000, Marker1000)), ftkError::FTK_OK);
    Camera other; // a record that has not seen the current frame yet gets it at once
    EXPECT_EQ(other.fetch(0), ftkError::FTK_OK);
    EXPECT_EQ(+other.frame->imageHeader->counter, counter);
    EXPECT_TRUE(waiting.load());
    fetcher.join();

    EXPECT_GE(waited, std::chrono::milliseconds(1500));
    EXPECT_EQ(+camera.frame->imageHeader->counter, counter) << "the record keeps its frame";
    EXPECT_NE(camera.errorText().find("<warning code=\"-1\" name=\"FTK_WAR_NO_FRAME\">"), std::string::npos)
        << camera.errorText();
    // Long enough for the next one: it is delivered as soon as it exists.
    ASSERT_EQ(camera.fetch(3000), ftkError::FTK_OK);
    EXPECT_EQ(+camera.frame->imageHeader->counter, counter + 1);
}

// A fetch waiting for the next frame of a slow camera (one every 10 s) sees an unplugging and a
// switch to the stepped clock as they happen, not at the next frame.
TEST(Concurrency, AWaitingFetchSeesAnUnpluggingAndAClockChangeAtOnce) {
    const std::pair<const char*, ftkError> events[] = {{"unplugged", ftkError::FTK_ERR_DISCONNECTION},
                                                       {"stepped", ftkError::FTK_OK}};
    for (const auto& [event, expected] : events) {
        SCOPED_TRACE(event);
        SceneGuard scene(R"({"devices": [{"serial": 9, "rateHz": 0.1}]})", false);
        Camera camera;
        ASSERT_EQ(camera.fetch(100), ftkError::FTK_OK); // frame 0, there from the start
        std::atomic<bool> returned{false};
        ftkError status = ftkError::FTK_OK;
        std::chrono::steady_clock::time_point returnedAt;
        std::thread fetcher([&] {
            status = camera.fetch(20000);
            returnedAt = std::chrono::steady_clock::now();
            returned = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the fetch is waiting by then
        EXPECT_FALSE(returned.load()) << "no frame for 10 s";
        const auto firedAt = std::chrono::steady_clock::now();
        if (std::string(event) == "unplugged")
            ASSERT_TRUE(ftkSimInjectFault(9, R"({"kind": "disconnection"})"));
        else
            ftkSimSetSteppedClock(true);
        fetcher.join();
        EXPECT_EQ(status, expected) << camera.errorText();
        EXPECT_LT(returnedAt - firedAt, std::chrono::seconds(5)) << "seen at once, not at the next frame";
    }
}
