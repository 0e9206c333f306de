// The console's failure files and boxes: the exact lines of a failed start,
// the marker as the next start reads it, and real children that crash through
// the crash words, abort, or let an exception escape. XDG_STATE_HOME points at
// a temporary directory for the test and its children.
#include "console/VelmoVpnConsoleFailure.h"

#include <gtest/gtest.h>

#include "../support/KyTestEnv.h"
#include "../support/KyTestProcess.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct ChildResult { bool finished = false; int signal = 0; int exitCode = -1; };

ChildResult runHelper(const std::vector<std::string>& args, const std::string& stateDir) {
    ChildResult result;
    kytest::Child child;
    // KY_CRASH_DUMPS starts at "0" and is forced back to "1" by the crash handling the child installs.
    if (!child.start(kytest::helperPath("velmo_console_failure_helper"), args,
                     {"XDG_STATE_HOME=" + stateDir, "KY_CRASH_DUMPS=0"}))
        return result;
    result.exitCode = child.finish(std::chrono::seconds(60));
    result.finished = child.exited();
    result.signal = child.termSignal();
    return result;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::string line;
    std::istringstream in(text);
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

std::vector<std::string> plain(const KyList<KyString>& list) {
    std::vector<std::string> out;
    for (const auto& s : list) out.push_back(s.toStdString());
    return out;
}

class VelmoVpnConsoleFailureTest : public ::testing::Test {
protected:
    void SetUp() override { KyCrashHandler::setApplicationName("VelmoVpnConsole"); }
    std::string markerPath() const { return crashDir_ + "/last_startup_failure.txt"; }

    kytest::TempDir dir_;
    std::string stateDir_ = dir_.path().toStdString();
    std::string crashDir_ = stateDir_ + "/VelmoVpnConsole/crashes";
    kytest::ScopedEnv env_{{"XDG_STATE_HOME", stateDir_.c_str()}};
};

}  // namespace

TEST_F(VelmoVpnConsoleFailureTest, StartupFailureWritesTheLogAndTheMarkerLineByLine) {
    struct Row {
        const char* name;
        const char* stage;
        const char* message;
        const char* storedStage;
        const char* storedMessage;
    };
    const Row rows[] = {
        {"plain", "opening", "No platform integration available", "opening", "No platform integration available"},
        {"blank stage", "   ", "boom", "startup", "boom"},
        {"both empty", "", "", "startup", "Unknown startup failure"},
        {"padded", "  db  ", "  spaced reason \n", "db", "spaced reason"},
        {"blank message", "abort", " \t ", "abort", "Unknown startup failure"},
    };
    const std::regex stampPattern("^[0-9]{8}_[0-9]{6}$");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::error_code ec;
        std::filesystem::remove_all(crashDir_, ec);
        velmoVpnConsolePersistStartupFailure(row.stage, row.message);

        const std::string marker = kytest::readFile(markerPath());
        EXPECT_EQ(marker.find('\r'), std::string::npos);
        ASSERT_FALSE(marker.empty());
        EXPECT_EQ(marker.back(), '\n');
        const auto m = linesOf(marker);
        ASSERT_EQ(m.size(), 4u);
        ASSERT_EQ(m[0].rfind("time=", 0), 0u);
        const std::string stamp = m[0].substr(5);
        EXPECT_TRUE(std::regex_match(stamp, stampPattern)) << stamp;
        EXPECT_EQ(m[1], std::string("stage=") + row.storedStage);
        EXPECT_EQ(m[2], std::string("message=") + row.storedMessage);
        const std::string logPath = crashDir_ + "/VelmoVpnConsole_startup_" + stamp + ".log";
        EXPECT_EQ(m[3], "log=" + logPath);

        const std::string log = kytest::readFile(logPath);
        EXPECT_EQ(log.find('\r'), std::string::npos);
        EXPECT_EQ(log.back(), '\n');
        const auto l = linesOf(log);
        ASSERT_EQ(l.size(), 4u);
        EXPECT_EQ(l[0], "VelmoVpnConsole startup failure");
        EXPECT_EQ(l[1], "time=" + stamp);
        EXPECT_EQ(l[2], m[1]);
        EXPECT_EQ(l[3], m[2]);
    }
}

TEST_F(VelmoVpnConsoleFailureTest, WithoutACrashDirectoryNothingIsWritten) {
    const std::string blocker = stateDir_ + "/file";
    std::ofstream(blocker) << "x";
    env_.set("XDG_STATE_HOME", blocker.c_str());
    KyCrashHandler::setApplicationName("VelmoVpnConsole");
    velmoVpnConsolePersistStartupFailure("opening", "nowhere to go");
    EXPECT_TRUE(VelmoVpnConsoleFailure::startupMarkerPath_().isEmpty());
    EXPECT_TRUE(VelmoVpnConsoleFailure::takeLastReportBoxes().isEmpty());
    EXPECT_EQ(kytest::readFile(blocker), "x");
}

TEST(VelmoVpnConsoleMarker, MarkerLinesAreReadByTheirKeys) {
    struct Row { const char* name; const char* text; bool hadContent; std::vector<std::string> details; };
    const Row rows[] = {
        {"capital keys", "TIME=20260101_010101\nStage=opening\nMESSAGE=bad\nLog=/tmp/l\n", true,
         {"Time: 20260101_010101", "Stage: opening", "Reason: bad", "Log: /tmp/l"}},
        {"only a log", "log=/tmp/x", true, {"Log: /tmp/x"}},
        {"value holds an equals sign", " message = a=b \n", true, {"Reason: a=b"}},
        {"carriage returns", "time=1\r\nstage=s\r\n", true, {"Time: 1", "Stage: s"}},
        {"empty values and strangers", "other=1\nstage=\nno equals here\n", true, {}}, {"blank", "\n \n", false, {}},
        {"empty", "", false, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto marker = VelmoVpnConsoleFailure::parseStartupMarker(row.text);
        EXPECT_EQ(marker.hadContent, row.hadContent);
        const auto boxes = VelmoVpnConsoleFailure::buildReportBoxes(marker, false, KyCrashReport{});
        if (!row.hadContent) {
            EXPECT_TRUE(boxes.isEmpty());
            continue;
        }
        ASSERT_EQ(boxes.size(), 1u);
        EXPECT_EQ(boxes[0].title, "VELMO VPN Console startup failure");
        EXPECT_EQ(boxes[0].text, "The previous VELMO VPN Console launch failed during opening.");
        EXPECT_EQ(plain(boxes[0].detailLines), row.details);
    }
}

TEST(VelmoVpnConsoleMarker, CrashBoxFollowsTheStartupBox) {
    KyCrashReport crash;
    crash.time = "2026-11-22 03:00:00 +0000";
    crash.folder = "/state/crashes/crash_1";
    crash.logPath = "/state/crashes/VelmoVpnConsole_runtime.log";
    const auto marker = VelmoVpnConsoleFailure::parseStartupMarker("stage=opening\n");
    const auto boxes = VelmoVpnConsoleFailure::buildReportBoxes(marker, true, crash);
    ASSERT_EQ(boxes.size(), 2u);
    EXPECT_EQ(boxes[0].title, "VELMO VPN Console startup failure");
    EXPECT_EQ(boxes[1].title, "VELMO VPN Console crash report");
    EXPECT_EQ(boxes[1].text, "The previous VELMO VPN Console session ended unexpectedly.");
    EXPECT_EQ(boxes[1].detailText(),
              "Time: 2026-11-22 03:00:00 +0000\nFolder: /state/crashes/crash_1\n"
              "Log: /state/crashes/VelmoVpnConsole_runtime.log");
}

TEST(VelmoVpnConsoleMarker, BoxHeightFollowsTheWrappedDetailLines) {
    struct Row { const char* name; std::vector<std::string> lines; int width; int height; };
    const Row rows[] = {
        {"no details", {}, 400, 120}, {"one short line", {"Time: 1"}, 400, 120},
        {"three short lines", {"a", "b", "c"}, 400, 154},
        {"one line wrapped three times", {std::string(140, 'x')}, 350, 154},
        {"width below one character", {"ab"}, 3, 134},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        VelmoVpnConsoleReportBox box;
        for (const auto& l : row.lines) box.detailLines.append(KyString(l));
        EXPECT_EQ(VelmoVpnConsoleFailure::reportBoxHeight(box, row.width), row.height);
    }
}

TEST(VelmoVpnConsoleMarker, PathsJoinWithOneSeparator) {
    EXPECT_EQ(VelmoVpnConsoleFailure::joinPath("/s/crashes", "m"), "/s/crashes/m");
    EXPECT_EQ(VelmoVpnConsoleFailure::joinPath("/s/crashes/", "m"), "/s/crashes/m");
    EXPECT_EQ(VelmoVpnConsoleFailure::joinPath("C:\\crashes\\", "m"), "C:\\crashes\\m");
}

TEST_F(VelmoVpnConsoleFailureTest, EveryCrashWordCrashesForRealAndIsReportedOnce) {
    for (const char* word : {"-crash_test", "--crash-test", "--crash-handler-smoke"}) {
        SCOPED_TRACE(word);
        // Not the first argument: the walk goes on until it meets the word.
        const ChildResult child = runHelper({"main", "--background", word, "--ignored"}, stateDir_);
        ASSERT_TRUE(child.finished);
        EXPECT_EQ(child.signal, SIGSEGV);

        const auto boxes = VelmoVpnConsoleFailure::takeLastReportBoxes();
        ASSERT_EQ(boxes.size(), 1u);
        EXPECT_EQ(boxes[0].title, "VELMO VPN Console crash report");
        const auto lines = plain(boxes[0].detailLines);
        ASSERT_EQ(lines.size(), 4u);
        EXPECT_EQ(lines[0].rfind("Time: ", 0), 0u);
        EXPECT_EQ(lines[1].rfind("Folder: " + crashDir_ + "/crash_", 0), 0u);
        EXPECT_EQ(lines[2], "Log: " + crashDir_ + "/VelmoVpnConsole_runtime.log");
        EXPECT_EQ(lines[3].rfind("Dump: " + crashDir_ + "/crash_", 0), 0u);
        EXPECT_TRUE(VelmoVpnConsoleFailure::takeLastReportBoxes().isEmpty());
    }
    // The child's log lines went to the runtime log in the crash directory.
    EXPECT_NE(kytest::readFile(crashDir_ + "/VelmoVpnConsole_runtime.log").find("failure helper running"), std::string::npos);
}

TEST_F(VelmoVpnConsoleFailureTest, ChildFailuresLeaveTheirStageAndReason) {
    struct Row {
        std::vector<std::string> args;
        int signal, exitCode; // exitCode -1: not checked
        std::size_t boxes;
        const char *stage, *reason;
    };
    const Row rows[] = {
        // Only whole crash words count: none of these is one.
        {{"main", "--crash-test=1", " --crash-test", "--CRASH-TEST", "-crash-test", "crash_test", ""}, 0, 0, 0, "", ""},
        {{"abort"}, SIGABRT, -1, 2, "Stage: abort", "Reason: Abort signal raised"},
        {{"throw"}, SIGABRT, -1, 1, "Stage: terminate", "Reason: agent table corrupt"},
        {{"persist", "", "disk full"}, 0, 0, 1, "Stage: startup", "Reason: disk full"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.args[0] + (row.args.size() > 1 ? " " + row.args[1] : ""));
        const ChildResult child = runHelper(row.args, stateDir_);
        ASSERT_TRUE(child.finished);
        EXPECT_EQ(child.signal, row.signal);
        if (row.exitCode >= 0) {
            EXPECT_EQ(child.exitCode, row.exitCode);
        }
        const auto boxes = VelmoVpnConsoleFailure::takeLastReportBoxes();
        // An escaping exception may add a crash report after the startup box.
        ASSERT_TRUE(boxes.size() == row.boxes || (row.args[0] == "throw" && boxes.size() == 2u)) << boxes.size();
        if (boxes.isEmpty()) continue;
        const auto startup = plain(boxes[0].detailLines);
        ASSERT_EQ(startup.size(), 4u);
        EXPECT_EQ(startup[1], row.stage);
        EXPECT_EQ(startup[2], row.reason);
        if (boxes.size() == 2u) {
            EXPECT_EQ(boxes[1].title, "VELMO VPN Console crash report");
        }
        EXPECT_TRUE(VelmoVpnConsoleFailure::takeLastReportBoxes().isEmpty());
    }
}
