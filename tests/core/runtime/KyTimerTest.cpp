// Timers of a real loop: the table (single shots, repeats, removal in flight)
// and KyTimer (listeners, the timeout() signal, starts from another thread).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "core/object/KyObject.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "core/runtime/KyTimer.h"
#include "../../support/KyTestLoop.h"
#include "../../support/KyTestWorker.h"

namespace {

using kytest::LoopFixture;

using TimerTable = LoopFixture;
using Timer = LoopFixture;

} // namespace

TEST_F(TimerTable, ASingleShotRunsOnceAndARepeatingTimerUntilRemovedThenBothLeaveTheTable) {
    // The order of due timers among posted work is the loop's step order (see the application's tests).
    struct Row { const char* name; int intervalUs; bool singleShot; int firings; };
    for (const Row& r : {Row{"zero single shot", 0, true, 1}, Row{"repeating", 1000, false, 5}}) {
        SCOPED_TRACE(r.name);
        int fired = 0;
        const int id = app->addTimer([&fired] { ++fired; }, r.intervalUs, r.singleShot, 2);
        EXPECT_EQ(app->timerCount(), 1);
        ASSERT_TRUE(pumpUntil([&] { return fired >= r.firings; }));
        if (r.singleShot) {
            kytest::drain(app.get());
            EXPECT_EQ(app->timerCount(), 0) << "a single shot leaves by itself";
        }
        app->removeTimer(id);
        const int atRemoval = fired;
        kytest::drain(app.get());
        EXPECT_EQ(fired, r.singleShot ? 1 : atRemoval);
        EXPECT_EQ(app->timerCount(), 0);
        EXPECT_EQ(app->processEvent(false), -1);
        app->removeTimer(id); // a second removal is harmless
    }
}

TEST_F(TimerTable, TimerRemovedWhileInFlightLivesUntilItsDispatchEnds) {
    auto sentinel = std::make_shared<int>(1);
    std::weak_ptr<int> watch = sentinel;
    std::atomic<int> yieldId{0};
    bool finished = false;
    const int id = app->addTimer(
        [held = sentinel, &yieldId, &finished] {
            const int mine = KyCoreApplication::generateYieldId();
            yieldId = mine;
            KyCoreApplication::yieldCurrentFiber(mine);
            finished = true;
        },
        0, false, 2);
    sentinel.reset();
    ASSERT_TRUE(pumpUntil([&] { return yieldId.load() != 0; }));
    app->removeTimer(id);
    EXPECT_EQ(app->timerCount(), 0);
    EXPECT_FALSE(watch.expired());  // its dispatch is still under way
    KyCoreApplication::routeYieldWakeAcrossInstances_(yieldId.load(), 2);
    ASSERT_TRUE(pumpUntil([&] { return finished; }));
    kytest::drain(app.get());
    EXPECT_TRUE(watch.expired());
}

TEST_F(TimerTable, TimerRemovedAfterItWasPostedIsNotCalled) {
    auto sentinel = std::make_shared<int>(1);
    std::weak_ptr<int> watch = sentinel;
    int fired = 0;
    const int id = app->addTimer([held = sentinel, &fired] { ++fired; }, 0, true, 2);
    sentinel.reset();
    app->processTimers();  // posted, in flight
    EXPECT_TRUE(app->fiberPool().hasWork());
    app->removeTimer(id);
    EXPECT_FALSE(watch.expired());
    kytest::drain(app.get());
    EXPECT_EQ(fired, 0);
    EXPECT_TRUE(watch.expired());
}

TEST_F(TimerTable, AddingATimerWakesALoopParkedInAnotherThread) {
    std::atomic<int> fired{0};
    std::atomic<bool> parkedOnce{false};
    std::thread adder([&] {
        kytest::waitUntil([&] { return parkedOnce.load(); });
        app->addTimer([&fired] { fired++; }, 0, true, 2);
    });
    parkedOnce = true;
    app->waitForWork_(-1);  // ended by the wake-up of addTimer
    EXPECT_TRUE(pumpUntil([&] { return fired.load() == 1; }));
    adder.join();
}

TEST_F(TimerTable, TimersAreDestroyedWithTheLoop) {
    auto sentinel = std::make_shared<int>(1);
    std::weak_ptr<int> watch = sentinel;
    app->addTimer([held = sentinel] {}, 1'000'000, false, 2);
    app->addTimer([held = sentinel] {}, 0, true, 2);
    sentinel.reset();
    app->processTimers();  // one of them is in flight when the loop goes
    app.reset();
    EXPECT_TRUE(watch.expired());
}

TEST_F(Timer, ListenersAndTheTimeoutSignalHearEveryExpiry) {
    KyTimer timer;
    int byCallback = 0;
    int bySignal = 0;
    timer.connectTimeout([&byCallback] { ++byCallback; });
    KyObject::connect(&timer, &KyTimer::timeout, [&bySignal] { ++bySignal; });
    timer.start(1);
    EXPECT_TRUE(timer.isActive());
    ASSERT_TRUE(pumpUntil([&] { return bySignal >= 3; }));
    timer.stop();
    EXPECT_FALSE(timer.isActive());
    const int stoppedAt = bySignal;
    kytest::drain(app.get());
    EXPECT_EQ(bySignal, stoppedAt);
    EXPECT_EQ(byCallback, bySignal);
}

TEST_F(Timer, SingleShotTimerAndStaticSingleShotFireOnce) {
    KyTimer timer;
    timer.setSingleShot(true);
    int fired = 0;
    timer.connectTimeout([&fired] { ++fired; });
    timer.start(0);
    EXPECT_TRUE(KyTimer::singleShot(0, [&fired] { fired += 10; }));
    ASSERT_TRUE(pumpUntil([&] { return fired == 11; }));
    kytest::drain(app.get());
    EXPECT_EQ(fired, 11);
    EXPECT_FALSE(timer.isActive());
    EXPECT_EQ(app->timerCount(), 0);
    bool scheduled = true;
    std::thread([&scheduled] { scheduled = KyTimer::singleShot(0, [] {}); }).join();
    EXPECT_FALSE(scheduled);  // no loop on that thread
    // A start with another interval while running keeps the old interval.
    timer.setSingleShot(false);
    timer.start(50);
    timer.start(5);
    EXPECT_EQ(timer.interval(), 50);
    timer.stop();
}

TEST_F(Timer, TimerDeletedBeforeItsExpiryNeverCalls) {
    int fired = 0;
    auto* timer = new KyTimer;
    timer->connectTimeout([&fired] { ++fired; });
    timer->start(0);
    delete timer;
    kytest::drain(app.get());
    EXPECT_EQ(fired, 0);
    EXPECT_EQ(app->timerCount(), 0);
}

TEST_F(Timer, ListenerMayDeleteItsTimer) {
    auto* timer = new KyTimer;
    int fired = 0;
    timer->connectTimeout([&] {
        ++fired;
        delete timer;
    });
    timer->connectTimeout([&fired] { fired += 100; });  // not reached: the timer is gone
    timer->start(0);
    ASSERT_TRUE(pumpUntil([&] { return fired > 0; }));
    kytest::drain(app.get());
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(app->timerCount(), 0);
}

TEST(TimerAcrossThreads, StartFromAForeignThreadReturnsBeforeTheTimerRuns) {
    kytest::Worker owner("TimerOwner");
    std::atomic<int> fired{0};
    KyTimer* timer = owner.make<KyTimer>();
    KyObject::executeBlockingOnThread(&owner.thread, [&] { timer->connectTimeout([&fired] { fired++; }); });
    owner.hold(); // the posted start cannot have run yet
    timer->start(1);
    EXPECT_FALSE(timer->isActive());
    owner.release();
    EXPECT_TRUE(kytest::waitUntil([&] { return fired.load() >= 2; }));
    EXPECT_TRUE(timer->isActive());
    timer->stop();
    EXPECT_TRUE(kytest::waitUntil([&] { return !timer->isActive(); }));
    owner.destroy(timer);
}
