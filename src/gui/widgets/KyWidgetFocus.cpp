// KyWidget's focus: at most one focused widget per native window, kept in
// one process-wide table from the window's key to its owner.
//
// Widgets not yet in a native window are keyed by their scope root, so each
// loose tree has its own focus. The table belongs to the GUI thread; entries
// whose owner died or moved to another window are dropped when next read.
#include <cstdint>
#include <map>
#include <tuple>

#include "gui/widgets/KyWidget.h"

struct KyWidget::FocusScopeKey_ {
    void* display = nullptr;
    std::uintptr_t window = 0;
    friend bool operator<(const FocusScopeKey_& a, const FocusScopeKey_& b) {
        return std::tie(a.display, a.window) < std::tie(b.display, b.window);
    }
    friend bool operator==(const FocusScopeKey_&, const FocusScopeKey_&) = default;
};

namespace {

std::map<KyWidget::FocusScopeKey_, KyWidget*>& focusOwnerMap_() {
    static std::map<KyWidget::FocusScopeKey_, KyWidget*> map;
    return map;
}

} // namespace

KyWidget::FocusScopeKey_ KyWidget::focusScopeKey_() const {
    if (handle_.isValid()) return {handle_.display, static_cast<std::uintptr_t>(handle_.window)};
    const KyWidget* scope = const_cast<KyWidget*>(this)->mouseGrabScopeRoot_();
    return {nullptr, reinterpret_cast<std::uintptr_t>(scope)};
}

KyWidget* KyWidget::validatedFocusOwnerForKey_(const FocusScopeKey_& key) {
    auto& map = focusOwnerMap_();
    const auto it = map.find(key);
    if (it == map.end()) return nullptr;
    KyWidget* owner = it->second;
    if (!KyObject::isLive(owner) || owner->destroying_ || !(owner->focusScopeKey_() == key) || !owner->getFocus()) {
        map.erase(it);
        return nullptr;
    }
    return owner;
}

KyWidget* KyWidget::focusWidget() const { return validatedFocusOwnerForKey_(focusScopeKey_()); }

void KyWidget::requestFocusOwnership_() {
    if (!getEnable() || getFocusPolicy() == NoClickFocus) return;
    const FocusScopeKey_ key = focusScopeKey_();
    KyWidget* current = validatedFocusOwnerForKey_(key);
    if (current && current != this) current->setFocusState_(false);
    focusOwnerMap_()[key] = this;
    setFocusState_(true);
}

void KyWidget::setFocusState_(bool focused) { setFocus(focused); }

void KyWidget::on_Focus_changed(const bool& focused) {
    // Keeps the table right however the flag changed.
    auto& map = focusOwnerMap_();
    const FocusScopeKey_ key = focusScopeKey_();
    if (focused) {
        KyWidget* current = validatedFocusOwnerForKey_(key);
        map[key] = this;
        if (current && current != this) current->setFocusState_(false);
    } else if (auto it = map.find(key); it != map.end() && it->second == this) {
        map.erase(it);
    }
    invalidateStyleCache_();
    update();
}

void KyWidget::clearFocus() {
    if (getFocus()) setFocusState_(false);
}

void KyWidget::clearFocusInHierarchy_() {
    clearFocus();
    for (KyWidget* child : childWidgets()) child->clearFocusInHierarchy_();
}

void KyWidget::removeFocusOwnerEntriesForWidget_() {
    auto& map = focusOwnerMap_();
    for (auto it = map.begin(); it != map.end();) {
        if (it->second == this) it = map.erase(it);
        else ++it;
    }
}

bool KyWidget::acceptsTabFocus() const {
    if (!getEnable() || getFocusPolicy() == NoClickFocus || !isVisibleInHierarchy()) return false;
    if (getFocusPolicy() == StrongFocus) return true;
    // Controls that work from the keyboard, by class, so that a control
    // which keeps the default policy still joins the chain.
    static const char* const kKeyboardControls[] = {
        "KyPushButton", "KyToolButton", "KyCheckBox",  "KyRadioButton",  "KyLineEdit",      "KyComboBox",
        "KySpinBox",    "KyDoubleSpinBox", "KySlider", "KyTabBar",       "KyListView",      "KyTableView",
        "KyTreeView",   "KyTextEdit",   "KyPlainTextEdit", "KyCodeEditor",
    };
    for (const KyString& cls : classHierarchy())
        for (const char* name : kKeyboardControls)
            if (cls == name) return true;
    return false;
}
