// The independent C peer (tests/peer) checked against itself, every step a real
// child process on real shared memory and real wake-up sockets: names and type
// ids against values computed by hand, a publish seen by a watcher, a queue
// drained in order, RPC round trips, and registry rows that live and die with
// their process. Each test works in its own domain and removes what it created.
#include <gtest/gtest.h>

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

struct PeerRun {
    int rc;
    std::string out;
};

PeerRun runPeer(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) {
    kytest::Child child;
    EXPECT_TRUE(child.start(kytest::helperPath("ky_c_peer"), args, env));
    const int rc = child.finish(60s);
    return {rc, child.out()};
}

bool waitForText(kytest::Child& child, const std::string& text, std::chrono::milliseconds deadline = 30s) {
    const auto end = kytest::Child::Clock::now() + deadline;
    while (child.out().find(text) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - kytest::Child::Clock::now());
        if (left <= 0ms || !child.waitForOutput(child.out().size() + 1, left)) return false;
    }
    return true;
}

bool contains(const std::string& haystack, const std::string& needle) {
    return haystack.find(needle) != std::string::npos;
}

class CPeer : public ::testing::Test {
protected:
    CPeer() {
        static std::atomic<int> counter{0};
        domain_ = "cpeer_" + std::to_string(::getpid()) + "_" + std::to_string(counter.fetch_add(1));
    }

    ~CPeer() override {
        std::vector<std::string> args{"unlink-domain", domain_};
        for (const auto& [object, name] : created_) {
            args.push_back(object);
            args.push_back(name);
        }
        runPeer(args);
    }

    // Channels whose rows may be gone by the end of the test (their process died) are listed here.
    void created(const std::string& object, const std::string& name) { created_.emplace_back(object, name); }

    std::unique_ptr<kytest::Child> startReady(const std::vector<std::string>& args,
                                              const std::vector<std::string>& env = {}) {
        auto child = std::make_unique<kytest::Child>();
        EXPECT_TRUE(child->start(kytest::helperPath("ky_c_peer"), args, env));
        EXPECT_TRUE(waitForText(*child, "ready\n")) << child->out();
        return child;
    }

    std::string shmName(const std::string& object, const std::string& name) {
        const PeerRun r = runPeer({"shmname", domain_, object, name});
        return r.out.substr(0, r.out.size() - 1);
    }

    std::string domain_;
    std::vector<std::pair<std::string, std::string>> created_;
};

// ---- names and type ids -------------------------------------------------------

TEST(CPeerNames, TypeIdsMatchHandComputedValues) {
    struct Row {
        const char* sig;
        const char* id;
        const char* args;
    };
    // Hashes of the type-id texts, worked out separately (see tests/peer/README.md).
    const Row rows[] = {
        {"bs", "6a6502fbe37a1600", "bool, KyString"},
        {"t", "ab71ed9601726a35", "long unsigned int"},
        {"iii", "3b5375bf1f2ab656", "int, int, int"},
        {"s", "0a3876d3e4eb1c7c", "KyString"},
        {"tus", "2a743fd84909642a", "long unsigned int, unsigned int, KyString"},
        {"tbsb", "adae1d494e1b29f4", "long unsigned int, bool, KyString, bool"},
        {"", "44113e3534047ce9", ""},
    };
    for (const Row& row : rows) {
        const PeerRun r = runPeer({"typeid", row.sig});
        EXPECT_EQ(r.rc, 0) << row.sig;
        EXPECT_EQ(r.out, std::string(row.id) + "\nuint64_t ky::ipc::detail::type_id() [with Args = {" + row.args +
                             "}; uint64_t = long unsigned int]\n")
            << row.sig;
    }
}

TEST(CPeerNames, ObjectNamesFollowTheHashAndSuffixRules) {
    struct Row {
        const char* name;
        std::vector<std::string> args;
        const char* out;
    };
    const Row rows[] = {
        {"empty text hashes to the start value", {"hash", ""}, "14650fb0739d0383"},
        {"channel name", {"shmname", "a", "b", "c"}, "/ky_sig_80367b4faf7948f1"},
        {"bar inside the domain", {"shmname", "a|b", "c", "d"}, "/ky_sig_fb40514e36dc41e9"},
        {"bar inside the object", {"shmname", "a", "b|c", "d"}, "/ky_sig_fb40514e36dc41e9"},
        {"only separators", {"suffix", "///"}, "root"},
        {"replaced and stripped", {"suffix", "__a b__"}, "a_b"},
        {"exactly 32 bytes", {"suffix", "abcdefghijklmnopqrstuvwxyzABCDEF"}, "abcdefghijklmnopqrstuvwxyzABCDEF"},
        {"33 bytes get the hash", {"suffix", "abcdefghijklmnopqrstuvwxyzABCDEFG"},
         "abcdefghijklmnopqrstuvwxyzABCDEF_782ed9ac9639df14"},
    };
    for (const Row& row : rows) {
        const PeerRun r = runPeer(row.args);
        EXPECT_EQ(r.rc, 0) << row.name;
        EXPECT_EQ(r.out, std::string(row.out) + "\n") << row.name;
    }
}

TEST(CPeerNames, MalformedCommandsAreUsageErrors) {
    const std::vector<std::vector<std::string>> rows = {
        {"typeid", "x"},
        {"publish", "d", "o", "s", "i", "seven"},
        {"publish", "d", "o", "s", "u", "-1"},
        {"publish", "d", "o", "s", "b", "yes"},
        {"publish", "d", "o", "s", "ii", "1"},
        {"push", "d", "o", "q", "0", "i", "1"},
        {"watch", "d", "o", "s", "i", "--bogus", "1"},
        {"unlink", "/ky_ipc_registry"},
        {"no-such-command"},
    };
    for (const auto& args : rows) EXPECT_EQ(runPeer(args).rc, 2) << args[0] << " " << args.back();
}

// ---- signals --------------------------------------------------------------------

TEST_F(CPeer, WatcherSeesEachPublishedValue) {
    auto watch = startReady({"watch", domain_, "obj", "state", "is", "--count", "2", "--timeout", "30000"});
    EXPECT_EQ(runPeer({"publish", domain_, "obj", "state", "is", "7", "hello world"}).out, "published seq=2\n");
    ASSERT_TRUE(waitForText(*watch, "value 7 hello world\n"));
    EXPECT_EQ(runPeer({"publish", domain_, "obj", "state", "is", "-3", ""}).rc, 0);
    EXPECT_EQ(watch->finish(), 0);
    EXPECT_EQ(watch->out(), "ready\nvalue 7 hello world\nvalue -3 \n");
    created("obj", "state");
}

TEST_F(CPeer, ReadShowsTheLatestValueOrEmpty) {
    created("obj", "level");
    EXPECT_EQ(runPeer({"read", domain_, "obj", "level", "tb"}).out, "seq=1\nempty\n");
    runPeer({"publish", domain_, "obj", "level", "tb", "1", "false"});
    runPeer({"publish", domain_, "obj", "level", "tb", "18446744073709551615", "true"});
    EXPECT_EQ(runPeer({"read", domain_, "obj", "level", "tb"}).out, "seq=3\nvalue 18446744073709551615 true\n");
}

TEST_F(CPeer, InitialValueArrivesOnlyWhenAsked) {
    created("obj", "mode");
    runPeer({"publish", domain_, "obj", "mode", "s", "secure"});
    auto eager = startReady({"watch", domain_, "obj", "mode", "s", "--initial", "--timeout", "30000"});
    EXPECT_EQ(eager->finish(), 0);
    EXPECT_EQ(eager->out(), "ready\nvalue secure\n");
    const PeerRun lazy = runPeer({"watch", domain_, "obj", "mode", "s", "--timeout", "200"});
    EXPECT_EQ(lazy.rc, 4);
    EXPECT_EQ(lazy.out, "ready\ntimeout\n");
}

TEST_F(CPeer, OtherSignatureOnTheSameNameIsRefused) {
    created("obj", "typed");
    EXPECT_EQ(runPeer({"publish", domain_, "obj", "typed", "s", "text"}).rc, 0);
    const PeerRun other = runPeer({"publish", domain_, "obj", "typed", "i", "5"});
    EXPECT_EQ(other.rc, 3);
    EXPECT_EQ(other.out, "SHM type mismatch (subscriber/publisher types differ)\n");
    EXPECT_EQ(runPeer({"read", domain_, "obj", "typed", "s"}).out, "seq=2\nvalue text\n");
}

TEST_F(CPeer, WrongVersionIsRefusedAndAZeroObjectIsAdopted) {
    created("obj", "block");
    const std::string name = shmName("obj", "block");
    runPeer({"publish", domain_, "obj", "block", "i", "1"});
    EXPECT_EQ(runPeer({"corrupt-version", name, "4280", "1"}).out, "version=1\n");
    const PeerRun refused = runPeer({"publish", domain_, "obj", "block", "i", "2"});
    EXPECT_EQ(refused.rc, 3);
    EXPECT_EQ(refused.out, "SHM layout mismatch (magic/version)\n");

    EXPECT_EQ(runPeer({"zero-object", name, "4280"}).rc, 0);
    EXPECT_EQ(runPeer({"publish", domain_, "obj", "block", "i", "3"}).out, "published seq=2\n");
    EXPECT_EQ(runPeer({"read", domain_, "obj", "block", "i"}).out, "seq=2\nvalue 3\n");
}

TEST_F(CPeer, ShorterObjectIsRefusedNotTouched) {
    created("obj", "small");
    created("obj", "ring");
    // An object shorter than the layout would fault on access past its end.
    EXPECT_EQ(runPeer({"zero-object", shmName("obj", "small"), "100"}).rc, 0);
    const PeerRun block = runPeer({"publish", domain_, "obj", "small", "i", "1"});
    EXPECT_EQ(block.rc, 3);
    EXPECT_EQ(block.out, "SHM object smaller than its layout\n");
    // A queue made with 10 slots cannot be used as one of 100.
    EXPECT_EQ(runPeer({"push", domain_, "obj", "ring", "10", "i", "1"}).rc, 0);
    const PeerRun ring = runPeer({"push", domain_, "obj", "ring", "100", "i", "2"});
    EXPECT_EQ(ring.rc, 3);
    EXPECT_EQ(ring.out, "SHM object smaller than its layout\n");
}

// ---- ring queues ------------------------------------------------------------------

TEST_F(CPeer, FullQueueRefusesAndKeepsOrder) {
    created("obj", "jobs");
    for (int k = 1; k <= 10; ++k)
        EXPECT_EQ(runPeer({"push", domain_, "obj", "jobs", "10", "is", std::to_string(k), "job"}).out, "pushed\n");
    const PeerRun full = runPeer({"push", domain_, "obj", "jobs", "10", "is", "11", "job"});
    EXPECT_EQ(full.rc, 3);
    EXPECT_EQ(full.out, "full\n");

    const PeerRun drained = runPeer({"drain", domain_, "obj", "jobs", "10", "is", "--count", "10"});
    EXPECT_EQ(drained.rc, 0);
    std::string expected = "ready\n";
    for (int k = 1; k <= 10; ++k) expected += "msg " + std::to_string(k) + " job\n";
    EXPECT_EQ(drained.out, expected);
    EXPECT_EQ(runPeer({"push", domain_, "obj", "jobs", "10", "is", "11", "job"}).rc, 0);
}

TEST_F(CPeer, WaitingDrainerIsWokenByPushes) {
    created("obj", "inbox");
    auto drain = startReady({"drain", domain_, "obj", "inbox", "25", "us", "--count", "3", "--timeout", "30000"});
    for (const char* n : {"1", "2", "3"}) EXPECT_EQ(runPeer({"push", domain_, "obj", "inbox", "25", "us", n, n}).rc, 0);
    EXPECT_EQ(drain->finish(), 0);
    EXPECT_EQ(drain->out(), "ready\nmsg 1 1\nmsg 2 2\nmsg 3 3\n");
}

TEST_F(CPeer, PayloadLimitIsInclusive) {
    created("obj", "big");
    // A u64 and a string of 4084 bytes fill the 4096-byte payload exactly.
    const PeerRun fits = runPeer({"push", domain_, "obj", "big", "10", "ts", "1", std::string(4084, 'x')});
    EXPECT_EQ(fits.out, "pushed\n");
    const PeerRun over = runPeer({"push", domain_, "obj", "big", "10", "ts", "2", std::string(4085, 'x')});
    EXPECT_EQ(over.rc, 3);
    EXPECT_EQ(over.out, "too large\n");
    const PeerRun drained = runPeer({"drain", domain_, "obj", "big", "10", "ts"});
    EXPECT_EQ(drained.out, "ready\nmsg 1 " + std::string(4084, 'x') + "\n");
}

// ---- RPC -----------------------------------------------------------------------------

TEST_F(CPeer, CallIsServedAndAnswered) {
    created("velnet/Agent", "__rpc__|100|loginUser");
    auto server = startReady({"serve", domain_, "velnet/Agent", "loginUser", "si", "--count", "1", "--timeout",
                              "60000", "--result", "true"});
    kytest::Child call;
    ASSERT_TRUE(call.start(kytest::helperPath("ky_c_peer"),
                           {"call", domain_, "velnet/Agent", "loginUser", "si", "alice", "42", "--timeout", "30000"}));
    created("velnet/Agent", "__rpc_ret__|100|loginUser|" + std::to_string(call.pid()));
    const pid_t caller = call.pid();
    EXPECT_EQ(call.finish(), 0);
    EXPECT_EQ(call.out(), "result true\n");
    EXPECT_EQ(server->finish(), 0);
    EXPECT_EQ(server->out(),
              "ready\nrequest id=1 pid=" + std::to_string(caller) + " info=ky_c_peer args alice 42\n");
}

TEST_F(CPeer, ErrorReplyReachesTheCaller) {
    created("o", "__rpc__|50|connect");
    auto server = startReady({"serve", domain_, "o", "connect", "", "--cap", "50", "--error", "bad password",
                              "--count", "1", "--timeout", "60000"});
    kytest::Child call;
    ASSERT_TRUE(call.start(kytest::helperPath("ky_c_peer"),
                           {"call", domain_, "o", "connect", "", "--cap", "50", "--timeout", "30000"}));
    created("o", "__rpc_ret__|50|connect|" + std::to_string(call.pid()));
    EXPECT_EQ(call.finish(), 1);
    EXPECT_EQ(call.out(), "error bad password\n");
    EXPECT_EQ(server->finish(), 0);
}

TEST_F(CPeer, ResultsOfEveryTypeTravel) {
    struct Row {
        const char* method;
        const char* returns;
        const char* value;
    };
    const Row rows[] = {
        {"name", "s", "tunnel one"},
        {"delta", "i", "-7"},
        {"bytes", "t", "18446744073709551615"},
        {"port", "u", "4000000000"},
    };
    for (const Row& row : rows) {
        created("o", std::string("__rpc__|100|") + row.method);
        auto server = startReady({"serve", domain_, "o", row.method, "b", "--returns", row.returns, "--result",
                                  row.value, "--count", "1", "--timeout", "60000"});
        kytest::Child call;
        ASSERT_TRUE(call.start(kytest::helperPath("ky_c_peer"), {"call", domain_, "o", row.method, "b", "true",
                                                                 "--returns", row.returns, "--timeout", "30000"}));
        created("o", std::string("__rpc_ret__|100|") + row.method + "|" + std::to_string(call.pid()));
        EXPECT_EQ(call.finish(), 0) << row.method;
        EXPECT_EQ(call.out(), std::string("result ") + row.value + "\n") << row.method;
        EXPECT_EQ(server->finish(), 0) << row.method;
    }
}

TEST_F(CPeer, CallsWaitInTheRingUntilAServerComes) {
    created("o", "__rpc__|10|ping");
    std::vector<pid_t> callers;
    // Without a server each call gives up, but its request stays queued.
    for (int k = 0; k < 10; ++k) {
        kytest::Child call;
        ASSERT_TRUE(call.start(kytest::helperPath("ky_c_peer"),
                               {"call", domain_, "o", "ping", "i", std::to_string(k), "--cap", "10", "--timeout", "1"}));
        callers.push_back(call.pid());
        created("o", "__rpc_ret__|10|ping|" + std::to_string(call.pid()));
        EXPECT_EQ(call.finish(), 4);
        EXPECT_EQ(call.out(), "rpc: timeout\n");
    }
    kytest::Child refused;
    ASSERT_TRUE(refused.start(kytest::helperPath("ky_c_peer"),
                              {"call", domain_, "o", "ping", "i", "10", "--cap", "10", "--timeout", "1"}));
    created("o", "__rpc_ret__|10|ping|" + std::to_string(refused.pid()));
    EXPECT_EQ(refused.finish(), 3);
    EXPECT_EQ(refused.out(), "rpc: request queue full (or payload too large)\n");

    auto server = startReady({"serve", domain_, "o", "ping", "i", "--cap", "10", "--count", "10"});
    EXPECT_EQ(server->finish(), 0);
    for (int k = 0; k < 10; ++k)
        EXPECT_TRUE(contains(server->out(), "request id=1 pid=" + std::to_string(callers[k]) +
                                                " info=ky_c_peer args " + std::to_string(k) + "\n"))
            << server->out();
}

// ---- registries ------------------------------------------------------------------------

TEST_F(CPeer, RowsLiveExactlyAsLongAsTheirProcess) {
    created("obj", "alive");
    auto watch = startReady({"watch", domain_, "obj", "alive", "bs", "--timeout", "60000"});
    const std::string pid = std::to_string(watch->pid());
    const PeerRun rows = runPeer({"registry", domain_});
    EXPECT_TRUE(contains(rows.out, "row pid=" + pid + " object=obj signal=alive typeId=6a6502fbe37a1600 shm=" +
                                       shmName("obj", "alive") +
                                       " typeName=KyString ky::ipc::detail::type_name() [with Args = {bool, "
                                       "KyString}]\n"))
        << rows.out;
    EXPECT_TRUE(contains(runPeer({"subs", domain_}).out,
                         "sub pid=" + pid + " refCount=1 object=obj signal=alive subObject=\n"));
    EXPECT_TRUE(contains(runPeer({"apps", domain_}).out, "pids=" + pid)) << runPeer({"apps", domain_}).out;

    // Killed without a chance to unregister: the next pass of cleaning finds it gone.
    watch->kill();
    EXPECT_FALSE(contains(runPeer({"registry", domain_}).out, "pid=" + pid));
    EXPECT_FALSE(contains(runPeer({"subs", domain_}).out, "pid=" + pid));
    EXPECT_FALSE(contains(runPeer({"apps", domain_}).out, pid));
}

TEST_F(CPeer, LongQueueNamesSqueezeOutTheSubscriberObjectButStillMatch) {
    struct Row {
        std::size_t length;
        std::string packed;
    };
    // The 160-byte field holds the name, its terminator, then what fits of "__rqsub__<pid>|1".
    const Row rows[] = {{157, "_"}, {158, ""}, {159, ""}};
    for (const Row& row : rows) {
        const std::string queue(row.length, 'q');
        created("obj", queue);
        auto drain = startReady({"drain", domain_, "obj", queue, "10", "i", "--timeout", "30000"});
        const std::string subs = runPeer({"subs", domain_}).out;
        EXPECT_TRUE(contains(subs, "sub pid=" + std::to_string(drain->pid()) + " refCount=1 object=obj signal=" +
                                       queue + " subObject=" + row.packed + "\n"))
            << row.length << ": " << subs;
        EXPECT_EQ(runPeer({"push", domain_, "obj", queue, "10", "i", "9"}).rc, 0);
        EXPECT_EQ(drain->finish(), 0) << row.length;
        EXPECT_EQ(drain->out(), "ready\nmsg 9\n") << row.length;
    }
}

TEST_F(CPeer, StampOlderThanFifteenSecondsIsRemovedEvenForALiveProcess) {
    created("obj", "old");
    // The watcher's clock runs 20 s behind, so every stamp it writes looks stale to others.
    auto watch = startReady({"watch", domain_, "obj", "old", "i", "--timeout", "60000"},
                            {"KY_PEER_CLOCK_SKEW_MS=-20000"});
    const std::string pid = std::to_string(watch->pid());
    EXPECT_FALSE(contains(runPeer({"subs", domain_}).out, "pid=" + pid));
    EXPECT_FALSE(contains(runPeer({"registry", domain_}).out, "pid=" + pid));
    auto fresh = startReady({"watch", domain_, "obj", "old", "i", "--timeout", "60000"});
    EXPECT_TRUE(contains(runPeer({"subs", domain_}).out, "sub pid=" + std::to_string(fresh->pid()) + " refCount=1"));
}

} // namespace
