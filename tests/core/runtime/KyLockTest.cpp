// KyMutex and KyReadWriteLock: mutual exclusion between real threads, the
// errors a misuse gets instead of a deadlock, and the read-write lock's
// recursion rules, one table row per sequence of calls.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "core/runtime/KyMutex.h"
#include "core/runtime/KyReadWriteLock.h"

namespace {

int errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::system_error& e) {
        return e.code().value();
    }
    return 0;
}

// Runs fn on another thread and returns its result.
template <typename F> auto onOtherThread(F fn) {
    decltype(fn()) result{};
    std::thread t([&] { result = fn(); });
    t.join();
    return result;
}

// Whether another thread gets the lock through tryLock now; it gives back what it got.
template <typename Try, typename Unlock> bool otherThreadTakes(Try tryLock, Unlock unlock) {
    return onOtherThread([&] {
        const bool taken = tryLock();
        if (taken) unlock();
        return taken;
    });
}

} // namespace

TEST(KyMutex, PlainMutexExcludesOtherThreadsAndCountsEveryIncrement) {
    KyMutex mutex;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                KyMutexLocker lock(mutex);
                ++counter;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(counter, 80000);
}

TEST(KyMutex, PlainMutexRefusesRelockAndForeignUnlock) {
    KyMutex mutex;
    EXPECT_FALSE(mutex.isRecursive());
    mutex.lock();
    EXPECT_EQ(errorOf([&] { mutex.lock(); }), EDEADLK);
    EXPECT_FALSE(onOtherThread([&] { return mutex.tryLock(); }));
    EXPECT_EQ(onOtherThread([&] { return errorOf([&] { mutex.unlock(); }); }), EPERM);
    mutex.unlock();
    EXPECT_EQ(errorOf([&] { mutex.unlock(); }), EPERM);
    EXPECT_TRUE(otherThreadTakes([&] { return mutex.tryLock(); }, [&] { mutex.unlock(); }));
}

TEST(KyMutex, RecursiveMutexIsFreeOnlyAfterTheLastUnlock) {
    KyMutex mutex(KyMutex::Mode::Recursive);
    EXPECT_TRUE(mutex.isRecursive());
    mutex.lock();
    mutex.lock();
    EXPECT_TRUE(mutex.tryLock());
    mutex.unlock();
    mutex.unlock();
    EXPECT_FALSE(onOtherThread([&] { return mutex.tryLock(); }));
    mutex.unlock();
    EXPECT_TRUE(otherThreadTakes([&] { return mutex.tryLock(); }, [&] { mutex.unlock(); }));
}

// ---------------------------------------------------------------------------

namespace {

// One call sequence on one lock from one thread: 'r' lockForRead, 'w'
// lockForWrite, 'u' unlock, 'R' tryLockForRead, 'W' tryLockForWrite. The
// expected text lists, per call, "ok", "false" or the errno that was thrown,
// then the thread's final hold as reads/writes.
struct RecursionRow { const char* name; const char* calls; const char* expected; };

std::string play(KyReadWriteLock& lock, const char* calls) {
    std::string out;
    for (const char* c = calls; *c; ++c) {
        std::string result = "ok";
        try {
            switch (*c) {
            case 'r': lock.lockForRead(); break;
            case 'w': lock.lockForWrite(); break;
            case 'u': lock.unlock(); break;
            case 'R': result = lock.tryLockForRead() ? "ok" : "false"; break;
            case 'W': result = lock.tryLockForWrite() ? "ok" : "false"; break;
            }
        } catch (const std::system_error& e) {
            result = e.code().value() == EDEADLK ? "EDEADLK" : e.code().value() == EPERM ? "EPERM" : "other";
        }
        out += result + " ";
    }
    const auto held = lock.heldByCurrentThread();
    return out + std::to_string(held.reads) + "/" + std::to_string(held.writes);
}

} // namespace

TEST(KyReadWriteLock, RecursionRulesHoldForEachCallSequence) {
    const RecursionRow rows[] = {
        {"read nests", "rr", "ok ok 2/0"}, {"write nests", "ww", "ok ok 0/2"},
        {"read under write", "wr", "ok ok 1/1"}, {"write under read is refused", "rw", "ok EDEADLK 1/0"},
        {"try write under read says no", "rW", "ok false 1/0"}, {"try read under write deepens", "wR", "ok ok 1/1"},
        {"unlock releases innermost first", "wru", "ok ok ok 0/1"},
        {"balanced sequence frees the lock", "wrwuuu", "ok ok ok ok ok ok 0/0"},
        {"unlock without a hold", "u", "EPERM 0/0"}, {"one unlock too many", "ruu", "ok ok EPERM 0/0"},
    };
    for (const RecursionRow& row : rows) {
        SCOPED_TRACE(row.name);
        KyReadWriteLock lock;
        EXPECT_EQ(play(lock, row.calls), row.expected);
        // Whatever the row left behind is released, so the lock dies free.
        auto held = lock.heldByCurrentThread();
        for (int i = 0; i < held.reads + held.writes; ++i) lock.unlock();
    }
}

TEST(KyReadWriteLock, ReadersShareAndWritersExclude) {
    KyReadWriteLock lock;
    lock.lockForRead();
    EXPECT_TRUE(otherThreadTakes([&] { return lock.tryLockForRead(); }, [&] { lock.unlock(); }));
    EXPECT_FALSE(onOtherThread([&] { return lock.tryLockForWrite(); }));
    lock.unlock();

    lock.lockForWrite();
    lock.lockForRead();
    EXPECT_FALSE(onOtherThread([&] { return lock.tryLockForRead(); }));
    lock.unlock();
    // Still held for write after the nested read is gone.
    EXPECT_FALSE(onOtherThread([&] { return lock.tryLockForRead(); }));
    lock.unlock();
    EXPECT_TRUE(otherThreadTakes([&] { return lock.tryLockForWrite(); }, [&] { lock.unlock(); }));
}

TEST(KyReadWriteLock, HoldsAreKeptPerThreadAndPerLock) {
    KyReadWriteLock first, second;
    first.lockForWrite();
    second.lockForRead();
    EXPECT_EQ(first.heldByCurrentThread().writes, 1);
    EXPECT_EQ(second.heldByCurrentThread().reads, 1);
    EXPECT_EQ(onOtherThread([&] { return first.heldByCurrentThread().writes + second.heldByCurrentThread().reads; }), 0);
    // Another thread's unlock is refused: it holds nothing.
    EXPECT_EQ(onOtherThread([&] { return errorOf([&] { second.unlock(); }); }), EPERM);
    second.unlock();
    first.unlock();
}

TEST(KyReadWriteLock, WritersSeeConsistentStateUnderContention) {
    KyReadWriteLock lock;
    long a = 0, b = 0;
    std::atomic<bool> torn{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                KyWriteLocker w(lock);
                ++a;
                ++b;
            }
        });
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                KyReadLocker r(lock);
                // Nested reads must not wedge behind the waiting writers.
                KyReadLocker again(lock);
                if (a != b) torn = true;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_FALSE(torn.load());
    EXPECT_EQ(a, 10000);
    EXPECT_EQ(b, 10000);
}
