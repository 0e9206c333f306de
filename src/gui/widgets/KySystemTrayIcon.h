// KySystemTrayIcon: the application's icon in the desktop's system tray.
//
// The icon is a small window (a TrayWindow_) that the tray manager takes in;
// it draws the icon scaled to whatever size the tray gives it and docks again
// whenever a tray starts after it or restarts. A left click or a right click
// opens the tray menu (filled with addAction) at the pointer, in a popup window
// of its own; a double click emits doubleClicked instead, so a left click waits
// for the double-click time before it opens the menu. Resting the pointer on
// the icon shows its tool tip. Without a tray on the desktop nothing shows
// until one appears. GUI thread only.
#pragma once

#include <functional>
#include <memory>

#include "core/object/KyObject.h"
#include "gui/platform/KyPlatformTypes.h"

class KyAction;
class KyMainWindow;
class KyMenu;
class KyPlatformTrayIcon;

/// An icon in the system tray with a menu.
class KySystemTrayIcon : public KyObject {
    KY_OBJECT(KySystemTrayIcon, KyObject)

public:
    explicit KySystemTrayIcon(KyObject* parent = nullptr);
    ~KySystemTrayIcon() override;

    void setIcon(const KyPlatformIcon& icon);
    const KyPlatformIcon& icon() const { return icon_; }
    void setToolTip(const KyString& text) { toolTip_ = text; }
    const KyString& toolTip() const { return toolTip_; }

    /// Appends a row to the tray menu that runs fn.
    KyAction* addAction(const KyString& text, std::function<void()> fn);
    KyMenu* contextMenu() const { return menu_.get(); }

    /// Asks the tray to show the icon (and keeps asking as trays come and go).
    void show();
    void hide();
    bool isVisible() const { return visible_; }
    bool isDocked() const;
    /// The small window the tray holds.
    KyMainWindow* trayWindow() const;

    KY_SIGNAL(doubleClicked)
    KY_SIGNAL(dockedChanged, bool)

private:
    class IconWindow_;
    friend class IconWindow_;
    void openMenuAt_(int screenX, int screenY);
    void showToolTipAt_(int screenX, int screenY);
    void hideToolTip_();

    KyPlatformIcon icon_;
    KyString toolTip_;
    std::unique_ptr<KyMenu> menu_;
    std::unique_ptr<IconWindow_> window_;
    std::unique_ptr<KyPlatformTrayIcon> dock_;
    std::unique_ptr<KyMainWindow> tipWindow_;
    bool visible_ = false;
};
