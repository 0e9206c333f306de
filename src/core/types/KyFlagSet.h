// KyFlagSet: a typed set of bit flags over an enum whose enumerators are bit
// values (1, 2, 4, ...), such as the text-drawing format of the painter.
//
// The set stores the enum's underlying integer; combining flags of two
// different enums does not compile. Operators between two bare enumerators
// (Flag | Flag, ~Flag) come from KY_DECLARE_FLAG_OPERATORS(Enum), written at
// namespace scope next to the enum so that lookup finds them. A plain value;
// no locking.
#pragma once

#include <type_traits>

/// Set of flags of the enum E.
template <typename E> class KyFlagSet {
    static_assert(std::is_enum_v<E>, "KyFlagSet holds flags of an enum type");

public:
    using Enum = E;
    using Int = std::underlying_type_t<E>;

    constexpr KyFlagSet() noexcept = default;
    constexpr KyFlagSet(E flag) noexcept : bits_(static_cast<Int>(flag)) {}
    /// From raw bits, e.g. a value read back from settings.
    constexpr explicit KyFlagSet(int bits) noexcept : bits_(static_cast<Int>(bits)) {}
    static constexpr KyFlagSet fromInt(int bits) noexcept { return KyFlagSet(bits); }

    constexpr int toInt() const noexcept { return static_cast<int>(bits_); }
    constexpr Int toUnderlying() const noexcept { return bits_; }
    constexpr bool isEmpty() const noexcept { return bits_ == 0; }
    constexpr explicit operator bool() const noexcept { return bits_ != 0; }

    /// True when every bit of flag is set; a zero flag is set only in an empty set.
    constexpr bool testFlag(E flag) const noexcept {
        const Int f = static_cast<Int>(flag);
        return f == 0 ? bits_ == 0 : (bits_ & f) == f;
    }
    /// True when at least one bit of flags is set.
    constexpr bool testAnyFlag(KyFlagSet flags) const noexcept { return (bits_ & flags.bits_) != 0; }
    constexpr KyFlagSet& setFlag(E flag, bool on = true) noexcept {
        const Int f = static_cast<Int>(flag);
        bits_ = on ? static_cast<Int>(bits_ | f) : static_cast<Int>(bits_ & ~f);
        return *this;
    }

    constexpr KyFlagSet& operator|=(KyFlagSet o) noexcept { bits_ = static_cast<Int>(bits_ | o.bits_); return *this; }
    constexpr KyFlagSet& operator&=(KyFlagSet o) noexcept { bits_ = static_cast<Int>(bits_ & o.bits_); return *this; }
    constexpr KyFlagSet& operator^=(KyFlagSet o) noexcept { bits_ = static_cast<Int>(bits_ ^ o.bits_); return *this; }
    constexpr KyFlagSet operator~() const noexcept { return fromBits_(static_cast<Int>(~bits_)); }

    friend constexpr KyFlagSet operator|(KyFlagSet a, KyFlagSet b) noexcept { return a |= b; }
    friend constexpr KyFlagSet operator&(KyFlagSet a, KyFlagSet b) noexcept { return a &= b; }
    friend constexpr KyFlagSet operator^(KyFlagSet a, KyFlagSet b) noexcept { return a ^= b; }
    friend constexpr bool operator==(KyFlagSet a, KyFlagSet b) noexcept { return a.bits_ == b.bits_; }

private:
    static constexpr KyFlagSet fromBits_(Int bits) noexcept {
        KyFlagSet s;
        s.bits_ = bits;
        return s;
    }

    Int bits_ = 0;
};

/// Declares |, &, ^ and ~ on bare enumerators of Enum, giving KyFlagSet<Enum>.
/// Write it at namespace scope in the enum's namespace (after the class, for a
/// nested enum).
#define KY_DECLARE_FLAG_OPERATORS(Enum)                                                                   \
    [[maybe_unused]] constexpr KyFlagSet<Enum> operator|(Enum a, Enum b) noexcept {                      \
        return KyFlagSet<Enum>(a) | KyFlagSet<Enum>(b);                                                   \
    }                                                                                                     \
    [[maybe_unused]] constexpr KyFlagSet<Enum> operator&(Enum a, Enum b) noexcept {                      \
        return KyFlagSet<Enum>(a) & KyFlagSet<Enum>(b);                                                   \
    }                                                                                                     \
    [[maybe_unused]] constexpr KyFlagSet<Enum> operator^(Enum a, Enum b) noexcept {                      \
        return KyFlagSet<Enum>(a) ^ KyFlagSet<Enum>(b);                                                   \
    }                                                                                                     \
    [[maybe_unused]] constexpr KyFlagSet<Enum> operator~(Enum a) noexcept { return ~KyFlagSet<Enum>(a); }
