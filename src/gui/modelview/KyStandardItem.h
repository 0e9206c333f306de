// KyStandardItem: one cell of a KyStandardItemModel, a value with data per
// role and its flags.
//
// The edit role shares its value with the display role, so an editor that
// writes the edit role changes what is shown. A plain value: copy it, no
// locking.
#pragma once

#include <utility>

#include "core/types/KyVector.h"
#include "gui/modelview/KyModelTypes.h"

/// Per-role values and flags of one cell.
class KyStandardItem {
public:
    KyStandardItem() = default;
    explicit KyStandardItem(const KyString& text) { setText(text); }

    /// The value under role (the edit role reads the display value), or empty.
    KyAny data(int role = KyItemDataRole::Display) const;
    /// Stores value under role; an empty value removes the role. True when
    /// the stored value changed.
    bool setData(const KyAny& value, int role = KyItemDataRole::Display);
    bool hasData(int role) const;

    KyString text() const { return data(KyItemDataRole::Display).toString(); }
    void setText(const KyString& text) { setData(KyAny(text), KyItemDataRole::Display); }
    KyString toolTip() const { return data(KyItemDataRole::ToolTip).toString(); }
    void setToolTip(const KyString& text) { setData(KyAny(text), KyItemDataRole::ToolTip); }

    /// Selectable, editable and enabled unless set otherwise.
    KyItemFlags flags() const { return flags_; }
    void setFlags(KyItemFlags flags) { flags_ = flags; }
    bool isEditable() const { return flags_.testFlag(KyItemFlag::Editable); }
    void setEditable(bool on) { flags_.setFlag(KyItemFlag::Editable, on); }

    friend bool operator==(const KyStandardItem& a, const KyStandardItem& b) {
        return a.flags_ == b.flags_ && a.roles_ == b.roles_;
    }

private:
    static int storageRole_(int role) { return role == KyItemDataRole::Edit ? KyItemDataRole::Display : role; }

    KyVector<std::pair<int, KyAny>> roles_; // a handful per item: a linear search beats a map
    KyItemFlags flags_ = KyItemFlag::Selectable | KyItemFlag::Editable | KyItemFlag::Enabled;
};
