// KyStandardItemModel: storage of rows of items, and its edits wrapped in the
// change helpers.
#include "gui/modelview/KyStandardItemModel.h"

#include <algorithm>
#include <numeric>

KyStandardItemModel::KyStandardItemModel(int rows, int columns, KyObject* parent)
    : KyAbstractItemModel(parent), columns_(std::max(columns, 0)) {
    rows_.resize(static_cast<std::size_t>(std::max(rows, 0)), Row(static_cast<std::size_t>(columns_)));
}

bool KyStandardItemModel::owns_(const KyModelIndex& index) const {
    return index.isValid() && index.model() == this && index.row() < rowCount() && index.column() < columns_;
}

void KyStandardItemModel::fitRow_(Row& row) const { row.resize(static_cast<std::size_t>(columns_)); }

KyModelIndex KyStandardItemModel::index(int row, int column, const KyModelIndex& parent) const {
    if (parent.isValid() || row < 0 || column < 0 || row >= rowCount() || column >= columns_) return KyModelIndex();
    return createIndex(row, column);
}

KyModelIndex KyStandardItemModel::parent(const KyModelIndex&) const { return KyModelIndex(); }

int KyStandardItemModel::rowCount(const KyModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

int KyStandardItemModel::columnCount(const KyModelIndex& parent) const { return parent.isValid() ? 0 : columns_; }

KyAny KyStandardItemModel::data(const KyModelIndex& index, int role) const {
    if (!owns_(index)) return KyAny();
    return rows_[std::size_t(index.row())][std::size_t(index.column())].data(role);
}

bool KyStandardItemModel::setData(const KyModelIndex& index, const KyAny& value, int role) {
    if (!owns_(index)) return false;
    KyStandardItem& cell = rows_[std::size_t(index.row())][std::size_t(index.column())];
    if (!cell.setData(value, role)) return true;
    const bool shown = role == KyItemDataRole::Display || role == KyItemDataRole::Edit;
    dataChanged(index, index, shown ? KyList<int>{KyItemDataRole::Display, KyItemDataRole::Edit} : KyList<int>{role});
    return true;
}

KyItemFlags KyStandardItemModel::flags(const KyModelIndex& index) const {
    if (!owns_(index)) return KyItemFlags();
    return rows_[std::size_t(index.row())][std::size_t(index.column())].flags();
}

KyVector<KyStandardItem>& KyStandardItemModel::headers_(KyOrientation orientation) {
    return orientation == KyOrientation::Horizontal ? horizontalHeader_ : verticalHeader_;
}

const KyStandardItem* KyStandardItemModel::headerItem(int section, KyOrientation orientation) const {
    const auto& list = orientation == KyOrientation::Horizontal ? horizontalHeader_ : verticalHeader_;
    return section >= 0 && section < list.count() ? &list[std::size_t(section)] : nullptr;
}

KyAny KyStandardItemModel::headerData(int section, KyOrientation orientation, int role) const {
    if (const KyStandardItem* h = headerItem(section, orientation); h && h->hasData(role)) return h->data(role);
    return KyAbstractItemModel::headerData(section, orientation, role);
}

bool KyStandardItemModel::setHeaderData(int section, KyOrientation orientation, const KyAny& value, int role) {
    const int limit = orientation == KyOrientation::Horizontal ? columns_ : rowCount();
    if (section < 0 || section >= limit) return false;
    auto& list = headers_(orientation);
    if (list.count() <= section) list.resize(std::size_t(section) + 1);
    if (list[std::size_t(section)].setData(value, role)) headerDataChanged(orientation, section, section);
    return true;
}

void KyStandardItemModel::setHeaderItem(int section, const KyStandardItem& item, KyOrientation orientation) {
    if (section < 0) return;
    auto& list = headers_(orientation);
    if (list.count() <= section) list.resize(std::size_t(section) + 1);
    list[std::size_t(section)] = item;
    headerDataChanged(orientation, section, section);
}

void KyStandardItemModel::setHorizontalHeaderLabels(const KyList<KyString>& labels) {
    if (labels.count() > columns_) setColumnCount(labels.count());
    if (horizontalHeader_.count() < labels.count()) horizontalHeader_.resize(labels.size());
    for (int i = 0; i < labels.count(); ++i) horizontalHeader_[std::size_t(i)].setText(labels[std::size_t(i)]);
    if (!labels.isEmpty()) headerDataChanged(KyOrientation::Horizontal, 0, labels.count() - 1);
}

bool KyStandardItemModel::insertRows(int row, int count, const KyModelIndex& parent) {
    if (parent.isValid() || count <= 0 || row < 0 || row > rowCount()) return false;
    beginInsertRows(KyModelIndex(), row, row + count - 1);
    rows_.insert(rows_.begin() + row, std::size_t(count), Row(std::size_t(columns_)));
    endInsertRows();
    return true;
}

bool KyStandardItemModel::removeRows(int row, int count, const KyModelIndex& parent) {
    if (parent.isValid() || count <= 0 || row < 0 || row + count > rowCount()) return false;
    beginRemoveRows(KyModelIndex(), row, row + count - 1);
    rows_.erase(rows_.begin() + row, rows_.begin() + row + count);
    if (verticalHeader_.count() > row)
        verticalHeader_.erase(verticalHeader_.begin() + row,
                              verticalHeader_.begin() + std::min(row + count, verticalHeader_.count()));
    endRemoveRows();
    return true;
}

void KyStandardItemModel::setRowCount(int rows) {
    rows = std::max(rows, 0);
    if (rows > rowCount()) insertRows(rowCount(), rows - rowCount());
    else if (rows < rowCount()) removeRows(rows, rowCount() - rows);
}

void KyStandardItemModel::setColumnCount(int columns) {
    columns = std::max(columns, 0);
    if (columns == columns_) return;
    beginResetModel();
    columns_ = columns;
    for (Row& r : rows_) fitRow_(r);
    if (horizontalHeader_.count() > columns) horizontalHeader_.resize(std::size_t(columns));
    endResetModel();
}

const KyStandardItem* KyStandardItemModel::item(int row, int column) const {
    if (row < 0 || column < 0 || row >= rowCount() || column >= columns_) return nullptr;
    return &rows_[std::size_t(row)][std::size_t(column)];
}

void KyStandardItemModel::setItem(int row, int column, const KyStandardItem& item) {
    if (row < 0 || column < 0) return;
    if (column >= columns_) setColumnCount(column + 1);
    if (row >= rowCount()) insertRows(rowCount(), row + 1 - rowCount());
    KyStandardItem& cell = rows_[std::size_t(row)][std::size_t(column)];
    if (cell == item) return;
    cell = item;
    const KyModelIndex i = index(row, column);
    dataChanged(i, i, {});
}

void KyStandardItemModel::insertRow(int row, const Row& items) {
    if (row < 0 || row > rowCount()) return;
    if (items.count() > columns_) setColumnCount(items.count());
    Row fitted = items;
    fitRow_(fitted);
    beginInsertRows(KyModelIndex(), row, row);
    rows_.insert(rows_.begin() + row, std::move(fitted));
    endInsertRows();
}

KyStandardItemModel::Row KyStandardItemModel::takeRow(int row) {
    if (row < 0 || row >= rowCount()) return {};
    Row out = rows_[std::size_t(row)];
    removeRows(row, 1);
    return out;
}

void KyStandardItemModel::setRows(KyVector<Row> rows) {
    beginResetModel();
    int widest = columns_;
    for (const Row& r : rows) widest = std::max(widest, r.count());
    columns_ = widest;
    rows_ = std::move(rows);
    for (Row& r : rows_) fitRow_(r);
    verticalHeader_.clear();
    endResetModel();
}

void KyStandardItemModel::sort(int column, KySortOrder order) {
    if (column < 0 || column >= columns_ || rows_.size() < 2) return;
    layoutAboutToBeChanged();
    KyVector<int> order_(rows_.size());
    std::iota(order_.begin(), order_.end(), 0);
    KyVector<KyItemSortKey> keys;
    keys.reserve(rows_.size());
    for (const Row& r : rows_) keys.append(kyItemSortKey(r[std::size_t(column)].data(KyItemDataRole::Display)));
    std::stable_sort(order_.begin(), order_.end(), [&](int a, int b) {
        const int c = kyCompareSortKeys(keys[std::size_t(a)], keys[std::size_t(b)]);
        return order == KySortOrder::Ascending ? c < 0 : c > 0;
    });
    KyVector<Row> sorted;
    sorted.reserve(rows_.size());
    KyVector<int> oldToNew(rows_.size());
    for (std::size_t i = 0; i < order_.size(); ++i) {
        sorted.append(std::move(rows_[std::size_t(order_[i])]));
        oldToNew[std::size_t(order_[i])] = static_cast<int>(i);
    }
    rows_ = std::move(sorted);
    verticalHeader_.clear();
    remapPersistentRows(oldToNew);
    layoutChanged();
}
