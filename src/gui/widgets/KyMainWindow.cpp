// KyMainWindow: native window, chrome and the close that ends the application.
#include "gui/widgets/KyMainWindow.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "core/runtime/KyCoreApplication.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyMenuBar.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"
#include "gui/widgets/KyMessageBox.h"
#include "gui/widgets/KyShortcut.h"
#include "gui/widgets/KyStatusBar.h"
#include "gui/widgets/KyTopLevelWindow.h"

namespace {
constexpr int kMenuBarHeight = 30;
constexpr int kStatusBarHeight = 28;

KyGuiApplication* requireApplication() {
    KyGuiApplication* app = KyGuiApplication::instance();
    if (!app) throw std::runtime_error("KyGuiApplication instance must exist before creating KyMainWindow.");
    return app;
}
} // namespace

KyMainWindow::KyMainWindow(const std::wstring& title, int width, int height) : KyWidget(nullptr), title_(title) {
    requireApplication();
    KyShortcut::installHook();
    // Hidden until show(): nothing paints into an unmapped window.
    setVisible(false);
    KyTopLevelWindow::Hooks hooks;
    hooks.closeAllowed = [this] {
        CloseEvent event;
        KyCoreApplication::sendEvent(this, &event);
        return event.isAccepted();
    };
    hooks.deleteRequested = [this] { deleteRequested(); };
    top_ = std::make_unique<KyTopLevelWindow>(this, KyString::fromWString(title), width, height, std::move(hooks));
}

KyMainWindow::~KyMainWindow() {
    // Children first, while the native window they paint into still exists.
    // One at a time: a child may take others with it (a menu its overlay).
    while (!children().isEmpty()) delete children().last();
    top_.reset();
}

KyPlatformWindow* KyMainWindow::platformWindow() const { return top_ ? top_->platformWindow() : nullptr; }

void KyMainWindow::setPopup(bool popup) {
    if (KyPlatformWindow* w = platformWindow()) w->setPopup(popup);
}

void KyMainWindow::show() {
    if (KyPlatformWindow* w = platformWindow()) {
        // The server shows the sheet's page colour until our first frame lands.
        const ResolvedStyleSnapshot_& s = styleSnapshot_();
        if (s.hasBackground && s.paintBackground) w->setBackground(s.background.rgb());
        w->show();
    }
    top_->setForceRepaint();
    KyWidget::show();
    update();
}

void KyMainWindow::hide() {
    if (KyPlatformWindow* w = platformWindow()) w->hide();
    KyWidget::hide();
}

void KyMainWindow::setWindowTitle(const std::wstring& title) {
    if (title == title_) return;
    title_ = title;
    if (KyPlatformWindow* w = platformWindow()) w->setTitle(KyString::fromWString(title));
}

void KyMainWindow::setWindowIcon(const KyPlatformIcon& icon) {
    icon_ = icon;
    if (KyPlatformWindow* w = platformWindow()) w->setIcon(icon);
}

void KyMainWindow::handlePaintRequest(const KyPlatformPaintEvent& event) {
    if (top_) top_->handlePaintRequest(event, "mainWindow.handlePaintRequest", "mainWindow.paintRequest");
}

void KyMainWindow::setForceRepaint() {
    if (top_) top_->setForceRepaint();
}

void KyMainWindow::deleteRequested() {
    if (deleteHandled_) return;
    deleteHandled_ = true;
    std::wcout << L"MainWindow is being deleted." << std::endl;
    if (KyCoreApplication* app = KyCoreApplication::instance(false)) app->exit(0);
}

void KyMainWindow::ensureChrome() {
    if (menuBar_) return;
    menuBar_ = new KyMenuBar(this);
    menuBar_->setObjectName("MainMenuBar");
    statusBar_ = new KyStatusBar(this);
    statusBar_->setObjectName("MainStatusBar");
    statusLabel_ = new KyLabel(statusBar_);
    statusLabel_->setObjectName("MainStatusLabel");
    statusLabel_->setStyleSheet("KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; "
                                "color: rgb(51, 65, 85); font-size: 12px; }");
    statusBar_->setMessageWidget(statusLabel_);
    menuBar_->setStyleSheet("KyMenuBar { background-color: rgb(255, 255, 255); border-color: rgb(218, 218, 218); "
                            "border-width: 1px; border-radius: 0px; }");
    statusBar_->setStyleSheet("KyStatusBar { background-color: rgba(0,0,0,0); border-color: rgb(218, 218, 218); "
                              "border-width: 0px; }");
    layoutChrome_();
}

KyRect KyMainWindow::clientRect() const {
    int top = 0, bottom = height();
    if (menuBar_ && menuBar_->isVisible()) top = menuBar_->geometry().bottom();
    if (statusBar_ && statusBar_->isVisible()) bottom = statusBar_->geometry().y;
    return {0, top, width(), std::max(0, bottom - top)};
}

void KyMainWindow::layoutChrome_() {
    if (menuBar_) menuBar_->setGeometry(0, 0, width(), kMenuBarHeight);
    if (statusBar_) statusBar_->setGeometry(0, height() - kStatusBarHeight, width(), kStatusBarHeight);
}

void KyMainWindow::resizeEvent(ResizeEvent* event) {
    layoutChrome_();
    KyWidget::resizeEvent(event);
}

void KyMainWindow::setAboutText(const KyString& text, const KyString& informative) {
    aboutText_ = text;
    aboutInformative_ = informative;
    if (about_) {
        about_->setText(text);
        about_->setInformativeText(informative);
    }
}

KyMessageBox* KyMainWindow::ensureAboutDialog() {
    if (about_) return about_;
    about_ = new KyMessageBox(this);
    about_->setObjectName("AboutDialog");
    about_->setIcon(KyMessageBox::Information);
    about_->setWindowTitle(KyString("About ") + KyString::fromWString(title_));
    about_->setText(aboutText_.isEmpty() ? KyString::fromWString(title_) : aboutText_);
    about_->setInformativeText(aboutInformative_.isEmpty()
                                   ? KyString("Native desktop console for the managed VPN. It signs you in, shows your "
                                              "VPNs and their devices, and runs beside the local VPN agent.")
                                   : aboutInformative_);
    about_->addButton("OK", 1, true);
    return about_;
}
