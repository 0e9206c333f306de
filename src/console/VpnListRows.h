// VpnListRows: the look and geometry that the rows of the "VPNs" tab share.
//
// Both lists draw each row as a rounded tile on the card, with a badge at the
// left, a title and a detail line, and a switch at the right end. The
// delegates paint with these routines and the views hit-test the switch with
// the same rectangles, so what the user sees as the switch is exactly what
// takes the click. Colours come from the console's palette.
//
// GUI thread only (painting and text measuring go through the row's widget).
#pragma once

#include "core/types/KyColor.h"
#include "core/types/KyRect.h"
#include "core/types/KyString.h"
#include "gui/modelview/KyStyledItemDelegate.h"
#include "gui/platform/KyFont.h"

class KyPainter;
class KyWidget;

namespace VpnListRows {

/// Height of one row, the tile and the gap to the next row included.
inline constexpr int kRowHeight = 62;
inline constexpr int kSwitchWidth = 40;
inline constexpr int kSwitchHeight = 22;
/// Frames of one pulse of a row being joined (the views tick every 100 ms).
inline constexpr int kPulseFrames = 12;

/// How a row's switch looks.
struct SwitchLook {
    bool on = false;
    bool enabled = true;
    /// -1: steady; 0..255: the track glows towards the accent by this much.
    int pulse = -1;
};

/// The tile a row is painted as, inside the row's rectangle.
KyRect tileRect(const KyRect& row);
/// The switch at the tile's right end, centred on it.
KyRect switchRect(const KyRect& row);
/// Where a press counts as the switch's: the switch with a margin around it,
/// so a click at its rim is not taken for the row.
KyRect switchHitRect(const KyRect& row);
/// The badge at the tile's left end.
KyRect badgeRect(const KyRect& row);
/// The room for the title and the detail line: from the badge to right (exclusive).
KyRect textRect(const KyRect& row, int right);

/// Triangle wave over kPulseFrames: 0 at phase 0, 255 half-way.
int pulseLevel(int phase);
/// a blended towards b by t (0..255).
KyColor mix(const KyColor& a, const KyColor& b, int t);
/// DejaVu Sans at a pixel size and weight.
KyFont font(int pixelSize, int weight = 400);

/// The tile: resting, hovered, current (the keyboard's row), or selected
/// (accent-framed); a focused view rings its current row.
struct TileState {
    bool selected = false;
    bool hover = false;
    bool current = false;
    bool focused = false;
};
void paintTile(KyPainter* painter, const KyRect& row, const TileState& state);
/// The tile's fill in state (marks drawn on the tile ring themselves in it).
KyColor tileFill(const TileState& state);
void paintSwitch(KyPainter* painter, const KyRect& rect, const SwitchLook& look);
/// A small rounded tag of capital text ending at right, centred on centreY;
/// returns its left edge.
int paintTag(KyPainter* painter, const KyWidget* widget, int right, int centreY, const KyString& text,
             const KyColor& textColour, const KyColor& fill, const KyColor& border);
/// Title (bold) over detail (muted), each cut with an ellipsis to fit rect.
void paintTexts(KyPainter* painter, const KyWidget* widget, const KyRect& rect, const KyString& title,
                const KyString& detail, bool dim);
/// text cut to width with a trailing ellipsis when it does not fit.
KyString elide(const KyWidget* widget, const KyString& text, const KyFont& font, int width);
int textWidth(const KyWidget* widget, const KyString& text, const KyFont& font);
/// The first character of name (an ASCII letter upper-cased) for a badge; "?" for none.
KyString initialOf(const KyString& name);

/// The tile state a view's option describes (selected comes from the row's own flag).
TileState tileStateOf(const KyStyleOptionViewItem& option, bool selected);

} // namespace VpnListRows
