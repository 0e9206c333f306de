// KySortFilterProxyModel: a filtered and sorted view of another flat model.
//
// The proxy keeps two tables: the source row of every proxy row, in proxy
// order, and the proxy row of every source row (-1 when filtered out), so
// mapping either way is one lookup. The default filter is a case-insensitive
// substring of one column or of any column (-1), read under the filter role;
// the default order compares values as kyCompareItemData does, under the sort
// role, and is stable: equal rows keep their source order. Column -1 means
// the source's own order. While a sort runs, the default order reads and
// folds each row's value once (a subclass's own lessThan reads what it likes).
//
// The proxy follows its source as it changes, incrementally: removed and
// inserted source rows, and rows whose value now passes or fails the filter,
// become rows removed and inserted here, one signal pair per run of
// neighbouring rows; a row whose sort key changed moves in a layout change.
// An update that would take more than kMaxIncrementalRuns runs is one reset
// instead. Edits made through the proxy (setData, insertRows, removeRows) go
// to the source, and come back through its signals.
//
// Belongs to its source's thread and listens to it directly.
#pragma once

#include <string>

#include "gui/modelview/KyAbstractItemModel.h"
#include "gui/modelview/KyPersistentModelIndex.h"

/// Filtering and sorting proxy over a flat list or table.
class KySortFilterProxyModel : public KyAbstractItemModel {
    KY_OBJECT(KySortFilterProxyModel, KyAbstractItemModel)

public:
    static constexpr int kMaxIncrementalRuns = 256;

    explicit KySortFilterProxyModel(KyObject* parent = nullptr);
    ~KySortFilterProxyModel() override;

    KyAbstractItemModel* sourceModel() const { return source_; }
    /// Follows source (null: none); a reset of the proxy.
    void setSourceModel(KyAbstractItemModel* source);

    KyModelIndex mapToSource(const KyModelIndex& proxyIndex) const;
    KyModelIndex mapFromSource(const KyModelIndex& sourceIndex) const;
    /// The source row of a proxy row, -1 when out of range.
    int mapRowToSource(int proxyRow) const;
    /// The proxy row of a source row, -1 when filtered out or out of range.
    int mapRowFromSource(int sourceRow) const;

    /// Keeps rows whose text contains text, ignoring case; empty keeps every row.
    void setFilterFixedString(const KyString& text);
    const KyString& filterFixedString() const { return filterText_; }
    /// The column the filter reads; -1 reads every column.
    void setFilterKeyColumn(int column);
    int filterKeyColumn() const { return filterColumn_; }
    void setFilterRole(int role);
    int filterRole() const { return filterRole_; }
    /// Runs the filter again over every source row (after what filterAcceptsRow reads changed).
    void invalidateFilter();

    /// Orders rows by column (-1: source order); persistent indexes follow their rows.
    void sort(int column, KySortOrder order = KySortOrder::Ascending) override;
    int sortColumn() const { return sortColumn_; }
    KySortOrder sortOrder() const { return sortOrder_; }
    void setSortRole(int role);
    int sortRole() const { return sortRole_; }
    /// Filter and order again from scratch.
    void invalidate();

    KyModelIndex index(int row, int column, const KyModelIndex& parent = KyModelIndex()) const override;
    KyModelIndex parent(const KyModelIndex& child) const override;
    using KyAbstractItemModel::parent;
    int rowCount(const KyModelIndex& parent = KyModelIndex()) const override;
    int columnCount(const KyModelIndex& parent = KyModelIndex()) const override;
    KyAny data(const KyModelIndex& index, int role = KyItemDataRole::Display) const override;
    bool setData(const KyModelIndex& index, const KyAny& value, int role = KyItemDataRole::Edit) override;
    KyItemFlags flags(const KyModelIndex& index) const override;
    KyAny headerData(int section, KyOrientation orientation, int role = KyItemDataRole::Display) const override;
    bool setHeaderData(int section, KyOrientation orientation, const KyAny& value,
                       int role = KyItemDataRole::Edit) override;
    /// Inserts into the source before the source row of row (at its end for row == rowCount()).
    bool insertRows(int row, int count, const KyModelIndex& parent = KyModelIndex()) override;
    /// Removes the source rows behind proxy rows row..row+count-1.
    bool removeRows(int row, int count, const KyModelIndex& parent = KyModelIndex()) override;

protected:
    virtual bool filterAcceptsRow(int sourceRow, const KyModelIndex& sourceParent) const;
    /// Whether left sorts before right; both are source cells of the sort column.
    virtual bool lessThan(const KyModelIndex& sourceLeft, const KyModelIndex& sourceRight) const;

private:
    bool before_(int sourceA, int sourceB) const;
    void rebuild_();
    void reindexFrom_(int proxyRow);
    void removeProxyRows_(KyVector<int> proxyRows);
    void insertSourceRows_(KyVector<int> sourceRows);
    void reorder_(const KyVector<int>& movedSourceRows);
    void refilter_();
    void resort_();
    void finishReorder_(const KyVector<int>& old);

    void onDataChanged_(const KyModelIndex& topLeft, const KyModelIndex& bottomRight, const KyList<int>& roles);
    void onRowsInserted_(const KyModelIndex& parent, int first, int last);
    void onRowsAboutToBeRemoved_(const KyModelIndex& parent, int first, int last);
    void onRowsRemoved_(const KyModelIndex& parent, int first, int last);
    void onLayoutAboutToBeChanged_();
    void onLayoutChanged_();
    void onSourceDestroyed_();
    // While a sort runs, the base lessThan reads each row's value once.
    void beginKeyCache_();
    void endKeyCache_();
    const KyItemSortKey& cachedKey_(int sourceRow) const;

    KyAbstractItemModel* source_ = nullptr;
    KyVector<int> proxyToSource_;
    KyVector<int> sourceToProxy_;
    KyString filterText_;
    std::string filterFolded_;
    mutable std::string foldScratch_;
    int filterColumn_ = 0;
    int filterRole_ = KyItemDataRole::Display;
    int sortColumn_ = -1;
    KySortOrder sortOrder_ = KySortOrder::Ascending;
    int sortRole_ = KyItemDataRole::Display;
    bool keyCacheOn_ = false;
    mutable KyVector<KyItemSortKey> keyCache_;
    mutable KyVector<char> keyCached_;
    // A source reorder: our persistent cells, and where they were in the source.
    KyList<KyModelIndex> layoutFrom_;
    KyVector<KyPersistentModelIndex> layoutSource_;
};
