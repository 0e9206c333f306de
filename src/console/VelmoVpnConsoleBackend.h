// VelmoVpnConsoleBackend: the nine signals of the agent as the console hears
// them. velmoVpnConsoleBindBackendSignals opens each signal by name on the
// agent's object and connects it to one callback of the record. The signals
// and their subscriptions are process-wide singletons: a rebind (after the
// agent was lost and came back) reuses the signals and replaces the
// subscriptions. Callbacks run on the loop of the thread that made the first
// subscription; the console's callbacks only post tasks to its main loop.
// Bind and unbind on the main thread.
#pragma once

#include <functional>

#include "core/types/KyString.h"

/// One callable per agent signal, in the agent's order.
struct VelmoVpnConsoleBackendCallbacks {
    std::function<void(const KyString& line)> logLine;
    std::function<void(int rx, int tx, int drop)> stats;
    std::function<void(bool open, const KyString& text)> tunState;
    std::function<void(int state, const KyString& text)> wsState;
    std::function<void(const KyString& localVpnId, bool flag)> clientConfigState;
    std::function<void(const KyString& a, const KyString& b, const KyString& c)> assignedNetworkState;
    std::function<void(const KyString& json)> authState;
    std::function<void(const KyString& json)> vpnCatalogState;
    std::function<void(const KyString& json)> vpnEndpointsState;
};

/// Opens the nine signals on (domain, target) once per process and
/// (re)connects each to its callback. A signal that cannot be opened (another
/// signature under its name) is logged and left unbound.
void velmoVpnConsoleBindBackendSignals(const KyString& domain, const KyString& target,
                                       const VelmoVpnConsoleBackendCallbacks& callbacks);
/// Ends the nine subscriptions (the signals stay open for a later bind).
void velmoVpnConsoleUnbindBackendSignals();
