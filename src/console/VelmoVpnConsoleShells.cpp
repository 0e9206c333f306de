// Placeholder shells until the real surfaces land: the widgets the start
// order needs exist, in plain layouts.
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyDialog.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyLoadingOverlay.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenuBar.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyStatusBar.h"
#include "gui/widgets/KyStatusLight.h"
#include "gui/widgets/KyTabWidget.h"

void buildVelmoVpnConsoleUi(KyMainWindow& window, VelmoVpnConsoleUi& ui) {
    window.ensureChrome();
    window.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    ui.sessionMenu = window.menuBar() ? window.menuBar()->addMenu("Session") : nullptr;
    ui.statusBarLabel = window.statusLabel();
    if (window.statusBar()) {
        ui.remoteStatusLight = new KyStatusLight(window.statusBar());
        window.statusBar()->addPermanentWidget(ui.remoteStatusLight);
    }
    auto* layout = new KyVerticalLayout;
    ui.authStatusLabel = new KyLabel("", &window);
    layout->addWidget(ui.authStatusLabel);
    ui.tabs = new KyTabWidget(&window);
    auto* vpns = new KyWidget;
    buildVelmoVpnConsoleVpnsPage(*vpns, ui);
    ui.tabs->addTab(vpns, "VPNs");
    auto* filtering = new KyWidget;
    buildVelmoVpnConsoleFilteringPage(*filtering, ui);
    ui.tabs->addTab(filtering, "Filtering");
    auto* monitor = new KyWidget;
    buildVelmoVpnConsoleMonitorPage(*monitor, ui);
    ui.tabs->addTab(monitor, "Monitor");
    layout->addWidget(ui.tabs, 1);
    window.setLayout(layout);
}

void buildVelmoVpnConsoleLoginSurface_(KyWidget& surface, VelmoVpnConsoleUi& ui) {
    auto* layout = new KyVerticalLayout;
    ui.emailField = new KyLineEdit(&surface);
    ui.passwordField = new KyLineEdit(&surface);
    ui.passwordField->setEchoMode(PasswordEcho);
    ui.customBaseUrl = new KyCheckBox("Custom base URL", &surface);
    ui.baseUrlField = new KyLineEdit(&surface);
    ui.signInButton = new KyPushButton("Sign In", &surface);
    ui.loginStatusLabel = new KyLabel("Sign in with your user account", &surface);
    ui.emailCompleter = new KyCompleter(&surface);
    ui.emailCompleter->setWidget(ui.emailField);
    for (KyWidget* w : std::initializer_list<KyWidget*>{ui.emailField, ui.passwordField, ui.customBaseUrl,
                                                        ui.baseUrlField, ui.signInButton, ui.loginStatusLabel})
        layout->addWidget(w);
    surface.setLayout(layout);
}

void buildVelmoVpnConsoleLoadingSurface_(KyWidget& surface, VelmoVpnConsoleUi& ui) {
    auto* layout = new KyVerticalLayout;
    ui.loadingTitleLabel = new KyLabel("Connecting...", &surface);
    ui.loadingStatusLabel = new KyLabel("", &surface);
    ui.loadingDetailLabel = new KyLabel("", &surface);
    layout->addWidget(ui.loadingTitleLabel);
    layout->addWidget(ui.loadingStatusLabel);
    layout->addWidget(ui.loadingDetailLabel);
    surface.setLayout(layout);
    ui.loadingOverlay = new KyLoadingOverlay(&surface);
}

void buildVelmoVpnConsoleLoginWindowUi(KyMainWindow& window, VelmoVpnConsoleUi& ui) {
    window.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    buildVelmoVpnConsoleLoginSurface_(window, ui);
}

void buildVelmoVpnConsoleLoadingWindowUi(KyMainWindow& window, VelmoVpnConsoleUi& ui) {
    window.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    buildVelmoVpnConsoleLoadingSurface_(window, ui);
}

void buildVelmoVpnConsoleLoginUi(KyDialog& dialog, VelmoVpnConsoleUi& ui) { buildVelmoVpnConsoleLoginSurface_(dialog, ui); }
void buildVelmoVpnConsoleLoadingUi(KyDialog& dialog, VelmoVpnConsoleUi& ui) {
    buildVelmoVpnConsoleLoadingSurface_(dialog, ui);
}

namespace {
void showOnly(KyMainWindow* target, std::initializer_list<KyMainWindow*> windows, KyCompleter* completer) {
    for (KyMainWindow* w : windows)
        if (w && w != target) w->hide();
    if (completer) completer->hidePopup();
    if (target && !target->isVisible()) target->show();
}
} // namespace

void velmoVpnConsoleShowLoadingShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow,
                                     KyMainWindow* loadingWindow, KyCompleter* completer) {
    showOnly(loadingWindow, {&consoleWindow, loginWindow, loadingWindow}, completer);
}
void velmoVpnConsoleShowLoginShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow, KyMainWindow* loadingWindow,
                                   KyCompleter* completer) {
    showOnly(loginWindow, {&consoleWindow, loginWindow, loadingWindow}, completer);
}
void velmoVpnConsoleShowConsoleShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow,
                                     KyMainWindow* loadingWindow, KyCompleter* completer) {
    showOnly(&consoleWindow, {&consoleWindow, loginWindow, loadingWindow}, completer);
}

#include "console/VelmoVpnConsoleLoginMemory.h"

void velmoVpnConsoleRememberIdentity(const KyString& baseUrl, const KyString& email, KyString& rememberedBaseUrl,
                                     KyString& rememberedEmail, KyList<KyString>& history, KyCompleter* completer) {
    if (email.trimmed().isEmpty()) return;
    velmoVpnConsoleRememberLoginIdentity(baseUrl, email);
    rememberedBaseUrl = velmoVpnConsoleRememberedBaseUrl();
    rememberedEmail = velmoVpnConsoleRememberedEmail();
    history = velmoVpnConsoleRememberedEmailHistory();
    velmoVpnConsoleRefreshEmailCompleter(completer, history);
}
void velmoVpnConsoleRefreshEmailCompleter(KyCompleter* completer, const KyList<KyString>& history) {
    if (completer) completer->setStringList(history);
}
void velmoVpnConsoleWireEmailAssistance(VelmoVpnConsoleUi&, const KyList<KyString>&) {}
