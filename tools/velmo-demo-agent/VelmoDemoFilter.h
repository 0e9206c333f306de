// VelmoDemoFilter: the demo agent's local traffic filter, the values that the
// console pushes one key at a time through setRemoteConfig ("filter/..." and
// "vpn/..."), and what they do to the simulated traffic.
//
// A plain value owned by the workspace; it runs on the agent's loop thread
// and takes no locks. Every key is checked before it is stored, so a rejected
// value leaves the filter as it was.
#pragma once

#include "core/types/KyList.h"
#include "core/types/KyString.h"

/// Filter and routing settings of the demo agent, with their effect on traffic.
class VelmoDemoFilter {
public:
    /// Outcome of one key: ok is false for an unknown key or a bad value;
    /// message is the log line to show either way; changed tells whether the
    /// stored value moved.
    struct Result {
        bool ok = false;
        bool changed = false;
        KyString message;
    };

    /// Checks and stores one key. Besides the canonical keys, a few older
    /// spellings are accepted ("filter/source", "filter/portMin", "vpn/fullRoute", ...).
    Result apply(const KyString& key, const KyString& value);

    /// The stored value of a canonical key, as text; empty for an unknown key.
    KyString value(const KyString& key) const;

    /// Every canonical key, in the order the console sends them, then "filter/enabled".
    static KyList<KyString> keys();

    /// The canonical key for key (aliases resolved), or empty when unknown.
    static KyString canonicalKey(const KyString& key);

    /// "a.b.c.d/n" with the host bits cleared, or empty when text is not an
    /// IPv4 address with an optional prefix below 33.
    static KyString normalizeRange(const KyString& text);

    /// Share of packets (0 to 1) that the rules would stop.
    double blockedShare() const;
    /// Share of packets that are really dropped: the blocked share, or 0 in "Log only" mode.
    double dropShare() const { return logOnly() ? 0.0 : blockedShare(); }
    bool logOnly() const { return forwardMode_ == 1; }
    bool fullRoute() const { return fullRoute_; }
    /// True when any rule narrows the traffic.
    bool isRestrictive() const { return blockedShare() > 0.0; }
    /// One line for the log: the rules in force.
    KyString summary() const;

private:
    static bool parseBounded_(const KyString& text, int low, int high, int& out);
    static bool parseBool_(const KyString& text, bool& out);
    static bool parseRangeList_(const KyString& text, KyString& normalized, int& count);

    bool enabled_ = true;
    int protocol_ = 0;
    int forwardMode_ = 0;
    KyString sourceIp_;
    KyString destinationIp_;
    int portMin_ = 0;
    int portMax_ = 65535;
    bool fullRoute_ = false;
    int rangeMode_ = 0;
    KyString allowedRanges_;
    KyString blockedRanges_;
    int allowedCount_ = 0;
    int blockedCount_ = 0;
};
