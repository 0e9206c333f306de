// The endpoint header texts and the shared readers of the catalog lists.
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
