// KySettingsFormat implementation: a line parser with one escape decoder
// shared by keys, section names and values.
#include "core/io/KySettingsFormat.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Index of the first occurrence of c that is not escaped, or npos.
std::size_t findUnescaped(std::string_view s, char c, std::size_t from = 0) {
    for (std::size_t i = from; i < s.size(); ++i) {
        if (s[i] == '\\') ++i;
        else if (s[i] == c) return i;
    }
    return std::string_view::npos;
}

// Drops blanks at both ends that are not part of an escape.
std::string_view trimRaw(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back())) {
        std::size_t slashes = 0;
        for (std::size_t i = s.size() - 1; i > 0 && s[i - 1] == '\\'; --i) ++slashes;
        if (slashes % 2 == 1) break; // "\ " is an escaped blank and stays
        s.remove_suffix(1);
    }
    return s;
}

// Common escapes; extra lists characters that need a backslash anywhere.
std::string escape(const std::string& in, std::string_view extra, std::string_view leading) {
    const bool validUtf8 = KyString::isValidUtf8(in);
    std::string out;
    out.reserve(in.size() + 8);
    for (std::size_t i = 0; i < in.size(); ++i) {
        const char c = in[i];
        const bool first = i == 0;
        const bool last = i + 1 == in.size();
        switch (c) {
        case '\\': out += "\\\\"; continue;
        case '\n': out += "\\n"; continue;
        case '\r': out += "\\r"; continue;
        case '\t': out += "\\t"; continue;
        case '\0': out += "\\0"; continue;
        default: break;
        }
        if (c == ' ' && (first || last)) {
            out += "\\s";
        } else if (!validUtf8 && static_cast<unsigned char>(c) >= 0x80) {
            // Bytes that are not UTF-8 would make the file unreadable as text.
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
            out += hex;
        } else if (extra.find(c) != std::string_view::npos || (first && leading.find(c) != std::string_view::npos)) {
            out += '\\';
            out += c;
        } else {
            out += c;
        }
    }
    return out;
}

} // namespace

KyString KySettingsFormat::escapeValue(const KyString& value) { return escape(value.str(), "", ""); }

KyString KySettingsFormat::escapeKey(const KyString& key) { return escape(key.str(), "=[]", ";#"); }

bool KySettingsFormat::unescape(std::string_view raw, KyString& out) {
    std::string& o = out.str();
    o.clear();
    o.reserve(raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '\\') {
            o += raw[i];
            continue;
        }
        if (++i == raw.size()) return false;
        switch (raw[i]) {
        case 'n': o += '\n'; break;
        case 'r': o += '\r'; break;
        case 't': o += '\t'; break;
        case '0': o += '\0'; break;
        case 's': o += ' '; break;
        case 'x': {
            const int hi = i + 1 < raw.size() ? hexDigit(raw[i + 1]) : -1;
            const int lo = i + 2 < raw.size() ? hexDigit(raw[i + 2]) : -1;
            if (hi < 0 || lo < 0) return false;
            o += static_cast<char>(hi * 16 + lo);
            i += 2;
            break;
        }
        default: o += raw[i]; break;
        }
    }
    return true;
}

KyString KySettingsFormat::normalizeKey(const KyString& key) {
    if (!key.contains('/')) return key;
    KyString out;
    for (const KyString& part : key.split('/', true)) {
        if (!out.isEmpty()) out += '/';
        out += part;
    }
    return out;
}

bool KySettingsFormat::parse(const KyString& text, Entries& out, KyString* error) {
    out.clear();
    auto fail = [&](std::size_t lineNo, const char* why) {
        out.clear();
        if (error) *error = KyString::format("line %zu: %s", lineNo, why);
        return false;
    };
    const std::string& s = text.str();
    if (s.find('\0') != std::string::npos) {
        const std::size_t at = s.find('\0');
        return fail(1 + static_cast<std::size_t>(std::count(s.begin(), s.begin() + static_cast<long>(at), '\n')),
                    "NUL byte");
    }
    if (!text.isValidUtf8()) return fail(0, "text is not valid UTF-8");

    KyString group;
    std::size_t lineNo = 0;
    std::size_t start = 0;
    while (start < s.size()) {
        std::size_t end = s.find('\n', start);
        if (end == std::string::npos) end = s.size();
        std::string_view line(s.data() + start, end - start);
        start = end + 1;
        ++lineNo;
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1); // written on another system
        line = trimRaw(line);
        if (line.empty() || line.front() == ';' || line.front() == '#') continue;
        if (line.front() == '[') {
            const std::size_t close = findUnescaped(line, ']', 1);
            if (close == std::string_view::npos) return fail(lineNo, "section without ']'");
            if (!trimRaw(line.substr(close + 1)).empty()) return fail(lineNo, "text after section");
            KyString name;
            if (!unescape(trimRaw(line.substr(1, close - 1)), name)) return fail(lineNo, "dangling backslash");
            group = normalizeKey(name);
            continue;
        }
        const std::size_t eq = findUnescaped(line, '=');
        if (eq == std::string_view::npos) return fail(lineNo, "neither a section, a key=value nor a comment");
        KyString key;
        KyString value;
        if (!unescape(trimRaw(line.substr(0, eq)), key) || !unescape(trimRaw(line.substr(eq + 1)), value))
            return fail(lineNo, "dangling backslash");
        key = normalizeKey(key);
        if (key.isEmpty()) return fail(lineNo, "empty key");
        out.insert(group.isEmpty() ? key : group + "/" + key, value);
    }
    return true;
}

KyString KySettingsFormat::serialize(const Entries& entries) {
    // Keys of one group are not contiguous in key order ("a/k", "a/k/z",
    // "a/l"), so gather each group's lines before writing its section.
    KyMap<KyString, std::string> sections;
    for (const auto& [key, value] : entries) {
        const std::size_t slash = key.lastIndexOf('/');
        const KyString group = slash == KyString::npos ? KyString() : key.left(slash);
        const KyString leaf = slash == KyString::npos ? key : key.mid(slash + 1);
        std::string& lines = sections[group];
        lines += escapeKey(leaf).str();
        lines += '=';
        lines += escapeValue(value).str();
        lines += '\n';
    }
    std::string out;
    for (const auto& [group, lines] : sections) {
        if (!group.isEmpty()) {
            if (!out.empty()) out += '\n';
            out += '[';
            out += escapeKey(group).str();
            out += "]\n";
        }
        out += lines;
    }
    return KyString(std::move(out));
}

KyString KySettingsFormat::encodeStringList(const KyList<KyString>& items) {
    std::string out;
    for (const KyString& item : items) {
        for (char c : item.str()) {
            if (c == '\\' || c == ',') out += '\\';
            out += c;
        }
        out += ',';
    }
    return KyString(std::move(out));
}

KyList<KyString> KySettingsFormat::decodeStringList(const KyString& text) {
    KyList<KyString> items;
    std::string current;
    bool open = false;
    const std::string& s = text.str();
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size()) {
            current += s[++i];
            open = true;
        } else if (s[i] == ',') {
            items.append(KyString(std::move(current)));
            current.clear();
            open = false;
        } else {
            current += s[i];
            open = true;
        }
    }
    if (open) items.append(KyString(std::move(current)));
    return items;
}
