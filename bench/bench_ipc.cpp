// IPC channel benchmarks, each beside a baseline measured in the same run:
//   - raw one-byte abstract-datagram ping-pong between two processes (the
//     floor of a wake-up), against a cross-process signal round trip through
//     the I/O dispatcher and the loop (publish -> callback -> publish back);
//   - lock + 4 KiB copy + unlock of a process-shared mutex, against one
//     ring-queue push and one drain of a 4 KiB message;
//   - ring-queue throughput across processes, 256-byte payloads, 100 slots;
//   - an idle pass over 100 subscribed channels.
// Cross-process cases fork a partner once per benchmark and run it for the
// whole case. Every run uses its own domain and removes its objects.
#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/runtime/KyCoreApplication.h"
#include "ipc/LoopPoller.h"
#include "ipc/RingQueue.h"
#include "ipc/Signal.h"
// Benchmarks run without GoogleTest: leftovers of a run are told on stderr.
#define KY_TEST_IPC_REPORT_LEFTOVERS(text) (std::fprintf(stderr, "%s\n", std::string(text).c_str()))
#include "../tests/support/KyTestIpc.h"

namespace {

using ky::ipc::Registry;
using ky::ipc::RingQueue;
using ky::ipc::Signal;

KyCoreApplication* g_app = nullptr;
std::unique_ptr<kytest::IpcDomain> g_domain;

template <typename Done>
bool runUntil(Done done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        const int r = g_app->processEvent(false);
        if (done()) break;
        if (std::chrono::steady_clock::now() > deadline) return false;
        if (r != 0) g_app->waitForWork_(r < 0 ? 1000 : std::min(r, 1000));
    }
    return true;
}

int boundSocket(const std::string& name) {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path + 1, name.data(), name.size());
    bind(fd, reinterpret_cast<sockaddr*>(&addr), static_cast<socklen_t>(name.size() + 3));
    return fd;
}

void sendTo(int fd, const std::string& name) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path + 1, name.data(), name.size());
    const char one = 1;
    sendto(fd, &one, 1, 0, reinterpret_cast<sockaddr*>(&addr), static_cast<socklen_t>(name.size() + 3));
}

// A partner killed inside a critical section would leave a process-shared
// mutex locked for good (they are not robust), so partners are asked to
// stop and only killed when they do not.
void stopChild(pid_t pid) {
    kill(pid, SIGTERM);
    for (int i = 0; i < 500; ++i) {
        if (waitpid(pid, nullptr, WNOHANG) == pid) return;
        usleep(10000);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// Baseline: one byte each way between two processes over abstract datagrams.
void BM_RawDatagramRoundTrip(benchmark::State& state) {
    const std::string a = "kybench_a_" + std::to_string(getpid());
    const std::string b = "kybench_b_" + std::to_string(getpid());
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGTERM, SIG_DFL);  // no loop here to hear the parent's handler
        int fd = boundSocket(b);
        char c;
        for (;;) {
            if (recv(fd, &c, 1, 0) == 1) sendTo(fd, a);
        }
    }
    int fd = boundSocket(a);
    char c;
    usleep(20000);
    for (auto _ : state) {
        sendTo(fd, b);
        while (recv(fd, &c, 1, 0) != 1) {
        }
    }
    state.counters["one_way_us"] = benchmark::Counter(2e-6 * state.iterations(),
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    close(fd);
    stopChild(child);
}
BENCHMARK(BM_RawDatagramRoundTrip)->UseRealTime();

// Publish in this process, callback in the child, which publishes back.
void BM_SignalRoundTripAcrossProcesses(benchmark::State& state) {
    Registry registry{g_domain->name(), "bench"};
    const pid_t child = fork();
    if (child == 0) {
        KyCoreApplication app;
        Signal<uint64_t> ping(registry, "ping");
        Signal<uint64_t> pong(registry, "pong");
        auto sub = ping.connect([&](uint64_t v) { pong.publish(v); });
        app.exec();
        _exit(0);
    }
    g_domain->trackPid(static_cast<uint32_t>(child));
    Signal<uint64_t> ping(registry, "ping");
    Signal<uint64_t> pong(registry, "pong");
    uint64_t last = 0;
    auto sub = pong.connect([&](uint64_t v) { last = v; });
    // Wait until the child listens: its answer to a probe comes back.
    uint64_t n = 1;
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (last != n && std::chrono::steady_clock::now() < giveUp) {
        ping.publish(n);
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        runUntil([&] { return last == n || std::chrono::steady_clock::now() > until; });
    }
    for (auto _ : state) {
        ++n;
        ping.publish(n);
        if (!runUntil([&] { return last == n; })) {
            state.SkipWithError("the partner stopped answering");
            break;
        }
    }
    state.counters["one_way_us"] = benchmark::Counter(2e-6 * state.iterations(),
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    sub.stop();
    stopChild(child);
}
BENCHMARK(BM_SignalRoundTripAcrossProcesses)->UseRealTime();

// Baseline: what a push fundamentally costs.
void BM_SharedMutexLockCopyUnlock4K(benchmark::State& state) {
    void* mem = mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* mutex = static_cast<pthread_mutex_t*>(mem);
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(mutex, &attr);
    uint8_t* dst = static_cast<uint8_t*>(mem) + 64;
    std::vector<uint8_t> src(4096, 7);
    for (auto _ : state) {
        pthread_mutex_lock(mutex);
        std::memcpy(dst, src.data(), 4096);
        pthread_mutex_unlock(mutex);
        benchmark::ClobberMemory();
    }
    munmap(mem, 8192);
}
BENCHMARK(BM_SharedMutexLockCopyUnlock4K);

// One push and one drain of a 4 KiB message in the queue itself.
void BM_QueuePushAndDrain4K(benchmark::State& state) {
    Registry registry{g_domain->name(), "bench"};
    RingQueue<100, KyString> queue(registry, "push-drain");
    ky::ipc::detail::QueuePollState poll;
    std::vector<uint8_t> payload(4096, 'q');
    ky::ipc::detail::DrainedMessages out;
    for (auto _ : state) {
        ky::ipc::detail::pushQueue_(queue.mapping().layout(), 100, payload.data(), payload.size(), queue.shmName());
        out.clear();
        ky::ipc::detail::drainQueue_(queue.mapping().layout(), 100, poll, out);
        benchmark::DoNotOptimize(out.bytes.data());
    }
}
BENCHMARK(BM_QueuePushAndDrain4K);

// The same through the typed front (encode, push, subscriber look-up, decode).
void BM_QueueTypedPushAndDrain4K(benchmark::State& state) {
    Registry registry{g_domain->name(), "bench"};
    RingQueue<100, KyString> queue(registry, "typed-push-drain");
    ky::ipc::detail::QueuePollState poll;
    const KyString text(std::string(4092, 'q'));
    ky::ipc::detail::DrainedMessages out;
    for (auto _ : state) {
        queue.push(text);
        out.clear();
        ky::ipc::detail::drainQueue_(queue.mapping().layout(), 100, poll, out);
        benchmark::DoNotOptimize(out.bytes.data());
    }
}
BENCHMARK(BM_QueueTypedPushAndDrain4K);

// The child drains; this process pushes 256-byte messages, retrying when full.
void BM_QueueThroughputAcrossProcesses(benchmark::State& state) {
    Registry registry{g_domain->name(), "bench"};
    const pid_t child = fork();
    if (child == 0) {
        KyCoreApplication app;
        RingQueue<100, KyString> queue(registry, "throughput");
        Signal<uint64_t> done(registry, "throughput-done");
        uint64_t received = 0;
        auto sub = queue.connect([&](const KyString&) { done.publish(++received); });
        app.exec();
        _exit(0);
    }
    g_domain->trackPid(static_cast<uint32_t>(child));
    RingQueue<100, KyString> queue(registry, "throughput");
    Signal<uint64_t> done(registry, "throughput-done");
    uint64_t acknowledged = 0;
    auto sub = done.connect([&](uint64_t v) { acknowledged = v; });
    const KyString message(std::string(252, 'm'));
    uint64_t sent = 0;
    bool stalled = false;
    for (auto _ : state) {
        // A partner that stopped draining must end the case, not spin it for ever.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!stalled && !queue.push(message)) {
            g_app->processEvent(false);
            stalled = std::chrono::steady_clock::now() > deadline;
        }
        if (stalled) break;
        ++sent;
    }
    if (stalled || !runUntil([&] { return acknowledged >= sent; })) state.SkipWithError("the draining partner stalled");
    state.counters["msgs_per_s"] = benchmark::Counter(static_cast<double>(sent), benchmark::Counter::kIsRate);
    sub.stop();
    stopChild(child);
}
BENCHMARK(BM_QueueThroughputAcrossProcesses)->UseRealTime();

// One poller pass over 100 subscribed channels where nothing changed.
void BM_IdlePassOver100Channels(benchmark::State& state) {
    Registry registry{g_domain->name(), "bench"};
    std::vector<std::unique_ptr<Signal<KyString>>> signals;
    std::vector<Signal<KyString>::Subscription> subs;
    for (int i = 0; i < 100; ++i) {
        signals.push_back(std::make_unique<Signal<KyString>>(registry, KyString("idle") + KyString::number(i)));
        subs.push_back(signals.back()->connect([](const KyString&) {}));
    }
    for (auto _ : state) ky::ipc::detail::LoopPoller::instance().tick_();
    // Time per pass divided over the channels, in nanoseconds.
    state.counters["ns_per_channel"] =
        benchmark::Counter(1e-7 * state.iterations(), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_IdlePassOver100Channels);

}  // namespace

int main(int argc, char** argv) {
    KyCoreApplication app;
    g_app = &app;
    g_domain = std::make_unique<kytest::IpcDomain>("bench");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_domain.reset();
    return 0;
}
