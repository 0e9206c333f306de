// KyCheckBox: an indicator box with a text beside it, in one of three
// states: unchecked, partially checked, checked.
//
// A click (a release inside after a press inside, or Space from the
// keyboard) moves unchecked and partially checked to checked, and checked to
// unchecked; a tristate box cycles through all three. The indicator is drawn
// here from the sheet's colours; the text follows it, centred vertically.
// GUI thread only.
#pragma once

#include "gui/widgets/KyAbstractButton.h"

/// A three-state check box.
class KyCheckBox : public KyAbstractButton<KyWidget> {
    KY_OBJECT(KyCheckBox, KyAbstractButton<KyWidget>)

public:
    enum CheckState : int { Unchecked = 0, PartiallyChecked = 1, Checked = 2 };

    KY_PROPERTY_HANDLED(KyString, Text, KyString())

public:
    explicit KyCheckBox(KyWidget* parent = nullptr);
    explicit KyCheckBox(const KyString& text, KyWidget* parent = nullptr);

    void setText(const char* text) { setText(KyString(text)); }
    KyString text() const { return getText(); }
    int checkState() const { return checkState_; }
    /// Values outside 0 to 2 are brought into that range.
    void setCheckState(int state);
    bool isChecked() const { return checkState_ == Checked; }
    void setChecked(bool checked) { setCheckState(checked ? Checked : Unchecked); }
    /// A tristate box lets the user pick the partial state too.
    bool isTristate() const { return tristate_; }
    void setTristate(bool tristate) { tristate_ = tristate; }
    /// The side of the indicator box (at most 28 drawn; 11 or less as given).
    int boxSize() const { return boxSize_; }
    void setBoxSize(int side);
    /// The user's click: the next state, then clicked(checked).
    void click() override;

    KY_SIGNAL(stateChanged, int)
    KY_SIGNAL(clicked, bool)
    /// Emitted when the box becomes checked or stops being checked.
    KY_SIGNAL(toggled, bool)

    KySize sizeHint() const override;
    KySize minimumSizeHint() const override { return sizeHint(); }
    void paintEvent(PaintEvent* event) override;
    virtual void on_Text_changed(const KyString& text);

    /// The gap between the indicator and the text.
    static constexpr int kGap = 8;

private:
    int drawnSide_() const;

    int checkState_ = Unchecked;
    bool tristate_ = false;
    int boxSize_ = 18;
};
