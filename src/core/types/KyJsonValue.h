// KyJsonValue: one JSON value — null, bool, integer, double, string, array or
// object — as the console and the framework pass agent snapshots and
// configuration around.
//
// Integers and doubles are kept apart: a number written without fraction or
// exponent that fits in a signed 64-bit integer is an Integer and survives a
// parse/generate round trip exactly; every other number (fractions, exponents,
// and whole numbers beyond the int64 range, such as unsigned values up to
// 2^64-1) is a Double holding the nearest binary value. Arrays and objects live
// on the heap and are deep-copied with the value; moves are cheap.
//
// A KyJsonValue is a plain value with no hidden mutable state: any number of
// threads may read one const value at once, and a writer needs the value to
// itself. Nesting is bounded by the parser; values built in code may nest as
// deep as the stack allows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/types/KyString.h"

class KyJsonArray;
class KyJsonObject;

/// A JSON value; typed getters fall back to a default when the type differs.
class KyJsonValue {
public:
    enum Type : std::uint8_t { Null, Bool, Integer, Double, String, Array, Object };

    KyJsonValue() noexcept : type_(Null) { u_.i = 0; }
    KyJsonValue(std::nullptr_t) noexcept : KyJsonValue() {}
    /// The empty value of a type: false, 0, 0.0, "", [] or {}.
    explicit KyJsonValue(Type type);
    KyJsonValue(bool v) noexcept : type_(Bool) { u_.b = v; }
    KyJsonValue(int v) noexcept : type_(Integer) { u_.i = v; }
    KyJsonValue(long v) noexcept : type_(Integer) { u_.i = v; }
    KyJsonValue(long long v) noexcept : type_(Integer) { u_.i = v; }
    KyJsonValue(unsigned int v) noexcept : type_(Integer) { u_.i = v; }
    /// Values above INT64_MAX become the nearest Double.
    KyJsonValue(unsigned long v) noexcept;
    KyJsonValue(unsigned long long v) noexcept;
    KyJsonValue(double v) noexcept : type_(Double) { u_.d = v; }
    KyJsonValue(const char* v);
    /// Other pointers would silently become a Bool.
    KyJsonValue(const void*) = delete;
    KyJsonValue(const std::string& v);
    KyJsonValue(const KyString& v);
    KyJsonValue(KyString&& v) noexcept;
    KyJsonValue(const KyJsonArray& v);
    KyJsonValue(KyJsonArray&& v);
    KyJsonValue(const KyJsonObject& v);
    KyJsonValue(KyJsonObject&& v);

    KyJsonValue(const KyJsonValue& other);
    KyJsonValue(KyJsonValue&& other) noexcept : type_(Null) { moveFrom_(other); }
    KyJsonValue& operator=(const KyJsonValue& other);
    KyJsonValue& operator=(KyJsonValue&& other) noexcept;
    ~KyJsonValue() { destroy_(); }
    void swap(KyJsonValue& other) noexcept;

    Type type() const { return static_cast<Type>(type_); }
    bool isNull() const { return type_ == Null; }
    bool isBool() const { return type_ == Bool; }
    bool isInteger() const { return type_ == Integer; }
    bool isDouble() const { return type_ == Double; }
    bool isNumber() const { return type_ == Integer || type_ == Double; }
    bool isString() const { return type_ == String; }
    bool isArray() const { return type_ == Array; }
    bool isObject() const { return type_ == Object; }

    bool toBool(bool fallback = false) const { return type_ == Bool ? u_.b : fallback; }
    /// An Integer in range, or a Double with no fraction in range; else fallback.
    int toInt(int fallback = 0) const;
    std::int64_t toInt64(std::int64_t fallback = 0) const;
    /// Any number (an Integer converted); else fallback.
    double toDouble(double fallback = 0.0) const;
    KyString toString(const KyString& fallback = KyString()) const;
    /// Copies; an empty container when the value is of another type.
    KyJsonArray toArray() const;
    KyJsonObject toObject() const;

    /// References without a copy; a shared empty container when of another type.
    const KyString& asString() const;
    const KyJsonArray& asArray() const;
    const KyJsonObject& asObject() const;
    /// In-place access; nullptr when the value is of another type.
    KyJsonArray* arrayPtr() { return type_ == Array ? u_.a : nullptr; }
    const KyJsonArray* arrayPtr() const { return type_ == Array ? u_.a : nullptr; }
    KyJsonObject* objectPtr() { return type_ == Object ? u_.o : nullptr; }
    const KyJsonObject* objectPtr() const { return type_ == Object ? u_.o : nullptr; }

    /// Member of an object, or the shared null value when absent or not an object.
    const KyJsonValue& operator[](std::string_view key) const;
    /// Item of an array, or the shared null value when out of range or not an array.
    const KyJsonValue& operator[](std::size_t index) const;
    const KyJsonValue& operator[](int index) const;

    /// Walks a slash-separated path ("vpn/filter/enabled", "items/0/name"):
    /// object members by key, array items by decimal index. Empty segments are
    /// skipped, so "/a//b/" is "a/b"; the empty path is this value. nullptr
    /// when a segment is absent.
    const KyJsonValue* find(std::string_view path) const;
    /// As above; with create, missing object members are added (objects on the
    /// way, null at the end) and an array index equal to the size appends. A
    /// null value on the way becomes an object; any other scalar on the way, a
    /// non-numeric segment on an array, or an index past the end refuses the
    /// path: nullptr, and the tree is left as it was.
    KyJsonValue* find(std::string_view path, bool create);

    /// Deep equality: same type (Integer 1 and Double 1.0 differ), strings by
    /// bytes, arrays item by item, objects by key set regardless of order.
    friend bool operator==(const KyJsonValue& a, const KyJsonValue& b);
    friend bool operator!=(const KyJsonValue& a, const KyJsonValue& b) { return !(a == b); }

    /// The shared null value that lookups return for absent members.
    static const KyJsonValue& nullValue();
    static const char* typeName(Type type);

private:
    // Moves and destruction run for every value a parse builds, so their
    // scalar paths are inline; only owned storage goes out of line.
    void destroy_() noexcept {
        if (type_ >= String) destroyOwned_();
        type_ = Null;
    }
    void moveFrom_(KyJsonValue& other) noexcept {
        // Called on a null value only; leaves other null.
        if (other.type_ == String) {
            moveStringFrom_(other);
        } else {
            // Every non-string payload (bool, number, container pointer) fits
            // the 64-bit member, whose bytes the storage always initialises.
            u_.i = other.u_.i;
            type_ = other.type_;
            other.type_ = Null;
        }
    }
    void destroyOwned_() noexcept;
    void moveStringFrom_(KyJsonValue& other) noexcept;
    void copyFrom_(const KyJsonValue& other);

    std::uint8_t type_;
    union Storage {
        Storage() noexcept : i(0) {}
        ~Storage() {}
        bool b;
        std::int64_t i;
        double d;
        KyString s;
        KyJsonArray* a;
        KyJsonObject* o;
    } u_;
    static_assert(sizeof(KyJsonArray*) <= sizeof(std::int64_t));
};

// The containers hold KyJsonValue by value, so they can only be defined after
// it; including them here lets every user of a value call toArray()/toObject().
#include "core/types/KyJsonArray.h"
#include "core/types/KyJsonObject.h"
