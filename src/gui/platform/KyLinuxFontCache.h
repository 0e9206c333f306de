// KyLinuxFontCache: turns a KyFont into a core X font, once per connection
// and key.
//
// Each font has two faces. ASCII text, most of what a desktop console shows,
// takes the family's Latin-1 face: cheap to load. Any other text takes the
// ISO 10646 face, loaded the first time such a text comes, through the
// resolution chain. The chain asks the server for the family at the wanted
// pixel size, weight and slant, preferring the ISO 10646 encoding of a face
// (so that every code point of the Basic Multilingual Plane can be drawn), then
// the face in whatever encoding the server lists first, then the family as a
// whole font name, then DejaVu Sans, a generic sans and "fixed". Loading is a
// server round trip that costs milliseconds for a Unicode face, so every font
// that loaded is kept until its connection is forgotten (at shutdown).
//
// Threads: any thread may acquire fonts; the map has one mutex, and a KyFont
// remembers its record so a repeated acquire takes no lock at all.
#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "gui/platform/KyFont.h"

/// Process-wide cache of loaded core fonts.
class KyLinuxFontCache {
public:
    /// What a font is cached under, ordered by family bytes, pixel size, bold, italic, underline.
    struct Key {
        std::string family;
        std::int32_t pixelSize = 12;
        bool bold = false;
        bool italic = false;
        bool underline = false;
        bool operator<(const Key& o) const;
        bool operator==(const Key& o) const = default;
    };

    /// A loaded font and how its glyphs are indexed: by code point (an
    /// ISO 10646 font, drawn with the 16-bit calls) or by byte.
    struct Resolved {
        XFontStruct* font = nullptr;
        bool unicode = false;
        /// Where lines of this font sit. Both faces of a font carry those of
        /// its ASCII face: the ISO 10646 face counts the tallest glyph of any
        /// script, and text must not jump when one letter leaves ASCII.
        int ascent = 0;
        int descent = 0;
    };

    /// The font for font on display, loading it on first use; null without a display.
    static XFontStruct* acquire(Display* display, const KyFont& font);
    /// The face to measure and draw text with: the font's Latin-1 face for
    /// plain ASCII, its ISO 10646 face (loaded on first need) for anything else.
    static Resolved resolve(Display* display, const KyFont& font, std::string_view text = {});
    /// The cache key: family normalised (lower case, blanks and underscores
    /// as '-', "segoe-ui" as "dejavu-sans"), pixel size from the point size at
    /// 96 dpi when unset (12 when neither is set), bold from weight 600.
    static Key keyFor(const KyFont& font);
    /// "-*-<family>-<bold|medium>-<i|r>-*-*-<px>-*-*-*-*-*-*-*"; registry, when
    /// given, replaces the last two fields.
    static std::string buildPattern(const std::string& family, int pixelSize, bool bold, bool italic,
                                    const char* registry = nullptr, const char* slant = nullptr);
    /// Frees every font loaded on display and forgets them; call before the connection closes.
    static void forgetDisplay(Display* display);

private:
    struct Record;
    /// wide: the ISO 10646 chain below; otherwise the family's Latin-1 face
    /// first, and the same chain where the server has none.
    static Resolved load_(Display* display, const Key& key, bool wide);
};
