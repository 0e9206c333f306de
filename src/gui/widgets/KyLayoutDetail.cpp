// Size policies by property and by class, and the cross-axis fit shared by
// the box layout's cross axis and the grid's cells.
#include "gui/widgets/KyLayoutDetail.h"

#include <algorithm>

#include "gui/widgets/KyLayoutItem.h"
#include "gui/widgets/KyWidgetInterface.h"

namespace KyLayoutDetail {

int spacerPolicyFromString_(const KyString& name) {
    static const struct {
        const char* name;
        int policy;
    } kPolicies[] = {
        {"Fixed", KySizePolicy::Fixed},         {"Minimum", KySizePolicy::Minimum},
        {"MinimumExpanding", KySizePolicy::MinimumExpanding},
        {"Maximum", KySizePolicy::Maximum},     {"Preferred", KySizePolicy::Preferred},
        {"Expanding", KySizePolicy::Expanding}, {"Ignored", KySizePolicy::Ignored},
    };
    for (const auto& p : kPolicies)
        if (name == p.name) return p.policy;
    return KySizePolicy::Preferred;
}

int defaultWidgetSizePolicy_(const KyWidgetInterface* widget, int axis) {
    using namespace KySizePolicy;
    static const struct {
        const char* className;
        int horizontal;
        int vertical;
    } kDefaults[] = {
        {"KyPushButton", Minimum, Fixed},       {"KyToolButton", Minimum, Fixed},
        {"KyCheckBox", Minimum, Fixed},         {"KyRadioButton", Minimum, Fixed},
        {"KyLineEdit", Expanding, Fixed},       {"KyComboBox", Preferred, Fixed},
        {"KySpinBox", Preferred, Fixed},        {"KyDoubleSpinBox", Preferred, Fixed},
        {"KyProgressBar", Expanding, Fixed},    {"KySlider", Expanding, Fixed},
        {"KyScrollArea", Expanding, Expanding}, {"KySplitter", Expanding, Expanding},
        {"KyTabWidget", Expanding, Expanding},  {"KyToolBox", Expanding, Expanding},
        {"KyStackedWidget", Expanding, Expanding}, {"KyTextEdit", Expanding, Expanding},
        {"KyPlainTextEdit", Expanding, Expanding}, {"KyTabBar", Expanding, Fixed},
        {"KyStatusLight", Fixed, Fixed},
    };
    if (!widget) return Preferred;
    // Most derived first: a subclass of KyLineEdit is sized like one unless
    // a closer class in the table says otherwise.
    for (const KyString& cls : widget->classHierarchy())
        for (const auto& d : kDefaults)
            if (cls == d.className) return axis == HorizontalAxis ? d.horizontal : d.vertical;
    return Preferred;
}

int widgetSizePolicy_(const KyWidgetInterface* widget, int axis) {
    if (!widget) return KySizePolicy::Preferred;
    const char* key = axis == HorizontalAxis ? "HorizontalPolicy" : "VerticalPolicy";
    const KyString name = widget->propertyExist(key) ? widget->property(key).toString() : KyString();
    if (name.isEmpty()) return defaultWidgetSizePolicy_(widget, axis);
    return spacerPolicyFromString_(name);
}

int itemSizePolicy_(KyLayoutItem* item, int axis) {
    if (!item) return KySizePolicy::Preferred;
    if (KySpacerItem* spacer = item->spacerItem())
        return axis == HorizontalAxis ? spacer->horizontalPolicy() : spacer->verticalPolicy();
    if (KyWidgetInterface* widget = item->widget()) return widgetSizePolicy_(widget, axis);
    return KySizePolicy::Preferred;
}

void fitAcross_(KyLayoutItem* item, int axis, int available, int& length, int& offset) {
    const bool horizontal = axis == HorizontalAxis;
    const int minimum = horizontal ? item->minimumSize().width : item->minimumSize().height;
    const int hint = horizontal ? item->sizeHint().width : item->sizeHint().height;
    const int policy = itemSizePolicy_(item, axis);
    if (policy & (KySizePolicy::Grow | KySizePolicy::Ignore))
        length = std::max(available, minimum);
    else
        length = std::max(std::min(available, hint), minimum);
    offset = (available - length) / 2;
    if (offset < 1) offset = 0;
}

}  // namespace KyLayoutDetail
