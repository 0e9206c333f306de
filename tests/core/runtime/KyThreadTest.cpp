// Threads with their own loops: start-up order, pending tasks, the fallback
// rules for dead or missing threads, blocking calls, quitting and naming.
#include <gtest/gtest.h>

#include "../../support/KyTestLoop.h"

#include <pthread.h>

#include <atomic>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "core/io/KyDebug.h"
#include "core/object/KyObject.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"

namespace {

using ky::atomic::Thread;

using kytest::eventually;

} // namespace

TEST(KyThreadStart, TasksPostedBeforeTheLoopExistsRunInOrderOnceItStarts) {
    Thread t(KyString("LateStarter"));
    std::mutex m;
    std::vector<int> order;
    std::atomic<int> done{0};
    std::atomic<pthread_t> where{};
    for (int i = 0; i < 5; ++i)
        t.postTask([&, i] {
            std::lock_guard lock(m);
            order.push_back(i);
            where = pthread_self();
            ++done;
        });
    EXPECT_EQ(t.application(), nullptr);
    EXPECT_FALSE(Thread::isLive(&t));
    ASSERT_TRUE(t.start());
    EXPECT_FALSE(t.start());
    ASSERT_TRUE(eventually([&] { return done.load() == 5; }));
    {
        std::lock_guard lock(m);
        EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    }
    EXPECT_TRUE(pthread_equal(where.load(), t.nativeHandle()));
    t.quit();
    EXPECT_TRUE(t.wait());
}

TEST(KyThreadStart, AThreadKnowsItselfItsNameAndItsLoopAndTheMainThreadIsAdopted) {
    Thread t(KyString("Named"));
    t.start();
    Thread* seenCurrent = nullptr;
    KyCoreApplication* seenLoop = nullptr;
    KyString seenLogName;
    KyObject::executeBlockingOnThread(&t, [&] {
        seenCurrent = Thread::currentThread();
        seenLoop = KyCoreApplication::instance(false);
        seenLogName = KyDebug::threadName();
    });
    EXPECT_EQ(seenCurrent, &t);
    EXPECT_NE(seenLoop, nullptr);
    EXPECT_EQ(seenLoop, t.application());
    EXPECT_EQ(seenLogName, KyString("Named"));
    EXPECT_TRUE(Thread::isLive(&t));
    EXPECT_EQ(Thread::fromThreadId(std::this_thread::get_id()), Thread::currentThread());
    t.quit();
    t.wait();
    EXPECT_FALSE(Thread::isLive(&t));
    EXPECT_EQ(t.application(), nullptr);
    // The main thread is adopted; a foreign thread has none.
    Thread* main = Thread::currentThread();
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main->name(), KyString("MainThread"));
    EXPECT_TRUE(pthread_equal(main->nativeHandle(), pthread_self()));
    EXPECT_FALSE(main->start());
    Thread* seen = main;
    std::thread([&] { seen = Thread::currentThread(); }).join();
    EXPECT_EQ(seen, nullptr);
}

TEST(KyThreadStart, ARestartedThreadRunsAgainAndDestroyingItRunningQuitsAndJoinsIt) {
    std::atomic<int> ran{0};
    {
        Thread t(KyString("Twice"));
        for (int round = 0; round < 2; ++round) {
            SCOPED_TRACE(round);
            ASSERT_TRUE(t.start());
            t.postTask([&] { ++ran; });
            ASSERT_TRUE(eventually([&] { return ran.load() == round + 1; }));
            t.quit();
            ASSERT_TRUE(t.wait());
        }
        ASSERT_TRUE(t.start());
        KyObject::executeBlockingOnThread(&t, [&] { ++ran; });
    }
    EXPECT_EQ(ran.load(), 3);
}

// ---------------------------------------------------------------------------

TEST(KyThreadFallback, ATaskToADeadThreadRunsOnTheCurrentThread) {
    KyCoreApplication app;
    auto* t = new Thread(KyString("Gone"));
    t->start();
    t->quit();
    t->wait();
    ASSERT_FALSE(Thread::isLive(t));
    std::atomic<bool> ran{false};
    std::atomic<pthread_t> where{};
    KyObject::postTaskToThread(t, [&] {
        where = pthread_self();
        ran = true;
    });
    ASSERT_TRUE(eventually([&] { return ran.load(); }, &app));
    EXPECT_TRUE(pthread_equal(where.load(), pthread_self()));
    delete t;
}

TEST(KyThreadFallback, AThreadWithoutAThreadObjectPostsToTheSharedFallbackThread) {
    Thread* fallback = Thread::sharedFallbackThread();
    ASSERT_NE(fallback, nullptr);
    EXPECT_EQ(Thread::sharedFallbackThread(), fallback);
    EXPECT_EQ(fallback->name(), KyString("KyFallbackCoreThread"));
    std::atomic<bool> ran{false};
    std::atomic<pthread_t> where{};
    std::thread foreign([&] {
        KyObject::postTaskToThread(nullptr, [&] {
            where = pthread_self();
            ran = true;
        });
    });
    foreign.join();
    ASSERT_TRUE(eventually([&] { return ran.load(); }));
    EXPECT_TRUE(pthread_equal(where.load(), fallback->nativeHandle()));
}

// ---------------------------------------------------------------------------

TEST(KyThreadBlocking, RunsOnTheTargetAndReturnsAfterItOrWithItsExceptionOrInlineWhereNoOtherLoopCanRunIt) {
    Thread t(KyString("Blocking"));
    t.start();
    int value = 0;
    pthread_t where{};
    KyObject::executeBlockingOnThread(&t, [&] {
        where = pthread_self();
        value = 42;
    });
    EXPECT_EQ(value, 42);
    EXPECT_TRUE(pthread_equal(where, t.nativeHandle()));
    EXPECT_THROW(KyObject::executeBlockingOnThread(&t, [] { throw std::runtime_error("task failed"); }),
                 std::runtime_error);
    KyObject::executeBlockingOnThread(&t, [&] { value = 43; });
    EXPECT_EQ(value, 43);
    // A call to the target from itself runs inline, as does one to a not started or null thread.
    std::atomic<int> nested{0};
    KyObject::executeBlockingOnThread(&t, [&] {
        KyObject::executeBlockingOnThread(&t, [&] { ++nested; });
        ++nested;
    });
    EXPECT_EQ(nested.load(), 2);
    t.quit();
    t.wait();
    Thread never(KyString("NeverStarted"));
    for (Thread* target : {Thread::currentThread(), &never, static_cast<Thread*>(nullptr)})
        KyObject::executeBlockingOnThread(target, [&] { ++value; });
    EXPECT_EQ(value, 46);
}

TEST(KyThreadBlocking, TwoThreadsCallingEachOtherFromPostedWorkDoNotWedge) {
    Thread a(KyString("PingA")), b(KyString("PingB"));
    a.start();
    b.start();
    std::atomic<int> done{0};
    // Each posted function blocks on the other thread, which is itself inside
    // a blocking call back: the waiting fibers yield, so both loops go on.
    a.postTask([&] {
        KyObject::executeBlockingOnThread(&b, [&] { ++done; });
        ++done;
    });
    b.postTask([&] {
        KyObject::executeBlockingOnThread(&a, [&] { ++done; });
        ++done;
    });
    EXPECT_TRUE(eventually([&] { return done.load() == 4; }));
    a.quit();
    b.quit();
    a.wait();
    b.wait();
}
