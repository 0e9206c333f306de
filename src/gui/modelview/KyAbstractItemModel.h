// KyAbstractItemModel: the interface between data and the item views.
//
// A model answers the shape (rowCount, columnCount, index, parent) and the
// values (data by role, flags, headerData) and tells its listeners of every
// change through signals, always in pairs around the change: "about to" while
// the old rows are still readable, then the change, then the "done" signal.
// Subclasses change their storage only between the begin*/end* helpers, which
// emit those signals and keep persistent indexes on their cells.
//
// A model belongs to the thread that made it (the main thread for everything
// a view shows); its signals are meant for direct connections on that thread,
// and every framework listener (proxies, selection models, views) connects
// directly, because an "about to" signal must be handled before the change.
#pragma once

#include <cstdint>
#include <vector>

#include "core/object/KyObject.h"
#include "gui/modelview/KyModelIndex.h"

namespace ky::detail {
struct PersistentIndexData;
}
class KyPersistentModelIndex;

/// Base of every item model; flat lists and tables use the invalid index as
/// the parent of all their rows.
class KyAbstractItemModel : public KyObject {
    KY_OBJECT(KyAbstractItemModel, KyObject)

public:
    explicit KyAbstractItemModel(KyObject* parent = nullptr);
    ~KyAbstractItemModel() override;
    using KyObject::parent;

    // Shape.
    virtual KyModelIndex index(int row, int column, const KyModelIndex& parent = KyModelIndex()) const = 0;
    virtual KyModelIndex parent(const KyModelIndex& child) const = 0;
    virtual int rowCount(const KyModelIndex& parent = KyModelIndex()) const = 0;
    virtual int columnCount(const KyModelIndex& parent = KyModelIndex()) const = 0;
    /// The cell at row, column under index's parent.
    virtual KyModelIndex sibling(int row, int column, const KyModelIndex& index) const;
    /// Whether row and column lie inside parent's table.
    bool hasIndex(int row, int column, const KyModelIndex& parent = KyModelIndex()) const;

    // Values.
    virtual KyAny data(const KyModelIndex& index, int role = KyItemDataRole::Display) const = 0;
    /// Stores value; true when the model took it (and emitted dataChanged). The base refuses.
    virtual bool setData(const KyModelIndex& index, const KyAny& value, int role = KyItemDataRole::Edit);
    /// Selectable and enabled for a valid index, nothing otherwise.
    virtual KyItemFlags flags(const KyModelIndex& index) const;
    /// The base numbers sections from 1 for the display role.
    virtual KyAny headerData(int section, KyOrientation orientation, int role = KyItemDataRole::Display) const;
    virtual bool setHeaderData(int section, KyOrientation orientation, const KyAny& value,
                               int role = KyItemDataRole::Edit);

    // Editing the shape; the base refuses.
    virtual bool insertRows(int row, int count, const KyModelIndex& parent = KyModelIndex());
    virtual bool removeRows(int row, int count, const KyModelIndex& parent = KyModelIndex());
    bool insertRow(int row, const KyModelIndex& parent = KyModelIndex()) { return insertRows(row, 1, parent); }
    bool removeRow(int row, const KyModelIndex& parent = KyModelIndex()) { return removeRows(row, 1, parent); }
    /// Reorders rows by column (a stable sort); the base does nothing.
    virtual void sort(int column, KySortOrder order = KySortOrder::Ascending);

    /// How many persistent indexes point into this model.
    int persistentIndexCount() const { return static_cast<int>(persistent_.size()); }

    // Signals. Rows are first..last inclusive, under parent.
    KY_SIGNAL(dataChanged, const KyModelIndex&, const KyModelIndex&, const KyList<int>&)
    KY_SIGNAL(headerDataChanged, KyOrientation, int, int)
    KY_SIGNAL(rowsAboutToBeInserted, const KyModelIndex&, int, int)
    KY_SIGNAL(rowsInserted, const KyModelIndex&, int, int)
    KY_SIGNAL(rowsAboutToBeRemoved, const KyModelIndex&, int, int)
    KY_SIGNAL(rowsRemoved, const KyModelIndex&, int, int)
    KY_SIGNAL(modelAboutToBeReset)
    KY_SIGNAL(modelReset)
    /// Rows keep their count but change places (a sort); persistent indexes
    /// have moved by the time layoutChanged is emitted.
    KY_SIGNAL(layoutAboutToBeChanged)
    KY_SIGNAL(layoutChanged)

protected:
    KyModelIndex createIndex(int row, int column, std::uintptr_t id = 0) const {
        return KyModelIndex(row, column, id, this);
    }
    KyModelIndex createIndex(int row, int column, const void* pointer) const {
        return KyModelIndex(row, column, reinterpret_cast<std::uintptr_t>(pointer), this);
    }

    /// Rows first..last are about to exist under parent.
    void beginInsertRows(const KyModelIndex& parent, int first, int last);
    void endInsertRows();
    /// Rows first..last under parent (and everything below them) are about to go.
    void beginRemoveRows(const KyModelIndex& parent, int first, int last);
    void endRemoveRows();
    /// Everything is about to change: every index and persistent index ends.
    void beginResetModel();
    void endResetModel();
    /// Emits dataChanged for rows first..last over every column, for the roles given (empty: all).
    void emitRowsChanged(int first, int last, const KyList<int>& roles = {});

    /// Moves every persistent index on from to to (invalid: drops them).
    void changePersistentIndex(const KyModelIndex& from, const KyModelIndex& to);
    /// The same for many cells at once: each persistent index moves at most
    /// once, so from and to may name the same cells (a permutation).
    void changePersistentIndexList(const KyList<KyModelIndex>& from, const KyList<KyModelIndex>& to);
    /// For a reorder of the top-level rows between layoutAboutToBeChanged and
    /// layoutChanged: a persistent index on row r moves to row oldToNew[r]; -1
    /// or a row past the table drops it.
    void remapPersistentRows(const KyVector<int>& oldToNew);
    KyList<KyModelIndex> persistentIndexList() const;

private:
    friend class KyPersistentModelIndex;
    void registerPersistent_(ky::detail::PersistentIndexData* entry) const;
    void unregisterPersistent_(ky::detail::PersistentIndexData* entry) const;
    void dropPersistent_(std::size_t slot);
    static bool isUnder_(const KyModelIndex& index, const KyModelIndex& parent, int first, int last);

    struct Change_ {
        KyModelIndex parent;
        int first = 0;
        int last = -1;
        std::vector<ky::detail::PersistentIndexData*> doomed; ///< below removed rows, found before they go
    };
    Change_ change_;
    mutable std::vector<ky::detail::PersistentIndexData*> persistent_;
};
