// KyStatusBar: message, right-aligned widgets and the top line.
#include "gui/widgets/KyStatusBar.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {
constexpr int kMarginX = 10;
constexpr int kGap = 8;
constexpr KyColor kLine{218, 218, 218};
constexpr KyColor kText{51, 65, 85};
} // namespace

KyStatusBar::KyStatusBar(KyWidget* parent) : KyWidget(parent) {
    setFocusPolicy(NoClickFocus);
    setDefaultStyleSheet("KyStatusBar { background-color: rgb(243, 246, 247); border-color: rgb(214, 221, 224); "
                         "border-width: 0px; color: rgb(51, 65, 85); font-size: 12px; }");
}

void KyStatusBar::showMessage(const KyString& text) {
    if (text == message_) return;
    message_ = text;
    if (KyWidget* w = messageWidget()) w->setProperty("Text", KyAny(text));
    update();
}

void KyStatusBar::setMessageWidget(KyWidget* widget) {
    messageWidget_ = widget;
    if (widget) {
        if (widget->parentWidget() != this) widget->setParent(this);
        if (!message_.isEmpty()) widget->setProperty("Text", KyAny(message_));
    }
    updateLayout();
}

void KyStatusBar::addPermanentWidget(KyWidget* widget) {
    if (!widget || widgets_.contains(widget)) return;
    if (widget->parentWidget() != this) widget->setParent(this);
    widgets_.push_back(widget);
    updateLayout();
}

void KyStatusBar::removeWidget(KyWidget* widget) {
    widgets_.removeAll(widget);
    updateLayout();
}

void KyStatusBar::updateLayout() {
    std::erase_if(widgets_, [](KyWidget* w) { return !KyObject::isLive(w); });
    int right = width() - kMarginX;
    // Right to left: the first one added keeps the right edge.
    for (KyWidget* w : widgets_) {
        if (!w->isVisible()) continue;
        const KySize hint = w->sizeHint();
        const int h = std::min(hint.height, std::max(1, height() - 4));
        right -= hint.width;
        w->setGeometry(right, (height() - h) / 2, hint.width, h);
        right -= kGap;
    }
    if (KyWidget* m = messageWidget()) m->setGeometry(kMarginX, 1, std::max(0, right - kMarginX), std::max(1, height() - 2));
    update();
}

void KyStatusBar::resizeEvent(ResizeEvent* event) {
    KyWidget::resizeEvent(event);
    updateLayout();
}

KySize KyStatusBar::sizeHint() const { return {width(), 28}; }

void KyStatusBar::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyPainter* p = event->painter();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    if (s.hasBackground && s.paintBackground) p->fillRect(clientRect(), s.background, s.background, 0);
    // The line along the top stands for the border whatever its width says.
    p->drawLine(0, 0, width() - 1, 0, s.hasBorderColor ? s.borderColor : kLine, 1);
    if (!messageWidget() && !message_.isEmpty()) {
        int right = width() - kMarginX;
        for (KyWidget* w : widgets_)
            if (KyObject::isLive(w) && w->isVisible()) right = std::min(right, w->geometry().x - kGap);
        p->drawText({kMarginX, 1, std::max(0, right - kMarginX), height() - 2}, message_, DrawTextFormat::AlignVCenter,
                    s.hasTextColor ? s.textColor : kText, resolveStyledFont());
    }
    paintChildren_(p, event->rect());
}
