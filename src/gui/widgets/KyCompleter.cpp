// KyCompleter: filtering, the popup and accepting a completion.
#include "gui/widgets/KyCompleter.h"

#include <X11/keysym.h>

#include <algorithm>

#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyPopupList.h"

namespace {

// Lower-cases ASCII and the Latin-1 letters, so "Émile" matches "émi".
std::u32string folded(const KyString& text) {
    std::u32string out = text.toUtf32();
    for (char32_t& c : out)
        if ((c >= U'A' && c <= U'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7)) c += 0x20;
    return out;
}

// Puts w on top of its siblings: later children paint over earlier ones and take the pointer first.
void raiseToTop(KyWidget* w) {
    KyWidget* parent = w->parentWidget();
    if (!parent) return;
    const KyVector<KyWidget*>& siblings = parent->childWidgets();
    if (!siblings.empty() && siblings.back() == w) return;
    w->setParent(nullptr);
    w->setParent(parent);
}

} // namespace

KyCompleter::KyCompleter(KyObject* parent) : KyObject(parent) {}

KyCompleter::KyCompleter(const KyList<KyString>& list, KyObject* parent) : KyObject(parent), list_(list) {}

KyCompleter::~KyCompleter() {
    if (edit_ && KyObject::isLive(edit_) && edit_->completer() == this) edit_->setCompleter(nullptr);
    if (popup_ && KyObject::isLive(popup_)) delete popup_;
}

void KyCompleter::setStringList(const KyList<KyString>& list) {
    list_ = list;
    if (isPopupVisible()) complete(lastRect_);
}

void KyCompleter::setCompletionPrefix(const KyString& prefix) {
    prefix_ = prefix;
    if (isPopupVisible()) complete(lastRect_);
}

void KyCompleter::setMaxVisibleItems(int rows) {
    maxVisible_ = std::max(1, rows);
    if (popup_ && KyObject::isLive(popup_)) popup_->setMaxVisibleRows(maxVisible_);
}

void KyCompleter::setWidget(KyLineEdit* edit) {
    if (edit_ == edit) return;
    KyLineEdit* old = edit_;
    edit_ = edit;
    hidePopup();
    if (popup_ && KyObject::isLive(popup_)) delete popup_;
    popup_ = nullptr;
    if (old && KyObject::isLive(old)) {
        KyObject::disconnect(old, this);
        if (old->completer() == this) old->setCompleter(nullptr);
    }
    if (!edit) return;
    if (edit->completer() != this) edit->setCompleter(this);
    // Typing into the field refines an open popup.
    KyObject::connect(edit, &KyLineEdit::textEdited, this, [this](const KyString&) {
        if (isPopupVisible()) complete(lastRect_);
    });
}

void KyCompleter::updateFiltering_() {
    const KyString prefix = edit_ && KyObject::isLive(edit_) ? edit_->getText().trimmed() : prefix_.trimmed();
    const std::u32string needle = folded(prefix);
    filtered_.clear();
    for (const KyString& entry : list_) {
        const std::u32string hay = folded(entry);
        const bool match = filterMode_ == MatchContains ? hay.find(needle) != std::u32string::npos
                                                        : hay.compare(0, needle.size(), needle) == 0;
        // Offering exactly what is typed would complete nothing.
        if (match && hay != needle) filtered_.push_back(entry);
    }
}

void KyCompleter::ensurePopup_() {
    if (popup_ && KyObject::isLive(popup_)) return;
    popup_ = nullptr;
    if (!edit_ || !KyObject::isLive(edit_)) return;
    popup_ = new KyPopupList(edit_->topLevelWidget());
    popup_->setObjectName("completerPopup");
    popup_->setMaxVisibleRows(maxVisible_);
    popup_->hide();
    KyObject::connect(popup_, &KyPopupList::rowHighlighted, this, [this](int row) {
        if (row >= 0 && row < static_cast<int>(filtered_.size())) highlighted(filtered_[static_cast<std::size_t>(row)]);
    });
    KyObject::connect(popup_, &KyPopupList::rowClicked, this, [this](int) { activateCurrent_(); });
}

void KyCompleter::complete(const KyRect& rect) {
    if (!edit_ || !KyObject::isLive(edit_)) return;
    lastRect_ = rect;
    updateFiltering_();
    if (filtered_.empty()) {
        hidePopup();
        return;
    }
    ensurePopup_();
    if (!popup_) return;
    const KyString keep = currentCompletion();
    popup_->setItems(filtered_);
    const auto it = std::find(filtered_.begin(), filtered_.end(), keep);
    if (!keep.isEmpty() && it != filtered_.end()) popup_->setHighlight(static_cast<int>(it - filtered_.begin()));
    const KyRect r = rect.isEmpty() ? KyRect(0, 0, edit_->width(), edit_->height()) : rect;
    const KyWidget* top = popup_->parentWidget();
    const int x = edit_->rootRect().x - (top ? top->rootRect().x : 0) + r.x;
    const int y = edit_->rootRect().y - (top ? top->rootRect().y : 0) + r.y + r.height + 2;
    popup_->setGeometry(x, y, std::max(r.width, 120), popup_->preferredHeight());
    raiseToTop(popup_);
    popup_->show();
    popup_->update();
}

void KyCompleter::hidePopup() {
    if (popup_ && KyObject::isLive(popup_) && popup_->isVisible()) popup_->hide();
}

bool KyCompleter::isPopupVisible() const { return popup_ && KyObject::isLive(popup_) && popup_->isVisible(); }

KyString KyCompleter::currentCompletion() const {
    if (!popup_ || !KyObject::isLive(popup_)) return {};
    const int row = popup_->highlight();
    return row >= 0 && row < static_cast<int>(filtered_.size()) ? filtered_[static_cast<std::size_t>(row)] : KyString();
}

bool KyCompleter::handleEditorKeyPress(ky::gui::KeyEvent* e) {
    if (!e || !isPopupVisible()) return false;
    switch (e->keyCode()) {
    case XK_Down: popup_->moveHighlightBy(1); return true;
    case XK_Up: popup_->moveHighlightBy(-1); return true;
    case XK_Return:
    case XK_KP_Enter:
        // With nothing highlighted, Return belongs to the field.
        if (popup_->highlight() < 0) {
            hidePopup();
            return false;
        }
        activateCurrent_();
        return true;
    case XK_Escape: hidePopup(); return true;
    default: return false;
    }
}

void KyCompleter::activateCurrent_() {
    const KyString text = currentCompletion();
    hidePopup();
    if (text.isEmpty()) return;
    if (edit_ && KyObject::isLive(edit_)) edit_->setText(text);
    activated(text);
}
