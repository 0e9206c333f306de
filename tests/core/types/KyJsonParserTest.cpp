// KyJsonDocument::loadFromJson: what strict JSON reading accepts, what it
// refuses and where it says the fault is, and that numbers and text survive a
// parse/generate round trip exactly.
#include <gtest/gtest.h>

#include <pthread.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "core/types/KyJsonDocument.h"

namespace {

struct RejectRow { const char* name; std::string input; int line, column; const char* message; };
struct AcceptRow { const char* name; std::string input; const char* compact; }; // compact: the text generated back

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

std::string nested(int depth) { return std::string(static_cast<std::size_t>(depth), '[') + std::string(static_cast<std::size_t>(depth), ']'); }

} // namespace

TEST(KyJsonParser, RefusesMalformedTextWithLineAndColumn) {
    using namespace std::string_literals;
    const RejectRow rows[] = {
        {"empty input", "", 1, 1, "empty input"}, {"blanks only", "  \n ", 2, 2, "empty input"},
        {"trailing garbage", "{} x", 1, 4, "unexpected text after the value"},
        {"two values", "1 2", 1, 3, "unexpected text after the value"},
        {"leading zero", "01", 1, 1, "leading zero in a number"},
        {"negative leading zero", "[-01]", 1, 2, "leading zero in a number"},
        {"bare minus", "-", 1, 1, "invalid number"}, {"dot without digits", "1.", 1, 1, "invalid number"},
        {"dot then letter", "[1.e5]", 1, 2, "invalid number"},
        {"exponent without digits", "1e+", 1, 1, "invalid number"},
        {"leading dot", ".5", 1, 1, "unexpected character"}, {"plus sign", "+1", 1, 1, "unexpected character"},
        {"hex number", "0x10", 1, 2, "unexpected text after the value"},
        {"overflowing double", "[1e400]", 1, 2, "number out of range"},
        {"NaN word", "NaN", 1, 1, "unexpected character"},
        {"bad escape", "\"a\\x\"", 1, 3, "invalid escape sequence"},
        {"short unicode escape", "\"\\u12\"", 1, 2, "invalid \\u escape"},
        {"non-hex unicode escape", "\"\\u12g4\"", 1, 2, "invalid \\u escape"},
        {"lone high surrogate", "\"\\ud800\"", 1, 2, "unpaired surrogate in \\u escape"},
        {"lone low surrogate", "\"ab\\udc00\"", 1, 4, "unpaired surrogate in \\u escape"},
        {"high surrogate before letter", "\"\\ud800\\u0041\"", 1, 2, "unpaired surrogate in \\u escape"},
        {"raw line feed in string", "[\"a\nb\"]", 1, 4, "control character in a string"},
        {"raw tab in string", "\"a\tb\"", 1, 3, "control character in a string"},
        {"raw NUL in string", "\"a\0\""s, 1, 3, "control character in a string"},
        {"invalid UTF-8 byte", "\"\xff\"", 1, 2, "invalid UTF-8"},
        {"overlong slash", "\"\xc0\xaf\"", 1, 2, "invalid UTF-8"},
        {"encoded surrogate", "\"x\xed\xa0\x80\"", 1, 3, "invalid UTF-8"},
        {"code point above U+10FFFF", "\"\xf4\x90\x80\x80\"", 1, 2, "invalid UTF-8"},
        {"lead byte above F4", "\"\xf5\x80\x80\x80\"", 1, 2, "invalid UTF-8"},
        {"bad escape in a member name", "{\"\\q\":1}", 1, 3, "invalid escape sequence"},
        {"truncated sequence", "\"\xe2\x82\"", 1, 2, "invalid UTF-8"},
        {"stray continuation byte", "\"\x80\"", 1, 2, "invalid UTF-8"},
        {"invalid UTF-8 outside a string", "\xc3\xa9", 1, 1, "unexpected character"},
        {"unterminated string", "[\"abc", 1, 2, "unterminated string"},
        {"unterminated array", "[1,2", 1, 5, "unexpected end of input"},
        {"unterminated object", "{\"a\":", 1, 6, "unexpected end of input"},
        {"trailing comma in array", "[1,]", 1, 4, "unexpected character"},
        {"trailing comma in object", "{\"a\":1,}", 1, 8, "expected a string as member name"},
        {"missing colon", "{\"a\" 1}", 1, 6, "expected ':' after a member name"},
        {"unquoted member name", "{a:1}", 1, 2, "expected a string as member name"},
        {"missing comma in array", "[1 2]", 1, 4, "expected ',' or ']'"},
        {"missing comma in object", "{\"a\":1 \"b\":2}", 1, 8, "expected ',' or '}'"},
        {"single quotes", "'a'", 1, 1, "unexpected character"},
        {"truncated literal", "tru", 1, 4, "unexpected end of input"},
        {"misspelt literal", "trUe", 1, 3, "invalid literal"},
        {"comment", "// note\n1", 1, 1, "unexpected character"},
        {"fault on third line", "{\n  \"a\": 1,\n  \"b\": ?\n}", 3, 8, "unexpected character"},
        {"carriage return alone is no new line", "\r\r?", 1, 3, "unexpected character"},
        {"nesting one level too deep", nested(257), 1, 257, "nesting deeper than 256 levels"},
        {"byte order mark then nothing", "\xEF\xBB\xBF", 1, 4, "empty input"},
    };
    for (const RejectRow& r : rows) {
        SCOPED_TRACE(r.name);
        KyJsonDocument doc;
        EXPECT_FALSE(doc.loadFromJson(r.input));
        EXPECT_EQ(doc.errorLine(), r.line);
        EXPECT_EQ(doc.errorColumn(), r.column);
        EXPECT_EQ(doc.errorString(), KyString::format("line %d, column %d: %s", r.line, r.column, r.message));
    }
}

TEST(KyJsonParser, AcceptsValidTextAndGeneratesItBackCompactly) {
    const AcceptRow rows[] = {
        {"integer", "1", "1"}, {"negative zero integer", " -0 ", "0"}, {"negative zero double", "-0.0", "-0.0"},
        {"double with zero fraction", "1.0", "1.0"}, {"upper-case exponent", "1E2", "100.0"},
        {"large exponent", "1e300", "1e+300"}, {"decimal fraction", "0.1", "0.1"},
        {"int64 max", "9223372036854775807", "9223372036854775807"},
        {"int64 min", "-9223372036854775808", "-9223372036854775808"},
        {"just above int64 becomes double", "9223372036854775808", "9223372036854775808.0"},
        {"uint64 max becomes double", "18446744073709551615", "18446744073709551616.0"},
        {"twenty digits", "123456789012345678901", "123456789012345683968.0"},
        {"underflow reads as zero", "1e-400", "0.0"}, {"latin escape", "\"\\u00e9\"", "\"\xc3\xa9\""},
        {"euro escape", "\"\\u20AC\"", "\"\xe2\x82\xac\""},
        {"surrogate pair", "\"\\ud83d\\ude00\"", "\"\xf0\x9f\x98\x80\""},
        {"upper-case hex surrogates", "\"\\uD83D\\uDE00\"", "\"\xf0\x9f\x98\x80\""},
        {"escaped slash comes back plain", "\"\\/\"", "\"/\""}, {"NUL escape", "\"\\u0000\"", "\"\\u0000\""},
        {"unit separator", "\"\\u001F\"", "\"\\u001f\""},
        {"short escapes", "\"\\b\\f\\n\\r\\t\\\"\\\\\"", "\"\\b\\f\\n\\r\\t\\\"\\\\\""},
        {"lowest two-byte lead", "\"\xc2\xa9\"", "\"\xc2\xa9\""},
        {"raw UTF-8 kept", "\"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80\"", "\"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80\""},
        {"DEL is not a control character", "\"\x7f\"", "\"\x7f\""},
        {"byte order mark skipped", "\xEF\xBB\xBF{}", "{}"},
        {"member order kept", "{\"b\":1,\"a\":2}", "{\"b\":1,\"a\":2}"},
        {"repeated member keeps first place, last value", "{\"a\":1,\"b\":2,\"a\":3}", "{\"a\":3,\"b\":2}"},
        {"blanks everywhere", " \t\r\n[ true , false , null ]\n", "[true,false,null]"},
        {"empty containers", "{\"a\":[],\"b\":{}}", "{\"a\":[],\"b\":{}}"}, {"string root", "\"x\"", "\"x\""},
        {"deepest allowed nesting", nested(256), nullptr},
    };
    for (const AcceptRow& r : rows) {
        SCOPED_TRACE(r.name);
        KyJsonDocument doc;
        ASSERT_TRUE(doc.loadFromJson(r.input)) << doc.errorString();
        if (r.compact) { EXPECT_EQ(doc.generateJson(KyJsonDocument::Compact), r.compact); }
    }
}

TEST(KyJsonParser, FailedLoadKeepsTheEarlierRootAndSuccessClearsTheError) {
    KyJsonDocument doc;
    ASSERT_TRUE(doc.loadFromJson("{\"kept\":true}"));
    EXPECT_FALSE(doc.loadFromJson("{\"kept\":false,"));
    EXPECT_TRUE(doc.hasError());
    EXPECT_EQ(doc.root()["kept"], KyJsonValue(true));
    ASSERT_TRUE(doc.loadFromJson("[]"));
    EXPECT_FALSE(doc.hasError());
    EXPECT_EQ(doc.errorLine(), 0);
    EXPECT_TRUE(doc.isArray());

    bool ok = true;
    const KyJsonDocument bad = KyJsonDocument::fromJson("[1,", &ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(bad.isNull());
    EXPECT_EQ(bad.errorString(), "line 1, column 4: unexpected end of input");
}

TEST(KyJsonParser, IntegersAndDoublesStayApartAndExactThroughRoundTrips) {
    const std::int64_t integers[] = {0, 1, -1, 42, 1700000000123, std::numeric_limits<std::int64_t>::max(),
                                     std::numeric_limits<std::int64_t>::min(), 9007199254740993};
    for (std::int64_t v : integers) {
        const KyString text = KyJsonDocument::generateJson(KyJsonValue(static_cast<long long>(v)), KyJsonDocument::Compact);
        KyJsonDocument doc;
        ASSERT_TRUE(doc.loadFromJson(text)) << text;
        EXPECT_TRUE(doc.root().isInteger()) << text;
        EXPECT_EQ(doc.root().toInt64(), v) << text;
    }
    const double doubles[] = {0.1, 1e300, -2.5, 1.0 / 3.0, 5e-324, 1.7976931348623157e308, 2.2250738585072014e-308,
                              1.0, -0.0, 123456789.125, 1e21, 1e-7};
    for (double v : doubles) {
        const KyString text = KyJsonDocument::generateJson(KyJsonValue(v), KyJsonDocument::Compact);
        KyJsonDocument doc;
        ASSERT_TRUE(doc.loadFromJson(text)) << text;
        EXPECT_TRUE(doc.root().isDouble()) << text;
        EXPECT_EQ(doc.root().toDouble(), v) << text;
        EXPECT_EQ(std::signbit(doc.root().toDouble()), std::signbit(v)) << text;
    }
    const KyJsonArray nonFinite{std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity()};
    EXPECT_EQ(KyJsonDocument(nonFinite).generateJson(), "[null,null,null]") << "non-finite doubles are written as null";
}

TEST(KyJsonParser, DeepestAllowedTextFitsAFiberSizedStack) {
    // Snapshots are parsed inside slots that run on 128 KB fiber stacks; the
    // deepest text the parser admits must parse, generate, compare, copy and
    // free there. Sanitizer builds without optimisation have frames several
    // times larger, so they get a proportionally larger budget.
    struct Job {
        bool ok = false;
        static void* run(void* arg) {
            Job* job = static_cast<Job*>(arg);
            std::string text;
            for (int i = 0; i < 128; ++i) text += "{\"k\":[";
            text += "1";
            for (int i = 0; i < 128; ++i) text += "]}";
            KyJsonDocument doc;
            if (!doc.loadFromJson(text)) return nullptr;
            KyJsonDocument copy = doc;
            KyJsonDocument again;
            job->ok = again.loadFromJson(copy.generateJson(KyJsonDocument::Indented)) && again == doc &&
                      !again.loadFromJson(nested(300));
            return nullptr;
        }
    } job;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, kSanitized ? 1024 * 1024 : 128 * 1024);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attr, &Job::run, &job), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    EXPECT_TRUE(job.ok);
}
