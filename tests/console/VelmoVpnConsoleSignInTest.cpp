// The user's road through the console's windows, played through the X server:
// the loading window, then the login form, typed into and sent from the
// keyboard, a refused password leaving no copy of itself behind, and the
// console shell after the right one. The real console and demo agent run as
// child processes on the test's private X server.
#include <X11/keysym.h>

#include "../support/KyTestConsoleLink.h"
#include "../support/KyTestSecret.h"
#include "../support/KyTestX11.h"

namespace {

using kytest::Child;
using kytest::MaskedSecret;
using namespace std::chrono_literals;

class ConsoleSignIn : public kytest::ConsoleLinkFixture {
protected:
    /// Puts the pointer on the middle of the mapped top-level window of this
    /// size: without a window manager the keyboard follows the pointer.
    bool pointAtWindow(int width, int height) {
        Display* d = user_.display();
        Window root = 0, parent = 0, *children = nullptr;
        unsigned count = 0;
        if (!XQueryTree(d, DefaultRootWindow(d), &root, &parent, &children, &count)) return false;
        bool found = false;
        for (unsigned i = 0; i < count && !found; ++i) {
            XWindowAttributes a{};
            if (!XGetWindowAttributes(d, children[i], &a) || a.map_state != IsViewable) continue;
            if (a.width != width || a.height != height) continue;
            user_.fakeMotion(a.x + width / 2, a.y + height / 2);
            found = true;
        }
        if (children) XFree(children);
        return found;
    }

    kytest::XUser user_;
};

TEST_F(ConsoleSignIn, FromTheKeyboardLeavingNoCopyOfARefusedPassword) {
    Child agent, console;
    ASSERT_TRUE(startBound(agent, console));
    // The loading window comes first; the login form after the grace time.
    ASSERT_TRUE(console.waitForError("shell: loading", 30s)) << console.err();
    ASSERT_TRUE(console.waitForError("shell: login", 30s)) << console.err();
    ASSERT_TRUE(pointAtWindow(440, 530));

    // The form opens with the keyboard on the e-mail field; Return sends it.
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
    EXPECT_TRUE(console.waitForError("shell: console", 30s)) << console.err();
}

}  // namespace
