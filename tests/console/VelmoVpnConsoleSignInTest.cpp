// The user's road through the console's windows, played through the X server:
// the loading window, then the login form, typed into and sent from the
// keyboard, a refused password leaving no copy of itself behind, and the
// console shell after the right one. The real console and demo agent run as
// child processes on the test's private X server.
#include <X11/keysym.h>

#include <algorithm>
#include <thread>

#include "../support/KyTestConsoleScreen.h"
#include "../support/KyTestSecret.h"

namespace {

using kytest::Child;
using kytest::MaskedSecret;
using namespace std::chrono_literals;

class ConsoleSignIn : public kytest::ConsoleScreenFixture {
protected:
    /// Clicks into the top-most input field of the mapped top-level window of
    /// this size (the first row with a long run of the input background),
    /// once it is painted: the keys that follow go to that field whatever
    /// the console's own focus does meanwhile. Without a window manager the
    /// keyboard follows the pointer, which stays there.
    bool clickFirstField(int width, int height) {
        const KyColor input(11, 24, 31);
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (std::chrono::steady_clock::now() < deadline) {
            const Window window = findWindow(width, height);
            if (window) {
                const std::vector<std::uint32_t> pixels = user_.pixels(window, {0, 0, width, height});
                for (int y = 0; pixels.size() == static_cast<size_t>(width) * height && y < height; ++y) {
                    int run = 0;
                    for (int x = 0; x < width; ++x) {
                        const std::uint32_t p = pixels[static_cast<size_t>(y) * width + x];
                        run = KyColor::fromRgb((p >> 16) & 0xff, (p >> 8) & 0xff, p & 0xff) == input ? run + 1 : 0;
                        if (run == width / 2) {
                            clickAt(window, x - run / 2, y + 4);
                            return true;
                        }
                    }
                }
            }
            std::this_thread::sleep_for(50ms);
        }
        return false;
    }
};

TEST_F(ConsoleSignIn, FromTheKeyboardLeavingNoCopyOfARefusedPassword) {
    Child agent, console;
    ASSERT_TRUE(startBound(agent, console));
    // The loading window comes first; the login form after the grace time.
    ASSERT_TRUE(console.waitForError("shell: loading", 30s)) << console.err();
    ASSERT_TRUE(console.waitForError("shell: login", 30s)) << console.err();
    ASSERT_TRUE(clickFirstField(440, 530));

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
    EXPECT_TRUE(console.waitForError("shell: console", 30s)) << console.err();
}

}  // namespace
