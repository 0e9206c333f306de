// RpcMethodClient: queue names, capacity selection, and the client's pending
// calls, waiting and reply delivery (the part that does not depend on the
// method's types).
#include "ipc/RpcMethodClient.h"

#include <time.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <exception>
#include <vector>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "ipc/LoopPoller.h"

namespace ky::ipc {

namespace {

constexpr const char* kCategory = "ky.ipc.rpc";

// Process-wide, so clients sharing a reply queue never share an id; taken
// outside every mutex, before the pending entry exists.
std::atomic<uint64_t> gNextCallId{1};

// The clients of each reply queue of this process, by object name.
struct ReplyConsumers {
    std::mutex mutex;
    std::map<KyString, std::vector<std::weak_ptr<detail::RpcClientCore>>> byQueue;
};

ReplyConsumers& replyConsumers() {
    static ReplyConsumers* consumers = new ReplyConsumers;  // outlives every static client
    return *consumers;
}

int msToUs(int ms) { return ms > INT_MAX / 1000 ? INT_MAX : ms * 1000; }

void sleepOneMillisecond() {
    timespec left{0, 1000000};
    // A signal cuts the sleep short; the rest is slept, not skipped.
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace

int& rpcQueueCapacityStorage_() {
    static int capacity = 100;
    return capacity;
}

KyString rpcRequestQueueName(const KyString& method) {
    return detail::rpcRequestQueueNameFor_(rpcQueueCapacityStorage_(), method);
}

KyString rpcResponseQueueName(const KyString& method, uint32_t pid) {
    return detail::rpcResponseQueueNameFor_(rpcQueueCapacityStorage_(), method, pid);
}

namespace detail {

KyString rpcRequestQueueNameFor_(int capacity, const KyString& method) {
    return KyString("__rpc__|") + KyString::number(capacity) + KyString("|") + method;
}

KyString rpcResponseQueueNameFor_(int capacity, const KyString& method, uint32_t pid) {
    return KyString("__rpc_ret__|") + KyString::number(capacity) + KyString("|") + method + KyString("|") +
           KyString::number(pid);
}

size_t rpcSelectRingSize_(int capacity) {
    switch (capacity) {
        case 10:
        case 25:
        case 50:
        case 100:
        case 200:
        case 500:
            return static_cast<size_t>(capacity);
        default:
            return 100;
    }
}

void rpcWakeWaiter_(const std::shared_ptr<RpcWaiter>& waiter) {
    if (!waiter->waiting.exchange(false, std::memory_order_acq_rel)) return;
    // The flag is cleared before the id is looked up, so a waiter that has
    // not yet yielded sees the clear and does not suspend.
    if (waiter->yieldId != 0) KyCoreApplication::routeYieldWakeAcrossInstances_(waiter->yieldId, KyFiberLaneUrgent);
    // A waiter on a loop's main fiber may be parked in the loop's wait.
    if (KyCoreApplication* app = waiter->application.load(std::memory_order_acquire)) app->wakeUp();
}

KyString RpcClientCore::lastError() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lastError_;
}

void RpcClientCore::setLastError_(const KyString& text) const {
    std::lock_guard<std::mutex> lock(mutex_);
    lastError_ = text;
}

size_t RpcClientCore::pendingCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return pending_.size();
}

uint64_t RpcClientCore::beginCall_(const std::shared_ptr<RpcWaiter>& waiter) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lastError_.clear();
    }
    const uint64_t id = gNextCallId.fetch_add(1, std::memory_order_relaxed);
    KyCoreApplication* app = KyCoreApplication::instance(false);
    // Known before the entry is visible, so a reply that beats the wait finds it.
    waiter->application.store(app, std::memory_order_release);
    waiter->yieldId = app != nullptr ? KyCoreApplication::generateYieldId() : 0;
    std::lock_guard<std::mutex> lock(mutex_);
    pending_.emplace(id, Pending{id, waiter, {}});
    return id;
}

uint64_t RpcClientCore::beginAsync_(ErasedCallback callback) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lastError_.clear();
    }
    const uint64_t id = gNextCallId.fetch_add(1, std::memory_order_relaxed);
    std::lock_guard<std::mutex> lock(mutex_);
    pending_.emplace(id, Pending{id, nullptr, std::move(callback)});
    return id;
}

void RpcClientCore::failPush_(uint64_t id) {
    std::lock_guard<std::mutex> lock(mutex_);
    pending_.erase(id);
    lastError_ = kRpcQueueFullText;
}

bool RpcClientCore::finishAsync_(uint64_t id, bool pushed) {
    if (!pushed) {
        failPush_(id);
        return false;
    }
    return true;
}

bool RpcClientCore::finishCall_(uint64_t id, const std::shared_ptr<RpcWaiter>& waiter, bool pushed,
                                int timeoutMs) {
    if (!pushed) {
        failPush_(id);
        return false;
    }
    wait_(waiter, timeoutMs);
    // From here on a late wake-up has nothing left to do.
    waiter->waiting.store(false, std::memory_order_release);
    std::lock_guard<std::mutex> lock(mutex_);
    if (pending_.erase(id) != 0 || !waiter->done) {
        lastError_ = kRpcTimeoutText;
        return false;
    }
    if (!waiter->ok) {
        lastError_ = waiter->error;
        return false;
    }
    return true;
}

void RpcClientCore::wait_(const std::shared_ptr<RpcWaiter>& waiter, int timeoutMs) {
    KyCoreApplication* app = waiter->application.load(std::memory_order_acquire);
    if (app != nullptr && app == KyCoreApplication::instance(false)) {
        int timerId = 0;
        if (timeoutMs > 0) {
            timerId = app->addTimer([waiter] { rpcWakeWaiter_(waiter); }, msToUs(timeoutMs), true,
                                    KyFiberLaneDefault);
        }
        if (!KyCoreApplication::yieldCurrentFiber(waiter->yieldId, &waiter->waiting)) {
            // On the loop's main fiber there is nothing to leave: serve the
            // loop here until the reply or the timer ends the wait.
            while (waiter->waiting.load(std::memory_order_acquire) && app->isRunning()) {
                const int r = app->processEvent(false);
                if (r != 0 && waiter->waiting.load(std::memory_order_acquire) && app->isRunning()) {
                    app->waitForWork_(r);
                }
            }
        }
        if (timerId != 0) app->removeTimer(timerId);
        return;
    }
    // No loop on this thread: drive every channel of the process by hand.
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0);
    for (;;) {
        LoopPoller::instance().tick_();
        if (!waiter->waiting.load(std::memory_order_acquire)) return;
        if (timeoutMs > 0 && Clock::now() >= deadline) return;
        sleepOneMillisecond();
    }
}

void RpcClientCore::joinReplyQueue_(const KyString& replyShmName) {
    replyShmName_ = replyShmName;
    ReplyConsumers& consumers = replyConsumers();
    std::lock_guard<std::mutex> lock(consumers.mutex);
    auto& list = consumers.byQueue[replyShmName];
    std::erase_if(list, [](const std::weak_ptr<RpcClientCore>& c) { return c.expired(); });
    list.push_back(weak_from_this());
}

void RpcClientCore::leaveReplyQueue_() {
    ReplyConsumers& consumers = replyConsumers();
    std::lock_guard<std::mutex> lock(consumers.mutex);
    auto it = consumers.byQueue.find(replyShmName_);
    if (it == consumers.byQueue.end()) return;
    std::erase_if(it->second, [this](const std::weak_ptr<RpcClientCore>& c) {
        auto core = c.lock();
        return !core || core.get() == this;
    });
    if (it->second.empty()) consumers.byQueue.erase(it);
}

void RpcClientCore::onResponse_(uint64_t id, bool ok, const KyString& error, const void* value, bool selfAlive) {
    if (selfAlive && deliver_(id, ok, error, value)) return;
    std::vector<std::shared_ptr<RpcClientCore>> others;
    {
        ReplyConsumers& consumers = replyConsumers();
        std::lock_guard<std::mutex> lock(consumers.mutex);
        auto it = consumers.byQueue.find(replyShmName_);
        if (it == consumers.byQueue.end()) return;
        for (const auto& weak : it->second) {
            auto core = weak.lock();
            if (core && core.get() != this) others.push_back(std::move(core));
        }
    }
    // Ids are unique in the process, so at most one of them takes it; none
    // does for the late reply of a call that timed out, which is dropped.
    for (const auto& core : others) {
        if (core->deliver_(id, ok, error, value)) return;
    }
}

bool RpcClientCore::deliver_(uint64_t id, bool ok, const KyString& error, const void* value) {
    std::shared_ptr<RpcWaiter> waiter;
    ErasedCallback callback;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = pending_.find(id);
        if (it == pending_.end()) return false;
        waiter = std::move(it->second.waiter);
        callback = std::move(it->second.callback);
        pending_.erase(it);
        if (waiter) {
            // Filled under the mutex, so the call reads a complete reply as
            // soon as it sees its entry gone.
            waiter->ok = ok;
            waiter->error = error;
            if (ok) waiter->storeValue_(value);
            waiter->done = true;
        }
    }
    if (waiter) {
        rpcWakeWaiter_(waiter);
        return true;
    }
    if (!ok || !callback) return true;
    try {
        callback(value);
    } catch (const std::exception& e) {
        // The other replies of this drain must still be delivered.
        kyLogWarning(kCategory) << "rpc: asynchronous callback threw:" << e.what();
    }
    return true;
}

void RpcClientCore::clear_() {
    std::vector<std::shared_ptr<RpcWaiter>> waiters;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& [id, pending] : pending_) {
            if (pending.waiter) waiters.push_back(pending.waiter);
        }
        pending_.clear();
    }
    // A call still waiting ends now, as a timeout.
    for (const auto& waiter : waiters) rpcWakeWaiter_(waiter);
}

}  // namespace detail
}  // namespace ky::ipc
