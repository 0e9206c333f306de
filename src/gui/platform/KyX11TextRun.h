// KyX11TextRun: one UTF-8 string laid out in one core font, the single place
// where text is both measured and drawn, so the two always agree.
//
// With an ISO 10646 font the run holds one 16-bit glyph index per code point
// (the Basic Multilingual Plane; anything beyond it or missing from the font
// shows as the font's default character, or U+FFFD or '?' when that is
// missing too, so no character vanishes) and measures and draws with the
// 16-bit calls. With any other font it works on the bytes themselves.
// Positions are byte offsets into the UTF-8 text either way.
//
// A run borrows per-thread scratch buffers: build, use and drop it within one
// call, one run per thread at a time.
#pragma once

#include <X11/Xlib.h>

#include <cstddef>
#include <string_view>

#include "gui/platform/KyLinuxFontCache.h"

/// Text measured and drawn in one font.
class KyX11TextRun {
public:
    KyX11TextRun(const KyLinuxFontCache::Resolved& font, std::string_view utf8);
    KyX11TextRun(const KyX11TextRun&) = delete;
    KyX11TextRun& operator=(const KyX11TextRun&) = delete;

    /// Advance width of the whole run, with the font's ascent and descent.
    int width(int* ascent = nullptr, int* descent = nullptr) const;
    /// Width of the characters that end within the first bytes bytes.
    int widthUntil(std::size_t bytes) const;
    /// Byte offset of the first character whose right edge lies beyond x, or
    /// the text's length when none does; x below 1 gives 0.
    std::size_t indexAt(int x) const;
    /// Draws the run with its baseline origin at (x, y); the GC's font must be set.
    void draw(Display* display, Drawable drawable, GC gc, int x, int y) const;
    /// True when every character has a glyph of its own in the font, so that
    /// nothing shows as the stand-in (a byte font covers ASCII alone).
    bool coversAll() const { return covered_; }

private:
    int extents_(std::size_t count, int* ascent, int* descent) const;
    int charWidth_(std::size_t index) const;

    XFontStruct* font_;
    int ascent_ = 0;
    int descent_ = 0;
    bool unicode_;
    bool covered_ = true;
    std::string_view text_;
};
