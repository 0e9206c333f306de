// KyAbstractScrollArea: position arithmetic, the bar's input and its look.
#include "gui/widgets/KyAbstractScrollArea.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"
#include "gui/widgets/StyleSheet.h"

namespace {
constexpr int kBarWidth = 12;
constexpr int kBarPadding = 2;
constexpr int kThumbMinLength = 16;
constexpr KyColor kTrack{248, 248, 248};
constexpr KyColor kTrackLine{232, 232, 232};
constexpr KyColor kThumb{194, 194, 194};
constexpr KyColor kThumbHover{160, 160, 160};
constexpr KyColor kThumbPressed{120, 120, 120};
} // namespace

KyAbstractScrollArea::KyAbstractScrollArea(KyWidget* parent) : KyWidget(parent) {}

int KyAbstractScrollArea::frameWidth_() const { return std::max(0, styleSnapshot_().effectiveBorderWidth()); }

KyRect KyAbstractScrollArea::viewportRect() const {
    const int f = frameWidth_();
    const int bar = isVerticalBarVisible() ? kBarWidth : 0;
    const int top = f + viewportTopMargin_();
    return {f, top, std::max(0, width() - 2 * f - bar), std::max(0, height() - top - f)};
}

KyRect KyAbstractScrollArea::verticalBarRect() const {
    if (!isVerticalBarVisible()) return {};
    const int f = frameWidth_();
    const int top = f + viewportTopMargin_();
    return {width() - f - kBarWidth, top, kBarWidth, std::max(0, height() - top - f)};
}

void KyAbstractScrollArea::setVerticalValue(int value) {
    value = std::clamp(value, 0, maximum_);
    if (value == value_) return;
    const int dy = value - value_;
    value_ = value;
    scrollContentsBy_(dy);
    verticalValueChanged(value_);
}

void KyAbstractScrollArea::setContentHeight(int contentHeight, int singleStep) {
    contentHeight_ = std::max(0, contentHeight);
    singleStep_ = std::max(1, singleStep);
    const bool hadBar = isVerticalBarVisible();
    const KyRect thumbBefore = thumbRect_();
    pageStep_ = std::max(1, viewportRect().height);
    maximum_ = std::max(0, contentHeight_ - pageStep_);
    // The bar takes width from the viewport; its height is the same, so the
    // page does not change when the bar appears. A thumb that kept its
    // pixels is not repainted: the damage would merge with the rows'.
    if (hadBar != isVerticalBarVisible()) update();
    else if (thumbRect_() != thumbBefore) updateRect(verticalBarRect());
    if (value_ > maximum_) {
        value_ = maximum_;
        update();
        verticalValueChanged(value_);
    }
}

void KyAbstractScrollArea::scrollContentsBy_(int) { update(); }

KyRect KyAbstractScrollArea::thumbRect_() const {
    const KyRect bar = verticalBarRect();
    if (bar.isEmpty()) return {};
    const int length = std::max(0, bar.height - 2 * kBarPadding);
    const int smallest = std::max(length / 8, kThumbMinLength);
    int thumb = maximum_ > 0 ? static_cast<int>(static_cast<long long>(length) * pageStep_ / (maximum_ + pageStep_))
                             : length;
    thumb = std::min(length, std::max(thumb, smallest));
    const int top = static_cast<int>(static_cast<long long>(length - thumb) * value_ / std::max(1, maximum_));
    return {bar.x + 3, bar.y + kBarPadding + top, bar.width - 6, thumb};
}

int KyAbstractScrollArea::valueForThumbTop_(int top) const {
    const KyRect bar = verticalBarRect();
    const int length = std::max(0, bar.height - 2 * kBarPadding);
    const int room = std::max(1, length - thumbRect_().height);
    const int offset = std::clamp(top - bar.y - kBarPadding, 0, room);
    return static_cast<int>(static_cast<long long>(offset) * maximum_ / room);
}

void KyAbstractScrollArea::mousePressEvent(MouseEvent* event) {
    const KyRect bar = verticalBarRect();
    if (!bar.contains(event->pos())) return viewportMousePressEvent(event);
    event->accept();
    const KyRect thumb = thumbRect_();
    if (event->y() >= thumb.y && event->y() < thumb.y + thumb.height) {
        dragging_ = true;
        dragOffset_ = event->y() - thumb.y;
        updateRect(bar);
    } else {
        setVerticalValue(value_ + (event->y() < thumb.y ? -pageStep_ : pageStep_));
    }
}

void KyAbstractScrollArea::mouseMoveEvent(MouseEvent* event) {
    if (dragging_) {
        event->accept();
        setVerticalValue(valueForThumbTop_(event->y() - dragOffset_));
        return;
    }
    const bool over = verticalBarRect().contains(event->pos());
    if (over != barHover_) {
        barHover_ = over;
        updateRect(verticalBarRect());
    }
    if (over) return event->accept();
    viewportMouseMoveEvent(event);
}

void KyAbstractScrollArea::mouseReleaseEvent(MouseEvent* event) {
    if (dragging_) {
        dragging_ = false;
        event->accept();
        updateRect(verticalBarRect());
        return;
    }
    if (verticalBarRect().contains(event->pos())) return event->accept();
    viewportMouseReleaseEvent(event);
}

void KyAbstractScrollArea::mouseDoubleClickEvent(MouseEvent* event) {
    if (verticalBarRect().contains(event->pos())) return mousePressEvent(event);
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
    viewportResized_();
}

void KyAbstractScrollArea::paintVerticalBar_(KyPainter* painter) {
    const KyRect bar = verticalBarRect();
    if (bar.isEmpty()) return;
    // A dark sheet recolours the bar through these keys; the light look is the fallback.
    auto colour = [this](const char* key, KyColor fallback) {
        const KyString value = styleProperty(key);
        if (!value.isEmpty()) ky::gui::StyleSheet::tryParseColor_(value, fallback);
        return fallback;
    };
    const KyColor track = colour("scrollbar-background-color", kTrack);
    painter->fillRect(bar, track, track, 0);
    painter->drawLine(bar.x, bar.y, bar.x, bar.y + bar.height - 1, colour("scrollbar-border-color", kTrackLine), 1);
    const KyColor thumb = dragging_ ? colour("scrollbar-thumb-color-pressed", kThumbPressed)
                          : barHover_ ? colour("scrollbar-thumb-color-hover", kThumbHover)
                                      : colour("scrollbar-thumb-color", kThumb);
    painter->fillRoundedRect(thumbRect_(), 3, thumb, thumb, 0);
}
