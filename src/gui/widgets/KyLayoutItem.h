// KyLayoutItem: one thing a layout places, and its two kinds, a widget and a
// spacer.
//
// A layout asks its items for their hints and hands each a rectangle in the
// parent widget's coordinates. A widget item forwards everything to its
// widget; a spacer is only a size with a policy per axis, so that empty room
// can be asked for ("push the buttons to the right") like any other item.
// GUI thread only; items belong to the layout that holds them.
#pragma once

#include "core/types/KyRect.h"
#include "core/types/KySize.h"

class KyAbstractLayout;
class KySpacerItem;
class KyWidgetInterface;

/// The bit sets a size policy is made of.
namespace KySizePolicy {
enum Bits : int { Grow = 1, Expand = 2, Shrink = 4, Ignore = 8 };
enum Policy : int {
    Fixed = 0,
    Minimum = Grow,
    MinimumExpanding = Grow | Expand,
    Maximum = Shrink,
    Preferred = Grow | Shrink,
    Expanding = Grow | Expand | Shrink,
    Ignored = Grow | Shrink | Ignore,
};
}  // namespace KySizePolicy

/// The largest length a hint can hold: "no maximum".
inline constexpr int kyLayoutMaximumLength = 2147483647;

/// Something a layout places.
class KyLayoutItem {
public:
    /// Bits of expandingDirections.
    enum Direction : int { Horizontal = 1, Vertical = 2 };

    virtual ~KyLayoutItem() = default;
    virtual int expandingDirections() const { return 0; }
    virtual KyRect geometry() const = 0;
    virtual bool isEmpty() const = 0;
    virtual KyAbstractLayout* layout() { return nullptr; }
    virtual KySize maximumSize() const = 0;
    virtual KySize minimumSize() const = 0;
    virtual void setGeometry(const KyRect& rect) = 0;
    virtual KySize sizeHint() const = 0;
    virtual KySpacerItem* spacerItem() { return nullptr; }
    virtual KyWidgetInterface* widget() { return nullptr; }
};

/// A widget in a layout: every question goes to the widget.
class KyWidgetItem : public KyLayoutItem {
public:
    explicit KyWidgetItem(KyWidgetInterface* widget) : widget_(widget) {}

    KyRect geometry() const override;
    /// True while the widget itself is hidden.
    bool isEmpty() const override;
    /// The widget's stored maximum.
    KySize maximumSize() const override;
    /// The widget's minimumSizeHint.
    KySize minimumSize() const override;
    void setGeometry(const KyRect& rect) override;
    KySize sizeHint() const override;
    KyWidgetInterface* widget() override { return widget_; }

private:
    KyWidgetInterface* widget_;
};

/// Empty room of a preferred size, with a size policy per axis.
class KySpacerItem : public KyLayoutItem {
public:
    KySpacerItem(int width, int height, int horizontalPolicy = KySizePolicy::Minimum,
                 int verticalPolicy = KySizePolicy::Minimum)
        : width_(width), height_(height), horizontalPolicy_(horizontalPolicy), verticalPolicy_(verticalPolicy) {}

    int width() const { return width_; }
    int height() const { return height_; }
    int horizontalPolicy() const { return horizontalPolicy_; }
    int verticalPolicy() const { return verticalPolicy_; }
    void changeSize(int width, int height, int horizontalPolicy, int verticalPolicy);

    /// The axes whose policy has the Expand bit.
    int expandingDirections() const override;
    KyRect geometry() const override { return geometry_; }
    bool isEmpty() const override { return true; }
    /// Per axis the stored length, or no maximum unless the policy is Fixed or Maximum.
    KySize maximumSize() const override;
    /// Per axis the stored length, or 0 when the policy may shrink.
    KySize minimumSize() const override;
    void setGeometry(const KyRect& rect) override { geometry_ = rect; }
    KySize sizeHint() const override { return {width_, height_}; }
    KySpacerItem* spacerItem() override { return this; }

private:
    int width_;
    int height_;
    int horizontalPolicy_;
    int verticalPolicy_;
    KyRect geometry_;
};
