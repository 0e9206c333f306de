// The empty defaults of KyWidgetInterface: no sheet, no style, no size.
#include "gui/widgets/KyWidgetInterface.h"

#include <limits>

const ky::gui::StyleSheet& KyWidgetInterface::getToolSheet() const {
    static const StyleSheet empty;
    return empty;
}
bool KyWidgetInterface::resolveStyledBackground(KyColor&, bool&, std::uint32_t) const { return false; }
bool KyWidgetInterface::resolveStyledBorder(KyColor&, int&, std::uint32_t) const { return false; }
ky::gui::StyleBox KyWidgetInterface::resolveStyledBorderCorners(std::uint32_t) const { return {}; }
bool KyWidgetInterface::resolveStyledTextColor(KyColor&, std::uint32_t) const { return false; }
ky::gui::StyleBox KyWidgetInterface::resolveStyledPadding(std::uint32_t) const { return {}; }
KyFont KyWidgetInterface::resolveStyledFont(std::uint32_t) const { return {}; }
KyString KyWidgetInterface::resolveStyledBoxShadow(std::uint32_t) const { return {}; }
bool KyWidgetInterface::hasExplicitStyledStateProperty(std::uint32_t, const KyString&) const { return false; }

KyRect KyWidgetInterface::geometry() const { return {}; }
void KyWidgetInterface::setGeometry(int, int, int, int) {}
void KyWidgetInterface::setGeometry(const KyRect& rect) { setGeometry(rect.x, rect.y, rect.width, rect.height); }
KyRect KyWidgetInterface::frameGeometry() const { return geometry(); }
KySize KyWidgetInterface::clientSize() const { return geometry().size(); }
KyRect KyWidgetInterface::clientRect() const { return {KyPoint(), clientSize()}; }
KySize KyWidgetInterface::sizeHint() const { return {}; }
KySize KyWidgetInterface::minimumSizeHint() const { return {}; }
KySize KyWidgetInterface::minimumSize() const { return {}; }
KySize KyWidgetInterface::maximumSize() const {
    return {std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::max()};
}
bool KyWidgetInterface::isVisibleInHierarchy() const { return false; }
