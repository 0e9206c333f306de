// KyAction: one command a menu shows as a row.
//
// A plain object with the text, enabled, checkable, checked and separator
// properties; a menu reads them each time it builds its rows and emits
// triggered when the row is chosen. An action may lead to a sub-menu instead
// of doing something. GUI thread only.
#pragma once

#include "core/object/KyObject.h"

class KyMenu;

/// A menu command.
class KyAction : public KyObject {
    KY_OBJECT(KyAction, KyObject)

public:
    KY_PROPERTY_HANDLED(KyString, Text, KyString())
    KY_PROPERTY_HANDLED(bool, Enabled, true)
    KY_PROPERTY_HANDLED(bool, Checkable, false)
    KY_PROPERTY_HANDLED(bool, Checked, false)
    KY_PROPERTY_HANDLED(bool, Separator, false)

    explicit KyAction(const KyString& text = KyString(), KyObject* parent = nullptr);

    /// The sub-menu this row opens, or null.
    KyMenu* menu() const;
    void setMenu(KyMenu* menu) { menu_ = menu; }
    /// Flips Checked when checkable and emits triggered, as choosing the row does.
    void trigger();

    KY_SIGNAL(triggered, bool)
    /// Any property changed.
    KY_SIGNAL(changed)

    virtual void on_Text_changed(const KyString&) { changed(); }
    virtual void on_Enabled_changed(const bool&) { changed(); }
    virtual void on_Checkable_changed(const bool&) { changed(); }
    virtual void on_Checked_changed(const bool&) { changed(); }
    virtual void on_Separator_changed(const bool&) { changed(); }

private:
    KyMenu* menu_ = nullptr;
};
