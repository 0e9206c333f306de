// KyTextCharFormat: laying one format over another.
#include "gui/text/KyTextCharFormat.h"

void KyTextCharFormat::merge(const KyTextCharFormat& other) {
    if (other.hasForeground()) setForeground(other.foreground_);
    if (other.hasBackground()) setBackground(other.background_);
    if (other.hasFontWeight()) setFontWeight(other.weight_);
    if (other.hasFontItalic()) setFontItalic(other.italic_);
    if (other.hasFontUnderline()) setFontUnderline(other.underline_);
}
