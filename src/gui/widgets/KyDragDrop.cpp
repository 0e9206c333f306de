// KyDragDrop: begin, follow, end, and the tag drawn over the window.
#include "gui/widgets/KyDragDrop.h"

#include <utility>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidget.h"

namespace {
constexpr int kTagWidth = 160;
constexpr int kTagHeight = 26;
const KyFont kTagFont(L"Segoe UI", 9);
} // namespace

KyDragDrop* KyDragDrop::instance() {
    static KyDragDrop drag;
    return &drag;
}

void KyDragDrop::begin(KyWidget* source, const KyString& payload, const KyString& label, KyPoint windowPos) {
    if (active_) end();
    if (!source || !KyObject::isLive(source)) return;
    source_ = source;
    handle_ = source->nativeHandle();
    payload_ = payload;
    label_ = label;
    pos_ = windowPos;
    active_ = true;
    damage_();
}

void KyDragDrop::moveTo(KyPoint windowPos) {
    if (!isActive() || windowPos == pos_) return;
    damage_();
    pos_ = windowPos;
    damage_();
}

KyString KyDragDrop::end() {
    if (!active_) return {};
    damage_();
    active_ = false;
    source_ = nullptr;
    label_.clear();
    return std::exchange(payload_, KyString());
}

bool KyDragDrop::isActive() const { return active_ && KyObject::isLive(source_); }

KyWidget* KyDragDrop::source() const { return isActive() ? source_ : nullptr; }

KyRect KyDragDrop::overlayRect() const {
    if (!isActive()) return {};
    // Below and right of the pointer, so the tag never hides the drop target.
    return {pos_.x + 12, pos_.y + 14, kTagWidth, kTagHeight};
}

void KyDragDrop::damage_() const {
    const KyRect r = overlayRect();
    if (!r.isEmpty()) KyWidgetPlatformAdapter::invalidateRect(handle_, r.adjusted(-1, -1, 1, 1));
}

void KyDragDrop::paintOverlay(KyPainter* painter) {
    if (!painter || !isActive()) return;
    const KyRect r = overlayRect();
    const ky::gui::StyleBox radii{{6, 6, 6, 6}};
    KyStyle::paintBox(painter, r, KyColor(255, 255, 255), true, KyStyle::kAccent, 1, radii);
    painter->drawText({r.x + 10, r.y, r.width - 20, r.height}, label_.isEmpty() ? payload_ : label_,
                      DrawTextFormat::AlignVCenter, KyColor(18, 18, 18), kTagFont);
}

void KyDragDrop::paintOverlay(KyPainter* painter, KyNativeWindowId window) {
    if (isActive() && window == handle_.window) paintOverlay(painter);
}
