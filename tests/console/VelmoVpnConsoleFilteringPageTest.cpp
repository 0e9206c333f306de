// The "Filtering" tab on a private Xvfb beside the real demo agent: what the
// agent receives when the form is pushed (read from the agent's own log on
// its stderr), and the range-rules editor driven through the X server with
// XTEST, as a user's mouse and keyboard drive it.
#include <algorithm>
#include <string>
#include <vector>

#include "console/VelmoVpnConsolePages.h"
#include "console/VpnRangeRulesEditor.h"
#include "console/VpnRangeRulesModel.h"
#include "gui/modelview/KySortFilterProxyModel.h"
#include "gui/modelview/KyTableView.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyComboBox.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KySpinBox.h"
// Xlib's macros last: they would clash with the framework's names.
#include "../support/KyTestConsoleScreen.h"
#include <X11/keysym.h>

namespace {

using namespace std::chrono_literals;
constexpr int kWidth = 1260, kHeight = 700;

struct FilteringPage : kytest::ConsolePageFixture {
    void SetUp() override {
        ConsolePageFixture::SetUp();
        ASSERT_TRUE(link.startAgent(agent, "velmo.demo.agent.debug=true")) << agent.err();
        showPage(&buildVelmoVpnConsoleFilteringPage, kWidth, kHeight);
        XSetInputFocus(user->display(), window->id(), RevertToPointerRoot, CurrentTime);
        ui.filterEnabled->setChecked(true);
        velmoVpnConsoleRefreshFilterWidgets(ui, true);
        sync();
    }
    void TearDown() override {
        link.proxy_.reset();
        ConsolePageFixture::TearDown();
    }
    // Everything sent before has been handled and painted once a motion over
    // the page's bare corner, queued behind it, has arrived.
    void sync() { kytest::settleWindow(*this, *window, page, kWidth - 2, kHeight - 2); }
    void key(KeySym sym) {
        user->tapKey(sym);
        sync();
    }
    void type(const std::string& text) {
        user->typeText(text);
        sync();
    }
    void click(const KyWidget* w) {
        clickOn(w);
        sync();
    }
    VpnRangeRulesEditor& editor() { return *ui.rangeRulesEditor; }
    KyString cell(int row, int column) { return editor().proxyModel()->index(row, column).data().toString(); }
    /// The keys of the "Config <key> = <value>" lines the agent logged, in order.
    std::vector<std::string> configLines() const {
        std::vector<std::string> lines;
        const std::string& err = agent.err();
        for (size_t at = err.find("Config "); at != std::string::npos; at = err.find("Config ", at + 1))
            lines.push_back(err.substr(at + 7, err.find('\n', at) - at - 7));
        return lines;
    }

    kytest::ConsoleProcesses link;
    kytest::Child agent;
};

TEST_F(FilteringPage, TheFormPushesItsTenKeysInOrderAndPassThroughValuesWhenOff) {
    using Fields = std::initializer_list<const KyWidget*>;
    for (const KyWidget* w : Fields{ui.filterProtocol, ui.filterSource, ui.filterPortMin, ui.filterRangeMode})
        EXPECT_GE(w->rootRect().x, 128) << "a field of the left column is not right of its label";
    ui.filterProtocol->setCurrentIndex(2);
    ui.filterForwardMode->setCurrentIndex(1);
    ui.filterSource->setText("10.1.0.0/16");
    ui.filterDestination->setText("192.168.1.7");
    ui.filterPortMin->setValue(80);
    ui.filterPortMax->setValue(443);
    ui.filterFullRoute->setChecked(true);
    ui.filterRangeMode->setCurrentIndex(2);
    ui.allowedRanges->setText("10.44.0.0/24");
    ui.blockedRanges->setText("172.16.0.0/12");

    // Nothing goes out without the link or while the form is being reset;
    // an unknown key sent after them marks where their lines would be.
    velmoVpnConsolePushFilterForm(ui, &link.user(), false, false);
    velmoVpnConsolePushFilterForm(ui, &link.user(), true, true);
    velmoVpnConsolePushFilterForm(ui, nullptr, true, false);
    link.user().setRemoteConfig("filter/marker", "1");
    ASSERT_TRUE(agent.waitForError("Unknown remote config key: filter/marker", 30s)) << agent.err();
    EXPECT_TRUE(configLines().empty()) << agent.err();

    velmoVpnConsolePushFilterForm(ui, &link.user(), true, false);
    ASSERT_TRUE(agent.waitForError("Config vpn/blocked_ranges = 172.16.0.0/12", 30s)) << agent.err();
    const std::vector<std::string> on = {
        "filter/protocol = 2 (UDP)",        "filter/forward_mode = 1 (Log only)", "filter/src_ip = 10.1.0.0/16",
        "filter/dst_ip = 192.168.1.7/32",   "filter/port_min = 80",               "filter/port_max = 443",
        "vpn/full_mode = true",             "vpn/range_mode = 2 (Block Only listed)",
        "vpn/allowed_ranges = 10.44.0.0/24", "vpn/blocked_ranges = 172.16.0.0/12",
    };
    EXPECT_EQ(configLines(), on);

    // The master box off, the widgets untouched: the form greys, the agent gets pass-through values.
    ui.filterEnabled->setChecked(false);
    velmoVpnConsoleRefreshFilterWidgets(ui, true);
    EXPECT_FALSE(ui.filterSource->isEnabled());
    velmoVpnConsolePushFilterForm(ui, &link.user(), true, false);
    ASSERT_TRUE(agent.waitForError("Config vpn/blocked_ranges = (empty)", 30s)) << agent.err();
    const std::vector<std::string> all = configLines();
    const std::vector<std::string> off(all.begin() + std::min<size_t>(10, all.size()), all.end());
    EXPECT_EQ(off, (std::vector<std::string>{
                       "filter/protocol = 0 (All)", "filter/forward_mode = 0 (Bridge)", "filter/src_ip = (empty)",
                       "filter/dst_ip = (empty)", "filter/port_min = 0", "filter/port_max = 65535",
                       "vpn/full_mode = false", "vpn/range_mode = 0 (Allow All)", "vpn/allowed_ranges = (empty)",
                       "vpn/blocked_ranges = (empty)"}));
    EXPECT_EQ(ui.filterPortMin->value(), 80);
}

TEST_F(FilteringPage, RulesTypedInTheTableReachTheBackingFieldsNormalisedAndInvalidOnesStayBehind) {
    ui.filterRangeMode->setCurrentIndex(1);
    click(editor().newAllowButton());
    ASSERT_NE(editor().table()->openEditor(), nullptr);
    type("10.44.0.9/24");
    key(XK_Return);
    EXPECT_EQ(editor().table()->openEditor(), nullptr);
    EXPECT_EQ(ui.allowedRanges->getText(), "10.44.0.0/24");

    // The buttons take turns, so no two clicks on one button make a double click.
    click(editor().newBlockButton());
    type("192.168.10.12");
    key(XK_Return);
    click(editor().newAllowButton());
    type("1.2.3.x");
    key(XK_Return);
    EXPECT_EQ(cell(2, VpnRangeRulesModel::RangeColumn), "1.2.3.x");
    EXPECT_EQ(cell(2, VpnRangeRulesModel::StateColumn), "Invalid");
    EXPECT_EQ(cell(0, VpnRangeRulesModel::StateColumn), "Active");
    EXPECT_EQ(cell(1, VpnRangeRulesModel::StateColumn), "Stored");
    EXPECT_EQ(ui.allowedRanges->getText(), "10.44.0.0/24");
    EXPECT_EQ(ui.blockedRanges->getText(), "192.168.10.12/32");
    EXPECT_EQ(editor().summaryLabel()->text(), "3 rules  |  Allow: 2  |  Block: 1");
    EXPECT_EQ(editor().modeLabel()->text(), "Allow Only listed: allow rules apply now, block rules stay stored.");

    // Escape throws a draft's typing away; Delete on the table removes the selected rule.
    click(editor().newBlockButton());
    type("10.9.9.9");
    key(XK_Escape);
    EXPECT_EQ(cell(3, VpnRangeRulesModel::StateColumn), "Draft");
    EXPECT_EQ(ui.allowedRanges->getText(), "10.44.0.0/24");
    editor().table()->setCurrentIndex(editor().proxyModel()->index(0, 0));
    key(XK_Delete);
    EXPECT_EQ(ui.allowedRanges->getText(), "");
    EXPECT_EQ(editor().summaryLabel()->text(), "3 rules  |  Allow: 1  |  Block: 2");

    // A list put into a backing field from elsewhere becomes the table.
    ui.allowedRanges->setText("10.0.0.0/8, 10.44.0.9/24");
    EXPECT_EQ(editor().proxyModel()->rowCount(), 3);
    EXPECT_EQ(cell(1, VpnRangeRulesModel::RangeColumn), "10.44.0.0/24");
}

TEST_F(FilteringPage, AnOpenCellEditorIsCommittedAndTheButtonsLockWhenTheLinkGoesDown) {
    click(editor().newAllowButton());
    type("10.9.0.1");
    ASSERT_NE(editor().table()->openEditor(), nullptr);
    velmoVpnConsoleRefreshFilterWidgets(ui, false);
    sync();
    EXPECT_EQ(editor().table()->openEditor(), nullptr);
    EXPECT_EQ(ui.allowedRanges->getText(), "10.9.0.1/32");
    EXPECT_FALSE(ui.filterSource->isEnabled());
    click(editor().newAllowButton());
    EXPECT_EQ(editor().proxyModel()->rowCount(), 1) << "a locked New Allow adds nothing";
    EXPECT_FALSE(editor().deleteButton()->isEnabled());

    velmoVpnConsoleRefreshFilterWidgets(ui, true);
    EXPECT_TRUE(editor().newBlockButton()->isEnabled());
    EXPECT_TRUE(editor().deleteButton()->isEnabled()) << "the committed rule is still selected";
}

} // namespace
