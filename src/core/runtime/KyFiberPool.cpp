// KyFiberPool: lane choice, slot bookkeeping, yield and resumption.
//
// Runs on the owning loop's thread, except unYield and admit, which may come
// from any thread. One mutex guards all state; it is released before every
// fiber switch and before any task (or a task's destructor) runs.
#include "core/runtime/KyFiberPool.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <mutex>

#include "core/io/KyDebug.h"
#include "core/runtime/linux_fiber.h"

namespace {

constexpr const char* kCategory = "ky.core.runtime.kyfiberpool";

long long steadyMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

KyFiberPool::KyFiberPool() = default;

KyFiberPool::~KyFiberPool() { shutdown(); }

void KyFiberPool::setMainFiber(void* fiber) {
    std::lock_guard lock(mutex_);
    mainFiber_ = fiber;
}

void* KyFiberPool::mainFiber() const {
    std::lock_guard lock(mutex_);
    return mainFiber_;
}

void KyFiberPool::setStackSize(std::size_t bytes) {
    std::lock_guard lock(mutex_);
    stackSize_ = bytes;
}

void KyFiberPool::setReserve(int reserve) {
    std::lock_guard lock(mutex_);
    reserve_ = std::max(0, reserve);
}

void KyFiberPool::setLimits(int maxFibers, int maxQueued) {
    std::lock_guard lock(mutex_);
    maxFibers_ = maxFibers;
    maxQueued_ = maxQueued;
}

void KyFiberPool::ensureWarmInitialized() {
    if (warmFlag_.load(std::memory_order_acquire)) return;
    {
        std::lock_guard lock(mutex_);
        if (warmInitialized_ || !mainFiber_) return;
        // Counted once: the loop's thread and a thread whose post comes first
        // may warm at the same time, and share one warm set between them.
        if (warmRemaining_ < 0) {
            int count = 0;
            for (const auto& slot : slots_)
                if (slot->normal && slot->fiber) ++count;
            warmRemaining_ = std::max(0, std::min(maxFibers_, maxQueued_) - count);
        }
    }
    // One slot per lock hold, so admission from other threads is not kept
    // waiting for the whole warm-up.
    for (;;) {
        std::lock_guard lock(mutex_);
        if (warmInitialized_ || warmRemaining_ <= 0) break;
        FiberSlot* slot = createFiberSlotLocked_(false);
        if (!slot) {
            warmRemaining_ = 0;
            break;
        }
        idleNormal_.push_back(slot);
        --warmRemaining_;
    }
    std::lock_guard lock(mutex_);
    warmInitialized_ = true;
    warmFlag_.store(true, std::memory_order_release);
}

KyFiberPool::FiberSlot* KyFiberPool::createFiberSlotLocked_(bool reserved) {
    if (!mainFiber_) return nullptr;
    auto slot = std::make_unique<FiberSlot>();
    slot->pool = this;
    slot->normal = !reserved;
    slot->reserved = reserved;
    slot->lane = slot->resumeLane = reserved ? 1 : 2;
    slot->fiber = linux_fiber::CreateFiber(stackSize_ ? stackSize_ : kDefaultStackSize, &fiberEntryProc_, slot.get());
    if (!slot->fiber) {
        kyLogError(kCategory) << "Failed to create fiber.";
        return nullptr;
    }
    if (reserved) ++reservedWithFiber_;
    slots_.push_back(std::move(slot));
    return slots_.back().get();
}

void KyFiberPool::updateHighWaterMarkLocked_(KyFiberLane lane) {
    const int index = kyFiberLaneIndex(lane);
    const int depth = static_cast<int>(resumable_[index].size() + tasks_[index].size());
    if (depth > highWaterMark_[index]) highWaterMark_[index] = depth;
}

bool KyFiberPool::laneHasWorkLocked_(int index) const {
    return !resumable_[index].empty() || !tasks_[index].empty();
}

int KyFiberPool::loadLocked_() const {
    std::size_t queued = 0;
    for (const auto& q : tasks_) queued += q.size();
    return busySlots_ + static_cast<int>(queued);
}

bool KyFiberPool::hasWork() const {
    std::lock_guard lock(mutex_);
    for (int i = 0; i < 4; ++i)
        if (laneHasWorkLocked_(i)) return true;
    return false;
}

bool KyFiberPool::hasUrgentWork() const {
    std::lock_guard lock(mutex_);
    return laneHasWorkLocked_(0);
}

bool KyFiberPool::hasLaneWork() const {
    std::lock_guard lock(mutex_);
    return laneHasWorkLocked_(1) || laneHasWorkLocked_(2) || laneHasWorkLocked_(3);
}

bool KyFiberPool::admit(std::function<void()>&& task, KyFiberLane lane) {
    ensureWarmInitialized();
    std::unique_lock lock(mutex_);
    const int load = loadLocked_();
    const int base = std::max(0, std::min(maxFibers_, maxQueued_));
    // Lanes 0 and 1 (urgent work, input) may use the reserve on top of the
    // normal limit, so a saturated pool still answers the user.
    const bool admitted = (lane == 0 || lane == 1) ? load < base + reserve_ : load < base;
    if (!admitted) {
        ++lostWork_;
        lock.unlock();
        std::function<void()> dropped = std::move(task);
        return false;
    }
    tasks_[kyFiberLaneIndex(lane)].push_back(std::move(task));
    updateHighWaterMarkLocked_(lane);
    return true;
}

KyFiberPool::Admission KyFiberPool::admissionSnapshot() const {
    std::lock_guard lock(mutex_);
    return {loadLocked_(), std::max(0, std::min(maxFibers_, maxQueued_)), reserve_};
}

bool KyFiberPool::runNextWorkItem() {
    // Only the main fiber dispatches: a slot started from inside another
    // slot would return to the main fiber and strand its caller.
    if (currentSlot_) return false;
    ensureWarmInitialized();
    std::unique_lock lock(mutex_);
    int index = -1;
    if (laneHasWorkLocked_(0)) {
        index = 0;
    } else {
        if (credits_[0] <= 0 && credits_[1] <= 0 && credits_[2] <= 0) {
            credits_[0] = 8;
            credits_[1] = 4;
            credits_[2] = 1;
        }
        for (int lane = 1; lane <= 3 && index < 0; ++lane) {
            if (credits_[lane - 1] > 0 && laneHasWorkLocked_(lane)) {
                index = lane;
                --credits_[lane - 1];
            }
        }
        if (index < 0) {
            // Work remains only on lanes whose credit is spent: start a new cycle.
            for (int lane = 1; lane <= 3 && index < 0; ++lane) {
                if (laneHasWorkLocked_(lane)) {
                    credits_[0] = 8;
                    credits_[1] = 4;
                    credits_[2] = 1;
                    index = lane;
                    --credits_[lane - 1];
                }
            }
        }
        if (index < 0) return false;
    }

    FiberSlot* slot = nullptr;
    if (!resumable_[index].empty()) {
        slot = resumable_[index].front();
        resumable_[index].pop_front();
        slot->queued = false;
        slot->running = true;
        slot->resumed = true;
        slot->resumeLane = index;
    } else {
        std::function<void()> task = std::move(tasks_[index].front());
        tasks_[index].pop_front();
        // The slot that finished last goes first: its stack is already
        // resident, while an untouched slot would fault in a stack of its
        // own. Taken in turn, every warm slot would end up with one.
        if (!idleNormal_.empty()) {
            slot = idleNormal_.back();
            idleNormal_.pop_back();
        } else if (index <= 1 && !idleReserved_.empty()) {
            slot = idleReserved_.back();
            idleReserved_.pop_back();
        } else if (index <= 1 && reservedWithFiber_ < reserve_) {
            slot = createFiberSlotLocked_(true);
        }
        if (!slot) {
            ++lostWork_;
            lock.unlock();
            kyLogWarning(kCategory) << "Dropping queued fiber task because no dispatch slot is available.";
            return true;  // the task is destroyed here, outside the lock
        }
        if (!slot->fresh) ++reusedDispatches_;
        if (slot->idle && slot->fiber) ++busySlots_;
        slot->hasTask = true;
        slot->running = true;
        slot->idle = false;
        slot->yieldId = 0;
        slot->resumed = false;
        slot->lane = slot->resumeLane = index;
        slot->task = std::move(task);
    }

    if (!slot->fiber || !mainFiber_) return true;
    KyFiberDispatchRelay* relay = relay_;
    const bool resumed = slot->resumed;
    const KyFiberLane lane = slot->resumeLane;
    std::atomic<void*>* publishedFiber = publishedFiber_;
    std::atomic<long long>* publishedStart = publishedStart_;
    std::atomic<bool>* preempt = preemptRequeue_;
    lock.unlock();

    // Time is only read when someone watches it.
    const bool timed = relay || publishedStart;
    const long long start = timed ? steadyMicroseconds() : 0;
    if (relay) relay->onFiberDispatchEnter(lane, resumed);
    currentSlot_ = slot;
    if (publishedFiber) publishedFiber->store(slot->fiber, std::memory_order_release);
    if (publishedStart) publishedStart->store(start, std::memory_order_release);
    linux_fiber::SwitchToFiber(slot->fiber);
    if (publishedFiber) publishedFiber->store(nullptr, std::memory_order_release);
    if (publishedStart) publishedStart->store(0, std::memory_order_release);
    if (relay) relay->onFiberDispatchExit(lane, resumed, steadyMicroseconds() - start);
    currentSlot_ = nullptr;

    if (preempt && preempt->exchange(false)) {
        std::lock_guard relock(mutex_);
        if (!slot->queued && slot->fiber) {
            const int resumeIndex = kyFiberLaneIndex(slot->resumeLane);
            resumable_[resumeIndex].push_back(slot);
            slot->queued = true;
            updateHighWaterMarkLocked_(slot->resumeLane);
        }
    }
    return true;
}

void KyFiberPool::fiberEntryProc_(void* argument) {
    auto* slot = static_cast<FiberSlot*>(argument);
    KyFiberPool* pool = slot->pool;
    for (;;) {
        if (!slot->hasTask || !slot->task) {
            linux_fiber::SwitchToFiber(pool->mainFiber_);
            continue;
        }
        executeCallbackSafely_(slot->task);
        std::function<void()> finished;
        {
            std::lock_guard lock(pool->mutex_);
            finished = std::move(slot->task);
            slot->task = nullptr;
            slot->yieldId = 0;
            if (!slot->idle && slot->fiber) --pool->busySlots_;
            slot->idle = true;
            slot->running = false;
            slot->hasTask = false;
            slot->fresh = false;
            slot->resumed = false;
            ++pool->finishedTasks_;
            (slot->reserved ? pool->idleReserved_ : pool->idleNormal_).push_back(slot);
        }
        // The task's captures may run user code as they go: never under the lock.
        executeCallbackSafely_([&finished] { finished = nullptr; });
        linux_fiber::SwitchToFiber(pool->mainFiber_);
    }
}

void KyFiberPool::executeCallbackSafely_(const std::function<void()>& callback) {
    try {
        if (callback) callback();
    } catch (const std::exception& e) {
        kyLogError(kCategory).nospace() << "Unhandled exception in fiber callback: " << e.what();
    } catch (...) {
        kyLogError(kCategory) << "Unhandled unknown exception in fiber callback";
    }
}

bool KyFiberPool::isOnPooledFiber() const {
    FiberSlot* slot = currentSlot_;
    return slot && slot->fiber && slot->fiber == linux_fiber::GetCurrentFiber();
}

bool KyFiberPool::yieldCurrent(int yieldId, const std::atomic<bool>* keepWaiting) {
    FiberSlot* slot = currentSlot_;
    if (!slot || !slot->fiber || slot->fiber != linux_fiber::GetCurrentFiber()) return false;
    std::atomic<void*>* publishedFiber = nullptr;
    std::atomic<long long>* publishedStart = nullptr;
    void* main = nullptr;
    {
        std::lock_guard lock(mutex_);
        auto it = yielded_.find(yieldId);
        if (it != yielded_.end() && it->second != slot) it->second->yieldId = 0;
        yielded_[yieldId] = slot;
        slot->yieldId = yieldId;
        slot->yielded = true;
        slot->idle = false;
        slot->running = false;
        // The waker clears the flag before it looks for the id under this
        // lock, so a wake-up that came before the entry is seen here.
        if (keepWaiting && !keepWaiting->load(std::memory_order_acquire)) {
            yielded_.erase(yieldId);
            slot->yieldId = 0;
            slot->yielded = false;
            slot->running = true;
            return true;
        }
        publishedFiber = publishedFiber_;
        publishedStart = publishedStart_;
        main = mainFiber_;
    }
    if (publishedFiber) publishedFiber->store(nullptr, std::memory_order_release);
    if (publishedStart) publishedStart->store(0, std::memory_order_release);
    linux_fiber::SwitchToFiber(main);
    return true;
}

bool KyFiberPool::unYield(int yieldId, KyFiberLane lane) {
    std::lock_guard lock(mutex_);
    auto it = yielded_.find(yieldId);
    if (it == yielded_.end()) return false;
    FiberSlot* slot = it->second;
    yielded_.erase(it);
    if (!slot || !slot->fiber) return false;
    slot->yielded = false;
    slot->resumeLane = lane;
    if (slot->queued) return true;
    resumable_[kyFiberLaneIndex(lane)].push_back(slot);
    slot->queued = true;
    updateHighWaterMarkLocked_(lane);
    return true;
}

void KyFiberPool::shutdown() {
    std::vector<void*> fibers;
    std::vector<std::unique_ptr<FiberSlot>> slots;
    std::deque<std::function<void()>> tasks[4];
    {
        std::lock_guard lock(mutex_);
        for (auto& slot : slots_) {
            if (slot->fiber && slot->fiber != mainFiber_) fibers.push_back(slot->fiber);
            slot->fiber = nullptr;
        }
        for (int i = 0; i < 4; ++i) {
            resumable_[i].clear();
            tasks[i].swap(tasks_[i]);
        }
        idleNormal_.clear();
        idleReserved_.clear();
        yielded_.clear();
        slots.swap(slots_);
        warmInitialized_ = false;
        warmRemaining_ = -1;
        warmFlag_.store(false, std::memory_order_release);
        currentSlot_ = nullptr;
        busySlots_ = 0;
        reservedWithFiber_ = 0;
    }
    // Queued tasks and the tasks of yielded slots are destroyed outside the
    // lock; the objects on a yielded fiber's stack are never unwound.
    for (auto& q : tasks) q.clear();
    slots.clear();
    for (void* fiber : fibers) {
        if (!linux_fiber::IsThreadFiber(fiber)) linux_fiber::DeleteFiber(fiber);
    }
}

KyFiberPoolStats KyFiberPool::stats() const {
    std::lock_guard lock(mutex_);
    KyFiberPoolStats s;
    s.lostWork = lostWork_;
    s.finishedTasks = finishedTasks_;
    s.reusedDispatches = reusedDispatches_;
    for (int i = 0; i < 4; ++i) {
        s.highWaterMark[i] = highWaterMark_[i];
        s.queuedTasks[i] = static_cast<int>(tasks_[i].size());
        s.resumableSlots[i] = static_cast<int>(resumable_[i].size());
    }
    s.slots = static_cast<int>(slots_.size());
    for (const auto& slot : slots_) {
        if (!slot->fiber) continue;
        if (slot->normal) ++s.normalSlotsWithFiber;
        else ++s.reservedSlotsWithFiber;
    }
    s.idleNormal = static_cast<int>(idleNormal_.size());
    s.idleReserved = static_cast<int>(idleReserved_.size());
    s.yielded = static_cast<int>(yielded_.size());
    for (int i = 0; i < 3; ++i) s.credits[i] = credits_[i];
    return s;
}

void KyFiberPool::setRelay(KyFiberDispatchRelay* relay) {
    std::lock_guard lock(mutex_);
    relay_ = relay;
}

void KyFiberPool::setPublishedWords(std::atomic<void*>* runningFiber, std::atomic<long long>* startMicroseconds,
                                    std::atomic<bool>* preemptRequeue) {
    std::lock_guard lock(mutex_);
    publishedFiber_ = runningFiber;
    publishedStart_ = startMicroseconds;
    preemptRequeue_ = preemptRequeue;
}
