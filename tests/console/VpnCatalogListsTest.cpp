// The "VPNs" tab as its views will read it: catalog and endpoint rows built
// from agent snapshots (in the shapes the demo agent sends), the roles a
// delegate asks for, the reset a view hears, and the header over the
// endpoint list.
#include <gtest/gtest.h>

#include <vector>

#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VpnEndpointListModel.h"
#include "console/VpnHotspotListModel.h"
#include "core/types/KyColor.h"
#include "core/types/KyJsonHelpers.h"

namespace {

KyJsonArray arrayOf(const char* json) { return parseJsonObjectOrEmpty(json)["list"].toArray(); }

using H = VpnHotspotListModel;
using E = VpnEndpointListModel;

TEST(VpnHotspotListModel, RowsFollowTheFieldRules) {
    struct Row {
        const char* name;
        const char* json;
        const char* id;
        const char* shown;
        const char* detail;
    };
    const Row rows[] = {
        {"full entry", R"({"id":"hs-1","name":"Oslo Lab","subnet":"10.40.1.0/24","ownerLabel":"Ana Costa"})", "hs-1",
         "Oslo Lab", "10.40.1.0/24  |  User Ana Costa"},
        {"name as id", R"({"name":"Lima Studio","subnet":"10.40.2.0/24","owner":"Kofi"})", "Lima Studio",
         "Lima Studio", "10.40.2.0/24  |  User Kofi"},
        {"id as name", R"({"id":"hs-3","ownerLabel":"Lena"})", "hs-3", "hs-3", "User Lena"},
        {"neither is unnamed", R"({"subnet":"10.40.4.0/24"})", "", "Unnamed VPN", "10.40.4.0/24"},
        {"ownerLabel beats owner", R"({"id":"hs-5","ownerLabel":"A","owner":"B"})", "hs-5", "hs-5", "User A"},
        {"empty label falls back", R"({"id":"hs-6","ownerLabel":"","owner":"B"})", "hs-6", "hs-6", "User B"},
        {"mistyped members read empty", R"({"id":7,"name":null,"subnet":true})", "", "Unnamed VPN", ""},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        H model;
        model.update(KyJsonArray{parseJsonObjectOrEmpty(r.json)}, "", "");
        ASSERT_EQ(model.rowCount(), 1);
        const KyModelIndex at = model.index(0, 0);
        EXPECT_EQ(at.data(H::IdRole).toString(), r.id);
        EXPECT_EQ(at.data(H::NameRole).toString(), r.shown);
        EXPECT_EQ(at.data(KyItemDataRole::Display).toString(), r.shown);
        EXPECT_EQ(at.data(H::DetailRole).toString(), r.detail);
    }
}

TEST(VpnHotspotListModel, UpdateIsOneResetThatSkipsNonObjectsAndMarksSelectedAndActive) {
    H model;
    int resets = 0;
    KyObject::connect(&model, &H::modelReset, [&] { ++resets; });
    model.update(arrayOf(R"({"list":[{"id":"a"}, 3, "b", null, {"name":"b"}, [1], {"subnet":"x"}, {"id":"c"}]})"),
                 "b", "c");
    EXPECT_EQ(resets, 1);
    ASSERT_EQ(model.rowCount(), 4);
    const std::vector<std::pair<bool, bool>> expected = {{false, false}, {true, false}, {false, false}, {false, true}};
    for (int row = 0; row < 4; ++row) {
        SCOPED_TRACE(row);
        EXPECT_EQ(boolFromAny_(model.index(row, 0).data(H::SelectedRole)), expected[row].first);
        EXPECT_EQ(boolFromAny_(model.index(row, 0).data(H::ActiveRole)), expected[row].second);
    }
    // With nothing inspected, the keyless row is not "selected" by an equal empty id.
    model.update(arrayOf(R"({"list":[{"subnet":"x"}]})"), "", "");
    EXPECT_FALSE(boolFromAny_(model.index(0, 0).data(H::SelectedRole)));
    EXPECT_EQ(resets, 2);
    EXPECT_EQ(model.rowOf("c"), -1);
    EXPECT_EQ(model.rowOf(""), -1);
}

// A view may still hold an index from before a reset, or ask with another
// model's index: such questions get empty answers, never another row's values.
void fill(H& model, const char* json) { model.update(arrayOf(json), "", ""); }
void fill(E& model, const char* json) { model.update(arrayOf(json), true); }

template <typename Model> void expectOnlyOwnRowsAnswer() {
    Model model, other;
    fill(model, R"({"list":[{"id":"a"},{"id":"b"}]})");
    fill(other, R"({"list":[{"id":"a"},{"id":"b"}]})");
    const KyModelIndex stale = model.index(1, 0);
    fill(model, R"({"list":[{"id":"a"}]})");
    EXPECT_TRUE(model.data(model.index(0, 0), Model::IdRole).isValid());
    for (const KyModelIndex& at : {stale, other.index(0, 0)}) {
        EXPECT_FALSE(model.data(at, Model::IdRole).isValid());
        EXPECT_EQ(model.flags(at), KyItemFlags());
    }
    for (auto [row, column] : {std::pair{1, 0}, {0, 1}, {-1, 0}, {0, -1}}) EXPECT_FALSE(model.index(row, column).isValid());
    EXPECT_FALSE(model.index(0, 0, model.index(0, 0)).isValid());
    EXPECT_EQ(model.rowCount(model.index(0, 0)), 0);
    EXPECT_EQ(model.columnCount(model.index(0, 0)), 0);
    EXPECT_FALSE(model.parent(model.index(0, 0)).isValid());
}

TEST(VpnCatalogLists, IndexesOutsideTheListAnswerNothing) {
    expectOnlyOwnRowsAnswer<H>();
    expectOnlyOwnRowsAnswer<E>();
}

TEST(VpnHotspotListModel, PendingJoinRepaintsTheRowsThatGainOrLoseIt) {
    H model;
    model.update(arrayOf(R"({"list":[{"id":"a"},{"id":"b"},{"id":"c"}]})"), "", "");
    std::vector<int> changedRows;
    KyObject::connect(&model, &H::dataChanged, [&](const KyModelIndex& first, const KyModelIndex&, const KyList<int>&) {
        changedRows.push_back(first.row());
    });
    model.setPendingHotspotId("b");
    model.setPendingHotspotId("b");
    model.setPendingHotspotId("c");
    model.setPendingHotspotId("");
    EXPECT_EQ(changedRows, (std::vector<int>{1, 1, 2, 2}));
    model.setPendingHotspotId("c");
    EXPECT_EQ(model.rowOf(model.pendingHotspotId()), 2);
    EXPECT_TRUE(boolFromAny_(model.index(2, 0).data(H::PendingRole)));
    EXPECT_FALSE(boolFromAny_(model.index(1, 0).data(H::PendingRole)));
}

TEST(VpnEndpointListModel, RowsFollowTheFieldRules) {
    struct Row {
        const char* name;
        const char* json;
        const char* id;
        const char* title;
        const char* detail;
        bool enabled, online;
    };
    const Row rows[] = {
        {"full device",
         R"({"id":"ep-1","clientId":"cl-1","machineName":"laptop","username":"ana","platform":"Linux",
             "currentIp":"10.40.1.7","reservedIp":"10.40.1.20","vpnEnabled":true,"controlOnline":true})",
         "ep-1", "laptop", "ana  |  Linux  |  10.40.1.7  |  10.40.1.20", true, true},
        {"client id as id, user as title", R"({"clientId":"cl-2","username":"bruno","platform":"iOS"})", "cl-2",
         "bruno", "bruno  |  iOS", false, false},
        {"unknown device", R"({"id":"ep-3","reservedIp":"10.40.1.21","vpnEnabled":false})", "ep-3",
         "Unknown device", "10.40.1.21", false, false},
        {"offline device has no current ip", R"({"id":"ep-4","machineName":"nas","username":"kofi",
             "reservedIp":"10.40.1.22","controlOnline":false,"vpnEnabled":1})",
         "ep-4", "nas", "kofi  |  10.40.1.22", true, false},
        {"text is not a bool", R"({"id":"ep-5","vpnEnabled":"true","controlOnline":"yes"})", "ep-5",
         "Unknown device", "", false, false},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        E model;
        model.update(KyJsonArray{parseJsonObjectOrEmpty(r.json)}, true);
        ASSERT_EQ(model.rowCount(), 1);
        const KyModelIndex at = model.index(0, 0);
        EXPECT_EQ(at.data(E::IdRole).toString(), r.id);
        EXPECT_EQ(at.data(E::TitleRole).toString(), r.title);
        EXPECT_EQ(at.data(E::DetailRole).toString(), r.detail);
        EXPECT_EQ(boolFromAny_(at.data(E::VpnEnabledRole)), r.enabled);
        EXPECT_EQ(boolFromAny_(at.data(E::ControlOnlineRole)), r.online);
        EXPECT_TRUE(boolFromAny_(at.data(E::InteractiveRole)));
    }
}

TEST(VpnEndpointListModel, SwitchesAreInertOutsideAReadySession) {
    E model;
    model.update(arrayOf(R"({"list":[{"id":"a"}, false, {"id":"b"}]})"), false);
    ASSERT_EQ(model.rowCount(), 2);
    EXPECT_FALSE(boolFromAny_(model.index(1, 0).data(E::InteractiveRole)));
}

TEST(VelmoVpnConsoleCatalog, BoolRoleValuesReadAsTheDelegateExpects) {
    EXPECT_TRUE(boolFromAny_(KyAny(true)));
    EXPECT_TRUE(boolFromAny_(KyAny(2)));
    EXPECT_TRUE(boolFromAny_(KyAny(KyString(" True "))));
    EXPECT_FALSE(boolFromAny_(KyAny()));
    EXPECT_FALSE(boolFromAny_(KyAny(0.0)));
    EXPECT_FALSE(boolFromAny_(KyAny(KyString("maybe"))));
    EXPECT_FALSE(boolFromAny_(KyAny(KyColor(1, 2, 3))));
}

TEST(VelmoVpnConsoleCatalog, EndpointHeaderNamesTheSelectionAndTheLocalClient) {
    const KyJsonArray hotspots =
        arrayOf(R"({"list":[{"id":"hs-1","name":"Oslo Lab","subnet":"10.40.1.0/24","ownerLabel":"Ana"},
                            {"name":"Lima","owner":"Kofi"}, {"id":"hs-3","subnet":"10.40.3.0/24"}]})");
    struct Row {
        const char* name;
        const char* inspected;
        const char* active;
        const char* title;
        const char* detail;
    };
    const Row rows[] = {
        {"no selection", "", "hs-1", "Select a VPN", ""},
        {"selected and joined", "hs-1", "hs-1", "Oslo Lab",
         "10.40.1.0/24  |  User Ana  |  Local client connected"},
        {"selected elsewhere", "hs-1", "hs-3", "Oslo Lab", "10.40.1.0/24  |  User Ana  |  Local client selected"},
        {"keyed by name, no subnet", "Lima", "", "Lima", "User Kofi  |  Local client selected"},
        {"unnamed shows id, no owner", "hs-3", "", "hs-3", "10.40.3.0/24  |  Local client selected"},
        {"not listed yet", "hs-9", "hs-9", "hs-9", "Local client connected"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(velmoVpnConsoleEndpointHeaderTitle(hotspots, r.inspected), r.title);
        EXPECT_EQ(velmoVpnConsoleEndpointHeaderDetail(hotspots, r.inspected, r.active), r.detail);
    }
}

} // namespace
