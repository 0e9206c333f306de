// KyAction: a menu command.
#include "gui/widgets/KyAction.h"

#include "gui/widgets/KyMenu.h"

KyAction::KyAction(const KyString& text, KyObject* parent) : KyObject(parent) { setText(text); }

KyMenu* KyAction::menu() const { return KyObject::isLive(menu_) ? menu_ : nullptr; }

void KyAction::trigger() {
    if (!getEnabled() || getSeparator()) return;
    if (getCheckable()) setChecked(!getChecked());
    triggered(getChecked());
}
