// KyAbstractLayout: places the widgets of one parent inside its client
// rectangle and answers size hints for it.
//
// The widget base knows layouts only through this class: KyWidget::setLayout
// takes ownership (the layout becomes a child object of its widget), and a
// resize of the widget calls updateGeometry, which applies the layout to the
// client rectangle less the margins when that changed or the layout is
// dirty. Concrete layouts (box, grid) implement the four operations. GUI
// thread only.
#pragma once

#include <functional>
#include <limits>

#include "core/object/KyObject.h"
#include "core/types/KyRect.h"
#include "core/types/KySize.h"

class KyWidget;

/// The base of every layout.
class KyAbstractLayout : public KyObject {
    KY_OBJECT(KyAbstractLayout, KyObject)

public:
    KyAbstractLayout() = default;

    virtual KySize sizeHint() const = 0;
    virtual KySize minimumSizeHint() const = 0;
    /// Places the managed widgets inside rect (the parent's coordinates).
    virtual void applyLayout(const KyRect& rect) = 0;
    virtual void forEachManagedWidget(const std::function<void(KyWidget*)>& fn) const = 0;
    /// Applies the layout to the parent's client rectangle less the margins,
    /// when that changed since the last time or the layout is dirty.
    virtual void updateGeometry();
    /// The parent widget lost this child (deleted or moved elsewhere): drop its item.
    virtual void widgetRemoved_(KyWidget*) {}

    KyWidget* parentWidget() const { return parentWidget_; }
    int spacing() const { return spacing_; }
    void setSpacing(int spacing);
    void setContentsMargins(int left, int top, int right, int bottom);
    int marginLeft() const { return margins_[0]; }
    int marginTop() const { return margins_[1]; }
    int marginRight() const { return margins_[2]; }
    int marginBottom() const { return margins_[3]; }
    /// Makes the next updateGeometry apply the layout even at the same size.
    void invalidate() { dirty_ = true; }
    bool isDirty() const { return dirty_; }

    /// Called by KyWidget::setLayout.
    void setParentWidget_(KyWidget* widget);

private:
    KyWidget* parentWidget_ = nullptr;
    int spacing_ = 8;
    int margins_[4] = {8, 8, 8, 8};
    KyRect lastApplied_{std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::min(), -1, -1};
    bool dirty_ = true;
};
