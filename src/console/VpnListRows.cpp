// VpnListRows: tiles, switches, tags and the two text lines of a list row.
#include "console/VpnListRows.h"

#include <algorithm>

#include "console/VelmoVpnConsoleStyle.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyWidget.h"

namespace VpnListRows {

namespace {
namespace S = VelmoVpnConsoleStyle;

constexpr int kTileInsetX = 2;
constexpr int kTileInsetY = 3;
constexpr int kTileRadius = 10;
constexpr int kSwitchMargin = 14;
constexpr int kSwitchHitMargin = 6;
constexpr int kBadgeSize = 36;
constexpr int kBadgeMargin = 12;

const KyColor kTileFill{19, 36, 46};
const KyColor kTileBorder{33, 54, 63};
const KyColor kTileHoverFill{22, 41, 52};
const KyColor kTileHoverBorder{52, 80, 90};
const KyColor kTileCurrentFill{23, 43, 54};
const KyColor kTileCurrentBorder{60, 90, 101};
const KyColor kFocusRing{112, 146, 158};

const KyColor kTrackOff{30, 51, 61};
const KyColor kTrackOffBorder{64, 94, 106};
const KyColor kKnobOff{165, 180, 186};
const KyColor kKnobOn{252, 246, 238};
const KyColor kTrackOnDisabled{84, 68, 52};
const KyColor kTrackOnDisabledBorder{100, 80, 60};
const KyColor kKnobOnDisabled{150, 140, 128};
const KyColor kTrackOffDisabled{22, 38, 46};
const KyColor kTrackOffDisabledBorder{40, 60, 68};
const KyColor kKnobOffDisabled{74, 92, 100};
const KyColor kDimTitle{150, 165, 170};
} // namespace

KyRect tileRect(const KyRect& row) {
    return {row.x + kTileInsetX, row.y + kTileInsetY, std::max(0, row.width - 2 * kTileInsetX),
            std::max(0, row.height - 2 * kTileInsetY)};
}

KyRect switchRect(const KyRect& row) {
    const KyRect tile = tileRect(row);
    return {tile.x + tile.width - kSwitchMargin - kSwitchWidth, tile.y + (tile.height - kSwitchHeight) / 2,
            kSwitchWidth, kSwitchHeight};
}

KyRect switchHitRect(const KyRect& row) {
    const KyRect s = switchRect(row);
    return KyRect(s.x - kSwitchHitMargin, s.y - kSwitchHitMargin, s.width + 2 * kSwitchHitMargin,
                  s.height + 2 * kSwitchHitMargin)
        .intersected(tileRect(row));
}

KyRect badgeRect(const KyRect& row) {
    const KyRect tile = tileRect(row);
    return {tile.x + kBadgeMargin, tile.y + (tile.height - kBadgeSize) / 2, kBadgeSize, kBadgeSize};
}

KyRect textRect(const KyRect& row, int right) {
    const KyRect badge = badgeRect(row);
    const int left = badge.x + badge.width + 12;
    return {left, row.y, std::max(0, right - 12 - left), row.height};
}

int pulseLevel(int phase) {
    const int half = kPulseFrames / 2;
    const int p = ((phase % kPulseFrames) + kPulseFrames) % kPulseFrames;
    return (p <= half ? p : kPulseFrames - p) * 255 / half;
}

KyColor mix(const KyColor& a, const KyColor& b, int t) {
    t = std::clamp(t, 0, 255);
    auto channel = [t](int x, int y) { return x + (y - x) * t / 255; };
    return {channel(a.red(), b.red()), channel(a.green(), b.green()), channel(a.blue(), b.blue())};
}

KyFont font(int pixelSize, int weight) {
    KyFont f(L"DejaVu Sans", 0, weight);
    f.pixelSize = pixelSize;
    return f;
}

TileState tileStateOf(const KyStyleOptionViewItem& option, bool selected) {
    TileState state;
    state.selected = selected;
    state.hover = option.has(KyStyleOptionViewItem::Hover);
    state.current = option.has(KyStyleOptionViewItem::Current);
    state.focused = option.has(KyStyleOptionViewItem::Focus);
    return state;
}

KyColor tileFill(const TileState& state) {
    // The inspected VPN: the card tinted towards the accent.
    if (state.selected) return mix(S::kCardBackground, S::kAccent, state.hover ? 38 : 30);
    if (state.hover) return kTileHoverFill;
    return state.current ? kTileCurrentFill : kTileFill;
}

void paintTile(KyPainter* painter, const KyRect& row, const TileState& state) {
    const KyRect tile = tileRect(row);
    const KyColor fill = tileFill(state);
    const KyColor border = state.selected  ? S::kAccentBorder
                           : state.hover   ? kTileHoverBorder
                           : state.current ? kTileCurrentBorder
                                           : kTileBorder;
    // The keyboard's row in a focused list wears a ring outside its frame,
    // so it shows on the selected tile as well.
    if (state.current && state.focused) {
        const KyRect ring{tile.x - 2, tile.y - 2, tile.width + 4, tile.height + 4};
        painter->fillRoundedRect(ring, kTileRadius + 2, kFocusRing, kFocusRing, 0);
    }
    painter->fillRoundedRect(tile, kTileRadius, fill, border, 1);
}

void paintSwitch(KyPainter* painter, const KyRect& rect, const SwitchLook& look) {
    KyColor track, border, knob;
    if (!look.enabled) {
        track = look.on ? kTrackOnDisabled : kTrackOffDisabled;
        border = look.on ? kTrackOnDisabledBorder : kTrackOffDisabledBorder;
        knob = look.on ? kKnobOnDisabled : kKnobOffDisabled;
    } else if (look.pulse >= 0) {
        // Being joined: the knob already sits on, the track breathes.
        track = mix(kTrackOff, S::kAccent, 70 + look.pulse * 185 / 255);
        border = mix(kTrackOffBorder, S::kAccentBorder, 70 + look.pulse * 185 / 255);
        knob = kKnobOn;
    } else if (look.on) {
        track = S::kAccent, border = S::kAccentBorder, knob = kKnobOn;
    } else {
        track = kTrackOff, border = kTrackOffBorder, knob = kKnobOff;
    }
    painter->fillRoundedRect(rect, rect.height / 2, track, border, 1);
    const int d = rect.height - 6;
    const bool right = look.on || (look.enabled && look.pulse >= 0);
    const int x = right ? rect.x + rect.width - 3 - d : rect.x + 3;
    painter->fillEllipse({x, rect.y + 3, d, d}, knob, knob, 0);
}

int textWidth(const KyWidget* widget, const KyString& text, const KyFont& f) {
    const int fallback = static_cast<int>(text.size()) * f.pixelSize * 6 / 10;
    if (!widget) return fallback;
    return KyWidgetPlatformAdapter::textWidthUntil(widget->nativeHandle(), text, f, text.size(), fallback);
}

KyString initialOf(const KyString& name) {
    const std::string s = name.trimmed().toStdString();
    if (s.empty()) return KyString("?");
    std::size_t n = 1;
    while (n < s.size() && (static_cast<unsigned char>(s[n]) & 0xC0) == 0x80) ++n;
    std::string head = s.substr(0, n);
    if (n == 1 && head[0] >= 'a' && head[0] <= 'z') head[0] = char(head[0] - 'a' + 'A');
    return KyString(head);
}

KyString elide(const KyWidget* widget, const KyString& text, const KyFont& f, int width) {
    if (text.isEmpty() || textWidth(widget, text, f) <= width) return text;
    const KyString ellipsis("\u2026");
    const int room = width - textWidth(widget, ellipsis, f);
    if (room <= 0 || !widget) return KyString();
    const std::size_t cut =
        KyWidgetPlatformAdapter::characterIndexAtPosition(widget->nativeHandle(), text, f, room, width);
    std::string head = text.toStdString().substr(0, cut);
    while (!head.empty() && (head.back() == ' ' || head.back() == '|')) head.pop_back();
    return KyString(head) + ellipsis;
}

int paintTag(KyPainter* painter, const KyWidget* widget, int right, int centreY, const KyString& text,
             const KyColor& textColour, const KyColor& fill, const KyColor& border) {
    const KyFont f = font(10, 700);
    const int w = textWidth(widget, text, f) + 16;
    const KyRect tag{right - w, centreY - 9, w, 18};
    painter->fillRoundedRect(tag, 9, fill, border, 1);
    painter->drawText(tag, text, DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter, textColour, f);
    return tag.x;
}

void paintTexts(KyPainter* painter, const KyWidget* widget, const KyRect& rect, const KyString& title,
                const KyString& detail, bool dim) {
    const KyFont titleFont = font(14, 600);
    const KyFont detailFont = font(12);
    const int centre = rect.y + rect.height / 2;
    const KyRect titleRect{rect.x, detail.isEmpty() ? centre - 10 : centre - 20, rect.width, 20};
    painter->drawText(titleRect, elide(widget, title, titleFont, rect.width), DrawTextFormat::AlignVCenter,
                      dim ? kDimTitle : S::kText, titleFont);
    if (detail.isEmpty()) return;
    painter->drawText({rect.x, centre + 1, rect.width, 18}, elide(widget, detail, detailFont, rect.width),
                      DrawTextFormat::AlignVCenter, S::kMutedText, detailFont);
}

} // namespace VpnListRows
