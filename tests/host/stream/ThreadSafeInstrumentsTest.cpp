#include "host/stream/ThreadSafeInstruments.h"
#include "tests/support/LogCapture.h"
#include "tests/support/allocation/AllocationCounter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kestrion;

namespace {

const char* const Category = "ThreadSafeInstruments";
constexpr unsigned Pose = 1, Instruments = 4;

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

TEST(ThreadSafeInstruments, CreateRemoveAndTheMainInstrument) {
    TestSupport::LogCapture capture;
    {
        Registry registry;
        EXPECT_EQ(registry.create(tool(2), std::make_unique<Geometry>(2), true).toInt(), Instruments);
        EXPECT_EQ(registry.create(tool(3), std::make_unique<Geometry>(3), false).toInt(), Instruments);
        EXPECT_EQ(registry.mainId(), "atracsys-2"); // the first becomes main, the second does not

        // Same id again: refused, the first instrument and its geometry stay, the new geometry is dropped.
        EXPECT_TRUE(
            registry.create(TrackerID("atracsys-2", "Other"), std::make_unique<Geometry>(99), false).empty());
        EXPECT_EQ(Geometry::alive.load(), 2);
        EXPECT_EQ(registry.find("atracsys-2")->id.name, "Tool 2");

        // An instrument inserted before the main one in id order moves the main index.
        registry.create(tool(1), nullptr, true);
        EXPECT_EQ(registry.mainIndex(), 1);
        registry.setMain(3); // index == count
        registry.setMainById("atracsys-7");
        EXPECT_EQ(registry.mainId(), "atracsys-2");
        registry.setActive("atracsys-7", true);
        EXPECT_FALSE(registry.isActive("atracsys-7"));
        EXPECT_TRUE(registry.remove("atracsys-9").empty());
        for (const char* message :
             {"create: Instrument with ID atracsys-2 already exists", "Index 3 exceeds size of instruments",
              "setMainById: Instrument with ID atracsys-7 not found",
              "setActive: Instrument with ID atracsys-7 not found",
              "isActive: Instrument with ID atracsys-7 not found",
              "remove: Instrument with ID atracsys-9 not found"})
            EXPECT_TRUE(capture->contains(Log::Error, Category, message)) << message << capture->dump();

        // Removing the main one hands main to the first remaining; removing another keeps main valid.
        EXPECT_EQ(registry.remove("atracsys-2").toInt(), Instruments);
        EXPECT_EQ(Geometry::alive.load(), 1);
        EXPECT_EQ(registry.mainId(), "atracsys-1");
        registry.setMain(1);
        registry.remove("atracsys-1");
        EXPECT_EQ(registry.mainIndex(), 0);
        EXPECT_EQ(registry.mainId(), "atracsys-3");

        EXPECT_EQ(registry.clear().toInt(), Instruments);
        EXPECT_TRUE(registry.clear().empty());
        EXPECT_EQ(Geometry::alive.load(), 0);
        EXPECT_EQ(registry.mainId(), "");
        registry.create(tool(5), std::make_unique<Geometry>(5), true);
        EXPECT_EQ(registry.mainId(), "atracsys-5"); // the only instrument becomes main again
    }
    EXPECT_EQ(Geometry::alive.load(), 0);
}

TEST(ThreadSafeInstruments, ModifyReportsWhatChangedAndUndoesIdChanges) {
    TestSupport::LogCapture capture;
    Registry registry;
    registry.create(tool(1), std::make_unique<Geometry>(1), true);
    registry.create(tool(2), nullptr, true);
    using Modify = std::function<void(TrackingInstrument&)>;
    const auto modify = [&](const Modify& change) {
        return registry
            .modify("atracsys-1", [&](const std::string&, TrackingInstrument& i, Geometry&) { change(i); })
            .toInt();
    };
    EXPECT_EQ(modify([](TrackingInstrument& i) { i.quality = 0.75; }), Pose);
    EXPECT_EQ(modify([](TrackingInstrument& i) { i.quality = 0.75; }), 0u); // same value: no change
    EXPECT_EQ(modify([](TrackingInstrument& i) { i.id.name = "Pointer", i.state = 3; }), Pose | Instruments);
    EXPECT_EQ(modify([](TrackingInstrument& i) { i.id.modelNumber = "X"; }), Instruments);

    // Renaming the id is undone completely, with the message, and reports nothing.
    EXPECT_EQ(modify([](TrackingInstrument& i) { i.id.id = "atracsys-9", i.quality = 0.1; }), 0u);
    EXPECT_TRUE(capture->contains(
        Log::Error, Category,
        "ID must not be modified. TrackingInstrument is reset to state before modification"))
        << capture->dump();
    EXPECT_EQ(registry.find("atracsys-1")->quality, 0.75);

    // No instrument, or no special object.
    int calls = 0;
    registry.modify("atracsys-5", [&](const std::string&, Geometry&) { ++calls; });
    registry.modify("atracsys-2", [&](const std::string&, Geometry&) { ++calls; });
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(capture->contains(Log::Error, Category,
                                  "modify: Special object for instrument with ID atracsys-5 does not exist"));

    // modifyAll: every instrument with a special object, the flags combined.
    registry.create(tool(3), std::make_unique<Geometry>(3), true);
    std::vector<std::string> visited;
    const auto flags = registry.modifyAll([&](const std::string& id, TrackingInstrument& i, Geometry&) {
        visited.push_back(id);
        i.timestamp = 77;
    });
    EXPECT_EQ(visited, (std::vector<std::string>{"atracsys-1", "atracsys-3"}));
    EXPECT_EQ(flags.toInt(), Pose);
    EXPECT_TRUE(capture->contains(
        Log::Error, Category, "modifyAll: Special object for instrument with ID atracsys-2 does not exist"));

    // Snapshots of the special objects are deep copies.
    auto snapshot = registry.specialObjects();
    registry.modify("atracsys-3", [](const std::string&, Geometry& g) { g.onDevice = true; });
    ASSERT_EQ(snapshot.size(), 2u);
    EXPECT_FALSE(snapshot[1].second->onDevice);
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
                                    i.matrix(0, 3) = frame;
                                });
            registry.modify("atracsys-0", [](const std::string&, Geometry& g) { ++g.updates; });
        }
    };
    std::atomic<bool> reading{true};
    std::thread reader([&] {
        while (reading) {
            EXPECT_EQ(registry.instruments().size(), 4u);
            registry.mainInstrument();
        }
    });
    std::thread a(acquisition, 0), b(acquisition, 1);
    a.join();
    b.join();
    reading = false;
    reader.join();
    std::vector<long> updates(4);
    registry.modifyAll([&](const std::string&, Geometry& g) { updates[g.id] = g.updates; });
    // Its own thread once per frame, plus both threads' extra call for instrument 0.
    EXPECT_EQ(updates, (std::vector<long>{3L * Frames, Frames, Frames, Frames}));
}

TEST(ThreadSafeInstruments, FrameUpdatesResetEveryPoseAndAllocateNothing) {
    Registry registry;
    std::vector<std::string> ids;
    for (int n = 0; n < 16; ++n) {
        // Long names and model numbers: copies of them would not fit in a string's own buffer.
        ids.push_back("atracsys-" + std::to_string(1000 + n));
        registry.create(TrackerID(ids.back(), "A marker with a rather long name " + std::to_string(n),
                                  "A model number longer than a short string"),
                        std::make_unique<Geometry>(n), n > 0);
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
        EXPECT_EQ(frame(t).toInt(), Pose);
    EXPECT_EQ(TestSupport::allocationsOnThisThread() - before, 0u);

    // A frame without updates: every pose is reset, identity and active flag stay.
    EXPECT_EQ(registry.prepareUpdate(50).toInt(), Pose);
    EXPECT_TRUE(registry.prepareUpdate(50).empty()); // same frame again: nothing changed
    const auto instruments = registry.instruments();
    for (std::size_t n = 0; n < ids.size(); ++n) {
        TrackingInstrument reset(TrackerID(ids[n], "A marker with a rather long name " + std::to_string(n),
                                           "A model number longer than a short string"),
                                 n > 0);
        reset.timestamp = 50;
        EXPECT_EQ(instruments[n], reset);
    }
}
