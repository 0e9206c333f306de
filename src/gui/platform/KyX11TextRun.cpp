// KyX11TextRun: UTF-8 to 16-bit glyph indices, extents and drawing.
#include "gui/platform/KyX11TextRun.h"

#include <algorithm>
#include <vector>

namespace {

// Per-thread scratch, reused by every run of the thread.
struct Scratch {
    std::vector<XChar2b> glyphs;
    std::vector<std::size_t> offsets; ///< start byte of each glyph, then the text's length
};
thread_local Scratch tScratch;

// Decodes the code point at pos and moves pos past it. The rules are those of
// the string type's own walk (overlong forms, surrogates and truncated
// sequences are one invalid byte each), so that cursor positions the widgets
// compute land on the boundaries used here.
char32_t decodeAt(std::string_view s, std::size_t& pos) {
    const auto c = static_cast<unsigned char>(s[pos]);
    if (c < 0x80) {
        ++pos;
        return c;
    }
    int extra = 0;
    char32_t cp = 0;
    char32_t minimum = 0;
    if ((c & 0xE0) == 0xC0) extra = 1, cp = c & 0x1F, minimum = 0x80;
    else if ((c & 0xF0) == 0xE0) extra = 2, cp = c & 0x0F, minimum = 0x800;
    else if ((c & 0xF8) == 0xF0) extra = 3, cp = c & 0x07, minimum = 0x10000;
    if (extra == 0 || pos + extra >= s.size()) {
        ++pos;
        return 0xFFFD;
    }
    for (int i = 1; i <= extra; ++i) {
        const auto cc = static_cast<unsigned char>(s[pos + i]);
        if ((cc & 0xC0) != 0x80) {
            ++pos;
            return 0xFFFD;
        }
        cp = (cp << 6) | (cc & 0x3F);
    }
    if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        ++pos;
        return 0xFFFD;
    }
    pos += static_cast<std::size_t>(extra) + 1;
    return cp;
}

// True when the 16-bit font has a glyph for cp (Xlib's test: a character
// with all-zero metrics does not exist).
bool hasGlyph(const XFontStruct* font, unsigned cp) {
    const unsigned byte1 = cp >> 8, byte2 = cp & 0xFF;
    if (byte1 < font->min_byte1 || byte1 > font->max_byte1 || byte2 < font->min_char_or_byte2 ||
        byte2 > font->max_char_or_byte2)
        return false;
    if (!font->per_char) return true;
    const unsigned columns = font->max_char_or_byte2 - font->min_char_or_byte2 + 1;
    const XCharStruct& c = font->per_char[(byte1 - font->min_byte1) * columns + (byte2 - font->min_char_or_byte2)];
    return c.width != 0 || c.lbearing != 0 || c.rbearing != 0 || c.ascent != 0 || c.descent != 0;
}

// What a character the font lacks shows as: the font's default character,
// else the replacement character, else '?', so that it never vanishes.
unsigned missingGlyph(const XFontStruct* font) {
    for (unsigned candidate : {static_cast<unsigned>(font->default_char), 0xFFFDu, static_cast<unsigned>('?')})
        if (hasGlyph(font, candidate)) return candidate;
    return font->default_char;
}

} // namespace

KyX11TextRun::KyX11TextRun(const KyLinuxFontCache::Resolved& font, std::string_view utf8)
    : font_(font.font), ascent_(font.ascent), descent_(font.descent), unicode_(font.font && font.unicode), text_(utf8) {
    if (!unicode_) {
        covered_ = font_ && std::all_of(text_.begin(), text_.end(), [](char c) { return (c & 0x80) == 0; });
        return;
    }
    Scratch& s = tScratch;
    s.glyphs.clear();
    s.offsets.clear();
    unsigned fallback = ~0u;
    for (std::size_t pos = 0; pos < text_.size();) {
        s.offsets.push_back(pos);
        char32_t cp = decodeAt(text_, pos);
        // Beyond the plane a 16-bit index cannot reach, and glyphs the font
        // lacks: one stand-in, which the server draws and Xlib measures alike.
        if (cp > 0xFFFF || !hasGlyph(font_, cp)) {
            covered_ = false;
            if (fallback == ~0u) fallback = missingGlyph(font_);
            cp = fallback;
        }
        s.glyphs.push_back(XChar2b{static_cast<unsigned char>(cp >> 8), static_cast<unsigned char>(cp & 0xFF)});
    }
    s.offsets.push_back(text_.size());
}

int KyX11TextRun::extents_(std::size_t count, int* ascent, int* descent) const {
    int dir = 0, a = 0, d = 0;
    XCharStruct overall{};
    if (unicode_) XTextExtents16(font_, tScratch.glyphs.data(), static_cast<int>(count), &dir, &a, &d, &overall);
    else XTextExtents(font_, text_.data(), static_cast<int>(count), &dir, &a, &d, &overall);
    // The font's own ascent and descent, not this text's: lines of one font
    // share a baseline whatever letters they hold.
    if (ascent) *ascent = ascent_;
    if (descent) *descent = descent_;
    return overall.width;
}

int KyX11TextRun::width(int* ascent, int* descent) const {
    if (!font_) return 0;
    return extents_(unicode_ ? tScratch.glyphs.size() : text_.size(), ascent, descent);
}

int KyX11TextRun::widthUntil(std::size_t bytes) const {
    if (!font_ || text_.empty()) return 0;
    if (!unicode_) return extents_(std::min(bytes, text_.size()), nullptr, nullptr);
    const auto& offsets = tScratch.offsets;
    std::size_t count = 0;
    while (count < tScratch.glyphs.size() && offsets[count + 1] <= bytes) ++count;
    return extents_(count, nullptr, nullptr);
}

int KyX11TextRun::charWidth_(std::size_t index) const {
    if (unicode_) return XTextWidth16(font_, &tScratch.glyphs[index], 1);
    return XTextWidth(font_, text_.data() + index, 1);
}

std::size_t KyX11TextRun::indexAt(int x) const {
    if (x < 1 || !font_) return 0;
    const std::size_t count = unicode_ ? tScratch.glyphs.size() : text_.size();
    int sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        sum += charWidth_(i);
        if (x < sum) return unicode_ ? tScratch.offsets[i] : i;
    }
    return text_.size();
}

void KyX11TextRun::draw(Display* display, Drawable drawable, GC gc, int x, int y) const {
    if (unicode_) XDrawString16(display, drawable, gc, x, y, tScratch.glyphs.data(), static_cast<int>(tScratch.glyphs.size()));
    else XDrawString(display, drawable, gc, x, y, text_.data(), static_cast<int>(text_.size()));
}
