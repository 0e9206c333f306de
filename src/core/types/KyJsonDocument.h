// KyJsonDocument: the JSON text boundary — a root value plus the strict
// parser and the generator that turn it into and out of text.
//
// loadFromJson accepts exactly RFC 8259 JSON (one value, any type, at the
// root) and refuses everything else with a located message: trailing text,
// leading zeros, bad or unpaired \u escapes, raw control characters in
// strings, invalid UTF-8, nesting deeper than kMaxDepth and empty input. A
// leading UTF-8 byte order mark is skipped, as editors like to write one.
// Numbers whose magnitude overflows a double are refused; those that
// underflow read as zero. A repeated member name keeps its first position and
// the last value. On failure the document keeps its earlier root, so a caller
// may load a layer straight into the document it wants replaced only on
// success.
//
// Errors carry a line and a column, both counted from 1; the column counts
// bytes, and only "\n" starts a new line.
//
// generateJson writes Compact text (no blanks) or Indented text (four spaces
// per level, one member or item per line, a final newline). Doubles are
// written in the shortest form that reads back to the same bits and always
// carry a '.' or an exponent, so they parse back as doubles; NaN and the
// infinities are written as null. Strings escape '"', '\\' and control
// characters ("\n", "\t" and friends in short form, others as \u00XX); '/'
// and non-ASCII text are written as they are, and invalid UTF-8 in values
// built in code is written as U+FFFD.
//
// A plain value: no locking; const documents may be read from several threads.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/types/KyJsonValue.h"
#include "core/types/KyString.h"

/// JSON document: root value, strict parsing with located errors, generation.
class KyJsonDocument {
public:
    enum Format { Compact, Indented };
    /// Arrays and objects nested deeper than this are refused by the parser.
    static constexpr int kMaxDepth = 256;

    KyJsonDocument() = default;
    explicit KyJsonDocument(KyJsonValue root) : root_(std::move(root)) {}

    /// Parses text into the root; false with errorString() set on bad text, the
    /// root then being left as it was. Success clears the error.
    bool loadFromJson(std::string_view text);
    /// A document parsed from text; on failure the root is null and, when
    /// given, *ok is false (the error stays readable on the result).
    static KyJsonDocument fromJson(std::string_view text, bool* ok = nullptr);

    KyString generateJson(Format format = Compact) const;
    /// Text of any value, as generateJson would write it as a root.
    static KyString generateJson(const KyJsonValue& value, Format format);

    /// "line L, column C: message", or empty after a success.
    const KyString& errorString() const { return errorString_; }
    bool hasError() const { return !errorString_.isEmpty(); }
    int errorLine() const { return errorLine_; }
    int errorColumn() const { return errorColumn_; }
    /// Byte offset of the error in the text.
    std::size_t errorOffset() const { return errorOffset_; }

    /// Path lookup on the root (see KyJsonValue::find): "vpn/filter/enabled",
    /// "items/0/name"; with create, missing members are added along the way.
    KyJsonValue* find(std::string_view path, bool create = false) { return root_.find(path, create); }
    const KyJsonValue* find(std::string_view path) const { return root_.find(path); }

    const KyJsonValue& root() const { return root_; }
    KyJsonValue& root() { return root_; }
    void setRoot(KyJsonValue root) { root_ = std::move(root); }
    bool isNull() const { return root_.isNull(); }
    bool isObject() const { return root_.isObject(); }
    bool isArray() const { return root_.isArray(); }
    /// Copies of the root; empty when the root is of another type.
    KyJsonObject object() const { return root_.toObject(); }
    KyJsonArray array() const { return root_.toArray(); }
    void setObject(KyJsonObject object) { root_ = KyJsonValue(std::move(object)); }
    void setArray(KyJsonArray array) { root_ = KyJsonValue(std::move(array)); }
    /// Null root and no error.
    void clear();

    friend bool operator==(const KyJsonDocument& a, const KyJsonDocument& b) { return a.root_ == b.root_; }
    friend bool operator!=(const KyJsonDocument& a, const KyJsonDocument& b) { return !(a == b); }

private:
    KyJsonValue root_;
    KyString errorString_;
    int errorLine_ = 0;
    int errorColumn_ = 0;
    std::size_t errorOffset_ = 0;
};
