// KyX11TrayIcon: dock requests, the manager's comings and goings, and the
// window's reparenting into and out of the tray.
#include "gui/platform/KyX11TrayIcon.h"

#include <X11/Xutil.h>

#include <string>

#include "core/io/KyDebug.h"
#include "gui/platform/KyX11PlatformIntegration.h"

namespace {
constexpr const char* kCategory = "ky.gui.platform.x11";
constexpr long kSystemTrayRequestDock = 0;
constexpr unsigned long kXembedMapped = 1;
} // namespace

KyX11TrayIcon::KyX11TrayIcon(KyX11PlatformIntegration* integration, Window window)
    : integration_(integration), display_(integration ? integration->display() : nullptr), window_(window) {
    if (!display_ || !window_) return;
    const int screen = integration_->screen();
    root_ = RootWindow(display_, screen);
    const std::string selection = "_NET_SYSTEM_TRAY_S" + std::to_string(screen);
    selection_ = XInternAtom(display_, selection.c_str(), False);
    opcode_ = XInternAtom(display_, "_NET_SYSTEM_TRAY_OPCODE", False);
    managerAtom_ = XInternAtom(display_, "MANAGER", False);
    xembedInfo_ = XInternAtom(display_, "_XEMBED_INFO", False);
    // Version 0, mapped: the manager maps the window once it holds it.
    const unsigned long info[2] = {0, kXembedMapped};
    XChangeProperty(display_, window_, xembedInfo_, xembedInfo_, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(info), 2);
    // A new manager announces itself on the root window's structure events.
    XWindowAttributes attributes{};
    XGetWindowAttributes(display_, root_, &attributes);
    XSelectInput(display_, root_, attributes.your_event_mask | StructureNotifyMask);
    filterId_ = integration_->addEventFilter([this](XEvent& event) { return filterEvent_(event); });
    // Trays that take icons in through an embedding socket (trayer and other
    // GTK trays) size each icon from its size hints; with none it would get
    // a single pixel of width.
    XWindowAttributes own{};
    if (XGetWindowAttributes(display_, window_, &own)) {
        XSizeHints hints{};
        hints.flags = PMinSize | PBaseSize;
        hints.min_width = hints.base_width = own.width;
        hints.min_height = hints.base_height = own.height;
        XSetWMNormalHints(display_, window_, &hints);
    }
    requestDock();
}

KyX11TrayIcon::~KyX11TrayIcon() {
    if (integration_ && filterId_) integration_->removeEventFilter(filterId_);
}

bool KyX11TrayIcon::requestDock() {
    if (!display_ || !window_) return false;
    XGrabServer(display_);
    manager_ = XGetSelectionOwner(display_, selection_);
    // Its DestroyNotify tells us the tray is gone.
    if (manager_) XSelectInput(display_, manager_, StructureNotifyMask);
    XUngrabServer(display_);
    if (!manager_) {
        kyLogDebug(kCategory) << "no system tray manager yet; waiting for one to start";
        XFlush(display_);
        return false;
    }
    XEvent e{};
    e.xclient.type = ClientMessage;
    e.xclient.window = manager_;
    e.xclient.message_type = opcode_;
    e.xclient.format = 32;
    e.xclient.data.l[0] = CurrentTime;
    e.xclient.data.l[1] = kSystemTrayRequestDock;
    e.xclient.data.l[2] = static_cast<long>(window_);
    XSendEvent(display_, manager_, False, NoEventMask, &e);
    XFlush(display_);
    return true;
}

void KyX11TrayIcon::setDocked_(bool docked) {
    if (docked_ == docked) return;
    docked_ = docked;
    if (dockedChanged_) dockedChanged_(docked);
}

bool KyX11TrayIcon::filterEvent_(XEvent& event) {
    switch (event.type) {
    case ClientMessage:
        if (event.xclient.window == root_ && event.xclient.message_type == managerAtom_ &&
            static_cast<Atom>(event.xclient.data.l[1]) == selection_) {
            requestDock();
            return true;
        }
        return false;
    case DestroyNotify:
        if (manager_ && event.xdestroywindow.window == manager_) {
            manager_ = 0;
            setDocked_(false);
            return true;
        }
        return false;
    case ReparentNotify:
        if (event.xreparent.window != window_) return false;
        if (event.xreparent.parent == root_) {
            // Handed back by a tray that went away: hidden until the next tray takes it.
            XUnmapWindow(display_, window_);
            XFlush(display_);
            setDocked_(false);
        } else {
            setDocked_(true);
        }
        return true;
    default:
        return false;
    }
}
