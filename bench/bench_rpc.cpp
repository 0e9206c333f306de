// RPC benchmarks, beside the floor they are measured against in the same run:
//   - the floor: two processes that each copy 4 KiB through a shared-memory
//     block under a process-shared mutex and then send a one-byte abstract
//     datagram to the other (one round trip = two copies in, two copies out,
//     two datagrams), median and p99;
//   - one remote call of a method taking a KyString and returning bool, the
//     client on a pooled fiber of this process's loop, the server in a forked
//     process on its own loop; median and p99, with their ratios to the floor;
//   - 32 calls in flight from 32 fibers of one client: calls per second, and
//     the time per call as a ratio to the floor's median round trip.
// The server is forked at start-up, before this process has any thread or
// loop, and is ended with SIGTERM at the end. The run uses its own domain and
// removes its objects.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/RpcServerEndpoint.h"
// Benchmarks run without GoogleTest: leftovers of a run are told on stderr.
#define KY_TEST_IPC_REPORT_LEFTOVERS(text) (std::fprintf(stderr, "%s\n", std::string(text).c_str()))
#include "../tests/support/KyTestIpc.h"

namespace {

using Clock = std::chrono::steady_clock;

const KyString kObject = "bench/RpcServer";
constexpr int kInFlight = 32;

KyCoreApplication* g_app = nullptr;
std::unique_ptr<kytest::IpcDomain> g_domain;
pid_t g_server = -1;

struct Figures {
    double median = 0;
    double p99 = 0;
};
Figures g_floor;
Figures g_rpc;
double g_callsPerSecond = 0;

double microsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

Figures summarize(std::vector<double> samples) {
    Figures f;
    if (samples.empty()) return f;
    std::sort(samples.begin(), samples.end());
    f.median = samples[samples.size() / 2];
    f.p99 = samples[std::min(samples.size() - 1, samples.size() * 99 / 100)];
    return f;
}

// Runs loop steps, parking in the loop's wait when it is idle, until done holds.
template <typename Done>
bool runUntil(Done done) {
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (Clock::now() > deadline) return false;
        const int r = g_app->processEvent(false);
        if (r != 0 && !done()) g_app->waitForWork_(r < 0 ? 10000 : std::min(r, 10000));
    }
    return true;
}

// ---- The floor: 4 KiB through shared memory plus a one-byte datagram, each way. ----

struct FloorBlock {
    pthread_mutex_t mutex;
    unsigned char data[4096];
};

sockaddr_un abstractAddress(const std::string& name, socklen_t& len) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path + 1, name.data(), name.size());
    len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return addr;
}

int boundDatagramSocket(const sockaddr_un& addr, socklen_t len) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), len) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void copyIn(FloorBlock* block, const unsigned char* from) {
    pthread_mutex_lock(&block->mutex);
    std::memcpy(block->data, from, sizeof block->data);
    pthread_mutex_unlock(&block->mutex);
}

void copyOut(FloorBlock* block, unsigned char* to) {
    pthread_mutex_lock(&block->mutex);
    std::memcpy(to, block->data, sizeof block->data);
    pthread_mutex_unlock(&block->mutex);
}

void BM_FloorShmCopyAndDatagramRoundTrip(benchmark::State& state) {
    void* mem = mmap(nullptr, sizeof(FloorBlock), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (mem == MAP_FAILED) {
        state.SkipWithError("mmap failed");
        return;
    }
    auto* block = static_cast<FloorBlock*>(mem);
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&block->mutex, &attr);
    pthread_mutexattr_destroy(&attr);

    const std::string base = "ky_bench_rpc_floor_" + std::to_string(getpid());
    socklen_t lenA = 0, lenB = 0;
    const sockaddr_un addrA = abstractAddress(base + "_a", lenA);
    const sockaddr_un addrB = abstractAddress(base + "_b", lenB);
    const int sockA = boundDatagramSocket(addrA, lenA);
    const int sockB = boundDatagramSocket(addrB, lenB);
    if (sockA < 0 || sockB < 0) {
        state.SkipWithError("cannot bind the floor's sockets");
        return;
    }
    const pid_t partner = fork();
    if (partner == 0) {
        unsigned char scratch[4096];
        for (;;) {
            char byte = 0;
            if (recv(sockB, &byte, 1, 0) <= 0 || byte == 0) _exit(0);
            copyOut(block, scratch);
            scratch[0] ^= 1;
            copyIn(block, scratch);
            sendto(sockB, &byte, 1, 0, reinterpret_cast<const sockaddr*>(&addrA), lenA);
        }
    }
    close(sockB);
    unsigned char out[4096];
    unsigned char in[4096];
    std::memset(out, 0x5a, sizeof out);
    std::vector<double> samples;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        copyIn(block, out);
        const char one = 1;
        sendto(sockA, &one, 1, 0, reinterpret_cast<const sockaddr*>(&addrB), lenB);
        char byte = 0;
        if (recv(sockA, &byte, 1, 0) <= 0) {
            state.SkipWithError("partner gone");
            break;
        }
        copyOut(block, in);
        const double us = microsSince(start);
        state.SetIterationTime(us / 1e6);
        samples.push_back(us);
    }
    const char stop = 0;
    sendto(sockA, &stop, 1, 0, reinterpret_cast<const sockaddr*>(&addrB), lenB);
    waitpid(partner, nullptr, 0);
    close(sockA);
    munmap(mem, sizeof(FloorBlock));
    g_floor = summarize(samples);
    state.counters["median_us"] = g_floor.median;
    state.counters["p99_us"] = g_floor.p99;
}
BENCHMARK(BM_FloorShmCopyAndDatagramRoundTrip)->UseManualTime()->Unit(benchmark::kMicrosecond);

// ---- The remote call: KyString in, bool out, the server in another process. ----

const KyString kPayload = "alice@example.org";

void BM_RpcRoundTripFromFiber(benchmark::State& state) {
    ky::ipc::RpcMethodClient<bool, KyString> check(g_domain->name(), kObject, "check", "bench_rpc");
    std::vector<double> samples;
    for (auto _ : state) {
        bool done = false;
        bool ok = false;
        double us = 0;
        g_app->postEvent([&] {
            const Clock::time_point start = Clock::now();
            ok = check.call(kPayload, 5000);
            us = microsSince(start);
            done = true;
        });
        if (!runUntil([&] { return done; }) || !ok) {
            state.SkipWithError(("call failed: " + check.lastError().toStdString()).c_str());
            break;
        }
        state.SetIterationTime(us / 1e6);
        samples.push_back(us);
    }
    g_rpc = summarize(samples);
    state.counters["median_us"] = g_rpc.median;
    state.counters["p99_us"] = g_rpc.p99;
    if (g_floor.median > 0) {
        state.counters["median_x_floor"] = g_rpc.median / g_floor.median;
        state.counters["p99_x_floor"] = g_rpc.p99 / g_floor.p99;
    }
}
BENCHMARK(BM_RpcRoundTripFromFiber)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_Rpc32InFlightFromFibers(benchmark::State& state) {
    ky::ipc::RpcMethodClient<bool, KyString> check(g_domain->name(), kObject, "check", "bench_rpc");
    int64_t calls = 0;
    const Clock::time_point start = Clock::now();
    for (auto _ : state) {
        int done = 0;
        int failed = 0;
        for (int i = 0; i < kInFlight; ++i) {
            g_app->postEvent([&] {
                if (!check.call(kPayload, 5000)) ++failed;
                ++done;
            });
        }
        if (!runUntil([&] { return done == kInFlight; }) || failed != 0) {
            state.SkipWithError(("calls failed: " + check.lastError().toStdString()).c_str());
            break;
        }
        calls += kInFlight;
    }
    const double seconds = microsSince(start) / 1e6;
    g_callsPerSecond = seconds > 0 ? static_cast<double>(calls) / seconds : 0;
    state.counters["calls_per_s"] = g_callsPerSecond;
    if (g_floor.median > 0 && g_callsPerSecond > 0) {
        state.counters["us_per_call_x_floor"] = (1e6 / g_callsPerSecond) / g_floor.median;
    }
}
BENCHMARK(BM_Rpc32InFlightFromFibers)->UseRealTime()->Unit(benchmark::kMillisecond);

// ---- The server process. ----

[[noreturn]] void serve(int readyFd) {
    {
        KyCoreApplication app;
        ky::ipc::Registry registry{g_domain->name(), kObject};
        auto alive = std::make_shared<std::atomic<bool>>(true);
        ky::ipc::RpcServerEndpoint endpoint(registry, kObject, alive,
                                            [] { return ky::atomic::Thread::currentThread(); });
        endpoint.expose<bool, KyString>("check", [](const KyString& text) { return !text.isEmpty(); }, true);
        const char ready = 'r';
        if (write(readyFd, &ready, 1) != 1) _exit(1);
        close(readyFd);
        app.exec();  // until SIGTERM
        alive->store(false);
    }
    _exit(0);
}

bool startServer() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    g_server = fork();
    if (g_server < 0) return false;
    if (g_server == 0) {
        close(fds[0]);
        serve(fds[1]);
    }
    close(fds[1]);
    g_domain->trackPid(static_cast<uint32_t>(g_server));
    pollfd p{fds[0], POLLIN, 0};
    char ready = 0;
    const bool ok = poll(&p, 1, 20000) == 1 && read(fds[0], &ready, 1) == 1 && ready == 'r';
    close(fds[0]);
    return ok;
}

void stopServer() {
    if (g_server <= 0) return;
    kill(g_server, SIGTERM);
    waitpid(g_server, nullptr, 0);
    const uint32_t pids[] = {static_cast<uint32_t>(getpid()), static_cast<uint32_t>(g_server)};
    g_domain->track(kObject, ky::ipc::rpcRequestQueueName("check"));
    for (uint32_t pid : pids) g_domain->track(kObject, ky::ipc::rpcResponseQueueName("check", pid));
}

}  // namespace

int main(int argc, char** argv) {
    g_domain = std::make_unique<kytest::IpcDomain>("benchrpc");
    // Forked before this process has a loop or any thread.
    if (!startServer()) {
        std::fprintf(stderr, "bench_rpc: the server did not come up\n");
        stopServer();
        return 1;
    }
    g_app = new KyCoreApplication();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::printf("\nfloor round trip: median %.1f us, p99 %.1f us\n", g_floor.median, g_floor.p99);
    if (g_floor.median > 0 && g_rpc.median > 0) {
        std::printf("rpc round trip:   median %.1f us (%.1fx floor), p99 %.1f us (%.1fx floor)\n", g_rpc.median,
                    g_rpc.median / g_floor.median, g_rpc.p99, g_rpc.p99 / g_floor.p99);
    }
    if (g_floor.median > 0 && g_callsPerSecond > 0) {
        std::printf("32 in flight:     %.0f calls/s, %.1f us per call (%.2fx floor median)\n", g_callsPerSecond,
                    1e6 / g_callsPerSecond, (1e6 / g_callsPerSecond) / g_floor.median);
    }
    delete g_app;
    stopServer();
    g_domain.reset();
    return 0;
}
