// DynamicRingQueue: a ring queue whose slot count is chosen at run time.
//
// The same bytes as RingQueue<N, Args...> (a queue of N slots opened by
// either class is the same object), for callers that learn N only at run
// time: the RPC layer picks its ring size from a process-wide setting, and
// one instantiation per signature (instead of one per signature and size)
// keeps the build of its many method types small. Threads and errors as for
// RingQueue: construct and push from any thread, callbacks on the polling
// loop, std::runtime_error from the constructor on a layout or signature
// mismatch.
#pragma once

#include <atomic>
#include <memory>
#include <tuple>

#include "ipc/ChannelCore.h"
#include "ipc/Codec.h"
#include "ipc/IpcNames.h"
#include "ipc/Registry.h"
#include "ipc/ShmMapping.h"
#include "ipc/TypeId.h"

namespace ky::ipc {

namespace detail {

/// A mapped ring-queue object of some slot count; unmapped by its last owner.
class QueueRegion {
public:
    /// Creates or opens the queue object by the channel rules; throws std::runtime_error.
    static std::shared_ptr<QueueRegion> openOrCreate(const KyString& name, size_t slots, uint64_t typeId);
    ~QueueRegion();
    QueueRegion(const QueueRegion&) = delete;
    QueueRegion& operator=(const QueueRegion&) = delete;

    void* base() const { return base_; }
    size_t slots() const { return slots_; }
    const KyString& name() const { return name_; }
    /// True while the name still leads to this mapping's object.
    bool stillNamed() const { return channelObjectStillNamed_(name_, identity_); }

private:
    QueueRegion(const KyString& name, void* base, size_t slots, ChannelObjectIdentity identity)
        : name_(name), base_(base), slots_(slots), identity_(identity) {}
    KyString name_;
    void* base_;
    size_t slots_;
    ChannelObjectIdentity identity_;
};

}  // namespace detail

/// Message queue of a run-time number of slots for one signature.
template <typename... Args>
class DynamicRingQueue {
public:
    using Subscription = detail::SubscriptionHandle;

    DynamicRingQueue(Registry& registry, const KyString& name, size_t slots)
        : registry_(registry),
          name_(name),
          region_(detail::QueueRegion::openOrCreate(detail::make_shm_name(registry.domain, registry.object, name),
                                                    slots, detail::type_id<Args...>())),
          registration_(detail::registerChannel_(registry.domain, registry.object, name, region_->name(),
                                                 detail::type_id<Args...>(), detail::type_name<Args...>())) {}

    /// Appends one message and wakes the consumer; false when full or over 4096 bytes.
    bool push(const Args&... args) {
        uint8_t buffer[kPayloadCapacity];
        Encoder e{buffer, sizeof(buffer), 0};
        const EncodedBytesWipe wipe{e};
        if (!detail::encodeArgs(e, args...)) return false;
        if (!detail::pushQueue_(region_->base(), region_->slots(), buffer, e.pos, region_->name())) return false;
        detail::notifySubscribers_(registry_.domain, registry_.object, name_);
        return true;
    }

    /// Drains the queue into cb at each pass, as RingQueue::connect.
    template <typename Fn>
    Subscription connect(Fn cb, bool fireInitial = false, int timeoutMs = 0) {
        return detail::connectQueue_<Args...>(registry_.domain, registry_.object, name_, region_, region_->base(),
                                              region_->slots(), std::move(cb), fireInitial, timeoutMs, nextSubscriber_());
    }

    const KyString& name() const { return name_; }
    const KyString& shmName() const { return region_->name(); }
    size_t slots() const { return region_->slots(); }
    /// False once the object was unlinked (and perhaps made anew) under this mapping.
    bool stillNamed() const { return region_->stillNamed(); }

private:
    static std::atomic<uint64_t>& nextSubscriber_() {
        static std::atomic<uint64_t> counter{0};
        return counter;
    }

    Registry& registry_;
    KyString name_;
    std::shared_ptr<detail::QueueRegion> region_;
    std::shared_ptr<void> registration_;
};

}  // namespace ky::ipc
