// The runtime profiler's hooks: per-thread session lists, spans, the fiber
// relay, and the per-thread watch words with the preemption signal handler.
//
// Each thread's lists live in thread-local storage and are only touched by
// that thread. The watch words are heap records registered in a process-wide
// list; the signal handler reaches the calling thread's record through a plain
// thread-local pointer, which needs no initialisation and so is safe to read
// inside a handler.
#include "core/runtime/KyRuntimeProfiler.h"

#include <errno.h>
#include <signal.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "core/io/KyDebug.h"

namespace ky::profiler {

namespace detail {
std::atomic<int> gActiveSessions{0};
}  // namespace detail

namespace {
constexpr const char* kCategory = "ky.core.runtime.kyruntimeprofiler";

struct ThreadSessions_ {
    SessionList sessions;
    TelemetryList telemetry;
};
thread_local ThreadSessions_ tlsSessions_;

// Read by the signal handler: a trivially initialised pointer, never a
// thread-local object with a constructor.
thread_local FiberWatchWords* tlsWords_ = nullptr;

std::mutex& wordsMutex_() {
    static std::mutex mutex;
    return mutex;
}
std::vector<FiberWatchWords*>& wordsRegistry_() {
    static std::vector<FiberWatchWords*> registry;
    return registry;
}

struct WordsHolder_ {
    FiberWatchWords* words = nullptr;
    ~WordsHolder_() {
        if (!words) return;
        {
            std::lock_guard<std::mutex> lock(wordsMutex_());
            auto& registry = wordsRegistry_();
            registry.erase(std::remove(registry.begin(), registry.end(), words), registry.end());
        }
        tlsWords_ = nullptr;
        delete words;
    }
};
thread_local WordsHolder_ tlsWordsHolder_;

std::atomic<long long> gPreemptSignals_{0};

void pruneDetached_(SessionList& list) {
    list.erase(std::remove_if(list.begin(), list.end(),
                              [](const std::shared_ptr<KyRuntimeProfilerSession>& s) { return !s || !s->isAttached(); }),
               list.end());
}

const char* laneSpanName_(KyFiberLane lane, bool resumed) {
    static const char* const names[2][4] = {
        {"fiber_lane0", "fiber_lane1", "fiber_lane2", "fiber_lane3"},
        {"fiber_resume_lane0", "fiber_resume_lane1", "fiber_resume_lane2", "fiber_resume_lane3"}};
    return names[resumed ? 1 : 0][kyFiberLaneIndex(lane)];
}

ProfilerRelay_ gRelay_;
}  // namespace

long long nowMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

SessionList autoRuntimeProfilerSessionsForCurrentThread_() {
    if (!anySessionActive()) return {};
    SessionList& list = tlsSessions_.sessions;
    if (list.empty()) return {};
    pruneDetached_(list);
    return list;
}

void bindSessionsToCurrentThread(const SessionList& sessions) {
    if (sessions.empty()) return;
    SessionList& list = tlsSessions_.sessions;
    const std::size_t hash = std::hash<std::thread::id>{}(std::this_thread::get_id());
    for (const auto& session : sessions) {
        if (!session || !session->isAttached()) continue;
        if (!list.contains(session)) list.push_back(session);
        session->bindThread(hash, pthread_self());
    }
}

void unbindSessionsFromCurrentThread() {
    tlsSessions_.sessions.clear();
    tlsSessions_.telemetry.clear();
}

void bindTelemetrySessionsToCurrentThread(const TelemetryList& sessions) {
    TelemetryList& list = tlsSessions_.telemetry;
    for (const auto& session : sessions) {
        if (session && !list.contains(session)) list.push_back(session);
    }
}

void detail::publishRuntimeIterationSnapshotSlow_(long long busyMicroseconds, long long iterationMicroseconds) {
    SessionList& list = tlsSessions_.sessions;
    pruneDetached_(list);
    for (const auto& session : list) session->recordIteration(busyMicroseconds, iterationMicroseconds);
    for (const auto& telemetry : tlsSessions_.telemetry) telemetry->recordIteration(busyMicroseconds, iterationMicroseconds);
}

std::function<void()> wrapWithSessions(std::function<void()> fn, SessionList sessions, const char* spanName) {
    if (sessions.empty() || !fn) return fn;
    return [fn = std::move(fn), sessions = std::move(sessions), spanName] {
        bindSessionsToCurrentThread(sessions);
        MultiRuntimeScopedSpan_ span(sessions, spanName);
        fn();
    };
}

MultiRuntimeScopedSpan_::MultiRuntimeScopedSpan_(const SessionList& sessions, const char* name) : name_(name) {
    if (!anySessionActive() || sessions.empty()) return;
    sessions_ = sessions;
    start_ = nowMicroseconds();
}

MultiRuntimeScopedSpan_::MultiRuntimeScopedSpan_(const char* name) : name_(name) {
    if (!anySessionActive()) return;
    sessions_ = autoRuntimeProfilerSessionsForCurrentThread_();
    if (!sessions_.empty()) start_ = nowMicroseconds();
}

MultiRuntimeScopedSpan_::~MultiRuntimeScopedSpan_() {
    if (sessions_.empty()) return;
    const long long elapsed = nowMicroseconds() - start_;
    for (const auto& session : sessions_) session->recordSpan(name_, elapsed);
}

void ProfilerRelay_::onFiberDispatchEnter(KyFiberLane, bool) {
    // Nothing to record until the dispatch ends; the pool measures the time.
}

void ProfilerRelay_::onFiberDispatchExit(KyFiberLane lane, bool resumed, long long elapsedMicroseconds) {
    if (!anySessionActive()) return;
    SessionList& list = tlsSessions_.sessions;
    if (list.empty()) return;
    const char* name = laneSpanName_(lane, resumed);
    for (const auto& session : list) session->recordSpan(name, elapsedMicroseconds);
}

KyFiberDispatchRelay* fiberDispatchRelay() { return &gRelay_; }

FiberWatchWords* fiberWatchWordsForCurrentThread() {
    if (tlsWords_) return tlsWords_;
    auto* words = new FiberWatchWords;
    words->thread = pthread_self();
    {
        std::lock_guard<std::mutex> lock(wordsMutex_());
        wordsRegistry_().push_back(words);
    }
    tlsWordsHolder_.words = words;
    tlsWords_ = words;
    return words;
}

bool preemptRequestedForCurrentThread() {
    FiberWatchWords* words = tlsWords_;
    return words && words->preemptRequeue.load(std::memory_order_relaxed);
}

void unixWatchdogPreemptSignalHandler_(int) {
    // Only lock-free stores: the thread may be anywhere, even inside malloc.
    // The fiber is not switched here; the pool requeues it when it returns.
    FiberWatchWords* words = tlsWords_;
    if (words) {
        if (words->runningFiber.load(std::memory_order_relaxed))
            words->preemptRequeue.store(true, std::memory_order_relaxed);
        words->preemptSignals.fetch_add(1, std::memory_order_relaxed);
    }
    gPreemptSignals_.fetch_add(1, std::memory_order_relaxed);
}

bool installWatchdogPreemptSignalHandler() {
    struct sigaction current{};
    if (sigaction(SIGUSR2, nullptr, &current) != 0) {
        kyLogError(kCategory) << "Cannot read the SIGUSR2 action:" << strerror(errno);
        return false;
    }
    if (!(current.sa_flags & SA_SIGINFO) && current.sa_handler == &unixWatchdogPreemptSignalHandler_) return true;
    if (!(current.sa_flags & SA_SIGINFO) && current.sa_handler != SIG_DFL && current.sa_handler != SIG_IGN) {
        kyLogWarning(kCategory) << "SIGUSR2 has another handler; watchdog preemption is not delivered";
        return false;
    }
    struct sigaction action{};
    action.sa_handler = &unixWatchdogPreemptSignalHandler_;
    sigemptyset(&action.sa_mask);
    // SA_RESTART: a preempted thread inside a system call carries on with it.
    action.sa_flags = SA_RESTART;
    if (sigaction(SIGUSR2, &action, nullptr) != 0) {
        kyLogError(kCategory) << "Cannot install the SIGUSR2 handler:" << strerror(errno);
        return false;
    }
    return true;
}

long long preemptSignalCount() { return gPreemptSignals_.load(std::memory_order_relaxed); }

void detail::forEachFiberWatchWords_(const std::function<void(FiberWatchWords&)>& visit) {
    std::lock_guard<std::mutex> lock(wordsMutex_());
    for (FiberWatchWords* words : wordsRegistry_()) visit(*words);
}

}  // namespace ky::profiler
