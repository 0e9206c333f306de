// VpnRangeRulesDelegate: how the range-rules table of the "Filtering" tab
// paints and edits its cells.
//
// The kind ("Allow", "Block") and the state ("Active", "Stored", "Draft",
// "Invalid") are pills in the console's tones, so the eye finds what applies
// without reading; a draft row's range cell invites the user to type a range,
// an invalid one shows what was typed in the error tone. Editors: a combo box
// with "Allow" and "Block" on the kind, a line edit on the range, both flush
// with their cell. The delegate reads the cells through whatever model the
// view shows (the editor's sort and search proxy) by the rule model's roles.
// GUI thread only.
#pragma once

#include "core/types/KyColor.h"
#include "gui/modelview/KyStyledItemDelegate.h"

/// Pills for the kind and state columns, and the two cell editors.
class VpnRangeRulesDelegate : public KyStyledItemDelegate {
    KY_OBJECT(VpnRangeRulesDelegate, KyStyledItemDelegate)

public:
    explicit VpnRangeRulesDelegate(KyObject* parent = nullptr);

    void paint(KyPainter* painter, const KyStyleOptionViewItem& option, const KyModelIndex& index) const override;
    KySize sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex& index) const override;
    KyWidget* createEditor(KyWidget* parent, const KyStyleOptionViewItem& option,
                           const KyModelIndex& index) const override;
    void setEditorData(KyWidget* editor, const KyModelIndex& index) const override;
    void setModelData(KyWidget* editor, KyAbstractItemModel* model, const KyModelIndex& index) const override;
    void updateEditorGeometry(KyWidget* editor, const KyStyleOptionViewItem& option,
                              const KyModelIndex& index) const override;

    /// The pill's tone for a kind or state text ("Allow", "Active", ...).
    static KyColor pillTone(const KyString& text);
    /// Paints text as a rounded pill in tone at the left of cell (after the
    /// option's padding), vertically centred; dimmed when the view is disabled.
    static void paintPill_(KyPainter* painter, const KyStyleOptionViewItem& option, const KyString& text,
                           const KyColor& tone);

    /// What a draft row's range cell says.
    static constexpr const char* kDraftPrompt = "Double-click to add a CIDR range";
    static constexpr const char* kRangePlaceholder = "10.44.0.0/24 or 192.168.10.12";
};
