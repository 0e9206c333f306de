// KyObject: tree, lifetime, liveness, events, properties, and the non-template
// half of signals and slots. Thread rules are in KyObject.h.
#include "core/object/KyObject.h"

#include <cxxabi.h>
#include <pthread.h>

#include <algorithm>
#include <bit>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <unordered_set>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "core/types/KyPointer.h"

namespace {

constexpr const char* kCategory = "ky.core.object.kyobject";

// Both live for the whole process: objects may still be destroyed by static
// destructors and by threads that outlive main(), so they are never freed.
std::unordered_set<const void*>& s_liveObjects_() {
    static auto* set = new std::unordered_set<const void*>();
    return *set;
}

KyReadWriteLock& s_liveObjectsMutex_() {
    static auto* lock = new KyReadWriteLock();
    return *lock;
}

bool isLiveLocked(const void* object) { return s_liveObjects_().count(object) != 0; }

// A word loaded from memory, as a number whose order is the bytes' memcmp order.
std::uint64_t bigEndian(std::uint64_t word) {
    if constexpr (std::endian::native == std::endian::little) return __builtin_bswap64(word);
    return word;
}

} // namespace

// ---------------------------------------------------------------------------
// Signal keys

bool KyObject::SignalKey::operator<(const SignalKey& other) const {
    const char* a = type ? type->name() : "";
    const char* b = other.type ? other.type->name() : "";
    if (a != b) {
        // Names that begin with '*' are unique to one definition and are
        // compared by address, as std::type_info::before does.
        if (a[0] == '*' || b[0] == '*') {
            if (a < b) return true;
            if (b < a) return false;
        } else {
            const int c = std::strcmp(a, b);
            if (c != 0) return c < 0;
        }
    }
    if (size == other.size) {
        // The common case (every key of this ABI has 16 bytes). Bytes past
        // size are zero in both, so comparing whole big-endian words gives
        // memcmp's order.
        for (std::size_t i = 0; i < kMaxBytes; i += sizeof(std::uint64_t)) {
            std::uint64_t x = 0;
            std::uint64_t y = 0;
            std::memcpy(&x, bytes + i, sizeof x);
            std::memcpy(&y, other.bytes + i, sizeof y);
            if (x != y) return bigEndian(x) < bigEndian(y);
        }
        return false;
    }
    const std::size_t n = size < other.size ? size : other.size;
    const int c = n ? std::memcmp(bytes, other.bytes, n) : 0;
    if (c != 0) return c < 0;
    return size < other.size;
}

bool KyObject::SignalKey::operator==(const SignalKey& other) const { return !(*this < other) && !(other < *this); }

// ---------------------------------------------------------------------------
// Construction and destruction

KyObject::KyObject(KyObject* parent) {
    // The property tables and "ObjectName" are in place: members initialise first.
    static std::once_flag checkerOnce;
    std::call_once(checkerOnce, [] { ky::setLivenessChecker(&KyObject::isLive); });
    {
        KyWriteLocker lock(s_liveObjectsMutex_());
        s_liveObjects_().insert(this);
    }
    if (ky::atomic::Thread* current = ky::atomic::Thread::currentThread()) {
        current->attachObject(this);
        thread_.store(current, std::memory_order_release);
    }
    if (parent) setParent(parent);
}

KyObject::~KyObject() {
    // 1. From here on every deferred path skips this object.
    {
        KyWriteLocker lock(s_liveObjectsMutex_());
        s_liveObjects_().erase(this);
    }
    // 2-3. Senders drop their connections that end here.
    KyMap<KyObject*, int> senders;
    {
        std::lock_guard lock(backRefMutex_);
        senders.swap(backRefs_);
    }
    for (const auto& entry : senders) {
        // The read lock keeps a live sender from passing its own step 1 meanwhile.
        KyReadLocker lock(s_liveObjectsMutex_());
        if (isLiveLocked(entry.first)) entry.first->disconnectReceiver(this);
    }
    // 4. Children go; a cleared parent pointer keeps them from calling back here.
    const KyVector<KyObject*> kids = children_;
    for (KyObject* child : kids) {
        if (!isLive(child) || child->parent_ != this) continue;
        child->parent_ = nullptr;
        delete child;
    }
    children_.clear();
    // 5.
    if (KyObject* oldParent = parent_) {
        parent_ = nullptr;
        if (isLive(oldParent)) oldParent->removeChild(this);
    }
    // 6.
    if (ky::atomic::Thread* owner = thread_.exchange(nullptr, std::memory_order_acq_rel))
        ky::atomic::Thread::detachObjectIfLive_(owner, this);
    // 7. Last of all the observers see an object with no tree and no thread.
    signalsEnabled_ = true;
    destroyed();
    // 8. Own connections go; their receivers' back-references go down.
    KyMap<SignalKey, SharedConnectionList> keyed;
    KyMap<KyString, SharedConnectionList> named;
    {
        KyWriteLocker lock(connectionLock_);
        keyed.swap(connections_);
        named.swap(namedConnections_);
        noteConnectionsChanged_();
    }
    KyMap<KyObject*, int> counts;
    for (const auto& [key, list] : keyed)
        for (const auto& entry : *list)
            if (KyObject* r = entry.first->receiverRaw()) ++counts[r];
    for (const auto& [name, list] : named)
        for (const auto& entry : *list)
            if (KyObject* r = entry.first->receiverRaw()) ++counts[r];
    unregisterReceiverBackrefs_(counts);
    // 9. The rest goes with the members.
}

bool KyObject::isLive(const void* object) {
    if (!object) return false;
    KyReadLocker lock(s_liveObjectsMutex_());
    return isLiveLocked(object);
}

ky::atomic::Thread* KyObject::thread() const { return thread_.load(std::memory_order_acquire); }

// ---------------------------------------------------------------------------
// Tree

void KyObject::setParent(KyObject* parent) {
    for (KyObject* p = parent; p; p = p->parent_) {
        if (p == this) {
            kyLogWarning(kCategory) << "setParent refused: the new parent is the object or one of its descendants";
            return;
        }
    }
    if (KyObject* old = parent_) old->removeChild(this);
    parent_ = parent;
    if (parent) parent->addChild(this);
    newParentEvent(parent);
}

void KyObject::addChild(KyObject* child) {
    children_.push_back(child);
    childAdded(child);
    KyChildEvent event(KyEvent::ChildAdded, child);
    deliverChildEvent_(&event);
}

void KyObject::removeChild(KyObject* child) {
    children_.removeAll(child);
    childRemoved(child);
    KyChildEvent event(KyEvent::ChildRemoved, child);
    deliverChildEvent_(&event);
}

void KyObject::deliverChildEvent_(KyChildEvent* event) {
    if (!isLive(this)) return;
    if (KyCoreApplication* app = KyCoreApplication::instance(false)) {
        app->notify(this, event);
        return;
    }
    // No loop on this thread: the object's own filters, newest first, then event().
    const KyVector<KyObject*> filters = eventFilters_;
    for (auto it = filters.rbegin(); it != filters.rend(); ++it)
        if (kyDispatchEventFilter(*it, this, event)) return;
    if (isLive(this)) this->event(event);
}

void KyObject::addChildEvent(KyObject*) {}
void KyObject::removedChildEvent(KyObject*) {}
void KyObject::newParentEvent(KyObject*) {}
void KyObject::onThreadChanged(ky::atomic::Thread*) {}

// ---------------------------------------------------------------------------
// Events

bool KyObject::event(KyEvent* event) {
    if (!event) return false;
    switch (event->type()) {
    case KyEvent::DeferredDelete:
        delete this;
        return true;
    case KyEvent::ChildAdded:
    case KyEvent::ChildRemoved: {
        auto* childEvent = dynamic_cast<KyChildEvent*>(event);
        if (!childEvent) return false;
        this->childEvent(childEvent);
        event->setAccepted(true);
        return true;
    }
    default:
        return false;
    }
}

bool KyObject::eventFilter(KyObject*, KyEvent*) { return false; }

void KyObject::childEvent(KyChildEvent* event) {
    if (!event) return;
    if (event->added())
        addChildEvent(event->child());
    else if (event->removed())
        removedChildEvent(event->child());
}

KyString KyObject::className() const {
    const char* mangled = typeid(*this).name();
    int status = 0;
    char* readable = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
    KyString name(status == 0 && readable ? readable : mangled);
    std::free(readable);
    return name;
}

KyList<KyString> KyObject::classHierarchy() const { return KyList<KyString>{KyString("KyObject")}; }

void KyObject::installEventFilter(KyObject* filter) {
    if (!filter) return;
    // Installing again moves the filter to the newest place.
    eventFilters_.removeAll(filter);
    eventFilters_.push_back(filter);
}

void KyObject::removeEventFilter(KyObject* filter) { eventFilters_.removeAll(filter); }

bool kyDispatchEventFilter(KyObject* filter, KyObject* target, KyEvent* event) {
    if (!filter || !target || !event) return false;
    if (!KyObject::isLive(filter) || !KyObject::isLive(target)) return false;
    return filter->eventFilter(target, event);
}

// ---------------------------------------------------------------------------
// Threads

bool KyObject::moveToThread(ky::atomic::Thread* target) {
    ky::atomic::Thread* owner = thread();
    if (owner == target) return true;
    if (owner && ky::atomic::Thread::isLive(owner) && owner != ky::atomic::Thread::currentThread()) {
        kyLogWarning(kCategory) << "moveToThread refused: called from a thread that does not own the object";
        return false;
    }
    if (parent_) {
        kyLogWarning(kCategory) << "moveToThread refused: the object has a parent";
        return false;
    }
    if (target && !ky::atomic::Thread::isLive(target)) {
        kyLogWarning(kCategory) << "moveToThread refused: the target thread is not running";
        return false;
    }
    setThreadRecursive_(target);
    return true;
}

void KyObject::setThreadRecursive_(ky::atomic::Thread* target) {
    if (ky::atomic::Thread* old = thread_.load(std::memory_order_acquire))
        ky::atomic::Thread::detachObjectIfLive_(old, this);
    if (target && !ky::atomic::Thread::attachObjectIfLive_(target, this)) target = nullptr;
    thread_.store(target, std::memory_order_release);
    onThreadChanged(target);
    for (KyObject* child : children_)
        if (isLive(child) && child->parent_ == this) child->setThreadRecursive_(target);
}

void KyObject::deleteLater() {
    KyObject* self = this;
    postTaskToThread(thread(), [self] {
        if (!isLive(self)) return;
        if (KyCoreApplication* app = KyCoreApplication::instance(false))
            app->postEvent(self, new KyDeferredDeleteEvent(), 0);
        else
            delete self;
    });
}

void KyObject::postTaskToThread(ky::atomic::Thread* target, std::function<void()> task) {
    using ky::atomic::Thread;
    if (!task) return;
    if (target && Thread::postTaskIfLive_(target, task)) return;
    Thread* current = Thread::currentThread();
    if (current) {
        if (Thread::postTaskIfLive_(current, task)) return;
    } else if (Thread* fallback = Thread::sharedFallbackThread()) {
        if (Thread::postTaskIfLive_(fallback, task)) return;
    }
    KyCoreApplication::instance(true)->postEvent(std::move(task));
}

namespace {

// What a blocked caller waits on. The guard is shared by every copy of the
// posted wrapper; when the last copy goes without having run (a loop that
// dropped it while shutting down), it still wakes the caller.
struct BlockingCall {
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    bool ran = false;
    std::exception_ptr error;
    std::atomic<bool> keepWaiting{true};
    int yieldId = 0;

    void finish(bool didRun, std::exception_ptr thrown) {
        {
            std::lock_guard lock(mutex);
            if (finished) return;
            finished = true;
            ran = didRun;
            error = std::move(thrown);
        }
        keepWaiting.store(false, std::memory_order_release);
        done.notify_all();
        if (yieldId != 0) KyCoreApplication::routeYieldWakeAcrossInstances_(yieldId, KyFiberLaneUrgent);
    }
};

struct BlockingGuard {
    explicit BlockingGuard(std::shared_ptr<BlockingCall> c) : call(std::move(c)) {}
    BlockingGuard(const BlockingGuard&) = delete;
    BlockingGuard& operator=(const BlockingGuard&) = delete;
    ~BlockingGuard() { call->finish(false, nullptr); }
    std::shared_ptr<BlockingCall> call;
};

} // namespace

void KyObject::executeBlockingOnThread(ky::atomic::Thread* target, std::function<void()> task) {
    using ky::atomic::Thread;
    if (!task) return;
    const pthread_t handle = target ? target->nativeHandle() : pthread_t{};
    if (!target || !Thread::isLive(target) || handle == pthread_t{} || target == Thread::currentThread() ||
        pthread_equal(handle, pthread_self())) {
        task();
        return;
    }
    auto call = std::make_shared<BlockingCall>();
    // A caller on a pooled fiber yields instead of blocking its whole loop,
    // so two threads that call each other this way do not wedge.
    const bool onLoop = KyCoreApplication::instance(false) != nullptr;
    if (onLoop) call->yieldId = KyCoreApplication::generateYieldId();
    auto body = std::make_shared<std::function<void()>>(std::move(task));
    std::function<void()> wrapper = [call, body, guard = std::make_shared<BlockingGuard>(call)] {
        std::exception_ptr thrown;
        try {
            (*body)();
        } catch (...) {
            thrown = std::current_exception();
        }
        call->finish(true, std::move(thrown));
    };
    if (!Thread::postTaskIfLive_(target, wrapper)) {
        (*body)();
        return;
    }
    wrapper = nullptr;
    if (onLoop) {
        while (call->keepWaiting.load(std::memory_order_acquire)) {
            if (!KyCoreApplication::yieldCurrentFiber(call->yieldId, &call->keepWaiting)) break;
        }
    }
    {
        std::unique_lock lock(call->mutex);
        call->done.wait(lock, [&] { return call->finished; });
    }
    if (!call->ran) {
        // The target dropped the call unrun: its thread is gone, so the task
        // runs here, as it would for a thread that was not live.
        (*body)();
        return;
    }
    if (call->error) std::rethrow_exception(call->error);
}

// ---------------------------------------------------------------------------
// Properties

void KyObject::registerProperty_(const KyString& name, const KyString& typeName, std::function<void(void*)> setter,
                                 std::function<void*()> getter) {
    propertySetters_.insert(name, std::move(setter));
    propertyGetters_.insert(name, std::move(getter));
    propertyTypes_.insert(name, typeName);
}

void KyObject::setDynamicProperty_(const KyString& name, const KyAny& value) { dynamicProperties_.insert(name, value); }

KyAny KyObject::property(const KyString& name) const {
    auto getter = propertyGetters_.find(name);
    if (getter != propertyGetters_.end() && getter->second)
        return KyAny::fromVoidPtr(getter->second(), propertyTypes_.value(name));
    auto dynamic = dynamicProperties_.find(name);
    if (dynamic != dynamicProperties_.end()) return dynamic->second;
    kyLogWarning(kCategory) << "Property not found:" << name;
    return KyAny();
}

bool KyObject::propertyExist(const KyString& name) const {
    return propertyGetters_.contains(name) || dynamicProperties_.contains(name);
}

bool KyObject::setProperty(const KyString& name, const KyAny& value) {
    auto setter = propertySetters_.find(name);
    if (setter == propertySetters_.end()) {
        setDynamicProperty_(name, value);
        return true;
    }
    const KyString expected = propertyTypes_.value(name);
    if (!value.isValid() || value.typeName() != expected) {
        kyLogWarning(kCategory) << "Property" << name << "takes" << expected << "not" << value.typeName();
        return false;
    }
    KyAny copy(value);
    setter->second(copy.data());
    return true;
}

KyString KyObject::propertyTypeName(const KyString& name) const { return propertyTypes_.value(name); }

KyList<KyString> KyObject::dynamicPropertyNames() const { return dynamicProperties_.keys(); }

// ---------------------------------------------------------------------------
// Connections

bool KyObject::setSignalsEnabled(bool enabled) {
    return signalsEnabled_.exchange(enabled, std::memory_order_relaxed);
}

bool KyObject::addConnection_(const SignalKey* key, const KyString* name, std::shared_ptr<ISlotBase> slot,
                              ConnectionType type) {
    if (!slot) return false;
    if (type < ConnectionAuto || type > ConnectionBlocking) {
        kyLogWarning(kCategory) << "connect refused: unknown connection type" << static_cast<int>(type);
        return false;
    }
    KyObject* receiver = slot->receiverRaw();
    {
        KyWriteLocker lock(connectionLock_);
        // Emissions under way may hold the published list: change a copy. The
        // tables are touched only once the copy is complete, so a throw leaves
        // them as they were (and the slot is deleted with its pointer).
        auto publish = [&](auto& table, const auto& k) {
            auto it = table.find(k);
            auto next = it != table.end() ? std::make_shared<ConnectionList>(*it->second)
                                          : std::make_shared<ConnectionList>();
            next->emplace_back(std::move(slot), type);
            if (it != table.end())
                it->second = std::move(next);
            else
                table.emplace(k, std::move(next));
        };
        if (key)
            publish(connections_, *key);
        else
            publish(namedConnections_, *name);
        noteConnectionsChanged_();
    }
    // The sender's lock is released before the receiver's mutex is taken.
    if (receiver) registerReceiverBackrefs_(KyMap<KyObject*, int>{{receiver, 1}});
    return true;
}

KyObject::SharedConnectionList KyObject::snapshot_(const SignalKey* key, const KyString* name) const {
    if (!signalsEnabled_.load(std::memory_order_relaxed)) return nullptr;
    SharedConnectionList out;
    {
        // No code but the lookup runs under this hold, and nothing here takes
        // the lock again, so the bare read side is enough.
        KyUntrackedReadLocker lock(connectionLock_);
        if (key) {
            auto it = connections_.find(*key);
            if (it != connections_.end()) out = it->second;
        } else {
            auto it = namedConnections_.find(*name);
            if (it != namedConnections_.end()) out = it->second;
        }
    }
    if (out && out->empty()) return nullptr;
    return out;
}

void KyObject::noteConnectionsChanged_() {
    hasConnections_.store(!connections_.empty() || !namedConnections_.empty(), std::memory_order_release);
}

ky::atomic::Thread* KyObject::senderThread_() const {
    using ky::atomic::Thread;
    Thread* own = thread();
    return (own && Thread::isLive(own)) ? own : Thread::currentThread();
}

bool KyObject::needsSenderThread_(const ConnectionList& snapshot) {
    for (const ConnectionEntry& entry : snapshot)
        if (entry.second == ConnectionAuto) return true;
    return false;
}

KyObject::Delivery_ KyObject::route_(ky::atomic::Thread* senderThread, const ISlotBase* slot, ConnectionType type) {
    using ky::atomic::Thread;
    Delivery_ d;
    KyObject* receiver = slot->receiverRaw();
    d.receiver = receiver;
    // A direct call needs no thread; the receiver's liveness is tested when
    // the slot is called, which for a direct call is now.
    if (type == ConnectionDirect) {
        d.route = Route_::Now;
        return d;
    }
    Thread* receiverThread = nullptr;
    if (receiver) {
        KyUntrackedReadLocker lock(s_liveObjectsMutex_());
        if (!isLiveLocked(receiver)) return d;
        receiverThread = receiver->thread();
    }
    if (type == ConnectionAuto && senderThread && receiverThread == senderThread) {
        // The sender's thread is live or is the caller's own: no need to ask again.
        d.route = Route_::Now;
        return d;
    }
    if (receiverThread && Thread::isLive(receiverThread)) d.target = receiverThread;
    switch (type) {
    case ConnectionQueued:
        d.route = Route_::Post;
        break;
    case ConnectionBlocking:
        d.route = Route_::Block;
        break;
    default:
        if (!senderThread) {
            d.route = d.target ? Route_::Post : Route_::Now;
        } else if (!d.target || d.target == senderThread) {
            d.route = Route_::Now;
        } else {
            const pthread_t a = d.target->nativeHandle();
            const pthread_t b = senderThread->nativeHandle();
            d.route = (a != pthread_t{} && b != pthread_t{} && pthread_equal(a, b)) ? Route_::Now : Route_::Post;
        }
        break;
    }
    return d;
}

bool KyObject::prepareDelivery_(KyObject* receiver, KyObject* sender) {
    if (!receiver) return true;
    // A slot runs only after this hold is gone, so it cannot nest.
    KyUntrackedReadLocker lock(s_liveObjectsMutex_());
    if (!isLiveLocked(receiver)) return false;
    receiver->currentSender_.store(isLiveLocked(sender) ? sender : nullptr, std::memory_order_release);
    return true;
}

void KyObject::warnSlotMismatch_() {
    kyLogWarning(kCategory) << "Signal emitted by name skipped a slot that takes other argument types";
}

int KyObject::removeReceiverConnectionsFromList_(ConnectionList& list, KyObject* receiver,
                                                 KyMap<KyObject*, int>& removed) {
    int count = 0;
    auto keep = list.begin();
    for (auto it = list.begin(); it != list.end(); ++it) {
        if (it->first && it->first->receiverRaw() == receiver) {
            ++count;
            continue;
        }
        if (keep != it) *keep = std::move(*it);
        ++keep;
    }
    list.erase(keep, list.end());
    if (count) removed[receiver] += count;
    return count;
}

template <typename K>
int KyObject::removeReceiverFromTable_(KyMap<K, SharedConnectionList>& table, KyObject* receiver,
                                       KyMap<KyObject*, int>& removed) {
    int count = 0;
    for (auto it = table.begin(); it != table.end();) {
        const ConnectionList& current = *it->second;
        const bool hit = std::any_of(current.begin(), current.end(), [receiver](const ConnectionEntry& e) {
            return e.first && e.first->receiverRaw() == receiver;
        });
        if (!hit) {
            ++it;
            continue;
        }
        // Emissions under way may hold the published list: filter a copy.
        auto next = std::make_shared<ConnectionList>(current);
        count += removeReceiverConnectionsFromList_(*next, receiver, removed);
        if (next->empty()) {
            it = table.erase(it);
        } else {
            it->second = std::move(next);
            ++it;
        }
    }
    return count;
}

int KyObject::disconnect(KyObject* sender, KyObject* receiver) {
    return sender ? sender->disconnectReceiver(receiver) : 0;
}

int KyObject::disconnect(KyObject* sender, const KyString& signalName) {
    return sender ? sender->disconnectKey_(nullptr, &signalName) : 0;
}

int KyObject::disconnectReceiver(KyObject* receiver) {
    if (!receiver) return 0;
    KyMap<KyObject*, int> removed;
    int count = 0;
    {
        KyWriteLocker lock(connectionLock_);
        count += removeReceiverFromTable_(connections_, receiver, removed);
        count += removeReceiverFromTable_(namedConnections_, receiver, removed);
        noteConnectionsChanged_();
    }
    unregisterReceiverBackrefs_(removed);
    return count;
}

int KyObject::disconnectKey_(const SignalKey* key, const KyString* name) {
    SharedConnectionList list;
    {
        KyWriteLocker lock(connectionLock_);
        if (key) {
            auto it = connections_.find(*key);
            if (it == connections_.end()) return 0;
            list = std::move(it->second);
            connections_.erase(it);
        } else {
            auto it = namedConnections_.find(*name);
            if (it == namedConnections_.end()) return 0;
            list = std::move(it->second);
            namedConnections_.erase(it);
        }
        noteConnectionsChanged_();
    }
    KyMap<KyObject*, int> removed;
    for (const auto& entry : *list)
        if (KyObject* r = entry.first->receiverRaw()) ++removed[r];
    unregisterReceiverBackrefs_(removed);
    return list->count();
}

void KyObject::registerReceiverBackrefs_(const KyMap<KyObject*, int>& counts) {
    if (counts.empty()) return;
    KyReadLocker live(s_liveObjectsMutex_());
    for (const auto& [receiver, n] : counts) {
        if (n <= 0 || !isLiveLocked(receiver)) continue;
        std::lock_guard lock(receiver->backRefMutex_);
        receiver->backRefs_[this] += n;
    }
}

void KyObject::unregisterReceiverBackrefs_(const KyMap<KyObject*, int>& counts) {
    if (counts.empty()) return;
    KyReadLocker live(s_liveObjectsMutex_());
    for (const auto& [receiver, n] : counts) {
        if (n <= 0 || !isLiveLocked(receiver)) continue;
        std::lock_guard lock(receiver->backRefMutex_);
        auto it = receiver->backRefs_.find(this);
        if (it == receiver->backRefs_.end()) continue;
        it->second -= n;
        if (it->second <= 0) receiver->backRefs_.erase(it);
    }
}

int KyObject::connectionCount() const {
    KyReadLocker lock(connectionLock_);
    int count = 0;
    for (const auto& [key, list] : connections_) count += list->count();
    for (const auto& [name, list] : namedConnections_) count += list->count();
    return count;
}

int KyObject::connectionCount_(const SignalKey& key) const {
    KyReadLocker lock(connectionLock_);
    auto it = connections_.find(key);
    return it == connections_.end() ? 0 : it->second->count();
}

int KyObject::backReferenceCount(const KyObject* sender) const {
    std::lock_guard lock(backRefMutex_);
    auto it = backRefs_.find(const_cast<KyObject*>(sender));
    return it == backRefs_.end() ? 0 : it->second;
}
