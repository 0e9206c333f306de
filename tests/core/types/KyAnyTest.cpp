// KyAny: exact and converting reads, copies of inline and heap values, the
// type registry and its once-only built-in names under concurrent first use.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "core/types/KyAny.h"
#include "core/types/KyColor.h"
#include "core/types/KyJsonHelpers.h"
#include "core/types/KyPoint.h"
#include "core/types/KyRect.h"
#include "core/types/KySize.h"

namespace {

// Counts live instances, so a test can see every copy destroyed exactly once.
template <std::size_t Bytes> struct Counted {
    static inline std::atomic<int> live{0};
    char payload[Bytes] = {};
    int id = 0;
    explicit Counted(int i) : id(i) { ++live; }
    Counted(const Counted& o) : id(o.id) { ++live; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --live; }
    bool operator==(const Counted& o) const { return id == o.id; }
};
using SmallCounted = Counted<4>;   // held inside the KyAny
using LargeCounted = Counted<200>; // held on the heap

struct NoEquality { int v = 0; };

struct NoDefault {
    explicit NoDefault(int x) : v(x) {}
    int v;
};

// Copies throw once armed; moves never do, so the small variant is held inline.
template <std::size_t Bytes> struct ThrowsOnCopy {
    static inline bool armed = false;
    char payload[Bytes] = {};
    ThrowsOnCopy() = default;
    ThrowsOnCopy(ThrowsOnCopy&&) noexcept = default;
    ThrowsOnCopy(const ThrowsOnCopy&) {
        if (armed) throw std::runtime_error("copy refused");
    }
};

struct VpnEndpointRow { KyString name; int port = 0; bool operator==(const VpnEndpointRow&) const = default; };

std::string mismatchText(const std::function<void()>& read) {
    try {
        read();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no exception";
}

} // namespace

TEST(KyAny, HoldsTextAsItsOwnCopyAndAWrongTypedReadThrowsTheDocumentedMessage) {
    std::string source = "velnet";
    const KyAny fromStd(source);
    source = "changed";
    EXPECT_EQ(fromStd.get<KyString>(), "velnet") << "never a pointer into the caller's buffer";
    EXPECT_EQ(KyAny("hotspot").typeName(), "KyString");
    EXPECT_EQ(KyAny(NoDefault(3)).value(NoDefault(0)).v, 3);
    EXPECT_EQ(KyAny(3).value(NoDefault(-1)).v, -1);
    for (const auto& read : std::vector<std::function<void()>>{[] { (void)KyAny(7).get<double>(); },
                                                                [] { (void)KyAny(7).get<unsigned int>(); },
                                                                [] { (void)KyAny("7").get<int>(); },
                                                                [] { (void)KyAny().get<KyString>(); }})
        EXPECT_EQ(mismatchText(read), "Type mismatch in KyAny::get");
}

TEST(KyAny, FromVoidPtrCopiesEachBuiltinTypeByName) {
    // Each row's value is also the source its copy is built from.
    const KyJsonObject jo = parseJsonObjectOrEmpty(R"({"id":"h1","online":true})");
    struct Row { const char* name; KyAny value; };
    const Row rows[] = {
        {"bool", KyAny(true)}, {"int", KyAny(-5)}, {"unsigned int", KyAny(4000000000u)},
        {"long long", KyAny(-(1LL << 40))}, {"unsigned long long", KyAny(~0ULL)}, {"double", KyAny(2.5)},
        {"float", KyAny(0.25f)}, {"KyString", KyAny("endpoint")}, {"KyList<KyString>", KyAny(KyList<KyString>{"x", "y"})},
        {"KyColor", KyAny(KyColor(10, 20, 30))}, {"KyRect", KyAny(KyRect(1, 2, 3, 4))}, {"KyPoint", KyAny(KyPoint(-1, 9))},
        {"KySize", KyAny(KySize(640, 480))}, {"KyJsonObject", KyAny(jo)},
        {"KyJsonArray", KyAny(KyJsonArray{KyJsonValue(jo), KyJsonValue("x")})},
        {"KyJsonValue", KyAny(KyJsonValue(int64_t{1} << 53))},
    };
    for (const Row& row : rows) {
        EXPECT_TRUE(KyAny::isRegistered(row.name)) << row.name;
        const KyAny got = KyAny::fromVoidPtr(row.value.constData(), row.name);
        EXPECT_EQ(got, row.value) << row.name;
        EXPECT_EQ(got.typeName(), row.name);
        EXPECT_NE(got.constData(), row.value.constData()) << row.name << ": must be a copy";
    }
    const int i = -5;
    EXPECT_TRUE(KyAny::fromVoidPtr(&i, "no such type").isEmpty());
    EXPECT_TRUE(KyAny::fromVoidPtr(nullptr, "int").isEmpty());
    EXPECT_TRUE(KyAny::fromVoidPtr(&i, "").isEmpty());
}

TEST(KyAny, ValueConvertsAmongNumbersAndTextOrFallsBack) {
    // Fallbacks when a read does not convert: int -99, unsigned 99, double -0.5, text "<none>";
    // asBoolOk tells whether convertTo(bool) succeeded.
    struct Row { const char* name; KyAny held; int asInt; unsigned int asUInt; double asDouble; bool asBool, asBoolOk;
                 const char* asText; };
    const Row rows[] = {
        {"int", KyAny(12), 12, 12u, 12.0, true, true, "12"},
        {"negative int", KyAny(-3), -3, 99u, -3.0, true, true, "-3"},
        {"zero", KyAny(0), 0, 0u, 0.0, false, true, "0"}, {"bool true", KyAny(true), 1, 1u, 1.0, true, true, "true"},
        {"bool false", KyAny(false), 0, 0u, 0.0, false, true, "false"},
        {"double rounds half away", KyAny(2.5), 3, 3u, 2.5, true, true, "2.5"},
        {"negative double", KyAny(-2.5), -3, 99u, -2.5, true, true, "-2.5"},
        {"double beyond int", KyAny(3e9), -99, 3000000000u, 3e9, true, true, "3000000000"},
        {"nan", KyAny(std::nan("")), -99, 99u, std::nan(""), false, false, "nan"},
        {"float keeps its digits", KyAny(0.1f), 0, 0u, double(0.1f), true, true, "0.1"},
        {"unsigned beyond int", KyAny(4000000000u), -99, 4000000000u, 4e9, true, true, "4000000000"},
        {"huge unsigned", KyAny(~0ULL), -99, 99u, 18446744073709551615.0, true, true, "18446744073709551615"},
        {"long long", KyAny(-(1LL << 40)), -99, 99u, -1099511627776.0, true, true, "-1099511627776"},
        {"text int", KyAny(" 17 "), 17, 17u, 17.0, false, false, " 17 "},
        {"text double", KyAny("1.5"), -99, 99u, 1.5, false, false, "1.5"},
        {"text true", KyAny("Yes"), -99, 99u, -0.5, true, true, "Yes"},
        {"text zero", KyAny("0"), 0, 0u, 0.0, false, true, "0"},
        {"empty text is false", KyAny(""), -99, 99u, -0.5, false, true, ""},
        {"text garbage", KyAny("12abc"), -99, 99u, -0.5, false, false, "12abc"},
        {"text negative", KyAny("-4"), -4, 99u, -4.0, false, false, "-4"},
        {"colour as text", KyAny(KyColor(255, 0, 16)), -99, 99u, -0.5, false, false, "#ff0010"},
        {"rect", KyAny(KyRect(1, 1, 1, 1)), -99, 99u, -0.5, false, false, "<none>"},
        {"empty", KyAny(), -99, 99u, -0.5, false, false, "<none>"},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.held.value<int>(-99), r.asInt) << r.name;
        EXPECT_EQ(r.held.value<unsigned int>(99u), r.asUInt) << r.name;
        const double d = r.held.value<double>(-0.5);
        if (std::isnan(r.asDouble)) {
            EXPECT_TRUE(std::isnan(d)) << r.name;
        } else {
            EXPECT_DOUBLE_EQ(d, r.asDouble) << r.name;
        }
        bool b = false;
        EXPECT_EQ(r.held.convertTo(b), r.asBoolOk) << r.name;
        if (r.asBoolOk) {
            EXPECT_EQ(b, r.asBool) << r.name;
        }
        EXPECT_EQ(r.held.value<KyString>("<none>"), r.asText) << r.name;
    }
    // Narrow targets refuse what they cannot hold instead of wrapping.
    EXPECT_EQ(KyAny(300).value<unsigned char>(7), 7);
    EXPECT_EQ(KyAny(-129).value<signed char>(7), 7);
    EXPECT_EQ(KyAny(-128).value<signed char>(7), -128) << "the lowest value fits";
    EXPECT_EQ(KyAny(1e300).value<float>(1.0f), 1.0f);
    EXPECT_EQ(KyAny(1e300).value<long long>(5), 5);
    EXPECT_EQ(KyAny(9223372036854775807LL).value<long long>(), 9223372036854775807LL);
    EXPECT_EQ(KyAny(9.3e18).value<long long>(5), 5);
    EXPECT_EQ(KyAny("true").toBool(), true);
    EXPECT_EQ(KyAny(2.9).toInt(), 3);
}

TEST(KyAny, ConvertedToBuildsTheNamedTypeOrNothingAndEnumsConvertThroughTheirUnderlyingValue) {
    enum class Lane : unsigned char { Input = 1, Normal = 2 };
    EXPECT_EQ(KyAny(Lane::Normal).toInt(), 2);
    EXPECT_EQ(KyAny(1).value<Lane>(Lane::Normal), Lane::Input);
    EXPECT_EQ(KyAny(-1).value<Lane>(Lane::Normal), Lane::Normal);
    EXPECT_EQ(KyAny("42").convertedTo("int"), KyAny(42));
    EXPECT_EQ(KyAny(3).convertedTo("double"), KyAny(3.0));
    EXPECT_EQ(KyAny(true).convertedTo("KyString"), KyAny("true"));
    EXPECT_EQ(KyAny(KyColor(1, 2, 3)).convertedTo("KyColor"), KyAny(KyColor(1, 2, 3)));
    EXPECT_TRUE(KyAny("x").convertedTo("int").isEmpty());
    EXPECT_TRUE(KyAny(-1).convertedTo("unsigned int").isEmpty());
    EXPECT_TRUE(KyAny(1).convertedTo("KyRect").isEmpty());
    EXPECT_TRUE(KyAny(1).convertedTo("unknown").isEmpty());
}

TEST(KyAny, EqualityNeedsTheSameTypeAndAnEqualValueAndPrintsShowTypeAndValue) {
    EXPECT_EQ(KyAny(), KyAny());
    EXPECT_NE(KyAny(5), KyAny(6));
    EXPECT_NE(KyAny(5), KyAny(5.0));
    EXPECT_NE(KyAny(5), KyAny());
    EXPECT_EQ(KyAny("a"), KyAny(KyString("a")));
    EXPECT_EQ(KyAny(VpnEndpointRow{"gw", 443}), KyAny(VpnEndpointRow{"gw", 443}));
    EXPECT_NE(KyAny(VpnEndpointRow{"gw", 443}), KyAny(VpnEndpointRow{"gw", 80}));
    // Without == the values cannot be compared, so a change is always reported.
    EXPECT_NE(KyAny(NoEquality{1}), KyAny(NoEquality{1}));
    EXPECT_NE(KyAny(std::nan("")), KyAny(std::nan("")));
    std::ostringstream out; // as logs print them
    out << KyAny(5) << ' ' << KyAny() << ' ' << KyAny("on");
    EXPECT_EQ(out.str(), "KyAny(int, 5) KyAny() KyAny(KyString, on)");
}

TEST(KyAny, CopiesAreIndependentAndEveryInstanceIsDestroyedOnce) {
    ASSERT_EQ(SmallCounted::live.load(), 0);
    ASSERT_EQ(LargeCounted::live.load(), 0);
    {
        KyAny small(SmallCounted(1));
        KyAny large(LargeCounted(2));
        EXPECT_EQ(SmallCounted::live.load(), 1);
        EXPECT_EQ(LargeCounted::live.load(), 1);

        KyAny smallCopy = small;
        KyAny largeCopy = large;
        EXPECT_EQ(SmallCounted::live.load(), 2);
        EXPECT_EQ(LargeCounted::live.load(), 2);
        EXPECT_NE(largeCopy.constData(), large.constData());

        // Moving a heap value hands over the object, no copy.
        KyAny moved = std::move(large);
        EXPECT_TRUE(large.isEmpty());
        EXPECT_EQ(LargeCounted::live.load(), 2);
        EXPECT_EQ(moved.get<LargeCounted>().id, 2);

        // Cross assignment between an inline and a heap value, both ways.
        small = moved;
        EXPECT_EQ(SmallCounted::live.load(), 1);
        EXPECT_EQ(LargeCounted::live.load(), 3);
        moved = smallCopy;
        EXPECT_EQ(SmallCounted::live.load(), 2);
        EXPECT_EQ(LargeCounted::live.load(), 2);
        swap(small, moved);
        EXPECT_TRUE(small.is<SmallCounted>());
        EXPECT_TRUE(moved.is<LargeCounted>());
        small = small; // self-assignment keeps the value
        EXPECT_EQ(small.get<SmallCounted>().id, 1);
        moved.clear();
        EXPECT_EQ(LargeCounted::live.load(), 1);

        KyList<KyAny> table(100, KyAny(LargeCounted(3)));
        EXPECT_EQ(LargeCounted::live.load(), 101);
    }
    EXPECT_EQ(SmallCounted::live.load(), 0);
    EXPECT_EQ(LargeCounted::live.load(), 0);
}

TEST(KyAny, ThrowingCopyLeavesTheTargetUnchanged) {
    const KyAny small(ThrowsOnCopy<8>{});
    const KyAny large(ThrowsOnCopy<100>{});
    KyAny target("kept");
    ThrowsOnCopy<8>::armed = ThrowsOnCopy<100>::armed = true;
    EXPECT_THROW(target = small, std::runtime_error);
    EXPECT_EQ(target.get<KyString>(), "kept");
    EXPECT_THROW(target = large, std::runtime_error);
    EXPECT_EQ(target.get<KyString>(), "kept");
    EXPECT_THROW(KyAny copy(large), std::runtime_error);
    ThrowsOnCopy<8>::armed = ThrowsOnCopy<100>::armed = false;
    EXPECT_TRUE(KyAny(small).is<ThrowsOnCopy<8>>());
}

TEST(KyAny, RegisteredTypesAreNamedAndBuiltFromPointers) {
    EXPECT_FALSE(KyAny::isRegistered("VpnEndpointRow"));
    const VpnEndpointRow row{"gateway", 1194};
    EXPECT_TRUE(KyAny::fromVoidPtr(&row, "VpnEndpointRow").isEmpty());
    EXPECT_EQ(KyAny(row).typeName(), "(anonymous namespace)::VpnEndpointRow");

    EXPECT_TRUE(KyAny::registerType<VpnEndpointRow>("VpnEndpointRow"));
    EXPECT_TRUE(KyAny::isRegistered("VpnEndpointRow"));
    EXPECT_TRUE(KyAny::registerType<VpnEndpointRow>("VpnEndpointRow")) << "same type again is fine";
    EXPECT_TRUE(KyAny::registerType<VpnEndpointRow>("EndpointRow")) << "a second name for the same type";
    const KyAny built = KyAny::fromVoidPtr(&row, "EndpointRow");
    EXPECT_EQ(built.get<VpnEndpointRow>(), row);
    EXPECT_EQ(built.typeName(), "VpnEndpointRow") << "the first name is the one reported";

    // A name never changes its type, and built-in names are taken.
    EXPECT_FALSE(KyAny::registerType<int>("VpnEndpointRow"));
    EXPECT_FALSE(KyAny::registerType<long>("int"));
    EXPECT_FALSE(KyAny::registerType<long>(""));
    EXPECT_EQ(KyAny::fromVoidPtr(&row, "VpnEndpointRow").get<VpnEndpointRow>().port, 1194);
}

// Runs in a freshly started copy of this test program, so the built-in names
// are registered here for the first time, by whichever thread comes first.
TEST(KyAnyDeathTest, RegistryServesManyThreadsFromTheFirstUseOfItsBuiltinNames) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            constexpr int kThreads = 8;
            std::atomic<int> ready{0};
            std::atomic<int> failures{0};
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([&, t] {
                    ++ready;
                    while (ready.load() < kThreads) std::this_thread::yield();
                    const KySize size(3, 4);
                    const KyAny v = KyAny::fromVoidPtr(&size, "KySize");
                    if (!v.is<KySize>() || !KyAny::isRegistered("KyColor") || KyAny(1.5).typeName() != "double")
                        ++failures;
                    // Each thread registers its own names while others read the shared ones.
                    for (int i = 0; i < 300; ++i) {
                        const KyString name = KyString("ThreadPoint_%1_%2").arg(t).arg(i);
                        const KyPoint p(t, i);
                        if (!KyAny::registerType<KyPoint>(name) || KyAny::fromVoidPtr(&p, name).get<KyPoint>() != p ||
                            KyAny::fromVoidPtr(&p, "KyPoint").typeName() != "KyPoint")
                            ++failures;
                    }
                });
            }
            for (auto& th : threads) th.join();
            std::exit(failures.load() == 0 && KyAny::isRegistered("ThreadPoint_7_299") ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
