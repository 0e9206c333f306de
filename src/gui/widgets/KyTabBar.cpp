// KyTabBar: tab geometry, painting, clicks and arrow keys.
#include "gui/widgets/KyTabBar.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyControlMetrics.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet =
    "KyTabBar { background-color: rgba(0,0,0,0); border-color: rgb(220, 224, 232); color: rgb(96, 96, 96);"
    " selected-color: rgb(18, 18, 18); accent-color: rgb(0, 120, 215); tab-hover-background-color: rgb(235, 240, 246);"
    " font-size: 14px; padding: 8px 16px; }"
    "KyTabBar:disabled { color: rgb(150, 150, 150); selected-color: rgb(122, 122, 122); accent-color: rgb(190, 190, 190); }";

constexpr int kUnderline = 2;
constexpr int kKeyLeft = 0xff51;
constexpr int kKeyRight = 0xff53;
constexpr int kKeyHome = 0xff50;
constexpr int kKeyEnd = 0xff57;

} // namespace

KyTabBar::KyTabBar(KyWidget* parent) : KyWidget(parent) {
    setFocusPolicy(StrongFocus);
    setDefaultStyleSheet(kDefaultSheet);
}

int KyTabBar::addTab(const KyString& text) { return insertTab(count(), text); }

int KyTabBar::insertTab(int index, const KyString& text) {
    index = std::clamp(index, 0, count());
    tabs_.insert(tabs_.begin() + index, text);
    if (current_ < 0) {
        setCurrentIndex(0);
    } else if (index <= current_) {
        // The same tab stays current, but its index moved: whoever keeps the
        // index (a page list, a saved setting) hears of it.
        ++current_;
        currentChanged(current_);
    }
    update();
    return index;
}

void KyTabBar::removeTab(int index) {
    if (index < 0 || index >= count()) return;
    tabs_.erase(tabs_.begin() + index);
    hovered_ = -1;
    if (tabs_.isEmpty()) {
        current_ = -1;
        currentChanged(-1);
    } else if (index < current_) {
        --current_;
        currentChanged(current_);
    } else if (index == current_) {
        // The next tab takes the removed one's place, or the last one when it was last.
        current_ = std::min(current_, count() - 1);
        currentChanged(current_);
    }
    update();
}

KyString KyTabBar::tabText(int index) const { return index >= 0 && index < count() ? tabs_[index] : KyString(); }

void KyTabBar::setTabText(int index, const KyString& text) {
    if (index < 0 || index >= count() || tabs_[index] == text) return;
    tabs_[index] = text;
    update();
}

void KyTabBar::setCurrentIndex(int index) {
    if (index < 0 || index >= count() || index == current_) return;
    current_ = index;
    update();
    currentChanged(current_);
}

int KyTabBar::tabWidth_(int index) const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    return KyControlMetrics::textWidth(this, tabs_[index], resolveStyledFont()) + s.padding.left() + s.padding.right();
}

KyRect KyTabBar::tabRect(int index) const {
    if (index < 0 || index >= count()) return {};
    int x = 0;
    for (int i = 0; i < index; ++i) x += tabWidth_(i);
    return {x, 0, tabWidth_(index), height()};
}

int KyTabBar::tabAt(int x, int y) const {
    if (y < 0 || y >= height()) return -1;
    int left = 0;
    for (int i = 0; i < count(); ++i) {
        const int w = tabWidth_(i);
        if (x >= left && x < left + w) return i;
        left += w;
    }
    return -1;
}

KySize KyTabBar::sizeHint() const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    int w = 0;
    for (int i = 0; i < count(); ++i) w += tabWidth_(i);
    const int h = KyControlMetrics::lineHeight(resolveStyledFont()) + s.padding.top() + s.padding.bottom() + kUnderline;
    return KyControlMetrics::bounded(this, {w, h});
}

KyColor KyTabBar::sheetColor_(const char* name, const KyColor& fallback) const {
    KyColor c = fallback;
    const KyString v = styleProperty(name);
    if (!v.isEmpty()) StyleSheet::tryParseColor_(v, c);
    return c;
}

void KyTabBar::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyPainter* p = event->painter();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    if (s.paintBackground) p->fillRect(clientRect(), s.background, s.background, 0);
    const KyColor line = s.hasBorderColor ? s.borderColor : KyColor(220, 224, 232);
    p->fillRect({0, height() - 1, width(), 1}, line, line, 0);

    const bool enabled = isEnabled();
    const KyColor text = s.hasTextColor ? s.textColor : KyColor(96, 96, 96);
    const KyColor selected = sheetColor_("selected-color", KyColor(18, 18, 18));
    const KyColor accent = sheetColor_("accent-color", KyStyle::kAccent);
    const KyColor hoverFill = sheetColor_("tab-hover-background-color", KyColor(235, 240, 246));
    const KyString selectedFillText = styleProperty("tab-selected-background-color");
    KyColor selectedFill;
    const bool paintSelectedFill = !selectedFillText.isEmpty() && StyleSheet::tryParseColor_(selectedFillText, selectedFill);
    const KyFont font = resolveStyledFont();
    int x = 0;
    for (int i = 0; i < count(); ++i) {
        const KyRect r{x, 0, tabWidth_(i), height()};
        x += r.width;
        const bool isCurrent = i == current_;
        if (isCurrent && paintSelectedFill) p->fillRect({r.x, r.y, r.width, r.height - 1}, selectedFill, selectedFill, 0);
        else if (enabled && i == hovered_ && !isCurrent) {
            const KyRect lit{r.x + 2, r.y + 3, r.width - 4, r.height - 3 - kUnderline - 2};
            KyStyle::paintBox(p, lit, hoverFill, true, hoverFill, 0, StyleBox{{4, 4, 4, 4}});
        }
        const KyRect textRect{r.x, r.y, r.width, r.height - kUnderline};
        p->drawText(textRect, tabs_[i], DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter,
                    isCurrent ? selected : text, font);
        if (isCurrent) p->fillRect({r.x + 6, r.y + r.height - kUnderline - 1, r.width - 12, kUnderline + 1}, accent, accent, 0);
        if (isCurrent && hasFocus() && enabled) {
            KyColor ring = sheetColor_("focus-color", KyStyle::kAccent);
            ring = sheetColor_("focus-border-color", ring);
            // Clear of the underline by a few pixels, so the two never read as one line.
            KyStyle::strokeRoundedRect(p, {r.x + 2, r.y + 3, r.width - 5, r.height - 3 - kUnderline - 6},
                                       StyleBox{{4, 4, 4, 4}}, ring, 1);
        }
    }
}

void KyTabBar::mousePressEvent(MouseEvent* event) {
    const int index = tabAt(event->x(), event->y());
    if (event->button() != 1 || index < 0) {
        event->ignore();
        return;
    }
    if (isEnabled()) setCurrentIndex(index);
}

void KyTabBar::mouseMoveEvent(MouseEvent* event) {
    const int index = tabAt(event->x(), event->y());
    if (index != hovered_) {
        hovered_ = index;
        update();
    }
    event->ignore();
}

void KyTabBar::on_Hover_changed(const bool& hover) {
    KyWidget::on_Hover_changed(hover);
    if (!hover && hovered_ >= 0) {
        hovered_ = -1;
        update();
    }
}

void KyTabBar::keyPressEvent(KeyEvent* event) {
    if (!isEnabled() || event->ctrl() || event->alt() || count() == 0) {
        event->ignore();
        return;
    }
    switch (event->keyCode()) {
    case kKeyLeft: setCurrentIndex(std::max(0, current_ - 1)); break;
    case kKeyRight: setCurrentIndex(std::min(count() - 1, current_ + 1)); break;
    case kKeyHome: setCurrentIndex(0); break;
    case kKeyEnd: setCurrentIndex(count() - 1); break;
    default: event->ignore(); break;
    }
}
