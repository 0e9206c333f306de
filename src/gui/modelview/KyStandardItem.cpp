// KyStandardItem: the role table.
#include "gui/modelview/KyStandardItem.h"

KyAny KyStandardItem::data(int role) const {
    const int r = storageRole_(role);
    for (const auto& [key, value] : roles_)
        if (key == r) return value;
    return KyAny();
}

bool KyStandardItem::hasData(int role) const {
    const int r = storageRole_(role);
    for (const auto& entry : roles_)
        if (entry.first == r) return true;
    return false;
}

bool KyStandardItem::setData(const KyAny& value, int role) {
    const int r = storageRole_(role);
    for (auto it = roles_.begin(); it != roles_.end(); ++it) {
        if (it->first != r) continue;
        if (!value.isValid()) {
            roles_.erase(it);
            return true;
        }
        if (it->second == value) return false;
        it->second = value;
        return true;
    }
    if (!value.isValid()) return false;
    roles_.append({r, value});
    return true;
}
