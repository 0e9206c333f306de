// The console executable as a user starts it: it runs until SIGTERM or SIGINT
// and exits 0, honours the crash words and the hiding words, records a failed
// start in the two failure files, and reports a previous crash and a failed
// start once at the next start. Every run gets its own
// XDG state directory, so nothing touches the real home.
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

#include "../support/KyTestProcess.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "../support/KyTestIpc.h"
#include "../support/KyTestXvfb.h"

namespace {

using namespace std::chrono_literals;

KyString consoleBinary() {
    // Helpers live in <build>/tests/helpers; the console in <build>/src/console.
    return kytest::helperPath("../../src/console/VelmoVpnConsole");
}

class VelmoVpnConsoleProcess : public ::testing::Test {
protected:
    KyString crashDir() const { return state_.path() + "/VelmoVpnConsole/crashes"; }
    std::vector<std::string> env(std::vector<std::string> extra = {}) const {
        extra.push_back("XDG_STATE_HOME=" + state_.path().toStdString());
        // Its own IPC domain, so that the console meets no agent and leaves nothing behind.
        extra.push_back("VELMO_IPC_DOMAIN=" + domain_.name().toStdString());
        extra.push_back("KY_CONFIG_ROOT=" + state_.path().toStdString() + "/systemConfig");
        extra.push_back(kytest::displayEnvironment());
        return extra;
    }
    // Starts the console and waits until its loop is about to run.
    bool startConsole(kytest::Child& child, const std::vector<std::string>& args = {}) {
        if (!child.start(consoleBinary(), args, env(), {"KY_LOGGING_RULES", "KY_DEBUG_RULES", "VELMO_CONSOLE_FAIL_AT_START"}))
            return false;
        domain_.trackPid(static_cast<uint32_t>(child.pid()));
        return waitForLine(child, "Searching for VelmoVpnAgent backend...");
    }
    static bool waitForLine(kytest::Child& child, const std::string& text) { return child.waitForError(text, 30s); }
    static std::size_t occurrences(const std::string& hay, const std::string& needle) {
        std::size_t n = 0;
        for (std::size_t p = hay.find(needle); p != std::string::npos; p = hay.find(needle, p + 1)) ++n;
        return n;
    }

    kytest::TempDir state_;
    kytest::IpcDomain domain_{"console"};
};

// A crash, then a failed start: the next start reports each once and ends
// with exit code 0 on SIGTERM; the starts after it report nothing. Every
// hiding word starts the console in the background.
TEST_F(VelmoVpnConsoleProcess, CrashAndFailedStartAreReportedOnceAndEveryStartEndsCleanly) {
    {
        kytest::Child crashing;
        // The crash word counts in any position, but only as a whole argument.
        ASSERT_TRUE(crashing.start(consoleBinary(), {"--verbose", "--crash-test"}, env()));
        EXPECT_EQ(crashing.finish(60s), -1) << "the crash test must end by a signal";
    }
    EXPECT_FALSE(KyDir::entries(crashDir()).isEmpty());
    kytest::Child failing;
    ASSERT_TRUE(failing.start(consoleBinary(), {}, env({"VELMO_CONSOLE_FAIL_AT_START=display went away"})));
    EXPECT_EQ(failing.finish(60s), 1);

    KyString marker;
    ASSERT_TRUE(KyFile::readAll(crashDir() + "/last_startup_failure.txt", marker, nullptr));
    const KyList<KyString> lines = marker.split('\n');
    ASSERT_EQ(lines.size(), 5u) << marker; // four lines, each ended by a line feed
    EXPECT_TRUE(lines[0].startsWith("time="));
    EXPECT_EQ(lines[1], "stage=opening");
    EXPECT_EQ(lines[2], "message=display went away");
    ASSERT_TRUE(lines[3].startsWith("log="));
    const KyString logPath = lines[3].mid(4);
    EXPECT_TRUE(logPath.startsWith(crashDir() + "/VelmoVpnConsole_startup_"));
    KyString log;
    ASSERT_TRUE(KyFile::readAll(logPath, log, nullptr));
    EXPECT_EQ(log, "VelmoVpnConsole startup failure\n" + lines[0] + "\nstage=opening\nmessage=display went away\n");

    const char* const crashed = "The previous VELMO VPN Console session ended unexpectedly.";
    const char* const failed = "The previous VELMO VPN Console launch failed during opening.";
    // A start in the background shows no reports, so the first start is a plain one.
    struct Run { std::vector<std::string> args; int signal; std::size_t reports; };
    const Run runs[] = {{{}, SIGTERM, 1}, {{"--crash-test=1", "--start-hidden"}, SIGINT, 0},
                        {{"--background"}, SIGTERM, 0}, {{"-minimized"}, SIGTERM, 0}};
    for (const Run& run : runs) {
        SCOPED_TRACE(run.args.empty() ? "plain" : run.args.back());
        kytest::Child console;
        ASSERT_TRUE(startConsole(console, run.args)) << console.err();
        EXPECT_NE(console.err().find("VELMO VPN native console started"), std::string::npos);
        if (!run.args.empty()) {
            ASSERT_TRUE(waitForLine(console, "Console started in background mode"));
        }
        ASSERT_TRUE(console.sendSignal(run.signal));
        EXPECT_EQ(console.finish(60s), 0) << console.err();
        EXPECT_EQ(occurrences(console.err(), crashed), run.reports) << console.err();
        EXPECT_EQ(occurrences(console.err(), failed), run.reports) << console.err();
        EXPECT_EQ(console.err().find("Reason: display went away") != std::string::npos, run.reports == 1);
    }
    EXPECT_FALSE(KyFile::exists(crashDir() + "/last_startup_failure.txt"));
}

} // namespace
