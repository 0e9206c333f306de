// KyAbstractButton: press, release and Space, for the two bases buttons use.
#include "gui/widgets/KyAbstractButton.h"

namespace {
constexpr int kKeySpace = 0x0020;
} // namespace

template <class Base> KyAbstractButton<Base>::KyAbstractButton(KyWidget* parent) : Base(parent) {
    this->setFocusPolicy(StrongFocus);
}

template <class Base> void KyAbstractButton<Base>::mousePressEvent(ky::gui::MouseEvent* event) {
    if (event->button() != 1 || !isInside_(event->x(), event->y())) {
        event->ignore();
        return;
    }
    // A disabled button still takes the press, so it does not fall through to its parent.
    if (this->isEnabled()) setPressed(true);
}

template <class Base> void KyAbstractButton<Base>::mouseReleaseEvent(ky::gui::MouseEvent* event) {
    if (!getPressed() || event->button() != 1) {
        event->ignore();
        return;
    }
    const bool inside = isInside_(event->x(), event->y());
    setPressed(false);
    keyPressed_ = false;
    if (inside) click();
}

template <class Base> void KyAbstractButton<Base>::mouseMoveEvent(ky::gui::MouseEvent* event) {
    // Moves belong to the button only while it is held.
    if (!getPressed()) event->ignore();
}

template <class Base> void KyAbstractButton<Base>::keyPressEvent(ky::gui::KeyEvent* event) {
    if (!this->isEnabled() || event->ctrl() || event->alt() || event->keyCode() != kKeySpace) {
        event->ignore();
        return;
    }
    // A held Space repeats its key down: the press it started goes on.
    if (!getPressed()) {
        keyPressed_ = true;
        setPressed(true);
    }
}

template <class Base> void KyAbstractButton<Base>::keyReleaseEvent(ky::gui::KeyEvent* event) {
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

template <class Base> void KyAbstractButton<Base>::on_Pressed_changed(const bool& down) {
    this->invalidateStyleCache_();
    this->update();
    if (down) pressed();
    else released();
}

template <class Base> void KyAbstractButton<Base>::cancelPress_() {
    keyPressed_ = false;
    setPressed(false);
}

template <class Base> void KyAbstractButton<Base>::on_Enable_changed(const bool& enabled) {
    Base::on_Enable_changed(enabled);
    if (!enabled) cancelPress_();
}

template <class Base> void KyAbstractButton<Base>::on_Focus_changed(const bool& focused) {
    Base::on_Focus_changed(focused);
    // Space held while the focus leaves is no click.
    if (!focused && keyPressed_) cancelPress_();
}

template class KyAbstractButton<KyWidget>;
template class KyAbstractButton<KyFrame>;
