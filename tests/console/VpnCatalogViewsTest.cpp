// The "VPNs" tab on a private X server, used as a user would: clicks and keys
// through XTEST reach the select, join and device callbacks with the right id
// and wanted state; copies land on the clipboard; the switches' pixels say
// on, off and greyed.
#include <algorithm>
#include <string>
#include <vector>

#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VpnEndpointListView.h"
#include "console/VpnHotspotItemDelegate.h"
#include "console/VpnHotspotListView.h"
#include "console/VpnListRows.h"
#include "core/types/KyJsonHelpers.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyToolTip.h"
// Last: it brings Xlib's macros.
#include "../support/KyTestConsoleScreen.h"

namespace {

KyJsonArray arrayOf(const char* json) { return parseJsonObjectOrEmpty(json)["l"].toArray(); }

struct VpnsPage : kytest::ConsolePageFixture {
    void SetUp() override {
        ConsolePageFixture::SetUp();
        showPage(&buildVelmoVpnConsoleVpnsPage, 1100, 560, 30);
        velmoVpnConsoleSetListCallbacks(
            ui, [this](const KyString& id) { calls.push_back("select " + id.toStdString()); },
            [this](const KyString& id, bool on) { calls.push_back("join " + id.toStdString() + (on ? " on" : " off")); },
            [this](const KyString& id, bool on) { calls.push_back("device " + id.toStdString() + (on ? " on" : " off")); });
        session.backendConnected = true;
        session.authStatus = "ready";
        session.hotspotsJson = arrayOf(R"({"l":[{"id":"hs-a","name":"Oslo"},{"id":"hs-b","name":"Lima"},{"id":"hs-c"}]})");
        session.activeHotspotId = "hs-a";
        session.inspectedHotspotId = "hs-b";
        session.endpointsJson = arrayOf(R"({"l":[
            {"id":"d-1","clientId":"c-1","machineName":"ana-pc","currentIp":"10.40.2.11","reservedIp":"10.40.2.21","vpnEnabled":true},
            {"id":"d-2","machineName":"kofi-pc","currentIp":"10.40.2.12","reservedIp":"10.40.2.22","vpnEnabled":false}]})");
        refresh();
        settle();
    }
    void refresh() {
        velmoVpnConsoleRefreshCatalogWidgets(ui, session);
        velmoVpnConsoleRefreshEndpointWidgets(ui, session);
    }
    void settle() { ConsolePageFixture::settle(1090, 550); }
    // A point of a row (its switch or its body) in window coordinates.
    KyPoint at(KyListView* view, int row, bool onSwitch) {
        const KyRect r = onSwitch ? VpnListRows::switchRect(view->rowRect(row)) : view->rowRect(row);
        const KyPoint local = onSwitch ? KyPoint(r.x + r.width / 2, r.y + r.height / 2) : KyPoint(r.x + 140, r.y + r.height / 2);
        return view->rootRect().topLeft() + local;
    }
    void click(KyPoint p, unsigned button = 1) { WidgetFixture::click(p.x, p.y, button); }
    bool awaitCalls(std::size_t n) { return runUntil([&] { return calls.size() >= n; }); }
    // The clipboard's text once it holds text (how it reaches other clients is the platform's part).
    bool copied(const char* text) { return runUntil([&] { return platform()->clipboardText() == KyString(text); }); }
    // Pixels of a row's switch in the accent (an "on" track).
    int accentPixels(KyListView* view, int row) {
        const KyRect s = VpnListRows::switchRect(view->rowRect(row));
        const KyPoint p = view->rootRect().topLeft() + KyPoint(s.x, s.y);
        int n = 0;
        for (std::uint32_t px : user->pixels(window->id(), {p.x, p.y, s.width, s.height}))
            n += KyColor::fromRgb(px) == VelmoVpnConsoleStyle::kAccent;
        return n;
    }

    VelmoVpnConsoleSession session;
    std::vector<std::string> calls;
};

TEST_F(VpnsPage, ClicksOnARowSelectOrJoinOrLeaveAVpnOrAskForTheOtherStateOfADevice) {
    struct Row { const char* name; bool devices; int row; bool onSwitch; const char* call; };
    const Row rows[] = {
        {"the body of another VPN selects it", false, 2, false, "select hs-c"},
        {"the switch of an idle VPN joins it", false, 1, true, "join hs-b on"},
        {"the switch of the active VPN leaves it", false, 0, true, "join hs-a off"},
        {"an allowed device's switch turns it off, named by its client", true, 0, true, "device c-1 off"},
        {"a device without a client id is named by its own id", true, 1, true, "device d-2 on"},
    };
    for (const Row& r : rows) {
        calls.clear();
        click(at(r.devices ? static_cast<KyListView*>(ui.endpointView) : ui.hotspotView, r.row, r.onSwitch));
        ASSERT_TRUE(awaitCalls(1)) << r.name;
        EXPECT_EQ(calls, std::vector<std::string>{r.call}) << r.name;
    }
}

TEST_F(VpnsPage, KeysMoveTheRowAndSelectJoinOrToggleIt) {
    click(at(ui.hotspotView, 0, false)); // focus: a select of the first VPN
    ASSERT_TRUE(awaitCalls(1));
    user->tapKey(XK_Down);
    user->tapKey(XK_Return);
    user->tapKey(XK_space);
    ASSERT_TRUE(awaitCalls(3));
    click(at(ui.endpointView, 0, false)); // the body of a device does nothing
    user->tapKey(XK_Down);
    user->tapKey(XK_space);
    ASSERT_TRUE(awaitCalls(4));
    EXPECT_EQ(calls, (std::vector<std::string>{"select hs-a", "select hs-b", "join hs-b on", "device d-2 on"}));
}

TEST_F(VpnsPage, CtrlCAndTheRowMenuCopyADevicesAddressesAndName) {
    click(at(ui.endpointView, 0, false));
    user->tapKey(XK_c, XK_Control_L);
    EXPECT_TRUE(copied("10.40.2.11"));

    click(at(ui.endpointView, 1, false), 3); // the right button: the row's menu
    ASSERT_TRUE(runUntil([&] { return ui.endpointView->contextMenu()->isVisible(); }));
    user->tapKey(XK_Down), user->tapKey(XK_Down), user->tapKey(XK_Return); // "Copy reserved IP"
    ASSERT_TRUE(runUntil([&] { return !ui.endpointView->contextMenu()->isVisible(); }));
    EXPECT_TRUE(copied("10.40.2.22"));

    user->tapKey(XK_Menu); // the keyboard's way to the same menu, on the same row
    ASSERT_TRUE(runUntil([&] { return ui.endpointView->contextMenu()->isVisible(); }));
    user->tapKey(XK_Up), user->tapKey(XK_Return); // from no row, Up takes the last: "Copy name"
    ASSERT_TRUE(runUntil([&] { return !ui.endpointView->contextMenu()->isVisible(); }));
    EXPECT_TRUE(copied("kofi-pc"));
    EXPECT_TRUE(calls.empty()) << "copying never flips a switch";
}

TEST_F(VpnsPage, SwitchPixelsShowOnOffAndGreyedAndAGreyedSwitchIsInert) {
    // Read back until the server has the frame: a loaded machine paints late.
    auto shows = [this](KyListView* view, int row, bool on) {
        return runUntil([&] { return on ? accentPixels(view, row) > 100 : accentPixels(view, row) == 0; });
    };
    EXPECT_TRUE(shows(ui.hotspotView, 0, true)) << "the active VPN's switch is on";
    EXPECT_TRUE(shows(ui.hotspotView, 1, false)) << "an idle VPN's switch is off";
    EXPECT_TRUE(shows(ui.endpointView, 0, true)) << "an allowed device's switch is on";
    session.authStatus = "restoring";
    refresh();
    settle();
    EXPECT_TRUE(shows(ui.endpointView, 0, false)) << "not interactive: the same switch is greyed";
    click(at(ui.endpointView, 0, true));
    user->tapKey(XK_space);
    settle(); // both reached the list while it was not interactive
    session.authStatus = "ready";
    refresh();
    // Callbacks arrive in order: the one after the inert attempts is the first.
    click(at(ui.endpointView, 1, true));
    ASSERT_TRUE(awaitCalls(1));
    EXPECT_EQ(calls, std::vector<std::string>{"device d-2 on"});
}

TEST_F(VpnsPage, AnEmptyLoadedListSaysSoWhileALoadingOneStaysQuiet) {
    session.endpointsJson = KyJsonArray();
    auto inked = [&] { // pixels of the list's middle unlike the list's own fill
        const KyRect r = ui.endpointView->rootRect();
        const auto px = user->pixels(window->id(), {r.x + r.width / 4, r.y + r.height / 3, r.width / 2, r.height / 3});
        return std::count_if(px.begin(), px.end(), [&](std::uint32_t p) { return p != px.front(); });
    };
    struct Row { const char* name; const char* status; bool says; };
    for (const Row& r : {Row{"a loaded empty list", "ready", true}, Row{"a list on its way", "loading", false}}) {
        session.endpointStatus = r.status;
        refresh();
        settle();
        EXPECT_EQ(inked() > 0, r.says) << r.name;
    }
}

TEST_F(VpnsPage, ARowsToolTipIsADarkCardLikeTheMenus) {
    const KyPoint p = at(ui.endpointView, 0, false);
    pointer(p.x, p.y);
    ASSERT_TRUE(runUntil([&] { return !ui.endpointView->getToolTips().isEmpty(); }));
    // The pointer rests there; a console window hands each move to the tip (the bare test window does not).
    KyToolTip::handleMouseMove_(root, nullptr, p.x, p.y);
    ASSERT_TRUE(runUntil([] { return KyToolTip::instance()->isShown(); }));
    const KyRect r = KyToolTip::instance()->popup()->rootRect();
    // Inside the border, left of the text: the box's own fill as the server shows it.
    auto dark = [&] {
        const auto px = user->pixels(window->id(), {r.x + 3, r.y + r.height / 2, 1, 1});
        return !px.empty() && KyColor::fromRgb(px[0]) == KyColor(22, 40, 49);
    };
    EXPECT_TRUE(runUntil(dark)) << "the toolkit's white box came back";
}

TEST_F(VpnsPage, TheBadgeGlyphFallsBackWhereTheServerLacksTheEmojiFace) {
    struct Row { const char* name; const wchar_t* family; const char* text; bool covered; };
    const Row rows[] = {
        {"an installed face with every glyph", L"DejaVu Sans", "Oslo \xC3\xA9", true},
        {"beyond what core fonts can index", L"DejaVu Sans", VpnHotspotItemDelegate::kGlyph, false},
        {"a family the server does not have", L"Segoe UI Emoji", "A", false},
    };
    for (const Row& r : rows) {
        KyFont font(r.family, 0);
        font.pixelSize = 18;
        EXPECT_EQ(KyWidgetPlatformAdapter::fontCoversText(root->nativeHandle(), font, r.text), r.covered) << r.name;
    }
    EXPECT_FALSE(ui.hotspotDelegate->drawsEmojiGlyph(ui.hotspotView)) << "the test server has no emoji face";
}

} // namespace
