// KyAny: the dynamic value behind object properties and item data.
//
// A KyAny is empty or holds one copy of a value of any copyable type. Values
// up to 32 bytes that move without throwing live inside the KyAny; larger ones
// on the heap. Each held type is described by one constant table of functions
// (copy, move, destroy, compare, read as a number), so the templates here only
// build that table and the real work happens in KyAny.cpp.
//
// Types may be registered under a name ("int", "KyString", "KyColor"): the
// name is what typeName() reports and what fromVoidPtr() and convertedTo()
// accept, which is how the property tables, keyed by type name, turn a raw
// getter result into a value. The registry is process-wide and guarded by a
// mutex; the built-in names are registered once, on first use, from any
// thread. A KyAny itself is a plain value with no locking: one thread at a
// time, copy it to hand it over.
//
// Reads: get<T>() is exact and throws std::runtime_error "Type mismatch in
// KyAny::get" on any other type; value<T>() and convertTo<T>() never throw and
// convert among bool, the integer types, the floating types and KyString where
// the value fits.
#pragma once

#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "core/types/KyString.h"

namespace ky::detail {

/// A held number, widened, as the conversion code reads it.
struct AnyScalar {
    enum class Kind : unsigned char { Bool, Signed, Unsigned, Floating };
    Kind kind = Kind::Signed;
    bool single = false; ///< a float: printed with float precision
    long long s = 0;
    unsigned long long u = 0;
    double d = 0;
};

/// What KyAny needs to know about one held type.
struct AnyTypeOps {
    const std::type_info* type;
    bool inlineStored;
    void (*copyConstruct)(void* storage, const void* value);
    void (*moveStorage)(void* to, void* from) noexcept; ///< leaves from destroyed
    void (*destroy)(void* storage) noexcept;
    bool (*equals)(const void* a, const void* b);          ///< null when the type has no ==
    void (*readScalar)(const void* value, AnyScalar& out); ///< null unless a number, bool or enum
};

inline constexpr std::size_t kAnyInlineSize = 32;

template <typename T> struct AnyOpsFor {
    static constexpr bool kInline = sizeof(T) <= kAnyInlineSize && alignof(T) <= alignof(std::max_align_t) &&
                                    std::is_nothrow_move_constructible_v<T>;

    static T* object(void* storage) noexcept {
        if constexpr (kInline) return std::launder(static_cast<T*>(storage));
        else return *static_cast<T**>(storage);
    }
    static void copyConstruct(void* storage, const void* value) {
        const T& v = *static_cast<const T*>(value);
        if constexpr (kInline) ::new (storage) T(v);
        else ::new (storage) T*(new T(v));
    }
    static void moveStorage(void* to, void* from) noexcept {
        if constexpr (kInline) {
            T* src = object(from);
            ::new (to) T(std::move(*src));
            src->~T();
        } else {
            ::new (to) T*(*static_cast<T**>(from));
        }
    }
    static void destroy(void* storage) noexcept {
        if constexpr (kInline) object(storage)->~T();
        else delete object(storage);
    }
    static bool equals(const void* a, const void* b) { return *static_cast<const T*>(a) == *static_cast<const T*>(b); }
    static void readScalar(const void* value, AnyScalar& out) {
        const T& v = *static_cast<const T*>(value);
        if constexpr (std::is_same_v<T, bool>) {
            out.kind = AnyScalar::Kind::Bool;
            out.u = v ? 1 : 0;
        } else if constexpr (std::is_enum_v<T>) {
            using U = std::underlying_type_t<T>;
            if constexpr (std::is_signed_v<U>) out.kind = AnyScalar::Kind::Signed, out.s = static_cast<long long>(v);
            else out.kind = AnyScalar::Kind::Unsigned, out.u = static_cast<unsigned long long>(v);
        } else if constexpr (std::is_floating_point_v<T>) {
            out.kind = AnyScalar::Kind::Floating;
            out.single = std::is_same_v<T, float>;
            out.d = static_cast<double>(v);
        } else if constexpr (std::is_signed_v<T>) {
            out.kind = AnyScalar::Kind::Signed;
            out.s = static_cast<long long>(v);
        } else {
            out.kind = AnyScalar::Kind::Unsigned;
            out.u = static_cast<unsigned long long>(v);
        }
    }

    // Taking the address instantiates the body, so only types that have the
    // operation get a pointer.
    static constexpr bool (*equalsFunction())(const void*, const void*) {
        if constexpr (std::equality_comparable<T>) return &equals;
        else return nullptr;
    }
    static constexpr void (*scalarFunction())(const void*, AnyScalar&) {
        if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) return &readScalar;
        else return nullptr;
    }

    static constexpr AnyTypeOps ops{
        &typeid(T), kInline, &copyConstruct, &moveStorage, &destroy, equalsFunction(), scalarFunction(),
    };
};

// Text is always held as KyString, never as a pointer into someone's buffer.
template <typename T> struct AnyStored { using type = std::decay_t<T>; };
template <> struct AnyStored<const char*> { using type = KyString; };
template <> struct AnyStored<char*> { using type = KyString; };
template <> struct AnyStored<std::string> { using type = KyString; };
template <> struct AnyStored<std::string_view> { using type = KyString; };
template <typename T> using AnyStoredT = typename AnyStored<std::decay_t<T>>::type;

} // namespace ky::detail

/// A value of any copyable type, or nothing.
class KyAny {
public:
    KyAny() noexcept {}
    KyAny(const KyAny& other);
    KyAny(KyAny&& other) noexcept;
    KyAny& operator=(const KyAny& other);
    KyAny& operator=(KyAny&& other) noexcept;
    ~KyAny();

    /// Holds a copy of value; C strings, std::string and string views are held as KyString.
    template <typename T>
        requires(!std::is_same_v<std::remove_cvref_t<T>, KyAny>)
    KyAny(T&& value) {
        using D = ky::detail::AnyStoredT<T>;
        static_assert(std::is_copy_constructible_v<D>, "KyAny holds copyable values only");
        if constexpr (ky::detail::AnyOpsFor<D>::kInline) ::new (static_cast<void*>(storage_)) D(std::forward<T>(value));
        else ::new (static_cast<void*>(storage_)) D*(new D(std::forward<T>(value)));
        ops_ = &ky::detail::AnyOpsFor<D>::ops;
    }
    template <typename T> static KyAny fromValue(const T& value) { return KyAny(value); }

    /// A copy of *static_cast<const T*>(ptr) for the type registered as typeName;
    /// empty when ptr is null or the name is not registered.
    static KyAny fromVoidPtr(const void* ptr, const KyString& typeName);

    bool isValid() const noexcept { return ops_ != nullptr; }
    bool isEmpty() const noexcept { return ops_ == nullptr; }
    void clear() noexcept;
    void swap(KyAny& other) noexcept;

    /// The registered name of the held type, else its C++ name; "" when empty.
    KyString typeName() const;
    const std::type_info& type() const noexcept { return ops_ ? *ops_->type : typeid(void); }
    /// The held object, for code that works through type names; null when empty.
    const void* constData() const noexcept { return ops_ ? address_() : nullptr; }
    void* data() noexcept { return ops_ ? address_() : nullptr; }

    template <typename T> bool is() const noexcept { return ptr_<T>() != nullptr; }
    /// The held T; throws std::runtime_error "Type mismatch in KyAny::get" otherwise.
    template <typename T> const T& get() const {
        if (const T* p = ptr_<T>()) return *p;
        throwTypeMismatch_();
    }
    /// The held value as T, converted where that is sensible, or fallback.
    template <typename T> T value(const T& fallback = T()) const {
        using D = std::remove_cv_t<T>;
        if (const D* p = ptr_<D>()) return *p;
        if constexpr (std::is_arithmetic_v<D> || std::is_enum_v<D> || std::is_same_v<D, KyString>) {
            D out{};
            if (convertTo(out)) return out;
        }
        return fallback;
    }
    /// Writes the held value as T into out and returns true, or leaves out alone.
    template <typename T> bool convertTo(T& out) const;
    /// A KyAny of the registered type typeName holding this value converted; empty
    /// when that type is unknown or the value does not convert.
    KyAny convertedTo(const KyString& typeName) const;

    KyString toString() const { return value<KyString>(); }
    bool toBool() const { return value<bool>(false); }
    int toInt() const { return value<int>(0); }
    long long toLongLong() const { return value<long long>(0); }
    double toDouble() const { return value<double>(0.0); }

    /// Same held type and equal values; a type without == never compares equal.
    friend bool operator==(const KyAny& a, const KyAny& b);

    /// Registers T under name. False when the name is empty or already names another type.
    template <typename T> static bool registerType(const KyString& name) {
        return registerType_(name, &ky::detail::AnyOpsFor<std::remove_cv_t<T>>::ops);
    }
    static bool isRegistered(const KyString& name);

private:
    template <typename T> const T* ptr_() const noexcept {
        using D = std::remove_cv_t<T>;
        if (!ops_) return nullptr;
        if (ops_ != &ky::detail::AnyOpsFor<D>::ops && *ops_->type != typeid(D)) return nullptr;
        return static_cast<const T*>(address_());
    }
    void* address_() const noexcept {
        void* s = const_cast<unsigned char*>(storage_);
        return ops_->inlineStored ? s : *static_cast<void**>(s);
    }

    [[noreturn]] static void throwTypeMismatch_();
    static bool registerType_(const KyString& name, const ky::detail::AnyTypeOps* ops);
    static void ensureBuiltinTypes_();
    static void registerBuiltinTypes_();

    bool toBool_(bool& out) const;
    bool toSigned_(long long lo, long long hi, long long& out) const;
    bool toUnsigned_(unsigned long long hi, unsigned long long& out) const;
    bool toDouble_(double& out) const;
    bool toText_(KyString& out) const;

    alignas(std::max_align_t) unsigned char storage_[ky::detail::kAnyInlineSize];
    const ky::detail::AnyTypeOps* ops_ = nullptr;
};

template <typename T> bool KyAny::convertTo(T& out) const {
    using D = std::remove_cv_t<T>;
    if (const D* p = ptr_<D>()) {
        out = *p;
        return true;
    }
    if constexpr (std::is_same_v<D, bool>) {
        return toBool_(out);
    } else if constexpr (std::is_enum_v<D>) {
        std::underlying_type_t<D> raw{};
        if (!convertTo(raw)) return false;
        out = static_cast<D>(raw);
        return true;
    } else if constexpr (std::is_integral_v<D> && std::is_signed_v<D>) {
        long long v = 0;
        if (!toSigned_(std::numeric_limits<D>::min(), std::numeric_limits<D>::max(), v)) return false;
        out = static_cast<D>(v);
        return true;
    } else if constexpr (std::is_integral_v<D>) {
        unsigned long long v = 0;
        if (!toUnsigned_(std::numeric_limits<D>::max(), v)) return false;
        out = static_cast<D>(v);
        return true;
    } else if constexpr (std::is_floating_point_v<D>) {
        double v = 0;
        if (!toDouble_(v)) return false;
        // A finite double beyond float's range would become infinity.
        if (std::isfinite(v) && std::fabs(v) > double(std::numeric_limits<D>::max())) return false;
        out = static_cast<D>(v);
        return true;
    } else if constexpr (std::is_same_v<D, KyString>) {
        return toText_(out);
    } else {
        return false;
    }
}

inline void swap(KyAny& a, KyAny& b) noexcept { a.swap(b); }

/// Prints "KyAny(<type>, <text>)" or "KyAny()".
std::ostream& operator<<(std::ostream& os, const KyAny& value);
