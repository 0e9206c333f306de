// KyCrashHandler with real crashes: a helper child installs the handler and
// dies (null store, abort, stack overflow on a heap-array fiber stack, a fault
// on a second thread, a division by zero); the test then reads the report the
// way the next start would. XDG_STATE_HOME points at a temporary directory, so
// nothing is written under the real home.
#include "core/runtime/KyCrashHandler.h"

#include <gtest/gtest.h>

#include "../../support/KyTestEnv.h"
#include "../../support/KyTestProcess.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

class KyCrashHandlerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(dir_.path().isEmpty());
        KyCrashHandler::setApplicationName(appName_);
    }
    // Runs the helper in mode and waits for it; its exit code, or -1 when it died by a signal.
    int crash(const char* mode, bool dumps = false) {
        kytest::Child child;
        if (!child.start(kytest::helperPath("ky_crash_helper"), {appName_, mode},
                         {"XDG_STATE_HOME=" + stateDir_, std::string("KY_CRASH_DUMPS=") + (dumps ? "1" : "0")}))
            return -2;
        const int code = child.finish();
        lastSignal_ = child.exited() ? child.termSignal() : -1;
        return code;
    }
    std::string crashDir() const { return stateDir_ + "/" + appName_ + "/crashes"; }

    kytest::TempDir dir_;
    std::string stateDir_ = dir_.path().toStdString();
    kytest::ScopedEnv env_{{"XDG_STATE_HOME", stateDir_.c_str()}};
    int lastSignal_ = 0;
    std::string appName_ = "KyCrashProbe";
};

}  // namespace

TEST_F(KyCrashHandlerTest, CrashDirectoryIsPrivateUnderTheStateHomeAndAnUnusableHomeGivesNone) {
    const KyString dir = KyCrashHandler::crashDirectory();
    EXPECT_EQ(dir.toStdString(), crashDir());
    struct stat st{};
    ASSERT_EQ(stat(dir.c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0700u);

    const std::string blocker = stateDir_ + "/file";
    std::ofstream(blocker) << "x";
    env_.set("XDG_STATE_HOME", blocker.c_str());
    KyCrashHandler::setApplicationName(appName_);
    EXPECT_TRUE(KyCrashHandler::crashDirectory().isEmpty());
    KyCrashReport report;
    EXPECT_FALSE(KyCrashHandler::takeLastCrashReport(report));
}

TEST_F(KyCrashHandlerTest, EachFatalWayOfDyingLeavesOneReport) {
    struct Row { const char* mode; int signal; const char* name; };
    const Row rows[] = {
        {"null", SIGSEGV, "SIGSEGV"}, {"abort", SIGABRT, "SIGABRT"},
        // The overflow runs off a heap-array fiber stack: only the alternate
        // stack lets the handler write anything.
        {"overflow", SIGSEGV, "SIGSEGV"}, {"poolfiber", SIGSEGV, "SIGSEGV"}, {"thread", SIGSEGV, "SIGSEGV"},
        {"fpe", SIGFPE, "SIGFPE"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mode);
        EXPECT_EQ(crash(row.mode), -1);
        ASSERT_EQ(lastSignal_, row.signal);

        KyCrashReport report;
        ASSERT_TRUE(KyCrashHandler::takeLastCrashReport(report));
        EXPECT_EQ(report.signal, row.signal);
        EXPECT_EQ(report.signalName, row.name);
        EXPECT_TRUE(report.folder.startsWith(crashDir() + "/crash_"));
        EXPECT_FALSE(report.time.isEmpty());
        EXPECT_GT(report.pid, 0);
        EXPECT_FALSE(report.backtrace.isEmpty());
        EXPECT_TRUE(report.dumpPath.isEmpty());
        const std::string text = kytest::readFile(report.reportPath.toStdString());
        EXPECT_NE(text.find(appName_ + " crash report\n"), std::string::npos);
        EXPECT_NE(text.find("backtrace:\n"), std::string::npos);

        KyCrashReport again;
        EXPECT_FALSE(KyCrashHandler::takeLastCrashReport(again));
    }
}

TEST_F(KyCrashHandlerTest, NullStoreReportsTheFaultAddressAndWritesADumpWhenAskedFor) {
    crash("null", true);
    ASSERT_EQ(lastSignal_, SIGSEGV);
    KyCrashReport report;
    ASSERT_TRUE(KyCrashHandler::takeLastCrashReport(report));
    EXPECT_EQ(report.faultAddress, "0x0000000000000000");
    ASSERT_FALSE(report.dumpPath.isEmpty());
    EXPECT_EQ(report.dumpPath, report.folder + "/crash_dump.bin");
    const std::string dump = kytest::readFile(report.dumpPath.toStdString());
    ASSERT_GT(dump.size(), 8u + 4 + 4 + 8 * 5);
    EXPECT_EQ(dump.substr(0, 8), "KYDUMP01");
    uint32_t signal = 0;
    std::memcpy(&signal, dump.data() + 8, sizeof signal);
    EXPECT_EQ(signal, static_cast<uint32_t>(SIGSEGV));
    uint64_t pid = 0, sp = 0, contextSize = 0;
    std::memcpy(&pid, dump.data() + 24, sizeof pid);
    std::memcpy(&sp, dump.data() + 40, sizeof sp);
    std::memcpy(&contextSize, dump.data() + 48, sizeof contextSize);
    EXPECT_EQ(static_cast<long long>(pid), report.pid);
    EXPECT_NE(sp, 0u);
    ASSERT_GE(dump.size(), 56 + contextSize + 8);
    uint64_t stackBytes = 0;
    std::memcpy(&stackBytes, dump.data() + 56 + contextSize, sizeof stackBytes);
    EXPECT_GT(stackBytes, 0u);
    EXPECT_EQ(dump.size(), 56 + contextSize + 8 + stackBytes);
}

TEST_F(KyCrashHandlerTest, NewestReportWinsAndOlderOnesAreNotShownLater) {
    crash("abort");
    ASSERT_EQ(lastSignal_, SIGABRT);
    // Names carry the second of the crash; make the second crash sort later.
    std::filesystem::path first;
    for (const auto& entry : std::filesystem::directory_iterator(crashDir())) first = entry.path();
    std::filesystem::rename(first, std::filesystem::path(crashDir()) / "crash_19990101_000000_1");
    crash("null");
    ASSERT_EQ(lastSignal_, SIGSEGV);
    KyCrashReport report;
    ASSERT_TRUE(KyCrashHandler::takeLastCrashReport(report));
    EXPECT_EQ(report.signal, SIGSEGV);
    KyCrashReport again;
    EXPECT_FALSE(KyCrashHandler::takeLastCrashReport(again));
}

TEST_F(KyCrashHandlerTest, CleanExitLeavesNothingAndBrokenReportsAreSkipped) {
    ASSERT_EQ(crash("none"), 0);
    KyCrashReport report;
    EXPECT_FALSE(KyCrashHandler::takeLastCrashReport(report));

    // A report cut short before its signal line, and a stray file.
    std::filesystem::create_directories(crashDir() + "/crash_20260101_000000_7");
    std::ofstream(crashDir() + "/crash_20260101_000000_7/crash_report.txt") << "KyCrashProbe crash report\ntime=";
    std::ofstream(crashDir() + "/crash_notes") << "not a folder";
    EXPECT_FALSE(KyCrashHandler::takeLastCrashReport(report));
}
