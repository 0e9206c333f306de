// KyWidget: construction and teardown, the tree, visibility, the property
// handlers and event dispatch. Geometry, painting, input, focus and style
// live in their own files beside this one.
#include "gui/widgets/KyWidget.h"

#include <limits>

#include "core/runtime/KyCoreApplication.h"
#include "gui/widgets/KyAbstractLayout.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

KyWidget::KyWidget(KyWidget* parent)
    : maximumSize_(std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::max()),
      style_(std::make_unique<StyleCache_>()) {
    palette_[0] = KyColor(243, 243, 243);
    palette_[1] = KyColor(229, 241, 251);
    palette_[2] = KyColor(204, 228, 247);
    palette_[3] = KyColor(173, 173, 173);
    palette_[4] = KyColor(18, 18, 18);
    setCursor(ArrowCursor);
    // The parent is joined here, not by KyObject's constructor: its child
    // handlers must see a widget, not a half-built object.
    if (parent) setParent(parent);
}

KyWidget::~KyWidget() {
    destroying_ = true;
    removeFocusOwnerEntriesForWidget_();
    if (KyWidget* scope = mouseGrabScopeRoot_(); scope && scope != this) scope->forgetPointerReferences_(this);
    // Leave the parent while this is still a widget, so that the parent's
    // child list, damage and caches follow.
    if (parent()) setParent(nullptr);
    delete layout_;
    layout_ = nullptr;
}

// ---------------------------------------------------------------------------
// Tree

KyWidget* KyWidget::parentWidget() const { return dynamic_cast<KyWidget*>(parent()); }

KyWidget* KyWidget::nativeParentWidget_() const { return nativeWindowOwner_ ? nullptr : parentWidget(); }

const KyVector<KyWidget*>& KyWidget::childWidgets() const {
    if (childListDirty_) {
        childWidgets_.clear();
        for (KyObject* child : children())
            if (auto* w = dynamic_cast<KyWidget*>(child); w && !w->destroying_) childWidgets_.push_back(w);
        childListDirty_ = false;
    }
    return childWidgets_;
}

KyWidget* KyWidget::topLevelWidget() const {
    const KyWidget* w = this;
    while (KyWidget* p = w->parentWidget()) w = p;
    return const_cast<KyWidget*>(w);
}

bool KyWidget::isAncestorOf(const KyWidget* other) const {
    for (const KyWidget* w = other ? other->parentWidget() : nullptr; w; w = w->parentWidget())
        if (w == this) return true;
    return false;
}

void KyWidget::addChild(KyObject* child) {
    KyObject::addChild(child);
    invalidateChildList_();
}

void KyWidget::removeChild(KyObject* child) {
    auto* w = dynamic_cast<KyWidget*>(child);
    if (w && !w->nativeWindowOwner_) {
        // Its old place is repainted, and it leaves with a position relative
        // to this widget, which newParentEvent makes relative to the next root.
        if (!destroying_ && w->getVisible() && isVisibleInHierarchy()) invalidateRootRect_(w->rootRect());
        if (KyWidget* scope = mouseGrabScopeRoot_()) scope->forgetPointerReferences_(w);
        if (!w->destroying_) w->clearFocusInHierarchy_();
        w->translateAbsolutePosRecursive_(-rootPos_.x, -rootPos_.y);
    }
    if (child == layout_) layout_ = nullptr;
    KyObject::removeChild(child);
    invalidateChildList_();
    // A layout must never place a widget that is gone or lives elsewhere now.
    if (w && layout_ && !destroying_) layout_->widgetRemoved_(w);
}

void KyWidget::newParentEvent(KyObject* parent) {
    KyObject::newParentEvent(parent);
    auto* p = dynamic_cast<KyWidget*>(parent);
    if (!nativeWindowOwner_) {
        if (p) translateAbsolutePosRecursive_(p->rootPos_.x, p->rootPos_.y);
        setNativeWindowHandleRecursive(p ? p->handle_ : KyWidgetPlatformHandle{});
    }
    invalidateVisibilityCache_();
    if (destroying_) return;
    invalidateEffectiveStyleCacheRecursive_();
    update();
}

// ---------------------------------------------------------------------------
// Native window

void KyWidget::attachNativeWindow(const KyWidgetPlatformHandle& handle) {
    // A widget focused before the tree had a window keeps the focus: its
    // entry moves from the loose tree's key to the window's.
    KyWidget* focused = focusWidget();
    if (focused) focused->removeFocusOwnerEntriesForWidget_();
    nativeWindowOwner_ = true;
    if (rootPos_.x != 0 || rootPos_.y != 0) translateAbsolutePosRecursive_(-rootPos_.x, -rootPos_.y);
    setNativeWindowHandleRecursive(handle);
    if (focused && focused->getFocus()) focused->requestFocusOwnership_();
}

void KyWidget::setNativeWindowHandleRecursive(const KyWidgetPlatformHandle& handle) {
    handle_ = handle;
    for (KyWidget* child : childWidgets())
        if (!child->nativeWindowOwner_) child->setNativeWindowHandleRecursive(handle);
}

// ---------------------------------------------------------------------------
// Visibility

void KyWidget::show() { setVisible(true); }
void KyWidget::hide() { setVisible(false); }

bool KyWidget::isVisibleInHierarchy() const {
    if (!visibleCacheValid_) {
        const KyWidget* p = parentWidget();
        visibleCache_ = getVisible() && (!p || p->isVisibleInHierarchy());
        visibleCacheValid_ = true;
    }
    return visibleCache_;
}

void KyWidget::invalidateVisibilityCache_() {
    visibleCacheValid_ = false;
    for (KyWidget* child : childWidgets()) child->invalidateVisibilityCache_();
}

void KyWidget::on_Visible_changed(const bool& visible) {
    invalidateVisibilityCache_();
    // The rectangle is damaged whichever way it went: a shown widget appears,
    // a hidden one leaves its parent's look behind.
    const KyWidget* p = parentWidget();
    if (!p || p->isVisibleInHierarchy()) invalidateRootRect_(rootRect());
    if (showHideGuard_) return;
    showHideGuard_ = true;
    Event e(visible ? Event::Show : Event::Hide);
    KyCoreApplication::sendEvent(this, &e);
    showHideGuard_ = false;
}

// ---------------------------------------------------------------------------
// Property handlers

void KyWidget::on_FocusPolicy_changed(const FocusPolicyEnum&) {}
void KyWidget::on_ToolTips_changed(const KyString&) {}
void KyWidget::on_Cursor_changed(const CursorType&) {}

void KyWidget::on_Enable_changed(const bool& enabled) {
    if (!enabled && getFocus()) clearFocus();
    invalidateStyleCache_();
    update();
}

void KyWidget::on_Hover_changed(const bool&) {
    invalidateStyleCache_();
    update();
}

void KyWidget::on_Font_changed(const KyFont&) {
    invalidateStyleCache_();
    update();
}

// ---------------------------------------------------------------------------
// Events

bool KyWidget::event(KyEvent* e) {
    if (!e) return false;
    switch (e->type()) {
    case Event::Paint:
        if (auto* pe = dynamic_cast<PaintEvent*>(e)) paintEvent(pe);
        return true;
    case Event::Resize:
        if (auto* re = dynamic_cast<ResizeEvent*>(e)) resizeEvent(re);
        return true;
    case Event::Move:
        if (auto* me = dynamic_cast<MoveEvent*>(e)) moveEvent(me);
        return true;
    case Event::KeyPress:
    case Event::KeyRelease: {
        auto* ke = dynamic_cast<KeyEvent*>(e);
        if (!ke) return false;
        // Accepted unless a handler says otherwise; KyWidget's own handlers do.
        ke->accept();
        if (e->type() == Event::KeyPress) keyPressEvent(ke);
        else keyReleaseEvent(ke);
        return true;
    }
    case Event::MouseButtonPress:
    case Event::MouseButtonDblClick:
    case Event::MouseMove:
    case Event::MouseButtonRelease: {
        auto* me = dynamic_cast<MouseEvent*>(e);
        if (!me) return false;
        me->accept();
        switch (e->type()) {
        case Event::MouseButtonPress: mousePressEvent(me); break;
        case Event::MouseButtonDblClick: mouseDoubleClickEvent(me); break;
        case Event::MouseMove: mouseMoveEvent(me); break;
        default: mouseReleaseEvent(me); break;
        }
        return true;
    }
    case Event::Wheel: {
        auto* we = dynamic_cast<WheelEvent*>(e);
        if (!we) return false;
        we->accept();
        wheelEvent(we);
        return true;
    }
    case Event::Show:
        showEvent(static_cast<Event*>(e));
        return true;
    case Event::Hide: {
        // A hidden widget holds no grab and no hover, nor do its descendants.
        if (KyWidget* scope = mouseGrabScopeRoot_()) {
            KyWidget* grab = scope->mouseGrabWidget_;
            if (grab && (grab == this || isAncestorOf(grab))) {
                scope->mouseGrabWidget_ = nullptr;
                scope->mouseGrabButtons_ = 0;
            }
        }
        clearHoverRecursive_();
        hideEvent(static_cast<Event*>(e));
        return true;
    }
    case Event::Close:
        if (auto* ce = dynamic_cast<CloseEvent*>(e)) closeEvent(ce);
        return true;
    default:
        return KyObject::event(e);
    }
}

void KyWidget::mousePressEvent(MouseEvent* e) { e->ignore(); }
void KyWidget::mouseReleaseEvent(MouseEvent* e) { e->ignore(); }
void KyWidget::mouseDoubleClickEvent(MouseEvent* e) { e->ignore(); }
void KyWidget::mouseMoveEvent(MouseEvent* e) { e->ignore(); }
void KyWidget::keyPressEvent(KeyEvent* e) { e->ignore(); }
void KyWidget::keyReleaseEvent(KeyEvent* e) { e->ignore(); }
void KyWidget::wheelEvent(WheelEvent* e) { e->ignore(); }
void KyWidget::moveEvent(MoveEvent*) {}
void KyWidget::closeEvent(CloseEvent*) {}
void KyWidget::showEvent(Event*) {}
void KyWidget::hideEvent(Event*) {}
