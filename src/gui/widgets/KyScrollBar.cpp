// KyScrollBar: range arithmetic, the groove and thumb geometry, drag, page
// steps with auto-repeat, wheel notches and painting.
#include "gui/widgets/KyScrollBar.h"

#include <cstdint>

#include "core/runtime/KyTimer.h"
#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyControlMetrics.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet =
    "KyScrollBar { background-color: rgb(241, 241, 241); border-width: 0px; border-radius: 0px; padding: 2px;"
    " thumb-color: rgb(194, 194, 194); thumb-color-hover: rgb(160, 160, 160); thumb-color-pressed: rgb(128, 128, 128);"
    " thumb-color-disabled: rgb(222, 222, 222); thumb-min-length: 16px;"
    " background-color-disabled: rgb(246, 246, 246); }";

constexpr int kThickness = 14;
// A held page press steps once, waits, then repeats quickly.
constexpr int kRepeatDelayMs = 400;
constexpr int kRepeatIntervalMs = 50;

int clampToInt(long long v) {
    return static_cast<int>(std::clamp<long long>(v, INT32_MIN, INT32_MAX));
}

} // namespace

KyScrollBar::KyScrollBar(KyWidget* parent) : KyScrollBar(Vertical, parent) {}

KyScrollBar::KyScrollBar(int orientation, KyWidget* parent) : KyWidget(parent) {
    orientation_ = orientation == Horizontal ? Horizontal : Vertical;
    setFocusPolicy(NoClickFocus);
    setDefaultStyleSheet(kDefaultSheet);
    publish_();
}

KyScrollBar::~KyScrollBar() { stopRepeat_(); }

void KyScrollBar::publish_() {
    setDynamicProperty_("Orientation", KyAny(orientation_));
    setDynamicProperty_("Minimum", KyAny(minimum_));
    setDynamicProperty_("Maximum", KyAny(maximum_));
    setDynamicProperty_("Value", KyAny(value_));
}

void KyScrollBar::setOrientation(int orientation) {
    orientation = orientation == Horizontal ? Horizontal : Vertical;
    if (orientation == orientation_) return;
    orientation_ = orientation;
    publish_();
    update();
}

void KyScrollBar::setRange(int minimum, int maximum) {
    if (maximum < minimum) maximum = minimum;
    if (minimum == minimum_ && maximum == maximum_) return;
    const KyRect thumbBefore = thumbRect(clientRect());
    minimum_ = minimum;
    maximum_ = maximum;
    publish_();
    rangeChanged(minimum_, maximum_);
    const int old = value_;
    value_ = std::clamp(value_, minimum_, maximum_);
    publish_();
    updateThumb_(thumbBefore);
    if (value_ != old) valueChanged(value_);
}

void KyScrollBar::setValue(int value) {
    value = std::clamp(value, minimum_, maximum_);
    if (value == value_) return;
    const KyRect thumbBefore = thumbRect(clientRect());
    value_ = value;
    publish_();
    updateThumb_(thumbBefore);
    valueChanged(value_);
}

void KyScrollBar::setPageStep(int step) {
    step = std::max(0, step);
    if (step == pageStep_) return;
    const KyRect thumbBefore = thumbRect(clientRect());
    pageStep_ = step;
    updateThumb_(thumbBefore);
}

void KyScrollBar::updateThumb_(const KyRect& before) {
    // A long list's range changes by a row at a time while its thumb keeps
    // its pixels: repainting the bar then would only widen the owner's damage.
    if (thumbRect(clientRect()) != before) update();
}

void KyScrollBar::setSingleStep(int step) { singleStep_ = std::max(0, step); }

int KyScrollBar::stylePixels_(const char* name, int fallback) const {
    const KyString text = styleProperty(name);
    return text.isEmpty() ? fallback : StyleSheet::parsePixelValue(text, fallback);
}

KyRect KyScrollBar::grooveRect(const KyRect& rect) const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const int pad = std::clamp(s.hasPadding ? (vertical_() ? s.padding.top() : s.padding.left()) : 2, 0, 16);
    if (vertical_())
        return {rect.x, rect.y + pad, std::max(8, rect.width), std::max(0, rect.height - 2 * pad)};
    return {rect.x + pad, rect.y, std::max(0, rect.width - 2 * pad), std::max(8, rect.height)};
}

KyRect KyScrollBar::thumbRect(const KyRect& rect) const {
    const KyRect groove = grooveRect(rect);
    const long long length = vertical_() ? groove.height : groove.width;
    const long long smallest = std::max<long long>(length / 8, stylePixels_("thumb-min-length", 16));
    const long long range = static_cast<long long>(maximum_) - minimum_;
    long long thumb = length, start = 0;
    if (range > 0) {
        const long long page = std::max(1, pageStep_);
        thumb = std::min(length, std::max(smallest, length * page / (range + page)));
        start = (length - thumb) * (static_cast<long long>(value_) - minimum_) / std::max<long long>(1, range);
    }
    // The thumb sits inside the groove's thickness with a small margin when there is room.
    const int thick = vertical_() ? groove.width : groove.height;
    const int margin = thick >= 12 ? 2 : 0;
    if (vertical_())
        return {groove.x + margin, groove.y + static_cast<int>(start), thick - 2 * margin, static_cast<int>(thumb)};
    return {groove.x + static_cast<int>(start), groove.y + margin, static_cast<int>(thumb), thick - 2 * margin};
}

KySize KyScrollBar::sizeHint() const {
    return KyControlMetrics::bounded(this, vertical_() ? KySize{kThickness, 120} : KySize{120, kThickness});
}

KySize KyScrollBar::minimumSizeHint() const {
    return KyControlMetrics::bounded(this, vertical_() ? KySize{kThickness, 40} : KySize{40, kThickness});
}

void KyScrollBar::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyPainter* p = event->painter();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const bool disabled = !isEnabled();
    KyColor fill = s.hasBackground ? s.background : KyColor(241, 241, 241);
    bool paintFill = s.hasBackground ? s.paintBackground : true;
    KyColor border = s.hasBorderColor ? s.borderColor : fill;
    auto sheetColor = [this](const char* name, KyColor& out) {
        const KyString v = styleProperty(name);
        return !v.isEmpty() && StyleSheet::tryParseColor_(v, out);
    };
    if (disabled && sheetColor("background-color-disabled", fill)) paintFill = true;
    if (disabled) sheetColor("border-color-disabled", border);
    KyStyle::paintBox(p, clientRect(), fill, paintFill, border, s.effectiveBorderWidth(), s.radius);

    std::uint32_t state = disabled ? std::uint32_t(KyStyle::StateDisabled) : 0u;
    if (!disabled && dragging_) state |= KyStyle::StatePressed;
    else if (!disabled && thumbHover_) state |= KyStyle::StateHover;
    const KyRect thumb = thumbRect(clientRect());
    if (!thumb.isEmpty()) KyStyle::drawControl(KyStyle::ScrollBarThumb, thumb, p, this, state);
    if (hasFocus() && !disabled) {
        KyColor focus(0, 120, 215);
        sheetColor("focus-border-color", focus);
        KyStyle::paintBox(p, clientRect(), focus, false, focus, 1, s.radius);
    }
}

void KyScrollBar::keyPressEvent(KeyEvent* event) {
    if (!isEnabled()) return event->ignore();
    const long long single = std::max(1, singleStep_), page = std::max(1, pageStep_);
    long long to = value_;
    switch (event->keyCode()) {
    case 0xff52: // Up
    case 0xff51: // Left
        to -= single;
        break;
    case 0xff54: // Down
    case 0xff53: // Right
        to += single;
        break;
    case 0xff55: to -= page; break; // Page Up
    case 0xff56: to += page; break; // Page Down
    case 0xff50: to = minimum_; break; // Home
    case 0xff57: to = maximum_; break; // End
    default: return event->ignore();
    }
    setValue(clampToInt(to));
    event->accept();
}

void KyScrollBar::on_Focus_changed(const bool& focused) {
    KyWidget::on_Focus_changed(focused);
    update();
}

void KyScrollBar::mousePressEvent(MouseEvent* event) {
    const KyRect groove = grooveRect(clientRect());
    if (event->button() != 1 || !groove.contains(event->pos())) {
        event->ignore();
        return;
    }
    if (!isEnabled()) return;
    const KyRect thumb = thumbRect(clientRect());
    const int along = vertical_() ? event->y() : event->x();
    const int thumbStart = vertical_() ? thumb.y : thumb.x;
    const int thumbEnd = thumbStart + (vertical_() ? thumb.height : thumb.width);
    if (along >= thumbStart && along < thumbEnd) {
        dragging_ = true;
        dragOffset_ = along - thumbStart;
        dragStartValue_ = value_;
        update();
        sliderPressed(value_);
        return;
    }
    pageDirection_ = along < thumbStart ? -1 : 1;
    pressPoint_ = event->pos();
    setValue(clampToInt(static_cast<long long>(value_) + pageDirection_ * std::max(1, pageStep_)));
    if (!repeat_) {
        repeat_ = new KyTimer(this);
        repeat_->connectTimeout([this] { repeatPage_(); });
    }
    repeat_->setInterval(kRepeatDelayMs);
    repeat_->start();
}

void KyScrollBar::repeatPage_() {
    if (!pageDirection_ || !isEnabled()) return stopRepeat_();
    const KyRect thumb = thumbRect(clientRect());
    const int along = vertical_() ? pressPoint_.y : pressPoint_.x;
    const int thumbStart = vertical_() ? thumb.y : thumb.x;
    const int thumbEnd = thumbStart + (vertical_() ? thumb.height : thumb.width);
    // Paging stops once the thumb has reached the pointer.
    if ((pageDirection_ < 0 && along >= thumbStart) || (pageDirection_ > 0 && along < thumbEnd)) return stopRepeat_();
    setValue(clampToInt(static_cast<long long>(value_) + pageDirection_ * std::max(1, pageStep_)));
    if (repeat_ && repeat_->interval() != kRepeatIntervalMs) {
        repeat_->stop();
        repeat_->setInterval(kRepeatIntervalMs);
        repeat_->start();
    }
}

void KyScrollBar::stopRepeat_() {
    pageDirection_ = 0;
    if (repeat_) repeat_->stop();
}

void KyScrollBar::mouseMoveEvent(MouseEvent* event) {
    // Hidden during a drag, the bar lost the grab and never saw the release:
    // a plain move over it later must not drag.
    if ((dragging_ || pageDirection_) && mouseGrabWidget() != this) {
        stopRepeat_();
        if (dragging_) {
            dragging_ = false;
            update();
            sliderReleased(value_);
        }
    }
    if (dragging_) {
        const KyRect groove = grooveRect(clientRect());
        const KyRect thumb = thumbRect(clientRect());
        const long long span = vertical_() ? groove.height - thumb.height : groove.width - thumb.width;
        const long long start = (vertical_() ? event->y() - groove.y : event->x() - groove.x) - dragOffset_;
        const long long range = static_cast<long long>(maximum_) - minimum_;
        if (span > 0 && range > 0) {
            // Rounded to the nearest value, so the thumb follows the pointer both ways alike.
            const long long v = minimum_ + (std::clamp(start, 0LL, span) * range * 2 + span) / (2 * span);
            setValue(clampToInt(v));
        }
        sliderMoved(value_);
        return;
    }
    if (pageDirection_) {
        pressPoint_ = event->pos();
        return;
    }
    const bool over = thumbRect(clientRect()).contains(event->pos());
    if (over != thumbHover_) {
        thumbHover_ = over;
        update();
    }
    event->ignore();
}

void KyScrollBar::mouseReleaseEvent(MouseEvent* event) {
    if (event->button() != 1 || (!dragging_ && !pageDirection_)) {
        event->ignore();
        return;
    }
    stopRepeat_();
    if (dragging_) {
        dragging_ = false;
        thumbHover_ = thumbRect(clientRect()).contains(event->pos());
        update();
        sliderReleased(value_);
    }
}

void KyScrollBar::wheelEvent(WheelEvent* event) {
    const bool inside = event->x() >= 0 && event->y() >= 0 && event->x() < width() && event->y() < height();
    // Shift turns the wheel sideways: only a horizontal bar takes it then.
    const bool forMe = event->shift() ? !vertical_() : vertical_();
    if (!inside || !isEnabled() || !forMe || event->delta() == 0) {
        event->ignore();
        return;
    }
    int notches = event->delta() / 120;
    if (notches == 0) notches = event->delta() > 0 ? 1 : -1;
    const int step = std::max(pageStep_ / 10, singleStep_);
    const long long by = step < 2 ? notches : static_cast<long long>(notches) * step;
    const int old = value_;
    setValue(clampToInt(static_cast<long long>(value_) - by));
    if (value_ == old) event->ignore();
}

void KyScrollBar::on_Enable_changed(const bool& enabled) {
    KyWidget::on_Enable_changed(enabled);
    if (!enabled) {
        stopRepeat_();
        if (dragging_) {
            dragging_ = false;
            sliderReleased(value_);
        }
    }
}

void KyScrollBar::on_Hover_changed(const bool& hover) {
    KyWidget::on_Hover_changed(hover);
    if (!hover && thumbHover_) {
        thumbHover_ = false;
        update();
    }
}
