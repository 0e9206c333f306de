// KyX11PlatformWindow: window operations and the clean-up of its X resources.
#include "gui/platform/KyX11PlatformWindow.h"

#include <algorithm>

#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/platform/KyX11Painter.h"
#include "gui/platform/KyX11PlatformIntegration.h"

KyX11PlatformWindow::KyX11PlatformWindow(KyX11PlatformIntegration* integration, Display* display,
                                         const KyWindowCallbacks& callbacks)
    : integration_(integration), display_(display), callbacks_(callbacks) {}

KyX11PlatformWindow::~KyX11PlatformWindow() {
    if (integration_ && window_) integration_->unregisterWindow_(window_);
    destroyNative_();
}

void KyX11PlatformWindow::attach_(Window window, GC gc, KyPlatformSize size) {
    window_ = window;
    gc_ = gc;
    size_ = size;
}

void KyX11PlatformWindow::destroyNative_() {
    if (display_ && window_) {
        if (gc_) XFreeGC(display_, gc_);
        KyWidgetPlatformAdapter::forgetWindow(window_);
        KyX11Painter::releaseSharedBackbuffers(display_, window_);
        XDestroyWindow(display_, window_);
        XFlush(display_);
    }
    gc_ = nullptr;
    window_ = 0;
    display_ = nullptr;
    integration_ = nullptr;
}

void KyX11PlatformWindow::show() {
    if (!display_ || !window_) return;
    XMapRaised(display_, window_);
    XFlush(display_);
}

void KyX11PlatformWindow::hide() {
    if (!display_ || !window_) return;
    XUnmapWindow(display_, window_);
    XFlush(display_);
}

void KyX11PlatformWindow::setTitle(const KyString& utf8) {
    if (!display_ || !window_) return;
    XStoreName(display_, window_, utf8.c_str());
}

void KyX11PlatformWindow::resize(int width, int height) {
    if (!display_ || !window_) return;
    XResizeWindow(display_, window_, static_cast<unsigned>(std::max(1, width)), static_cast<unsigned>(std::max(1, height)));
}

void KyX11PlatformWindow::move(int x, int y) {
    if (!display_ || !window_) return;
    XMoveWindow(display_, window_, x, y);
}

void KyX11PlatformWindow::requestUpdate() {
    if (!display_ || !window_) return;
    KyWidgetPlatformAdapter::invalidateRect(KyWidgetPlatformHandle{display_, window_},
                                            KyRect{0, 0, std::max(1, size_.width), std::max(1, size_.height)});
}
