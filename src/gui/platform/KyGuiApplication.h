// KyGuiApplication: the GUI thread's event loop, KyCoreApplication with the
// window system added.
//
// It makes and initialises the X11 platform integration when it is built
// (throwing "Unable to connect to the X server." without a display) and shuts
// it down when it goes. exec runs passes of: X pump, loop steps until the
// loop has nothing to do at once, damage flush, X pump again, then a wait in
// which a new X event wakes it through the I/O dispatcher's watch of the
// connection. An idle window therefore costs no CPU. Everything here runs on
// the thread that built the application.
#pragma once

#include <memory>

#include "core/runtime/KyCoreApplication.h"

class KyPlatformIntegration;

/// The event loop of the GUI thread.
class KyGuiApplication : public KyCoreApplication {
public:
    KyGuiApplication();
    KyGuiApplication(int argc, char** argv);
    /// Shuts the platform down (windows, backbuffers, fonts, connection) before the loop goes.
    ~KyGuiApplication() override;

    /// Runs passes until quit or exit, or, with a non-zero limit, until the
    /// first pass that ends that many microseconds after the start. Returns the exit code.
    int exec(int maxDurationMicroseconds = 0) override;

    KyPlatformIntegration* platformIntegration() const { return platform_.get(); }
    /// The calling thread's GUI application, or null.
    static KyGuiApplication* instance();

    /// Paints what the windows are waiting for now, without running posted
    /// work or timers: for a start that maps its first window while it still
    /// has widgets to build, so that window shows its content at once.
    void paintPending();

private:
    void construct_();
    void pumpPlatform_();

    std::unique_ptr<KyPlatformIntegration> platform_;
};
