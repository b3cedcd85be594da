#include "host/core/Log.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Kestrion;

namespace {

struct Counted {
    int* builds;
};

std::ostream& operator<<(std::ostream& out, const Counted& c) {
    ++*c.builds;
    return out << "built";
}

} // namespace

TEST(Log, MessagesBelowTheGlobalLevelAreNeverBuilt) {
    TestSupport::LogCapture capture(Log::Warning);
    int builds = 0;
    KESTRION_LOG_DEBUG("Cat", Counted{&builds});
    KESTRION_LOG_INFO("Cat", Counted{&builds});
    EXPECT_EQ(builds, 0);
    EXPECT_EQ(capture->size(), 0u);
    KESTRION_LOG_WARN("Cat", Counted{&builds});
    EXPECT_EQ(builds, 1);
    EXPECT_TRUE(capture->contains(Log::Warning, "Cat", "built"));
}

TEST(Log, CategoryLevelsFilterOnTopOfTheGlobalLevel) {
    TestSupport::LogCapture capture(Log::Debug);
    Log::setCategoryLevel("Noisy", Log::Error);
    EXPECT_FALSE(Log::isAccepted(Log::Warning, "Noisy"));
    EXPECT_TRUE(Log::isAccepted(Log::Error, "Noisy"));
    EXPECT_TRUE(Log::isAccepted(Log::Debug, "Other"));
    EXPECT_FALSE(Log::isAccepted(Log::Trace, "Other"));
    Log::clearCategoryLevels();
    EXPECT_TRUE(Log::isAccepted(Log::Warning, "Noisy"));
}

TEST(Log, CaptureRecordsExactLevelCategoryAndMessageFromManyThreads) {
    TestSupport::LogCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 100; ++i)
                KESTRION_LOG_ERROR("T" + std::to_string(t), "message " << i);
        });
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(capture->size(), 400u);
    EXPECT_EQ(capture->count(Log::Error, "T2", "message 99"), 1u);
    EXPECT_EQ(capture->count(Log::Warning, "T2", "message 99"), 0u);
    EXPECT_EQ(capture->countContaining("message 5"), 4u * 11u);
}

TEST(Log, LevelNamesParse) {
    EXPECT_EQ(Log::parseLevel("debug"), Log::Debug);
    EXPECT_EQ(Log::parseLevel("WARNING"), Log::Warning);
    EXPECT_EQ(Log::parseLevel("4"), Log::Error);
    EXPECT_EQ(Log::parseLevel("loud"), -1);
    EXPECT_EQ(Log::parseLevel("9"), -1);
}
