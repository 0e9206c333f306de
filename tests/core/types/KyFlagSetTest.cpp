// KyFlagSet: combining, testing and clearing flags of a bit-valued enum, as the
// painter's text format and widget states use them.
#include <gtest/gtest.h>

#include <cstdint>

#include "core/types/KyFlagSet.h"

namespace {

enum class DrawTextFormat : int { None = 0, CenterH = 1, Right = 2, CenterV = 4, Bottom = 8, Centered = 1 | 4 };
KY_DECLARE_FLAG_OPERATORS(DrawTextFormat)
using DrawTextFlags = KyFlagSet<DrawTextFormat>;

// A plain enum with a narrow underlying type: complement must stay in its width.
enum SessionBits : std::uint8_t { Online = 1, Trusted = 2, Metered = 128 };
KY_DECLARE_FLAG_OPERATORS(SessionBits)

} // namespace

TEST(KyFlagSet, OperatorsCombineLikeBitSetsWithinTheUnderlyingWidth) {
    struct Row { const char* name; DrawTextFlags got; int want; };
    const Row rows[] = {
        {"or of enumerators", DrawTextFormat::CenterH | DrawTextFormat::Bottom, 9},
        {"enumerator or set", DrawTextFormat::CenterV | DrawTextFlags(DrawTextFormat::Right), 6},
        {"and keeps shared bits", (DrawTextFormat::Centered & DrawTextFlags::fromInt(5 | 2)), 5},
        {"and of disjoint", DrawTextFormat::Right & DrawTextFormat::Bottom, 0},
        {"xor toggles", DrawTextFlags::fromInt(3) ^ DrawTextFormat::Right, 1},
        {"mask out with complement", DrawTextFlags::fromInt(15) & ~DrawTextFormat::CenterV, 11},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.got.toInt(), r.want);
    }
    DrawTextFlags f;
    f |= DrawTextFormat::Right;
    f |= DrawTextFormat::Bottom;
    f &= ~DrawTextFlags(DrawTextFormat::Right);
    f ^= DrawTextFormat::CenterH;
    EXPECT_EQ(f, DrawTextFormat::Bottom | DrawTextFormat::CenterH);
    EXPECT_NE(f, DrawTextFlags(DrawTextFormat::Bottom));
    KyFlagSet<SessionBits> s = Online | Metered;
    EXPECT_EQ((~s).toInt(), 126) << "complement of 129 within eight bits";
    static_assert(sizeof(KyFlagSet<SessionBits>) == 1);
    static_assert((DrawTextFormat::Right | DrawTextFormat::Bottom).toInt() == 10, "usable in constant expressions");
}

TEST(KyFlagSet, TestFlagNeedsEveryBitAndSetFlagTurnsBitsOnAndOff) {
    const DrawTextFlags centredH = DrawTextFormat::CenterH;
    EXPECT_FALSE(centredH.testFlag(DrawTextFormat::Centered)) << "a multi-bit flag needs all its bits";
    EXPECT_TRUE((DrawTextFormat::CenterH | DrawTextFormat::CenterV).testFlag(DrawTextFormat::Centered));
    EXPECT_TRUE(centredH.testAnyFlag(DrawTextFormat::Centered));
    EXPECT_TRUE(DrawTextFlags().testFlag(DrawTextFormat::None)) << "a zero flag is set only in an empty set";
    EXPECT_FALSE(centredH.testFlag(DrawTextFormat::None));
    DrawTextFlags f;
    EXPECT_FALSE(f);
    f.setFlag(DrawTextFormat::Right).setFlag(DrawTextFormat::CenterV, true);
    EXPECT_EQ(f.toInt(), 6);
    f.setFlag(DrawTextFormat::Right, false).setFlag(DrawTextFormat::Bottom, false);
    EXPECT_EQ(f.toInt(), 4);
    f.setFlag(DrawTextFormat::CenterV, false);
    EXPECT_TRUE(f.isEmpty());
}
