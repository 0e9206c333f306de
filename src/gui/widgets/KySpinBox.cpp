// KySpinBox: value, committing typed text, keys, arrows and the frame.
#include "gui/widgets/KySpinBox.h"

#include <X11/keysym.h>

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet =
    "KySpinBox { background-color: rgb(255, 255, 255); border-color: rgb(220, 224, 232); border-width: 1px;"
    " border-radius: 6px; color: rgb(24, 28, 36); font-size: 14px; focus-border-color: rgb(59, 130, 246);"
    " arrow-color: rgb(100, 116, 139); arrow-hover-color: rgb(37, 99, 235); arrow-pressed-color: rgb(29, 78, 216);"
    " arrow-disabled-color: rgb(190, 190, 190); arrow-hover-background-color: rgb(239, 246, 255);"
    " arrow-pressed-background-color: rgb(219, 234, 254); divider-color: rgb(226, 232, 240); }"
    "KySpinBox:hover { border-color: rgb(148, 163, 184); }"
    "KySpinBox:disabled { background-color: rgb(245, 245, 245); border-color: rgb(210, 210, 210);"
    " color: rgb(150, 150, 150); }";

// The inner field draws no frame: the spin box's frame is its frame.
const char* const kInnerEditSheet =
    "KyLineEdit#spinBoxEdit { background-color: rgba(0, 0, 0, 0); border-style: none; border-width: 0px;"
    " padding: 0px; }";

bool colorProperty(const KyWidget* w, const char* name, KyColor& out) {
    const KyString v = w->styleProperty(name);
    return !v.isEmpty() && ky::gui::StyleSheet::tryParseColor_(v, out);
}

} // namespace

// ---------------------------------------------------------------------------
// ArrowButton

KySpinBox::ArrowButton::ArrowButton(KySpinBox* box, bool up) : KyWidget(box), box_(box), up_(up) {
    setObjectName(up ? "spinBoxUp" : "spinBoxDown");
    // A click steps the value and leaves the focus in the field.
    setFocusPolicy(NoClickFocus);
    setCursor(PointingHandCursor);
}

void KySpinBox::ArrowButton::on_Pressed_changed(const bool&) {
    invalidateStyleCache_();
    update();
}

void KySpinBox::ArrowButton::paintEvent(PaintEvent* event) {
    KyPainter* p = event->painter();
    if (!p) return;
    const bool enabled = box_->isEnabled();
    const bool atEnd = up_ ? box_->value() >= box_->maximum() : box_->value() <= box_->minimum();
    KyColor background;
    bool fill = false;
    if (enabled && !atEnd && getPressed()) fill = colorProperty(box_, "arrow-pressed-background-color", background);
    else if (enabled && !atEnd && getHover()) fill = colorProperty(box_, "arrow-hover-background-color", background);
    if (fill) p->fillRect({0, 0, width(), height()}, background, background, 0);

    KyColor arrow(100, 116, 139);
    colorProperty(box_, "arrow-color", arrow);
    if (!enabled || atEnd) {
        arrow = KyColor(190, 190, 190);
        colorProperty(box_, "arrow-disabled-color", arrow);
    } else if (getPressed()) {
        colorProperty(box_, "arrow-pressed-color", arrow);
    } else if (getHover()) {
        colorProperty(box_, "arrow-hover-color", arrow);
    }
    const int cx = width() / 2, cy = height() / 2;
    const int half = std::max(2, std::min(4, std::min(width(), height()) / 3));
    if (up_) {
        const KyPoint tri[3] = {{cx - half, cy + half / 2}, {cx + half, cy + half / 2}, {cx, cy - half / 2 - 1}};
        p->fillPolygon(tri, 3, arrow, arrow, 0);
    } else {
        const KyPoint tri[3] = {{cx - half, cy - half / 2}, {cx + half, cy - half / 2}, {cx, cy + half / 2 + 1}};
        p->fillPolygon(tri, 3, arrow, arrow, 0);
    }
}

void KySpinBox::ArrowButton::mousePressEvent(MouseEvent* e) {
    if (e->button() != 1 || !box_->isEnabled()) {
        e->ignore();
        return;
    }
    setPressed(true);
}

void KySpinBox::ArrowButton::mouseReleaseEvent(MouseEvent* e) {
    if (!getPressed()) {
        e->ignore();
        return;
    }
    setPressed(false);
    if (KyRect(0, 0, width(), height()).contains(e->pos())) clicked();
}

// ---------------------------------------------------------------------------
// KySpinBox

KySpinBox::KySpinBox(KyWidget* parent) : KyWidget(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    // The inner field is the one stop of the box in the keyboard's focus
    // chain; a box that took focus itself would hand it straight back to the
    // field and trap Shift+Tab. A click on the frame focuses the field.
    setFocusPolicy(NoClickFocus);
    edit_ = new KyLineEdit(this);
    edit_->setObjectName("spinBoxEdit");
    edit_->setStyleSheet(kInnerEditSheet);
    edit_->setPlaceholder(KyString());
    up_ = new ArrowButton(this, true);
    down_ = new ArrowButton(this, false);
    KyObject::connect(up_, &ArrowButton::clicked, this, [this] {
        commitEdit();
        stepBy(1);
    });
    KyObject::connect(down_, &ArrowButton::clicked, this, [this] {
        commitEdit();
        stepBy(-1);
    });
    KyObject::connect(edit_, &KyWidget::FocusChanged, this, [this](const bool& focused) {
        // The frame shows the field's focus.
        invalidateStyleCache_();
        update();
        if (!focused) commitEdit();
    });
    updateTextFromValue();
    resize(120, 32);
    updateLayout();
}

void KySpinBox::setRange(int minimum, int maximum) {
    minimum_ = minimum;
    maximum_ = std::max(minimum, maximum);
    const int clamped = std::clamp(value_, minimum_, maximum_);
    if (clamped != value_) setValue(clamped);
    else update();
}

void KySpinBox::setValue(int value) {
    value = std::clamp(value, minimum_, maximum_);
    if (value == value_) return;
    value_ = value;
    updateTextFromValue();
    up_->update();
    down_->update();
    valueChanged(value_);
}

void KySpinBox::stepBy(int count) {
    const long long next = static_cast<long long>(value_) + static_cast<long long>(count) * singleStep_;
    setValue(static_cast<int>(std::clamp<long long>(next, minimum_, maximum_)));
}

void KySpinBox::updateTextFromValue() { edit_->setText(KyString::number(value_)); }

void KySpinBox::commitEdit() {
    const KyString typed = edit_->getText().trimmed();
    if (typed == KyString::number(value_)) return;
    bool ok = false;
    const long long parsed = typed.toLongLong(&ok);
    if (ok) setValue(static_cast<int>(std::clamp<long long>(parsed, minimum_, maximum_)));
    // Rejected or clamped text shows the value that stands.
    updateTextFromValue();
}

void KySpinBox::selectAllIfFocused_() {
    if (edit_->hasFocus()) edit_->selectAll();
}

KySpinBox::FrameMetrics KySpinBox::resolveFrameMetrics_() const {
    FrameMetrics m;
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    if (s.hasBorderWidth || s.borderStyleNone) m.border = std::max(0, s.effectiveBorderWidth());
    if (s.hasPadding) m.marginLeft = s.padding.left(), m.marginRight = s.padding.right();
    m.arrowWidth = std::clamp(height() * 2 / 3, 18, 24);
    return m;
}

void KySpinBox::updateLayout() {
    const FrameMetrics m = resolveFrameMetrics_();
    const int inner = std::max(0, height() - 2 * m.border);
    const int column = width() - m.border - m.arrowWidth;
    edit_->setGeometry(m.border + m.marginLeft, m.border, std::max(0, column - m.border - m.marginLeft - 4), inner);
    up_->setGeometry(column + 1, m.border, m.arrowWidth - 1, inner / 2);
    down_->setGeometry(column + 1, m.border + inner / 2, m.arrowWidth - 1, inner - inner / 2);
}

void KySpinBox::resizeEvent(ResizeEvent* event) {
    KyWidget::resizeEvent(event);
    updateLayout();
}

KySize KySpinBox::sizeHint() const {
    const FrameMetrics m = resolveFrameMetrics_();
    const KyFont font = edit_->resolveStyledFont();
    const KyString lo = KyString::number(minimum_), hi = KyString::number(maximum_);
    const KyString& wide = lo.size() > hi.size() ? lo : hi;
    const int text = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), wide, font, wide.size(),
                                                             static_cast<int>(wide.size()) * 8);
    const int px = font.pixelSize > 0 ? font.pixelSize : std::max(1, font.pointSize) * 96 / 72;
    const int w = std::max(kMinimumWidth, text + m.marginLeft + m.marginRight + m.arrowWidth + 2 * m.border);
    const int h = std::max(kMinimumHeight, px * 14 / 10 + 10 + 2 * m.border);
    return {std::clamp(w, minimumSize().width, maximumSize().width), std::clamp(h, minimumSize().height, maximumSize().height)};
}

KySize KySpinBox::minimumSizeHint() const {
    const KySize base = KyWidget::minimumSizeHint();
    return {std::max(base.width, kMinimumWidth), std::max(base.height, kMinimumHeight)};
}

void KySpinBox::paintEvent(PaintEvent* event) {
    KyPainter* p = event->painter();
    if (!p || !isVisibleInHierarchy()) return;
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const bool enabled = isEnabled();
    const KyColor fill = s.hasBackground ? s.background : (enabled ? KyColor(255, 255, 255) : KyColor(245, 245, 245));
    KyColor border = s.hasBorderColor ? s.borderColor : (enabled ? KyColor(220, 224, 232) : KyColor(210, 210, 210));
    const FrameMetrics m = resolveFrameMetrics_();
    const bool focused = enabled && (hasFocus() || edit_->hasFocus());
    if (focused) {
        border = KyColor(59, 130, 246);
        colorProperty(this, "focus-border-color", border);
    }
    KyStyle::paintBox(p, {0, 0, width(), height()}, fill, !s.hasBackground || s.paintBackground, border, m.border, s.radius);
    if (focused && m.border > 0) {
        StyleBox radii = s.radius;
        for (int& r : radii.v) r = std::max(0, r - m.border);
        KyStyle::strokeRoundedRect(p, {m.border, m.border, width() - 2 * m.border - 1, height() - 2 * m.border - 1}, radii,
                                   border, 1);
    }
    KyColor divider(226, 232, 240);
    colorProperty(this, "divider-color", divider);
    const int x = width() - m.border - m.arrowWidth;
    const int inset = focused ? m.border + 1 : m.border;
    p->drawLine(x, inset, x, height() - inset - 1, divider, 1);
    p->drawLine(x + 1, height() / 2, width() - inset - 1, height() / 2, divider, 1);
    paintChildren_(p, event->rect());
}

void KySpinBox::keyPressEvent(KeyEvent* e) {
    if (!isEnabled()) {
        e->ignore();
        return;
    }
    switch (e->keyCode()) {
    case XK_Up:
        commitEdit();
        stepBy(1);
        selectAllIfFocused_();
        break;
    case XK_Down:
        commitEdit();
        stepBy(-1);
        selectAllIfFocused_();
        break;
    case XK_Return:
    case XK_KP_Enter: commitEdit(); break;
    case XK_Escape:
        updateTextFromValue();
        selectAllIfFocused_();
        break;
    default: e->ignore(); return;
    }
    e->accept();
}

void KySpinBox::wheelEvent(WheelEvent* e) {
    if (!isEnabled() || e->delta() == 0) {
        e->ignore();
        return;
    }
    const int notches = e->delta() / 120 != 0 ? e->delta() / 120 : (e->delta() > 0 ? 1 : -1);
    commitEdit();
    const int before = value_;
    stepBy(notches);
    if (value_ == before) e->ignore();
}

void KySpinBox::mousePressEvent(MouseEvent* e) {
    if (e->button() != 1) {
        e->ignore();
        return;
    }
    edit_->requestFocus();
}

void KySpinBox::on_Focus_changed(const bool& focused) {
    KyWidget::on_Focus_changed(focused);
    // The field types; the box only hands its focus on.
    if (focused && edit_ && edit_->isEnabled()) edit_->requestFocus();
}

void KySpinBox::on_Enable_changed(const bool& enabled) {
    KyWidget::on_Enable_changed(enabled);
    edit_->setEnable(enabled);
    up_->update();
    down_->update();
}
