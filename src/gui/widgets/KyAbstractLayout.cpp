// The part of a layout the widget base relies on: parent, margins, spacing
// and when to apply.
#include "gui/widgets/KyAbstractLayout.h"

#include <algorithm>

#include "gui/widgets/KyWidget.h"

void KyAbstractLayout::setParentWidget_(KyWidget* widget) {
    parentWidget_ = widget;
    if (widget && parent() != widget) setParent(widget);
    // Widgets added before the layout had a parent join it now, so that they
    // paint and take input like widgets added afterwards.
    if (widget)
        forEachManagedWidget([widget](KyWidget* w) {
            if (w->parent() != widget) w->setParent(widget);
        });
    dirty_ = true;
}

void KyAbstractLayout::setSpacing(int spacing) {
    if (spacing == spacing_) return;
    spacing_ = spacing;
    dirty_ = true;
    updateGeometry();
}

void KyAbstractLayout::setContentsMargins(int left, int top, int right, int bottom) {
    margins_[0] = left, margins_[1] = top, margins_[2] = right, margins_[3] = bottom;
    dirty_ = true;
    updateGeometry();
}

void KyAbstractLayout::updateGeometry() {
    if (!parentWidget_) return;
    const KyRect client = parentWidget_->clientRect();
    const KyRect rect{client.x + margins_[0], client.y + margins_[1],
                      std::max(0, client.width - margins_[0] - margins_[2]),
                      std::max(0, client.height - margins_[1] - margins_[3])};
    if (rect.width < 1 || rect.height < 1) return;
    if (!dirty_ && rect.size() == lastApplied_.size()) return;
    dirty_ = false;
    lastApplied_ = rect;
    applyLayout(rect);
}
