// KyIpcSignature: letters to type texts, words to values, values to bytes.
#include "tools/kyipc/KyIpcSignature.h"

#include <charconv>
#include <cstdint>
#include <limits>

#include "ipc/TypeId.h"

namespace {

using ky::ipc::Codec;

constexpr const char* kTypeNamePrefix = "KyString ky::ipc::detail::type_name() [with Args = {";
constexpr const char* kTypeNameSuffix = "}]";

const char* letterName(char letter) {
    switch (letter) {
        case 'b': return "a bool";
        case 'i': return "an int";
        case 'u': return "an unsigned int";
        case 't': return "a 64-bit unsigned int";
        default: return "a string";
    }
}

// Whole-word decimal numbers only: no blanks, no base prefixes, no wrapping
// of "-1" into a huge unsigned value.
template <typename T>
bool parseNumber(const KyString& word, T& out) {
    const char* first = word.data();
    const char* last = first + word.size();
    if (first != last && *first == '+') ++first;  // from_chars refuses a plus sign
    if (first == last) return false;
    const auto result = std::from_chars(first, last, out, 10);
    return result.ec == std::errc() && result.ptr == last;
}

bool parseBool(const KyString& word, bool& out) {
    const KyString w = word.toLower();
    if (w == "true" || w == "yes" || w == "on" || w == "1") {
        out = true;
        return true;
    }
    if (w == "false" || w == "no" || w == "off" || w == "0") {
        out = false;
        return true;
    }
    return false;
}

KyString quoted(const KyString& text) {
    KyString out("\"");
    for (char c : text) {
        const unsigned char b = static_cast<unsigned char>(c);
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (b < 0x20 || b == 0x7F) {
                    out += KyString::format("\\x%02x", b);
                } else {
                    out += c;
                }
        }
    }
    out += '"';
    return out;
}

}  // namespace

KyIpcValue KyIpcValue::fromBool(bool v) {
    KyIpcValue value;
    value.letter = 'b';
    value.b = v;
    return value;
}

KyIpcValue KyIpcValue::fromInt(int32_t v) {
    KyIpcValue value;
    value.letter = 'i';
    value.i = v;
    return value;
}

KyIpcValue KyIpcValue::fromUInt(uint32_t v) {
    KyIpcValue value;
    value.letter = 'u';
    value.u = v;
    return value;
}

KyIpcValue KyIpcValue::fromUInt64(uint64_t v) {
    KyIpcValue value;
    value.letter = 't';
    value.t = v;
    return value;
}

KyIpcValue KyIpcValue::fromString(const KyString& v) {
    KyIpcValue value;
    value.letter = 's';
    value.s = v;
    return value;
}

KyString KyIpcValue::toText() const {
    switch (letter) {
        case 'b': return b ? KyString("true") : KyString("false");
        case 'i': return KyString::number(i);
        case 'u': return KyString::number(u);
        case 't': return KyString::number(static_cast<unsigned long long>(t));
        default: return quoted(s);
    }
}

KyJsonValue KyIpcValue::toJson() const {
    switch (letter) {
        case 'b': return KyJsonValue(b);
        case 'i': return KyJsonValue(i);
        case 'u': return KyJsonValue(u);
        case 't':
            if (t > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
                return KyJsonValue(KyString::number(static_cast<unsigned long long>(t)));
            }
            return KyJsonValue(static_cast<long long>(t));
        default: return KyJsonValue(s);
    }
}

std::optional<KyIpcSignature> KyIpcSignature::parse(const KyString& letters, KyString* error) {
    for (size_t k = 0; k < letters.size(); ++k) {
        if (spelling(letters[k]).isEmpty()) {
            if (error) {
                const unsigned char b = static_cast<unsigned char>(letters[k]);
                const KyString shown = (b >= 0x20 && b < 0x7F) ? KyString(1, letters[k])
                                                               : KyString::format("\\x%02x", b);
                // Built by concatenation: the user's text may itself hold "%1".
                *error = KyString("bad signature ") + quoted(letters) + ": letter '" + shown + "' at position " +
                         KyString::number(static_cast<int>(k + 1)) + " is not one of b, i, u, t, s";
            }
            return std::nullopt;
        }
    }
    return KyIpcSignature(letters);
}

std::optional<KyIpcSignature> KyIpcSignature::fromArgumentList(const KyString& list) {
    if (list.isEmpty()) return KyIpcSignature();
    KyString letters;
    for (const KyString& piece : list.split(", ")) {
        char letter = 0;
        for (char candidate : {'b', 'i', 'u', 't', 's'}) {
            if (piece == spelling(candidate)) letter = candidate;
        }
        if (letter == 0) return std::nullopt;
        letters += letter;
    }
    return KyIpcSignature(letters);
}

std::optional<KyIpcSignature> KyIpcSignature::fromTypeName(const KyString& typeName) {
    // The registry cuts the name at 255 bytes; a cut name has lost its end
    // marker and is refused rather than guessed.
    if (!typeName.startsWith(kTypeNamePrefix) || !typeName.endsWith(kTypeNameSuffix)) return std::nullopt;
    const size_t begin = KyString(kTypeNamePrefix).size();
    const size_t end = typeName.size() - KyString(kTypeNameSuffix).size();
    if (end < begin) return std::nullopt;
    return fromArgumentList(typeName.mid(begin, end - begin));
}

KyString KyIpcSignature::spelling(char letter) {
    switch (letter) {
        case 'b': return KyString(ky::ipc::detail::TypeSpelling<bool>::text);
        case 'i': return KyString(ky::ipc::detail::TypeSpelling<int>::text);
        case 'u': return KyString(ky::ipc::detail::TypeSpelling<unsigned int>::text);
        case 't': return KyString(ky::ipc::detail::TypeSpelling<unsigned long>::text);
        case 's': return KyString(ky::ipc::detail::TypeSpelling<KyString>::text);
        default: return KyString();
    }
}

KyString KyIpcSignature::argumentList() const {
    KyList<KyString> pieces;
    for (char letter : letters_) pieces.append(spelling(letter));
    return KyString::join(pieces, ", ");
}

uint64_t KyIpcSignature::typeId() const { return ky::ipc::detail::typeIdFromArgList(argumentList()); }

KyString KyIpcSignature::typeName() const { return ky::ipc::detail::typeNameText(argumentList()); }

KyIpcSignature KyIpcSignature::operator+(const KyIpcSignature& tail) const {
    return KyIpcSignature(letters_ + tail.letters_);
}

KyIpcSignature KyIpcSignature::tail(size_t pos) const { return KyIpcSignature(letters_.mid(pos)); }

bool KyIpcSignature::parseArguments(const KyList<KyString>& words, std::vector<KyIpcValue>& out,
                                    KyString* error) const {
    out.clear();
    if (static_cast<size_t>(words.size()) != letters_.size()) {
        if (error) {
            *error = KyString("signature \"") + letters_ + "\" takes " +
                     KyString::number(static_cast<int>(letters_.size())) + " argument(s), " +
                     KyString::number(static_cast<int>(words.size())) + " given";
        }
        return false;
    }
    for (size_t k = 0; k < letters_.size(); ++k) {
        const KyString& word = words[k];
        const char letter = letters_[k];
        KyIpcValue value;
        value.letter = letter;
        bool ok = true;
        switch (letter) {
            case 'b': ok = parseBool(word, value.b); break;
            case 'i': ok = parseNumber(word, value.i); break;
            case 'u': ok = parseNumber(word, value.u); break;
            case 't': ok = parseNumber(word, value.t); break;
            default: value.s = word; break;
        }
        if (!ok) {
            if (error) {
                *error = KyString("argument ") + KyString::number(static_cast<int>(k + 1)) + " (" + letter +
                         "): " + quoted(word) + " is not " + letterName(letter);
            }
            out.clear();
            return false;
        }
        out.push_back(std::move(value));
    }
    return true;
}

bool KyIpcSignature::encode(const std::vector<KyIpcValue>& values, ky::ipc::Encoder& e) const {
    if (values.size() != letters_.size()) return false;
    for (size_t k = 0; k < values.size(); ++k) {
        const KyIpcValue& v = values[k];
        if (v.letter != letters_[k]) return false;
        bool ok = false;
        switch (v.letter) {
            case 'b': ok = Codec<bool>::write(e, v.b); break;
            case 'i': ok = Codec<int>::write(e, v.i); break;
            case 'u': ok = Codec<unsigned int>::write(e, v.u); break;
            case 't': ok = Codec<unsigned long>::write(e, static_cast<unsigned long>(v.t)); break;
            case 's': ok = Codec<KyString>::write(e, v.s); break;
            default: break;
        }
        if (!ok) return false;
    }
    return true;
}

bool KyIpcSignature::decode(ky::ipc::Decoder& d, std::vector<KyIpcValue>& out) const {
    out.clear();
    for (char letter : letters_) {
        KyIpcValue v;
        v.letter = letter;
        bool ok = false;
        switch (letter) {
            case 'b': ok = Codec<bool>::read(d, v.b); break;
            case 'i': ok = Codec<int>::read(d, v.i); break;
            case 'u': ok = Codec<unsigned int>::read(d, v.u); break;
            case 't': {
                unsigned long t = 0;
                ok = Codec<unsigned long>::read(d, t);
                v.t = t;
                break;
            }
            default: ok = Codec<KyString>::read(d, v.s); break;
        }
        if (!ok) {
            out.clear();
            return false;
        }
        out.push_back(std::move(v));
    }
    return true;
}

KyString KyIpcSignature::formatText(const KyIpcSignature& signature, const std::vector<KyIpcValue>& values) {
    KyString line = signature.letters();
    for (const KyIpcValue& v : values) line += KyString(" ") + v.toText();
    return line;
}
