// KyPlatformTrayIcon: a native window docked into the desktop's system tray.
//
// Made by KyPlatformIntegration::createTrayIcon for a window that already
// exists (the widgets paint it and take its input as for any top-level); this
// object only negotiates its place in the tray: it asks the tray manager to
// dock the window, and asks again whenever a new manager takes over (a panel
// restarting). GUI thread only.
#pragma once

#include <functional>

/// The docking side of a tray icon.
class KyPlatformTrayIcon {
public:
    virtual ~KyPlatformTrayIcon() = default;
    /// Asks the current tray manager to take the window; false when there is none.
    virtual bool requestDock() = 0;
    /// True while the window sits inside a tray.
    virtual bool isDocked() const = 0;
    /// Told every time the window enters or leaves a tray.
    virtual void setDockedChangedCallback(std::function<void(bool)> callback) = 0;
};
