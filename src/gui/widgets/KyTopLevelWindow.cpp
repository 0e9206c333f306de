// KyTopLevelWindow: callbacks of a top-level's native window.
#include "gui/widgets/KyTopLevelWindow.h"

#include <algorithm>
#include <stdexcept>

#include "core/runtime/KyCoreApplication.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyAbstractLayout.h"
#include "gui/widgets/KyToolTip.h"
#include "gui/widgets/KyWidget.h"
#include "gui/widgets/KyWidgetPerf.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {
using Ev = ky::gui::Event;
} // namespace

KyTopLevelWindow::KyTopLevelWindow(KyWidget* root, const KyString& titleUtf8, int width, int height, Hooks hooks)
    : root_(root) {
    KyGuiApplication* app = KyGuiApplication::instance();
    KyPlatformIntegration* platform = app ? app->platformIntegration() : nullptr;
    KyWindowCallbacks c;
    auto live = [root] { return KyObject::isLive(root); };
    c.resized = [this, root, live](KyPlatformSize size) {
        if (!live()) return;
        forceRepaint_ = true;
        const KyRect g = root->geometry();
        root->setGeometry(g.x, g.y, size.width, size.height);
    };
    auto mouse = [root, live](int type) {
        return [root, live, type](KyMouseEvent e) {
            if (!live()) return;
            ky::gui::MouseEvent event(type, e);
            if (type == Ev::MouseMove) KyToolTip::handleMouseMove_(root, nullptr, e.x, e.y);
            if (!live()) return;
            root->dispatchMouseEventFromRoot_(&event);
        };
    };
    c.mousePressed = mouse(Ev::MouseButtonPress);
    c.mouseDoubleClicked = mouse(Ev::MouseButtonDblClick);
    c.mouseReleased = mouse(Ev::MouseButtonRelease);
    c.mouseMoved = mouse(Ev::MouseMove);
    c.mouseLeft = [root, live] {
        if (!live()) return;
        root->clearHoverRecursive_();
        KyToolTip::hideFor_(root);
    };
    c.wheelRotated = [root, live](KyMouseEvent e) {
        if (!live()) return;
        ky::gui::WheelEvent event(e);
        root->dispatchWheelEventFromRoot_(&event);
    };
    auto key = [root, live](int type) {
        return [root, live, type](KyKeyEvent e) {
            if (!live()) return;
            if (type == Ev::KeyPress) KyToolTip::hide_();
            ky::gui::KeyEvent event(type, e);
            root->dispatchKeyEventFromRoot_(&event);
        };
    };
    c.keyPressed = key(Ev::KeyPress);
    c.keyReleased = key(Ev::KeyRelease);
    c.deleteRequested = [live, hook = hooks.deleteRequested] {
        if (live() && hook) hook();
    };
    c.paintRequested = [this, live](KyPlatformPaintEvent e) {
        if (live()) handlePaintRequest(e, "topLevel.handlePaintRequest", "topLevel.paintRequest");
    };
    c.minimumSizeProvider = [this, live] { return live() ? minimumSize() : KyPlatformSize{}; };
    c.closeAllowed = [live, hook = hooks.closeAllowed] { return !live() || !hook || hook(); };
    if (!platform) throw std::runtime_error("X11 backend is not initialized.");
    window_ = platform->createWindow(titleUtf8, width, height, c, {});
    root_->attachNativeWindow({window_->nativeDisplay(), window_->nativeHandle()});
    root_->setGeometry(0, 0, width, height);
}

KyTopLevelWindow::~KyTopLevelWindow() {
    // The platform window's destructor destroys the native window (XDestroyWindow).
    window_.reset();
}

void KyTopLevelWindow::handlePaintRequest(const KyPlatformPaintEvent& event, const char* timerName,
                                          const char* countName) {
    ky::gui::perf::ScopeTimer timer(timerName);
    ky::gui::perf::addCount(countName);
    if (!window_) return;
    KyGuiApplication* app = KyGuiApplication::instance();
    if (!app) return;
    root_->paintFromPlatform_(app->platformIntegration(), event, forceRepaint_);
    forceRepaint_ = false;
}

KyPlatformSize KyTopLevelWindow::minimumSize() const {
    const KySize stored = root_->minimumSize();
    const KySize hint = root_->minimumSizeHint();
    const KySize style{root_->styleSnapshot_().minWidth, root_->styleSnapshot_().minHeight};
    KySize layout;
    if (KyAbstractLayout* l = root_->layout()) layout = l->minimumSizeHint();
    const KySize maximum = root_->maximumSize();
    const int w = std::max({stored.width, hint.width, style.width, layout.width});
    const int h = std::max({stored.height, hint.height, style.height, layout.height});
    return {std::max(0, std::min(w, maximum.width)), std::max(0, std::min(h, maximum.height))};
}
