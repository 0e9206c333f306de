// KyOffsetPainter: each operation shifted and forwarded.
#include "gui/platform/KyOffsetPainter.h"

#include <vector>

void KyOffsetPainter::clear(const KyColor& color) {
    if (inner_) inner_->clear(color);
}

void KyOffsetPainter::fillRect(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) {
    if (inner_) inner_->fillRect(shift_(rect), fill, border, borderWidth);
}

void KyOffsetPainter::fillRoundedRect(const KyRect& rect, int radius, const KyColor& fill, const KyColor& border,
                                      int borderWidth) {
    if (inner_) inner_->fillRoundedRect(shift_(rect), radius, fill, border, borderWidth);
}

void KyOffsetPainter::fillRoundedRect(const KyRect& rect, int topLeft, int topRight, int bottomRight, int bottomLeft,
                                      const KyColor& fill, const KyColor& border, int borderWidth) {
    if (inner_) inner_->fillRoundedRect(shift_(rect), topLeft, topRight, bottomRight, bottomLeft, fill, border, borderWidth);
}

void KyOffsetPainter::drawRect(const KyRect& rect, const KyColor& color, int width) {
    if (inner_) inner_->drawRect(shift_(rect), color, width);
}

void KyOffsetPainter::drawDashedRect(const KyRect& rect, const KyColor& color, int width, int dash, int gap) {
    if (inner_) inner_->drawDashedRect(shift_(rect), color, width, dash, gap);
}

void KyOffsetPainter::drawLine(int x1, int y1, int x2, int y2, const KyColor& color, int width) {
    if (inner_) inner_->drawLine(x1 + dx_, y1 + dy_, x2 + dx_, y2 + dy_, color, width);
}

void KyOffsetPainter::fillPolygon(const KyPoint* points, int count, const KyColor& fill, const KyColor& border,
                                  int borderWidth) {
    if (!inner_ || !points || count <= 0) return;
    // Nested offset painters each shift into their own copy.
    std::vector<KyPoint> local(points, points + count);
    for (KyPoint& p : local) p = p + KyPoint(dx_, dy_);
    inner_->fillPolygon(local.data(), count, fill, border, borderWidth);
}

void KyOffsetPainter::pushClipRect(const KyRect& rect) {
    if (inner_) inner_->pushClipRect(shift_(rect));
}

void KyOffsetPainter::popClipRect() {
    if (inner_) inner_->popClipRect();
}

void KyOffsetPainter::fillEllipse(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) {
    if (inner_) inner_->fillEllipse(shift_(rect), fill, border, borderWidth);
}

void KyOffsetPainter::drawEllipse(const KyRect& rect, const KyColor& color, int width) {
    if (inner_) inner_->drawEllipse(shift_(rect), color, width);
}

void KyOffsetPainter::drawImage(const KyRect& rect, const KyPlatformImage& image, const KyRect* sourceRect) {
    if (inner_) inner_->drawImage(shift_(rect), image, sourceRect);
}

void KyOffsetPainter::drawBgra32(const KyRect& rect, const std::uint8_t* pixels, int width, int height, int stride) {
    if (inner_) inner_->drawBgra32(shift_(rect), pixels, width, height, stride);
}

void KyOffsetPainter::drawNativeVideoFrame(const KyRect& rect, const KyVideoFrame* frame) {
    if (inner_) inner_->drawNativeVideoFrame(shift_(rect), frame);
}

void KyOffsetPainter::drawText(const KyRect& rect, const KyString& text, KyFlagSet<DrawTextFormat> format,
                               const KyColor& color, const KyFont& font) {
    if (inner_) inner_->drawText(shift_(rect), text, format, color, font);
}

void KyOffsetPainter::finalize() {
    if (inner_) inner_->finalize();
}

KyRect KyOffsetPainter::mapToDevice(const KyRect& rect) const {
    return inner_ ? inner_->mapToDevice(shift_(rect)) : shift_(rect);
}

KyPoint KyOffsetPainter::mapToDevice(const KyPoint& point) const {
    const KyPoint shifted = point + KyPoint(dx_, dy_);
    return inner_ ? inner_->mapToDevice(shifted) : shifted;
}

void* KyOffsetPainter::nativeHandle() const { return inner_ ? inner_->nativeHandle() : nullptr; }
