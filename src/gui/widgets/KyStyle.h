// KyStyle: the built-in look of the standard controls.
//
// Every control paints through drawControl: it draws the box, the indicator
// and the text of one control kind in one state, from the widget's resolved
// style ("background-color", "border-color", "color", radii, padding, font and
// the control's extra properties such as "focus-border-color" or
// "accent-color") with the widget's base palette as the fallback. The look is
// flat and light: 1-pixel borders, small radii, an accent-coloured focus ring.
// Texts and values are read from the widget's properties by name ("Text",
// "DisplayText", "Placeholder", "Alignment", "CheckState", "Value", ...), so a
// control passes itself and nothing else. Stateless; GUI thread only.
#pragma once

#include <cstdint>

#include "core/types/KyColor.h"
#include "core/types/KyRect.h"
#include "gui/widgets/StyleSheet.h"

class KyPainter;
class KyWidget;

/// Draws the standard controls.
class KyStyle {
public:
    enum ControlKind : int {
        Frame = 0,
        Label = 1,
        PushButton = 2,
        ToolButton = 3,
        CheckBox = 4,
        RadioButton = 5,
        LineEdit = 6,
        SpinBox = 7,
        ComboBox = 8,
        ProgressBar = 9,
        Slider = 10,
        ScrollBarGroove = 11,
        ScrollBarThumb = 12,
        MenuItem = 13,
        ToolTip = 14,
    };
    /// The state bits of a drawing; the same bits as style-sheet states.
    enum StateFlag : std::uint32_t {
        StateNone = 0,
        StateHover = ky::gui::StyleSheet::StateHover,
        StatePressed = ky::gui::StyleSheet::StatePressed,
        StateDisabled = ky::gui::StyleSheet::StateDisabled,
        StateFocus = ky::gui::StyleSheet::StateFocus,
        StateChecked = ky::gui::StyleSheet::StateChecked,
    };
    /// Frame shapes and shadows of a KyFrame.
    enum FrameShape : int { NoFrame = 0, Box = 1, Panel = 2, StyledPanel = 3, HLine = 4, VLine = 5 };
    enum FrameShadow : int { Plain = 0, Raised = 1, Sunken = 2 };

    /// The accent of the light look: hover and focus borders, checked fills.
    static constexpr KyColor kAccent{0, 120, 215};

    /// Draws control kind (style) into rect of painter for widget in state.
    static void drawControl(ControlKind style, const KyRect& rect, KyPainter* painter, const KyWidget* widget,
                            std::uint32_t state);
    /// The state a widget is in now, as drawControl takes it.
    static std::uint32_t stateOf(const KyWidget* widget);

    /// A box that stays inside rect: filled when paintFill, with a border of
    /// borderWidth drawn on its inner edge, and corners of the four radii
    /// (top-left, top-right, bottom-right, bottom-left).
    static void paintBox(KyPainter* painter, const KyRect& rect, const KyColor& fill, bool paintFill,
                         const KyColor& border, int borderWidth, const ky::gui::StyleBox& radii);
    /// The outline of a rounded rectangle through rect's corner pixels, without a fill.
    static void strokeRoundedRect(KyPainter* painter, const KyRect& rect, const ky::gui::StyleBox& radii,
                                  const KyColor& color, int width);
};
