// One console per user and display: real child processes claim the place in
// a domain of their own, as the console's start does, and the test watches
// what each one prints (claimed, second, show) and how it exits.
#include <signal.h>

#include <string>

#include "../support/KyTestIpc.h"
#include "../support/KyTestProcess.h"

namespace {

using kytest::Child;
using namespace std::chrono_literals;

class ConsoleInstance : public ::testing::Test {
protected:
    bool start(Child& child, const std::string& display) {
        if (!child.start(kytest::helperPath("velmo_console_instance_helper"), {domain_.name().toStdString()},
                         {"DISPLAY=" + display}))
            return false;
        domain_.trackPid(static_cast<uint32_t>(child.pid()));
        return true;
    }
    // Started and holding the place (its channels are noted for the clean-up).
    bool claims(Child& child, const std::string& display) {
        const bool claimed = start(child, display) && child.waitForText("claimed", 20s);
        domain_.observe();
        return claimed;
    }
    static int stop(Child& child) {
        child.sendSignal(SIGCONT);
        child.sendSignal(SIGTERM);
        return child.finish();
    }

    kytest::IpcDomain domain_{"instance"};
};

struct DisplayCase {
    const char* name;
    const char* first;
    const char* second;
    bool secondShowsFirst;
};
void PrintTo(const DisplayCase& c, std::ostream* os) { *os << c.name; }

class ConsoleInstanceDisplays : public ConsoleInstance, public ::testing::WithParamInterface<DisplayCase> {};

TEST_P(ConsoleInstanceDisplays, SecondStartShowsTheFirstOnlyOnTheSameDisplay) {
    const DisplayCase& c = GetParam();
    Child first, second;
    ASSERT_TRUE(claims(first, c.first));
    ASSERT_TRUE(start(second, c.second));
    if (c.secondShowsFirst) {
        EXPECT_EQ(second.finish(), 0);
        EXPECT_NE(second.out().find("second"), std::string::npos) << second.out() << second.err();
        EXPECT_TRUE(first.waitForText("show", 20s)) << first.out();
    } else {
        EXPECT_TRUE(second.waitForText("claimed", 20s)) << second.err();
        domain_.observe();
        EXPECT_EQ(stop(second), 0);
        EXPECT_EQ(first.out().find("show"), std::string::npos);
    }
    EXPECT_EQ(stop(first), 0);
}

INSTANTIATE_TEST_SUITE_P(Places, ConsoleInstanceDisplays,
                         ::testing::Values(DisplayCase{"SameDisplay", ":91", ":91", true},
                                           DisplayCase{"SameDisplayOtherScreen", ":91", ":91.0", true},
                                           DisplayCase{"OtherDisplay", ":91", ":92", false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ConsoleInstance, KilledConsoleDoesNotBlockTheNextStart) {
    Child first, second;
    ASSERT_TRUE(claims(first, ":93"));
    first.kill();
    EXPECT_TRUE(claims(second, ":93")) << second.out() << second.err();
    EXPECT_EQ(stop(second), 0);
}

TEST_F(ConsoleInstance, StartPastAHungConsoleRunsAndLaterStartsReachIt) {
    Child hung, next, later;
    ASSERT_TRUE(claims(hung, ":94"));
    ASSERT_TRUE(kytest::stopOutsideCriticalSections(hung.pid(), domain_));
    EXPECT_TRUE(claims(next, ":94")) << next.err();
    // The stopped console still holds the registry row, yet the new one answers.
    ASSERT_TRUE(start(later, ":94"));
    EXPECT_EQ(later.finish(), 0);
    EXPECT_TRUE(next.waitForText("show", 20s)) << next.out();
    EXPECT_EQ(stop(next), 0);
    EXPECT_EQ(stop(hung), 0);
}

}  // namespace
