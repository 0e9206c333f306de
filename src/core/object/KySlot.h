// The slots that signals call: a slot is an object that knows its receiver (a
// KyObject, or none) and how to call it with one signal's arguments.
//
// Connection tables hold slots through std::shared_ptr<ISlotBase>, so a
// delivery that is still queued on another thread keeps its slot alive after a
// disconnect. A slot is immutable once connected; it is called on whichever
// thread the connection type chooses, and never under a lock.
//   ISlotBase                 the polymorphic base the tables hold
//   ITypedSlot<Args...>       a slot for one argument list
//   ISlot<T, Args...>         a slot whose receiver has type T (void: none)
//   SlotFunction<Args...>     a std::function; no receiver
//   SlotFunctionReceiver<T, Args...>  a receiver and a member function
//   SlotFunctionContext<Args...>      a std::function bound to a context object,
//                                     which gives it a receiver (thread and liveness)
// Also here: KY_SIGNAL, which declares a signal as a member function that
// emits when called, and the callable traits the connect forms use.
#pragma once

#include <functional>
#include <type_traits>
#include <utility>

class KyObject;

// KY_SIGNAL(name, T1, ..., T5) declares `void name(T1, ...)`; calling it emits
// the signal through the class's emitSignal. Up to five parameters; a type
// with a comma needs an alias.
#define KY_SIGNAL(...) \
    KY_SIGNAL_PICK_(__VA_ARGS__, KY_SIGNAL5_, KY_SIGNAL4_, KY_SIGNAL3_, KY_SIGNAL2_, KY_SIGNAL1_, KY_SIGNAL0_)(__VA_ARGS__)
#define KY_SIGNAL_PICK_(_0, _1, _2, _3, _4, _5, NAME, ...) NAME
#define KY_SIGNAL_SELF_ std::remove_cvref_t<decltype(*this)>
#define KY_SIGNAL0_(Name) \
    void Name() { this->emitSignal(&KY_SIGNAL_SELF_::Name); }
#define KY_SIGNAL1_(Name, T1) \
    void Name(T1 a1) { this->emitSignal(&KY_SIGNAL_SELF_::Name, std::forward<T1>(a1)); }
#define KY_SIGNAL2_(Name, T1, T2) \
    void Name(T1 a1, T2 a2) { this->emitSignal(&KY_SIGNAL_SELF_::Name, std::forward<T1>(a1), std::forward<T2>(a2)); }
#define KY_SIGNAL3_(Name, T1, T2, T3) \
    void Name(T1 a1, T2 a2, T3 a3) { \
        this->emitSignal(&KY_SIGNAL_SELF_::Name, std::forward<T1>(a1), std::forward<T2>(a2), std::forward<T3>(a3)); \
    }
#define KY_SIGNAL4_(Name, T1, T2, T3, T4) \
    void Name(T1 a1, T2 a2, T3 a3, T4 a4) { \
        this->emitSignal(&KY_SIGNAL_SELF_::Name, std::forward<T1>(a1), std::forward<T2>(a2), std::forward<T3>(a3), \
                         std::forward<T4>(a4)); \
    }
#define KY_SIGNAL5_(Name, T1, T2, T3, T4, T5) \
    void Name(T1 a1, T2 a2, T3 a3, T4 a4, T5 a5) { \
        this->emitSignal(&KY_SIGNAL_SELF_::Name, std::forward<T1>(a1), std::forward<T2>(a2), std::forward<T3>(a3), \
                         std::forward<T4>(a4), std::forward<T5>(a5)); \
    }

namespace ky::detail {
template <typename... A> struct TypeList {};

/// The decayed parameter types of a callable with one call operator (a
/// lambda, a std::function, a function pointer).
template <typename F> struct CallableArgs : CallableArgs<decltype(&std::remove_cvref_t<F>::operator())> {};
template <typename R, typename... A> struct CallableArgs<R (*)(A...)> { using type = TypeList<std::decay_t<A>...>; };
template <typename R, typename... A> struct CallableArgs<R(A...)> { using type = TypeList<std::decay_t<A>...>; };
template <typename R, typename C, typename... A> struct CallableArgs<R (C::*)(A...)> {
    using type = TypeList<std::decay_t<A>...>;
};
template <typename R, typename C, typename... A> struct CallableArgs<R (C::*)(A...) const> {
    using type = TypeList<std::decay_t<A>...>;
};

/// A callable that is neither a member function pointer nor an object pointer.
template <typename F>
concept IsPlainCallable = !std::is_member_function_pointer_v<std::remove_cvref_t<F>> &&
                          !std::is_convertible_v<std::remove_cvref_t<F>, const KyObject*> &&
                          !std::is_same_v<std::remove_cvref_t<F>, std::nullptr_t>;
} // namespace ky::detail

/// Base of every slot held in a connection table.
class ISlotBase {
public:
    virtual ~ISlotBase();
    /// The receiving object, or null for a slot without one.
    virtual KyObject* receiverRaw() const = 0;
};

/// A slot that takes the argument list of one signal.
template <typename... Args> class ITypedSlot : public ISlotBase {
public:
    /// Calls the slot on its receiver.
    virtual void invokeRaw(Args... args) = 0;
};

/// A slot whose receiver has type T (void for a free function).
template <typename T, typename... Args> class ISlot : public ITypedSlot<Args...> {
public:
    ~ISlot() override = default;
    KyObject* receiverRaw() const override = 0;
    void invokeRaw(Args... args) override = 0;
    virtual void invoke(T* receiver, Args... args) = 0;
    /// The typed receiver (spelled so throughout the framework).
    virtual T* receiveur() const = 0;
};

/// A slot that calls a std::function. It has no receiver; an empty function
/// raises std::bad_function_call when called.
template <typename... Args> class SlotFunction final : public ISlot<void, Args...> {
public:
    explicit SlotFunction(std::function<void(Args...)> fn) : fn_(std::move(fn)) {}
    KyObject* receiverRaw() const override { return nullptr; }
    void invokeRaw(Args... args) override { invoke(nullptr, std::forward<Args>(args)...); }
    void invoke(void*, Args... args) override { fn_(std::forward<Args>(args)...); }
    void* receiveur() const override { return nullptr; }

private:
    std::function<void(Args...)> fn_;
};

/// A slot that calls a member function of a KyObject-derived receiver.
template <typename T, typename... Args> class SlotFunctionReceiver final : public ISlot<T, Args...> {
public:
    using Method = void (T::*)(Args...);
    SlotFunctionReceiver(T* receiver, Method method) : receiver_(receiver), method_(method) {}
    KyObject* receiverRaw() const override { return static_cast<KyObject*>(receiver_); }
    void invokeRaw(Args... args) override { invoke(receiver_, std::forward<Args>(args)...); }
    void invoke(T* receiver, Args... args) override {
        if (receiver && method_) (receiver->*method_)(std::forward<Args>(args)...);
    }
    T* receiveur() const override { return receiver_; }
    Method method() const { return method_; }

private:
    T* receiver_;
    Method method_;
};

/// A std::function delivered on behalf of a context object: the context gives
/// the slot its thread, its liveness and its place in disconnect().
template <typename... Args> class SlotFunctionContext final : public ISlot<KyObject, Args...> {
public:
    SlotFunctionContext(KyObject* context, std::function<void(Args...)> fn)
        : context_(context), fn_(std::move(fn)) {}
    KyObject* receiverRaw() const override { return context_; }
    void invokeRaw(Args... args) override { invoke(context_, std::forward<Args>(args)...); }
    void invoke(KyObject*, Args... args) override { fn_(std::forward<Args>(args)...); }
    KyObject* receiveur() const override { return context_; }

private:
    KyObject* context_;
    std::function<void(Args...)> fn_;
};
