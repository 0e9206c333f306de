// One console per user and display. The first console claims the place; a
// second start finds it over the project's own IPC, asks it to show its
// relevant window and exits, so a user without a tray still gets the window
// back by starting the console again.
//
// GUI thread only.
#pragma once

#include <functional>
#include <memory>

#include "core/types/KyString.h"

class VelmoVpnConsoleInstance {
public:
    /// domain: the console's IPC domain; the display is read from DISPLAY.
    explicit VelmoVpnConsoleInstance(const KyString& domain);
    ~VelmoVpnConsoleInstance();
    VelmoVpnConsoleInstance(const VelmoVpnConsoleInstance&) = delete;
    VelmoVpnConsoleInstance& operator=(const VelmoVpnConsoleInstance&) = delete;

    /// True when this process is now the console of this user and display.
    /// False when another live console holds the place: it has been asked to
    /// show its window, and the caller exits 0.
    bool claim();
    /// Runs on the GUI thread each time a later start asks this console to show itself.
    void setShowRequestHandler(std::function<void()> handler);

private:
    struct Private;
    std::unique_ptr<Private> d_;
};
