// Remote calls between real processes: a client on a fiber, on a loop's main
// fiber, on another thread's fiber and on a thread without a loop; a server
// that comes up after its callers and one that runs methods on its object's
// thread; timeouts, late replies, full queues, failing methods, mismatched
// signatures, two clients sharing a reply queue, and many calls in flight.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <thread>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/RpcServerEndpoint.h"
#include "ipc/TypeId.h"
#include "../support/KyTestIpc.h"
#include "../support/KyTestLoop.h"
#include "../support/KyTestProcess.h"

using namespace std::chrono_literals;
using ky::ipc::Registry;
using ky::ipc::RpcMethodClient;
using ky::ipc::RpcServerEndpoint;

namespace {

const KyString kPeer = kytest::helperPath("ky_rpc_peer");
const char* const kMethods[] = {"echo", "check", "add", "sum64", "pid", "sleep", "fail", "throw", "nobody"};
const std::string kQueueFull = "rpc: request queue full (or payload too large)";

struct RpcTest : ::testing::Test {
    kytest::IpcDomain domain{"rpc"};
    KyString object = "rpc/Peer";
    int savedCapacity = ky::ipc::rpcQueueCapacityStorage_();
    std::set<int> capacities{100};
    std::set<uint32_t> pids{static_cast<uint32_t>(getpid())};

    void TearDown() override {
        // Every queue a test may have made, whatever the registry rows say.
        for (int capacity : capacities) {
            ky::ipc::rpcQueueCapacityStorage_() = capacity;
            for (const char* method : kMethods) {
                domain.track(object, ky::ipc::rpcRequestQueueName(method));
                for (uint32_t pid : pids) domain.track(object, ky::ipc::rpcResponseQueueName(method, pid));
            }
        }
        ky::ipc::rpcQueueCapacityStorage_() = savedCapacity;
    }

    void setCapacity(int capacity) {
        capacities.insert(capacity);
        ky::ipc::rpcQueueCapacityStorage_() = capacity;
    }
    bool startPeer(kytest::Child& child, std::vector<std::string> args) {
        args.insert(args.begin() + 1, {domain.name().toStdString(), object.toStdString()});
        if (!child.start(kPeer, args)) return false;
        pids.insert(static_cast<uint32_t>(child.pid()));
        domain.trackPid(static_cast<uint32_t>(child.pid()));
        return true;
    }
    bool startServer(kytest::Child& server) {
        return startPeer(server, {"serve"}) && server.waitForText("ready\n", 20s);
    }
    // Ends a server by closing its input: it must tear down its endpoint and
    // loop and exit cleanly, with no sanitizer report.
    void expectCleanExit(kytest::Child& server) {
        server.closeInput();
        EXPECT_EQ(server.finish(), 0);
        EXPECT_EQ(server.err().find("ERROR"), std::string::npos) << server.err();
        EXPECT_EQ(server.err().find("runtime error"), std::string::npos) << server.err();
    }
    template <typename R, typename... Params>
    std::unique_ptr<RpcMethodClient<R, Params...>> client(const char* method) {
        return std::make_unique<RpcMethodClient<R, Params...>>(domain.name(), object, method, "RpcTest");
    }
    // Size of a method's request queue object, as any process sees it.
    long requestObjectSize(const char* method) {
        const KyString name =
            ky::ipc::detail::make_shm_name(domain.name(), object, ky::ipc::rpcRequestQueueName(method));
        const int fd = shm_open(name.c_str(), O_RDONLY, 0);
        if (fd < 0) return -1;
        struct stat st {};
        const int rc = fstat(fd, &st);
        close(fd);
        return rc == 0 ? static_cast<long>(st.st_size) : -1;
    }
};

}  // namespace

TEST(RpcNames, QueueNamesCarryCapacityMethodAndPid) {
    struct Row {
        const char* what;
        int capacity;
        KyString (*make)();
        const char* expected;
    };
    const Row rows[] = {
        {"request, default capacity", 100, [] { return ky::ipc::rpcRequestQueueName("loginUser"); },
         "__rpc__|100|loginUser"},
        {"reply, default capacity", 100, [] { return ky::ipc::rpcResponseQueueName("loginUser", 4242); },
         "__rpc_ret__|100|loginUser|4242"},
        {"request, small ring", 10, [] { return ky::ipc::rpcRequestQueueName("ping"); }, "__rpc__|10|ping"},
        {"unknown capacity still named", 7, [] { return ky::ipc::rpcResponseQueueName("ping", 1); },
         "__rpc_ret__|7|ping|1"},
    };
    const int saved = ky::ipc::rpcQueueCapacityStorage_();
    for (const Row& row : rows) {
        ky::ipc::rpcQueueCapacityStorage_() = row.capacity;
        EXPECT_EQ(row.make(), row.expected) << row.what;
    }
    ky::ipc::rpcQueueCapacityStorage_() = saved;
}

TEST(RpcNames, RecordTypeIdsFollowTheWireSignatures) {
    using ky::ipc::detail::typeIdFromArgList;
    EXPECT_EQ(ky::ipc::rpcRequestSpec<>("ping").typeId, typeIdFromArgList("long unsigned int, unsigned int, KyString"));
    EXPECT_EQ(ky::ipc::rpcRequestSpec<KyString>("login").typeId,
              typeIdFromArgList("long unsigned int, unsigned int, KyString, KyString"));
    EXPECT_EQ(ky::ipc::rpcRequestSpec<KyString>("login").name, "login");
    EXPECT_EQ((ky::ipc::detail::type_id<uint64_t, bool, KyString, bool>()),
              typeIdFromArgList("long unsigned int, bool, KyString, bool"));
}

TEST_F(RpcTest, CallOnTheLoopsMainFiberServesTheLoopUntilTheReplyOrTheError) {
    kytest::Child server;
    ASSERT_TRUE(startServer(server));
    KyCoreApplication app;
    auto add = client<int, int, int>("add");
    auto sum64 = client<uint64_t, uint64_t, uint64_t>("sum64");
    auto pid = client<unsigned int>("pid");
    EXPECT_EQ(add->call(-7, 12, 20000), 5);
    EXPECT_EQ(sum64->call(1ULL << 40, 1, 20000), (1ULL << 40) + 1);
    EXPECT_EQ(pid->call(20000), static_cast<unsigned int>(server.pid()));

    int asyncValue = 0;
    ASSERT_TRUE(add->callAsync(20, 22, [&](const int& v) { asyncValue = v; }));
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return asyncValue != 0; }));
    EXPECT_EQ(asyncValue, 42);

    // A failing method's text becomes the last error; a false value is an answer, not an error.
    auto fail = client<bool, KyString>("fail");
    EXPECT_FALSE(fail->call("nope", 20000));
    EXPECT_EQ(fail->lastError(), "refused: nope");
    auto thrower = client<bool>("throw");
    EXPECT_FALSE(thrower->call(20000));
    EXPECT_EQ(thrower->lastError(), "server exploded");
    auto check = client<bool, KyString>("check");
    EXPECT_FALSE(check->call("", 20000));
    EXPECT_EQ(check->lastError(), "");
    EXPECT_TRUE(check->call("x", 20000));
    expectCleanExit(server);
}

TEST_F(RpcTest, ACallOnAnotherThreadsFiberIsWokenByTheLoopThatPolls) {
    kytest::Child server;
    ASSERT_TRUE(startServer(server));
    KyCoreApplication app;
    // Made here, so this thread's loop polls its replies.
    auto echo = client<KyString, KyString>("echo");
    ky::atomic::Thread worker("rpc-caller");
    ASSERT_TRUE(worker.start());
    std::atomic<bool> done{false};
    std::atomic<bool> onWorkerFiber{false};
    KyString result;
    worker.postTask([&] {
        onWorkerFiber = ky::atomic::Thread::currentThread() == &worker &&
                        KyCoreApplication::instance(false)->fiberPool().isOnPooledFiber();
        result = echo->call("across loops", 20000);
        done = true;
    });
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return done.load(); }));
    worker.quit();
    worker.wait();
    EXPECT_TRUE(onWorkerFiber);
    EXPECT_EQ(result, "across loops");
    expectCleanExit(server);
}

TEST_F(RpcTest, CallFromAThreadWithoutALoopPollsByHand) {
    kytest::Child server;
    ASSERT_TRUE(startServer(server));
    bool hadLoop = true;
    KyString result;
    KyString error = "unset";
    std::thread plain([&] {
        hadLoop = KyCoreApplication::instance(false) != nullptr;
        auto echo = client<KyString, KyString>("echo");
        result = echo->call("by hand", 20000);
        error = echo->lastError();
    });
    plain.join();
    EXPECT_FALSE(hadLoop);
    EXPECT_EQ(result, "by hand");
    EXPECT_EQ(error, "");
}

TEST_F(RpcTest, CallsQueuedBeforeTheServerExistsAreServedWhenItComesUp) {
    kytest::Child caller;
    ASSERT_TRUE(startPeer(caller, {"call", "echo", "early", "60000"}));
    ASSERT_TRUE(caller.waitForText("calling\n", 20s));
    // The request sits in the ring before anyone serves it.
    Registry registry{domain.name(), object};
    ky::ipc::RingQueue<100, uint64_t, uint32_t, KyString, KyString> requests(registry,
                                                                              ky::ipc::rpcRequestQueueName("echo"));
    ASSERT_TRUE(kytest::waitUntil(
        [&] { return __atomic_load_n(&requests.mapping().layout()->seq, __ATOMIC_ACQUIRE) >= 1; }));

    KyCoreApplication app;
    auto alive = std::make_shared<std::atomic<bool>>(true);
    RpcServerEndpoint endpoint(registry, object, alive, [] { return ky::atomic::Thread::currentThread(); });
    int served = 0;
    endpoint.expose<KyString, KyString>(
        "echo",
        [&](const KyString& text) {
            ++served;
            return text + "!";
        },
        true);
    EXPECT_EQ(endpoint.exposedCount(), 1u);
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return caller.waitForText("error=", 20ms); })) << caller.out();
    EXPECT_EQ(caller.finish(), 0);
    EXPECT_EQ(caller.out(), "calling\nresult=early!|error=\n");
    EXPECT_EQ(served, 1);
}

TEST_F(RpcTest, MethodsRunOnTheObjectsThreadAndADeadObjectAnswersNothing) {
    KyCoreApplication app;
    ky::atomic::Thread worker("rpc-worker");
    ASSERT_TRUE(worker.start());
    Registry registry{domain.name(), object};
    auto alive = std::make_shared<std::atomic<bool>>(true);
    RpcServerEndpoint endpoint(registry, object, alive, [&worker] { return &worker; });
    std::atomic<ky::atomic::Thread*> ranOn{nullptr};
    endpoint.expose<KyString, KyString>(
        "echo",
        [&](const KyString& text) {
            ranOn = ky::atomic::Thread::currentThread();
            return text;
        },
        false);

    kytest::Child first;
    ASSERT_TRUE(startPeer(first, {"call", "echo", "hi", "20000"}));
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return first.waitForText("error=", 20ms); }));
    EXPECT_EQ(first.finish(), 0);
    EXPECT_EQ(first.out(), "calling\nresult=hi|error=\n");
    EXPECT_EQ(ranOn.load(), &worker);

    alive->store(false);
    ranOn = nullptr;
    kytest::Child second;
    ASSERT_TRUE(startPeer(second, {"call", "echo", "anyone?", "500"}));
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return second.waitForText("error=", 20ms); }));
    EXPECT_EQ(second.finish(), 0);
    EXPECT_EQ(second.out(), "calling\nresult=|error=rpc: timeout\n");
    EXPECT_EQ(ranOn.load(), nullptr);
    worker.quit();
    worker.wait();
}

TEST_F(RpcTest, TwoClientsOfOneMethodInOneProcessEachGetTheirReplies) {
    kytest::Child server;
    ASSERT_TRUE(startServer(server));
    KyCoreApplication app;
    // Both drain the same reply queue; whichever drains passes the other its replies.
    auto first = client<KyString, KyString>("echo");
    auto second = client<KyString, KyString>("echo");
    constexpr int kEach = 8;
    std::vector<KyString> results(2 * kEach);
    int done = 0;
    for (int i = 0; i < 2 * kEach; ++i) {
        auto* c = (i % 2 == 0 ? first : second).get();
        app.postEvent([&, c, i] {
            results[i] = c->call(KyString::number(i), 20000);
            ++done;
        });
    }
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return done == 2 * kEach; }));
    for (int i = 0; i < 2 * kEach; ++i) EXPECT_EQ(results[i], KyString::number(i));
    EXPECT_EQ(first->lastError(), "");
    EXPECT_EQ(second->lastError(), "");
    // The survivor of the two still gets its replies alone.
    first.reset();
    EXPECT_EQ(second->call("alone", 20000), "alone");
    expectCleanExit(server);
}

TEST_F(RpcTest, TimeoutThenLateReplyLeavesTheNextCallWorking) {
    kytest::Child server;
    ASSERT_TRUE(startServer(server));
    KyCoreApplication app;
    auto sleep = client<bool, int>("sleep");
    EXPECT_FALSE(sleep->call(1500, 50));
    EXPECT_EQ(sleep->lastError(), "rpc: timeout");
    EXPECT_EQ(sleep->pendingCount(), 0u);
    // Its reply comes back on the same queue, before this one's: it is
    // dropped, and this call gets its own.
    EXPECT_TRUE(sleep->call(1, 20000));
    EXPECT_EQ(sleep->lastError(), "");
    EXPECT_EQ(sleep->pendingCount(), 0u);
    expectCleanExit(server);
}

TEST_F(RpcTest, AFullRequestQueueRefusesTheNextCallAtOnce) {
    struct Row { int capacity; int slots; };
    for (const Row row : {Row{100, 100}, Row{10, 10}, Row{7, 100}}) {
        SCOPED_TRACE(row.capacity);
        setCapacity(row.capacity);
        auto nobody = client<KyString, KyString>("nobody");
        EXPECT_EQ(requestObjectSize("nobody"), 192 + row.slots * 4112L);
        for (int i = 0; i < row.slots; ++i) ASSERT_TRUE(nobody->callAsync("queued", {})) << i;
        EXPECT_FALSE(nobody->callAsync("one too many", {}));
        EXPECT_EQ(nobody->lastError(), kQueueFull);
        // A blocking call fails the same way without waiting for its timeout.
        EXPECT_EQ(nobody->call("and another", 60000), "");
        EXPECT_EQ(nobody->lastError(), kQueueFull);
        EXPECT_EQ(nobody->pendingCount(), static_cast<size_t>(row.slots));
    }
}

TEST_F(RpcTest, ArgumentsOverThePayloadLimitFailWithTheQueueFullText) {
    auto nobody = client<KyString, KyString>("nobody");
    // Id, pid and client info come first, so a 4096-byte text cannot fit.
    EXPECT_EQ(nobody->call(KyString(4096, 'x'), 60000), "");
    EXPECT_EQ(nobody->lastError(), kQueueFull);
    EXPECT_EQ(nobody->pendingCount(), 0u);
}

TEST_F(RpcTest, AClientWithOtherTypesIsRefused) {
    kytest::Child server;
    ASSERT_TRUE(startServer(server));
    KyCoreApplication app;
    try {
        client<KyString, int>("echo");
        FAIL() << "a client with other argument types was accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "SHM type mismatch (subscriber/publisher types differ)");
    }
    // The same arguments with another result: the server cannot open this
    // client's reply queue, so the call times out and the server goes on.
    auto wrongResult = client<bool, KyString>("echo");
    EXPECT_FALSE(wrongResult->call("x", 500));
    EXPECT_EQ(wrongResult->lastError(), "rpc: timeout");
    kytest::Child caller;
    ASSERT_TRUE(startPeer(caller, {"call", "echo", "still here", "20000"}));
    EXPECT_EQ(caller.finish(), 0);
    EXPECT_EQ(caller.out(), "calling\nresult=still here|error=\n");
}

// Each call yields its fiber and the loop goes on: every call is sent and
// waiting before a server exists to answer any.
TEST_F(RpcTest, ThirtyTwoCallsInFlightFromFibersAllComplete) {
    KyCoreApplication app;
    auto echo = client<KyString, KyString>("echo");
    constexpr int kCalls = 32;
    std::vector<KyString> results(kCalls);
    int done = 0;
    bool onFiber = true;
    for (int i = 0; i < kCalls; ++i) {
        app.postEvent([&, i] {
            onFiber = onFiber && app.fiberPool().isOnPooledFiber();
            results[i] = echo->call(KyString("grüße ") + KyString::number(i), 20000);
            ++done;
        });
    }
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return echo->pendingCount() == static_cast<size_t>(kCalls); }));
    kytest::Child server;
    ASSERT_TRUE(startServer(server));
    ASSERT_TRUE(kytest::pumpUntil(&app, [&] { return done == kCalls; }));
    EXPECT_TRUE(onFiber);
    for (int i = 0; i < kCalls; ++i) EXPECT_EQ(results[i], KyString("grüße ") + KyString::number(i));
    EXPECT_EQ(echo->pendingCount(), 0u);
    EXPECT_EQ(echo->lastError(), "");
    expectCleanExit(server);
}
