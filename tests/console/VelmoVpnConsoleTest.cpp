// The console executable as a user starts it: it runs until SIGTERM and exits
// 0, honours the crash words, reports a previous crash once at the next start,
// and records a failed start in the two failure files. Every run gets its own
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

TEST_F(VelmoVpnConsoleProcess, SigtermEndsTheConsoleWithExitCodeZero) {
    kytest::Child console;
    ASSERT_TRUE(startConsole(console)) << console.err();
    EXPECT_NE(console.err().find("VELMO VPN native console started"), std::string::npos);
    ASSERT_EQ(::kill(console.pid(), SIGTERM), 0);
    EXPECT_EQ(console.finish(60s), 0) << console.err();
}

TEST_F(VelmoVpnConsoleProcess, BackgroundArgumentsStartHidden) {
    for (const char* arg : {"--background", "--start_hidden", "--start-hidden", "--minimized"}) {
        kytest::Child console;
        ASSERT_TRUE(startConsole(console, {arg})) << arg << console.err();
        ASSERT_TRUE(waitForLine(console, "Console started in background mode")) << arg;
        ::kill(console.pid(), SIGINT);
        EXPECT_EQ(console.finish(60s), 0) << arg;
    }
}

TEST_F(VelmoVpnConsoleProcess, CrashWordCrashesAndTheNextStartReportsItOnce) {
    {
        kytest::Child crashing;
        // The crash word counts in any position, but only as a whole argument.
        ASSERT_TRUE(crashing.start(consoleBinary(), {"--verbose", "--crash-test"}, env()));
        EXPECT_EQ(crashing.finish(60s), -1) << "the crash test must end by a signal";
    }
    EXPECT_FALSE(KyDir::entries(crashDir()).isEmpty());

    std::string firstRun;
    for (int run = 0; run < 2; ++run) {
        kytest::Child console;
        ASSERT_TRUE(startConsole(console)) << console.err();
        ::kill(console.pid(), SIGTERM);
        EXPECT_EQ(console.finish(60s), 0);
        if (run == 0) firstRun = console.err();
        else EXPECT_EQ(occurrences(console.err(), "The previous VELMO VPN Console session ended unexpectedly."), 0u);
    }
    EXPECT_EQ(occurrences(firstRun, "The previous VELMO VPN Console session ended unexpectedly."), 1u) << firstRun;

    kytest::Child notACrashWord;
    ASSERT_TRUE(startConsole(notACrashWord, {"--crash-test=1"})) << notACrashWord.err();
    ::kill(notACrashWord.pid(), SIGTERM);
    EXPECT_EQ(notACrashWord.finish(60s), 0);
}

TEST_F(VelmoVpnConsoleProcess, FailedStartWritesBothFilesAndIsReportedOnce) {
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

    kytest::Child next;
    ASSERT_TRUE(startConsole(next)) << next.err();
    ::kill(next.pid(), SIGTERM);
    EXPECT_EQ(next.finish(60s), 0);
    EXPECT_EQ(occurrences(next.err(), "The previous VELMO VPN Console launch failed during opening."), 1u) << next.err();
    EXPECT_NE(next.err().find("Reason: display went away"), std::string::npos);
    EXPECT_FALSE(KyFile::exists(crashDir() + "/last_startup_failure.txt"));
}

} // namespace
