// Signals and ring queues between real processes: wake-ups by datagram,
// coalesced passes, queue limits and order, fault isolation, and what a
// drained message leaves in shared memory.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>


#include "core/runtime/KyCoreApplication.h"
#include "ipc/LoopPoller.h"
#include "ipc/RingQueue.h"
#include "ipc/Signal.h"
#include "ipc/SubscribersRegistryTable.h"
#include "../support/KyTestIpc.h"
#include "../support/KyTestLoop.h"
#include "../support/KyTestProcess.h"

using namespace std::chrono_literals;
using ky::ipc::Registry;
using ky::ipc::RingQueue;
using ky::ipc::Signal;

namespace {

const KyString kPeer = kytest::helperPath("ky_channel_peer");

struct ChannelTest : kytest::LoopFixture {
    kytest::IpcDomain domain{"chan"};
    Registry registry{domain.name(), "obj"};

    std::vector<uint32_t> subscribers(const KyString& name) {
        std::vector<uint32_t> pids;
        ky::ipc::SubscribersRegistryTable<512>::listSubscriberPids(registry.domain, registry.object, name, pids);
        return pids;
    }
    // A barrier: once a publication made now has come back through the
    // datagram path, every wake-up sent before it has been handled.
    void settle() {
        Signal<KyString> sentinel(registry, "__settle");
        int seen = 0;
        auto sub = sentinel.connect([&](const KyString&) { ++seen; });
        sentinel.publish("x");
        ASSERT_TRUE(pumpUntil([&] { return seen > 0; }));
        kytest::drain(app.get());
    }
    bool startPeer(kytest::Child& child, std::vector<std::string> args) {
        args.insert(args.begin() + 1, {registry.domain.toStdString(), registry.object.toStdString()});
        if (!child.start(kPeer, args)) return false;
        domain.trackPid(static_cast<uint32_t>(child.pid()));
        return true;
    }
};

bool contains(const std::vector<uint32_t>& v, pid_t pid) {
    return std::find(v.begin(), v.end(), static_cast<uint32_t>(pid)) != v.end();
}

}  // namespace

TEST_F(ChannelTest, TenPublishesBeforeTheLoopRunsGiveOneCallbackWithTheLastValue) {
    kytest::Child sub;
    ASSERT_TRUE(startPeer(sub, {"subscribe", "burst", "--wait-go"}));
    ASSERT_TRUE(sub.waitForText("ready\n", 20s));
    Signal<KyString> burst(registry, "burst");
    for (int i = 1; i <= 10; ++i) burst.publish(KyString("v") + KyString::number(i));
    sub.writeInput("go\n");
    ASSERT_TRUE(sub.waitForText("value v10\n", 20s)) << sub.out();
    // One more publish proves the subscriber is still live and flushes its output.
    burst.publish("after");
    ASSERT_TRUE(sub.waitForText("value after\n", 20s));
    EXPECT_EQ(sub.out(), "ready\nvalue v10\nvalue after\n");
}

TEST_F(ChannelTest, SubscriptionsSeeOnlyWhatTheyAskedFor) {
    Signal<KyString> sig(registry, "initial");
    std::vector<KyString> got;
    // Never published: fireInitial has nothing to give.
    auto quiet = sig.connect([&](const KyString& v) { got.push_back("quiet:" + v); }, true);
    settle();
    EXPECT_TRUE(got.empty());
    sig.publish("one");
    ASSERT_TRUE(pumpUntil([&] { return got.size() == 1; }));
    auto late = sig.connect([&](const KyString& v) { got.push_back("late:" + v); }, false);
    auto initial = sig.connect([&](const KyString& v) { got.push_back("initial:" + v); }, true);
    ASSERT_TRUE(pumpUntil([&] { return got.size() == 2; }));
    EXPECT_EQ(got[1], KyString("initial:one"));
    sig.publish("two");
    ASSERT_TRUE(pumpUntil([&] { return got.size() == 5; }));
    settle();
    EXPECT_EQ(got.size(), 5u);
}

TEST_F(ChannelTest, ABadPayloadIsDroppedOnceAndNotRetried) {
    Signal<int, int, int> stats(registry, "stats");
    std::vector<int> seen;
    auto sub = stats.connect([&](int a, int, int) { seen.push_back(a); });
    // Eight bytes where twelve are needed: the value cannot decode.
    auto* block = stats.mapping().layout();
    const int partial[2] = {7, 7};
    ky::ipc::detail::publishSignal_(block, reinterpret_cast<const uint8_t*>(partial), sizeof(partial));
    ky::ipc::detail::notifySubscribers_(registry.domain, registry.object, "stats");
    settle();
    stats.publish(1, 2, 3);
    ASSERT_TRUE(pumpUntil([&] { return !seen.empty(); }));
    settle();
    EXPECT_EQ(seen, std::vector<int>{1});
}

TEST_F(ChannelTest, FullQueueRefusesAndKeepsOrder) {
    domain.track(registry.object, "jobs");
    RingQueue<10, KyString> jobs(registry, "jobs");
    for (int i = 0; i < 10; ++i) EXPECT_TRUE(jobs.push(KyString("m") + KyString::number(i)));
    EXPECT_FALSE(jobs.push("overflow"));
    kytest::Child consumer;
    ASSERT_TRUE(startPeer(consumer, {"drain", "jobs"}));
    std::string expected = "ready\n";
    for (int i = 0; i < 10; ++i) expected += "msg m" + std::to_string(i) + "\n";
    ASSERT_TRUE(consumer.waitForText(expected, 20s)) << consumer.out();
    EXPECT_TRUE(jobs.push("after"));
    EXPECT_TRUE(consumer.waitForText("msg after\n", 20s));
}

TEST_F(ChannelTest, AFullPagePayloadTravelsAndOneByteMoreIsRefused) {
    RingQueue<10, KyString> big(registry, "big");
    std::vector<size_t> sizes;
    auto sub = big.connect([&](const KyString& v) { sizes.push_back(v.size()); });
    EXPECT_TRUE(big.push(KyString(std::string(4092, 'p'))));  // 4 + 4092 = 4096
    EXPECT_FALSE(big.push(KyString(std::string(4093, 'p'))));
    ASSERT_TRUE(pumpUntil([&] { return sizes.size() == 1; }));
    EXPECT_EQ(sizes[0], 4092u);
}

TEST_F(ChannelTest, ADrainedMessageLeavesNoBytesInSharedMemory) {
    RingQueue<10, KyString> secrets(registry, "secrets");
    int received = 0;
    auto sub = secrets.connect([&](const KyString&) { ++received; });
    const std::string password = "hunter2-very-secret";
    ASSERT_TRUE(secrets.push(KyString(password)));
    ASSERT_TRUE(pumpUntil([&] { return received == 1; }));
    const auto* layout = secrets.mapping().layout();
    const auto* bytes = reinterpret_cast<const char*>(layout);
    EXPECT_EQ(std::search(bytes, bytes + sizeof(*layout), password.begin(), password.end()), bytes + sizeof(*layout));
    EXPECT_EQ(layout->slots[1].seq, 1u);  // the number stays, the payload and size go
    EXPECT_EQ(layout->slots[1].size, 0u);
}

TEST_F(ChannelTest, AKilledSubscriberFallsOutOfTheWakeUpList) {
    kytest::Child sub;
    ASSERT_TRUE(startPeer(sub, {"subscribe", "gone"}));
    ASSERT_TRUE(sub.waitForText("ready\n", 20s));
    const pid_t pid = sub.pid();
    EXPECT_TRUE(contains(subscribers("gone"), pid));
    sub.kill();
    EXPECT_FALSE(contains(subscribers("gone"), pid));
    Signal<KyString> gone(registry, "gone");
    gone.publish("nobody listens");  // must neither block nor fail
}

TEST_F(ChannelTest, AChannelLockedByAStoppedProcessDoesNotStallTheLoop) {
    Signal<KyString> stuck(registry, "stuck");
    Signal<KyString> alive(registry, "alive");
    int stuckCalls = 0;
    std::vector<KyString> aliveValues;
    auto s1 = stuck.connect([&](const KyString&) { ++stuckCalls; });
    auto s2 = alive.connect([&](const KyString& v) { aliveValues.push_back(v); });
    kytest::Child holder;
    ASSERT_TRUE(startPeer(holder, {"hold-lock", "stuck"}));
    ASSERT_TRUE(holder.waitForText("locked\n", 20s));
    // Make the stuck channel look changed, so every pass tries its lock.
    __atomic_add_fetch(&stuck.mapping().layout()->seq, 1, __ATOMIC_SEQ_CST);
    kytest::Child publisher;
    ASSERT_TRUE(startPeer(publisher, {"publish", "alive", "still-here"}));
    ASSERT_TRUE(pumpUntil([&] { return !aliveValues.empty(); }));
    EXPECT_EQ(aliveValues[0], KyString("still-here"));
    EXPECT_EQ(stuckCalls, 0);
    holder.sendSignal(SIGKILL);
}

TEST_F(ChannelTest, ACallbackMayEndItsOwnSubscription) {
    Signal<KyString> sig(registry, "self-stop");
    int calls = 0;
    Signal<KyString>::Subscription sub;
    sub = sig.connect([&](const KyString&) {
        ++calls;
        sub.stop();
    });
    sig.publish("a");
    ASSERT_TRUE(pumpUntil([&] { return calls == 1; }));
    sig.publish("b");
    settle();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(ky::ipc::detail::LoopPoller::instance().taskCount(), 0u);
}

TEST_F(ChannelTest, APositiveTimeoutEndsTheSubscriptionByItself) {
    Signal<KyString> sig(registry, "timed");
    int calls = 0;
    auto sub = sig.connect([&](const KyString&) { ++calls; }, false, 50);
    ASSERT_TRUE(pumpUntil([&] { return ky::ipc::detail::LoopPoller::instance().taskCount() == 0; }));
    EXPECT_FALSE(contains(subscribers("timed"), getpid()));
    sig.publish("late");
    settle();
    EXPECT_EQ(calls, 0);
    sub.stop();  // harmless afterwards
}

TEST(LoopPollerWakeup, SendingToAProcessWithoutASocketIsSilent) {
    ky::ipc::detail::LoopPoller::IpcWakeup::notifyPid(999999);
    ky::ipc::detail::LoopPoller::IpcWakeup::notifyPid(0);
    SUCCEED();
}
