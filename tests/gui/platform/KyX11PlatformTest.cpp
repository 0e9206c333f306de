// The X11 window and its event pump on a private Xvfb: what a window looks
// like to the server, input sent through the server and what the callbacks
// receive, the close question, the expose tracker, failures, and an idle loop.
#include <X11/Xatom.h>
#include <X11/keysym.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "../../support/KyTestX11.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/platform/KyX11PlatformIntegration.h"

namespace {

using kytest::GuiFixture;

// Everything the callbacks saw, in order.
struct Recorder {
    std::vector<KyMouseEvent> pressed, doubled, released, moved, wheeled;
    std::vector<KyKeyEvent> keys;
    std::vector<KyPlatformPaintEvent> paints;
    int left = 0, deletes = 0;
    bool allowClose = true;

    KyWindowCallbacks callbacks() {
        KyWindowCallbacks c;
        c.mousePressed = [this](KyMouseEvent e) { pressed.push_back(e); };
        c.mouseDoubleClicked = [this](KyMouseEvent e) { doubled.push_back(e); };
        c.mouseReleased = [this](KyMouseEvent e) { released.push_back(e); };
        c.mouseMoved = [this](KyMouseEvent e) { moved.push_back(e); };
        c.wheelRotated = [this](KyMouseEvent e) { wheeled.push_back(e); };
        c.keyPressed = [this](KyKeyEvent e) { keys.push_back(e); };
        c.mouseLeft = [this] { ++left; };
        c.deleteRequested = [this] { ++deletes; };
        c.closeAllowed = [this] { return allowClose; };
        c.paintRequested = [this](KyPlatformPaintEvent e) { paints.push_back(e); };
        return c;
    }
};

struct X11Window : GuiFixture {
    void SetUp() override {
        GuiFixture::SetUp();
        window = showWindow(rec.callbacks());
        id = window->nativeHandle();
    }
    // Sends a motion as the last event and waits for it: everything sent before has been handled.
    void barrier() {
        const std::size_t before = rec.moved.size();
        user->sendMotion(id, 1, 1);
        ASSERT_TRUE(runUntil([&] { return rec.moved.size() > before; }));
    }
    Recorder rec;
    std::unique_ptr<KyPlatformWindow> window;
    Window id = 0;
};

TEST_F(X11Window, WindowShowsTheAdvertisedFaceToTheServer) {
    Display* d = user->display();
    XWindowAttributes attributes{};
    ASSERT_TRUE(XGetWindowAttributes(d, id, &attributes));
    EXPECT_EQ(attributes.all_event_masks, 0x2806F);
    Atom* protocols = nullptr;
    int count = 0;
    ASSERT_TRUE(XGetWMProtocols(d, id, &protocols, &count));
    ASSERT_EQ(count, 1);
    EXPECT_EQ(protocols[0], user->atom("WM_DELETE_WINDOW"));
    XFree(protocols);
    XSizeHints hints{};
    long supplied = 0;
    EXPECT_FALSE(XGetWMNormalHints(d, id, &hints, &supplied)) << "no size hints are ever set";
    Window transientFor = 0;
    EXPECT_FALSE(XGetTransientForHint(d, id, &transientFor));
    char* title = nullptr;
    ASSERT_TRUE(XFetchName(d, id, &title));
    EXPECT_STREQ(title, "ky-test");
    XFree(title);
    // Nothing painted yet: the window shows its background.
    EXPECT_EQ(user->pixel(id, 100, 100), KyColor::fromRgb(0xF9F9F9u));

    auto tiny = platform()->createWindow("tiny", 0, -5, {}, {});
    XSync(static_cast<Display*>(tiny->nativeDisplay()), False);
    ASSERT_TRUE(XGetWindowAttributes(d, tiny->nativeHandle(), &attributes));
    EXPECT_EQ(attributes.width, 1);
    EXPECT_EQ(attributes.height, 1);
    EXPECT_EQ(platform()->availableScreens(), KyList<KyString>{"Screen 0 (1600x1000)"});
    EXPECT_EQ(platform()->name(), "x11");
}

struct Press {
    unsigned button;
    int x, y;
    Time afterMs; ///< after the previous press of the row
};
struct ClickRow { const char* name; std::vector<Press> presses; std::vector<int> clickCounts; };

TEST_F(X11Window, DoubleClicksFollowTimeDistanceAndButton) {
    const std::vector<ClickRow> rows = {
        {"250 ms apart is a double click", {{1, 40, 40, 0}, {1, 40, 40, 250}}, {1, 2}},
        {"251 ms apart is two clicks", {{1, 40, 40, 0}, {1, 40, 40, 251}}, {1, 1}},
        {"2 px off in both axes is a double click", {{1, 40, 40, 0}, {1, 42, 38, 100}}, {1, 2}},
        {"3 px off in x alone breaks it", {{1, 40, 40, 0}, {1, 43, 40, 100}}, {1, 1}},
        {"another button breaks it", {{1, 40, 40, 0}, {3, 40, 40, 100}}, {1, 1}},
        {"a third quick press is a double click again", {{1, 40, 40, 0}, {1, 40, 40, 200}, {1, 40, 40, 200}}, {1, 2, 2}},
    };
    Time time = 100000;
    for (const ClickRow& row : rows) {
        SCOPED_TRACE(row.name);
        rec.pressed.clear();
        rec.doubled.clear();
        time += 10000; // each row starts long after the last press of the one before
        for (const Press& p : row.presses) {
            time += p.afterMs;
            user->sendButton(id, true, p.button, p.x, p.y, time);
            user->sendButton(id, false, p.button, p.x, p.y, time + 1);
        }
        ASSERT_TRUE(runUntil([&] { return rec.pressed.size() == row.presses.size(); }));
        std::vector<int> counts;
        int doubles = 0;
        for (const KyMouseEvent& e : rec.pressed) {
            counts.push_back(e.clickCount);
            doubles += e.clickCount == 2;
        }
        EXPECT_EQ(counts, row.clickCounts);
        EXPECT_EQ(static_cast<int>(rec.doubled.size()), doubles);
    }
}

TEST_F(X11Window, ButtonsMapRightBelowMiddleAndReleasesCountOne) {
    const struct {
        unsigned xButton;
        int button;
    } rows[] = {{1, 1}, {2, 3}, {3, 2}, {8, 4}};
    Time time = 500000;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.xButton);
        rec.pressed.clear();
        rec.released.clear();
        time += 10000;
        user->sendButton(id, true, row.xButton, 10, 20, time);
        user->sendButton(id, false, row.xButton, 10, 20, time + 5);
        ASSERT_TRUE(runUntil([&] { return rec.released.size() == 1; }));
        ASSERT_EQ(rec.pressed.size(), 1u);
        EXPECT_EQ(rec.pressed[0].button, row.button);
        EXPECT_EQ(rec.released[0].button, row.button);
        EXPECT_EQ(rec.released[0].clickCount, 1);
        EXPECT_EQ(rec.released[0].x, 10);
        EXPECT_EQ(rec.released[0].y, 20);
    }
}

TEST_F(X11Window, WheelTurnsOnPressOnlyAndItsReleaseIsButtonFour) {
    user->fakeMotion(60, 60);
    for (unsigned button : {4u, 5u}) {
        SCOPED_TRACE(button);
        rec.wheeled.clear();
        rec.released.clear();
        user->fakeButton(button, true);
        user->fakeButton(button, false);
        ASSERT_TRUE(runUntil([&] { return rec.released.size() == 1; }));
        ASSERT_EQ(rec.wheeled.size(), 1u);
        EXPECT_EQ(rec.wheeled[0].wheelDelta, button == 4 ? 120 : -120);
        EXPECT_EQ(rec.released[0].button, 4);
    }
    EXPECT_TRUE(rec.pressed.empty()) << "a wheel press is nothing but a wheel turn";
}

TEST_F(X11Window, ModifiersComeFromShiftControlAndMod1Only) {
    const struct {
        unsigned state;
        bool shift, ctrl, alt;
    } rows[] = {{ShiftMask, true, false, false},
                {ControlMask, false, true, false},
                {Mod1Mask, false, false, true},
                {LockMask | Mod2Mask | Mod4Mask, false, false, false},
                {ShiftMask | ControlMask | Mod1Mask, true, true, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.state);
        rec.moved.clear();
        user->sendMotion(id, 7, 9, row.state);
        ASSERT_TRUE(runUntil([&] { return !rec.moved.empty(); }));
        EXPECT_EQ(rec.moved[0].shift, row.shift);
        EXPECT_EQ(rec.moved[0].ctrl, row.ctrl);
        EXPECT_EQ(rec.moved[0].alt, row.alt);
        EXPECT_EQ(rec.moved[0].button, 0);
        EXPECT_EQ(rec.moved[0].x, 7);
    }
}

// Puts keysym on a keycode that has none, as a user's keyboard layout would.
KeySym mapSpareKey(Display* d, KeySym keysym) {
    int minCode = 0, maxCode = 0, perCode = 0;
    XDisplayKeycodes(d, &minCode, &maxCode);
    KeySym* map = XGetKeyboardMapping(d, static_cast<KeyCode>(minCode), maxCode - minCode + 1, &perCode);
    KeySym result = NoSymbol;
    for (int code = maxCode; code >= minCode && result == NoSymbol; --code) {
        const KeySym* syms = map + (code - minCode) * perCode;
        if (std::any_of(syms, syms + perCode, [](KeySym s) { return s != NoSymbol; })) continue;
        KeySym both[2] = {keysym, keysym};
        XChangeKeyboardMapping(d, code, 2, both, 1);
        XSync(d, False);
        result = keysym;
    }
    XFree(map);
    return result;
}

TEST_F(X11Window, KeysTypeTextUnlessControlOrAltIsHeld) {
    ASSERT_NE(mapSpareKey(user->display(), XK_eacute), NoSymbol);
    ASSERT_NE(mapSpareKey(user->display(), 0x0100043F), NoSymbol); // CYRILLIC SMALL LETTER PE
    ASSERT_NE(mapSpareKey(user->display(), XK_Cyrillic_ZHE), NoSymbol);
    ASSERT_NE(mapSpareKey(user->display(), XK_Greek_finalsmallsigma), NoSymbol);
    const struct {
        const char* name;
        KeySym keysym;
        unsigned state;
        bool hasText;
        wchar_t text;
    } rows[] = {
        {"a letter", XK_a, 0, true, L'a'},
        {"Shift makes it upper case", XK_a, ShiftMask, true, L'A'},
        {"Control suppresses text", XK_a, ControlMask, false, 0},
        {"Alt suppresses text", XK_a, Mod1Mask, false, 0},
        {"an accented letter", XK_eacute, 0, true, L'\u00E9'},
        {"a Unicode keysym", 0x0100043F, 0, true, L'\u043F'},
        {"a Russian layout's letter", XK_Cyrillic_ZHE, 0, true, L'\u0416'},
        {"a Greek layout's letter", XK_Greek_finalsmallsigma, 0, true, L'\u03C2'},
        {"a key that types nothing", XK_Left, 0, false, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        rec.keys.clear();
        user->sendKey(id, true, row.keysym, row.state);
        ASSERT_TRUE(runUntil([&] { return !rec.keys.empty(); }));
        EXPECT_EQ(rec.keys[0].hasText, row.hasText);
        if (row.hasText) {
            EXPECT_EQ(rec.keys[0].text, row.text);
        }
        EXPECT_EQ(rec.keys[0].ctrl, (row.state & ControlMask) != 0);
        if (row.state == 0) {
            EXPECT_EQ(rec.keys[0].keyCode, static_cast<int>(row.keysym));
        }
    }
}

TEST_F(X11Window, OnlyAPlainLeaveIsThePointerLeaving) {
    const struct {
        int mode, detail;
        int leaves;
    } rows[] = {{NotifyNormal, NotifyAncestor, 1}, {NotifyGrab, NotifyAncestor, 0}, {NotifyNormal, NotifyInferior, 0}};
    for (const auto& row : rows) {
        rec.left = 0;
        user->sendLeave(id, row.mode, row.detail);
        barrier();
        EXPECT_EQ(rec.left, row.leaves) << "mode " << row.mode << " detail " << row.detail;
    }
}

TEST_F(X11Window, CloseAsksFirstAndARefusalKeepsTheWindow) {
    const long deleteAtom = static_cast<long>(user->atom("WM_DELETE_WINDOW"));
    rec.allowClose = false;
    user->sendClientMessage(id, deleteAtom);
    barrier();
    EXPECT_EQ(rec.deletes, 0);
    user->sendClientMessage(id, deleteAtom + 1);
    rec.allowClose = true;
    barrier();
    EXPECT_EQ(rec.deletes, 0) << "another first word is no close";
    user->sendClientMessage(id, deleteAtom);
    ASSERT_TRUE(runUntil([&] { return rec.deletes == 1; }));
}

TEST_F(X11Window, DamageBecomesOneExposeWithItsBoundingBoxAndWaitsForTheOneInFlight) {
    const KyWidgetPlatformHandle handle{window->nativeDisplay(), id};
    rec.paints.clear();
    KyWidgetPlatformAdapter::invalidateRect(handle, {10, 10, 5, 5});
    KyWidgetPlatformAdapter::invalidateRect(handle, {50, 40, 10, 10});
    ASSERT_TRUE(runUntil([&] { return !rec.paints.empty(); }));
    barrier();
    ASSERT_EQ(rec.paints.size(), 1u);
    const int expected[4] = {10, 10, 50, 40};
    EXPECT_TRUE(std::equal(expected, expected + 4, rec.paints[0].dirtyRect));
    EXPECT_EQ(rec.paints[0].surfaceSize, (KyPlatformSize{320, 200}));

    // One Expose in flight: later damage leaves only after it came back.
    rec.paints.clear();
    KyWidgetPlatformAdapter::invalidateRect(handle, {1, 2, 3, 4});
    KyWidgetPlatformAdapter::flushDamage();
    KyWidgetPlatformAdapter::invalidateRect(handle, {100, 100, 8, 8});
    KyWidgetPlatformAdapter::flushDamage();
    ASSERT_TRUE(runUntil([&] { return rec.paints.size() == 2; }));
    EXPECT_EQ(rec.paints[0].dirtyRect[0], 1);
    EXPECT_EQ(rec.paints[1].dirtyRect[0], 100);
}

TEST_F(X11Window, ResizeReachesTheWindowDirectly) {
    KyPlatformSize seen;
    Recorder other;
    KyWindowCallbacks callbacks = other.callbacks();
    callbacks.resized = [&seen](KyPlatformSize s) { seen = s; };
    auto second = showWindow(callbacks);
    second->resize(0, 150);
    ASSERT_TRUE(runUntil([&] { return seen == KyPlatformSize{1, 150}; }));
}

TEST_F(X11Window, AnIdleLoopSleeps) {
    // Settle: whatever the first frames brought is handled.
    app->exec(50000);
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    app->exec(500000);
    getrusage(RUSAGE_SELF, &after);
    auto cpuMicroseconds = [](const rusage& r) {
        return (r.ru_utime.tv_sec + r.ru_stime.tv_sec) * 1000000LL + r.ru_utime.tv_usec + r.ru_stime.tv_usec;
    };
    // A budget, not a timing: a loop that spins would burn the whole half second.
    EXPECT_LT(cpuMicroseconds(after) - cpuMicroseconds(before), 50000);
    EXPECT_LT(app->iterationsLastSecond(), 20);
}

TEST(X11Keys, KeysymsTypeTheirCharactersAndMatchShortcutLetters) {
    const struct {
        const char* name;
        int key;
        bool shift, caps;
        wchar_t typed; ///< 0: types nothing
    } rows[] = {
        {"plain letter", XK_a, false, false, L'a'},
        {"shift", XK_a, true, false, L'A'},
        {"caps and shift cancel out", XK_A, true, true, L'a'},
        {"caps on a Latin-1 letter", XK_eacute, false, true, L'\u00C9'},
        {"a digit ignores caps", XK_1, false, true, L'1'},
        {"Cyrillic", XK_Cyrillic_ya, false, false, L'\u044F'},
        {"Cyrillic capital", XK_Cyrillic_YA, false, false, L'\u042F'},
        {"Ukrainian", XK_Ukrainian_yi, false, false, L'\u0457'},
        {"Greek capital sigma", XK_Greek_SIGMA, false, false, L'\u03A3'},
        {"Greek omega", XK_Greek_omega, false, false, L'\u03C9'},
        {"keypad digit", XK_KP_5, false, false, L'5'},
        {"an arrow", XK_Left, false, false, 0},
    };
    for (const auto& row : rows) {
        wchar_t typed = 0;
        const bool types = KyWidgetPlatformAdapter::translateCharacter(row.key, row.shift, row.caps, typed);
        EXPECT_EQ(types, row.typed != 0) << row.name;
        if (types) {
            EXPECT_EQ(typed, row.typed) << row.name;
        }
    }
    EXPECT_TRUE(KyWidgetPlatformAdapter::matchesShortcutKey(XK_c, 'C'));
    EXPECT_TRUE(KyWidgetPlatformAdapter::matchesShortcutKey(XK_V, 'v'));
    EXPECT_FALSE(KyWidgetPlatformAdapter::matchesShortcutKey(XK_x, 'c'));
    EXPECT_FALSE(KyWidgetPlatformAdapter::matchesShortcutKey(XK_Cyrillic_es, 'c'));
}

TEST(X11Failures, EachFailureHasItsMessage) {
    ASSERT_TRUE(kytest::Xvfb::instance().running());
    KyX11PlatformIntegration idle;
    auto message = [](const std::function<void()>& f) {
        try {
            f();
        } catch (const std::runtime_error& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(message([&] { idle.createWindow("x", 10, 10, {}, {}); }), "X11 backend is not initialized.");
    EXPECT_EQ(message([&] { idle.createPainter(); }), "X11 backend must be initialized before creating a painter.");
    EXPECT_EQ(message([&] { idle.createImage({2, 2}, static_cast<KyPixelFormat>(5)); }),
              "Unsupported pixel format for X11 images.");
    EXPECT_EQ(idle.clipboardText(), "");
    EXPECT_TRUE(idle.availableScreens().empty());
    const std::string display = std::getenv("DISPLAY");
    ::setenv("DISPLAY", ":1999", 1);
    EXPECT_EQ(message([&] { KyGuiApplication app; }), "Unable to connect to the X server.");
    ::setenv("DISPLAY", display.c_str(), 1);
}

} // namespace
