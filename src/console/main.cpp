// Process entry of the VELMO VPN Console. For now the console only announces
// itself: the event loop, the agent link and the windows hook in here as the
// layers beneath them land.
#include "core/io/KyDebug.h"

int main(int argc, char** argv) {
    (void)argc;
    (void)argv;
    KyDebug::setCategoryDebugDefault("velmo.console.*", true);
    kyLogDebug("velmo.console.main") << "VELMO VPN native console started";
    return 0;
}
