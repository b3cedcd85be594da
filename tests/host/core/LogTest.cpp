#include "host/core/Log.h"
#include "host/core/Flags.h"
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

enum class Bits : unsigned { None = 0, A = 1, B = 2, C = 4, AC = 5 };
KESTRION_FLAG_OPERATORS(Bits)

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

    EXPECT_EQ(Log::parseLevel("WARNING"), Log::Warning);
    EXPECT_EQ(Log::parseLevel("4"), Log::Error);
    EXPECT_EQ(Log::parseLevel("9"), -1);
}

TEST(Flags, AZeroFlagIsSetOnlyInAnEmptySetAndACombinedFlagNeedsEveryBit) {
    Flags<Bits> f;
    EXPECT_TRUE(f.testFlag(Bits::None));
    f |= Bits::A;
    EXPECT_FALSE(f.testFlag(Bits::None));
    EXPECT_FALSE(f.testFlag(Bits::AC));
    f = f | Bits::C;
    EXPECT_TRUE(f.testFlag(Bits::AC));
    f.setFlag(Bits::A, false);
    EXPECT_EQ(f, Flags<Bits>::fromInt(4));
}
