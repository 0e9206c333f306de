// VelmoDemoWorkspace: everything the demo agent pretends to be — a signed-in
// workspace with its VPN catalog, a tunnel, a control link, local filtering
// and traffic counters — as a plain class without threads or IPC.
//
// The owner drives it in two ways: the seventeen agent methods, called in the
// order and with the types the console uses, and tick(nowMs), which runs the
// delayed steps (a sign-in that takes a moment, a catalog that loads) and the
// traffic counters. Everything it has to tell goes out through the nine
// callbacks of VelmoDemoSignals, one per agent signal, always from inside a
// method or a tick. One thread only: the agent's loop thread, or a test.
//
// The signed-in session is remembered in a small JSON file in the state
// directory, written atomically; a workspace started later over the same file
// restores it. Fault switches in the options make it misbehave on purpose.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "core/types/KyJsonObject.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "tools/velmo-demo-agent/VelmoDemoCatalog.h"
#include "tools/velmo-demo-agent/VelmoDemoFilter.h"

/// One callable per agent signal, with the signal's argument types, in the
/// order the console subscribes to them. An empty callable is skipped.
struct VelmoDemoSignals {
    std::function<void(const KyString& line)> logLine;
    std::function<void(int rx, int tx, int drop)> stats;
    std::function<void(bool open, const KyString& text)> tunState;
    std::function<void(int state, const KyString& text)> wsState;
    std::function<void(const KyString& localVpnId, bool fullRoute)> clientConfigState;
    std::function<void(const KyString& address, const KyString& subnet, const KyString& gateway)> assignedNetworkState;
    std::function<void(const KyString& json)> authState;
    std::function<void(const KyString& json)> vpnCatalogState;
    std::function<void(const KyString& json)> vpnEndpointsState;
};

/// How the workspace is set up, including the faults it shows on purpose.
struct VelmoDemoWorkspaceOptions {
    KyString domain = "velnet";
    /// Where session.json lives; empty means the user's state directory +
    /// "/velmo-demo-agent/" + the domain.
    KyString stateDirectory;
    std::uint64_t seed = 1;
    int catalogSize = 12;
    /// Largest JSON text of one snapshot. Longer lists are cut to fit, since a
    /// signal carries at most 4096 bytes and drops anything bigger.
    int snapshotBudget = 4000;

    // Faults. A method name of "" means every method.
    bool slowReplies = false;   ///< methods sleep slowReplyMs before they answer
    KyString slowMethod;
    int slowReplyMs = 2600;
    bool loginError = false;    ///< every sign-in fails with a server error
    bool malformedSnapshot = false; ///< the first ready catalog goes out cut in half
    bool exitInCall = false;    ///< the process ends inside exitMethod, without a reply
    KyString exitMethod = "loginUser";
    bool reconnecting = false;  ///< start with a saved session being retried

    // What the workspace cannot do by itself.
    std::function<void(int ms)> sleepMs;   ///< default: a real sleep
    std::function<void()> exitNow;         ///< default: _exit(75)
    std::function<void()> shutdownRequested; ///< asked some moments after requestShutdown
};

/// The simulated agent: state, delayed steps and traffic, reported through callbacks.
class VelmoDemoWorkspace {
public:
    static constexpr const char* kDemoEmail = "demo@velmo.net";
    static constexpr const char* kDemoPassword = "velmo-demo";

    // Simulated latencies, in milliseconds of tick time.
    static constexpr int kSignInDelayMs = 800;
    static constexpr int kRestoreDelayMs = 1200;
    static constexpr int kReconnectAttemptMs = 1500;
    static constexpr int kReconnectAttempts = 3;
    static constexpr int kLogoutDelayMs = 400;
    static constexpr int kCatalogDelayMs = 600;
    static constexpr int kEndpointDelayMs = 500;
    static constexpr int kLinkDelayMs = 700;
    static constexpr int kShutdownDelayMs = 200;
    static constexpr int kStatsPeriodMs = 1000;
    static constexpr int kDriftPeriodMs = 15000;
    static constexpr int kTrafficLogPeriods = 15;
    static constexpr std::size_t kLogHistory = 500;

    VelmoDemoWorkspace(VelmoDemoWorkspaceOptions options, VelmoDemoSignals signals);
    ~VelmoDemoWorkspace();
    VelmoDemoWorkspace(const VelmoDemoWorkspace&) = delete;
    VelmoDemoWorkspace& operator=(const VelmoDemoWorkspace&) = delete;

    /// Publishes the first value of every signal and begins restoring a saved
    /// session, if there is one. nowMs is the clock that tick() will use.
    void start(std::int64_t nowMs);
    /// Runs every step due at nowMs, then the traffic counters.
    void tick(std::int64_t nowMs);

    // The agent's methods, in the order the console declares them. Each
    // answers true when it took the request (tunIsOpen and wsIsConnected: the
    // state asked for), false with a log line when it refused it; the outcome
    // itself arrives later through the signals.
    bool createTun();
    bool closeTun();
    bool connectWs();
    bool disconnectWs();
    bool clearLog();
    bool tunIsOpen();
    bool wsIsConnected();
    bool setRemoteConfig(const KyString& key, const KyString& value);
    bool loginUser(const KyString& baseUrl, const KyString& email, const KyString& password);
    bool logoutUser();
    bool refreshVpnCatalog();
    bool refreshVpnEndpoints(const KyString& hotspotId);
    bool setInspectedHotspot(const KyString& hotspotId);
    bool setEndpointVpnState(const KyString& hotspotId, const KyString& clientId, bool enabled);
    bool connectHotspot(const KyString& hotspotId);
    bool disconnectHotspot();
    bool requestShutdown();

    /// The seventeen method names, in the order above.
    static KyList<KyString> methodNames();

    // Read-only views, for the agent's start-up text and for tests.
    const KyString& authStatus() const { return authStatus_; }
    const KyString& activeHotspotId() const { return activeHotspotId_; }
    const KyString& inspectedHotspotId() const { return inspectedHotspotId_; }
    const VelmoDemoCatalog& catalog() const { return catalog_; }
    const VelmoDemoFilter& filter() const { return filter_; }
    /// The user's state directory + "/velmo-demo-agent/" + the domain (made safe for a path).
    static KyString defaultStateDirectory(const KyString& domain);
    /// Path of the remembered session.
    KyString sessionFilePath() const;
    /// The latest log lines (at most kLogHistory), oldest first; clearLog empties it.
    const std::vector<KyString>& logHistory() const { return logHistory_; }

private:
    struct Step {
        std::int64_t due;
        std::uint64_t order;
        std::function<void()> run;
    };

    bool enterCall_(const char* method);
    void after_(int delayMs, std::function<void()> run);
    void log_(const KyString& line);

    // Session.
    void publishAuth_();
    void setAuth_(const KyString& status, const KyString& error = KyString());
    void becomeReady_(bool restored);
    void resetSession_();
    bool readSession_(KyJsonObject& out);
    void saveSession_();
    void forgetSession_();

    // Catalog and endpoints.
    void loadCatalog_(const KyString& word);
    int publishCatalog_();
    int publishEndpoints_(const KyString& status, const KyString& error = KyString());
    void loadEndpoints_(const KyString& word);
    void republishEndpoints_();
    KyString fitSnapshot_(KyJsonObject head, const char* listKey, const std::vector<KyJsonObject>& items,
                          int* shown) const;

    // Link, tunnel and traffic.
    void setTun_(bool open, const KyString& text);
    void setWs_(int state, const KyString& text);
    void joinHotspot_(const KyString& hotspotId);
    void leaveHotspot_(bool quiet);
    void publishClientConfig_();
    void runTraffic_(std::int64_t nowMs);

    VelmoDemoWorkspaceOptions options_;
    VelmoDemoSignals signals_;
    VelmoDemoCatalog catalog_;
    VelmoDemoFilter filter_;

    std::int64_t nowMs_ = 0;
    std::uint64_t stepOrder_ = 0;
    std::vector<Step> steps_;
    bool started_ = false;

    // A new sign-in, sign-out or restore raises the generation, so steps of an
    // earlier one find themselves stale and do nothing.
    std::uint64_t authGeneration_ = 0;
    KyString authStatus_ = "logged_out";
    KyString authError_;
    KyString email_;
    KyString baseUrl_;
    KyString token_;

    KyString catalogStatus_ = "idle";
    KyString catalogError_;
    bool catalogLoaded_ = false;
    bool malformedPending_ = false;
    std::uint64_t catalogGeneration_ = 0;

    KyString inspectedHotspotId_;
    KyString endpointStatus_ = "idle";
    std::uint64_t endpointGeneration_ = 0;

    KyString activeHotspotId_;
    KyString rememberedHotspotId_;
    std::uint64_t linkGeneration_ = 0;
    bool tunOpen_ = false;
    int wsState_ = 2;

    std::int64_t rx_ = 0;
    std::int64_t tx_ = 0;
    std::int64_t drop_ = 0;
    std::int64_t wouldDrop_ = 0;
    std::int64_t lastStatsMs_ = 0;
    std::int64_t lastDriftMs_ = 0;
    std::uint64_t trafficStep_ = 0;
    std::uint64_t driftStep_ = 0;
    bool shutdownAsked_ = false;
    std::vector<KyString> logHistory_;
};
