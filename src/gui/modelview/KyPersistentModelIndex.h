// KyPersistentModelIndex: a model index that follows its cell while the model
// inserts, removes and reorders rows.
//
// The model keeps a table of every live persistent index and moves them in
// endInsertRows, endRemoveRows and layout changes; a removed cell, a reset or
// the model's end leaves the index invalid. Copies share one entry. Like the
// model, a persistent index belongs to the model's thread. Views hold the cell
// an editor is open on, selection models hold the current cell.
#pragma once

#include <cstddef>
#include <memory>

#include "gui/modelview/KyModelIndex.h"

namespace ky::detail {
/// One entry of a model's persistent-index table.
struct PersistentIndexData {
    KyModelIndex index;
    std::size_t slot = 0; ///< position in the model's table, for removal in constant time
};
} // namespace ky::detail

/// A model index kept up to date by its model.
class KyPersistentModelIndex {
public:
    KyPersistentModelIndex() = default;
    KyPersistentModelIndex(const KyModelIndex& index);
    KyPersistentModelIndex& operator=(const KyModelIndex& index);

    bool isValid() const { return d_ && d_->index.isValid(); }
    /// The cell as it is now (invalid once removed).
    KyModelIndex index() const { return d_ ? d_->index : KyModelIndex(); }
    operator KyModelIndex() const { return index(); }
    int row() const { return index().row(); }
    int column() const { return index().column(); }
    const KyAbstractItemModel* model() const { return index().model(); }
    KyAny data(int role = KyItemDataRole::Display) const { return index().data(role); }

    friend bool operator==(const KyPersistentModelIndex& a, const KyPersistentModelIndex& b) {
        return a.index() == b.index();
    }
    friend bool operator==(const KyPersistentModelIndex& a, const KyModelIndex& b) { return a.index() == b; }

private:
    std::shared_ptr<ky::detail::PersistentIndexData> d_;
};
