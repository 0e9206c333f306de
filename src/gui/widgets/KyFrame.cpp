// KyFrame: the frame shapes drawn over the styled box.
#include "gui/widgets/KyFrame.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {
constexpr KyColor kLight{255, 255, 255};
constexpr KyColor kShade{160, 160, 160};
constexpr KyColor kPlainLine{204, 204, 204};
} // namespace

KyFrame::KyFrame(KyWidget* parent) : KyWidget(parent) { setFocusPolicy(NoClickFocus); }

void KyFrame::setFrameShape(int shape) {
    if (shape == frameShape_) return;
    frameShape_ = shape;
    update();
}

void KyFrame::setFrameShadow(int shadow) {
    if (shadow == frameShadow_) return;
    frameShadow_ = shadow;
    update();
}

void KyFrame::setLineWidth(int width) {
    width = std::max(0, width);
    if (width == lineWidth_) return;
    lineWidth_ = width;
    update();
}

void KyFrame::initDefaults() {
    frameShape_ = KyStyle::NoFrame;
    frameShadow_ = KyStyle::Plain;
    lineWidth_ = 1;
    update();
}

void KyFrame::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    paintOwnBox_(event->painter());
    drawFrame_(event->painter());
    paintChildren(event->painter(), event->rect());
}

void KyFrame::drawFrame_(KyPainter* p) {
    const int lw = lineWidth_;
    if (frameShape_ == KyStyle::NoFrame || lw <= 0 || width() <= 0 || height() <= 0) return;
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const KyColor plain = s.hasBorderColor ? s.borderColor : kPlainLine;
    // A raised frame is lit from the top left; a sunken one the other way round.
    const KyColor topLeft = frameShadow_ == KyStyle::Raised ? kLight : frameShadow_ == KyStyle::Sunken ? kShade : plain;
    const KyColor bottomRight = frameShadow_ == KyStyle::Raised ? kShade : frameShadow_ == KyStyle::Sunken ? kLight : plain;
    const int w = width(), h = height();
    switch (frameShape_) {
    case KyStyle::HLine: {
        const int y = (h - lw) / 2;
        p->fillRect({0, y, w, lw}, topLeft, topLeft, 0);
        if (frameShadow_ != KyStyle::Plain) p->fillRect({0, y + lw, w, 1}, bottomRight, bottomRight, 0);
        break;
    }
    case KyStyle::VLine: {
        const int x = (w - lw) / 2;
        p->fillRect({x, 0, lw, h}, topLeft, topLeft, 0);
        if (frameShadow_ != KyStyle::Plain) p->fillRect({x + lw, 0, 1, h}, bottomRight, bottomRight, 0);
        break;
    }
    case KyStyle::StyledPanel:
        // The sheet draws a styled panel; a sheet without a border gets a hairline.
        if (s.effectiveBorderWidth() == 0) KyStyle::paintBox(p, {0, 0, w, h}, plain, false, plain, 1, s.radius);
        break;
    case KyStyle::Box:
    case KyStyle::Panel:
    default: {
        const int t = std::min(lw, std::min(w, h) / 2);
        p->fillRect({0, 0, w, t}, topLeft, topLeft, 0);
        p->fillRect({0, 0, t, h}, topLeft, topLeft, 0);
        p->fillRect({0, h - t, w, t}, bottomRight, bottomRight, 0);
        p->fillRect({w - t, 0, t, h}, bottomRight, bottomRight, 0);
        break;
    }
    }
}
