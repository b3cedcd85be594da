#include "host/stream/ThreadSafeInstruments.h"
#include "tests/host/stream/AllocationCounter.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kestrion;

namespace {

const char* const Category = "ThreadSafeInstruments";

// A per-instrument device record, counting live copies so that tests see what was deleted.
struct Geometry {
    explicit Geometry(int geometryId)
        : id(geometryId) {
        ++alive;
    }
    Geometry(const Geometry& other)
        : id(other.id)
        , onDevice(other.onDevice)
        , updates(other.updates) {
        ++alive;
    }
    ~Geometry() { --alive; }
    std::unique_ptr<Geometry> clone() const { return std::make_unique<Geometry>(*this); }

    int id;
    bool onDevice = false;
    long updates = 0;
    static inline std::atomic<int> alive{0};
};

using Registry = ThreadSafeInstruments<Geometry>;

TrackerID tool(int n) {
    return TrackerID("atracsys-" + std::to_string(n), "Tool " + std::to_string(n), "M" + std::to_string(n));
}

} // namespace

TEST(ThreadSafeInstruments, CreateAndTheMainInstrument) {
    TestSupport::LogCapture capture;
    {
        Registry registry;
        EXPECT_EQ(registry.mainIndex(), -1);
        EXPECT_FALSE(registry.mainInstrument());
        EXPECT_EQ(registry.create(tool(2), std::make_unique<Geometry>(2), true),
                  InstrumentModifications(InstrumentModification::InstrumentsChanged));
        EXPECT_EQ(registry.mainId(), "atracsys-2"); // the first becomes main
        EXPECT_EQ(registry.create(tool(3), std::make_unique<Geometry>(3), false).toInt(), 4u);
        EXPECT_EQ(registry.mainId(), "atracsys-2"); // the second does not

        // Same id again: refused, the first instrument and its geometry stay, the new geometry is dropped.
        EXPECT_TRUE(
            registry.create(TrackerID("atracsys-2", "Other"), std::make_unique<Geometry>(99), false).empty());
        EXPECT_TRUE(
            capture->contains(Log::Error, Category, "create: Instrument with ID atracsys-2 already exists"))
            << capture->dump();
        EXPECT_EQ(Geometry::alive.load(), 2);
        EXPECT_EQ(registry.find("atracsys-2")->id.name, "Tool 2");
        int geometryId = 0;
        registry.modify("atracsys-2", [&](const std::string&, Geometry& g) { geometryId = g.id; });
        EXPECT_EQ(geometryId, 2);

        // An instrument inserted before the main one in id order moves the main index.
        EXPECT_EQ(registry.mainIndex(), 0);
        registry.create(tool(1), nullptr, true);
        EXPECT_EQ(registry.mainIndex(), 1);
        EXPECT_EQ(registry.mainName(), "Tool 2");

        registry.setMain(3); // index == count
        EXPECT_TRUE(capture->contains(Log::Error, Category, "Index 3 exceeds size of instruments"));
        EXPECT_EQ(registry.mainId(), "atracsys-2");
        registry.setMain(2);
        EXPECT_EQ(registry.mainInstrument()->id.name, "Tool 3");
        registry.setMainById("atracsys-1");
        EXPECT_EQ(registry.mainIndex(), 0);
        registry.setMainById("atracsys-7");
        EXPECT_TRUE(
            capture->contains(Log::Error, Category, "setMainById: Instrument with ID atracsys-7 not found"));
        EXPECT_EQ(registry.mainId(), "atracsys-1");

        registry.setActive("atracsys-3", true);
        EXPECT_TRUE(registry.isActive("atracsys-3"));
        registry.setActive("atracsys-7", true);
        EXPECT_TRUE(
            capture->contains(Log::Error, Category, "setActive: Instrument with ID atracsys-7 not found"));
        EXPECT_FALSE(registry.isActive("atracsys-7"));
        EXPECT_TRUE(
            capture->contains(Log::Error, Category, "isActive: Instrument with ID atracsys-7 not found"));
    }
    EXPECT_EQ(Geometry::alive.load(), 0);
}

TEST(ThreadSafeInstruments, ModifyReportsWhatChangedAndUndoesIdChanges) {
    TestSupport::LogCapture capture;
    Registry registry;
    registry.create(tool(1), std::make_unique<Geometry>(1), true);
    registry.create(tool(2), nullptr, true);

    std::string seenId;
    auto flags =
        registry.modify("atracsys-1", [&](const std::string& id, TrackingInstrument& i, Geometry& g) {
            seenId = id;
            i.matrix(0, 3) = 12.5;
            i.quality = 0.75;
            g.onDevice = true;
        });
    EXPECT_EQ(seenId, "atracsys-1");
    EXPECT_EQ(flags, InstrumentModifications(InstrumentModification::PoseChanged));
    EXPECT_EQ(registry.find("atracsys-1")->matrix(0, 3), 12.5);

    // Writing the same values again changes nothing.
    flags = registry.modify("atracsys-1", [](const std::string&, TrackingInstrument& i, Geometry&) {
        i.matrix(0, 3) = 12.5;
        i.quality = 0.75;
    });
    EXPECT_TRUE(flags.empty());

    flags = registry.modify("atracsys-1", [](const std::string&, TrackingInstrument& i, Geometry&) {
        i.id.name = "Pointer";
        i.state = 3;
    });
    EXPECT_EQ(flags.toInt(), 5u);
    EXPECT_EQ(registry
                  .modify("atracsys-1", [](const std::string&, TrackingInstrument& i,
                                           Geometry&) { i.id.modelNumber = "X"; })
                  .toInt(),
              4u);

    // Renaming the id is undone completely, with the message, and reports nothing.
    flags = registry.modify("atracsys-1", [](const std::string&, TrackingInstrument& i, Geometry&) {
        i.id.id = "atracsys-9";
        i.quality = 0.1;
    });
    EXPECT_TRUE(flags.empty());
    EXPECT_TRUE(capture->contains(
        Log::Error, Category,
        "ID must not be modified. TrackingInstrument is reset to state before modification"))
        << capture->dump();
    const auto one = *registry.find("atracsys-1");
    EXPECT_EQ(one.ID(), "atracsys-1");
    EXPECT_EQ(one.quality, 0.75);
    EXPECT_EQ(registry.size(), 2u);

    // The special-object form.
    bool onDevice = false;
    EXPECT_TRUE(registry.modify("atracsys-1", [&](const std::string&, Geometry& g) { onDevice = g.onDevice; })
                    .empty());
    EXPECT_TRUE(onDevice);

    // No instrument, or no special object.
    int calls = 0;
    EXPECT_TRUE(registry.modify("atracsys-5", [&](const std::string&, Geometry&) { ++calls; }).empty());
    EXPECT_TRUE(registry.modify("atracsys-2", [&](const std::string&, Geometry&) { ++calls; }).empty());
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(capture->contains(Log::Error, Category,
                                  "modify: Special object for instrument with ID atracsys-5 does not exist"));
    EXPECT_TRUE(capture->contains(Log::Error, Category,
                                  "modify: Special object for instrument with ID atracsys-2 does not exist"));

    // modifyAll: every instrument with a special object, the flags combined.
    registry.create(tool(3), std::make_unique<Geometry>(3), true);
    std::vector<std::string> visited;
    flags = registry.modifyAll([&](const std::string& id, TrackingInstrument& i, Geometry&) {
        visited.push_back(id);
        i.timestamp = 77;
    });
    EXPECT_EQ(visited, (std::vector<std::string>{"atracsys-1", "atracsys-3"}));
    EXPECT_EQ(flags.toInt(), 1u);
    EXPECT_TRUE(capture->contains(
        Log::Error, Category, "modifyAll: Special object for instrument with ID atracsys-2 does not exist"));
}

TEST(ThreadSafeInstruments, PrepareUpdateResetsEveryInstrumentForTheFrame) {
    Registry registry;
    EXPECT_TRUE(registry.prepareUpdate(10).empty()); // nothing to change
    registry.create(tool(1), std::make_unique<Geometry>(1), false);
    registry.create(tool(2), std::make_unique<Geometry>(2), true);
    EXPECT_EQ(registry.prepareUpdate(1000).toInt(), 1u); // timestamps 0 -> 1000
    EXPECT_TRUE(registry.prepareUpdate(1000).empty());   // same frame again: nothing changed

    registry.modify("atracsys-2", [](const std::string&, TrackingInstrument& i, Geometry&) {
        i.matrix.block<3, 1>(0, 3) = Eigen::Vector3d(1, 2, 3);
        i.quality = 0.9;
        i.state = 2;
    });
    EXPECT_EQ(registry.prepareUpdate(1000).toInt(), 1u); // the pose of the last frame is cleared
    const auto instruments = registry.instruments();
    ASSERT_EQ(instruments.size(), 2u);
    for (const auto& i : instruments) {
        EXPECT_EQ(i.matrix, Eigen::Matrix4d::Identity());
        EXPECT_EQ(i.quality, 0.0);
        EXPECT_EQ(i.state, 0u);
        EXPECT_EQ(i.timestamp, 1000u);
    }
    EXPECT_EQ(instruments[0].id, tool(1)); // identity and active flag stay
    EXPECT_FALSE(instruments[0].active);
    EXPECT_TRUE(instruments[1].active);
}

TEST(ThreadSafeInstruments, RemoveClearAndSnapshots) {
    TestSupport::LogCapture capture;
    Registry registry;
    for (int n : {1, 2, 3})
        registry.create(tool(n), std::make_unique<Geometry>(n), true);
    EXPECT_EQ(Geometry::alive.load(), 3);

    auto snapshot = registry.specialObjects();
    ASSERT_EQ(snapshot.size(), 3u);
    EXPECT_EQ(snapshot[2].first, "atracsys-3");
    registry.modify("atracsys-3", [](const std::string&, Geometry& g) { g.onDevice = true; });
    EXPECT_FALSE(snapshot[2].second->onDevice); // deep copies
    snapshot.clear();

    EXPECT_TRUE(registry.remove("atracsys-9").empty());
    EXPECT_TRUE(capture->contains(Log::Error, Category, "remove: Instrument with ID atracsys-9 not found"));
    EXPECT_EQ(registry.remove("atracsys-1").toInt(), 4u); // the main one: the first remaining takes over
    EXPECT_EQ(Geometry::alive.load(), 2);
    EXPECT_EQ(registry.mainId(), "atracsys-2");
    EXPECT_EQ(registry.mainIndex(), 0);
    registry.setMain(1);
    EXPECT_EQ(registry.remove("atracsys-2").toInt(), 4u); // not the main one: main moves to index 0
    EXPECT_EQ(registry.mainId(), "atracsys-3");
    EXPECT_EQ(registry.mainIndex(), 0);

    EXPECT_EQ(registry.clear().toInt(), 4u);
    EXPECT_TRUE(registry.clear().empty());
    EXPECT_EQ(Geometry::alive.load(), 0);
    EXPECT_EQ(registry.mainId(), "");
    EXPECT_EQ(registry.mainName(), "");
    EXPECT_EQ(registry.create(tool(5), nullptr, true).toInt(), 4u);
    EXPECT_EQ(registry.mainId(), "atracsys-5"); // the only instrument becomes main again
}

TEST(ThreadSafeInstruments, ConcurrentModifyFromSeveralThreads) {
    Registry registry;
    for (int n = 0; n < 4; ++n)
        registry.create(tool(n), std::make_unique<Geometry>(n), true);
    constexpr int Frames = 2000;
    auto acquisition = [&](int first) {
        for (int frame = 0; frame < Frames; ++frame) {
            registry.prepareUpdate(static_cast<unsigned long long>(frame));
            for (int n = first; n < 4; n += 2)
                registry.modify("atracsys-" + std::to_string(n),
                                [&](const std::string&, TrackingInstrument& i, Geometry& g) {
                                    ++g.updates;
                                    i.quality = 1.0;
                                    i.matrix(0, 3) = frame;
                                });
            // Every instrument is also updated by both threads through the same entries.
            registry.modify("atracsys-0", [](const std::string&, Geometry& g) { ++g.updates; });
        }
    };
    std::atomic<bool> reading{true};
    std::thread reader([&] {
        while (reading) {
            const auto all = registry.instruments();
            ASSERT_EQ(all.size(), 4u);
            registry.mainInstrument();
            registry.isActive("atracsys-1");
        }
    });
    std::thread a(acquisition, 0), b(acquisition, 1);
    a.join();
    b.join();
    reading = false;
    reader.join();
    long updates[4] = {};
    registry.modifyAll([&](const std::string&, Geometry& g) { updates[g.id] = g.updates; });
    EXPECT_EQ(updates[0], 3L * Frames); // its own thread once per frame, plus both threads' extra call
    EXPECT_EQ(updates[1], 1L * Frames);
    EXPECT_EQ(updates[2], 1L * Frames);
    EXPECT_EQ(updates[3], 1L * Frames);
}

TEST(ThreadSafeInstruments, FrameUpdatesAllocateNothing) {
    Registry registry;
    std::vector<std::string> ids;
    for (int n = 0; n < 16; ++n) {
        // Long names and model numbers: copies of them would not fit in a string's own buffer.
        ids.push_back("atracsys-" + std::to_string(1000 + n));
        registry.create(TrackerID(ids.back(), "A marker with a rather long name " + std::to_string(n),
                                  "A model number longer than a short string"),
                        std::make_unique<Geometry>(n), true);
    }
    auto frame = [&](unsigned long long timestamp) {
        InstrumentModifications flags = registry.prepareUpdate(timestamp);
        for (const auto& id : ids)
            flags |= registry.modify(id, [&](const std::string&, TrackingInstrument& i, Geometry& g) {
                i.matrix(0, 3) = static_cast<double>(timestamp);
                i.quality = 0.9;
                g.updates++;
            });
        return flags;
    };
    frame(1); // the first frame may size the reused buffers
    const std::size_t before = TestSupport::allocationsOnThisThread();
    for (unsigned long long t = 2; t < 50; ++t)
        EXPECT_EQ(frame(t).toInt(), 1u);
    EXPECT_EQ(TestSupport::allocationsOnThisThread() - before, 0u);
}
