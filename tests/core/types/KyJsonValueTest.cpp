// KyJsonValue, KyJsonObject and KyJsonArray: typed reads with defaults,
// insertion order, replacement in place, large-object lookups, deep copies and
// deep equality, and slash-path lookup with and without creation.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonValue.h"

TEST(KyJsonValue, TypedGettersReturnTheValueOrTheFallback) {
    // The reads with their fallbacks: toInt(-7), toDouble(-7.5), toString("fb"), toBool(true).
    struct Row { const char* name; KyJsonValue value; KyJsonValue::Type type; bool isNumber; int asInt; double asDouble;
                 const char* asString; bool asBool; };
    const Row rows[] = {
        {"null", KyJsonValue(), KyJsonValue::Null, false, -7, -7.5, "fb", true},
        {"false", KyJsonValue(false), KyJsonValue::Bool, false, -7, -7.5, "fb", false},
        {"integer", KyJsonValue(42), KyJsonValue::Integer, true, 42, 42.0, "fb", true},
        {"integer beyond int", KyJsonValue(5000000000LL), KyJsonValue::Integer, true, -7, 5e9, "fb", true},
        {"whole double", KyJsonValue(3.0), KyJsonValue::Double, true, 3, 3.0, "fb", true},
        {"fractional double", KyJsonValue(3.5), KyJsonValue::Double, true, -7, 3.5, "fb", true},
        {"string", KyJsonValue("12"), KyJsonValue::String, false, -7, -7.5, "12", true},
        {"array", KyJsonValue(KyJsonArray{1}), KyJsonValue::Array, false, -7, -7.5, "fb", true},
        {"object", KyJsonValue(KyJsonObject{{"a", 1}}), KyJsonValue::Object, false, -7, -7.5, "fb", true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.value.type(), r.type);
        EXPECT_EQ(r.value.isNumber(), r.isNumber);
        EXPECT_EQ(r.value.toInt(-7), r.asInt);
        EXPECT_EQ(r.value.toDouble(-7.5), r.asDouble);
        EXPECT_EQ(r.value.toString("fb"), r.asString);
        EXPECT_EQ(r.value.toBool(true), r.asBool);
        EXPECT_EQ(r.value.toArray().isEmpty(), r.type != KyJsonValue::Array);
        EXPECT_EQ(r.value.toObject().isEmpty(), r.type != KyJsonValue::Object);
    }
    EXPECT_EQ(KyJsonValue(std::numeric_limits<std::uint64_t>::max()).type(), KyJsonValue::Double);
    EXPECT_EQ(KyJsonValue(static_cast<std::uint64_t>(7)).type(), KyJsonValue::Integer);
    EXPECT_EQ(KyJsonValue(9.3e18).toInt64(-1), -1);
    EXPECT_EQ(KyJsonValue(-9223372036854775808.0).toInt64(), std::numeric_limits<std::int64_t>::min());
}

TEST(KyJsonValue, CopiesAreDeepAndMovesLeaveNull) {
    KyJsonValue a(KyJsonObject{{"list", KyJsonArray{1, 2}}});
    KyJsonValue b = a;
    b.objectPtr()->valueAt(0).arrayPtr()->append(3);
    EXPECT_EQ(a["list"].asArray().size(), 2u);
    EXPECT_EQ(b["list"].asArray().size(), 3u);

    KyJsonValue c = std::move(b);
    EXPECT_TRUE(b.isNull());
    EXPECT_EQ(c["list"][2], KyJsonValue(3));

    // Assigning a value its own member must not read freed memory.
    c = c["list"];
    EXPECT_EQ(c, KyJsonValue(KyJsonArray{1, 2, 3}));
    c = std::move(*c.arrayPtr())[0];
    EXPECT_EQ(c, KyJsonValue(1));
}

TEST(KyJsonValue, EqualityIsDeepStrictOnTypeAndBlindToMemberOrder) {
    EXPECT_EQ(KyJsonValue(KyJsonObject{{"a", 1}, {"b", "x"}}), KyJsonValue(KyJsonObject{{"b", "x"}, {"a", 1}}));
    EXPECT_NE(KyJsonValue(KyJsonObject{{"a", 1}}), KyJsonValue(KyJsonObject{{"a", 1}, {"b", 1}}));
    EXPECT_NE(KyJsonValue(KyJsonObject{{"a", 1}}), KyJsonValue(KyJsonObject{{"b", 1}}));
    EXPECT_NE(KyJsonValue(1), KyJsonValue(1.0));
    EXPECT_NE(KyJsonValue(KyJsonArray{1, 2}), KyJsonValue(KyJsonArray{2, 1}));
    EXPECT_NE(KyJsonValue(""), KyJsonValue());
    EXPECT_EQ(KyJsonValue(KyJsonArray{KyJsonObject{{"n", KyJsonValue()}}}),
              KyJsonValue(KyJsonArray{KyJsonObject{{"n", nullptr}}}));
}

TEST(KyJsonObject, KeepsInsertionOrderAndReplacesInPlace) {
    KyJsonObject o;
    o.insert("zeta", 1);
    o.insert("alpha", 2);
    o["mid"] = "m";
    o.insert("zeta", "replaced");
    EXPECT_EQ(KyString::join(o.keys(), ","), "zeta,alpha,mid");
    EXPECT_EQ(KyJsonDocument(o).generateJson(), "{\"zeta\":\"replaced\",\"alpha\":2,\"mid\":\"m\"}");

    EXPECT_TRUE(o.remove("alpha"));
    EXPECT_FALSE(o.remove("alpha"));
    o.insert("alpha", 3);
    EXPECT_EQ(KyString::join(o.keys(), ","), "zeta,mid,alpha");
    EXPECT_EQ(o.take("mid"), KyJsonValue("m"));
    EXPECT_EQ(o.take("mid"), KyJsonValue());
    EXPECT_EQ(o.size(), 2u);

    std::string walked;
    for (const auto& [key, value] : o) walked += key.toStdString() + "=" + std::to_string(value.toInt(-1)) + ";";
    EXPECT_EQ(walked, "zeta=-1;alpha=3;");
    // Reads of absent members never create them.
    const KyJsonValue v(o);
    EXPECT_TRUE(v["missing"]["deeper"][3].isNull());
    EXPECT_EQ(o.valuePtr("missing"), nullptr);
    EXPECT_EQ(KyJsonDocument(v).generateJson(), "{\"zeta\":\"replaced\",\"alpha\":3}");
}

TEST(KyJsonObject, LargeObjectsStayConsistentThroughInsertReplaceAndRemove) {
    KyJsonObject o;
    const int n = 3000;
    for (int i = 0; i < n; ++i) o.insert("k" + std::to_string(i), i);
    for (int i = 0; i < n; i += 3) EXPECT_TRUE(o.remove("k" + std::to_string(i)));
    for (int i = 1; i < n; i += 3) o.insert("k" + std::to_string(i), -i);
    EXPECT_EQ(o.size(), static_cast<std::size_t>(n - (n + 2) / 3));
    for (int i = 0; i < n; ++i) {
        const KyJsonValue* v = o.valuePtr("k" + std::to_string(i));
        EXPECT_EQ(v ? v->toInt() : 0, i % 3 == 0 ? 0 : i % 3 == 1 ? -i : i) << i;
        EXPECT_EQ(v == nullptr, i % 3 == 0) << i;
    }
    EXPECT_EQ(o.keyAt(0), "k1");
    EXPECT_EQ(o.keyAt(1), "k2");
    // Shrinking below the index threshold falls back to scanning.
    while (o.size() > 3) o.remove(o.keyAt(o.size() - 1).view());
    EXPECT_EQ(KyString::join(o.keys(), ","), "k1,k2,k4");
    EXPECT_EQ(o["k4"].toInt(), -4);
    KyJsonObject copy = o;
    EXPECT_EQ(copy, o);
}

TEST(KyJsonArray, AppendsInsertsRemovesAndGuardsItsBounds) {
    KyJsonArray a;
    a.append(1);
    a.append("two");
    a.insert(0, 0);
    a.insert(99, 3.5);
    EXPECT_EQ(KyJsonDocument(a).generateJson(), "[0,1,\"two\",3.5]");
    EXPECT_TRUE(a.at(4).isNull());
    EXPECT_TRUE(a.removeAt(1));
    EXPECT_FALSE(a.removeAt(3));
    EXPECT_EQ(a.takeAt(0), KyJsonValue(0));
    EXPECT_EQ(a.takeAt(10), KyJsonValue());
    EXPECT_EQ(a.first(), KyJsonValue("two"));
    EXPECT_EQ(a.last(), KyJsonValue(3.5));
    int strings = 0;
    for (const KyJsonValue& v : a) strings += v.isString();
    EXPECT_EQ(strings, 1);
    EXPECT_TRUE(KyJsonArray().last().isNull());
}

TEST(KyJsonDocumentFind, WalksObjectsAndArraysWithoutCreating) {
    KyJsonDocument doc;
    ASSERT_TRUE(doc.loadFromJson(R"({"vpn":{"filter":{"enabled":true}},"items":[{"name":"a"},{"name":"b"}],"s":"x"})"));
    struct Row { const char* path; const char* want; }; // want: compact text, or nullptr when absent
    const Row rows[] = {
        {"vpn/filter/enabled", "true"}, {"/vpn//filter/enabled/", "true"},
        {"items/1/name", "\"b\""}, {"items/2/name", nullptr}, {"items/-1", nullptr}, {"items/x", nullptr},
        {"items/01", "{\"name\":\"b\"}"}, {"vpn/missing", nullptr}, {"s/deeper", nullptr},
        {"vpn/filter/enabled/more", nullptr},
    };
    const KyString before = doc.generateJson();
    for (const Row& r : rows) {
        SCOPED_TRACE(r.path);
        const KyJsonValue* v = static_cast<const KyJsonDocument&>(doc).find(r.path);
        EXPECT_EQ(v ? KyJsonDocument::generateJson(*v, KyJsonDocument::Compact) : KyString("absent"),
                  r.want ? r.want : "absent");
        if (!r.want) { EXPECT_EQ(doc.find(r.path, false), nullptr); }
    }
    EXPECT_EQ(doc.find(""), &doc.root());
    EXPECT_EQ(doc.generateJson(), before);
}

TEST(KyJsonDocumentFind, CreatesMissingMembersAndRefusesScalarsInTheWay) {
    KyJsonDocument doc;
    KyJsonValue* v = doc.find("vpn/filter/enabled", true);
    ASSERT_NE(v, nullptr);
    *v = true;
    *doc.find("vpn/filter/mode", true) = "block";
    *doc.find("vpn/name", true) = "home";
    EXPECT_EQ(doc.generateJson(), R"({"vpn":{"filter":{"enabled":true,"mode":"block"},"name":"home"}})");

    // Existing values are returned as they are, not reset.
    EXPECT_EQ(*doc.find("vpn/filter/enabled", true), KyJsonValue(true));

    // A null on the way becomes an object; other scalars refuse the path.
    *doc.find("vpn/extra", true) = KyJsonValue();
    ASSERT_NE(doc.find("vpn/extra/inner", true), nullptr);
    const KyString before = doc.generateJson();
    EXPECT_EQ(doc.find("vpn/name/inner", true), nullptr);
    EXPECT_EQ(doc.find("vpn/filter/enabled/x/y", true), nullptr);
    EXPECT_EQ(doc.generateJson(), before);

    // Arrays: an index equal to the size appends; beyond or non-numeric refuses.
    *doc.find("list", true) = KyJsonArray{"a"};
    ASSERT_NE(doc.find("list/1/name", true), nullptr);
    *doc.find("list/1/name", true) = "b";
    EXPECT_EQ(doc.find("list/5", true), nullptr);
    EXPECT_EQ(doc.find("list/name", true), nullptr);
    EXPECT_EQ(doc.root()["list"].asArray().size(), 2u);
    EXPECT_EQ(doc.root()["list"][1]["name"], KyJsonValue("b"));
}
