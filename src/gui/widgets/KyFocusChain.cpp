// KyFocusChain: the reading-order chain of a window and the Tab step.
#include "gui/widgets/KyFocusChain.h"

#include <algorithm>

#include "gui/widgets/KyLoadingOverlay.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyWidget.h"

namespace KyFocusChain {

namespace {

// The busy cover over w's children, if one is up: what it covers cannot be reached.
const KyWidget* activeCover(KyWidget* w) {
    for (KyWidget* child : w->childWidgets())
        if (auto* cover = dynamic_cast<const KyLoadingOverlay*>(child))
            if (cover->isActive() && cover->isVisible()) return cover;
    return nullptr;
}

void collect(KyWidget* w, const KyWidgetPlatformHandle& handle, KyVector<KyWidget*>& out) {
    const KyWidget* cover = activeCover(w);
    for (KyWidget* child : w->childWidgets()) {
        if (cover && child != cover) continue;
        // Another native window has its own chain; a disabled or hidden
        // branch has nothing to visit.
        if (child->ownsNativeWindow() || !(child->nativeHandle() == handle)) continue;
        if (!child->isVisible() || !child->isEnabled()) continue;
        if (child->acceptsTabFocus()) out.push_back(child);
        collect(child, handle, out);
    }
}

} // namespace

KyVector<KyWidget*> chain(KyWidget* root) {
    KyVector<KyWidget*> out;
    if (!root || !root->isVisibleInHierarchy() || !root->isEnabled()) return out;
    if (root->acceptsTabFocus()) out.push_back(root);
    collect(root, root->nativeHandle(), out);
    std::stable_sort(out.begin(), out.end(), [](const KyWidget* a, const KyWidget* b) {
        // Rows by their middle: a layout centres a short check box beside a
        // taller button, and both belong to one row read left to right.
        const KyRect ra = a->rootRect(), rb = b->rootRect();
        const int ya = ra.y + ra.height / 2, yb = rb.y + rb.height / 2;
        return ya != yb ? ya < yb : ra.x < rb.x;
    });
    return out;
}

bool focusNext(KyWidget* root, bool forward) {
    const KyVector<KyWidget*> widgets = chain(root);
    if (widgets.isEmpty()) return false;
    const int n = static_cast<int>(widgets.size());
    KyWidget* current = root->focusWidget();
    int index = -1;
    for (int i = 0; i < n; ++i)
        if (widgets[i] == current) index = i;
    int next;
    if (index < 0) {
        // A focus outside the chain (a label's, or none): start from the end Tab points away from.
        next = forward ? 0 : n - 1;
    } else {
        next = (index + (forward ? 1 : n - 1)) % n;
    }
    widgets[next]->requestFocus();
    return true;
}

namespace {

KyPushButton* findDefaultButton(KyWidget* w, const KyWidgetPlatformHandle& handle) {
    for (KyWidget* child : w->childWidgets()) {
        if (child->ownsNativeWindow() || !(child->nativeHandle() == handle)) continue;
        if (!child->isVisible() || !child->isEnabled()) continue;
        if (auto* button = dynamic_cast<KyPushButton*>(child); button && button->isDefault()) return button;
        if (KyPushButton* found = findDefaultButton(child, handle)) return found;
    }
    return nullptr;
}

} // namespace

bool handleReturnKey(KyWidget* root, const ky::gui::KeyEvent* event) {
    if (!root || !event || event->type() != ky::gui::Event::KeyPress || event->ctrl() || event->alt()) return false;
    if (event->keyCode() != 0xff0d && event->keyCode() != 0xff8d) return false;
    if (!root->isVisibleInHierarchy()) return false;
    KyPushButton* button = findDefaultButton(root, root->nativeHandle());
    if (!button) return false;
    button->click();
    return true;
}

bool handleTabKey(KyWidget* root, const ky::gui::KeyEvent* event) {
    if (!root || !event || event->type() != ky::gui::Event::KeyPress) return false;
    const int key = event->keyCode();
    if ((key != kKeyTab && key != kKeyBacktab) || event->ctrl() || event->alt()) return false;
    const bool backward = key == kKeyBacktab || event->shift();
    focusNext(root, !backward);
    // Tab belongs to focus movement even where there is nothing to move to.
    return true;
}

} // namespace KyFocusChain
