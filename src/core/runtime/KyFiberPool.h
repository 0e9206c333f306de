// KyFiberPool: the pooled fibers on which a loop runs posted functions.
//
// Each KyCoreApplication owns one pool by value. Posted functions wait in four
// lane queues; runNextWorkItem, called by the loop on its main fiber, picks a
// lane (lane 0 first, then lanes 1 to 3 by credits of 8, 4 and 1), places the
// task on an idle slot and switches to that slot's fiber. A task that must wait
// yields: its slot is entered under a yield id and the thread switches back to
// the main fiber. unYield, from any thread, queues the slot again on a lane the
// waker chooses, and the loop switches back into it at that lane's turn.
//
// Threads: one mutex guards all pool state. unYield and the admission of posts
// may come from any thread; everything else runs on the owning thread. The lock
// is never held across a fiber switch or while a task runs. Lock order: a
// loop's event mutex and the process's instance registry mutex come before the
// pool's lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "core/runtime/KyFiberLane.h"
#include "core/runtime/KyMutex.h"

/// Observer of fiber dispatches (the runtime profiler's relay derives from it).
class KyFiberDispatchRelay {
public:
    virtual ~KyFiberDispatchRelay() = default;
    virtual void onFiberDispatchEnter(KyFiberLane lane, bool resumed) = 0;
    virtual void onFiberDispatchExit(KyFiberLane lane, bool resumed, long long elapsedMicroseconds) = 0;
};

/// Counters and queue lengths of a pool, read in one go under its lock.
struct KyFiberPoolStats {
    long long lostWork = 0;          ///< rejected posts plus dropped tasks
    long long finishedTasks = 0;
    long long reusedDispatches = 0;  ///< dispatches of a task on a slot that had run one before
    int highWaterMark[4] = {0, 0, 0, 0};
    int queuedTasks[4] = {0, 0, 0, 0};
    int resumableSlots[4] = {0, 0, 0, 0};
    int slots = 0;
    int normalSlotsWithFiber = 0;
    int reservedSlotsWithFiber = 0;
    int idleNormal = 0;
    int idleReserved = 0;
    int yielded = 0;
    int credits[3] = {0, 0, 0};      ///< lanes 1, 2, 3
};

/// Runs posted functions on pooled fibers, by lane and credit; owned by one loop.
class KyFiberPool {
public:
    static constexpr int kDefaultMaxFibers = 500;
    static constexpr int kDefaultMaxQueued = 500;
    static constexpr int kDefaultReserve = 16;
    static constexpr std::size_t kDefaultStackSize = 131072;

    /// One pooled fiber and the task it runs.
    struct FiberSlot {
        KyFiberPool* pool = nullptr;
        void* fiber = nullptr;
        std::function<void()> task;
        KyFiberLane lane = 2;
        KyFiberLane resumeLane = 2;
        int yieldId = 0;
        bool normal = true;
        bool reserved = false;
        bool idle = true;
        bool running = false;
        bool yielded = false;
        bool queued = false;
        bool hasTask = false;
        bool fresh = true;
        bool resumed = false;
    };

    KyFiberPool();
    ~KyFiberPool();
    KyFiberPool(const KyFiberPool&) = delete;
    KyFiberPool& operator=(const KyFiberPool&) = delete;

    // Configuration, each under the pool's lock. Limits take effect for the
    // admission of later posts; the number of warm normal slots is fixed at
    // the first warm-up.
    void setMainFiber(void* fiber);
    void* mainFiber() const;
    void setStackSize(std::size_t bytes);
    void setReserve(int reserve);
    void setLimits(int maxFibers, int maxQueued);

    /// Creates the normal slots (min(maxFibers, maxQueued)) once a main fiber is known.
    void ensureWarmInitialized();
    /// Picks and dispatches one piece of work; true when a slot was chosen
    /// (also when the task was dropped for want of a slot).
    bool runNextWorkItem();
    /// Queues a yielded slot for resumption on lane; false for an id not yielded here.
    bool unYield(int yieldId, KyFiberLane lane);
    /// Any of the eight lane queues is non-empty.
    bool hasWork() const;
    /// Lane 0 has a resumable slot or a queued task.
    bool hasUrgentWork() const;
    /// One of lanes 1 to 3 has a resumable slot or a queued task.
    bool hasLaneWork() const;
    /// Frees every fiber except the main one; yielded stacks are not unwound.
    void shutdown();

    /// Admission of a posted function (the rules of the loop's post): lanes 0
    /// and 1 while load < base + reserve, others while load < base. On refusal
    /// the function is destroyed, lostWork counts it and the warning is logged.
    bool admit(std::function<void()>&& task, KyFiberLane lane);
    /// The numbers admission decides by, read together under the lock.
    struct Admission {
        int load = 0;     ///< busy slots plus queued tasks
        int base = 0;     ///< min(maxFibers, maxQueued), at least 0
        int reserve = 0;  ///< extra room for lanes 0 and 1
    };
    Admission admissionSnapshot() const;

    /// Suspends the running pooled task under yieldId until unYield. False,
    /// without suspending, when the caller is not this pool's running slot.
    /// With keepWaiting given and already false once the slot is entered,
    /// the yield is undone and true returned at once (a wake-up that came
    /// first is not lost).
    bool yieldCurrent(int yieldId, const std::atomic<bool>* keepWaiting = nullptr);
    /// True while the calling code runs on one of this pool's slots.
    bool isOnPooledFiber() const;

    KyFiberPoolStats stats() const;

    void setRelay(KyFiberDispatchRelay* relay);
    /// Words the runtime profiler watches: the running fiber, its start time
    /// (steady clock, microseconds), and the flag asking to requeue a preempted slot.
    void setPublishedWords(std::atomic<void*>* runningFiber, std::atomic<long long>* startMicroseconds,
                           std::atomic<bool>* preemptRequeue);

    /// Stops every exception at the fiber's edge, logging it.
    static void executeCallbackSafely_(const std::function<void()>& callback);

private:
    FiberSlot* createFiberSlotLocked_(bool reserved);
    void updateHighWaterMarkLocked_(KyFiberLane lane);
    bool laneHasWorkLocked_(int index) const;
    int loadLocked_() const;
    static void fiberEntryProc_(void* argument);

    mutable KyMutex mutex_{KyMutex::Mode::Plain};
    void* mainFiber_ = nullptr;
    int maxFibers_ = kDefaultMaxFibers;
    int maxQueued_ = kDefaultMaxQueued;
    int reserve_ = kDefaultReserve;
    std::size_t stackSize_ = kDefaultStackSize;
    bool warmInitialized_ = false;
    /// Warm slots still to make, shared by every thread that warms (-1: not counted yet).
    int warmRemaining_ = -1;
    std::atomic<bool> warmFlag_{false};  ///< lock-free fast path of ensureWarmInitialized

    std::vector<std::unique_ptr<FiberSlot>> slots_;
    std::deque<FiberSlot*> idleNormal_;
    std::deque<FiberSlot*> idleReserved_;
    std::deque<FiberSlot*> resumable_[4];
    std::deque<std::function<void()>> tasks_[4];
    std::map<int, FiberSlot*> yielded_;
    FiberSlot* currentSlot_ = nullptr;
    int32_t credits_[3] = {8, 4, 1};
    int highWaterMark_[4] = {0, 0, 0, 0};
    int busySlots_ = 0;          ///< slots with a fiber that are not idle
    int reservedWithFiber_ = 0;

    long long lostWork_ = 0;
    long long finishedTasks_ = 0;
    long long reusedDispatches_ = 0;

    KyFiberDispatchRelay* relay_ = nullptr;
    std::atomic<void*>* publishedFiber_ = nullptr;
    std::atomic<long long>* publishedStart_ = nullptr;
    std::atomic<bool>* preemptRequeue_ = nullptr;
};
