// RpcServerEndpoint: holders of exposed methods, the hop to the object's
// thread and the cache of reply queues.
#include "ipc/RpcServerEndpoint.h"

#include <exception>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyEventLoop.h"
#include "core/runtime/KyThread.h"
#include "ipc/IpcNames.h"

namespace ky::ipc {

namespace {
constexpr const char* kCategory = "ky.ipc.rpc";
// How long a kept reply queue is used before its client is looked at again.
constexpr uint64_t kReplyCheckMs = 1000;
// Period of the endpoint's look for clients that are gone.
constexpr int kPruneMs = 2000;
}  // namespace

IpcSubscriptionHolder::IpcSubscriptionHolder(detail::SubscriptionHandle handle, std::shared_ptr<void> keep)
    : handle_(std::move(handle)), keep_(std::move(keep)) {}

IpcSubscriptionHolder::~IpcSubscriptionHolder() { stop(); }

void IpcSubscriptionHolder::stop() {
    handle_.stop();
    keep_.reset();
}

namespace detail {

RpcServerShared::RpcServerShared(std::shared_ptr<std::atomic<bool>> alive,
                                 std::function<ky::atomic::Thread*()> threadOf)
    : alive_(std::move(alive)), threadOf_(std::move(threadOf)) {}

void RpcServerShared::runOnObjectThread_(std::function<void()> task) {
    ky::atomic::Thread* thread = threadOf_ ? threadOf_() : nullptr;
    // Posting under the live-thread lock: a thread that has just finished
    // refuses, and the request is then served here rather than lost.
    if (thread != nullptr && thread != ky::atomic::Thread::currentThread() &&
        ky::atomic::Thread::postTaskIfLive_(thread, task)) {
        return;
    }
    task();
}

std::shared_ptr<void> RpcServerShared::replyQueue_(const KyString& key, uint32_t pid,
                                                   const std::function<std::shared_ptr<void>()>& make,
                                                   const std::function<bool(const void*)>& stillNamed) {
    const uint64_t now = nowMs();
    std::lock_guard<std::mutex> lock(mutex_);
    if (now - prunedMs_ >= kReplyCheckMs) dropGoneClients_locked_(now);
    auto it = replies_.find(key);
    if (it != replies_.end() && now - it->second.checkedMs < kReplyCheckMs) return it->second.queue;
    if (processGone_(pid)) {
        if (it != replies_.end()) replies_.erase(it);
        return nullptr;
    }
    if (it != replies_.end()) {
        if (stillNamed(it->second.queue.get())) {
            it->second.checkedMs = now;
            return it->second.queue;
        }
        replies_.erase(it);
    }
    try {
        std::shared_ptr<void> queue = make();
        replies_[key] = CachedReply{queue, pid, now};
        return queue;
    } catch (const std::exception& e) {
        // A client whose reply type differs from this method's: it gets no
        // reply and times out.
        kyLogWarning(kCategory) << "rpc: cannot open reply queue" << key << ":" << e.what();
        return nullptr;
    }
}

void RpcServerShared::dropGoneClients_() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!replies_.empty()) dropGoneClients_locked_(nowMs());
}

void RpcServerShared::dropGoneClients_locked_(uint64_t now) {
    prunedMs_ = now;
    // Each kept queue maps a client's ring: a long-lived server must not
    // hold the memory of every client it ever answered.
    for (auto it = replies_.begin(); it != replies_.end();) {
        it = processGone_(it->second.pid) ? replies_.erase(it) : std::next(it);
    }
}

void rpcReplyLost_(const RpcMethodSite& site, uint32_t pid, uint64_t id) {
    kyLogWarning(kCategory) << "rpc: reply" << id << "of" << site.method << "to pid" << pid
                            << "lost (reply queue full or payload too large)";
}

KyString rpcExceptionText_(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return KyString(e.what());
    } catch (...) {
        return KyString("rpc: method failed");
    }
}

}  // namespace detail

RpcServerEndpoint::RpcServerEndpoint(Registry& registry, KyString subscriberObject,
                                     std::shared_ptr<std::atomic<bool>> alive,
                                     std::function<ky::atomic::Thread*()> threadOf)
    : registry_(registry),
      subscriberObject_(std::move(subscriberObject)),
      shared_(std::make_shared<detail::RpcServerShared>(std::move(alive), std::move(threadOf))) {
    // Asked first: without a loop on this thread the pruning waits for the next reply.
    if (KyCoreApplication::instance(false) != nullptr) {
        std::weak_ptr<detail::RpcServerShared> weak = shared_;
        pruning_ = KyEventLoop::installSlowRuntime(kPruneMs, [weak] {
            if (auto shared = weak.lock()) shared->dropGoneClients_();
        });
    }
}

RpcServerEndpoint::~RpcServerEndpoint() {
    if (pruning_) pruning_->store(false);
    stopAll();
}

uint64_t RpcServerEndpoint::keep_(std::unique_ptr<IIpcSubscription> holder) {
    std::lock_guard<std::mutex> lock(mutex_);
    const uint64_t id = nextHolderId_++;
    holders_.emplace(id, std::move(holder));
    return id;
}

bool RpcServerEndpoint::stop(uint64_t holderId) {
    std::unique_ptr<IIpcSubscription> holder;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = holders_.find(holderId);
        if (it == holders_.end()) return false;
        holder = std::move(it->second);
        holders_.erase(it);
    }
    holder->stop();
    return true;
}

void RpcServerEndpoint::stopAll() {
    std::map<uint64_t, std::unique_ptr<IIpcSubscription>> holders;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        holders.swap(holders_);
    }
    // Stopped outside the mutex: a stop removes a poll task, which may wait
    // for the poller's own lock.
    for (auto& [id, holder] : holders) holder->stop();
}

size_t RpcServerEndpoint::exposedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return holders_.size();
}

}  // namespace ky::ipc
