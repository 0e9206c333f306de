// KyPlatformIntegration: the window system as the rest of the toolkit sees it.
//
// One per GUI application, created and owned by KyGuiApplication and used on
// its thread: it opens the connection, makes windows, painters and images,
// pumps native events into window callbacks, and holds the clipboard.
#pragma once

#include <memory>

#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "gui/platform/KyPlatformImage.h"
#include "gui/platform/KyPlatformPainter.h"
#include "gui/platform/KyPlatformTrayIcon.h"
#include "gui/platform/KyPlatformTypes.h"
#include "gui/platform/KyPlatformWindow.h"

class KyGuiApplication;

/// The abstract window system backend.
class KyPlatformIntegration {
public:
    virtual ~KyPlatformIntegration() = default;
    /// Connects to the window system; a second call does nothing.
    virtual void initialize(KyGuiApplication* application) = 0;
    /// Lets go of every window and the connection.
    virtual void shutdown() = 0;
    virtual std::unique_ptr<KyPlatformWindow> createWindow(const KyString& title, int width, int height,
                                                           const KyWindowCallbacks& callbacks,
                                                           const KyPlatformWindowOptions& options) = 0;
    virtual std::unique_ptr<KyPlatformPainter> createPainter() = 0;
    virtual std::unique_ptr<KyPlatformImage> createImage(KyPlatformSize size, KyPixelFormat format) = 0;
    /// Drains the native event queue into window callbacks.
    virtual void processPlatformEvents() = 0;
    /// Returns once the server has handled every request sent so far, so that
    /// its answers (the Expose of a window just mapped) are waiting to be read.
    virtual void sync() {}
    virtual void wakeUpGuiThread() = 0;
    /// One line per screen: "Screen <i> (<w>x<h>)".
    virtual KyList<KyString> availableScreens() = 0;
    virtual KyString clipboardText() = 0;
    virtual void setClipboardText(const KyString& text) = 0;
    virtual KyString name() const = 0;
    /// Docks window into the desktop's system tray; null where there is no tray protocol.
    virtual std::unique_ptr<KyPlatformTrayIcon> createTrayIcon(KyPlatformWindow* window) {
        (void)window;
        return nullptr;
    }
};
