// KyPointer: a guarded pointer that reads null once the object it points to
// is gone.
//
// KyPointer does not own or count anything. Each read asks the process-wide
// liveness hook below whether the address still names a live object; the
// object model installs its checker at start-up, and until it does every
// non-null address counts as live. The address asked about is the one that
// kyLivenessKey() gives for the pointer: the plain address by default, or the
// object-model base address when that layer declares an overload for its base
// class (found by argument-dependent lookup, so a KyPointer to a class with
// several bases still asks about the right address).
//
// A KyPointer is a plain value read by the thread that owns the object; the
// hook itself may be called from any thread. A freed address that is reused
// by a new object reads as live again; the liveness set cannot tell the two
// apart.
#pragma once

#include <cstddef>
#include <type_traits>

namespace ky {
/// Answers whether an address names a live object.
using LivenessChecker = bool (*)(const void*);
/// Installs the process-wide checker; nullptr restores "every non-null address is live".
void setLivenessChecker(LivenessChecker checker);
/// The installed checker's answer; false for nullptr.
bool isObjectLive(const void* object);
} // namespace ky

/// Default liveness key: the address itself. A layer overloads this for its
/// base class to map derived pointers onto the address it registered.
inline const void* kyLivenessKey(const void* object) noexcept { return object; }

/// Pointer to an object owned elsewhere; reads null once that object is gone.
template <typename T> class KyPointer {
public:
    constexpr KyPointer() noexcept = default;
    constexpr KyPointer(std::nullptr_t) noexcept {}
    KyPointer(T* object) noexcept : object_(object), key_(keyOf_(object)) {}
    template <typename U>
        requires std::is_convertible_v<U*, T*>
    KyPointer(const KyPointer<U>& other) noexcept : KyPointer(static_cast<T*>(other.get())) {}

    KyPointer& operator=(T* object) noexcept {
        object_ = object;
        key_ = keyOf_(object);
        return *this;
    }
    KyPointer& operator=(std::nullptr_t) noexcept {
        clear();
        return *this;
    }

    /// The object, or nullptr when it is gone or was never set.
    T* get() const noexcept { return (object_ && ky::isObjectLive(key_)) ? object_ : nullptr; }
    T* data() const noexcept { return get(); }
    T* operator->() const noexcept { return get(); }
    T& operator*() const noexcept { return *get(); }
    explicit operator bool() const noexcept { return get() != nullptr; }
    bool isNull() const noexcept { return get() == nullptr; }
    void clear() noexcept {
        object_ = nullptr;
        key_ = nullptr;
    }

    /// Same target, compared by what each pointer reads now.
    friend bool operator==(const KyPointer& a, const KyPointer& b) noexcept { return a.get() == b.get(); }
    friend bool operator==(const KyPointer& a, const T* b) noexcept { return a.get() == b; }

private:
    // The key is taken while the object is known to be alive: converting a
    // pointer to a virtual base later would read the dead object.
    static const void* keyOf_(T* object) noexcept { return object ? kyLivenessKey(object) : nullptr; }

    T* object_ = nullptr;
    const void* key_ = nullptr;
};
