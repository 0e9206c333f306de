// KyWidget's input routing: mouse events from the root to their target with
// grabs and bubbling, hover paths, wheel turns, and keys from the focus
// widget up to the root and then to the shortcut hook.
//
// The grab and the hover path of a native window are kept on its scope root,
// the highest widget that shares the window. Every handler may delete
// widgets, so each step asks isLive before it touches the next one.
#include <algorithm>
#include <utility>

#include "core/runtime/KyCoreApplication.h"
#include "gui/widgets/KyFocusChain.h"
#include "gui/widgets/KyWidget.h"
#include "gui/widgets/KyWidgetPerf.h"

namespace {

KyWidget::KeyShortcutHook& shortcutHook() {
    static KyWidget::KeyShortcutHook hook;
    return hook;
}

// Buttons 1 to 4 hold bits 1, 2, 4 and 8 of the grab mask; others none.
int buttonBit(int button) { return button >= 1 && button <= 4 ? 1 << (button - 1) : 0; }

} // namespace

void KyWidget::setKeyShortcutHook(KeyShortcutHook hook) { shortcutHook() = std::move(hook); }

KyWidget* KyWidget::mouseGrabScopeRoot_() {
    KyWidget* w = this;
    while (!w->nativeWindowOwner_) {
        KyWidget* p = w->parentWidget();
        if (!p || !(p->handle_ == w->handle_)) break;
        w = p;
    }
    return w;
}

KyWidget* KyWidget::mouseGrabWidget() const {
    KyWidget* scope = const_cast<KyWidget*>(this)->mouseGrabScopeRoot_();
    return KyObject::isLive(scope->mouseGrabWidget_) ? scope->mouseGrabWidget_ : nullptr;
}

void KyWidget::forgetPointerReferences_(KyWidget* gone) {
    auto within = [gone](KyWidget* w) { return w == gone || gone->isAncestorOf(w); };
    if (mouseGrabWidget_ && (!KyObject::isLive(mouseGrabWidget_) || within(mouseGrabWidget_))) {
        mouseGrabWidget_ = nullptr;
        mouseGrabButtons_ = 0;
    }
    // The path runs root first: everything from the first widget inside gone on is inside it.
    for (std::size_t i = 0; i < hoverPath_.size(); ++i)
        if (!KyObject::isLive(hoverPath_[i]) || within(hoverPath_[i])) {
            hoverPath_.resize(i);
            break;
        }
}

KyWidget* KyWidget::getChildUnderCursor(int x, int y, const KyWidget* skip) const {
    const KyVector<KyWidget*>& children = childWidgets();
    for (auto it = children.rbegin(); it != children.rend(); ++it) {
        KyWidget* child = *it;
        if (child == skip || child->nativeWindowOwner_ || !child->getVisible()) continue;
        const KyRect g = child->geometry();
        if (!g.contains(KyPoint(x, y))) continue;
        KyWidget* deeper = child->getChildUnderCursor(x - g.x, y - g.y, skip);
        return deeper ? deeper : child;
    }
    return nullptr;
}

KyVector<KyWidget*> KyWidget::buildHoverPathToPoint_(int x, int y) {
    KyVector<KyWidget*> path;
    if (!KyRect(0, 0, size_.width, size_.height).contains(KyPoint(x, y))) return path;
    path.push_back(this);
    KyWidget* w = this;
    for (;;) {
        KyWidget* next = nullptr;
        const KyVector<KyWidget*>& children = w->childWidgets();
        for (auto it = children.rbegin(); it != children.rend() && !next; ++it) {
            KyWidget* child = *it;
            if (child->nativeWindowOwner_ || !child->getVisible()) continue;
            const KyRect g = child->geometry();
            if (g.contains(KyPoint(x, y))) next = child, x -= g.x, y -= g.y;
        }
        if (!next) return path;
        path.push_back(next);
        w = next;
    }
}

KyWidget* KyWidget::updateHoverStateFromRoot_(int x, int y) {
    KyVector<KyWidget*> path = buildHoverPathToPoint_(x, y);
    KyWidget* scope = mouseGrabScopeRoot_();
    const KyVector<KyWidget*> old = std::exchange(scope->hoverPath_, path);
    std::size_t common = 0;
    while (common < old.size() && common < path.size() && old[common] == path[common]) ++common;
    // Off from the deepest to the shallowest, then on from the shallowest to
    // the deepest: a parent never sees its child hovered while it is not.
    for (std::size_t i = old.size(); i-- > common;)
        if (KyObject::isLive(old[i])) old[i]->setHover(false);
    for (std::size_t i = common; i < path.size(); ++i)
        if (KyObject::isLive(path[i])) path[i]->setHover(true);
    return path.empty() || !KyObject::isLive(path.back()) ? nullptr : path.back();
}

void KyWidget::clearHoverRecursive_() {
    if (KyWidget* scope = mouseGrabScopeRoot_()) {
        auto& path = scope->hoverPath_;
        for (std::size_t i = 0; i < path.size(); ++i)
            if (path[i] == this || isAncestorOf(path[i])) {
                path.resize(i);
                break;
            }
    }
    for (KyWidget* child : KyVector<KyWidget*>(childWidgets()))
        if (KyObject::isLive(child)) child->clearHoverRecursive_();
    setHover(false);
}

KyPoint KyWidget::translateToWidget_(KyWidget* target, int rootX, int rootY) const {
    const KyPoint window = KyPoint(rootX, rootY) + rootPos_;
    if (target->handle_ == handle_) return window - target->rootPos_;
    // Another native window: through the screen.
    const KyPoint screen = window + KyWidgetPlatformAdapter::clientOriginOnScreen(handle_);
    return screen - KyWidgetPlatformAdapter::clientOriginOnScreen(target->handle_) - target->rootPos_;
}

void KyWidget::dispatchMouseEventFromRoot_(MouseEvent* event) {
    ky::gui::perf::addCount("mouse.dispatch");
    if (!event || !isVisibleInHierarchy()) return;
    const int type = event->type();
    const bool press = event->isPress();
    KyWidget* hoverTarget = type == Event::MouseMove ? updateHoverStateFromRoot_(event->x(), event->y()) : nullptr;
    if (!KyObject::isLive(this)) return;

    KyWidget* scope = mouseGrabScopeRoot_();
    KyWidget* target = nullptr;
    if (KyWidget* grab = scope->mouseGrabWidget_) {
        if (KyObject::isLive(grab) && (grab == scope || scope->isAncestorOf(grab)) && grab->isVisibleInHierarchy()) {
            if (!press || scope->mouseGrabButtons_ != 0) target = grab;
        } else {
            scope->mouseGrabWidget_ = nullptr;
            scope->mouseGrabButtons_ = 0;
        }
    }
    if (!target) {
        if (!press) {
            if (type == Event::MouseButtonRelease && !scope->hoverPath_.isEmpty()) hoverTarget = scope->hoverPath_.last();
            if (KyObject::isLive(hoverTarget)) target = hoverTarget;
        }
        if (!target) {
            target = getChildUnderCursor(event->x(), event->y());
            if (!target) target = this;
        }
    }
    if (press && target->getFocusPolicy() != NoClickFocus) target->requestFocusOwnership_();
    if (KyObject::isLive(target)) bubbleMouseEvent_(target, event);
}

void KyWidget::bubbleMouseEvent_(KyWidget* target, MouseEvent* event) {
    const int type = event->type();
    const int bit = buttonBit(event->button());
    KyWidget* scope = mouseGrabScopeRoot_();
    while (target) {
        const KyPoint local = translateToWidget_(target, event->x(), event->y());
        MouseEvent e(type, local.x, local.y, event->globalX(), event->globalY(), event->button(), event->ctrl(),
                     event->shift(), event->alt(), event->clickCount());
        KyCoreApplication::sendEvent(target, &e);
        if (!KyObject::isLive(target) || !KyObject::isLive(scope)) return;
        if (e.isAccepted()) {
            event->accept();
            if (event->isPress() && event->button() != 0) {
                scope->mouseGrabWidget_ = target;
                scope->mouseGrabButtons_ |= bit;
            } else if (type == Event::MouseButtonRelease && event->button() != 0) {
                scope->mouseGrabButtons_ &= ~bit;
                if (scope->mouseGrabButtons_ == 0) scope->mouseGrabWidget_ = nullptr;
            }
            return;
        }
        if (target == this) break;
        target = target->parentWidget();
    }
    event->ignore();
    // A button that is up holds no grab, even when nobody took its release.
    if (type == Event::MouseButtonRelease && bit && (scope->mouseGrabButtons_ & bit)) {
        scope->mouseGrabButtons_ &= ~bit;
        if (scope->mouseGrabButtons_ == 0) scope->mouseGrabWidget_ = nullptr;
    }
}

void KyWidget::dispatchWheelEventFromRoot_(WheelEvent* event) {
    if (!event || !isVisibleInHierarchy()) return;
    KyWidget* target = getChildUnderCursor(event->x(), event->y());
    if (!target) target = this;
    while (target) {
        const KyPoint local = translateToWidget_(target, event->x(), event->y());
        WheelEvent e(local.x, local.y, event->globalX(), event->globalY(), event->delta(), event->ctrl(), event->shift(),
                     event->alt());
        KyCoreApplication::sendEvent(target, &e);
        if (!KyObject::isLive(target)) return;
        if (e.isAccepted()) {
            event->accept();
            return;
        }
        if (target == this) break;
        target = target->parentWidget();
    }
    event->ignore();
}

KyWidget* KyWidget::findFocusedWidgetInHierarchy_() {
    KyWidget* owner = focusWidget();
    if (!owner || !(owner == this || isAncestorOf(owner)) || !owner->isVisibleInHierarchy()) return nullptr;
    return owner;
}

void KyWidget::dispatchKeyEventFromRoot_(KeyEvent* event) {
    ky::gui::perf::addCount("key.dispatch");
    if (!event) return;
    const bool press = event->type() == Event::KeyPress;
    event->ignore();
    if (isVisibleInHierarchy()) {
        KyWidget* target = findFocusedWidgetInHierarchy_();
        if (!target) target = this;
        while (target) {
            KyCoreApplication::sendEvent(target, event);
            if (!KyObject::isLive(target) || event->isAccepted()) break;
            if (target == this) break;
            target = target->parentWidget();
        }
    }
    // Tab the focused widget left alone moves the focus, before any shortcut sees it.
    if (press && !event->isAccepted() && KyObject::isLive(this) && KyFocusChain::handleTabKey(this, event))
        event->accept();
    // A Return no field took sends the form through its default button.
    if (press && !event->isAccepted() && KyObject::isLive(this) && KyFocusChain::handleReturnKey(this, event))
        event->accept();
    // Shortcuts come last: a key a widget took never reaches one.
    if (press && !event->isAccepted() && KyObject::isLive(this))
        if (const KeyShortcutHook& hook = shortcutHook()) hook(this, event);
}
