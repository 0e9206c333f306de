// VelmoDemoAgent: the demo workspace on the IPC fabric, at the agent's object
// path "velnet/VelmoVpnAgent" in the chosen domain. It serves the seventeen
// agent methods and publishes the nine agent signals, so a console finds it
// and talks to it exactly as it would to the real agent.
//
// Threads: the agent belongs to the thread that runs the loop (the process's
// main thread). Requests, the tick timer and every publication run there.
// Log lines are paced, one per tick: a signal keeps only its latest value, and
// a burst published at once would reach the console as its last line alone.
#pragma once

#include <deque>
#include <memory>

#include "ipc/KyRemoteObject.h"
#include "ipc/Signal.h"
#include "tools/velmo-demo-agent/VelmoDemoWorkspace.h"

class KyTimer;

/// The demo agent: a remote object that serves the workspace's methods and signals.
class VelmoDemoAgent : public KyRemoteObject {
    KY_OBJECT(VelmoDemoAgent, KyRemoteObject)

public:
    /// Period of the tick that drives the workspace and sends paced log lines.
    static constexpr int kTickMs = 40;
    /// Log lines waiting beyond this are dropped, oldest first.
    static constexpr std::size_t kMaxPendingLogLines = 1000;

    /// Opens the nine signals in options.domain; throws std::runtime_error when
    /// a channel exists with another signature.
    explicit VelmoDemoAgent(VelmoDemoWorkspaceOptions options, KyObject* parent = nullptr);
    ~VelmoDemoAgent() override;

    /// Exposes the methods, publishes the first values and starts ticking.
    void startServing();

    VelmoDemoWorkspace& workspace() { return *workspace_; }

    // The agent's methods, in the order the console declares them.
    bool createTun();
    bool closeTun();
    bool connectWs();
    bool disconnectWs();
    bool clearLog();
    bool tunIsOpen();
    bool wsIsConnected();
    bool setRemoteConfig(KyString key, KyString value);
    bool loginUser(KyString baseUrl, KyString email, KyString password);
    bool logoutUser();
    bool refreshVpnCatalog();
    bool refreshVpnEndpoints(KyString hotspotId);
    bool setInspectedHotspot(KyString hotspotId);
    bool setEndpointVpnState(KyString hotspotId, KyString clientId, bool enabled);
    bool connectHotspot(KyString hotspotId);
    bool disconnectHotspot();
    bool requestShutdown();

private:
    VelmoDemoSignals makeSignals_();
    void tick_();
    void queueLogLine_(const KyString& line);

    ky::ipc::Signal<KyString> logLine_;
    ky::ipc::Signal<int, int, int> stats_;
    ky::ipc::Signal<bool, KyString> tunState_;
    ky::ipc::Signal<int, KyString> wsState_;
    ky::ipc::Signal<KyString, bool> clientConfigState_;
    ky::ipc::Signal<KyString, KyString, KyString> assignedNetworkState_;
    ky::ipc::Signal<KyString> authState_;
    ky::ipc::Signal<KyString> vpnCatalogState_;
    ky::ipc::Signal<KyString> vpnEndpointsState_;

    std::unique_ptr<VelmoDemoWorkspace> workspace_;
    KyTimer* timer_ = nullptr;
    std::deque<KyString> pendingLog_;
    bool serving_ = false;
};
