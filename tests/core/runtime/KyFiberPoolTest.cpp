// The fiber pool of a real loop: lane choice and credits, admission limits,
// slots and their reserve, yield and unYield, exceptions at the fiber's edge.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyFiberPool.h"
#include "core/runtime/linux_fiber.h"
#include "../../support/KyTestLoop.h"

namespace {

// The shared loop fixture, with the pool's helpers.
struct LoopFixture : kytest::LoopFixture {
    KyFiberPool& pool() { return app->fiberPool(); }

    // Posts a task on lane that yields under a fresh id (stored in ids) and
    // counts itself finished when woken.
    void postYielding(KyFiberLane lane, std::vector<int>& ids, int& finished) {
        ASSERT_TRUE(app->postEventOnLane(
            [&ids, &finished] {
                const int id = KyCoreApplication::generateYieldId();
                ids.push_back(id);
                KyCoreApplication::yieldCurrentFiber(id);
                ++finished;
            },
            lane));
    }

    // Limits of four and three lane-2 tasks yielded in three of the four normal slots.
    void yieldInThreeOfFourSlots(std::vector<int>& ids, int& finished) {
        pool().setLimits(4, 4);
        for (int i = 0; i < 3; ++i) postYielding(2, ids, finished);
        kytest::drain(app.get());
    }

    // Wakes every id and runs until all woken tasks are done.
    void wakeAll(const std::vector<int>& ids) {
        for (int id : ids) pool().unYield(id, 2);
        kytest::drain(app.get());
    }
};

using FiberPoolLanes = LoopFixture;
using FiberPoolAdmission = LoopFixture;
using FiberPoolSlots = LoopFixture;
using FiberPoolYield = LoopFixture;

} // namespace

TEST_F(FiberPoolLanes, OneCreditCycleServesEightFourOnePicksInLaneOrder) {
    std::vector<int> picks;
    for (int i = 0; i < 30; ++i)
        for (KyFiberLane lane : {1, 2, 3}) app->postEventOnLane([&picks, lane] { picks.push_back(lane); }, lane);
    for (int i = 0; i < 26; ++i) ASSERT_TRUE(pool().runNextWorkItem());
    std::vector<int> expected;
    for (int round = 0; round < 2; ++round)
        for (int lane : {1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 3}) expected.push_back(lane);
    EXPECT_EQ(picks, expected);
    kytest::drain(app.get());
    EXPECT_EQ(picks.size(), 90u);
}

TEST_F(FiberPoolLanes, SteadyLaneZeroFlowStarvesLanesOneToThree) {
    std::vector<int> picks;
    int remaining = 200;
    std::function<void()> urgent = [&] {
        picks.push_back(0);
        if (--remaining > 0) app->postEventOnLane(urgent, 0);
    };
    for (KyFiberLane lane : {1, 2, 3}) app->postEventOnLane([&picks, lane] { picks.push_back(lane); }, lane);
    app->postEventOnLane(urgent, 0);
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(pool().runNextWorkItem());
    EXPECT_EQ(picks, std::vector<int>(200, 0));
    const KyFiberPoolStats s = pool().stats();
    EXPECT_EQ(s.credits[0], 8);  // lane 0 spends no credit
    kytest::drain(app.get());
    EXPECT_EQ(picks.size(), 203u);
    EXPECT_EQ(std::vector<int>(picks.end() - 3, picks.end()), (std::vector<int>{1, 2, 3}));
}

TEST_F(FiberPoolLanes, LanesOutsideZeroToTwoQueueAsLaneThreeAndWorkLeftOnlyOnSpentLanesStartsANewCycle) {
    std::vector<int> order;
    for (KyFiberLane lane : {7, -1, 3, 3, 3, 3}) app->postEventOnLane([&order, lane] { order.push_back(lane); }, lane);
    const KyFiberPoolStats s = pool().stats();
    EXPECT_EQ(s.queuedTasks[3], 6);
    EXPECT_EQ(s.highWaterMark[3], 6);
    // Lane three has one credit a cycle: six picks take six cycles.
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(pool().runNextWorkItem());
    EXPECT_EQ(order, (std::vector<int>{7, -1, 3, 3, 3, 3}));
    EXPECT_FALSE(pool().runNextWorkItem());
}

TEST_F(FiberPoolAdmission, LaneTwoStopsAt500AndLanesZeroOneUseTheReserveUpTo516) {
    kytest::LogCapture log;
    int ran = 0;
    ASSERT_TRUE(app->postEvent([&ran] { ++ran; }));
    EXPECT_EQ(pool().stats().normalSlotsWithFiber, 500) << "the first post warms every normal slot";
    kytest::drain(app.get());
    ran = 0;
    for (int i = 0; i < 500; ++i) ASSERT_TRUE(app->postEvent([&ran] { ++ran; })) << i;
    EXPECT_FALSE(app->postEvent([&ran] { ++ran; }));
    EXPECT_FALSE(app->postEventOnLane([&ran] { ++ran; }, 3));
    EXPECT_FALSE(app->postEventOnLane([&ran] { ++ran; }, 9));
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(app->postEventOnLane([&ran] { ++ran; }, 0));
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(app->postEventOnLane([&ran] { ++ran; }, 1));
    EXPECT_FALSE(app->postEventOnLane([&ran] { ++ran; }, 0));
    EXPECT_FALSE(app->postEventOnLane([&ran] { ++ran; }, 1));

    EXPECT_EQ(pool().stats().lostWork, 5);
    for (const char* lane : {"2", "3", "9", "0", "1"})
        EXPECT_EQ(log.count(std::string("KyFiberPool saturated; rejecting posted event on lane=") + lane), 1) << lane;

    kytest::drain(app.get());
    EXPECT_EQ(ran, 516);
    // Once drained, the pool admits again.
    EXPECT_TRUE(app->postEvent([&ran] { ++ran; }));
    kytest::drain(app.get());
    EXPECT_EQ(ran, 517);
    EXPECT_FALSE(app->postEvent(std::function<void()>()));
    EXPECT_FALSE(pool().hasWork());
}

TEST_F(FiberPoolAdmission, BusySlotsCountTowardsTheLoad) {
    pool().setLimits(3, 3);
    std::vector<int> ids;
    int finished = 0;
    for (int i = 0; i < 3; ++i) postYielding(2, ids, finished);
    kytest::drain(app.get());
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_FALSE(app->postEvent([] {}));  // three yielded slots fill a limit of three
    EXPECT_TRUE(app->postEventOnLane([] {}, 1));
    wakeAll(ids);
    EXPECT_EQ(finished, 3);
    EXPECT_TRUE(app->postEvent([] {}));
    kytest::drain(app.get());
}

TEST_F(FiberPoolSlots, WithoutAnIdleNormalSlotALaneTwoTaskIsDroppedAndALaneOneTaskGetsAReservedSlot) {
    kytest::LogCapture log;
    std::vector<int> ids;
    int finished = 0;
    yieldInThreeOfFourSlots(ids, finished);
    bool droppedRan = false;
    ASSERT_TRUE(app->postEvent([&droppedRan] { droppedRan = true; }));
    postYielding(1, ids, finished);  // lane 1 is served first and takes the last normal slot

    ASSERT_TRUE(pool().runNextWorkItem());
    ASSERT_EQ(ids.size(), 4u);
    EXPECT_TRUE(pool().runNextWorkItem());  // chosen, but dropped
    EXPECT_FALSE(droppedRan);
    EXPECT_EQ(pool().stats().lostWork, 1);
    EXPECT_EQ(log.count("Dropping queued fiber task because no dispatch slot is available."), 1);
    EXPECT_EQ(pool().stats().reservedSlotsWithFiber, 0);

    bool ran = false;
    ASSERT_TRUE(app->postEventOnLane([&ran] { ran = true; }, 1));
    kytest::drain(app.get());
    EXPECT_TRUE(ran);
    KyFiberPoolStats s = pool().stats();
    EXPECT_EQ(s.reservedSlotsWithFiber, 1);
    EXPECT_EQ(s.idleReserved, 1);
    EXPECT_EQ(s.lostWork, 1);
    // The reserved slot is reused, not created again.
    ASSERT_TRUE(app->postEventOnLane([] {}, 0));
    kytest::drain(app.get());
    s = pool().stats();
    EXPECT_EQ(s.reservedSlotsWithFiber, 1);
    EXPECT_GE(s.reusedDispatches, 1);
    wakeAll(ids);
    EXPECT_EQ(finished, 4);
}

TEST_F(FiberPoolSlots, SixteenBusyReservedSlotsDropTheNextLaneOneTask) {
    kytest::LogCapture log;
    pool().setLimits(2, 2);
    ASSERT_TRUE(app->postEvent([] {}));  // warms two normal slots
    kytest::drain(app.get());
    pool().setLimits(100, 100);  // admission now allows far more than the slots
    std::vector<int> ids;
    int finished = 0;
    for (int i = 0; i < 18; ++i) postYielding(1, ids, finished);
    bool lastRan = false;
    ASSERT_TRUE(app->postEventOnLane([&lastRan] { lastRan = true; }, 1));
    kytest::drain(app.get());
    EXPECT_EQ(ids.size(), 18u);
    EXPECT_FALSE(lastRan);
    const KyFiberPoolStats s = pool().stats();
    EXPECT_EQ(s.reservedSlotsWithFiber, 16);
    EXPECT_EQ(s.normalSlotsWithFiber, 2);
    EXPECT_EQ(s.lostWork, 1);
    EXPECT_EQ(log.count("Dropping queued fiber task because no dispatch slot is available."), 1);
    wakeAll(ids);
    EXPECT_EQ(finished, 18);
}

TEST_F(FiberPoolSlots, ExceptionsStopAtTheFiberEdgeAndTheSlotGoesBackToIdle) {
    kytest::LogCapture log;
    pool().setLimits(2, 2);
    std::vector<int> after;
    app->postEvent([] { throw std::runtime_error("tunnel gone"); });
    app->postEvent([] { throw 42; });
    kytest::drain(app.get());
    // The slot that finished last takes the next task: one warm stack
    // serves all four.
    app->postEvent([&after] { after.push_back(1); });
    app->postEvent([&after] { after.push_back(2); });
    kytest::drain(app.get());
    EXPECT_EQ(after, (std::vector<int>{1, 2}));
    EXPECT_EQ(log.count("Unhandled exception in fiber callback: tunnel gone"), 1);
    EXPECT_EQ(log.count("Unhandled unknown exception in fiber callback"), 1);
    const KyFiberPoolStats s = pool().stats();
    EXPECT_EQ(s.finishedTasks, 4);
    EXPECT_EQ(s.idleNormal, 2);
    EXPECT_EQ(s.normalSlotsWithFiber, 2);
    EXPECT_EQ(s.reusedDispatches, 3);
}

TEST_F(FiberPoolSlots, AForeignFirstPostAndTheLoopWarmOneSetBetweenThem) {
    // The GUI's X watch posts from the I/O thread while the loop starts its
    // first step: both warm at once, and neither may make a set of its own.
    std::thread foreign([this] { app->postEvent([] {}); });
    kytest::drain(app.get());
    foreign.join();
    kytest::drain(app.get());
    EXPECT_EQ(pool().stats().normalSlotsWithFiber, 500);
}

TEST_F(FiberPoolYield, UnYieldOfUnknownOrSecondIdIsRefusedAndAResumedSlotBeatsAQueuedTaskOnItsLane) {
    std::vector<int> ids;
    int finished = 0;
    postYielding(2, ids, finished);
    postYielding(2, ids, finished);
    kytest::drain(app.get());
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_FALSE(pool().unYield(ids[0] - 1000, 2));
    EXPECT_EQ(pool().stats().yielded, 2);
    EXPECT_EQ(pool().stats().resumableSlots[2], 0);

    EXPECT_TRUE(pool().unYield(ids[0], 7));
    EXPECT_FALSE(pool().unYield(ids[0], 2));
    EXPECT_EQ(pool().stats().resumableSlots[3], 1) << "lane seven queues as lane three";
    EXPECT_EQ(pool().stats().highWaterMark[3], 1);
    kytest::drain(app.get());
    EXPECT_EQ(finished, 1);

    std::vector<std::string> order;
    app->postEvent([&order] { order.push_back("task"); });
    pool().unYield(ids[1], 2);
    ASSERT_TRUE(pool().runNextWorkItem());
    EXPECT_EQ(finished, 2);
    EXPECT_TRUE(order.empty());
    kytest::drain(app.get());
    EXPECT_EQ(order, std::vector<std::string>{"task"});
}

TEST_F(FiberPoolYield, IdsCountDownAndYieldOnTheMainFiberDoesNotSuspend) {
    const int id = KyCoreApplication::generateYieldId();
    EXPECT_LT(id, 0);
    EXPECT_EQ(KyCoreApplication::generateYieldId(), id - 1);
    EXPECT_FALSE(KyCoreApplication::yieldCurrentFiber(id));
    EXPECT_FALSE(pool().isOnPooledFiber());
    EXPECT_EQ(pool().stats().yielded, 0);
    EXPECT_FALSE(pool().unYield(id, 0));

    bool onFiber = false;
    app->postEvent([&] { onFiber = app->fiberPool().isOnPooledFiber(); });
    kytest::drain(app.get());
    EXPECT_TRUE(onFiber);

    // A thread without any loop cannot yield either.
    bool yielded = true;
    std::thread([&yielded] { yielded = KyCoreApplication::yieldCurrentFiber(-5); }).join();
    EXPECT_FALSE(yielded);
}

TEST_F(FiberPoolYield, WakeFromAnotherThreadResumesTheFiberOnItsOwnThread) {
    std::atomic<int> id{0};
    pthread_t resumedOn{};
    bool resumed = false;
    app->postEvent([&] {
        const int mine = KyCoreApplication::generateYieldId();
        id.store(mine);
        KyCoreApplication::yieldCurrentFiber(mine);
        resumedOn = pthread_self();
        resumed = true;
        app->quit();
    });
    std::thread waker([&id] {
        kytest::waitUntil([&id] { return id.load() != 0; });
        KyCoreApplication::routeYieldWakeAcrossInstances_(id.load(), 1);
    });
    app->exec(20'000'000);
    waker.join();
    EXPECT_TRUE(resumed);
    EXPECT_TRUE(pthread_equal(resumedOn, pthread_self()));
}

TEST_F(FiberPoolYield, ShutdownFreesYieldedSlotsWithoutResumingThem) {
    bool resumed = false;
    app->postEvent([&resumed] {
        KyCoreApplication::yieldCurrentFiber(KyCoreApplication::generateYieldId());
        resumed = true;
    });
    kytest::drain(app.get());
    EXPECT_EQ(pool().stats().yielded, 1);
    pool().shutdown();
    EXPECT_FALSE(resumed);
    const KyFiberPoolStats s = pool().stats();
    EXPECT_EQ(s.slots, 0);
    EXPECT_EQ(s.yielded, 0);
}
