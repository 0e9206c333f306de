// A top-level host for widget tests: one native window on the test's server
// whose callbacks drive a root widget the way a main window does (resize,
// mouse and wheel, leave, keys, close, and paint through paintFromPlatform_).
// The host does not own the root; it counts paints and keeps their dirty
// rectangles so that tests can see what reached the server. Test thread only.
#pragma once

#include <memory>
#include <vector>

#include "core/object/KyObject.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/types/KyRect.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyWidget.h"

namespace kytest {

class WidgetWindow {
public:
    WidgetWindow(KyGuiApplication* app, KyWidget* root, int width, int height) : app_(app), root_(root) {
        KyWindowCallbacks c;
        c.resized = [this](KyPlatformSize s) {
            if (!live()) return;
            forceRepaint_ = true;
            const KyRect g = root_->geometry();
            root_->setGeometry(g.x, g.y, s.width, s.height);
        };
        auto mouse = [this](int type) {
            return [this, type](KyMouseEvent e) {
                if (!live()) return;
                KyWidget::MouseEvent event(type, e);
                root_->dispatchMouseEventFromRoot_(&event);
            };
        };
        c.mousePressed = mouse(KyWidget::Event::MouseButtonPress);
        c.mouseDoubleClicked = mouse(KyWidget::Event::MouseButtonDblClick);
        c.mouseReleased = mouse(KyWidget::Event::MouseButtonRelease);
        c.mouseMoved = mouse(KyWidget::Event::MouseMove);
        c.mouseLeft = [this] {
            if (live()) root_->clearHoverRecursive_();
        };
        c.wheelRotated = [this](KyMouseEvent e) {
            if (!live()) return;
            KyWidget::WheelEvent event(e);
            root_->dispatchWheelEventFromRoot_(&event);
        };
        auto key = [this](int type) {
            return [this, type](KyKeyEvent e) {
                if (!live()) return;
                KyWidget::KeyEvent event(type, e);
                root_->dispatchKeyEventFromRoot_(&event);
            };
        };
        c.keyPressed = key(KyWidget::Event::KeyPress);
        c.keyReleased = key(KyWidget::Event::KeyRelease);
        c.closeAllowed = [this] {
            if (!live()) return true;
            KyWidget::CloseEvent event;
            KyCoreApplication::sendEvent(root_, &event);
            return event.isAccepted();
        };
        c.paintRequested = [this](KyPlatformPaintEvent e) {
            ++paints;
            paintRects.emplace_back(e.dirtyRect[0], e.dirtyRect[1], e.dirtyRect[2], e.dirtyRect[3]);
            if (!live()) return;
            root_->paintFromPlatform_(app_->platformIntegration(), e, forceRepaint_);
            forceRepaint_ = false;
        };
        window_ = app->platformIntegration()->createWindow("ky-widget-test", width, height, c, {});
        root_->attachNativeWindow({window_->nativeDisplay(), window_->nativeHandle()});
        root_->setGeometry(0, 0, width, height);
    }
    WidgetWindow(const WidgetWindow&) = delete;
    WidgetWindow& operator=(const WidgetWindow&) = delete;

    void show() {
        root_->show();
        window_->show();
    }
    unsigned long id() const { return window_->nativeHandle(); }
    KyPlatformWindow* window() const { return window_.get(); }
    void clearPaints() {
        paints = 0;
        paintRects.clear();
    }

    int paints = 0;
    std::vector<KyRect> paintRects;

private:
    bool live() const { return KyObject::isLive(root_); }

    KyGuiApplication* app_;
    KyWidget* root_;
    std::unique_ptr<KyPlatformWindow> window_;
    bool forceRepaint_ = true;
};

/// Runs the loop until nothing is left to paint: each round flushes the
/// damage, then sends a motion to (x, y), a spot over the bare root, and waits
/// for it, so every Expose sent before it has come back and been painted.
/// Fixture is a GuiFixture (KyTestX11.h, which brings Xlib's macros, stays out of here).
template <typename Fixture>
void settleWindow(Fixture& f, WidgetWindow& window, KyWidget* root, int x, int y) {
    struct MoveCounter : KyObject {
        int moves = 0;
        bool eventFilter(KyObject*, KyEvent* e) override {
            moves += e->type() == KyWidget::Event::MouseMove;
            return false;
        }
    } counter;
    root->installEventFilter(&counter);
    for (int round = 0; round < 50; ++round) {
        const int paintsBefore = window.paints;
        f.app->exec(1000);
        const int movesBefore = counter.moves;
        f.user->sendMotion(window.id(), x - round % 2, y);
        ASSERT_TRUE(f.runUntil([&] { return counter.moves > movesBefore; }));
        if (window.paints == paintsBefore && !KyWidgetPlatformAdapter::hasReadyDamage()) break;
    }
    root->removeEventFilter(&counter);
}

} // namespace kytest
