// KyJsonObject: ordered members with a position table for large objects.
// See KyJsonObject.h for the model.
#include "core/types/KyJsonObject.h"

#include <utility>

KyJsonObject::KyJsonObject(std::initializer_list<Member> members) {
    members_.reserve(members.size());
    for (const Member& m : members) insert(m.key, m.value);
}

std::size_t KyJsonObject::hash_(std::string_view key) {
    // FNV-1a: keys are short, and this needs no setup per call.
    std::size_t h = 14695981039346656037ull;
    for (unsigned char c : key) {
        h ^= c;
        h *= 1099511628211ull;
    }
    return h;
}

long KyJsonObject::probe_(std::string_view key) const {
    const std::size_t mask = index_.size() - 1;
    for (std::size_t slot = hash_(key) & mask;; slot = (slot + 1) & mask) {
        const std::uint32_t entry = index_[slot];
        if (entry == 0) return -1;
        if (members_[entry - 1].key.view() == key) return static_cast<long>(entry - 1);
    }
}

long KyJsonObject::indexOf(std::string_view key) const {
    if (!index_.empty()) return probe_(key);
    const std::size_t n = members_.size();
    for (std::size_t i = 0; i < n; ++i) {
        const std::string& k = members_[i].key.str();
        if (k.size() == key.size() && k.compare(0, k.size(), key) == 0) return static_cast<long>(i);
    }
    return -1;
}

void KyJsonObject::rebuildIndex_() {
    if (members_.size() <= kIndexThreshold) {
        index_.clear();
        index_.shrink_to_fit();
        return;
    }
    // At most half full, so probe runs stay short.
    std::size_t slots = 64;
    while (slots < members_.size() * 2) slots *= 2;
    index_.assign(slots, 0);
    for (std::size_t i = 0; i < members_.size(); ++i) indexAdd_(i);
}

void KyJsonObject::indexAdd_(std::size_t position) {
    const std::size_t mask = index_.size() - 1;
    std::size_t slot = hash_(members_[position].key.view()) & mask;
    while (index_[slot] != 0) slot = (slot + 1) & mask;
    index_[slot] = static_cast<std::uint32_t>(position + 1);
}

KyJsonValue KyJsonObject::value(std::string_view key) const {
    const long i = indexOf(key);
    return i < 0 ? KyJsonValue() : members_[static_cast<std::size_t>(i)].value;
}

const KyJsonValue& KyJsonObject::operator[](std::string_view key) const {
    const long i = indexOf(key);
    return i < 0 ? KyJsonValue::nullValue() : members_[static_cast<std::size_t>(i)].value;
}

KyJsonValue& KyJsonObject::operator[](std::string_view key) {
    const long i = indexOf(key);
    if (i >= 0) return members_[static_cast<std::size_t>(i)].value;
    return insert(KyString(key), KyJsonValue());
}

const KyJsonValue* KyJsonObject::valuePtr(std::string_view key) const {
    const long i = indexOf(key);
    return i < 0 ? nullptr : &members_[static_cast<std::size_t>(i)].value;
}

KyJsonValue* KyJsonObject::valuePtr(std::string_view key) {
    const long i = indexOf(key);
    return i < 0 ? nullptr : &members_[static_cast<std::size_t>(i)].value;
}

KyJsonValue& KyJsonObject::insert(KyString key, KyJsonValue value) {
    const long i = indexOf(key.view());
    if (i >= 0) {
        KyJsonValue& slot = members_[static_cast<std::size_t>(i)].value;
        slot = std::move(value);
        return slot;
    }
    members_.push_back(Member{std::move(key), std::move(value)});
    const std::size_t n = members_.size();
    if (n > kIndexThreshold) {
        if (index_.empty() || n * 2 > index_.size()) rebuildIndex_();
        else indexAdd_(n - 1);
    }
    return members_.back().value;
}

bool KyJsonObject::remove(std::string_view key) {
    const long i = indexOf(key);
    if (i < 0) return false;
    members_.erase(members_.begin() + i);
    // Positions after the gap moved; removal is rare enough to rebuild.
    if (!index_.empty()) rebuildIndex_();
    return true;
}

KyJsonValue KyJsonObject::take(std::string_view key) {
    const long i = indexOf(key);
    if (i < 0) return KyJsonValue();
    KyJsonValue v = std::move(members_[static_cast<std::size_t>(i)].value);
    members_.erase(members_.begin() + i);
    if (!index_.empty()) rebuildIndex_();
    return v;
}

void KyJsonObject::clear() {
    members_.clear();
    index_.clear();
}

KyList<KyString> KyJsonObject::keys() const {
    KyList<KyString> r;
    r.reserve(members_.size());
    for (const Member& m : members_) r.push_back(m.key);
    return r;
}

bool operator==(const KyJsonObject& a, const KyJsonObject& b) {
    if (a.members_.size() != b.members_.size()) return false;
    for (std::size_t i = 0; i < a.members_.size(); ++i) {
        const KyJsonObject::Member& m = a.members_[i];
        // Same order is the common case; look up only when it differs.
        if (b.members_[i].key == m.key) {
            if (!(b.members_[i].value == m.value)) return false;
            continue;
        }
        const KyJsonValue* other = b.valuePtr(m.key.view());
        if (!other || !(*other == m.value)) return false;
    }
    return true;
}
