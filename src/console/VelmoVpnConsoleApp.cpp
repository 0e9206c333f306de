// runVelmoVpnConsole: the start order of the console as far as the layers
// beneath it exist — application object, argument keys, the report of a failed
// previous run, then the event loop. The agent link and the windows hook in at
// their own steps of this order.
#include "console/VelmoVpnConsoleApp.h"

#include <stdexcept>

#include "console/VelmoVpnConsoleFailure.h"
#include "core/io/KyDebug.h"
#include "core/platform/KyStandardPaths.h"
#include "core/runtime/KyCoreApplication.h"

bool gQuitRequested = false;

namespace {

constexpr const char* kCategory = "velmo.console";

void consoleLog(const KyString& line) { kyLogDebug(kCategory) << line; }

} // namespace

int runVelmoVpnConsole(int argc, char** argv) {
    (void)argc;
    (void)argv;
    KyCoreApplication app;

    // Support staff can make a start fail on purpose to check that the failure
    // files reach them; the text becomes the recorded reason.
    const KyString forcedFailure = KyStandardPaths::environment("VELMO_CONSOLE_FAIL_AT_START").trimmed();
    if (!forcedFailure.isEmpty()) throw std::runtime_error(forcedFailure.toStdString());

    bool startHidden = false;
    for (const char* key : {"background", "start_hidden", "minimized"}) {
        if (app.hasArgument(key)) {
            startHidden = true;
            break;
        }
    }

    consoleLog("VELMO VPN native console started");
    consoleLog("Searching for VelmoVpnAgent backend...");
    if (startHidden)
        consoleLog("Console started in background mode");
    else
        velmoVpnConsoleShowLastCrashReport(nullptr);

    const int code = app.exec(0);
    consoleLog(KyString("VELMO VPN native console stopped with code ") + KyString::number(code));
    return code;
}
