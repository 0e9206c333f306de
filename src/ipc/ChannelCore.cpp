// ChannelCore: locking, counters and copies of the two channel kinds, the
// subscriber rows and the wake-ups behind them.
#include "ipc/ChannelCore.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyTimer.h"
#include "ipc/LoopPoller.h"
#include "ipc/RegistryTable.h"
#include "ipc/SubscribersRegistryTable.h"

namespace ky::ipc::detail {

namespace {

constexpr const char* kCategory = "ky.ipc.channel";
constexpr size_t kQueueSeqOffset = 104;
constexpr size_t kQueueHeadOffset = 112;
constexpr size_t kQueueSlotsOffset = 128;
constexpr size_t kSlotSize = sizeof(ShmQueueSlot<kPayloadCapacity>);

using QueueHeader = ShmQueueLayout<kPayloadCapacity, 1>;

pthread_mutex_t* queueMutex(void* queue) { return &static_cast<QueueHeader*>(queue)->mutex; }
pthread_cond_t* queueCond(void* queue) { return &static_cast<QueueHeader*>(queue)->cond; }
volatile uint64_t* queueSeq(void* queue) {
    return reinterpret_cast<volatile uint64_t*>(static_cast<uint8_t*>(queue) + kQueueSeqOffset);
}
volatile uint64_t* queueHead(void* queue) {
    return reinterpret_cast<volatile uint64_t*>(static_cast<uint8_t*>(queue) + kQueueHeadOffset);
}
ShmQueueSlot<kPayloadCapacity>* queueSlot(void* queue, size_t slots, uint64_t m) {
    return reinterpret_cast<ShmQueueSlot<kPayloadCapacity>*>(static_cast<uint8_t*>(queue) + kQueueSlotsOffset +
                                                             (m % slots) * kSlotSize);
}

thread_local KyString tSubscriberObject;

}  // namespace

std::shared_ptr<void> registerChannel_(const KyString& domain, const KyString& object, const KyString& name,
                                       const KyString& shmName, uint64_t typeId, const KyString& typeName) {
    RegistryTable<256>::holdSignal_(domain, object, name, shmName, typeId, typeName);
    struct Held {
        KyString domain, object, name;
        ~Held() { RegistryTable<256>::releaseSignal_(domain, object, name); }
    };
    // Built in place: a temporary Held would release the row as it dies.
    return std::shared_ptr<Held>(new Held{domain, object, name});
}

void notifySubscribers_(const KyString& domain, const KyString& object, const KyString& name) {
    std::vector<uint32_t> pids;
    SubscribersRegistryTable<512>::listSubscriberPids(domain, object, name, pids);
    std::sort(pids.begin(), pids.end());
    pids.erase(std::unique(pids.begin(), pids.end()), pids.end());
    for (uint32_t pid : pids) LoopPoller::IpcWakeup::notifyPid(pid);
}

void publishSignal_(ShmLayout<4096>* block, const uint8_t* payload, size_t size) {
    pthread_mutex_lock(&block->mutex);
    std::memcpy(block->payload, payload, size);
    block->seq = block->seq + 1;
    block->size = static_cast<uint32_t>(size);
    pthread_cond_broadcast(&block->cond);
    pthread_mutex_unlock(&block->mutex);
}

uint64_t signalSeq_(ShmLayout<4096>* block) {
    pthread_mutex_lock(&block->mutex);
    uint64_t seq = block->seq;
    pthread_mutex_unlock(&block->mutex);
    return seq;
}

bool takeSignalValue_(ShmLayout<4096>* block, SignalPollState& state, uint8_t* out, size_t& size) {
    const bool initialPending = state.fireInitial && !state.initialDone;
    // The unlocked look keeps a pass over idle channels free of locks.
    if (!initialPending && state.lastSeq == __atomic_load_n(&block->seq, __ATOMIC_ACQUIRE)) return false;
    if (pthread_mutex_trylock(&block->mutex) != 0) return false;  // next pass picks it up
    const uint64_t seq = block->seq;
    if (!initialPending && state.lastSeq == seq) {
        pthread_mutex_unlock(&block->mutex);
        return false;
    }
    const uint32_t n = block->size;
    if (n == 0 || n > kPayloadCapacity) {
        pthread_mutex_unlock(&block->mutex);
        if (initialPending) state.initialDone = true;
        state.lastSeq = seq;
        return false;
    }
    std::memcpy(out, block->payload, n);
    pthread_mutex_unlock(&block->mutex);
    if (initialPending) state.initialDone = true;
    state.lastSeq = seq;
    size = n;
    return true;
}

bool pushQueue_(void* queue, size_t slots, const uint8_t* payload, size_t size, const KyString& name) {
    pthread_mutex_lock(queueMutex(queue));
    const uint64_t seq = *queueSeq(queue);
    uint64_t head = *queueHead(queue);
    if (head > seq) {
        // No correct writer or reader leaves head ahead of seq: somebody
        // wrote into the queue. Nothing after head can be waiting.
        head = seq;
        *queueHead(queue) = seq;
        logQueueRepairOnce_(queue, name, "its consumed count was ahead of its written count");
    }
    if (seq - head >= slots) {
        pthread_mutex_unlock(queueMutex(queue));
        return false;
    }
    const uint64_t m = seq + 1;
    ShmQueueSlot<kPayloadCapacity>* slot = queueSlot(queue, slots, m);
    if (size > kPayloadCapacity) {
        pthread_mutex_unlock(queueMutex(queue));
        return false;
    }
    slot->seq = m;
    slot->size = static_cast<uint32_t>(size);
    std::memcpy(slot->payload, payload, size);
    *queueSeq(queue) = m;
    pthread_cond_broadcast(queueCond(queue));
    pthread_mutex_unlock(queueMutex(queue));
    return true;
}

void drainQueue_(void* queue, size_t slots, QueuePollState& state, DrainedMessages& out) {
    const bool initialPending = state.fireInitial && !state.initialDone;
    if (!initialPending && __atomic_load_n(queueHead(queue), __ATOMIC_ACQUIRE) ==
                               __atomic_load_n(queueSeq(queue), __ATOMIC_ACQUIRE)) {
        return;
    }
    if (pthread_mutex_trylock(queueMutex(queue)) != 0) return;
    uint64_t head = *queueHead(queue);
    const uint64_t seq = *queueSeq(queue);
    // The pass is bounded by the ring, never by the counters: they are
    // numbers in shared memory that anybody may have set.
    if (head > seq) {
        head = seq;
        *queueHead(queue) = head;
        logQueueRepairOnce_(queue, state.objectName, "its consumed count was ahead of its written count");
    } else if (seq - head > slots) {
        // Messages before seq - slots cannot still be in the ring: they
        // count as lost.
        head = seq - slots;
        *queueHead(queue) = head;
        logQueueRepairOnce_(queue, state.objectName, "its written count ran more than a ring ahead");
    }
    while (head < seq) {
        const uint64_t m = head + 1;
        ShmQueueSlot<kPayloadCapacity>* slot = queueSlot(queue, slots, m);
        // Read once: a size checked and then read again could have grown
        // in between, and the copy would run off the slot.
        const uint32_t size = __atomic_load_n(&slot->size, __ATOMIC_RELAXED);
        const size_t used = size <= kPayloadCapacity ? size : kPayloadCapacity;
        if (slot->seq == m && size <= kPayloadCapacity) {
            const size_t offset = out.bytes.size();
            out.bytes.insert(out.bytes.end(), slot->payload, slot->payload + used);
            out.spans.emplace_back(offset, used);
        }
        // A consumed slot keeps its number but not its bytes: requests may
        // carry passwords, and the object is readable by every local user.
        std::memset(slot->payload, 0, used);
        slot->size = 0;
        head = m;
        *queueHead(queue) = head;
    }
    if (initialPending) state.initialDone = true;
    pthread_mutex_unlock(queueMutex(queue));
}

void logQueueRepairOnce_(const void* queue, const KyString& name, const char* what) {
    // Once per object: a writer that keeps corrupting must not flood the log.
    static std::mutex* mutex = new std::mutex;
    static std::set<const void*>* logged = new std::set<const void*>;
    {
        std::lock_guard<std::mutex> lock(*mutex);
        if (!logged->insert(queue).second) return;
    }
    kyLogWarning(kCategory) << "repaired ring queue" << name << ":" << what;
}

void schedulePollerPass_() {
    if (KyCoreApplication* app = KyCoreApplication::instance()) {
        app->postEventOnLane([] { LoopPoller::dispatchSelf_(); }, KyFiberLaneDefault);
    }
}

KyString queueSubscriberName_(uint64_t n) {
    return KyString("__rqsub__") + KyString::number(static_cast<long long>(getpid())) + KyString("|") +
           KyString::number(static_cast<long long>(n));
}

SubscriptionHandle::SubscriptionHandle(uint64_t id, KyString domain, KyString object, KyString signal,
                                       KyString subObject)
    : id_(id),
      domain_(std::move(domain)),
      object_(std::move(object)),
      signal_(std::move(signal)),
      pid_(static_cast<uint32_t>(getpid())),
      subObject_(std::move(subObject)),
      active_(std::make_shared<std::atomic<bool>>(true)) {}

SubscriptionHandle::~SubscriptionHandle() { stop(); }

SubscriptionHandle::SubscriptionHandle(SubscriptionHandle&& other) noexcept { *this = std::move(other); }

SubscriptionHandle& SubscriptionHandle::operator=(SubscriptionHandle&& other) noexcept {
    if (this != &other) {
        stop();
        id_ = other.id_;
        domain_ = std::move(other.domain_);
        object_ = std::move(other.object_);
        signal_ = std::move(other.signal_);
        pid_ = other.pid_;
        subObject_ = std::move(other.subObject_);
        active_ = std::move(other.active_);
        other.id_ = 0;
    }
    return *this;
}

void SubscriptionHandle::stop() {
    if (id_ == 0) return;
    if (active_ && active_->exchange(false)) {
        SubscribersRegistryTable<512>::unregisterSubscription(domain_, object_, signal_, pid_, subObject_);
    }
    LoopPoller::instance().remove(id_);
    id_ = 0;
}

void SubscriptionHandle::stopAfter_(int timeoutMs) {
    if (id_ == 0 || timeoutMs <= 0) return;
    auto active = active_;
    KyTimer::singleShot(timeoutMs, [active, id = id_, domain = domain_, object = object_, signal = signal_,
                                    pid = pid_, subObject = subObject_] {
        if (active->exchange(false)) {
            SubscribersRegistryTable<512>::unregisterSubscription(domain, object, signal, pid, subObject);
        }
        LoopPoller::instance().remove(id);
    });
}

SubscriptionHandle subscribe_(const KyString& domain, const KyString& object, const KyString& name,
                              const KyString& subObject, std::function<void()> closure, int timeoutMs) {
    const uint64_t id = LoopPoller::instance().add(std::move(closure));
    SubscribersRegistryTable<512>::registerSubscription(domain, object, name, static_cast<uint32_t>(getpid()),
                                                        subObject);
    SubscriptionHandle handle(id, domain, object, name, subObject);
    handle.stopAfter_(timeoutMs);
    return handle;
}

KyString currentSubscriberObject_() { return tSubscriberObject; }

ScopedSubscriberObject::ScopedSubscriberObject(const KyString& name) : previous_(tSubscriberObject) {
    tSubscriberObject = name;
}

ScopedSubscriberObject::~ScopedSubscriberObject() { tSubscriberObject = previous_; }

}  // namespace ky::ipc::detail
