// KyWidgetInterface: what a layout or a style reader needs of a widget, between
// KyObject and KyWidget.
//
// It declares the style queries and the geometry operations with empty
// defaults, so that code placing or styling widgets (layout items, the style
// drawer) depends on this small surface rather than on the whole widget. Also
// home of the widget event names, so every widget class sees them unqualified.
// GUI thread only, like every widget.
#pragma once

#include <cstdint>

#include "core/object/KyObject.h"
#include "core/types/KyColor.h"
#include "core/types/KyRect.h"
#include "core/types/KySize.h"
#include "gui/platform/KyFont.h"
#include "gui/widgets/KyWidgetEvent.h"
#include "gui/widgets/StyleSheet.h"

/// Whether a widget takes focus; 2 (NoClickFocus) never takes it from a click.
enum FocusPolicyEnum : int { ClickFocus = 0, StrongFocus = 1, NoClickFocus = 2 };

/// A pointer shape a widget asks for. Bookkeeping only: no native cursor is set.
enum CursorType : int {
    ArrowCursor = 0,
    IBeamCursor = 1,
    PointingHandCursor = 2,
    WaitCursor = 3,
    CrossCursor = 4,
    SizeHorCursor = 5,
    SizeVerCursor = 6,
    SizeAllCursor = 7,
    SplitHCursor = 8,
    SplitVCursor = 9,
    UnsetCursor = 10,
};

/// Style queries and geometry of a widget, with empty defaults.
class KyWidgetInterface : public KyObject {
public:
    using Event = ky::gui::Event;
    using PaintEvent = ky::gui::PaintEvent;
    using ResizeEvent = ky::gui::ResizeEvent;
    using MoveEvent = ky::gui::MoveEvent;
    using KeyEvent = ky::gui::KeyEvent;
    using MouseEvent = ky::gui::MouseEvent;
    using WheelEvent = ky::gui::WheelEvent;
    using CloseEvent = ky::gui::CloseEvent;
    using StyleSheet = ky::gui::StyleSheet;
    using StyleBox = ky::gui::StyleBox;

    /// The state mask that means "the widget's state right now".
    static constexpr std::uint32_t CurrentState = StyleSheet::CurrentState;

    KyWidgetInterface() : KyObject(nullptr) {}

    // Style queries; state is a mask of StyleSheet::StateFlag bits or CurrentState.
    /// The merged sheet of the widget and its ancestors.
    virtual const StyleSheet& getToolSheet() const;
    /// True when a sheet sets `background-color`; paint is false for a transparent one.
    virtual bool resolveStyledBackground(KyColor& colour, bool& paint, std::uint32_t state = CurrentState) const;
    /// True when a sheet sets the border's colour or width; width is 0 with `border-style: none`.
    virtual bool resolveStyledBorder(KyColor& colour, int& width, std::uint32_t state = CurrentState) const;
    /// Corner radii: top-left, top-right, bottom-right, bottom-left.
    virtual StyleBox resolveStyledBorderCorners(std::uint32_t state = CurrentState) const;
    virtual bool resolveStyledTextColor(KyColor& colour, std::uint32_t state = CurrentState) const;
    /// Padding: top, right, bottom, left.
    virtual StyleBox resolveStyledPadding(std::uint32_t state = CurrentState) const;
    /// The widget's font with the sheet's family, size and weight over it.
    virtual KyFont resolveStyledFont(std::uint32_t state = CurrentState) const;
    virtual KyString resolveStyledBoxShadow(std::uint32_t state = CurrentState) const;
    /// True when the rule that gives name in state carries state bits.
    virtual bool hasExplicitStyledStateProperty(std::uint32_t state, const KyString& name) const;

    // Geometry, relative to the parent widget.
    virtual KyRect geometry() const;
    virtual void setGeometry(int x, int y, int width, int height);
    virtual void setGeometry(const KyRect& rect);
    /// The outer rectangle on the screen for a top-level, else geometry().
    virtual KyRect frameGeometry() const;
    virtual KySize clientSize() const;
    /// The area children and layouts use, at (0, 0).
    virtual KyRect clientRect() const;
    virtual KySize sizeHint() const;
    virtual KySize minimumSizeHint() const;
    virtual KySize minimumSize() const;
    virtual KySize maximumSize() const;
    /// Visible itself and every ancestor visible.
    virtual bool isVisibleInHierarchy() const;
};
