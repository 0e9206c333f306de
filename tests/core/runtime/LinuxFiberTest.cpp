// The fiber layer on real threads: switching order, stacks, deletion.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "core/runtime/linux_fiber.h"

namespace {

struct PingPong { void* origin = nullptr; std::vector<int>* trace = nullptr; int rounds = 0; };

void pingPongEntry(void* raw) {
    auto* p = static_cast<PingPong*>(raw);
    for (int i = 0;; ++i) {
        p->trace->push_back(2 * i + 1);
        linux_fiber::SwitchToFiber(p->origin);
    }
}

// Uses most of a stack, so a stack that is too small (or shared) shows up.
int deepSum(int depth) {
    volatile char pad[512];
    std::memset(const_cast<char*>(pad), depth & 0x7f, sizeof pad);
    if (depth == 0) return pad[0];
    return deepSum(depth - 1) + pad[depth % sizeof pad];
}

struct DeepWork { void* origin = nullptr; int result = -1; };

void deepEntry(void* raw) {
    auto* w = static_cast<DeepWork*>(raw);
    w->result = deepSum(150);  // about 80 KB of a 131072-byte stack
    for (;;) linux_fiber::SwitchToFiber(w->origin);
}

} // namespace

TEST(LinuxFiber, SwitchesAlternateBetweenThreadAndFiberInOrder) {
    std::vector<int> trace;
    PingPong p;
    p.trace = &trace;
    p.origin = linux_fiber::ConvertThreadToFiber(nullptr);
    ASSERT_NE(p.origin, nullptr);
    void* fiber = linux_fiber::CreateFiber(0, &pingPongEntry, &p);
    ASSERT_NE(fiber, nullptr);
    for (int i = 0; i < 1000; ++i) {
        trace.push_back(2 * i);
        linux_fiber::SwitchToFiber(fiber);
    }
    ASSERT_EQ(trace.size(), 2000u);
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(trace[i], i);
    EXPECT_EQ(linux_fiber::GetCurrentFiber(), p.origin);
    linux_fiber::DeleteFiber(fiber);
    linux_fiber::DeleteFiber(p.origin);
    EXPECT_EQ(linux_fiber::GetCurrentFiber(), nullptr);
}

TEST(LinuxFiber, PoolSizedStackCarriesDeepWorkAndSwitchesToNullOrSelfDoNothing) {
    DeepWork work;
    work.origin = linux_fiber::ConvertThreadToFiber(reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(linux_fiber::GetFiberData(work.origin), reinterpret_cast<void*>(0x1234));
    void* fiber = linux_fiber::CreateFiber(131072, &deepEntry, &work);
    ASSERT_NE(fiber, nullptr);
    EXPECT_EQ(linux_fiber::FiberStackSize(fiber), 131072u);
    linux_fiber::SwitchToFiber(nullptr);
    linux_fiber::SwitchToFiber(work.origin);
    EXPECT_EQ(work.result, -1) << "a created fiber does not run until switched to";
    linux_fiber::SwitchToFiber(fiber);
    EXPECT_EQ(work.result, deepSum(150));
    linux_fiber::DeleteFiber(fiber);
    linux_fiber::DeleteFiber(work.origin);
}

TEST(LinuxFiber, FibersOfSeveralThreadsNeverMix) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&good] {
            std::vector<int> trace;
            PingPong p;
            p.trace = &trace;
            p.origin = linux_fiber::ConvertThreadToFiber(nullptr);
            void* fibers[3];
            for (auto& f : fibers) f = linux_fiber::CreateFiber(0, &pingPongEntry, &p);
            for (int i = 0; i < kRounds; ++i) {
                trace.push_back(-1);
                linux_fiber::SwitchToFiber(fibers[i % 3]);
            }
            // Each fiber counts its own turns: fiber k saw turns k, k+3, ...
            bool ok = trace.size() == 2 * kRounds;
            std::vector<int> seen(3, 0);
            for (int i = 0; i < kRounds && ok; ++i) {
                const int k = i % 3;
                ok = trace[2 * i] == -1 && trace[2 * i + 1] == 2 * seen[k] + 1;
                ++seen[k];
            }
            if (ok && linux_fiber::GetCurrentFiber() == p.origin) good.fetch_add(1);
            for (auto& f : fibers) linux_fiber::DeleteFiber(f);
            linux_fiber::DeleteFiber(p.origin);
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(good.load(), kThreads);
}
