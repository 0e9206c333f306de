// The endpoint header texts, the shared readers of the catalog lists, and
// the session steps of selecting, joining and toggling.
#include "console/VelmoVpnConsoleCatalog.h"

#include "console/VelmoVpnConsoleSession.h"
#include "core/types/KyJsonHelpers.h"

KyString velmoVpnConsoleJoinDetail(std::initializer_list<KyString> pieces) {
    KyString text;
    for (const KyString& piece : pieces) {
        if (piece.isEmpty()) continue;
        if (!text.isEmpty()) text += kVelmoVpnConsoleDetailSeparator;
        text += piece;
    }
    return text;
}

bool boolFromAny_(const KyAny& value) {
    // KyAny reads bools, numbers and the usual words; whatever it cannot read
    // (an empty value, a colour, a text like "maybe") is false.
    return value.value<bool>(false);
}

bool velmoVpnConsoleJsonBool(const KyJsonObject& object, const char* key) {
    const KyJsonValue* value = object.valuePtr(key);
    if (!value) return false;
    if (value->isBool()) return value->toBool();
    if (value->isNumber()) return value->toDouble() != 0.0;
    return false;
}

KyString velmoVpnConsoleHotspotOwner(const KyJsonObject& hotspot) {
    const KyString label = jsonStringValue(hotspot, "ownerLabel");
    return label.isEmpty() ? jsonStringValue(hotspot, "owner") : label;
}

KyString velmoVpnConsoleEndpointHeaderTitle(const KyJsonArray& hotspots, const KyString& inspectedHotspotId) {
    if (inspectedHotspotId.isEmpty()) return "Select a VPN";
    return velmoVpnConsoleHotspotDisplayName(hotspots, inspectedHotspotId);
}

KyString velmoVpnConsoleEndpointHeaderDetail(const KyJsonArray& hotspots, const KyString& inspectedHotspotId,
                                             const KyString& activeHotspotId) {
    if (inspectedHotspotId.isEmpty()) return KyString();
    KyString subnet, owner;
    if (const KyJsonObject* entry = velmoVpnConsoleFindHotspot(hotspots, inspectedHotspotId)) {
        subnet = jsonStringValue(*entry, "subnet");
        owner = velmoVpnConsoleHotspotOwner(*entry);
    }
    const bool connected = inspectedHotspotId == activeHotspotId;
    return velmoVpnConsoleJoinDetail({subnet, owner.isEmpty() ? KyString() : "User " + owner,
                                      connected ? "Local client connected" : "Local client selected"});
}

VelmoVpnConsoleSelectStep velmoVpnConsoleSelectHotspot(VelmoVpnConsoleSession& session, bool agentProxyPresent,
                                                       const KyString& id) {
    VelmoVpnConsoleSelectStep step;
    const bool loaded = session.endpointStatus == "ready" || !session.endpointsJson.isEmpty();
    if (id == session.inspectedHotspotId && loaded) return step;
    session.inspectedHotspotId = id;
    session.inspectedHotspotTitle = id;
    session.endpointStatus = "loading";
    session.endpointError.clear();
    session.endpointsJson.clear();
    step.selected = true;
    step.askAgent = agentProxyPresent && session.backendConnected;
    return step;
}

VelmoVpnConsoleEndpointCall velmoVpnConsoleJoinHotspot(VelmoVpnConsoleSession& session, bool agentProxyPresent,
                                                       const KyString& id, const KyString& localClientId,
                                                       bool enabled) {
    VelmoVpnConsoleEndpointCall call;
    const KyString client = localClientId.trimmed();
    if (!agentProxyPresent || !session.backendConnected || id.isEmpty() || client.isEmpty()) return call;
    // Shown at once; the agent's next snapshot confirms or corrects it.
    session.activeHotspotId = enabled ? id.trimmed() : session.localVpnId.trimmed();
    call = {true, id, client, enabled};
    return call;
}

VelmoVpnConsoleEndpointCall velmoVpnConsoleToggleEndpoint(VelmoVpnConsoleSession& session, bool agentProxyPresent,
                                                          const KyString& clientId, const KyString& localClientId,
                                                          bool enabled) {
    VelmoVpnConsoleEndpointCall call;
    if (!agentProxyPresent || !session.backendConnected || session.inspectedHotspotId.isEmpty()) return call;
    session.endpointStatus = session.endpointsJson.isEmpty() ? "loading" : "refreshing";
    session.endpointError.clear();
    // Switching the local client's own device is a join or a leave. A device
    // without a client id is never taken for the local client.
    const KyString client = clientId.trimmed();
    if (!client.isEmpty() && client == localClientId.trimmed())
        session.activeHotspotId = enabled ? session.inspectedHotspotId : session.localVpnId.trimmed();
    call = {true, session.inspectedHotspotId, clientId, enabled};
    return call;
}
