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

// X keysyms of the keys a button answers.
constexpr int kKeySpace = 0x0020;
constexpr int kKeyReturn = 0xff0d;
constexpr int kKeyEnter = 0xff8d;

} // namespace

KyPushButton::KyPushButton(KyWidget* parent) : KyFrame(parent) {
    setFocusPolicy(StrongFocus);
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

void KyPushButton::mousePressEvent(MouseEvent* event) {
    if (event->button() != 1 || !isInside_(event->x(), event->y())) {
        event->ignore();
        return;
    }
    // A disabled button still takes the press, so it does not fall through to its parent.
    if (isEnabled()) setPressed(true);
}

void KyPushButton::mouseReleaseEvent(MouseEvent* event) {
    if (!getPressed() || event->button() != 1) {
        event->ignore();
        return;
    }
    const bool inside = isInside_(event->x(), event->y());
    setPressed(false);
    keyPressed_ = false;
    if (inside) click();
}

void KyPushButton::mouseMoveEvent(MouseEvent* event) {
    // Moves belong to the button only while it is held.
    if (!getPressed()) event->ignore();
}

void KyPushButton::keyPressEvent(KeyEvent* event) {
    const bool plain = !event->ctrl() && !event->alt();
    if (!isEnabled() || !plain) {
        event->ignore();
        return;
    }
    switch (event->keyCode()) {
    case kKeySpace:
        if (!getPressed()) {
            keyPressed_ = true;
            setPressed(true);
        }
        break;
    case kKeyReturn:
    case kKeyEnter:
        click();
        break;
    default: event->ignore(); break;
    }
}

void KyPushButton::keyReleaseEvent(KeyEvent* event) {
    if (event->keyCode() != kKeySpace || !keyPressed_) {
        event->ignore();
        return;
    }
    keyPressed_ = false;
    if (getPressed()) {
        setPressed(false);
        click();
    }
}

void KyPushButton::on_Text_changed(const KyString&) { update(); }
void KyPushButton::on_Pressed_changed(const bool&) {
    invalidateStyleCache_();
    update();
}
void KyPushButton::on_Checkable_changed(const bool& checkable) {
    if (!checkable && getChecked()) setChecked(false);
}
void KyPushButton::on_Checked_changed(const bool&) {
    invalidateStyleCache_();
    update();
}
void KyPushButton::on_Alignment_changed(const int&) { update(); }

void KyPushButton::on_Enable_changed(const bool& enabled) {
    KyFrame::on_Enable_changed(enabled);
    // A button disabled while held lets go without clicking.
    if (!enabled) {
        keyPressed_ = false;
        setPressed(false);
    }
}

void KyPushButton::on_Focus_changed(const bool& focused) {
    KyFrame::on_Focus_changed(focused);
    // Space held while the focus leaves is no click.
    if (!focused && keyPressed_) {
        keyPressed_ = false;
        setPressed(false);
    }
}
