// VpnRangeRulesModel: the destination-range rules of the "Filtering" tab, as
// the table of the range-rules editor shows and edits them.
//
// The agent keeps two comma-separated lists, "vpn/allowed_ranges" and
// "vpn/blocked_ranges"; the table keeps one row per rule, with what the user
// typed (in its canonical spelling once it is a valid range) and its kind.
// Drafts (no range yet) and invalid ranges stay in the table so the user can
// fix them, but never reach the agent: exportCsv_ writes valid ranges only.
// Which rules apply depends on the range mode of the form (0 "Allow All",
// 1 "Allow Only listed", 2 "Block Only listed"), which the model holds to
// tell each row's state.
//
// Columns, left to right: the kind ("Action": "Allow" or "Block"), the range
// ("Destination range") and the state ("State": "Draft", "Invalid", "Active"
// or "Stored"); the kind and the range are editable. Every cell of a draft or
// invalid row carries the row's tool tip. Custom roles start at
// KyItemDataRole::User (101), listed in Role.
//
// Belongs to the main thread, like every model a view shows.
#pragma once

#include "core/types/KyString.h"
#include "core/types/KyVector.h"
#include "gui/modelview/KyAbstractItemModel.h"

/// The range rules: a three-column table, one row per rule.
class VpnRangeRulesModel : public KyAbstractItemModel {
    KY_OBJECT(VpnRangeRulesModel, KyAbstractItemModel)

public:
    struct Entry {
        /// What the user typed, in canonical form when it is a valid range; empty for a draft.
        KyString range;
        /// An allow rule; false for a block rule.
        bool allow = true;
        friend bool operator==(const Entry&, const Entry&) = default;
    };

    enum Column : int { KindColumn = 0, RangeColumn = 1, StateColumn = 2, ColumnCount = 3 };

    /// A row's state, in the order the rules are tried.
    enum RuleState : int {
        Draft = 0,   ///< no range yet
        Invalid = 1, ///< the range is no IPv4 address or CIDR range
        Active = 2,  ///< mode 1 and an allow rule, or mode 2 and a block rule
        Stored = 3,  ///< kept, but the mode does not apply it
    };

    /// data() roles beyond the framework's, answered for every column.
    enum Role : int {
        AllowRole = KyItemDataRole::User, ///< 101, bool: an allow rule
        StateRole,                        ///< 102, int: the RuleState
        NormalizedRangeRole,              ///< 103, KyString: the canonical range, empty for drafts and invalid ones
        SortKeyRole,                      ///< 104: kind text, the range as a number (addresses in numeric order), the state
    };

    explicit VpnRangeRulesModel(KyObject* parent = nullptr);
    ~VpnRangeRulesModel() override;

    /// The range mode, 0 to 2.
    int mode() const { return mode_; }
    /// Sets the range mode; a value outside 0 to 2 counts as 0 ("Allow All").
    /// A change repaints the state column and emits modeChanged.
    void setMode(int mode);

    const KyVector<Entry>& entries() const { return entries_; }
    /// The row's rule; row must be in range.
    const Entry& entry(int row) const { return entries_[static_cast<std::size_t>(row)]; }
    RuleState ruleState(int row) const;
    /// "Draft", "Invalid", "Active" or "Stored".
    static KyString stateText(RuleState state);
    /// The hint for a draft or an invalid rule; empty for the others.
    static KyString stateToolTip(RuleState state);

    /// Appends a draft rule (empty range) of the kind; returns its row.
    int appendDraft(bool allow);
    /// Appends one rule of the kind per comma-separated piece of csv, trimmed;
    /// empty pieces are dropped. Valid ranges are stored in canonical form,
    /// others as they are (and show as invalid).
    void appendCsvList_(const KyString& csv, bool allow);
    /// The valid ranges of the kind, canonical, in table order, joined by ", ".
    KyString exportCsv_(bool allow) const;
    /// Replaces every rule by those of the two lists (allow rules first), as one reset.
    void resetFromCsv_(const KyString& allowedCsv, const KyString& blockedCsv);

    /// How many rules of the kind the table holds, drafts and invalid ones included.
    int ruleCount(bool allow) const;
    /// "<n> rules  |  Allow: <a>  |  Block: <b>", and on a second line the
    /// sentence of the mode (modeSentence) when it has one.
    KyString summaryText() const;
    /// What modes 1 and 2 mean for the rules; empty for mode 0.
    static KyString modeSentence(int mode);

    /// Whether the row answers a search of the editor: an empty text matches
    /// every row; otherwise the text, ignoring case, is part of the kind, the
    /// range or the state, or it is an address or range that lies inside the
    /// row's valid range ("10.44.0.9" finds "10.44.0.0/24").
    bool matchesSearch(int row, const KyString& text) const;

    KyModelIndex index(int row, int column, const KyModelIndex& parent = KyModelIndex()) const override;
    KyModelIndex parent(const KyModelIndex& child) const override;
    using KyAbstractItemModel::parent;
    int rowCount(const KyModelIndex& parent = KyModelIndex()) const override;
    int columnCount(const KyModelIndex& parent = KyModelIndex()) const override;
    KyAny data(const KyModelIndex& index, int role = KyItemDataRole::Display) const override;
    /// Kind column (Edit or Display role): "allow", "true", "1" make an allow
    /// rule and "block", "false", "0" a block rule (any case, trimmed; a bool
    /// value as it is); other words are refused. AllowRole takes a bool on any
    /// column. Range column: any text, stored in canonical form when it is a
    /// valid range and as typed otherwise. The state column is refused. A
    /// change reports the whole row changed, since its state may follow.
    bool setData(const KyModelIndex& index, const KyAny& value, int role = KyItemDataRole::Edit) override;
    KyItemFlags flags(const KyModelIndex& index) const override;
    KyAny headerData(int section, KyOrientation orientation, int role = KyItemDataRole::Display) const override;
    bool removeRows(int row, int count, const KyModelIndex& parent = KyModelIndex()) override;

    KY_SIGNAL(modeChanged, int)

private:
    bool holds_(const KyModelIndex& index) const;
    bool setAllow_(int row, bool allow);
    static KyVector<Entry> parseCsv_(const KyString& csv, bool allow);

    KyVector<Entry> entries_;
    int mode_ = 0;
};
