// KyLayoutDetail: the size-policy rules the box and grid layouts share.
//
// A widget says how it wants to be sized through the dynamic properties
// "HorizontalPolicy" and "VerticalPolicy" (names such as "Expanding"); when
// it says nothing its class decides, so a line edit stretches across a form
// while a button keeps its own width. Pure functions, GUI thread.
#pragma once

#include "core/types/KyString.h"

class KyLayoutItem;
class KyWidgetInterface;

namespace KyLayoutDetail {

/// 1 for the horizontal axis, 2 for the vertical one.
enum Axis : int { HorizontalAxis = 1, VerticalAxis = 2 };

/// "Fixed" 0, "Minimum" 1, "MinimumExpanding" 3, "Maximum" 4, "Preferred" 5,
/// "Expanding" 7, "Ignored" 13; any other name is "Preferred".
int spacerPolicyFromString_(const KyString& name);
/// The policy the widget's class gives it on axis.
int defaultWidgetSizePolicy_(const KyWidgetInterface* widget, int axis);
/// The widget's own property for axis, or its class default.
int widgetSizePolicy_(const KyWidgetInterface* widget, int axis);
/// The policy of any item on axis: a spacer's own, a widget's, else "Preferred".
int itemSizePolicy_(KyLayoutItem* item, int axis);

/// The length an item gets across a band of `available`: all of it (never
/// under its minimum) when its policy grows or ignores its hint, otherwise
/// its hint bounded by the band and raised to its minimum. offset centres it.
void fitAcross_(KyLayoutItem* item, int axis, int available, int& length, int& offset);

}  // namespace KyLayoutDetail
