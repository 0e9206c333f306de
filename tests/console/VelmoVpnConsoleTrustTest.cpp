// Whom the console trusts with the user's password: an agent run by another
// account is not bound and gets no sign-in, the service account an
// administrator names is bound, and a sign-in leaves no copy of the password
// in the console's memory, its log or /dev/shm. The real console and demo
// agent run as child processes; the cases with another account need root (to
// start the agent as nobody) and are skipped otherwise.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "../support/KyTestConsoleLink.h"
#include "../support/KyTestEnv.h"
#include "../support/KyTestSecret.h"
#include "console/VelmoVpnConsoleAgentTrust.h"

namespace {

using kytest::Child;
using namespace std::chrono_literals;

constexpr const char* kSetpriv = "/usr/bin/setpriv";
constexpr uint32_t kNobody = 65534;

using kytest::MaskedSecret;

class ConsoleTrust : public kytest::ConsoleLinkFixture {
protected:
    /// The demo agent under the account nobody, with a home of its own.
    ::testing::AssertionResult startAgentAsNobody(Child& agent) {
        const std::string home = nobodyHome_.path().toStdString();
        if (::chown(home.c_str(), kNobody, kNobody) != 0) return ::testing::AssertionFailure() << "chown " << home;
        const std::vector<std::string> env = {"VELMO_IPC_DOMAIN=" + domain_.name().toStdString(), "HOME=" + home,
                                              "XDG_CONFIG_HOME=" + home + "/config",
                                              "XDG_STATE_HOME=" + home + "/state",
                                              "KY_CONFIG_ROOT=" + home + "/systemConfig"};
        const std::string nobody = std::to_string(kNobody);
        if (!agent.start(kSetpriv,
                         {"--reuid=" + nobody, "--regid=" + nobody, "--clear-groups", "--",
                          kytest::helperPath("../../tools/velmo-demo-agent").toStdString(), "--domain",
                          domain_.name().toStdString(), "--state-dir", home + "/agent", "--seed", "7",
                          "--catalog-size", "12"},
                         env))
            return ::testing::AssertionFailure() << "setpriv did not start";
        domain_.trackPid(static_cast<uint32_t>(agent.pid()));
        if (!agent.waitForText("velmo-demo-agent ready", 30s)) return ::testing::AssertionFailure() << agent.err();
        return ::testing::AssertionSuccess();
    }
    static VelmoVpnAgentTrustPolicy ownPolicy() {
        VelmoVpnAgentTrustPolicy policy;
        policy.ownUid = static_cast<uint32_t>(::geteuid());
        return policy;
    }

    kytest::TempDir nobodyHome_;
};

#define KY_SKIP_UNLESS_ROOT()                                                                              \
    if (::geteuid() != 0 || ::access(kSetpriv, X_OK) != 0)                                                 \
    GTEST_SKIP() << "needs root and " << kSetpriv << " to run the agent under another account (nobody)"

TEST_F(ConsoleTrust, AnAgentOfAnotherAccountIsNotBoundAndGetsNoSignIn) {
    KY_SKIP_UNLESS_ROOT();
    const kytest::ScopedEnv noServiceAccount{{kVelmoVpnTrustedAgentUserVariable, nullptr}};
    Child agent, console;
    ASSERT_TRUE(startAgentAsNobody(agent));
    ASSERT_TRUE(startConsole(console)) << console.err();
    ASSERT_TRUE(console.waitForError("auth: The local agent is not trusted (runs as user nobody)", 30s))
        << console.err();
    // The warning comes with the refusal, before the state trail shows it.
    EXPECT_NE(console.err().find("Not binding the local agent: process " + std::to_string(agent.pid()) +
                                 " (velmo-demo-agen) runs as uid 65534 (nobody)"),
              std::string::npos)
        << console.err();
    EXPECT_EQ(console.err().find("Backend auto-connected"), std::string::npos) << console.err();

    // The sign-in road refuses it as well, and the password does not stay.
    KyString password = "not-for-nobody";
    EXPECT_EQ(velmoVpnConsoleSendLogin(&user(), ownPolicy(), "https://workspace.velmo.net", "demo@velmo.net",
                                       password, 2000),
              VelmoVpnSignInResult::AgentNotTrusted);
    EXPECT_TRUE(password.isEmpty());
}

struct ServiceAccountRow {
    const char* name;
    const char* variable;  // VELMO_TRUSTED_AGENT_USER, or none
    const char* setting;   // agent/trustedUser in the settings file, or none
};

class ServiceAccount : public ConsoleTrust, public ::testing::WithParamInterface<ServiceAccountRow> {};

TEST_P(ServiceAccount, IsBound) {
    KY_SKIP_UNLESS_ROOT();
    const ServiceAccountRow& row = GetParam();
    const kytest::ScopedEnv variable{{kVelmoVpnTrustedAgentUserVariable, row.variable}};
    if (row.setting) {
        ASSERT_EQ(::mkdir(home_.file("config").c_str(), 0700), 0);
        ASSERT_EQ(::mkdir(home_.file("config/velmo").c_str(), 0700), 0);
        std::ofstream(home_.file("config/velmo/VelmoVpnConsole.conf").toStdString())
            << "[agent]\ntrustedUser=" << row.setting << "\n";
    }
    Child agent, console;
    ASSERT_TRUE(startAgentAsNobody(agent));
    ASSERT_TRUE(startConsole(console)) << console.err();
    EXPECT_TRUE(console.waitForError("Backend auto-connected", 30s)) << console.err();
    EXPECT_EQ(console.err().find("not trusted"), std::string::npos) << console.err();
}

INSTANTIATE_TEST_SUITE_P(ConsoleTrust, ServiceAccount,
                         ::testing::Values(ServiceAccountRow{"UserNameInVariable", "nobody", nullptr},
                                           ServiceAccountRow{"UidInVariable", "65534", nullptr},
                                           ServiceAccountRow{"UserNameInSettings", nullptr, "nobody"}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ConsoleTrust, ASignInLeavesNoCopyOfThePassword) {
#if defined(__SANITIZE_ADDRESS__)
    // The sanitizer's shadow and allocator reserve terabytes of writable
    // address space: a scan of it never ends. The plain suite scans.
    GTEST_SKIP() << "the memory scan runs in the plain build, not under AddressSanitizer";
#endif
    Child agent;
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    const MaskedSecret secret;
    const KyString logPath = home_.file("stderr.log");
    VelmoVpnSignInResult result = VelmoVpnSignInResult::NoAgent;
    bool wiped = false;

    // The console's log goes to stderr: it is caught for the call.
    const int savedStderr = ::dup(2);
    const int logFd = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ASSERT_GE(logFd, 0);
    ::dup2(logFd, 2);
    // On a thread of its own, as on a pooled fiber: its stack is memory
    // that stays mapped and is used again after the call.
    std::thread([&] {
        VelmoVpnAgentProxy proxy(domain_.name(), kAgentObject, "trust-test");
        KyString password = secret.plain();
        result = velmoVpnConsoleSendLogin(&proxy, ownPolicy(), "https://workspace.velmo.net", "demo@velmo.net",
                                          password, 10000);
        wiped = password.isEmpty();
    }).join();
    ::dup2(savedStderr, 2);
    ::close(savedStderr);
    ::close(logFd);

    EXPECT_EQ(result, VelmoVpnSignInResult::Sent);
    EXPECT_TRUE(wiped);
    EXPECT_FALSE(secret.inOwnMemory());
    EXPECT_FALSE(secret.inSharedMemory());
    EXPECT_FALSE(secret.in(kytest::readFile(logPath.toStdString())));
}

}  // namespace
