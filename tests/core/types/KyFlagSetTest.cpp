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

TEST(KyFlagSet, OperatorsCombineLikeBitSets) {
    struct Row { const char* name; DrawTextFlags got; int want; };
    const Row rows[] = {
        {"empty", DrawTextFlags(), 0}, {"one flag", DrawTextFormat::Right, 2},
        {"or of enumerators", DrawTextFormat::CenterH | DrawTextFormat::Bottom, 9},
        {"or with a set", DrawTextFlags(DrawTextFormat::Right) | DrawTextFormat::CenterV, 6},
        {"enumerator or set", DrawTextFormat::CenterV | DrawTextFlags(DrawTextFormat::Right), 6},
        {"and keeps shared bits", (DrawTextFormat::Centered & DrawTextFlags::fromInt(5 | 2)), 5},
        {"and of disjoint", DrawTextFormat::Right & DrawTextFormat::Bottom, 0},
        {"xor toggles", DrawTextFlags::fromInt(3) ^ DrawTextFormat::Right, 1},
        {"mask out with complement", DrawTextFlags::fromInt(15) & ~DrawTextFormat::CenterV, 11},
        {"from int", DrawTextFlags(12), 12},
    };
    for (const Row& r : rows) EXPECT_EQ(r.got.toInt(), r.want) << r.name;

    DrawTextFlags f;
    f |= DrawTextFormat::Right;
    f |= DrawTextFormat::Bottom;
    f &= ~DrawTextFlags(DrawTextFormat::Right);
    f ^= DrawTextFormat::CenterH;
    EXPECT_EQ(f, DrawTextFormat::Bottom | DrawTextFormat::CenterH);
    EXPECT_NE(f, DrawTextFlags(DrawTextFormat::Bottom));
    EXPECT_EQ(DrawTextFlags(DrawTextFormat::Bottom), DrawTextFormat::Bottom);
}

TEST(KyFlagSet, TestFlagNeedsEveryBitOfTheFlag) {
    const DrawTextFlags centredH = DrawTextFormat::CenterH;
    EXPECT_TRUE(centredH.testFlag(DrawTextFormat::CenterH));
    EXPECT_FALSE(centredH.testFlag(DrawTextFormat::Centered)) << "a multi-bit flag needs all its bits";
    EXPECT_TRUE((DrawTextFormat::CenterH | DrawTextFormat::CenterV).testFlag(DrawTextFormat::Centered));
    EXPECT_TRUE(centredH.testAnyFlag(DrawTextFormat::Centered));
    // A zero flag is "set" only in an empty set.
    EXPECT_TRUE(DrawTextFlags().testFlag(DrawTextFormat::None));
    EXPECT_FALSE(centredH.testFlag(DrawTextFormat::None));
}

TEST(KyFlagSet, SetFlagTurnsBitsOnAndOffAndEmptinessFollows) {
    DrawTextFlags f;
    EXPECT_TRUE(f.isEmpty());
    EXPECT_FALSE(f);
    f.setFlag(DrawTextFormat::Right).setFlag(DrawTextFormat::CenterV, true);
    EXPECT_EQ(f.toInt(), 6);
    EXPECT_TRUE(f);
    f.setFlag(DrawTextFormat::Right, false);
    EXPECT_EQ(f.toInt(), 4);
    f.setFlag(DrawTextFormat::CenterV, false);
    EXPECT_TRUE(f.isEmpty());
    // Clearing a flag that is not set changes nothing.
    f.setFlag(DrawTextFormat::Bottom, false);
    EXPECT_TRUE(f.isEmpty());
}

TEST(KyFlagSet, NarrowUnderlyingTypesStayInTheirWidth) {
    KyFlagSet<SessionBits> s = Online | Metered;
    EXPECT_EQ(s.toInt(), 129);
    EXPECT_EQ((~s).toInt(), 126) << "complement of 129 within eight bits";
    EXPECT_EQ((~s & Trusted), KyFlagSet<SessionBits>(Trusted));
    s.setFlag(Metered, false);
    EXPECT_EQ(s, KyFlagSet<SessionBits>(Online));
    static_assert(sizeof(KyFlagSet<SessionBits>) == 1);
    static_assert((DrawTextFormat::Right | DrawTextFormat::Bottom).toInt() == 10, "usable in constant expressions");
}
