// KyList: the ordered sequence that framework interfaces pass around.
//
// A std::vector with the few conveniences callers keep writing by hand
// (append, contains, indexOf, removeAll, value with a default). A plain value
// type: it belongs to whoever holds it and has no locking of its own.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

/// Ordered list of values; a std::vector with list-style helpers.
template <typename T> class KyList : public std::vector<T> {
public:
    using Base = std::vector<T>;
    using Base::Base;
    KyList() = default;
    KyList(const Base& other) : Base(other) {}
    KyList(Base&& other) noexcept : Base(std::move(other)) {}

    bool isEmpty() const { return this->empty(); }
    int count() const { return static_cast<int>(this->size()); }
    void append(const T& v) { this->push_back(v); }
    void append(T&& v) { this->push_back(std::move(v)); }
    void append(const KyList& other) { this->insert(this->end(), other.begin(), other.end()); }
    void prepend(const T& v) { this->insert(this->begin(), v); }
    KyList& operator<<(const T& v) { this->push_back(v); return *this; }

    bool contains(const T& v) const { return std::find(this->begin(), this->end(), v) != this->end(); }
    /// Index of the first equal value at or after from, or -1.
    int indexOf(const T& v, int from = 0) const {
        for (std::size_t i = static_cast<std::size_t>(std::max(from, 0)); i < this->size(); ++i)
            if ((*this)[i] == v) return static_cast<int>(i);
        return -1;
    }
    /// Removes every equal value; returns how many went.
    int removeAll(const T& v) {
        const auto before = this->size();
        this->erase(std::remove(this->begin(), this->end(), v), this->end());
        return static_cast<int>(before - this->size());
    }
    void removeAt(int i) { if (i >= 0 && static_cast<std::size_t>(i) < this->size()) this->erase(this->begin() + i); }
    /// The value at i, or fallback when i is out of range.
    T value(int i, const T& fallback = T()) const {
        return (i >= 0 && static_cast<std::size_t>(i) < this->size()) ? (*this)[i] : fallback;
    }
    T takeFirst() { T v = std::move(this->front()); this->erase(this->begin()); return v; }
    T takeLast() { T v = std::move(this->back()); this->pop_back(); return v; }
    const T& first() const { return this->front(); }
    const T& last() const { return this->back(); }
    KyList mid(int pos, int n = -1) const {
        KyList r;
        const int sz = count();
        if (pos < 0) pos = 0;
        const int end = (n < 0 || pos + n > sz) ? sz : pos + n;
        for (int i = pos; i < end; ++i) r.push_back((*this)[i]);
        return r;
    }
};
