// KyX11PlatformIntegration: the connection to the X server, the top-level
// windows, the event pump and the clipboard.
//
// Made and initialised by KyGuiApplication, on its thread; every X call runs
// there. The X connection's descriptor is watched by the loop's I/O
// dispatcher, whose readiness runs processPlatformEvents on lane 0; the GUI
// loop also pumps twice per pass. The pump calls resize, paint and the close
// question directly and posts every input callback on lane 1, so a handler
// may block or nest a loop without re-entering XNextEvent.
//
// Locks: the window map has one mutex, held for lookups only (never while a
// callback runs); the clipboard text has its own. Neither is taken inside the
// other. X errors go to one handler that logs them under
// "ky.gui.platform.x11" and carries on.
#pragma once

#include <X11/Xlib.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "gui/platform/KyPlatformIntegration.h"

class KyCoreApplication;
class KyX11PlatformWindow;

/// The X11 backend.
class KyX11PlatformIntegration : public KyPlatformIntegration {
public:
    KyX11PlatformIntegration() = default;
    /// Shuts down first.
    ~KyX11PlatformIntegration() override;
    KyX11PlatformIntegration(const KyX11PlatformIntegration&) = delete;
    KyX11PlatformIntegration& operator=(const KyX11PlatformIntegration&) = delete;

    /// Opens the display named by DISPLAY; throws std::runtime_error
    /// "Unable to connect to the X server." when it cannot.
    void initialize(KyGuiApplication* application) override;
    void shutdown() override;
    std::unique_ptr<KyPlatformWindow> createWindow(const KyString& title, int width, int height,
                                                   const KyWindowCallbacks& callbacks,
                                                   const KyPlatformWindowOptions& options) override;
    std::unique_ptr<KyPlatformPainter> createPainter() override;
    std::unique_ptr<KyPlatformImage> createImage(KyPlatformSize size, KyPixelFormat format) override;
    void processPlatformEvents() override;
    void sync() override;
    /// "_NET_ACTIVE_WINDOW", interned at start: showing a window asks no round trip.
    Atom netActiveWindowAtom() const { return netActiveWindow_; }
    void wakeUpGuiThread() override;
    KyList<KyString> availableScreens() override;
    /// The selection's text from its owner (this process's own text without a
    /// round trip); an owner that does not answer within about 200 ms gives "".
    KyString clipboardText() override;
    /// Owns PRIMARY and "CLIPBOARD" with text.
    void setClipboardText(const KyString& text) override;
    KyString name() const override { return "x11"; }

    Display* display() const { return display_; }
    int screen() const { return screen_; }
    KyGuiApplication* application() const { return application_; }
    /// Asks selection's owner for its text as "UTF8_STRING" and waits up to
    /// 40 polls of 5 ms for the answer.
    KyString requestClipboardText(Atom selection);
    std::unique_ptr<KyPlatformTrayIcon> createTrayIcon(KyPlatformWindow* window) override;

    /// A look at every X event before the pump routes it; returning true consumes it.
    using EventFilter = std::function<bool(XEvent&)>;
    int addEventFilter(EventFilter filter);
    void removeEventFilter(int id);

private:
    friend class KyX11PlatformWindow;
    /// The callbacks of a window, copied under the map mutex (false when unknown).
    bool findWindowCallbacks_(Window window, KyWindowCallbacks& out, KyPlatformSize* size = nullptr);
    void unregisterWindow_(Window window);
    /// WM_CLASS, WM_CLIENT_MACHINE and _NET_WM_PID of a new top-level.
    void setWindowIdentity_(Window id);
    void dispatch_(XEvent& event);
    void handleKey_(XKeyEvent& event);
    void handleButton_(const XButtonEvent& event);
    void handleExpose_(const XExposeEvent& event);
    void handleConfigure_(const XConfigureEvent& event);
    void handleSelectionRequest_(const XSelectionRequestEvent& request);
    void handleClientMessage_(const XClientMessageEvent& event);
    void ensureClipboardWindow_();

    KyGuiApplication* application_ = nullptr;
    KyCoreApplication* watchingLoop_ = nullptr;
    int watchId_ = 0;

    Display* display_ = nullptr;
    int screen_ = 0;
    Atom wmDeleteWindow_ = 0;
    Atom clipboard_ = 0;
    Atom targets_ = 0;
    Atom utf8String_ = 0;
    Atom text_ = 0;
    Atom internalClipboard_ = 0;
    Atom netActiveWindow_ = 0;
    Window clipboardWindow_ = 0;

    std::mutex windowsMutex_;
    std::unordered_map<Window, KyX11PlatformWindow*> windows_;

    // Double-click memory: never cleared, so a third quick press is a double click again.
    Time lastPressTime_ = 0;
    int lastPressButton_ = 0;
    int lastPressX_ = 0;
    int lastPressY_ = 0;

    std::vector<std::pair<int, EventFilter>> eventFilters_;
    int nextFilterId_ = 0;

    std::mutex clipboardMutex_;
    std::string clipboardTextUtf8_;
};
