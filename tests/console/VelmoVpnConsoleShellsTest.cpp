// The console's shells on a private Xvfb, driven through XTEST: the login
// form's Tab order, the e-mail suggestions, and the report of a failed start
// shown once as a box in the console's palette. Which shell shows when, and
// Return sending the form, are the console's own road, played end to end
// beside the real agent in the lifecycle cases.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

// The widget headers come before the X ones: Xlib's macros would spoil them.
#include "console/VelmoVpnConsoleFailure.h"
#include "console/VelmoVpnConsoleLoginMemory.h"
#include "console/VelmoVpnConsoleUi.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyPushButton.h"
#include "../support/KyTestConsoleScreen.h"
#include "../support/KyTestEnv.h"

#include <X11/keysym.h>

namespace {

struct Shells : kytest::GuiFixture {
    void SetUp() override {
        kytest::GuiFixture::SetUp();
        console = std::make_unique<KyMainWindow>(L"VELMO VPN Console", 1260, 820);
        login = std::make_unique<KyMainWindow>(L"VELMO VPN", 440, 530);
        loading = std::make_unique<KyMainWindow>(L"VELMO VPN", 340, 300);
        buildVelmoVpnConsoleUi(*console, ui);
        buildVelmoVpnConsoleLoginWindowUi(*login, ui);
        buildVelmoVpnConsoleLoadingWindowUi(*loading, ui);
        velmoVpnConsoleRefreshEmailCompleter(ui.emailCompleter, history);
        velmoVpnConsoleWireEmailAssistance(ui, history);
    }
    void TearDown() override {
        console.reset(), login.reset(), loading.reset();
        kytest::GuiFixture::TearDown();
    }
    Display* d() const { return user->display(); }
    bool mapped(unsigned long w) {
        XWindowAttributes a{};
        return XGetWindowAttributes(d(), w, &a) && a.map_state == IsViewable;
    }
    unsigned long id(KyMainWindow& w) { return w.platformWindow()->nativeHandle(); }
    /// A real click in the middle of a widget of a shown window.
    void click(unsigned long window, KyWidget* w) {
        const KyRect r = w->rootRect();
        kytest::clickAt(*user, window, r.x + r.width / 2, r.y + r.height / 2);
    }
    void showLogin() {
        velmoVpnConsoleShowLoginShell(*console, login.get(), loading.get(), ui.emailCompleter);
        ASSERT_TRUE(runUntil([&] { return mapped(id(*login)); }));
    }

    KyList<KyString> history{"anna@velmo.io", "anton@example.net", "zoe@example.net"};
    std::unique_ptr<KyMainWindow> console, login, loading;
    VelmoVpnConsoleUi ui;
};

// (Return in the password field sends the form: the keyboard sign-in beside the real agent plays that.)
TEST_F(Shells, TabWalksTheLoginFormInReadingOrder) {
    showLogin();
    click(id(*login), ui.emailField);
    ASSERT_TRUE(runUntil([&] { return ui.emailField->hasFocus(); }));
    EXPECT_FALSE(ui.customBaseUrl->isChecked()) << "a sign-in goes to the default base URL unless the user asks";
    struct Row { const char* name; KyWidget* focused; };
    const Row rows[] = {{"password", ui.passwordField},
                        {"custom base URL box", ui.customBaseUrl},
                        {"base URL field", ui.baseUrlField},
                        {"Sign In", ui.signInButton},
                        {"wraps to the e-mail field", ui.emailField}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        user->tapKey(XK_Tab);
        EXPECT_TRUE(runUntil([&] { return row.focused->hasFocus(); }));
    }
    // Until the box is ticked, the base URL field takes no typing.
    const KyString url = ui.baseUrlField->getText();
    click(id(*login), ui.baseUrlField);
    user->typeText("x");
    user->tapKey(XK_Tab);  // handled after the typing
    ASSERT_TRUE(runUntil([&] { return ui.signInButton->hasFocus(); }));
    EXPECT_EQ(ui.baseUrlField->getText(), url);
}

TEST_F(Shells, EmailFieldOffersTheHistoryAndAChoiceMovesOnToThePassword) {
    showLogin();
    click(id(*login), ui.emailField);
    ASSERT_TRUE(runUntil([&] { return ui.emailCompleter->isPopupVisible(); })) << "focus did not show the history";
    EXPECT_EQ(ui.emailCompleter->completions(), history);

    user->typeText("ant");
    ASSERT_TRUE(runUntil([&] { return ui.emailCompleter->completions() == KyList<KyString>{"anton@example.net"}; }));
    user->tapKey(XK_Down);
    user->tapKey(XK_Return);
    EXPECT_TRUE(runUntil([&] { return ui.passwordField->hasFocus() && !ui.emailCompleter->isPopupVisible(); }));
    EXPECT_EQ(ui.emailField->getText(), "anton@example.net");

    // Back in the field and out again: the popup closes after the focus left.
    click(id(*login), ui.emailField);
    user->tapKey(XK_BackSpace);
    ASSERT_TRUE(runUntil([&] { return ui.emailCompleter->isPopupVisible(); }));
    click(id(*login), ui.passwordField);
    EXPECT_TRUE(runUntil([&] { return !ui.emailCompleter->isPopupVisible(); }));
}

TEST_F(Shells, AFailedStartIsReportedOnceInADarkBoxAtTheNextStart) {
    kytest::TempDir dir;
    const std::string state = dir.path().toStdString();
    kytest::ScopedEnv env{{"XDG_STATE_HOME", state.c_str()}};
    KyCrashHandler::setApplicationName("VelmoVpnConsole");
    KyCrashReport stale;
    KyCrashHandler::takeLastCrashReport(stale);
    velmoVpnConsolePersistStartupFailure("opening", "No platform integration available");

    // The box runs its own loop; a timer plays the user who reads and closes it.
    int boxes = 0;
    Window last = 0;
    KyColor page;
    const int timer = app->addTimer(
        [&] {
            const Window box = kytest::findWindowBelow(d(), DefaultRootWindow(d()), 0, 0, "VELMO VPN Console startup failure");
            if (!box) return;
            if (box != last) ++boxes, last = box;
            // Closed once it is painted: the frame's margin shows the page colour.
            page = user->pixel(box, 8, 120);
            if (page != KyColor(10, 22, 30)) return;
            XWindowAttributes a{};
            XGetWindowAttributes(d(), box, &a);
            int sx = 0, sy = 0;
            Window child = 0;
            XTranslateCoordinates(d(), box, DefaultRootWindow(d()), a.width / 2, a.height / 2, &sx, &sy, &child);
            user->fakeMotion(sx, sy);
            user->tapKey(XK_Return);
        },
        20000, false, KyFiberLaneDefault);
    // A box that never turns dark is closed by the deadline, and the check below fails.
    const int deadline = app->addTimer([&] { user->tapKey(XK_Escape); }, 10'000'000, true, KyFiberLaneDefault);
    velmoVpnConsoleShowLastCrashReport(nullptr);
    app->removeTimer(deadline);
    EXPECT_EQ(boxes, 1);
    EXPECT_EQ(page, KyColor(10, 22, 30)) << "the box is not in the console's palette";

    velmoVpnConsoleShowLastCrashReport(nullptr);
    EXPECT_EQ(boxes, 1) << "the report came back";
    app->removeTimer(timer);
}

} // namespace
