// KyJsonWriter: compact and indented generation. See KyJsonWriter.h.
#include "core/types/KyJsonWriter.h"

#include <charconv>
#include <cmath>
#include <cstdint>

#include "core/types/KyJsonParser.h"

namespace {


constexpr char kHex[] = "0123456789abcdef";

// Length of the well-formed UTF-8 sequence at p (lead byte >= 0x80), or 0.
std::size_t utf8SequenceLength(const unsigned char* p, std::size_t avail) {
    const unsigned char c = p[0];
    auto cont = [&](std::size_t i) { return i < avail && (p[i] & 0xC0) == 0x80; };
    if (c >= 0xC2 && c <= 0xDF) return cont(1) ? 2 : 0;
    if (c >= 0xE0 && c <= 0xEF) {
        if (avail < 2) return 0;
        if (c == 0xE0 && p[1] < 0xA0) return 0;
        if (c == 0xED && p[1] > 0x9F) return 0;
        return cont(1) && cont(2) ? 3 : 0;
    }
    if (c >= 0xF0 && c <= 0xF4) {
        if (avail < 2) return 0;
        if (c == 0xF0 && p[1] < 0x90) return 0;
        if (c == 0xF4 && p[1] > 0x8F) return 0;
        return cont(1) && cont(2) && cont(3) ? 4 : 0;
    }
    return 0;
}

void writeInteger(std::int64_t v, std::string& out) {
    char buf[24];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, r.ptr);
}

void newline(std::string& out, int level) {
    out.push_back('\n');
    out.append(static_cast<std::size_t>(level) * 4, ' ');
}

void writeValue(const KyJsonValue& v, bool indented, int level, std::string& out) {
    switch (v.type()) {
    case KyJsonValue::Null: out.append("null"); return;
    case KyJsonValue::Bool: out.append(v.toBool() ? "true" : "false"); return;
    case KyJsonValue::Integer: writeInteger(v.toInt64(), out); return;
    case KyJsonValue::Double: KyJsonWriter::writeDouble(v.toDouble(), out); return;
    case KyJsonValue::String: KyJsonWriter::writeString(v.asString().view(), out); return;
    case KyJsonValue::Array: {
        const KyJsonArray& a = v.asArray();
        if (a.isEmpty()) {
            out.append("[]");
            return;
        }
        out.push_back('[');
        bool first = true;
        for (const KyJsonValue& item : a) {
            if (!first) out.push_back(',');
            first = false;
            if (indented) newline(out, level + 1);
            writeValue(item, indented, level + 1, out);
        }
        if (indented) newline(out, level);
        out.push_back(']');
        return;
    }
    case KyJsonValue::Object: {
        const KyJsonObject& o = v.asObject();
        if (o.isEmpty()) {
            out.append("{}");
            return;
        }
        out.push_back('{');
        bool first = true;
        for (const KyJsonObject::Member& m : o) {
            if (!first) out.push_back(',');
            first = false;
            if (indented) newline(out, level + 1);
            KyJsonWriter::writeString(m.key.view(), out);
            out.append(indented ? ": " : ":");
            writeValue(m.value, indented, level + 1, out);
        }
        if (indented) newline(out, level);
        out.push_back('}');
        return;
    }
    }
}

} // namespace

void KyJsonWriter::write(const KyJsonValue& value, KyJsonDocument::Format format, std::string& out) {
    const bool indented = format == KyJsonDocument::Indented;
    writeValue(value, indented, 0, out);
    if (indented) out.push_back('\n');
}

void KyJsonWriter::writeString(std::string_view text, std::string& out) {
    out.push_back('"');
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* end = p + text.size();
    const unsigned char* run = p;
    while (p != end) {
        if (ky::detail::kJsonPlainBytes.plain[*p]) {
            ++p;
            continue;
        }
        const unsigned char c = *p;
        if (c >= 0x80) {
            const std::size_t n = utf8SequenceLength(p, static_cast<std::size_t>(end - p));
            if (n != 0) {
                p += n;
                continue;
            }
            out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(p - run));
            out.append("\xEF\xBF\xBD");
            run = ++p;
            continue;
        }
        out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(p - run));
        switch (c) {
        case '"': out.append("\\\""); break;
        case '\\': out.append("\\\\"); break;
        case '\b': out.append("\\b"); break;
        case '\f': out.append("\\f"); break;
        case '\n': out.append("\\n"); break;
        case '\r': out.append("\\r"); break;
        case '\t': out.append("\\t"); break;
        default: {
            const char esc[6] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
            out.append(esc, sizeof esc);
            break;
        }
        }
        run = ++p;
    }
    out.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(p - run));
    out.push_back('"');
}

void KyJsonWriter::writeDouble(double value, std::string& out) {
    if (!std::isfinite(value)) {
        out.append("null");
        return;
    }
    char buf[40];
    const auto r = std::to_chars(buf, buf + sizeof buf, value);
    const std::size_t n = static_cast<std::size_t>(r.ptr - buf);
    out.append(buf, n);
    // A bare "1" would read back as an Integer; keep doubles recognisable.
    for (std::size_t i = 0; i < n; ++i)
        if (buf[i] == '.' || buf[i] == 'e') return;
    out.append(".0");
}
