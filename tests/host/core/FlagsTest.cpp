#include "host/core/Flags.h"

#include <gtest/gtest.h>

namespace {
enum class Bits : unsigned { None = 0, A = 1, B = 2, C = 4, AC = 5 };
KESTRION_FLAG_OPERATORS(Bits)
} // namespace

using Kestrion::Flags;

TEST(Flags, CombineTestAndClear) {
    Flags<Bits> f;
    EXPECT_TRUE(f.empty());
    EXPECT_TRUE(f.testFlag(Bits::None)); // a zero flag is set only in an empty set
    f |= Bits::A;
    f = f | Bits::C;
    EXPECT_EQ(f.toInt(), 5u);
    EXPECT_FALSE(f.testFlag(Bits::None));
    EXPECT_TRUE(f.testFlag(Bits::AC));
    EXPECT_FALSE(f.testFlag(Bits::B));
    EXPECT_FALSE((Flags<Bits>(Bits::A)).testFlag(Bits::AC)); // every bit of a combined flag is needed
    EXPECT_TRUE(f.testAny(Bits::A | Bits::B));
    EXPECT_EQ(f & Bits::C, Flags<Bits>(Bits::C));
    EXPECT_TRUE((f & Bits::B).empty());
    f.setFlag(Bits::A, false);
    EXPECT_EQ(f, Flags<Bits>::fromInt(4));
    EXPECT_NE(f, Flags<Bits>(Bits::A));
}
