// Signal: a typed latest-value broadcast between processes.
//
// One shared block per (domain, object, name) holds the latest publication;
// any number of processes sample it, and a slow reader skips values. A
// publish copies the encoded tuple under the block's mutex, then wakes every
// subscribed process by datagram; each subscriber's closure compares the
// block's seq with the last one it saw and calls back with the decoded
// values. Only the last value published is guaranteed to be seen.
//
// Threads: construct and publish from any thread (publish may block for the
// length of another process's copy). Callbacks run on the event loop that
// polls (the loop of the thread that made the first subscription). The
// constructor throws std::runtime_error when the object exists with another
// layout or signature; nothing else here throws.
#pragma once

#include <functional>
#include <memory>
#include <tuple>

#include "ipc/ChannelCore.h"
#include "ipc/Codec.h"
#include "ipc/IpcNames.h"
#include "ipc/Registry.h"
#include "ipc/ShmMapping.h"
#include "ipc/TypeId.h"

namespace ky::ipc {

/// Latest-value channel of one signature.
template <typename... Args>
class Signal {
public:
    using Subscription = detail::SubscriptionHandle;
    using Callback = std::function<void(const Args&...)>;

    Signal(Registry& registry, const KyString& name)
        : registry_(registry),
          name_(name),
          shmName_(detail::make_shm_name(registry.domain, registry.object, name)),
          mapping_(ShmMapping<kPayloadCapacity>::openOrCreate(shmName_, detail::type_id<Args...>())),
          registration_(detail::registerChannel_(registry.domain, registry.object, name, shmName_,
                                                 detail::type_id<Args...>(), detail::type_name<Args...>())) {}

    /// Stores the values as the latest and wakes the subscribers; a tuple
    /// over 4096 bytes is dropped (false) and no one is told.
    bool publish(const Args&... args) {
        uint8_t buffer[kPayloadCapacity];
        Encoder e{buffer, sizeof(buffer), 0};
        if (!detail::encodeArgs(e, args...)) return false;
        detail::publishSignal_(mapping_->layout(), buffer, e.pos);
        detail::notifySubscribers_(registry_.domain, registry_.object, name_);
        return true;
    }

    /// Calls cb for each later publication (and, with fireInitial, for the
    /// current value if there is one). A positive timeoutMs ends the
    /// subscription by itself after that time.
    template <typename Fn>
    Subscription connect(Fn cb, bool fireInitial = false, int timeoutMs = 0) {
        auto state = std::make_shared<detail::SignalPollState>();
        state->fireInitial = fireInitial;
        state->lastSeq = detail::signalSeq_(mapping_->layout());
        auto closure = [state, mapping = mapping_, cb = std::move(cb)]() mutable {
            detail::BusyGuard guard(state->busy, state->missed);
            if (!guard.acquired()) return;
            uint8_t buffer[kPayloadCapacity];
            size_t size = 0;
            if (!detail::takeSignalValue_(mapping->layout(), *state, buffer, size)) return;
            Decoder d{buffer, size, 0};
            std::tuple<Args...> values;
            if (!detail::readTuple(d, values)) return;  // a bad value is dropped, not retried
            std::apply(cb, values);
        };
        return detail::subscribe_(registry_.domain, registry_.object, name_, detail::currentSubscriberObject_(),
                                  std::move(closure), timeoutMs);
    }

    const KyString& name() const { return name_; }
    const KyString& shmName() const { return shmName_; }
    Registry& registry() const { return registry_; }
    ShmMapping<kPayloadCapacity>& mapping() const { return *mapping_; }

private:
    Registry& registry_;
    KyString name_;
    KyString shmName_;
    std::shared_ptr<ShmMapping<kPayloadCapacity>> mapping_;
    std::shared_ptr<void> registration_;
};

}  // namespace ky::ipc
