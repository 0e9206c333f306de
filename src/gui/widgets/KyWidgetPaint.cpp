// KyWidget's painting: invalidation into the window's pending damage, the
// paint order of a widget (its own box, then its children, later ones on
// top), and one frame of a native window from its paint request.
#include <memory>

#include "core/runtime/KyCoreApplication.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyOffsetPainter.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyScopedPlatformPainter.h"
#include "gui/widgets/KyDragDrop.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidget.h"
#include "gui/widgets/KyWidgetPerf.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {
constexpr KyColor kRootBackground{249, 249, 249};
constexpr KyColor kWhite{255, 255, 255};
} // namespace

void KyWidget::update() {
    ky::gui::perf::addCount("update");
    if (destroying_ || !isVisibleInHierarchy()) return;
    // The pass repaints the whole widget that is being resized.
    if (inResizePass_()) {
        ky::gui::perf::addCount("update.suppressedDuringResize");
        return;
    }
    invalidateRect();
    wakeUpGuiThread_();
}

void KyWidget::updateRect(const KyRect& rect) {
    if (destroying_ || !isVisibleInHierarchy() || inResizePass_()) return;
    const KyRect shared = rect.intersected(clientRect());
    if (shared.isEmpty()) return;
    invalidateRootRect_(shared.translated(rootPos_.x, rootPos_.y));
}

void KyWidget::invalidateRect() {
    ky::gui::perf::addCount("invalidateRect");
    KyWidgetPlatformAdapter::invalidateRect(handle_, rootRect());
}

void KyWidget::invalidateRootRect_(const KyRect& rect) {
    if (!handle_.isValid() || rect.isEmpty()) return;
    KyWidgetPlatformAdapter::invalidateRect(handle_, rect);
    wakeUpGuiThread_();
}

void KyWidget::wakeUpGuiThread_() const {
    if (KyGuiApplication* app = KyGuiApplication::instance())
        if (KyPlatformIntegration* platform = app->platformIntegration()) platform->wakeUpGuiThread();
}

bool KyWidget::normalizePaintEvent_(PaintEvent* event, KyRect& localRect,
                                    std::unique_ptr<KyPainter>& offsetPainter) const {
    const KyRect own{0, 0, size_.width, size_.height};
    if (own.contains(event->rect()) || !nativeParentWidget_()) {
        localRect = event->rect();
        return true;
    }
    // A rectangle beyond the widget was meant in the parent's coordinates.
    const KyRect g = geometry();
    const KyRect shared = event->rect().intersected(g);
    if (shared.isEmpty()) return false;
    offsetPainter = std::make_unique<KyOffsetPainter>(event->painter(), g.x, g.y);
    localRect = shared.translated(-g.x, -g.y);
    return true;
}

void KyWidget::paintEvent(PaintEvent* event) {
    ky::gui::perf::ScopeTimer timer("paintEvent");
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyRect rect;
    std::unique_ptr<KyPainter> shifted;
    if (!normalizePaintEvent_(event, rect, shifted)) return;
    KyPainter* painter = shifted ? shifted.get() : event->painter();
    paintOwnBox_(painter);
    paintChildren_(painter, rect);
}

void KyWidget::paintOwnBox_(KyPainter* painter) {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const bool root = !parentWidget();
    // Only a window paints a background nobody asked for.
    KyColor fill = kRootBackground;
    bool paintFill = root;
    if (s.hasBackground) fill = s.background, paintFill = s.paintBackground;
    const KyColor border = s.hasBorderColor ? s.borderColor : KyColor(0, 0, 0);
    const int borderWidth = s.effectiveBorderWidth();
    if (!paintFill && borderWidth == 0) return;
    if (!paintFill) fill = root ? kRootBackground : kWhite; // not drawn: the border alone is
    KyStyle::paintBox(painter, {0, 0, size_.width, size_.height}, fill, paintFill, border, borderWidth, s.radius);
}

void KyWidget::paintChildren_(KyPainter* painter, const KyRect& rect) {
    const KyVector<KyWidget*>& children = childWidgets();
    for (std::size_t i = 0; i < children.size(); ++i) {
        KyWidget* child = children[i];
        if (child->nativeWindowOwner_ || !child->isVisibleInHierarchy()) continue;
        if (!child->geometry().intersects(rect)) continue;
        paintChild_(child, painter, rect);
    }
}

void KyWidget::paintChild_(KyWidget* child, KyPainter* painter, const KyRect& rect) {
    const KyRect g = child->geometry();
    const KyRect shared = g.intersected(rect);
    if (shared.isEmpty()) return;
    KyOffsetPainter shifted(painter, g.x, g.y);
    const KyRect local = shared.translated(-g.x, -g.y);
    // A child draws only inside itself and inside the damage.
    shifted.pushClipRect(local);
    PaintEvent e(&shifted, local);
    KyCoreApplication::sendEvent(child, &e);
    shifted.popClipRect();
}

void KyWidget::paintFromPlatform_(KyPlatformIntegration* integration, KyPlatformPaintEvent request, bool fullRepaint) {
    if (!integration) return;
    if (!request.nativeWindow) request.nativeWindow = handle_.window;
    if (!request.nativeDrawable) request.nativeDrawable = request.nativeWindow;
    if (!request.nativeDisplay) request.nativeDisplay = handle_.display;

    // The window may have been resized since the request was made.
    KySize client = KyWidgetPlatformAdapter::clientRect({request.nativeDisplay, request.nativeWindow}).size();
    if (client.isEmpty()) client = {request.surfaceSize.width, request.surfaceSize.height};
    if (client.isEmpty()) client = size_;
    bool sizeChanged = false;
    if (client != size_) {
        const KyRect g = geometry();
        setGeometry(g.x, g.y, client.width, client.height);
        sizeChanged = true;
    }
    if (request.surfaceSize.width <= 0 || request.surfaceSize.height <= 0) request.surfaceSize = {client.width, client.height};
    const bool dirtyEmpty = request.dirtyRect[2] <= 0 || request.dirtyRect[3] <= 0;
    if (dirtyEmpty) {
        request.dirtyRect[0] = request.dirtyRect[1] = 0;
        request.dirtyRect[2] = request.surfaceSize.width;
        request.dirtyRect[3] = request.surfaceSize.height;
    }

    KyScopedPlatformPainter painter(integration, request);
    if (!painter) return;
    const KyRect rect = sizeChanged || fullRepaint || dirtyEmpty
                            ? KyRect{0, 0, client.width, client.height}
                            : KyRect{request.dirtyRect[0], request.dirtyRect[1], request.dirtyRect[2], request.dirtyRect[3]};
    painter->pushClipRect(rect);
    PaintEvent e(painter.get(), rect);
    KyCoreApplication::sendEvent(this, &e);
    KyDragDrop::instance()->paintOverlay(painter.get(), request.nativeWindow);
    painter->popClipRect();
    painter->finalize();
    painter->flush();
}
