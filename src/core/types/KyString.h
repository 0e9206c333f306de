// KyString: the UTF-8 text type of every framework and console interface.
//
// A KyString owns a std::string of UTF-8 bytes. Positions and lengths are byte
// offsets; editing helpers that move through text (cursor steps, truncation)
// keep to code-point boundaries. Number conversions are strict: the whole text,
// less surrounding blanks, must be the number, else std::runtime_error is thrown
// with the text "Invalid <type> conversion in KyString: <text>".
// A KyString is a plain value: no sharing, no locking; copy it between threads.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "core/types/KyList.h"

/// UTF-8 text value with the string helpers the framework and the console use.
class KyString {
public:
    static constexpr std::size_t npos = std::string::npos;

    KyString() = default;
    KyString(const char* text) : d_(text ? text : "") {}
    KyString(const char* text, std::size_t bytes) : d_(text ? std::string(text, bytes) : std::string()) {}
    KyString(const std::string& text) : d_(text) {}
    KyString(std::string&& text) noexcept : d_(std::move(text)) {}
    KyString(std::string_view text) : d_(text) {}
    KyString(std::size_t count, char c) : d_(count, c) {}

    // Access to the bytes.
    const std::string& toStdString() const { return d_; }
    std::string& str() { return d_; }
    const std::string& str() const { return d_; }
    std::string_view view() const { return d_; }
    const char* c_str() const { return d_.c_str(); }
    const char* data() const { return d_.data(); }
    operator std::string_view() const { return d_; }
    std::size_t size() const { return d_.size(); }
    std::size_t length() const { return d_.size(); }
    bool isEmpty() const { return d_.empty(); }
    bool empty() const { return d_.empty(); }
    char at(std::size_t i) const { return d_.at(i); }
    char operator[](std::size_t i) const { return d_[i]; }
    char& operator[](std::size_t i) { return d_[i]; }
    void clear() { d_.clear(); }
    void reserve(std::size_t n) { d_.reserve(n); }
    void resize(std::size_t n, char c = '\0') { d_.resize(n, c); }
    std::string::const_iterator begin() const { return d_.begin(); }
    std::string::const_iterator end() const { return d_.end(); }

    // Building.
    KyString& append(std::string_view s) { d_.append(s); return *this; }
    KyString& append(char c) { d_.push_back(c); return *this; }
    KyString& prepend(std::string_view s) { d_.insert(0, s); return *this; }
    KyString& insert(std::size_t pos, std::string_view s);
    KyString& remove(std::size_t pos, std::size_t bytes);
    KyString& operator+=(std::string_view s) { d_.append(s); return *this; }
    KyString& operator+=(const KyString& s) { d_.append(s.d_); return *this; }
    KyString& operator+=(const char* s) { if (s) d_.append(s); return *this; }
    KyString& operator+=(char c) { d_.push_back(c); return *this; }
    void push_back(char c) { d_.push_back(c); }

    // Searching; positions are byte offsets, npos when absent.
    std::size_t indexOf(std::string_view needle, std::size_t from = 0) const;
    std::size_t indexOf(char c, std::size_t from = 0) const;
    std::size_t lastIndexOf(std::string_view needle, std::size_t from = npos) const;
    std::size_t lastIndexOf(char c, std::size_t from = npos) const;
    std::size_t find(std::string_view needle, std::size_t from = 0) const { return indexOf(needle, from); }
    bool contains(std::string_view needle) const { return d_.find(needle) != std::string::npos; }
    bool contains(char c) const { return d_.find(c) != std::string::npos; }
    bool startsWith(std::string_view prefix) const;
    bool endsWith(std::string_view suffix) const;
    std::size_t count(std::string_view needle) const;

    // Pieces; out-of-range requests are clamped, never thrown.
    KyString mid(std::size_t pos, std::size_t bytes = npos) const;
    KyString left(std::size_t bytes) const;
    KyString right(std::size_t bytes) const;
    KyString substr(std::size_t pos, std::size_t bytes = npos) const { return mid(pos, bytes); }

    // Transforms, returning a new value.
    KyString trimmed() const;            ///< without leading and trailing blanks, tabs, CR, LF, VT, FF
    KyString simplified() const;         ///< trimmed, inner runs of white space folded to one blank
    KyString toLower() const;            ///< ASCII letters only; other bytes unchanged
    KyString toUpper() const;
    KyString replaced(std::string_view from, std::string_view to) const;
    KyString& replace(std::string_view from, std::string_view to); ///< in place, every occurrence
    KyString repeated(std::size_t times) const; ///< std::length_error when the result cannot exist

    /// Split at every occurrence of sep. Empty pieces are kept unless skipEmpty.
    /// An empty separator gives the whole text as one piece.
    KyList<KyString> split(std::string_view sep, bool skipEmpty = false) const;
    KyList<KyString> split(char sep, bool skipEmpty = false) const;
    static KyString join(const KyList<KyString>& parts, std::string_view sep);
    static KyString join(const std::vector<KyString>& parts, std::string_view sep);

    // Strict number conversions; they throw std::runtime_error on bad text. The
    // decimal point is always '.', whatever the process locale; base is 0 (C
    // prefixes) or 2..36, any other base makes every text invalid.
    int toInt(int base = 10) const;
    long toLong(int base = 10) const;
    long long toLongLong(int base = 10) const;
    unsigned int toUInt(int base = 10) const;
    unsigned long long toULongLong(int base = 10) const;
    double toDouble() const;
    float toFloat() const;
    bool toBool() const; ///< "1", "true", "yes", "on" (any case) are true; "0", "false", "no", "off", "" false
    // Non-throwing forms: ok tells the caller whether the text was a number.
    int toInt(bool* ok, int base = 10) const;
    long long toLongLong(bool* ok, int base = 10) const;
    unsigned long long toULongLong(bool* ok, int base = 10) const;
    double toDouble(bool* ok) const;

    static KyString number(int v);
    static KyString number(long v);
    static KyString number(long long v);
    static KyString number(unsigned int v);
    static KyString number(unsigned long v);
    static KyString number(unsigned long long v);
    /// Shortest "%g"-style text that reads back as the same double, whole numbers
    /// below 1e17 written out in full; "nan", "inf", "-inf".
    static KyString number(double v);
    /// format 'f', 'e' or 'g' (upper case for upper-case output) as printf would, but
    /// always with a '.' decimal point; a negative precision means 6.
    static KyString number(double v, char format, int precision);

    /// printf-style formatting into a new string.
    static KyString format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

    /// Replaces the lowest-numbered %1..%99 marker (every occurrence of it) with the value.
    KyString arg(const KyString& value) const;
    KyString arg(const char* value) const { return arg(KyString(value)); }
    KyString arg(int v) const { return arg(number(v)); }
    KyString arg(long v) const { return arg(number(v)); }
    KyString arg(long long v) const { return arg(number(v)); }
    KyString arg(unsigned int v) const { return arg(number(v)); }
    KyString arg(unsigned long v) const { return arg(number(v)); }
    KyString arg(unsigned long long v) const { return arg(number(v)); }
    KyString arg(double v) const { return arg(number(v)); }

    // UTF-8 and wide text. Invalid bytes decode as U+FFFD.
    std::wstring toWString() const;
    static KyString fromWString(const std::wstring& text);
    std::u32string toUtf32() const;
    static KyString fromUtf32(const std::u32string& text);
    static KyString fromCodePoint(char32_t cp);
    /// Appends cp as UTF-8; surrogates and values past U+10FFFF become U+FFFD.
    static void appendCodePoint(std::string& out, char32_t cp);
    bool isValidUtf8() const;
    static bool isValidUtf8(std::string_view bytes);
    std::size_t codePointCount() const;
    /// Byte offset of the code point after the one at pos (size() at the end).
    std::size_t nextCodePoint(std::size_t pos) const;
    /// Start of the code point that holds the byte before pos (0 at the start).
    std::size_t previousCodePoint(std::size_t pos) const;
    /// pos moved back to the start of the code point it falls in.
    std::size_t alignToCodePoint(std::size_t pos) const;
    /// At most maxBytes bytes, cut on a code-point boundary.
    KyString truncatedUtf8(std::size_t maxBytes) const;

    friend bool operator==(const KyString& a, const KyString& b) { return a.d_ == b.d_; }
    friend bool operator==(const KyString& a, const char* b) { return b ? a.d_ == b : a.d_.empty(); }
    friend bool operator==(const KyString& a, std::string_view b) { return a.d_ == b; }
    friend bool operator==(const KyString& a, const std::string& b) { return a.d_ == b; }
    friend std::strong_ordering operator<=>(const KyString& a, const KyString& b) { return a.d_.compare(b.d_) <=> 0; }

    friend KyString operator+(const KyString& a, const KyString& b) { KyString r(a); r.d_ += b.d_; return r; }
    friend KyString operator+(KyString&& a, const KyString& b) { a.d_ += b.d_; return std::move(a); }
    friend KyString operator+(const KyString& a, const char* b) { KyString r(a); if (b) r.d_ += b; return r; }
    friend KyString operator+(KyString&& a, const char* b) { if (b) a.d_ += b; return std::move(a); }
    friend KyString operator+(const char* a, const KyString& b) { KyString r(a); r.d_ += b.d_; return r; }
    friend KyString operator+(const KyString& a, char b) { KyString r(a); r.d_ += b; return r; }
    friend KyString operator+(KyString&& a, char b) { a.d_ += b; return std::move(a); }
    friend KyString operator+(const KyString& a, const std::string& b) { KyString r(a); r.d_ += b; return r; }
    friend KyString operator+(const std::string& a, const KyString& b) { KyString r(a); r.d_ += b.d_; return r; }

private:
    std::string d_;
};

std::ostream& operator<<(std::ostream& os, const KyString& s);

template <> struct std::hash<KyString> {
    std::size_t operator()(const KyString& s) const noexcept { return std::hash<std::string>{}(s.toStdString()); }
};
