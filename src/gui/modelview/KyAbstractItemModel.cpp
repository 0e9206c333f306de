// KyAbstractItemModel: default answers, the change helpers and the table of
// persistent indexes that the helpers keep current.
#include "gui/modelview/KyAbstractItemModel.h"

#include <algorithm>
#include <unordered_map>

#include "gui/modelview/KyPersistentModelIndex.h"

using ky::detail::PersistentIndexData;

KyAbstractItemModel::KyAbstractItemModel(KyObject* parent) : KyObject(parent) {}

KyAbstractItemModel::~KyAbstractItemModel() {
    // Persistent indexes may outlive the model: leave them invalid so that
    // their last copy does not come back here.
    for (PersistentIndexData* p : persistent_) p->index = KyModelIndex();
    persistent_.clear();
}

KyModelIndex KyAbstractItemModel::sibling(int row, int column, const KyModelIndex& idx) const {
    if (!idx.isValid() || idx.model() != this) return KyModelIndex();
    if (row == idx.row() && column == idx.column()) return idx;
    return index(row, column, parent(idx));
}

bool KyAbstractItemModel::hasIndex(int row, int column, const KyModelIndex& parent) const {
    if (row < 0 || column < 0) return false;
    if (parent.isValid() && parent.model() != this) return false;
    return row < rowCount(parent) && column < columnCount(parent);
}

bool KyAbstractItemModel::setData(const KyModelIndex&, const KyAny&, int) { return false; }

KyItemFlags KyAbstractItemModel::flags(const KyModelIndex& index) const {
    if (!index.isValid() || index.model() != this) return KyItemFlags();
    return KyItemFlag::Selectable | KyItemFlag::Enabled;
}

KyAny KyAbstractItemModel::headerData(int section, KyOrientation, int role) const {
    if (role == KyItemDataRole::Display) return KyAny(section + 1);
    return KyAny();
}

bool KyAbstractItemModel::setHeaderData(int, KyOrientation, const KyAny&, int) { return false; }
bool KyAbstractItemModel::insertRows(int, int, const KyModelIndex&) { return false; }
bool KyAbstractItemModel::removeRows(int, int, const KyModelIndex&) { return false; }
void KyAbstractItemModel::sort(int, KySortOrder) {}

void KyAbstractItemModel::beginInsertRows(const KyModelIndex& parent, int first, int last) {
    change_ = Change_{parent, first, last, {}};
    rowsAboutToBeInserted(parent, first, last);
}

void KyAbstractItemModel::endInsertRows() {
    const Change_ c = std::move(change_);
    const int count = c.last - c.first + 1;
    for (PersistentIndexData* p : persistent_) {
        const KyModelIndex& i = p->index;
        if (i.row() < c.first || parent(i) != c.parent) continue;
        p->index = createIndex(i.row() + count, i.column(), i.internalId());
    }
    rowsInserted(c.parent, c.first, c.last);
}

bool KyAbstractItemModel::isUnder_(const KyModelIndex& index, const KyModelIndex& parent, int first, int last) {
    for (KyModelIndex i = index; i.isValid(); i = i.parent()) {
        const KyModelIndex up = i.parent();
        if (up == parent) return i.row() >= first && i.row() <= last;
    }
    return false;
}

void KyAbstractItemModel::beginRemoveRows(const KyModelIndex& under, int first, int last) {
    change_ = Change_{under, first, last, {}};
    // Cells below the removed rows can only be found while those rows exist.
    for (PersistentIndexData* p : persistent_) {
        if (parent(p->index) == under) continue;
        if (isUnder_(p->index, under, first, last)) change_.doomed.push_back(p);
    }
    rowsAboutToBeRemoved(under, first, last);
}

void KyAbstractItemModel::endRemoveRows() {
    const Change_ c = std::move(change_);
    const int count = c.last - c.first + 1;
    for (PersistentIndexData* p : c.doomed) p->index = KyModelIndex();
    for (std::size_t s = 0; s < persistent_.size();) {
        PersistentIndexData* p = persistent_[s];
        const KyModelIndex& i = p->index;
        if (!i.isValid()) {
            dropPersistent_(s);
            continue;
        }
        if (i.row() >= c.first && parent(i) == c.parent) {
            if (i.row() <= c.last) {
                dropPersistent_(s);
                continue;
            }
            p->index = createIndex(i.row() - count, i.column(), i.internalId());
        }
        ++s;
    }
    rowsRemoved(c.parent, c.first, c.last);
}

void KyAbstractItemModel::beginResetModel() { modelAboutToBeReset(); }

void KyAbstractItemModel::endResetModel() {
    for (PersistentIndexData* p : persistent_) p->index = KyModelIndex();
    persistent_.clear();
    modelReset();
}

void KyAbstractItemModel::emitRowsChanged(int first, int last, const KyList<int>& roles) {
    const int columns = columnCount();
    if (first > last || columns <= 0) return;
    dataChanged(index(first, 0), index(last, columns - 1), roles);
}

void KyAbstractItemModel::changePersistentIndex(const KyModelIndex& from, const KyModelIndex& to) {
    for (std::size_t s = 0; s < persistent_.size();) {
        if (persistent_[s]->index != from) {
            ++s;
            continue;
        }
        if (!to.isValid()) {
            dropPersistent_(s);
            continue;
        }
        persistent_[s++]->index = to;
    }
}

void KyAbstractItemModel::changePersistentIndexList(const KyList<KyModelIndex>& from, const KyList<KyModelIndex>& to) {
    std::unordered_map<KyModelIndex, KyModelIndex> moves;
    for (std::size_t i = 0; i < from.size() && i < to.size(); ++i) moves.emplace(from[i], to[i]);
    for (std::size_t s = 0; s < persistent_.size();) {
        auto it = moves.find(persistent_[s]->index);
        if (it == moves.end()) {
            ++s;
        } else if (!it->second.isValid()) {
            dropPersistent_(s);
        } else {
            persistent_[s++]->index = it->second;
        }
    }
}

void KyAbstractItemModel::remapPersistentRows(const KyVector<int>& oldToNew) {
    const int rows = rowCount();
    for (std::size_t s = 0; s < persistent_.size();) {
        const KyModelIndex i = persistent_[s]->index;
        if (parent(i).isValid()) {
            ++s;
            continue;
        }
        const int to = i.row() < oldToNew.count() ? oldToNew[static_cast<std::size_t>(i.row())] : -1;
        if (to < 0 || to >= rows) {
            dropPersistent_(s);
            continue;
        }
        persistent_[s++]->index = index(to, i.column());
    }
}

KyList<KyModelIndex> KyAbstractItemModel::persistentIndexList() const {
    KyList<KyModelIndex> out;
    out.reserve(persistent_.size());
    for (const PersistentIndexData* p : persistent_) out.append(p->index);
    return out;
}

void KyAbstractItemModel::registerPersistent_(PersistentIndexData* entry) const {
    entry->slot = persistent_.size();
    persistent_.push_back(entry);
}

void KyAbstractItemModel::unregisterPersistent_(PersistentIndexData* entry) const {
    const std::size_t s = entry->slot;
    if (s >= persistent_.size() || persistent_[s] != entry) return;
    persistent_[s] = persistent_.back();
    persistent_[s]->slot = s;
    persistent_.pop_back();
}

void KyAbstractItemModel::dropPersistent_(std::size_t slot) {
    PersistentIndexData* p = persistent_[slot];
    p->index = KyModelIndex();
    persistent_[slot] = persistent_.back();
    persistent_[slot]->slot = slot;
    persistent_.pop_back();
}
