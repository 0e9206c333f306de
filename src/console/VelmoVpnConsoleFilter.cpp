// The ten remote configuration values of the filter form, and its pass-through defaults.
#include "console/VelmoVpnConsoleFilter.h"

KyList<VelmoVpnConsoleConfigPair> velmoVpnConsoleFilterConfigPairs(const VelmoVpnConsoleFilterForm& form) {
    // With filtering off every field reads as absent, so the agent gets the
    // pass-through value whatever the widgets still show.
    const bool on = form.filteringActive;
    const auto number = [on](const std::optional<int>& v, int off) { return KyString::number(on && v ? *v : off); };
    const auto text = [on](const std::optional<KyString>& v) { return on && v ? *v : KyString(); };
    const bool fullRoute = on && form.fullRoute.value_or(false);
    return {
        {"filter/protocol", number(form.protocol, 0)},
        {"filter/forward_mode", number(form.forwardMode, 0)},
        {"filter/src_ip", text(form.sourceIp)},
        {"filter/dst_ip", text(form.destinationIp)},
        {"filter/port_min", number(form.portMin, 0)},
        {"filter/port_max", number(form.portMax, 65535)},
        {"vpn/full_mode", fullRoute ? "true" : "false"},
        {"vpn/range_mode", number(form.rangeMode, 0)},
        {"vpn/allowed_ranges", text(form.allowedRanges)},
        {"vpn/blocked_ranges", text(form.blockedRanges)},
    };
}

VelmoVpnConsoleFilterForm velmoVpnConsolePassThroughForm() {
    VelmoVpnConsoleFilterForm form;
    form.protocol = 0;
    form.forwardMode = 0;
    form.sourceIp = KyString();
    form.destinationIp = KyString();
    form.portMin = 0;
    form.portMax = 65535;
    form.fullRoute = false;
    form.rangeMode = 0;
    form.allowedRanges = KyString();
    form.blockedRanges = KyString();
    return form;
}
