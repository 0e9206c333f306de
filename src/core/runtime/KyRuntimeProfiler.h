// The runtime profiler: the hooks that every loop calls, and the per-thread
// words that the watchdog reads.
//
// Model: profiling sessions (KyRuntimeProfilerSession) are bound to loop
// threads. Each thread keeps its own list of bound sessions; the loop's hooks
// (the scoped span around an object event or a posted function, the iteration
// snapshot, the fiber pool's relay) record into that list. While no session is
// attached anywhere in the process, every hook costs one relaxed atomic load
// and a branch, and records nothing.
//
// Preemption: each loop thread publishes the fiber it is running and when it
// started (FiberWatchWords). The watchdog (KyRuntimeWatchdog) sends SIGUSR2 to
// a thread whose fiber has run past its threshold, and
// unixWatchdogPreemptSignalHandler_ only sets that thread's requeue flag. It
// never switches fibers inside the handler: preemption is cooperative. The
// pool requeues the slot when the fiber next returns to the loop, and long
// running work may poll preemptRequestedForCurrentThread to yield earlier.
//
// Threads: the binding and recording calls act on the calling thread's own
// list; sessions themselves are thread-safe. The signal handler is
// async-signal-safe: it touches only lock-free atomics.
#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <memory>

#include "core/runtime/KyFiberLane.h"
#include "core/runtime/KyFiberPool.h"
#include "core/runtime/KyRuntimeProfilerSession.h"
#include "core/types/KyList.h"

namespace ky::profiler {

using SessionList = KyList<std::shared_ptr<KyRuntimeProfilerSession>>;
using TelemetryList = KyList<std::shared_ptr<KyRuntimeTelemetrySession>>;

namespace detail {
/// Attached profiler sessions plus existing telemetry sessions, process-wide.
extern std::atomic<int> gActiveSessions;
void publishRuntimeIterationSnapshotSlow_(long long busyMicroseconds, long long iterationMicroseconds);
}  // namespace detail

struct FiberWatchWords;

/// The cheap test every hook makes first.
inline bool anySessionActive() { return detail::gActiveSessions.load(std::memory_order_relaxed) != 0; }

/// Steady clock, microseconds: the time base of the loop and the watchdog.
long long nowMicroseconds();

/// The attached sessions bound to the calling thread (detached ones are dropped
/// from the thread's list on the way). Empty, without allocating, when none.
SessionList autoRuntimeProfilerSessionsForCurrentThread_();
/// Adds each attached session to the calling thread's list (once) and binds the
/// thread's identity in sessions that have none yet.
void bindSessionsToCurrentThread(const SessionList& sessions);
/// Empties the calling thread's profiler and telemetry lists.
void unbindSessionsFromCurrentThread();
/// Telemetry sessions receive the thread's iteration snapshots too.
void bindTelemetrySessionsToCurrentThread(const TelemetryList& sessions);

/// The loop publishes each iteration here; recorded in every bound session.
inline void publishRuntimeIterationSnapshot(long long busyMicroseconds, long long iterationMicroseconds) {
    if (anySessionActive()) detail::publishRuntimeIterationSnapshotSlow_(busyMicroseconds, iterationMicroseconds);
}

/// Wraps fn so that, wherever it runs, it binds sessions to that thread and
/// runs inside a span named spanName for them. fn itself when sessions is empty.
std::function<void()> wrapWithSessions(std::function<void()> fn, SessionList sessions,
                                       const char* spanName = "posted_event");

/// Times its own lifetime and records it as a span in each of a list of sessions.
class MultiRuntimeScopedSpan_ {
public:
    /// name must outlive the span (a literal). Nothing happens for an empty list.
    MultiRuntimeScopedSpan_(const SessionList& sessions, const char* name);
    /// Uses the sessions bound to the calling thread.
    explicit MultiRuntimeScopedSpan_(const char* name);
    ~MultiRuntimeScopedSpan_();
    MultiRuntimeScopedSpan_(const MultiRuntimeScopedSpan_&) = delete;
    MultiRuntimeScopedSpan_& operator=(const MultiRuntimeScopedSpan_&) = delete;

private:
    SessionList sessions_;
    const char* name_;
    long long start_ = 0;
};

/// The fiber pool's observer: each dispatch becomes a span "fiber_lane<n>"
/// (and "fiber_resume_lane<n>" for a resumed slot) in the thread's sessions.
class ProfilerRelay_ : public KyFiberDispatchRelay {
public:
    void onFiberDispatchEnter(KyFiberLane lane, bool resumed) override;
    void onFiberDispatchExit(KyFiberLane lane, bool resumed, long long elapsedMicroseconds) override;
};

/// The process's relay, for KyFiberPool::setRelay.
KyFiberDispatchRelay* fiberDispatchRelay();

/// What a loop thread publishes for the watchdog (KyFiberPool::setPublishedWords).
struct FiberWatchWords {
    std::atomic<void*> runningFiber{nullptr};
    /// Steady clock microseconds at which runningFiber was dispatched.
    std::atomic<long long> startMicroseconds{0};
    /// Set by the preemption signal; the pool takes it by exchange.
    std::atomic<bool> preemptRequeue{false};
    /// Preemption signals that reached this thread.
    std::atomic<long long> preemptSignals{0};
    pthread_t thread{};
    /// The start time the watchdog already signalled (watchdog thread only).
    long long lastSignalledStart = -1;
};

/// The calling thread's words, created and registered with the watchdog on
/// first use and unregistered when the thread ends.
FiberWatchWords* fiberWatchWordsForCurrentThread();
/// True while a preemption request for the calling thread awaits the pool.
bool preemptRequestedForCurrentThread();
/// SIGUSR2 handler: marks the receiving thread's running fiber for requeue.
void unixWatchdogPreemptSignalHandler_(int signal);
/// Installs the handler above for SIGUSR2 unless one is installed already.
bool installWatchdogPreemptSignalHandler();
/// Preemption signals received by the process.
long long preemptSignalCount();

namespace detail {
/// Calls visit for every registered thread's words, under the registry's
/// mutex (so no thread unregisters meanwhile). For the watchdog.
void forEachFiberWatchWords_(const std::function<void(FiberWatchWords&)>& visit);
}  // namespace detail

}  // namespace ky::profiler
