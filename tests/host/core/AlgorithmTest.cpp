#include "host/core/Algorithm.h"
#include "host/core/Parameter.h"
#include "host/core/Progress.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Kestrion;

namespace {

struct Image : Data {
    using Data::Data;
};
struct Geometry : Data {
    using Data::Data;
};

// Counts up to "limit", reporting progress, until done or canceled; fails on a zero limit.
class Counter : public Algorithm {
public:
    void compute() override {
        if (limit == 0) {
            setStatus(Error);
            return;
        }
        ProgressTask task = addProgressTask(limit, "Counting");
        count = 0;
        while (count < limit && !task.wasCanceled())
            task.setProgress(++count);
        setStatus(Success);
    }

    Parameter<int> limit{"limit", 100, this};
    int count = 0;
};

class Watcher : public Progress {
public:
    ~Watcher() override { detachTasks(); }
    int added = 0;

protected:
    void taskAdded(const std::shared_ptr<ProgressTaskState>& task) override {
        ++added;
        if (task->description() == "Counting")
            task->cancel(); // a display that stops the work at once
    }
};

} // namespace

TEST(Algorithm, ComputesReportsStatusAndUsesItsProgress) {
    Counter counter;
    counter.compute();
    EXPECT_EQ(counter.count, 100) << "without a Progress the work still runs";

    Watcher watcher;
    counter.setProgress(&watcher);
    counter.compute();
    EXPECT_EQ(watcher.added, 1);
    EXPECT_EQ(counter.count, 0) << "the display canceled the task before the first step";

    counter.limit = 0;
    counter.compute();
    EXPECT_EQ(counter.status(), Algorithm::Error);
}

TEST(Algorithm, DefaultCreationHookRefusesAndDataListsFilterByType) {
    Algorithm* created = reinterpret_cast<Algorithm*>(&created); // not null, so a reset is visible
    EXPECT_FALSE(Algorithm::createCompatible(DataList(), &created));
    EXPECT_EQ(created, nullptr);

    const DataList input{std::make_shared<Image>("left"), nullptr, std::make_shared<Geometry>("tool"),
                         std::make_shared<Image>("right")};
    EXPECT_EQ(input.size(), 3u) << "null items are not kept";
    const auto images = input.getAll<Image>();
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(images[1]->name(), "right");
    EXPECT_EQ(input.getFirst<Geometry>()->name(), "tool");
}

TEST(Algorithm, ComputeOnAWorkerWhileTheHostReadsStatusAndCancels) {
    class Slow : public Algorithm {
    public:
        void compute() override {
            setStatus(Error);
            ProgressTask task = addProgressTask(0, "Waiting for cancel");
            while (!task.wasCanceled())
                std::this_thread::yield();
            setStatus(Success);
        }
    };
    Progress progress;
    Slow slow;
    slow.setProgress(&progress);
    std::thread worker([&] { slow.compute(); });
    while (progress.tasks().empty())
        std::this_thread::yield();
    EXPECT_EQ(slow.status(), Algorithm::Error);
    progress.cancelAll();
    worker.join();
    EXPECT_EQ(slow.status(), Algorithm::Success);
}
