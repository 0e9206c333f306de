// KyAbstractScrollArea: position arithmetic, the bar's place and the two-way
// mirror of the position into it.
#include "gui/widgets/KyAbstractScrollArea.h"

#include <algorithm>

#include "gui/widgets/KyScrollBar.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

KyAbstractScrollArea::KyAbstractScrollArea(KyWidget* parent) : KyWidget(parent) {
    bar_ = new KyScrollBar(KyScrollBar::Vertical, this);
    bar_->setRange(0, 0);
    bar_->hide();
    // The bar's own moves (drag, page presses, keys) scroll the content; the
    // echo of the area's own setValue finds the position unchanged.
    KyObject::connect(bar_, &KyScrollBar::valueChanged, this, [this](int value) { setVerticalValue(value); },
                      KyObject::ConnectionDirect);
    // A wheel over the bar scrolls as far as over the content.
    bar_->installEventFilter(this);
}

bool KyAbstractScrollArea::eventFilter(KyObject* watched, KyEvent* event) {
    if (watched == bar_ && event->type() == Event::Wheel) {
        wheelEvent(static_cast<WheelEvent*>(event));
        return true;
    }
    return KyWidget::eventFilter(watched, event);
}

int KyAbstractScrollArea::frameWidth_() const { return std::max(0, styleSnapshot_().effectiveBorderWidth()); }

int KyAbstractScrollArea::barWidth_() const { return std::clamp(bar_->sizeHint().width, 6, 40); }

KyRect KyAbstractScrollArea::viewportRect() const {
    const int f = frameWidth_();
    const int bar = isVerticalBarVisible() ? barWidth_() : 0;
    const int top = f + viewportTopMargin_();
    return {f, top, std::max(0, width() - 2 * f - bar), std::max(0, height() - top - f)};
}

KyRect KyAbstractScrollArea::verticalBarRect() const {
    if (!isVerticalBarVisible()) return {};
    const int f = frameWidth_();
    const int top = f + viewportTopMargin_();
    return {width() - f - barWidth_(), top, barWidth_(), std::max(0, height() - top - f)};
}

void KyAbstractScrollArea::setVerticalValue(int value) {
    value = std::clamp(value, 0, maximum_);
    if (value == value_) return;
    const int dy = value - value_;
    value_ = value;
    bar_->setValue(value_);
    scrollContentsBy_(dy);
    verticalValueChanged(value_);
}

void KyAbstractScrollArea::setContentHeight(int contentHeight, int singleStep) {
    contentHeight_ = std::max(0, contentHeight);
    singleStep_ = std::max(1, singleStep);
    const bool hadBar = isVerticalBarVisible();
    pageStep_ = std::max(1, viewportRect().height);
    maximum_ = std::max(0, contentHeight_ - pageStep_);
    // The bar takes width from the viewport; its height is the same, so the
    // page does not change when the bar appears.
    if (hadBar != isVerticalBarVisible()) update();
    const bool clamped = value_ > maximum_;
    if (clamped) {
        value_ = maximum_;
        update();
    }
    // The bar repaints itself, and only when its thumb moved.
    syncBar_();
    if (clamped) verticalValueChanged(value_);
}

void KyAbstractScrollArea::syncBar_() {
    bar_->setRange(0, maximum_);
    bar_->setPageStep(pageStep_);
    bar_->setSingleStep(singleStep_);
    bar_->setValue(value_);
    const KyRect r = verticalBarRect();
    if (r.isEmpty()) {
        if (bar_->isVisible()) bar_->hide();
        return;
    }
    if (bar_->geometry() != r) bar_->setGeometry(r);
    if (!bar_->isVisible()) bar_->show();
}

void KyAbstractScrollArea::scrollContentsBy_(int) { update(); }

void KyAbstractScrollArea::updateContentHeight_() {
    const int h = contentRowHeight_();
    if (h > 0) setContentHeight(contentRowCount_() * h + contentBottomMargin_(), h);
}

int KyAbstractScrollArea::contentRowAt_(int y) const {
    return (y - viewportRect().y + value_) / std::max(1, contentRowHeight_());
}

int KyAbstractScrollArea::contentRowTop_(int row) const {
    return viewportRect().y + row * contentRowHeight_() - value_;
}

std::pair<int, int> KyAbstractScrollArea::contentRowsIn_(const KyRect& clip) const {
    const int last = contentRowAt_(clip.y + clip.height - 1);
    return {std::max(0, contentRowAt_(clip.y)), std::min(contentRowCount_() - 1, last)};
}

void KyAbstractScrollArea::ensureContentRowVisible_(int row) {
    const int h = contentRowHeight_();
    const int top = row * h;
    const int page = viewportRect().height;
    if (top < value_) setVerticalValue(top);
    else if (top + h > value_ + page) setVerticalValue(top + h - page + contentBottomMargin_());
}

void KyAbstractScrollArea::mousePressEvent(MouseEvent* event) {
    // What the bar declined (another button) is not the content's either.
    if (verticalBarRect().contains(event->pos())) return event->accept();
    viewportMousePressEvent(event);
}

void KyAbstractScrollArea::mouseMoveEvent(MouseEvent* event) { viewportMouseMoveEvent(event); }

void KyAbstractScrollArea::mouseReleaseEvent(MouseEvent* event) {
    if (verticalBarRect().contains(event->pos())) return event->accept();
    viewportMouseReleaseEvent(event);
}

void KyAbstractScrollArea::mouseDoubleClickEvent(MouseEvent* event) {
    if (verticalBarRect().contains(event->pos())) return event->accept();
    viewportMouseDoubleClickEvent(event);
}

void KyAbstractScrollArea::wheelEvent(WheelEvent* event) {
    if (!isEnabled() || event->shift() || maximum_ <= 0) return event->ignore();
    int notches = event->delta() / 120;
    if (notches == 0 && event->delta() != 0) notches = event->delta() > 0 ? 1 : -1;
    const int before = value_;
    setVerticalValue(value_ - notches * 3 * singleStep_);
    // An unmoved area lets the turn go on to an outer scrolling parent.
    if (value_ == before) event->ignore();
    else event->accept();
}

void KyAbstractScrollArea::resizeEvent(ResizeEvent* event) {
    KyWidget::resizeEvent(event);
    updateContentHeight_();
    viewportResized_();
    syncBar_();
}
