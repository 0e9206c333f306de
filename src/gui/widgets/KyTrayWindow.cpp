// TrayWindow_: the close rule of a tray-backed window.
#include "gui/widgets/KyTrayWindow.h"

#include "gui/platform/KyPlatformWindow.h"

namespace {
const bool* gQuitFlag = nullptr;
} // namespace

TrayWindow_::TrayWindow_(const std::wstring& title, int width, int height) : KyMainWindow(title, width, height) {}

void TrayWindow_::setQuitRequestedFlag(const bool* flag) { gQuitFlag = flag; }

bool TrayWindow_::quitRequested() { return gQuitFlag && *gQuitFlag; }

void TrayWindow_::closeEvent(CloseEvent* event) {
    if (quitRequested()) {
        event->accept();
        return;
    }
    // Closing hides, deliberately: the tray icon brings the window back.
    event->ignore();
    if (KyPlatformWindow* w = platformWindow()) w->hide();
    KyWidget::hide();
}
