// The console's life as a user meets it, end to end: the real console and
// the real demo agent as child processes, a real tray (trayer) on the test's
// private X server, input through XTEST and the screen read back. The user's
// road runs through one window at a time: loading, then the login form,
// typed into from the keyboard, a refused password leaving no copy of itself
// behind, then the console. With no agent the loading window animates for
// ever and "Logout" does nothing; a remembered session goes straight to the
// console; closing the console window leaves the process in the tray until
// "Quit", which asks a live agent to stop; and the "VPNs" list selects and
// joins against the agent.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <vector>

#include "core/io/KyFile.h"
#include "../support/KyTestConsoleScreen.h"
#include "../support/KyTestSecret.h"

namespace {

using kytest::Child;
using kytest::MaskedSecret;
using namespace std::chrono_literals;

enum TrayRow { kShow, kLogout, kQuit };

class ConsoleLifecycle : public kytest::ConsoleScreenFixture {
protected:
    void SetUp() override {
        if (::access(kTrayer, X_OK) != 0) GTEST_SKIP() << "no tray manager installed (trayer)";
        ASSERT_TRUE(tray_.start(kTrayer, {"--edge", "top", "--align", "right", "--widthtype", "request", "--height", "24"}));
    }
    bool alive(Child& c) { return ::waitpid(c.pid(), nullptr, WNOHANG) == 0; }
    /// Opens the tray icon's menu with a click and clicks one of its rows.
    ::testing::AssertionResult pickFromTray(TrayRow row) {
        Window icon = 0, menu = 0;
        XWindowAttributes a{};
        if (!until([&] { return (icon = findWindow(0, 0, "tray", &a)) != 0; })) return ::testing::AssertionFailure() << "no tray icon";
        clickAt(icon, a.width / 2, a.height / 2);
        if (!until([&] { return (menu = findWindow(0, 0, "menu", &a)) != 0; })) return ::testing::AssertionFailure() << "no menu";
        clickAt(menu, a.width / 2, a.height * (2 * row + 1) / 6);  // three rows of one height
        if (!until([&] { return !findWindow(0, 0, "menu"); })) return ::testing::AssertionFailure() << "menu stayed";
        return ::testing::AssertionSuccess();
    }
    /// Closes the console window as a window manager's close button does:
    /// the window goes, the process and its tray icon stay.
    void closeToTray(Window window, Child& console) {
        XEvent e{};
        e.xclient = {ClientMessage, 0, True, user_.display(), window, user_.atom("WM_PROTOCOLS"), 32, {}};
        e.xclient.data.l[0] = long(user_.atom("WM_DELETE_WINDOW"));
        XSendEvent(user_.display(), window, False, NoEventMask, &e);
        XSync(user_.display(), False);
        EXPECT_TRUE(until([&] { return !findWindow(1260, 820, "VELMO VPN Console"); }));
        EXPECT_TRUE(alive(console));
        EXPECT_NE(findWindow(0, 0, "tray"), 0u) << "the tray icon went with the window";
        domain_.observe();  // every channel of the run, for the clean-up after the processes
    }
    /// "Quit" from the tray ends the console cleanly, whatever became of its agent.
    void quitFromTray(Child& console) {
        ASSERT_TRUE(pickFromTray(kQuit));
        EXPECT_EQ(console.finish(30s), 0) << console.err();
        EXPECT_EQ(console.err().find("WARNING: Backend shutdown request failed"), std::string::npos) << console.err();
    }
    /// Clicks into the top-most input field of the mapped top-level window of
    /// this size (the first row with a long run of the input background),
    /// once it is painted: the keys that follow go to that field whatever
    /// the console's own focus does meanwhile. Without a window manager the
    /// keyboard follows the pointer, which stays there.
    bool clickFirstField(int width, int height) {
        const KyColor input(11, 24, 31);
        return until([&] {
            const Window window = findWindow(width, height);
            if (!window) return false;
            const std::vector<std::uint32_t> pixels = user_.pixels(window, {0, 0, width, height});
            for (int y = 0; pixels.size() == static_cast<size_t>(width) * height && y < height; ++y) {
                for (int x = 0, run = 0; x < width; ++x) {
                    run = KyColor::fromRgb(pixels[static_cast<size_t>(y) * width + x]) == input ? run + 1 : 0;
                    if (run == width / 2) return clickAt(window, x - run / 2, y + 4), true;
                }
            }
            return false;
        });
    }
    /// How many pixels of r in window w have colour c.
    int pixelsOf(Window w, const KyRect& r, KyColor c) {
        int n = 0;
        for (std::uint32_t p : user_.pixels(w, r)) n += KyColor::fromRgb(p) == c;
        return n;
    }
    /// The row tiles of a list in area of the console window, top to bottom:
    /// runs of a tile's fill down a column just inside the tiles' left edge.
    std::vector<KyRect> tiles(Window w, const KyRect& area) {
        const std::set<std::uint32_t> fills = {0x13242E, 0x162934, 0x172B36, 0x282D2D, 0x2E312E};
        const std::vector<std::uint32_t> px = user_.pixels(w, area);
        std::vector<int> perColumn(area.width);
        for (size_t i = 0; i < px.size(); ++i) perColumn[i % area.width] += fills.count(px[i]);
        const int most = *std::max_element(perColumn.begin(), perColumn.end());
        int left = 0, right = area.width - 1;
        while (left < right && perColumn[left] < most * 4 / 5) ++left;
        while (right > left && perColumn[right] < most * 4 / 5) --right;
        std::vector<KyRect> out;
        for (int y = 0, top = -1; most > 0 && y <= area.height; ++y) {
            const bool in = y < area.height && fills.count(px[size_t(y) * area.width + left + 4]);
            if (in && top < 0) top = y;
            if (!in && top >= 0 && y - top >= 30) out.push_back({area.x + left, area.y + top, right - left, y - top});
            if (!in) top = -1;
        }
        return out;
    }

    static constexpr const char* kTrayer = "/usr/bin/trayer";
    Child tray_;
};

TEST_F(ConsoleLifecycle, FromTheKeyboardSignInToAJoinedVpnOneShellAtATimeAndNoCopyOfARefusedPassword) {
    Child agent, console;
    ASSERT_TRUE(startBound(agent, console));
    // The loading window comes first; the login form after the grace time, alone.
    ASSERT_TRUE(console.waitForError("shell: loading", 30s)) << console.err();
    ASSERT_TRUE(console.waitForError("shell: login", 30s)) << console.err();
    ASSERT_TRUE(clickFirstField(440, 530));
    EXPECT_TRUE(until([&] { return !findWindow(340, 300, "VELMO VPN"); })) << "the loading window stayed";

    // The e-mail field first, Tab to the password; Return sends the form.
    const MaskedSecret secret;
    user_.typeText("demo@velmo.net");
    user_.tapKey(XK_Tab);
    user_.typeText(secret.plain().toStdString());
    user_.tapKey(XK_Return);
    ASSERT_TRUE(console.waitForError("auth: Invalid e-mail or password.", 30s)) << console.err();
#if !defined(__SANITIZE_ADDRESS__)
    // (Under the sanitizer the address space is terabytes: the plain build scans.)
    EXPECT_FALSE(secret.inMemoryOf(std::to_string(console.pid())));
#endif
    EXPECT_FALSE(secret.inSharedMemory());
    EXPECT_FALSE(secret.in(console.err()));

    // The keyboard is back on the emptied password field.
    user_.typeText("velmo-demo");
    user_.tapKey(XK_Return);
    ASSERT_TRUE(console.waitForError("shell: console", 30s)) << console.err();
    Window w = 0;
    ASSERT_TRUE(until([&] {
        return (w = findWindow(1260, 820, "VELMO VPN Console")) && !findWindow(440, 530, "VELMO VPN");
    })) << "the login window stayed beside the console";

    // On the "VPNs" page: a row selects and loads its users, its switch joins it.
    ASSERT_TRUE(console.waitForError("catalog: VPN catalog ready", 30s)) << console.err();
    user_.fakeMotion(1599, 999);  // off the window: no row is hovered
    const KyRect catalogArea{0, 100, 630, 600}, usersArea{630, 100, 630, 600};
    std::vector<KyRect> rows;
    ASSERT_TRUE(until([&] { return (rows = tiles(w, catalogArea)).size() >= 2; }));
    EXPECT_TRUE(tiles(w, usersArea).empty());

    const KyRect vpn = rows[1];
    clickAt(w, vpn.x + 140, vpn.y + vpn.height / 2);
    EXPECT_TRUE(console.waitForError("endpoints: VPN users ready", 30s)) << console.err();
    user_.fakeMotion(1599, 999);
    EXPECT_TRUE(until([&] { return !tiles(w, usersArea).empty(); })) << "no user rows appeared";

    // The agent held still: the row pulses while the join is under way.
    ASSERT_TRUE(kytest::stopOutsideCriticalSections(agent.pid(), domain_));
    clickAt(w, vpn.x + vpn.width - 34, vpn.y + vpn.height / 2);
    const KyColor joining(44, 40, 36), connected(22, 52, 48);
    EXPECT_TRUE(until([&] { return pixelsOf(w, vpn, joining) > 20; })) << "no JOINING tag";
    agent.sendSignal(SIGCONT);
    EXPECT_TRUE(console.waitForError("  |  Local VPN ", 30s)) << console.err();
    EXPECT_TRUE(until([&] { return pixelsOf(w, vpn, connected) > 20 && pixelsOf(w, vpn, joining) == 0; }))
        << "no CONNECTED tag";

    // With the keyboard in the list, Ctrl+Page Down leaves the page and Ctrl+Shift+Tab comes back.
    user_.tapKey(XK_Next, XK_Control_L);
    EXPECT_TRUE(until([&] { return tiles(w, catalogArea).empty(); })) << "Ctrl+Page Down kept the VPNs page";
    user_.tapKey(XK_Tab, {XK_Control_L, XK_Shift_L});
    EXPECT_TRUE(until([&] { return !tiles(w, catalogArea).empty(); })) << "Ctrl+Shift+Tab did not come back";

    // Closed to the tray, then the agent goes (cleanly: a killed one leaves its
    // channels to the next agent): "Quit" has no one to ask and still ends well.
    closeToTray(w, console);
    agent.sendSignal(SIGTERM);
    EXPECT_EQ(agent.finish(30s), 0);
    quitFromTray(console);
}

TEST_F(ConsoleLifecycle, WithoutAnAgentTheLoadingWindowAnimatesAndLogoutDoesNothing) {
    Child console;
    ASSERT_TRUE(startConsole(console)) << console.err();
    Window loading = 0;
    ASSERT_TRUE(until([&] { return (loading = findWindow(340, 300, "VELMO VPN")) != 0; }));
    // The lower half, under the ring, holds the status line: its dots keep counting.
    std::set<std::vector<std::uint32_t>> frames;
    EXPECT_TRUE(until([&] { return frames.insert(user_.pixels(loading, {0, 150, 340, 150})), frames.size() >= 3; }));

    ASSERT_TRUE(pickFromTray(kLogout));
    ASSERT_TRUE(pickFromTray(kQuit));  // runs after Logout: what Logout did is in the trail by then
    EXPECT_EQ(console.finish(30s), 0) << console.err();
    EXPECT_EQ(count(console.err(), "auth: "), 1u) << console.err();
    EXPECT_EQ(console.err().find("shell: login"), std::string::npos) << console.err();
    EXPECT_EQ(console.err().find("Requesting backend shutdown"), std::string::npos);
}

TEST_F(ConsoleLifecycle, ARememberedSessionOpensTheConsoleAndQuitFromTheTrayStopsTheAgent) {
    Child first, agent, console;
    ASSERT_TRUE(startAgent(first)) << first.err();
    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    ASSERT_TRUE(until([&] { return KyFile::exists(home_.path() + "/agent/session.json"); }));
    first.sendSignal(SIGTERM);
    ASSERT_EQ(first.finish(30s), 0) << first.err();

    ASSERT_TRUE(startBound(agent, console));  // the new agent restores the session the first one remembered
    bool loginSeen = false;
    Window w = 0;
    ASSERT_TRUE(until([&] {
        loginSeen = loginSeen || findWindow(440, 530, "VELMO VPN");
        return (w = findWindow(1260, 820, "VELMO VPN Console")) != 0;
    }));
    EXPECT_FALSE(loginSeen);
    EXPECT_EQ(console.err().find("shell: login"), std::string::npos) << console.err();

    // Closing the window keeps the console in the tray; "Quit" asks the live agent to stop.
    closeToTray(w, console);
    quitFromTray(console);
    EXPECT_EQ(agent.finish(30s), 0) << "the agent was not asked to stop";
    EXPECT_NE(agent.out().find("velmo-demo-agent stopped"), std::string::npos) << agent.out();
}

}  // namespace
