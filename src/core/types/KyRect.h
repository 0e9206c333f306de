// KyRect: an axis-aligned rectangle in signed 32-bit device pixels.
//
// A plain value with public x, y, width and height. Edges are half-open: the
// rectangle covers x <= px < right() and y <= py < bottom(), so right() is
// x + width and adjacent rectangles neither overlap nor leave a gap. A
// rectangle with a non-positive side is empty and contains nothing; one with a
// negative side is also invalid. Edge sums run in 64 bits and results saturate
// at the int32 range. No locking; copy it between threads.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "core/types/KyPoint.h"
#include "core/types/KySize.h"

/// Rectangle in device pixels with half-open edges.
struct KyRect {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;

    constexpr KyRect() noexcept = default;
    constexpr KyRect(std::int32_t px, std::int32_t py, std::int32_t w, std::int32_t h) noexcept
        : x(px), y(py), width(w), height(h) {}
    constexpr KyRect(KyPoint topLeft, KySize size) noexcept
        : x(topLeft.x), y(topLeft.y), width(size.width), height(size.height) {}
    /// The rectangle between two edge pairs given in 64 bits (right and bottom
    /// exclusive); each result field saturates.
    static KyRect fromEdges(std::int64_t left, std::int64_t top, std::int64_t right, std::int64_t bottom) noexcept;

    constexpr std::int32_t left() const noexcept { return x; }
    constexpr std::int32_t top() const noexcept { return y; }
    /// x + width: the first column to the right that is not covered.
    constexpr std::int32_t right() const noexcept { return ky::saturateToInt32(std::int64_t(x) + width); }
    /// y + height: the first row below that is not covered.
    constexpr std::int32_t bottom() const noexcept { return ky::saturateToInt32(std::int64_t(y) + height); }
    constexpr KyPoint topLeft() const noexcept { return {x, y}; }
    constexpr KySize size() const noexcept { return {width, height}; }
    /// The middle point, rounded toward the top-left.
    constexpr KyPoint center() const noexcept {
        return {ky::saturateToInt32(std::int64_t(x) + width / 2), ky::saturateToInt32(std::int64_t(y) + height / 2)};
    }

    constexpr bool isEmpty() const noexcept { return width <= 0 || height <= 0; }
    constexpr bool isValid() const noexcept { return width >= 0 && height >= 0; }
    constexpr bool isNull() const noexcept { return width == 0 && height == 0; }

    bool contains(KyPoint p) const noexcept;
    /// True when r is non-empty and lies wholly inside this rectangle.
    bool contains(const KyRect& r) const noexcept;
    /// True when both are non-empty and share at least one pixel.
    bool intersects(const KyRect& r) const noexcept;
    /// The shared part, or KyRect() when they do not intersect.
    KyRect intersected(const KyRect& r) const noexcept;
    /// The smallest rectangle holding both; an empty operand is ignored.
    KyRect united(const KyRect& r) const noexcept;
    /// Left and top moved by dx1 and dy1, right and bottom by dx2 and dy2.
    KyRect adjusted(std::int32_t dx1, std::int32_t dy1, std::int32_t dx2, std::int32_t dy2) const noexcept;
    KyRect translated(std::int32_t dx, std::int32_t dy) const noexcept;
    KyRect translated(KyPoint offset) const noexcept { return translated(offset.x, offset.y); }

    friend constexpr bool operator==(const KyRect&, const KyRect&) noexcept = default;
};

/// Prints "KyRect(x, y width x height)".
std::ostream& operator<<(std::ostream& os, const KyRect& r);
