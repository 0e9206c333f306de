// KyControlMetrics: the measures every self-drawn control shares: the pixel
// size a font really draws at, the height of one line of it, the width of a
// text and the hint of a padded, bordered box around one line of text.
//
// Pure functions of a widget's resolved style and its native window (text is
// measured on the window's connection, with an estimate before the widget has
// one). GUI thread only, like the widgets they measure.
#pragma once

#include "core/types/KySize.h"
#include "core/types/KyString.h"
#include "gui/platform/KyFont.h"

class KyWidget;

namespace KyControlMetrics {

/// The font's pixel size; from its point size at 96 dpi (points floored at 1) when unset.
int pixelSize(const KyFont& font);
/// font with its pixel size filled in, so that measuring and drawing agree.
KyFont pixelFont(const KyFont& font);
/// The height of one line of text in font: ascent plus descent of the sans faces.
int lineHeight(const KyFont& font);
/// The width text takes in font when drawn in widget's window.
int textWidth(const KyWidget* widget, const KyString& text, const KyFont& font);
/// Text width plus horizontal padding and both borders, by line height plus
/// vertical padding and both borders (resolved style, current state), with
/// extraWidth added across and at least minContentHeight of content, bounded
/// by the widget's minimum and maximum size.
KySize textBoxHint(const KyWidget* widget, const KyString& text, int extraWidth = 0, int minContentHeight = 0);
/// size bounded by the widget's minimum and maximum size.
KySize bounded(const KyWidget* widget, KySize size);

} // namespace KyControlMetrics
