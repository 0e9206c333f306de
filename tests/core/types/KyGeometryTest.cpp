// Geometry values: rectangle algebra on half-open edges, saturation at the
// int32 limits, and colour text forms.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>

#include "core/types/KyColor.h"
#include "core/types/KyPoint.h"
#include "core/types/KyRect.h"
#include "core/types/KySize.h"

namespace {
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
} // namespace

TEST(KyPoint, ArithmeticSaturatesInsteadOfWrapping) {
    struct Row { const char* name; KyPoint got; KyPoint want; };
    const Row rows[] = {
        {"sum", KyPoint(1, 2) + KyPoint(10, -20), KyPoint(11, -18)},
        {"difference", KyPoint(1, 2) - KyPoint(10, -20), KyPoint(-9, 22)},
        {"negation", -KyPoint(3, -4), KyPoint(-3, 4)},
        {"sum past max", KyPoint(kMax, 0) + KyPoint(1, 0), KyPoint(kMax, 0)},
        {"difference past min", KyPoint(0, kMin) - KyPoint(0, 1), KyPoint(0, kMin)},
        {"negating min", -KyPoint(kMin, 0), KyPoint(kMax, 0)},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.got, r.want);
    }
    KyPoint p(5, 5);
    p += KyPoint(1, 1);
    p -= KyPoint(0, 3);
    EXPECT_EQ(p, KyPoint(6, 3));
    EXPECT_EQ(KyPoint(kMin, kMin).manhattanLength(), 2 * 2147483648LL);
}

TEST(KySize, BoundsTakeEachSideAndTheAreaDoesNotOverflow) {
    EXPECT_TRUE(KySize(10, 0).isEmpty());
    EXPECT_FALSE(KySize(-1, 5).isValid());
    EXPECT_EQ(KySize(10, 2).expandedTo(KySize(3, 8)), KySize(10, 8));
    EXPECT_EQ(KySize(10, 2).boundedTo(KySize(3, 8)), KySize(3, 2));
    EXPECT_EQ(KySize(kMax, kMax).area(), std::int64_t(kMax) * kMax);
}

TEST(KyRect, EdgesAreHalfOpen) {
    const KyRect r(KyPoint(10, 20), KySize(30, 40));
    EXPECT_EQ(KyPoint(r.right(), r.bottom()), KyPoint(40, 60));
    EXPECT_EQ(r.center(), KyPoint(25, 40));

    struct Row { const char* name; KyPoint p; bool inside; };
    const Row rows[] = {
        {"top-left corner", {10, 20}, true}, {"last pixel", {39, 59}, true}, {"right edge", {40, 30}, false},
        {"bottom edge", {15, 60}, false}, {"left of it", {9, 30}, false}, {"above it", {15, 19}, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(r.contains(row.p), row.inside);
    }
    EXPECT_FALSE(KyRect(0, 0, 0, 10).contains(KyPoint(0, 0))) << "an empty rectangle holds nothing";
    EXPECT_FALSE(KyRect(0, 0, -5, 10).contains(KyPoint(-1, 0)));
    EXPECT_TRUE(r.contains(KyRect(10, 20, 30, 40)));
    EXPECT_TRUE(r.contains(KyRect(11, 21, 5, 5)));
    EXPECT_FALSE(r.contains(KyRect(11, 21, 30, 5)));
}

TEST(KyRect, IntersectionAndUnionFollowTheTable) {
    struct Row { const char* name; KyRect a, b; bool intersects; KyRect intersected, united; };
    const Row rows[] = {
        {"overlap", {0, 0, 10, 10}, {5, 5, 10, 10}, true, {5, 5, 5, 5}, {0, 0, 15, 15}},
        {"nested", {0, 0, 10, 10}, {2, 3, 4, 5}, true, {2, 3, 4, 5}, {0, 0, 10, 10}},
        {"touching edges share nothing", {0, 0, 10, 10}, {10, 0, 5, 10}, false, {}, {0, 0, 15, 10}},
        {"apart", {0, 0, 2, 2}, {5, 5, 2, 2}, false, {}, {0, 0, 7, 7}},
        {"empty operand is ignored", {0, 0, 10, 10}, {100, 100, 0, 0}, false, {}, {0, 0, 10, 10}},
        {"both empty", {3, 3, 0, 0}, {5, 5, -1, 4}, false, {}, {}},
        {"negative coordinates", {-10, -10, 5, 5}, {-7, -12, 10, 4}, true, {-7, -10, 2, 2}, {-10, -12, 13, 7}},
        {"near the limits", {kMax - 10, kMax - 10, 10, 10}, {kMax - 5, kMax - 5, 5, 5}, true,
         {kMax - 5, kMax - 5, 5, 5}, {kMax - 10, kMax - 10, 10, 10}},
        {"spanning the whole range saturates", {kMin, 0, 10, 1}, {kMax - 10, 0, 10, 1}, false, {}, {kMin, 0, kMax, 1}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        for (const auto& [a, b] : {std::pair{r.a, r.b}, std::pair{r.b, r.a}}) {
            EXPECT_EQ(a.intersects(b), r.intersects);
            EXPECT_EQ(a.intersected(b), r.intersected);
            EXPECT_EQ(a.united(b), r.united);
        }
    }
}

TEST(KyRect, MovingAndAdjustingKeepTheSizeOrTheEdges) {
    const KyRect r(10, 10, 20, 20);
    EXPECT_EQ(r.translated(5, -15), KyRect(15, -5, 20, 20));
    EXPECT_EQ(r.translated(KyPoint(-10, -10)), KyRect(0, 0, 20, 20));
    EXPECT_EQ(r.adjusted(1, 2, -3, -4), KyRect(11, 12, 16, 14));
    EXPECT_EQ(r.adjusted(15, 0, -15, 0).width, -10) << "over-shrinking gives an invalid rectangle";
    EXPECT_FALSE(r.adjusted(15, 0, -15, 0).isValid());
    // At the limit a move stops and the size is kept.
    EXPECT_EQ(KyRect(kMax - 5, 0, 10, 10).translated(100, 0), KyRect(kMax, 0, 10, 10));
    EXPECT_EQ(KyRect(kMax - 5, 0, 10, 10).right(), kMax);
    EXPECT_EQ(KyRect(0, 0, kMax, 1).adjusted(-1, 0, 1, 0), KyRect(-1, 0, kMax, 1));
}

TEST(KyColor, ChannelsAreClampedAndTheHexNameParsesBack) {
    EXPECT_EQ(KyColor(300, -5, 128), KyColor(255, 0, 128));
    EXPECT_EQ(KyColor::fromRgb(0xFF336699u), KyColor(0x33, 0x66, 0x99));
    EXPECT_EQ(KyColor(0x12, 0xAB, 0x0F).rgb(), 0x12AB0Fu);
    KyColor raw;
    raw.r = 999; // a field written directly still reads within range
    EXPECT_EQ(raw.name(), "#ff0000");
    struct Row { const char* text; bool ok; KyColor want; };
    const Row rows[] = {
        {"#000000", true, {0, 0, 0}}, {"#ffffff", true, {255, 255, 255}}, {"#FFaa01", true, {255, 170, 1}},
        {"#abc", true, {0xAA, 0xBB, 0xCC}}, {"#F0A", true, {255, 0, 170}}, {"  #102030\n", true, {16, 32, 48}},
        {"", false, {}}, {"#", false, {}}, {"102030", false, {}}, {"#1020", false, {}}, {"#10203", false, {}},
        {"#1020304", false, {}}, {"#10203g", false, {}}, {"# 10203", false, {}}, {"red", false, {}},
        {"#-12345", false, {}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        const auto parsed = KyColor::parse(r.text);
        EXPECT_EQ(parsed.has_value(), r.ok);
        if (r.ok && parsed) { EXPECT_EQ(*parsed, r.want); }
        if (r.ok && parsed) { EXPECT_EQ(KyColor::parse(parsed->name().toStdString()), parsed) << "name() reads back"; }
    }
    EXPECT_EQ(KyColor::fromName("nonsense", KyColor(1, 2, 3)), KyColor(1, 2, 3));
    std::ostringstream out;
    out << KyColor(255, 0, 0) << ' ' << KyRect(1, 2, 3, 4) << ' ' << KyPoint(5, 6) << ' ' << KySize(7, 8);
    EXPECT_EQ(out.str(), "KyColor(#ff0000) KyRect(1, 2 3 x 4) KyPoint(5, 6) KySize(7 x 8)");
}
