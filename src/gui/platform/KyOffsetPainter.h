// KyOffsetPainter: draws through another painter with every coordinate
// shifted by (dx, dy), so a child widget paints in its own coordinates into
// its parent's surface. Lives for one paint call on the GUI thread; does not
// own the inner painter, and does nothing when it is null.
#pragma once

#include "gui/platform/KyPainter.h"

/// A painter that shifts and forwards.
class KyOffsetPainter : public KyPainter {
public:
    KyOffsetPainter(KyPainter* inner, int dx, int dy) : inner_(inner), dx_(dx), dy_(dy) {}

    void clear(const KyColor& color) override;
    void fillRect(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) override;
    void fillRoundedRect(const KyRect& rect, int radius, const KyColor& fill, const KyColor& border,
                         int borderWidth) override;
    void fillRoundedRect(const KyRect& rect, int topLeft, int topRight, int bottomRight, int bottomLeft,
                         const KyColor& fill, const KyColor& border, int borderWidth) override;
    void drawRect(const KyRect& rect, const KyColor& color, int width) override;
    void drawDashedRect(const KyRect& rect, const KyColor& color, int width, int dash, int gap) override;
    void drawLine(int x1, int y1, int x2, int y2, const KyColor& color, int width) override;
    void fillPolygon(const KyPoint* points, int count, const KyColor& fill, const KyColor& border,
                     int borderWidth) override;
    void pushClipRect(const KyRect& rect) override;
    void popClipRect() override;
    void fillEllipse(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) override;
    void drawEllipse(const KyRect& rect, const KyColor& color, int width) override;
    void drawImage(const KyRect& rect, const KyPlatformImage& image, const KyRect* sourceRect) override;
    void drawBgra32(const KyRect& rect, const std::uint8_t* pixels, int width, int height, int stride) override;
    void drawNativeVideoFrame(const KyRect& rect, const KyVideoFrame* frame) override;
    void drawText(const KyRect& rect, const KyString& text, KyFlagSet<DrawTextFormat> format, const KyColor& color,
                  const KyFont& font) override;
    void finalize() override;
    KyRect mapToDevice(const KyRect& rect) const override;
    KyPoint mapToDevice(const KyPoint& point) const override;
    void* nativeHandle() const override;

private:
    KyRect shift_(const KyRect& r) const { return r.translated(dx_, dy_); }

    KyPainter* inner_;
    int dx_;
    int dy_;
};
