// KyStandardItemModel: a table of KyStandardItem cells with header items,
// for lists and tables whose data has no model of its own.
//
// Rows are vectors of cells, every row as wide as the column count; rows
// have the invalid index as their parent. Changing the column count is a
// reset (views re-read the whole shape); row edits emit the row signals;
// setData and setItem emit dataChanged only when a value really changed.
// Lives on the thread that made it, like every model.
#pragma once

#include "gui/modelview/KyAbstractItemModel.h"
#include "gui/modelview/KyStandardItem.h"

/// A flat table of items.
class KyStandardItemModel : public KyAbstractItemModel {
    KY_OBJECT(KyStandardItemModel, KyAbstractItemModel)

public:
    using Row = KyVector<KyStandardItem>;

    explicit KyStandardItemModel(KyObject* parent = nullptr) : KyStandardItemModel(0, 1, parent) {}
    KyStandardItemModel(int rows, int columns, KyObject* parent = nullptr);

    KyModelIndex index(int row, int column, const KyModelIndex& parent = KyModelIndex()) const override;
    KyModelIndex parent(const KyModelIndex& child) const override;
    using KyAbstractItemModel::parent;
    int rowCount(const KyModelIndex& parent = KyModelIndex()) const override;
    int columnCount(const KyModelIndex& parent = KyModelIndex()) const override;
    KyAny data(const KyModelIndex& index, int role = KyItemDataRole::Display) const override;
    bool setData(const KyModelIndex& index, const KyAny& value, int role = KyItemDataRole::Edit) override;
    KyItemFlags flags(const KyModelIndex& index) const override;
    /// The header item's value; without one, the base's section number.
    KyAny headerData(int section, KyOrientation orientation, int role = KyItemDataRole::Display) const override;
    bool setHeaderData(int section, KyOrientation orientation, const KyAny& value,
                       int role = KyItemDataRole::Edit) override;
    /// Inserts count empty rows before row (row == rowCount() appends).
    bool insertRows(int row, int count, const KyModelIndex& parent = KyModelIndex()) override;
    bool removeRows(int row, int count, const KyModelIndex& parent = KyModelIndex()) override;
    /// Stable sort of the rows by the display value of column; persistent
    /// indexes follow their rows.
    void sort(int column, KySortOrder order = KySortOrder::Ascending) override;

    void setRowCount(int rows);
    /// A reset when the count changes; cells past the new width are lost.
    void setColumnCount(int columns);

    /// The cell, or null outside the table.
    const KyStandardItem* item(int row, int column = 0) const;
    /// Replaces a cell; rows are added as needed, columns as needed (a reset).
    void setItem(int row, int column, const KyStandardItem& item);
    /// Adds a row; cells past the column count widen the table (a reset), missing ones are empty.
    void appendRow(const Row& items) { insertRow(rowCount(), items); }
    void appendRow(const KyStandardItem& item) { insertRow(rowCount(), Row{item}); }
    void insertRow(int row, const Row& items);
    using KyAbstractItemModel::insertRow;
    /// Removes a row and gives its cells back (empty when out of range).
    Row takeRow(int row);
    /// Replaces every row in one reset: how a list rebuilt from fresh data is filled.
    void setRows(KyVector<Row> rows);
    /// Drops every row in one reset; columns and header items stay.
    void clear() { setRows({}); }

    const KyStandardItem* headerItem(int section, KyOrientation orientation = KyOrientation::Horizontal) const;
    void setHeaderItem(int section, const KyStandardItem& item, KyOrientation orientation = KyOrientation::Horizontal);
    void setHorizontalHeaderLabels(const KyList<KyString>& labels);

private:
    bool owns_(const KyModelIndex& index) const;
    void fitRow_(Row& row) const;
    KyVector<KyStandardItem>& headers_(KyOrientation orientation);

    KyVector<Row> rows_;
    int columns_ = 1;
    KyVector<KyStandardItem> horizontalHeader_;
    KyVector<KyStandardItem> verticalHeader_;
};
