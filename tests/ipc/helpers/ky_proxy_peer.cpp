// ky_proxy_peer: a process that serves one remote object, as far as the
// registry can tell: it opens the request queues of the methods it is told
// about and consumes them, keeps a few plain signal rows, beats its
// heartbeats on a running loop, prints "ready" and runs until SIGTERM or
// SIGKILL. A line "stop" on stdin makes it stop itself (SIGSTOP) from its
// loop, where it holds no shared lock, so tests can wedge it safely.
//
//   ky_proxy_peer [apps-table NAME] [skew MS] [capacity N] DOMAIN OBJECT [ITEM...]
//     apps-table NAME   use NAME as the application table (tests keep off the machine's)
//     skew MS           add MS to this process's registry clock before registering
//     capacity N        the capacity written into request queue names (default 100)
//     ITEM rpc:METHOD   a request queue "__rpc__|N|METHOD" of a method without arguments
//     ITEM row:SIGNAL   a plain registry row for SIGNAL
//   Without items it serves createTun and closeTun and keeps a "tunState" row.
// Everything but the stdin reader runs on the main thread.
#include <signal.h>
#include <sys/prctl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/runtime/KyCoreApplication.h"
#include "ipc/AppsRegistryTable.h"
#include "ipc/ChannelCore.h"
#include "ipc/IpcNames.h"
#include "ipc/RegistryTable.h"
#include "ipc/RingQueue.h"

namespace {

using namespace ky::ipc;
using RequestQueue = RingQueue<100, uint64_t, uint32_t, KyString>;

}  // namespace

int main(int argc, char** argv) {
    // Never outlive the test that started us.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int i = 1;
    KyString capacity("100");
    for (;;) {
        if (i + 1 < argc && std::strcmp(argv[i], "apps-table") == 0) {
            AppsRegistryTable<64>::setObjectNameForTesting_(argv[i + 1]);
        } else if (i + 1 < argc && std::strcmp(argv[i], "skew") == 0) {
            detail::setClockSkewForTesting_(std::atoll(argv[i + 1]));
        } else if (i + 1 < argc && std::strcmp(argv[i], "capacity") == 0) {
            capacity = argv[i + 1];
        } else {
            break;
        }
        i += 2;
    }
    if (i + 1 >= argc) {
        std::fprintf(stderr, "usage: ky_proxy_peer [apps-table NAME] [skew MS] [capacity N] DOMAIN OBJECT [ITEM...]\n");
        return 2;
    }
    Registry registry{KyString(argv[i]), KyString(argv[i + 1])};
    std::vector<std::string> items(argv + i + 2, argv + argc);
    if (items.empty()) items = {"rpc:createTun", "rpc:closeTun", "row:tunState"};

    // The application ends its loop on SIGTERM by itself; it must exist
    // before the first registration so that the heartbeats run on it.
    KyCoreApplication app(argc, argv);
    std::vector<std::unique_ptr<RequestQueue>> queues;
    std::vector<RequestQueue::Subscription> subscriptions;
    try {
        // A server consumes its queues under its object's name.
        detail::ScopedSubscriberObject subscriber(registry.object);
        for (const std::string& item : items) {
            if (item.rfind("rpc:", 0) == 0) {
                const KyString name = KyString("__rpc__|") + capacity + "|" + KyString(item.substr(4));
                queues.push_back(std::make_unique<RequestQueue>(registry, name));
                subscriptions.push_back(queues.back()->connect([](const uint64_t&, const uint32_t&, const KyString&) {},
                                                               true, 0));
            } else if (item.rfind("row:", 0) == 0) {
                const KyString signal(item.substr(4));
                RegistryTable<256>::registerSignal(registry.domain, registry.object, signal,
                                                   detail::make_shm_name(registry.domain, registry.object, signal),
                                                   0x5EED, "peer");
            } else {
                std::fprintf(stderr, "ky_proxy_peer: bad item '%s'\n", item.c_str());
                return 2;
            }
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "ky_proxy_peer: %s\n", e.what());
        return 3;
    }
    std::thread([&app] {
        std::string line;
        while (std::getline(std::cin, line)) {
            if (line == "stop") app.postEvent([] { ::raise(SIGSTOP); });
        }
    }).detach();
    std::printf("ready\n");
    std::fflush(stdout);
    app.exec();
    return 0;
}
