// KyHeaderView: section geometry, the resize drag, sorting clicks and the look.
#include "gui/modelview/KyHeaderView.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"
#include "gui/widgets/StyleSheet.h"

namespace {
constexpr int kGrip = 4; ///< pixels either side of an edge that start a resize
constexpr const char* kDefaultSheet =
    "KyHeaderView { background-color: rgb(248, 249, 251); border-color: rgb(209, 213, 219); border-width: 0px;"
    " color: rgb(55, 65, 81); font-size: 13px; font-weight: 600; }";
constexpr KyColor kSeparator{226, 229, 234};
constexpr KyColor kBottom{209, 213, 219};
constexpr KyColor kHover{238, 242, 247};
constexpr KyColor kPressed{226, 233, 242};
constexpr KyColor kArrow{0, 120, 215};

// A sheet may recolour the lines and tints (a dark page would otherwise get
// light separators and a light hover flash).
KyColor sheetColour(const KyWidget* w, const char* name, const KyColor& fallback) {
    KyColor colour = fallback;
    const KyString value = w->styleProperty(name);
    if (!value.isEmpty()) ky::gui::StyleSheet::tryParseColor_(value, colour);
    return colour;
}
} // namespace

KyHeaderView::KyHeaderView(KyWidget* parent) : KyWidget(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    setFocusPolicy(NoClickFocus);
}

void KyHeaderView::setModel(KyAbstractItemModel* model) {
    if (model == model_) return;
    if (model_) KyObject::disconnect(model_, this);
    model_ = model;
    sizes_.clear();
    if (model_) {
        using M = KyAbstractItemModel;
        KyObject::connect(model_, &M::headerDataChanged, this, [this](KyOrientation, int, int) { update(); },
                          KyObject::ConnectionDirect);
        KyObject::connect(model_, &M::modelReset, this, [this] { syncCount_(), update(); }, KyObject::ConnectionDirect);
        KyObject::connect(model_, &M::destroyed, this, [this] { model_ = nullptr, update(); }, KyObject::ConnectionDirect);
    }
    syncCount_();
    update();
}

void KyHeaderView::syncCount_() {
    const int n = count();
    while (static_cast<int>(sizes_.size()) < n) sizes_.push_back(-1);
    while (static_cast<int>(sizes_.size()) > n) sizes_.pop_back();
}

int KyHeaderView::count() const { return model_ ? model_->columnCount() : 0; }

int KyHeaderView::sectionSize(int section) const {
    const int n = count();
    if (section < 0 || section >= n) return 0;
    const int own = section < static_cast<int>(sizes_.size()) && sizes_[section] >= 0 ? sizes_[section] : defaultSize_;
    if (stretchLast_ && section == n - 1) {
        // The last section takes what the others leave of the header.
        const int rest = width() + offset_ - sectionPosition(section);
        return std::max(own, rest);
    }
    return own;
}

int KyHeaderView::sectionPosition(int section) const {
    int x = 0;
    for (int i = 0; i < section && i < count(); ++i)
        x += i < static_cast<int>(sizes_.size()) && sizes_[i] >= 0 ? sizes_[i] : defaultSize_;
    return x;
}

int KyHeaderView::length() const { return count() ? sectionPosition(count() - 1) + sectionSize(count() - 1) : 0; }

void KyHeaderView::resizeSection(int section, int size) {
    syncCount_();
    if (section < 0 || section >= static_cast<int>(sizes_.size())) return;
    size = std::max(minimumSize_, size);
    const int old = sectionSize(section);
    sizes_[section] = size;
    if (old == size) return;
    update();
    sectionResized(section, old, size);
}

void KyHeaderView::setDefaultSectionSize(int size) {
    defaultSize_ = std::max(minimumSize_, size);
    update();
}

void KyHeaderView::setStretchLastSection(bool stretch) {
    stretchLast_ = stretch;
    update();
}

void KyHeaderView::setOffset(int offset) {
    if (offset == offset_) return;
    offset_ = offset;
    update();
}

int KyHeaderView::logicalIndexAt(int x) const {
    x += offset_;
    for (int i = 0, left = 0; i < count(); ++i) {
        const int w = sectionSize(i);
        if (x >= left && x < left + w) return i;
        left += w;
    }
    return -1;
}

int KyHeaderView::edgeAt_(int x) const {
    x += offset_;
    const int n = count() - (stretchLast_ ? 1 : 0);
    for (int i = 0, right = 0; i < n; ++i) {
        right += sectionSize(i);
        if (x >= right - kGrip && x <= right + kGrip) return i;
    }
    return -1;
}

void KyHeaderView::setSortIndicator(int section, KySortOrder order) {
    if (section == sortSection_ && order == sortOrder_) return;
    sortSection_ = section;
    sortOrder_ = order;
    update();
    sortIndicatorChanged(section, order);
}

KySize KyHeaderView::sizeHint() const { return {length(), 32}; }

void KyHeaderView::paintEvent(PaintEvent* event) {
    KyPainter* p = event->painter();
    if (!p) return;
    paintOwnBox_(p);
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const KyColor text = s.hasTextColor ? s.textColor : KyColor(55, 65, 81);
    const KyFont font = resolveStyledFont();
    const int h = height();
    const KyColor separator = sheetColour(this, "separator-color", kSeparator);
    const KyColor bottom = sheetColour(this, "divider-color", kBottom);
    const KyColor hover = sheetColour(this, "hover-background-color", kHover);
    const KyColor pressed = sheetColour(this, "pressed-background-color", kPressed);
    const KyColor arrow = sheetColour(this, "arrow-color", kArrow);
    for (int i = 0, x = -offset_; i < count(); ++i) {
        const int w = sectionSize(i);
        const KyRect section{x, 0, w, h};
        x += w;
        if (section.x >= event->rect().x + event->rect().width || section.x + w <= event->rect().x) continue;
        if (i == pressed_) p->fillRect({section.x, 0, w, h - 1}, pressed, pressed, 0);
        else if (i == hover_) p->fillRect({section.x, 0, w, h - 1}, hover, hover, 0);
        const bool sorted = sorting_ && i == sortSection_;
        const int arrowRoom = sorted ? 18 : 0;
        const KyString title = model_ ? model_->headerData(i, KyOrientation::Horizontal).toString() : KyString();
        p->drawText({section.x + 10, 0, std::max(0, w - 20 - arrowRoom), h}, title, DrawTextFormat::AlignVCenter, text,
                    font);
        if (sorted) {
            const int cx = section.x + w - 16, cy = h / 2;
            const KyPoint up[3] = {{cx - 4, cy + 2}, {cx + 4, cy + 2}, {cx, cy - 3}};
            const KyPoint down[3] = {{cx - 4, cy - 2}, {cx + 4, cy - 2}, {cx, cy + 3}};
            p->fillPolygon(sortOrder_ == KySortOrder::Ascending ? up : down, 3, arrow, arrow, 0);
        }
        if (i < count() - 1 || !stretchLast_) p->drawLine(x - 1, 6, x - 1, h - 7, separator, 1);
    }
    p->drawLine(0, h - 1, width() - 1, h - 1, bottom, 1);
}

void KyHeaderView::mousePressEvent(MouseEvent* event) {
    event->accept();
    if (event->button() != 1) return;
    const int edge = edgeAt_(event->x());
    if (edge >= 0) {
        resizing_ = edge;
        resizeStartX_ = event->x();
        resizeStartSize_ = sectionSize(edge);
        return;
    }
    pressed_ = logicalIndexAt(event->x());
    update();
}

void KyHeaderView::mouseMoveEvent(MouseEvent* event) {
    event->accept();
    if (resizing_ >= 0) {
        resizeSection(resizing_, resizeStartSize_ + event->x() - resizeStartX_);
        return;
    }
    setCursor(edgeAt_(event->x()) >= 0 ? SplitHCursor : ArrowCursor);
    const int hover = logicalIndexAt(event->x());
    if (hover != hover_) hover_ = hover, update();
}

void KyHeaderView::mouseReleaseEvent(MouseEvent* event) {
    event->accept();
    if (resizing_ >= 0) {
        resizing_ = -1;
        return;
    }
    const int section = logicalIndexAt(event->x());
    const int was = pressed_;
    pressed_ = -1;
    update();
    if (section < 0 || section != was) return;
    sectionClicked(section);
    if (sorting_) {
        const bool flip = section == sortSection_ && sortOrder_ == KySortOrder::Ascending;
        setSortIndicator(section, flip ? KySortOrder::Descending : KySortOrder::Ascending);
    }
}

void KyHeaderView::on_Hover_changed(const bool& value) {
    KyWidget::on_Hover_changed(value);
    if (!value && hover_ >= 0) hover_ = -1, update();
}
