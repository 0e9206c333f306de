// KyJsonArray: bounds-checked access and removal. See KyJsonArray.h.
#include "core/types/KyJsonArray.h"

#include <utility>

const KyJsonValue& KyJsonArray::at(std::size_t index) const {
    return index < items_.size() ? items_[index] : KyJsonValue::nullValue();
}

KyJsonValue& KyJsonArray::insert(std::size_t index, KyJsonValue value) {
    if (index >= items_.size()) return items_.emplace_back(std::move(value));
    return *items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(index), std::move(value));
}

bool KyJsonArray::removeAt(std::size_t index) {
    if (index >= items_.size()) return false;
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
    return true;
}

KyJsonValue KyJsonArray::takeAt(std::size_t index) {
    if (index >= items_.size()) return KyJsonValue();
    KyJsonValue v = std::move(items_[index]);
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
    return v;
}
