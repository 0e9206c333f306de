// KyList: the ordered sequence that framework interfaces pass around.
//
// A std::vector with the few conveniences callers keep writing by hand
// (append, contains, indexOf, removeAll, value with a default). A plain value
// type: it belongs to whoever holds it and has no locking of its own. The
// first/last/take helpers throw std::out_of_range on an empty list rather than
// reading past the end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <stdexcept>
#include <string>
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
    T takeFirst() {
        requireItems_("takeFirst");
        T v = std::move(this->front());
        this->erase(this->begin());
        return v;
    }
    T takeLast() { requireItems_("takeLast"); T v = std::move(this->back()); this->pop_back(); return v; }
    const T& first() const { requireItems_("first"); return this->front(); }
    const T& last() const { requireItems_("last"); return this->back(); }
    T& first() { requireItems_("first"); return this->front(); }
    T& last() { requireItems_("last"); return this->back(); }
    void removeFirst() { (void)takeFirst(); }
    void removeLast() { requireItems_("removeLast"); this->pop_back(); }
    /// Removes the first equal value; true when one was found.
    bool removeOne(const T& v) {
        const int i = indexOf(v);
        if (i < 0) return false;
        this->erase(this->begin() + i);
        return true;
    }
    /// Index of the last equal value at or before from (-1: from the end), or -1.
    int lastIndexOf(const T& v, int from = -1) const {
        if (this->empty()) return -1;
        const int last = count() - 1;
        for (int i = (from < 0 || from > last) ? last : from; i >= 0; --i)
            if ((*this)[static_cast<std::size_t>(i)] == v) return i;
        return -1;
    }
    KyList& operator<<(T&& v) { this->push_back(std::move(v)); return *this; }
    KyList mid(int pos, int n = -1) const {
        KyList r;
        const long long sz = static_cast<long long>(this->size());
        const long long start = pos < 0 ? 0 : pos;
        // 64-bit sums: mid(1, INT_MAX) must mean "to the end", not overflow.
        const long long end = (n < 0 || start + n > sz) ? sz : start + n;
        for (long long i = start; i < end; ++i) r.push_back((*this)[static_cast<std::size_t>(i)]);
        return r;
    }

private:
    // The throw sits in its own no-return function so that the compiler knows
    // the list is non-empty on the path that follows the check.
    void requireItems_(const char* what) const {
        if (this->empty()) throwEmpty_(what);
    }
    [[noreturn]] static void throwEmpty_(const char* what) {
        throw std::out_of_range(std::string("KyList::") + what + " on an empty list");
    }
};
