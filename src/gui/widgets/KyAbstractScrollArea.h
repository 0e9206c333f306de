// KyAbstractScrollArea: a widget whose content is taller than itself and
// scrolls vertically under a self-drawn scroll bar at its right edge.
//
// The area keeps one vertical position in pixels (0..maximum), shows the bar
// only while there is something to scroll, and turns wheel turns, presses in
// the groove (a page) and thumb drags into position changes. Subclasses lay
// their content out in viewportRect() shifted up by verticalValue(), and get
// the mouse events the bar did not take through the viewport* handlers. The
// views and the text editors are built on it. GUI thread only.
#pragma once

#include "gui/widgets/KyWidget.h"

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

    KY_SIGNAL(verticalValueChanged, int)

    void mousePressEvent(MouseEvent* event) override;
    void mouseReleaseEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void mouseDoubleClickEvent(MouseEvent* event) override;
    void wheelEvent(WheelEvent* event) override;
    void resizeEvent(ResizeEvent* event) override;

protected:
    /// The content's mouse handlers: events the bar did not take.
    virtual void viewportMousePressEvent(MouseEvent* event) { event->ignore(); }
    virtual void viewportMouseReleaseEvent(MouseEvent* event) { event->ignore(); }
    virtual void viewportMouseMoveEvent(MouseEvent* event) { event->ignore(); }
    virtual void viewportMouseDoubleClickEvent(MouseEvent* event) { event->ignore(); }
    /// The position moved by dy pixels; the base repaints the viewport and the bar.
    virtual void scrollContentsBy_(int dy);
    /// The viewport's height changed; subclasses recompute their content height.
    virtual void viewportResized_() {}
    /// Space kept free at the top of the viewport (a header).
    virtual int viewportTopMargin_() const { return 0; }
    /// Draws the bar when it shows; call after the content.
    void paintVerticalBar_(KyPainter* painter);
    int frameWidth_() const;

private:
    KyRect thumbRect_() const;
    int valueForThumbTop_(int top) const;

    int value_ = 0;
    int maximum_ = 0;
    int pageStep_ = 1;
    int singleStep_ = 20;
    int contentHeight_ = 0;
    bool dragging_ = false;
    bool barHover_ = false;
    int dragOffset_ = 0;
};
