// runVelmoVpnConsole: the start order of the console as far as the layers
// beneath it exist — application object, argument keys, session state, the
// search for the local agent and the link to it, the report of a failed
// previous run, then the event loop. The windows hook in at their own steps of
// this order; until they exist the refresh functions carry out their
// non-widget logic and the session's visible texts reach the runtime log.
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

#include "console/VelmoVpnAgentProxy.h"
#include "console/VelmoVpnConsoleAgentTrust.h"
#include "console/VelmoVpnConsoleBackend.h"
#include "console/VelmoVpnConsoleClient.h"
#include "console/VelmoVpnConsoleFailure.h"
#include "console/VelmoVpnConsoleLoginMemory.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VelmoVpnConsoleStateLog.h"
#include "core/io/KyDebug.h"
#include "core/platform/KyStandardPaths.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyTimer.h"
#include "ipc/KyProxyObjectBrowser.h"

bool gQuitRequested = false;

namespace {

constexpr const char* kCategory = "velmo.console";
constexpr const char* kAgentObject = "velnet/VelmoVpnAgent";

void consoleLog(const KyString& line) { kyLogDebug(kCategory) << line; }

bool pidAlive(uint32_t pid) {
    if (pid == 0) return false;
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH;
}

// Tests and a second installation run side by side in their own domains.
KyString ipcDomain() {
    const KyString fromEnvironment = KyStandardPaths::environment("VELMO_IPC_DOMAIN").trimmed();
    return fromEnvironment.isEmpty() ? KyString("velnet") : fromEnvironment;
}

} // namespace

int runVelmoVpnConsole(int argc, char** argv) {
    (void)argc;
    (void)argv;
    KyCoreApplication app;

    // Support staff can make a start fail on purpose to check that the failure
    // files reach them; the text becomes the recorded reason.
    const KyString forcedFailure = KyStandardPaths::environment("VELMO_CONSOLE_FAIL_AT_START").trimmed();
    if (!forcedFailure.isEmpty()) throw std::runtime_error(forcedFailure.toStdString());

    const KyString domain = ipcDomain();
    // The console's remote object keeps its configuration layers with the
    // user's settings, not in whatever directory the console was started from.
    if (KyStandardPaths::environment("KY_CONFIG_ROOT").trimmed().isEmpty())
        KyRemoteObject::setDefaultConfigRoot(KyStandardPaths::configDirectory() + "/velmo/systemConfig");
    VelmoVpnConsoleSession session = velmoVpnConsoleSessionAtStart();
    session.baseUrl = velmoVpnConsoleRememberedBaseUrl();
    session.rememberedEmail = velmoVpnConsoleRememberedEmail();
    session.emailHistory = velmoVpnConsoleRememberedEmailHistory();
    for (const char* key : {"background", "start_hidden", "minimized"}) {
        if (app.hasArgument(key)) {
            session.startHidden = true;
            break;
        }
    }
    std::unique_ptr<VelmoVpnAgentProxy> agentProxy;
    std::unique_ptr<VelmoVpnConsoleClient> consoleClient;
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

    std::function<void()> refreshMonitor = [] {};
    std::function<void()> refreshCatalogList = [] {};
    std::function<void()> refreshEndpointList = [] {};
    std::function<void()> refreshFilterUi = [] {};
    std::function<void()> pushFilterState = [] {};
    std::function<void()> showLoadingSurface = [] {};

    // The loading surface's animation frame. It ticks only while that
    // surface is up: an idle console (signed in, or waiting at the login)
    // must not wake three times a second for a frame nobody shows.
    KyTimer loadingPulse;
    loadingPulse.setInterval(320);
    KyObject::connect(&loadingPulse, &KyTimer::timeout, [&] { session.loadingFrame = (session.loadingFrame + 1) & 3; });

    std::function<void()> refreshSessionUi = [&] {
        const VelmoVpnConsoleSessionView view = velmoVpnConsoleSessionView(session);
        refreshMonitor();
        const VelmoVpnConsoleShellStep step = velmoVpnConsoleApplyShellDecision(session);
        if (step.changed && step.shell == kVelmoVpnConsoleLoadingShell) showLoadingSurface();
        if (session.currentShell != kVelmoVpnConsoleLoadingShell)
            loadingPulse.stop();
        else if (!loadingPulse.isActive())
            loadingPulse.start();
        velmoVpnConsoleApplyTuckAwayRule(session);
        stateLog.record(view, session.currentShell);
    };

    // The agent is gone: drop the link and fall back to the loading surface.
    auto loseBackend = [&] {
        if (!session.backendConnected && !agentProxy) return;
        consoleClient.reset();
        agentProxy.reset();
        boundTarget = KyString();
        boundPid = 0;
        velmoVpnConsoleApplyBackendLost(session);
        refreshSessionUi();
        refreshFilterUi();
        refreshMonitor();
        consoleLog("Backend lost");
    };

    auto snapshotDone = [&](const VelmoVpnConsoleSnapshotFollowUp& followUp) {
        if (followUp.rememberIdentity) {
            velmoVpnConsoleRememberLoginIdentity(session.baseUrl, session.sessionEmail);
            session.rememberedEmail = velmoVpnConsoleRememberedEmail();
            session.emailHistory = velmoVpnConsoleRememberedEmailHistory();
        }
        refreshCatalogList();
        refreshEndpointList();
        refreshSessionUi();
    };

    // Each callback packs its arguments and posts: session work happens on the loop.
    auto post = [&app](std::function<void()> task) { app.postEvent(std::move(task)); };
    VelmoVpnConsoleBackendCallbacks callbacks;
    callbacks.logLine = [&, post](const KyString& line) { post([line] { consoleLog(line); }); };
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
        consoleLog(KyString("Backend auto-connected: ") + target);
    };

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

    if (!session.startHidden) {
        KyTimer::singleShot(4000, [&] {
            session.bootstrapDone = true;
            refreshSessionUi();
        });
    }

    // The browser may miss an agent whose rows linger or arrive between
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

    refreshFilterUi();
    refreshSessionUi();
    refreshCatalogList();
    refreshEndpointList();
    refreshSessionUi();
    refreshFilterUi();
    refreshMonitor();

    consoleLog("VELMO VPN native console started");
    consoleLog("Searching for VelmoVpnAgent backend...");
    if (session.startHidden)
        consoleLog("Console started in background mode");
    else
        velmoVpnConsoleShowLastCrashReport(nullptr);
    KyTimer::singleShot(400, [] {});

    const int code = app.exec(0);
    consoleLog(KyString("VELMO VPN native console stopped with code ") + KyString::number(code));
    // Reverse order of creation; the agent keeps running.
    agentWatch.stop();
    loadingPulse.stop();
    velmoVpnConsoleUnbindBackendSignals();
    consoleClient.reset();
    agentProxy.reset();
    return code;
}
