// KyCoreApplication: the per-thread event loop and the owner of everything
// that runs on that thread.
//
// Every thread that runs a loop has its own instance, with its fiber pool, two
// queues of posted object events (high: priority 1 and above; normal), the
// timer table, the I/O dispatcher and a wake-up eventfd. Posted functions run
// on pooled fibers, so work that must wait yields its fiber and the loop goes
// on; object events are delivered on the loop's own stack between fiber runs.
// One step of the loop serves, in order: lane 0, high object events, timers,
// lanes 1 to 3 by credits, normal object events.
//
// Threads: processEvent, exec, notify and waitForWork_ run on the owning
// thread only. postEvent, postEventOnLane, quit, exit, wakeUp, addTimer,
// removeTimer and routeYieldWakeAcrossInstances_ are safe from any thread.
// A wake-up is a notify on the condition variable and a write of 1 to the
// eventfd, since the loop may be parked on either; a post made on the owning
// thread itself needs neither, as that thread is running, not parked. Lock order: the instance
// registry mutex, then a pool's lock; the event mutex, then the pool's lock.
// No lock is held while user code runs. SIGINT and SIGTERM end the loops of
// all threads.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "core/runtime/KyFiberLane.h"
#include "core/runtime/KyFiberPool.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"
#include "core/types/KyVector.h"

class KyObject;
class KyEvent;
class KyCoreApplication;
class KyIoDispatcher;
class KyRuntimeProfilerSession;
class KyRuntimeTelemetrySession;
class KyRuntimeWatchdog;
namespace ky::atomic {
class Thread;
}

/// Told when a loop instance is registered or unregistered (on the thread that does it).
class KyCoreApplicationRegistryObserver {
public:
    virtual ~KyCoreApplicationRegistryObserver() = default;
    virtual void onRuntimeApplicationRegistered(KyCoreApplication* application, const KyString& descriptor) = 0;
    virtual void onRuntimeApplicationUnregistered(KyCoreApplication* application, const KyString& descriptor) = 0;
};

/// One loop step's measurement, kept for one second.
struct IterationMeasurement {
    std::chrono::steady_clock::time_point when;
    long long busyMicroseconds = 0;
    long long iterationMicroseconds = 0;
};

/// The event loop of one thread: fiber pool, object event queues, timers.
class KyCoreApplication {
public:
    /// Wait bound reported by processTimers when no timer exists.
    static constexpr int kNoTimerMicroseconds = 2147483647;

    KyCoreApplication();
    /// Also fills the argument table from argv (see setArguments).
    KyCoreApplication(int argc, char** argv);
    virtual ~KyCoreApplication();
    KyCoreApplication(const KyCoreApplication&) = delete;
    KyCoreApplication& operator=(const KyCoreApplication&) = delete;

    /// The calling thread's instance; with create, one is made when there is none.
    static KyCoreApplication* instance(bool create = false);

    /// Delivers an object event: application filters, the receiver's filters
    /// (newest first), then the receiver's event(). Owning thread only.
    virtual bool notify(KyObject* receiver, KyEvent* event);
    /// Runs the loop until quit/exit (or, with a positive timeout, until the
    /// first full iteration that ends timeoutMicroseconds after the start).
    /// Returns the exit code.
    virtual int exec(int timeoutMicroseconds = 0);

    /// One step of the loop. 0: look again at once; positive: microseconds
    /// until the next timer; -1: nothing scheduled, wait for a wake-up.
    int processEvent(bool waitIfIdle);
    /// Blocks until a wake-up, a terminate request or the time-out
    /// (microseconds; negative waits without limit).
    void waitForWork_(int timeoutMicroseconds);

    /// Posts fn on lane 2; false when the pool refused it.
    bool postEvent(std::function<void()> fn);
    /// Posts fn on lane; false when the pool refused it.
    bool postEventOnLane(std::function<void()> fn, KyFiberLane lane);
    bool postEventOnLaneImpl_(std::function<void()> fn, KyFiberLane lane, bool wrapProfiler);
    /// Queues event for receiver (or forwards it to the receiver's thread);
    /// takes ownership of event. Priority 1 and above overtakes priority 0.
    void postEvent(KyObject* receiver, KyEvent* event, int priority = 0);
    /// Synchronous delivery through the calling thread's loop (or, without
    /// one, through the receiver's filters and event()); the caller keeps the event.
    static bool sendEvent(KyObject* receiver, KyEvent* event);

    /// Ends the loop; the exit code stays as it is.
    void quit();
    /// Stores code as the exit code, then ends the loop.
    void exit(int code);
    bool isRunning() const { return running_.load(std::memory_order_acquire); }
    int exitCode() const { return exitCode_.load(std::memory_order_acquire); }
    /// Notifies the condition variable and writes 1 to the wake eventfd.
    void wakeUp();

    pthread_t ownerThreadHandle() const { return ownerHandle_; }
    std::thread::id ownerThreadId() const { return ownerId_; }
    std::size_t ownerThreadHash() const { return ownerHash_; }
    /// The wake eventfd (-1 when there is none).
    int wakeDescriptor() const { return wakeFd_.load(std::memory_order_acquire); }

    // Timers. Functions run as posted work on lane, on this thread.
    /// Adds a timer firing every intervalUs (once with singleShot); returns its id.
    int addTimer(std::function<void()> fn, int intervalUs, bool singleShot, KyFiberLane lane);
    /// Removes a timer; one whose dispatch is under way is destroyed when it ends.
    void removeTimer(int timerId);
    /// Posts every due timer; returns microseconds until the next, or kNoTimerMicroseconds.
    int processTimers();
    /// Number of timers in the table.
    int timerCount() const;

    /// Fresh yield id: -1, -2, -3, ... (0 means "not yielded").
    static int generateYieldId();
    /// Suspends the calling pooled fiber under yieldId until the id is woken.
    /// False, without suspending, when the caller is not on a pooled fiber of
    /// this thread's loop: the caller must then wait by running the loop itself
    /// (processEvent / waitForWork_) until its condition holds. With
    /// keepWaiting, a wake-up that clears the flag before the switch is not lost.
    static bool yieldCurrentFiber(int yieldId, const std::atomic<bool>* keepWaiting = nullptr);
    /// Wakes yieldId on lane, whichever thread's pool holds it; unknown ids are ignored.
    static void routeYieldWakeAcrossInstances_(int yieldId, KyFiberLane lane);

    bool runFiberPoolWork_();
    KyFiberPool& fiberPool() { return pool_; }
    const KyFiberPool& fiberPool() const { return pool_; }
    void* mainFiber() const { return mainFiber_; }

    /// Application-wide event filters, consulted before the receiver's own (newest first).
    void installEventFilter(KyObject* filter);
    void removeEventFilter(KyObject* filter);

    // Command-line arguments: "--key=value" gives key:value, "--key" and
    // "-key" give key:"", and a '-' inside a key is also entered as '_'
    // ("--start-hidden" gives "start-hidden" and "start_hidden").
    void setArguments(int argc, char** argv);
    /// Fills the table from /proc/self/cmdline; the default constructor does so on the main thread.
    void setArgumentsFromProcess_();
    bool hasArgument(const KyString& key) const;
    KyString argument(const KyString& key) const;
    const KyMap<KyString, KyString>& arguments() const { return arguments_; }
    /// The argument words themselves, argv[1..].
    const KyVector<KyString>& argumentList() const { return argumentList_; }

    /// Loop measurements of the last second: sums of busy and iteration time.
    long long busyMicrosecondsLastSecond() const;
    long long iterationMicrosecondsLastSecond() const;
    int iterationsLastSecond() const;

    uint64_t runtimeApplicationId() const { return runtimeApplicationId_; }
    KyString runtimeApplicationDescriptor() const;
    /// Publishes this loop to the registry observers (the console calls it at startup).
    void announceRuntimeApplicationRegistered_();
    static void addRegistryObserver(KyCoreApplicationRegistryObserver* observer);
    static void removeRegistryObserver(KyCoreApplicationRegistryObserver* observer);
    /// Every registered instance (a snapshot; use under care: instances may go).
    static std::vector<KyCoreApplication*> registeredInstances();

    /// True once SIGINT or SIGTERM reached the process.
    static bool terminateRequested();

    // Runtime profiler and telemetry sessions recorded by this loop.
    void attachProfilerSession(std::shared_ptr<KyRuntimeProfilerSession> session);
    void attachTelemetrySession(std::shared_ptr<KyRuntimeTelemetrySession> session);
    /// Drops every profiler session of this loop and unbinds the calling thread's.
    void detachAllProfilerSessions();
    /// Starts the watchdog that asks this process's loops to preempt long fiber runs.
    bool startRuntimeWatchdog(long long thresholdMicroseconds, long long pollMicroseconds = 0);
    KyIoDispatcher* ioDispatcher() const { return ioDispatcher_.get(); }

protected:
    void initFibers();
    // For loops that add their own steps around processEvent (the GUI loop).
    /// True while an object event is queued or the pool has work: a loop
    /// that posted to itself must look again instead of waiting.
    bool hasPendingWork_() const;
    void bindProfilerSessions_(bool evenWhenIdle = false);
    void recordIteration_(std::chrono::steady_clock::time_point now, long long busy, long long iteration);
    void setBusyMicroseconds_(long long busy) { busyMicroseconds_ = busy; }

private:
    /// One queued object event; the queue owns the event until delivery.
    struct PostedObjectEvent_ {
        KyObject* receiver = nullptr;
        KyEvent* event = nullptr;
        int priority = 0;
    };
    struct TimerRecord_;
    class TimerDispatch_;

    void construct_();
    void deliverPosted_(PostedObjectEvent_& posted);
    bool dispatchFilters_(const KyVector<KyObject*>& filters, KyObject* receiver, KyEvent* event);
    void runTimer_(TimerRecord_* record);
    void abandonTimerDispatch_(TimerRecord_* record);
    /// Takes a removed record off the removed list; the caller holds the timer mutex.
    std::unique_ptr<TimerRecord_> takeRemovedTimerLocked_(TimerRecord_* record);
    void signalWork_();
    void wakeFromAnyThread_();
    static void terminateAllInstances_();
    static void installUnixSignalHandlersOnce_();
    static void unixTerminateSignalHandler_(int signal);
    static uint64_t nextRuntimeApplicationId_();

    // Declared first so its containers go last.
    KyFiberPool pool_;

    std::atomic<bool> running_{true};
    std::atomic<int> exitCode_{0};
    std::thread::id ownerId_;
    std::size_t ownerHash_ = 0;
    pthread_t ownerHandle_{};
    int stackSize_ = 0;

    void* mainFiber_ = nullptr;

    mutable std::mutex eventMutex_;
    std::condition_variable eventCondition_;
    std::deque<PostedObjectEvent_> normalEvents_;
    std::deque<PostedObjectEvent_> highEvents_;
    std::atomic<int> wakeFd_{-1};
    std::atomic<int> conditionWaiters_{0};  ///< threads parked on eventCondition_

    mutable std::mutex timerMutex_;
    int nextTimerId_ = 1;
    std::map<int, std::unique_ptr<TimerRecord_>> timers_;
    std::vector<std::unique_ptr<TimerRecord_>> removedTimers_;
    std::atomic<int> timerCount_{0};
    std::vector<TimerRecord_*> dueScratch_;  ///< reused by processTimers, so firing does not allocate
    /// Until then no timer can be due, so processTimers need not look; moved
    /// back to the past by every change that could make a timer due sooner.
    std::chrono::steady_clock::time_point nextTimerScan_ = std::chrono::steady_clock::time_point::min();

    mutable std::mutex measurementMutex_;
    std::deque<IterationMeasurement> measurements_;
    long long busySum_ = 0;
    long long iterationSum_ = 0;
    long long busyMicroseconds_ = 0;

    KyVector<KyObject*> eventFilters_;
    KyMap<KyString, KyString> arguments_;
    KyVector<KyString> argumentList_;

    uint64_t runtimeApplicationId_ = 0;
    KyString descriptor_;

    std::mutex sessionsMutex_;
    std::vector<std::shared_ptr<KyRuntimeProfilerSession>> profilerSessions_;
    std::vector<std::shared_ptr<KyRuntimeTelemetrySession>> telemetrySessions_;
    std::unique_ptr<KyRuntimeWatchdog> watchdog_;

    // Declared last so it is destroyed first: its thread is woken and joined
    // before anything it might still touch goes away.
    std::unique_ptr<KyIoDispatcher> ioDispatcher_;
};
