// KyStatusBar: the strip along the bottom of a main window.
//
// The message sits on the left (drawn by the bar, or shown by a message
// widget such as the main window's status label); other widgets line up from
// the right edge, each at its size hint, with a small gap. The bar paints its
// box and a one-pixel line along its top edge. GUI thread only.
#pragma once

#include "gui/widgets/KyWidget.h"

/// A status bar with a message and right-aligned widgets.
class KyStatusBar : public KyWidget {
    KY_OBJECT(KyStatusBar, KyWidget)

public:
    explicit KyStatusBar(KyWidget* parent = nullptr);

    /// Shows text on the left; an empty text clears it.
    void showMessage(const KyString& text);
    void clearMessage() { showMessage(KyString()); }
    const KyString& currentMessage() const { return message_; }
    /// A widget that shows the message (its "Text" property is kept equal to it) and fills the left part.
    void setMessageWidget(KyWidget* widget);
    KyWidget* messageWidget() const { return KyObject::isLive(messageWidget_) ? messageWidget_ : nullptr; }
    /// Adds widget at the right end, left of those added before.
    void addPermanentWidget(KyWidget* widget);
    void removeWidget(KyWidget* widget);
    /// Places the widgets for the present size.
    void updateLayout();

    void paintEvent(PaintEvent* event) override;
    void resizeEvent(ResizeEvent* event) override;
    KySize sizeHint() const override;

private:
    KyString message_;
    KyWidget* messageWidget_ = nullptr;
    KyVector<KyWidget*> widgets_;
};
