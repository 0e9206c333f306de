// Widget and spacer items: the widget item forwards to its widget, the spacer
// answers from its stored lengths and policies.
#include "gui/widgets/KyLayoutItem.h"

#include "gui/widgets/KyWidget.h"

KyRect KyWidgetItem::geometry() const { return widget_->geometry(); }

bool KyWidgetItem::isEmpty() const {
    // The widget's own flag, not the hierarchy: a layout inside a hidden
    // window still lays out what will show when the window does.
    if (auto* w = dynamic_cast<const KyWidget*>(widget_)) return !w->isVisible();
    return !widget_->isVisibleInHierarchy();
}

KySize KyWidgetItem::maximumSize() const { return widget_->maximumSize(); }

KySize KyWidgetItem::minimumSize() const { return widget_->minimumSizeHint(); }

void KyWidgetItem::setGeometry(const KyRect& rect) { widget_->setGeometry(rect); }

KySize KyWidgetItem::sizeHint() const { return widget_->sizeHint(); }

void KySpacerItem::changeSize(int width, int height, int horizontalPolicy, int verticalPolicy) {
    width_ = width;
    height_ = height;
    horizontalPolicy_ = horizontalPolicy;
    verticalPolicy_ = verticalPolicy;
}

int KySpacerItem::expandingDirections() const {
    return ((horizontalPolicy_ & KySizePolicy::Expand) ? Horizontal : 0) |
           ((verticalPolicy_ & KySizePolicy::Expand) ? Vertical : 0);
}

namespace {

// Only Fixed, Minimum and MinimumExpanding hold a spacer at its length; one
// that may do nothing but shrink (Fixed, Maximum) has its length as the maximum.
int minimumLength(int length, int policy) {
    return policy == KySizePolicy::Fixed || policy == KySizePolicy::Minimum ||
                   policy == KySizePolicy::MinimumExpanding
               ? length
               : 0;
}
int maximumLength(int length, int policy) {
    return (policy & ~KySizePolicy::Shrink) == 0 ? length : kyLayoutMaximumLength;
}

}  // namespace

KySize KySpacerItem::maximumSize() const {
    return {maximumLength(width_, horizontalPolicy_), maximumLength(height_, verticalPolicy_)};
}

KySize KySpacerItem::minimumSize() const {
    return {minimumLength(width_, horizontalPolicy_), minimumLength(height_, verticalPolicy_)};
}
