// KyMainWindow: a top-level window of the application.
//
// It owns one native window (made at construction, hidden until show) and is
// the root of the widget tree painted into it. Its chrome is made on demand
// by ensureChrome: a menu bar along the top, a status bar with its label
// along the bottom and the central area between them, which is what
// clientRect() answers, so a layout set on the window fills the central area.
// Closing a main window through the window manager asks closeEvent first; an
// accepted close ends the application. Every top-level also tells the window
// manager who it is: WM_CLASS, the UTF-8 title, the process id and the icon.
// GUI thread only.
#pragma once

#include <memory>
#include <string>

#include "gui/platform/KyPlatformTypes.h"
#include "gui/widgets/KyWidget.h"

class KyDialog;
class KyLabel;
class KyMenuBar;
class KyMessageBox;
class KyPlatformWindow;
class KyStatusBar;
class KyTopLevelWindow;

/// A top-level application window.
class KyMainWindow : public KyWidget {
    KY_OBJECT(KyMainWindow, KyWidget)

public:
    /// Throws std::runtime_error "KyGuiApplication instance must exist before
    /// creating KyMainWindow." without an application on this thread.
    KyMainWindow(const std::wstring& title, int width, int height);
    /// Destroys the native window.
    ~KyMainWindow() override;

    /// Maps the window raised and makes the tree visible.
    void show() override;
    /// Unmaps the window; the native window stays for the next show.
    void hide() override;

    void setWindowTitle(const std::wstring& title);
    const std::wstring& windowTitle() const { return title_; }
    /// The icon task bars and the tray show, as ARGB pixels.
    void setWindowIcon(const KyPlatformIcon& icon);
    const KyPlatformIcon& windowIcon() const { return icon_; }
    KyPlatformWindow* platformWindow() const;
    /// A popup window (a menu): placed by the program, not decorated by the window manager.
    void setPopup(bool popup);

    /// Paints one frame for the native window's paint request.
    void handlePaintRequest(const KyPlatformPaintEvent& event);
    /// The next frame repaints the whole window.
    void setForceRepaint();

    /// Makes the menu bar, the status bar with its label and the central area (once).
    void ensureChrome();
    KyMenuBar* menuBar() const { return menuBar_; }
    KyStatusBar* statusBar() const { return statusBar_; }
    KyLabel* statusLabel() const { return statusLabel_; }
    /// The area between the bars (the whole window without chrome), in window coordinates.
    KyRect clientRect() const override;
    /// Builds the About dialog once and returns it.
    KyMessageBox* ensureAboutDialog();
    /// Texts of the About dialog: informative is the small line under the name.
    void setAboutText(const KyString& text, const KyString& informative);

    void resizeEvent(ResizeEvent* event) override;

protected:
    /// An accepted window-manager close: ends the application, once.
    virtual void deleteRequested();
    /// Places the chrome for the present size.
    void layoutChrome_();

private:
    std::wstring title_;
    KyPlatformIcon icon_;
    std::unique_ptr<KyTopLevelWindow> top_;
    bool deleteHandled_ = false;
    KyMenuBar* menuBar_ = nullptr;
    KyStatusBar* statusBar_ = nullptr;
    KyLabel* statusLabel_ = nullptr;
    KyMessageBox* about_ = nullptr;
    KyString aboutText_;
    KyString aboutInformative_;
};
