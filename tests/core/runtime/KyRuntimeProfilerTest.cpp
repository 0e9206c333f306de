// The runtime profiler: what a bound session records from real threads, that
// nothing is recorded without a session, and the watchdog's preemption signal
// reaching a real thread that publishes a long-running fiber.
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyRuntimeProfiler.h"
#include "core/runtime/KyRuntimeWatchdog.h"
#include "../../support/KyTestLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using kytest::waitUntil;

// Each case starts with this thread's lists empty.
class KyRuntimeProfilerTest : public ::testing::Test {
protected:
    void SetUp() override { ky::profiler::unbindSessionsFromCurrentThread(); }
    void TearDown() override { ky::profiler::unbindSessionsFromCurrentThread(); }
};

class CountingTelemetry : public KyRuntimeTelemetrySession {
public:
    void recordIteration(long long busy, long long iteration) override {
        ++iterations;
        busyTotal += busy;
        iterationTotal += iteration;
    }
    void endOfLife() override { ended = true; }
    int iterations = 0;
    long long busyTotal = 0;
    long long iterationTotal = 0;
    bool ended = false;
};

}  // namespace

TEST_F(KyRuntimeProfilerTest, NothingIsRecordedWithoutAnAttachedSession) {
    auto session = std::make_shared<KyRuntimeProfilerSession>("idle");
    EXPECT_FALSE(session->isAttached());
    ky::profiler::bindSessionsToCurrentThread({session});
    EXPECT_TRUE(ky::profiler::autoRuntimeProfilerSessionsForCurrentThread_().empty());
    {
        ky::profiler::MultiRuntimeScopedSpan_ span("object_event");
    }
    ky::profiler::publishRuntimeIterationSnapshot(10, 100);
    ky::profiler::fiberDispatchRelay()->onFiberDispatchExit(1, false, 5);
    EXPECT_EQ(session->span("object_event").count, 0);
    EXPECT_EQ(session->iterationCount(), 0);
    EXPECT_TRUE(session->spans().empty());
}

TEST_F(KyRuntimeProfilerTest, SpansIterationsAndDispatchesAreCountedUntilTheSessionIsDetached) {
    auto session = KyRuntimeProfilerSession::create("spans", 3);
    ky::profiler::bindSessionsToCurrentThread({session});
    ASSERT_EQ(ky::profiler::autoRuntimeProfilerSessionsForCurrentThread_().size(), 1u);
    for (int i = 0; i < 3; ++i) ky::profiler::MultiRuntimeScopedSpan_ span("object_event");
    { ky::profiler::MultiRuntimeScopedSpan_ span(ky::profiler::SessionList{session}, "custom"); }
    for (int i = 1; i <= 5; ++i) ky::profiler::publishRuntimeIterationSnapshot(i, 10 * i);
    KyFiberDispatchRelay* relay = ky::profiler::fiberDispatchRelay();
    relay->onFiberDispatchEnter(1, false);
    relay->onFiberDispatchExit(1, false, 7);
    relay->onFiberDispatchExit(0, true, 3);
    relay->onFiberDispatchExit(9, false, 4);

    const KyRuntimeSpanStats events = session->span("object_event");
    EXPECT_EQ(events.count, 3);
    EXPECT_GE(events.totalMicroseconds, events.maxMicroseconds);
    EXPECT_EQ(session->span("fiber_lane1").totalMicroseconds, 7);
    EXPECT_EQ(session->span("fiber_resume_lane0").count, 1);
    EXPECT_EQ(session->span("fiber_lane3").count, 1) << "lanes past three count as three";
    // Iterations: all are counted, the newest three are kept, oldest first.
    const auto kept = session->iterations();
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[0].busyMicroseconds, 3);
    EXPECT_EQ(kept[2].iterationMicroseconds, 50);
    const KyString report = session->report();
    EXPECT_TRUE(report.contains("{\"session\":\"spans\",\"attached\":true,\"ended\":false,"));
    EXPECT_TRUE(report.contains("{\"span\":\"object_event\",\"count\":3,"));
    EXPECT_TRUE(report.contains("{\"span\":\"custom\",\"count\":1,"));
    EXPECT_TRUE(report.contains("{\"iterations\":5,\"busy_us\":15,\"iteration_us\":150}"));

    session->detach();
    ky::profiler::publishRuntimeIterationSnapshot(1, 2);
    { ky::profiler::MultiRuntimeScopedSpan_ span("object_event"); }
    EXPECT_EQ(session->iterationCount(), 5);
    EXPECT_EQ(session->span("object_event").count, 3);
    EXPECT_TRUE(ky::profiler::autoRuntimeProfilerSessionsForCurrentThread_().empty());
    session->endOfLife();
    EXPECT_TRUE(session->hasEnded());
}

TEST_F(KyRuntimeProfilerTest, SessionsBelongToTheThreadsTheyAreBoundTo) {
    auto session = KyRuntimeProfilerSession::create("threads");
    std::size_t workerHash = 0;
    std::thread worker([&] {
        ky::profiler::bindSessionsToCurrentThread({session});
        workerHash = std::hash<std::thread::id>{}(std::this_thread::get_id());
        ky::profiler::MultiRuntimeScopedSpan_ span("object_event");
    });
    worker.join();
    // This thread has not bound it: its spans go nowhere.
    {
        ky::profiler::MultiRuntimeScopedSpan_ span("object_event");
    }
    EXPECT_EQ(session->span("object_event").count, 1);
    EXPECT_TRUE(session->isBound());
    EXPECT_EQ(session->boundThreadHash(), workerHash);
    // The first binder stays recorded.
    ky::profiler::bindSessionsToCurrentThread({session});
    EXPECT_EQ(session->boundThreadHash(), workerHash);
}

TEST_F(KyRuntimeProfilerTest, WrappedFunctionRecordsOnTheThreadThatRunsIt) {
    auto session = KyRuntimeProfilerSession::create("wrapped");
    int ran = 0;
    auto fn = ky::profiler::wrapWithSessions([&] { ++ran; }, {session});
    std::thread runner([&] {
        fn();
        fn();
    });
    runner.join();
    EXPECT_EQ(ran, 2);
    EXPECT_EQ(session->span("posted_event").count, 2);
    // Without sessions the function comes back unwrapped and records nothing.
    auto plain = ky::profiler::wrapWithSessions([&] { ++ran; }, {});
    plain();
    EXPECT_EQ(ran, 3);
    EXPECT_EQ(session->span("posted_event").count, 2);
}

TEST_F(KyRuntimeProfilerTest, TelemetrySessionsReceiveIterations) {
    auto telemetry = std::make_shared<CountingTelemetry>();
    ky::profiler::bindTelemetrySessionsToCurrentThread({telemetry});
    ky::profiler::bindTelemetrySessionsToCurrentThread({telemetry});
    EXPECT_TRUE(ky::profiler::anySessionActive());
    ky::profiler::publishRuntimeIterationSnapshot(4, 40);
    ky::profiler::publishRuntimeIterationSnapshot(6, 60);
    EXPECT_EQ(telemetry->iterations, 2);
    EXPECT_EQ(telemetry->busyTotal, 10);
    EXPECT_EQ(telemetry->iterationTotal, 100);
    ky::profiler::unbindSessionsFromCurrentThread();
    ky::profiler::publishRuntimeIterationSnapshot(1, 1);
    EXPECT_EQ(telemetry->iterations, 2);
}

TEST(KyRuntimeWatchdog, LongRunningFiberIsAskedToYieldOnItsOwnThread) {
    KyRuntimeWatchdog watchdog;
    ASSERT_TRUE(watchdog.start(2000, 1000));
    EXPECT_FALSE(watchdog.start(2000));
    std::atomic<bool> flagged{false};
    std::atomic<long long> signalsSeen{0};
    int fakeFiber = 0;
    std::thread loopThread([&] {
        ky::profiler::FiberWatchWords* words = ky::profiler::fiberWatchWordsForCurrentThread();
        // Publish a fiber as the pool does at dispatch, then keep running.
        words->startMicroseconds.store(ky::profiler::nowMicroseconds());
        words->runningFiber.store(&fakeFiber);
        flagged = waitUntil([] { return ky::profiler::preemptRequestedForCurrentThread(); });
        words->runningFiber.store(nullptr);
        words->startMicroseconds.store(0);
        const bool requeue = words->preemptRequeue.exchange(false);
        EXPECT_TRUE(requeue);
        signalsSeen = words->preemptSignals.load();
    });
    loopThread.join();
    watchdog.stop();
    EXPECT_FALSE(watchdog.isRunning());
    EXPECT_TRUE(flagged.load());
    EXPECT_GE(signalsSeen.load(), 1);
    EXPECT_GE(watchdog.signalsSent(), 1);
    EXPECT_GE(ky::profiler::preemptSignalCount(), 1);
    EXPECT_FALSE(watchdog.start(0));
}

TEST(KyRuntimeProfilerWithLoop, RealLoopRecordsPostedWorkAndIterations) {
    auto session = KyRuntimeProfilerSession::create("loop");
    std::thread loopThread([&] {
        KyCoreApplication app;
        app.attachProfilerSession(session);
        KyCoreApplication* loop = &app;
        app.postEvent([loop] { loop->postEvent([loop] { loop->quit(); }); });
        app.exec(20 * 1000 * 1000);
    });
    loopThread.join();
    EXPECT_GE(session->iterationCount(), 1);
    EXPECT_GE(session->span("fiber_lane2").count, 1);
    EXPECT_TRUE(session->isBound());
}

TEST(KyRuntimeProfilerWithLoop, TelemetryAloneReceivesIterationsAndTheEndOfItsLoop) {
    auto telemetry = std::make_shared<CountingTelemetry>();
    std::thread loopThread([&] {
        KyCoreApplication app;
        app.attachTelemetrySession(telemetry);
        KyCoreApplication* loop = &app;
        app.postEvent([loop] { loop->quit(); });
        app.exec(20 * 1000 * 1000);
        EXPECT_GE(telemetry->iterations, 1);
        EXPECT_FALSE(telemetry->ended);
    });
    loopThread.join();
    EXPECT_TRUE(telemetry->ended);
}
