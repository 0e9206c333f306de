// KyMenuBar: title geometry, hover and the open menu.
#include "gui/widgets/KyMenuBar.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {
constexpr int kTitlePadding = 12;
constexpr int kEdge = 4;
constexpr int kTitleInset = 3;
constexpr KyColor kHover{229, 241, 251};
constexpr KyColor kOpen{204, 228, 247};
constexpr KyColor kText{24, 28, 36};
constexpr KyColor kLine{218, 218, 218};
} // namespace

KyMenuBar::KyMenuBar(KyWidget* parent) : KyWidget(parent) {
    setFocusPolicy(NoClickFocus);
    setDefaultStyleSheet("KyMenuBar { background-color: rgb(255, 255, 255); border-color: rgb(218, 218, 218); "
                         "border-width: 1px; border-radius: 0px; color: rgb(24, 28, 36); font-size: 13px; }");
}

KyMenu* KyMenuBar::addMenu(const KyString& title) { return addMenu_(title, false); }
KyMenu* KyMenuBar::addMenuRight(const KyString& title) { return addMenu_(title, true); }

KyMenu* KyMenuBar::addMenu_(const KyString& title, bool right) {
    auto* menu = new KyMenu(title, this);
    menu->menuBar_ = this;
    (right ? right_ : left_).push_back(menu);
    cacheDirty_ = true;
    update();
    return menu;
}

int KyMenuBar::menuCount() const { return static_cast<int>(left_.size() + right_.size()); }

KyMenu* KyMenuBar::menuAt(int index) const {
    const int n = static_cast<int>(left_.size());
    if (index < 0) return nullptr;
    if (index < n) return left_[index];
    return index - n < static_cast<int>(right_.size()) ? right_[index - n] : nullptr;
}

void KyMenuBar::updateGeometryCache() {
    titleRects_.clear();
    const KyFont font = resolveStyledFont();
    auto measure = [&](const KyMenu* m) {
        const KyString& t = m->title();
        return KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), t, font, t.size(), 7 * static_cast<int>(t.size())) +
               2 * kTitlePadding;
    };
    const int h = std::max(0, height() - 2 * kTitleInset);
    int x = kEdge;
    for (const KyMenu* m : left_) {
        const int w = measure(m);
        titleRects_.push_back({x, kTitleInset, w, h});
        x += w;
    }
    // Right menus: the first added keeps the right edge.
    int right = width() - kEdge;
    KyVector<KyRect> rightRects;
    for (const KyMenu* m : right_) {
        const int w = measure(m);
        right -= w;
        rightRects.push_back({right, kTitleInset, w, h});
    }
    for (const KyRect& r : rightRects) titleRects_.push_back(r);
    cacheDirty_ = false;
}

KyRect KyMenuBar::titleRect(int index) const {
    if (cacheDirty_) const_cast<KyMenuBar*>(this)->updateGeometryCache();
    return index >= 0 && index < static_cast<int>(titleRects_.size()) ? titleRects_[index] : KyRect{};
}

int KyMenuBar::titleAt(int x, int y) const {
    if (cacheDirty_) const_cast<KyMenuBar*>(this)->updateGeometryCache();
    if (y < 0 || y >= height()) return -1;
    for (int i = 0; i < static_cast<int>(titleRects_.size()); ++i)
        if (x >= titleRects_[i].x && x < titleRects_[i].right()) return i;
    return -1;
}

void KyMenuBar::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    if (cacheDirty_) updateGeometryCache();
    KyPainter* p = event->painter();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    if (!s.hasBackground || s.paintBackground)
        p->fillRect(clientRect(), s.hasBackground ? s.background : KyColor(255, 255, 255), KyColor(), 0);
    // The bar's border is the line under it: a bar spans the window edge to edge.
    if (s.effectiveBorderWidth() > 0 || !s.hasBorderWidth)
        p->drawLine(0, height() - 1, width() - 1, height() - 1, s.hasBorderColor ? s.borderColor : kLine, 1);
    const KyFont font = resolveStyledFont();
    const KyColor text = s.hasTextColor ? s.textColor : kText;
    // On a dark bar the open and hovered titles are tints of the text over the
    // bar: the light blue of the default look would swallow light text.
    auto tint = [&](double share) {
        const KyColor& b = s.background;
        auto mix = [share](int from, int to) { return static_cast<int>(from + (to - from) * share + 0.5); };
        return KyColor(mix(b.red(), text.red()), mix(b.green(), text.green()), mix(b.blue(), text.blue()));
    };
    const KyColor& bar = s.background;
    const bool darkBar = s.hasBackground && s.paintBackground &&
                         bar.red() * 299 + bar.green() * 587 + bar.blue() * 114 < 128 * 1000;
    const KyColor open = darkBar ? tint(0.22) : kOpen;
    const KyColor hover = darkBar ? tint(0.12) : kHover;
    for (int i = 0; i < static_cast<int>(titleRects_.size()); ++i) {
        const KyRect r = titleRects_[i];
        if (i == openIndex_) p->fillRoundedRect(r, 5, open, open, 0);
        else if (i == getHoverIndex()) p->fillRoundedRect(r, 5, hover, hover, 0);
        p->drawText(r, menuAt(i)->title(), DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter, text, font);
    }
    paintChildren_(p, event->rect());
}

void KyMenuBar::mousePressEvent(MouseEvent* event) {
    const int index = titleAt(event->x(), event->y());
    if (index < 0) {
        event->ignore();
        return;
    }
    event->accept();
    if (index == openIndex_) {
        if (KyMenu* m = menuAt(index)) m->hide();
    } else {
        openMenu(index);
    }
}

void KyMenuBar::mouseMoveEvent(MouseEvent* event) {
    const int index = titleAt(event->x(), event->y());
    if (index != getHoverIndex()) {
        setHoverIndex(index);
        update();
    }
    if (openIndex_ >= 0 && index >= 0 && index != openIndex_) openMenu(index);
    event->accept();
}

void KyMenuBar::on_Hover_changed(const bool& value) {
    KyWidget::on_Hover_changed(value);
    if (!value && getHoverIndex() != -1) {
        setHoverIndex(-1);
        update();
    }
}

void KyMenuBar::on_Font_changed(const KyFont& value) {
    KyWidget::on_Font_changed(value);
    cacheDirty_ = true;
}

void KyMenuBar::resizeEvent(ResizeEvent* event) {
    KyWidget::resizeEvent(event);
    cacheDirty_ = true;
}

KySize KyMenuBar::sizeHint() const { return {width(), 30}; }

void KyMenuBar::openMenu(int index) {
    KyMenu* menu = menuAt(index);
    if (!menu) return;
    if (KyMenu* open = menuAt(openIndex_); open && open != menu) open->hide();
    const KyRect r = titleRect(index);
    // Below the title, in the window's coordinates.
    const KyPoint at = rootRect().topLeft() + KyPoint(r.x, height());
    openIndex_ = index;
    menu->popup(at.x, at.y);
    if (!menu->isVisible()) openIndex_ = -1;
    update();
}

void KyMenuBar::menuHidden_(KyMenu* menu) {
    if (menuAt(openIndex_) == menu) {
        openIndex_ = -1;
        update();
    }
}

void KyMenuBar::openAdjacent_(int step) {
    const int n = menuCount();
    if (n == 0 || openIndex_ < 0) return;
    openMenu((openIndex_ + step + n) % n);
    if (KyMenu* m = menuAt(openIndex_)) m->moveCurrent_(1);
}
