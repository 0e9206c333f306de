// VelmoDemoFilter: checking, storing and weighing the local filter keys.
#include "tools/velmo-demo-agent/VelmoDemoFilter.h"

#include <algorithm>
#include <cstdint>

namespace {

struct Alias {
    const char* from;
    const char* to;
};

// Canonical keys in the order the console pushes them.
const char* const kKeys[] = {
    "filter/protocol", "filter/forward_mode", "filter/src_ip",       "filter/dst_ip",
    "filter/port_min", "filter/port_max",     "vpn/full_mode",       "vpn/range_mode",
    "vpn/allowed_ranges", "vpn/blocked_ranges", "filter/enabled",
};

// Spellings that older console builds and hand-written scripts use.
const Alias kAliases[] = {
    {"filter/source", "filter/src_ip"},         {"filter/destination", "filter/dst_ip"},
    {"filter/portMin", "filter/port_min"},      {"filter/portMax", "filter/port_max"},
    {"filter/forwardMode", "filter/forward_mode"}, {"vpn/fullRoute", "vpn/full_mode"},
    {"vpn/rangeMode", "vpn/range_mode"},        {"vpn/allowedRanges", "vpn/allowed_ranges"},
    {"vpn/blockedRanges", "vpn/blocked_ranges"},
};

const char* const kProtocolNames[] = {"All", "TCP", "UDP", "ICMP"};
const char* const kForwardNames[] = {"Bridge", "Log only"};
const char* const kRangeModeNames[] = {"Allow All", "Allow Only listed", "Block Only listed"};

// Share of simulated traffic per destination port; the rest is spread evenly.
struct PortShare {
    int port;
    double share;
};
const PortShare kPortMix[] = {{443, 0.45}, {53, 0.15}, {80, 0.10}, {22, 0.05}};
constexpr double kSpreadShare = 0.25;

// Share of traffic that each protocol choice lets through.
const double kProtocolKeep[] = {1.0, 0.70, 0.25, 0.05};

KyString boolText(bool v) { return v ? "true" : "false"; }

} // namespace

KyList<KyString> VelmoDemoFilter::keys() {
    KyList<KyString> out;
    for (const char* key : kKeys) out.append(key);
    return out;
}

KyString VelmoDemoFilter::canonicalKey(const KyString& key) {
    for (const char* k : kKeys)
        if (key == k) return key;
    for (const Alias& a : kAliases)
        if (key == a.from) return a.to;
    return KyString();
}

KyString VelmoDemoFilter::normalizeRange(const KyString& text) {
    const KyString t = text.trimmed();
    if (t.isEmpty()) return KyString();
    KyString address = t;
    int prefix = 32;
    const std::size_t slash = t.indexOf('/');
    if (slash != KyString::npos) {
        address = t.left(slash).trimmed();
        if (!parseBounded_(t.mid(slash + 1).trimmed(), 0, 32, prefix)) return KyString();
    }
    const KyList<KyString> groups = address.split('.');
    if (groups.count() != 4) return KyString();
    std::uint32_t value = 0;
    for (const KyString& g : groups) {
        if (g.isEmpty() || g.size() > 3) return KyString();
        for (char c : g)
            if (c < '0' || c > '9') return KyString();
        const int octet = g.toInt();
        if (octet > 255) return KyString();
        value = (value << 8) | static_cast<std::uint32_t>(octet);
    }
    if (prefix == 0) value = 0;
    else if (prefix < 32) value &= ~((std::uint32_t(1) << (32 - prefix)) - 1);
    return KyString::format("%u.%u.%u.%u/%d", (value >> 24) & 255u, (value >> 16) & 255u, (value >> 8) & 255u,
                            value & 255u, prefix);
}

bool VelmoDemoFilter::parseBounded_(const KyString& text, int low, int high, int& out) {
    bool ok = false;
    const int v = text.toInt(&ok);
    if (!ok || v < low || v > high) return false;
    out = v;
    return true;
}

bool VelmoDemoFilter::parseBool_(const KyString& text, bool& out) {
    const KyString t = text.trimmed().toLower();
    if (t == "true" || t == "1" || t == "yes" || t == "on") { out = true; return true; }
    if (t == "false" || t == "0" || t == "no" || t == "off") { out = false; return true; }
    return false;
}

bool VelmoDemoFilter::parseRangeList_(const KyString& text, KyString& normalized, int& count) {
    KyList<KyString> ranges;
    for (const KyString& piece : text.split(',')) {
        if (piece.trimmed().isEmpty()) continue;
        const KyString range = normalizeRange(piece);
        if (range.isEmpty()) return false;
        ranges.append(range);
    }
    normalized = KyString::join(ranges, ", ");
    count = ranges.count();
    return true;
}

VelmoDemoFilter::Result VelmoDemoFilter::apply(const KyString& key, const KyString& value) {
    Result r;
    const KyString canonical = canonicalKey(key);
    if (canonical.isEmpty()) {
        r.message = "Unknown remote config key: " + key;
        return r;
    }
    const KyString before = this->value(canonical);
    const auto reject = [&](const char* why) {
        r.message = "Rejected " + canonical + " = \"" + value + "\": " + why;
        return r;
    };
    int n = 0;
    bool b = false;
    if (canonical == "filter/protocol") {
        if (!parseBounded_(value, 0, 3, n)) return reject("expected 0 to 3");
        protocol_ = n;
    } else if (canonical == "filter/forward_mode") {
        if (!parseBounded_(value, 0, 1, n)) return reject("expected 0 or 1");
        forwardMode_ = n;
    } else if (canonical == "filter/src_ip" || canonical == "filter/dst_ip") {
        KyString address;
        if (!value.trimmed().isEmpty()) {
            address = normalizeRange(value);
            if (address.isEmpty()) return reject("not an IPv4 address or CIDR range");
        }
        (canonical == "filter/src_ip" ? sourceIp_ : destinationIp_) = address;
    } else if (canonical == "filter/port_min" || canonical == "filter/port_max") {
        if (!parseBounded_(value, 0, 65535, n)) return reject("expected a port from 0 to 65535");
        (canonical == "filter/port_min" ? portMin_ : portMax_) = n;
    } else if (canonical == "vpn/full_mode" || canonical == "filter/enabled") {
        if (!parseBool_(value, b)) return reject("expected true or false");
        (canonical == "vpn/full_mode" ? fullRoute_ : enabled_) = b;
    } else if (canonical == "vpn/range_mode") {
        if (!parseBounded_(value, 0, 2, n)) return reject("expected 0 to 2");
        rangeMode_ = n;
    } else {
        KyString ranges;
        if (!parseRangeList_(value, ranges, n)) return reject("a range is not IPv4 or CIDR notation");
        if (canonical == "vpn/allowed_ranges") {
            allowedRanges_ = ranges;
            allowedCount_ = n;
        } else {
            blockedRanges_ = ranges;
            blockedCount_ = n;
        }
    }
    r.ok = true;
    const KyString after = this->value(canonical);
    r.changed = after != before;
    r.message = "Config " + canonical + " = " + (after.isEmpty() ? KyString("(empty)") : after);
    if (canonical == "filter/protocol") r.message += KyString(" (") + kProtocolNames[protocol_] + ")";
    if (canonical == "filter/forward_mode") r.message += KyString(" (") + kForwardNames[forwardMode_] + ")";
    if (canonical == "vpn/range_mode") r.message += KyString(" (") + kRangeModeNames[rangeMode_] + ")";
    return r;
}

KyString VelmoDemoFilter::value(const KyString& key) const {
    const KyString k = canonicalKey(key);
    if (k == "filter/protocol") return KyString::number(protocol_);
    if (k == "filter/forward_mode") return KyString::number(forwardMode_);
    if (k == "filter/src_ip") return sourceIp_;
    if (k == "filter/dst_ip") return destinationIp_;
    if (k == "filter/port_min") return KyString::number(portMin_);
    if (k == "filter/port_max") return KyString::number(portMax_);
    if (k == "vpn/full_mode") return boolText(fullRoute_);
    if (k == "vpn/range_mode") return KyString::number(rangeMode_);
    if (k == "vpn/allowed_ranges") return allowedRanges_;
    if (k == "vpn/blocked_ranges") return blockedRanges_;
    if (k == "filter/enabled") return boolText(enabled_);
    return KyString();
}

double VelmoDemoFilter::blockedShare() const {
    if (!enabled_) return 0.0;
    double keep = kProtocolKeep[protocol_];
    if (!sourceIp_.isEmpty()) keep *= 0.5;
    if (!destinationIp_.isEmpty()) keep *= 0.5;
    if (portMin_ > 0 || portMax_ < 65535) {
        double ports = 0.0;
        if (portMin_ <= portMax_) {
            for (const PortShare& p : kPortMix)
                if (p.port >= portMin_ && p.port <= portMax_) ports += p.share;
            ports += kSpreadShare * (portMax_ - portMin_ + 1) / 65536.0;
        }
        keep *= ports;
    }
    if (rangeMode_ == 1) keep *= std::min(1.0, 0.2 * allowedCount_);
    if (rangeMode_ == 2) keep *= std::max(0.2, 1.0 - 0.15 * blockedCount_);
    return std::clamp(1.0 - keep, 0.0, 1.0);
}

KyString VelmoDemoFilter::summary() const {
    if (!enabled_) return "Filtering off: all traffic passes";
    KyString s = KyString("Filter: ") + kProtocolNames[protocol_] + ", " + kForwardNames[forwardMode_];
    if (!sourceIp_.isEmpty()) s += ", from " + sourceIp_;
    if (!destinationIp_.isEmpty()) s += ", to " + destinationIp_;
    s += KyString::format(", ports %d-%d", portMin_, portMax_);
    s += KyString(", ") + kRangeModeNames[rangeMode_];
    s += fullRoute_ ? ", full route" : ", split route";
    s += KyString::format(", blocks %d%%", static_cast<int>(blockedShare() * 100.0 + 0.5));
    return s;
}
