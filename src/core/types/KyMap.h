// KyMap: ordered associative container of the framework.
//
// A std::map (ordered by key, so iteration and generated text are stable) with
// value-with-default, contains, keys and take. No locking of its own.
#pragma once

#include <initializer_list>
#include <iterator>
#include <map>
#include <type_traits>
#include <utility>

#include "core/types/KyList.h"

/// Ordered map; iteration follows the key order.
template <typename K, typename V, typename Compare = std::less<K>> class KyMap : public std::map<K, V, Compare> {
public:
    using Base = std::map<K, V, Compare>;
    using Base::Base;

    bool isEmpty() const { return this->empty(); }
    int count() const { return static_cast<int>(this->size()); }
    bool contains(const K& k) const { return this->find(k) != this->end(); }
    /// The value under k, or fallback when there is none.
    V value(const K& k, const V& fallback = V()) const {
        auto it = this->find(k);
        return it == this->end() ? fallback : it->second;
    }
    /// Inserts or replaces.
    void insert(const K& k, const V& v) { this->insert_or_assign(k, v); }
    // The std::map forms, listed one by one: a blanket using-declaration would
    // let insert("key", "text") pick the iterator-range template over the
    // key/value form above when both arguments are string literals.
    std::pair<typename Base::iterator, bool> insert(const typename Base::value_type& kv) { return Base::insert(kv); }
    std::pair<typename Base::iterator, bool> insert(typename Base::value_type&& kv) { return Base::insert(std::move(kv)); }
    typename Base::iterator insert(typename Base::const_iterator hint, const typename Base::value_type& kv) {
        return Base::insert(hint, kv);
    }
    template <std::input_iterator It>
        requires(!std::is_convertible_v<It, K>)
    void insert(It first, It last) { Base::insert(first, last); }
    void insert(std::initializer_list<typename Base::value_type> items) { Base::insert(items); }
    int remove(const K& k) { return static_cast<int>(this->erase(k)); }
    /// Removes and returns the value under k (a default value when absent).
    V take(const K& k) {
        auto it = this->find(k);
        if (it == this->end()) return V();
        V v = std::move(it->second);
        this->erase(it);
        return v;
    }
    KyList<K> keys() const {
        KyList<K> r;
        r.reserve(this->size());
        for (const auto& [k, v] : *this) r.push_back(k);
        return r;
    }
    KyList<V> values() const {
        KyList<V> r;
        r.reserve(this->size());
        for (const auto& [k, v] : *this) r.push_back(v);
        return r;
    }
};
