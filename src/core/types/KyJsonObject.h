// KyJsonObject: a JSON object whose members keep the order in which they were
// first inserted, so generated text follows the order of the source or of the
// code that built it.
//
// Members live in one vector. Small objects (the usual snapshot entry of ten
// to twenty keys) are searched linearly, which beats hashing at that size;
// once an object grows past kIndexThreshold members an open-addressing table
// of member positions keeps lookups constant-time, so building or reading a
// big object is never quadratic. The table is kept up to date by every
// mutation and never rebuilt by a read, so const readers may share an object
// across threads. Replacing a member keeps its original position; removing
// one closes the gap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"

/// JSON object with insertion-ordered members.
class KyJsonObject {
public:
    /// One key/value pair; iteration yields these in insertion order.
    struct Member {
        KyString key;
        KyJsonValue value;
    };
    using const_iterator = std::vector<Member>::const_iterator;

    /// Above this many members lookups go through the hash table.
    static constexpr std::size_t kIndexThreshold = 24;

    KyJsonObject() = default;
    /// Members in the given order; a repeated key replaces the earlier value in place.
    KyJsonObject(std::initializer_list<Member> members);

    std::size_t size() const { return members_.size(); }
    int count() const { return static_cast<int>(members_.size()); }
    bool isEmpty() const { return members_.empty(); }
    bool empty() const { return members_.empty(); }

    bool contains(std::string_view key) const { return indexOf(key) >= 0; }
    /// Position of the member in insertion order, or -1.
    long indexOf(std::string_view key) const;
    /// A copy of the member, or null when absent.
    KyJsonValue value(std::string_view key) const;
    /// The member without a copy, or the shared null value when absent.
    const KyJsonValue& operator[](std::string_view key) const;
    /// The member, created as null at the end when absent.
    KyJsonValue& operator[](std::string_view key);
    /// The member in place, or nullptr when absent.
    const KyJsonValue* valuePtr(std::string_view key) const;
    KyJsonValue* valuePtr(std::string_view key);

    /// Adds at the end, or replaces the value of an existing key in its
    /// original position; returns the stored value.
    KyJsonValue& insert(KyString key, KyJsonValue value);
    /// False when the key was absent.
    bool remove(std::string_view key);
    /// Removes and returns the member (null when absent).
    KyJsonValue take(std::string_view key);
    void clear();
    void reserve(std::size_t n) { members_.reserve(n); }

    KyList<KyString> keys() const;
    const KyString& keyAt(std::size_t i) const { return members_[i].key; }
    const KyJsonValue& valueAt(std::size_t i) const { return members_[i].value; }
    KyJsonValue& valueAt(std::size_t i) { return members_[i].value; }

    const_iterator begin() const { return members_.begin(); }
    const_iterator end() const { return members_.end(); }

    /// Same key set with deep-equal values; the order of members does not matter.
    friend bool operator==(const KyJsonObject& a, const KyJsonObject& b);
    friend bool operator!=(const KyJsonObject& a, const KyJsonObject& b) { return !(a == b); }

private:
    static std::size_t hash_(std::string_view key);
    long probe_(std::string_view key) const;
    void rebuildIndex_();
    void indexAdd_(std::size_t position);

    std::vector<Member> members_;
    // Slots hold position + 1; 0 marks an empty slot. Empty while the object is small.
    std::vector<std::uint32_t> index_;
};
