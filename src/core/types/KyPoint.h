// KyPoint: a position in signed 32-bit device pixels.
//
// A plain value with public x and y, as painters and events pass it. Sums and
// differences saturate at the int32 range instead of wrapping, so a far-off
// offset cannot turn into a position on the other side of the screen. No
// locking; copy it between threads.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iosfwd>
#include <limits>

namespace ky {
/// The 64-bit value clamped into int32: geometry sums are done in 64 bits and
/// brought back here.
constexpr std::int32_t saturateToInt32(std::int64_t v) noexcept {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}
} // namespace ky

/// A point in device pixels.
struct KyPoint {
    std::int32_t x = 0;
    std::int32_t y = 0;

    constexpr KyPoint() noexcept = default;
    constexpr KyPoint(std::int32_t px, std::int32_t py) noexcept : x(px), y(py) {}

    constexpr bool isNull() const noexcept { return x == 0 && y == 0; }
    /// |x| + |y|, in 64 bits so that it cannot overflow.
    constexpr std::int64_t manhattanLength() const noexcept {
        const std::int64_t ax = x < 0 ? -std::int64_t(x) : x;
        const std::int64_t ay = y < 0 ? -std::int64_t(y) : y;
        return ax + ay;
    }

    constexpr KyPoint& operator+=(KyPoint o) noexcept { return *this = *this + o; }
    constexpr KyPoint& operator-=(KyPoint o) noexcept { return *this = *this - o; }

    friend constexpr KyPoint operator+(KyPoint a, KyPoint b) noexcept {
        return {ky::saturateToInt32(std::int64_t(a.x) + b.x), ky::saturateToInt32(std::int64_t(a.y) + b.y)};
    }
    friend constexpr KyPoint operator-(KyPoint a, KyPoint b) noexcept {
        return {ky::saturateToInt32(std::int64_t(a.x) - b.x), ky::saturateToInt32(std::int64_t(a.y) - b.y)};
    }
    friend constexpr KyPoint operator-(KyPoint a) noexcept {
        return {ky::saturateToInt32(-std::int64_t(a.x)), ky::saturateToInt32(-std::int64_t(a.y))};
    }
    friend constexpr bool operator==(KyPoint, KyPoint) noexcept = default;
};

/// Prints "KyPoint(x, y)".
std::ostream& operator<<(std::ostream& os, const KyPoint& p);
