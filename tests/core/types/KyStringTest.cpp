// KyString: trimming, splitting, strict conversions and UTF-8 handling.
#include <gtest/gtest.h>

#include <stdexcept>

#include "core/types/KyList.h"
#include "core/types/KyString.h"

TEST(KyString, TrimRemovesBlanksTabsCarriageReturnsAndLineFeeds) {
    EXPECT_EQ(KyString(" \t\r\n a b \n\r\t ").trimmed(), "a b");
    EXPECT_EQ(KyString(" \t ").trimmed(), "");
    EXPECT_EQ(KyString("x").trimmed(), "x");
}

TEST(KyString, SplitKeepsOrSkipsEmptyPieces) {
    struct Row { const char* name; const char* text; const char* sep; bool skip; std::vector<std::string> want; };
    const Row rows[] = {
        {"plain", "a,b,c", ",", false, {"a", "b", "c"}},
        {"empty middle", "a,,c", ",", false, {"a", "", "c"}},
        {"empty skipped", "a,,c,", ",", true, {"a", "c"}},
        {"trailing kept", "a,", ",", false, {"a", ""}},
        {"multi-byte separator", "a  |  b", "  |  ", false, {"a", "b"}},
        {"empty text", "", ",", false, {""}},
        {"empty text skipped", "", ",", true, {}},
    };
    for (const Row& r : rows) {
        const KyList<KyString> parts = KyString(r.text).split(r.sep, r.skip);
        ASSERT_EQ(parts.size(), r.want.size()) << r.name;
        for (std::size_t i = 0; i < parts.size(); ++i) EXPECT_EQ(parts[i], r.want[i]) << r.name;
    }
    EXPECT_EQ(KyString::join(KyString("a,b,c").split(','), "  |  "), "a  |  b  |  c");
}

TEST(KyString, NumberConversionsAreStrictAndWordedByType) {
    EXPECT_EQ(KyString(" 42 ").toInt(), 42);
    EXPECT_EQ(KyString("-2147483648").toInt(), INT32_MIN);
    EXPECT_EQ(KyString("18446744073709551615").toULongLong(), UINT64_MAX);
    EXPECT_DOUBLE_EQ(KyString("2.5e3").toDouble(), 2500.0);
    try {
        (void)KyString("12abc").toInt();
        FAIL() << "no throw";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Invalid int conversion in KyString: 12abc");
    }
    EXPECT_THROW((void)KyString("2147483648").toInt(), std::runtime_error);
    EXPECT_THROW((void)KyString("").toInt(), std::runtime_error);
    EXPECT_THROW((void)KyString("-1").toUInt(), std::runtime_error);
    EXPECT_THROW((void)KyString("1e999").toDouble(), std::runtime_error);
    bool ok = true;
    EXPECT_EQ(KyString("x").toInt(&ok), 0);
    EXPECT_FALSE(ok);
}

TEST(KyString, NumbersReadBackExactly) {
    for (double v : {0.1, 1.0 / 3.0, 1e300, -2.5, 123456789.125}) EXPECT_EQ(KyString::number(v).toDouble(), v);
    EXPECT_EQ(KyString::number(0.1), "0.1");
    EXPECT_EQ(KyString::number(-7), "-7");
}

TEST(KyString, ArgReplacesLowestMarkerOnly) {
    EXPECT_EQ(KyString("%2 then %1").arg("a").arg("b"), "b then a");
    EXPECT_EQ(KyString("%1%1").arg(5), "55");
    // A value carrying the marker is not substituted again within one call.
    EXPECT_EQ(KyString("%1 and %1").arg("%1"), "%1 and %1");
    EXPECT_EQ(KyString::format("rgb(%d, %d, %d)", 1, 2, 3), "rgb(1, 2, 3)");
}

TEST(KyString, WideAndUtf8RoundTrip) {
    const KyString text("VELMO \xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x92");  // é € 🔒
    EXPECT_TRUE(text.isValidUtf8());
    EXPECT_EQ(text.codePointCount(), 9u);
    EXPECT_EQ(KyString::fromWString(text.toWString()), text);
    EXPECT_EQ(text.toWString().back(), static_cast<wchar_t>(0x1F512));
    EXPECT_FALSE(KyString("\xC3").isValidUtf8());
    EXPECT_FALSE(KyString("\xED\xA0\x80").isValidUtf8()); // surrogate
    EXPECT_FALSE(KyString("\xC0\xAF").isValidUtf8());     // overlong
}

TEST(KyString, CursorStepsStayOnCodePointBoundaries) {
    const KyString text("a\xC3\xA9\xE2\x82\xAC"); // a é €
    EXPECT_EQ(text.nextCodePoint(0), 1u);
    EXPECT_EQ(text.nextCodePoint(1), 3u);
    EXPECT_EQ(text.nextCodePoint(3), 6u);
    EXPECT_EQ(text.previousCodePoint(6), 3u);
    EXPECT_EQ(text.previousCodePoint(3), 1u);
    EXPECT_EQ(text.alignToCodePoint(4), 3u);
    EXPECT_EQ(text.truncatedUtf8(5), "a\xC3\xA9");
}

TEST(KyString, CaseFoldingTouchesAsciiOnly) {
    EXPECT_EQ(KyString("LOG=\xC3\x89").toLower(), "log=\xC3\x89");
    EXPECT_TRUE(KyString("velnet/VelmoVpnAgent").startsWith("velnet/"));
    EXPECT_TRUE(KyString("file.json").endsWith(".json"));
    EXPECT_EQ(KyString("a.b.c").replaced(".", "::"), "a::b::c");
}
