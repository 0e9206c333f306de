// KyItemSelectionModel: row runs, the commands on them, and the model's
// changes translated into them.
#include "gui/modelview/KyItemSelectionModel.h"

#include <algorithm>

namespace {

// Sorts runs and merges those that overlap or touch.
void normalize(KyRowRanges& runs) {
    std::sort(runs.begin(), runs.end(), [](const KyRowRange& a, const KyRowRange& b) { return a.first < b.first; });
    std::size_t out = 0;
    for (const KyRowRange& r : runs) {
        if (r.count() <= 0) continue;
        if (out > 0 && r.first <= runs[out - 1].last + 1) {
            runs[out - 1].last = std::max(runs[out - 1].last, r.last);
            continue;
        }
        runs[out++] = r;
    }
    runs.resize(out);
}

// Rows of a that are not in b; both normalized.
KyRowRanges subtract(const KyRowRanges& a, const KyRowRanges& b) {
    KyRowRanges out;
    std::size_t j = 0;
    for (KyRowRange r : a) {
        while (j < b.size() && b[j].last < r.first) ++j;
        for (std::size_t k = j; k < b.size() && b[k].first <= r.last; ++k) {
            if (b[k].first > r.first) out.append({r.first, b[k].first - 1});
            r.first = std::max(r.first, b[k].last + 1);
        }
        if (r.count() > 0) out.append(r);
    }
    return out;
}

KyRowRanges unite(KyRowRanges a, const KyRowRanges& b) {
    a.insert(a.end(), b.begin(), b.end());
    normalize(a);
    return a;
}

KyRowRanges intersect(const KyRowRanges& a, const KyRowRanges& b) { return subtract(a, subtract(a, b)); }

} // namespace

KyItemSelectionModel::KyItemSelectionModel(KyAbstractItemModel* model, KyObject* parent) : KyObject(parent) {
    setModel(model);
}

KyItemSelectionModel::~KyItemSelectionModel() = default;

void KyItemSelectionModel::setModel(KyAbstractItemModel* model) {
    if (model == model_) return;
    if (model_) {
        clear();
        KyObject::disconnect(model_, this);
    }
    model_ = model;
    if (model_) {
        using M = KyAbstractItemModel;
        constexpr auto direct = KyObject::ConnectionDirect;
        KyObject::connect(model_, &M::rowsInserted, this, [this](const KyModelIndex& p, int f, int l) { onRowsInserted_(p, f, l); }, direct);
        KyObject::connect(model_, &M::rowsAboutToBeRemoved, this,
                          [this](const KyModelIndex& p, int f, int l) { onRowsAboutToBeRemoved_(p, f, l); }, direct);
        KyObject::connect(model_, &M::rowsRemoved, this, [this](const KyModelIndex& p, int f, int l) { onRowsRemoved_(p, f, l); }, direct);
        KyObject::connect(model_, &M::modelAboutToBeReset, this, [this] { onAboutToBeReset_(); }, direct);
        KyObject::connect(model_, &M::modelReset, this, [this] { onReset_(); }, direct);
        KyObject::connect(model_, &M::layoutAboutToBeChanged, this, [this] { onLayoutAboutToBeChanged_(); }, direct);
        KyObject::connect(model_, &M::layoutChanged, this, [this] { onLayoutChanged_(); }, direct);
        KyObject::connect(model_, &M::destroyed, this, [this] { onModelDestroyed_(); }, direct);
    }
    modelChanged(model_);
}

void KyItemSelectionModel::setCurrent_(const KyModelIndex& index) {
    const KyModelIndex previous = current_.index();
    if (previous == index) return;
    current_ = index;
    currentChanged(index, previous);
}

void KyItemSelectionModel::replaceRanges_(KyRowRanges next) {
    KyRowRanges selected = subtract(next, ranges_);
    KyRowRanges deselected = subtract(ranges_, next);
    ranges_ = std::move(next);
    if (!selected.isEmpty() || !deselected.isEmpty()) selectionChanged(selected, deselected);
}

void KyItemSelectionModel::setCurrentIndex(const KyModelIndex& index, SelectionFlags command) {
    if (index.isValid() && index.model() != model_) return;
    if (command != NoUpdate) select(index, command);
    setCurrent_(index);
}

void KyItemSelectionModel::select(const KyModelIndex& index, SelectionFlags command) {
    if (index.isValid() && (index.model() != model_ || index.parent().isValid())) return;
    if (index.isValid()) select(index.row(), index.row(), command);
    else if (command & Clear) select(0, -1, Clear);
}

void KyItemSelectionModel::select(int first, int last, SelectionFlags command) {
    if (!model_ || command == NoUpdate) return;
    KyRowRanges next = (command & Clear) ? KyRowRanges() : ranges_;
    first = std::max(first, 0);
    last = std::min(last, model_->rowCount() - 1);
    if (first <= last) {
        const KyRowRanges run{{first, last}};
        if (command & Select) next = unite(std::move(next), run);
        else if (command & Deselect) next = subtract(next, run);
        else if (command & Toggle) next = unite(subtract(next, run), subtract(run, next));
    }
    replaceRanges_(std::move(next));
}

void KyItemSelectionModel::clear() {
    replaceRanges_({});
    setCurrent_(KyModelIndex());
}

bool KyItemSelectionModel::isRowSelected(int row) const {
    auto it = std::upper_bound(ranges_.begin(), ranges_.end(), row,
                               [](int r, const KyRowRange& range) { return r < range.first; });
    return it != ranges_.begin() && std::prev(it)->contains(row);
}

bool KyItemSelectionModel::isSelected(const KyModelIndex& index) const {
    return index.isValid() && index.model() == model_ && !index.parent().isValid() && isRowSelected(index.row());
}

int KyItemSelectionModel::selectedRowCount() const {
    int n = 0;
    for (const KyRowRange& r : ranges_) n += r.count();
    return n;
}

KyList<KyModelIndex> KyItemSelectionModel::selectedRows(int column) const {
    KyList<KyModelIndex> out;
    if (!model_) return out;
    for (const KyRowRange& r : ranges_)
        for (int row = r.first; row <= r.last; ++row) out.append(model_->index(row, column));
    return out;
}

void KyItemSelectionModel::onRowsInserted_(const KyModelIndex& parent, int first, int last) {
    if (parent.isValid()) return;
    const int n = last - first + 1;
    KyRowRanges next;
    for (const KyRowRange& r : ranges_) {
        if (r.last < first) next.append(r);
        else if (r.first >= first) next.append({r.first + n, r.last + n});
        else next << KyRowRange{r.first, first - 1} << KyRowRange{first + n, r.last + n};
    }
    ranges_ = std::move(next);
}

void KyItemSelectionModel::onRowsAboutToBeRemoved_(const KyModelIndex& parent, int first, int last) {
    if (parent.isValid()) return;
    const KyRowRanges gone{{first, last}};
    const KyRowRanges leaving = intersect(ranges_, gone);
    if (!leaving.isEmpty()) {
        ranges_ = subtract(ranges_, gone);
        selectionChanged(KyRowRanges(), leaving);
    }
    const KyModelIndex current = current_.index();
    if (current.isValid() && !current.parent().isValid() && current.row() >= first && current.row() <= last) {
        // The row above stays where it is; the row below will close the gap.
        KyModelIndex next;
        if (first > 0) next = model_->index(first - 1, current.column());
        else if (last < model_->rowCount() - 1) next = model_->index(last + 1, current.column());
        setCurrent_(next);
    }
}

void KyItemSelectionModel::onRowsRemoved_(const KyModelIndex& parent, int first, int last) {
    if (parent.isValid()) return;
    const int n = last - first + 1;
    for (KyRowRange& r : ranges_)
        if (r.first > last) r.first -= n, r.last -= n;
    normalize(ranges_);
}

void KyItemSelectionModel::onAboutToBeReset_() {
    savedKeys_.clear();
    savedCurrentKey_.clear();
    const KyModelIndex current = current_.index();
    savedCurrentColumn_ = current.isValid() ? current.column() : 0;
    // Read now: the reset is about to end the current cell.
    previousCurrent_ = current;
    if (keyRole_ < 0) return;
    for (const KyRowRange& r : ranges_)
        for (int row = r.first; row <= r.last; ++row) {
            KyString key = model_->index(row, 0).data(keyRole_).toString();
            if (!key.isEmpty()) savedKeys_.insert(std::move(key));
        }
    if (current.isValid()) savedCurrentKey_ = model_->index(current.row(), 0).data(keyRole_).toString();
}

void KyItemSelectionModel::onReset_() {
    KyRowRanges next;
    KyModelIndex nextCurrent;
    if (!savedKeys_.empty() || !savedCurrentKey_.isEmpty()) {
        const int rows = model_->rowCount();
        for (int row = 0; row < rows; ++row) {
            const KyString key = model_->index(row, 0).data(keyRole_).toString();
            if (key.isEmpty()) continue;
            if (savedKeys_.count(key)) {
                if (!next.isEmpty() && next.last().last == row - 1) next.last().last = row;
                else next.append({row, row});
            }
            if (!nextCurrent.isValid() && key == savedCurrentKey_) nextCurrent = model_->index(row, savedCurrentColumn_);
        }
    }
    savedKeys_.clear();
    savedCurrentKey_.clear();
    // Row numbers do not carry over a reset: the signal names the old rows as
    // gone and the new ones as chosen, even where the numbers coincide.
    const KyRowRanges old = std::move(ranges_);
    ranges_ = std::move(next);
    if (!old.isEmpty() || !ranges_.isEmpty()) selectionChanged(ranges_, old);
    // The reset has already ended the old current cell; tell of the change
    // only when the current cell really moved or went.
    const KyModelIndex previous = previousCurrent_;
    previousCurrent_ = KyModelIndex();
    current_ = nextCurrent;
    if (previous != nextCurrent) currentChanged(nextCurrent, previous);
}

void KyItemSelectionModel::onLayoutAboutToBeChanged_() {
    savedRows_.clear();
    savedAllRows_ = ranges_.count() == 1 && ranges_[0].first == 0 && ranges_[0].last == model_->rowCount() - 1;
    if (savedAllRows_) return;
    for (const KyRowRange& r : ranges_)
        for (int row = r.first; row <= r.last; ++row) savedRows_.append(KyPersistentModelIndex(model_->index(row, 0)));
}

void KyItemSelectionModel::onLayoutChanged_() {
    if (savedAllRows_) {
        savedAllRows_ = false;
        return;
    }
    KyRowRanges next;
    for (const KyPersistentModelIndex& p : savedRows_)
        if (p.isValid()) next.append({p.row(), p.row()});
    savedRows_.clear();
    normalize(next);
    // The same items stay selected, only their rows changed: nothing to tell.
    ranges_ = std::move(next);
}

void KyItemSelectionModel::onModelDestroyed_() {
    model_ = nullptr;
    replaceRanges_({});
    current_ = KyModelIndex();
    modelChanged(nullptr);
}
