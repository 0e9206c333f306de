// KyX11PlatformImage: sizing and clearing of client-side pixel buffers.
#include "gui/platform/KyX11PlatformImage.h"

#include <algorithm>

int KyX11PlatformImage::bytesPerPixel(KyPixelFormat format) {
    return (format == KyPixelFormat::Rgb24 || format == KyPixelFormat::Bgr24) ? 3 : 4;
}

KyX11PlatformImage::KyX11PlatformImage(KyPlatformSize size, KyPixelFormat format)
    : size_{std::max(0, size.width), std::max(0, size.height)},
      format_(format == KyPixelFormat::Unknown ? KyPixelFormat::Bgra32 : format) {
    pitch_ = size_.width * bytesPerPixel(format_);
    bytes_.assign(static_cast<std::size_t>(pitch_) * static_cast<std::size_t>(size_.height), 0);
}

void KyX11PlatformImage::clear(std::uint32_t argb) {
    if (bytes_.empty()) return;
    const auto a = static_cast<std::uint8_t>(argb >> 24);
    const auto r = static_cast<std::uint8_t>(argb >> 16);
    const auto g = static_cast<std::uint8_t>(argb >> 8);
    const auto b = static_cast<std::uint8_t>(argb);
    std::uint8_t pixel[4] = {0, 0, 0, 0};
    switch (format_) {
    case KyPixelFormat::Rgb24: pixel[0] = r, pixel[1] = g, pixel[2] = b; break;
    case KyPixelFormat::Bgr24: pixel[0] = b, pixel[1] = g, pixel[2] = r; break;
    case KyPixelFormat::Rgba32: pixel[0] = r, pixel[1] = g, pixel[2] = b, pixel[3] = a; break;
    default: pixel[0] = b, pixel[1] = g, pixel[2] = r, pixel[3] = a; break;
    }
    const int step = bytesPerPixel(format_);
    for (std::size_t i = 0; i + static_cast<std::size_t>(step) <= bytes_.size(); i += static_cast<std::size_t>(step))
        std::copy(pixel, pixel + step, bytes_.begin() + static_cast<std::ptrdiff_t>(i));
}
