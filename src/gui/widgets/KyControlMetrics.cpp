// KyControlMetrics: font sizes, line heights and text boxes of the controls.
#include "gui/widgets/KyControlMetrics.h"

#include <algorithm>

#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyWidget.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace KyControlMetrics {

int pixelSize(const KyFont& font) {
    if (font.pixelSize >= 1) return font.pixelSize;
    const int points = std::max(1, font.pointSize);
    return static_cast<int>(points * 96.0 / 72.0 + 0.5);
}

KyFont pixelFont(const KyFont& font) {
    KyFont f(font);
    f.pixelSize = pixelSize(font);
    return f;
}

int lineHeight(const KyFont& font) {
    // DejaVu Sans, the face every family here falls back to, reaches 0.93 em
    // above the baseline and 0.24 em below it.
    const int px = pixelSize(font);
    return std::max(1, (px * 117 + 99) / 100);
}

int textWidth(const KyWidget* widget, const KyString& text, const KyFont& font) {
    if (text.isEmpty()) return 0;
    const KyFont f = pixelFont(font);
    // Before the widget has a window, an average sans advance of 0.55 em per
    // character stands in for the real measure.
    const int estimate = static_cast<int>(text.toWString().size() * f.pixelSize * 55 / 100);
    const KyWidgetPlatformHandle handle = widget ? widget->nativeHandle() : KyWidgetPlatformHandle{};
    return KyWidgetPlatformAdapter::textWidthUntil(handle, text, f, text.size(), estimate);
}

KySize bounded(const KyWidget* widget, KySize size) {
    if (!widget) return size;
    const KySize lo = widget->minimumSize(), hi = widget->maximumSize();
    return {std::clamp(size.width, lo.width, std::max(lo.width, hi.width)),
            std::clamp(size.height, lo.height, std::max(lo.height, hi.height))};
}

KySize textBoxHint(const KyWidget* widget, const KyString& text, int extraWidth, int minContentHeight) {
    if (!widget) return {};
    const KyWidget::ResolvedStyleSnapshot_& s = widget->styleSnapshot_();
    const KyFont font = widget->resolveStyledFont();
    const int border = 2 * s.effectiveBorderWidth();
    const int w = textWidth(widget, text, font) + extraWidth + s.padding.left() + s.padding.right() + border;
    const int h = std::max(lineHeight(font), minContentHeight) + s.padding.top() + s.padding.bottom() + border;
    return bounded(widget, {w, h});
}

} // namespace KyControlMetrics
