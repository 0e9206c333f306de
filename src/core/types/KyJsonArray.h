// KyJsonArray: an ordered sequence of JSON values, as the hotspot and device
// lists of the agent's snapshots arrive.
//
// A plain value over a std::vector<KyJsonValue>: deep copies, cheap moves, no
// locking. Const readers may share one array across threads.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <vector>

#include "core/types/KyJsonValue.h"

/// Ordered JSON values; out-of-range reads give the shared null value.
class KyJsonArray {
public:
    using iterator = std::vector<KyJsonValue>::iterator;
    using const_iterator = std::vector<KyJsonValue>::const_iterator;

    KyJsonArray() = default;
    KyJsonArray(std::initializer_list<KyJsonValue> values) : items_(values) {}

    std::size_t size() const { return items_.size(); }
    int count() const { return static_cast<int>(items_.size()); }
    bool isEmpty() const { return items_.empty(); }
    bool empty() const { return items_.empty(); }

    /// The item at index, or the shared null value when out of range.
    const KyJsonValue& at(std::size_t index) const;
    const KyJsonValue& operator[](std::size_t index) const { return at(index); }
    /// Writable item; index must be below size().
    KyJsonValue& operator[](std::size_t index) { return items_[index]; }
    const KyJsonValue& first() const { return at(0); }
    const KyJsonValue& last() const { return items_.empty() ? KyJsonValue::nullValue() : items_.back(); }

    /// Appends and returns the stored item.
    KyJsonValue& append(const KyJsonValue& value) { return items_.emplace_back(value); }
    KyJsonValue& append(KyJsonValue&& value) { return items_.emplace_back(std::move(value)); }
    /// Inserts before index (appends when index >= size()).
    KyJsonValue& insert(std::size_t index, KyJsonValue value);
    /// Removes the item at index; false when out of range.
    bool removeAt(std::size_t index);
    /// Removes and returns the item at index (null when out of range).
    KyJsonValue takeAt(std::size_t index);
    void clear() { items_.clear(); }
    void reserve(std::size_t n) { items_.reserve(n); }

    iterator begin() { return items_.begin(); }
    iterator end() { return items_.end(); }
    const_iterator begin() const { return items_.begin(); }
    const_iterator end() const { return items_.end(); }

    friend bool operator==(const KyJsonArray& a, const KyJsonArray& b) { return a.items_ == b.items_; }
    friend bool operator!=(const KyJsonArray& a, const KyJsonArray& b) { return !(a == b); }

private:
    std::vector<KyJsonValue> items_;
};
