// The demo agent as a console meets it: the real velmo-demo-agent executable
// in a child process, reached through the agent's signals and remote methods
// in a domain of this run's own, with its session in a temporary directory.
// Every shared object that a test made is removed at its end.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "../support/KyTestIpc.h"
#include "../support/KyTestLoop.h"
#include "../support/KyTestProcess.h"
#include "core/io/KyFile.h"
#include "core/types/KyJsonHelpers.h"
#include "ipc/IpcNames.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/Signal.h"
#include "tools/velmo-demo-agent/VelmoDemoWorkspace.h"

namespace {

constexpr const char* kObject = "velnet/VelmoVpnAgent";
constexpr auto kStartDeadline = std::chrono::seconds(30);

KyString agentPath() {
    // The helpers live in <build>/tests/helpers, the tools in <build>/tools.
    return kytest::helperPath("../../tools/velmo-demo-agent");
}

/// What the agent's signals said last, as a console would keep it.
struct AgentView {
    std::vector<KyString> authWords;
    KyJsonObject auth;
    KyJsonObject catalog;
    std::vector<KyString> logLines;
    std::vector<int> stats{0, 0, 0};
    int statsCount = 0;
    bool tunOpen = false;
    int wsState = -1;
    KyString wsText;
    KyString localVpnId;
};

/// One agent process and a console-side view of it, on this test's loop.
class DemoAgent : public kytest::LoopFixture {
protected:
    void SetUp() override {
        kytest::LoopFixture::SetUp();
        registry.domain = domain;
    }
    void TearDown() override {
        subscriptions.clear();
        signals.clear();
        kytest::LoopFixture::TearDown();
    }

    bool startAgent(std::vector<std::string> extra = {}) {
        std::vector<std::string> args = {"--domain", domain.toStdString(), "--state-dir", dir.path().toStdString(),
                                         "--catalog-size", "6"};
        args.insert(args.end(), extra.begin(), extra.end());
        agent = std::make_unique<kytest::Child>();
        if (!agent->start(agentPath(), args)) return false;
        ipc.trackPid(static_cast<uint32_t>(agent->pid()));
        return agent->waitForText("velmo-demo-agent ready", kStartDeadline);
    }

    template <typename... Args, typename Fn>
    void watch(const char* name, Fn fn) {
        auto signal = std::make_shared<ky::ipc::Signal<Args...>>(registry, name);
        subscriptions.push_back(std::make_shared<typename ky::ipc::Signal<Args...>::Subscription>(
            signal->connect(std::move(fn), true, 0)));
        signals.push_back(signal);
    }

    /// Subscribes to the signals the way the console does, with their latest values.
    void watchAgent() {
        watch<KyString>("authState", [this](const KyString& json) {
            view.auth = parseJsonObjectOrEmpty(json);
            view.authWords.push_back(jsonStringValue(view.auth, "status"));
        });
        watch<KyString>("vpnCatalogState", [this](const KyString& json) { view.catalog = parseJsonObjectOrEmpty(json); });
        watch<KyString>("logLine", [this](const KyString& line) { view.logLines.push_back(line); });
        watch<int, int, int>("stats", [this](int rx, int tx, int drop) {
            view.stats = {rx, tx, drop};
            ++view.statsCount;
        });
        watch<bool, KyString>("tunState", [this](bool open, const KyString&) { view.tunOpen = open; });
        watch<int, KyString>("wsState", [this](int state, const KyString& text) {
            view.wsState = state;
            view.wsText = text;
        });
        watch<KyString, bool>("clientConfigState", [this](const KyString& id, bool) { view.localVpnId = id; });
    }

    bool waitFor(const std::function<bool()>& pred) { return pumpUntil(pred); }
    KyString authStatus() const { return jsonStringValue(view.auth, "status"); }
    bool logHas(const KyString& text) const {
        for (const KyString& l : view.logLines)
            if (l.contains(text)) return true;
        return false;
    }

    // Its own domain; at the end nothing a gone agent made may be left in it.
    kytest::IpcDomain ipc{"demo-agent"};
    const KyString domain = ipc.name();
    kytest::TempDir dir;
    ky::ipc::Registry registry{KyString(), kObject};
    std::unique_ptr<kytest::Child> agent;
    std::vector<std::shared_ptr<void>> signals;
    std::vector<std::shared_ptr<void>> subscriptions;
    AgentView view;
};

} // namespace

TEST_F(DemoAgent, ServesASignInCatalogAndVpnAndStopsWhenAsked) {
    ASSERT_TRUE(startAgent()) << agent->out() << agent->err();
    EXPECT_NE(agent->out().find("demo@velmo.net"), std::string::npos);
    EXPECT_NE(agent->out().find("velmo-demo"), std::string::npos);
    watchAgent();
    ASSERT_TRUE(waitFor([&] { return authStatus() == "logged_out"; }));

    ky::ipc::RpcMethodClient<bool, KyString, KyString, KyString> login(domain, kObject, "loginUser", "test");
    ASSERT_TRUE(login.call("https://demo.velmo.net", VelmoDemoWorkspace::kDemoEmail, VelmoDemoWorkspace::kDemoPassword,
                           5000))
        << login.lastError();
    ASSERT_TRUE(waitFor([&] { return authStatus() == "ready"; })) << authStatus();
    EXPECT_EQ(jsonStringValue(view.auth, "email"), "demo@velmo.net");
    ASSERT_TRUE(waitFor([&] { return jsonStringValue(view.catalog, "status") == "ready"; }));
    const KyJsonArray hotspots = view.catalog.value("hotspots").toArray();
    ASSERT_EQ(hotspots.size(), 6u);

    ky::ipc::RpcMethodClient<bool, KyString, KyString> config(domain, kObject, "setRemoteConfig", "test");
    EXPECT_TRUE(config.call("filter/protocol", "1", 5000)) << config.lastError();
    EXPECT_FALSE(config.call("filter/nonsense", "1", 5000));
    EXPECT_EQ(config.lastError(), "") << "a refusal is an answer, not a failure";
    ASSERT_TRUE(waitFor([&] { return logHas("Unknown remote config key: filter/nonsense"); }));

    const KyString vpn = jsonStringValue(hotspots.at(0).toObject(), "id");
    ky::ipc::RpcMethodClient<bool, KyString> join(domain, kObject, "connectHotspot", "test");
    ASSERT_TRUE(join.call(vpn, 5000)) << join.lastError();
    ASSERT_TRUE(waitFor([&] { return view.wsState == 1 && view.wsText.startsWith("VPN"); })) << view.wsText;
    EXPECT_TRUE(view.tunOpen);
    EXPECT_EQ(view.localVpnId, vpn);
    EXPECT_EQ(jsonStringValue(view.auth, "activeHotspotId"), vpn);
    ASSERT_TRUE(waitFor([&] { return view.stats[0] > 0 && view.stats[1] > 0; }));

    kytest::Child second;
    ASSERT_TRUE(second.start(agentPath(), {"--domain", domain.toStdString(), "--state-dir", dir.path().toStdString()}));
    EXPECT_EQ(second.finish(), 3) << "one domain, one agent";
    EXPECT_NE(second.err().find("already serves"), std::string::npos) << second.err();

    ky::ipc::RpcMethodClient<bool> tunIsOpen(domain, kObject, "tunIsOpen", "test");
    EXPECT_TRUE(tunIsOpen.call(5000)) << tunIsOpen.lastError();

    ky::ipc::RpcMethodClient<bool> shutdown(domain, kObject, "requestShutdown", "test");
    EXPECT_TRUE(shutdown.call(1500)) << shutdown.lastError();
    EXPECT_EQ(agent->finish(), 0) << agent->err();
    EXPECT_NE(agent->out().find("velmo-demo-agent stopped"), std::string::npos);
}

TEST_F(DemoAgent, ASecondStartRestoresTheSessionAndSigtermEndsItCleanly) {
    ASSERT_TRUE(startAgent()) << agent->err();
    watchAgent();
    {
        ky::ipc::RpcMethodClient<bool, KyString, KyString, KyString> login(domain, kObject, "loginUser", "test");
        ASSERT_TRUE(login.call("", VelmoDemoWorkspace::kDemoEmail, VelmoDemoWorkspace::kDemoPassword, 5000))
            << login.lastError();
    }
    ASSERT_TRUE(waitFor([&] { return authStatus() == "ready"; }));
    ASSERT_TRUE(agent->sendSignal(SIGTERM));
    EXPECT_EQ(agent->finish(), 0) << agent->err();
    EXPECT_TRUE(kytest::waitUntil([&] { return KyFile::exists(dir.file("session.json")); }));

    view = AgentView{};
    ASSERT_TRUE(startAgent()) << agent->err();
    ASSERT_TRUE(waitFor([&] { return authStatus() == "ready"; })) << authStatus();
    EXPECT_EQ(jsonStringValue(view.auth, "email"), "demo@velmo.net");
    EXPECT_NE(view.authWords.front(), "logged_out") << "a remembered session never shows the sign-in state";
    ASSERT_TRUE(agent->sendSignal(SIGINT));
    EXPECT_EQ(agent->finish(), 0) << agent->err();
}

TEST_F(DemoAgent, FaultSwitchesMakeCallsTimeOutOrTheAgentVanish) {
    ASSERT_TRUE(startAgent({"--slow-replies=clearLog"})) << agent->err();
    ky::ipc::RpcMethodClient<bool> clearLog(domain, kObject, "clearLog", "test");
    EXPECT_FALSE(clearLog.call(2000));
    EXPECT_EQ(clearLog.lastError(), "rpc: timeout");
    // Slow is not dead: the same agent answers a patient caller.
    EXPECT_TRUE(clearLog.call(20000)) << clearLog.lastError();
    // Asked to stop, not killed: a process killed inside a critical section
    // would leave a shared mutex of the domain locked for the next agent.
    agent->sendSignal(SIGTERM);
    EXPECT_EQ(agent->finish(), 0) << agent->err();

    ASSERT_TRUE(startAgent({"--exit-in-call"})) << agent->err();
    ky::ipc::RpcMethodClient<bool, KyString, KyString, KyString> login(domain, kObject, "loginUser", "test");
    EXPECT_FALSE(login.call("", VelmoDemoWorkspace::kDemoEmail, VelmoDemoWorkspace::kDemoPassword, 2000));
    EXPECT_EQ(login.lastError(), "rpc: timeout");
    EXPECT_EQ(agent->finish(), 75);
    EXPECT_NE(agent->err().find("exiting inside loginUser"), std::string::npos);
}

TEST(DemoAgentCommandLine, BadArgumentsEndWithUsageAndCodeTwo) {
    kytest::Child child;
    ASSERT_TRUE(child.start(agentPath(), {"--catalog-size", "9999"}));
    EXPECT_EQ(child.finish(), 2);
    EXPECT_NE(child.err().find("Invalid catalog size"), std::string::npos);
    EXPECT_NE(child.err().find("Usage: velmo-demo-agent"), std::string::npos);
}
