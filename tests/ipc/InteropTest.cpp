// The framework's IPC against an independent implementation of the same bytes:
// the C peer (tests/peer, no shared code) on one side, the framework's own
// helper processes on the other, each a real child process. Values, queue
// messages, RPC calls and registry rows must cross in both directions. Every
// test uses its own domain and removes the shared objects it created.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "../support/KyTestProcess.h"

namespace {

using namespace std::chrono_literals;

struct Outcome { int rc; std::string out; };

class Interop : public ::testing::Test {
protected:
    Interop() {
        static std::atomic<int> counter{0};
        domain_ = "interop_" + std::to_string(::getpid()) + "_" + std::to_string(counter.fetch_add(1));
    }

    ~Interop() override {
        std::vector<std::string> args{"unlink-domain", domain_};
        for (const auto& [object, name] : created_) {
            args.push_back(object);
            args.push_back(name);
        }
        peer(args);
        for (pid_t pid : framework_) ::shm_unlink(("/ky_ipc_dispatch_tbl_v1_" + std::to_string(pid)).c_str());
    }

    Outcome peer(const std::vector<std::string>& args) { return run("ky_c_peer", args); }

    Outcome run(const char* helper, const std::vector<std::string>& args) {
        kytest::Child child;
        EXPECT_TRUE(child.start(kytest::helperPath(helper), args));
        if (std::string(helper) != "ky_c_peer") framework_.push_back(child.pid());
        child.closeInput();
        const int rc = child.finish(60s);
        return {rc, child.out()};
    }

    // A long-running child that has printed "ready".
    std::unique_ptr<kytest::Child> start(const char* helper, const std::vector<std::string>& args) {
        auto child = std::make_unique<kytest::Child>();
        EXPECT_TRUE(child->start(kytest::helperPath(helper), args));
        if (std::string(helper) != "ky_c_peer") framework_.push_back(child->pid());
        EXPECT_TRUE(child->waitForText("ready\n", 30s)) << child->out() << child->err();
        return child;
    }

    // Ends a framework helper that runs until its standard input closes.
    static int stop(kytest::Child& child) {
        child.closeInput();
        return child.finish(60s);
    }

    void created(const std::string& object, const std::string& name) { created_.emplace_back(object, name); }

    std::string domain_;
    std::vector<std::pair<std::string, std::string>> created_;
    std::vector<pid_t> framework_;
};

// ---- signals --------------------------------------------------------------------

TEST_F(Interop, FrameworkPublishIsSeenByThePeer) {
    created("obj", "status");
    auto watch = start("ky_c_peer", {"watch", domain_, "obj", "status", "s", "--count", "1", "--timeout", "30000"});
    EXPECT_EQ(run("ky_channel_peer", {"publish", domain_, "obj", "status", "connected"}).rc, 0);
    EXPECT_EQ(watch->finish(60s), 0);
    EXPECT_EQ(watch->out(), "ready\nvalue connected\n");
}

TEST_F(Interop, PeerPublishReachesAFrameworkSubscriber) {
    created("obj", "status");
    auto sub = start("ky_channel_peer", {"subscribe", domain_, "obj", "status"});
    EXPECT_EQ(peer({"publish", domain_, "obj", "status", "s", "from C"}).rc, 0);
    EXPECT_TRUE(sub->waitForText("value from C\n", 30s)) << sub->out();
    EXPECT_EQ(peer({"publish", domain_, "obj", "status", "s", ""}).rc, 0);
    EXPECT_TRUE(sub->waitForText("value \n", 30s)) << sub->out();
    EXPECT_EQ(stop(*sub), 0);
}

TEST_F(Interop, LatestValueIsReadAcrossImplementations) {
    created("obj", "latest");
    run("ky_channel_peer", {"publish", domain_, "obj", "latest", "one", "two"});
    EXPECT_EQ(peer({"read", domain_, "obj", "latest", "s"}).out, "seq=3\nvalue two\n");
    peer({"publish", domain_, "obj", "latest", "s", "three"});
    auto sub = start("ky_channel_peer", {"subscribe", domain_, "obj", "latest", "--initial"});
    EXPECT_TRUE(sub->waitForText("value three\n", 30s)) << sub->out();
    EXPECT_EQ(stop(*sub), 0);
}

TEST_F(Interop, SignaturesMustMatchAcrossImplementations) {
    created("obj", "typed");
    created("obj", "other");
    run("ky_channel_peer", {"publish", domain_, "obj", "typed", "text"});
    const Outcome refused = peer({"publish", domain_, "obj", "typed", "i", "5"});
    EXPECT_EQ(refused.rc, 3);
    EXPECT_EQ(refused.out, "SHM type mismatch (subscriber/publisher types differ)\n");

    peer({"publish", domain_, "obj", "other", "is", "1", "x"});
    const Outcome framework = run("ky_channel_peer", {"publish", domain_, "obj", "other", "y"});
    EXPECT_NE(framework.rc, 0);
    EXPECT_NE(framework.out.find("SHM type mismatch (subscriber/publisher types differ)"), std::string::npos)
        << framework.out;
}

// ---- ring queues ------------------------------------------------------------------

TEST_F(Interop, FrameworkQueueIsDrainedByThePeerInOrder) {
    created("obj", "jobs");
    std::vector<std::string> args{"push", domain_, "obj", "jobs"};
    for (int k = 1; k <= 11; ++k) args.push_back("job" + std::to_string(k));
    const Outcome pushed = run("ky_channel_peer", args);
    std::string expected;
    for (int k = 1; k <= 10; ++k) expected += "pushed\n";
    EXPECT_EQ(pushed.out, expected + "full\n");
    EXPECT_EQ(peer({"push", domain_, "obj", "jobs", "10", "s", "late"}).out, "full\n");

    const Outcome drained = peer({"drain", domain_, "obj", "jobs", "10", "s", "--count", "10"});
    expected = "ready\n";
    for (int k = 1; k <= 10; ++k) expected += "msg job" + std::to_string(k) + "\n";
    EXPECT_EQ(drained.out, expected);
}

TEST_F(Interop, PeerPushesWakeAFrameworkDrainer) {
    created("obj", "inbox");
    EXPECT_EQ(peer({"push", domain_, "obj", "inbox", "10", "s", "queued before"}).out, "pushed\n");
    auto drain = start("ky_channel_peer", {"drain", domain_, "obj", "inbox"});
    EXPECT_TRUE(drain->waitForText("msg queued before\n", 30s)) << drain->out();
    EXPECT_EQ(peer({"push", domain_, "obj", "inbox", "10", "s", "after"}).out, "pushed\n");
    EXPECT_EQ(peer({"push", domain_, "obj", "inbox", "10", "s", "last"}).out, "pushed\n");
    EXPECT_TRUE(drain->waitForText("msg last\n", 30s)) << drain->out();
    EXPECT_EQ(stop(*drain), 0);
    EXPECT_EQ(drain->out(), "ready\nmsg queued before\nmsg after\nmsg last\n");
}

// ---- RPC -----------------------------------------------------------------------------

TEST_F(Interop, PeerClientCallsAFrameworkServer) {
    auto server = start("ky_rpc_peer", {"serve", domain_, "velnet/Agent"});
    for (const char* method : {"echo", "check", "add", "sum64", "pid", "sleep", "fail", "throw"})
        created("velnet/Agent", std::string("__rpc__|100|") + method);
    struct Row { std::vector<std::string> args; int rc; std::string out; };
    const std::string serverPid = std::to_string(server->pid());
    const Row rows[] = {
        {{"check", "s", "hello"}, 0, "result true\n"},
        {{"check", "s", ""}, 0, "result false\n"},
        {{"echo", "s", "round trip", "--returns", "s"}, 0, "result round trip\n"},
        {{"add", "ii", "-2", "5", "--returns", "i"}, 0, "result 3\n"},
        {{"sum64", "tt", "4294967296", "1", "--returns", "t"}, 0, "result 4294967297\n"},
        {{"pid", "", "--returns", "u"}, 0, "result " + serverPid + "\n"},
        {{"fail", "s", "no route"}, 1, "error refused: no route\n"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> args{"call", domain_, "velnet/Agent"};
        args.insert(args.end(), row.args.begin(), row.args.end());
        args.insert(args.end(), {"--timeout", "30000"});
        kytest::Child call;
        ASSERT_TRUE(call.start(kytest::helperPath("ky_c_peer"), args));
        created("velnet/Agent", "__rpc_ret__|100|" + row.args[0] + "|" + std::to_string(call.pid()));
        EXPECT_EQ(call.finish(60s), row.rc) << row.args[0];
        EXPECT_EQ(call.out(), row.out) << row.args[0];
    }
    EXPECT_EQ(stop(*server), 0);
}

TEST_F(Interop, QueueCapacityAgreesAcrossImplementations) {
    // 25 is a known capacity; 7 is not, so both ends name the queues with 7 and give them 100 slots.
    for (const std::string cap : {"25", "7"}) {
        auto server = start("ky_rpc_peer", {"serve", domain_, "o", cap});
        kytest::Child call;
        ASSERT_TRUE(call.start(kytest::helperPath("ky_c_peer"),
                               {"call", domain_, "o", "check", "s", "x", "--cap", cap, "--timeout", "30000"}));
        created("o", "__rpc_ret__|" + cap + "|check|" + std::to_string(call.pid()));
        for (const char* method : {"echo", "check", "add", "sum64", "pid", "sleep", "fail", "throw"})
            created("o", "__rpc__|" + cap + "|" + method);
        EXPECT_EQ(call.finish(60s), 0) << cap;
        EXPECT_EQ(call.out(), "result true\n") << cap;
        EXPECT_EQ(stop(*server), 0);
    }
}

TEST_F(Interop, FrameworkClientCallsAPeerServerAndHearsItsResultOrError) {
    struct Row { const char* object; const char* reply; const char* text; const char* out; };
    const Row rows[] = {{"velnet/Agent", "--result", "pong", "calling\nresult=pong|error=\n"},
                        {"o", "--error", "tunnel down", "calling\nresult=|error=tunnel down\n"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reply);
        created(row.object, "__rpc__|100|echo");
        auto server = start("ky_c_peer", {"serve", domain_, row.object, "echo", "s", "--returns", "s", row.reply,
                                          row.text, "--count", "1", "--timeout", "60000"});
        kytest::Child call;
        ASSERT_TRUE(call.start(kytest::helperPath("ky_rpc_peer"), {"call", domain_, row.object, "echo", "ping", "30000"}));
        framework_.push_back(call.pid());
        created(row.object, "__rpc_ret__|100|echo|" + std::to_string(call.pid()));
        const std::string client = std::to_string(call.pid());
        EXPECT_EQ(call.finish(60s), 0);
        EXPECT_EQ(call.out(), row.out);
        EXPECT_EQ(server->finish(60s), 0);
        EXPECT_EQ(server->out(), "ready\nrequest id=1 pid=" + client + " info=ky_rpc_peer args ping\n");
    }
}

// ---- registries ------------------------------------------------------------------------

TEST_F(Interop, FrameworkRowsReadByThePeer) {
    created("obj", "watched");
    auto sub = start("ky_channel_peer", {"subscribe", domain_, "obj", "watched"});
    const std::string pid = std::to_string(sub->pid());
    const Outcome rows = peer({"registry", domain_});
    char shm[32];
    std::snprintf(shm, sizeof shm, "%s", peer({"shmname", domain_, "obj", "watched"}).out.c_str());
    shm[24] = 0;
    EXPECT_NE(rows.out.find("row pid=" + pid + " object=obj signal=watched typeId=0a3876d3e4eb1c7c shm=" +
                            std::string(shm) +
                            " typeName=KyString ky::ipc::detail::type_name() [with Args = {KyString}]\n"),
              std::string::npos)
        << rows.out;
    EXPECT_NE(peer({"subs", domain_}).out.find("sub pid=" + pid + " refCount=1 object=obj signal=watched"),
              std::string::npos);
    EXPECT_NE(peer({"apps", domain_}).out.find(pid), std::string::npos);
    EXPECT_EQ(stop(*sub), 0);
}

TEST_F(Interop, SubscriberObjectIsPackedBehindTheSignalName) {
    auto reg = start("ky_registry_peer", {"sub", domain_, "obj", "sig", "viewer", "signal", domain_, "obj", "row"});
    const std::string pid = std::to_string(reg->pid());
    EXPECT_NE(peer({"subs", domain_}).out.find("sub pid=" + pid + " refCount=1 object=obj signal=sig subObject=viewer\n"),
              std::string::npos)
        << peer({"subs", domain_}).out;
    EXPECT_NE(peer({"registry", domain_}).out.find("row pid=" + pid + " object=obj signal=row typeId=0000000000005eed"),
              std::string::npos)
        << peer({"registry", domain_}).out;
    reg->sendSignal(SIGTERM);
    reg->finish(60s);
    EXPECT_EQ(peer({"subs", domain_}).out.find("pid=" + pid), std::string::npos);
}

} // namespace
