// KyComboBox: items, the current index, the popup overlay and input.
#include "gui/widgets/KyComboBox.h"

#include <X11/keysym.h>

#include <algorithm>
#include <cwctype>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

const char* const kDefaultSheet =
    "KyComboBox { background-color: rgb(255, 255, 255); border-color: rgb(220, 224, 232); border-width: 1px;"
    " border-radius: 6px; color: rgb(24, 28, 36); font-size: 14px; padding: 4px 10px;"
    " focus-border-color: rgb(59, 130, 246); arrow-color: rgb(100, 116, 139); popup-offset: 4px;"
    " popup-background-color: rgb(255, 255, 255); popup-border-top-left-radius: 8px;"
    " popup-border-top-right-radius: 8px; popup-border-bottom-right-radius: 8px;"
    " popup-border-bottom-left-radius: 8px; }"
    "KyComboBox:hover { border-color: rgb(148, 163, 184); }"
    "KyComboBox:disabled { background-color: rgb(245, 245, 245); border-color: rgb(210, 210, 210);"
    " color: rgb(150, 150, 150); }";

// Puts w on top of its siblings: later children paint over earlier ones and take the pointer first.
void raiseToTop(KyWidget* w) {
    KyWidget* parent = w->parentWidget();
    if (!parent) return;
    const KyVector<KyWidget*>& siblings = parent->childWidgets();
    if (!siblings.empty() && siblings.back() == w) return;
    w->setParent(nullptr);
    w->setParent(parent);
}

wchar_t foldedFirst(const KyString& text) {
    const std::u32string cps = text.toUtf32();
    return cps.empty() ? 0 : static_cast<wchar_t>(std::towlower(static_cast<wint_t>(cps[0])));
}

} // namespace

/// Covers the top-level widget while the popup is open: a press outside the
/// list closes the popup and is taken here, so nothing below sees it.
class KyComboBox::Overlay_ : public KyWidget {
    KY_OBJECT(KyComboBoxOverlay, KyWidget)

public:
    Overlay_(KyWidget* top, KyComboBox* box) : KyWidget(top), box_(box) {
        setObjectName("comboPopupOverlay");
        setFocusPolicy(NoClickFocus);
        setDefaultStyleSheet("KyComboBoxOverlay { background-color: rgba(0, 0, 0, 0); border-width: 0px; }");
    }
    void paintEvent(PaintEvent* event) override { paintChildren_(event->painter(), event->rect()); }
    void mousePressEvent(MouseEvent*) override {
        if (KyObject::isLive(box_)) box_->setPopupVisible(false);
    }
    void mouseReleaseEvent(MouseEvent*) override {}
    void mouseDoubleClickEvent(MouseEvent*) override {
        if (KyObject::isLive(box_)) box_->setPopupVisible(false);
    }
    void wheelEvent(WheelEvent*) override {}

private:
    KyComboBox* box_;
};

KyComboBox::KyComboBox(KyWidget* parent) : KyWidget(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    setFocusPolicy(StrongFocus);
    setDynamicProperty_("CurrentText", KyAny(KyString()));
    resize(160, 32);
}

KyComboBox::~KyComboBox() {
    // The overlay belongs to the top-level widget, which may outlive the box.
    if (overlay_ && KyObject::isLive(overlay_)) delete overlay_;
}

void KyComboBox::addItem(const KyString& text, const KyAny& data) {
    items_.push_back({text, data});
    if (list_ && KyObject::isLive(list_) && isPopupVisible()) updatePopupGeometry();
    if (currentIndex_ < 0) setCurrentIndex(0);
    else update();
}

void KyComboBox::addItems(const KyList<KyString>& texts) {
    for (const KyString& t : texts) addItem(t);
}

void KyComboBox::clear() {
    setPopupVisible(false);
    items_.clear();
    setCurrentIndex(-1);
}

KyString KyComboBox::itemText(int index) const {
    return index >= 0 && index < count() ? items_[static_cast<std::size_t>(index)].text : KyString();
}

KyAny KyComboBox::itemData(int index) const {
    return index >= 0 && index < count() ? items_[static_cast<std::size_t>(index)].data : KyAny();
}

int KyComboBox::findText(const KyString& text) const {
    for (int i = 0; i < count(); ++i)
        if (items_[static_cast<std::size_t>(i)].text == text) return i;
    return -1;
}

void KyComboBox::publishCurrentText_() { setDynamicProperty_("CurrentText", KyAny(currentText())); }

void KyComboBox::setCurrentIndex(int index) {
    index = items_.empty() ? -1 : std::clamp(index, 0, count() - 1);
    if (index == currentIndex_) return;
    const KyString before = currentText();
    currentIndex_ = index;
    publishCurrentText_();
    update();
    currentIndexChanged(index);
    if (currentText() != before) currentTextChanged(currentText());
}

// ---------------------------------------------------------------------------
// Popup

int KyComboBox::rowHeight_() const {
    const KyFont font = resolveStyledFont();
    const int px = font.pixelSize > 0 ? font.pixelSize : std::max(1, font.pointSize) * 96 / 72;
    return static_cast<int>(px * 1.4);
}

void KyComboBox::ensurePopup_() {
    if (overlay_ && KyObject::isLive(overlay_)) return;
    overlay_ = new Overlay_(topLevelWidget(), this);
    overlay_->hide();
    list_ = new PopupList(overlay_);
    list_->setObjectName("comboPopupList");
    KyObject::connect(list_, &PopupList::rowHighlighted, this, [this](int row) {
        if (row >= 0) highlighted(row);
    });
    KyObject::connect(list_, &PopupList::rowClicked, this, [this](int row) {
        list_->setHighlight(row);
        commitPopupHighlighted_();
    });
}

KyWidget* KyComboBox::popupOverlay() const { return overlay_; }

bool KyComboBox::isPopupVisible() const { return overlay_ && KyObject::isLive(overlay_) && overlay_->isVisible(); }

void KyComboBox::updatePopupGeometry() {
    if (!overlay_ || !KyObject::isLive(overlay_)) return;
    KyWidget* top = overlay_->parentWidget();
    if (!top) return;
    overlay_->setGeometry(0, 0, top->width(), top->height());
    // The list takes the sheet's popup look.
    KyString sheet = "KyPopupList#comboPopupList {";
    const char* const kPassOn[][2] = {{"popup-background-color", "background-color"},
                                      {"popup-border-top-left-radius", "border-top-left-radius"},
                                      {"popup-border-top-right-radius", "border-top-right-radius"},
                                      {"popup-border-bottom-right-radius", "border-bottom-right-radius"},
                                      {"popup-border-bottom-left-radius", "border-bottom-left-radius"},
                                      {"font-size", "font-size"},
                                      {"font-family", "font-family"},
                                      {"color", "color"}};
    for (const auto& pair : kPassOn) {
        const KyString v = styleProperty(pair[0]);
        if (!v.isEmpty()) sheet += KyString(" ") + pair[1] + ": " + v + ";";
    }
    sheet += " }";
    list_->setStyleSheet(sheet);
    KyList<KyString> texts;
    for (const Item_& item : items_) texts.push_back(item.text);
    if (texts != list_->items()) list_->setItems(texts);
    list_->setMaxVisibleRows(10);

    const int offset = ky::gui::StyleSheet::parsePixelValue(styleProperty("popup-offset"), 4);
    const int x = rootRect().x - top->rootRect().x;
    int y = rootRect().y - top->rootRect().y + height() + offset;
    const int h = list_->preferredHeight();
    // Without room below, the list opens above the field.
    if (y + h > top->height() && rootRect().y - top->rootRect().y - offset - h >= 0)
        y = rootRect().y - top->rootRect().y - offset - h;
    list_->setGeometry(x, y, std::max(width(), 80), h);
}

void KyComboBox::setPopupVisible(bool visible) {
    if (visible == isPopupVisible()) return;
    if (!visible) {
        overlay_->hide();
        update();
        return;
    }
    if (items_.empty() || !isEnabled()) return;
    ensurePopup_();
    updatePopupGeometry();
    list_->setHighlight(currentIndex_);
    raiseToTop(overlay_);
    overlay_->show();
    overlay_->update();
    requestFocus();
    update();
}

void KyComboBox::stepCurrentIndexBy_(int delta) {
    if (items_.empty()) return;
    const int before = currentIndex_;
    setCurrentIndex(std::clamp(currentIndex_ + delta, 0, count() - 1));
    if (currentIndex_ != before) activated(currentIndex_);
}

void KyComboBox::movePopupHighlightBy_(int delta) {
    if (list_ && KyObject::isLive(list_)) list_->moveHighlightBy(delta);
}

void KyComboBox::commitPopupHighlighted_() {
    const int row = list_ && KyObject::isLive(list_) ? list_->highlight() : -1;
    setPopupVisible(false);
    if (row < 0) return;
    setCurrentIndex(row);
    activated(row);
}

int KyComboBox::findNextByFirstChar_(wchar_t ch, int from) const {
    if (items_.empty()) return -1;
    const wchar_t wanted = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(ch)));
    const int n = count();
    for (int step = 1; step <= n; ++step) {
        const int i = ((from + step) % n + n) % n;
        if (foldedFirst(items_[static_cast<std::size_t>(i)].text) == wanted) return i;
    }
    return -1;
}

// ---------------------------------------------------------------------------
// Size and paint

KySize KyComboBox::sizeHint() const {
    const KyFont font = resolveStyledFont();
    int widest = 0;
    for (const Item_& item : items_)
        widest = std::max(widest, KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), item.text, font, item.text.size(),
                                                                          static_cast<int>(item.text.size()) * 8));
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const StyleBox pad = s.hasPadding ? s.padding : StyleBox{{4, 10, 4, 10}};
    const int border = s.hasBorderWidth ? s.effectiveBorderWidth() : 1;
    const int chevron = 24;
    const int w = std::max(80, widest + pad.left() + pad.right() + chevron + 2 * border);
    const int h = std::max(28, rowHeight_() + pad.top() + pad.bottom() + 2 * border);
    return {std::clamp(w, minimumSize().width, maximumSize().width), std::clamp(h, minimumSize().height, maximumSize().height)};
}

void KyComboBox::paintEvent(PaintEvent* event) {
    KyPainter* p = event->painter();
    if (!p || !isVisibleInHierarchy()) return;
    std::uint32_t state = KyStyle::stateOf(this);
    // An open popup keeps the field looking focused.
    if (isPopupVisible()) state |= KyStyle::StateFocus;
    KyStyle::drawControl(KyStyle::ComboBox, {0, 0, width(), height()}, p, this, state);
}

// ---------------------------------------------------------------------------
// Input

void KyComboBox::keyPressEvent(KeyEvent* e) {
    if (items_.empty() || !isEnabled()) {
        e->ignore();
        return;
    }
    const bool open = isPopupVisible();
    switch (e->keyCode()) {
    case XK_Up:
        if (e->alt() && open) setPopupVisible(false);
        else if (open) movePopupHighlightBy_(-1);
        else stepCurrentIndexBy_(-1);
        break;
    case XK_Down:
        if (e->alt() && !open) setPopupVisible(true);
        else if (open) movePopupHighlightBy_(1);
        else stepCurrentIndexBy_(1);
        break;
    case XK_Home:
        if (open) list_->setHighlight(0);
        else stepCurrentIndexBy_(-count());
        break;
    case XK_End:
        if (open) list_->setHighlight(count() - 1);
        else stepCurrentIndexBy_(count());
        break;
    case XK_Return:
    case XK_KP_Enter:
        if (!open) {
            e->ignore();
            return;
        }
        commitPopupHighlighted_();
        break;
    case XK_Escape:
        if (!open) {
            e->ignore();
            return;
        }
        setPopupVisible(false);
        break;
    case XK_space:
        if (!open) {
            setPopupVisible(true);
            break;
        }
        [[fallthrough]];
    default: {
        wchar_t ch = 0;
        if (e->ctrl() || e->alt() || !KyWidgetPlatformAdapter::translateCharacter(e->keyCode(), e->shift(), false, ch)) {
            e->ignore();
            return;
        }
        const int from = open ? list_->highlight() : currentIndex_;
        const int next = findNextByFirstChar_(ch, from);
        if (next < 0) break;
        if (open) list_->setHighlight(next);
        else if (next != currentIndex_) {
            setCurrentIndex(next);
            activated(next);
        }
        break;
    }
    }
    e->accept();
}

void KyComboBox::mousePressEvent(MouseEvent* e) {
    if (e->button() != 1 || !isEnabled()) {
        e->ignore();
        return;
    }
    setPopupVisible(!isPopupVisible());
}

void KyComboBox::wheelEvent(WheelEvent* e) {
    if (items_.empty() || !isEnabled() || e->delta() == 0) {
        e->ignore();
        return;
    }
    const int notches = e->delta() / 120 != 0 ? e->delta() / 120 : (e->delta() > 0 ? 1 : -1);
    if (isPopupVisible()) movePopupHighlightBy_(-notches);
    else stepCurrentIndexBy_(-notches);
}

void KyComboBox::on_Enable_changed(const bool& enabled) {
    KyWidget::on_Enable_changed(enabled);
    if (!enabled) setPopupVisible(false);
}

void KyComboBox::hideEvent(Event* event) {
    setPopupVisible(false);
    KyWidget::hideEvent(event);
}
