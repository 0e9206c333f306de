// KyString implementation: searching, trimming, splitting, strict number
// conversion, argument substitution and UTF-8 <-> wide/UTF-32 conversion.
#include "core/types/KyString.h"

#include <locale.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <ostream>
#include <stdexcept>

#include "core/types/KyList.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

[[noreturn]] void throwConversion(const char* typeName, const std::string& text) {
    throw std::runtime_error(std::string("Invalid ") + typeName + " conversion in KyString: " + text);
}

// Numbers in settings, JSON and the agent's messages always use a '.' decimal
// point, whatever locale the desktop session sets for the process; parsing
// therefore runs in the "C" locale, created once and never freed.
locale_t cLocale() {
    static const locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return loc;
}

bool isValidBase(int base) { return base == 0 || (base >= 2 && base <= 36); }

// The trimmed text must be wholly consumed by strtoX, with no range error.
template <typename T, typename Parse>
bool parseWhole(const std::string& text, Parse parse, T& out) {
    std::size_t b = 0, e = text.size();
    while (b < e && isBlank(text[b])) ++b;
    while (e > b && isBlank(text[e - 1])) --e;
    if (b == e) return false;
    const std::string t = text.substr(b, e - b);
    errno = 0;
    char* end = nullptr;
    out = parse(t.c_str(), &end);
    return errno != ERANGE && end == t.c_str() + t.size();
}

bool parseSigned(const std::string& text, int base, long long& out) {
    if (!isValidBase(base)) return false;
    return parseWhole<long long>(text, [base](const char* s, char** end) { return std::strtoll(s, end, base); }, out);
}

bool parseUnsigned(const std::string& text, int base, unsigned long long& out) {
    // strtoull quietly negates "-1"; a minus sign is never an unsigned number.
    if (text.find('-') != std::string::npos || !isValidBase(base)) return false;
    return parseWhole<unsigned long long>(text, [base](const char* s, char** end) { return std::strtoull(s, end, base); }, out);
}

bool parseDouble(const std::string& text, double& out) {
    std::size_t b = 0, e = text.size();
    while (b < e && isBlank(text[b])) ++b;
    while (e > b && isBlank(text[e - 1])) --e;
    if (b == e) return false;
    const std::string t = text.substr(b, e - b);
    errno = 0;
    char* end = nullptr;
    const locale_t loc = cLocale();
    out = loc ? strtod_l(t.c_str(), &end, loc) : std::strtod(t.c_str(), &end);
    // Underflow to a subnormal or zero is still a number; only overflow is refused.
    if (errno == ERANGE && std::isinf(out)) return false;
    return end == t.c_str() + t.size();
}

// Decodes one code point at pos; on a malformed sequence returns U+FFFD and
// advances one byte, so every byte is consumed exactly once.
char32_t decodeAt(std::string_view s, std::size_t& pos) {
    const auto c = static_cast<unsigned char>(s[pos]);
    if (c < 0x80) { ++pos; return c; }
    int extra = 0;
    char32_t cp = 0;
    char32_t minimum = 0;
    if ((c & 0xE0) == 0xC0) { extra = 1; cp = c & 0x1F; minimum = 0x80; }
    else if ((c & 0xF0) == 0xE0) { extra = 2; cp = c & 0x0F; minimum = 0x800; }
    else if ((c & 0xF8) == 0xF0) { extra = 3; cp = c & 0x07; minimum = 0x10000; }
    else { ++pos; return 0xFFFD; }
    if (pos + extra >= s.size()) { ++pos; return 0xFFFD; }
    for (int i = 1; i <= extra; ++i) {
        const auto cc = static_cast<unsigned char>(s[pos + i]);
        if ((cc & 0xC0) != 0x80) { ++pos; return 0xFFFD; }
        cp = (cp << 6) | (cc & 0x3F);
    }
    if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) { ++pos; return 0xFFFD; }
    pos += extra + 1;
    return cp;
}

void encodeTo(std::string& out, char32_t cp) {
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) cp = 0xFFFD;
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

template <typename Parts>
KyString joinParts(const Parts& parts, std::string_view sep) {
    std::size_t total = 0;
    for (const auto& p : parts) total += p.size() + sep.size();
    std::string out;
    out.reserve(total);
    bool first = true;
    for (const auto& p : parts) {
        if (!first) out.append(sep);
        out.append(p.toStdString());
        first = false;
    }
    return KyString(std::move(out));
}

} // namespace

KyString& KyString::insert(std::size_t pos, std::string_view s) {
    d_.insert(std::min(pos, d_.size()), s);
    return *this;
}

KyString& KyString::remove(std::size_t pos, std::size_t bytes) {
    if (pos < d_.size()) d_.erase(pos, bytes);
    return *this;
}

std::size_t KyString::indexOf(std::string_view needle, std::size_t from) const { return d_.find(needle, from); }
std::size_t KyString::indexOf(char c, std::size_t from) const { return d_.find(c, from); }
std::size_t KyString::lastIndexOf(std::string_view needle, std::size_t from) const { return d_.rfind(needle, from); }
std::size_t KyString::lastIndexOf(char c, std::size_t from) const { return d_.rfind(c, from); }

bool KyString::startsWith(std::string_view prefix) const {
    return d_.size() >= prefix.size() && std::string_view(d_).substr(0, prefix.size()) == prefix;
}

bool KyString::endsWith(std::string_view suffix) const {
    return d_.size() >= suffix.size() && std::string_view(d_).substr(d_.size() - suffix.size()) == suffix;
}

std::size_t KyString::count(std::string_view needle) const {
    if (needle.empty()) return 0;
    std::size_t n = 0;
    for (std::size_t p = d_.find(needle); p != npos; p = d_.find(needle, p + needle.size())) ++n;
    return n;
}

KyString KyString::mid(std::size_t pos, std::size_t bytes) const {
    if (pos >= d_.size()) return KyString();
    return KyString(d_.substr(pos, bytes));
}

KyString KyString::left(std::size_t bytes) const { return KyString(d_.substr(0, std::min(bytes, d_.size()))); }

KyString KyString::right(std::size_t bytes) const {
    if (bytes >= d_.size()) return *this;
    return KyString(d_.substr(d_.size() - bytes));
}

KyString KyString::trimmed() const {
    std::size_t b = 0, e = d_.size();
    while (b < e && isBlank(d_[b])) ++b;
    while (e > b && isBlank(d_[e - 1])) --e;
    return KyString(d_.substr(b, e - b));
}

KyString KyString::simplified() const {
    std::string out;
    out.reserve(d_.size());
    bool pendingBlank = false;
    for (char c : d_) {
        if (isBlank(c)) {
            pendingBlank = !out.empty();
            continue;
        }
        if (pendingBlank) out.push_back(' ');
        pendingBlank = false;
        out.push_back(c);
    }
    return KyString(std::move(out));
}

KyString KyString::toLower() const {
    std::string out(d_);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return KyString(std::move(out));
}

KyString KyString::toUpper() const {
    std::string out(d_);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return KyString(std::move(out));
}

KyString KyString::replaced(std::string_view from, std::string_view to) const {
    KyString r(*this);
    r.replace(from, to);
    return r;
}

KyString& KyString::replace(std::string_view from, std::string_view to) {
    if (from.empty() || d_.empty()) return *this;
    std::string out;
    out.reserve(d_.size());
    std::size_t start = 0;
    for (std::size_t p = d_.find(from); p != npos; p = d_.find(from, start)) {
        out.append(d_, start, p - start);
        out.append(to);
        start = p + from.size();
    }
    out.append(d_, start, npos);
    d_ = std::move(out);
    return *this;
}

KyString KyString::repeated(std::size_t times) const {
    if (times != 0 && d_.size() > std::numeric_limits<std::size_t>::max() / times)
        throw std::length_error("KyString::repeated: result too long");
    std::string out;
    out.reserve(d_.size() * times);
    for (std::size_t i = 0; i < times; ++i) out.append(d_);
    return KyString(std::move(out));
}

KyList<KyString> KyString::split(std::string_view sep, bool skipEmpty) const {
    KyList<KyString> parts;
    if (sep.empty()) {
        if (!(skipEmpty && d_.empty())) parts.push_back(*this);
        return parts;
    }
    std::size_t start = 0;
    while (true) {
        const std::size_t p = d_.find(sep, start);
        const std::size_t end = (p == npos) ? d_.size() : p;
        if (!(skipEmpty && end == start)) parts.push_back(KyString(d_.substr(start, end - start)));
        if (p == npos) break;
        start = p + sep.size();
    }
    return parts;
}

KyList<KyString> KyString::split(char sep, bool skipEmpty) const { return split(std::string_view(&sep, 1), skipEmpty); }

KyString KyString::join(const KyList<KyString>& parts, std::string_view sep) { return joinParts(parts, sep); }
KyString KyString::join(const std::vector<KyString>& parts, std::string_view sep) { return joinParts(parts, sep); }

int KyString::toInt(int base) const {
    long long v = 0;
    if (!parseSigned(d_, base, v) || v < INT32_MIN || v > INT32_MAX) throwConversion("int", d_);
    return static_cast<int>(v);
}

long KyString::toLong(int base) const {
    long long v = 0;
    if (!parseSigned(d_, base, v)) throwConversion("long", d_);
    return static_cast<long>(v);
}

long long KyString::toLongLong(int base) const {
    long long v = 0;
    if (!parseSigned(d_, base, v)) throwConversion("long long", d_);
    return v;
}

unsigned int KyString::toUInt(int base) const {
    unsigned long long v = 0;
    if (!parseUnsigned(d_, base, v) || v > UINT32_MAX) throwConversion("unsigned int", d_);
    return static_cast<unsigned int>(v);
}

unsigned long long KyString::toULongLong(int base) const {
    unsigned long long v = 0;
    if (!parseUnsigned(d_, base, v)) throwConversion("unsigned long long", d_);
    return v;
}

double KyString::toDouble() const {
    double v = 0;
    if (!parseDouble(d_, v)) throwConversion("double", d_);
    return v;
}

float KyString::toFloat() const {
    double v = 0;
    if (!parseDouble(d_, v) || (std::isfinite(v) && std::fabs(v) > 3.4028234663852886e38)) throwConversion("float", d_);
    return static_cast<float>(v);
}

bool KyString::toBool() const {
    const KyString t = trimmed().toLower();
    if (t == "1" || t == "true" || t == "yes" || t == "on") return true;
    if (t.isEmpty() || t == "0" || t == "false" || t == "no" || t == "off") return false;
    throwConversion("bool", d_);
}

int KyString::toInt(bool* ok, int base) const {
    long long v = 0;
    const bool good = parseSigned(d_, base, v) && v >= INT32_MIN && v <= INT32_MAX;
    if (ok) *ok = good;
    return good ? static_cast<int>(v) : 0;
}

long long KyString::toLongLong(bool* ok, int base) const {
    long long v = 0;
    const bool good = parseSigned(d_, base, v);
    if (ok) *ok = good;
    return good ? v : 0;
}

unsigned long long KyString::toULongLong(bool* ok, int base) const {
    unsigned long long v = 0;
    const bool good = parseUnsigned(d_, base, v);
    if (ok) *ok = good;
    return good ? v : 0;
}

double KyString::toDouble(bool* ok) const {
    double v = 0;
    const bool good = parseDouble(d_, v);
    if (ok) *ok = good;
    return good ? v : 0.0;
}

KyString KyString::number(int v) { return KyString(std::to_string(v)); }
KyString KyString::number(long v) { return KyString(std::to_string(v)); }
KyString KyString::number(long long v) { return KyString(std::to_string(v)); }
KyString KyString::number(unsigned int v) { return KyString(std::to_string(v)); }
KyString KyString::number(unsigned long v) { return KyString(std::to_string(v)); }
KyString KyString::number(unsigned long long v) { return KyString(std::to_string(v)); }

KyString KyString::number(double v) {
    if (std::isnan(v)) return KyString("nan");
    if (std::isinf(v)) return KyString(v < 0 ? "-inf" : "inf");
    // The shortest precision that reads back exactly keeps texts short ("0.1", not
    // "0.10000000000000001"). The shortest scientific form gives that digit count;
    // whole numbers below 1e17 get enough digits to print in full ("100", not
    // "1e+02"). The loop only guards the rare value where "%g" rounding at that
    // count lands outside the read-back interval.
    char buf[64];
    const auto sci = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::scientific);
    int digits = 0;
    const char* c = buf;
    for (; c != sci.ptr && *c != 'e'; ++c)
        if (*c >= '0' && *c <= '9') ++digits;
    int exponent = 0;
    if (c != sci.ptr) std::from_chars(c + 1 + (c[1] == '+'), sci.ptr, exponent);
    std::to_chars_result r{};
    for (int precision = std::clamp(std::max(digits, exponent + 1), 1, 17); precision <= 17; ++precision) {
        r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::general, precision);
        double back = 0;
        std::from_chars(buf, r.ptr, back);
        if (back == v) break;
    }
    return KyString(std::string(buf, r.ptr));
}

KyString KyString::number(double v, char format, int precision) {
    std::chars_format style = std::chars_format::general;
    if (format == 'f' || format == 'F') style = std::chars_format::fixed;
    else if (format == 'e' || format == 'E') style = std::chars_format::scientific;
    // printf reads a negative precision as "not given"; a huge one only pads zeros.
    if (precision < 0) precision = 6;
    precision = std::min(precision, 1000);
    // Fixed notation of 1e308 needs 309 digits before the point.
    std::string out(precision + 400, '\0');
    const auto r = std::to_chars(out.data(), out.data() + out.size(), v, style, precision);
    out.resize(static_cast<std::size_t>(r.ptr - out.data()));
    if (format == 'E' || format == 'G' || format == 'F')
        for (char& c : out)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return KyString(std::move(out));
}

KyString KyString::format(const char* fmt, ...) {
    if (!fmt) return KyString();
    va_list args;
    va_start(args, fmt);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string out;
    if (n > 0) {
        out.resize(static_cast<std::size_t>(n) + 1);
        std::vsnprintf(out.data(), out.size(), fmt, args);
        out.resize(static_cast<std::size_t>(n));
    }
    va_end(args);
    return KyString(std::move(out));
}

KyString KyString::arg(const KyString& value) const {
    // Find the lowest marker number first, then replace every occurrence of it,
    // so a value that itself contains "%2" is never substituted again.
    int lowest = 100;
    for (std::size_t i = 0; i + 1 < d_.size(); ++i) {
        if (d_[i] != '%' || d_[i + 1] < '0' || d_[i + 1] > '9') continue;
        int n = d_[i + 1] - '0';
        if (i + 2 < d_.size() && d_[i + 2] >= '0' && d_[i + 2] <= '9') n = n * 10 + (d_[i + 2] - '0');
        if (n >= 1 && n < lowest) lowest = n;
    }
    if (lowest == 100) return *this;
    std::string out;
    out.reserve(d_.size() + value.size());
    for (std::size_t i = 0; i < d_.size(); ++i) {
        if (d_[i] == '%' && i + 1 < d_.size() && d_[i + 1] >= '0' && d_[i + 1] <= '9') {
            int n = d_[i + 1] - '0';
            std::size_t len = 2;
            if (i + 2 < d_.size() && d_[i + 2] >= '0' && d_[i + 2] <= '9') {
                n = n * 10 + (d_[i + 2] - '0');
                len = 3;
            }
            if (n == lowest) {
                out.append(value.d_);
                i += len - 1;
                continue;
            }
        }
        out.push_back(d_[i]);
    }
    return KyString(std::move(out));
}

std::wstring KyString::toWString() const {
    std::wstring out;
    out.reserve(d_.size());
    for (std::size_t pos = 0; pos < d_.size();) out.push_back(static_cast<wchar_t>(decodeAt(d_, pos)));
    return out;
}

KyString KyString::fromWString(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t w : text) encodeTo(out, static_cast<char32_t>(w));
    return KyString(std::move(out));
}

std::u32string KyString::toUtf32() const {
    std::u32string out;
    out.reserve(d_.size());
    for (std::size_t pos = 0; pos < d_.size();) out.push_back(decodeAt(d_, pos));
    return out;
}

KyString KyString::fromUtf32(const std::u32string& text) {
    std::string out;
    out.reserve(text.size());
    for (char32_t c : text) encodeTo(out, c);
    return KyString(std::move(out));
}

KyString KyString::fromCodePoint(char32_t cp) {
    std::string out;
    encodeTo(out, cp);
    return KyString(std::move(out));
}

bool KyString::isValidUtf8(std::string_view bytes) {
    for (std::size_t pos = 0; pos < bytes.size();) {
        const std::size_t before = pos;
        const char32_t cp = decodeAt(bytes, pos);
        // U+FFFD itself is three bytes; a one-byte step means a malformed sequence.
        if (cp == 0xFFFD && pos - before != 3) return false;
    }
    return true;
}

bool KyString::isValidUtf8() const { return isValidUtf8(d_); }

std::size_t KyString::codePointCount() const {
    std::size_t n = 0;
    for (std::size_t pos = 0; pos < d_.size(); ++n) decodeAt(d_, pos);
    return n;
}

std::size_t KyString::nextCodePoint(std::size_t pos) const {
    if (pos >= d_.size()) return d_.size();
    decodeAt(d_, pos);
    return pos;
}

std::size_t KyString::previousCodePoint(std::size_t pos) const {
    if (pos == 0) return 0;
    pos = std::min(pos, d_.size());
    std::size_t p = pos - 1;
    // At most three continuation bytes belong to one code point.
    for (int i = 0; i < 3 && p > 0 && isContinuation(d_[p]); ++i) --p;
    // The byte before pos belongs to the code point at p only when that sequence
    // is well formed and reaches it; a stray continuation byte stands alone.
    std::size_t end = p;
    decodeAt(d_, end);
    return end > pos - 1 ? p : pos - 1;
}

std::size_t KyString::alignToCodePoint(std::size_t pos) const {
    if (pos >= d_.size()) return d_.size();
    std::size_t lead = pos;
    for (int i = 0; i < 3 && lead > 0 && isContinuation(d_[lead]); ++i) --lead;
    if (lead == pos) return pos;
    // pos is inside the code point that starts at lead only if that sequence is
    // well formed and reaches past pos; a stray continuation byte stands alone.
    std::size_t end = lead;
    decodeAt(d_, end);
    return end > pos ? lead : pos;
}

KyString KyString::truncatedUtf8(std::size_t maxBytes) const {
    if (d_.size() <= maxBytes) return *this;
    return KyString(d_.substr(0, alignToCodePoint(maxBytes)));
}

void KyString::appendCodePoint(std::string& out, char32_t cp) { encodeTo(out, cp); }

std::ostream& operator<<(std::ostream& os, const KyString& s) { return os << s.toStdString(); }
