#include "host/core/Log.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

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

TEST(Log, LevelsFilterGloballyAndPerCategoryAndRejectedMessagesAreNeverBuilt) {
    TestSupport::LogCapture capture(Log::Warning);
    int builds = 0;
    KESTRION_LOG_INFO("Cat", Counted{&builds});
    EXPECT_EQ(builds, 0);
    KESTRION_LOG_WARN("Cat", Counted{&builds});
    EXPECT_EQ(builds, 1);
    EXPECT_TRUE(capture->contains(Log::Warning, "Cat", "built"));

    Log::setCategoryLevel("Noisy", Log::Error);
    EXPECT_FALSE(Log::isAccepted(Log::Warning, "Noisy"));
    EXPECT_TRUE(Log::isAccepted(Log::Error, "Noisy"));
    EXPECT_TRUE(Log::isAccepted(Log::Warning, "Other"));
    Log::clearCategoryLevels();
    EXPECT_TRUE(Log::isAccepted(Log::Warning, "Noisy"));
}
