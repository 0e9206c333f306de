// KyX11PlatformWindow: window operations and the clean-up of its X resources.
#include "gui/platform/KyX11PlatformWindow.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <vector>

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
    if (!popup_ && integration_) {
        // A window the program shows is one the user is to work in: ask the
        // window manager to give it the keyboard, as a window manager does for
        // a window the user clicks. Without this a console that replaces its
        // login window after a sign-in typed on the keyboard sits unfocused.
        XEvent e{};
        e.xclient.type = ClientMessage;
        e.xclient.window = window_;
        e.xclient.message_type = integration_ ? integration_->netActiveWindowAtom() : 0;
        e.xclient.format = 32;
        e.xclient.data.l[0] = 1; // from an application
        e.xclient.data.l[1] = CurrentTime;
        XSendEvent(display_, DefaultRootWindow(display_), False, SubstructureRedirectMask | SubstructureNotifyMask, &e);
    }
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
    // WM_NAME is Latin-1 by definition; window managers read the UTF-8 title here.
    XChangeProperty(display_, window_, XInternAtom(display_, "_NET_WM_NAME", False),
                    XInternAtom(display_, "UTF8_STRING", False), 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(utf8.c_str()), static_cast<int>(utf8.size()));
}

void KyX11PlatformWindow::setWindowClass(const KyString& instanceName, const KyString& className) {
    if (!display_ || !window_) return;
    XClassHint hint;
    hint.res_name = const_cast<char*>(instanceName.c_str());
    hint.res_class = const_cast<char*>(className.c_str());
    XSetClassHint(display_, window_, &hint);
}

void KyX11PlatformWindow::setIcon(const KyPlatformIcon& icon) {
    if (!display_ || !window_) return;
    const Atom atom = XInternAtom(display_, "_NET_WM_ICON", False);
    if (icon.isNull()) {
        XDeleteProperty(display_, window_, atom);
        return;
    }
    // Format 32 travels as longs on the client side, whatever their width.
    std::vector<unsigned long> data;
    data.reserve(2 + icon.argb.size());
    data.push_back(static_cast<unsigned long>(icon.width));
    data.push_back(static_cast<unsigned long>(icon.height));
    for (std::size_t i = 0; i < static_cast<std::size_t>(icon.width) * icon.height; ++i) data.push_back(icon.argb[i]);
    XChangeProperty(display_, window_, atom, XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
}

void KyX11PlatformWindow::setBackground(std::uint32_t rgb) {
    if (!display_ || !window_) return;
    // TrueColor visuals take the pixel as 0xRRGGBB; others keep the default fill.
    const Visual* visual = DefaultVisual(display_, DefaultScreen(display_));
    if (!visual || visual->c_class != TrueColor) return;
    XSetWindowBackground(display_, window_, rgb & 0xFFFFFFu);
}

void KyX11PlatformWindow::setPopup(bool popup) {
    if (!display_ || !window_) return;
    XSetWindowAttributes attributes{};
    popup_ = popup;
    attributes.override_redirect = popup ? True : False;
    attributes.save_under = popup ? True : False;
    XChangeWindowAttributes(display_, window_, CWOverrideRedirect | CWSaveUnder, &attributes);
}

bool KyX11PlatformWindow::grabPointer() {
    if (!display_ || !window_) return false;
    // Owner events: presses inside our own windows arrive as usual, presses
    // anywhere else arrive here in this window's coordinates.
    const unsigned mask = ButtonPressMask | ButtonReleaseMask | PointerMotionMask;
    const int result = XGrabPointer(display_, window_, True, mask, GrabModeAsync, GrabModeAsync, None, None, CurrentTime);
    XFlush(display_);
    return result == GrabSuccess;
}

void KyX11PlatformWindow::ungrabPointer() {
    if (!display_) return;
    XUngrabPointer(display_, CurrentTime);
    XFlush(display_);
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
