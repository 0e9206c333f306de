// ChannelCore: the non-template half of Signal and RingQueue.
//
// The channel templates only encode and decode; everything that touches the
// shared block (locking, counters, slot copies), the registries and the
// wake-ups lives here once. Writers (publishSignal_, pushQueue_) take the
// object's mutex with the blocking lock; readers in a loop pass only ever
// try-lock, so a dead holder stalls that channel and never the loop. Wake-ups
// go out after the unlock, so a listener that wakes always sees the write.
// Functions here may be called from any thread; poll functions run on the
// loop that polls.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "core/types/KyString.h"
#include "ipc/Codec.h"
#include "ipc/IpcNames.h"
#include "ipc/ShmMapping.h"

namespace ky::ipc::detail {

/// Shared between a signal subscription and its closure.
struct SignalPollState {
    uint64_t lastSeq = 0;
    bool fireInitial = false;
    bool initialDone = false;
    std::atomic<uint8_t> busy{0};
    std::atomic<bool> missed{false};
};

/// The messages of one drain, copied out back to back; the storage is kept
/// between passes so that a steady stream allocates nothing.
struct DrainedMessages {
    std::vector<uint8_t> bytes;
    std::vector<std::pair<size_t, size_t>> spans;  // offset, size

    void clear() {
        bytes.clear();
        spans.clear();
    }
    size_t count() const { return spans.size(); }
    const uint8_t* data(size_t i) const { return bytes.data() + spans[i].first; }
    size_t size(size_t i) const { return spans[i].second; }
};

/// Shared between a queue subscription and its closure.
struct QueuePollState {
    KyString objectName;  // for the log line of a repair
    bool fireInitial = false;
    bool initialDone = false;
    std::atomic<uint8_t> busy{0};
    std::atomic<bool> missed{false};
    DrainedMessages scratch;
};

/// Asks the loop of the calling thread for one more poller pass.
void schedulePollerPass_();

/// Makes a closure non-reentrant: a callback that spins a nested loop is not
/// called again from within. A pass that found the closure busy is not lost:
/// when the outer call ends, one more pass is scheduled.
class BusyGuard {
public:
    BusyGuard(std::atomic<uint8_t>& busy, std::atomic<bool>& missed)
        : busy_(busy), missed_(missed), acquired_(busy.exchange(1) == 0) {
        if (!acquired_) missed_.store(true);
    }
    ~BusyGuard() {
        if (!acquired_) return;
        busy_.store(0);
        if (missed_.exchange(false)) schedulePollerPass_();
    }
    bool acquired() const { return acquired_; }

private:
    std::atomic<uint8_t>& busy_;
    std::atomic<bool>& missed_;
    bool acquired_;
};

/// Registers the channel's row in the signal registry (best effort) and
/// keeps it remembered while the returned token lives: a heartbeat puts the
/// row back when others' cleaning removed it. Channel objects hold the token.
std::shared_ptr<void> registerChannel_(const KyString& domain, const KyString& object, const KyString& name,
                                       const KyString& shmName, uint64_t typeId, const KyString& typeName);
/// Wakes every process subscribed to (domain, object, name), once each.
void notifySubscribers_(const KyString& domain, const KyString& object, const KyString& name);

/// Stores a publication in a signal block.
void publishSignal_(ShmLayout<4096>* block, const uint8_t* payload, size_t size);
/// The block's current seq (for a new subscription's starting point).
uint64_t signalSeq_(ShmLayout<4096>* block);
/// One pass of a signal closure: true with the payload copied out when there
/// is a new (or pending initial) value to deliver.
bool takeSignalValue_(ShmLayout<4096>* block, SignalPollState& state, uint8_t* out,
                      size_t& size);

/// Appends a message to a ring of `slots` slots; false when it is full. A
/// head found ahead of seq (no correct peer leaves one) is set back to seq.
bool pushQueue_(void* queue, size_t slots, const uint8_t* payload, size_t size, const KyString& name);
/// One drain of a queue closure: every unconsumed message in order, at most
/// `slots` of them. Counters that no correct peer leaves behind are repaired
/// first: a head ahead of seq goes back to seq, and a seq more than a ring
/// ahead of head moves head to seq - slots (those messages are lost).
void drainQueue_(void* queue, size_t slots, QueuePollState& state, DrainedMessages& out);
/// Logs a repair of the queue at `queue` once per object and process.
void logQueueRepairOnce_(const void* queue, const KyString& name, const char* what);

/// "__rqsub__<pid>|<n>": the subscriber name of an anonymous queue consumer.
KyString queueSubscriberName_(uint64_t n);

/// Move-only handle of a subscription: ends it when stopped or destroyed.
class SubscriptionHandle {
public:
    SubscriptionHandle() = default;
    SubscriptionHandle(uint64_t id, KyString domain, KyString object, KyString signal, KyString subObject);
    ~SubscriptionHandle();
    SubscriptionHandle(SubscriptionHandle&& other) noexcept;
    SubscriptionHandle& operator=(SubscriptionHandle&& other) noexcept;
    SubscriptionHandle(const SubscriptionHandle&) = delete;
    SubscriptionHandle& operator=(const SubscriptionHandle&) = delete;

    /// Unregisters the subscriber row (once) and removes the poll task.
    void stop();
    /// Ends the subscription after timeoutMs on the calling thread's loop.
    void stopAfter_(int timeoutMs);
    uint64_t id() const { return id_; }
    bool active() const { return active_ && active_->load(); }
    const KyString& subObject() const { return subObject_; }

private:
    uint64_t id_ = 0;
    KyString domain_;
    KyString object_;
    KyString signal_;
    uint32_t pid_ = 0;
    KyString subObject_;
    // Shared with a timeout's closure, so the row is unregistered only once.
    std::shared_ptr<std::atomic<bool>> active_;
};

/// Registers the subscriber row, adds the closure to the poller and returns the handle.
SubscriptionHandle subscribe_(const KyString& domain, const KyString& object, const KyString& name,
                              const KyString& subObject, std::function<void()> closure, int timeoutMs);

/// The thread's subscriber object name, set by ScopedSubscriberObject.
KyString currentSubscriberObject_();

/// Subscribes cb to the queue at base (slots slots) as its draining
/// consumer; keep holds the mapping alive for the closure. The subscriber
/// name is the thread's subscriber object, or "__rqsub__<pid>|<n>" with n
/// from counter.
template <typename... Args, typename Fn>
SubscriptionHandle connectQueue_(const KyString& domain, const KyString& object, const KyString& name,
                                 std::shared_ptr<void> keep, void* base, size_t slots, Fn cb, bool fireInitial,
                                 int timeoutMs, std::atomic<uint64_t>& counter) {
    auto state = std::make_shared<QueuePollState>();
    state->fireInitial = fireInitial;
    state->objectName = make_shm_name(domain, object, name);
    auto closure = [state, keep = std::move(keep), base, slots, cb = std::move(cb)]() mutable {
        BusyGuard guard(state->busy, state->missed);
        if (!guard.acquired()) return;
        DrainedMessages& messages = state->scratch;
        messages.clear();
        drainQueue_(base, slots, *state, messages);
        for (size_t i = 0; i < messages.count(); ++i) {
            Decoder d{messages.data(i), messages.size(i), 0};
            std::tuple<Args...> values;
            if (!readTuple(d, values)) continue;  // a message that does not decode is dropped
            std::apply(cb, values);
        }
    };
    KyString subObject = currentSubscriberObject_();
    if (subObject.isEmpty()) subObject = queueSubscriberName_(counter.fetch_add(1) + 1);
    return subscribe_(domain, object, name, subObject, std::move(closure), timeoutMs);
}

/// Sets the thread's subscriber object name for a scope; restores the earlier one.
class ScopedSubscriberObject {
public:
    explicit ScopedSubscriberObject(const KyString& name);
    ~ScopedSubscriberObject();
    ScopedSubscriberObject(const ScopedSubscriberObject&) = delete;
    ScopedSubscriberObject& operator=(const ScopedSubscriberObject&) = delete;

private:
    KyString previous_;
};
}  // namespace ky::ipc::detail
