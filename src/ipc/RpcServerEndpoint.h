// RpcServerEndpoint: the serving half of remote methods, for one object.
//
// expose() opens the method's request queue "__rpc__|<capacity>|<method>" on
// the object's domain and path and drains it under the object's subscriber
// name. Each request (id, client pid, client info, arguments...) is decoded
// in the queue's poll closure, dropped when the object is no longer alive,
// and handed to the object's thread: posted there when that is another live
// thread, run at once otherwise. The method's value goes back through the
// client's reply queue "__rpc_ret__|<capacity>|<method>|<pid>", opened on
// the first reply to that client and kept while that client lives (a reply
// to a client that is gone is dropped). A method answers
// with its value (ok), with an RpcReply<R> (ok or not, with an error text),
// or by throwing, which replies ok false with the exception's text. A reply
// that does not fit is lost and the client times out; a request that fails
// to decode gets no reply at all.
//
// Threads: an endpoint is made and used on its object's thread; expose, stop
// and stopAll are also safe from other threads (the holders have their own
// mutex). Handlers
// run on the loop that polls, methods on the object's thread. What handlers
// need is shared with them, so a request in hand outlives the endpoint
// safely; the alive flag keeps it from reaching a dead object. Lock order:
// the holder mutex and the reply-cache mutex are never held together, and
// neither is held while a method runs.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>

#include "core/types/KyString.h"
#include "ipc/ChannelCore.h"
#include "ipc/Registry.h"
#include "ipc/DynamicRingQueue.h"
#include "ipc/RpcMethodClient.h"

namespace ky::atomic {
class Thread;
}

namespace ky::ipc {

/// A subscription an object keeps until it is stopped.
class IIpcSubscription {
public:
    virtual ~IIpcSubscription() = default;
    virtual void stop() = 0;
};

/// Keeps one channel subscription, and what its closure relies on, until stopped.
class IpcSubscriptionHolder final : public IIpcSubscription {
public:
    IpcSubscriptionHolder(detail::SubscriptionHandle handle, std::shared_ptr<void> keep);
    ~IpcSubscriptionHolder() override;
    void stop() override;

private:
    detail::SubscriptionHandle handle_;
    std::shared_ptr<void> keep_;
};

/// A method's full answer: ok with a value, or not ok with an error text
/// that becomes the client's lastError().
template <typename R>
struct RpcReply {
    bool ok = true;
    KyString error;
    R value{};
};

namespace detail {

/// Where one exposed method lives: its own copy of the object's address (the
/// reply queues refer to it), the method's name and the capacity it was
/// exposed with.
struct RpcMethodSite {
    Registry registry;
    KyString method;
    int capacity = 100;
};

/// What the handlers of one endpoint share with it.
class RpcServerShared {
public:
    RpcServerShared(std::shared_ptr<std::atomic<bool>> alive, std::function<ky::atomic::Thread*()> threadOf);

    bool alive() const { return alive_ && alive_->load(std::memory_order_acquire); }
    /// Runs task on the object's thread: posted when that is another live
    /// thread, run at once otherwise (no thread, a finished one, or this one).
    void runOnObjectThread_(std::function<void()> task);
    /// The reply queue of client `pid` kept under key, made by make on a
    /// miss. Null when the client is gone (nobody would read the reply, and no
    /// object is made in the name of a dead process) or when making it threw
    /// (logged). A kept queue is looked at again once a second: its client
    /// gone, it is dropped with its mapping; its name unlinked under it (the
    /// client ended and another process of that pid made its own), it is made
    /// anew. Clients found gone meanwhile are dropped as well. make and
    /// stillNamed run under the cache's mutex.
    std::shared_ptr<void> replyQueue_(const KyString& key, uint32_t pid,
                                      const std::function<std::shared_ptr<void>()>& make,
                                      const std::function<bool(const void*)>& stillNamed);
    /// Drops the kept queues of clients that are gone (also run from the
    /// endpoint's timer, so a server that answers nobody any more lets go of
    /// the last clients' rings too).
    void dropGoneClients_();

private:
    struct CachedReply {
        std::shared_ptr<void> queue;
        uint32_t pid = 0;
        uint64_t checkedMs = 0;
    };
    // Drops the queues of every client that is gone; caller holds mutex_.
    void dropGoneClients_locked_(uint64_t now);

    std::shared_ptr<std::atomic<bool>> alive_;
    std::function<ky::atomic::Thread*()> threadOf_;
    std::mutex mutex_;
    std::map<KyString, CachedReply> replies_;
    uint64_t prunedMs_ = 0;
};

/// Logs a reply that could not be queued (full ring).
void rpcReplyLost_(const RpcMethodSite& site, uint32_t pid, uint64_t id);
/// Text of an exception a method threw, for the reply's error field.
KyString rpcExceptionText_(std::exception_ptr error);

/// A reply queue together with the site whose registry it refers to.
template <typename Queue>
struct RpcReplyEntry {
    RpcReplyEntry(std::shared_ptr<RpcMethodSite> s, const KyString& name, size_t slots)
        : site(std::move(s)), queue(site->registry, name, slots) {}
    std::shared_ptr<RpcMethodSite> site;
    Queue queue;
};

/// Sends one reply through the client's reply queue (opened once per client and method).
template <typename R>
void rpcRespondValueCap_(size_t slots, RpcServerShared& shared, const std::shared_ptr<RpcMethodSite>& site,
                         uint64_t id, uint32_t pid, bool ok, const KyString& error, const R& value) {
    using Entry = RpcReplyEntry<DynamicRingQueue<uint64_t, bool, KyString, R>>;
    const KyString name = rpcResponseQueueNameFor_(site->capacity, site->method, pid);
    const KyString key = site->registry.domain + KyString("|") + site->registry.object + KyString("|") + name +
                         KyString("#") + hex64(type_id<uint64_t, bool, KyString, R>());
    std::shared_ptr<void> erased = shared.replyQueue_(
        key, pid, [&]() -> std::shared_ptr<void> { return std::make_shared<Entry>(site, name, slots); },
        [](const void* entry) { return static_cast<const Entry*>(entry)->queue.stillNamed(); });
    if (!erased) return;
    if (!static_cast<Entry*>(erased.get())->queue.push(id, ok, error, value)) rpcReplyLost_(*site, pid, id);
}

/// Runs the method with the decoded arguments and replies.
template <typename R, typename Fn, typename... Params>
void rpcInvokeNoCtx_(size_t slots, RpcServerShared& shared, const std::shared_ptr<RpcMethodSite>& site, Fn& fn, uint64_t id,
                     uint32_t pid, const Params&... params) {
    RpcReply<R> reply;
    try {
        if constexpr (std::is_same_v<std::decay_t<std::invoke_result_t<Fn&, const Params&...>>, RpcReply<R>>) {
            reply = fn(params...);
        } else {
            reply.value = fn(params...);
        }
    } catch (...) {
        // No exception crosses the loop: the caller learns of it instead.
        reply.ok = false;
        reply.error = rpcExceptionText_(std::current_exception());
    }
    if (!reply.ok) reply.value = R{};
    rpcRespondValueCap_<R>(slots, shared, site, id, pid, reply.ok, reply.error, reply.value);
}

}  // namespace detail

/// The request queues of one object's exposed methods, with their handlers.
class RpcServerEndpoint {
public:
    RpcServerEndpoint(Registry& registry, KyString subscriberObject, std::shared_ptr<std::atomic<bool>> alive,
                      std::function<ky::atomic::Thread*()> threadOf);
    /// Stops every exposed method's subscription.
    ~RpcServerEndpoint();
    RpcServerEndpoint(const RpcServerEndpoint&) = delete;
    RpcServerEndpoint& operator=(const RpcServerEndpoint&) = delete;

    /// Serves method with fn(const Params&...), which returns R or
    /// RpcReply<R>. With fireInitial the requests already waiting are served
    /// at once. Returns the holder id. Throws std::runtime_error when the
    /// request queue exists with another signature.
    template <typename R, typename... Params, typename Fn>
    uint64_t expose(const KyString& method, Fn fn, bool fireInitial) {
        const int capacity = rpcQueueCapacityStorage_();
        return ipcExposeRpcNoCtxCap_<R, Params...>(detail::rpcSelectRingSize_(capacity), capacity, method,
                                                   std::move(fn), fireInitial);
    }

    /// Ends one exposed method; false for an unknown id.
    bool stop(uint64_t holderId);
    /// Ends every exposed method.
    void stopAll();
    /// Number of methods served now.
    size_t exposedCount() const;

private:
    // The ring size is a run-time value: one instantiation per signature.
    template <typename R, typename... Params, typename Fn>
    uint64_t ipcExposeRpcNoCtxCap_(size_t slots, int capacity, const KyString& method, Fn fn, bool fireInitial) {
        static_assert(!std::is_void_v<R>, "an RPC method replies with a value: use bool for methods without a result");
        using RequestQueue = DynamicRingQueue<uint64_t, uint32_t, KyString, Params...>;
        auto site = std::make_shared<detail::RpcMethodSite>(
            detail::RpcMethodSite{Registry{registry_.domain, registry_.object}, method, capacity});
        auto queue =
            std::make_shared<RequestQueue>(site->registry, detail::rpcRequestQueueNameFor_(capacity, method), slots);
        auto function = std::make_shared<Fn>(std::move(fn));
        auto handler = [shared = shared_, site, function, slots](const uint64_t& id, const uint32_t& pid, const KyString&,
                                                          const Params&... params) {
            if (!shared->alive()) return;
            shared->runOnObjectThread_([shared, site, function, slots, id, pid, params...] {
                // The object may have died while the request travelled to its thread.
                if (!shared->alive()) return;
                detail::rpcInvokeNoCtx_<R>(slots, *shared, site, *function, id, pid, params...);
            });
        };
        detail::SubscriptionHandle handle;
        {
            detail::ScopedSubscriberObject scope(subscriberObject_);
            handle = queue->connect(std::move(handler), fireInitial, 0);
        }
        return keep_(std::make_unique<IpcSubscriptionHolder>(std::move(handle), std::move(queue)));
    }

    uint64_t keep_(std::unique_ptr<IIpcSubscription> holder);

    Registry& registry_;
    KyString subscriberObject_;
    std::shared_ptr<detail::RpcServerShared> shared_;
    mutable std::mutex mutex_;
    uint64_t nextHolderId_ = 1;
    std::map<uint64_t, std::unique_ptr<IIpcSubscription>> holders_;
    // The timer that lets go of gone clients' reply queues; null without a loop.
    std::shared_ptr<std::atomic<bool>> pruning_;
};

}  // namespace ky::ipc
