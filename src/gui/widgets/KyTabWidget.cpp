// KyTabWidget: pages, the bar's current tab, keys and layout.
#include "gui/widgets/KyTabWidget.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyControlMetrics.h"
#include "gui/widgets/KyFocusChain.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyTabBar.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet = "KyTabWidget { background-color: rgba(0,0,0,0); border-width: 0px; padding: 12px 4px 4px 4px; }";
constexpr int kKeyPageUp = 0xff55;
constexpr int kKeyPageDown = 0xff56;

} // namespace

KyTabWidget::KyTabWidget(KyWidget* parent) : KyWidget(parent) {
    setFocusPolicy(NoClickFocus);
    setDefaultStyleSheet(kDefaultSheet);
    bar_ = new KyTabBar(this);
    KyObject::connect(bar_, &KyTabBar::currentChanged, this, [this](int index) {
        showCurrent_(index);
        currentChanged(index);
    });
    layoutPages_();
}

int KyTabWidget::addTab(KyWidget* page, const KyString& text) { return insertTab(count(), page, text); }

int KyTabWidget::insertTab(int index, KyWidget* page, const KyString& text) {
    if (!page || page == bar_ || indexOf(page) >= 0) return -1;
    index = std::clamp(index, 0, count());
    page->hide();
    if (page->parent() != this) page->setParent(this);
    pages_.insert(pages_.begin() + index, page);
    const bool first = bar_->count() == 0;
    bar_->insertTab(index, text);
    // The first tab became current inside the bar before its page was in the
    // list; show it now.
    if (first) showCurrent_(bar_->currentIndex());
    layoutPages_();
    return index;
}

void KyTabWidget::removeTab(int index) {
    if (index < 0 || index >= count()) return;
    KyWidget* page = pages_[index];
    pages_.erase(pages_.begin() + index);
    removing_ = true;
    page->hide();
    page->setParent(nullptr);
    removing_ = false;
    bar_->removeTab(index);
    showCurrent_(bar_->currentIndex());
}

void KyTabWidget::removeChild(KyObject* child) {
    // A page deleted (or taken away) by someone else leaves with its tab.
    if (!removing_) {
        for (int i = 0; i < count(); ++i)
            if (static_cast<KyObject*>(pages_[i]) == child) {
                pages_.erase(pages_.begin() + i);
                KyWidget::removeChild(child);
                bar_->removeTab(i);
                showCurrent_(bar_->currentIndex());
                return;
            }
        if (child == static_cast<KyObject*>(bar_)) bar_ = nullptr;
    }
    KyWidget::removeChild(child);
}

int KyTabWidget::currentIndex() const { return bar_ ? bar_->currentIndex() : -1; }

void KyTabWidget::setCurrentIndex(int index) {
    if (bar_) bar_->setCurrentIndex(index);
}

KyWidget* KyTabWidget::widget(int index) const { return index >= 0 && index < count() ? pages_[index] : nullptr; }

int KyTabWidget::indexOf(const KyWidget* page) const {
    for (int i = 0; i < count(); ++i)
        if (pages_[i] == page) return i;
    return -1;
}

KyString KyTabWidget::tabText(int index) const { return bar_ ? bar_->tabText(index) : KyString(); }

void KyTabWidget::setTabText(int index, const KyString& text) {
    if (bar_) bar_->setTabText(index, text);
}

void KyTabWidget::showCurrent_(int index) {
    KyWidget* focus = focusWidget();
    bool focusInOldPage = false;
    for (int i = 0; i < count(); ++i) {
        KyWidget* page = pages_[i];
        if (i == index) continue;
        if (focus && (focus == page || page->isAncestorOf(focus))) focusInOldPage = true;
        if (page->isVisible()) page->hide();
    }
    if (KyWidget* page = widget(index)) {
        layoutPages_();
        page->show();
    }
    // The focus must not stay in a page that is gone from view: it moves to
    // the bar, so the keys that switch pages keep working.
    if (focusInOldPage && bar_) bar_->requestFocus();
}

KyRect KyTabWidget::pageRect() const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const int barHeight = bar_ ? bar_->sizeHint().height : 0;
    const int bw = s.effectiveBorderWidth();
    const int x = s.padding.left() + bw, y = barHeight + s.padding.top();
    return {x, y, std::max(0, width() - x - s.padding.right() - bw), std::max(0, height() - y - s.padding.bottom() - bw)};
}

void KyTabWidget::layoutPages_() {
    if (bar_) bar_->setGeometry(0, 0, width(), bar_->sizeHint().height);
    if (KyWidget* page = currentWidget()) page->setGeometry(pageRect());
}

KySize KyTabWidget::sizeHint() const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    KySize pages;
    for (KyWidget* page : pages_) {
        const KySize h = page->sizeHint();
        pages.width = std::max(pages.width, h.width);
        pages.height = std::max(pages.height, h.height);
    }
    const KySize bar = bar_ ? bar_->sizeHint() : KySize{};
    const int extraW = s.padding.left() + s.padding.right() + 2 * s.effectiveBorderWidth();
    const int extraH = s.padding.top() + s.padding.bottom() + 2 * s.effectiveBorderWidth();
    return KyControlMetrics::bounded(this, {std::max(bar.width, pages.width + extraW), bar.height + pages.height + extraH});
}

KySize KyTabWidget::minimumSizeHint() const {
    const KySize bar = bar_ ? bar_->sizeHint() : KySize{};
    KySize page;
    if (KyWidget* w = currentWidget()) page = w->minimumSizeHint();
    return KyControlMetrics::bounded(this, {std::max(bar.width, page.width), bar.height + page.height});
}

void KyTabWidget::resizeEvent(ResizeEvent* event) {
    KyWidget::resizeEvent(event);
    layoutPages_();
}

void KyTabWidget::keyPressEvent(KeyEvent* event) {
    const int key = event->keyCode();
    const bool tab = key == KyFocusChain::kKeyTab || key == KyFocusChain::kKeyBacktab;
    const bool page = key == kKeyPageUp || key == kKeyPageDown;
    if (!event->ctrl() || event->alt() || !(tab || page) || count() == 0 || !isEnabled()) {
        event->ignore();
        return;
    }
    const bool back = key == KyFocusChain::kKeyBacktab || (tab && event->shift()) || key == kKeyPageUp;
    // Ctrl+Tab wraps around like a ring of documents.
    const int n = count();
    setCurrentIndex((currentIndex() + (back ? n - 1 : 1)) % n);
}

void KyTabWidget::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    paintOwnBox_(event->painter());
    paintChildren_(event->painter(), event->rect());
}
