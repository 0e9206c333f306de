// KyObject: the base of everything that has a parent, a thread, properties or
// signals.
//
// An object belongs to the thread that constructed it (its ky::atomic::Thread,
// or none on a thread that has no Thread). Its tree (parent, children), its
// properties and its event filters belong to that thread and have no lock.
// What other threads may touch: isLive(), thread(), the connection tables
// (under the object's connection lock), the back-reference table (under its
// own mutex), emitting signals, deleteLater(), postTaskToThread() and
// executeBlockingOnThread().
//
// Every object is entered in one process-wide liveness set while it exists;
// every deferred or cross-thread path asks isLive() before it touches an
// object, so a stale pointer is an expected condition, not an error.
//
// Signals are plain member functions that emit (KY_SIGNAL); a connection holds
// a slot and a ConnectionType. Each signal's list is immutable once published:
// writers copy it, change the copy and swap it in under the write lock, so an
// emission's snapshot is one shared pointer taken under the read lock. Slots
// run from that snapshot with no lock held, so a slot may connect, disconnect
// or delete the sender. Lock order: the liveness lock, then
// a sender's connection lock or a receiver's back-reference mutex; a sender's
// connection lock is released before a receiver's back-reference mutex is taken.
#pragma once

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "core/object/KyEvent.h"
#include "core/object/KySlot.h"
#include "core/runtime/KyReadWriteLock.h"
#include "core/types/KyAny.h"
#include "core/types/KyList.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"
#include "core/types/KyVector.h"

namespace ky::atomic {
class Thread;
}

// KY_PROPERTY(Type, Name) declares a property of a KyObject subclass: the value
// Name_, `const Type& getName() const`, `void setName(const Type&)`, the
// virtual `on_Name_changed(const Type&)` (empty), the signal
// `NameChanged(const Type&)` and `register_Name_setter()`, which enters setter,
// getter and the type name "Type" in the object's property tables; it runs as
// the value is initialised, so every instance has its properties registered.
// A setter given an equal value does nothing; otherwise it stores the value,
// calls on_Name_changed, sets the dynamic property and emits NameChanged.
// Type needs ==, and its spelling is the name KyAny knows it by. The macros
// leave access public.
#define KY_PROPERTY(Type, Name) KY_PROPERTY_INIT(Type, Name, Type{})
/// KY_PROPERTY with an initial value.
#define KY_PROPERTY_INIT(Type, Name, Init) \
    KY_PROPERTY_HANDLED(Type, Name, Init) \
    virtual void on_##Name##_changed(const Type&) {}
/// KY_PROPERTY for a class that declares `virtual void on_Name_changed(const Type&)` itself.
#define KY_PROPERTY_HANDLED(Type, Name, Init) \
public: \
    const Type& get##Name() const { return Name##_; } \
    void set##Name(const Type& value) { \
        if (Name##_ == value) return; \
        Name##_ = value; \
        on_##Name##_changed(Name##_); \
        this->setDynamicProperty_(#Name, KyAny(Name##_)); \
        Name##Changed(Name##_); \
    } \
    KY_SIGNAL1_(Name##Changed, const Type&) \
    void register_##Name##_setter() { \
        this->registerProperty_( \
            #Name, #Type, [this](void* v) { set##Name(*static_cast<const Type*>(v)); }, \
            [this]() -> void* { return &Name##_; }); \
    } \
\
private: \
    Type Name##_ = (register_##Name##_setter(), Type(Init)); \
\
public:

// KY_OBJECT(Class, Base) gives a subclass its className() and classHierarchy().
#define KY_OBJECT(Class, Base) \
public: \
    KyString className() const override { return KyString(#Class); } \
    KyList<KyString> classHierarchy() const override { \
        KyList<KyString> chain = Base::classHierarchy(); \
        chain.prepend(KyString(#Class)); \
        return chain; \
    } \
\
private:

/// Object with a tree, a thread, properties, events and signals.
class KyObject {
public:
    /// How a connection is delivered. Auto runs at once when the receiver has
    /// no thread or shares the sender's, and is queued otherwise.
    enum ConnectionType : int { ConnectionAuto = 0, ConnectionDirect = 1, ConnectionQueued = 2, ConnectionBlocking = 3 };

    /// Names a signal declared as a member function: the pointer-to-member's
    /// type and the bytes of the pointer (held inline: a member function
    /// pointer takes at most kMaxBytes, and an emission builds a key each time).
    struct SignalKey {
        static constexpr std::size_t kMaxBytes = 16;
        const std::type_info* type = nullptr;
        unsigned char bytes[kMaxBytes] = {}; ///< Zero past size.
        std::size_t size = 0;
        bool operator<(const SignalKey& other) const;
        bool operator==(const SignalKey& other) const;
    };
    using ConnectionEntry = std::pair<std::shared_ptr<ISlotBase>, ConnectionType>;
    using ConnectionList = KyVector<ConnectionEntry>;
    /// A published list; never changed after it is shared.
    using SharedConnectionList = std::shared_ptr<const ConnectionList>;

private:
    // Declared before the properties below: they register themselves here
    // while they are initialised.
    KyMap<KyString, std::function<void(void*)>> propertySetters_;
    KyMap<KyString, std::function<void*()>> propertyGetters_;
    KyMap<KyString, KyString> propertyTypes_;
    KyMap<KyString, KyAny> dynamicProperties_;
    KyVector<KyObject*> eventFilters_;

public:
    KY_PROPERTY(KyString, ObjectName)

    explicit KyObject(KyObject* parent = nullptr);
    /// Tears the object down in a fixed order: leaves the liveness set, drops
    /// the connections that end here, deletes the children, leaves the parent
    /// and the thread, emits destroyed(), then drops its own connections.
    virtual ~KyObject();
    KyObject(const KyObject&) = delete;
    KyObject& operator=(const KyObject&) = delete;

    /// Type 2 deletes the object; types 3 and 4 go to childEvent. Others: false.
    virtual bool event(KyEvent* event);
    /// Return true to stop the event from reaching watched.
    virtual bool eventFilter(KyObject* watched, KyEvent* event);
    /// By default calls addChildEvent or removedChildEvent.
    virtual void childEvent(KyChildEvent* event);
    virtual KyString className() const;
    /// The class chain, most derived first, ending in "KyObject".
    virtual KyList<KyString> classHierarchy() const;
    virtual void addChild(KyObject* child);
    virtual void removeChild(KyObject* child);
    virtual void addChildEvent(KyObject* child);
    virtual void removedChildEvent(KyObject* child);
    virtual void newParentEvent(KyObject* parent);
    virtual void onThreadChanged(ky::atomic::Thread* thread);

    // Tree.
    KyObject* parent() const { return parent_; }
    void setParent(KyObject* parent);
    const KyVector<KyObject*>& children() const { return children_; }

    // Lifetime and thread.
    static bool isLive(const void* object);
    /// The owning thread, or null for an object made on a thread without one.
    ky::atomic::Thread* thread() const;
    /// Moves a parentless object and its descendants to target. Only from the
    /// owning thread (or for an object with no thread); false otherwise.
    bool moveToThread(ky::atomic::Thread* target);
    /// Deletes the object later, on its own thread, through a deferred delete event.
    void deleteLater();
    /// Runs task on target's loop. When target is not live it goes to the calling
    /// thread's Thread, else the shared fallback thread, else the caller's own loop.
    static void postTaskToThread(ky::atomic::Thread* target, std::function<void()> task);
    /// Runs task on target and waits for it; inline when target is the calling
    /// thread, not live or not started.
    static void executeBlockingOnThread(ky::atomic::Thread* target, std::function<void()> task);

    // Event filters, newest last; consulted newest first.
    void installEventFilter(KyObject* filter);
    void removeEventFilter(KyObject* filter);
    const KyVector<KyObject*>& eventFilters() const { return eventFilters_; }

    // Properties.
    /// The property's value: the registered getter first, then the dynamic
    /// table. A missing name is logged and gives an empty KyAny.
    KyAny property(const KyString& name) const;
    bool propertyExist(const KyString& name) const;
    /// A registered property is set through its setter when value holds its
    /// type (false otherwise); any other name is stored as a dynamic property.
    bool setProperty(const KyString& name, const KyAny& value);
    /// The registered type name of a property, or empty.
    KyString propertyTypeName(const KyString& name) const;
    KyList<KyString> dynamicPropertyNames() const;

    // Signals declared here; each call emits.
    KY_SIGNAL(childAdded, KyObject*)
    KY_SIGNAL(childRemoved, KyObject*)
    KY_SIGNAL(destroyed)

    /// While false, signals of this object are not emitted (destroyed() is, always).
    bool signalsEnabled() const { return signalsEnabled_.load(std::memory_order_relaxed); }
    /// Returns the previous setting.
    bool setSignalsEnabled(bool enabled);
    /// The sender of the signal whose slot is running on this receiver (null
    /// when that sender was gone). Written before each slot, never cleared.
    KyObject* sender() const { return currentSender_.load(std::memory_order_acquire); }
    /// A free-form label for diagnostics; the framework does not interpret it.
    const KyString& debugLabel() const { return debugLabel_; }
    void setDebugLabel(const KyString& label) { debugLabel_ = label; }

    // Connections.
    template <typename C, typename... A> static SignalKey createSignalKey(void (C::*signal)(A...));

    template <typename T, typename... A> bool addConnection(const SignalKey& key, ISlot<T, A...>* slot, ConnectionType type);
    template <typename T, typename... A> bool addConnection(const KyString& name, ISlot<T, A...>* slot, ConnectionType type);

    /// Emits a signal named by its member function.
    template <typename C, typename... A, typename... P> void emitSignal(void (C::*signal)(A...), P&&... args);
    /// Emits under a key; A are the signal's parameter types, given explicitly.
    template <typename... A> void emitSignal(const SignalKey& key, std::type_identity_t<A>... args);
    /// Emits a signal named by text; slots connected with other argument types are skipped.
    template <typename... A> void emitSignal(const KyString& name, A... args);

    template <typename S, typename SC, typename... SA, typename R, typename RC, typename... RA>
        requires std::is_base_of_v<SC, S> && std::is_base_of_v<RC, R>
    static bool connect(S* sender, void (SC::*signal)(SA...), R* receiver, void (RC::*slot)(RA...),
                        ConnectionType type = ConnectionAuto);
    template <typename S, typename SC, typename... SA, typename F>
        requires std::is_base_of_v<SC, S> && ky::detail::IsPlainCallable<F>
    static bool connect(S* sender, void (SC::*signal)(SA...), F&& fn, ConnectionType type = ConnectionAuto);
    template <typename S, typename SC, typename... SA, typename F>
        requires std::is_base_of_v<SC, S> && ky::detail::IsPlainCallable<F>
    static bool connect(S* sender, void (SC::*signal)(SA...), KyObject* context, F&& fn,
                        ConnectionType type = ConnectionAuto);
    template <typename F>
        requires ky::detail::IsPlainCallable<F>
    static bool connect(KyObject* sender, const KyString& signalName, F&& fn, ConnectionType type = ConnectionAuto);
    template <typename F>
        requires ky::detail::IsPlainCallable<F>
    static bool connect(KyObject* sender, const KyString& signalName, KyObject* context, F&& fn,
                        ConnectionType type = ConnectionAuto);

    /// Removes every connection of sender that ends at receiver; returns how many.
    static int disconnect(KyObject* sender, KyObject* receiver);
    /// Removes every connection of one signal; returns how many.
    template <typename S, typename SC, typename... SA> static int disconnect(S* sender, void (SC::*signal)(SA...));
    static int disconnect(KyObject* sender, const KyString& signalName);
    /// Removes every connection of this object that ends at receiver.
    int disconnectReceiver(KyObject* receiver);

    /// Connections held by this object, in both tables.
    int connectionCount() const;
    template <typename C, typename... A> int connectionCount(void (C::*signal)(A...)) const {
        return connectionCount_(createSignalKey(signal));
    }
    /// How many connections of sender end at this object.
    int backReferenceCount(const KyObject* sender) const;

protected:
    /// Stores a dynamic property without notification (the property pattern's middle step).
    void setDynamicProperty_(const KyString& name, const KyAny& value);
    void registerProperty_(const KyString& name, const KyString& typeName, std::function<void(void*)> setter,
                           std::function<void*()> getter);

private:
    enum class Route_ { Skip, Now, Post, Block };
    struct Delivery_ {
        Route_ route = Route_::Skip;
        KyObject* receiver = nullptr;
        ky::atomic::Thread* target = nullptr;
    };

    bool addConnection_(const SignalKey* key, const KyString* name, std::shared_ptr<ISlotBase> slot,
                        ConnectionType type);
    SharedConnectionList snapshot_(const SignalKey* key, const KyString* name) const;
    void noteConnectionsChanged_();
    ky::atomic::Thread* senderThread_() const;
    static bool needsSenderThread_(const ConnectionList& snapshot);
    static Delivery_ route_(ky::atomic::Thread* senderThread, const ISlotBase* slot, ConnectionType type);
    static bool prepareDelivery_(KyObject* receiver, KyObject* sender);
    static void warnSlotMismatch_();
    int disconnectKey_(const SignalKey* key, const KyString* name);
    int connectionCount_(const SignalKey& key) const;
    static int removeReceiverConnectionsFromList_(ConnectionList& list, KyObject* receiver, KyMap<KyObject*, int>& removed);
    template <typename K>
    static int removeReceiverFromTable_(KyMap<K, SharedConnectionList>& table, KyObject* receiver,
                                        KyMap<KyObject*, int>& removed);
    void unregisterReceiverBackrefs_(const KyMap<KyObject*, int>& counts);
    void registerReceiverBackrefs_(const KyMap<KyObject*, int>& counts);
    void deliverChildEvent_(KyChildEvent* event);
    void setThreadRecursive_(ky::atomic::Thread* target);

    template <bool Checked, typename... A> void dispatchSlots_(const ConnectionList& snapshot, A... args);
    template <typename... A> static std::function<void(A...)> adaptCallable_(auto&& fn);

    std::atomic<bool> signalsEnabled_{true};
    KyObject* parent_ = nullptr;
    KyVector<KyObject*> children_;
    KyString debugLabel_;

    mutable KyReadWriteLock connectionLock_;
    KyMap<SignalKey, SharedConnectionList> connections_;
    KyMap<KyString, SharedConnectionList> namedConnections_;
    // Whether either table has an entry; written under the write lock, read
    // without it so that a signal nobody listens to costs no lock.
    std::atomic<bool> hasConnections_{false};

    mutable std::mutex backRefMutex_;
    KyMap<KyObject*, int> backRefs_;

    std::atomic<KyObject*> currentSender_{nullptr};
    std::atomic<ky::atomic::Thread*> thread_{nullptr};
};

/// Asks filter about event for target; false when any is null or either object is gone.
bool kyDispatchEventFilter(KyObject* filter, KyObject* target, KyEvent* event);

/// KyPointer asks the liveness set about the KyObject base address.
inline const void* kyLivenessKey(const KyObject* object) noexcept { return object; }


// ---- Template bodies: thin; the work is in KyObject.cpp. ----

template <typename C, typename... A> KyObject::SignalKey KyObject::createSignalKey(void (C::*signal)(A...)) {
    static_assert(sizeof(signal) <= SignalKey::kMaxBytes, "member function pointer larger than a signal key");
    SignalKey key;
    key.type = &typeid(signal);
    std::memcpy(key.bytes, &signal, sizeof(signal));
    key.size = sizeof(signal);
    return key;
}

template <typename T, typename... A>
bool KyObject::addConnection(const SignalKey& key, ISlot<T, A...>* slot, ConnectionType type) {
    // The shared pointer owns the slot from here on, so a throw below deletes it.
    return addConnection_(&key, nullptr, std::shared_ptr<ISlotBase>(slot), type);
}

template <typename T, typename... A>
bool KyObject::addConnection(const KyString& name, ISlot<T, A...>* slot, ConnectionType type) {
    return addConnection_(nullptr, &name, std::shared_ptr<ISlotBase>(slot), type);
}

template <typename C, typename... A, typename... P> void KyObject::emitSignal(void (C::*signal)(A...), P&&... args) {
    emitSignal<A...>(createSignalKey(signal), std::forward<P>(args)...);
}

template <typename... A> void KyObject::emitSignal(const SignalKey& key, std::type_identity_t<A>... args) {
    if (!hasConnections_.load(std::memory_order_acquire)) return;
    const SharedConnectionList snapshot = snapshot_(&key, nullptr);
    if (!snapshot) return;
    dispatchSlots_<false, A...>(*snapshot, std::forward<A>(args)...);
}

template <typename... A> void KyObject::emitSignal(const KyString& name, A... args) {
    if (!hasConnections_.load(std::memory_order_acquire)) return;
    const SharedConnectionList snapshot = snapshot_(nullptr, &name);
    if (!snapshot) return;
    dispatchSlots_<true, A...>(*snapshot, std::move(args)...);
}

template <bool Checked, typename... A> void KyObject::dispatchSlots_(const ConnectionList& snapshot, A... args) {
    // A slot may delete the sender: nothing below reads a member after the
    // first slot has run, and the sender travels only as an address.
    KyObject* const sender = this;
    ky::atomic::Thread* const senderThread = needsSenderThread_(snapshot) ? senderThread_() : nullptr;
    for (const ConnectionEntry& entry : snapshot) {
        ITypedSlot<A...>* typed = nullptr;
        if constexpr (Checked) {
            typed = dynamic_cast<ITypedSlot<A...>*>(entry.first.get());
            if (!typed) {
                warnSlotMismatch_();
                continue;
            }
        } else {
            // The key names the signal's exact parameter list, so every slot under it has this type.
            typed = static_cast<ITypedSlot<A...>*>(entry.first.get());
        }
        // A direct call needs no thread: its receiver's liveness is tested as it is called.
        const Delivery_ d = entry.second == ConnectionDirect
                                ? Delivery_{Route_::Now, entry.first->receiverRaw(), nullptr}
                                : route_(senderThread, entry.first.get(), entry.second);
        if (d.route == Route_::Skip) continue;
        if (d.route == Route_::Now) {
            if (prepareDelivery_(d.receiver, sender)) typed->invokeRaw(static_cast<A>(args)...);
            continue;
        }
        std::function<void()> task = [slot = entry.first, typed, receiver = d.receiver, sender,
                                      values = std::tuple<std::decay_t<A>...>(args...)]() mutable {
            if (!prepareDelivery_(receiver, sender)) return;
            std::apply([&](auto&... v) { typed->invokeRaw(static_cast<A>(v)...); }, values);
        };
        if (d.route == Route_::Post)
            postTaskToThread(d.target, std::move(task));
        else
            executeBlockingOnThread(d.target, std::move(task));
    }
}

template <typename... A> std::function<void(A...)> KyObject::adaptCallable_(auto&& fn) {
    using F = std::decay_t<decltype(fn)>;
    if constexpr (std::is_invocable_v<F&, A...>) {
        return std::function<void(A...)>(std::forward<decltype(fn)>(fn));
    } else {
        // A slot that ignores the signal's arguments.
        static_assert(std::is_invocable_v<F&>, "the slot must take the signal's arguments or none");
        return [f = F(std::forward<decltype(fn)>(fn))](A...) mutable { f(); };
    }
}

template <typename S, typename SC, typename... SA, typename R, typename RC, typename... RA>
    requires std::is_base_of_v<SC, S> && std::is_base_of_v<RC, R>
bool KyObject::connect(S* sender, void (SC::*signal)(SA...), R* receiver, void (RC::*slot)(RA...),
                       ConnectionType type) {
    static_assert(std::is_base_of_v<KyObject, RC>, "a member slot's class must derive from KyObject");
    if (!sender || !signal || !receiver || !slot) return false;
    RC* target = receiver;
    if constexpr (std::is_same_v<ky::detail::TypeList<SA...>, ky::detail::TypeList<RA...>>) {
        return sender->addConnection(createSignalKey(signal), new SlotFunctionReceiver<RC, SA...>(target, slot), type);
    } else if constexpr (sizeof...(RA) == 0) {
        return sender->addConnection(createSignalKey(signal),
                                     new SlotFunctionContext<SA...>(target, [target, slot](SA...) { (target->*slot)(); }),
                                     type);
    } else {
        static_assert(std::is_invocable_v<void (RC::*)(RA...), RC*, SA...>, "the slot must accept the signal's arguments");
        return sender->addConnection(
            createSignalKey(signal),
            new SlotFunctionContext<SA...>(target, [target, slot](SA... a) { (target->*slot)(static_cast<SA>(a)...); }),
            type);
    }
}

template <typename S, typename SC, typename... SA, typename F>
    requires std::is_base_of_v<SC, S> && ky::detail::IsPlainCallable<F>
bool KyObject::connect(S* sender, void (SC::*signal)(SA...), F&& fn, ConnectionType type) {
    if (!sender || !signal) return false;
    return sender->addConnection(createSignalKey(signal), new SlotFunction<SA...>(adaptCallable_<SA...>(std::forward<F>(fn))),
                                 type);
}

template <typename S, typename SC, typename... SA, typename F>
    requires std::is_base_of_v<SC, S> && ky::detail::IsPlainCallable<F>
bool KyObject::connect(S* sender, void (SC::*signal)(SA...), KyObject* context, F&& fn, ConnectionType type) {
    if (!sender || !signal || !context) return false;
    return sender->addConnection(createSignalKey(signal),
                                 new SlotFunctionContext<SA...>(context, adaptCallable_<SA...>(std::forward<F>(fn))), type);
}

template <typename F>
    requires ky::detail::IsPlainCallable<F>
bool KyObject::connect(KyObject* sender, const KyString& signalName, F&& fn, ConnectionType type) {
    if (!sender) return false;
    return [&]<typename... A>(ky::detail::TypeList<A...>) {
        return sender->addConnection(signalName, new SlotFunction<A...>(adaptCallable_<A...>(std::forward<F>(fn))), type);
    }(typename ky::detail::CallableArgs<F>::type{});
}

template <typename F>
    requires ky::detail::IsPlainCallable<F>
bool KyObject::connect(KyObject* sender, const KyString& signalName, KyObject* context, F&& fn, ConnectionType type) {
    if (!sender || !context) return false;
    return [&]<typename... A>(ky::detail::TypeList<A...>) {
        return sender->addConnection(signalName, new SlotFunctionContext<A...>(context, adaptCallable_<A...>(std::forward<F>(fn))),
                                     type);
    }(typename ky::detail::CallableArgs<F>::type{});
}

template <typename S, typename SC, typename... SA> int KyObject::disconnect(S* sender, void (SC::*signal)(SA...)) {
    if (!sender || !signal) return 0;
    const SignalKey key = createSignalKey(signal);
    return sender->disconnectKey_(&key, nullptr);
}
