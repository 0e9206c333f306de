// The "VPNs" tab without its widgets: the header over the endpoint list
// (title and detail line), the way row values are joined and read back from
// a model, and what selecting a VPN, joining one and toggling a device do to
// the session.
//
// refreshEndpointList puts the header texts into its labels; the list models
// build their detail lines with velmoVpnConsoleJoinDetail; delegates and views
// read bool roles through boolFromAny_. The three session steps change the
// session record and say which agent call the caller makes; the caller then
// refreshes the lists (and for a join, marks the pending row and starts the
// pulse). Main thread, like the session; the text functions are pure.
#pragma once

#include <initializer_list>

#include "core/types/KyAny.h"
#include "core/types/KyJsonArray.h"
#include "core/types/KyJsonObject.h"
#include "core/types/KyString.h"

struct VelmoVpnConsoleSession;

/// The separator between the pieces of a detail line: two blanks, a bar, two blanks.
inline constexpr const char* kVelmoVpnConsoleDetailSeparator = "  |  ";

/// The non-empty pieces joined by "  |  "; empty when every piece is.
KyString velmoVpnConsoleJoinDetail(std::initializer_list<KyString> pieces);

/// A role value as a bool: a bool as it is, a number when it is not zero, a
/// text when it reads "true", "1", "yes" or "on" (any case, trimmed); an empty
/// value or anything else is false.
bool boolFromAny_(const KyAny& value);

/// A snapshot member as a bool: a JSON bool as it is, a number when it is not
/// zero; missing, null, text and everything else read as false.
bool velmoVpnConsoleJsonBool(const KyJsonObject& object, const char* key);

/// The owner of a hotspot entry: "ownerLabel", else "owner".
KyString velmoVpnConsoleHotspotOwner(const KyJsonObject& hotspot);

/// Title over the endpoint list: "Select a VPN" without a selection, else the
/// selected entry's "name", else its "id", else inspectedHotspotId itself
/// (while the catalog does not list it).
KyString velmoVpnConsoleEndpointHeaderTitle(const KyJsonArray& hotspots, const KyString& inspectedHotspotId);

/// Detail line over the endpoint list: the selected entry's subnet, "User "
/// and its owner, then "Local client connected" when the selected VPN is the
/// one the local client is on and "Local client selected" when it is not,
/// joined by "  |  " (a missing subnet or owner leaves its piece out). Empty
/// without a selection.
KyString velmoVpnConsoleEndpointHeaderDetail(const KyJsonArray& hotspots, const KyString& inspectedHotspotId,
                                             const KyString& activeHotspotId);

/// What a click on a catalog row's body asks of the caller.
struct VelmoVpnConsoleSelectStep {
    /// The selection was (re)set: endpointStatus is "loading", the error and
    /// the endpoint list are cleared; refresh both lists.
    bool selected = false;
    /// Also call setInspectedHotspot(id) on the agent (2000 ms); its answer
    /// comes as a vpnEndpointsState snapshot.
    bool askAgent = false;
};

/// Selecting the VPN id. Clicking the VPN already inspected does nothing once
/// its endpoint list is loaded (ready, or holding devices); otherwise id
/// becomes inspectedHotspotId and the selection title. The agent is asked only
/// while it is linked (agentProxyPresent and backendConnected).
VelmoVpnConsoleSelectStep velmoVpnConsoleSelectHotspot(VelmoVpnConsoleSession& session, bool agentProxyPresent,
                                                       const KyString& id);

/// A setEndpointVpnState call to make (2000 ms), or none.
struct VelmoVpnConsoleEndpointCall {
    bool send = false;
    KyString hotspotId;
    KyString clientId;
    bool enabled = false;
};

/// The switch of a catalog row: the local client joins (enabled) or leaves
/// hotspot id. Refused unless the agent is linked, id is not empty and the
/// trimmed localClientId is not empty. activeHotspotId becomes the trimmed id
/// when joining and the trimmed localVpnId when leaving. The caller then, when
/// joining, marks id as the catalog model's pendingHotspotId and starts the
/// pulse, makes the call, and refreshes both lists and the session.
VelmoVpnConsoleEndpointCall velmoVpnConsoleJoinHotspot(VelmoVpnConsoleSession& session, bool agentProxyPresent,
                                                       const KyString& id, const KyString& localClientId,
                                                       bool enabled);

/// The switch of an endpoint row: device clientId of the inspected VPN gets
/// (enabled) or loses access. Refused unless the agent is linked and a VPN is
/// inspected. endpointStatus becomes "loading" with no devices listed and
/// "refreshing" otherwise, and the error is cleared (refresh the endpoint
/// list). When the device is the local client, the join rule applies:
/// activeHotspotId becomes inspectedHotspotId when enabled and the trimmed
/// localVpnId when not.
VelmoVpnConsoleEndpointCall velmoVpnConsoleToggleEndpoint(VelmoVpnConsoleSession& session, bool agentProxyPresent,
                                                          const KyString& clientId, const KyString& localClientId,
                                                          bool enabled);
