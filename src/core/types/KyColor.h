// KyColor: an opaque RGB colour as painters and style sheets use it.
//
// Three public ints r, g and b from 0 to 255; there is no alpha. Constructors
// and fromRgb clamp each channel into range, so a computed shade never wraps to
// a different colour. Text forms are "#rrggbb" (name()) and, for parsing, also
// the short "#rgb". No locking; copy it between threads.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string_view>

#include "core/types/KyString.h"

/// Opaque RGB colour, each channel 0..255.
struct KyColor {
    std::int32_t r = 0;
    std::int32_t g = 0;
    std::int32_t b = 0;

    /// Black.
    constexpr KyColor() noexcept : r(0), g(0), b(0) {}
    /// Each channel clamped into 0..255.
    constexpr KyColor(int red, int green, int blue) noexcept : r(clampChannel(red)), g(clampChannel(green)), b(clampChannel(blue)) {}

    static constexpr KyColor fromRgb(int red, int green, int blue) noexcept { return KyColor(red, green, blue); }
    /// From a packed 0xRRGGBB value; bits above the low 24 are ignored.
    static constexpr KyColor fromRgb(std::uint32_t rgb) noexcept {
        return KyColor(int((rgb >> 16) & 0xFF), int((rgb >> 8) & 0xFF), int(rgb & 0xFF));
    }
    /// Reads "#rgb" or "#rrggbb" (hex digits in either case, blanks around
    /// allowed); anything else gives no value.
    static std::optional<KyColor> parse(std::string_view text);
    /// parse(text), or fallback when the text is not a colour.
    static KyColor fromName(std::string_view text, const KyColor& fallback = KyColor());

    constexpr int red() const noexcept { return clampChannel(r); }
    constexpr int green() const noexcept { return clampChannel(g); }
    constexpr int blue() const noexcept { return clampChannel(b); }
    /// Packed 0xRRGGBB, the pixel value of a 24-bit TrueColor visual.
    constexpr std::uint32_t rgb() const noexcept {
        return (std::uint32_t(red()) << 16) | (std::uint32_t(green()) << 8) | std::uint32_t(blue());
    }
    /// "#rrggbb" in lower case.
    KyString name() const;

    friend constexpr bool operator==(const KyColor&, const KyColor&) noexcept = default;

private:
    static constexpr std::int32_t clampChannel(int v) noexcept { return v < 0 ? 0 : (v > 255 ? 255 : v); }
};

/// Prints "KyColor(#rrggbb)".
std::ostream& operator<<(std::ostream& os, const KyColor& c);
