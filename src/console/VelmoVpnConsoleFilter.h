// The values the "Filtering" tab pushes to the agent, worked out from what
// the form shows.
//
// The console keeps no filter state of its own: every change of the form
// sends all ten remote configuration values, in a fixed order, each as its
// own setRemoteConfig call. While the master box "Filtering active" is off the
// agent gets the pass-through values whatever the widgets show, and a widget
// that does not exist sends its pass-through value too. The widget half reads
// its widgets into a VelmoVpnConsoleFilterForm and makes one call per pair,
// in order; turning filtering off fills the widgets from
// velmoVpnConsolePassThroughForm(). Pure functions; any thread may call them.
#pragma once

#include <optional>
#include <utility>

#include "core/types/KyList.h"
#include "core/types/KyString.h"

/// The filter form as read from its widgets; an empty optional is a widget
/// that does not exist.
struct VelmoVpnConsoleFilterForm {
    /// The master box "Filtering active" is checked.
    bool filteringActive = false;
    /// Combo index: 0 "All", 1 "TCP", 2 "UDP", 3 "ICMP".
    std::optional<int> protocol;
    /// Combo index: 0 "Bridge", 1 "Log only".
    std::optional<int> forwardMode;
    std::optional<KyString> sourceIp;
    std::optional<KyString> destinationIp;
    std::optional<int> portMin;
    std::optional<int> portMax;
    /// "Route all traffic through TUN".
    std::optional<bool> fullRoute;
    /// Combo index: 0 "Allow All", 1 "Allow Only listed", 2 "Block Only listed".
    std::optional<int> rangeMode;
    /// The range rules' backing fields, comma-separated ranges.
    std::optional<KyString> allowedRanges;
    std::optional<KyString> blockedRanges;
};

/// One remote configuration value: key, then value.
using VelmoVpnConsoleConfigPair = std::pair<KyString, KyString>;

/// The ten (key, value) pairs to send, in this order: "filter/protocol",
/// "filter/forward_mode", "filter/src_ip", "filter/dst_ip", "filter/port_min",
/// "filter/port_max", "vpn/full_mode", "vpn/range_mode", "vpn/allowed_ranges",
/// "vpn/blocked_ranges". Numbers in decimal, the full-route box as "true" or
/// "false", texts as they stand. With filtering off, and for every missing
/// widget, the pass-through value: "0", "0", "", "", "0", "65535", "false",
/// "0", "", "".
KyList<VelmoVpnConsoleConfigPair> velmoVpnConsoleFilterConfigPairs(const VelmoVpnConsoleFilterForm& form);

/// The form at its pass-through defaults, as turning filtering off leaves it:
/// first entries of the combo boxes, empty addresses and lists, ports 0 and
/// 65535, full route off; filteringActive false.
VelmoVpnConsoleFilterForm velmoVpnConsolePassThroughForm();
