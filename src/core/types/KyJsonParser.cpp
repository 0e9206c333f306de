// KyJsonParser: recursive descent over a byte range. See KyJsonParser.h.
//
// Every error is reported at the first byte that cannot belong to valid JSON
// (the start of a number for malformed numbers, the backslash of a bad escape,
// the lead byte of a bad UTF-8 sequence); line and column are worked out only
// once a parse has failed, so the hot path counts nothing.
#include "core/types/KyJsonParser.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <system_error>
#include <vector>

#include "core/types/KyJsonDocument.h"

namespace {


int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}


// Length of the well-formed UTF-8 sequence at p (lead byte >= 0x80), or 0.
// Refuses overlong forms, encoded surrogates and code points above U+10FFFF.
std::size_t utf8SequenceLength(const unsigned char* p, const unsigned char* end) {
    const unsigned char c = p[0];
    const std::size_t avail = static_cast<std::size_t>(end - p);
    auto cont = [&](std::size_t i) { return i < avail && (p[i] & 0xC0) == 0x80; };
    if (c >= 0xC2 && c <= 0xDF) return cont(1) ? 2 : 0;
    if (c >= 0xE0 && c <= 0xEF) {
        if (avail < 2) return 0;
        const unsigned char c1 = p[1];
        if (c == 0xE0 && c1 < 0xA0) return 0;
        if (c == 0xED && c1 > 0x9F) return 0;
        return cont(1) && cont(2) ? 3 : 0;
    }
    if (c >= 0xF0 && c <= 0xF4) {
        if (avail < 2) return 0;
        const unsigned char c1 = p[1];
        if (c == 0xF0 && c1 < 0x90) return 0;
        if (c == 0xF4 && c1 > 0x8F) return 0;
        return cont(1) && cont(2) && cont(3) ? 4 : 0;
    }
    return 0;
}

class Reader {
public:
    Reader(const char* begin, const char* end) : p_(begin), end_(end) {}

    bool parseDocument(KyJsonValue& out) {
        // A byte order mark is no part of JSON, but editors write one.
        if (end_ - p_ >= 3 && std::memcmp(p_, "\xEF\xBB\xBF", 3) == 0) p_ += 3;
        skipBlanks_();
        if (p_ == end_) return fail_("empty input", p_);
        if (!parseTree_(out)) return false;
        skipBlanks_();
        if (p_ != end_) return fail_("unexpected text after the value", p_);
        return true;
    }

    const char* errorMessage() const { return message_; }
    const char* errorAt() const { return errorAt_; }

private:
    // One open array or object. Its finished items (or members) sit on the
    // scratch stacks from mark upwards.
    struct Frame {
        bool object;
        std::size_t mark;
    };

    bool fail_(const char* message, const char* at) {
        message_ = message;
        errorAt_ = at;
        return false;
    }

    void skipBlanks_() {
        while (p_ != end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) ++p_;
    }

    // Containers are walked with an explicit stack rather than recursion, so
    // the deepest text allowed costs the same few hundred bytes of machine
    // stack as a flat one; parsing may run on a fiber with a small stack.
    // Items and members gather on scratch stacks shared by all levels and
    // move into containers sized exactly once complete.
    bool parseTree_(KyJsonValue& out) {
        KyJsonValue value;
        for (;;) {
            // At the start of a value.
            skipBlanks_();
            if (p_ == end_) return fail_("unexpected end of input", p_);
            if (*p_ == '[' || *p_ == '{') {
                const bool object = *p_ == '{';
                if (frames_.size() >= static_cast<std::size_t>(KyJsonDocument::kMaxDepth))
                    return fail_("nesting deeper than 256 levels", p_);
                frames_.push_back(Frame{object, object ? members_.size() : items_.size()});
                ++p_;
                skipBlanks_();
                if (p_ != end_ && *p_ == (object ? '}' : ']')) {
                    ++p_;
                    closeFrame_(value);
                } else {
                    if (object && !parseMemberName_()) return false;
                    continue;
                }
            } else if (!parseScalar_(value)) {
                return false;
            }
            // A value is complete: hand it to its container, then close as
            // many containers as end here.
            for (;;) {
                if (frames_.empty()) {
                    out = std::move(value);
                    return true;
                }
                const Frame& frame = frames_.back();
                if (frame.object) members_.back().value = std::move(value);
                else items_.push_back(std::move(value));
                skipBlanks_();
                if (p_ == end_) return fail_("unexpected end of input", p_);
                if (*p_ == ',') {
                    ++p_;
                    if (frame.object && !parseMemberName_()) return false;
                    break;
                }
                if (*p_ != (frame.object ? '}' : ']'))
                    return fail_(frame.object ? "expected ',' or '}'" : "expected ',' or ']'", p_);
                ++p_;
                closeFrame_(value);
            }
        }
    }

    // Pops the innermost container into value.
    void closeFrame_(KyJsonValue& value) {
        const Frame frame = frames_.back();
        frames_.pop_back();
        if (frame.object) {
            value = KyJsonValue(KyJsonValue::Object);
            KyJsonObject& object = *value.objectPtr();
            object.reserve(members_.size() - frame.mark);
            // insert() settles repeated names: first position, last value.
            for (std::size_t i = frame.mark; i < members_.size(); ++i)
                object.insert(std::move(members_[i].key), std::move(members_[i].value));
            members_.resize(frame.mark);
        } else {
            value = KyJsonValue(KyJsonValue::Array);
            KyJsonArray& array = *value.arrayPtr();
            array.reserve(items_.size() - frame.mark);
            for (std::size_t i = frame.mark; i < items_.size(); ++i) array.append(std::move(items_[i]));
            items_.resize(frame.mark);
        }
    }

    // A member name and its colon; the member waits on the stack for its value.
    bool parseMemberName_() {
        skipBlanks_();
        if (p_ == end_) return fail_("unexpected end of input", p_);
        if (*p_ != '"') return fail_("expected a string as member name", p_);
        KyJsonObject::Member& member = members_.emplace_back();
        if (!parseString_(member.key.str())) return false;
        skipBlanks_();
        if (p_ == end_) return fail_("unexpected end of input", p_);
        if (*p_ != ':') return fail_("expected ':' after a member name", p_);
        ++p_;
        return true;
    }

    bool parseScalar_(KyJsonValue& out) {
        switch (*p_) {
        case '"': {
            KyString text;
            if (!parseString_(text.str())) return false;
            out = KyJsonValue(std::move(text));
            return true;
        }
        case 't': return parseLiteral_("true", 4, KyJsonValue(true), out);
        case 'f': return parseLiteral_("false", 5, KyJsonValue(false), out);
        case 'n': return parseLiteral_("null", 4, KyJsonValue(), out);
        default:
            if (*p_ == '-' || (*p_ >= '0' && *p_ <= '9')) return parseNumber_(out);
            return fail_("unexpected character", p_);
        }
    }

    bool parseLiteral_(const char* word, std::size_t n, KyJsonValue value, KyJsonValue& out) {
        if (static_cast<std::size_t>(end_ - p_) < n || std::memcmp(p_, word, n) != 0) {
            // Point at the first byte that differs from the word.
            const char* q = p_;
            std::size_t i = 0;
            while (q != end_ && i < n && *q == word[i]) ++q, ++i;
            return fail_(q == end_ ? "unexpected end of input" : "invalid literal", q);
        }
        p_ += n;
        out = std::move(value);
        return true;
    }

    bool parseHex4_(const char* at, std::uint32_t& value) {
        if (end_ - at < 4) return false;
        value = 0;
        for (int i = 0; i < 4; ++i) {
            const int h = hexValue(at[i]);
            if (h < 0) return false;
            value = (value << 4) | static_cast<std::uint32_t>(h);
        }
        return true;
    }

    bool parseEscape_(std::string& out) {
        const char* backslash = p_;
        if (end_ - p_ < 2) return fail_("unexpected end of input", end_);
        const char c = p_[1];
        p_ += 2;
        switch (c) {
        case '"': out.push_back('"'); return true;
        case '\\': out.push_back('\\'); return true;
        case '/': out.push_back('/'); return true;
        case 'b': out.push_back('\b'); return true;
        case 'f': out.push_back('\f'); return true;
        case 'n': out.push_back('\n'); return true;
        case 'r': out.push_back('\r'); return true;
        case 't': out.push_back('\t'); return true;
        case 'u': break;
        default: return fail_("invalid escape sequence", backslash);
        }
        std::uint32_t cp = 0;
        if (!parseHex4_(p_, cp)) return fail_("invalid \\u escape", backslash);
        p_ += 4;
        if (cp >= 0xDC00 && cp <= 0xDFFF) return fail_("unpaired surrogate in \\u escape", backslash);
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            std::uint32_t low = 0;
            if (end_ - p_ < 6 || p_[0] != '\\' || p_[1] != 'u' || !parseHex4_(p_ + 2, low) || low < 0xDC00 ||
                low > 0xDFFF)
                return fail_("unpaired surrogate in \\u escape", backslash);
            p_ += 6;
            cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        }
        KyString::appendCodePoint(out, cp);
        return true;
    }

    bool parseString_(std::string& out) {
        const char* open = p_;
        ++p_;
        const char* run = p_;
        for (;;) {
            while (p_ != end_ && ky::detail::kJsonPlainBytes.plain[static_cast<unsigned char>(*p_)]) ++p_;
            if (p_ == end_) return fail_("unterminated string", open);
            const unsigned char c = static_cast<unsigned char>(*p_);
            if (c == '"') {
                out.append(run, static_cast<std::size_t>(p_ - run));
                ++p_;
                return true;
            }
            if (c == '\\') {
                out.append(run, static_cast<std::size_t>(p_ - run));
                if (!parseEscape_(out)) return false;
                run = p_;
                continue;
            }
            if (c < 0x20) return fail_("control character in a string", p_);
            const std::size_t n = utf8SequenceLength(reinterpret_cast<const unsigned char*>(p_),
                                                     reinterpret_cast<const unsigned char*>(end_));
            if (n == 0) return fail_("invalid UTF-8", p_);
            p_ += n;
        }
    }

    bool parseNumber_(KyJsonValue& out) {
        const char* start = p_;
        const bool negative = *p_ == '-';
        if (negative) ++p_;
        if (p_ == end_ || *p_ < '0' || *p_ > '9') return fail_("invalid number", start);
        const char* digits = p_;
        if (*p_ == '0') {
            ++p_;
            if (p_ != end_ && *p_ >= '0' && *p_ <= '9') return fail_("leading zero in a number", start);
        } else {
            while (p_ != end_ && *p_ >= '0' && *p_ <= '9') ++p_;
        }
        const char* integerEnd = p_;
        bool integral = true;
        if (p_ != end_ && *p_ == '.') {
            integral = false;
            ++p_;
            if (p_ == end_ || *p_ < '0' || *p_ > '9') return fail_("invalid number", start);
            while (p_ != end_ && *p_ >= '0' && *p_ <= '9') ++p_;
        }
        if (p_ != end_ && (*p_ == 'e' || *p_ == 'E')) {
            integral = false;
            ++p_;
            if (p_ != end_ && (*p_ == '+' || *p_ == '-')) ++p_;
            if (p_ == end_ || *p_ < '0' || *p_ > '9') return fail_("invalid number", start);
            while (p_ != end_ && *p_ >= '0' && *p_ <= '9') ++p_;
        }
        if (integral && integerEnd - digits <= 19) {
            // Up to 19 digits cannot overflow an unsigned 64-bit accumulator.
            std::uint64_t v = 0;
            for (const char* q = digits; q != integerEnd; ++q) v = v * 10 + static_cast<std::uint64_t>(*q - '0');
            constexpr std::uint64_t kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
            if (!negative && v <= kMax) {
                out = KyJsonValue(static_cast<long long>(v));
                return true;
            }
            if (negative && v <= kMax + 1) {
                out = KyJsonValue(static_cast<long long>(0 - v));
                return true;
            }
        }
        double d = 0.0;
        const auto [ptr, ec] = std::from_chars(start, p_, d);
        if (ec == std::errc::result_out_of_range) {
            // from_chars reports underflow and overflow alike; strtod tells
            // them apart (underflow reads as zero or a denormal, overflow as HUGE_VAL).
            const std::string copy(start, p_);
            d = std::strtod(copy.c_str(), nullptr);
            if (d == HUGE_VAL || d == -HUGE_VAL) return fail_("number out of range", start);
        } else if (ec != std::errc() || ptr != p_) {
            return fail_("invalid number", start);
        }
        out = KyJsonValue(d);
        return true;
    }

    const char* p_;
    const char* end_;
    std::vector<Frame> frames_;
    std::vector<KyJsonValue> items_;
    std::vector<KyJsonObject::Member> members_;
    const char* message_ = nullptr;
    const char* errorAt_ = nullptr;
};

} // namespace

bool KyJsonParser::parse(std::string_view text, KyJsonValue& out, Error& error) {
    Reader reader(text.data(), text.data() + text.size());
    if (reader.parseDocument(out)) {
        error = Error();
        return true;
    }
    error.message = reader.errorMessage();
    error.offset = static_cast<std::size_t>(reader.errorAt() - text.data());
    int line = 1;
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < error.offset; ++i) {
        if (text[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    }
    error.line = line;
    error.column = static_cast<int>(error.offset - lineStart) + 1;
    return false;
}
