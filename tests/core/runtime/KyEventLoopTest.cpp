// Nested loops on real threads: a KyEventLoop inside a posted function,
// resumed on lane 0 while the outer loop serves; on the main fiber; woken
// from other threads; kysleep and the slow cycle.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyEventLoop.h"
#include "../../support/KyTestLoop.h"

namespace {

using kytest::LoopFixture;

using EventLoop = LoopFixture;
using Sleep = LoopFixture;

} // namespace

TEST_F(EventLoop, NestedLoopInAPostedFunctionResumesOnLaneZeroWhileTheOuterLoopServes) {
    std::vector<std::string> order;
    KyEventLoop* nested = nullptr;
    app->postEvent([&] {
        KyEventLoop loop;
        nested = &loop;
        order.push_back("nested-start");
        const int code = loop.exec();
        order.push_back("nested-end:" + std::to_string(code));
        nested = nullptr;
    });
    app->postEvent([&] {
        order.push_back("outer-served");
        // Queued ahead of the wake-up, yet served after it: the wake uses lane 0.
        app->postEventOnLane([&order] { order.push_back("lane1-after"); }, 1);
        app->postEventOnLane([&order] { order.push_back("lane2-after"); }, 2);
        nested->exit(5);
    });
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 5; }));
    EXPECT_EQ(order, (std::vector<std::string>{"nested-start", "outer-served", "nested-end:5", "lane1-after",
                                               "lane2-after"}));
}

TEST_F(EventLoop, NestedLoopsUnwindInnermostFirst) {
    std::vector<std::string> order;
    KyEventLoop* outerLoop = nullptr;
    KyEventLoop* innerLoop = nullptr;
    app->postEvent([&] {
        KyEventLoop loop;
        outerLoop = &loop;
        loop.exec();
        order.push_back("outer-resumed");
    });
    app->postEvent([&] {
        KyEventLoop loop;
        innerLoop = &loop;
        loop.exec();
        order.push_back("inner-resumed");
        outerLoop->quit();
    });
    app->postEvent([&] { innerLoop->quit(); });
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order, (std::vector<std::string>{"inner-resumed", "outer-resumed"}));
}

TEST_F(EventLoop, QuitFromAnotherThreadOrAnExitCodeEndsAWaiterOnTheMainFiberOrOnAFiber) {
    KyEventLoop onMain;
    std::thread mainQuitter([&onMain] {
        kytest::waitUntil([&onMain] { return onMain.isRunning(); });
        onMain.quit();
    });
    EXPECT_EQ(onMain.exec(), 0);
    mainQuitter.join();
    // On the main fiber the loop serves posted work until its exit code comes.
    std::vector<std::string> order;
    app->postEvent([&] { order.push_back("served"); });
    app->postEventOnLane([&] { onMain.exit(4); }, 3);
    EXPECT_EQ(onMain.exec(), 4);
    EXPECT_EQ(order, std::vector<std::string>{"served"});
    EXPECT_FALSE(onMain.isRunning());

    KyEventLoop loop;
    std::atomic<bool> resumed{false};
    app->postEvent([&] {
        loop.exec();
        resumed = true;
        app->quit();
    });
    std::thread quitter([&loop] {
        kytest::waitUntil([&loop] { return loop.isRunning(); });
        loop.quit();
    });
    app->exec(20'000'000);
    quitter.join();
    EXPECT_TRUE(resumed.load());
}

TEST_F(EventLoop, QuitBeforeExecLeavesTheNextExecWaiting) {
    KyEventLoop loop;
    loop.quit();  // nothing waits: no effect
    int code = -100;
    app->postEvent([&] { code = loop.exec(); });
    kytest::drain(app.get());
    EXPECT_TRUE(loop.isRunning());
    loop.exit(9);
    ASSERT_TRUE(pumpUntil([&] { return code != -100; }));
    EXPECT_EQ(code, 9);
}

TEST_F(EventLoop, ASecondExecOrOneWithoutAnApplicationReturnsMinusOneAndDeletingTheLoopReleasesItsWaiter) {
    KyEventLoop loop;
    int first = -100, second = -100;
    app->postEvent([&] { first = loop.exec(); });
    app->postEvent([&] {
        second = loop.exec();
        loop.quit();
    });
    ASSERT_TRUE(pumpUntil([&] { return first != -100; }));
    EXPECT_EQ(second, -1);
    EXPECT_EQ(first, 0);

    auto* doomed = new KyEventLoop;
    int code = -100;
    app->postEvent([&] { code = doomed->exec(); });
    app->postEvent([&] { delete doomed; });
    ASSERT_TRUE(pumpUntil([&] { return code != -100; }));
    EXPECT_EQ(code, 0);
    // A thread without an application has no loop to wait in.
    std::thread([&code] {
        KyEventLoop loop;
        code = loop.exec();
    }).join();
    EXPECT_EQ(code, -1);
}

TEST_F(Sleep, SleepOnAFiberLetsOtherWorkRun) {
    std::vector<std::string> order;
    std::chrono::steady_clock::duration slept{};
    app->postEvent([&] {
        const auto start = std::chrono::steady_clock::now();
        KyEventLoop::kysleep(20);
        slept = std::chrono::steady_clock::now() - start;
        order.push_back("sleeper-woke");
    });
    app->postEvent([&order] { order.push_back("other"); });
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 2; }));
    EXPECT_EQ(order, (std::vector<std::string>{"other", "sleeper-woke"}));
    EXPECT_GE(slept, std::chrono::milliseconds(20));
    EXPECT_EQ(app->timerCount(), 0);
}

TEST_F(Sleep, SleepOnTheMainFiberServesPostedWorkAndWithoutALoopStillWaits) {
    bool ran = false;
    app->postEvent([&ran] { ran = true; });
    const auto start = std::chrono::steady_clock::now();
    KyEventLoop::kysleep(10);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10));
    EXPECT_TRUE(ran);
    std::chrono::steady_clock::duration slept{};
    std::thread([&slept] {
        const auto begin = std::chrono::steady_clock::now();
        KyEventLoop::kysleep(5);
        slept = std::chrono::steady_clock::now() - begin;
    }).join();
    EXPECT_GE(slept, std::chrono::milliseconds(5));
}

TEST_F(Sleep, SlowCycleRunsUntilItsFlagIsClearedFromInsideOrOutside) {
    int turns = 0;
    std::shared_ptr<std::atomic<bool>> flag;
    flag = KyEventLoop::installSlowRuntime(1, [&] {
        if (++turns == 3) flag->store(false);
    });
    ASSERT_TRUE(flag->load());
    EXPECT_EQ(app->timerCount(), 1);
    ASSERT_TRUE(pumpUntil([&] { return app->timerCount() == 0; }));
    kytest::drain(app.get());
    EXPECT_EQ(turns, 3);

    std::atomic<int> outside{0};
    auto stopped = KyEventLoop::installSlowRuntime(1, [&outside] { outside++; });
    ASSERT_TRUE(pumpUntil([&] { return outside.load() >= 1; }));
    stopped->store(false);
    ASSERT_TRUE(pumpUntil([&] { return app->timerCount() == 0; }));
    const int atEnd = outside.load();
    kytest::drain(app.get());
    EXPECT_EQ(outside.load(), atEnd) << "it ends at its next turn";
}
