// KyStatusLight: a small round lamp that shows a state by its colours.
//
// State 1, 2 and 3 each have their own three colours (outer ring, middle,
// core); any other state shows the idle grey-green. The lamp is a disc of
// the given diameter, centred in the widget. GUI thread only.
#pragma once

#include "gui/widgets/KyWidget.h"

/// A round status lamp.
class KyStatusLight : public KyWidget {
    KY_OBJECT(KyStatusLight, KyWidget)

public:
    KY_PROPERTY_HANDLED(int, Diameter, 12)
    KY_PROPERTY_HANDLED(int, State, 0)

public:
    explicit KyStatusLight(KyWidget* parent = nullptr);

    int diameter() const { return getDiameter(); }
    int state() const { return getState(); }

    /// The outer, middle and inner colours of state.
    static void colorsForState(int state, KyColor& outer, KyColor& middle, KyColor& inner);

    /// The diameter plus 4 both ways.
    KySize sizeHint() const override;
    KySize minimumSizeHint() const override { return sizeHint(); }
    void paintEvent(PaintEvent* event) override;
    virtual void on_Diameter_changed(const int& diameter);
    virtual void on_State_changed(const int& state);
};
