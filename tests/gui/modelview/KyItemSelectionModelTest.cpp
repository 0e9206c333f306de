// KyItemSelectionModel on a list that changes under it: which rows stay
// selected, where the current row goes, and what the signals say.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "gui/modelview/KyItemSelectionModel.h"
#include "gui/modelview/KySortFilterProxyModel.h"
#include "gui/modelview/KyStandardItemModel.h"

namespace {

constexpr int kIdRole = KyItemDataRole::User;

KyVector<KyStandardItemModel::Row> rowsNamed(const std::vector<const char*>& names) {
    KyVector<KyStandardItemModel::Row> rows;
    for (const char* n : names) {
        KyStandardItem item{KyString(n)};
        item.setData(KyAny(KyString("id-") + n), kIdRole);
        rows.append({item});
    }
    return rows;
}

std::vector<KyString> selectedNames(const KyItemSelectionModel& s) {
    std::vector<KyString> out;
    for (const KyModelIndex& i : s.selectedRows()) out.push_back(i.data().toString());
    return out;
}

TEST(KyItemSelectionModel, SelectionAndCurrentRowFollowTheirItemsAcrossChanges) {
    struct Case {
        const char* name;
        bool keyed;
        std::function<void(KyStandardItemModel&, KySortFilterProxyModel&)> change;
        std::vector<KyString> selected;
        KyString current;
        int currentSignals;
        int deselectedRows; ///< rows named as deselected by the signals
    } cases[] = {
        {"inserted rows are not selected and push the selection down", false,
         [](auto& m, auto&) { m.insertRow(3, rowsNamed({"x"})[0]); }, {"c", "d", "e", "h"}, "d", 0, 0},
        {"insert inside a selected run splits it", false,
         [](auto& m, auto&) { m.insertRow(4, rowsNamed({"x"})[0]); }, {"c", "d", "e", "h"}, "d", 0, 0},
        {"removing selected rows deselects them and moves current above", false,
         [](auto& m, auto&) { m.removeRows(3, 2); }, {"c", "h"}, "c", 1, 2},
        {"removing the first rows moves current below", false,
         [](auto& m, auto&) { m.removeRows(0, 4); }, {"e", "h"}, "e", 1, 2},
        {"a sort keeps the same items selected", false,
         [](auto&, auto& p) { p.sort(0, KySortOrder::Descending); }, {"h", "e", "d", "c"}, "d", 0, 0},
        {"an unkeyed reset drops everything", false,
         [](auto& m, auto&) { m.setRows(rowsNamed({"h", "g", "c", "z"})); }, {}, "", 1, 4},
        {"a keyed reset selects the same ids again", true,
         [](auto& m, auto&) { m.setRows(rowsNamed({"h", "g", "c", "z", "d"})); }, {"h", "c", "d"}, "d", 1, 4},
        {"a filter that hides selected rows deselects them", false,
         [](auto&, auto& p) { p.setFilterFixedString("d"); }, {"d"}, "d", 0, 3},
    };
    for (const Case& c : cases) {
        KyStandardItemModel model;
        model.setRows(rowsNamed({"a", "b", "c", "d", "e", "f", "g", "h"}));
        KySortFilterProxyModel proxy;
        proxy.setSourceModel(&model);
        KyItemSelectionModel selection(&proxy);
        if (c.keyed) selection.setResetKeyRole(kIdRole);
        selection.select(2, 4, KyItemSelectionModel::ClearAndSelect);
        selection.select(proxy.index(7, 0), KyItemSelectionModel::Select);
        selection.setCurrentIndex(proxy.index(3, 0), KyItemSelectionModel::NoUpdate);
        int currentSignals = 0;
        int deselected = 0;
        KyObject::connect(&selection, &KyItemSelectionModel::currentChanged,
                          [&](const KyModelIndex&, const KyModelIndex&) { ++currentSignals; });
        KyObject::connect(&selection, &KyItemSelectionModel::selectionChanged,
                          [&](const KyRowRanges&, const KyRowRanges& gone) {
                              for (const KyRowRange& r : gone) deselected += r.count();
                          });
        c.change(model, proxy);
        EXPECT_EQ(selectedNames(selection), c.selected) << c.name;
        EXPECT_EQ(selection.currentIndex().data().toString(), c.current) << c.name;
        EXPECT_EQ(currentSignals, c.currentSignals) << c.name;
        EXPECT_EQ(deselected, c.deselectedRows) << c.name;
        // Row by row the answer agrees, and the runs stay sorted and apart.
        for (int r = 0; r < proxy.rowCount(); ++r) {
            const KyString name = proxy.index(r, 0).data().toString();
            const bool want = std::find(c.selected.begin(), c.selected.end(), name) != c.selected.end();
            EXPECT_EQ(selection.isSelected(proxy.index(r, 0)), want) << c.name << " row " << r;
            EXPECT_FALSE(selection.isSelected(model.index(r, 0))) << "an index of another model";
        }
        const KyRowRanges& runs = selection.selection();
        for (std::size_t i = 1; i < runs.size(); ++i) EXPECT_GT(runs[i].first, runs[i - 1].last + 1) << c.name;
    }
}

TEST(KyItemSelectionModel, CommandsSignalOnlyTheNetChange) {
    KyStandardItemModel model;
    model.setRows(rowsNamed({"a", "b", "c", "d", "e", "f"}));
    KyItemSelectionModel selection(&model);
    KyRowRanges lastSelected, lastDeselected;
    int signals = 0;
    KyObject::connect(&selection, &KyItemSelectionModel::selectionChanged,
                      [&](const KyRowRanges& on, const KyRowRanges& off) {
                          ++signals;
                          lastSelected = on;
                          lastDeselected = off;
                      });
    selection.select(1, 3, KyItemSelectionModel::Select);
    selection.select(2, 5, KyItemSelectionModel::ClearAndSelect);
    EXPECT_EQ(lastSelected, (KyRowRanges{{4, 5}}));
    EXPECT_EQ(lastDeselected, (KyRowRanges{{1, 1}}));
    selection.select(0, 3, KyItemSelectionModel::Toggle);
    EXPECT_EQ(selectedNames(selection), (std::vector<KyString>{"a", "b", "e", "f"}));
    selection.select(4, 5, KyItemSelectionModel::Select); // nothing new
    EXPECT_EQ(signals, 3);
    selection.selectAll();
    EXPECT_EQ(selection.selection(), (KyRowRanges{{0, 5}}));
    EXPECT_EQ(selection.selectedRowCount(), 6);
}

} // namespace
