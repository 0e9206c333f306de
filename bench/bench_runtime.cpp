// Runtime benchmarks: posting and dispatch on pooled fibers, waits inside
// posted work, signal emission, cross-thread queued delivery, timers and the
// warm fiber pool. Each case sits beside a baseline measured in the same run.
// The benchmark thread owns one KyCoreApplication for the whole run (made in
// main below); the cross-thread cases start their own threads.
#include <benchmark/benchmark.h>

#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "core/io/KyDebug.h"
#include "core/object/KyObject.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyFiberPool.h"
#include "core/runtime/KyThread.h"

namespace {

using ky::atomic::Thread;

KyCoreApplication* g_app = nullptr;

// Runs loop steps until done() holds; false after a generous deadline.
template <typename Done> bool runUntil(Done done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (g_app->processEvent(false) != 0 && std::chrono::steady_clock::now() > deadline) return false;
    }
    return true;
}

long residentBytes() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * ::sysconf(_SC_PAGESIZE);
}

// ---- Baseline: a bare swapcontext round trip between two contexts. ----

ucontext_t g_mainContext;
ucontext_t g_peerContext;

void peerLoop() {
    for (;;) swapcontext(&g_peerContext, &g_mainContext);
}

void BM_SwapcontextRoundTrip(benchmark::State& state) {
    std::vector<char> stack(131072);
    getcontext(&g_peerContext);
    g_peerContext.uc_stack.ss_sp = stack.data();
    g_peerContext.uc_stack.ss_size = stack.size();
    g_peerContext.uc_link = nullptr;
    makecontext(&g_peerContext, &peerLoop, 0);
    for (auto _ : state) swapcontext(&g_mainContext, &g_peerContext);
}
BENCHMARK(BM_SwapcontextRoundTrip);

// ---- A posted function: post, dispatch on a pooled fiber, return. ----

void BM_PostedFunctionOnPooledFiber(benchmark::State& state) {
    long ran = 0;
    for (auto _ : state) {
        const long want = ran + 1;
        g_app->postEvent([&ran] { ++ran; });
        while (ran != want) g_app->processEvent(false);
    }
}
BENCHMARK(BM_PostedFunctionOnPooledFiber);

void BM_BatchedPosts(benchmark::State& state) {
    const int batch = static_cast<int>(state.range(0));
    long ran = 0;
    for (auto _ : state) {
        const long want = ran + batch;
        for (int i = 0; i < batch; ++i) g_app->postEvent([&ran] { ++ran; });
        if (!runUntil([&] { return ran == want; })) state.SkipWithError("posted work did not finish");
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(BM_BatchedPosts)->Arg(64)->Arg(256);

// ---- A wait inside a posted function: yield to the loop, woken by id. ----

void BM_WaitInsidePostedFunction(benchmark::State& state) {
    for (auto _ : state) {
        bool entered = false;
        bool done = false;
        const int id = KyCoreApplication::generateYieldId();
        g_app->postEvent([&, id] {
            entered = true;
            KyCoreApplication::yieldCurrentFiber(id);
            done = true;
        });
        while (!entered) g_app->processEvent(false);
        KyCoreApplication::routeYieldWakeAcrossInstances_(id, KyFiberLaneUrgent);
        while (!done) g_app->processEvent(false);
    }
}
BENCHMARK(BM_WaitInsidePostedFunction);

// ---- Direct signal emission to one slot vs a plain std::function call. ----

class Emitter : public KyObject {
public:
    KY_SIGNAL(valueChanged, int)
};

class Sink : public KyObject {
public:
    void onValue(int v) { total += v; }
    long total = 0;
};

void BM_StdFunctionCall(benchmark::State& state) {
    long total = 0;
    std::function<void(int)> fn = [&total](int v) { total += v; };
    benchmark::DoNotOptimize(fn);
    for (auto _ : state) fn(1);
    benchmark::DoNotOptimize(total);
}
BENCHMARK(BM_StdFunctionCall);

void BM_DirectSignalEmission(benchmark::State& state) {
    Emitter e;
    Sink s;
    KyObject::connect(&e, &Emitter::valueChanged, &s, &Sink::onValue, KyObject::ConnectionDirect);
    for (auto _ : state) e.valueChanged(1);
    benchmark::DoNotOptimize(s.total);
}
BENCHMARK(BM_DirectSignalEmission);

// ---- Queued signals between two threads' loops. ----

class Ball : public KyObject {
public:
    KY_SIGNAL(hit, int)
};

template <typename T> T* makeOn(Thread& thread) {
    T* object = nullptr;
    KyObject::executeBlockingOnThread(&thread, [&] { object = new T(); });
    return object;
}

void BM_QueuedPingPongRoundTrip(benchmark::State& state) {
    const int rounds = static_cast<int>(state.range(0));
    Thread a(KyString("BenchPing")), b(KyString("BenchPong"));
    a.start();
    b.start();
    Ball* ping = makeOn<Ball>(a);
    Ball* pong = makeOn<Ball>(b);
    std::mutex m;
    std::condition_variable cv;
    bool finished = false;
    KyObject::connect(ping, &Ball::hit, pong, [pong](int n) { pong->hit(n); }, KyObject::ConnectionQueued);
    KyObject::connect(pong, &Ball::hit, ping, [&, ping, rounds](int n) {
        if (n < rounds) {
            ping->hit(n + 1);
            return;
        }
        std::lock_guard lock(m);
        finished = true;
        cv.notify_all();
    }, KyObject::ConnectionQueued);
    for (auto _ : state) {
        finished = false;
        KyObject::postTaskToThread(&a, [ping] { ping->hit(1); });
        std::unique_lock lock(m);
        if (!cv.wait_for(lock, std::chrono::seconds(30), [&] { return finished; })) {
            state.SkipWithError("ping-pong stalled");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * rounds);
    state.counters["ns_per_round_trip"] =
        benchmark::Counter(static_cast<double>(state.iterations() * rounds),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    KyObject::executeBlockingOnThread(&a, [ping] { delete ping; });
    KyObject::executeBlockingOnThread(&b, [pong] { delete pong; });
    a.quit();
    b.quit();
    a.wait();
    b.wait();
}
BENCHMARK(BM_QueuedPingPongRoundTrip)->Arg(1000)->UseRealTime();

class Counter : public KyObject {
public:
    void onHit(int) { received.fetch_add(1, std::memory_order_release); }
    std::atomic<long> received{0};
};

void BM_QueuedOneWayThroughput(benchmark::State& state) {
    constexpr long kMessages = 10000;
    // The receiving loop admits a bounded number of posts; the sender keeps
    // a window below that instead of having posts refused.
    constexpr long kWindow = 256;
    Thread b(KyString("BenchSink"));
    b.start();
    Counter* sink = makeOn<Counter>(b);
    Ball source;
    KyObject::connect(&source, &Ball::hit, sink, &Counter::onHit, KyObject::ConnectionQueued);
    long sent = 0;
    for (auto _ : state) {
        const long target = sent + kMessages;
        while (sent < target) {
            if (sent - sink->received.load(std::memory_order_acquire) >= kWindow) {
                std::this_thread::yield();
                continue;
            }
            source.hit(1);
            ++sent;
        }
        while (sink->received.load(std::memory_order_acquire) < sent) std::this_thread::yield();
    }
    state.SetItemsProcessed(state.iterations() * kMessages);
    KyObject::disconnect(&source, sink);
    KyObject::executeBlockingOnThread(&b, [sink] { delete sink; });
    b.quit();
    b.wait();
}
BENCHMARK(BM_QueuedOneWayThroughput)->UseRealTime();

// ---- 10,000 single-shot timers of 0 ms. ----

void BM_TenThousandZeroMsTimers(benchmark::State& state) {
    constexpr int kTimers = 10000;
    // Posts beyond the pool's admission are refused and retried by the timer
    // table; the warning for each refusal is not what is measured.
    KyDebug::setRules(KyString("*.warning=false"));
    for (auto _ : state) {
        int fired = 0;
        for (int i = 0; i < kTimers; ++i) g_app->addTimer([&fired] { ++fired; }, 0, true, KyFiberLaneDefault);
        if (!runUntil([&] { return fired == kTimers; })) state.SkipWithError("timers did not all fire");
    }
    KyDebug::setRules(KyString());
    state.SetItemsProcessed(state.iterations() * kTimers);
}
BENCHMARK(BM_TenThousandZeroMsTimers)->Unit(benchmark::kMillisecond);

// ---- The warm pool of 500 fibers vs malloc'ing 500 stacks. ----

void BM_WarmPoolOf500Fibers(benchmark::State& state) {
    long rssDelta = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto* pool = new KyFiberPool();
        pool->setMainFiber(g_app->mainFiber());
        pool->setStackSize(KyFiberPool::kDefaultStackSize);
        pool->setLimits(500, 500);
        const long before = residentBytes();
        state.ResumeTiming();
        pool->ensureWarmInitialized();
        state.PauseTiming();
        // The first round shows the growth; later rounds may reuse freed pages.
        rssDelta = std::max(rssDelta, residentBytes() - before);
        pool->shutdown();
        delete pool;
        state.ResumeTiming();
    }
    state.counters["rss_delta_KiB"] = static_cast<double>(rssDelta) / 1024.0;
}
BENCHMARK(BM_WarmPoolOf500Fibers)->Unit(benchmark::kMicrosecond);

void BM_Malloc500Stacks(benchmark::State& state) {
    long rssDelta = 0;
    std::vector<void*> stacks(500);
    for (auto _ : state) {
        const long before = residentBytes();
        for (auto& s : stacks) s = std::malloc(131072);
        state.PauseTiming();
        benchmark::DoNotOptimize(stacks.data());
        rssDelta = std::max(rssDelta, residentBytes() - before);
        for (void* s : stacks) std::free(s);
        state.ResumeTiming();
    }
    state.counters["rss_delta_KiB"] = static_cast<double>(rssDelta) / 1024.0;
}
BENCHMARK(BM_Malloc500Stacks)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    g_app = new KyCoreApplication();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    delete g_app;
    return 0;
}
