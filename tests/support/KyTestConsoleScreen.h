// Shared by the tests that watch the real console's windows on the test's
// private X server while it runs beside the real demo agent: the console's
// process fixture (KyTestConsoleLink.h) plus a second X connection that plays
// the user (XTEST) and finds the console's windows the way another client of
// the server would, by walking the window tree. Test thread only.
#pragma once

#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "KyTestConsoleLink.h"
#include "KyTestX11.h"

namespace kytest {

class ConsoleScreenFixture : public ConsoleLinkFixture {
protected:
    // The console's windows come and go while the tree is walked and read:
    // a window gone between two requests is an answer, not a fatal error.
    ConsoleScreenFixture() { XSetErrorHandler([](Display*, XErrorEvent*) { return 0; }); }
    /// The first viewable window below the root (a top-level, or a window a
    /// tray holds) of this size and title; a width of 0 or a null title
    /// matches any. 0 when there is none.
    Window findWindow(int width, int height, const char* title = nullptr, XWindowAttributes* found = nullptr) {
        return findBelow_(DefaultRootWindow(user_.display()), width, height, title, found);
    }
    /// Polls pred every 20 ms (reading pixels is not free) until it holds or the deadline passes.
    static bool until(const std::function<bool()>& pred, std::chrono::milliseconds deadline = std::chrono::seconds(30)) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (!pred()) {
            if (std::chrono::steady_clock::now() >= end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }
    /// A real click (XTEST) at a point of a window.
    void clickAt(Window window, int x, int y, unsigned button = 1) {
        int sx = 0, sy = 0;
        Window child = 0;
        XTranslateCoordinates(user_.display(), window, DefaultRootWindow(user_.display()), x, y, &sx, &sy, &child);
        user_.fakeMotion(sx, sy);
        user_.fakeButton(button, true);
        user_.fakeButton(button, false);
    }

    XUser user_;

private:
    Window findBelow_(Window parent, int width, int height, const char* title, XWindowAttributes* found) {
        Display* d = user_.display();
        Window root = 0, up = 0, *children = nullptr;
        unsigned count = 0;
        if (!XQueryTree(d, parent, &root, &up, &children, &count)) return 0;
        Window match = 0;
        for (unsigned i = 0; i < count && !match; ++i) {
            XWindowAttributes a{};
            if (!XGetWindowAttributes(d, children[i], &a) || a.map_state != IsViewable) continue;
            char* name = nullptr;
            const bool named = !title || (XFetchName(d, children[i], &name) && name && std::strcmp(name, title) == 0);
            if (name) XFree(name);
            if (named && (width == 0 || (a.width == width && a.height == height))) {
                if (found) *found = a;
                match = children[i];
            } else {
                match = findBelow_(children[i], width, height, title, found);
            }
        }
        if (children) XFree(children);
        return match;
    }
};

}  // namespace kytest
