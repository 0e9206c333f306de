// Shared by the tests that watch the console's windows on the test's private
// X server: ConsoleScreenFixture runs the real console beside the real demo
// agent (KyTestConsoleLink.h) and plays the user over a second X connection
// (XTEST), finding the console's windows the way another client of the
// server would, by walking the window tree; ConsolePageFixture hosts one of
// the console's pages in this process, in the console's own sheet. Test
// thread only.
#pragma once

#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "KyTestConsoleLink.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "gui/widgets/KyBoxLayout.h"
// Xlib's macros last: they would spoil the framework's headers.
#include "KyTestWidgetFixture.h"
#include "KyTestX11.h"

namespace kytest {

/// The first viewable window below parent of this size and title; a width of
/// 0 or a null title matches any. 0 when there is none.
inline Window findWindowBelow(Display* d, Window parent, int width, int height, const char* title = nullptr,
                              XWindowAttributes* found = nullptr) {
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
            match = findWindowBelow(d, children[i], width, height, title, found);
        }
    }
    if (children) XFree(children);
    return match;
}

/// A real click (XTEST) at a point of a window.
inline void clickAt(XUser& user, Window window, int x, int y, unsigned button = 1) {
    int sx = 0, sy = 0;
    Window child = 0;
    XTranslateCoordinates(user.display(), window, DefaultRootWindow(user.display()), x, y, &sx, &sy, &child);
    user.fakeMotion(sx, sy);
    user.fakeButton(button, true);
    user.fakeButton(button, false);
}

/// One of the console's pages, built by its builder into a root that carries
/// the console's sheet, shown in a window of the test's own.
struct ConsolePageFixture : WidgetFixture {
    using Builder = void (*)(KyWidget&, VelmoVpnConsoleUi&);
    /// Builds the page with a bare strip of margin below it (where settle()
    /// may park the pointer) and waits for the window's first paint.
    void showPage(Builder build, int width, int height, int margin = 0) {
        root = new KyWidget;
        root->setObjectName("consoleRoot");
        root->setStyleSheet(VelmoVpnConsoleStyle::windowCss());
        page = new KyWidget(root);
        build(*page, ui);
        auto* layout = new KyVerticalLayout;
        layout->setContentsMargins(0, 0, 0, margin);
        layout->addWidget(page, 1);
        root->setLayout(layout);
        showRoot(width, height);
    }
    /// Waits until everything queued is painted; (x, y) is a bare spot of the root.
    void settle(int x, int y) { settleWindow(*this, *window, root, x, y); }
    /// A real click in the middle of a widget.
    void clickOn(const KyWidget* w, unsigned button = 1) {
        const KyRect r = w->rootRect();
        click(r.x + r.width / 2, r.y + r.height / 2, button);
    }

    VelmoVpnConsoleUi ui;
    KyWidget* page = nullptr;
};

class ConsoleScreenFixture : public ConsoleLinkFixture {
protected:
    // The console's windows come and go while the tree is walked and read:
    // a window gone between two requests is an answer, not a fatal error.
    ConsoleScreenFixture() { XSetErrorHandler([](Display*, XErrorEvent*) { return 0; }); }
    /// The first viewable window below the root (a top-level, or a window a
    /// tray holds) of this size and title; a width of 0 or a null title
    /// matches any. 0 when there is none.
    Window findWindow(int width, int height, const char* title = nullptr, XWindowAttributes* found = nullptr) {
        return findWindowBelow(user_.display(), DefaultRootWindow(user_.display()), width, height, title, found);
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
    void clickAt(Window window, int x, int y, unsigned button = 1) { kytest::clickAt(user_, window, x, y, button); }

    XUser user_;
};

}  // namespace kytest
