// The demo agent's largest catalog as the console receives it, for the
// benchmarks that feed the console's catalog with what the agent publishes.
#pragma once

#include <stdlib.h>

#include <filesystem>

#include "core/types/KyJsonHelpers.h"
#include "tools/velmo-demo-agent/VelmoDemoWorkspace.h"

// The ready catalog snapshot of a 500-VPN demo workspace whose snapshots hold
// at most budget bytes. The workspace remembers its session on disk, so it
// works in a directory of its own that is removed afterwards.
inline KyString demoCatalogSnapshot(int budget) {
    char dirTemplate[] = "/tmp/velmo_bench_console_XXXXXX";
    const char* dir = ::mkdtemp(dirTemplate);
    if (!dir) return KyString();
    KyString ready;
    {
        VelmoDemoWorkspaceOptions options;
        options.domain = "velnet-bench";
        options.stateDirectory = KyString(dir) + "/state";
        options.catalogSize = 500;
        options.snapshotBudget = budget;
        options.sleepMs = [](int) {};
        VelmoDemoSignals signals;
        signals.vpnCatalogState = [&ready](const KyString& json) {
            if (jsonStringValue(parseJsonObjectOrEmpty(json), "status") == "ready") ready = json;
        };
        VelmoDemoWorkspace workspace(options, signals);
        workspace.start(0);
        workspace.loginUser("", VelmoDemoWorkspace::kDemoEmail, VelmoDemoWorkspace::kDemoPassword);
        for (std::int64_t now = 0; now <= 20000 && ready.isEmpty(); now += 100) workspace.tick(now);
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    return ready;
}

