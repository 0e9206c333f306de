// KyTopLevelWindow: the native window of a top-level widget (a main window,
// a native dialog, a popup) and the thirteen callbacks that turn its input
// and paint requests into widget events.
//
// Owned by the widget it serves, on the GUI thread. Every callback first asks
// whether that widget is still live, since input is posted and may arrive
// after the widget went. The widget decides only what a close means (the
// close question and the delete request are handed back to it); everything
// else is the same for every top-level: resize follows the native size, input
// is routed from the root, a move also drives the tool tip, a key press hides
// it, and paint goes through handlePaintRequest.
#pragma once

#include <functional>
#include <memory>

#include "core/types/KyString.h"
#include "gui/platform/KyPlatformTypes.h"

class KyPlatformWindow;
class KyWidget;

/// A native window bound to a root widget.
class KyTopLevelWindow {
public:
    struct Hooks {
        /// The window manager's close: send a CloseEvent and answer whether it was accepted.
        std::function<bool()> closeAllowed;
        /// What an accepted window-manager close does.
        std::function<void()> deleteRequested;
    };

    /// Creates the native window (hidden) and makes root its root widget.
    /// Throws what the platform throws when it cannot.
    KyTopLevelWindow(KyWidget* root, const KyString& titleUtf8, int width, int height, Hooks hooks);
    /// Destroys the native window.
    ~KyTopLevelWindow();
    KyTopLevelWindow(const KyTopLevelWindow&) = delete;
    KyTopLevelWindow& operator=(const KyTopLevelWindow&) = delete;

    KyPlatformWindow* platformWindow() const { return window_.get(); }
    /// The next paint covers the whole window.
    void setForceRepaint() { forceRepaint_ = true; }
    /// One frame for a paint request; timerName and countName label the perf counters.
    void handlePaintRequest(const KyPlatformPaintEvent& event, const char* timerName, const char* countName);
    /// Larger of stored, style and layout minimum, capped by the maximum, never negative.
    KyPlatformSize minimumSize() const;

private:
    KyWidget* root_;
    bool forceRepaint_ = true;
    std::unique_ptr<KyPlatformWindow> window_;
};
