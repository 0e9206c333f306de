// The grid's track metrics, its hints and placing its cells.
#include "gui/widgets/KyGridLayout.h"

#include <algorithm>
#include <numeric>

#include "gui/widgets/KyLayoutDetail.h"
#include "gui/widgets/KyWidget.h"

using namespace KyLayoutDetail;

KyGridLayout::~KyGridLayout() = default;

void KyGridLayout::changed_() {
    invalidate();
    updateGeometry();
}

void KyGridLayout::addWidget(KyWidget* widget, int row, int column, int rowSpan, int columnSpan) {
    if (!widget || row < 0 || column < 0 || row >= kMaximumTracks || column >= kMaximumTracks) return;
    for (const Cell_& c : cells_)
        if (c.item && c.item->widget() == widget) return;
    if (parentWidget() && widget->parentWidget() != parentWidget()) widget->setParent(parentWidget());
    addItem(new KyWidgetItem(widget), row, column, rowSpan, columnSpan);
}

void KyGridLayout::addItem(KyLayoutItem* item, int row, int column, int rowSpan, int columnSpan) {
    if (!item) return;
    if (row < 0 || column < 0 || row >= kMaximumTracks || column >= kMaximumTracks) {
        delete item;
        return;
    }
    rowSpan = std::clamp(rowSpan, 1, kMaximumTracks - row);
    columnSpan = std::clamp(columnSpan, 1, kMaximumTracks - column);
    cells_.push_back(Cell_{std::unique_ptr<KyLayoutItem>(item), row, column, rowSpan, columnSpan});
    changed_();
}

bool KyGridLayout::removeWidget(KyWidget* widget) {
    for (auto it = cells_.begin(); it != cells_.end(); ++it) {
        if (it->item && it->item->widget() == widget) {
            // Deleted by a sibling's resize handler while this grid places:
            // the cell stays, empty, until the pass is over.
            if (applying_) {
                it->item.reset();
                return true;
            }
            cells_.erase(it);
            changed_();
            return true;
        }
    }
    return false;
}

int KyGridLayout::rowCount() const {
    int n = int(std::max(rowStretch_.size(), rowMinimum_.size()));
    for (const Cell_& c : cells_) n = std::max(n, c.row + c.rowSpan);
    return n;
}

int KyGridLayout::columnCount() const {
    int n = int(std::max(columnStretch_.size(), columnMinimum_.size()));
    for (const Cell_& c : cells_) n = std::max(n, c.column + c.columnSpan);
    return n;
}

void KyGridLayout::setTrackValue_(std::vector<int>& values, int index, int value) {
    if (index < 0 || index >= kMaximumTracks) return;
    if (size_t(index) >= values.size()) values.resize(size_t(index) + 1, 0);
    values[size_t(index)] = value;
}

void KyGridLayout::setRowStretch(int row, int stretch) { setTrackValue_(rowStretch_, row, stretch), changed_(); }
void KyGridLayout::setColumnStretch(int column, int stretch) { setTrackValue_(columnStretch_, column, stretch), changed_(); }
void KyGridLayout::setRowMinimumHeight(int row, int height) { setTrackValue_(rowMinimum_, row, height), changed_(); }
void KyGridLayout::setColumnMinimumWidth(int column, int width) {
    setTrackValue_(columnMinimum_, column, width), changed_();
}

void KyGridLayout::forEachManagedWidget(const std::function<void(KyWidget*)>& fn) const {
    for (const Cell_& c : cells_)
        if (c.item)
            if (auto* w = dynamic_cast<KyWidget*>(c.item->widget())) fn(w);
}

void KyGridLayout::ensureSpanMinimum_(std::vector<int>& tracks, const std::vector<int>& stretch, int first, int span,
                                      int spacing, int need) {
    long long covered = (long long)spacing * (span - 1);
    for (int i = first; i < first + span; ++i) covered += tracks[size_t(i)];
    const long long shortfall = need - covered;
    if (shortfall <= 0) return;
    // The tracks allowed to grow are the stretched ones when the span has
    // any, so a label column beside a stretched field column keeps its width.
    std::vector<int> growers;
    for (int i = first; i < first + span; ++i)
        if (stretch[size_t(i)] > 0) growers.push_back(i);
    if (growers.empty())
        for (int i = first; i < first + span; ++i) growers.push_back(i);
    const long long share = shortfall / (long long)growers.size();
    long long extra = shortfall % (long long)growers.size();
    for (int i : growers) {
        tracks[size_t(i)] += int(share + (extra > 0 ? 1 : 0));
        if (extra > 0) --extra;
    }
}

KyGridLayout::Tracks_ KyGridLayout::collectTracks_(bool columns) const {
    const int n = columns ? columnCount() : rowCount();
    const std::vector<int>& configuredMinimum = columns ? columnMinimum_ : rowMinimum_;
    const std::vector<int>& configuredStretch = columns ? columnStretch_ : rowStretch_;
    Tracks_ t;
    t.minimum.assign(size_t(n), 0);
    t.stretch.assign(size_t(n), 0);
    for (int i = 0; i < n; ++i) {
        if (size_t(i) < configuredMinimum.size()) t.minimum[size_t(i)] = std::max(0, configuredMinimum[size_t(i)]);
        if (size_t(i) < configuredStretch.size()) t.stretch[size_t(i)] = std::max(0, configuredStretch[size_t(i)]);
    }
    t.preferred = t.minimum;
    const auto length = [columns](KySize s) { return std::max(0, columns ? s.width : s.height); };
    for (const Cell_& c : cells_) {
        if (!c.item || (columns ? c.columnSpan : c.rowSpan) != 1) continue;
        const size_t i = size_t(columns ? c.column : c.row);
        const int minimum = length(c.item->minimumSize());
        t.minimum[i] = std::max(t.minimum[i], minimum);
        t.preferred[i] = std::max({t.preferred[i], minimum, length(c.item->sizeHint())});
    }
    for (const Cell_& c : cells_) {
        const int span = columns ? c.columnSpan : c.rowSpan;
        if (!c.item || span == 1) continue;
        const int first = columns ? c.column : c.row;
        const int minimum = length(c.item->minimumSize());
        ensureSpanMinimum_(t.minimum, t.stretch, first, span, spacing(), minimum);
        ensureSpanMinimum_(t.preferred, t.stretch, first, span, spacing(),
                           std::max(minimum, length(c.item->sizeHint())));
    }
    for (int i = 0; i < n; ++i) t.preferred[size_t(i)] = std::max(t.preferred[size_t(i)], t.minimum[size_t(i)]);
    return t;
}

KySize KyGridLayout::layoutSizeHint_(bool minimumOnly) const {
    const auto total = [this, minimumOnly](const Tracks_& t) {
        const std::vector<int>& v = minimumOnly ? t.minimum : t.preferred;
        long long sum = std::accumulate(v.begin(), v.end(), 0LL);
        if (v.size() >= 2) sum += (long long)spacing() * (long long)(v.size() - 1);
        return int(std::min<long long>(sum, kyLayoutMaximumLength));
    };
    return {total(collectTracks_(true)) + marginLeft() + marginRight(),
            total(collectTracks_(false)) + marginTop() + marginBottom()};
}

void KyGridLayout::distributeSizes_(int available, int* sizes, const int* minimums, const int* stretches, int count) {
    if (count <= 0) return;
    long long sumMinimum = 0;
    for (int i = 0; i < count; ++i) sumMinimum += minimums[i];
    if (sumMinimum > available) {
        // Not even the minimums fit: scale them down together.
        long long placed = 0;
        for (int i = 0; i < count; ++i) {
            sizes[i] = sumMinimum > 0 ? int((long long)minimums[i] * std::max(0, available) / sumMinimum) : 0;
            placed += sizes[i];
        }
        for (int i = 0; placed < available; i = (i + 1) % count, ++placed) ++sizes[i];
        return;
    }
    long long free = available - sumMinimum;
    // Grow every track from its minimum toward its preferred size first, in
    // proportion to its slack when not all of it fits.
    long long totalSlack = 0;
    for (int i = 0; i < count; ++i) totalSlack += std::max(0, sizes[i] - minimums[i]);
    long long remainingSlack = totalSlack, toGive = std::min(free, totalSlack);
    for (int i = 0; i < count; ++i) {
        const long long slack = std::max(0, sizes[i] - minimums[i]);
        long long give = 0;
        if (slack > 0 && remainingSlack > 0) give = slack >= remainingSlack ? toGive : slack * toGive / remainingSlack;
        sizes[i] = int(minimums[i] + give);
        toGive -= give;
        remainingSlack -= slack;
    }
    free -= std::min(free, totalSlack);
    if (free <= 0) return;
    long long remainingStretch = 0;
    for (int i = 0; i < count; ++i) remainingStretch += std::max(0, stretches[i]);
    if (remainingStretch > 0) {
        for (int i = 0; i < count && remainingStretch > 0; ++i) {
            if (stretches[i] <= 0) continue;
            const long long give = stretches[i] >= remainingStretch ? free : free * stretches[i] / remainingStretch;
            sizes[i] += int(give);
            free -= give;
            remainingStretch -= stretches[i];
        }
        return;
    }
    const long long share = free / count;
    long long extra = free % count;
    for (int i = 0; i < count; ++i, --extra) sizes[i] += int(share + (extra > 0 ? 1 : 0));
}

KyGridLayout::GridMetrics KyGridLayout::buildMetrics_(const KyRect& rect) const {
    GridMetrics m;
    const auto fit = [this](const Tracks_& t, int length, int start, std::vector<int>& sizes, std::vector<int>& starts) {
        const int n = int(t.minimum.size());
        sizes = t.preferred;
        starts.assign(size_t(n), start);
        if (n == 0) return;
        const int available = std::max(0, length - spacing() * (n - 1));
        distributeSizes_(available, sizes.data(), t.minimum.data(), t.stretch.data(), n);
        for (int i = 1; i < n; ++i) starts[size_t(i)] = starts[size_t(i - 1)] + sizes[size_t(i - 1)] + spacing();
    };
    fit(collectTracks_(true), rect.width, rect.x, m.columnWidths, m.columnStarts);
    fit(collectTracks_(false), rect.height, rect.y, m.rowHeights, m.rowStarts);
    return m;
}

void KyGridLayout::applyLayout(const KyRect& rect) {
    if (cells_.empty()) return;
    const GridMetrics m = buildMetrics_(rect);
    applying_ = true;
    for (size_t i = 0; i < cells_.size(); ++i) {
        const Cell_& c = cells_[i];
        if (!c.item) continue;
        const int lastColumn = c.column + c.columnSpan - 1, lastRow = c.row + c.rowSpan - 1;
        const int cellX = m.columnStarts[size_t(c.column)];
        const int cellY = m.rowStarts[size_t(c.row)];
        const int cellW = m.columnStarts[size_t(lastColumn)] + m.columnWidths[size_t(lastColumn)] - cellX;
        const int cellH = m.rowStarts[size_t(lastRow)] + m.rowHeights[size_t(lastRow)] - cellY;
        int w = 0, h = 0, dx = 0, dy = 0;
        fitAcross_(c.item.get(), HorizontalAxis, cellW, w, dx);
        fitAcross_(c.item.get(), VerticalAxis, cellH, h, dy);
        c.item->setGeometry({cellX + dx, cellY + dy, w, h});
    }
    applying_ = false;
    const size_t before = cells_.size();
    std::erase_if(cells_, [](const Cell_& cell) { return !cell.item; });
    if (cells_.size() != before) changed_();
}
