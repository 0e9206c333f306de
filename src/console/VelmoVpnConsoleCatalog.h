// The texts of the "VPNs" tab that follow from the agent's snapshots alone:
// the header over the endpoint list (title and detail line) and the way row
// values are joined and read back from a model.
//
// refreshEndpointList puts these into its labels; the list models build their
// detail lines with velmoVpnConsoleJoinDetail; delegates and views read bool
// roles through boolFromAny_. Pure functions without state, called on the main
// thread; any thread may call them.
#pragma once

#include <initializer_list>

#include "core/types/KyAny.h"
#include "core/types/KyJsonArray.h"
#include "core/types/KyJsonObject.h"
#include "core/types/KyString.h"

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
