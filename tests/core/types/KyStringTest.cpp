// KyString: trimming, splitting, strict conversions and UTF-8 handling; and
// the list helpers that travel with it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>

#include "core/types/KyList.h"
#include "core/types/KyString.h"

TEST(KyString, TextHelpersTrimFoldSubstituteAndRepeat) {
    EXPECT_EQ(KyString("LOG=\xC3\x89").toLower(), "log=\xC3\x89") << "case folding touches ASCII only";
    EXPECT_TRUE(KyString("velnet/VelmoVpnAgent").startsWith("velnet/"));
    EXPECT_TRUE(KyString("file.json").endsWith(".json"));
    EXPECT_EQ(KyString("a.b.c").replaced(".", "::"), "a::b::c");
    EXPECT_EQ(KyString(" \t\r\n a b \n\r\t ").trimmed(), "a b");
    EXPECT_EQ(KyString(" \t ").trimmed(), "");
    EXPECT_EQ(KyString("  ab \t\n cd  e ").simplified(), "ab cd e");
    EXPECT_EQ(KyString::format("rgb(%d, %d, %d)", 1, 2, 3), "rgb(1, 2, 3)");
    EXPECT_EQ(KyString("ab").repeated(3), "ababab");
    EXPECT_EQ(KyString().repeated(1000), "");
    EXPECT_THROW((void)KyString("ab").repeated(std::numeric_limits<std::size_t>::max() / 2 + 1), std::length_error);
}

TEST(KyString, ArgFillsTheLowestMarkerFromOneToNinetyNineOnce) {
    struct Row { const char* name; const char* pattern; const char* value; const char* want; };
    const Row rows[] = {
        {"first marker", "%1 %2", "a", "a %2"}, {"two digits beat one", "%10 %9", "x", "%10 x"}, {"top", "%99", "x", "x"},
        {"no marker", "100%", "x", "100%"}, {"zero is none", "%0 %1", "x", "%0 x"}, {"percent after", "%1%", "x", "x%"},
        {"percent before", "%%1", "x", "%x"}, {"repeated marker", "%1%1", "5", "55"},
        {"value is not substituted again", "%1 and %1", "%1", "%1 and %1"}, {"value with a marker", "%2%1", "%1", "%2%1"},
        {"a digit after other text is no marker", "%1 x1", "v", "v x1"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(KyString(r.pattern).arg(r.value), r.want);
    }
    EXPECT_EQ(KyString("%2 then %1").arg("a").arg("b"), "b then a");
    EXPECT_EQ(KyString("%1 ms").arg(2.5), "2.5 ms");
    EXPECT_EQ(KyString("%1/%2").arg(-3).arg(4000000000u), "-3/4000000000");
}

TEST(KyString, IntegerParsingAcceptsOnlyWholeNumbersInRange) {
    struct Row { const char* name; std::string text; int base; bool ok; long long want; };
    const Row rows[] = {
        {"plain", "42", 10, true, 42}, {"blanks around", " \t-7\n", 10, true, -7}, {"plus sign", "+5", 10, true, 5},
        {"hex digits", "ff", 16, true, 255}, {"hex prefix in base 16", "0xFF", 16, true, 255},
        {"prefix chooses base 0", "0x10", 0, true, 16}, {"octal in base 0", "010", 0, true, 8},
        {"base 36", "z", 36, true, 35}, {"lowest value", "-9223372036854775808", 10, true, LLONG_MIN},
        {"prefix in base 10", "0x10", 10, false, 0}, {"inner blank", "1 2", 10, false, 0},
        {"sign alone", "-", 10, false, 0}, {"blank after sign", "- 5", 10, false, 0},
        {"past the top", "9223372036854775808", 10, false, 0}, {"empty", "", 10, false, 0},
        {"blanks only", " \t ", 10, false, 0}, {"decimal point", "1.0", 10, false, 0},
        {"inner NUL", std::string("12\0" "3", 4), 10, false, 0},
        {"base 1 does not exist", "1", 1, false, 0}, {"base 37 does not exist", "1", 37, false, 0},
        {"negative base", "1", -2, false, 0},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        bool ok = !r.ok;
        EXPECT_EQ(KyString(r.text).toLongLong(&ok, r.base), r.want);
        EXPECT_EQ(ok, r.ok);
        if (r.ok) { EXPECT_EQ(KyString(r.text).toLongLong(r.base), r.want); }
        else { EXPECT_THROW((void)KyString(r.text).toLongLong(r.base), std::runtime_error); }
    }
}

TEST(KyString, NarrowAndUnsignedConversionsRefuseWhatTheirTypeCannotHoldInTheirOwnWords) {
    struct Row { const char* name; const char* text; bool ok; unsigned long long want; };
    const Row unsignedRows[] = {
        {"plus sign", "+7", true, 7}, {"top", "18446744073709551615", true, UINT64_MAX},
        {"past the top", "18446744073709551616", false, 0}, {"minus zero", "-0", false, 0}, {"minus", "-1", false, 0},
        {"blanks", " 12 ", true, 12},
    };
    for (const Row& r : unsignedRows) {
        SCOPED_TRACE(r.name);
        bool ok = !r.ok;
        EXPECT_EQ(KyString(r.text).toULongLong(&ok), r.want);
        EXPECT_EQ(ok, r.ok);
    }
    EXPECT_EQ(KyString("-2147483648").toInt(), INT32_MIN);
    EXPECT_EQ(KyString("4294967295").toUInt(), UINT32_MAX);
    bool ok = true;
    EXPECT_EQ(KyString("2147483648").toInt(&ok), 0);
    EXPECT_FALSE(ok);
    const std::pair<const char*, std::function<void()>> worded[] = {
        {"Invalid int conversion in KyString: 12abc", [] { (void)KyString("12abc").toInt(); }},
        {"Invalid unsigned int conversion in KyString: 4294967296", [] { (void)KyString("4294967296").toUInt(); }},
    };
    for (const auto& [message, convert] : worded) {
        try {
            convert();
            ADD_FAILURE() << "no throw: " << message;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), message);
        }
    }
}

TEST(KyString, DoubleParsingIsStrictAboutTheWholeText) {
    struct Row { const char* name; const char* text; bool ok; double want; };
    const Row rows[] = {
        {"plain", "1.5", true, 1.5}, {"blanks and exponent", " -2e-3 ", true, -0.002},
        {"underflow is still a number", "1e-400", true, 0.0}, {"hex float", "0x1p3", true, 8.0},
        {"infinity", "inf", true, std::numeric_limits<double>::infinity()}, {"overflow is not", "1e999", false, 0},
        {"cut exponent", "1.5e", false, 0}, {"dot", ".", false, 0}, {"comma", "1,5", false, 0}, {"empty", "", false, 0},
        {"unit after", "1.5 kg", false, 0},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        bool ok = !r.ok;
        EXPECT_EQ(KyString(r.text).toDouble(&ok), r.want);
        EXPECT_EQ(ok, r.ok);
    }
    EXPECT_THROW((void)KyString("3.5e38").toFloat(), std::runtime_error);
    EXPECT_EQ(KyString("3.0e38").toFloat(), 3.0e38f);
}

TEST(KyString, NumbersAreWrittenShortestOrAsFormattedAndReadBackExactly) {
    struct Row { double v; char format; int precision; const char* want; };
    const Row rows[] = {
        {0.1, 'g', -1, "0.1"}, {100.0, 'g', -1, "100"}, {1e16, 'g', -1, "10000000000000000"}, {1e17, 'g', -1, "1e+17"},
        {-4096.0, 'g', -1, "-4096"}, {0.0001, 'g', -1, "0.0001"}, {123456.7, 'g', -1, "123456.7"}, {1e-7, 'g', -1, "1e-07"},
        {-0.0, 'g', -1, "-0"}, {5e-324, 'g', -1, "5e-324"}, {2.0 / 3.0, 'g', -1, "0.6666666666666666"},
        {std::numeric_limits<double>::max(), 'g', -1, "1.7976931348623157e+308"},
        {-std::numeric_limits<double>::infinity(), 'g', -1, "-inf"},
        {2.5, 'e', 3, "2.500e+00"}, {2.5, 'E', 1, "2.5E+00"}, {0.5, 'f', -1, "0.500000"}, {1234.5, 'g', 3, "1.23e+03"},
        {1e-5, 'G', 2, "1E-05"}, {3.0, 'x', 2, "3"}, {-1.25, 'f', 1, "-1.2"}, {1.0 / 0.0, 'F', 2, "INF"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.want);
        EXPECT_EQ(r.precision < 0 && r.format == 'g' ? KyString::number(r.v) : KyString::number(r.v, r.format, r.precision),
                  r.want);
    }
    EXPECT_EQ(KyString::number(-7), "-7");
    // Never cut short: 1e300 in fixed notation is 301 digits, with two decimals 304 characters.
    const KyString big = KyString::number(1e300, 'f', 2);
    EXPECT_EQ(big.size(), 304u);
    EXPECT_TRUE(big.startsWith("1000000000000000052504") && big.endsWith(".00"));
    EXPECT_EQ(KyString::number(1.0, 'f', 600).size(), 602u);
    // Any finite bit pattern survives the trip through text.
    std::mt19937_64 bits(20261122);
    for (int checked = 0; checked < 20000;) {
        const std::uint64_t raw = bits();
        double v = 0;
        std::memcpy(&v, &raw, sizeof v);
        if (!std::isfinite(v)) continue;
        ++checked;
        ASSERT_EQ(KyString::number(v).toDouble(), v) << KyString::number(v);
    }
}

// Desktop sessions often run with a locale whose decimal point is a comma.
// When none is installed, one is compiled into a scratch directory with the
// system's localedef and loaded from there.
TEST(KyString, NumbersIgnoreTheProcessLocale) {
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    const char* oldLocPath = std::getenv("LOCPATH");
    const std::string savedLocPath = oldLocPath ? oldLocPath : "";
    std::filesystem::path scratch;
    bool haveComma = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
    if (!haveComma) {
        scratch = std::filesystem::temp_directory_path() / ("kystring-locale-" + std::to_string(::getpid()));
        std::filesystem::create_directories(scratch);
        const std::string command =
            "timeout 120 localedef -i de_DE -f UTF-8 '" + (scratch / "de_DE.UTF-8").string() + "' >/dev/null 2>&1";
        if (std::system(command.c_str()) == 0) {
            ::setenv("LOCPATH", scratch.c_str(), 1);
            haveComma = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
        }
    }
    KyString text, fixed;
    bool ok = false;
    double parsed = 0;
    char printed[16] = {};
    if (haveComma) {
        std::snprintf(printed, sizeof printed, "%g", 2.5);
        text = KyString::number(2.5);
        fixed = KyString::number(0.25, 'f', 2);
        parsed = KyString("1.75").toDouble(&ok);
    }
    std::setlocale(LC_NUMERIC, before.c_str());
    if (oldLocPath) ::setenv("LOCPATH", savedLocPath.c_str(), 1);
    else ::unsetenv("LOCPATH");
    if (!scratch.empty()) std::filesystem::remove_all(scratch);
    if (!haveComma) GTEST_SKIP() << "no locale with a decimal comma could be loaded";
    ASSERT_STREQ(printed, "2,5") << "the locale in force really uses a comma";
    EXPECT_EQ(text, "2.5");
    EXPECT_EQ(fixed, "0.25");
    EXPECT_TRUE(ok);
    EXPECT_EQ(parsed, 1.75);
}

TEST(KyString, Utf8DecodingReplacesEachBadByteOnceAndEncodingUsesTheShortestForm) {
    struct Row { const char* name; std::string bytes; std::u32string want; bool valid; };
    const std::vector<Row> rows = {
        {"ascii", "ab", U"ab", true}, {"two bytes", "\xC3\xA9", U"\u00E9", true},
        {"four bytes", "\xF0\x9F\x94\x92", U"\U0001F512", true},
        {"replacement character itself", "\xEF\xBF\xBD", U"\uFFFD", true},
        {"cut at the end", "\xE2\x82", U"\uFFFD\uFFFD", false},
        {"lone continuation", "\x80" "a", U"\uFFFD" "a", false}, {"overlong", "\xC0\xAF", U"\uFFFD\uFFFD", false},
        {"surrogate", "\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD", false},
        {"beyond U+10FFFF", "\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD", false},
        {"five-byte lead", "\xF8", U"\uFFFD", false}, {"interrupted", "\xE2(\xA1", U"\uFFFD(\uFFFD", false},
        {"NUL is a character", std::string("a\0b", 3), std::u32string(U"a\0b", 3), true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        const KyString text(r.bytes);
        EXPECT_EQ(text.toUtf32(), r.want);
        EXPECT_EQ(text.isValidUtf8(), r.valid);
        EXPECT_EQ(text.codePointCount(), r.want.size());
        EXPECT_EQ(text.toWString().size(), r.want.size());
        if (r.valid) { EXPECT_EQ(KyString::fromUtf32(r.want), text); }
        if (r.valid) { EXPECT_EQ(KyString::fromWString(text.toWString()), text); }
    }
    struct Code { char32_t cp; const char* want; };
    const Code codes[] = {
        {0x7F, "\x7F"}, {0x80, "\xC2\x80"}, {0x7FF, "\xDF\xBF"}, {0x800, "\xE0\xA0\x80"}, {0xFFFF, "\xEF\xBF\xBF"},
        {0x10000, "\xF0\x90\x80\x80"}, {0x10FFFF, "\xF4\x8F\xBF\xBF"}, {0x110000, "\xEF\xBF\xBD"},
        {0xD800, "\xEF\xBF\xBD"}, {0xDFFF, "\xEF\xBF\xBD"},
    };
    for (const Code& c : codes) {
        SCOPED_TRACE(static_cast<std::uint32_t>(c.cp));
        EXPECT_EQ(KyString::fromCodePoint(c.cp), c.want);
        EXPECT_EQ(KyString::fromWString(std::wstring(1, static_cast<wchar_t>(c.cp))), c.want);
    }
}

TEST(KyString, CursorStepsAgreeInBothDirections) {
    // a é € 🔒: boundaries at 0, 1, 3, 6, 10.
    const KyString text("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x92");
    struct Row { std::size_t pos, previous, next, aligned; };
    const Row rows[] = {
        {0, 0, 1, 0},  {1, 0, 3, 1},  {2, 1, 3, 1},  {3, 1, 6, 3},   {4, 3, 5, 3},    {5, 3, 6, 3},
        {6, 3, 10, 6}, {7, 6, 8, 6},  {9, 6, 10, 6}, {10, 6, 10, 10}, {99, 6, 10, 10},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.pos);
        EXPECT_EQ(text.previousCodePoint(r.pos), r.previous);
        EXPECT_EQ(text.nextCodePoint(r.pos), r.next);
        EXPECT_EQ(text.alignToCodePoint(r.pos), r.aligned);
    }
    EXPECT_EQ(text.truncatedUtf8(5), "a\xC3\xA9");
    EXPECT_EQ(text.truncatedUtf8(9), "a\xC3\xA9\xE2\x82\xAC");
    EXPECT_EQ(text.truncatedUtf8(100), text);
    // Walking forward and backward visits the same boundaries, also through malformed bytes.
    for (const std::string& bytes : {text.toStdString(), std::string("\xC3\xA9\x80"), std::string("\x80\x80\x80\x80"),
                                     std::string("\xF0\x9F\x94"), std::string("x\xE2\x82\xAC\x80y"),
                                     std::string("\xED\xA0\x80z"), std::string()}) {
        SCOPED_TRACE(testing::PrintToString(bytes));
        const KyString s(bytes);
        std::vector<std::size_t> forward{0}, backward{s.size()};
        while (forward.back() < s.size()) forward.push_back(s.nextCodePoint(forward.back()));
        while (backward.back() > 0) backward.push_back(s.previousCodePoint(backward.back()));
        std::reverse(backward.begin(), backward.end());
        EXPECT_EQ(forward, backward);
        EXPECT_EQ(forward.size() - 1, s.codePointCount());
        for (std::size_t b : forward) EXPECT_EQ(s.alignToCodePoint(b), b);
    }
}

TEST(KyString, SplitKeepsOrSkipsEmptyPiecesAndJoinUndoesIt) {
    struct Row { const char* name; const char* text; const char* sep; bool skip; std::vector<std::string> want; };
    const Row rows[] = {
        {"plain", "a,b,c", ",", false, {"a", "b", "c"}}, {"empty middle", "a,,c", ",", false, {"a", "", "c"}},
        {"empty skipped", "a,,c,", ",", true, {"a", "c"}}, {"trailing kept", "a,", ",", false, {"a", ""}},
        {"multi-byte separator", "a  |  b", "  |  ", false, {"a", "b"}}, {"empty text", "", ",", false, {""}},
        {"empty text skipped", "", ",", true, {}}, {"only separators skipped", ",,,", ",", true, {}},
        {"leading separator", ",a", ",", false, {"", "a"}}, {"only separators", ",,", ",", false, {"", "", ""}},
        {"no separator in text", "abc", ";", false, {"abc"}}, {"empty separator", "abc", "", false, {"abc"}},
        {"whole text skipped with an empty separator", "abc", "", true, {"abc"}},
        {"separator overlaps itself", "aaa", "aa", false, {"", "a"}},
        {"multi-byte text", "\xC3\xA9|\xE2\x82\xAC", "|", false, {"\xC3\xA9", "\xE2\x82\xAC"}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        const KyList<KyString> parts = KyString(r.text).split(r.sep, r.skip);
        ASSERT_EQ(parts.size(), r.want.size());
        for (std::size_t i = 0; i < parts.size(); ++i) EXPECT_EQ(parts[i], r.want[i]);
        if (!r.skip) { EXPECT_EQ(KyString::join(parts, r.sep), r.text); }
    }
    EXPECT_EQ(KyString::join(KyString("a,b,c").split(','), "  |  "), "a  |  b  |  c");
    EXPECT_EQ(KyString::join(std::vector<KyString>{"one"}, ","), "one");
}

TEST(KyList, EndsOfAnEmptyListThrowAndSlicesAndSearchesStayInRange) {
    KyList<KyString> empty;
    EXPECT_THROW((void)empty.first(), std::out_of_range);
    EXPECT_THROW((void)empty.takeLast(), std::out_of_range);
    EXPECT_THROW(empty.removeFirst(), std::out_of_range);
    EXPECT_EQ(empty.value(0, "none"), "none");
    const KyList<int> l{1, 2, 3, 2, 1};
    struct Row { int pos, n; std::vector<int> want; };
    const Row rows[] = {
        {0, -1, {1, 2, 3, 2, 1}}, {1, INT_MAX, {2, 3, 2, 1}}, {-3, 2, {1, 2}}, {5, 1, {}},
        {INT_MAX, INT_MAX, {}},   {2, 0, {}},                 {3, 5, {2, 1}},
    };
    for (const Row& r : rows) EXPECT_EQ(l.mid(r.pos, r.n), KyList<int>(r.want)) << r.pos << "," << r.n;
    EXPECT_EQ(l.indexOf(2, 2), 3);
    EXPECT_EQ(l.lastIndexOf(2, 2), 1);
    EXPECT_EQ(l.lastIndexOf(2, 100), 3);
    EXPECT_EQ(l.lastIndexOf(9), -1);
    KyList<int> m = l;
    EXPECT_TRUE(m.removeOne(2));
    EXPECT_EQ(m, (KyList<int>{1, 3, 2, 1}));
    EXPECT_EQ(m.removeAll(1), 2);
}
