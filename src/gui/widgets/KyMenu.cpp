// KyMenu: rows from actions, the overlay and list widgets, keys, sub-menus
// and the chain that closes as one.
#include "gui/widgets/KyMenu.h"

#include <algorithm>

#include "core/runtime/KyCoreApplication.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenuBar.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"
#include "gui/widgets/StyleSheet.h"

namespace {

constexpr int kRowHeight = 30;
constexpr int kSeparatorHeight = 9;
constexpr int kListPadding = 5;
constexpr int kTextLeft = 30;
constexpr int kTextRight = 34;
constexpr int kMinWidth = 180;

constexpr int kKeyEscape = 0xFF1B, kKeyUp = 0xFF52, kKeyDown = 0xFF54, kKeyLeft = 0xFF51, kKeyRight = 0xFF53,
              kKeyReturn = 0xFF0D, kKeyEnter = 0xFF8D, kKeySpace = 0x20, kKeyHome = 0xFF50, kKeyEnd = 0xFF57;

constexpr KyColor kRowHover{229, 241, 251};
constexpr KyColor kText{24, 28, 36};
constexpr KyColor kDisabledText{160, 166, 176};
constexpr KyColor kSeparator{226, 230, 236};
constexpr KyColor kCheck{0, 120, 215};

bool selectable(const KyAction* a) { return a && a->getEnabled() && !a->getSeparator(); }

/// The window of a menu without a host: a borderless popup that ends the
/// chain on any press outside its list.
class MenuWindow_ : public KyMainWindow {
public:
    explicit MenuWindow_(KyMenu* menu) : KyMainWindow(L"menu", 10, 10), menu_(menu) {
        setPopup(true);
        setDefaultStyleSheet("MenuWindow_ { background-color: rgba(0,0,0,0); border-width: 0px; }");
    }
    KyString className() const override { return "MenuWindow_"; }
    KyList<KyString> classHierarchy() const override {
        KyList<KyString> chain = KyMainWindow::classHierarchy();
        chain.prepend("MenuWindow_");
        return chain;
    }
    void mousePressEvent(MouseEvent* event) override {
        event->accept();
        if (KyObject::isLive(menu_)) menu_->hide();
    }

private:
    KyMenu* menu_;
};

} // namespace

// ---------------------------------------------------------------------------
// PopupOverlay

KyMenu::PopupOverlay::PopupOverlay(KyMenu* menu, KyWidget* parent)
    : KyOwnedWidget(menu, parent, "PopupOverlay", NoClickFocus,
                    "PopupOverlay { background-color: rgba(0,0,0,0); border-width: 0px; }") {}

void KyMenu::PopupOverlay::paintEvent(PaintEvent* event) {
    // Transparent: only the lists on it paint.
    if (event && event->painter()) paintChildren_(event->painter(), event->rect());
}

void KyMenu::PopupOverlay::mousePressEvent(MouseEvent* event) {
    event->accept();
    KyMenu* menu = owner();
    if (!menu) return;
    KyMenuBar* bar = menu->menuBar_;
    KyMenu* root = menu->rootMenu_();
    // A press on another title of the menu bar opens that menu; on the open
    // menu's own title it only closes (a title toggles).
    if (KyObject::isLive(bar)) {
        const KyPoint local = KyPoint(event->x(), event->y()) + rootRect().topLeft() - bar->rootRect().topLeft();
        const int index = bar->titleAt(local.x, local.y);
        if (index >= 0) {
            const bool same = bar->menuAt(index) == root;
            root->hide();
            if (!same) bar->openMenu(index);
            return;
        }
    }
    root->hide();
}

void KyMenu::PopupOverlay::mouseMoveEvent(MouseEvent* event) {
    event->accept();
    KyMenu* menu = owner();
    if (!menu) return;
    KyMenuBar* bar = menu->menuBar_;
    if (!KyObject::isLive(bar)) return;
    // Sliding along the menu bar while a menu is open switches menus.
    const KyPoint local = KyPoint(event->x(), event->y()) + rootRect().topLeft() - bar->rootRect().topLeft();
    const int index = bar->titleAt(local.x, local.y);
    if (index >= 0 && bar->menuAt(index) != menu->rootMenu_()) bar->openMenu(index);
}

void KyMenu::PopupOverlay::keyPressEvent(KeyEvent* event) {
    // Keys that reach the overlay belong to the deepest open list.
    KyMenu* m = owner();
    while (m && KyObject::isLive(m->openSub_) && m->openSub_->visible_) m = m->openSub_;
    if (m && m->popupList()) KyCoreApplication::sendEvent(m->popupList(), event);
    else event->ignore();
}

// ---------------------------------------------------------------------------
// PopupList

KyMenu::PopupList::PopupList(KyMenu* menu, KyWidget* parent)
    : KyOwnedWidget(menu, parent, "PopupList", StrongFocus,
                    "PopupList { background-color: rgb(255, 255, 255); border-color: rgb(210, 214, 222); "
                    "border-width: 1px; border-radius: 8px; color: rgb(24, 28, 36); font-size: 13px; }") {}

void KyMenu::PopupList::paintEvent(PaintEvent* event) {
    KyMenu* menu = owner();
    if (!event || !event->painter() || !menu) return;
    KyPainter* p = event->painter();
    paintOwnBox_(p);
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const KyColor text = s.hasTextColor ? s.textColor : kText;
    // A dark sheet names the row colours too; the light ones are the default.
    auto sheetColour = [this](const char* name, const KyColor& fallback) {
        KyColor c;
        const KyString value = styleProperty(name);
        return !value.isEmpty() && ky::gui::StyleSheet::tryParseColor_(value, c) ? c : fallback;
    };
    const KyColor rowHover = sheetColour("highlight-background-color", kRowHover);
    const KyColor currentText = sheetColour("highlight-color", text);
    const KyColor disabledText = sheetColour("disabled-color", kDisabledText);
    const KyColor separator = sheetColour("separator-color", kSeparator);
    const KyFont font = resolveStyledFont();
    const KyVector<KyRect>& rows = menu->rowRects_;
    for (int i = 0; i < static_cast<int>(rows.size()) && i < static_cast<int>(menu->actions_.size()); ++i) {
        const KyAction* a = menu->actions_[i];
        const KyRect r = rows[i];
        if (a->getSeparator()) {
            const int y = r.y + r.height / 2;
            p->drawLine(r.x + 8, y, r.x + r.width - 9, y, separator, 1);
            continue;
        }
        const bool current = i == menu->current_;
        if (current) {
            KyRect fill{r.x + 4, r.y + 1, r.width - 8, r.height - 2};
            p->fillRoundedRect(fill, 5, rowHover, rowHover, 0);
        }
        const KyColor colour = !a->getEnabled() ? disabledText : current ? currentText : text;
        if (a->getCheckable() && a->getChecked()) {
            // A check mark of two strokes, two pixels wide, in the accent.
            const int cx = r.x + 15, cy = r.y + r.height / 2;
            p->drawLine(cx - 5, cy, cx - 2, cy + 3, a->getEnabled() ? kCheck : disabledText, 2);
            p->drawLine(cx - 2, cy + 3, cx + 4, cy - 4, a->getEnabled() ? kCheck : disabledText, 2);
        }
        p->drawText({r.x + kTextLeft, r.y, r.width - kTextLeft - kTextRight, r.height}, a->getText(),
                    DrawTextFormat::AlignVCenter, colour, font);
        if (a->menu()) {
            // The sub-menu arrow: a small solid triangle at the right end.
            const int ax = r.x + r.width - 18, ay = r.y + r.height / 2;
            const KyPoint arrow[3] = {{ax, ay - 4}, {ax + 4, ay}, {ax, ay + 4}};
            p->fillPolygon(arrow, 3, colour, colour, 0);
        }
    }
}

void KyMenu::PopupList::mousePressEvent(MouseEvent* event) {
    event->accept();
    KyMenu* menu = owner();
    if (!menu) return;
    const int row = menu->rowAt(event->x(), event->y());
    if (row >= 0 && selectable(menu->actions_[row])) menu->activateRow_(row);
}

void KyMenu::PopupList::mouseMoveEvent(MouseEvent* event) {
    event->accept();
    KyMenu* menu = owner();
    if (!menu) return;
    const int row = menu->rowAt(event->x(), event->y());
    if (row >= 0 && selectable(menu->actions_[row]) && row != menu->current_) {
        menu->setCurrentRow(row);
        menu->onPopupHoverChanged_(row);
    }
}

void KyMenu::PopupList::on_Hover_changed(const bool& value) {
    KyWidget::on_Hover_changed(value);
    // Leaving the list for nowhere in particular drops the highlight, unless
    // it leads to the open sub-menu.
    KyMenu* menu = owner();
    if (!value && menu && !(KyObject::isLive(menu->openSub_) && menu->openSub_->visible_)) menu->setCurrentRow(-1);
}

void KyMenu::PopupList::keyPressEvent(KeyEvent* event) {
    KyMenu* m = owner();
    if (!m) return;
    event->accept();
    switch (event->keyCode()) {
    case kKeyEscape: m->rootMenu_()->hide(); break;
    case kKeyUp: m->moveCurrent_(-1); break;
    case kKeyDown: m->moveCurrent_(1); break;
    case kKeyHome: m->setCurrentRow(-1), m->moveCurrent_(1); break;
    case kKeyEnd: m->setCurrentRow(-1), m->moveCurrent_(-1); break;
    case kKeyReturn:
    case kKeyEnter:
    case kKeySpace:
        if (m->current_ >= 0) m->activateRow_(m->current_);
        break;
    case kKeyRight:
        if (m->current_ >= 0 && m->actions_[m->current_]->menu()) m->openSubMenu_(m->current_, true);
        else if (KyObject::isLive(m->rootMenu_()->menuBar_)) m->rootMenu_()->menuBar_->openAdjacent_(1);
        break;
    case kKeyLeft:
        if (KyMenu* parent = m->parentMenu()) {
            parent->closeSubMenu_();
            if (parent->popupList()) parent->popupList()->requestFocus();
        } else if (KyObject::isLive(m->menuBar_)) {
            m->menuBar_->openAdjacent_(-1);
        }
        break;
    default: event->ignore(); break;
    }
}

// ---------------------------------------------------------------------------
// KyMenu

KyMenu::KyMenu(const KyString& title, KyObject* parent) : KyObject(parent), title_(title) {}

KyMenu::~KyMenu() {
    if (visible_) hide();
    // The list and overlay live in the host's window, which may outlive us.
    if (KyObject::isLive(list_)) delete list_;
    if (ownsOverlay_ && KyObject::isLive(overlay_)) delete overlay_;
    nativeWindow_.reset();
}

KyAction* KyMenu::addAction(const KyString& text, std::function<void()> fn) {
    auto* action = new KyAction(text, this);
    if (fn) KyObject::connect(action, &KyAction::triggered, [fn = std::move(fn)](bool) { fn(); });
    addAction(action);
    return action;
}

void KyMenu::addAction(KyAction* action) {
    if (!action || actions_.contains(action)) return;
    actions_.push_back(action);
    KyObject::connect(action, &KyAction::changed, this, [this] {
        if (visible_) updateGeometryFromActions();
    });
    if (visible_) updateGeometryFromActions();
}

KyAction* KyMenu::addSeparator() {
    auto* action = new KyAction(KyString(), this);
    action->setSeparator(true);
    addAction(action);
    return action;
}

KyMenu* KyMenu::addMenu(const KyString& title) {
    auto* sub = new KyMenu(title, this);
    sub->parentMenu_ = this;
    auto* action = new KyAction(title, this);
    action->setMenu(sub);
    addAction(action);
    return sub;
}

void KyMenu::removeAction(KyAction* action) {
    if (!actions_.removeOne(action)) return;
    if (current_ >= static_cast<int>(actions_.size())) current_ = -1;
    if (visible_) updateGeometryFromActions();
}

void KyMenu::clear() {
    if (visible_) hide();
    for (KyAction* a : KyVector<KyAction*>(actions_))
        if (a->parent() == this) delete a;
    actions_.clear();
    current_ = -1;
}

KyMenu* KyMenu::rootMenu_() {
    KyMenu* m = this;
    while (KyMenu* p = m->parentMenu()) m = p;
    return m;
}

KyWidget* KyMenu::hostWidget_() const {
    for (KyObject* o = parent(); o; o = o->parent())
        if (auto* w = dynamic_cast<KyWidget*>(o)) return w;
    return nullptr;
}

void KyMenu::ensurePopup() {
    if (KyMenu* parent = parentMenu()) {
        // A sub-menu shares the overlay of its chain.
        parent->ensurePopup();
        overlay_ = parent->rootMenu_()->popupOverlay();
        ownsOverlay_ = false;
    } else if (!popupOverlay()) {
        KyWidget* host = hostWidget_();
        KyWidget* top = host ? host->topLevelWidget() : nullptr;
        if (!top) {
            if (!nativeWindow_) makeNativeWindow_();
            top = nativeWindow_.get();
        }
        overlay_ = new PopupOverlay(this, top);
        overlay_->hide();
        ownsOverlay_ = true;
    }
    if (!popupList() && popupOverlay()) {
        list_ = new PopupList(this, overlay_);
        list_->hide();
        // A list that fills a window of its own has square corners: nothing
        // would paint behind rounded ones.
        if (nativeWindow_ && !parentMenu()) list_->setStyleSheet("PopupList { border-radius: 0px; }");
    }
}

void KyMenu::makeNativeWindow_() {
    nativeWindow_ = std::make_unique<MenuWindow_>(this);
    if (!popupWindowSheet_.isEmpty()) nativeWindow_->setStyleSheet(popupWindowSheet_);
}

void KyMenu::setPopupWindowStyleSheet(const KyString& sheet) {
    popupWindowSheet_ = sheet;
    if (nativeWindow_) nativeWindow_->setStyleSheet(sheet);
}

void KyMenu::updateGeometryFromActions() {
    PopupList* list = popupList();
    rowRects_.clear();
    const KyFont font = list ? list->resolveStyledFont() : KyFont(L"Segoe UI", 10);
    const KyWidgetPlatformHandle handle = list ? list->nativeHandle() : KyWidgetPlatformHandle{};
    int widest = 0;
    for (KyAction* a : actions_) {
        if (a->getSeparator()) continue;
        const KyString& t = a->getText();
        widest = std::max(widest, KyWidgetPlatformAdapter::textWidthUntil(handle, t, font, t.size(), 7 * static_cast<int>(t.size())));
    }
    const int width = std::max(kMinWidth, widest + kTextLeft + kTextRight);
    int y = kListPadding;
    for (KyAction* a : actions_) {
        const int h = a->getSeparator() ? kSeparatorHeight : kRowHeight;
        rowRects_.push_back({1, y, width - 2, h});
        y += h;
    }
    if (list) {
        const KyRect g = list->geometry();
        list->setGeometry(g.x, g.y, width, y + kListPadding);
        list->update();
    }
}

int KyMenu::rowAt(int x, int y) const {
    for (int i = 0; i < static_cast<int>(rowRects_.size()); ++i)
        if (rowRects_[i].contains(KyPoint(x, y))) return i;
    return -1;
}

void KyMenu::setCurrentRow(int row) {
    if (row >= 0 && (row >= static_cast<int>(actions_.size()) || !selectable(actions_[row]))) return;
    if (row == current_) return;
    current_ = row;
    if (PopupList* list = popupList()) list->update();
}

void KyMenu::moveCurrent_(int step) {
    const int n = static_cast<int>(actions_.size());
    if (n == 0) return;
    int row = current_;
    // At most one lap: a menu with nothing selectable keeps no current row.
    for (int i = 0; i < n; ++i) {
        row = row < 0 ? (step > 0 ? 0 : n - 1) : (row + step + n) % n;
        if (selectable(actions_[row])) {
            setCurrentRow(row);
            closeSubMenu_();
            return;
        }
    }
}

void KyMenu::placeList_(int x, int y) {
    PopupList* list = popupList();
    PopupOverlay* overlay = popupOverlay();
    if (!list || !overlay) return;
    const KySize size = list->size();
    // Kept inside the window: moved left or up by what would stick out.
    x = std::max(0, std::min(x, overlay->width() - size.width));
    y = std::max(0, std::min(y, overlay->height() - size.height));
    list->setGeometry(x, y, size.width, size.height);
}

void KyMenu::popup(int x, int y) {
    if (!parentMenu() && !hostWidget_()) {
        popupOnScreen(x, y);
        return;
    }
    if (visible_) hide();
    aboutToShow();
    ensurePopup();
    PopupOverlay* overlay = popupOverlay();
    PopupList* list = popupList();
    if (!overlay || !list) return;
    if (!parentMenu()) {
        KyWidget* top = overlay->parentWidget();
        overlay->setGeometry(0, 0, top->width(), top->height());
        previousFocus_ = top->focusWidget();
        // The overlay goes on top of everything the window has.
        overlay->setParent(nullptr);
        overlay->setParent(top);
        overlay->setGeometry(0, 0, top->width(), top->height());
        overlay->show();
    }
    current_ = -1;
    updateGeometryFromActions();
    placeList_(x, y);
    list->show();
    visible_ = true;
    if (!parentMenu()) list->requestFocus();
    overlay->update();
}

void KyMenu::popupOnScreen(int x, int y) {
    if (visible_) hide();
    if (!nativeWindow_) makeNativeWindow_();
    aboutToShow();
    ensurePopup();
    PopupOverlay* overlay = popupOverlay();
    PopupList* list = popupList();
    if (!overlay || !list) return;
    current_ = -1;
    updateGeometryFromActions();
    const KySize size = list->size();
    // Kept on the screen: a menu opened at the bottom edge opens upwards.
    int screenW = 0, screenH = 0;
    if (KyGuiApplication* app = KyGuiApplication::instance())
        if (KyPlatformIntegration* platform = app->platformIntegration()) {
            const KyList<KyString> screens = platform->availableScreens();
            if (!screens.isEmpty()) {
                const KyString s = screens.first();
                const std::size_t open = s.indexOf('('), cross = s.indexOf('x', open), close = s.indexOf(')', cross);
                if (open != KyString::npos && cross != KyString::npos && close != KyString::npos) {
                    screenW = s.mid(open + 1, cross - open - 1).toInt();
                    screenH = s.mid(cross + 1, close - cross - 1).toInt();
                }
            }
        }
    if (screenW > 0 && x + size.width > screenW) x = std::max(0, x - size.width);
    if (screenH > 0 && y + size.height > screenH) y = std::max(0, y - size.height);
    KyPlatformWindow* window = nativeWindow_->platformWindow();
    window->resize(size.width, size.height);
    window->move(x, y);
    nativeWindow_->setGeometry(0, 0, size.width, size.height);
    overlay->setGeometry(0, 0, size.width, size.height);
    list->setGeometry(0, 0, size.width, size.height);
    overlay->show();
    list->show();
    nativeWindow_->show();
    visible_ = true;
    list->requestFocus();
    window->grabPointer();
}

void KyMenu::hide() {
    if (!visible_) return;
    closeSubMenu_();
    visible_ = false;
    current_ = -1;
    aboutToHide();
    if (PopupList* list = popupList()) list->hide();
    if (!parentMenu()) {
        if (PopupOverlay* overlay = popupOverlay()) overlay->hide();
        if (nativeWindow_) {
            if (KyPlatformWindow* w = nativeWindow_->platformWindow()) w->ungrabPointer();
            nativeWindow_->hide();
        }
        if (KyObject::isLive(previousFocus_)) previousFocus_->requestFocus();
        previousFocus_ = nullptr;
        if (KyObject::isLive(menuBar_)) menuBar_->menuHidden_(this);
    }
}

void KyMenu::activateRow_(int row) {
    if (row < 0 || row >= static_cast<int>(actions_.size()) || !selectable(actions_[row])) return;
    setCurrentRow(row);
    if (actions_[row]->menu()) openSubMenu_(row, true);
    else activateLeafAction_(actions_[row]);
}

void KyMenu::activateLeafAction_(KyAction* action) {
    if (!selectable(action)) return;
    // The chain closes before anything runs: a slot may open a dialog.
    rootMenu_()->hide();
    if (action->getCheckable()) action->setChecked(!action->getChecked());
    const bool checked = action->getChecked();
    KyVector<KyMenu*> chain;
    for (KyMenu* m = this; m; m = m->parentMenu()) chain.push_back(m);
    action->triggered(checked);
    for (KyMenu* m : chain)
        if (KyObject::isLive(m) && KyObject::isLive(action)) m->triggered(action);
}

void KyMenu::onPopupHoverChanged_(int row) {
    if (row >= 0 && row < static_cast<int>(actions_.size()) && actions_[row]->menu()) {
        if (openSub_ != actions_[row]->menu() || !openSub_->visible_) openSubMenu_(row, false);
    } else {
        closeSubMenu_();
    }
}

void KyMenu::openSubMenu_(int row, bool focus) {
    KyMenu* sub = actions_[row]->menu();
    if (!sub || !popupList()) return;
    if (openSub_ != sub) closeSubMenu_();
    sub->parentMenu_ = this;
    openSub_ = sub;
    const KyRect list = popupList()->geometry();
    const KyRect r = row < static_cast<int>(rowRects_.size()) ? rowRects_[row] : KyRect{};
    sub->popup(list.x + list.width - 4, list.y + r.y - kListPadding);
    // Not enough room on the right: open on the left of the parent instead.
    if (PopupList* subList = sub->popupList())
        if (subList->geometry().x < list.x + list.width - 4) {
            const KyRect g = subList->geometry();
            subList->setGeometry(std::max(0, list.x - g.width + 4), g.y, g.width, g.height);
        }
    if (focus && sub->popupList()) {
        sub->popupList()->requestFocus();
        sub->moveCurrent_(1);
    }
}

void KyMenu::closeSubMenu_() {
    if (KyObject::isLive(openSub_)) openSub_->hide();
    openSub_ = nullptr;
}
