#include "host/core/Progress.h"
#include "host/core/ConsoleProgress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <sstream>
#include <thread>

using namespace Kestrion;
using namespace std::chrono_literals;

namespace {

// Records every notification as "event description done/steps" and lets a test wait for one.
class RecordingProgress : public Progress {
public:
    ~RecordingProgress() override { detachTasks(); }

    std::vector<std::string> events() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    // Waits until a task reports at least `done` steps; false after 10 s.
    bool waitForDone(int done) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, 10s, [&] { return m_lastDone >= done; });
    }

protected:
    void taskAdded(const std::shared_ptr<ProgressTaskState>& task) override { record("added", *task); }
    void taskChanged(const std::shared_ptr<ProgressTaskState>& task) override { record("changed", *task); }
    void taskFinished(const std::shared_ptr<ProgressTaskState>& task) override {
        record(task->isCanceled() ? "canceled" : "finished", *task);
    }

private:
    void record(const std::string& event, const ProgressTaskState& task) {
        std::lock_guard<std::mutex> lock(m_mutex); // the test thread reads what the worker records
        m_events.push_back(event + " " + task.description() + " " + std::to_string(task.done()) + "/" +
                           std::to_string(task.steps()));
        m_lastDone = task.done();
        m_changed.notify_all();
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_events;
    int m_lastDone = 0;
};

} // namespace

TEST(Progress, TasksReportChangesAndFinishExactlyOnce) {
    RecordingProgress progress;
    {
        ProgressTask task = progress.addTask(500, "Record geometry...");
        task.setProgress(120);
        task.setProgress(120); // no change, no notification
        EXPECT_DOUBLE_EQ(task.state()->fraction(), 0.24);
        task.setDescription("Optimize...");
        ProgressTask second = progress.addTask(0, "Waiting");
        EXPECT_EQ(second.state()->fraction(), -1.0);
        ProgressTask moved = std::move(second);
        second.setProgress(3); // a moved-from handle does nothing
        moved.finish();
        EXPECT_EQ(progress.tasks(), (std::vector<std::shared_ptr<ProgressTaskState>>{task.state()}));
    }
    EXPECT_TRUE(progress.tasks().empty());
    EXPECT_EQ(progress.events(), (std::vector<std::string>{
                                     "added Record geometry... 0/500", "changed Record geometry... 120/500",
                                     "changed Optimize... 120/500", "added Waiting 0/0",
                                     "finished Waiting 0/0", "finished Optimize... 120/500"}));

    // A task that outlives its Progress.
    auto display = std::make_unique<RecordingProgress>();
    ProgressTask survivor = display->addTask(10, "Long");
    std::shared_ptr<ProgressTaskState> state = survivor.state();
    display.reset();
    survivor.setProgress(5);
    survivor.finish();
    EXPECT_TRUE(state->isFinished());
    EXPECT_EQ(state->done(), 5);
}

TEST(Progress, CancelFromAnotherThreadStopsTheWorker) {
    RecordingProgress progress;
    std::shared_ptr<ProgressTaskState> seen;
    int stoppedAt = -1;
    std::thread worker([&] {
        ProgressTask task = progress.addTask(1000000, "Record geometry...");
        int done = 0;
        while (!task.wasCanceled() && done < 1000000)
            task.setProgress(++done);
        stoppedAt = done;
    });
    // The display thread sees the task move, reads it while it changes, then cancels it.
    ASSERT_TRUE(progress.waitForDone(10)) << "the worker never reported";
    for (const auto& task : progress.tasks()) {
        EXPECT_GE(task->done(), 10);
        seen = task;
        task->cancel();
    }
    worker.join();
    ASSERT_NE(seen, nullptr);
    EXPECT_LT(stoppedAt, 1000000);
    EXPECT_EQ(progress.events().back(),
              "canceled Record geometry... " + std::to_string(stoppedAt) + "/1000000");
    EXPECT_TRUE(progress.tasks().empty());
}

TEST(Progress, ConsoleLinesAreThrottledAndSayHowTheTaskEnded) {
    std::ostringstream quiet;
    {
        ConsoleProgress console(quiet, std::chrono::hours(1), false);
        ProgressTask task = console.addTask(1000, "Record geometry...");
        for (int i = 1; i <= 1000; ++i)
            task.setProgress(i);
    }
    EXPECT_EQ(quiet.str(), "Record geometry... 0/1000 (0%)\nRecord geometry... 1000/1000 (100%) done\n");

    std::ostringstream every;
    {
        ConsoleProgress console(every, std::chrono::milliseconds(0), false);
        ProgressTask task = console.addTask(3, "Step");
        task.setProgress(1);
        task.setProgress(2);
        task.cancel();
    }
    EXPECT_EQ(every.str(), "Step 0/3 (0%)\nStep 1/3 (33%)\nStep 2/3 (66%)\nStep 2/3 (66%) canceled\n");

    std::ostringstream terminal;
    {
        ConsoleProgress console(terminal, std::chrono::milliseconds(0), true);
        ProgressTask task = console.addTask(0, "Searching the camera");
        task.setProgress(12);
        task.setDescription("Found");
    }
    EXPECT_EQ(terminal.str(), "\rSearching the camera 0\rSearching the camera 12\rFound 12               "
                              "\rFound 12 done\n");
}
