// KySettingsFormat: the text form of a settings store, both ways.
//
// The file is UTF-8 text in lines:
//
//   ; a comment (also '#'), blank lines are ignored
//   rootKey=value            keys before any section belong to no group
//   [login]
//   lastEmail=ann@example.org
//   [login/advanced]         nested groups are written as "group/sub"
//   retries=3
//
// Keys and values are stored as given, with these escapes: "\\" for a
// backslash, "\n", "\r", "\t", "\0" for line feed, carriage return, tab and
// NUL, and "\s" for a blank at the start or end (so hand-written "key = value"
// may carry blanks around '=' that are not part of the value). In keys and
// section names '=', '[' and ']' are escaped too, as are a leading ';' or '#'.
// Any other character after a backslash stands for itself. A '/' in a key
// separates groups; empty components ("a//b", "/a") are dropped.
//
// A text is corrupt (parse() fails, naming the line) when it holds a NUL byte
// or invalid UTF-8, or a line that is neither blank, a comment, a "[section]"
// nor "key=value", or a key that is empty, or a backslash that ends a line.
// When a key appears twice the later line wins.
//
// String lists are stored in one value: every item is followed by ',' and
// escapes '\' and ',' with a backslash, so [] is "", [""] is "," and
// ["a,b", "c"] is "a\,b,c,". A last item without its ',' (hand-written
// "a,b") still counts.
//
// Stateless; any thread may call it.
#pragma once

#include "core/types/KyList.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"

/// Parser and writer of the settings text format; keys are full paths ("group/sub/key").
class KySettingsFormat {
public:
    using Entries = KyMap<KyString, KyString>;

    /// Parses text into entries (replacing out). On failure out is empty and
    /// error, when given, tells which line and why.
    static bool parse(const KyString& text, Entries& out, KyString* error = nullptr);
    /// The text of entries: root keys first, then one section per group, in key order.
    static KyString serialize(const Entries& entries);

    /// "a//b/" -> "a/b": components joined by single slashes.
    static KyString normalizeKey(const KyString& key);

    static KyString encodeStringList(const KyList<KyString>& items);
    static KyList<KyString> decodeStringList(const KyString& text);

    /// Escapes for one value, and the reverse (false on a dangling backslash).
    static KyString escapeValue(const KyString& value);
    static bool unescape(std::string_view raw, KyString& out);
    /// Escapes for one key component or section name.
    static KyString escapeKey(const KyString& key);
};
