// VpnRangeRulesEditor: the destination-range rules of the "Filtering" tab as
// a table the user edits in place.
//
// The agent keeps the rules as two comma-separated lists, which the form
// carries in two hidden backing fields; the editor shows them as one row per
// rule in a VpnRangeRulesModel, through a search proxy, and writes both
// fields back from the model after every change (their TextChanged pushes
// the form to the agent). A change of a field from elsewhere (the form reset
// to pass-through) rebuilds the table from the fields, unless the fields
// already say what the table would write: so the editor's own writes, and
// drafts or mistyped rows the agent never sees, survive. The present range
// mode tells which rules apply ("Active") and which wait ("Stored").
//
// Layout, top to bottom: the search field and the buttons "New Allow",
// "New Block" and "Delete"; the table; the summary of the rules with the
// mode's sentence, and the editing hint. Keys: F2 or a double click edits a
// cell, Return commits, Escape cancels, Delete removes the selected rule.
// GUI thread only.
#pragma once

#include "gui/widgets/KyWidget.h"

class KyLabel;
class KyLineEdit;
class KyPushButton;
class KySortFilterProxyModel;
class KyTableView;
class VpnRangeRulesDelegate;
class VpnRangeRulesModel;

/// Search, buttons, rule table and summary over the two backing fields.
class VpnRangeRulesEditor : public KyWidget {
    KY_OBJECT(VpnRangeRulesEditor, KyWidget)

public:
    explicit VpnRangeRulesEditor(KyWidget* parent = nullptr);
    ~VpnRangeRulesEditor() override;

    /// Takes the rules from the two fields now and follows them from then on;
    /// every change of the table is written back to both. Null unbinds.
    void bindBackingFields(KyLineEdit* allowed, KyLineEdit* blocked);
    /// The range mode of the form (0 "Allow All", 1 "Allow Only listed",
    /// 2 "Block Only listed"): the rows' states and the summary follow.
    void setRangeMode(int mode);
    int rangeMode() const;
    /// Whether the user may change the rules (the agent link is up and
    /// filtering is on). Going off commits and closes an open cell editor;
    /// "New Allow" and "New Block" follow, "Delete" also needs a selected row.
    void setEditingEnabled(bool enabled);
    bool isEditingEnabled() const { return editingEnabled_; }

    /// "New Allow" / "New Block": a draft row of that kind, selected, its range open for typing.
    void addRule(bool allow);
    /// "Delete": removes the selected rules; the row that takes their place becomes selected.
    void deleteSelectedRules();

    VpnRangeRulesModel* model() const { return model_; }
    KySortFilterProxyModel* proxyModel() const { return proxy_; }
    KyTableView* table() const { return table_; }
    KyLineEdit* searchField() const { return search_; }
    KyPushButton* newAllowButton() const { return newAllow_; }
    KyPushButton* newBlockButton() const { return newBlock_; }
    KyPushButton* deleteButton() const { return delete_; }
    /// "<n> rules  |  Allow: <a>  |  Block: <b>".
    KyLabel* summaryLabel() const { return summary_; }
    /// The mode's sentence; empty in mode 0.
    KyLabel* modeLabel() const { return modeSentence_; }

    bool eventFilter(KyObject* watched, KyEvent* event) override;
    void resizeEvent(ResizeEvent* event) override;

private:
    void refreshFromBacking_();
    void writeBacking_();
    void refreshSummary_();
    void refreshButtons_();
    void modelChanged_();

    VpnRangeRulesModel* model_ = nullptr;
    KySortFilterProxyModel* proxy_ = nullptr;
    VpnRangeRulesDelegate* delegate_ = nullptr;
    KyTableView* table_ = nullptr;
    KyLineEdit* search_ = nullptr;
    KyPushButton* newAllow_ = nullptr;
    KyPushButton* newBlock_ = nullptr;
    KyPushButton* delete_ = nullptr;
    KyLabel* summary_ = nullptr;
    KyLabel* modeSentence_ = nullptr;
    KyLabel* hint_ = nullptr;
    KyLineEdit* allowed_ = nullptr;
    KyLineEdit* blocked_ = nullptr;
    bool editingEnabled_ = true;
    // Set while the editor writes the backing fields or rebuilds from them,
    // so neither echoes into the other.
    bool writingBacking_ = false;
    bool readingBacking_ = false;
};
