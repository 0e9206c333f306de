// KySize: a width and a height in signed 32-bit device pixels.
//
// A plain value with public width and height. A size with a non-positive side
// is empty; a size with a negative side is also invalid (layouts use -1 for
// "not set"). No locking; copy it between threads.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iosfwd>

#include "core/types/KyPoint.h"

/// Width and height in device pixels.
struct KySize {
    std::int32_t width = 0;
    std::int32_t height = 0;

    constexpr KySize() noexcept = default;
    constexpr KySize(std::int32_t w, std::int32_t h) noexcept : width(w), height(h) {}

    /// True when either side is zero or negative: nothing fits in it.
    constexpr bool isEmpty() const noexcept { return width <= 0 || height <= 0; }
    /// True when neither side is negative.
    constexpr bool isValid() const noexcept { return width >= 0 && height >= 0; }
    /// Each side the larger of the two.
    constexpr KySize expandedTo(KySize o) const noexcept { return {std::max(width, o.width), std::max(height, o.height)}; }
    /// Each side the smaller of the two.
    constexpr KySize boundedTo(KySize o) const noexcept { return {std::min(width, o.width), std::min(height, o.height)}; }
    /// Area in 64 bits; 0 for an empty size.
    constexpr std::int64_t area() const noexcept { return isEmpty() ? 0 : std::int64_t(width) * height; }

    friend constexpr bool operator==(KySize, KySize) noexcept = default;
};

/// Prints "KySize(width x height)".
std::ostream& operator<<(std::ostream& os, const KySize& s);
