// Shared by the tests that run the real console or the real demo agent as
// child processes in an IPC domain of the test's own, with their settings,
// state and configuration layers in a temporary home. The console's state
// trail ("velmo.console.state" lines on stderr) is what the tests watch; the
// test process plays the user's part through its own agent proxy. A fixture
// that brings its own application (a GUI one) mixes in ConsoleProcesses;
// ConsoleLinkFixture adds a core application. Everything here runs on the
// test's own thread.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "KyTestIpc.h"
#include "KyTestProcess.h"
#include "KyTestXvfb.h"
#include "console/VelmoVpnAgentProxy.h"
#include "core/runtime/KyCoreApplication.h"

namespace kytest {

class ConsoleProcesses {
public:
    static constexpr const char* kAgentObject = "velnet/VelmoVpnAgent";

    std::vector<std::string> env() const {
        const std::string home = home_.path().toStdString();
        return {"VELMO_IPC_DOMAIN=" + domain_.name().toStdString(), "HOME=" + home,
                "XDG_CONFIG_HOME=" + home + "/config", "XDG_STATE_HOME=" + home + "/state",
                "KY_CONFIG_ROOT=" + home + "/systemConfig", displayEnvironment()};
    }
    /// Starts the console (without a forced failure or logging rules of the
    /// caller's environment) and waits until it searches for the agent.
    bool startConsole(Child& console) {
        if (!console.start(helperPath("../../src/console/VelmoVpnConsole"), {}, env(),
                           {"KY_LOGGING_RULES", "KY_DEBUG_RULES", "VELMO_CONSOLE_FAIL_AT_START"}))
            return false;
        domain_.trackPid(static_cast<uint32_t>(console.pid()));
        return console.waitForError("Searching for VelmoVpnAgent backend...", std::chrono::seconds(30));
    }
    /// Starts the agent with the caller's logging rules replaced by logRules.
    bool startAgent(Child& agent, const std::string& logRules = "") {
        std::vector<std::string> environment = env();
        if (!logRules.empty()) environment.push_back("KY_LOGGING_RULES=" + logRules);
        if (!agent.start(helperPath("../../tools/velmo-demo-agent"),
                         {"--domain", domain_.name().toStdString(), "--state-dir", home_.path().toStdString() + "/agent",
                          "--seed", "7", "--catalog-size", "12"},
                         environment, logRules.empty() ? std::vector<std::string>{} : std::vector<std::string>{"KY_DEBUG_RULES"}))
            return false;
        domain_.trackPid(static_cast<uint32_t>(agent.pid()));
        return agent.waitForText("velmo-demo-agent ready", std::chrono::seconds(30));
    }
    /// Starts the agent, then a console, and waits until the console is bound to it.
    ::testing::AssertionResult startBound(Child& agent, Child& console) {
        if (!startAgent(agent)) return ::testing::AssertionFailure() << "agent: " << agent.err();
        if (!startConsole(console) || !console.waitForError("Backend auto-connected", std::chrono::seconds(30)))
            return ::testing::AssertionFailure() << "console: " << console.err();
        return ::testing::AssertionSuccess();
    }
    /// Waits until text appears at least n times in the console's stderr.
    static bool waitForCount(Child& console, const std::string& text, size_t n,
                             std::chrono::milliseconds deadline = std::chrono::seconds(30)) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (count(console.err(), text) < n) {
            if (std::chrono::steady_clock::now() > end) return false;
            console.waitForError(text + "\x01", std::chrono::milliseconds(200));  // pumps stderr for a while
        }
        return true;
    }
    static size_t count(const std::string& hay, const std::string& needle) {
        size_t n = 0;
        for (size_t p = hay.find(needle); p != std::string::npos; p = hay.find(needle, p + 1)) ++n;
        return n;
    }
    /// The test's own proxy of the agent, made on first use.
    VelmoVpnAgentProxy& user() {
        if (!proxy_) proxy_ = std::make_unique<VelmoVpnAgentProxy>(domain_.name(), kAgentObject, "test");
        return *proxy_;
    }

    IpcDomain domain_{"link"};
    TempDir home_;
    std::unique_ptr<VelmoVpnAgentProxy> proxy_;  // reset before the application goes
};

class ConsoleLinkFixture : public ::testing::Test, public ConsoleProcesses {
protected:
    ~ConsoleLinkFixture() override { proxy_.reset(); }

    KyCoreApplication app_;
};

}  // namespace kytest
