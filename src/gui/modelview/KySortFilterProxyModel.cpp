// KySortFilterProxyModel: the two mapping tables, the filter and the order,
// and the source's changes turned into the proxy's own.
#include "gui/modelview/KySortFilterProxyModel.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

namespace {

struct Run {
    int first;
    int count;
};

// Groups sorted, distinct rows into runs of neighbours.
KyVector<Run> runsOf(const KyVector<int>& sorted) {
    KyVector<Run> runs;
    for (int row : sorted) {
        if (!runs.isEmpty() && runs.last().first + runs.last().count == row) ++runs.last().count;
        else runs.append({row, 1});
    }
    return runs;
}

} // namespace

KySortFilterProxyModel::KySortFilterProxyModel(KyObject* parent) : KyAbstractItemModel(parent) {}

KySortFilterProxyModel::~KySortFilterProxyModel() = default;

void KySortFilterProxyModel::setSourceModel(KyAbstractItemModel* source) {
    if (source == source_) return;
    beginResetModel();
    if (source_) KyObject::disconnect(source_, this);
    source_ = source;
    if (source_) {
        using M = KyAbstractItemModel;
        constexpr auto direct = KyObject::ConnectionDirect;
        KyObject::connect(source_, &M::dataChanged, this,
                          [this](const KyModelIndex& a, const KyModelIndex& b, const KyList<int>& roles) {
                              onDataChanged_(a, b, roles);
                          }, direct);
        KyObject::connect(source_, &M::headerDataChanged, this, [this](KyOrientation o, int first, int last) {
            if (o == KyOrientation::Horizontal) headerDataChanged(o, first, last);
            else if (rowCount() > 0) headerDataChanged(o, 0, rowCount() - 1);
        }, direct);
        KyObject::connect(source_, &M::rowsInserted, this, [this](const KyModelIndex& p, int f, int l) { onRowsInserted_(p, f, l); }, direct);
        KyObject::connect(source_, &M::rowsAboutToBeRemoved, this,
                          [this](const KyModelIndex& p, int f, int l) { onRowsAboutToBeRemoved_(p, f, l); }, direct);
        KyObject::connect(source_, &M::rowsRemoved, this, [this](const KyModelIndex& p, int f, int l) { onRowsRemoved_(p, f, l); }, direct);
        KyObject::connect(source_, &M::modelAboutToBeReset, this, [this] { beginResetModel(); }, direct);
        KyObject::connect(source_, &M::modelReset, this, [this] {
            rebuild_();
            endResetModel();
        }, direct);
        KyObject::connect(source_, &M::layoutAboutToBeChanged, this, [this] { onLayoutAboutToBeChanged_(); }, direct);
        KyObject::connect(source_, &M::layoutChanged, this, [this] { onLayoutChanged_(); }, direct);
        KyObject::connect(source_, &M::destroyed, this, [this] { onSourceDestroyed_(); }, direct);
    }
    rebuild_();
    endResetModel();
}

void KySortFilterProxyModel::onSourceDestroyed_() {
    // The source is past its own destructor: only forget it.
    beginResetModel();
    source_ = nullptr;
    rebuild_();
    endResetModel();
}

// ---- Mapping ----

int KySortFilterProxyModel::mapRowToSource(int proxyRow) const {
    return proxyRow >= 0 && proxyRow < proxyToSource_.count() ? proxyToSource_[std::size_t(proxyRow)] : -1;
}

int KySortFilterProxyModel::mapRowFromSource(int sourceRow) const {
    return sourceRow >= 0 && sourceRow < sourceToProxy_.count() ? sourceToProxy_[std::size_t(sourceRow)] : -1;
}

KyModelIndex KySortFilterProxyModel::mapToSource(const KyModelIndex& proxyIndex) const {
    if (!source_ || !proxyIndex.isValid() || proxyIndex.model() != this) return KyModelIndex();
    const int row = mapRowToSource(proxyIndex.row());
    return row < 0 ? KyModelIndex() : source_->index(row, proxyIndex.column());
}

KyModelIndex KySortFilterProxyModel::mapFromSource(const KyModelIndex& sourceIndex) const {
    if (!source_ || !sourceIndex.isValid() || sourceIndex.model() != source_ || sourceIndex.parent().isValid())
        return KyModelIndex();
    const int row = mapRowFromSource(sourceIndex.row());
    return row < 0 || sourceIndex.column() >= columnCount() ? KyModelIndex() : createIndex(row, sourceIndex.column());
}

void KySortFilterProxyModel::reindexFrom_(int proxyRow) {
    for (std::size_t i = std::size_t(std::max(proxyRow, 0)); i < proxyToSource_.size(); ++i)
        sourceToProxy_[std::size_t(proxyToSource_[i])] = static_cast<int>(i);
}

// ---- Filter and order ----

bool KySortFilterProxyModel::filterAcceptsRow(int sourceRow, const KyModelIndex& sourceParent) const {
    if (filterFolded_.empty()) return true;
    const int columns = source_->columnCount(sourceParent);
    const int from = filterColumn_ < 0 ? 0 : filterColumn_;
    const int to = filterColumn_ < 0 ? columns - 1 : std::min(filterColumn_, columns - 1);
    for (int c = from; c <= to; ++c) {
        const KyString text = source_->index(sourceRow, c, sourceParent).data(filterRole_).toString();
        if (kyContainsFolded(text.view(), filterFolded_, foldScratch_)) return true;
    }
    return false;
}

bool KySortFilterProxyModel::lessThan(const KyModelIndex& left, const KyModelIndex& right) const {
    const auto cached = [this](const KyModelIndex& i) {
        return keyCacheOn_ && i.model() == source_ && i.column() == sortColumn_ && i.row() < keyCache_.count();
    };
    if (cached(left) && cached(right)) return kyCompareSortKeys(cachedKey_(left.row()), cachedKey_(right.row())) < 0;
    return kyCompareItemData(left.data(sortRole_), right.data(sortRole_)) < 0;
}

void KySortFilterProxyModel::beginKeyCache_() {
    const std::size_t rows = source_ ? std::size_t(std::max(source_->rowCount(), 0)) : 0;
    keyCache_.assign(rows, KyItemSortKey());
    keyCached_.assign(rows, 0);
    keyCacheOn_ = true;
}

void KySortFilterProxyModel::endKeyCache_() {
    keyCacheOn_ = false;
    keyCache_.clear();
    keyCache_.shrink_to_fit();
    keyCached_.clear();
}

const KyItemSortKey& KySortFilterProxyModel::cachedKey_(int row) const {
    const std::size_t r = std::size_t(row);
    if (!keyCached_[r]) {
        keyCache_[r] = kyItemSortKey(source_->index(row, sortColumn_).data(sortRole_));
        keyCached_[r] = 1;
    }
    return keyCache_[r];
}

// A strict total order on source rows: the sort key, then the source row, so
// equal keys keep their source order in both directions.
bool KySortFilterProxyModel::before_(int a, int b) const {
    if (sortColumn_ < 0 || a == b) return a < b;
    const KyModelIndex l = source_->index(a, sortColumn_);
    const KyModelIndex r = source_->index(b, sortColumn_);
    const bool ascending = sortOrder_ == KySortOrder::Ascending;
    if (lessThan(ascending ? l : r, ascending ? r : l)) return true;
    if (lessThan(ascending ? r : l, ascending ? l : r)) return false;
    return a < b;
}

void KySortFilterProxyModel::rebuild_() {
    proxyToSource_.clear();
    sourceToProxy_.clear();
    if (!source_) return;
    const int rows = source_->rowCount();
    sourceToProxy_.assign(std::size_t(std::max(rows, 0)), -1);
    for (int r = 0; r < rows; ++r)
        if (filterAcceptsRow(r, KyModelIndex())) proxyToSource_.append(r);
    if (sortColumn_ >= 0 && sortColumn_ < source_->columnCount()) {
        beginKeyCache_();
        std::sort(proxyToSource_.begin(), proxyToSource_.end(), [this](int a, int b) { return before_(a, b); });
        endKeyCache_();
    }
    reindexFrom_(0);
}

void KySortFilterProxyModel::removeProxyRows_(KyVector<int> proxyRows) {
    if (proxyRows.isEmpty()) return;
    std::sort(proxyRows.begin(), proxyRows.end());
    const KyVector<Run> runs = runsOf(proxyRows);
    if (runs.count() > kMaxIncrementalRuns) {
        beginResetModel();
        for (int p : proxyRows) sourceToProxy_[std::size_t(proxyToSource_[std::size_t(p)])] = -1;
        for (auto it = runs.rbegin(); it != runs.rend(); ++it)
            proxyToSource_.erase(proxyToSource_.begin() + it->first, proxyToSource_.begin() + it->first + it->count);
        reindexFrom_(0);
        endResetModel();
        return;
    }
    // From the bottom up, so the rows of the runs still to come stay put.
    for (auto it = runs.rbegin(); it != runs.rend(); ++it) {
        beginRemoveRows(KyModelIndex(), it->first, it->first + it->count - 1);
        for (int p = it->first; p < it->first + it->count; ++p) sourceToProxy_[std::size_t(proxyToSource_[std::size_t(p)])] = -1;
        proxyToSource_.erase(proxyToSource_.begin() + it->first, proxyToSource_.begin() + it->first + it->count);
        reindexFrom_(it->first);
        endRemoveRows();
    }
}

void KySortFilterProxyModel::insertSourceRows_(KyVector<int> sourceRows) {
    if (sourceRows.isEmpty()) return;
    // Where each new row lands in the final order; runs of landings become
    // one insertion each, made top-down so that every landing row is the
    // row it will have when all are in. All comparing is done before the
    // first signal, while the source cannot change.
    const auto order = [this](int a, int b) { return before_(a, b); };
    // Keys pay for themselves once there are many rows to place.
    const bool cache = sortColumn_ >= 0 && sourceRows.size() > 64;
    if (cache) beginKeyCache_();
    std::sort(sourceRows.begin(), sourceRows.end(), order);
    KyVector<int> landing;
    landing.reserve(sourceRows.size());
    auto old = proxyToSource_.begin();
    for (std::size_t i = 0; i < sourceRows.size(); ++i) {
        old = std::lower_bound(old, proxyToSource_.end(), sourceRows[i], order);
        landing.append(static_cast<int>(std::size_t(old - proxyToSource_.begin()) + i));
    }
    if (cache) endKeyCache_();
    const KyVector<Run> runs = runsOf(landing);
    if (runs.count() > kMaxIncrementalRuns) {
        beginResetModel();
        KyVector<int> merged(proxyToSource_.size() + sourceRows.size(), -1);
        for (std::size_t i = 0; i < landing.size(); ++i) merged[std::size_t(landing[i])] = sourceRows[i];
        std::size_t from = 0;
        for (int& slot : merged)
            if (slot < 0) slot = proxyToSource_[from++];
        proxyToSource_ = std::move(merged);
        reindexFrom_(0);
        endResetModel();
        return;
    }
    std::size_t next = 0;
    for (const Run& run : runs) {
        beginInsertRows(KyModelIndex(), run.first, run.first + run.count - 1);
        proxyToSource_.insert(proxyToSource_.begin() + run.first, sourceRows.begin() + std::ptrdiff_t(next),
                              sourceRows.begin() + std::ptrdiff_t(next) + run.count);
        next += std::size_t(run.count);
        reindexFrom_(run.first);
        endInsertRows();
    }
}

void KySortFilterProxyModel::reorder_(const KyVector<int>& moved) {
    layoutAboutToBeChanged();
    const KyVector<int> old = proxyToSource_;
    KyVector<char> isMoved(sourceToProxy_.size(), 0);
    for (int s : moved) isMoved[std::size_t(s)] = 1;
    KyVector<int> rest;
    rest.reserve(old.size());
    for (int s : old)
        if (!isMoved[std::size_t(s)]) rest.append(s);
    KyVector<int> sortedMoved = moved;
    const auto order = [this](int a, int b) { return before_(a, b); };
    beginKeyCache_();
    std::sort(sortedMoved.begin(), sortedMoved.end(), order);
    proxyToSource_.clear();
    std::merge(rest.begin(), rest.end(), sortedMoved.begin(), sortedMoved.end(), std::back_inserter(proxyToSource_), order);
    endKeyCache_();
    finishReorder_(old);
}

// After proxyToSource_ took its new order: moves the persistent cells from
// the order old and tells the listeners.
void KySortFilterProxyModel::finishReorder_(const KyVector<int>& old) {
    reindexFrom_(0);
    KyVector<int> oldToNew(old.size());
    for (std::size_t i = 0; i < old.size(); ++i) oldToNew[i] = sourceToProxy_[std::size_t(old[i])];
    remapPersistentRows(oldToNew);
    layoutChanged();
}

void KySortFilterProxyModel::resort_() {
    layoutAboutToBeChanged();
    const KyVector<int> old = proxyToSource_;
    beginKeyCache_();
    std::sort(proxyToSource_.begin(), proxyToSource_.end(), [this](int a, int b) { return before_(a, b); });
    endKeyCache_();
    finishReorder_(old);
}

void KySortFilterProxyModel::refilter_() {
    if (!source_) return;
    KyVector<int> leaving;
    KyVector<int> arriving;
    const int rows = source_->rowCount();
    for (int r = 0; r < rows; ++r) {
        const bool accepted = filterAcceptsRow(r, KyModelIndex());
        const int p = sourceToProxy_[std::size_t(r)];
        if (p >= 0 && !accepted) leaving.append(p);
        else if (p < 0 && accepted) arriving.append(r);
    }
    removeProxyRows_(std::move(leaving));
    insertSourceRows_(std::move(arriving));
}

void KySortFilterProxyModel::setFilterFixedString(const KyString& text) {
    if (text == filterText_) return;
    filterText_ = text;
    filterFolded_ = kyFoldCase(text.view());
    refilter_();
}

void KySortFilterProxyModel::setFilterKeyColumn(int column) {
    if (column == filterColumn_) return;
    filterColumn_ = column < 0 ? -1 : column;
    refilter_();
}

void KySortFilterProxyModel::setFilterRole(int role) {
    if (role == filterRole_) return;
    filterRole_ = role;
    refilter_();
}

void KySortFilterProxyModel::invalidateFilter() { refilter_(); }

void KySortFilterProxyModel::sort(int column, KySortOrder order) {
    sortColumn_ = column < 0 ? -1 : column;
    sortOrder_ = order;
    if (source_) resort_();
}

void KySortFilterProxyModel::setSortRole(int role) {
    if (role == sortRole_) return;
    sortRole_ = role;
    if (source_ && sortColumn_ >= 0) resort_();
}

void KySortFilterProxyModel::invalidate() {
    refilter_();
    if (source_) resort_();
}

// ---- Following the source ----

void KySortFilterProxyModel::onDataChanged_(const KyModelIndex& topLeft, const KyModelIndex& bottomRight,
                                            const KyList<int>& roles) {
    if (!topLeft.isValid() || topLeft.parent().isValid()) return;
    const int first = topLeft.row();
    const int last = std::min(bottomRight.row(), source_->rowCount() - 1);
    KyVector<int> leaving;
    KyVector<int> arriving;
    KyVector<int> staying;
    for (int r = first; r <= last; ++r) {
        const bool accepted = filterAcceptsRow(r, KyModelIndex());
        const int p = sourceToProxy_[std::size_t(r)];
        if (p >= 0 && !accepted) leaving.append(p);
        else if (p < 0 && accepted) arriving.append(r);
        else if (p >= 0) staying.append(r);
    }
    removeProxyRows_(std::move(leaving));
    if (sortColumn_ >= topLeft.column() && sortColumn_ <= bottomRight.column()) {
        // Every neighbour pair in order means the whole order holds.
        const int n = proxyToSource_.count();
        const bool misplaced = std::any_of(staying.begin(), staying.end(), [&](int s) {
            const int p = sourceToProxy_[std::size_t(s)];
            return (p > 0 && !before_(proxyToSource_[std::size_t(p - 1)], s)) ||
                   (p + 1 < n && !before_(s, proxyToSource_[std::size_t(p + 1)]));
        });
        if (misplaced) reorder_(staying);
    }
    insertSourceRows_(std::move(arriving));
    if (staying.isEmpty()) return;
    int top = proxyToSource_.count();
    int bottom = -1;
    for (int s : staying) {
        top = std::min(top, sourceToProxy_[std::size_t(s)]);
        bottom = std::max(bottom, sourceToProxy_[std::size_t(s)]);
    }
    dataChanged(createIndex(top, topLeft.column()), createIndex(bottom, bottomRight.column()), roles);
}

void KySortFilterProxyModel::onRowsInserted_(const KyModelIndex& parent, int first, int last) {
    if (parent.isValid()) return;
    const int n = last - first + 1;
    for (int& s : proxyToSource_)
        if (s >= first) s += n;
    sourceToProxy_.insert(sourceToProxy_.begin() + first, std::size_t(n), -1);
    KyVector<int> arriving;
    for (int r = first; r <= last; ++r)
        if (filterAcceptsRow(r, KyModelIndex())) arriving.append(r);
    insertSourceRows_(std::move(arriving));
}

void KySortFilterProxyModel::onRowsAboutToBeRemoved_(const KyModelIndex& parent, int first, int last) {
    if (parent.isValid()) return;
    KyVector<int> leaving;
    for (int r = first; r <= last; ++r)
        if (const int p = sourceToProxy_[std::size_t(r)]; p >= 0) leaving.append(p);
    removeProxyRows_(std::move(leaving));
}

void KySortFilterProxyModel::onRowsRemoved_(const KyModelIndex& parent, int first, int last) {
    if (parent.isValid()) return;
    const int n = last - first + 1;
    for (int& s : proxyToSource_)
        if (s > last) s -= n;
    sourceToProxy_.erase(sourceToProxy_.begin() + first, sourceToProxy_.begin() + last + 1);
}

void KySortFilterProxyModel::onLayoutAboutToBeChanged_() {
    // Told first, so that listeners take their own persistent cells now.
    layoutAboutToBeChanged();
    layoutFrom_ = persistentIndexList();
    layoutSource_.clear();
    for (const KyModelIndex& i : layoutFrom_) layoutSource_.append(KyPersistentModelIndex(mapToSource(i)));
}

void KySortFilterProxyModel::onLayoutChanged_() {
    rebuild_();
    KyList<KyModelIndex> to;
    for (const KyPersistentModelIndex& s : layoutSource_) to.append(mapFromSource(s.index()));
    changePersistentIndexList(layoutFrom_, to);
    layoutFrom_.clear();
    layoutSource_.clear();
    layoutChanged();
}

// ---- The model interface, passed through ----

KyModelIndex KySortFilterProxyModel::index(int row, int column, const KyModelIndex& parent) const {
    if (parent.isValid() || row < 0 || column < 0 || row >= rowCount() || column >= columnCount()) return KyModelIndex();
    return createIndex(row, column);
}

KyModelIndex KySortFilterProxyModel::parent(const KyModelIndex&) const { return KyModelIndex(); }

int KySortFilterProxyModel::rowCount(const KyModelIndex& parent) const {
    return parent.isValid() ? 0 : proxyToSource_.count();
}

int KySortFilterProxyModel::columnCount(const KyModelIndex& parent) const {
    return parent.isValid() || !source_ ? 0 : source_->columnCount();
}

KyAny KySortFilterProxyModel::data(const KyModelIndex& index, int role) const {
    const KyModelIndex s = mapToSource(index);
    return s.isValid() ? source_->data(s, role) : KyAny();
}

bool KySortFilterProxyModel::setData(const KyModelIndex& index, const KyAny& value, int role) {
    const KyModelIndex s = mapToSource(index);
    return s.isValid() && source_->setData(s, value, role);
}

KyItemFlags KySortFilterProxyModel::flags(const KyModelIndex& index) const {
    const KyModelIndex s = mapToSource(index);
    return s.isValid() ? source_->flags(s) : KyItemFlags();
}

KyAny KySortFilterProxyModel::headerData(int section, KyOrientation orientation, int role) const {
    if (!source_) return KyAny();
    if (orientation == KyOrientation::Horizontal) return source_->headerData(section, orientation, role);
    const int row = mapRowToSource(section);
    return row < 0 ? KyAny() : source_->headerData(row, orientation, role);
}

bool KySortFilterProxyModel::setHeaderData(int section, KyOrientation orientation, const KyAny& value, int role) {
    if (!source_) return false;
    if (orientation == KyOrientation::Horizontal) return source_->setHeaderData(section, orientation, value, role);
    const int row = mapRowToSource(section);
    return row >= 0 && source_->setHeaderData(row, orientation, value, role);
}

bool KySortFilterProxyModel::insertRows(int row, int count, const KyModelIndex& parent) {
    if (!source_ || parent.isValid() || row < 0 || row > rowCount() || count <= 0) return false;
    const int at = row == rowCount() ? source_->rowCount() : mapRowToSource(row);
    return source_->insertRows(at, count);
}

bool KySortFilterProxyModel::removeRows(int row, int count, const KyModelIndex& parent) {
    if (!source_ || parent.isValid() || row < 0 || count <= 0 || row + count > rowCount()) return false;
    KyVector<int> rows(proxyToSource_.begin() + row, proxyToSource_.begin() + row + count);
    std::sort(rows.begin(), rows.end());
    const KyVector<Run> runs = runsOf(rows);
    bool ok = true;
    // Bottom-up, so the source rows of the runs still to come stay put.
    for (auto it = runs.rbegin(); it != runs.rend(); ++it) ok = source_->removeRows(it->first, it->count) && ok;
    return ok;
}
