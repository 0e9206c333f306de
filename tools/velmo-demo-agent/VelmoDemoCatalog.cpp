// VelmoDemoCatalog: names, addresses and toggles made up from a seed.
#include "tools/velmo-demo-agent/VelmoDemoCatalog.h"

#include <algorithm>

namespace {

const char* const kPlaces[] = {"Berlin", "Lisbon", "Oslo",  "Austin", "Nairobi", "Osaka",
                               "Toronto", "Madrid", "Zurich", "Seoul", "Dublin", "Lima"};
const char* const kKinds[] = {"Office", "Lab", "Build Farm", "Staging", "Field Team", "Support Desk",
                              "Data Center", "Studio"};
const char* const kFirstNames[] = {"Ana", "Bruno", "Chen", "Dana", "Emeka", "Farah",
                                   "Goran", "Hana", "Ivo", "Jia", "Kofi", "Lena"};
const char* const kLastNames[] = {"Pereira", "Schmidt", "Wang", "Okafor", "Novak",
                                  "Haddad", "Sato", "Larsen", "Costa", "Mehta"};
const char* const kDevices[] = {"laptop", "desktop", "phone", "nas", "build-01", "tablet", "pi"};
const char* const kPlatforms[] = {"Linux", "Windows", "macOS", "Android", "iOS"};

template <typename T, std::size_t N>
constexpr std::size_t countOf(const T (&)[N]) { return N; }

// splitmix64: small, fast and the same on every machine, which is all a demo needs.
std::uint64_t mix(std::uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

class Rng {
public:
    explicit Rng(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() { return state_ = mix(state_); }
    int below(int n) { return n <= 0 ? 0 : static_cast<int>(next() % static_cast<std::uint64_t>(n)); }

private:
    std::uint64_t state_;
};

int octetA(int index) { return 40 + index / 250; }
int octetB(int index) { return index % 250; }

KyString subnetPrefix(const VelmoDemoHotspot& h) {
    // "10.a.b.0/24" without its last octet and prefix.
    return h.subnet.left(h.subnet.lastIndexOf('.'));
}

} // namespace

VelmoDemoCatalog::VelmoDemoCatalog(std::uint64_t seed, int hotspotCount) : seed_(seed) {
    const int count = std::clamp(hotspotCount, 0, kMaxHotspots);
    hotspots_.reserve(static_cast<std::size_t>(count));
    Rng rng(mix(seed));
    for (int i = 0; i < count; ++i) {
        VelmoDemoHotspot h;
        const std::uint64_t tag = rng.next();
        h.id = KyString::format("hs-%04x%03d", static_cast<unsigned>(tag & 0xffffu), i + 1);
        const std::size_t place = (tag >> 16) % countOf(kPlaces);
        const std::size_t kind = (tag >> 24) % countOf(kKinds);
        h.name = KyString(kPlaces[place]) + " " + kKinds[kind];
        if (i >= static_cast<int>(countOf(kPlaces))) h.name += " " + KyString::number(i + 1);
        // Every eleventh VPN has no name, every sixth names its owner the old way:
        // a real workspace has both, and the console must cope.
        if (i % 11 == 10) h.name.clear();
        h.ownerUnderOldKey = (i % 6 == 5);
        h.owner = KyString(kFirstNames[(tag >> 32) % countOf(kFirstNames)]) + " " +
                  kLastNames[(tag >> 40) % countOf(kLastNames)];
        h.subnet = KyString::format("10.%d.%d.0/24", octetA(i), octetB(i));
        // Most VPNs are small teams; every fifth one is a big site with a few hundred devices.
        h.endpointCount = (i % 5 == 0) ? 60 + rng.below(kMaxEndpoints - 60 + 1) : 1 + rng.below(24);
        hotspots_.push_back(std::move(h));
    }
}

int VelmoDemoCatalog::indexOf(const KyString& hotspotId) const {
    for (std::size_t i = 0; i < hotspots_.size(); ++i)
        if (hotspots_[i].id == hotspotId) return static_cast<int>(i);
    return -1;
}

const VelmoDemoHotspot* VelmoDemoCatalog::hotspot(const KyString& hotspotId) const {
    const int i = indexOf(hotspotId);
    return i < 0 ? nullptr : &hotspots_[static_cast<std::size_t>(i)];
}

std::vector<VelmoDemoEndpoint> VelmoDemoCatalog::makeEndpoints_(int index) const {
    const VelmoDemoHotspot& h = hotspots_[static_cast<std::size_t>(index)];
    Rng rng(mix(seed_ ^ (0xA5A5A5A5ull * static_cast<std::uint64_t>(index + 1))));
    const KyString prefix = subnetPrefix(h);
    const KyString tag = h.id.mid(3, 4);
    std::vector<VelmoDemoEndpoint> out;
    out.reserve(static_cast<std::size_t>(h.endpointCount));
    for (int n = 0; n < h.endpointCount; ++n) {
        VelmoDemoEndpoint e;
        const KyString first = kFirstNames[rng.below(static_cast<int>(countOf(kFirstNames)))];
        const KyString last = kLastNames[rng.below(static_cast<int>(countOf(kLastNames)))];
        e.id = KyString::format("ep-%s-%03d", tag.c_str(), n + 1);
        e.clientId = KyString::format("cl-%08llx", static_cast<unsigned long long>(rng.next() & 0xffffffffull));
        e.machineName = first.toLower() + "-" + kDevices[rng.below(static_cast<int>(countOf(kDevices)))];
        if (n >= 12) e.machineName += "-" + KyString::number(n + 1);
        e.username = first.toLower() + "." + last.toLower();
        e.platform = kPlatforms[rng.below(static_cast<int>(countOf(kPlatforms)))];
        e.reservedIp = prefix + "." + KyString::number(10 + n);
        e.vpnEnabled = rng.below(5) != 0;
        e.controlOnline = rng.below(3) != 0;
        // Addresses from the documentation range: what a device reports when it is off the VPN.
        if (e.controlOnline) e.currentIp = e.vpnEnabled ? e.reservedIp : "203.0.113." + KyString::number(1 + rng.below(254));
        out.push_back(std::move(e));
    }
    return out;
}

const std::vector<VelmoDemoEndpoint>& VelmoDemoCatalog::endpoints(const KyString& hotspotId) {
    static const std::vector<VelmoDemoEndpoint> none;
    const int i = indexOf(hotspotId);
    if (i < 0) return none;
    auto it = endpoints_.find(hotspotId);
    if (it == endpoints_.end()) it = endpoints_.emplace(hotspotId, makeEndpoints_(i)).first;
    return it->second;
}

VelmoDemoEndpoint* VelmoDemoCatalog::endpoint(const KyString& hotspotId, const KyString& clientId) {
    endpoints(hotspotId);
    auto it = endpoints_.find(hotspotId);
    if (it == endpoints_.end()) return nullptr;
    for (VelmoDemoEndpoint& e : it->second)
        if (e.clientId == clientId) return &e;
    return nullptr;
}

void VelmoDemoCatalog::drift(std::uint64_t step) {
    Rng rng(mix(seed_ + step * 0x2545F4914F6CDD1Dull));
    for (auto& [id, list] : endpoints_) {
        for (VelmoDemoEndpoint& e : list) {
            if (rng.below(20) != 0) continue;
            e.controlOnline = !e.controlOnline;
            e.currentIp = !e.controlOnline ? KyString()
                          : e.vpnEnabled   ? e.reservedIp
                                           : "203.0.113." + KyString::number(1 + rng.below(254));
        }
    }
}

KyString VelmoDemoCatalog::localAddress(const VelmoDemoHotspot& hotspot) {
    return subnetPrefix(hotspot) + ".2/24";
}

KyString VelmoDemoCatalog::gateway(const VelmoDemoHotspot& hotspot) { return subnetPrefix(hotspot) + ".1"; }

KyJsonObject VelmoDemoCatalog::hotspotJson(const VelmoDemoHotspot& h) {
    KyJsonObject o;
    o.insert("id", h.id);
    o.insert("name", h.name);
    o.insert("subnet", h.subnet);
    o.insert(h.ownerUnderOldKey ? "owner" : "ownerLabel", h.owner);
    return o;
}

KyJsonObject VelmoDemoCatalog::endpointJson(const VelmoDemoEndpoint& e) {
    KyJsonObject o;
    o.insert("id", e.id);
    o.insert("clientId", e.clientId);
    o.insert("machineName", e.machineName);
    o.insert("username", e.username);
    o.insert("platform", e.platform);
    o.insert("currentIp", e.currentIp);
    o.insert("reservedIp", e.reservedIp);
    o.insert("vpnEnabled", e.vpnEnabled);
    o.insert("controlOnline", e.controlOnline);
    return o;
}
