// Top-level windows, dialogs, menus, shortcuts, tool tips and the tray on a
// private Xvfb, driven through XTEST: the main window's start-up guard and
// its window-manager close, a message box's result and its signals, menu keys
// and the chain closing on an outside press, exact shortcut modifiers, the
// tool tip's life, and the tray icon docking into a real tray manager.
#include <unistd.h>

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

// The widget headers come before the X ones: Xlib's macros would spoil them.
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyMenuBar.h"
#include "gui/widgets/KyMessageBox.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyShortcut.h"
#include "gui/widgets/KySystemTrayIcon.h"
#include "gui/widgets/KyToolTip.h"
#include "../../support/KyTestProcess.h"
#include "../../support/KyTestX11.h"

#include <X11/keysym.h>

namespace {

class Probe : public KyWidget {
public:
    Probe(KyWidget* parent, KyRect g) : KyWidget(parent) { setGeometry(g); }
    int presses = 0;
    void mousePressEvent(MouseEvent* e) override { ++presses, e->accept(); }
};

class Closable : public KyMainWindow {
public:
    explicit Closable(bool refuse) : KyMainWindow(L"closable", 300, 200), refuse_(refuse) {}
    int closes = 0;
    void closeEvent(CloseEvent* e) override {
        ++closes;
        if (refuse_) e->ignore();
    }

private:
    bool refuse_;
};

struct Windows : kytest::GuiFixture {
    void TearDown() override {
        KyToolTip::hide_();
        kytest::GuiFixture::TearDown();
    }
    Display* d() const { return user->display(); }
    bool mapped(unsigned long w) {
        XWindowAttributes a{};
        return XGetWindowAttributes(d(), w, &a) && a.map_state == IsViewable;
    }
    KyPoint onScreen(unsigned long w, int x, int y) {
        int sx = 0, sy = 0;
        Window child = 0;
        XTranslateCoordinates(d(), w, DefaultRootWindow(d()), x, y, &sx, &sy, &child);
        return {sx, sy};
    }
    void tap(KeySym sym, const std::vector<KeySym>& mods = {}) { user->tapKey(sym, mods); }
    void click(KyPoint screen, unsigned button = 1) {
        user->fakeMotion(screen.x, screen.y);
        user->fakeButton(button, true);
        user->fakeButton(button, false);
    }
    /// Shows w and parks the pointer on it, so that keys reach it.
    void showAndPoint(KyMainWindow& w) {
        w.show();
        const unsigned long id = w.platformWindow()->nativeHandle();
        ASSERT_TRUE(runUntil([&] { return mapped(id); }));
        const KyPoint p = onScreen(id, w.width() - 5, w.height() - 5);
        user->fakeMotion(p.x, p.y);
    }
    /// Runs fn once the dialog's native window is on screen (exec is waiting by then).
    void whenMapped(KyDialog& box, std::function<void()> fn) {
        auto id = std::make_shared<int>(0);
        *id = app->addTimer(
            [this, &box, id, fn] {
                if (!*id || !box.platformWindow() || !mapped(box.platformWindow()->nativeHandle())) return;
                app->removeTimer(*id);
                *id = 0;
                fn();
            },
            10000, false, KyFiberLaneDefault);
    }
};

TEST(MainWindowStart, CreatingOneBeforeTheApplicationRaises) {
    try {
        KyMainWindow w(L"early", 100, 100);
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "KyGuiApplication instance must exist before creating KyMainWindow.");
    }
}

TEST_F(Windows, WindowManagerCloseAsksCloseEventAndOnlyAnAcceptedOneEndsTheApplication) {
    struct Row {
        const char* name;
        bool refuse;
    };
    // The accepting row stops the loop, so it comes last.
    for (const Row& row : {Row{"refused close leaves the window open", true}, Row{"accepted close ends the loop", false}}) {
        SCOPED_TRACE(row.name);
        std::wostringstream out;
        std::wstreambuf* old = std::wcout.rdbuf(out.rdbuf());
        Closable w(row.refuse);
        showAndPoint(w);
        const unsigned long id = w.platformWindow()->nativeHandle();
        user->sendClientMessage(id, static_cast<long>(user->atom("WM_DELETE_WINDOW")));
        EXPECT_TRUE(runUntil([&] { return w.closes == 1 && (row.refuse || !app->isRunning()); }));
        std::wcout.rdbuf(old);
        if (row.refuse) {
            EXPECT_TRUE(mapped(id));
        }
        EXPECT_EQ(app->isRunning(), row.refuse);
        EXPECT_EQ(out.str(), row.refuse ? L"" : L"MainWindow is being deleted.\n");
    }
}

TEST_F(Windows, MessageBoxExecReturnsTheChosenCode) {
    struct Row {
        const char* name;
        std::function<void(Windows&, KyMessageBox&)> choose;
        int code;
    };
    const Row rows[] = {
        {"a click on the primary button", [](Windows& t, KyMessageBox& b) {
             KyPushButton* ok = b.buttons().last();
             const KyRect r = ok->rootRect();
             t.click(t.onScreen(b.platformWindow()->nativeHandle(), r.x + r.width / 2, r.y + r.height / 2));
         }, 7},
        {"Escape", [](Windows& t, KyMessageBox&) { t.tap(XK_Escape); }, 0},
        {"Return presses the default button", [](Windows& t, KyMessageBox&) { t.tap(XK_Return); }, 7},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KyMessageBox box;
        box.setIcon(KyMessageBox::Warning);
        box.setWindowTitle("Disconnect");
        box.setText("Leave the VPN?");
        box.addButton("Stay", 0);
        box.addButton("Leave", 7, true);
        whenMapped(box, [&] {
            user->fakeMotion(30, 30);
            row.choose(*this, box);
        });
        EXPECT_EQ(box.exec(), row.code);
        // The unmap travels on the box's connection: wait for the server to have it.
        EXPECT_TRUE(runUntil([&] { return !mapped(box.platformWindow()->nativeHandle()); }));
    }
}

TEST_F(Windows, DoneTwiceEmitsOnceAndTheBoxCanRunAgain) {
    KyMessageBox box;
    box.setText("Retry?");
    std::vector<int> finished;
    int accepted = 0, rejected = 0, shown = 0;
    KyObject::connect(&box, &KyDialog::finished, [&](int c) { finished.push_back(c); });
    KyObject::connect(&box, &KyDialog::accepted, [&] { ++accepted; });
    KyObject::connect(&box, &KyDialog::rejected, [&] { ++rejected; });
    KyObject::connect(&box, &KyDialog::shown, [&] {
        if (++shown == 1) box.done(1), box.done(3);
    });
    EXPECT_EQ(box.exec(), 1);
    EXPECT_EQ(finished, std::vector<int>{1});
    whenMapped(box, [&] {
        user->fakeMotion(30, 30);
        tap(XK_Escape);
    });
    EXPECT_EQ(box.exec(), 0);
    EXPECT_EQ(finished, (std::vector<int>{1, 0}));
    EXPECT_EQ(accepted, 1);
    EXPECT_EQ(rejected, 1);
    EXPECT_EQ(box.buttons().size(), 1u) << "the default Cancel, made once";
}

TEST_F(Windows, MenuKeysSkipSeparatorsAndDisabledRowsAndWrap) {
    KyMainWindow w(L"menus", 480, 320);
    w.ensureChrome();
    KyMenu* file = w.menuBar()->addMenu("File");
    file->addAction("Open");
    file->addSeparator();
    file->addAction("Save");
    file->addAction("Quit")->setEnabled(false);
    showAndPoint(w);
    struct Row {
        const char* name;
        std::vector<KeySym> keys;
        int current;
    };
    const Row rows[] = {
        {"Down from no row takes the first", {XK_Down}, 0},
        {"Down skips the separator", {XK_Down, XK_Down}, 2},
        {"Up on the first row wraps to the last enabled", {XK_Down, XK_Up}, 2},
        {"Down on the last enabled wraps to the first", {XK_Down, XK_Down, XK_Down}, 0},
        {"Up from no row takes the last enabled", {XK_Up}, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        w.menuBar()->openMenu(0);
        ASSERT_TRUE(file->isVisible());
        std::vector<int> seen;
        for (KeySym k : row.keys) {
            const std::size_t before = seen.size();
            tap(k);
            ASSERT_TRUE(runUntil([&] {
                if (file->currentRow() >= 0 && (seen.empty() || seen.back() != file->currentRow() || row.keys.size() == 1))
                    seen.push_back(file->currentRow());
                return seen.size() > before;
            }));
            EXPECT_FALSE(file->actions()[seen.back()]->getSeparator());
        }
        EXPECT_EQ(file->currentRow(), row.current);
        tap(XK_Escape);
        ASSERT_TRUE(runUntil([&] { return !file->isVisible(); }));
    }
}

TEST_F(Windows, PressOutsideAPopupClosesItsWholeChainAndGoesNoFurther) {
    KyMainWindow w(L"chain", 480, 320);
    auto* probe = new Probe(&w, {380, 220, 80, 80});
    KyMenu menu("context", &w);
    menu.addAction("Copy");
    KyMenu* more = menu.addMenu("More");
    more->addAction("Details");
    showAndPoint(w);
    menu.popup(20, 20);
    tap(XK_Down), tap(XK_Down), tap(XK_Right);
    ASSERT_TRUE(runUntil([&] { return more->isVisible(); }));
    click(onScreen(w.platformWindow()->nativeHandle(), 420, 260));
    EXPECT_TRUE(runUntil([&] { return !menu.isVisible() && !more->isVisible(); }));
    EXPECT_EQ(probe->presses, 0);
}

TEST_F(Windows, ShortcutModifiersMustMatchExactly) {
    KyMainWindow w(L"keys", 300, 200);
    KyShortcut quit(&w, "Ctrl+Q");
    KyShortcut sentinel(&w, "F5");
    int fired = 0, sentinels = 0;
    KyObject::connect(&quit, &KyShortcut::activated, [&] { ++fired; });
    KyObject::connect(&sentinel, &KyShortcut::activated, [&] { ++sentinels; });
    showAndPoint(w);
    struct Row {
        const char* name;
        std::vector<KeySym> mods;
        int fires;
    };
    for (const Row& row : {Row{"Ctrl+Q fires", {XK_Control_L}, 1}, Row{"Ctrl+Shift+Q does not", {XK_Control_L, XK_Shift_L}, 0},
                           Row{"Q alone does not", {}, 0}, Row{"Alt+Ctrl+Q does not", {XK_Alt_L, XK_Control_L}, 0}}) {
        SCOPED_TRACE(row.name);
        fired = 0;
        const int before = sentinels;
        tap(XK_q, row.mods);
        // F5 comes after: once it has fired the combination was seen too.
        tap(XK_F5);
        ASSERT_TRUE(runUntil([&] { return sentinels > before; }));
        EXPECT_EQ(fired, row.fires);
    }
}

TEST_F(Windows, ToolTipAppearsWhereThePointerRestsAndAKeyHidesIt) {
    KyMainWindow w(L"tips", 400, 260);
    auto* target = new Probe(&w, {40, 60, 140, 40});
    target->setToolTips("Connect to the selected VPN");
    KyToolTip::setDelay(30);
    showAndPoint(w);
    const unsigned long id = w.platformWindow()->nativeHandle();
    const KyPoint p = onScreen(id, 60, 70);
    user->fakeMotion(p.x, p.y);
    user->fakeMotion(p.x + 1, p.y);
    ASSERT_TRUE(runUntil([] { return KyToolTip::instance()->isShown(); }));
    const KyRect tip = KyToolTip::instance()->popup()->rootRect();
    EXPECT_GT(tip.y, 70) << "below the pointer";
    EXPECT_TRUE(runUntil([&] { return user->pixel(id, tip.x + 3, tip.y + tip.height / 2) == KyColor(255, 255, 255); }));
    tap(XK_Shift_L);
    EXPECT_TRUE(runUntil([] { return !KyToolTip::instance()->isShown(); }));
    EXPECT_TRUE(runUntil([&] { return user->pixel(id, tip.x + 3, tip.y + tip.height / 2) == KyColor(249, 249, 249); }));

    // A window running off the screen's right edge keeps the whole tip on the screen.
    const int screenWidth = DisplayWidth(d(), DefaultScreen(d()));
    w.platformWindow()->move(screenWidth - 200, 100);
    ASSERT_TRUE(runUntil([&] { return onScreen(id, 0, 0).x == screenWidth - 200; }));
    for (KyPoint at : {onScreen(id, 10, 10), onScreen(id, 170, 70)}) user->fakeMotion(at.x, at.y);
    ASSERT_TRUE(runUntil([] { return KyToolTip::instance()->isShown(); }));
    const KyRect moved = KyToolTip::instance()->popup()->rootRect();
    EXPECT_LE(onScreen(id, moved.x + moved.width, 0).x, screenWidth);
    EXPECT_GE(onScreen(id, moved.x, 0).x, screenWidth - 200);
}

TEST_F(Windows, TrayIconDocksReDocksAfterTheTrayRestartsAndItsMenuRuns) {
    const char* trayer = "/usr/bin/trayer";
    if (::access(trayer, X_OK) != 0) GTEST_SKIP() << "no tray manager installed (trayer); the tray test needs one";
    const std::vector<std::string> args = {"--edge", "top", "--align", "right", "--widthtype", "request", "--height", "24"};
    auto tray = std::make_unique<kytest::Child>();
    ASSERT_TRUE(tray->start(trayer, args));
    KySystemTrayIcon icon;
    KyPlatformIcon image{16, 16, std::vector<std::uint32_t>(256, 0xFF2E7D32u)};
    icon.setIcon(image);
    icon.setToolTip("VELMO VPN Console");
    bool quit = false;
    icon.addAction("Show", [] {});
    icon.addAction("Quit", [&] { quit = true; });
    icon.show();
    const unsigned long id = icon.trayWindow()->platformWindow()->nativeHandle();
    auto parentOf = [&] {
        Window root = 0, parent = 0, *kids = nullptr;
        unsigned n = 0;
        if (!XQueryTree(d(), id, &root, &parent, &kids, &n)) return Window(0);
        if (kids) XFree(kids);
        return parent == root ? Window(0) : parent;
    };
    ASSERT_TRUE(runUntil([&] { return icon.isDocked() && parentOf() != 0 && mapped(id); })) << "never docked";

    tray.reset(); // the tray goes away...
    ASSERT_TRUE(runUntil([&] { return !icon.isDocked(); }));
    tray = std::make_unique<kytest::Child>();
    ASSERT_TRUE(tray->start(trayer, args)); // ...and a new one takes the icon back
    ASSERT_TRUE(runUntil([&] { return icon.isDocked() && parentOf() != 0 && mapped(id); })) << "not docked again";

    // The new tray may still be placing the icon when it reports it docked:
    // a click that lands before that is lost, so click again until the menu opens.
    auto nextClick = std::chrono::steady_clock::now();
    ASSERT_TRUE(runUntil([&] {
        if (icon.contextMenu()->isVisible()) return true;
        if (std::chrono::steady_clock::now() >= nextClick) {
            XWindowAttributes a{};
            XGetWindowAttributes(d(), id, &a);
            click(onScreen(id, a.width / 2, a.height / 2));
            nextClick = std::chrono::steady_clock::now() + std::chrono::milliseconds(700);
        }
        return false;
    }));
    KyMenu::PopupList* list = icon.contextMenu()->popupList();
    const KyRect row = icon.contextMenu()->rowRects()[1];
    click(onScreen(list->nativeHandle().window, row.x + 20, row.y + row.height / 2));
    EXPECT_TRUE(runUntil([&] { return quit; }));
    EXPECT_FALSE(icon.contextMenu()->isVisible());
}

} // namespace
