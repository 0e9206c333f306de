// KyItemSelectionModel: which rows of a model are selected, and which cell is
// current, kept right while the model changes under them.
//
// Selection is by whole rows of a flat model (lists and tables), held as
// sorted runs of rows, so selecting ten thousand rows is one run. Inserted
// rows are never selected and push the selection down; removed rows leave it
// (a selectionChanged names them while they can still be read) and the
// current cell moves to the row above the removed ones, else below, else
// nowhere. A reorder (layoutChanged) keeps the same items selected. A reset
// drops everything unless a key role is set: then the rows whose key matches
// a selected row's key before the reset are selected again, and the current
// row follows its key. Every net change is signalled.
//
// Belongs to the model's thread and listens to the model directly.
#pragma once

#include <unordered_set>

#include "gui/modelview/KyAbstractItemModel.h"
#include "gui/modelview/KyPersistentModelIndex.h"

/// A run of whole rows, first to last inclusive.
struct KyRowRange {
    int first = 0;
    int last = -1;
    int count() const { return last - first + 1; }
    bool contains(int row) const { return row >= first && row <= last; }
    friend bool operator==(const KyRowRange&, const KyRowRange&) = default;
};
/// Sorted, disjoint, non-adjacent runs.
using KyRowRanges = KyVector<KyRowRange>;

/// Selected rows and the current cell of one model.
class KyItemSelectionModel : public KyObject {
    KY_OBJECT(KyItemSelectionModel, KyObject)

public:
    /// How select() changes the selection: Clear runs first, then one of the others.
    enum SelectionFlag : unsigned {
        NoUpdate = 0,
        Clear = 1,
        Select = 2,
        Deselect = 4,
        Toggle = 8,
        ClearAndSelect = Clear | Select,
    };
    using SelectionFlags = unsigned;

    explicit KyItemSelectionModel(KyAbstractItemModel* model = nullptr, KyObject* parent = nullptr);
    ~KyItemSelectionModel() override;

    KyAbstractItemModel* model() const { return model_; }
    /// Follows another model; the selection and current cell are dropped (signalled).
    void setModel(KyAbstractItemModel* model);

    KyModelIndex currentIndex() const { return current_.index(); }
    /// Makes index current and applies command to its row.
    void setCurrentIndex(const KyModelIndex& index, SelectionFlags command);
    void clearCurrentIndex() { setCurrentIndex(KyModelIndex(), NoUpdate); }

    void select(const KyModelIndex& index, SelectionFlags command);
    /// Applies command to rows first..last (clamped to the model).
    void select(int first, int last, SelectionFlags command);
    void selectAll() { select(0, model_ ? model_->rowCount() - 1 : -1, ClearAndSelect); }
    void clearSelection() { select(0, -1, Clear); }
    /// Drops selection and current cell.
    void clear();

    bool isRowSelected(int row) const;
    bool isSelected(const KyModelIndex& index) const;
    bool hasSelection() const { return !ranges_.isEmpty(); }
    int selectedRowCount() const;
    const KyRowRanges& selection() const { return ranges_; }
    /// The selected rows in order, as indexes of column.
    KyList<KyModelIndex> selectedRows(int column = 0) const;

    /// The role whose values survive a reset (a row's id); -1, the default, drops the selection.
    void setResetKeyRole(int role) { keyRole_ = role; }
    int resetKeyRole() const { return keyRole_; }

    KY_SIGNAL(currentChanged, const KyModelIndex&, const KyModelIndex&)
    /// Rows newly selected and rows no longer selected (numbered as when they left).
    KY_SIGNAL(selectionChanged, const KyRowRanges&, const KyRowRanges&)
    KY_SIGNAL(modelChanged, KyAbstractItemModel*)

private:
    void setCurrent_(const KyModelIndex& index);
    void replaceRanges_(KyRowRanges next);
    void onRowsInserted_(const KyModelIndex& parent, int first, int last);
    void onRowsAboutToBeRemoved_(const KyModelIndex& parent, int first, int last);
    void onRowsRemoved_(const KyModelIndex& parent, int first, int last);
    void onAboutToBeReset_();
    void onReset_();
    void onLayoutAboutToBeChanged_();
    void onLayoutChanged_();
    void onModelDestroyed_();

    KyAbstractItemModel* model_ = nullptr;
    KyRowRanges ranges_;
    KyPersistentModelIndex current_;
    int keyRole_ = -1;
    // Carried across a reset or a reorder.
    std::unordered_set<KyString> savedKeys_;
    KyString savedCurrentKey_;
    int savedCurrentColumn_ = 0;
    KyModelIndex previousCurrent_;
    bool savedAllRows_ = false;
    KyVector<KyPersistentModelIndex> savedRows_;
};
