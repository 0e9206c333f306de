// Tests of the kyipc tool as a user runs it: the real executable against a
// real peer process (ky_kyipc_target) that publishes, subscribes and serves
// with the typed channel templates, over real shared memory and wake-up
// sockets. Each test works in a domain of its own and removes every shared
// object the processes made in it.
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "core/types/KyJsonDocument.h"
#include "ipc/IpcNames.h"
#include "ipc/SubscribersRegistryTable.h"
#include "../support/KyTestIpc.h"
#include "../support/KyTestLoop.h"
#include "../support/KyTestProcess.h"

namespace {

using namespace std::chrono_literals;
using ky::ipc::detail::make_shm_name;

constexpr const char* kObject = "demo/Target";
constexpr auto kLong = std::chrono::milliseconds(60000);

KyString kyipcPath() { return kytest::helperPath("../../tools/kyipc"); }

struct ToolRun { int code = -1; std::string out; std::string err; };

class KyIpcTool : public ::testing::Test {
protected:
    void TearDown() override {
        if (targetPid_ > 0) {
            target_.closeInput();
            target_.finish(kLong);
        }
    }

    void startTarget() {
        ASSERT_TRUE(target_.start(kytest::helperPath("ky_kyipc_target"), {domain_}));
        targetPid_ = target_.pid();
        ipc_.trackPid(static_cast<uint32_t>(targetPid_));
        ASSERT_TRUE(target_.waitForText("ready", kLong)) << target_.err();
    }

    // Starts kyipc with args; the caller waits for it.
    void startTool(kytest::Child& child, const std::vector<std::string>& args) {
        ASSERT_TRUE(child.start(kyipcPath(), args));
        ipc_.trackPid(static_cast<uint32_t>(child.pid()));
    }

    ToolRun tool(const std::vector<std::string>& args) {
        kytest::Child child;
        ToolRun run;
        startTool(child, args);
        run.code = child.finish(kLong);
        run.out = child.out();
        run.err = child.err();
        return run;
    }

    // True once process pid listens to (domain, object, signal): its
    // starting point is then fixed, and a publication reaches it.
    bool subscribed(pid_t pid, const std::string& signal) {
        return kytest::waitUntil([&] {
            std::vector<uint32_t> pids;
            ky::ipc::SubscribersRegistryTable<512>::listSubscriberPids(domain_, kObject, signal, pids);
            return std::find(pids.begin(), pids.end(), static_cast<uint32_t>(pid)) != pids.end();
        }, kLong);
    }

    // Its own domain; at the end nothing a gone process made may be left in it.
    kytest::IpcDomain ipc_{"kyipc"};
    const std::string domain_ = ipc_.name().toStdString();
    kytest::Child target_;
    pid_t targetPid_ = -1;
};

KyJsonValue parsed(const std::string& text) {
    bool ok = false;
    KyJsonDocument doc = KyJsonDocument::fromJson(text, &ok);
    EXPECT_TRUE(ok) << text;
    return doc.root();
}

int lines(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

}  // namespace

TEST_F(KyIpcTool, WatchPrintsTheCurrentValueThenEachPublication) {
    startTarget();
    kytest::Child watch;
    startTool(watch, {"watch", domain_, kObject, "status", "is", "--initial", "--count", "3", "--timeout", "60000"});
    ASSERT_TRUE(watch.waitForText("is 7 \"ready\"\n", kLong)) << watch.err();
    target_.writeInput("publish 8 second value\n");
    ASSERT_TRUE(watch.waitForText("is 8 \"second value\"\n", kLong)) << watch.err();
    target_.writeInput("publish -9 third\n");
    EXPECT_EQ(watch.finish(kLong), 0) << watch.err();
    EXPECT_EQ(watch.out(), "is 7 \"ready\"\nis 8 \"second value\"\nis -9 \"third\"\n");
}

TEST_F(KyIpcTool, WatchWithoutInitialSeesOnlyLaterValuesAsJson) {
    startTarget();
    kytest::Child watch;
    startTool(watch, {"--json", "watch", domain_, kObject, "status", "is", "--count", "1", "--timeout", "60000"});
    ASSERT_TRUE(subscribed(watch.pid(), "status"));
    target_.writeInput("publish 12 twelve\n");
    EXPECT_EQ(watch.finish(kLong), 0) << watch.err();
    ASSERT_EQ(lines(watch.out()), 1);
    const KyJsonValue line = parsed(watch.out());
    EXPECT_EQ(line["signature"].toString(), KyString("is"));
    EXPECT_EQ(line["values"][0].toInt(), 12);
    EXPECT_EQ(line["values"][1].toString(), KyString("twelve"));
}

TEST_F(KyIpcTool, ChannelsNobodyOpenedAreRefusedUnlessCreationIsAsked) {
    startTarget();
    EXPECT_NE(tool({"publish", domain_, kObject, "later", "s", "x"}).code, 0);

    kytest::Child watch;
    ipc_.track(kObject, "later");  // the watcher creates it; nobody's row names it once both are gone
    startTool(watch, {"watch", domain_, kObject, "later", "s", "--create", "--count", "1", "--timeout", "60000"});
    ASSERT_TRUE(subscribed(watch.pid(), "later"));
    const ToolRun publish = tool({"publish", domain_, kObject, "later", "s", "--", "--not-an-option"});
    EXPECT_EQ(publish.code, 0) << publish.err;
    EXPECT_EQ(watch.finish(kLong), 0) << watch.err();
    EXPECT_EQ(watch.out(), "s \"--not-an-option\"\n");
}

TEST_F(KyIpcTool, PublishReachesATypedSubscriber) {
    startTarget();
    ASSERT_TRUE(subscribed(targetPid_, "command"));
    const ToolRun run = tool({"publish", domain_, kObject, "command", "st", "hello world", "18446744073709551615"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(target_.waitForText("command hello world 18446744073709551615\n", kLong)) << target_.out();

    const ToolRun json = tool({"--json", "publish", domain_, kObject, "command", "st", "again", "1"});
    EXPECT_EQ(json.code, 0) << json.err;
    EXPECT_TRUE(parsed(json.out)["ok"].toBool());
    EXPECT_TRUE(target_.waitForText("command again 1\n", kLong)) << target_.out();
}

TEST_F(KyIpcTool, OneShotRunsPrintTheResultOrSayWhatWentWrong) {
    startTarget();
    const std::string d = domain_;
    const char* mismatch = "SHM type mismatch (subscriber/publisher types differ)";
    struct Row { const char* name; std::vector<std::string> args; int code; const char *out, *err, *err2; };
    const Row rows[] = {
        {"even number", {"call", d, kObject, "check", "is", "4", "four", "--timeout", "60000"}, 0, "b true\n", "", ""},
        {"odd number", {"call", d, kObject, "check", "is", "3", "three", "--timeout", "60000"}, 0, "b false\n", "", ""},
        {"server error", {"call", d, kObject, "check", "is", "-2", "neg", "--timeout", "60000"}, 1, "",
         "check: negative value -2", ""},
        {"oversized argument", {"call", d, kObject, "check", "is", "1", std::string(5000, 'x')}, 1, "",
         "rpc: request queue full (or payload too large)", ""},
        {"no such method", {"call", d, kObject, "nosuch", ""}, 1, "", "no method nosuch", ""},
        {"unopened channel", {"watch", d, kObject, "later", "s"}, 1, "", "no signal", ""},
        {"count not reached", {"watch", d, kObject, "status", "is", "--count", "2", "--timeout", "200"}, 1, "",
         "watch ended after 0 of 2 value(s)", ""},
        {"watch of another type", {"watch", d, kObject, "status", "s"}, 2, "", mismatch,
         "has signature \"is\" (int, KyString), not \"s\""},
        {"publish of another type", {"publish", d, kObject, "status", "i", "5"}, 2, "", "has signature \"is\"", ""},
        {"call of another type", {"call", d, kObject, "check", "si", "x", "1"}, 2, "", mismatch, "has signature \"is\""},
        // The helper's value is still there, untouched by the refused publish.
        {"current value", {"watch", d, kObject, "status", "is", "--initial", "--count", "1"}, 0, "is 7 \"ready\"\n", "",
         ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const ToolRun run = tool(row.args);
        EXPECT_EQ(run.code, row.code) << run.err;
        EXPECT_EQ(run.out, row.out);
        EXPECT_NE(run.err.find(row.err), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(row.err2), std::string::npos) << run.err;
    }
    EXPECT_TRUE(target_.waitForText("request kyipc 4 four\n", kLong));

    const KyJsonValue ping = parsed(tool({"--json", "call", d, kObject, "ping", "", "--timeout", "60000"}).out);
    EXPECT_TRUE(ping["ok"].toBool());
    EXPECT_TRUE(ping["result"].toBool());
    const ToolRun stalled = tool({"--json", "call", d, kObject, "stall", "-", "--timeout", "200"});
    EXPECT_EQ(stalled.code, 1);
    EXPECT_NE(stalled.err.find("rpc: timeout"), std::string::npos) << stalled.err;
    EXPECT_EQ(parsed(stalled.out)["error"].toString(), KyString("rpc: timeout"));
}

TEST_F(KyIpcTool, CallOnAFullQueueOfAnotherCapacityFailsAtOnce) {
    startTarget();
    // Ten requests fill the undrained ring of capacity 10; each call gives up waiting.
    for (int k = 0; k < 10; ++k) {
        const ToolRun run = tool({"call", domain_, kObject, "idle", "i", std::to_string(k), "--capacity", "10",
                                  "--timeout", "1"});
        ASSERT_EQ(run.code, 1) << run.err;
        ASSERT_NE(run.err.find("rpc: timeout"), std::string::npos) << run.err;
    }
    const ToolRun full = tool({"call", domain_, kObject, "idle", "i", "10", "--capacity", "10"});
    EXPECT_EQ(full.code, 1);
    EXPECT_NE(full.err.find("rpc: request queue full (or payload too large)"), std::string::npos) << full.err;
    // At the default capacity the method does not exist.
    EXPECT_NE(tool({"call", domain_, kObject, "idle", "i", "1"}).err.find("no method idle"), std::string::npos);
}

TEST_F(KyIpcTool, SignalsTargetsAndAppsListTheHelpersRows) {
    startTarget();
    const std::string pid = std::to_string(targetPid_);

    const ToolRun signalsText = tool({"signals", domain_});
    EXPECT_EQ(signalsText.code, 0) << signalsText.err;
    EXPECT_NE(signalsText.out.find("__rpc__|100|check"), std::string::npos) << signalsText.out;
    const ToolRun signalsJson = tool({"--json", "signals", domain_});
    bool sawStatus = false;
    const KyJsonValue signalRows = parsed(signalsJson.out);
    for (const KyJsonValue& row : signalRows.asArray()) {
        if (row["signal"].toString() != KyString("status")) continue;
        sawStatus = true;
        EXPECT_EQ(row["object"].toString(), KyString(kObject));
        EXPECT_EQ(row["signature"].toString(), KyString("is"));
        EXPECT_EQ(row["pid"].toInt64(), targetPid_);
        EXPECT_EQ(row["shmName"].toString(), make_shm_name(domain_, kObject, "status"));
    }
    EXPECT_TRUE(sawStatus) << signalsJson.out;

    const std::string target = domain_ + "/" + kObject;
    const ToolRun all = tool({"targets", domain_});
    EXPECT_EQ(all.code, 0) << all.err;
    EXPECT_EQ(all.out.rfind(target + "\n", 0), 0u) << all.out;
    EXPECT_NE(all.out.find("check"), std::string::npos);
    EXPECT_EQ(tool({"targets", domain_, "check", "ping"}).out.rfind(target + "\n", 0), 0u);
    EXPECT_EQ(tool({"targets", domain_, "check", "nosuch"}).out, "");
    const KyJsonValue targets = parsed(tool({"--json", "targets", domain_, "check"}).out);
    ASSERT_EQ(targets.asArray().size(), 1u);
    EXPECT_EQ(targets[0]["target"].toString(), KyString(target));
    EXPECT_EQ(targets[0]["pid"].toInt64(), targetPid_);
    bool sawCheck = false;
    for (const KyJsonValue& m : targets[0]["methods"].asArray()) {
        if (m["name"].toString() == KyString("check")) sawCheck = m["signature"].toString() == KyString("is");
    }
    EXPECT_TRUE(sawCheck);

    const ToolRun apps = tool({"--json", "apps"});
    EXPECT_EQ(apps.code, 0) << apps.err;
    bool sawDomain = false;
    const KyJsonValue appRows = parsed(apps.out);
    for (const KyJsonValue& row : appRows.asArray()) {
        if (row["domain"].toString() != KyString(domain_)) continue;
        for (const KyJsonValue& p : row["pids"].asArray()) sawDomain = sawDomain || p.toInt64() == targetPid_;
    }
    EXPECT_TRUE(sawDomain) << apps.out;
    const ToolRun appsText = tool({"apps"});
    EXPECT_NE(appsText.out.find(domain_), std::string::npos);
    EXPECT_NE(appsText.out.find(pid), std::string::npos);
}

TEST_F(KyIpcTool, BadCommandLinesExitWithTwoAndSayWhy) {
    struct Row { const char* name; std::vector<std::string> args; const char* message; };
    const std::string d = domain_;
    const Row rows[] = {
        {"bad signature letter", {"watch", d, kObject, "status", "iz"}, "letter 'z' at position 2"},
        {"too few arguments", {"publish", d, kObject, "status", "is", "1"}, "takes 2 argument(s), 1 given"},
        {"too many arguments", {"call", d, kObject, "ping", "", "1"}, "takes 0 argument(s), 1 given"},
        {"word for int", {"publish", d, kObject, "status", "is", "abc", "x"}, "\"abc\" is not an int"},
        {"maybe for bool", {"call", d, kObject, "check", "b", "maybe"}, "\"maybe\" is not a bool"},
        {"unknown command", {"frobnicate"}, "unknown command \"frobnicate\""},
        {"no command", {}, "no command given"},
        {"unknown option", {"apps", "--colour"}, "unknown option --colour"},
        {"count of zero", {"watch", d, kObject, "status", "is", "--count", "0"}, "--count needs a whole number"},
        {"option for another command", {"call", d, kObject, "ping", "", "--initial"}, "--initial applies to watch"},
        {"missing watch words", {"watch", d, kObject}, "usage: kyipc watch"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const ToolRun run = tool(row.args);
        EXPECT_EQ(run.code, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(row.message), std::string::npos) << run.err;
    }
    // None of them touched the domain.
    const KyString suffix = ky::ipc::detail::sanitizeRegistrySuffix_(domain_);
    EXPECT_LT(::shm_open(("/ky_ipc_registry_" + suffix.toStdString()).c_str(), O_RDONLY, 0), 0);
    EXPECT_LT(::shm_open(make_shm_name(domain_, kObject, "status").c_str(), O_RDONLY, 0), 0);
}
