// VelmoVpnConsoleStyle: the one palette the console's three shells share, and
// the style sheets built from it. Every page, delegate and dialog of the
// console takes its colours from here, so the look stays one look.
#pragma once

#include "core/types/KyColor.h"
#include "core/types/KyString.h"

class KyFrame;
class KyWidget;

namespace VelmoVpnConsoleStyle {

// The palette.
inline constexpr KyColor kWindowBackground{8, 18, 24};
inline constexpr KyColor kPageBackground{10, 22, 30};
inline constexpr KyColor kMenuBarBackground{12, 24, 31};
inline constexpr KyColor kCardBackground{16, 31, 40};
inline constexpr KyColor kCardBorder{47, 72, 82};
inline constexpr KyColor kLoginCardBackground{20, 37, 46};
inline constexpr KyColor kLoginCardBorder{52, 81, 92};
inline constexpr KyColor kInputBackground{11, 24, 31};
inline constexpr KyColor kInputBorder{47, 72, 82};
inline constexpr KyColor kText{216, 225, 228};
/// Secondary text on dark: overlines, hints, detail lines.
inline constexpr KyColor kMutedText{127, 145, 151};
inline constexpr KyColor kAccent{220, 154, 84};
inline constexpr KyColor kAccentBorder{194, 134, 70};
inline constexpr KyColor kAccentText{10, 14, 18};
inline constexpr KyColor kSecondaryButton{22, 40, 49};
inline constexpr KyColor kSecondaryButtonBorder{56, 84, 94};
inline constexpr KyColor kDestructiveButton{124, 57, 57};
inline constexpr KyColor kDestructiveButtonBorder{146, 73, 73};
inline constexpr KyColor kTableHeader{15, 29, 37};
inline constexpr KyColor kStatusBar{243, 246, 247};
inline constexpr KyColor kStatusBarBorder{214, 221, 224};
/// Online, allowed, active: the success tone of the log and the lists.
inline constexpr KyColor kPositive{86, 176, 145};
/// Errors and blocked rules.
inline constexpr KyColor kNegative{203, 102, 102};

inline constexpr int kCardBorderWidth = 1;
inline constexpr int kCardRadius = 12;
inline constexpr int kInputRadius = 9;
inline constexpr int kPrimaryButtonRadius = 10;
inline constexpr int kButtonRadius = 9;

/// "KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color:
/// rgb(r, g, b); font-size: sizepx; }"
KyString labelCss(int r, int g, int b, int size);

/// The sheet every console window root carries (set by the window builders):
/// dark page, cards, inputs, buttons, check boxes, tabs, item views, the menu
/// bar and the light status bar. Pages style their widgets by object name:
///   KyFrame#card, KyFrame#loginCard        cards
///   KyLabel#overline, #cardTitle, #heading, #hint, #brand   texts
///   KyPushButton#secondaryButton, #destructiveButton        button kinds
///   KyWidget#primaryFill with a transparent KyPushButton#primaryButton on it
/// so a page never repeats a colour.
KyString windowCss();

/// A frame the window sheet draws as a card (KyFrame#card), child of parent.
KyFrame* makeCard(KyWidget* parent);

} // namespace VelmoVpnConsoleStyle
