// KyStyle: the light look of the standard controls, drawn with the painter's
// primitives from each widget's resolved style and base palette.
#include "gui/widgets/KyStyle.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyWidget.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

using ky::gui::StyleBox;
using ky::gui::StyleSheet;

namespace {

constexpr KyColor kWhite{255, 255, 255};
constexpr KyColor kPressedBorder{0, 84, 153};
constexpr KyColor kCheckedFill{214, 231, 248};
constexpr KyColor kDisabledFill{244, 244, 244};
constexpr KyColor kDisabledBorder{205, 205, 205};
constexpr KyColor kDisabledText{122, 122, 122};
constexpr KyColor kFieldBorder{220, 224, 232};
constexpr KyColor kPlaceholder{160, 160, 160};
constexpr KyColor kPlaceholderDisabled{150, 150, 150};
constexpr KyColor kTrack{229, 229, 229};
constexpr KyColor kThumb{194, 194, 194};
constexpr int kGap = 8;

bool has(std::uint32_t state, std::uint32_t bit) { return (state & bit) != 0; }

KyAny prop(const KyWidget* w, const char* name) {
    const KyString key(name);
    return w->propertyExist(key) ? w->property(key) : KyAny();
}

KyString textProp(const KyWidget* w, const char* name) { return prop(w, name).toString(); }

// What a control draws with: the sheet's values over the kind's defaults.
struct Look {
    KyColor fill;
    bool paintFill = true;
    KyColor border;
    int borderWidth = 1;
    StyleBox radii;
    KyColor text;
    StyleBox padding;
    KyFont font;
};

// A colour from an extra property of the sheet (e.g. "focus-border-color").
bool sheetColor(const KyWidget* w, const char* name, std::uint32_t state, KyColor& out) {
    const KyString value = w->styleProperty(name, state);
    return !value.isEmpty() && StyleSheet::tryParseColor_(value, out);
}

Look resolveLook(const KyWidget* w, std::uint32_t state, Look look) {
    const KyWidget::ResolvedStyleSnapshot_& s = w->styleSnapshot_(state);
    if (s.hasBackground) look.fill = s.background, look.paintFill = s.paintBackground;
    if (s.hasBorderColor) look.border = s.borderColor;
    if (s.hasBorderWidth || s.borderStyleNone) look.borderWidth = s.effectiveBorderWidth();
    if (s.hasRadius) look.radii = s.radius;
    if (s.hasTextColor) look.text = s.textColor;
    if (s.hasPadding) look.padding = s.padding;
    look.font = w->resolveStyledFont(state);
    return look;
}

StyleBox uniform(int r) { return StyleBox{{r, r, r, r}}; }

KyRect inset(const KyRect& r, const StyleBox& p) {
    return {r.x + p.left(), r.y + p.top(), std::max(0, r.width - p.left() - p.right()),
            std::max(0, r.height - p.top() - p.bottom())};
}

KyRect inset(const KyRect& r, int d) { return inset(r, uniform(d)); }

// The accent ring of a focused control: one more line inside its border.
void drawFocusRing(KyPainter* p, const KyRect& rect, const KyWidget* w, std::uint32_t state, const Look& look) {
    KyColor ring = KyStyle::kAccent;
    if (!sheetColor(w, "focus-border-color", state, ring)) sheetColor(w, "focus-color", state, ring);
    const int bw = std::max(1, look.borderWidth);
    StyleBox radii = look.radii;
    for (int& r : radii.v) r = std::max(0, r - bw);
    KyStyle::strokeRoundedRect(p, {rect.x + bw, rect.y + bw, rect.width - 2 * bw - 1, rect.height - 2 * bw - 1}, radii,
                               ring, 1);
}

KyFlagSet<DrawTextFormat> alignmentOf(const KyWidget* w, KyFlagSet<DrawTextFormat> fallback) {
    const int bits = prop(w, "Alignment").toInt() & 15;
    return bits ? KyFlagSet<DrawTextFormat>::fromInt(bits) : fallback;
}

void drawButton(const KyRect& rect, KyPainter* p, const KyWidget* w, std::uint32_t state, bool tool) {
    Look look;
    look.fill = w->paletteColor(0);
    look.border = w->paletteColor(3);
    look.text = w->paletteColor(4);
    look.radii = uniform(4);
    look.padding = StyleBox{{tool ? 4 : 8, tool ? 6 : 14, tool ? 4 : 8, tool ? 6 : 14}};
    if (has(state, KyStyle::StateDisabled)) {
        look.fill = kDisabledFill, look.border = kDisabledBorder, look.text = kDisabledText;
    } else if (has(state, KyStyle::StatePressed)) {
        look.fill = w->paletteColor(2), look.border = kPressedBorder;
    } else if (has(state, KyStyle::StateChecked)) {
        look.fill = kCheckedFill, look.border = KyStyle::kAccent;
    } else if (has(state, KyStyle::StateHover)) {
        look.fill = w->paletteColor(1), look.border = KyStyle::kAccent;
    } else if (has(state, KyStyle::StateFocus)) {
        look.border = KyStyle::kAccent;
    }
    look = resolveLook(w, state, look);
    KyStyle::paintBox(p, rect, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);
    if (has(state, KyStyle::StateFocus) && !has(state, KyStyle::StateDisabled | KyStyle::StatePressed))
        drawFocusRing(p, rect, w, state, look);
    KyString text = textProp(w, "DisplayText");
    if (text.isEmpty()) text = textProp(w, "Text");
    const KyRect content = inset(rect, look.padding);
    // Buttons centre their text even when padding leaves no room for it.
    const KyRect textRect = content.isEmpty() ? rect : content;
    p->drawText(textRect, text, alignmentOf(w, DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter), look.text,
                look.font);
}

void drawLabel(const KyRect& rect, KyPainter* p, const KyWidget* w, std::uint32_t state) {
    Look look;
    look.paintFill = false;
    look.borderWidth = 0;
    look.border = w->paletteColor(3);
    look.text = has(state, KyStyle::StateDisabled) ? kDisabledText : w->paletteColor(4);
    look = resolveLook(w, state, look);
    KyStyle::paintBox(p, rect, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);
    KyString text = textProp(w, "DisplayText");
    if (text.isEmpty()) text = textProp(w, "Text");
    const int bw = look.borderWidth;
    p->drawText(inset(inset(rect, look.padding), bw), text, alignmentOf(w, DrawTextFormat::AlignVCenter), look.text,
                look.font);
}

void drawField(const KyRect& rect, KyPainter* p, const KyWidget* w, std::uint32_t state, KyStyle::ControlKind kind) {
    const bool disabled = has(state, KyStyle::StateDisabled);
    const bool focused = has(state, KyStyle::StateFocus) && !disabled;
    Look look;
    look.fill = disabled ? KyColor(245, 245, 245) : kWhite;
    look.border = disabled ? KyColor(210, 210, 210) : kFieldBorder;
    if (!disabled && has(state, KyStyle::StateHover)) look.border = w->paletteColor(3);
    look.text = disabled ? kDisabledText : w->paletteColor(4);
    look.radii = uniform(4);
    look.padding = StyleBox{{4, 8, 4, 8}};
    if (kind == KyStyle::ComboBox && !disabled) {
        look.fill = has(state, KyStyle::StateHover) ? w->paletteColor(1) : w->paletteColor(0);
        look.border = has(state, KyStyle::StateHover) ? KyStyle::kAccent : w->paletteColor(3);
    }
    look = resolveLook(w, state, look);
    if (focused) {
        KyColor focusBorder = KyStyle::kAccent;
        if (sheetColor(w, "focus-border-color", state, focusBorder) || !w->hasExplicitStyledStateProperty(state, "border-color"))
            look.border = focusBorder;
    }
    KyStyle::paintBox(p, rect, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);
    if (focused) drawFocusRing(p, rect, w, state, look);

    KyRect content = inset(inset(rect, look.padding), look.borderWidth);
    if (kind == KyStyle::SpinBox || kind == KyStyle::ComboBox) {
        // The right end holds the steppers or the drop-down chevron.
        const int button = std::min(content.width, std::max(16, rect.height - 8));
        const int bx = rect.x + rect.width - look.borderWidth - button - 2;
        KyColor arrow = disabled ? kDisabledText : look.text;
        sheetColor(w, "arrow-color", state, arrow);
        const int cx = bx + button / 2, cy = rect.y + rect.height / 2;
        if (kind == KyStyle::SpinBox) {
            KyColor divider = look.border;
            sheetColor(w, "divider-color", state, divider);
            p->drawLine(bx, rect.y + look.borderWidth + 3, bx, rect.y + rect.height - look.borderWidth - 4, divider, 1);
            const KyPoint up[3] = {{cx - 4, cy - 3}, {cx + 4, cy - 3}, {cx, cy - 7}};
            const KyPoint down[3] = {{cx - 4, cy + 3}, {cx + 4, cy + 3}, {cx, cy + 7}};
            p->fillPolygon(up, 3, arrow, arrow, 0);
            p->fillPolygon(down, 3, arrow, arrow, 0);
        } else {
            p->drawLine(cx - 4, cy - 2, cx, cy + 2, arrow, 1);
            p->drawLine(cx, cy + 2, cx + 4, cy - 2, arrow, 1);
        }
        content.width = std::max(0, bx - content.x - 4);
    }
    KyString text = textProp(w, kind == KyStyle::ComboBox ? "CurrentText" : "DisplayText");
    if (text.isEmpty()) text = textProp(w, "Text");
    if (text.isEmpty() && kind == KyStyle::SpinBox && w->propertyExist("Value")) text = textProp(w, "Value");
    KyColor colour = look.text;
    if (text.isEmpty() && kind == KyStyle::LineEdit) {
        text = textProp(w, "Placeholder");
        colour = disabled ? kPlaceholderDisabled : kPlaceholder;
        sheetColor(w, "muted-text-color", state, colour);
    }
    p->drawText(content, text, alignmentOf(w, DrawTextFormat::AlignVCenter), colour, look.font);
}

void drawIndicator(const KyRect& rect, KyPainter* p, const KyWidget* w, std::uint32_t state, bool radio) {
    const bool disabled = has(state, KyStyle::StateDisabled);
    int checkState = has(state, KyStyle::StateChecked) ? 2 : 0;
    if (w->propertyExist("CheckState")) checkState = prop(w, "CheckState").toInt();
    Look look;
    look.paintFill = false;
    look.borderWidth = 0;
    look.text = disabled ? kDisabledText : KyColor(30, 30, 30);
    look = resolveLook(w, state, look);
    KyStyle::paintBox(p, rect, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);

    const int side = std::clamp(std::min(rect.height, 28) - 4, 10, 18);
    const KyRect box{rect.x + look.padding.left(), rect.y + (rect.height - side) / 2, side, side};
    KyColor accent = KyStyle::kAccent;
    sheetColor(w, "accent-color", state, accent);
    sheetColor(w, "indicator-color-checked", state, accent);
    KyColor boxBorder = has(state, KyStyle::StateHover) ? accent : KyColor(138, 138, 138);
    KyColor boxFill = kWhite;
    if (checkState != 0) boxFill = boxBorder = accent;
    if (disabled) boxFill = KyColor(245, 245, 245), boxBorder = KyColor(190, 190, 190);
    if (disabled && checkState != 0) boxFill = boxBorder = KyColor(190, 190, 190);
    KyColor mark = kWhite;
    if (radio) {
        p->fillEllipse(box, boxFill, boxBorder, 1);
        if (checkState != 0) p->fillEllipse(inset(box, side / 4 + 1), mark, mark, 0);
    } else {
        KyStyle::paintBox(p, box, boxFill, true, boxBorder, 1, uniform(std::max(2, side / 4)));
        if (checkState == 2) {
            const int x = box.x, y = box.y;
            p->drawLine(x + side * 24 / 100, y + side * 52 / 100, x + side * 42 / 100, y + side * 70 / 100, mark, 2);
            p->drawLine(x + side * 42 / 100, y + side * 70 / 100, x + side * 76 / 100, y + side * 32 / 100, mark, 2);
        } else if (checkState == 1) {
            p->fillRect({box.x + side / 4, box.y + side / 2 - 1, side - side / 2, 2}, mark, mark, 0);
        }
    }
    if (has(state, KyStyle::StateFocus) && !disabled) {
        if (radio) p->drawEllipse(inset(box, -2), accent, 1);
        else KyStyle::strokeRoundedRect(p, {box.x - 2, box.y - 2, side + 3, side + 3}, uniform(4), accent, 1);
    }
    const KyRect textRect{box.x + side + kGap, rect.y, std::max(0, rect.x + rect.width - box.x - side - kGap), rect.height};
    p->drawText(textRect, textProp(w, "Text"), DrawTextFormat::AlignVCenter, look.text, look.font);
}

// The filled share of a value between "Minimum" and "Maximum" (0 to 1000).
int valueShare(const KyWidget* w) {
    const int lo = prop(w, "Minimum").toInt(), hi = prop(w, "Maximum").value<int>(100);
    const int v = std::clamp(prop(w, "Value").toInt(), std::min(lo, hi), std::max(lo, hi));
    return hi > lo ? static_cast<int>(1000LL * (v - lo) / (hi - lo)) : 0;
}

void drawRange(const KyRect& rect, KyPainter* p, const KyWidget* w, std::uint32_t state, bool slider) {
    const bool disabled = has(state, KyStyle::StateDisabled);
    const bool vertical = prop(w, "Orientation").toInt() == 1;
    Look look;
    look.fill = kTrack;
    look.borderWidth = 0;
    look.radii = uniform(slider ? 2 : 4);
    look.text = disabled ? kDisabledText : w->paletteColor(4);
    look = resolveLook(w, state, look);
    KyColor accent = disabled ? KyColor(190, 190, 190) : KyStyle::kAccent;
    sheetColor(w, "accent-color", state, accent);
    const int share = valueShare(w);
    const int thick = slider ? 4 : std::min(vertical ? rect.width : rect.height, 8);
    const KyRect track = vertical ? KyRect{rect.x + (rect.width - thick) / 2, rect.y, thick, rect.height}
                                  : KyRect{rect.x, rect.y + (rect.height - thick) / 2, rect.width, thick};
    KyStyle::paintBox(p, track, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);
    const int along = vertical ? track.height : track.width;
    const int filled = along * share / 1000;
    const KyRect done = vertical ? KyRect{track.x, track.y + track.height - filled, thick, filled}
                                 : KyRect{track.x, track.y, filled, thick};
    if (filled > 0) KyStyle::paintBox(p, done, accent, true, accent, 0, look.radii);
    if (slider) {
        const int d = std::min(16, vertical ? rect.width : rect.height);
        const KyPoint c = vertical ? KyPoint{track.x + thick / 2, done.y} : KyPoint{done.x + done.width, track.y + thick / 2};
        const KyRect handle{std::clamp(c.x - d / 2, rect.x, rect.x + rect.width - d),
                            std::clamp(c.y - d / 2, rect.y, rect.y + rect.height - d), d, d};
        p->fillEllipse(handle, kWhite, has(state, KyStyle::StateHover | KyStyle::StatePressed) ? accent : w->paletteColor(3), 1);
        p->fillEllipse(inset(handle, d / 4 + 1), accent, accent, 0);
    }
}

void drawScrollBarPart(const KyRect& rect, KyPainter* p, const KyWidget* w, std::uint32_t state, bool thumb) {
    const bool disabled = has(state, KyStyle::StateDisabled);
    if (!thumb) {
        Look look;
        look.paintFill = false;
        look.borderWidth = 0;
        look = resolveLook(w, state, look);
        if (disabled) sheetColor(w, "background-color-disabled", state, look.fill);
        KyStyle::paintBox(p, rect, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);
        return;
    }
    const char* suffix = disabled ? "-disabled" : has(state, KyStyle::StatePressed) ? "-pressed"
                                                : has(state, KyStyle::StateHover)   ? "-hover"
                                                                                     : "";
    KyColor fill = disabled ? KyColor(220, 220, 220)
                            : has(state, KyStyle::StatePressed) ? KyColor(128, 128, 128)
                            : has(state, KyStyle::StateHover)   ? KyColor(160, 160, 160)
                                                                : kThumb;
    if (!sheetColor(w, (KyString("thumb-color") + suffix).c_str(), state, fill)) sheetColor(w, "thumb-color", state, fill);
    KyColor border = fill;
    const bool hasBorder = sheetColor(w, (KyString("thumb-border-color") + suffix).c_str(), state, border) ||
                           sheetColor(w, "thumb-border-color", state, border);
    const int radius = StyleSheet::parsePixelValue(w->styleProperty("thumb-radius", state), std::min(rect.width, rect.height) / 2);
    KyStyle::paintBox(p, rect, fill, true, border, hasBorder ? 1 : 0, uniform(radius));
}

void drawPopupRow(const KyRect& rect, KyPainter* p, const KyWidget* w, std::uint32_t state, bool tooltip) {
    Look look;
    look.fill = tooltip ? kWhite : w->paletteColor(1);
    look.paintFill = tooltip || has(state, KyStyle::StateHover | KyStyle::StatePressed);
    look.border = tooltip ? KyColor(204, 204, 204) : w->paletteColor(3);
    look.borderWidth = tooltip ? 1 : 0;
    look.radii = uniform(4);
    look.text = has(state, KyStyle::StateDisabled) ? kDisabledText : w->paletteColor(4);
    look.padding = tooltip ? StyleBox{{4, 8, 4, 8}} : StyleBox{{0, 12, 0, 12}};
    look = resolveLook(w, state, look);
    KyStyle::paintBox(p, rect, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);
    p->drawText(inset(rect, look.padding), textProp(w, "Text"), DrawTextFormat::AlignVCenter, look.text, look.font);
}

} // namespace

std::uint32_t KyStyle::stateOf(const KyWidget* widget) { return widget ? widget->styleStateFlags_() : 0; }

void KyStyle::drawControl(ControlKind style, const KyRect& rect, KyPainter* painter, const KyWidget* widget,
                          std::uint32_t state) {
    if (!painter || !widget || rect.isEmpty()) return;
    if (state == StyleSheet::CurrentState) state = widget->styleStateFlags_();
    switch (style) {
    case Frame: {
        Look look;
        look.paintFill = false;
        look.borderWidth = 0;
        look.border = widget->paletteColor(3);
        look = resolveLook(widget, state, look);
        paintBox(painter, rect, look.fill, look.paintFill, look.border, look.borderWidth, look.radii);
        break;
    }
    case Label: drawLabel(rect, painter, widget, state); break;
    case PushButton: drawButton(rect, painter, widget, state, false); break;
    case ToolButton: drawButton(rect, painter, widget, state, true); break;
    case CheckBox: drawIndicator(rect, painter, widget, state, false); break;
    case RadioButton: drawIndicator(rect, painter, widget, state, true); break;
    case LineEdit:
    case SpinBox:
    case ComboBox: drawField(rect, painter, widget, state, style); break;
    case ProgressBar: drawRange(rect, painter, widget, state, false); break;
    case Slider: drawRange(rect, painter, widget, state, true); break;
    case ScrollBarGroove: drawScrollBarPart(rect, painter, widget, state, false); break;
    case ScrollBarThumb: drawScrollBarPart(rect, painter, widget, state, true); break;
    case MenuItem: drawPopupRow(rect, painter, widget, state, false); break;
    case ToolTip: drawPopupRow(rect, painter, widget, state, true); break;
    }
}

void KyStyle::paintBox(KyPainter* p, const KyRect& rect, const KyColor& fill, bool paintFill, const KyColor& border,
                       int borderWidth, const StyleBox& radii) {
    if (!p || rect.isEmpty() || (!paintFill && borderWidth <= 0)) return;
    const bool rounded = std::any_of(std::begin(radii.v), std::end(radii.v), [](int r) { return r > 0; });
    if (borderWidth <= 0) {
        if (rounded)
            p->fillRoundedRect(rect, radii.topLeft(), radii.topRight(), radii.bottomRight(), radii.bottomLeft(), fill, fill, 0);
        else
            p->fillRect(rect, fill, fill, 0);
        return;
    }
    // X draws a line of width w centred on its path and an outline one pixel
    // past its width: the path runs w/2 inside each edge so the border's
    // pixels are exactly the box's outer ring and nothing spills onto a neighbour.
    const int bw = std::min(borderWidth, std::min(rect.width, rect.height) / 2 + 1);
    const KyRect path{rect.x + bw / 2, rect.y + bw / 2, rect.width - bw, rect.height - bw};
    if (path.width <= 0 || path.height <= 0) {
        p->fillRect(rect, border, border, 0);
        return;
    }
    if (!paintFill) {
        strokeRoundedRect(p, path, radii, border, bw);
    } else if (rounded) {
        p->fillRoundedRect(path, radii.topLeft(), radii.topRight(), radii.bottomRight(), radii.bottomLeft(), fill, border, bw);
    } else {
        p->fillRect(path, fill, border, bw);
    }
}

void KyStyle::strokeRoundedRect(KyPainter* p, const KyRect& rect, const StyleBox& radii, const KyColor& color, int width) {
    if (!p || rect.width < 0 || rect.height < 0) return;
    const int limit = std::min(rect.width, rect.height) / 2;
    int r[4];
    for (int i = 0; i < 4; ++i) r[i] = std::clamp(radii.v[i], 0, limit);
    if (r[0] == 0 && r[1] == 0 && r[2] == 0 && r[3] == 0) {
        p->drawRect(rect, color, width);
        return;
    }
    // The same corner walk as the painter's rounded fill, joined by lines.
    constexpr double pi = std::numbers::pi;
    const double starts[4] = {pi, 1.5 * pi, 0.0, 0.5 * pi};
    const int x = rect.x, y = rect.y, right = rect.x + rect.width, bottom = rect.y + rect.height;
    const int centers[4][2] = {{x + r[0], y + r[0]}, {right - r[1], y + r[1]}, {right - r[2], bottom - r[2]}, {x + r[3], bottom - r[3]}};
    std::vector<KyPoint> points;
    for (int c = 0; c < 4; ++c) {
        if (r[c] == 0) {
            points.emplace_back(centers[c][0], centers[c][1]);
            continue;
        }
        const int segments = std::max(6, r[c]);
        for (int i = 0; i <= segments; ++i) {
            const double angle = starts[c] + (pi / 2) * i / segments;
            points.emplace_back(centers[c][0] + static_cast<int>(std::lround(r[c] * std::cos(angle))),
                                centers[c][1] + static_cast<int>(std::lround(r[c] * std::sin(angle))));
        }
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        const KyPoint& a = points[i];
        const KyPoint& b = points[(i + 1) % points.size()];
        if (a != b) p->drawLine(a.x, a.y, b.x, b.y, color, width);
    }
}
