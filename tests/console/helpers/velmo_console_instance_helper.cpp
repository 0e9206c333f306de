// Child process for the single-instance tests: claims the console's place for
// its DISPLAY in the domain argv[1] as the console's start does. Prints
// "claimed" and then "show" for every show request, until SIGTERM; or prints
// "second" and exits 0 when another console holds the place.
#include <cstdio>

#include "console/VelmoVpnConsoleInstance.h"
#include "core/runtime/KyCoreApplication.h"

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    KyCoreApplication app;
    VelmoVpnConsoleInstance instance(argv[1]);
    if (!instance.claim()) {
        std::puts("second");
        return 0;
    }
    instance.setShowRequestHandler([] {
        std::puts("show");
        std::fflush(stdout);
    });
    std::puts("claimed");
    std::fflush(stdout);
    return app.exec();
}
