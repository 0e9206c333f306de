// KyTableView: header placement, column geometry, grid and sorting.
#include "gui/modelview/KyTableView.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/StyleSheet.h"

KyTableView::KyTableView(KyWidget* parent) : KyAbstractItemView(parent), header_(new KyHeaderView(this)) {
    KyObject::connect(header_, &KyHeaderView::sectionResized, this, [this](int, int, int) { update(); });
    KyObject::connect(header_, &KyHeaderView::sortIndicatorChanged, this, [this](int section, KySortOrder order) {
        if (header_->isSortingEnabled() && model()) model()->sort(section, order);
    });
    placeHeader_();
}

void KyTableView::setModel(KyAbstractItemModel* model) {
    KyAbstractItemView::setModel(model);
    header_->setModel(model);
}

void KyTableView::setSortingEnabled(bool enabled) {
    header_->setSortingEnabled(enabled);
    if (enabled && header_->sortIndicatorSection() >= 0 && model())
        model()->sort(header_->sortIndicatorSection(), header_->sortIndicatorOrder());
    header_->update();
}

void KyTableView::sortByColumn(int column, KySortOrder order) {
    header_->setSortIndicator(column, order);
    if (!header_->isSortingEnabled() && model()) model()->sort(column, order);
}

void KyTableView::setShowGrid(bool show) {
    grid_ = show;
    update();
}

void KyTableView::resizeEvent(ResizeEvent* event) {
    KyAbstractItemView::resizeEvent(event);
    placeHeader_();
}

void KyTableView::placeHeader_() {
    const int f = frameWidth_();
    header_->setGeometry(f, f, std::max(0, width() - 2 * f), kHeaderHeight);
}

int KyTableView::columnCount_() const { return model() ? model()->columnCount() : 0; }

int KyTableView::columnX_(int column) const {
    return viewportRect().x + header_->sectionPosition(column) - header_->offset();
}

int KyTableView::columnWidth_(int column) const { return header_->sectionSize(column); }

int KyTableView::columnAt_(int x) const {
    const KyRect vp = viewportRect();
    if (x < vp.x || x >= vp.x + vp.width) return -1;
    return header_->logicalIndexAt(x - vp.x);
}

void KyTableView::paintRows_(KyPainter* painter, const KyRect& clip, int first, int last) {
    KyAbstractItemView::paintRows_(painter, clip, first, last);
    if (!grid_) return;
    KyColor grid{236, 238, 241};
    const KyString value = styleProperty("grid-color");
    if (!value.isEmpty()) ky::gui::StyleSheet::tryParseColor_(value, grid);
    const KyRect vp = viewportRect();
    for (int row = first; row <= last; ++row) {
        const KyRect r = rowRect(row);
        painter->drawLine(vp.x, r.y + r.height - 1, vp.x + vp.width - 1, r.y + r.height - 1, grid, 1);
    }
    const KyRect top = rowRect(first), bottom = rowRect(last);
    for (int c = 0; c + 1 < columnCount_(); ++c) {
        const int x = columnX_(c) + columnWidth_(c) - 1;
        painter->drawLine(x, top.y, x, bottom.y + bottom.height - 1, grid, 1);
    }
}
