// KyRect: containment, intersection and union on half-open edges. Every edge
// is computed in 64 bits so that rectangles near the int32 limits compare
// correctly; only the stored result saturates.
#include "core/types/KyRect.h"

#include <algorithm>
#include <ostream>

namespace {
std::int64_t right64(const KyRect& r) { return std::int64_t(r.x) + r.width; }
std::int64_t bottom64(const KyRect& r) { return std::int64_t(r.y) + r.height; }
} // namespace

KyRect KyRect::fromEdges(std::int64_t left, std::int64_t top, std::int64_t right, std::int64_t bottom) noexcept {
    const std::int32_t x = ky::saturateToInt32(left);
    const std::int32_t y = ky::saturateToInt32(top);
    // The size is measured from the stored (possibly clamped) origin, so that
    // right() of the result stays as close to the asked edge as int32 allows.
    return KyRect(x, y, ky::saturateToInt32(right - x), ky::saturateToInt32(bottom - y));
}

bool KyRect::contains(KyPoint p) const noexcept {
    return !isEmpty() && p.x >= x && p.y >= y && p.x < right64(*this) && p.y < bottom64(*this);
}

bool KyRect::contains(const KyRect& r) const noexcept {
    return !isEmpty() && !r.isEmpty() && r.x >= x && r.y >= y && right64(r) <= right64(*this) &&
           bottom64(r) <= bottom64(*this);
}

bool KyRect::intersects(const KyRect& r) const noexcept {
    return !isEmpty() && !r.isEmpty() && std::max<std::int64_t>(x, r.x) < std::min(right64(*this), right64(r)) &&
           std::max<std::int64_t>(y, r.y) < std::min(bottom64(*this), bottom64(r));
}

KyRect KyRect::intersected(const KyRect& r) const noexcept {
    if (!intersects(r)) return KyRect();
    return fromEdges(std::max(x, r.x), std::max(y, r.y), std::min(right64(*this), right64(r)),
                     std::min(bottom64(*this), bottom64(r)));
}

KyRect KyRect::united(const KyRect& r) const noexcept {
    if (r.isEmpty()) return isEmpty() ? KyRect() : *this;
    if (isEmpty()) return r;
    return fromEdges(std::min(x, r.x), std::min(y, r.y), std::max(right64(*this), right64(r)),
                     std::max(bottom64(*this), bottom64(r)));
}

KyRect KyRect::adjusted(std::int32_t dx1, std::int32_t dy1, std::int32_t dx2, std::int32_t dy2) const noexcept {
    return fromEdges(std::int64_t(x) + dx1, std::int64_t(y) + dy1, right64(*this) + dx2, bottom64(*this) + dy2);
}

KyRect KyRect::translated(std::int32_t dx, std::int32_t dy) const noexcept {
    // Moving keeps the size: a rectangle pushed against the limit stops there.
    const std::int32_t nx = ky::saturateToInt32(std::int64_t(x) + dx);
    const std::int32_t ny = ky::saturateToInt32(std::int64_t(y) + dy);
    return KyRect(nx, ny, width, height);
}

std::ostream& operator<<(std::ostream& os, const KyRect& r) {
    return os << "KyRect(" << r.x << ", " << r.y << " " << r.width << " x " << r.height << ")";
}
