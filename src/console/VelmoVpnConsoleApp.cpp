// runVelmoVpnConsole: the console's start order. It makes the application
// object and the X11 integration, the three windows and the tray icon, builds
// every widget once into one VelmoVpnConsoleUi record, wires each user action,
// searches for the local agent and links to it, shows what a failed previous
// run left, then runs the event loop until Quit.
//
// Everything here runs on the main thread: the agent's signals and the
// browser's announcements only post tasks to the loop, so the session state
// (locals of runVelmoVpnConsole, shared by reference with the function
// objects) needs no lock.
#include "console/VelmoVpnConsoleApp.h"

#include <signal.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "console/VelmoVpnAgentProxy.h"
#include "console/VelmoVpnConsoleAgentTrust.h"
#include "console/VelmoVpnConsoleBackend.h"
#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VelmoVpnConsoleClient.h"
#include "console/VelmoVpnConsoleFailure.h"
#include "console/VelmoVpnConsoleIcon.h"
#include "console/VelmoVpnConsoleInstance.h"
#include "console/VelmoVpnConsoleLoginMemory.h"
#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VelmoVpnConsoleStateLog.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "console/VpnHotspotListModel.h"
#include "core/io/KyDebug.h"
#include "core/platform/KyStandardPaths.h"
#include "core/runtime/KyTimer.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/text/KyCodeEditor.h"
#include "gui/widgets/KyAction.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyComboBox.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyLoadingOverlay.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KySpinBox.h"
#include "gui/widgets/KyStatusBar.h"
#include "gui/widgets/KySystemTrayIcon.h"
#include "gui/widgets/KyTrayWindow.h"
#include "ipc/KyProxyObjectBrowser.h"

bool gQuitRequested = false;

namespace {

constexpr const char* kCategory = "velmo.console";
constexpr const char* kAgentObject = "velnet/VelmoVpnAgent";
/// One icon size for the windows and the tray: crisp when the window
/// manager and the tray host scale it down.
constexpr int kIconSize = 64;

void consoleLog(const KyString& line) { kyLogDebug(kCategory) << line; }

bool pidAlive(uint32_t pid) { return !ky::ipc::detail::processGone_(pid); }

// Tests and a second installation run side by side in their own domains.
KyString ipcDomain() {
    const KyString fromEnvironment = KyStandardPaths::environment("VELMO_IPC_DOMAIN").trimmed();
    return fromEnvironment.isEmpty() ? KyString("velnet") : fromEnvironment;
}

void setLabelText(KyLabel* label, const KyString& text) {
    if (label && label->getText() != text) label->setText(text);
}

void setLabelStyle(KyLabel* label, const KyString& css) {
    if (label && label->getStyleSheet() != css) label->setStyleSheet(css);
}

void setReadOnly(KyLineEdit* field, bool readOnly) {
    if (field && field->getReadOnly() != readOnly) field->setReadOnly(readOnly);
}

void setEnabled(KyWidget* widget, bool enabled) {
    if (widget && widget->getEnable() != enabled) widget->setEnable(enabled);
}

} // namespace

int runVelmoVpnConsole(int argc, char** argv) {
    (void)argc;
    (void)argv;
    // 1-2. The application object makes and initialises the X11 integration
    // (it throws when no X server answers).
    KyGuiApplication app;
    if (!app.platformIntegration()) throw std::runtime_error("No platform integration available");

    // Support staff can make a start fail on purpose to check that the failure
    // files reach them; the text becomes the recorded reason.
    const KyString forcedFailure = KyStandardPaths::environment("VELMO_CONSOLE_FAIL_AT_START").trimmed();
    if (!forcedFailure.isEmpty()) throw std::runtime_error(forcedFailure.toStdString());

    const KyString domain = ipcDomain();
    bool startHidden = false;
    for (const char* key : {"background", "start_hidden", "minimized"}) {
        if (app.hasArgument(key)) {
            startHidden = true;
            break;
        }
    }
    // One console per user and display: a second start hands over to the
    // first, which shows its window, and leaves.
    VelmoVpnConsoleInstance instance(domain);
    if (!instance.claim()) {
        consoleLog("Another VELMO VPN Console is running; it was asked to show itself");
        return 0;
    }

    // The console's remote object keeps its configuration layers with the
    // user's settings, not in whatever directory the console was started from.
    if (KyStandardPaths::environment("KY_CONFIG_ROOT").trimmed().isEmpty())
        KyRemoteObject::setDefaultConfigRoot(KyStandardPaths::configDirectory() + "/velmo/systemConfig");

    // 3. The three windows.
    TrayWindow_::setQuitRequestedFlag(&gQuitRequested);
    TrayWindow_ consoleWindow(L"VELMO VPN Console", 1260, 820);
    KyMainWindow loginWindow(L"VELMO VPN", 440, 530);
    KyMainWindow loadingWindow(L"VELMO VPN", 340, 300);

    // The loading window is the first one the user sees whatever happens
    // next. On a plain start, with no report of the last run to show before
    // it, it goes up now in the page colour (the server maps it while the
    // icon is drawn and its widgets are built; a window manager takes the
    // icon when it lands), is painted as soon as they stand, and the
    // console's pages are built behind it.
    const KyList<VelmoVpnConsoleReportBox> lastRunReports =
        startHidden ? KyList<VelmoVpnConsoleReportBox>() : VelmoVpnConsoleFailure::takeLastReportBoxes();
    const bool loadingFirst = !startHidden && lastRunReports.isEmpty();
    if (loadingFirst) {
        loadingWindow.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
        velmoVpnConsoleShowLoadingShell(consoleWindow, &loginWindow, &loadingWindow, nullptr);
    }

    // 4. One icon for the windows and the tray.
    const KyPlatformIcon icon = velmoVpnConsoleApplicationIcon(kIconSize);
    consoleWindow.setWindowIcon(icon);
    loginWindow.setWindowIcon(icon);
    loadingWindow.setWindowIcon(icon);
    KySystemTrayIcon tray(&consoleWindow);
    tray.setIcon(icon);
    tray.setToolTip("VELMO VPN Console");
    if (KyMenu* menu = tray.contextMenu()) menu->setPopupWindowStyleSheet(VelmoVpnConsoleStyle::windowCss());

    // 5. Every widget, once.
    VelmoVpnConsoleUi ui;
    buildVelmoVpnConsoleLoadingWindowUi(loadingWindow, ui);
    if (loadingFirst) {
        const VelmoVpnConsoleSession atStart = velmoVpnConsoleSessionAtStart();
        if (ui.loadingOverlay) {
            ui.loadingOverlay->setStatusText(velmoVpnConsoleLoadingStatusText(
                atStart.backendConnected, atStart.authStatus, atStart.loadingFrame));
            ui.loadingOverlay->setActive(true);
        }
        app.paintPending();
    }
    buildVelmoVpnConsoleUi(consoleWindow, ui);
    buildVelmoVpnConsoleLoginWindowUi(loginWindow, ui);
    consoleWindow.ensureChrome();

    // 6. The session state.
    VelmoVpnConsoleSession session = velmoVpnConsoleSessionAtStart();
    session.remoteStatusText = "Disconnected";
    session.baseUrl = velmoVpnConsoleRememberedBaseUrl();
    session.rememberedEmail = velmoVpnConsoleRememberedEmail();
    session.emailHistory = velmoVpnConsoleRememberedEmailHistory();
    session.startHidden = startHidden;

    std::unique_ptr<VelmoVpnAgentProxy> agentProxy;
    std::unique_ptr<VelmoVpnConsoleClient> consoleClient;
    // A call to the agent waits in a nested loop that runs posted work and
    // timers, and the agent may vanish meanwhile: the link objects dropped
    // then are retired, and freed once no call is under way.
    int agentCallDepth = 0;
    std::vector<std::unique_ptr<VelmoVpnAgentProxy>> retiredProxies;
    std::vector<std::unique_ptr<VelmoVpnConsoleClient>> retiredClients;
    auto callAgent = [&](const std::function<void(VelmoVpnAgentProxy&)>& call) {
        VelmoVpnAgentProxy* proxy = agentProxy.get();
        if (!proxy) return;
        ++agentCallDepth;
        call(*proxy);
        if (--agentCallDepth == 0) {
            retiredProxies.clear();
            retiredClients.clear();
        }
    };
    // The windows stay down until the start order reaches them (and, when
    // started hidden, until the user asks for one).
    bool shellsLive = false;
    KyString boundTarget;
    uint32_t boundPid = 0;
    // Whose agent may hear the user's password; the Sign In road
    // (velmoVpnConsoleSendLogin) checks against the same policy.
    const VelmoVpnAgentTrustPolicy trustPolicy = velmoVpnConsoleAgentTrustPolicy();
    if (!trustPolicy.configurationError.isEmpty())
        kyLogWarning(kCategory) << KyString("Ignoring ") + kVelmoVpnTrustedAgentUserVariable + ": " +
                                       trustPolicy.configurationError;
    // The agent last refused, so that a refused agent that is found again
    // every few seconds is logged once.
    KyString lastRefusedAgent;
    VelmoVpnConsoleStateLog stateLog;

    // The console's own lines go to the log view and to the runtime log,
    // where support staff and tests read them.
    auto appendLog = [&ui](const KyString& line) {
        velmoVpnConsoleAppendLog(ui.logEditor, line);
        consoleLog(line);
    };

    // 7. The function objects.
    std::function<void()> refreshMonitor = [&] { velmoVpnConsoleRefreshMonitorWidgets(ui, session); };
    std::function<void()> refreshCatalogList = [&] { velmoVpnConsoleRefreshCatalogWidgets(ui, session); };
    std::function<void()> refreshEndpointList = [&] { velmoVpnConsoleRefreshEndpointWidgets(ui, session); };
    std::function<void()> refreshFilterUi = [&] { velmoVpnConsoleRefreshFilterWidgets(ui, session.backendConnected); };
    std::function<void()> pushFilterState = [&] {
        callAgent([&](VelmoVpnAgentProxy& proxy) {
            velmoVpnConsolePushFilterForm(ui, &proxy, session.backendConnected, session.applyingDefaults);
        });
    };
    auto deactivateOverlay = [&ui] {
        if (ui.loadingOverlay && ui.loadingOverlay->isActive()) ui.loadingOverlay->setActive(false);
    };
    auto showLoadingShell = [&] {
        velmoVpnConsoleShowLoadingShell(consoleWindow, &loginWindow, &loadingWindow, ui.emailCompleter);
    };
    auto showLoginShell = [&] {
        velmoVpnConsoleShowLoginShell(consoleWindow, &loginWindow, &loadingWindow, ui.emailCompleter);
    };
    auto showConsoleShell = [&] {
        velmoVpnConsoleShowConsoleShell(consoleWindow, &loginWindow, &loadingWindow, ui.emailCompleter);
    };
    std::function<void()> showLoadingSurface = [&] {
        if (ui.loadingOverlay) {
            const KyString text =
                velmoVpnConsoleLoadingStatusText(session.backendConnected, session.authStatus, session.loadingFrame);
            if (ui.loadingOverlay->statusText() != text) ui.loadingOverlay->setStatusText(text);
            if (!ui.loadingOverlay->isActive()) ui.loadingOverlay->setActive(true);
        }
        showLoadingShell();
    };
    // Focus for the login form once it is up: the password when the e-mail
    // is already there, the e-mail otherwise.
    auto focusLoginForm = [&ui] {
        KyTimer::singleShot(0, [&ui] {
            KyLineEdit* target = ui.emailField && !ui.emailField->getText().trimmed().isEmpty() ? ui.passwordField
                                                                                                 : ui.emailField;
            if (target && target->isVisible()) target->requestFocus();
        });
    };

    std::function<void()> refreshSessionUi = [&] {
        // 1.
        const VelmoVpnConsoleSessionView view = velmoVpnConsoleSessionView(session);
        // 2.
        setLabelText(ui.authStatusLabel, view.authText);
        setLabelStyle(ui.authStatusLabel, velmoVpnConsoleStatusLabelCss(view.authTone, 12));
        setLabelText(ui.loginStatusLabel, view.authText);
        setLabelStyle(ui.loginStatusLabel, velmoVpnConsoleStatusLabelCss(view.authTone, 12));
        setLabelText(ui.catalogStatusLabel, view.catalogText);
        setLabelStyle(ui.catalogStatusLabel, velmoVpnConsoleStatusLabelCss(view.catalogTone, 12));
        setLabelText(ui.endpointStatusLabel, view.endpointText);
        setLabelStyle(ui.endpointStatusLabel, velmoVpnConsoleStatusLabelCss(view.endpointTone, 12));
        // 3.
        setEnabled(ui.signInButton, view.signInEnabled);
        if (ui.signInButton && ui.signInButton->parentWidget())
            setEnabled(ui.signInButton->parentWidget(), view.signInEnabled);
        // 4.
        setReadOnly(ui.emailField, view.credentialsReadOnly);
        setReadOnly(ui.passwordField, view.credentialsReadOnly);
        setReadOnly(ui.baseUrlField,
                    velmoVpnConsoleBaseUrlReadOnly(view.ready, ui.customBaseUrl && ui.customBaseUrl->isChecked()));
        // 5.
        // A field the user is typing in is left alone: a snapshot arriving
        // meanwhile must not take the typed text away.
        auto typing = [](KyLineEdit* field) { return field->hasFocus() && !field->getReadOnly(); };
        if (ui.baseUrlField && ui.baseUrlField->getText() != session.baseUrl && !typing(ui.baseUrlField))
            ui.baseUrlField->setText(session.baseUrl);
        if (ui.emailField && !typing(ui.emailField)) {
            if (const std::optional<KyString> email = velmoVpnConsoleEmailFieldUpdate(session, ui.emailField->getText()))
                ui.emailField->setText(*email);
        }
        // 6.
        velmoVpnConsoleApplyLoadingLabels(ui.loadingTitleLabel, ui.loadingStatusLabel, ui.loadingDetailLabel,
                                          session.backendConnected, session.authStatus, session.loadingFrame);
        // An agent of another account: its reason stands in the status line.
        setLabelText(ui.loadingStatusLabel, view.loadingStatusText);
        // 7.
        if (KyStatusBar* bar = consoleWindow.statusBar()) {
            setLabelText(ui.statusBarLabel, view.statusBarText);
            bar->updateLayout();
        }
        // 8.
        refreshMonitor();
        // 9.
        const VelmoVpnConsoleShellStep step = velmoVpnConsoleApplyShellDecision(session);
        if (step.changed && shellsLive) {
            if (step.shell == kVelmoVpnConsoleLoadingShell) {
                showLoadingSurface();
            } else if (step.shell == kVelmoVpnConsoleLoginShell) {
                deactivateOverlay();
                showLoginShell();
                focusLoginForm();
            } else if (step.showConsole) {
                deactivateOverlay();
                showConsoleShell();
            } else {
                // Ready on someone else's VPN: the console stays in the
                // tray, and neither the loading nor the login window is
                // left behind on the screen.
                deactivateOverlay();
                loginWindow.hide();
                loadingWindow.hide();
            }
        }
        // 10.
        const VelmoVpnConsoleTuckAway tuck = velmoVpnConsoleApplyTuckAwayRule(session);
        if (tuck.tuckAway && shellsLive) {
            deactivateOverlay();
            if (ui.emailCompleter) ui.emailCompleter->hidePopup();
            consoleWindow.hide();
            loginWindow.hide();
            loadingWindow.hide();
            // The tray of this desktop has no notifications: the text is
            // made and dropped.
            (void)tuck.notificationText;
        }
        stateLog.record(view, session.currentShell);
    };

    // The agent is gone: drop the link and fall back to the loading surface.
    auto loseBackend = [&] {
        if (!session.backendConnected && !agentProxy) return;
        retiredClients.push_back(std::move(consoleClient));
        retiredProxies.push_back(std::move(agentProxy));
        if (agentCallDepth == 0) {
            retiredProxies.clear();
            retiredClients.clear();
        }
        boundTarget = KyString();
        boundPid = 0;
        velmoVpnConsoleApplyBackendLost(session);
        refreshSessionUi();
        refreshFilterUi();
        refreshMonitor();
        appendLog("Backend lost");
    };

    auto snapshotDone = [&](const VelmoVpnConsoleSnapshotFollowUp& followUp) {
        if (followUp.rememberIdentity) {
            velmoVpnConsoleRememberLoginIdentity(session.baseUrl, session.sessionEmail);
            session.rememberedEmail = velmoVpnConsoleRememberedEmail();
            session.emailHistory = velmoVpnConsoleRememberedEmailHistory();
            velmoVpnConsoleRefreshEmailCompleter(ui.emailCompleter, session.emailHistory);
        }
        refreshCatalogList();
        refreshEndpointList();
        refreshSessionUi();
        if (followUp.focusPassword) {
            KyTimer::singleShot(0, [&] {
                if (ui.emailCompleter) ui.emailCompleter->hidePopup();
                if (ui.passwordField && loginWindow.isVisible()) ui.passwordField->requestFocus();
            });
        }
    };

    // Each callback packs its arguments and posts: session work happens on the loop.
    auto post = [&app](std::function<void()> task) { app.postEvent(std::move(task)); };
    VelmoVpnConsoleBackendCallbacks callbacks;
    callbacks.logLine = [&, post](const KyString& line) { post([&, line] { appendLog(line); }); };
    callbacks.stats = [&, post](int rx, int tx, int drop) {
        post([&, rx, tx, drop] {
            session.rxCount = rx;
            session.txCount = tx;
            session.dropCount = drop;
            refreshMonitor();
        });
    };
    callbacks.tunState = [&, post](bool open, const KyString&) {
        post([&, open] {
            session.tunOpen = open;
            refreshMonitor();
        });
    };
    callbacks.wsState = [&, post](int state, const KyString& text) {
        post([&, state, text] {
            session.wsState = state;
            session.remoteStatusText = text;
            refreshCatalogList();
            refreshEndpointList();
            refreshSessionUi();
            refreshMonitor();
        });
    };
    callbacks.clientConfigState = [&, post](const KyString& id, bool) {
        post([&, id] {
            velmoVpnConsoleApplyClientConfigState(session, id);
            refreshMonitor();
        });
    };
    callbacks.assignedNetworkState = [&, post](const KyString&, const KyString&, const KyString&) {
        post([&] { refreshMonitor(); });
    };
    callbacks.authState = [&, post](const KyString& json) {
        post([&, json] { snapshotDone(velmoVpnConsoleApplyAuthState(session, json)); });
    };
    callbacks.vpnCatalogState = [&, post](const KyString& json) {
        post([&, json] { snapshotDone(velmoVpnConsoleApplyCatalogState(session, json)); });
    };
    callbacks.vpnEndpointsState = [&, post](const KyString& json) {
        post([&, json] { snapshotDone(velmoVpnConsoleApplyEndpointsState(session, json)); });
    };

    // An agent run by another account is not bound: the console says so and
    // keeps looking, and the agent never hears from it.
    auto refuseAgent = [&](const VelmoVpnAgentOwner& owner) {
        const KyString key = KyString::number(owner.pid) + ":" + KyString::number(owner.uid);
        if (key != lastRefusedAgent) {
            kyLogWarning(kCategory) << velmoVpnConsoleUntrustedAgentWarning(owner);
            lastRefusedAgent = key;
        }
        const KyString ownerText = velmoVpnConsoleAgentOwnerText(owner);
        if (session.agentUntrusted && session.untrustedAgentOwner == ownerText) return;
        session.agentUntrusted = true;
        session.untrustedAgentOwner = ownerText;
        refreshSessionUi();
    };
    auto forgetRefusedAgent = [&] {
        lastRefusedAgent = KyString();
        if (!session.agentUntrusted) return;
        session.agentUntrusted = false;
        session.untrustedAgentOwner = KyString();
        refreshSessionUi();
    };

    std::function<void(const KyString&)> connectBackend = [&](const KyString& target) {
        if (session.backendConnected) return;
        agentProxy = std::make_unique<VelmoVpnAgentProxy>(domain, target, "VelmoVpnConsole");
        const uint32_t pid = agentProxy->remotePid_();
        if (!pidAlive(pid)) {
            agentProxy.reset();
            return;
        }
        const VelmoVpnAgentOwner owner = velmoVpnConsoleAgentOwner(pid);
        if (!velmoVpnConsoleAgentTrusted(owner, trustPolicy)) {
            agentProxy.reset();
            refuseAgent(owner);
            return;
        }
        session.agentUntrusted = false;
        session.untrustedAgentOwner = KyString();
        lastRefusedAgent = KyString();
        boundPid = pid;
        consoleClient = std::make_unique<VelmoVpnConsoleClient>(domain, "velnet", "gui");
        velmoVpnConsoleBindBackendSignals(domain, target, callbacks);
        boundTarget = target;
        session.backendConnected = true;
        pushFilterState();
        refreshSessionUi();
        refreshFilterUi();
        appendLog(KyString("Backend auto-connected: ") + target);
    };

    // The user's actions.
    auto signIn = [&] {
        if (!agentProxy || !session.backendConnected) return;
        // 1-2.
        if (ui.baseUrlField && ui.emailField)
            velmoVpnConsoleRememberIdentity(ui.baseUrlField->getText(), ui.emailField->getText(), session.baseUrl,
                                            session.rememberedEmail, session.emailHistory, ui.emailCompleter);
        if (ui.emailCompleter) ui.emailCompleter->hidePopup();
        // 3.
        if (!velmoVpnConsoleBeginSignIn(session, true)) return;
        refreshSessionUi();
        // 4-5. The password leaves the field for the call, and the copy is
        // wiped by the call whatever it gives.
        KyString password = ui.passwordField ? ui.passwordField->getText() : KyString();
        if (ui.passwordField) ui.passwordField->clearSecurely();
        VelmoVpnSignInResult result = VelmoVpnSignInResult::NoAgent;
        KyString callError;
        callAgent([&](VelmoVpnAgentProxy& proxy) {
            result = velmoVpnConsoleSendLogin(&proxy, trustPolicy,
                                              ui.baseUrlField ? ui.baseUrlField->getText() : session.baseUrl,
                                              ui.emailField ? ui.emailField->getText() : KyString(), password, 2000);
            if (result == VelmoVpnSignInResult::CallFailed) callError = proxy.lastError("loginUser");
        });
        if (result == VelmoVpnSignInResult::AgentNotTrusted) {
            // Another account's process took the agent's place: let go of it.
            loseBackend();
        } else if (result == VelmoVpnSignInResult::CallFailed && session.authStatus == "authenticating") {
            // No answer will come for a request that never arrived: the form
            // comes back with the reason instead of waiting for ever. An
            // answer that does come later settles the state all the same.
            session.authStatus = "logged_out";
            session.authError = callError.isEmpty() ? KyString("rpc: failed") : callError;
            refreshSessionUi();
            if (ui.passwordField && loginWindow.isVisible()) ui.passwordField->requestFocus();
        }
    };
    auto logout = [&] {
        if (!velmoVpnConsoleBeginLogout(session, agentProxy != nullptr)) return;
        refreshSessionUi();
        callAgent([](VelmoVpnAgentProxy& proxy) { proxy.logoutUser(2000); });
    };
    auto clearLog = [&] {
        if (ui.logEditor) ui.logEditor->clear();
        session.rxCount = 0;
        session.txCount = 0;
        session.dropCount = 0;
        refreshMonitor();
        if (session.backendConnected) callAgent([](VelmoVpnAgentProxy& proxy) { proxy.clearLog(2000); });
    };
    auto filterChanged = [&] { pushFilterState(); };

    // The list callbacks are set on the views first.
    velmoVpnConsoleSetListCallbacks(
        ui,
        [&](const KyString& id) {
            const VelmoVpnConsoleSelectStep step = velmoVpnConsoleSelectHotspot(session, agentProxy != nullptr, id);
            if (!step.selected) return;
            refreshCatalogList();
            refreshEndpointList();
            if (step.askAgent)
                callAgent([&id](VelmoVpnAgentProxy& proxy) { proxy.setInspectedHotspot(id, 2000); });
        },
        [&](const KyString& id, bool enabled) {
            const VelmoVpnConsoleEndpointCall call =
                velmoVpnConsoleJoinHotspot(session, agentProxy != nullptr, id, session.localClientId, enabled);
            if (!call.send) return;
            if (enabled) velmoVpnConsoleStartJoinPulse(ui, id);
            callAgent([&call](VelmoVpnAgentProxy& proxy) {
                proxy.setEndpointVpnState(call.hotspotId, call.clientId, call.enabled, 2000);
            });
            refreshCatalogList();
            refreshEndpointList();
            refreshSessionUi();
        },
        [&](const KyString& clientId, bool enabled) {
            const VelmoVpnConsoleEndpointCall call = velmoVpnConsoleToggleEndpoint(
                session, agentProxy != nullptr, clientId, session.localClientId, enabled);
            if (!call.send) return;
            refreshEndpointList();
            callAgent([&call](VelmoVpnAgentProxy& proxy) {
                proxy.setEndpointVpnState(call.hotspotId, call.clientId, call.enabled, 2000);
            });
        });

    if (ui.customBaseUrl)
        KyObject::connect(ui.customBaseUrl, &KyCheckBox::toggled, [&](bool) { refreshSessionUi(); });
    velmoVpnConsoleWireEmailAssistance(ui, session.emailHistory);
    if (ui.signInButton) KyObject::connect(ui.signInButton, &KyPushButton::clicked, signIn);
    if (ui.filterEnabled) {
        KyObject::connect(ui.filterEnabled, &KyCheckBox::toggled, [&](bool on) {
            if (!on) {
                session.applyingDefaults = true;
                velmoVpnConsoleApplyPassThroughForm(ui);
                session.applyingDefaults = false;
            }
            refreshFilterUi();
            pushFilterState();
        });
    }
    for (KyComboBox* combo : {ui.filterProtocol, ui.filterForwardMode})
        if (combo) KyObject::connect(combo, &KyComboBox::currentIndexChanged, [filterChanged](int) { filterChanged(); });
    for (KyLineEdit* field : {ui.filterSource, ui.filterDestination})
        if (field) KyObject::connect(field, &KyLineEdit::TextChanged, [filterChanged](const KyString&) { filterChanged(); });
    for (KySpinBox* box : {ui.filterPortMin, ui.filterPortMax})
        if (box) KyObject::connect(box, &KySpinBox::valueChanged, [filterChanged](int) { filterChanged(); });
    if (ui.filterFullRoute)
        KyObject::connect(ui.filterFullRoute, &KyCheckBox::toggled, [filterChanged](bool) { filterChanged(); });
    if (ui.filterRangeMode)
        KyObject::connect(ui.filterRangeMode, &KyComboBox::currentIndexChanged, [filterChanged](int) { filterChanged(); });
    for (KyLineEdit* field : {ui.allowedRanges, ui.blockedRanges})
        if (field) KyObject::connect(field, &KyLineEdit::TextChanged, [filterChanged](const KyString&) { filterChanged(); });
    if (ui.clearLogButton) KyObject::connect(ui.clearLogButton, &KyPushButton::clicked, clearLog);

    // 8. The search for the agent.
    KyProxyObjectBrowser<VelmoVpnAgentProxy> browser(domain, "*", "VelmoVpnConsole");
    using AgentInstance = KyPointer<KyProxyObjectInstance<VelmoVpnAgentProxy>>;
    KyObject::connect(&browser, &KyProxyObjectBrowser<VelmoVpnAgentProxy>::remoteAppeared,
                      [&, post](AgentInstance instance) {
                          if (!instance) return;
                          const KyString object = instance->proxy()->object();
                          post([&connectBackend, object] { connectBackend(object); });
                      });
    KyObject::connect(&browser, &KyProxyObjectBrowser<VelmoVpnAgentProxy>::remoteDisappeared,
                      [&, post](AgentInstance instance) {
                          if (!instance) return;
                          const KyString object = instance->proxy()->object();
                          post([&, object] {
                              if (object == boundTarget) loseBackend();
                          });
                      });
    browser.subscribeRegistryChanges_();
    browser.refreshNow();

    // 9. The loading pulse touches the status line and nothing else: the
    // overlay's text, and the label under the ring that shows it, since the
    // overlay only covers the ring.
    KyTimer loadingPulse;
    loadingPulse.setInterval(320);
    KyObject::connect(&loadingPulse, &KyTimer::timeout, [&] {
        session.loadingFrame = (session.loadingFrame + 1) & 3;
        if (ui.loadingOverlay && ui.loadingOverlay->isActive()) {
            const KyString text =
                velmoVpnConsoleLoadingStatusText(session.backendConnected, session.authStatus, session.loadingFrame);
            if (ui.loadingOverlay->statusText() != text) ui.loadingOverlay->setStatusText(text);
            // An untrusted agent's reason stays put; it has no dots.
            if (!session.agentUntrusted || session.backendConnected) setLabelText(ui.loadingStatusLabel, text);
        }
    });
    loadingPulse.start();
    // The pulse only matters while the overlay shows its dots: it rests with
    // the overlay, so a console that sits in the tray all day never wakes
    // for it.
    if (ui.loadingOverlay)
        KyObject::connect(ui.loadingOverlay, &KyLoadingOverlay::activeChanged, [&loadingPulse](bool active) {
            if (active && !loadingPulse.isActive()) loadingPulse.start();
            if (!active) loadingPulse.stop();
        });

    // 10.
    if (!session.startHidden) {
        KyTimer::singleShot(4000, [&] {
            session.bootstrapDone = true;
            refreshSessionUi();
        });
    }

    // 11. The browser may miss an agent whose rows linger or arrive between
    // passes; this probe finds it, and notices an agent that left without
    // its rows being cleaned yet.
    KyTimer agentWatch;
    agentWatch.setInterval(3000);
    KyObject::connect(&agentWatch, &KyTimer::timeout, [&] {
        if (!session.backendConnected) {
            bool present = false;
            {
                VelmoVpnAgentProxy probe(domain, kAgentObject, "probe");
                present = pidAlive(probe.remotePid_());
            }
            if (present)
                connectBackend(kAgentObject);
            else
                forgetRefusedAgent();
            return;
        }
        const uint32_t pid = agentProxy ? agentProxy->remotePid_() : 0;
        if (!pidAlive(pid)) {
            loseBackend();
            return;
        }
        // Another process has taken the agent's object over: it must earn
        // the console's trust as the first one did.
        if (pid != boundPid) {
            const VelmoVpnAgentOwner owner = velmoVpnConsoleAgentOwner(pid);
            if (!velmoVpnConsoleAgentTrusted(owner, trustPolicy)) {
                loseBackend();
                refuseAgent(owner);
                return;
            }
            boundPid = pid;
        }
    });
    agentWatch.start();

    // 12.
    session.applyingDefaults = true;
    velmoVpnConsoleApplyPassThroughForm(ui);
    session.applyingDefaults = false;
    if (ui.filterEnabled) ui.filterEnabled->setChecked(false);

    // 13.
    velmoVpnConsoleRefreshEmailCompleter(ui.emailCompleter, session.emailHistory);
    if (!session.baseUrl.isEmpty() && session.baseUrl != velmoVpnConsoleDefaultBaseUrl() && ui.customBaseUrl)
        ui.customBaseUrl->setChecked(true);
    if (!session.rememberedEmail.isEmpty() && ui.emailField) ui.emailField->setText(session.rememberedEmail);

    // 14.
    refreshFilterUi();
    refreshSessionUi();
    refreshCatalogList();
    refreshEndpointList();
    refreshSessionUi();
    refreshFilterUi();
    refreshMonitor();

    // 15.
    appendLog("VELMO VPN native console started");
    appendLog("Searching for VelmoVpnAgent backend...");

    // 16.
    if (session.startHidden) {
        appendLog("Console started in background mode");
    } else {
        velmoVpnConsoleShowReportBoxes(lastRunReports, nullptr);
        shellsLive = true;
        showLoadingSurface();
    }

    // 17. The session menu, the tray, and one wake of the loop.
    auto openRelevantWindow = [&] {
        shellsLive = true;
        const bool ready = velmoVpnConsoleIsSessionReady(session.backendConnected, session.authStatus);
        const bool loading =
            velmoVpnConsoleShouldShowLoading(session.backendConnected, session.authStatus, session.bootstrapDone);
        velmoVpnConsoleOpenRelevantWindow(
            ready, loading,
            [&] {
                deactivateOverlay();
                showConsoleShell();
            },
            [&] { showLoadingSurface(); },
            [&] {
                deactivateOverlay();
                showLoginShell();
            });
    };
    if (ui.sessionMenu) ui.sessionMenu->addAction("Logout", logout);
    velmoVpnConsoleInstallSaveLogAction(ui, consoleWindow);
    tray.addAction("Show", openRelevantWindow);
    tray.addAction("Logout", logout);
    tray.addAction("Quit", [&] {
        gQuitRequested = true;
        if (session.backendConnected) {
            callAgent([&](VelmoVpnAgentProxy& proxy) {
                const uint32_t pid = proxy.remotePid_();
                if (pid == 0 || !pidAlive(pid)) return;
                appendLog("Requesting backend shutdown...");
                if (!proxy.requestShutdown(1500))
                    appendLog("WARNING: Backend shutdown request failed: " + proxy.lastError("requestShutdown"));
            });
        }
        app.quit();
    });
    KyObject::connect(&tray, &KySystemTrayIcon::doubleClicked, openRelevantWindow);
    tray.show();
    instance.setShowRequestHandler(openRelevantWindow);
    if (ui.loadingOverlay && !ui.loadingOverlay->isActive()) loadingPulse.stop();
    KyTimer::singleShot(400, [] {});

    // 18.
    const int code = app.exec(0);
    consoleLog(KyString("VELMO VPN native console stopped with code ") + KyString::number(code));
    // 19. Reverse order of creation; the agent keeps running.
    agentWatch.stop();
    loadingPulse.stop();
    velmoVpnConsoleUnbindBackendSignals();
    consoleClient.reset();
    agentProxy.reset();
    return code;
}
