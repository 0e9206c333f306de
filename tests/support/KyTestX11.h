// Shared by the GUI tests: the process's private Xvfb (KyTestXvfb.h), a
// second connection to it that plays the user (events sent to a window, XTEST
// input) and reads pixels back, and a fixture with a KyGuiApplication on the
// test's thread.
#pragma once

#include <X11/Xlib.h>
#include <X11/XKBlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <X11/extensions/XTest.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/types/KyColor.h"
#include "core/types/KyRect.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyPlatformWindow.h"
#include "KyTestLoop.h"
#include "KyTestXvfb.h"

namespace kytest {

/// A second connection to the test server: the user's hands and eyes.
class XUser {
public:
    XUser() {
        XInitThreads();
        display_ = XOpenDisplay(Xvfb::instance().display().c_str());
    }
    ~XUser() {
        if (display_) XCloseDisplay(display_);
    }
    XUser(const XUser&) = delete;
    XUser& operator=(const XUser&) = delete;
    Display* display() const { return display_; }

    /// A button event with a chosen time, position and modifier state, sent to window.
    void sendButton(Window window, bool press, unsigned button, int x, int y, Time time, unsigned state = 0) {
        XEvent e{};
        e.xbutton.type = press ? ButtonPress : ButtonRelease;
        e.xbutton.window = window;
        e.xbutton.root = DefaultRootWindow(display_);
        e.xbutton.time = time;
        e.xbutton.x = x;
        e.xbutton.y = y;
        e.xbutton.state = state;
        e.xbutton.button = button;
        e.xbutton.same_screen = True;
        send(window, press ? ButtonPressMask : ButtonReleaseMask, e);
    }
    void sendMotion(Window window, int x, int y, unsigned state = 0) {
        XEvent e{};
        e.xmotion.type = MotionNotify;
        e.xmotion.window = window;
        e.xmotion.root = DefaultRootWindow(display_);
        e.xmotion.x = x;
        e.xmotion.y = y;
        e.xmotion.state = state;
        e.xmotion.same_screen = True;
        send(window, PointerMotionMask, e);
    }
    /// A key event for keysym (through this server's keymap) with a chosen modifier state.
    void sendKey(Window window, bool press, KeySym keysym, unsigned state = 0) {
        XEvent e{};
        e.xkey.type = press ? KeyPress : KeyRelease;
        e.xkey.window = window;
        e.xkey.root = DefaultRootWindow(display_);
        e.xkey.time = CurrentTime;
        e.xkey.state = state;
        e.xkey.keycode = XKeysymToKeycode(display_, keysym);
        e.xkey.same_screen = True;
        send(window, press ? KeyPressMask : KeyReleaseMask, e);
    }
    void sendLeave(Window window, int mode, int detail) {
        XEvent e{};
        e.xcrossing.type = LeaveNotify;
        e.xcrossing.window = window;
        e.xcrossing.root = DefaultRootWindow(display_);
        e.xcrossing.mode = mode;
        e.xcrossing.detail = detail;
        send(window, LeaveWindowMask, e);
    }
    /// A client message whose first data word is word; the type is deliberately arbitrary.
    void sendClientMessage(Window window, long word) {
        XEvent e{};
        e.xclient.type = ClientMessage;
        e.xclient.window = window;
        e.xclient.message_type = XInternAtom(display_, "KY_TEST_ANY_TYPE", False);
        e.xclient.format = 32;
        e.xclient.data.l[0] = word;
        send(window, NoEventMask, e);
    }
    Atom atom(const char* name) { return XInternAtom(display_, name, False); }

    /// XTEST: the pointer to (x, y) on the screen, a button or a key, as real hardware would.
    void fakeMotion(int x, int y) {
        XTestFakeMotionEvent(display_, 0, x, y, CurrentTime);
        XSync(display_, False);
    }
    void fakeButton(unsigned button, bool press) {
        XTestFakeButtonEvent(display_, button, press, CurrentTime);
        XSync(display_, False);
    }
    /// XTEST: one key down or up.
    void fakeKey(KeySym sym, bool press) {
        XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, sym), press, CurrentTime);
        XSync(display_, False);
    }
    /// XTEST: one key pressed and released, with a modifier held around it.
    void tapKey(KeySym sym, KeySym modifier = 0) {
        tapKey(sym, modifier ? std::vector<KeySym>{modifier} : std::vector<KeySym>{});
    }
    /// XTEST: one key pressed and released, with modifiers held around it (let go in reverse).
    void tapKey(KeySym sym, const std::vector<KeySym>& modifiers) {
        for (KeySym m : modifiers) XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, m), True, CurrentTime);
        XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, sym), True, CurrentTime);
        XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, sym), False, CurrentTime);
        for (auto m = modifiers.rbegin(); m != modifiers.rend(); ++m)
            XTestFakeKeyEvent(display_, XKeysymToKeycode(display_, *m), False, CurrentTime);
        XSync(display_, False);
    }
    /// XTEST: types printable ASCII text, with Shift where the keyboard map needs it.
    void typeText(const std::string& text) {
        for (const char c : text) {
            const KeySym sym = static_cast<KeySym>(static_cast<unsigned char>(c));
            const KeyCode code = XKeysymToKeycode(display_, sym);
            const bool shifted = XkbKeycodeToKeysym(display_, code, 0, 0) != sym;
            tapKey(sym, shifted ? XK_Shift_L : 0);
        }
    }

    /// The colour of one pixel of a window, read back from the server.
    KyColor pixel(Window window, int x, int y) {
        XSync(display_, False);
        XImage* image = XGetImage(display_, window, x, y, 1, 1, AllPlanes, ZPixmap);
        if (!image) return KyColor(-1, -1, -1);
        const unsigned long p = XGetPixel(image, 0, 0);
        XDestroyImage(image);
        return KyColor::fromRgb(static_cast<std::uint32_t>(p & 0xFFFFFF));
    }
    /// The pixels of a rectangle of a window, row by row, as 0xRRGGBB.
    std::vector<std::uint32_t> pixels(Window window, const KyRect& r) {
        XSync(display_, False);
        std::vector<std::uint32_t> out;
        XImage* image = XGetImage(display_, window, r.x, r.y, static_cast<unsigned>(r.width),
                                  static_cast<unsigned>(r.height), AllPlanes, ZPixmap);
        if (!image) return out;
        for (int y = 0; y < r.height; ++y)
            for (int x = 0; x < r.width; ++x) out.push_back(static_cast<std::uint32_t>(XGetPixel(image, x, y) & 0xFFFFFF));
        XDestroyImage(image);
        return out;
    }

private:
    void send(Window window, long mask, XEvent& e) {
        e.xany.display = display_;
        XSendEvent(display_, window, False, mask, &e);
        XSync(display_, False);
    }

    Display* display_ = nullptr;
};

/// Runs passes of app's GUI loop until pred holds or the deadline passes.
inline bool runGuiUntil(KyGuiApplication* app, const std::function<bool()>& pred,
                        std::chrono::milliseconds deadline = kDeadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        app->exec(5000);
    }
    return true;
}

/// A GUI application on the test's thread, on the private server, and the user beside it.
struct GuiFixture : ::testing::Test {
    void SetUp() override {
        ASSERT_TRUE(Xvfb::instance().running()) << "Xvfb did not start";
        app = std::make_unique<KyGuiApplication>();
        user = std::make_unique<XUser>();
        ASSERT_NE(user->display(), nullptr);
    }
    void TearDown() override {
        user.reset();
        app.reset();
    }
    KyPlatformIntegration* platform() const { return app->platformIntegration(); }
    bool runUntil(const std::function<bool()>& pred) { return runGuiUntil(app.get(), pred); }

    /// Creates and shows a window, wrapping its paintRequested so that the
    /// first paint (the window is on screen) can be waited for.
    std::unique_ptr<KyPlatformWindow> showWindow(KyWindowCallbacks callbacks, int width = 320, int height = 200) {
        auto painted = std::make_shared<int>(0);
        auto inner = callbacks.paintRequested;
        callbacks.paintRequested = [painted, inner](KyPlatformPaintEvent e) {
            ++*painted;
            if (inner) inner(e);
        };
        auto window = platform()->createWindow("ky-test", width, height, callbacks, {});
        window->show();
        EXPECT_TRUE(runUntil([&] { return *painted > 0; })) << "the window was never exposed";
        return window;
    }

    std::unique_ptr<KyGuiApplication> app;
    std::unique_ptr<XUser> user;
};

} // namespace kytest
