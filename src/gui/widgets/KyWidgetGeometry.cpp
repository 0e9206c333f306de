// KyWidget's geometry: positions stored relative to the native window's root,
// the clamps of setGeometry, size hints, the layout hook and global mapping.
#include <algorithm>
#include <limits>

#include "core/runtime/KyCoreApplication.h"
#include "gui/widgets/KyAbstractLayout.h"
#include "gui/widgets/KyWidget.h"
#include "gui/widgets/KyWidgetPerf.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

constexpr int kMaxLength = std::numeric_limits<std::int32_t>::max();

int addCapped(int a, int b) {
    const long long sum = static_cast<long long>(a) + b;
    return static_cast<int>(std::clamp<long long>(sum, 0, kMaxLength));
}

} // namespace

KyRect KyWidget::geometry() const {
    const KyWidget* p = nativeParentWidget_();
    const KyPoint origin = p ? p->rootPos_ : KyPoint();
    return {rootPos_ - origin, size_};
}

KyRect KyWidget::frameGeometry() const {
    if (nativeWindowOwner_ && handle_.isValid()) {
        const KyRect frame = KyWidgetPlatformAdapter::windowFrameRect(handle_);
        if (!frame.isEmpty()) return frame;
    }
    return geometry();
}

void KyWidget::move(int x, int y) { setGeometry(x, y, size_.width, size_.height); }

void KyWidget::resize(int width, int height) {
    const KyRect g = geometry();
    setGeometry(g.x, g.y, width, height);
}

void KyWidget::setMinimumSize(int width, int height) {
    minimumSize_ = {std::max(0, width), std::max(0, height)};
    if (size_.width < minimumSize_.width || size_.height < minimumSize_.height) resize(size_.width, size_.height);
}

void KyWidget::setMaximumSize(int width, int height) {
    maximumSize_ = {std::max(0, width), std::max(0, height)};
    if (size_.width > maximumSize_.width || size_.height > maximumSize_.height) resize(size_.width, size_.height);
}

void KyWidget::setFixedSize(int width, int height) {
    minimumSize_ = maximumSize_ = {std::max(0, width), std::max(0, height)};
    resize(width, height);
}

void KyWidget::setGeometry(int x, int y, int width, int height) {
    ky::gui::perf::addCount("setGeometry.calls");
    ky::gui::perf::ScopeTimer timer("setGeometry");
    const KyWidget* p = nativeParentWidget_();
    const KyPoint origin = p ? p->rootPos_ : KyPoint();
    // A native window's root stays at the origin of its own window: where the
    // window sits on the screen is the platform window's business, and every
    // stored position below it is relative to that origin.
    const KyPoint newPos = nativeWindowOwner_ ? rootPos_ : KyPoint(x, y) + origin;

    // The smallest size: the stored minimum, the sheet's minimum with its
    // padding and border around it, and the minimum hint; the maximum wins
    // where they disagree.
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const int border = s.effectiveBorderWidth();
    const KySize hint = minimumSizeHint();
    const int minW = std::max({minimumSize_.width,
                               s.hasMinWidth ? addCapped(s.minWidth, s.padding.left() + s.padding.right() + 2 * border) : 0,
                               hint.width});
    const int minH = std::max({minimumSize_.height,
                               s.hasMinHeight ? addCapped(s.minHeight, s.padding.top() + s.padding.bottom() + 2 * border) : 0,
                               hint.height});
    const KySize newSize{std::min(std::max(width, minW), maximumSize_.width),
                         std::min(std::max(height, minH), maximumSize_.height)};

    const KyRect oldRect = rootRect();
    const KyPoint oldRelative = oldRect.topLeft() - origin;
    const bool moved = newPos != rootPos_;
    const bool resized = newSize != size_;
    if (!moved && !resized) return;

    if (moved) translateAbsolutePosRecursive_(newPos.x - rootPos_.x, newPos.y - rootPos_.y);
    const KySize oldSize = size_;
    size_ = newSize;

    // Inside an ancestor's resize pass the ancestor repaints all of itself.
    if (!inResizePass_() && isVisibleInHierarchy()) {
        ky::gui::perf::addCount("invalidateGeometryChange.calls");
        invalidateRootRect_(oldRect);
        invalidateRootRect_(rootRect());
    }
    if (resized) {
        ++resizeDepth_;
        ResizeEvent e(size_, oldSize);
        KyCoreApplication::sendEvent(this, &e);
        --resizeDepth_;
    }
    if (moved) {
        MoveEvent e(newPos - origin, oldRelative);
        KyCoreApplication::sendEvent(this, &e);
    }
}

void KyWidget::translateAbsolutePosRecursive_(int dx, int dy) {
    rootPos_ = rootPos_ + KyPoint(dx, dy);
    for (KyWidget* child : childWidgets())
        if (!child->nativeWindowOwner_) child->translateAbsolutePosRecursive_(dx, dy);
}

bool KyWidget::inResizePass_() const {
    for (const KyWidget* w = this; w; w = w->nativeParentWidget_())
        if (w->resizeDepth_ > 0) return true;
    return false;
}

void KyWidget::resizeEvent(ResizeEvent*) {
    if (!layout_ || layoutGuard_) return;
    // A layout that resizes this widget again must not recurse into itself.
    layoutGuard_ = true;
    layout_->invalidate();
    layout_->updateGeometry();
    layoutGuard_ = false;
}

void KyWidget::setLayout(KyAbstractLayout* layout) {
    if (layout == layout_) return;
    delete layout_;
    layout_ = layout;
    if (!layout_) return;
    layout_->setParentWidget_(this);
    layout_->invalidate();
    layout_->updateGeometry();
}

KySize KyWidget::sizeHint() const {
    if (layout_) return layout_->sizeHint();
    return size_;
}

KySize KyWidget::minimumSizeHint() const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const int border = 2 * s.effectiveBorderWidth();
    int w = std::max({0, minimumSize_.width, s.padding.left() + s.padding.right() + border});
    int h = std::max({0, minimumSize_.height, s.padding.top() + s.padding.bottom() + border});
    if (layout_ && !layoutGuard_) {
        const KySize l = layout_->minimumSizeHint();
        w = std::max(w, l.width);
        h = std::max(h, l.height);
    }
    const int capW = std::min(maximumSize_.width,
                              s.hasMaxWidth ? addCapped(s.maxWidth, s.padding.left() + s.padding.right() + border)
                                            : kMaxLength);
    const int capH = std::min(maximumSize_.height,
                              s.hasMaxHeight ? addCapped(s.maxHeight, s.padding.top() + s.padding.bottom() + border)
                                             : kMaxLength);
    return {std::min(w, capW), std::min(h, capH)};
}

KyPoint KyWidget::mapToGlobal(KyPoint local) const {
    return local + rootPos_ + KyWidgetPlatformAdapter::clientOriginOnScreen(handle_);
}

KyPoint KyWidget::mapFromGlobal(KyPoint global) const {
    return global - rootPos_ - KyWidgetPlatformAdapter::clientOriginOnScreen(handle_);
}
