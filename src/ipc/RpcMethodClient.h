// RpcMethodClient: the calling half of a remote method, a pair of ring queues.
//
// The server owns one request queue per method, "__rpc__|<capacity>|<method>",
// under its own domain and object; every client process owns one reply queue
// per method, "__rpc_ret__|<capacity>|<method>|<pid>", under the same names.
// A request is (id, client pid, client info, arguments...), a reply is
// (id, ok, error text, value). The capacity is a process-wide number that both
// ends must agree on, since it is part of the names; 10, 25, 50, 100, 200 and
// 500 select the ring size, any other number rings 100 slots while still being
// written into the names.
//
// call() pushes the request and waits for the reply with the id it chose: on
// a pooled fiber it yields and the thread's loop goes on; on a loop's main
// fiber it runs loop steps itself; on a thread without a loop it polls every
// channel of the process (LoopPoller::tick_) once a millisecond. Failures are
// read from lastError(): "rpc: request queue full (or payload too large)",
// "rpc: timeout", or the server's own error text.
//
// Ids are unique in the process, not only in the client: two clients of one
// method in one process share the reply queue, and a reply drained by either
// reaches the one that waits for it. They must then agree on the result type
// (the second one's construction throws otherwise).
//
// Threads: a client may be constructed on any thread; its reply channel is
// polled by that thread's loop (or by a caller's tick). call, callAsync and
// lastError may be used from any thread or fiber, and several calls may be in
// flight at once. The client's mutex is never held while pushing, waiting or
// running a callback. The constructor throws std::runtime_error when the
// request queue exists with another signature.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>

#include "core/types/KyString.h"
#include "ipc/DynamicRingQueue.h"
#include "ipc/ProcessObjects.h"
#include "ipc/RingQueue.h"
#include "ipc/TypeId.h"

class KyCoreApplication;

namespace ky::ipc {

/// The process-wide ring capacity of RPC queues (default 100); read at every
/// client construction and every exposure.
int& rpcQueueCapacityStorage_();

/// "__rpc__|<capacity>|<method>": the signal name of a method's request queue.
KyString rpcRequestQueueName(const KyString& method);
/// "__rpc_ret__|<capacity>|<method>|<pid>": the signal name of a client's reply queue.
KyString rpcResponseQueueName(const KyString& method, uint32_t pid);

/// A method as discovery sees it: its name and its request queue's type id.
struct RpcRequestSpec {
    KyString name;
    uint64_t typeId = 0;
};

template <typename... Params>
RpcRequestSpec rpcRequestSpec(const KyString& name) {
    return RpcRequestSpec{name, detail::type_id<uint64_t, uint32_t, KyString, Params...>()};
}

namespace detail {

inline constexpr const char* kRpcQueueFullText = "rpc: request queue full (or payload too large)";
inline constexpr const char* kRpcTimeoutText = "rpc: timeout";

KyString rpcRequestQueueNameFor_(int capacity, const KyString& method);
KyString rpcResponseQueueNameFor_(int capacity, const KyString& method, uint32_t pid);
/// The ring size a capacity value selects: itself when it is one of 10, 25,
/// 50, 100, 200, 500, otherwise 100.
size_t rpcSelectRingSize_(int capacity);


/// What a waiting call and the reply path share. It lives on the heap, held
/// by the call and by its pending entry, so a reply or a timer that comes
/// late never touches a finished call's frame. done, ok, error and the value
/// are written under the client's mutex.
struct RpcWaiter {
    virtual ~RpcWaiter() = default;
    /// Copies the decoded reply value (a const R*) into the waiter.
    virtual void storeValue_(const void* value) = 0;

    bool done = false;
    bool ok = false;
    KyString error;
    // Cleared by whoever ends the wait; a yield that comes after the clear
    // does not suspend.
    std::atomic<bool> waiting{true};
    int yieldId = 0;
    std::atomic<KyCoreApplication*> application{nullptr};
};

template <typename R>
struct RpcValueWaiter final : RpcWaiter {
    void storeValue_(const void* value) override { this->value = *static_cast<const R*>(value); }
    R value{};
};

/// The non-template half of RpcMethodClient: last error, pending calls keyed
/// by id, the wait and the reply's delivery.
class RpcClientCore : public std::enable_shared_from_this<RpcClientCore> {
public:
    /// Type-erased asynchronous callback; receives a const R*.
    using ErasedCallback = std::function<void(const void*)>;

    KyString lastError() const;
    void setLastError_(const KyString& text) const;

    /// Clears the last error, takes a fresh id and enters the pending call.
    uint64_t beginCall_(const std::shared_ptr<RpcWaiter>& waiter);
    uint64_t beginAsync_(ErasedCallback callback);
    /// After the push: on a refused push forgets the call and sets the
    /// queue-full text; otherwise waits for the reply or the timeout (0 or
    /// less: no limit). True when a reply with ok came.
    bool finishCall_(uint64_t id, const std::shared_ptr<RpcWaiter>& waiter, bool pushed, int timeoutMs);
    bool finishAsync_(uint64_t id, bool pushed);
    /// A reply from the queue: fills and wakes its waiter, or runs its
    /// callback. A reply for another client of the same reply queue (or any
    /// reply, once this client is going away) is handed to that client; one
    /// nobody waits for (a late one) is dropped.
    void onResponse_(uint64_t id, bool ok, const KyString& error, const void* value, bool selfAlive = true);
    /// Enters this client among the consumers of its reply queue (by object
    /// name): clients of one method in one process share that queue, and
    /// whichever drains it passes the others their replies.
    void joinReplyQueue_(const KyString& replyShmName);
    void leaveReplyQueue_();
    /// Forgets every pending call (the client is going away).
    void clear_();
    size_t pendingCount() const;

private:
    struct Pending {
        uint64_t id = 0;
        std::shared_ptr<RpcWaiter> waiter;
        ErasedCallback callback;
    };

    void failPush_(uint64_t id);
    /// Delivers a reply of one of this client's calls; false when the id is not pending here.
    bool deliver_(uint64_t id, bool ok, const KyString& error, const void* value);
    static void wait_(const std::shared_ptr<RpcWaiter>& waiter, int timeoutMs);

    mutable std::mutex mutex_;
    mutable KyString lastError_;
    std::map<uint64_t, Pending> pending_;
    KyString replyShmName_;
};

/// Wakes a waiting call once; safe from any thread, and again after the call ended.
void rpcWakeWaiter_(const std::shared_ptr<RpcWaiter>& waiter);

}  // namespace detail

/// The client of one remote method with result R and arguments Params...
template <typename R, typename... Params>
class RpcMethodClient {
    static_assert(!std::is_void_v<R>, "an RPC method replies with a value: use bool for methods without a result");

public:
    using Callback = std::function<void(const R&)>;

    RpcMethodClient(const KyString& domain, const KyString& object, const KyString& method,
                    const KyString& clientInfo = KyString())
        : registry_{domain, object},
          method_(method),
          clientInfo_(clientInfo),
          alive_(std::make_shared<std::atomic<uint8_t>>(1)),
          pid_(static_cast<uint32_t>(getpid())),
          core_(std::make_shared<detail::RpcClientCore>()) {
        const int capacity = rpcQueueCapacityStorage_();
        initQueues_(detail::rpcSelectRingSize_(capacity), capacity);
        start_();
    }

    /// From the first step on, replies are no longer taken for this client's
    /// own calls; then it leaves its reply queue's consumers, the reply
    /// channel's subscription ends, the queues are let go and pending calls
    /// are forgotten (a call still waiting ends as a timeout).
    ~RpcMethodClient() {
        alive_->store(0);
        core_->leaveReplyQueue_();
        if (stop_) stop_();
        replyQueue_.reset();
        requestQueue_.reset();
        core_->clear_();
    }

    RpcMethodClient(const RpcMethodClient&) = delete;
    RpcMethodClient& operator=(const RpcMethodClient&) = delete;

    /// Calls the method and waits up to timeoutMs (0 or less: no limit).
    /// R{} on failure, with the reason in lastError().
    R call(const Params&... params, int timeoutMs) {
        auto waiter = std::make_shared<detail::RpcValueWaiter<R>>();
        const uint64_t id = core_->beginCall_(waiter);
        const bool pushed = pushFn_ && pushFn_(id, pid_, clientInfo_, params...);
        if (!core_->finishCall_(id, waiter, pushed, timeoutMs)) return R{};
        return waiter->value;
    }

    /// Sends the call without waiting; cb runs with the value when a reply
    /// with ok comes, on the loop that polls the reply channel. A failed call
    /// calls nothing. False (and the queue-full text) when the push is refused.
    bool callAsync(const Params&... params, Callback cb) {
        detail::RpcClientCore::ErasedCallback erased;
        if (cb) erased = [cb = std::move(cb)](const void* value) { cb(*static_cast<const R*>(value)); };
        const uint64_t id = core_->beginAsync_(std::move(erased));
        const bool pushed = pushFn_ && pushFn_(id, pid_, clientInfo_, params...);
        return core_->finishAsync_(id, pushed);
    }

    KyString lastError() const { return core_->lastError(); }
    void setLastError_(const KyString& text) const { core_->setLastError_(text); }

    const KyString& domain() const { return registry_.domain; }
    const KyString& object() const { return registry_.object; }
    const KyString& method() const { return method_; }
    /// Calls sent and not yet answered, timed out or refused.
    size_t pendingCount() const { return core_->pendingCount(); }

private:
    // The ring size is a run-time value (one instantiation per signature,
    // whatever the capacity setting), the capacity number goes into the names.
    void initQueues_(size_t slots, int capacity) {
        using RequestQueue = DynamicRingQueue<uint64_t, uint32_t, KyString, Params...>;
        using ReplyQueue = DynamicRingQueue<uint64_t, bool, KyString, R>;
        // Opening the request queue does not subscribe to it: before the
        // server exists the calls simply wait in the ring.
        auto request =
            std::make_shared<RequestQueue>(registry_, detail::rpcRequestQueueNameFor_(capacity, method_), slots);
        auto reply =
            std::make_shared<ReplyQueue>(registry_, detail::rpcResponseQueueNameFor_(capacity, method_, pid_), slots);
        core_->joinReplyQueue_(reply->shmName());
        // Named after this process: no one else will ever use it.
        detail::noteOwnedObject_(reply->shmName());
        pushFn_ = [request](uint64_t id, uint32_t pid, const KyString& info, const Params&... params) {
            return request->push(id, pid, info, params...);
        };
        start_ = [this, reply] {
            auto subscription = std::make_shared<typename ReplyQueue::Subscription>(reply->connect(
                [core = core_, alive = alive_](uint64_t id, bool ok, const KyString& error, const R& value) {
                    // A pass that outlives the client still hands other
                    // clients of this queue their replies.
                    core->onResponse_(id, ok, error, &value, alive->load() != 0);
                },
                true, 0));
            stop_ = [subscription] { subscription->stop(); };
        };
        requestQueue_ = std::move(request);
        replyQueue_ = std::move(reply);
    }

    Registry registry_;
    KyString method_;
    KyString clientInfo_;
    std::shared_ptr<std::atomic<uint8_t>> alive_;
    uint32_t pid_;
    std::shared_ptr<void> requestQueue_;
    std::shared_ptr<void> replyQueue_;
    std::function<bool(uint64_t, uint32_t, const KyString&, const Params&...)> pushFn_;
    std::function<void()> start_;
    std::function<void()> stop_;
    // Mutex, last error and pending calls; shared with the reply channel's
    // closure, which may outlive the client by one pass.
    std::shared_ptr<detail::RpcClientCore> core_;
};

}  // namespace ky::ipc
