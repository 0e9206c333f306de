// KyPlatformImage: pixels in client memory, in one of the pixel formats.
//
// A plain buffer of height times pitch bytes with no row padding, owned by
// whoever created it; painters read it when they draw it. Not locked.
#pragma once

#include <cstdint>

#include "gui/platform/KyPlatformTypes.h"

/// Pixels of a known size and format, ready to be drawn.
class KyPlatformImage {
public:
    virtual ~KyPlatformImage() = default;
    virtual KyPlatformSize size() const = 0;
    virtual KyPixelFormat format() const = 0;
    /// Bytes per row: width times 3 for the 24-bit formats, times 4 otherwise.
    virtual int pitch() const = 0;
    virtual std::uint8_t* pixels() = 0;
    virtual const std::uint8_t* pixels() const = 0;
    /// Every pixel set to argb (0xAARRGGBB) in the format's byte order; the
    /// 24-bit formats drop alpha.
    virtual void clear(std::uint32_t argb) = 0;
};
