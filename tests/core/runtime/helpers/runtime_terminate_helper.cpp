// Child process for the terminate-signal tests: a main loop and two worker
// loops. Prints "ready" once all three loops run, then waits for SIGTERM or
// SIGINT (sent by the parent, or raised here with the argument "raise") and
// prints how many loops ended. The loops are bounded by a long time-out so a
// broken signal path ends the child instead of hanging it.
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/runtime/KyCoreApplication.h"

int main(int argc, char** argv) {
    const bool raiseItself = argc > 1 && strcmp(argv[1], "raise") == 0;
    constexpr int kBound = 30'000'000;
    KyCoreApplication app;
    std::atomic<int> started{0};
    std::atomic<int> ended{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 2; ++i) {
        workers.emplace_back([&] {
            KyCoreApplication loop;
            loop.postEvent([&started] { started.fetch_add(1); });
            loop.exec(kBound);
            if (!loop.isRunning()) ended.fetch_add(1);
        });
    }
    app.postEvent([&started] { started.fetch_add(1); });
    bool announced = false;
    const int poller = app.addTimer(
        [&] {
            if (announced || started.load() < 3) return;
            announced = true;
            printf("ready\n");
            fflush(stdout);
            if (raiseItself) std::thread([] { raise(SIGINT); }).detach();
        },
        1000, false, 2);
    app.exec(kBound);
    app.removeTimer(poller);
    if (!app.isRunning()) ended.fetch_add(1);
    for (auto& w : workers) w.join();
    printf("ended %d terminate=%d\n", ended.load(), KyCoreApplication::terminateRequested() ? 1 : 0);
    fflush(stdout);
    return 0;
}
