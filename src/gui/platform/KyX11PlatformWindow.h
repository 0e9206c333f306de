// KyX11PlatformWindow: one top-level X window, its GC and its callbacks.
//
// Created by KyX11PlatformIntegration::createWindow, owned by the caller and
// used on the GUI thread. The integration's pump finds it by window id and
// runs its callbacks; ConfigureNotify keeps its size. Destroyed before the
// integration shuts down, it takes itself out of the map and frees its X
// resources; after shutdown it is an empty shell whose calls do nothing.
#pragma once

#include <X11/Xlib.h>

#include "gui/platform/KyPlatformWindow.h"

class KyX11PlatformIntegration;

/// A native X11 top-level window.
class KyX11PlatformWindow : public KyPlatformWindow {
public:
    KyX11PlatformWindow(KyX11PlatformIntegration* integration, Display* display, const KyWindowCallbacks& callbacks);
    ~KyX11PlatformWindow() override;
    KyX11PlatformWindow(const KyX11PlatformWindow&) = delete;
    KyX11PlatformWindow& operator=(const KyX11PlatformWindow&) = delete;

    void show() override;
    void hide() override;
    void setTitle(const KyString& utf8) override;
    void resize(int width, int height) override;
    void move(int x, int y) override;
    void requestUpdate() override;
    void setWindowClass(const KyString& instanceName, const KyString& className) override;
    void setIcon(const KyPlatformIcon& icon) override;
    void setPopup(bool popup) override;
    void setBackground(std::uint32_t rgb) override;
    bool grabPointer() override;
    void ungrabPointer() override;
    KyNativeWindowId nativeHandle() const override { return window_; }
    void* nativeDisplay() const override { return display_; }

    const KyWindowCallbacks& callbacks() const { return callbacks_; }
    /// The size the last ConfigureNotify reported (the creation size before that).
    KyPlatformSize size() const { return size_; }

private:
    friend class KyX11PlatformIntegration;
    void attach_(Window window, GC gc, KyPlatformSize size);
    void setSize_(KyPlatformSize size) { size_ = size; }
    /// Frees the GC and backbuffer, destroys the X window and forgets the connection.
    void destroyNative_();

    KyX11PlatformIntegration* integration_;
    Display* display_;
    Window window_ = 0;
    GC gc_ = nullptr;
    KyWindowCallbacks callbacks_;
    KyPlatformSize size_;
    bool popup_ = false;
};
