// KyPointer: reads null once its object has left a real liveness set, asks
// about the base address a layer registered, and works across threads.
#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "core/types/KyPointer.h"

namespace {

// A liveness set as an object layer keeps one: objects enter it when built and
// leave it when destroyed.
std::mutex gLiveMutex;
std::set<const void*> gLive;

bool inLiveSet(const void* p) {
    std::lock_guard<std::mutex> lock(gLiveMutex);
    return gLive.count(p) != 0;
}

struct Tracked {
    Tracked() {
        std::lock_guard<std::mutex> lock(gLiveMutex);
        gLive.insert(static_cast<const void*>(this));
    }
    Tracked(const Tracked&) = delete;
    virtual ~Tracked() {
        std::lock_guard<std::mutex> lock(gLiveMutex);
        gLive.erase(static_cast<const void*>(this));
    }
    int answer = 42;
};
// The set knows Tracked addresses; derived pointers are mapped onto them.
[[maybe_unused]] const void* kyLivenessKey(const Tracked* object) noexcept { return object; }

// A non-empty first base moves the Tracked part away from the object's start.
struct Decoration {
    virtual ~Decoration() = default;
    char border[24] = {};
};
struct Badge : Decoration, Tracked {
    int count = 3;
};

class KyPointerWithLivenessSet : public ::testing::Test {
protected:
    void SetUp() override { ky::setLivenessChecker(&inLiveSet); }
    void TearDown() override { ky::setLivenessChecker(nullptr); }
};

} // namespace

TEST_F(KyPointerWithLivenessSet, ReadsNullOnceTheObjectIsDestroyedEvenByAnotherThread) {
    auto owner = std::make_unique<Tracked>();
    KyPointer<Tracked> p(owner.get());
    const KyPointer<Tracked> copy = p;
    EXPECT_EQ(p->answer, 42);
    owner.reset();
    EXPECT_FALSE(p);
    EXPECT_EQ(p.operator->(), nullptr);
    EXPECT_EQ(copy.get(), nullptr) << "every copy sees the object gone";

    auto* object = new Tracked;
    p = object;
    EXPECT_EQ(p.get(), object);
    std::thread([object] { delete object; }).join();
    EXPECT_TRUE(p.isNull());
}

TEST_F(KyPointerWithLivenessSet, AsksAboutTheRegisteredBaseAddressOfADerivedObject) {
    auto badge = std::make_unique<Badge>();
    ASSERT_NE(static_cast<const void*>(badge.get()), static_cast<const void*>(static_cast<Tracked*>(badge.get())))
        << "the layout this test relies on";
    KyPointer<Badge> p(badge.get());
    EXPECT_EQ(p->count, 3);
    KyPointer<Tracked> base = p;
    EXPECT_EQ(base.get(), static_cast<Tracked*>(badge.get()));
    badge.reset();
    EXPECT_TRUE(p.isNull());
    EXPECT_TRUE(base.isNull());
}

TEST_F(KyPointerWithLivenessSet, CheckerIsAskedOnEveryReadAndWithoutOneEveryAddressIsLive) {
    Tracked object;
    const KyPointer<Tracked> p(&object);
    EXPECT_FALSE(p.isNull());
    ky::setLivenessChecker([](const void*) { return false; });
    EXPECT_TRUE(p.isNull()) << "a new checker takes effect at once, for existing pointers too";
    ky::setLivenessChecker(nullptr);
    int value = 5;
    EXPECT_EQ(*KyPointer<int>(&value), 5);
    EXPECT_FALSE(ky::isObjectLive(nullptr));
}
