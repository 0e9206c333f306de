// KyPlatformWindow: one native top-level window as the widgets see it.
//
// Made by KyPlatformIntegration::createWindow and owned by its caller (a main
// window or dialog). Every call runs on the GUI thread; input and paint come
// back through the KyWindowCallbacks given at creation.
#pragma once

#include <cstdint>

#include "core/types/KyString.h"
#include "gui/platform/KyPlatformTypes.h"

/// A native window: show, hide, title, geometry and update requests.
class KyPlatformWindow {
public:
    virtual ~KyPlatformWindow() = default;
    virtual void show() = 0;
    virtual void hide() = 0;
    virtual void setTitle(const KyString& utf8) = 0;
    /// Each side is raised to at least 1.
    virtual void resize(int width, int height) = 0;
    virtual void move(int x, int y) = 0;
    /// Schedules a repaint of the whole window through the expose tracker.
    virtual void requestUpdate() = 0;
    /// The class pair the window manager and task bars group windows by (WM_CLASS).
    virtual void setWindowClass(const KyString& instanceName, const KyString& className) { (void)instanceName, (void)className; }
    /// The icon task bars and window lists show (_NET_WM_ICON).
    virtual void setIcon(const KyPlatformIcon& icon) { (void)icon; }
    /// The colour the server fills the window with before our first frame
    /// reaches it (on map and on resize), so a dark window never flashes light.
    virtual void setBackground(std::uint32_t rgb) { (void)rgb; }
    /// A popup (a menu or tool tip) is placed by us, never decorated or moved by the window manager.
    virtual void setPopup(bool popup) { (void)popup; }
    /// While a popup is open every press reaches it, also one outside it; false when the server refused.
    virtual bool grabPointer() { return false; }
    virtual void ungrabPointer() {}
    virtual KyNativeWindowId nativeHandle() const = 0;
    virtual void* nativeDisplay() const = 0;
};
