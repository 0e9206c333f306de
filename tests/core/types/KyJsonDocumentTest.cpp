// KyJsonDocument generation and the snapshot helpers: exact compact and
// indented text, escaping, documents that go through real files, several
// threads reading one document, and the lenient readers the console uses.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "../../support/KyTestProcess.h"
#include "core/io/KyFile.h"
#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonHelpers.h"

namespace {

KyJsonDocument parsed(const char* text) {
    KyJsonDocument doc;
    EXPECT_TRUE(doc.loadFromJson(text)) << doc.errorString();
    return doc;
}

} // namespace

TEST(KyJsonGenerate, CompactAndIndentedTextsAreExact) {
    const KyJsonDocument doc = parsed(R"({"a":1,"b":[true,{"c":null}],"d":{},"e":[],"f":-2.5})");
    EXPECT_EQ(doc.generateJson(KyJsonDocument::Compact), R"({"a":1,"b":[true,{"c":null}],"d":{},"e":[],"f":-2.5})");
    EXPECT_EQ(doc.generateJson(KyJsonDocument::Indented),
              "{\n    \"a\": 1,\n    \"b\": [\n        true,\n        {\n            \"c\": null\n        }\n    ],\n"
              "    \"d\": {},\n    \"e\": [],\n    \"f\": -2.5\n}\n");
    EXPECT_EQ(KyJsonDocument(KyJsonValue(7)).generateJson(KyJsonDocument::Indented), "7\n");
    EXPECT_EQ(KyJsonDocument().generateJson(), "null");
}

TEST(KyJsonGenerate, StringsAreEscapedOnlyWhereJsonRequires) {
    struct Row { const char* name; std::string text; const char* json; };
    using namespace std::string_literals;
    const Row rows[] = {
        {"plain", "abc", "\"abc\""}, {"quote and backslash", "a\"b\\c", "\"a\\\"b\\\\c\""},
        {"slash stays", "a/b", "\"a/b\""}, {"short control escapes", "\b\f\n\r\t", "\"\\b\\f\\n\\r\\t\""},
        {"other controls as \\u00XX", "\x01\x1f"s + "\0"s, "\"\\u0001\\u001f\\u0000\""},
        {"UTF-8 as it is", "\xc3\xa9\xf0\x9f\x98\x80", "\"\xc3\xa9\xf0\x9f\x98\x80\""},
        {"invalid UTF-8 as U+FFFD", "a\xff" "b\xe2\x82", "\"a\xef\xbf\xbd" "b\xef\xbf\xbd\xef\xbf\xbd\""},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(KyJsonDocument::generateJson(KyJsonValue(r.text), KyJsonDocument::Compact), r.json);
        KyJsonDocument back;
        ASSERT_TRUE(back.loadFromJson(KyJsonDocument(KyJsonObject{{KyString(r.text), 1}}).generateJson()));
        EXPECT_EQ(back.root().asObject().size(), 1u) << "a member name is escaped the same way";
    }
}

TEST(KyJsonGenerate, DocumentsSurviveARealFileInBothFormats) {
    const kytest::TempDir dir;
    KyJsonDocument doc;
    *doc.find("vpn/filter/enabled", true) = true;
    *doc.find("vpn/filter/ranges", true) = KyJsonArray{"10.0.0.0/8", "192.168.0.0/16"};
    *doc.find("vpn/limits/maxMs", true) = static_cast<long long>(1700000000123);
    *doc.find("vpn/limits/ratio", true) = 0.75;
    *doc.find("label", true) = "Gr\xc3\xbc\xc3\x9f \"Home\"\n";
    for (KyJsonDocument::Format format : {KyJsonDocument::Compact, KyJsonDocument::Indented}) {
        KyString text;
        ASSERT_TRUE(KyFile::writeAll(dir.file("doc.json"), doc.generateJson(format).view()));
        ASSERT_TRUE(KyFile::readAll(dir.file("doc.json"), text));
        KyJsonDocument back;
        ASSERT_TRUE(back.loadFromJson(text)) << back.errorString();
        EXPECT_EQ(back, doc);
        EXPECT_EQ(back.generateJson(format), doc.generateJson(format));
    }
}

TEST(KyJsonGenerate, ManyThreadsReadOneConstDocumentAtOnce) {
    KyJsonObject big;
    for (int i = 0; i < 200; ++i) big.insert("member" + std::to_string(i), KyJsonObject{{"id", i}, {"name", "n" + std::to_string(i)}});
    const KyJsonDocument doc{KyJsonValue(big)};
    const KyString expected = doc.generateJson();
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 50; ++round) {
                const int i = (round * 7 + t * 13) % 200;
                if (doc.find("member" + std::to_string(i) + "/id")->toInt(-1) != i) ++mismatches;
                if (doc.generateJson() != expected) ++mismatches;
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(mismatches.load(), 0);
}

TEST(KyJsonHelpers, LenientReadersGiveEmptyForBadTextOtherRootsAndOtherTypes) {
    struct Row { const char* name; const char* text; std::size_t members; };
    const Row rows[] = {
        {"object", R"({"a":1,"b":2})", 2}, {"malformed", R"({"a":1,)", 0}, {"array root", "[1,2]", 0},
        {"string root", "\"x\"", 0}, {"empty text", "", 0}, {"trailing garbage", "{} {}", 0},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(parseJsonObjectOrEmpty(r.text).size(), r.members);
    }
    const KyJsonObject o = parseJsonObjectOrEmpty(
        R"({"status":"ready","count":3,"flag":true,"nothing":null,"empty":"","nested":{"status":"x"}})");
    EXPECT_EQ(jsonStringValue(o, "status"), "ready");
    for (const char* key : {"count", "flag", "nothing", "empty", "nested", "absent"}) EXPECT_EQ(jsonStringValue(o, key), "") << key;
    EXPECT_EQ(jsonStringValue(o, nullptr), "");
}
