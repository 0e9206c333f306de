// VpnRangeRulesModel: rule rows, their states under the range mode, edits
// from the table, and the two CSV lists the agent keeps.
#include "console/VpnRangeRulesModel.h"

#include <cstdint>

#include "console/VpnRangeRuleSupport.h"

namespace {

KyString kindText(bool allow) { return allow ? "Allow" : "Block"; }

// A range as the user typed it becomes canonical once it is valid; anything
// else stays as typed, so the user sees (and can fix) what they wrote.
KyString storedRange(const KyString& typed) {
    const KyString normalized = VpnRangeRuleSupport::normalizeRange_(typed);
    return normalized.isEmpty() ? typed : normalized;
}

} // namespace

VpnRangeRulesModel::VpnRangeRulesModel(KyObject* parent) : KyAbstractItemModel(parent) {}

VpnRangeRulesModel::~VpnRangeRulesModel() = default;

void VpnRangeRulesModel::setMode(int mode) {
    if (mode < 0 || mode > 2) mode = 0;
    if (mode == mode_) return;
    mode_ = mode;
    if (!entries_.empty())
        dataChanged(index(0, StateColumn), index(rowCount() - 1, StateColumn),
                    {KyItemDataRole::Display, KyItemDataRole::ToolTip, StateRole, SortKeyRole});
    modeChanged(mode_);
}

VpnRangeRulesModel::RuleState VpnRangeRulesModel::ruleState(int row) const {
    const Entry& e = entry(row);
    if (e.range.isEmpty()) return Draft;
    if (!VpnRangeRuleSupport::isValidRange_(e.range)) return Invalid;
    if ((mode_ == 1 && e.allow) || (mode_ == 2 && !e.allow)) return Active;
    return Stored;
}

KyString VpnRangeRulesModel::stateText(RuleState state) {
    switch (state) {
    case Draft: return "Draft";
    case Invalid: return "Invalid";
    case Active: return "Active";
    case Stored: return "Stored";
    }
    return KyString();
}

KyString VpnRangeRulesModel::stateToolTip(RuleState state) {
    switch (state) {
    case Draft: return "Draft rule. Double-click the destination range to enter a CIDR.";
    case Invalid: return "Invalid IPv4 or CIDR notation. Example: 10.44.0.0/24 or 192.168.10.12";
    default: return KyString();
    }
}

int VpnRangeRulesModel::appendDraft(bool allow) {
    const int row = rowCount();
    beginInsertRows(KyModelIndex(), row, row);
    entries_.push_back(Entry{KyString(), allow});
    endInsertRows();
    return row;
}

KyVector<VpnRangeRulesModel::Entry> VpnRangeRulesModel::parseCsv_(const KyString& csv, bool allow) {
    KyVector<Entry> parsed;
    for (const KyString& piece : csv.split(',')) {
        const KyString typed = piece.trimmed();
        if (!typed.isEmpty()) parsed.push_back(Entry{storedRange(typed), allow});
    }
    return parsed;
}

void VpnRangeRulesModel::appendCsvList_(const KyString& csv, bool allow) {
    KyVector<Entry> parsed = parseCsv_(csv, allow);
    if (parsed.empty()) return;
    const int first = rowCount();
    beginInsertRows(KyModelIndex(), first, first + parsed.count() - 1);
    entries_.append(parsed);
    endInsertRows();
}

KyString VpnRangeRulesModel::exportCsv_(bool allow) const {
    KyString csv;
    for (const Entry& e : entries_) {
        if (e.allow != allow) continue;
        const KyString range = VpnRangeRuleSupport::normalizeRange_(e.range);
        if (range.isEmpty()) continue; // drafts and invalid rules stay in the table only
        if (!csv.isEmpty()) csv += ", ";
        csv += range;
    }
    return csv;
}

void VpnRangeRulesModel::resetFromCsv_(const KyString& allowedCsv, const KyString& blockedCsv) {
    beginResetModel();
    entries_ = parseCsv_(allowedCsv, true);
    entries_.append(parseCsv_(blockedCsv, false));
    endResetModel();
}

int VpnRangeRulesModel::ruleCount(bool allow) const {
    int count = 0;
    for (const Entry& e : entries_) count += e.allow == allow;
    return count;
}

KyString VpnRangeRulesModel::modeSentence(int mode) {
    if (mode == 1) return "Allow Only listed: allow rules apply now, block rules stay stored.";
    if (mode == 2) return "Block Only listed: block rules apply now, allow rules stay stored.";
    return KyString();
}

KyString VpnRangeRulesModel::summaryText() const {
    const int total = rowCount();
    KyString text = KyString::number(total) + (total == 1 ? " rule" : " rules");
    text += "  |  Allow: " + KyString::number(ruleCount(true));
    text += "  |  Block: " + KyString::number(ruleCount(false));
    const KyString sentence = modeSentence(mode_);
    if (!sentence.isEmpty()) text += "\n" + sentence;
    return text;
}

bool VpnRangeRulesModel::matchesSearch(int row, const KyString& text) const {
    const KyString needle = text.trimmed().toLower();
    if (needle.isEmpty()) return true;
    const Entry& e = entry(row);
    for (const KyString& shown : {kindText(e.allow), e.range, stateText(ruleState(row))})
        if (shown.toLower().contains(needle.view())) return true;
    std::uint32_t ruleAddress = 0, searchAddress = 0;
    int rulePrefix = 0, searchPrefix = 0;
    return VpnRangeRuleSupport::parseRange_(e.range, ruleAddress, rulePrefix) &&
           VpnRangeRuleSupport::parseRange_(needle, searchAddress, searchPrefix) &&
           VpnRangeRuleSupport::rangeContains_(ruleAddress, rulePrefix, searchAddress, searchPrefix);
}

bool VpnRangeRulesModel::holds_(const KyModelIndex& index) const {
    return index.isValid() && index.model() == this && index.column() < ColumnCount && index.row() < rowCount();
}

KyModelIndex VpnRangeRulesModel::index(int row, int column, const KyModelIndex& parent) const {
    if (parent.isValid() || column < 0 || column >= ColumnCount || row < 0 || row >= rowCount()) return KyModelIndex();
    return createIndex(row, column);
}

KyModelIndex VpnRangeRulesModel::parent(const KyModelIndex&) const { return KyModelIndex(); }

int VpnRangeRulesModel::rowCount(const KyModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(entries_.size());
}

int VpnRangeRulesModel::columnCount(const KyModelIndex& parent) const { return parent.isValid() ? 0 : ColumnCount; }

KyAny VpnRangeRulesModel::data(const KyModelIndex& index, int role) const {
    if (!holds_(index)) return KyAny();
    const Entry& e = entry(index.row());
    const RuleState state = ruleState(index.row());
    switch (role) {
    case AllowRole: return e.allow;
    case StateRole: return int(state);
    case NormalizedRangeRole: return VpnRangeRuleSupport::normalizeRange_(e.range);
    case KyItemDataRole::ToolTip: {
        const KyString tip = stateToolTip(state);
        return tip.isEmpty() ? KyAny() : KyAny(tip);
    }
    case KyItemDataRole::Display:
    case KyItemDataRole::Edit:
        if (index.column() == KindColumn) return kindText(e.allow);
        if (index.column() == RangeColumn) return e.range;
        return stateText(state);
    case SortKeyRole: {
        if (index.column() == KindColumn) return kindText(e.allow);
        if (index.column() == StateColumn) return int(state);
        // Valid ranges in address order, then by prefix; drafts and invalid
        // text (an empty key) come first.
        std::uint32_t address = 0;
        int prefix = 0;
        if (!VpnRangeRuleSupport::parseRange_(e.range, address, prefix)) return KyAny();
        return static_cast<long long>(address) * 64 + prefix;
    }
    default: return KyAny();
    }
}

bool VpnRangeRulesModel::setAllow_(int row, bool allow) {
    Entry& e = entries_[static_cast<std::size_t>(row)];
    if (e.allow != allow) {
        e.allow = allow;
        emitRowsChanged(row, row);
    }
    return true;
}

bool VpnRangeRulesModel::setData(const KyModelIndex& index, const KyAny& value, int role) {
    if (!holds_(index)) return false;
    const int row = index.row();
    if (role == AllowRole) {
        if (!value.is<bool>()) return false;
        return setAllow_(row, value.get<bool>());
    }
    if (role != KyItemDataRole::Edit && role != KyItemDataRole::Display) return false;

    if (index.column() == KindColumn) {
        if (value.is<bool>()) return setAllow_(row, value.get<bool>());
        const KyString word = value.toString().trimmed().toLower();
        if (word == "allow" || word == "true" || word == "1") return setAllow_(row, true);
        if (word == "block" || word == "false" || word == "0") return setAllow_(row, false);
        return false;
    }
    if (index.column() == RangeColumn) {
        const KyString range = storedRange(value.toString());
        Entry& e = entries_[static_cast<std::size_t>(row)];
        if (e.range != range) {
            e.range = range;
            emitRowsChanged(row, row);
        }
        return true;
    }
    return false;
}

KyItemFlags VpnRangeRulesModel::flags(const KyModelIndex& index) const {
    if (!holds_(index)) return KyItemFlag::NoFlags;
    KyItemFlags f = KyItemFlag::Selectable | KyItemFlag::Enabled | KyItemFlag::NeverHasChildren;
    if (index.column() != StateColumn) f |= KyItemFlag::Editable;
    return f;
}

KyAny VpnRangeRulesModel::headerData(int section, KyOrientation orientation, int role) const {
    if (orientation != KyOrientation::Horizontal || role != KyItemDataRole::Display)
        return KyAbstractItemModel::headerData(section, orientation, role);
    switch (section) {
    case KindColumn: return KyString("Action");
    case RangeColumn: return KyString("Destination range");
    case StateColumn: return KyString("State");
    default: return KyAny();
    }
}

bool VpnRangeRulesModel::removeRows(int row, int count, const KyModelIndex& parent) {
    if (parent.isValid() || row < 0 || count <= 0 || row > rowCount() - count) return false;
    beginRemoveRows(KyModelIndex(), row, row + count - 1);
    entries_.erase(entries_.begin() + row, entries_.begin() + row + count);
    endRemoveRows();
    return true;
}
