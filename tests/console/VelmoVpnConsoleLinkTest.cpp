// The console beside a real demo agent, both as real processes in a domain of
// their own: finding the agent, following its snapshots, losing it and
// finding it again, and ending cleanly. The console's state trail
// ("velmo.console.state" lines on stderr) is what these tests watch; the test
// process plays the user's part by calling the agent itself.
#include <signal.h>

#include <gtest/gtest.h>

#include "../support/KyTestConsoleLink.h"

namespace {

using namespace std::chrono_literals;

using ConsoleWithAgent = kytest::ConsoleLinkFixture;

TEST_F(ConsoleWithAgent, FindsTheAgentFollowsItsSessionAndLosesAndRegainsIt) {
    kytest::Child console;
    ASSERT_TRUE(startConsole(console)) << console.err();
    EXPECT_TRUE(console.waitForError("shell: loading", 30s)) << console.err();

    kytest::Child agent;
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    ASSERT_TRUE(console.waitForError("Backend auto-connected: velnet/VelmoVpnAgent", 30s)) << console.err();

    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    ASSERT_TRUE(console.waitForError("auth: Signed in", 30s)) << console.err();
    EXPECT_TRUE(console.waitForError("shell: console", 30s)) << console.err();
    EXPECT_TRUE(console.waitForError("catalog: VPN catalog ready", 30s)) << console.err();

    // The agent dies: the console notices, shows the loading surface, and
    // keeps the session words for when the agent is back.
    agent.sendSignal(SIGKILL);
    agent.kill();
    ASSERT_TRUE(console.waitForError("Backend lost", 30s)) << console.err();
    EXPECT_TRUE(console.waitForError("auth: Client agent disconnected", 30s)) << console.err();
    EXPECT_TRUE(waitForCount(console, "shell: loading", 2)) << console.err();

    // A new agent restores the remembered session; the console binds again by itself.
    kytest::Child again;
    ASSERT_TRUE(startAgent(again)) << again.err();
    ASSERT_TRUE(waitForCount(console, "Backend auto-connected: velnet/VelmoVpnAgent", 2)) << console.err();
    EXPECT_TRUE(waitForCount(console, "auth: Signed in", 2)) << console.err();

    ASSERT_TRUE(console.sendSignal(SIGTERM));
    EXPECT_EQ(console.finish(60s), 0) << console.err();
    // The console never takes the agent down with it.
    EXPECT_TRUE(again.sendSignal(0));
}

TEST_F(ConsoleWithAgent, AWrongPasswordShowsTheAgentsErrorAndTheLoginShell) {
    kytest::Child agent;
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    kytest::Child console;
    ASSERT_TRUE(startConsole(console)) << console.err();
    ASSERT_TRUE(console.waitForError("Backend auto-connected", 30s)) << console.err();
    user().loginUser("", "demo@velmo.net", "wrong", 5000);
    ASSERT_TRUE(console.waitForError("auth: ", 30s));
    // "logged_out" with an error: the error is the status text, and once the
    // first seconds are over the login shell comes up.
    EXPECT_TRUE(console.waitForError("shell: login", 30s)) << console.err();
    ASSERT_TRUE(console.sendSignal(SIGTERM));
    EXPECT_EQ(console.finish(60s), 0) << console.err();
}

TEST_F(ConsoleWithAgent, AnIndependentPeerCallsTheAgentAndHearsItsSignals) {
    kytest::Child agent;
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    const std::string d = domain_.name().toStdString();
    kytest::Child watch;
    ASSERT_TRUE(watch.start(kytest::helperPath("ky_c_peer"),
                            {"watch", d, "velnet/VelmoVpnAgent", "authState", "s", "--initial", "--count", "10",
                             "--timeout", "30000"}));
    domain_.trackPid(static_cast<uint32_t>(watch.pid()));
    ASSERT_TRUE(watch.waitForText("ready\n", 30s)) << watch.err();
    kytest::Child call;
    ASSERT_TRUE(call.start(kytest::helperPath("ky_c_peer"), {"call", d, "velnet/VelmoVpnAgent", "loginUser", "sss", "",
                                                              "demo@velmo.net", "velmo-demo", "--timeout", "5000"}));
    domain_.trackPid(static_cast<uint32_t>(call.pid()));
    EXPECT_EQ(call.finish(60s), 0) << call.out() << call.err();
    EXPECT_NE(call.out().find("result true"), std::string::npos) << call.out();
    EXPECT_TRUE(watch.waitForText("\"ready\"", 30s)) << watch.out();
}

}  // namespace
