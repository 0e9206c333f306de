// KyAbstractButton: what every button shares: the "Pressed" state a press
// holds, the click on a release inside, and Space from the keyboard.
//
// A left press inside sets Pressed and keeps the mouse's moves; the release
// clicks only when it happens inside. Space presses on key down and clicks
// on key up; a held Space repeats its key down, which finds the button
// already pressed and changes nothing. A button disabled while held, or
// losing the focus while Space holds it, lets go without clicking. What a
// click does (flip Checked, move the check state) and the clicked signal are
// each button's own.
//
// The base sits on the class the button derives from anyway (push buttons
// are frames, check boxes plain widgets), so that each keeps its place in
// the style cascade; it is built for those two bases. GUI thread only.
#pragma once

#include "gui/widgets/KyFrame.h"

/// The press, release and Space handling of a button over Base.
template <class Base> class KyAbstractButton : public Base {
public:
    KY_PROPERTY_HANDLED(bool, Pressed, false)

public:
    explicit KyAbstractButton(KyWidget* parent = nullptr);

    bool isPressed() const { return getPressed(); }
    /// The user's click without the mouse: what a release inside does.
    virtual void click() = 0;

    /// Emitted as a press (mouse or Space) starts, and as it ends, clicked or not.
    KY_SIGNAL(pressed)
    KY_SIGNAL(released)

    void mousePressEvent(ky::gui::MouseEvent* event) override;
    void mouseReleaseEvent(ky::gui::MouseEvent* event) override;
    void mouseMoveEvent(ky::gui::MouseEvent* event) override;
    void keyPressEvent(ky::gui::KeyEvent* event) override;
    void keyReleaseEvent(ky::gui::KeyEvent* event) override;
    virtual void on_Pressed_changed(const bool& down);
    void on_Enable_changed(const bool& enabled) override;
    void on_Focus_changed(const bool& focused) override;

protected:
    bool isInside_(int x, int y) const { return x >= 0 && x <= this->width() - 1 && y >= 0 && y <= this->height() - 1; }

private:
    /// Lets go of a press without clicking.
    void cancelPress_();

    bool keyPressed_ = false;
};

extern template class KyAbstractButton<KyWidget>;
extern template class KyAbstractButton<KyFrame>;
