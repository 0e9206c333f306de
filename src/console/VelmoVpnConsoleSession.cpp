// The session record and its transitions. See the header for the model.
#include "console/VelmoVpnConsoleSession.h"

#include "console/VelmoVpnConsoleAgentTrust.h"
#include "console/VelmoVpnConsoleLoginMemory.h"
#include "console/VelmoVpnConsoleStatus.h"
#include "core/types/KyJsonHelpers.h"

namespace {

// A member that is missing or not an array reads as an empty array.
KyJsonArray arrayMember_(const KyJsonObject& object, const char* key) {
    const KyJsonValue* value = object.valuePtr(key);
    return value && value->isArray() ? value->asArray() : KyJsonArray();
}

// Catalog and endpoint snapshots may carry an empty "activeHotspotId" while
// the agent is between states; that must not make the console forget which
// VPN the client is on.
void storeActiveHotspotId_(VelmoVpnConsoleSession& session, const KyJsonObject& object) {
    const KyString id = jsonStringValue(object, "activeHotspotId");
    if (!id.isEmpty() || session.activeHotspotId.isEmpty()) session.activeHotspotId = id;
}

bool agentBusyWithSession_(const KyString& authStatus) {
    return authStatus == "authenticating" || authStatus == "restoring" || authStatus == "logging_out";
}

} // namespace

VelmoVpnConsoleSession velmoVpnConsoleSessionAtStart() {
    VelmoVpnConsoleSession session;
    session.baseUrl = velmoVpnConsoleRememberedBaseUrl();
    session.rememberedEmail = velmoVpnConsoleRememberedEmail();
    session.emailHistory = velmoVpnConsoleRememberedEmailHistory();
    return session;
}

VelmoVpnConsoleSnapshotFollowUp velmoVpnConsoleApplyAuthState(VelmoVpnConsoleSession& session, const KyString& json) {
    const KyJsonObject object = parseJsonObjectOrEmpty(json);
    session.authStatus = jsonStringValue(object, "status");
    session.baseUrl = jsonStringValue(object, "baseUrl");
    if (session.baseUrl.isEmpty()) session.baseUrl = velmoVpnConsoleDefaultBaseUrl();
    session.sessionEmail = jsonStringValue(object, "email");
    session.displayName = jsonStringValue(object, "displayName");
    session.workspaceId = jsonStringValue(object, "workspaceId");
    session.role = jsonStringValue(object, "role");
    session.localClientId = jsonStringValue(object, "clientId").trimmed();
    session.activeHotspotId = jsonStringValue(object, "activeHotspotId");
    session.authError = jsonStringValue(object, "error");

    VelmoVpnConsoleSnapshotFollowUp followUp;
    followUp.rememberIdentity = !session.sessionEmail.isEmpty();
    followUp.focusPassword = !session.authError.isEmpty();
    return followUp;
}

VelmoVpnConsoleSnapshotFollowUp velmoVpnConsoleApplyCatalogState(VelmoVpnConsoleSession& session,
                                                                 const KyString& json) {
    const KyJsonObject object = parseJsonObjectOrEmpty(json);
    session.catalogStatus = jsonStringValue(object, "status");
    session.catalogError = jsonStringValue(object, "error");
    storeActiveHotspotId_(session, object);
    session.hotspotsJson = arrayMember_(object, "hotspots");
    // Older agents call the hotspots "nodes".
    if (session.hotspotsJson.isEmpty()) session.hotspotsJson = arrayMember_(object, "nodes");

    VelmoVpnConsoleSnapshotFollowUp followUp;
    const bool selectionListed =
        velmoVpnConsoleFindHotspot(session.hotspotsJson, session.inspectedHotspotId) != nullptr;
    // A catalog that is still loading may be partial: only a ready one proves
    // that the selected VPN is gone.
    if (!selectionListed && session.catalogStatus == "ready") {
        const bool hadSelection = !session.inspectedHotspotId.isEmpty();
        session.inspectedHotspotId.clear();
        session.inspectedHotspotTitle.clear();
        session.endpointError.clear();
        session.endpointStatus = "idle";
        session.endpointsJson.clear();
        followUp.selectionDropped = hadSelection;
    }
    return followUp;
}

VelmoVpnConsoleSnapshotFollowUp velmoVpnConsoleApplyEndpointsState(VelmoVpnConsoleSession& session,
                                                                   const KyString& json) {
    const KyJsonObject object = parseJsonObjectOrEmpty(json);
    session.endpointStatus = jsonStringValue(object, "status");
    session.endpointError = jsonStringValue(object, "error");
    KyString hotspotId = jsonStringValue(object, "hotspotId");
    if (hotspotId.isEmpty()) hotspotId = jsonStringValue(object, "nodeId");
    if (!hotspotId.isEmpty()) session.inspectedHotspotId = hotspotId;
    storeActiveHotspotId_(session, object);
    session.endpointsJson = arrayMember_(object, "devices");
    return VelmoVpnConsoleSnapshotFollowUp();
}

void velmoVpnConsoleApplyClientConfigState(VelmoVpnConsoleSession& session, const KyString& localVpnId) {
    session.localVpnId = localVpnId.trimmed();
}

void velmoVpnConsoleApplyBackendLost(VelmoVpnConsoleSession& session) {
    session.backendConnected = false;
    session.tunOpen = false;
    session.wsState = 2;
    session.remoteStatusText = "Disconnected";
    session.rxCount = 0;
    session.txCount = 0;
    session.dropCount = 0;
}

bool velmoVpnConsoleBeginSignIn(VelmoVpnConsoleSession& session, bool agentProxyPresent) {
    if (!agentProxyPresent || !session.backendConnected) return false;
    session.authStatus = "authenticating";
    session.authError.clear();
    return true;
}

bool velmoVpnConsoleBeginLogout(VelmoVpnConsoleSession& session, bool agentProxyPresent) {
    if (!agentProxyPresent || !session.backendConnected) return false;
    session.authError.clear();
    session.catalogError.clear();
    session.endpointError.clear();
    session.authStatus = "logging_out";
    return true;
}

KyString velmoVpnConsoleHotspotKey(const KyJsonObject& entry) {
    const KyString id = jsonStringValue(entry, "id");
    return id.isEmpty() ? jsonStringValue(entry, "name") : id;
}

const KyJsonObject* velmoVpnConsoleFindHotspot(const KyJsonArray& hotspots, const KyString& id) {
    for (const KyJsonValue& item : hotspots) {
        const KyJsonObject* entry = item.objectPtr();
        if (entry && velmoVpnConsoleHotspotKey(*entry) == id) return entry;
    }
    return nullptr;
}

KyString velmoVpnConsoleHotspotDisplayName(const KyJsonArray& hotspots, const KyString& id) {
    if (const KyJsonObject* entry = velmoVpnConsoleFindHotspot(hotspots, id)) {
        const KyString name = jsonStringValue(*entry, "name");
        if (!name.isEmpty()) return name;
        const KyString entryId = jsonStringValue(*entry, "id");
        if (!entryId.isEmpty()) return entryId;
    }
    return id;
}

VelmoVpnConsoleSessionView velmoVpnConsoleSessionView(const VelmoVpnConsoleSession& session) {
    VelmoVpnConsoleSessionView view;
    const bool connected = session.backendConnected;
    view.ready = velmoVpnConsoleIsSessionReady(connected, session.authStatus);
    view.loading = velmoVpnConsoleShouldShowLoading(connected, session.authStatus, session.bootstrapDone);
    view.authText = velmoVpnConsoleAuthStatusText(connected, session.authStatus, session.authError);
    view.catalogText = velmoVpnConsoleCatalogStatusText(session.catalogStatus, session.catalogError);
    view.endpointText = velmoVpnConsoleEndpointStatusText(session.inspectedHotspotId, session.endpointStatus,
                                                          session.endpointError);
    view.authTone = velmoVpnConsoleStatusTone(!session.authError.isEmpty(), view.ready);
    view.catalogTone = velmoVpnConsoleStatusTone(!session.catalogError.isEmpty(), session.catalogStatus == "ready");
    view.endpointTone =
        velmoVpnConsoleStatusTone(!session.endpointError.isEmpty(), session.endpointStatus == "ready");
    view.statusBarText =
        velmoVpnConsoleStatusBarText(view.authText, view.catalogText, view.endpointText, session.localVpnId);
    view.loadingStatusText = velmoVpnConsoleLoadingStatusText(connected, session.authStatus, session.loadingFrame);
    // An agent of another account is no agent to sign in to: say why the
    // search goes on, in the colour of an error.
    if (!connected && session.agentUntrusted) {
        view.authText = velmoVpnConsoleUntrustedAgentText(session.untrustedAgentOwner);
        view.authTone = velmoVpnConsoleStatusTone(true, false);
        view.statusBarText =
            velmoVpnConsoleStatusBarText(view.authText, view.catalogText, view.endpointText, session.localVpnId);
        view.loadingStatusText = view.authText;
    }
    view.signInEnabled = connected && !agentBusyWithSession_(session.authStatus);
    view.credentialsReadOnly = view.ready;
    return view;
}

KyString velmoVpnConsoleStatusBarText(const KyString& authText, const KyString& catalogText,
                                      const KyString& endpointText, const KyString& localVpnId) {
    KyString text = authText + "  |  " + catalogText + "  |  " + endpointText;
    if (!localVpnId.isEmpty()) text += KyString("  |  Local VPN ") + localVpnId;
    return text;
}

bool velmoVpnConsoleBaseUrlReadOnly(bool ready, bool customBaseUrlChecked) { return ready || !customBaseUrlChecked; }

std::optional<KyString> velmoVpnConsoleEmailFieldUpdate(const VelmoVpnConsoleSession& session,
                                                        const KyString& fieldText) {
    if (session.sessionEmail.isEmpty()) {
        if (fieldText.trimmed().isEmpty() && !session.rememberedEmail.isEmpty()) return session.rememberedEmail;
        return std::nullopt;
    }
    if (session.sessionEmail != fieldText) return session.sessionEmail;
    return std::nullopt;
}

int velmoVpnConsoleShellFor(bool connected, const KyString& authStatus, bool bootstrapDone) {
    if (velmoVpnConsoleIsSessionReady(connected, authStatus)) return kVelmoVpnConsoleConsoleShell;
    if (velmoVpnConsoleShouldShowLoading(connected, authStatus, bootstrapDone)) return kVelmoVpnConsoleLoadingShell;
    return kVelmoVpnConsoleLoginShell;
}

KyString velmoVpnConsoleShellName(int shell) {
    switch (shell) {
    case kVelmoVpnConsoleLoginShell: return "login";
    case kVelmoVpnConsoleLoadingShell: return "loading";
    case kVelmoVpnConsoleConsoleShell: return "console";
    default: return "unknown";
    }
}

VelmoVpnConsoleShellStep velmoVpnConsoleApplyShellDecision(VelmoVpnConsoleSession& session) {
    VelmoVpnConsoleShellStep step;
    step.shell = velmoVpnConsoleShellFor(session.backendConnected, session.authStatus, session.bootstrapDone);
    step.changed = step.shell != session.currentShell;
    // On a foreign VPN the console belongs in the tray; opening it there
    // would only flash it before the tuck-away hides it.
    step.showConsole =
        step.changed && step.shell == kVelmoVpnConsoleConsoleShell && !velmoVpnConsoleJoinedForeignVpn(session);
    session.currentShell = step.shell;
    return step;
}

bool velmoVpnConsoleJoinedForeignVpn(const VelmoVpnConsoleSession& session) {
    if (!velmoVpnConsoleIsSessionReady(session.backendConnected, session.authStatus)) return false;
    if (!session.tunOpen || session.wsState != 1) return false;
    const KyString active = session.activeHotspotId.trimmed();
    if (active.isEmpty()) return false;
    return session.localVpnId.isEmpty() || session.localVpnId != active;
}

VelmoVpnConsoleTuckAway velmoVpnConsoleApplyTuckAwayRule(VelmoVpnConsoleSession& session) {
    const KyString active = session.activeHotspotId.trimmed();
    // Leaving the VPN, or moving to another one, makes the next join news again.
    if (active.isEmpty() || active != session.announcedHotspotId) session.announcedHotspotId.clear();

    VelmoVpnConsoleTuckAway result;
    if (!velmoVpnConsoleJoinedForeignVpn(session) || session.announcedHotspotId == active) return result;
    result.tuckAway = true;
    result.hotspotId = active;
    result.displayName = velmoVpnConsoleHotspotDisplayName(session.hotspotsJson, active);
    result.notificationTitle = "VELMO VPN";
    result.notificationText = KyString("Connected to ") + result.displayName;
    session.announcedHotspotId = active;
    return result;
}
