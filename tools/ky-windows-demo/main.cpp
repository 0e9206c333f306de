// ky-windows-demo: shows the window layer the way the console uses it.
//
//   ky-windows-demo [menu|submenu|box|about|tray|tip]
//
// A main window with a menu bar (Session, View and a Help menu on the right),
// a status bar with its label and a light on the right, and a few controls in
// the central area; then, after a short pause, the chosen scene: the Session
// menu open, its sub-menu open, a warning box over the window, the About box,
// or the tray icon with its menu. Quit with the window's close button.
#include <algorithm>
#include <cmath>

#include "core/runtime/KyTimer.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyMenuBar.h"
#include "gui/widgets/KyMessageBox.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyShortcut.h"
#include "gui/widgets/KyStatusBar.h"
#include "gui/widgets/KySystemTrayIcon.h"
#include "gui/widgets/KyToolTip.h"

namespace {

/// A round shield-like badge in the console's accent, as ARGB.
KyPlatformIcon makeIcon(int size) {
    KyPlatformIcon icon{size, size, std::vector<std::uint32_t>(static_cast<std::size_t>(size) * size, 0)};
    const double c = (size - 1) / 2.0, r = size / 2.0 - 0.5;
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const double d = std::hypot(x - c, y - c);
            const double a = std::clamp(r - d + 0.5, 0.0, 1.0);
            const bool inner = d < r * 0.45;
            const std::uint32_t rgb = inner ? 0xFFF4E6u : 0xDC9A54u;
            icon.argb[static_cast<std::size_t>(y) * size + x] = (static_cast<std::uint32_t>(a * 255) << 24) | rgb;
        }
    return icon;
}

} // namespace

int main(int argc, char** argv) {
    const std::string scene = argc > 1 ? argv[1] : "menu";
    KyGuiApplication app;
    KyMainWindow window(L"VELMO VPN Console", 900, 560);
    window.setWindowIcon(makeIcon(48));
    window.ensureChrome();
    KyMenu* session = window.menuBar()->addMenu("Session");
    session->addAction("Refresh catalog");
    KyAction* follow = session->addAction("Follow log");
    follow->setCheckable(true);
    follow->setChecked(true);
    KyMenu* exportMenu = session->addMenu("Export");
    exportMenu->addAction("Log as text");
    exportMenu->addAction("Counters as CSV");
    session->addSeparator();
    session->addAction("Reconnect agent")->setEnabled(false);
    session->addAction("Logout");
    KyMenu* view = window.menuBar()->addMenu("View");
    view->addAction("VPNs");
    view->addAction("Filtering");
    view->addAction("Monitor");
    KyMenu* help = window.menuBar()->addMenuRight("Help");
    help->addAction("About VELMO VPN Console", [&] { window.ensureAboutDialog()->exec(); });
    window.statusBar()->showMessage("Signed in  |  3 VPNs  |  12 users");

    auto* heading = new KyLabel("Visible VPNs", &window);
    heading->setStyleSheet("KyLabel { color: rgb(24, 28, 36); font-size: 18px; font-weight: 600; }");
    heading->setGeometry(24, 48, 400, 30);
    auto* text = new KyLabel("Pick a VPN on the left to see its users and devices.", &window);
    text->setStyleSheet("KyLabel { color: rgb(71, 85, 105); font-size: 13px; }");
    text->setGeometry(24, 80, 500, 24);
    auto* join = new KyPushButton("Join VPN", &window);
    join->setGeometry(24, 120, 120, 36);
    join->setToolTips("Connect this device to the selected VPN");
    KyShortcut quit(&window, "Ctrl+Q");
    KyObject::connect(&quit, &KyShortcut::activated, [&] { app.quit(); });

    KySystemTrayIcon tray;
    tray.setIcon(makeIcon(32));
    tray.setToolTip("VELMO VPN Console");
    tray.addAction("Show", [&] { window.show(); });
    tray.addAction("Logout", [] {});
    tray.addAction("Quit", [&] { app.quit(); });
    tray.show();

    window.show();
    KyTimer::singleShot(600, [&] {
        if (scene == "menu") window.menuBar()->openMenu(0);
        else if (scene == "submenu") {
            window.menuBar()->openMenu(0);
            session->onPopupHoverChanged_(2);
            session->setCurrentRow(2);
        } else if (scene == "box") {
            KyMessageBox box(&window);
            box.setIcon(KyMessageBox::Warning);
            box.setWindowTitle("Leave the VPN?");
            box.setText("You are connected to Office Berlin.");
            box.setInformativeText("Leaving disconnects this device from the VPN and stops forwarding its traffic. "
                                   "You can join again at any time.");
            box.addButton("Stay", 0);
            box.addButton("Leave VPN", 1, true);
            box.exec();
        } else if (scene == "critical") {
            KyMessageBox::critical(nullptr, "VELMO VPN", "The agent stopped responding.",
                                   "The console will keep trying to reach it in the background.");
        } else if (scene == "about") {
            window.ensureAboutDialog()->exec();
        } else if (scene == "tray") {
            tray.contextMenu()->popupOnScreen(1400, 30);
        }
    });
    return app.exec();
}
