// velmo-demo-agent: a stand-in for VelmoVpnAgent, so that the console has a
// peer to sign in to on a machine without the real agent. Runs one loop on
// the main thread until SIGTERM, SIGINT or requestShutdown. Exit codes: 0 after
// a clean stop, 1 when it cannot start, 2 for bad arguments, 3 when another
// agent already serves the domain, 75 from the exit-in-call fault switch.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <vector>

#include "core/io/KyDir.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/platform/KyStandardPaths.h"
#include "ipc/IpcNames.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/SubscribersRegistryTable.h"
#include "tools/velmo-demo-agent/VelmoDemoAgent.h"
#include "tools/velmo-demo-agent/VelmoDemoCommandLine.h"

namespace {

// A live process other than this one that drains the agent's request queue
// in domain, or 0. Opening the agent's signals (as a waiting console does)
// makes nobody a server: only a server subscribes to its request queues.
uint32_t otherServer(const KyString& domain) {
    std::vector<uint32_t> pids;
    ky::ipc::SubscribersRegistryTable<512>::listSubscriberPids(domain, "velnet/VelmoVpnAgent",
                                                                ky::ipc::rpcRequestQueueName("createTun"), pids);
    for (uint32_t pid : pids)
        if (pid != static_cast<uint32_t>(::getpid()) && !ky::ipc::detail::processGone_(pid)) return pid;
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<KyString> args;
    for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
    VelmoDemoCommandLine::Result parsed =
        VelmoDemoCommandLine::parse(args, KyStandardPaths::environment("VELMO_IPC_DOMAIN"));
    if (parsed.help) {
        std::fputs(VelmoDemoCommandLine::usage().c_str(), stdout);
        return 0;
    }
    if (!parsed.ok) {
        std::fprintf(stderr, "velmo-demo-agent: %s\n%s", parsed.error.c_str(), VelmoDemoCommandLine::usage().c_str());
        return 2;
    }
    VelmoDemoWorkspaceOptions& options = parsed.options;
    if (options.stateDirectory.isEmpty())
        options.stateDirectory = VelmoDemoWorkspace::defaultStateDirectory(options.domain);
    // Two servers of one request queue would split the console's calls between them.
    if (const uint32_t other = otherServer(options.domain)) {
        std::fprintf(stderr, "velmo-demo-agent: an agent (pid %u) already serves domain \"%s\"\n", other,
                     options.domain.c_str());
        return 3;
    }
    KyString error;
    if (!KyDir::createPathTree(options.stateDirectory, &error)) {
        std::fprintf(stderr, "velmo-demo-agent: %s\n", error.c_str());
        return 1;
    }
    // The object's configuration layers live beside the session, not in whatever directory we were started from.
    KyRemoteObject::setDefaultConfigRoot(options.stateDirectory + "/systemConfig");

    try {
        KyCoreApplication app(argc, argv);
        VelmoDemoAgent agent(options);
        agent.startServing();
        std::printf("velmo-demo-agent: domain \"%s\", object path \"%s\", %d VPNs\n", options.domain.c_str(),
                    agent.objectPath().c_str(), static_cast<int>(agent.workspace().catalog().hotspots().size()));
        std::printf("Demo account: e-mail \"%s\", password \"%s\"\n", VelmoDemoWorkspace::kDemoEmail,
                    VelmoDemoWorkspace::kDemoPassword);
        std::printf("Session file: %s\n", agent.workspace().sessionFilePath().c_str());
        std::printf("velmo-demo-agent ready\n");
        std::fflush(stdout);
        const int code = app.exec();
        std::printf("velmo-demo-agent stopped\n");
        std::fflush(stdout);
        return code;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "velmo-demo-agent: %s\n", e.what());
        return 1;
    }
}
