// The resolved look of a widget in one state, and the per-widget style caches.
//
// A snapshot holds the common properties of every widget's sheet cascade,
// each with a presence flag, read once so that a paint needs no text lookup.
// KyWidget keeps one snapshot for its current state and one per state mask
// asked about, and drops them when a state flag, the object name, the font,
// a sheet or the parent changes. GUI thread only.
#pragma once

#include <memory>

#include <cstdint>
#include <limits>

#include "core/types/KyMap.h"
#include "gui/widgets/KyWidget.h"

/// The common style properties of one widget in one state.
struct KyWidget::ResolvedStyleSnapshot_ {
    static constexpr int kNoMaximum = std::numeric_limits<std::int32_t>::max();

    bool hasBackground = false;
    KyColor background;
    float backgroundAlpha = 1.0f;
    /// False for a transparent background (alpha 0).
    bool paintBackground = false;
    bool hasBorderColor = false;
    KyColor borderColor;
    bool hasBorderWidth = false;
    int borderWidth = 0;
    bool borderStyleNone = false;
    bool hasRadius = false;
    StyleBox radius;
    bool hasTextColor = false;
    KyColor textColor;
    bool hasPadding = false;
    StyleBox padding;
    bool hasMinWidth = false, hasMinHeight = false, hasMaxWidth = false, hasMaxHeight = false;
    int minWidth = 0, minHeight = 0;
    int maxWidth = kNoMaximum, maxHeight = kNoMaximum;
    bool hasFontFamily = false;
    KyString fontFamily;
    bool hasFontSize = false;
    ky::gui::StyleFontSize fontSize;
    bool hasFontWeight = false;
    int fontWeight = 400;
    bool hasBoxShadow = false;
    KyString boxShadow;

    /// The border width that is drawn: 0 with `border-style: none`.
    int effectiveBorderWidth() const { return borderStyleNone ? 0 : borderWidth; }
};

/// Sheets and resolved snapshots of one widget.
struct KyWidget::StyleCache_ {
    StyleSheet defaultSheet;
    StyleSheet userSheet;
    /// The cascade of this widget's chain, shared with every widget whose
    /// chain carries the same sheets (see getToolSheet).
    std::shared_ptr<const StyleSheet> effective;
    bool effectiveDirty = true;
    KyList<KyString> selectors;
    KyString selectorsClass;
    bool selectorsValid = false;
    bool currentValid = false;
    std::uint32_t currentMask = 0;
    ResolvedStyleSnapshot_ current;
    KyMap<std::uint32_t, ResolvedStyleSnapshot_> byMask;
};
