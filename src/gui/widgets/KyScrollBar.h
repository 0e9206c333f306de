// KyScrollBar: a groove with a thumb that shows and moves a value between a
// minimum and a maximum; the thumb's length shows the page against the range.
//
// A press on the thumb starts a drag (sliderPressed, sliderMoved on every
// change of value, sliderReleased); a press before or after it steps a page
// and keeps stepping while held. The wheel steps by notches: a vertical bar
// reacts to a plain wheel, a horizontal one to Shift and the wheel. A bar
// does not take the focus by default (the area it scrolls has the keys); one
// given a focus policy answers the arrows (a single step), Page Up and Page
// Down (a page), Home and End (the ends) and shows the focus as an accent
// outline (`focus-border-color`). The
// value, range and steps are kept in range by the setters and mirrored into
// the properties "Orientation", "Minimum", "Maximum" and "Value" that styles
// read. GUI thread only.
#pragma once

#include <algorithm>

#include "gui/widgets/KyWidget.h"

class KyTimer;

/// A horizontal or vertical scroll bar.
class KyScrollBar : public KyWidget {
    KY_OBJECT(KyScrollBar, KyWidget)

public:
    enum Orientation : int { Horizontal = 0, Vertical = 1 };

    explicit KyScrollBar(KyWidget* parent = nullptr);
    KyScrollBar(int orientation, KyWidget* parent);
    ~KyScrollBar() override;

    int orientation() const { return orientation_; }
    void setOrientation(int orientation);
    int minimum() const { return minimum_; }
    int maximum() const { return maximum_; }
    void setMinimum(int minimum) { setRange(minimum, std::max(minimum, maximum_)); }
    void setMaximum(int maximum) { setRange(std::min(minimum_, maximum), maximum); }
    /// A maximum below the minimum becomes the minimum (an empty range); the value follows.
    void setRange(int minimum, int maximum);
    int value() const { return value_; }
    /// Clamped to the range; emits valueChanged only when the value changes.
    void setValue(int value);
    int pageStep() const { return pageStep_; }
    void setPageStep(int step);
    int singleStep() const { return singleStep_; }
    void setSingleStep(int step);
    bool isSliderDown() const { return dragging_; }

    /// The groove inside rect: the long axis inset by `padding` (0 to 16,
    /// default 2) at both ends, at least 8 pixels thick.
    KyRect grooveRect(const KyRect& rect) const;
    /// The thumb inside the groove of rect.
    KyRect thumbRect(const KyRect& rect) const;

    KY_SIGNAL(valueChanged, int)
    KY_SIGNAL(rangeChanged, int, int)
    KY_SIGNAL(sliderPressed, int)
    KY_SIGNAL(sliderMoved, int)
    KY_SIGNAL(sliderReleased, int)

    KySize sizeHint() const override;
    KySize minimumSizeHint() const override;
    void paintEvent(PaintEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void mouseReleaseEvent(MouseEvent* event) override;
    void wheelEvent(WheelEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void on_Focus_changed(const bool& focused) override;
    void on_Enable_changed(const bool& enabled) override;
    void on_Hover_changed(const bool& hover) override;

private:
    bool vertical_() const { return orientation_ == Vertical; }
    int stylePixels_(const char* name, int fallback) const;
    /// Steps a page towards the press point while the button is held.
    void repeatPage_();
    void stopRepeat_();
    void publish_();
    /// Repaints when the thumb no longer lies at before.
    void updateThumb_(const KyRect& before);

    int orientation_ = Vertical;
    int minimum_ = 0;
    int maximum_ = 99;
    int value_ = 0;
    int pageStep_ = 10;
    int singleStep_ = 1;

    bool dragging_ = false;
    int dragOffset_ = 0;
    int dragStartValue_ = 0;
    bool thumbHover_ = false;
    int pageDirection_ = 0;
    KyPoint pressPoint_;
    KyTimer* repeat_ = nullptr;
};
