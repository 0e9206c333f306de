// KyX11PlatformImage: the X11 backend's client-side image, a zero-filled byte
// buffer of exactly height times pitch bytes. Owned by its creator; not locked.
#pragma once

#include <vector>

#include "gui/platform/KyPlatformImage.h"

/// Pixels in client memory; painters upload them with XPutImage.
class KyX11PlatformImage : public KyPlatformImage {
public:
    /// Unknown becomes Bgra32; negative sides become 0.
    KyX11PlatformImage(KyPlatformSize size, KyPixelFormat format);

    KyPlatformSize size() const override { return size_; }
    KyPixelFormat format() const override { return format_; }
    int pitch() const override { return pitch_; }
    std::uint8_t* pixels() override { return bytes_.data(); }
    const std::uint8_t* pixels() const override { return bytes_.data(); }
    void clear(std::uint32_t argb) override;

    /// Bytes per pixel of a format: 3 for the 24-bit ones, 4 otherwise.
    static int bytesPerPixel(KyPixelFormat format);

private:
    KyPlatformSize size_;
    KyPixelFormat format_;
    int pitch_ = 0;
    std::vector<std::uint8_t> bytes_;
};
