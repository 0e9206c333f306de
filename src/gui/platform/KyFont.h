// KyFont: the font a widget asks for, by family, size and style.
//
// A plain value. The last field caches what the font cache resolved for it on
// one connection, so that painting the same label again skips the lookup;
// a copy starts without it. The cache handle is an atomic pointer to a record
// the font cache never frees, so a font may be measured from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

class KyLinuxFontCache;

/// Family, sizes and style of a font; converts to a core X font through KyLinuxFontCache.
struct KyFont {
    std::wstring family;
    std::int32_t pointSize = 0;
    /// 0 or less means unset: the point size decides.
    std::int32_t pixelSize = 0;
    std::int32_t weight = 400;
    bool italic = false;
    bool underline = false;

    KyFont() = default;
    KyFont(std::wstring familyName, std::int32_t points, std::int32_t fontWeight = 400, bool isItalic = false)
        : family(std::move(familyName)), pointSize(points), weight(fontWeight), italic(isItalic) {}
    KyFont(const KyFont& other)
        : family(other.family), pointSize(other.pointSize), pixelSize(other.pixelSize), weight(other.weight),
          italic(other.italic), underline(other.underline) {}
    KyFont& operator=(const KyFont& other) {
        family = other.family;
        pointSize = other.pointSize;
        pixelSize = other.pixelSize;
        weight = other.weight;
        italic = other.italic;
        underline = other.underline;
        nativeHandle_.store(nullptr, std::memory_order_relaxed);
        return *this;
    }

    friend bool operator==(const KyFont& a, const KyFont& b) {
        return a.family == b.family && a.pointSize == b.pointSize && a.pixelSize == b.pixelSize &&
               a.weight == b.weight && a.italic == b.italic && a.underline == b.underline;
    }

private:
    friend class KyLinuxFontCache;
    /// The font cache's record for this font on the connection last used; reset on copy.
    mutable std::atomic<const void*> nativeHandle_{nullptr};
};
