// The "VPNs" tab as its views will read it: catalog and endpoint rows built
// from agent snapshots (in the shapes the demo agent sends), the roles a
// delegate asks for, the reset a view hears, and the header over the
// endpoint list.
#include <gtest/gtest.h>

#include <vector>

#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VpnEndpointListModel.h"
#include "console/VpnHotspotListModel.h"
#include "core/types/KyJsonHelpers.h"

namespace {

KyJsonArray arrayOf(const char* json) { return parseJsonObjectOrEmpty(json)["list"].toArray(); }

using H = VpnHotspotListModel;
using E = VpnEndpointListModel;

TEST(VpnHotspotListModel, UpdateIsOneResetToTheObjectRowsWhichFollowTheFieldRules) {
    struct Row { const char *id, *shown, *detail; bool selected, active; };
    const Row rows[] = {
        {"hs-1", "Oslo Lab", "10.40.1.0/24  |  User Ana Costa", false, false}, // full entry
        {"Lima Studio", "Lima Studio", "10.40.2.0/24  |  User Kofi", true, false}, // name as id, "owner" as owner
        {"hs-3", "hs-3", "User Lena", false, false},                     // id as name, no subnet
        {"", "Unnamed VPN", "10.40.4.0/24", false, false},               // neither id nor name, no owner
        {"hs-5", "hs-5", "User A", false, true},                         // "ownerLabel" beats "owner"
        {"hs-6", "hs-6", "User B", false, false},                        // an empty "ownerLabel" falls back
        {"", "Unnamed VPN", "", false, false},                           // mistyped members read empty
    };
    H model;
    int resets = 0;
    KyObject::connect(&model, &H::modelReset, [&] { ++resets; });
    model.update(arrayOf(R"({"list":[3,
        {"id":"hs-1","name":"Oslo Lab","subnet":"10.40.1.0/24","ownerLabel":"Ana Costa"}, "b", null,
        {"name":"Lima Studio","subnet":"10.40.2.0/24","owner":"Kofi"}, {"id":"hs-3","ownerLabel":"Lena"},
        {"subnet":"10.40.4.0/24"}, [1], {"id":"hs-5","ownerLabel":"A","owner":"B"},
        {"id":"hs-6","ownerLabel":"","owner":"B"}, {"id":7,"name":null,"subnet":true}]})"),
                 "Lima Studio", "hs-5");
    EXPECT_EQ(resets, 1);
    ASSERT_EQ(model.rowCount(), int(std::size(rows)));
    for (int row = 0; row < model.rowCount(); ++row) {
        SCOPED_TRACE(row);
        const KyModelIndex at = model.index(row, 0);
        EXPECT_EQ(at.data(H::IdRole).toString(), rows[row].id);
        EXPECT_EQ(at.data(H::NameRole).toString(), rows[row].shown);
        EXPECT_EQ(at.data(KyItemDataRole::Display).toString(), rows[row].shown);
        EXPECT_EQ(at.data(H::DetailRole).toString(), rows[row].detail);
        EXPECT_EQ(boolFromAny_(at.data(H::SelectedRole)), rows[row].selected);
        EXPECT_EQ(boolFromAny_(at.data(H::ActiveRole)), rows[row].active);
    }
    // With nothing inspected, the keyless row is not "selected" by an equal empty id.
    model.update(arrayOf(R"({"list":[{"subnet":"x"}]})"), "", "");
    EXPECT_FALSE(boolFromAny_(model.index(0, 0).data(H::SelectedRole)));
    EXPECT_EQ(resets, 2);
    EXPECT_EQ(model.rowOf("hs-5"), -1);
    EXPECT_EQ(model.rowOf(""), -1);
}

TEST(VpnHotspotListModel, PendingJoinRepaintsTheRowsThatGainOrLoseIt) {
    H model;
    model.update(arrayOf(R"({"list":[{"id":"a"},{"id":"b"},{"id":"c"}]})"), "", "");
    std::vector<int> changedRows;
    KyObject::connect(&model, &H::dataChanged, [&](const KyModelIndex& first, const KyModelIndex&, const KyList<int>&) {
        changedRows.push_back(first.row());
    });
    for (const char* id : {"b", "b", "c", "", "c"}) model.setPendingHotspotId(id);
    EXPECT_EQ(changedRows, (std::vector<int>{1, 1, 2, 2, 2}));
    EXPECT_EQ(model.rowOf(model.pendingHotspotId()), 2);
    EXPECT_TRUE(boolFromAny_(model.index(2, 0).data(H::PendingRole)));
    EXPECT_FALSE(boolFromAny_(model.index(1, 0).data(H::PendingRole)));
}

TEST(VpnEndpointListModel, RowsFollowTheFieldRules) {
    struct Row { const char *id, *title, *detail; bool enabled, online; };
    const Row rows[] = {
        {"ep-1", "laptop", "ana  |  Linux  |  10.40.1.7  |  10.40.1.20", true, true}, // full device
        {"cl-2", "bruno", "bruno  |  iOS", false, false},        // client id as id, user as title
        {"ep-3", "Unknown device", "10.40.1.21", false, false},  // no name at all
        {"ep-4", "nas", "kofi  |  10.40.1.22", true, false},     // offline: no current ip; 1 is on
        {"ep-5", "Unknown device", "", false, false},            // a text is not a bool
    };
    E model;
    model.update(arrayOf(R"({"list":[
        {"id":"ep-1","clientId":"cl-1","machineName":"laptop","username":"ana","platform":"Linux",
         "currentIp":"10.40.1.7","reservedIp":"10.40.1.20","vpnEnabled":true,"controlOnline":true}, false,
        {"clientId":"cl-2","username":"bruno","platform":"iOS"}, {"id":"ep-3","reservedIp":"10.40.1.21","vpnEnabled":false},
        {"id":"ep-4","machineName":"nas","username":"kofi","reservedIp":"10.40.1.22","controlOnline":false,"vpnEnabled":1},
        {"id":"ep-5","vpnEnabled":"true","controlOnline":"yes"}]})"),
                 true);
    ASSERT_EQ(model.rowCount(), int(std::size(rows)));
    for (int row = 0; row < model.rowCount(); ++row) {
        SCOPED_TRACE(row);
        const KyModelIndex at = model.index(row, 0);
        EXPECT_EQ(at.data(E::IdRole).toString(), rows[row].id);
        EXPECT_EQ(at.data(E::TitleRole).toString(), rows[row].title);
        EXPECT_EQ(at.data(E::DetailRole).toString(), rows[row].detail);
        EXPECT_EQ(boolFromAny_(at.data(E::VpnEnabledRole)), rows[row].enabled);
        EXPECT_EQ(boolFromAny_(at.data(E::ControlOnlineRole)), rows[row].online);
        EXPECT_TRUE(boolFromAny_(at.data(E::InteractiveRole)));
    }
    // Outside a ready session the switches are inert.
    model.update(arrayOf(R"({"list":[{"id":"a"}]})"), false);
    EXPECT_FALSE(boolFromAny_(model.index(0, 0).data(E::InteractiveRole)));
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
        EXPECT_FALSE(boolFromAny_(model.data(at, Model::IdRole + 6))); // a flag of a row that is not there
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

TEST(VelmoVpnConsoleCatalog, EndpointHeaderNamesTheSelectionAndTheLocalClient) {
    const KyJsonArray hotspots =
        arrayOf(R"({"list":[{"id":"hs-1","name":"Oslo Lab","subnet":"10.40.1.0/24","ownerLabel":"Ana"},
                            {"name":"Lima","owner":"Kofi"}, {"id":"hs-3","subnet":"10.40.3.0/24"}]})");
    struct Row { const char *inspected, *active, *title, *detail; };
    const Row rows[] = {
        {"", "hs-1", "Select a VPN", ""}, // no selection
        {"hs-1", "hs-1", "Oslo Lab", "10.40.1.0/24  |  User Ana  |  Local client connected"},
        {"hs-1", "hs-3", "Oslo Lab", "10.40.1.0/24  |  User Ana  |  Local client selected"},
        {"Lima", "", "Lima", "User Kofi  |  Local client selected"},             // keyed by name, no subnet
        {"hs-3", "", "hs-3", "10.40.3.0/24  |  Local client selected"},          // unnamed shows its id, no owner
        {"hs-9", "hs-9", "hs-9", "Local client connected"},                      // not listed yet
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.inspected);
        EXPECT_EQ(velmoVpnConsoleEndpointHeaderTitle(hotspots, r.inspected), r.title);
        EXPECT_EQ(velmoVpnConsoleEndpointHeaderDetail(hotspots, r.inspected, r.active), r.detail);
    }
}

TEST(VelmoVpnConsoleCatalog, SelectingAsksTheAgentOnceForEachSelection) {
    VelmoVpnConsoleSession s;
    s.backendConnected = true;
    s.endpointError = "old error";
    VelmoVpnConsoleSelectStep step = velmoVpnConsoleSelectHotspot(s, true, "hs-1");
    EXPECT_TRUE(step.selected && step.askAgent);
    EXPECT_EQ(s.inspectedHotspotId, "hs-1");
    EXPECT_EQ(s.endpointStatus, "loading");
    EXPECT_EQ(s.endpointError, "");
    EXPECT_TRUE(velmoVpnConsoleSelectHotspot(s, true, "hs-1").askAgent); // still loading: ask again
    s.endpointStatus = "ready";
    EXPECT_FALSE(velmoVpnConsoleSelectHotspot(s, true, "hs-1").selected); // loaded: nothing to do
    s.backendConnected = false;
    step = velmoVpnConsoleSelectHotspot(s, true, "hs-2");
    EXPECT_TRUE(step.selected && !step.askAgent);
}

TEST(VelmoVpnConsoleCatalog, JoiningAndTogglingHonourEveryGuard) {
    struct Row { const char* name; bool proxy, linked; const char *inspected, *id, *local; bool enabled, devices, send;
                 const char *active, *status; };
    const Row rows[] = {
        {"join", true, true, "", "hs-2", " cl-me ", true, false, true, "hs-2", "idle"},
        {"leave", true, true, "", "hs-2", "cl-me", false, false, true, "vpn-own", "idle"},
        {"join without proxy", false, true, "", "hs-2", "cl-me", true, false, false, "hs-0", "idle"},
        {"join without link", true, false, "", "hs-2", "cl-me", true, false, false, "hs-0", "idle"},
        {"join without id", true, true, "", "", "cl-me", true, false, false, "hs-0", "idle"},
        {"join without local client", true, true, "", "hs-2", "  ", true, false, false, "hs-0", "idle"},
        {"toggle own device on", true, true, "hs-3", "cl-me", "cl-me ", true, true, true, "hs-3", "refreshing"},
        {"toggle own device off", true, true, "hs-3", "cl-me", "cl-me", false, false, true, "vpn-own", "loading"},
        {"toggle another device", true, true, "hs-3", "cl-x", "cl-me", true, true, true, "hs-0", "refreshing"},
        {"toggle keyless device", true, true, "hs-3", "", "", true, true, true, "hs-0", "refreshing"},
        {"toggle without selection", true, true, "", "cl-x", "cl-me", true, true, false, "hs-0", "idle"},
        {"toggle without link", true, false, "hs-3", "cl-x", "cl-me", true, true, false, "hs-0", "idle"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        VelmoVpnConsoleSession s;
        s.backendConnected = r.linked;
        s.inspectedHotspotId = r.inspected;
        s.activeHotspotId = "hs-0";
        s.localVpnId = " vpn-own";
        if (r.devices) s.endpointsJson = arrayOf(R"({"list":[{"id":"d"}]})");
        const bool toggle = KyString(r.name).startsWith("toggle");
        const VelmoVpnConsoleEndpointCall call =
            toggle ? velmoVpnConsoleToggleEndpoint(s, r.proxy, r.id, r.local, r.enabled)
                   : velmoVpnConsoleJoinHotspot(s, r.proxy, r.id, r.local, r.enabled);
        EXPECT_EQ(call.send, r.send);
        EXPECT_EQ(s.activeHotspotId, r.active);
        EXPECT_EQ(s.endpointStatus, r.status);
        if (call.send) {
            EXPECT_EQ(call.hotspotId, toggle ? r.inspected : r.id);
            EXPECT_EQ(call.clientId, toggle ? KyString(r.id) : KyString(r.local).trimmed());
            EXPECT_EQ(call.enabled, r.enabled);
        }
    }
}

} // namespace
