// KyFrame: a widget with an optional frame: a box, a panel, or a horizontal
// or vertical divider line, plain, raised or sunken, of a given line width.
//
// The frame is drawn over the widget's styled box and under its children.
// Labels and push buttons derive from it. GUI thread only.
#pragma once

#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidget.h"

/// A widget with a frame shape, shadow and line width.
class KyFrame : public KyWidget {
    KY_OBJECT(KyFrame, KyWidget)

public:
    explicit KyFrame(KyWidget* parent = nullptr);

    /// A KyStyle::FrameShape.
    int frameShape() const { return frameShape_; }
    void setFrameShape(int shape);
    /// A KyStyle::FrameShadow.
    int frameShadow() const { return frameShadow_; }
    void setFrameShadow(int shadow);
    int lineWidth() const { return lineWidth_; }
    /// Negative widths count as 0.
    void setLineWidth(int width);
    /// No frame, plain, line width 1; repaints.
    void initDefaults();

    void paintEvent(PaintEvent* event) override;

protected:
    /// Paints the children that overlap rect (local), later ones on top.
    void paintChildren(KyPainter* painter, const KyRect& rect) { paintChildren_(painter, rect); }
    /// Draws the frame shape into the widget's rectangle.
    void drawFrame_(KyPainter* painter);

private:
    int frameShape_ = KyStyle::NoFrame;
    int frameShadow_ = KyStyle::Plain;
    int lineWidth_ = 1;
};
