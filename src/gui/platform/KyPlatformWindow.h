// KyPlatformWindow: one native top-level window as the widgets see it.
//
// Made by KyPlatformIntegration::createWindow and owned by its caller (a main
// window or dialog). Every call runs on the GUI thread; input and paint come
// back through the KyWindowCallbacks given at creation.
#pragma once

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
    virtual KyNativeWindowId nativeHandle() const = 0;
    virtual void* nativeDisplay() const = 0;
};
