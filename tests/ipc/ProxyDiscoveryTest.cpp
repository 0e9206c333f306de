// Discovery of remote objects: which objects of a domain count as servers of
// a proxy's methods, which process stands behind an object, and a browser
// that follows servers in real child processes as they start, die, or stop
// beating. Client rows that a proxy leaves under a server's object must
// never keep that object alive.
//
// Every test works in a domain of its own and an application table of its
// own; the domain's objects are unlinked at the end. Staleness is reached
// with the clock skew of this process (or of a child), never by sleeping.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "core/types/KyJsonObject.h"
#include "ipc/AppsRegistryTable.h"
#include "ipc/IpcNames.h"
#include "ipc/KyProxyObjectBrowser.h"
#include "ipc/ProxyObjectBase.h"
#include "ipc/RegistryShared.h"
#include "ipc/RegistryTable.h"
#include "ipc/RpcMethodClient.h"
#include "../support/KyTestIpc.h"
#include "../support/KyTestLoop.h"
#include "../support/KyTestProcess.h"

namespace {

using namespace ky::ipc;
using namespace std::chrono_literals;

using Signals = RegistryTable<256>;

const char* const kMethods[] = {"createTun", "closeTun"};

/// A proxy of the agent's kind: two methods without arguments, one client each.
class TunProxy : public ProxyObjectBase {
public:
    TunProxy(const KyString& domain, const KyString& object, const KyString& clientInfo)
        : ProxyObjectBase(domain, object, clientInfo),
          createTun_(domain, object, "createTun", clientInfo),
          closeTun_(domain, object, "closeTun", clientInfo) {}

    static void kyIpcRemoteAppendAllSpecs_(KyList<RpcRequestSpec>& specs) {
        specs.append(rpcRequestSpec<>("createTun"));
        specs.append(rpcRequestSpec<>("closeTun"));
    }

private:
    RpcMethodClient<bool> createTun_;
    RpcMethodClient<bool> closeTun_;
};

using Browser = KyProxyObjectBrowser<TunProxy>;

/// A proxy whose createTun takes an argument: same names, another signature.
class TunProxyWithArgument : public ProxyObjectBase {
public:
    TunProxyWithArgument(const KyString& domain, const KyString& object, const KyString& clientInfo)
        : ProxyObjectBase(domain, object, clientInfo), createTun_(domain, object, "createTun", clientInfo) {}

    static void kyIpcRemoteAppendAllSpecs_(KyList<RpcRequestSpec>& specs) {
        specs.append(rpcRequestSpec<KyString>("createTun"));
        specs.append(rpcRequestSpec<>("closeTun"));
    }

private:
    RpcMethodClient<bool, KyString> createTun_;
};

uint32_t selfPid() { return static_cast<uint32_t>(::getpid()); }

struct ProxyDiscoveryTest : kytest::LoopFixture {
    void SetUp() override {
        kytest::LoopFixture::SetUp();
        appsTable_ = KyString("/ky_ipc_registry_apps_") + domain.name();
        domain.trackName(appsTable_.toStdString());
        // Its row goes with the process that registered it, often a peer we kill.
        domain.track(detail::registryEventsObjectName_(), detail::registryEventsSignalName_());
        AppsRegistryTable<64>::setObjectNameForTesting_(appsTable_);
        // Opened (and so kept mapped) now: the exit hook of the application
        // table reopens the table of the last name set, and would otherwise
        // create it again after the test removed it.
        AppsRegistryTable<64>::registerDomain(domain.name());
        detail::setClockSkewForTesting_(0);
        rpcQueueCapacityStorage_() = 100;
    }
    void TearDown() override {
        detail::setClockSkewForTesting_(0);
        rpcQueueCapacityStorage_() = 100;
        for (auto& child : children_) {
            child->sendSignal(SIGCONT);
            child->kill();
        }
        children_.clear();
        kytest::LoopFixture::TearDown();
    }

    /// Starts a peer serving `object` (createTun and closeTun unless items
    /// say otherwise) and waits until it is ready.
    kytest::Child& startPeer(const KyString& object, std::vector<std::string> items = {},
                             std::vector<std::string> options = {}) {
        std::vector<std::string> args{"apps-table", appsTable_.toStdString()};
        args.insert(args.end(), options.begin(), options.end());
        args.push_back(domain.name().toStdString());
        args.push_back(object.toStdString());
        args.insert(args.end(), items.begin(), items.end());
        for (const char* m : kMethods) track(object, m);
        children_.push_back(std::make_unique<kytest::Child>());
        kytest::Child& child = *children_.back();
        EXPECT_TRUE(child.start(kytest::helperPath("ky_proxy_peer"), args));
        domain.trackPid(static_cast<uint32_t>(child.pid()));
        EXPECT_TRUE(child.waitForOutput(6, 30s)) << child.err();
        EXPECT_EQ(child.out(), "ready\n") << child.err();
        return child;
    }

    /// The request queues of an object and this process's reply queues are
    /// named here, since dead servers' rows are gone by the time we clean up.
    void track(const KyString& object, const KyString& method) {
        domain.track(object, KyString("__rpc__|100|") + method);
        domain.track(object, KyString("__rpc_ret__|100|") + method + "|" + KyString::number(selfPid()));
    }

    void registerRow(const KyString& object, const KyString& signal, uint64_t typeId) {
        Signals::registerSignal(domain.name(), object, signal, detail::make_shm_name(domain.name(), object, signal),
                                typeId, "test");
    }

    KyString target(const KyString& object) const { return domain.name() + "/" + object; }

    int rowsOf(const KyString& object, uint32_t pid) {
        int n = 0;
        for (const KyJsonValue& row : Signals::snapshot(domain.name()))
            if (row["object"].toString() == object && detail::rowPid_(row) == pid) ++n;
        return n;
    }

    /// Wedges a peer: it stops itself between two loop steps (never inside a
    /// table's critical section), and we wait until it has.
    static bool stop(kytest::Child& child) {
        if (!child.writeInput("stop\n")) return false;
        return kytest::waitUntil([&] {
            int status = 0;
            return ::waitpid(child.pid(), &status, WNOHANG | WUNTRACED) == child.pid() && WIFSTOPPED(status);
        });
    }

    kytest::IpcDomain domain{"proxy"};
    KyString appsTable_;
    std::vector<std::unique_ptr<kytest::Child>> children_;
};

/// Counts a browser's announcements and keeps the last instance it announced.
struct Announcements {
    explicit Announcements(Browser& browser) {
        KyObject::connect(&browser, &Browser::remoteAppeared, [this](KyPointer<Browser::Instance> p) {
            ++appeared;
            lastAppeared = p ? p->target() : KyString();
        });
        KyObject::connect(&browser, &Browser::remoteDisappeared, [this](KyPointer<Browser::Instance> p) {
            ++disappeared;
            lastDisappeared = p ? p->target() : KyString();
        });
    }
    int appeared = 0;
    int disappeared = 0;
    KyString lastAppeared;
    KyString lastDisappeared;
};

}  // namespace

// ------------------------------------------------------------ discovery table

TEST_F(ProxyDiscoveryTest, DiscoveryKeepsObjectsServingEveryRequiredMethodOnOurCapacity) {
    const uint64_t ok = rpcRequestSpec<>("createTun").typeId;
    const uint64_t other = rpcRequestSpec<KyString>("createTun").typeId;
    struct Row { const char* object; const char* signal; uint64_t typeId; };
    const Row rows[] = {
        {"a/full", "__rpc__|100|createTun", ok},      {"a/full", "__rpc__|100|closeTun", ok},
        {"a/half", "__rpc__|100|createTun", ok},      {"a/typed", "__rpc__|100|createTun", other},
        {"a/typed", "__rpc__|100|closeTun", ok},      {"a/cap25", "__rpc__|25|createTun", ok},
        {"a/cap25", "__rpc__|25|closeTun", ok},       {"a/extra", "__rpc__|100|createTun", ok},
        {"a/extra", "__rpc__|100|closeTun", ok},      {"a/extra", "__rpc__|100|other", ok},
        {"a/plain", "createTun", ok},                 {"a/plain", "closeTun", ok},
        {"a/reply", "__rpc_ret__|100|createTun|7", ok}, {"a/reply", "__rpc_ret__|100|closeTun|7", ok},
    };
    for (const Row& r : rows) registerRow(r.object, r.signal, r.typeId);

    const KyList<RpcRequestSpec> tun{rpcRequestSpec<>("createTun"), rpcRequestSpec<>("closeTun")};
    struct Case {
        const char* name;
        KyString domain;
        KyList<RpcRequestSpec> specs;
        bool requireTypeMatch;
        int capacity;
        std::vector<const char*> expected;
    };
    const Case cases[] = {
        {"both names, types checked", domain.name(), tun, true, 100, {"a/extra", "a/full"}},
        {"both names, types ignored", domain.name(), tun, false, 100, {"a/extra", "a/full", "a/typed"}},
        {"no required names", domain.name(), {}, true, 100, {"a/extra", "a/full", "a/half", "a/typed"}},
        {"one name", domain.name(), {rpcRequestSpec<>("other")}, true, 100, {"a/extra"}},
        {"another capacity", domain.name(), tun, true, 25, {"a/cap25"}},
        {"empty domain", KyString(), tun, false, 100, {}},
        {"unknown domain", domain.name() + "-none", tun, false, 100, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        rpcQueueCapacityStorage_() = c.capacity;
        KyList<KyString> expected;
        for (const char* object : c.expected) expected.append(c.domain + "/" + object);
        EXPECT_EQ(discoverRpcTargets(c.domain, c.specs, c.requireTypeMatch), expected);
    }
    domain.trackName(Signals::objectName(domain.name() + "-none").toStdString());
}

// ------------------------------------------------------------ remote pid

TEST_F(ProxyDiscoveryTest, OwnRowsCountOnlyForObjectsThisProcessServes) {
    const KyString object = "velnet/Served";
    registerRow(object, "__config__|velnet/Served", 1);
    registerRow(object, "__rpc__|100|createTun", 1);
    ProxyObjectBase proxy(domain.name(), object, "test");
    EXPECT_EQ(proxy.remotePid_(), 0u);

    detail::markObjectServed_(domain.name(), object, true);
    detail::markObjectServed_(domain.name(), object, true);
    EXPECT_EQ(proxy.remotePid_(), selfPid());
    detail::markObjectServed_(domain.name(), object, false);
    EXPECT_EQ(proxy.remotePid_(), selfPid()) << "one of two servers is still here";
    detail::markObjectServed_(domain.name(), object, false);
    EXPECT_EQ(proxy.remotePid_(), 0u);

    EXPECT_EQ(ProxyObjectBase(domain.name(), KyString(), "test").remotePid_(), 0u);
    EXPECT_EQ(ProxyObjectBase(KyString(), object, "test").remotePid_(), 0u);
}

TEST_F(ProxyDiscoveryTest, RemotePidPrefersConfigurationThenRequestQueueThenAnyRow) {
    const KyString object = "velnet/Layered";
    kytest::Child& plain = startPeer(object, {"row:tunState"});
    EXPECT_EQ(ProxyObjectBase(domain.name(), object, "t").remotePid_(), static_cast<uint32_t>(plain.pid()));
    kytest::Child& rpc = startPeer(object, {"rpc:createTun"});
    EXPECT_EQ(ProxyObjectBase(domain.name(), object, "t").remotePid_(), static_cast<uint32_t>(rpc.pid()));
    kytest::Child& config = startPeer(object, {"row:__config__|velnet/Layered"});
    EXPECT_EQ(ProxyObjectBase(domain.name(), object, "t").remotePid_(), static_cast<uint32_t>(config.pid()));

    config.kill();
    EXPECT_EQ(ProxyObjectBase(domain.name(), object, "t").remotePid_(), static_cast<uint32_t>(rpc.pid()));
    rpc.kill();
    plain.kill();
    EXPECT_EQ(ProxyObjectBase(domain.name(), object, "t").remotePid_(), 0u);
}

TEST_F(ProxyDiscoveryTest, ASecondServerOfAnObjectTakesItOverOnlyFromADeadOrStaleOne) {
    const KyString object = "velnet/Twice";
    auto owner = [&] { return ProxyObjectBase(domain.name(), object, "t").remotePid_(); };

    kytest::Child& first = startPeer(object);
    kytest::Child& second = startPeer(object);
    EXPECT_EQ(owner(), static_cast<uint32_t>(first.pid())) << "a live, beating owner keeps its rows";

    ASSERT_TRUE(stop(first));
    kytest::Child& third = startPeer(object);
    EXPECT_EQ(owner(), static_cast<uint32_t>(first.pid())) << "a stopped owner keeps its rows for 15 s";

    // The fourth server's clock is 16 s ahead: to it the stopped owner's stamps are stale.
    kytest::Child& fourth = startPeer(object, {}, {"skew", "16000"});
    EXPECT_EQ(owner(), static_cast<uint32_t>(fourth.pid()));
    EXPECT_EQ(rowsOf(object, static_cast<uint32_t>(fourth.pid())), 3);

    fourth.kill();
    kytest::Child& fifth = startPeer(object);
    EXPECT_EQ(owner(), static_cast<uint32_t>(fifth.pid())) << "a dead owner's rows go to the next server";
    (void)second;
    (void)third;
}

// ------------------------------------------------------------ browser

TEST_F(ProxyDiscoveryTest, BrowserAnnouncesAServerAndLosesItWhenItsProcessIsKilled) {
    const KyString object = "velnet/VelmoVpnAgent";
    Browser browser(domain.name(), "*", "console");
    Announcements seen(browser);
    browser.subscribeRegistryChanges_();
    ASSERT_TRUE(browser.isSubscribed());
    browser.refreshNow();
    EXPECT_EQ(seen.appeared, 0);

    kytest::Child& agent = startPeer(object);
    ASSERT_TRUE(pumpUntil([&] { return seen.appeared == 1; }));
    EXPECT_EQ(seen.lastAppeared, target(object));
    Browser::Instance* instance = browser.instance(target(object));
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(instance->getObjectName(), target(object));
    EXPECT_EQ(instance->proxy()->object(), object);
    EXPECT_EQ(instance->proxy()->clientInfo(), "console");
    EXPECT_EQ(instance->proxy()->remotePid_(), static_cast<uint32_t>(agent.pid()));
    // The proxy's own reply queues are rows of this process under the agent's object.
    EXPECT_GE(rowsOf(object, selfPid()), 2);

    agent.kill();
    ASSERT_TRUE(pumpUntil([&] { return seen.disappeared == 1; }));
    EXPECT_EQ(seen.lastDisappeared, target(object));
    EXPECT_EQ(browser.instance(target(object)), nullptr);
    EXPECT_GE(rowsOf(object, selfPid()), 2) << "the client's rows outlive the server";

    // A probe made now registers the request queues under our own pid: the
    // object is listed again, but nobody serves it.
    TunProxy probe(domain.name(), object, "probe");
    EXPECT_EQ(discoverRpcTargets(domain.name(), {rpcRequestSpec<>("createTun"), rpcRequestSpec<>("closeTun")}, true),
              KyList<KyString>{target(object)});
    EXPECT_EQ(probe.remotePid_(), 0u);
    browser.refreshNow();
    kytest::drain(app.get());
    EXPECT_EQ(seen.appeared, 1);
    EXPECT_TRUE(browser.targets().isEmpty());
}

TEST_F(ProxyDiscoveryTest, BrowserLosesAWedgedServerFifteenSecondsAfterItsLastHeartbeat) {
    const KyString object = "velnet/VelmoVpnAgent";
    Browser browser(domain.name(), "*", "console");
    Announcements seen(browser);
    kytest::Child& agent = startPeer(object);
    browser.refreshNow();
    ASSERT_EQ(seen.appeared, 1);

    ASSERT_TRUE(stop(agent));
    browser.refreshNow();
    EXPECT_EQ(seen.disappeared, 0) << "a stopped process is alive until its rows age";

    detail::setClockSkewForTesting_(16000);
    browser.refreshNow();
    detail::setClockSkewForTesting_(0);
    EXPECT_EQ(seen.disappeared, 1);
    EXPECT_TRUE(browser.targets().isEmpty());
}

TEST_F(ProxyDiscoveryTest, BrowserKeepsToItsFilterAndClearForgetsEverything) {
    startPeer("velnet/VelmoVpnAgent");
    startPeer("velnet/Spare");
    startPeer("lab/VelmoVpnAgent");
    startPeer("velnet/Partial", {"rpc:createTun"});

    Browser all(domain.name(), "*", "c");
    Browser under(domain.name(), "velnet/*", "c");
    Browser named(domain.name(), "VelmoVpnAgent", "c");
    Browser ending(domain.name(), "*/Spare", "c");
    for (Browser* b : {&all, &under, &named, &ending}) b->refreshNow();

    auto targets = [&](std::initializer_list<const char*> objects) {
        KyList<KyString> out;
        for (const char* o : objects) out.append(target(o));
        return out;
    };
    EXPECT_EQ(all.targets(), targets({"lab/VelmoVpnAgent", "velnet/Spare", "velnet/VelmoVpnAgent"}));
    EXPECT_EQ(under.targets(), targets({"velnet/Spare", "velnet/VelmoVpnAgent"}));
    EXPECT_EQ(named.targets(), targets({"lab/VelmoVpnAgent", "velnet/VelmoVpnAgent"}));
    EXPECT_EQ(ending.targets(), targets({"velnet/Spare"}));

    Announcements seen(all);
    all.subscribeRegistryChanges_();
    all.clear();
    EXPECT_EQ(seen.disappeared, 3);
    EXPECT_TRUE(all.targets().isEmpty());
    EXPECT_FALSE(all.isSubscribed());
    all.refreshNow();
    EXPECT_EQ(seen.appeared, 3);
}

TEST_F(ProxyDiscoveryTest, ASlotMayDeleteTheBrowserInTheMiddleOfAPass) {
    startPeer("velnet/One");
    startPeer("velnet/Two");
    auto* browser = new Browser(domain.name(), "*", "c");
    int appeared = 0;
    KyObject::connect(browser, &Browser::remoteAppeared, [&](KyPointer<Browser::Instance>) {
        ++appeared;
        delete browser;
    });
    browser->refreshNow();
    EXPECT_EQ(appeared, 1);
}

TEST_F(ProxyDiscoveryTest, AServerOfAnotherSignatureIsNeverAnnounced) {
    startPeer("velnet/VelmoVpnAgent");
    KyProxyObjectBrowser<TunProxyWithArgument> strict(domain.name(), "*", "c", true);
    KyProxyObjectBrowser<TunProxyWithArgument> lax(domain.name(), "*", "c", false);
    int appeared = 0;
    for (auto* b : {&strict, &lax})
        KyObject::connect(b, &KyProxyObjectBrowser<TunProxyWithArgument>::remoteAppeared,
                          [&](KyPointer<KyProxyObjectInstance<TunProxyWithArgument>>) { ++appeared; });

    strict.refreshNow();
    EXPECT_TRUE(strict.targets().isEmpty()) << "the type ids differ";
    // Without the type check the names match, but the proxy cannot be built
    // over the server's queue; the target is left out, now and later.
    lax.refreshNow();
    lax.refreshNow();
    EXPECT_TRUE(lax.targets().isEmpty());
    EXPECT_EQ(appeared, 0);
}

// ------------------------------------------------------------ paths and filters

TEST(ProxyObjectBrowserPaths, NormalisedPathsHaveSingleSlashesAndNoEdges) {
    const struct {
        const char* in;
        const char* out;
    } rows[] = {
        {"velnet/VelmoVpnAgent", "velnet/VelmoVpnAgent"},
        {"  /velnet//VelmoVpnAgent/ ", "velnet/VelmoVpnAgent"},
        {"velnet\\VelmoVpnAgent", "velnet/VelmoVpnAgent"},
        {"\\\\a\\\\\\b//", "a/b"},
        {"///", ""},
        {"", ""},
    };
    for (const auto& r : rows) EXPECT_EQ(Browser::normalizePath_(r.in), KyString(r.out)) << r.in;
}

TEST(ProxyObjectBrowserPaths, FiltersMatchAllPrefixSuffixOrLastSegment) {
    const struct {
        const char* path;
        const char* filter;
        bool match;
    } rows[] = {
        {"velnet/VelmoVpnAgent", "*", true},
        {"velnet/VelmoVpnAgent", "", true},
        {"velnet/VelmoVpnAgent", "velnet/*", true},
        {"velnet/sub/Agent", "velnet/*", true},
        {"velnetx/Agent", "velnet/*", false},
        {"velnet", "velnet/*", true},
        {"velnet/VelmoVpnAgent", "*/VelmoVpnAgent", true},
        {"lab/XVelmoVpnAgent", "*/VelmoVpnAgent", false},
        {"velnet/VelmoVpnAgent", "VelmoVpnAgent", true},
        {"velnet/VelmoVpnAgent", "velnet/VelmoVpnAgent", true},
        {"/velnet//VelmoVpnAgent/", "\\velnet\\VelmoVpnAgent", true},
        {"velnet/VelmoVpnAgent", "Agent", false},
        {"velnet/VelmoVpnAgent", "velnet", false},
        {"VelmoVpnAgent", "VelmoVpnAgent", true},
    };
    for (const auto& r : rows)
        EXPECT_EQ(Browser::matchesObjectFilter_(r.path, r.filter), r.match) << r.path << " ~ " << r.filter;
}

TEST(ProxyObjectBrowserPaths, PidStateCallsOnlyVanishedProcessesGone) {
    EXPECT_EQ(Browser::pidStateBestEffort_(0), 1);
    EXPECT_EQ(Browser::pidStateBestEffort_(selfPid()), 0);
    EXPECT_EQ(Browser::pidStateBestEffort_(1), 0) << "EPERM means alive";
    kytest::Child child;
    ASSERT_TRUE(child.start(KyString("/bin/true"), {}));
    const uint32_t pid = static_cast<uint32_t>(child.pid());
    child.finish();
    EXPECT_EQ(Browser::pidStateBestEffort_(pid), 1);
}
