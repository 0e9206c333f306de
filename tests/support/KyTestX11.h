// Shared by the GUI tests: a private Xvfb for the test process, a second
// connection to it that plays the user (events sent to a window, XTEST input)
// and reads pixels back, and a fixture with a KyGuiApplication on the test's
// thread.
//
// The server is started once per test process, on first use, with its own
// display number (-displayfd) and the DejaVu font directory of
// scripts/x11-fonts.sh on its font path; DISPLAY is pointed at it, so the
// user's display is never touched. It dies with the test process.
#pragma once

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "core/types/KyColor.h"
#include "core/types/KyRect.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyPlatformWindow.h"
#include "KyTestLoop.h"

#ifndef KY_SOURCE_DIR_DEFAULT
#define KY_SOURCE_DIR_DEFAULT "."
#endif

namespace kytest {

/// The private X server of this test process.
class Xvfb {
public:
    static Xvfb& instance() {
        static Xvfb server;
        return server;
    }
    bool running() const { return pid_ > 0 && !display_.empty(); }
    const std::string& display() const { return display_; }
    const std::string& fontDir() const { return fontDir_; }

    ~Xvfb() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
    }

private:
    Xvfb() {
        fontDir_ = runFontScript();
        int fds[2];
        if (::pipe(fds) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(fds[0]);
            ::prctl(PR_SET_PDEATHSIG, SIGTERM); // never outlives the tests
            const std::string fd = std::to_string(fds[1]);
            const std::string fontPath = fontDir_.empty() ? "built-ins" : fontDir_ + ",built-ins";
            const int devnull = ::open("/dev/null", O_WRONLY);
            if (devnull >= 0) ::dup2(devnull, 2);
            ::execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1600x1000x24", "-nolisten", "tcp",
                     "-noreset", "-fp", fontPath.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        // The server writes its display number once it accepts connections.
        std::string number;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (number.find('\n') == std::string::npos && std::chrono::steady_clock::now() < end) {
            pollfd p{fds[0], POLLIN, 0};
            if (::poll(&p, 1, 1000) <= 0) continue;
            char buf[32];
            const ssize_t got = ::read(fds[0], buf, sizeof buf);
            if (got <= 0) break;
            number.append(buf, static_cast<std::size_t>(got));
        }
        ::close(fds[0]);
        if (number.find('\n') == std::string::npos) return;
        display_ = ":" + number.substr(0, number.find('\n'));
        ::setenv("DISPLAY", display_.c_str(), 1);
        ::unsetenv("XAUTHORITY");
    }

    static std::string runFontScript() {
        const char* source = std::getenv("KY_SOURCE_DIR");
        const std::string script = std::string(source ? source : KY_SOURCE_DIR_DEFAULT) + "/scripts/x11-fonts.sh";
        FILE* out = ::popen(("bash '" + script + "' 2>/dev/null").c_str(), "r");
        if (!out) return {};
        char line[4096] = {0};
        std::string dir = std::fgets(line, sizeof line, out) ? line : "";
        ::pclose(out);
        while (!dir.empty() && (dir.back() == '\n' || dir.back() == '\r')) dir.pop_back();
        return dir;
    }

    pid_t pid_ = -1;
    std::string display_;
    std::string fontDir_;
};

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
