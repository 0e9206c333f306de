// VpnRangeRuleSupport: the IPv4/CIDR parser behind every range rule.
#include "console/VpnRangeRuleSupport.h"

#include <cstdint>
#include <string_view>

namespace {

// A run of one or more decimal digits at most limit; anything else (a sign,
// a blank, a letter, nothing at all) is refused. Leading zeros are fine;
// parsing stops as soon as the value passes the limit, so no digit string
// can overflow.
bool parseDecimal(std::string_view digits, unsigned limit, unsigned& out) {
    if (digits.empty()) return false;
    unsigned value = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + unsigned(c - '0');
        if (value > limit) return false;
    }
    out = value;
    return true;
}

// The network bits of a prefix length; a /0 range keeps none of them.
std::uint32_t networkMask(int prefix) { return prefix <= 0 ? 0 : ~std::uint32_t(0) << (32 - prefix); }

} // namespace

bool VpnRangeRuleSupport::parseRange_(const KyString& text, std::uint32_t& address, int& prefix) {
    const KyString trimmed = text.trimmed();
    if (trimmed.isEmpty()) return false;

    KyString host = trimmed;
    unsigned bits = 32;
    const std::size_t slash = trimmed.indexOf('/');
    if (slash != KyString::npos) {
        host = trimmed.left(slash).trimmed();
        if (!parseDecimal(trimmed.mid(slash + 1).trimmed().view(), 32, bits)) return false;
    }

    std::uint32_t value = 0;
    std::string_view rest = host.view();
    for (int group = 0; group < 4; ++group) {
        const std::size_t dot = rest.find('.');
        // The last group runs to the end; the others end at a dot.
        if ((group < 3) == (dot == std::string_view::npos)) return false;
        unsigned octet = 0;
        if (!parseDecimal(rest.substr(0, dot), 255, octet)) return false;
        value = value << 8 | octet;
        rest = group < 3 ? rest.substr(dot + 1) : std::string_view();
    }

    address = value & networkMask(int(bits));
    prefix = int(bits);
    return true;
}

KyString VpnRangeRuleSupport::normalizeRange_(const KyString& text) {
    std::uint32_t value = 0;
    int prefix = 0;
    if (!parseRange_(text, value, prefix)) return KyString();
    return KyString::format("%u.%u.%u.%u/%d", unsigned(value >> 24), unsigned(value >> 16 & 0xff),
                            unsigned(value >> 8 & 0xff), unsigned(value & 0xff), prefix);
}

bool VpnRangeRuleSupport::rangeContains_(std::uint32_t outer, int outerPrefix, std::uint32_t inner, int innerPrefix) {
    return innerPrefix >= outerPrefix && (inner & networkMask(outerPrefix)) == outer;
}
