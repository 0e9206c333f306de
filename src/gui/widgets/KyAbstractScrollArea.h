// KyAbstractScrollArea: a widget whose content is taller than itself and
// scrolls vertically under a KyScrollBar child at its right edge.
//
// The area keeps one vertical position in pixels (0..maximum) and mirrors it
// into its bar both ways; the bar shows only while there is something to
// scroll and is the toolkit's own, so it looks and is styled (a
// "KyScrollBar" rule, or one under the area's type) like every other bar.
// Wheel turns over the content scroll too. Subclasses lay their content out
// in viewportRect() shifted up by verticalValue(), get the content's mouse
// events through the viewport* handlers, and paint their children (the bar
// among them) after the content. The views and the text editors are built on
// it: their content is rows of one height (items, lines), which they describe
// through the contentRow* hooks; the area then keeps the content's height on
// every resize and does the row arithmetic for them. GUI thread only.
#pragma once

#include <utility>

#include "gui/widgets/KyWidget.h"

class KyScrollBar;

/// The scrolling frame of the item views and text editors.
class KyAbstractScrollArea : public KyWidget {
    KY_OBJECT(KyAbstractScrollArea, KyWidget)

public:
    explicit KyAbstractScrollArea(KyWidget* parent = nullptr);

    int verticalValue() const { return value_; }
    int verticalMaximum() const { return maximum_; }
    int verticalPageStep() const { return pageStep_; }
    /// Clamped to 0..verticalMaximum(); repaints and emits only on a change.
    void setVerticalValue(int value);
    /// contentHeight is the whole content; the page is the viewport's height.
    void setContentHeight(int contentHeight, int singleStep);
    bool isVerticalBarVisible() const { return maximum_ > 0; }
    /// Where the content shows (local): inside the border, left of the bar.
    KyRect viewportRect() const;
    /// The bar's rectangle (local); empty while no bar shows.
    KyRect verticalBarRect() const;
    KyScrollBar* verticalScrollBar() const { return bar_; }

    KY_SIGNAL(verticalValueChanged, int)

    void mousePressEvent(MouseEvent* event) override;
    void mouseReleaseEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void mouseDoubleClickEvent(MouseEvent* event) override;
    void wheelEvent(WheelEvent* event) override;
    void resizeEvent(ResizeEvent* event) override;
    bool eventFilter(KyObject* watched, KyEvent* event) override;

protected:
    /// The content's mouse handlers: events the bar did not take.
    virtual void viewportMousePressEvent(MouseEvent* event) { event->ignore(); }
    virtual void viewportMouseReleaseEvent(MouseEvent* event) { event->ignore(); }
    virtual void viewportMouseMoveEvent(MouseEvent* event) { event->ignore(); }
    virtual void viewportMouseDoubleClickEvent(MouseEvent* event) { event->ignore(); }
    /// The position moved by dy pixels; the base repaints the viewport and the bar.
    virtual void scrollContentsBy_(int dy);
    /// The viewport's size changed, after a row content's height was updated.
    virtual void viewportResized_() {}
    /// Space kept free at the top of the viewport (a header).
    virtual int viewportTopMargin_() const { return 0; }
    int frameWidth_() const;

    // Content of rows of one height. A height of 0 (the default) means the
    // subclass sets its content height itself.
    virtual int contentRowCount_() const { return 0; }
    virtual int contentRowHeight_() const { return 0; }
    /// Pixels of content below the last row.
    virtual int contentBottomMargin_() const { return 0; }
    /// Sets the content height from the rows; a single step is one row.
    void updateContentHeight_();
    /// The row under y (local), unclamped: it may lie outside the content.
    int contentRowAt_(int y) const;
    /// The y (local) where row's top stands at the present position.
    int contentRowTop_(int row) const;
    /// The first and last rows that meet clip (local), within the content; first > last for none.
    std::pair<int, int> contentRowsIn_(const KyRect& clip) const;
    /// Scrolls the least that shows row whole (and the bottom margin when it comes in from below).
    void ensureContentRowVisible_(int row);

private:
    int barWidth_() const;
    /// Puts the bar on its rectangle with the area's range and steps.
    void syncBar_();

    KyScrollBar* bar_ = nullptr;
    int value_ = 0;
    int maximum_ = 0;
    int pageStep_ = 1;
    int singleStep_ = 20;
    int contentHeight_ = 0;
};
