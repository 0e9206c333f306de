// VelmoDemoCatalog: the demo workspace's VPNs (hotspots) and the devices
// (endpoints) of each, made up from a seed so that every run with the same
// seed shows the same names, addresses and toggles.
//
// Hotspots are made at construction; the endpoints of a hotspot are made the
// first time somebody asks for them, so a catalog of hundreds of VPNs costs
// nothing until one is opened. A plain value owned by the workspace, used on
// the agent's loop thread only.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "core/types/KyJsonObject.h"
#include "core/types/KyString.h"

/// One VPN of the demo catalog.
struct VelmoDemoHotspot {
    KyString id;
    KyString name;   ///< empty for a few entries, as a workspace with unnamed VPNs has
    KyString subnet; ///< "10.a.b.0/24"
    KyString owner;
    bool ownerUnderOldKey = false; ///< sent as "owner" instead of "ownerLabel"
    int endpointCount = 0;
};

/// One device of a demo VPN.
struct VelmoDemoEndpoint {
    KyString id;
    KyString clientId;
    KyString machineName;
    KyString username;
    KyString platform;
    KyString currentIp; ///< empty while the device is offline
    KyString reservedIp;
    bool vpnEnabled = true;
    bool controlOnline = false;
};

/// Seeded catalog of VPNs and their endpoints.
class VelmoDemoCatalog {
public:
    /// Hotspots are clamped to 0..kMaxHotspots; endpoints per hotspot never exceed kMaxEndpoints.
    static constexpr int kMaxHotspots = 500;
    static constexpr int kMaxEndpoints = 240;

    VelmoDemoCatalog(std::uint64_t seed, int hotspotCount);

    const std::vector<VelmoDemoHotspot>& hotspots() const { return hotspots_; }
    /// Index of the hotspot with this id, or -1.
    int indexOf(const KyString& hotspotId) const;
    const VelmoDemoHotspot* hotspot(const KyString& hotspotId) const;

    /// The endpoints of a hotspot (made on first use); empty for an unknown id.
    const std::vector<VelmoDemoEndpoint>& endpoints(const KyString& hotspotId);
    /// The endpoint with this client id in that hotspot, or nullptr.
    VelmoDemoEndpoint* endpoint(const KyString& hotspotId, const KyString& clientId);

    /// Devices come and go: flips the online state of a few endpoints of the
    /// hotspots already opened. step makes successive calls differ.
    void drift(std::uint64_t step);

    /// The address this machine gets in a hotspot, and the gateway there.
    static KyString localAddress(const VelmoDemoHotspot& hotspot);
    static KyString gateway(const VelmoDemoHotspot& hotspot);

    static KyJsonObject hotspotJson(const VelmoDemoHotspot& hotspot);
    static KyJsonObject endpointJson(const VelmoDemoEndpoint& endpoint);

private:
    std::vector<VelmoDemoEndpoint> makeEndpoints_(int index) const;

    std::uint64_t seed_;
    std::vector<VelmoDemoHotspot> hotspots_;
    std::map<KyString, std::vector<VelmoDemoEndpoint>> endpoints_;
};
