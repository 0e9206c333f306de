// KyPushButton: a button that clicks when released over itself, optionally
// checkable (a toggle).
//
// A press inside takes the mouse and sets "Pressed"; the release clicks only
// when it happens inside, and a checkable button flips "Checked" first. From
// the keyboard, Space presses on key down and clicks on key up, and Return
// clicks at once. Paints through KyStyle::drawControl; the look is the
// default sheet's. GUI thread only.
#pragma once

#include "gui/widgets/KyAbstractButton.h"

/// A push button.
class KyPushButton : public KyAbstractButton<KyFrame> {
    KY_OBJECT(KyPushButton, KyAbstractButton<KyFrame>)

public:
    KY_PROPERTY_HANDLED(KyString, Text, KyString())
    KY_PROPERTY_HANDLED(bool, Checkable, false)
    KY_PROPERTY_HANDLED(bool, Checked, false)

public:
    explicit KyPushButton(KyWidget* parent = nullptr);
    explicit KyPushButton(const KyString& text, KyWidget* parent = nullptr);

    void setText(const char* text) { setText(KyString(text)); }
    KyString text() const { return getText(); }
    bool isCheckable() const { return getCheckable(); }
    bool isChecked() const { return getChecked(); }
    /// Clicks as a release inside would: toggles a checkable button, then clicked().
    void click() override;
    /// The default button of its window takes a Return that nobody else
    /// took, so a form can be sent from any of its fields.
    void setDefault(bool isDefault) { default_ = isDefault; }
    bool isDefault() const { return default_; }

    /// Emitted when a press is released inside the button (or click()).
    KY_SIGNAL(clicked)
    /// Emitted when a click flips Checked.
    KY_SIGNAL(toggled, bool)

    KySize sizeHint() const override;
    KySize minimumSizeHint() const override { return sizeHint(); }
    void paintEvent(PaintEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    virtual void on_Text_changed(const KyString& text);
    virtual void on_Checkable_changed(const bool& checkable);
    virtual void on_Checked_changed(const bool& checked);
    void on_Alignment_changed(const int& alignment) override;

private:
    bool default_ = false;
};
