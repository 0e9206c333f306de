// KyToolTip: target tracking, the delay and the popup's placement.
#include "gui/widgets/KyToolTip.h"

#include <algorithm>

#include "core/runtime/KyCoreApplication.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyStyle.h"

namespace {
constexpr int kOffsetX = 12;
constexpr int kOffsetY = 20;

/// The part of top's client area that lies on the first screen, in top's
/// coordinates; the whole client area when the screen is unknown.
KyRect shownPartOf(const KyWidget* top) {
    const KyRect all{0, 0, top->width(), top->height()};
    KyGuiApplication* app = KyGuiApplication::instance();
    KyPlatformIntegration* platform = app ? app->platformIntegration() : nullptr;
    if (!platform) return all;
    // The platform names each screen as "Screen <i> (<w>x<h>)".
    const KyList<KyString> screens = platform->availableScreens();
    if (screens.isEmpty()) return all;
    const KyString s = screens.first();
    const std::size_t open = s.indexOf('('), cross = s.indexOf('x', open), close = s.indexOf(')', cross);
    if (open == KyString::npos || cross == KyString::npos || close == KyString::npos) return all;
    const int w = s.mid(open + 1, cross - open - 1).toInt(), h = s.mid(cross + 1, close - cross - 1).toInt();
    if (w <= 0 || h <= 0) return all;
    const KyPoint origin = KyWidgetPlatformAdapter::clientOriginOnScreen(top->nativeHandle());
    const KyRect shown = all.intersected({-origin.x, -origin.y, w, h});
    return shown.isEmpty() ? all : shown;
}
} // namespace

KyToolTip* KyToolTip::instance_ = nullptr;

KyToolTip::Popup::Popup(KyWidget* parent) : KyWidget(parent) {
    setObjectName("Popup");
    setFont(KyFont(L"Segoe UI", 9, 400));
    setFocusPolicy(NoClickFocus);
    setDefaultStyleSheet("Popup { background-color: rgb(255, 255, 255); border-color: rgb(204, 204, 204); "
                         "border-width: 1px; border-radius: 4px; color: rgb(30, 30, 30); padding: 4px 8px; }");
}

void KyToolTip::Popup::paintEvent(PaintEvent* event) {
    if (!event || !event->painter()) return;
    KyStyle::drawControl(KyStyle::ToolTip, clientRect(), event->painter(), this, KyStyle::stateOf(this));
}

KySize KyToolTip::Popup::sizeHint() const {
    const KyFont font = resolveStyledFont();
    const KyString& text = getText();
    const int px = font.pixelSize > 0 ? font.pixelSize : std::max(1, font.pointSize) * 96 / 72;
    const int width = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), text, font, text.size(), px / 2 * static_cast<int>(text.size()));
    const StyleBox pad = resolveStyledPadding();
    return {width + pad.v[1] + pad.v[3] + 4, px + pad.v[0] + pad.v[2] + 8};
}

KyToolTip* KyToolTip::instance() {
    if (!instance_) instance_ = new KyToolTip();
    return instance_;
}

KyToolTip::Popup* KyToolTip::popup() const { return KyObject::isLive(popup_) ? popup_ : nullptr; }

bool KyToolTip::isShown() const {
    Popup* p = popup();
    return p && p->isVisible();
}

void KyToolTip::setDelay(int ms) { instance()->delayMs_ = std::max(0, ms); }

void KyToolTip::handleMouseMove_(KyWidget* root, KyWidget* child, int x, int y) {
    if (!KyObject::isLive(root)) return;
    KyToolTip* self = instance();
    KyWidget* under = child ? child : root->getChildUnderCursor(x, y);
    if (!under) under = root;
    // Over the tip itself the pointer is still over its target.
    if (Popup* p = self->popup(); p && (under == p || p->isAncestorOf(under))) return;
    KyWidget* found = nullptr;
    for (KyWidget* w = under; w; w = w->parentWidget()) {
        if (!w->isVisibleInHierarchy() || !w->isEnabled()) continue;
        if (!w->getToolTips().isEmpty()) {
            found = w;
            break;
        }
        if (w == root) break;
    }
    self->root_ = root;
    self->pointer_ = {x, y};
    if (!found) {
        self->target_ = nullptr;
        hide_();
        return;
    }
    if (found != self->target()) {
        hide_();
        self->target_ = found;
        self->restartTimer_();
    }
}

void KyToolTip::hide_() {
    if (!instance_) return;
    instance_->stopTimer_();
    if (Popup* p = instance_->popup(); p && p->isVisible()) p->hide();
}

void KyToolTip::hideFor_(KyWidget* root) {
    if (!instance_) return;
    if (instance_->root_ == root) instance_->target_ = nullptr;
    Popup* p = instance_->popup();
    if ((p && p->topLevelWidget() == root) || instance_->root_ == root) hide_();
}

void KyToolTip::stopTimer_() {
    ++generation_;
    if (timerId_ && timerApp_ && timerApp_ == KyCoreApplication::instance(false)) timerApp_->removeTimer(timerId_);
    timerId_ = 0;
    timerApp_ = nullptr;
}

void KyToolTip::restartTimer_() {
    stopTimer_();
    KyCoreApplication* app = KyCoreApplication::instance(false);
    if (!app) return;
    const unsigned generation = generation_;
    timerApp_ = app;
    timerId_ = app->addTimer(
        [generation] {
            if (!instance_ || instance_->generation_ != generation) return;
            instance_->timerId_ = 0;
            instance_->timerApp_ = nullptr;
            instance_->show_();
        },
        delayMs_ * 1000, true, KyFiberLaneDefault);
}

void KyToolTip::show_() {
    KyWidget* target = this->target();
    if (!target || !KyObject::isLive(root_) || !target->isVisibleInHierarchy()) return;
    KyWidget* top = target->topLevelWidget();
    Popup* p = popup();
    if (!p || p->parentWidget() != top) {
        if (p) delete p;
        p = popup_ = new Popup(top);
    }
    p->setText(target->getToolTips());
    const KySize hint = p->sizeHint();
    // Below and right of the pointer; above it or further left where the
    // window ends or runs off the screen, so the whole tip can be read.
    const KyRect area = shownPartOf(top);
    const int right = area.x + area.width, bottom = area.y + area.height;
    int x = pointer_.x + kOffsetX;
    int y = pointer_.y + kOffsetY;
    if (x + hint.width > right) x = right - hint.width - 2;
    if (y + hint.height > bottom) y = pointer_.y - hint.height - 4;
    x = std::max(area.x, x);
    y = std::max(area.y, y);
    p->setGeometry(x, y, hint.width, hint.height);
    // Over everything else in the window: the last child paints last.
    p->setParent(nullptr);
    p->setParent(top);
    p->show();
    p->update();
}
