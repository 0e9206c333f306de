// KyPopupList: rows, highlight, scrolling and painting of a popup list.
#include "gui/widgets/KyPopupList.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet =
    "KyPopupList { background-color: rgb(255, 255, 255); border-color: rgb(210, 214, 224); border-width: 1px;"
    " border-radius: 8px; color: rgb(24, 28, 36); font-size: 14px; padding: 4px 10px;"
    " highlight-background-color: rgb(219, 234, 254); highlight-color: rgb(24, 28, 36); }";

} // namespace

KyPopupList::KyPopupList(KyWidget* parent) : KyWidget(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    // The field that opened the list keeps focus and the keyboard.
    setFocusPolicy(NoClickFocus);
}

void KyPopupList::setItems(const KyList<KyString>& items) {
    items_ = items;
    highlight_ = -1;
    firstVisible_ = 0;
    update();
}

int KyPopupList::rowHeight() const {
    const KyFont font = resolveStyledFont();
    const int px = font.pixelSize > 0 ? font.pixelSize : std::max(1, font.pointSize) * 96 / 72;
    return std::max(1, static_cast<int>(px * 1.4));
}

int KyPopupList::borderWidth_() const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    return s.hasBorderWidth || s.borderStyleNone ? s.effectiveBorderWidth() : 1;
}

int KyPopupList::visibleRows_() const {
    const StyleBox pad = resolveStyledPadding();
    return std::max(1, (height() - 2 * borderWidth_() - pad.top() - pad.bottom()) / rowHeight());
}

int KyPopupList::preferredHeight() const {
    const StyleBox pad = resolveStyledPadding();
    const int rows = std::max(1, std::min(count(), maxVisibleRows_));
    return rows * rowHeight() + pad.top() + pad.bottom() + 2 * borderWidth_();
}

int KyPopupList::rowAt(int y) const {
    const int top = borderWidth_() + resolveStyledPadding().top();
    if (y < top) return -1;
    const int row = firstVisible_ + (y - top) / rowHeight();
    return row < count() && row - firstVisible_ < visibleRows_() ? row : -1;
}

void KyPopupList::scrollToHighlight_() {
    if (highlight_ < 0) return;
    const int rows = visibleRows_();
    if (highlight_ < firstVisible_) firstVisible_ = highlight_;
    if (highlight_ >= firstVisible_ + rows) firstVisible_ = highlight_ - rows + 1;
    firstVisible_ = std::clamp(firstVisible_, 0, std::max(0, count() - rows));
}

void KyPopupList::setHighlight(int row) {
    if (row < -1 || row >= count()) row = -1;
    if (row == highlight_) return;
    highlight_ = row;
    scrollToHighlight_();
    update();
    rowHighlighted(row);
}

void KyPopupList::moveHighlightBy(int delta) {
    if (items_.isEmpty()) return;
    const int from = highlight_ < 0 ? (delta > 0 ? -1 : count()) : highlight_;
    setHighlight(std::clamp(from + delta, 0, count() - 1));
}

void KyPopupList::paintEvent(PaintEvent* event) {
    KyPainter* p = event->painter();
    if (!p) return;
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const KyColor fill = s.hasBackground ? s.background : KyColor(255, 255, 255);
    const KyColor border = s.hasBorderColor ? s.borderColor : KyColor(210, 214, 224);
    StyleBox radii = s.hasRadius ? s.radius : StyleBox{{8, 8, 8, 8}};
    const int bw = borderWidth_();
    KyStyle::paintBox(p, {0, 0, width(), height()}, fill, true, border, bw, radii);

    const StyleBox pad = resolveStyledPadding();
    const int rowH = rowHeight();
    const KyFont font = resolveStyledFont();
    KyColor text = s.hasTextColor ? s.textColor : KyColor(24, 28, 36);
    KyColor highlightFill(219, 234, 254), highlightText = text;
    ky::gui::StyleSheet::tryParseColor_(styleProperty("highlight-background-color"), highlightFill);
    ky::gui::StyleSheet::tryParseColor_(styleProperty("highlight-color"), highlightText);
    const KyRect inner{bw, bw + pad.top(), std::max(0, width() - 2 * bw), std::max(0, height() - 2 * bw - pad.top() - pad.bottom())};
    p->pushClipRect(inner);
    const int rows = visibleRows_();
    for (int i = 0; i < rows && firstVisible_ + i < count(); ++i) {
        const int row = firstVisible_ + i;
        const KyRect r{inner.x + 4, inner.y + i * rowH, std::max(0, inner.width - 8), rowH};
        if (row == highlight_) p->fillRoundedRect(r, 4, highlightFill, highlightFill, 0);
        const KyRect textRect{r.x + std::max(0, pad.left() - 4), r.y, std::max(0, r.width - pad.left() - pad.right() + 8), rowH};
        p->drawText(textRect, items_[static_cast<std::size_t>(row)], DrawTextFormat::AlignVCenter,
                    row == highlight_ ? highlightText : text, font);
    }
    p->popClipRect();
}

void KyPopupList::mousePressEvent(MouseEvent* e) {
    if (e->button() != 1) return;
    const int row = rowAt(e->y());
    if (row >= 0) setHighlight(row);
}

void KyPopupList::mouseMoveEvent(MouseEvent* e) {
    const int row = rowAt(e->y());
    if (row >= 0) setHighlight(row);
}

void KyPopupList::mouseReleaseEvent(MouseEvent* e) {
    if (e->button() != 1) return;
    const int row = KyRect(0, 0, width(), height()).contains(e->pos()) ? rowAt(e->y()) : -1;
    if (row >= 0) rowClicked(row);
}

void KyPopupList::wheelEvent(WheelEvent* e) {
    if (items_.isEmpty()) {
        e->ignore();
        return;
    }
    const int notches = e->delta() / 120 != 0 ? e->delta() / 120 : (e->delta() > 0 ? 1 : -1);
    moveHighlightBy(-notches);
}
