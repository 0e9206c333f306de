// A GUI fixture whose widgets hang under one root, shown in a WidgetWindow
// on the private server, with the user's pointer and clicks given in the
// root's coordinates. Test thread only.
#pragma once

#include <memory>

#include "KyTestWidgetWindow.h"
#include "KyTestX11.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"

namespace kytest {

struct WidgetFixture : GuiFixture {
    void TearDown() override {
        delete root;
        window.reset();
        GuiFixture::TearDown();
    }
    /// Shows root in a window of width by height and waits for its first paint.
    void showRoot(int width, int height) {
        window = std::make_unique<WidgetWindow>(app.get(), root, width, height);
        window->show();
        ASSERT_TRUE(runUntil([&] { return window->paints > 0; })) << "the window was never painted";
    }
    /// XTEST: the pointer to (x, y) of root, and a click of button there.
    void pointer(int x, int y) {
        const KyPoint o = KyWidgetPlatformAdapter::clientOriginOnScreen(root->nativeHandle());
        user->fakeMotion(o.x + x, o.y + y);
    }
    void click(int x, int y, unsigned button = 1) {
        pointer(x, y);
        user->fakeButton(button, true);
        user->fakeButton(button, false);
    }

    KyWidget* root = nullptr;
    std::unique_ptr<WidgetWindow> window;
};

} // namespace kytest
