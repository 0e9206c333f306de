// TrayWindow_: a main window that a tray icon stands in for.
//
// Closing such a window through the window manager does not end the
// application: the close is refused and the window is only unmapped, to come
// back through the tray. Only once the application is quitting (its
// quit-request flag, given with setQuitRequestedFlag, is set) is the close
// accepted. GUI thread only.
#pragma once

#include "gui/widgets/KyMainWindow.h"

/// A main window whose close hides it while the tray keeps the application.
class TrayWindow_ : public KyMainWindow {
    KY_OBJECT(TrayWindow_, KyMainWindow)

public:
    TrayWindow_(const std::wstring& title, int width, int height);

    /// The flag that says the application is quitting (read, never written); null: never.
    static void setQuitRequestedFlag(const bool* flag);
    static bool quitRequested();

    void closeEvent(CloseEvent* event) override;
};
