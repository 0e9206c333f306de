// Value order and case folding for sorting and filtering item data.
#include "gui/modelview/KyModelTypes.h"

#include <cstdint>
#include <typeinfo>

namespace {

// The numeric types a model is likely to hold; text that looks like a number
// is still text (a CIDR such as "10.0.0.0/8" must not sort as 10).
bool readNumber(const KyAny& v, double& out) {
    const std::type_info& t = v.type();
    if (t == typeid(bool) || t == typeid(int) || t == typeid(unsigned) || t == typeid(long) ||
        t == typeid(unsigned long) || t == typeid(long long) || t == typeid(unsigned long long) ||
        t == typeid(short) || t == typeid(unsigned short) || t == typeid(double) || t == typeid(float) ||
        t == typeid(std::int8_t) || t == typeid(std::uint8_t)) {
        return v.convertTo(out);
    }
    return false;
}

char32_t foldCodePoint(char32_t c) {
    if (c < 0x80) return (c >= 'A' && c <= 'Z') ? c + 32 : c;
    if ((c >= 0xC0 && c <= 0xDE && c != 0xD7)) return c + 32;            // Latin-1 capitals
    if (c >= 0x100 && c <= 0x137) return c | 1;                           // Latin Extended-A, even capitals
    if (c >= 0x139 && c <= 0x148) return (c & 1) ? c + 1 : c;             // odd capitals
    if (c >= 0x14A && c <= 0x177) return c | 1;
    if (c == 0x178) return 0xFF;
    if (c >= 0x179 && c <= 0x17E) return (c & 1) ? c + 1 : c;
    if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) return c + 32;            // Greek
    if (c >= 0x410 && c <= 0x42F) return c + 32;                          // Cyrillic
    if (c >= 0x400 && c <= 0x40F) return c + 80;
    return c;
}

// Decodes one well-formed UTF-8 sequence at s[i]; returns its length, 0 when
// the bytes there are not one.
std::size_t decode(std::string_view s, std::size_t i, char32_t& cp) {
    const unsigned char b0 = static_cast<unsigned char>(s[i]);
    std::size_t n = b0 < 0xC2 ? 0 : b0 < 0xE0 ? 2 : b0 < 0xF0 ? 3 : b0 < 0xF5 ? 4 : 0;
    if (n == 0 || i + n > s.size()) return 0;
    cp = b0 & (0xFF >> (n + 1));
    for (std::size_t k = 1; k < n; ++k) {
        const unsigned char b = static_cast<unsigned char>(s[i + k]);
        if ((b & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (b & 0x3F);
    }
    return n;
}

void foldInto(std::string_view text, std::string& out) {
    out.clear();
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char b = static_cast<unsigned char>(text[i]);
        if (b < 0x80) {
            out.push_back(static_cast<char>((b >= 'A' && b <= 'Z') ? b + 32 : b));
            ++i;
            continue;
        }
        char32_t cp = 0;
        const std::size_t n = decode(text, i, cp);
        if (n == 0) {
            out.push_back(static_cast<char>(b));
            ++i;
            continue;
        }
        const char32_t folded = foldCodePoint(cp);
        if (folded == cp) out.append(text.substr(i, n));
        else KyString::appendCodePoint(out, folded);
        i += n;
    }
}

} // namespace

std::string kyFoldCase(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    foldInto(text, out);
    return out;
}

bool kyContainsFolded(std::string_view text, std::string_view foldedNeedle, std::string& scratch) {
    if (foldedNeedle.empty()) return true;
    if (text.size() < foldedNeedle.size()) {
        // Folding never shortens ASCII and keeps every multi-byte letter's
        // length, so a shorter text cannot hold the needle.
        return false;
    }
    foldInto(text, scratch);
    return scratch.find(foldedNeedle) != std::string::npos;
}

KyItemSortKey kyItemSortKey(const KyAny& value) {
    KyItemSortKey key;
    if (!value.isValid()) return key;
    key.kind = readNumber(value, key.number) ? KyItemSortKey::Number : KyItemSortKey::Text;
    // A number beside text compares as its text, so numbers keep theirs too.
    key.text = value.toString().str();
    foldInto(key.text, key.folded);
    return key;
}

int kyCompareSortKeys(const KyItemSortKey& a, const KyItemSortKey& b) {
    if (a.kind == KyItemSortKey::Empty || b.kind == KyItemSortKey::Empty)
        return int(a.kind != KyItemSortKey::Empty) - int(b.kind != KyItemSortKey::Empty);
    if (a.kind == KyItemSortKey::Number && b.kind == KyItemSortKey::Number)
        return a.number < b.number ? -1 : (b.number < a.number ? 1 : 0);
    if (const int c = a.folded.compare(b.folded)) return c < 0 ? -1 : 1;
    const int c = a.text.compare(b.text);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int kyCompareItemData(const KyAny& a, const KyAny& b) { return kyCompareSortKeys(kyItemSortKey(a), kyItemSortKey(b)); }
