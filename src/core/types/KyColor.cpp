// KyColor: hex text forms. Parsing accepts exactly "#rgb" and "#rrggbb";
// names like "red" and functional forms belong to the style-sheet layer.
#include "core/types/KyColor.h"

#include <ostream>

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

} // namespace

std::optional<KyColor> KyColor::parse(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    if (text.size() != 4 && text.size() != 7) return std::nullopt;
    if (text.front() != '#') return std::nullopt;
    text.remove_prefix(1);
    int digits[6] = {};
    for (std::size_t i = 0; i < text.size(); ++i)
        if ((digits[i] = hexDigit(text[i])) < 0) return std::nullopt;
    // "#abc" means "#aabbcc": each short digit times 17.
    if (text.size() == 3) return KyColor(digits[0] * 17, digits[1] * 17, digits[2] * 17);
    return KyColor(digits[0] * 16 + digits[1], digits[2] * 16 + digits[3], digits[4] * 16 + digits[5]);
}

KyColor KyColor::fromName(std::string_view text, const KyColor& fallback) { return parse(text).value_or(fallback); }

KyString KyColor::name() const {
    static const char hex[] = "0123456789abcdef";
    char out[8] = {'#'};
    const std::uint32_t v = rgb();
    for (int i = 0; i < 6; ++i) out[1 + i] = hex[(v >> (20 - 4 * i)) & 0xF];
    return KyString(out, 7);
}

std::ostream& operator<<(std::ostream& os, const KyColor& c) { return os << "KyColor(" << c.name().toStdString() << ")"; }
