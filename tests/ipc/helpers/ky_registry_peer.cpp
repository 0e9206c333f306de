// ky_registry_peer: a second process for the registry tests. It registers
// what its command line names, prints "ready", then waits for SIGTERM and
// ends normally, so its exit hook runs.
//
//   ky_registry_peer [loop] [apps-table NAME] ACTION...
//     signal DOMAIN OBJECT SIGNAL        registers a signal (type id 0x5EED)
//     sub DOMAIN OBJECT SIGNAL SUBOBJECT registers a subscription of this pid
//     domain DOMAIN                      registers the domain
//   With "loop" the actions run on a running event loop, so the tables'
//   heartbeats beat; SIGTERM ends the loop. Everything runs on the main thread.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "core/runtime/KyCoreApplication.h"
#include "ipc/AppsRegistryTable.h"
#include "ipc/IpcNames.h"
#include "ipc/RegistryTable.h"
#include "ipc/SubscribersRegistryTable.h"

namespace {

using namespace ky::ipc;

bool runActions(int argc, char** argv, int first) {
    for (int i = first; i < argc;) {
        const char* verb = argv[i];
        if (std::strcmp(verb, "signal") == 0 && i + 3 < argc) {
            const KyString domain = argv[i + 1], object = argv[i + 2], signal = argv[i + 3];
            RegistryTable<256>::registerSignal(domain, object, signal, detail::make_shm_name(domain, object, signal),
                                               0x5EED, "peer");
            i += 4;
        } else if (std::strcmp(verb, "sub") == 0 && i + 4 < argc) {
            SubscribersRegistryTable<512>::registerSubscription(argv[i + 1], argv[i + 2], argv[i + 3],
                                                                static_cast<uint32_t>(::getpid()), argv[i + 4]);
            i += 5;
        } else if (std::strcmp(verb, "domain") == 0 && i + 1 < argc) {
            AppsRegistryTable<64>::registerDomain(argv[i + 1]);
            i += 2;
        } else {
            std::fprintf(stderr, "ky_registry_peer: bad action at '%s'\n", verb);
            return false;
        }
    }
    return true;
}

void sayReady() {
    std::printf("ready\n");
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    // Never outlive the test that started us.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int i = 1;
    bool loop = false;
    if (i < argc && std::strcmp(argv[i], "loop") == 0) {
        loop = true;
        ++i;
    }
    if (i + 1 < argc && std::strcmp(argv[i], "apps-table") == 0) {
        AppsRegistryTable<64>::setObjectNameForTesting_(argv[i + 1]);
        i += 2;
    }

    if (loop) {
        // The application ends its loop on SIGTERM by itself.
        KyCoreApplication app(argc, argv);
        if (!runActions(argc, argv, i)) return 2;
        sayReady();
        app.exec();
        return 0;
    }

    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    if (!runActions(argc, argv, i)) return 2;
    sayReady();
    int sig = 0;
    while (::sigwait(&set, &sig) != 0) {
    }
    return 0;
}
