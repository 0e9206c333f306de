// The console's session state and what happens to it when the agent speaks.
//
// VelmoVpnConsoleSession is the plain record of everything runVelmoVpnConsole
// knows about the session apart from widgets and the agent link objects (the
// proxy and the console's remote object stay with their owner). The free
// functions below carry out the agent's snapshots on it (authState,
// vpnCatalogState, vpnEndpointsState), the loss of the agent, the start of a
// sign-in or logout, and the pure half of refreshSessionUi: the texts, tones
// and enabled states it shows, which shell it wants, and whether the console
// tucks itself away because the client joined someone else's VPN.
//
// Nothing here touches a widget, the disk or the agent: each function changes
// the record and returns what the caller must still do (remember the identity,
// focus the password field, show a shell). Every snapshot handler is followed
// by refreshCatalogList, refreshEndpointList and refreshSessionUi; the loss of
// the agent by refreshSessionUi, refreshFilterUi and refreshMonitor.
//
// Threads: the record belongs to the main thread, like all session state; the
// agent's signals reach it only through tasks posted to the event loop. The
// functions keep no state of their own.
#pragma once

#include <optional>

#include "console/VelmoVpnConsoleStatus.h"
#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"

/// Values of VelmoVpnConsoleSession::currentShell.
constexpr int kVelmoVpnConsoleLoginShell = 0;
constexpr int kVelmoVpnConsoleLoadingShell = 1;
constexpr int kVelmoVpnConsoleConsoleShell = 2;

/// The session state of one console run, with the values it starts with.
struct VelmoVpnConsoleSession {
    bool backendConnected = false;
    /// An agent was found whose owner the console does not trust: it was not
    /// bound, and while no agent is bound the auth and loading status texts
    /// say so. untrustedAgentOwner is "user nobody", "uid 1234", or empty
    /// when the owner could not be read.
    bool agentUntrusted = false;
    KyString untrustedAgentOwner;

    KyString authStatus = "logged_out";
    /// Server the agent signs in to; velmoVpnConsoleSessionAtStart() puts
    /// the remembered one here.
    KyString baseUrl = velmoVpnConsoleDefaultBaseUrl();
    KyString sessionEmail;
    /// Pre-fill of the login form.
    KyString rememberedEmail;
    /// Completer entries, newest first.
    KyList<KyString> emailHistory;
    KyString displayName;
    KyString workspaceId;
    KyString role;
    /// This device's client id in the workspace ("clientId" of authState):
    /// the key its own row carries in every VPN's device list, which joining
    /// a VPN switches on.
    KyString localClientId;
    /// The VPN the local client is on.
    KyString activeHotspotId;
    /// The client's own VPN, trimmed, from clientConfigState.
    KyString localVpnId;
    KyString authError;
    KyString catalogError;
    KyString endpointError;
    KyString catalogStatus = "idle";
    KyString endpointStatus = "idle";
    /// The VPN selected in the catalog list, and its shown title.
    KyString inspectedHotspotId;
    KyString inspectedHotspotTitle;
    KyJsonArray hotspotsJson;
    KyJsonArray endpointsJson;

    KyString remoteStatusText = "Disconnected";
    /// 0 connecting, 1 connected, any other value down.
    int wsState = 2;
    bool tunOpen = false;
    int rxCount = 0;
    int txCount = 0;
    int dropCount = 0;

    int currentShell = kVelmoVpnConsoleLoginShell;
    /// Dot animation frame, always 0 to 3.
    int loadingFrame = 0;
    /// The grace time of the first seconds is over.
    bool bootstrapDone = false;
    /// Filter pushes are held back while code fills the filter form.
    bool applyingDefaults = false;
    /// No window at start.
    bool startHidden = false;

    /// The foreign VPN the console last tucked itself away for; empty when none.
    KyString announcedHotspotId;
};

/// A fresh session whose baseUrl, rememberedEmail and emailHistory come from
/// the remembered login (the settings file; defaults when it is missing).
VelmoVpnConsoleSession velmoVpnConsoleSessionAtStart();

/// What a snapshot handler leaves to its caller, beyond the three refreshes.
struct VelmoVpnConsoleSnapshotFollowUp {
    /// authState with a signed-in e-mail: remember baseUrl and sessionEmail
    /// as the login identity and read them back into the session.
    bool rememberIdentity = false;
    /// authState with an error: a 0 ms single shot hides the completer popup
    /// and, when the login window is visible, focuses the password field.
    bool focusPassword = false;
    /// vpnCatalogState: the selected VPN has left a ready catalog, and the
    /// selection, its title and the endpoint list were reset. (A ready
    /// catalog resets the endpoint state also when nothing was selected; that
    /// alone does not set this.)
    bool selectionDropped = false;
};

/// Stores an authState snapshot. Every member is read, a missing one as
/// empty, so malformed JSON clears what the snapshot carries; an empty
/// "baseUrl" becomes the default workspace server.
VelmoVpnConsoleSnapshotFollowUp velmoVpnConsoleApplyAuthState(VelmoVpnConsoleSession& session, const KyString& json);
/// Stores a vpnCatalogState snapshot: status, error, the hotspot array
/// ("hotspots", else "nodes" when that gave nothing), and "activeHotspotId"
/// unless it would clear a known id. A ready catalog without the selected VPN
/// drops the selection.
VelmoVpnConsoleSnapshotFollowUp velmoVpnConsoleApplyCatalogState(VelmoVpnConsoleSession& session,
                                                                 const KyString& json);
/// Stores a vpnEndpointsState snapshot: status, error, "devices", the
/// "activeHotspotId" rule of the catalog, and "hotspotId" (else "nodeId") as
/// the selection when it is not empty.
VelmoVpnConsoleSnapshotFollowUp velmoVpnConsoleApplyEndpointsState(VelmoVpnConsoleSession& session,
                                                                   const KyString& json);
/// clientConfigState: the trimmed id becomes localVpnId.
void velmoVpnConsoleApplyClientConfigState(VelmoVpnConsoleSession& session, const KyString& localVpnId);
/// The agent is gone: link, tunnel, remote state and counters fall back to
/// their start values. The session words stay, so the texts return with the agent.
void velmoVpnConsoleApplyBackendLost(VelmoVpnConsoleSession& session);

/// Sign In pressed: with the agent linked (and its proxy present) the status
/// becomes "authenticating" and the error is cleared; true when the caller
/// goes on (remember the identity, refreshSessionUi, loginUser).
bool velmoVpnConsoleBeginSignIn(VelmoVpnConsoleSession& session, bool agentProxyPresent);
/// Logout chosen: with the agent linked (and its proxy present) the three
/// errors are cleared and the status becomes "logging_out"; true when the
/// caller goes on (refreshSessionUi, logoutUser).
bool velmoVpnConsoleBeginLogout(VelmoVpnConsoleSession& session, bool agentProxyPresent);

/// An entry's key in a hotspot array: its "id", or its "name" where "id" is empty.
KyString velmoVpnConsoleHotspotKey(const KyJsonObject& entry);
/// The first object entry whose key is id, or nullptr; non-objects are skipped.
const KyJsonObject* velmoVpnConsoleFindHotspot(const KyJsonArray& hotspots, const KyString& id);
/// The entry's "name", else its "id", else id itself.
KyString velmoVpnConsoleHotspotDisplayName(const KyJsonArray& hotspots, const KyString& id);

/// Everything refreshSessionUi shows that follows from the session alone.
struct VelmoVpnConsoleSessionView {
    bool ready = false;
    /// The loading surface is wanted (when not ready).
    bool loading = true;
    KyString authText;
    KyString catalogText;
    KyString endpointText;
    /// Tones of the three status labels (see velmoVpnConsoleStatusLabelCss).
    int authTone = 0;
    int catalogTone = 0;
    int endpointTone = 0;
    /// The status bar: the three texts and, with a local VPN, that VPN.
    KyString statusBarText;
    /// The loading surface's status line for the current frame.
    KyString loadingStatusText;
    /// Sign In works with the agent linked and no sign-in, restore or logout under way.
    bool signInEnabled = false;
    /// The e-mail and password fields are read-only in a ready session.
    bool credentialsReadOnly = false;
};

/// The view of the session as refreshSessionUi shows it.
VelmoVpnConsoleSessionView velmoVpnConsoleSessionView(const VelmoVpnConsoleSession& session);
/// The auth, catalog and endpoint texts joined by "  |  ", then
/// "  |  Local VPN " and localVpnId when that is not empty.
KyString velmoVpnConsoleStatusBarText(const KyString& authText, const KyString& catalogText,
                                      const KyString& endpointText, const KyString& localVpnId);
/// The base-URL field is read-only in a ready session and while the custom
/// base-URL box is off.
bool velmoVpnConsoleBaseUrlReadOnly(bool ready, bool customBaseUrlChecked);
/// The text the e-mail field must take, or nothing when it stays: the
/// signed-in e-mail when it differs from the field, else the remembered
/// e-mail when no one is signed in and the trimmed field is empty.
std::optional<KyString> velmoVpnConsoleEmailFieldUpdate(const VelmoVpnConsoleSession& session,
                                                        const KyString& fieldText);

/// The shell the session wants: console when ready, loading while
/// velmoVpnConsoleShouldShowLoading holds, login otherwise.
int velmoVpnConsoleShellFor(bool connected, const KyString& authStatus, bool bootstrapDone);
/// "login", "loading" or "console"; "unknown" for any other value.
KyString velmoVpnConsoleShellName(int shell);

/// What refreshSessionUi does with the windows this time.
struct VelmoVpnConsoleShellStep {
    /// currentShell after the step.
    int shell = kVelmoVpnConsoleLoginShell;
    /// currentShell moved to shell, and the caller switches: to loading,
    /// showLoadingSurface; to login, deactivate the overlay, show the login
    /// shell and focus the form; to console, see showConsole.
    bool changed = false;
    /// The console shell is to be shown (overlay off, console window up).
    /// False on a change to the console while the client sits on a foreign
    /// VPN: the console then stays tucked away in the tray.
    bool showConsole = false;
};

/// Decides the shell and stores it in currentShell.
VelmoVpnConsoleShellStep velmoVpnConsoleApplyShellDecision(VelmoVpnConsoleSession& session);

/// The client has joined a foreign VPN: the session is ready, the tunnel is
/// open, the agent's link is connected, and the trimmed activeHotspotId is set
/// and is not the client's own localVpnId.
bool velmoVpnConsoleJoinedForeignVpn(const VelmoVpnConsoleSession& session);

/// The console's move into the tray when the client joins a foreign VPN.
struct VelmoVpnConsoleTuckAway {
    /// Hide the overlay, the completer popup and all three windows now.
    bool tuckAway = false;
    KyString hotspotId;
    KyString displayName;
    /// The tray notification ("VELMO VPN", "Connected to <name>").
    KyString notificationTitle;
    KyString notificationText;
};

/// Applies the tuck-away rule once per joined VPN: forgets the announced id
/// when activeHotspotId is empty or another, and announces a newly joined
/// foreign VPN.
VelmoVpnConsoleTuckAway velmoVpnConsoleApplyTuckAwayRule(VelmoVpnConsoleSession& session);
