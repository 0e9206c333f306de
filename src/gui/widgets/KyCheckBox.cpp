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

constexpr KyColor kUncheckedFill{255, 255, 255};
constexpr KyColor kUncheckedBorder{138, 138, 138};
constexpr KyColor kDisabledLightFill{245, 245, 245};
constexpr KyColor kDisabledLightBorder{190, 190, 190};
constexpr KyColor kDisabledText{122, 122, 122};
constexpr KyColor kDisabledMark{150, 150, 150};
constexpr KyColor kDisabledDarkFill{72, 74, 79};
constexpr KyColor kDisabledDarkBorder{78, 80, 85};
constexpr KyColor kMarkFallback{0xff, 0xff, 0xff};

bool sheetColor(const KyWidget* w, const char* name, KyColor& out) {
    const KyString value = w->styleProperty(name);
    float alpha = 1.0f;
    KyColor parsed;
    // A transparent colour leaves the fallback in place.
    if (value.isEmpty() || !ky::gui::StyleSheet::tryParseColor_(value, parsed, &alpha) || alpha <= 0.0f) return false;
    out = parsed;
    return true;
}

} // namespace

KyCheckBox::KyCheckBox(KyWidget* parent) : KyAbstractButton(parent) {
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
    KyColor well = kUncheckedFill;
    if (!sheetColor(this, "background-color-unchecked", well)) sheetColor(this, "background-color", well);
    KyColor fill = well, border = kUncheckedBorder, mark = kMarkFallback;
    if (checkState_ != Unchecked) {
        fill = KyStyle::kAccent;
        sheetColor(this, "indicator-color-checked", fill);
        border = fill;
        sheetColor(this, "border-color", border);
    } else {
        if (state & KyStyle::StateHover) border = KyStyle::kAccent;
        if (!sheetColor(this, "border-color-unchecked", border)) sheetColor(this, "border-color", border);
    }
    if (disabled) {
        // The unchecked well tells a light look from a dark one.
        if (well.red() + well.green() + well.blue() > 383) {
            fill = kDisabledLightFill, border = kDisabledLightBorder, mark = kDisabledMark;
        } else {
            fill = checkState_ != Unchecked ? kDisabledDarkFill : well;
            border = kDisabledDarkBorder;
            mark = kDisabledMark;
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

void KyCheckBox::on_Text_changed(const KyString&) { update(); }
