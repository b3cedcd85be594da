#include "host/core/Algorithm.h"
#include "host/core/Parameter.h"
#include "host/core/Progress.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Kestrion;

namespace {

struct ImageItem : Data {
    using Data::Data;
};
struct GeometryItem : Data {
    using Data::Data;
};

// Counts up to "limit" (0 means: until canceled), reporting progress; a negative limit is an error.
class Counter : public Algorithm {
public:
    void compute() override {
        setStatus(Error);
        if (limit < 0)
            return;
        ProgressTask task = addProgressTask(limit, "Counting");
        count = 0;
        while ((limit == 0 || count < limit) && !task.wasCanceled())
            task.setProgress(++count);
        setStatus(Success);
    }
    Parameter<int> limit{"limit", 100, this};
    int count = 0;
};

} // namespace

TEST(Algorithm, ComputesWithoutAProgressAndReportsItsStatus) {
    Counter counter;
    counter.compute();
    EXPECT_EQ(counter.count, 100) << "without a Progress the work still runs";
    EXPECT_EQ(counter.status(), Algorithm::Success);
    counter.limit = -1;
    counter.compute();
    EXPECT_EQ(counter.status(), Algorithm::Error);
}

TEST(Algorithm, ComputeOnAWorkerWhileTheHostReadsStatusAndCancels) {
    Progress progress;
    Counter counter;
    counter.limit = 0;
    counter.setProgress(&progress);
    std::thread worker([&] { counter.compute(); });
    // The display thread reads the task while the worker moves it, then cancels.
    std::vector<std::shared_ptr<ProgressTaskState>> tasks;
    while ((tasks = progress.tasks()).empty() || tasks[0]->done() < 10)
        std::this_thread::yield();
    EXPECT_EQ(tasks[0]->description(), "Counting");
    EXPECT_EQ(counter.status(), Algorithm::Error);
    progress.cancelAll();
    worker.join();
    EXPECT_EQ(counter.status(), Algorithm::Success);
    EXPECT_TRUE(tasks[0]->isCanceled());
    EXPECT_TRUE(progress.tasks().empty());
}

TEST(Algorithm, DefaultCreationHookRefusesAndDataListsFilterByType) {
    Algorithm* created = reinterpret_cast<Algorithm*>(&created); // not null, so a reset is visible
    EXPECT_FALSE(Algorithm::createCompatible(DataList(), &created));
    EXPECT_EQ(created, nullptr);

    const DataList input{std::make_shared<ImageItem>("left"), nullptr, std::make_shared<GeometryItem>("tool"),
                         std::make_shared<ImageItem>("right")};
    EXPECT_EQ(input.size(), 3u) << "null items are not kept";
    const auto images = input.getAll<ImageItem>();
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(images[1]->name(), "right");
    EXPECT_EQ(input.getFirst<GeometryItem>()->name(), "tool");
}
