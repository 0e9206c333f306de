// VelmoVpnConsoleBackend: function-local signal singletons and their subscriptions.
#include "console/VelmoVpnConsoleBackend.h"

#include <memory>
#include <stdexcept>

#include "core/io/KyDebug.h"
#include "ipc/Signal.h"

namespace {

using ky::ipc::Signal;
using Subscription = ky::ipc::detail::SubscriptionHandle;

// One signal of the agent: opened at the first bind, kept for the process.
template <typename... Args>
struct BackendSignal {
    std::unique_ptr<Signal<Args...>> signal;
    Subscription subscription;

    void bind(ky::ipc::Registry& registry, const char* name, std::function<void(const Args&...)> callback) {
        subscription.stop();
        if (!callback) return;
        if (!signal) {
            try {
                signal = std::make_unique<Signal<Args...>>(registry, KyString(name));
            } catch (const std::exception& e) {
                kyLogWarning("velmo.console") << "Cannot open agent signal " << name << ": " << e.what();
                return;
            }
        }
        subscription = signal->connect(std::move(callback));
    }
};

struct BackendSignals {
    ky::ipc::Registry registry;
    BackendSignal<KyString> logLine;
    BackendSignal<int, int, int> stats;
    BackendSignal<bool, KyString> tunState;
    BackendSignal<int, KyString> wsState;
    BackendSignal<KyString, bool> clientConfigState;
    BackendSignal<KyString, KyString, KyString> assignedNetworkState;
    BackendSignal<KyString> authState;
    BackendSignal<KyString> vpnCatalogState;
    BackendSignal<KyString> vpnEndpointsState;

    void unbindAll() {
        logLine.subscription.stop();
        stats.subscription.stop();
        tunState.subscription.stop();
        wsState.subscription.stop();
        clientConfigState.subscription.stop();
        assignedNetworkState.subscription.stop();
        authState.subscription.stop();
        vpnCatalogState.subscription.stop();
        vpnEndpointsState.subscription.stop();
    }
};

// Made at the first bind and kept for the process (never destroyed, so no
// subscription outlives the poller at exit); the registry's address is what
// the signals keep.
BackendSignals* gSignals = nullptr;

}  // namespace

void velmoVpnConsoleBindBackendSignals(const KyString& domain, const KyString& target,
                                       const VelmoVpnConsoleBackendCallbacks& callbacks) {
    if (gSignals == nullptr) gSignals = new BackendSignals{{domain, target}, {}, {}, {}, {}, {}, {}, {}, {}, {}};
    BackendSignals& s = *gSignals;
    s.logLine.bind(s.registry, "logLine", callbacks.logLine);
    s.stats.bind(s.registry, "stats", callbacks.stats);
    s.tunState.bind(s.registry, "tunState", callbacks.tunState);
    s.wsState.bind(s.registry, "wsState", callbacks.wsState);
    s.clientConfigState.bind(s.registry, "clientConfigState", callbacks.clientConfigState);
    s.assignedNetworkState.bind(s.registry, "assignedNetworkState", callbacks.assignedNetworkState);
    s.authState.bind(s.registry, "authState", callbacks.authState);
    s.vpnCatalogState.bind(s.registry, "vpnCatalogState", callbacks.vpnCatalogState);
    s.vpnEndpointsState.bind(s.registry, "vpnEndpointsState", callbacks.vpnEndpointsState);
}

void velmoVpnConsoleUnbindBackendSignals() {
    if (gSignals != nullptr) gSignals->unbindAll();
}
