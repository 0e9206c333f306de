// VpnRangeRuleSupport: what a destination range of a local filter rule may
// look like, and its one canonical spelling.
//
// The agent takes IPv4 ranges in CIDR form, "a.b.c.d/n" with the host bits
// cleared. Users type single addresses, ranges with stray blanks or host bits
// left in; normalizeRange_ turns every acceptable spelling into the canonical
// one and everything else into an empty text, so "is this rule valid" and
// "what does the agent get" are one question. Static functions without state;
// any thread may call them.
#pragma once

#include <cstdint>

#include "core/types/KyString.h"

/// The range rules' parsing and spelling.
class VpnRangeRuleSupport {
public:
    /// "a.b.c.d/n" with the host bits cleared, or empty when text is no IPv4
    /// address or CIDR range. Blanks around the text and around either side of
    /// the first "/" are ignored; the address is four dot-separated groups of
    /// decimal digits, each at most 255, and the prefix a decimal number up to
    /// 32 (32 when there is no "/"). So " 10.44.0.9 / 24 " gives "10.44.0.0/24"
    /// and "192.168.10.12" gives "192.168.10.12/32".
    static KyString normalizeRange_(const KyString& text);
    /// Whether text normalises to a range.
    static bool isValidRange_(const KyString& text) { return !normalizeRange_(text).isEmpty(); }
    /// The range of text as numbers: the network address (host bits cleared)
    /// and the prefix length; false, leaving both alone, when text is no range.
    static bool parseRange_(const KyString& text, std::uint32_t& address, int& prefix);
    /// Whether the range inner lies wholly inside the range outer (both as parseRange_ gives them).
    static bool rangeContains_(std::uint32_t outer, int outerPrefix, std::uint32_t inner, int innerPrefix);
};
