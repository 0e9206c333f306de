// Discovery cost over a domain of 200 registered rows: the signal table's
// snapshot alone (the floor every discovery step pays at least once), then
// discoverRpcTargets, remotePid_ of one object, and a steady browser pass
// that knows all ten servers of the domain and checks each of them.
//
// The rows belong to this process and the ten server objects are marked as
// served here, so no second process is needed; the proxy class holds no
// method clients, so nothing but the registry tables is created. Every
// shared object made here is unlinked at the end.
#include <sys/mman.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <string>

#include "core/types/KyList.h"
#include "ipc/AppsRegistryTable.h"
#include "ipc/IpcNames.h"
#include "ipc/KyProxyObjectBrowser.h"
#include "ipc/ProxyObjectBase.h"
#include "ipc/RegistryShared.h"
#include "ipc/RegistryTable.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/SubscribersRegistryTable.h"

namespace {

using namespace ky::ipc;

constexpr int kServers = 10;
constexpr int kRows = 200;

/// A proxy of the agent's kind, without method clients.
class BenchProxy : public ProxyObjectBase {
public:
    using ProxyObjectBase::ProxyObjectBase;
    static void kyIpcRemoteAppendAllSpecs_(KyList<RpcRequestSpec>& specs) {
        specs.append(rpcRequestSpec<>("createTun"));
        specs.append(rpcRequestSpec<>("closeTun"));
    }
};

struct Domain {
    KyString name = KyString("kybench-discovery-") + KyString::number(static_cast<long>(::getpid()));
    KyString appsTable = KyString("/ky_ipc_registry_apps_") + name;

    Domain() {
        AppsRegistryTable<64>::setObjectNameForTesting_(appsTable);
        for (int i = 0; i < kServers; ++i)
            detail::markObjectServed_(name, KyString("velnet/Agent") + KyString::number(i), true);
        touch();
    }
    // Registers (or renews) every row: there is no heartbeat without a loop,
    // and rows older than 15 s would be cleaned away under a long run.
    void touch() {
        int rows = 0;
        auto add = [&](const KyString& object, const KyString& signal, uint64_t typeId) {
            RegistryTable<256>::registerSignal(name, object, signal, detail::make_shm_name(name, object, signal),
                                               typeId, "bench");
            ++rows;
        };
        const uint64_t request = rpcRequestSpec<>("createTun").typeId;
        for (int i = 0; i < kServers; ++i) {
            const KyString object = KyString("velnet/Agent") + KyString::number(i);
            add(object, "__rpc__|100|createTun", request);
            add(object, "__rpc__|100|closeTun", request);
            add(object, "tunState", 1);
        }
        for (int i = 0; rows < kRows; ++i)
            add(KyString("velnet/Other") + KyString::number(i / 5), KyString("state") + KyString::number(i % 5), 2);
    }
    ~Domain() {
        const std::string suffix = detail::sanitizeRegistrySuffix_(name).toStdString();
        for (const std::string& n :
             {"/ky_ipc_registry_" + suffix, "/ky_ipc_subs_" + suffix, appsTable.toStdString(),
              detail::make_shm_name(name, detail::registryEventsObjectName_(), detail::registryEventsSignalName_())
                  .toStdString(),
              "/ky_ipc_dispatch_tbl_v1_" + std::to_string(::getpid())})
            ::shm_unlink(n.c_str());
    }
};

Domain& domain() {
    static Domain d;
    d.touch();
    return d;
}

void BM_SnapshotBaseline(benchmark::State& state) {
    const KyString name = domain().name;
    for (auto _ : state) benchmark::DoNotOptimize(RegistryTable<256>::snapshot(name));
    state.counters["rows"] = static_cast<double>(RegistryTable<256>::snapshot(name).size());
}
BENCHMARK(BM_SnapshotBaseline)->Unit(benchmark::kMicrosecond);

void BM_DiscoverRpcTargets(benchmark::State& state) {
    const KyString name = domain().name;
    KyList<RpcRequestSpec> specs;
    BenchProxy::kyIpcRemoteAppendAllSpecs_(specs);
    for (auto _ : state) benchmark::DoNotOptimize(discoverRpcTargets(name, specs, true));
    state.counters["targets"] = static_cast<double>(discoverRpcTargets(name, specs, true).size());
}
BENCHMARK(BM_DiscoverRpcTargets)->Unit(benchmark::kMicrosecond);

void BM_RemotePid(benchmark::State& state) {
    BenchProxy proxy(domain().name, "velnet/Agent3", "bench");
    for (auto _ : state) benchmark::DoNotOptimize(proxy.remotePid_());
}
BENCHMARK(BM_RemotePid)->Unit(benchmark::kMicrosecond);

void BM_BrowserRefreshSteady(benchmark::State& state) {
    KyProxyObjectBrowser<BenchProxy> browser(domain().name, "*", "bench");
    browser.refreshNow();
    if (browser.targets().size() != static_cast<size_t>(kServers)) state.SkipWithError("servers not found");
    for (auto _ : state) browser.refreshNow();
    state.counters["known"] = static_cast<double>(browser.targets().size());
}
BENCHMARK(BM_BrowserRefreshSteady)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
