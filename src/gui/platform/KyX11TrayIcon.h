// KyX11TrayIcon: the freedesktop system tray protocol for one X window.
//
// The tray manager of screen N owns the selection "_NET_SYSTEM_TRAY_S<N>".
// Docking sends it a "_NET_SYSTEM_TRAY_OPCODE" client message with
// SYSTEM_TRAY_REQUEST_DOCK and the window; the window carries "_XEMBED_INFO"
// (version 0, mapped) so the manager maps it once it has reparented it. A
// manager that starts later announces itself with a "MANAGER" client message
// on the root window, and the icon docks again; a manager that goes away
// leaves the window on the root, where it is unmapped until the next one.
//
// Lives on the GUI thread; sees its X events through an event filter of the
// integration's pump, ahead of the window callbacks.
#pragma once

#include <X11/Xlib.h>

#include "gui/platform/KyPlatformTrayIcon.h"

class KyX11PlatformIntegration;

/// Docks one native window into the system tray and keeps it docked.
class KyX11TrayIcon : public KyPlatformTrayIcon {
public:
    KyX11TrayIcon(KyX11PlatformIntegration* integration, Window window);
    ~KyX11TrayIcon() override;
    KyX11TrayIcon(const KyX11TrayIcon&) = delete;
    KyX11TrayIcon& operator=(const KyX11TrayIcon&) = delete;

    bool requestDock() override;
    bool isDocked() const override { return docked_; }
    void setDockedChangedCallback(std::function<void(bool)> callback) override { dockedChanged_ = std::move(callback); }

private:
    /// True when the event was only about docking and needs no further routing.
    bool filterEvent_(XEvent& event);
    void setDocked_(bool docked);

    KyX11PlatformIntegration* integration_;
    Display* display_;
    Window window_;
    Window root_;
    Window manager_ = 0;
    Atom selection_ = 0;
    Atom opcode_ = 0;
    Atom managerAtom_ = 0;
    Atom xembedInfo_ = 0;
    int filterId_ = 0;
    bool docked_ = false;
    std::function<void(bool)> dockedChanged_;
};
