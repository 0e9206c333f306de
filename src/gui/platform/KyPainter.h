// KyPainter: the drawing surface widgets paint on.
//
// Every look on screen is made of these operations: filled and outlined
// rectangles (plain, rounded, dashed), lines, polygons, ellipses, images and
// text, under a stack of clip rectangles. Colours are opaque; only images
// carry alpha. Coordinates are device pixels of the surface the painter was
// begun on. A painter belongs to the thread that paints (the GUI thread).
#pragma once

#include <cstdint>

#include "core/types/KyColor.h"
#include "core/types/KyFlagSet.h"
#include "core/types/KyPoint.h"
#include "core/types/KyRect.h"
#include "core/types/KyString.h"
#include "gui/platform/KyFont.h"

class KyPlatformImage;
class KyVideoFrame;

/// Placement of text inside its rectangle: left and top unless a flag says otherwise.
enum class DrawTextFormat : std::int32_t {
    AlignHCenter = 1,
    AlignRight = 2,
    AlignVCenter = 4,
    AlignBottom = 8,
};
KY_DECLARE_FLAG_OPERATORS(DrawTextFormat)

/// The abstract drawing surface.
class KyPainter {
public:
    virtual ~KyPainter() = default;

    virtual void clear(const KyColor& color) = 0;
    /// Fills rect; with borderWidth above 0 also outlines it in border.
    virtual void fillRect(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) = 0;
    /// Radius clamped to half the smaller side: a tall narrow rect becomes a stadium.
    virtual void fillRoundedRect(const KyRect& rect, int radius, const KyColor& fill, const KyColor& border,
                                 int borderWidth) = 0;
    virtual void fillRoundedRect(const KyRect& rect, int topLeft, int topRight, int bottomRight, int bottomLeft,
                                 const KyColor& fill, const KyColor& border, int borderWidth) = 0;
    virtual void drawRect(const KyRect& rect, const KyColor& color, int width) = 0;
    /// dash and gap below 1 become 4.
    virtual void drawDashedRect(const KyRect& rect, const KyColor& color, int width, int dash, int gap) = 0;
    virtual void drawLine(int x1, int y1, int x2, int y2, const KyColor& color, int width) = 0;
    /// Needs at least 3 points.
    virtual void fillPolygon(const KyPoint* points, int count, const KyColor& fill, const KyColor& border,
                             int borderWidth) = 0;
    /// Intersects rect with the current clip and makes the result the clip.
    virtual void pushClipRect(const KyRect& rect) = 0;
    /// Back to the previous clip; on an empty stack clipping ends.
    virtual void popClipRect() = 0;
    virtual void fillEllipse(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) = 0;
    virtual void drawEllipse(const KyRect& rect, const KyColor& color, int width) = 0;
    /// Draws image (or its sourceRect part, when given) scaled into rect,
    /// blended over what is there by the image's alpha.
    virtual void drawImage(const KyRect& rect, const KyPlatformImage& image, const KyRect* sourceRect) = 0;
    /// Opaque BGRA pixels scaled into rect by nearest sampling; alpha is ignored.
    virtual void drawBgra32(const KyRect& rect, const std::uint8_t* pixels, int width, int height, int stride) = 0;
    virtual void drawNativeVideoFrame(const KyRect& rect, const KyVideoFrame* frame) = 0;
    /// UTF-8 text placed in rect by format and clipped to it (when rect is not empty).
    virtual void drawText(const KyRect& rect, const KyString& text, KyFlagSet<DrawTextFormat> format,
                          const KyColor& color, const KyFont& font) = 0;
    /// Presents the frame now (once); later drawing is not shown.
    virtual void finalize() = 0;
    virtual KyRect mapToDevice(const KyRect& rect) const { return rect; }
    virtual KyPoint mapToDevice(const KyPoint& point) const { return point; }
    /// The connection this painter draws through (an X Display), or null.
    virtual void* nativeHandle() const { return nullptr; }
};
