// Logging layer: which lines rules let through (in this process, and in a
// child process whose environment carries the rules), the line format, the
// file log, and lines of many threads staying whole.
#include <unistd.h>

#include <set>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "IoTestSupport.h"
#include "../../support/KyTestEnv.h"
#include "core/io/KyDebug.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KyFileInfo.h"

using kytest::TempDir;

namespace {

struct Line { std::string level, category, thread, message; };

// "YYYY-MM-DD HH:MM:SS.mmm LEVEL [category] (thread) message", or false.
bool splitLine(const std::string& raw, Line& out) {
    static const char kStamp[] = "0000-00-00 00:00:00.000 ";
    if (raw.size() < sizeof kStamp - 1) return false;
    for (std::size_t i = 0; i + 1 < sizeof kStamp; ++i) {
        const bool digit = raw[i] >= '0' && raw[i] <= '9';
        if (kStamp[i] == '0' ? !digit : raw[i] != kStamp[i]) return false;
    }
    std::size_t pos = sizeof kStamp - 1;
    const std::size_t levelEnd = raw.find(" [", pos);
    const std::size_t categoryEnd = raw.find("] (", levelEnd == std::string::npos ? pos : levelEnd);
    const std::size_t threadEnd = raw.find(") ", categoryEnd == std::string::npos ? pos : categoryEnd);
    if (levelEnd == std::string::npos || categoryEnd == std::string::npos || threadEnd == std::string::npos) return false;
    out.level = raw.substr(pos, levelEnd - pos);
    out.category = raw.substr(levelEnd + 2, categoryEnd - levelEnd - 2);
    out.thread = raw.substr(categoryEnd + 3, threadEnd - categoryEnd - 3);
    out.message = raw.substr(threadEnd + 2);
    return (out.level == "DEBUG" || out.level == "WARNING" || out.level == "ERROR") && !out.category.empty() &&
           !out.thread.empty();
}

// Every line must have the house format; a line that does not is returned as a failure.
::testing::AssertionResult parseLines(const std::string& text, std::vector<Line>& out) {
    std::istringstream in(text);
    std::string raw;
    while (std::getline(in, raw)) {
        Line line;
        if (!splitLine(raw, line)) return ::testing::AssertionFailure() << "malformed line: " << raw;
        out.push_back(std::move(line));
    }
    return ::testing::AssertionSuccess();
}

// The test process must not inherit rules from whoever runs it.
class KyDebugRules : public ::testing::Test {
protected:
    void SetUp() override {
        KyDebug::reloadEnvironmentRules();
        KyDebug::setRules("");
    }
    void TearDown() override {
        KyDebug::setRules("");
        env_.restore();
        KyDebug::reloadEnvironmentRules();
    }
    kytest::ScopedEnv env_{{"KY_LOGGING_RULES", nullptr}, {"KY_DEBUG_RULES", nullptr}};
};

bool on(const char* category, KyLogLevel level) { return KyDebug::isEnabled(category, level); }

} // namespace

TEST_F(KyDebugRules, WildcardsLevelSuffixesAndTheLastMatchingRuleDecide) {
    struct Row { const char* rules; const char* category; KyLogLevel level; bool shown; };
    const char* const mixed = "ky.ipc.*=false; ky.core.*.debug=true\nky.core.noisy.warning=false";
    const char* const malformed = "garbage; =true; ky.test.bad=maybe; # comment=false\n\n ky.test.good = FALSE ";
    const Row rows[] = {
        {"", "ky.core.anything", KyLogLevel::Debug, false}, {"", "ky.core.anything", KyLogLevel::Warning, true},
        {"", "ky.core.anything", KyLogLevel::Error, true}, {mixed, "ky.ipc.shm", KyLogLevel::Error, false},
        {mixed, "ky.ipc.rpc.client", KyLogLevel::Warning, false},
        {mixed, "ky.ipcserver", KyLogLevel::Warning, true}, // 'ky.ipc.*' needs the dot
        {mixed, "ky.core.timer", KyLogLevel::Debug, true}, {mixed, "ky.core.timer", KyLogLevel::Warning, true},
        {mixed, "ky.core.noisy", KyLogLevel::Warning, false},
        {mixed, "ky.core.noisy", KyLogLevel::Error, true}, // a level suffix leaves other levels alone
        {"ky.*=false;ky.ipc.*=true;*.debug=1", "ky.core.timer", KyLogLevel::Error, false},
        {"ky.*=false;ky.ipc.*=true;*.debug=1", "ky.ipc.shm", KyLogLevel::Error, true},
        {"ky.*=false;ky.ipc.*=true;*.debug=1", "velmo.console", KyLogLevel::Debug, true},
        // Malformed rules are skipped and the rest applies.
        {malformed, "ky.test.bad", KyLogLevel::Warning, true}, {malformed, "garbage", KyLogLevel::Warning, true},
        {malformed, "ky.test.good", KyLogLevel::Warning, false},
        {"#ky.test.hash=false", "#ky.test.hash", KyLogLevel::Warning, true}, // a comment, even with '='
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(std::string(r.rules) + " / " + r.category + " / " + std::to_string(int(r.level)));
        KyDebug::setRules(r.rules);
        EXPECT_EQ(on(r.category, r.level), r.shown);
    }
}

TEST_F(KyDebugRules, NewRulesReachAnswersCachedInEveryThreadAndOverrideCategoryDefaults) {
    bool other = true;
    std::thread([&] { other = on("ky.test.cache", KyLogLevel::Debug); }).join();
    EXPECT_FALSE(other || on("ky.test.cache", KyLogLevel::Debug));
    KyDebug::setCategoryDebugDefault("ky.test.chatty*", true);
    EXPECT_TRUE(on("ky.test.chatty", KyLogLevel::Debug));

    KyDebug::setRules("ky.test.cache=true;ky.test.chatty.debug=false");
    EXPECT_TRUE(on("ky.test.cache", KyLogLevel::Debug));
    std::thread([&] { other = on("ky.test.cache", KyLogLevel::Debug); }).join();
    EXPECT_TRUE(other);
    EXPECT_FALSE(on("ky.test.chatty", KyLogLevel::Debug));
    KyDebug::setCategoryDebugDefault("ky.test.chatty*", false);
}

TEST(KyDebugEnvironment, RulesFromBothVariablesWithLoggingRulesWinning) {
    // The two variables and the program's own setRules (null: unset), and the lines of
    // ky.test.* and ky.ipc.* the child is expected to print.
    struct Row { const char *name, *debugRules, *loggingRules, *programRules; std::set<std::string> shown; };
    const Row rows[] = {
        {"defaults", nullptr, nullptr, nullptr,
         {"WARNING ky.ipc.shm", "ERROR ky.ipc.shm", "WARNING ky.ipc.rpc.client", "ERROR ky.ipc.rpc.client",
          "WARNING ky.test.both", "ERROR ky.test.both", "WARNING ky.test.levels", "ERROR ky.test.levels"}},
        {"wildcard off", nullptr, "ky.ipc.*=false", nullptr,
         {"WARNING ky.test.both", "ERROR ky.test.both", "WARNING ky.test.levels", "ERROR ky.test.levels"}},
        {"debug rules alone", "ky.test.*.debug=true;ky.ipc.*.warning=false", nullptr, nullptr,
         {"ERROR ky.ipc.shm", "ERROR ky.ipc.rpc.client", "DEBUG ky.test.both", "WARNING ky.test.both",
          "ERROR ky.test.both", "DEBUG ky.test.levels", "WARNING ky.test.levels", "ERROR ky.test.levels"}},
        {"logging rules beat debug rules", "ky.test.both=true;ky.ipc.*=false", "ky.test.both=false", nullptr,
         {"WARNING ky.test.levels", "ERROR ky.test.levels"}},
        {"logging rules beat debug rules the other way", "ky.test.both=false", "ky.test.both=true;ky.ipc.*=false",
         nullptr,
         {"DEBUG ky.test.both", "WARNING ky.test.both", "ERROR ky.test.both", "WARNING ky.test.levels",
          "ERROR ky.test.levels"}},
        {"a level only one variable names", "ky.test.levels=false", "ky.test.levels.debug=true;ky.ipc.*=false",
         nullptr, {"DEBUG ky.test.levels", "WARNING ky.test.both", "ERROR ky.test.both"}},
        {"environment beats the program", nullptr, "ky.test.levels.error=true;ky.ipc.*=false",
         "ky.test.levels=false;ky.test.both.debug=true",
         {"ERROR ky.test.levels", "DEBUG ky.test.both", "WARNING ky.test.both", "ERROR ky.test.both"}},
    };
    for (const Row& r : rows) {
        std::vector<std::string> env;
        std::vector<std::string> unset;
        if (r.debugRules) env.push_back(std::string("KY_DEBUG_RULES=") + r.debugRules);
        else unset.push_back("KY_DEBUG_RULES");
        if (r.loggingRules) env.push_back(std::string("KY_LOGGING_RULES=") + r.loggingRules);
        else unset.push_back("KY_LOGGING_RULES");
        std::vector<std::string> args{"levels"};
        if (r.programRules) args.push_back(r.programRules);

        kytest::Child child;
        ASSERT_TRUE(child.start(kytest::helperPath("log_emitter"), args, env, unset)) << r.name;
        ASSERT_EQ(child.finish(), 0) << r.name << ": " << child.err();
        std::vector<Line> lines;
        ASSERT_TRUE(parseLines(child.err(), lines)) << r.name;
        std::set<std::string> shown;
        for (const Line& l : lines) {
            EXPECT_EQ(l.message, l.level + " " + l.category) << r.name;
            EXPECT_EQ(l.thread, "MainThread") << r.name;
            if (l.category.rfind("ky.test.", 0) == 0 || l.category.rfind("ky.ipc.", 0) == 0)
                shown.insert(l.level + " " + l.category);
        }
        EXPECT_EQ(shown, r.shown) << r.name;
    }
}

TEST(KyDebugOutput, LinesOfManyThreadsStayWholeOnStderrAndInTheFile) {
    TempDir dir;
    const KyString log = dir.file("logs/emitter.log");
    constexpr int kThreads = 8;
    constexpr int kLines = 300;
    kytest::Child child;
    ASSERT_TRUE(child.start(kytest::helperPath("log_emitter"),
                            {"threads", log.toStdString(), std::to_string(kThreads), std::to_string(kLines)}, {},
                            {"KY_DEBUG_RULES", "KY_LOGGING_RULES"}));
    ASSERT_EQ(child.finish(), 0) << child.err();

    KyString fileText;
    ASSERT_TRUE(KyFile::readAll(log, fileText)) << "the file log creates its directory";
    const std::string* outputs[] = {&child.err(), &fileText.str()};
    for (const std::string* text : outputs) {
        std::vector<Line> lines;
        ASSERT_TRUE(parseLines(*text, lines));
        std::vector<int> next(kThreads, 0);
        int done = 0;
        for (const Line& l : lines) {
            if (l.category != "ky.test.threads") continue;
            if (l.message == "done") {
                EXPECT_EQ(l.level, "ERROR");
                EXPECT_EQ(l.thread, "MainThread");
                ++done;
                continue;
            }
            int t = -1, i = -1;
            ASSERT_EQ(std::sscanf(l.message.c_str(), "t%d-l%d", &t, &i), 2) << l.message;
            ASSERT_TRUE(t >= 0 && t < kThreads) << l.message;
            EXPECT_EQ(l.thread, "worker-" + std::to_string(t));
            EXPECT_EQ(l.level, "WARNING");
            EXPECT_EQ(l.message, "t" + std::to_string(t) + "-l" + std::to_string(i) + " " + std::string(200, 'x'));
            EXPECT_EQ(i, next[t]) << "each thread's lines keep their order";
            next[t] = i + 1;
        }
        for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kLines) << "thread " << t;
        EXPECT_EQ(done, 1);
    }
    EXPECT_TRUE(fileText.contains("LogEmitter")) << "the file names the application";
}

TEST(KyDebugOutput, FileLogCanBeTurnedOffAndOnAndMovedInProcess) {
    TempDir dir;
    KyDebug::setStderrEnabled(false);
    KyDebug::setLogFile(dir.file("one.log"), "KyDebugTest");
    KyDebug::setFileLoggingEnabled(true);
    EXPECT_EQ(KyDebug::logFilePath(), dir.file("one.log"));
    kyLogWarning("ky.test.file") << "first" << 42;
    KyDebug::setFileLoggingEnabled(false);
    kyLogWarning("ky.test.file") << "while off";
    KyDebug::setFileLoggingEnabled(true);
    std::thread([] { kyLogError("ky.test.file") << "from an unnamed thread"; }).join();
    KyDebug::setLogFile(dir.file("two.log"), "KyDebugTest");
    kyLogWarning("ky.test.file") << "moved";
    // A log file that cannot be opened costs its lines, never a hang.
    ASSERT_TRUE(KyFile::writeAll(dir.file("plain"), "x"));
    KyDebug::setLogFile(dir.file("plain/x.log"), "KyDebugTest");
    kyLogWarning("ky.test.file") << "nowhere";
    // A bare file name is a file in the current directory.
    const KyString cwd = KyDir::currentPath();
    ASSERT_EQ(::chdir(dir.path().c_str()), 0);
    KyDebug::setLogFile("bare.log", "KyDebugTest");
    kyLogWarning("ky.test.file") << "bare";
    ASSERT_EQ(::chdir(cwd.c_str()), 0);
    KyDebug::setFileLoggingEnabled(false);
    KyDebug::setStderrEnabled(true);
    EXPECT_TRUE(KyFileInfo(dir.file("bare.log")).isFile());

    KyString one, two;
    ASSERT_TRUE(KyFile::readAll(dir.file("one.log"), one));
    ASSERT_TRUE(KyFile::readAll(dir.file("two.log"), two));
    std::vector<Line> a, b;
    ASSERT_TRUE(parseLines(one.str(), a));
    ASSERT_TRUE(parseLines(two.str(), b));
    std::vector<std::string> messages;
    for (const Line& l : a)
        if (l.category == "ky.test.file") messages.push_back(l.thread + ": " + l.message);
    ASSERT_EQ(messages.size(), 2u) << one;
    EXPECT_EQ(messages[0], "MainThread: first 42");
    EXPECT_EQ(messages[1].rfind("Thread-", 0), 0u) << messages[1];
    EXPECT_NE(messages[1].find(": from an unnamed thread"), std::string::npos) << messages[1];
    EXPECT_FALSE(one.contains("while off"));
    EXPECT_TRUE(two.contains("] (MainThread) moved\n"));
    EXPECT_FALSE(two.contains("first") || two.contains("nowhere"));
}
