// KySpinBox: a whole number in a range, typed into an inner line edit or
// stepped with two arrow buttons, the keys and the wheel.
//
// The value is the truth; the edit's text follows it (updateTextFromValue)
// and is read back only by commitEdit, on Return or Enter or when the field
// loses focus after an edit: text that is no number restores the old text,
// a number outside the range is clamped. Escape throws typed text away.
// setValue clamps, ignores an unchanged value and emits valueChanged once.
// The frame, the divider and the arrows are painted here; the inner edit has
// no frame of its own, and the focus lives in that edit. GUI thread only.
#pragma once

#include <algorithm>

#include "gui/widgets/KyWidget.h"

class KyLineEdit;

/// A numeric field with up and down arrows.
class KySpinBox : public KyWidget {
    KY_OBJECT(KySpinBox, KyWidget)

public:
    /// One of the two stepping buttons at the right end of a spin box.
    class ArrowButton : public KyWidget {
        KY_OBJECT(ArrowButton, KyWidget)

    public:
        KY_PROPERTY_HANDLED(bool, Pressed, false)
        KY_SIGNAL(clicked)

        ArrowButton(KySpinBox* box, bool up);
        bool isUp() const { return up_; }
        void paintEvent(PaintEvent* event) override;
        void mousePressEvent(MouseEvent* event) override;
        void mouseReleaseEvent(MouseEvent* event) override;
        virtual void on_Pressed_changed(const bool& pressed);

    private:
        KySpinBox* box_;
        bool up_;
    };

    /// The frame's parts: the border, the margins around the text and the arrow column.
    struct FrameMetrics {
        int border = 1;
        int marginLeft = 12;
        int marginRight = 12;
        int arrowWidth = 22;
    };

    KY_SIGNAL(valueChanged, int)

    static constexpr int kMinimumWidth = 56;
    static constexpr int kMinimumHeight = 28;

    explicit KySpinBox(KyWidget* parent = nullptr);

    int minimum() const { return minimum_; }
    int maximum() const { return maximum_; }
    int value() const { return value_; }
    int singleStep() const { return singleStep_; }
    void setMinimum(int minimum) { setRange(minimum, std::max(minimum, maximum_)); }
    void setMaximum(int maximum) { setRange(std::min(minimum_, maximum), maximum); }
    /// A maximum below the minimum is raised to it; the value is clamped into the range.
    void setRange(int minimum, int maximum);
    void setSingleStep(int step) { singleStep_ = step < 1 ? 1 : step; }
    void setValue(int value);
    /// Steps by count single steps (clamped).
    void stepBy(int count);

    KyLineEdit* lineEdit() const { return edit_; }
    ArrowButton* upButton() const { return up_; }
    ArrowButton* downButton() const { return down_; }

    void updateTextFromValue();
    /// Reads the typed text: a number becomes the value (clamped), anything else is undone.
    void commitEdit();
    /// Places the edit and the arrows inside the frame.
    void updateLayout();
    FrameMetrics resolveFrameMetrics_() const;

    KySize sizeHint() const override;
    KySize minimumSizeHint() const override;
    void paintEvent(PaintEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void wheelEvent(WheelEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void resizeEvent(ResizeEvent* event) override;
    void on_Focus_changed(const bool& focused) override;
    void on_Enable_changed(const bool& enabled) override;

private:
    void selectAllIfFocused_();

    KyLineEdit* edit_ = nullptr;
    ArrowButton* up_ = nullptr;
    ArrowButton* down_ = nullptr;
    int minimum_ = 0;
    int maximum_ = 99;
    int value_ = 0;
    int singleStep_ = 1;
};
