#include "host/core/Progress.h"
#include "host/core/ConsoleProgress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

using namespace Kestrion;
using namespace std::chrono_literals;

namespace {

// Records every notification as "event description done/steps".
class RecordingProgress : public Progress {
public:
    ~RecordingProgress() override { detachTasks(); }
    std::vector<std::string> events;

protected:
    void taskAdded(const std::shared_ptr<ProgressTaskState>& task) override { record("added", *task); }
    void taskChanged(const std::shared_ptr<ProgressTaskState>& task) override { record("changed", *task); }
    void taskFinished(const std::shared_ptr<ProgressTaskState>& task) override {
        record(task->isCanceled() ? "canceled" : "finished", *task);
    }

private:
    void record(const std::string& event, const ProgressTaskState& task) {
        events.push_back(event + " " + task.description() + " " + std::to_string(task.done()) + "/" +
                         std::to_string(task.steps()));
    }
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
    EXPECT_EQ(progress.events, (std::vector<std::string>{
                                   "added Record geometry... 0/500", "changed Record geometry... 120/500",
                                   "changed Optimize... 120/500", "added Waiting 0/0", "finished Waiting 0/0",
                                   "finished Optimize... 120/500"}));

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

TEST(Progress, ConsoleLinesAreThrottledAndSayHowTheTaskEnded) {
    std::ostringstream quiet;
    {
        ConsoleProgress console(quiet, std::chrono::hours(1), false);
        ProgressTask task = console.addTask(1000, "Record geometry...");
        for (int i = 1; i <= 333; ++i)
            task.setProgress(i);
        task.cancel();
    }
    EXPECT_EQ(quiet.str(), "Record geometry... 0/1000 (0%)\nRecord geometry... 333/1000 (33%) canceled\n");

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
