// RingQueue: a typed bounded message queue between processes.
//
// N slots in one shared object; writers append under the object's mutex and
// are refused when N messages wait; one draining consumer takes every
// message in order (head lives in the shared block, so two consumers would
// split the messages). A drain copies all waiting messages and scrubs their
// payloads before the first callback runs, so a slow callback delays no
// writer and a consumed request's bytes do not linger in memory readable by
// other users.
//
// Threads: construct and push from any thread; callbacks run on the event
// loop that polls. The constructor throws std::runtime_error on a layout or
// signature mismatch.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "ipc/ChannelCore.h"
#include "ipc/Codec.h"
#include "ipc/IpcNames.h"
#include "ipc/Registry.h"
#include "ipc/ShmMapping.h"
#include "ipc/TypeId.h"

namespace ky::ipc {

/// Message queue of N slots for one signature.
template <size_t N, typename... Args>
class RingQueue {
public:
    using Layout = ShmQueueLayout<kPayloadCapacity, N>;
    using Mapping = ShmMappingT<Layout>;
    using Subscription = detail::SubscriptionHandle;
    using Callback = std::function<void(const Args&...)>;

    RingQueue(Registry& registry, const KyString& name)
        : registry_(registry),
          name_(name),
          shmName_(detail::make_shm_name(registry.domain, registry.object, name)),
          mapping_(Mapping::openOrCreate(shmName_, detail::type_id<Args...>())),
          registration_(detail::registerChannel_(registry.domain, registry.object, name, shmName_,
                                                 detail::type_id<Args...>(), detail::type_name<Args...>())) {}

    /// Appends one message and wakes the consumer; false when the queue is
    /// full or the tuple exceeds 4096 bytes. Nothing is overwritten.
    bool push(const Args&... args) {
        uint8_t buffer[kPayloadCapacity];
        Encoder e{buffer, sizeof(buffer), 0};
        const EncodedBytesWipe wipe{e};
        if (!detail::encodeArgs(e, args...)) return false;
        if (!detail::pushQueue_(mapping_->layout(), N, buffer, e.pos, shmName_)) return false;
        detail::notifySubscribers_(registry_.domain, registry_.object, name_);
        return true;
    }

    /// Drains the queue into cb at each pass (with fireInitial, at once for
    /// what waits already). A positive timeoutMs ends the subscription by
    /// itself after that time.
    template <typename Fn>
    Subscription connect(Fn cb, bool fireInitial = false, int timeoutMs = 0) {
        return detail::connectQueue_<Args...>(registry_.domain, registry_.object, name_, mapping_, mapping_->layout(),
                                              N, std::move(cb), fireInitial, timeoutMs, nextSubscriber_());
    }

    const KyString& name() const { return name_; }
    const KyString& shmName() const { return shmName_; }
    Registry& registry() const { return registry_; }
    Mapping& mapping() const { return *mapping_; }

private:
    static std::atomic<uint64_t>& nextSubscriber_() {
        static std::atomic<uint64_t> counter{0};
        return counter;
    }

    Registry& registry_;
    KyString name_;
    KyString shmName_;
    std::shared_ptr<Mapping> mapping_;
    std::shared_ptr<void> registration_;
};

}  // namespace ky::ipc
