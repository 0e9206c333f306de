// The "Filtering" tab without widgets: how typed ranges are read, which
// rules the table shows in which state, what the agent's two range lists
// receive, and the remote configuration values of a form left empty.
#include <gtest/gtest.h>

#include <vector>

#include "console/VelmoVpnConsoleFilter.h"
#include "console/VpnRangeRuleSupport.h"
#include "console/VpnRangeRulesModel.h"

namespace {

using M = VpnRangeRulesModel;

TEST(VpnRangeRuleSupport, RangesNormaliseOrComeOutEmpty) {
    struct Row { const char* typed; const char* normalized; };
    const Row rows[] = {
        {"10.44.0.9/24", "10.44.0.0/24"},     {"192.168.10.12", "192.168.10.12/32"},
        {"  10.44.0.9 /  24 ", "10.44.0.0/24"}, {"0.0.0.0/0", "0.0.0.0/0"},
        {"255.255.255.255/0", "0.0.0.0/0"},   {"255.255.255.255/31", "255.255.255.254/31"},
        {"010.001.0.7/032", "10.1.0.7/32"},   {"300.1.1.1", ""},
        {"1.2.3", ""},        {"1.2.3.4.5", ""},    {"1.2.3.4/33", ""},    {"1.2.3.x", ""},
        {"1.2.3.4/", ""},     {"/24", ""},          {"1.2.3.4/24/8", ""},  {"1..3.4", ""},
        {"1.2.3.4.", ""},     {"-1.2.3.4", ""},     {"1.2.3.4/-1", ""},    {"1.2 .3.4", ""},
        {"99999999999999999999.1.1.1", ""},         {"1.2.3.4/99999999999999999999", ""},
        {"   ", ""},          {"", ""},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.typed);
        EXPECT_EQ(VpnRangeRuleSupport::normalizeRange_(r.typed), r.normalized);
    }
}

TEST(VpnRangeRulesModel, RowStatesAndToolTipsFollowTheMode) {
    M model;
    model.appendCsvList_("10.44.0.9/24, 1.2.3.x", true);
    model.appendCsvList_("192.168.10.12", false);
    model.appendDraft(false);
    const KyString draftTip = "Draft rule. Double-click the destination range to enter a CIDR.";
    const KyString invalidTip = "Invalid IPv4 or CIDR notation. Example: 10.44.0.0/24 or 192.168.10.12";
    struct Row {
        int mode;
        std::vector<const char*> states; // allow valid, allow invalid, block valid, block draft
    };
    const Row rows[] = {
        {0, {"Stored", "Invalid", "Stored", "Draft"}},
        {1, {"Active", "Invalid", "Stored", "Draft"}},
        {2, {"Stored", "Invalid", "Active", "Draft"}},
        {7, {"Stored", "Invalid", "Stored", "Draft"}},
    };
    int modeSignals = 0;
    KyObject::connect(&model, &M::modeChanged, [&](int) { ++modeSignals; });
    for (const Row& r : rows) {
        SCOPED_TRACE(r.mode);
        model.setMode(r.mode);
        for (int row = 0; row < 4; ++row) {
            EXPECT_EQ(model.index(row, M::StateColumn).data().toString(), r.states[row]) << row;
            const KyString tip = row == 1 ? invalidTip : row == 3 ? draftTip : KyString();
            for (int column = 0; column < M::ColumnCount; ++column)
                EXPECT_EQ(model.index(row, column).data(KyItemDataRole::ToolTip).toString(), tip) << row;
        }
    }
    EXPECT_EQ(modeSignals, 3); // 0 is where the model starts; 7 counts as 0
    EXPECT_EQ(model.index(1, M::RangeColumn).data().toString(), "1.2.3.x");
    EXPECT_EQ(model.index(0, M::KindColumn).data().toString(), "Allow");
    EXPECT_EQ(model.index(2, M::KindColumn).data().toString(), "Block");

    // What the table's header and editors see: three titled columns, the state not editable.
    const char* titles[] = {"Action", "Destination range", "State"};
    for (int column = 0; column < M::ColumnCount; ++column) {
        EXPECT_EQ(model.headerData(column, KyOrientation::Horizontal).toString(), titles[column]);
        EXPECT_EQ(model.index(0, column).flags().testFlag(KyItemFlag::Editable), column != M::StateColumn);
    }
    EXPECT_FALSE(model.index(0, M::ColumnCount).isValid());
    EXPECT_FALSE(model.headerData(M::ColumnCount, KyOrientation::Horizontal).isValid());
    EXPECT_EQ(model.headerData(0, KyOrientation::Vertical).toString(), "1");
}

TEST(VpnRangeRulesModel, CsvListsCarryValidRulesOnlyAndComeBackTheSame) {
    M model;
    model.resetFromCsv_(" 10.44.0.9/24,,1.2.3.4/33 , 192.168.10.12,", "0.0.0.0/0, junk");
    model.appendDraft(true);
    EXPECT_EQ(model.rowCount(), 6); // every typed piece is a row, drafts and invalid ones too
    EXPECT_EQ(model.exportCsv_(true), "10.44.0.0/24, 192.168.10.12/32");
    EXPECT_EQ(model.exportCsv_(false), "0.0.0.0/0");

    M again;
    again.resetFromCsv_(model.exportCsv_(true), model.exportCsv_(false));
    EXPECT_EQ(again.exportCsv_(true), model.exportCsv_(true));
    EXPECT_EQ(again.exportCsv_(false), model.exportCsv_(false));
    EXPECT_EQ(again.rowCount(), 3);
    EXPECT_EQ(again.summaryText(), "3 rules  |  Allow: 2  |  Block: 1");
    again.setMode(2);
    EXPECT_EQ(again.summaryText(),
              "3 rules  |  Allow: 2  |  Block: 1\nBlock Only listed: block rules apply now, allow rules stay stored.");

    EXPECT_TRUE(again.removeRow(0));
    EXPECT_FALSE(again.removeRows(1, 5));
    EXPECT_EQ(again.exportCsv_(true), "192.168.10.12/32");
}

TEST(VpnRangeRulesModel, EditsTakeTheKindWordsAndNormaliseRanges) {
    struct Row { int column; KyAny value; bool accepted; const char *kind, *range; };
    const Row rows[] = {
        {M::KindColumn, KyString("block"), true, "Block", "10.1.0.0/16"},
        {M::KindColumn, KyString(" Block "), true, "Block", "10.1.0.0/16"}, // as the combo box says it
        {M::KindColumn, KyString("false"), true, "Block", "10.1.0.0/16"},
        {M::KindColumn, KyString("0"), true, "Block", "10.1.0.0/16"},
        {M::KindColumn, false, true, "Block", "10.1.0.0/16"},
        {M::KindColumn, KyString("ALLOW"), true, "Allow", "10.1.0.0/16"}, // unchanged: no signal
        {M::KindColumn, KyString("true"), true, "Allow", "10.1.0.0/16"},
        {M::KindColumn, KyString("deny"), false, "Allow", "10.1.0.0/16"},
        {M::RangeColumn, KyString(" 10.44.0.9/24"), true, "Allow", "10.44.0.0/24"},
        {M::RangeColumn, KyString(" 10.44.0.x"), true, "Allow", " 10.44.0.x"}, // kept as typed
        {M::RangeColumn, KyString(""), true, "Allow", ""},                     // back to a draft
        {M::StateColumn, KyString("Active"), false, "Allow", "10.1.0.0/16"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.column << " " << r.value.toString());
        M model;
        model.appendCsvList_("10.1.2.3/16", true);
        int changes = 0;
        KyObject::connect(&model, &M::dataChanged,
                          [&](const KyModelIndex&, const KyModelIndex&, const KyList<int>&) { ++changes; });
        EXPECT_EQ(model.setData(model.index(0, r.column), r.value), r.accepted);
        EXPECT_EQ(model.index(0, M::KindColumn).data().toString(), r.kind);
        EXPECT_EQ(model.index(0, M::RangeColumn).data().toString(), r.range);
        const bool changed = model.entry(0) != VpnRangeRulesModel::Entry{"10.1.0.0/16", true};
        EXPECT_EQ(changes, changed ? 1 : 0);
    }
}

TEST(VpnRangeRulesModel, SearchFindsWordsAndAddressesInsideRanges) {
    M model;
    model.resetFromCsv_("10.44.0.0/24", "192.168.10.12, 0.0.0.0/0");
    struct Row { const char* search; std::vector<bool> hits; };
    const Row rows[] = {
        {"", {true, true, true}},           {"block", {false, true, true}},       {"stored", {true, true, true}},
        {"10.44.0.9", {true, false, true}}, {"10.44.0.0/16", {false, false, true}}, {"168.10", {false, true, false}},
        {"10.44.0.7/24", {true, false, true}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.search);
        for (int row = 0; row < 3; ++row) EXPECT_EQ(model.matchesSearch(row, r.search), r.hits[row]) << row;
    }
}

// A filled form, on and off, goes through the real agent in the page's test;
// here the forms whose fields are absent or left at their defaults.
TEST(VelmoVpnConsoleFilter, AbsentFieldsAndThePassThroughFormSendThePassThroughValues) {
    const KyList<VelmoVpnConsoleConfigPair> off = {
        {"filter/protocol", "0"}, {"filter/forward_mode", "0"}, {"filter/src_ip", ""},
        {"filter/dst_ip", ""},    {"filter/port_min", "0"},     {"filter/port_max", "65535"},
        {"vpn/full_mode", "false"}, {"vpn/range_mode", "0"},    {"vpn/allowed_ranges", ""},
        {"vpn/blocked_ranges", ""},
    };
    VelmoVpnConsoleFilterForm noWidgets;
    noWidgets.filteringActive = true;
    EXPECT_EQ(velmoVpnConsoleFilterConfigPairs(noWidgets), off);
    VelmoVpnConsoleFilterForm defaults = velmoVpnConsolePassThroughForm();
    defaults.filteringActive = true;
    EXPECT_EQ(velmoVpnConsoleFilterConfigPairs(defaults), off);
}

} // namespace
