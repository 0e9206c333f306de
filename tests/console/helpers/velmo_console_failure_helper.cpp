// Child process for the console's failure tests: installs the console's crash
// handling as main does, then acts as asked.
//   velmo_console_failure_helper main <arguments...>   walks the arguments as main does
//   velmo_console_failure_helper abort|throw|persist <stage> <message>
#include <stdexcept>
#include <string.h>

#include "console/VelmoVpnConsoleFailure.h"
#include "core/io/KyDebug.h"

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    velmoVpnConsoleInstallCrashHandling();
    kyLogWarning("velmo.console.test") << "failure helper running" << argv[1];
    const char* mode = argv[1];
    if (strcmp(mode, "main") == 0) {
        for (int i = 2; i < argc; ++i)
            if (velmoVpnConsoleIsCrashWord(argv[i])) velmoVpnConsoleTriggerCrashTest();
        return 0;
    }
    if (strcmp(mode, "abort") == 0) abort();
    if (strcmp(mode, "throw") == 0) throw std::runtime_error("agent table corrupt");
    if (strcmp(mode, "persist") == 0 && argc >= 4) {
        velmoVpnConsolePersistStartupFailure(argv[2], argv[3]);
        return 0;
    }
    return 3;
}
