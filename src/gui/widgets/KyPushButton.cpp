// KyPushButton: press, release and keys, painted by the style.
#include "gui/widgets/KyPushButton.h"

#include "gui/widgets/KyControlMetrics.h"

namespace {

const char* const kDefaultSheet =
    "KyPushButton { background-color: rgb(243, 243, 243); border-color: rgb(173, 173, 173); color: rgb(18, 18, 18);"
    " border-radius: 4px; padding: 8px 14px; border-width: 1px; font-size: 14px; }"
    "KyPushButton:hover { background-color: rgb(229, 241, 251); border-color: rgb(0, 120, 215); }"
    "KyPushButton:pressed { background-color: rgb(204, 228, 247); border-color: rgb(0, 84, 153); color: rgb(18, 18, 18); }"
    "KyPushButton:checked { background-color: rgb(214, 231, 248); border-color: rgb(0, 120, 215); color: rgb(18, 18, 18); }"
    "KyPushButton:disabled { background-color: rgb(244, 244, 244); border-color: rgb(205, 205, 205); color: rgb(122, 122, 122); }";

// X keysyms of the keys a push button answers beyond Space.
constexpr int kKeyReturn = 0xff0d;
constexpr int kKeyEnter = 0xff8d;

} // namespace

KyPushButton::KyPushButton(KyWidget* parent) : KyAbstractButton(parent) {
    setDefaultStyleSheet(kDefaultSheet);
}

KyPushButton::KyPushButton(const KyString& text, KyWidget* parent) : KyPushButton(parent) { setText(text); }

KySize KyPushButton::sizeHint() const { return KyControlMetrics::textBoxHint(this, getText()); }

void KyPushButton::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyStyle::drawControl(KyStyle::PushButton, clientRect(), event->painter(), this, KyStyle::stateOf(this));
    paintChildren(event->painter(), event->rect());
}

void KyPushButton::click() {
    if (!isEnabled()) return;
    if (getCheckable()) {
        setChecked(!getChecked());
        toggled(getChecked());
    }
    clicked();
}

void KyPushButton::keyPressEvent(KeyEvent* event) {
    // Return clicks at once; Space and the rest are the base's.
    const int key = event->keyCode();
    if (isEnabled() && !event->ctrl() && !event->alt() && (key == kKeyReturn || key == kKeyEnter)) return click();
    KyAbstractButton::keyPressEvent(event);
}

void KyPushButton::on_Text_changed(const KyString&) { update(); }
void KyPushButton::on_Checkable_changed(const bool& checkable) {
    if (!checkable && getChecked()) setChecked(false);
}
void KyPushButton::on_Checked_changed(const bool&) {
    invalidateStyleCache_();
    update();
}
void KyPushButton::on_Alignment_changed(const int&) { update(); }
