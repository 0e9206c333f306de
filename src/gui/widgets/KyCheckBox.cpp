// KyCheckBox: states, clicks and the indicator's drawing.
#include "gui/widgets/KyCheckBox.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyControlMetrics.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet =
    "KyCheckBox { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(30, 30, 30); font-size: 14px; }";

constexpr int kKeySpace = 0x0020;
constexpr KyColor kUncheckedFill{255, 255, 255};
constexpr KyColor kUncheckedBorder{138, 138, 138};
constexpr KyColor kDisabledLightFill{245, 245, 245};
constexpr KyColor kDisabledLightBorder{190, 190, 190};
constexpr KyColor kDisabledText{122, 122, 122};
constexpr KyColor kDisabledMark{160, 160, 160};
constexpr KyColor kMarkFallback{0xff, 0xff, 0xff};

bool sheetColor(const KyWidget* w, const char* name, KyColor& out) {
    const KyString value = w->styleProperty(name);
    float alpha = 1.0f;
    return !value.isEmpty() && ky::gui::StyleSheet::tryParseColor_(value, out, &alpha) && alpha > 0.0f;
}

} // namespace

KyCheckBox::KyCheckBox(KyWidget* parent) : KyWidget(parent) {
    setFocusPolicy(StrongFocus);
    setDefaultStyleSheet(kDefaultSheet);
    setDynamicProperty_("CheckState", KyAny(checkState_));
    setDynamicProperty_("Checked", KyAny(false));
}

KyCheckBox::KyCheckBox(const KyString& text, KyWidget* parent) : KyCheckBox(parent) { setText(text); }

void KyCheckBox::setCheckState(int state) {
    state = std::clamp(state, static_cast<int>(Unchecked), static_cast<int>(Checked));
    if (state == checkState_) return;
    const bool wasChecked = checkState_ == Checked;
    checkState_ = state;
    setDynamicProperty_("CheckState", KyAny(state));
    // The sheet's :checked rules follow the fully checked state only.
    setDynamicProperty_("Checked", KyAny(state == Checked));
    invalidateStyleCache_();
    update();
    stateChanged(state);
    if (wasChecked != (state == Checked)) toggled(state == Checked);
}

void KyCheckBox::setBoxSize(int side) {
    side = std::max(1, side);
    if (side == boxSize_) return;
    boxSize_ = side;
    update();
}

void KyCheckBox::click() {
    if (!isEnabled()) return;
    int next = checkState_ == Checked ? Unchecked : Checked;
    if (tristate_) next = (checkState_ + 1) % 3;
    setCheckState(next);
    clicked(checkState_ == Checked);
}

int KyCheckBox::drawnSide_() const { return boxSize_ <= 11 ? boxSize_ : std::min(boxSize_, 28); }

KySize KyCheckBox::sizeHint() const {
    const int side = drawnSide_();
    const KyString text = getText();
    return KyControlMetrics::textBoxHint(this, text, text.isEmpty() ? side : side + kGap, side);
}

void KyCheckBox::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyPainter* p = event->painter();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const std::uint32_t state = styleStateFlags_();
    const bool disabled = !isEnabled();
    const KyRect all = clientRect();
    if (s.paintBackground || s.effectiveBorderWidth() > 0)
        KyStyle::paintBox(p, all, s.background, s.paintBackground, s.borderColor, s.effectiveBorderWidth(), s.radius);
    const int bw = s.effectiveBorderWidth();
    const KyRect content{all.x + s.padding.left() + bw, all.y + s.padding.top() + bw,
                         std::max(0, all.width - s.padding.left() - s.padding.right() - 2 * bw),
                         std::max(0, all.height - s.padding.top() - s.padding.bottom() - 2 * bw)};

    const int side = drawnSide_();
    const int radius = side <= 11 ? 2 : side / 4;
    const KyRect box{content.x, content.y + (content.height - side) / 2, side, side};

    // Checked and partial boxes are filled with the accent; an unchecked box
    // is a light well whose border lights up under the pointer.
    KyColor fill = kUncheckedFill, border = kUncheckedBorder;
    const KyColor mark = kMarkFallback;
    if (checkState_ != Unchecked) {
        fill = KyStyle::kAccent;
        sheetColor(this, "indicator-color-checked", fill);
        border = fill;
        sheetColor(this, "border-color", border);
    } else {
        if (!sheetColor(this, "background-color-unchecked", fill)) sheetColor(this, "background-color", fill);
        if (state & KyStyle::StateHover) border = KyStyle::kAccent;
        if (!sheetColor(this, "border-color-unchecked", border)) sheetColor(this, "border-color", border);
    }
    if (disabled) {
        if (fill.red() + fill.green() + fill.blue() > 383) {
            fill = kDisabledLightFill, border = kDisabledLightBorder;
        } else if (checkState_ != Unchecked) {
            fill = border = kDisabledMark;
        } else {
            // A dark well keeps its fill and loses half its border's contrast.
            border = {(border.red() + fill.red()) / 2, (border.green() + fill.green()) / 2, (border.blue() + fill.blue()) / 2};
        }
    }
    KyStyle::paintBox(p, box, fill, true, border, 1, ky::gui::StyleBox{{radius, radius, radius, radius}});
    if (checkState_ == Checked) {
        const int x = box.x, y = box.y, w = std::max(1, side / 8);
        p->drawLine(x + side * 24 / 100, y + side * 52 / 100, x + side * 42 / 100, y + side * 70 / 100, mark, w);
        p->drawLine(x + side * 42 / 100, y + side * 70 / 100, x + side * 76 / 100, y + side * 32 / 100, mark, w);
    } else if (checkState_ == PartiallyChecked) {
        const int t = std::max(2, side / 8);
        p->fillRect({box.x + side / 4, box.y + (side - t) / 2, side - 2 * (side / 4), t}, mark, mark, 0);
    }
    if ((state & KyStyle::StateFocus) && !disabled) {
        KyColor ring = KyStyle::kAccent;
        if (!sheetColor(this, "focus-border-color", ring)) sheetColor(this, "focus-color", ring);
        KyStyle::strokeRoundedRect(p, {box.x - 2, box.y - 2, side + 3, side + 3},
                                   ky::gui::StyleBox{{radius + 2, radius + 2, radius + 2, radius + 2}}, ring, 1);
    }

    KyColor text = s.hasTextColor ? s.textColor : KyColor(30, 30, 30);
    if (disabled && !hasExplicitStyledStateProperty(state, "color")) text = kDisabledText;
    const KyRect textRect{box.x + side + kGap, content.y, std::max(0, content.x + content.width - box.x - side - kGap),
                          content.height};
    // Flags 36: centred vertically (4); the 32 bit means nothing to the painter.
    p->drawText(textRect, getText(), KyFlagSet<DrawTextFormat>::fromInt(36 & 15), text, resolveStyledFont());
    paintChildren_(p, event->rect());
}

void KyCheckBox::mousePressEvent(MouseEvent* event) {
    if (event->button() != 1 || !isInside_(event->x(), event->y())) {
        event->ignore();
        return;
    }
    if (isEnabled()) setPressed(true);
}

void KyCheckBox::mouseReleaseEvent(MouseEvent* event) {
    if (!getPressed() || event->button() != 1) {
        event->ignore();
        return;
    }
    const bool inside = isInside_(event->x(), event->y());
    setPressed(false);
    keyPressed_ = false;
    if (inside) click();
}

void KyCheckBox::mouseMoveEvent(MouseEvent* event) {
    if (!getPressed()) event->ignore();
}

void KyCheckBox::keyPressEvent(KeyEvent* event) {
    if (!isEnabled() || event->ctrl() || event->alt() || event->keyCode() != kKeySpace) {
        event->ignore();
        return;
    }
    if (!getPressed()) {
        keyPressed_ = true;
        setPressed(true);
    }
}

void KyCheckBox::keyReleaseEvent(KeyEvent* event) {
    if (event->keyCode() != kKeySpace || !keyPressed_) {
        event->ignore();
        return;
    }
    keyPressed_ = false;
    if (getPressed()) {
        setPressed(false);
        click();
    }
}

void KyCheckBox::on_Text_changed(const KyString&) { update(); }

void KyCheckBox::on_Pressed_changed(const bool&) {
    invalidateStyleCache_();
    update();
}

void KyCheckBox::on_Enable_changed(const bool& enabled) {
    KyWidget::on_Enable_changed(enabled);
    if (!enabled) {
        keyPressed_ = false;
        setPressed(false);
    }
}

void KyCheckBox::on_Focus_changed(const bool& focused) {
    KyWidget::on_Focus_changed(focused);
    if (!focused && keyPressed_) {
        keyPressed_ = false;
        setPressed(false);
    }
}
