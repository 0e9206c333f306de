// Process entry of the VELMO VPN Console: failure reporting first, then the
// crash words, then the console itself. A start that throws is recorded on disk
// for the next start and ends with exit code 1.
#include <exception>

#include "console/VelmoVpnConsoleApp.h"
#include "console/VelmoVpnConsoleFailure.h"
#include "core/io/KyDebug.h"

int main(int argc, char** argv) {
    velmoVpnConsoleInstallCrashHandling();
    KyDebug::setCategoryDebugDefault("velmo.console*", true);
    try {
        for (int i = 1; i < argc; ++i)
            if (velmoVpnConsoleIsCrashWord(argv[i])) velmoVpnConsoleTriggerCrashTest();
        return runVelmoVpnConsole(argc, argv);
    } catch (const std::exception& e) {
        const char* what = e.what();
        velmoVpnConsolePersistStartupFailure("opening", what ? what : "");
        return 1;
    } catch (...) {
        velmoVpnConsolePersistStartupFailure("opening", "Unknown startup exception");
        return 1;
    }
}
