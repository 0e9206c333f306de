// The demo agent's workspace without IPC: the words, snapshots and counters a
// console would see, driven through the agent's methods and an explicit tick
// clock, with the remembered session in a real temporary directory.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "core/io/KyFile.h"
#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonHelpers.h"
#include "../support/KyTestEnv.h"
#include "../support/KyTestProcess.h"
#include "tools/velmo-demo-agent/VelmoDemoCommandLine.h"
#include "tools/velmo-demo-agent/VelmoDemoWorkspace.h"

namespace {

/// Everything the nine callbacks said, in order.
struct Recorder {
    std::vector<KyString> log;
    std::vector<std::vector<int>> stats;
    std::vector<std::pair<bool, KyString>> tun;
    std::vector<std::pair<int, KyString>> ws;
    std::vector<std::pair<KyString, bool>> clientConfig;
    std::vector<std::vector<KyString>> network;
    std::vector<KyString> auth;
    std::vector<KyString> catalog;
    std::vector<KyString> endpoints;

    VelmoDemoSignals signals() {
        VelmoDemoSignals s;
        s.logLine = [this](const KyString& line) { log.push_back(line); };
        s.stats = [this](int rx, int tx, int drop) { stats.push_back({rx, tx, drop}); };
        s.tunState = [this](bool open, const KyString& text) { tun.emplace_back(open, text); };
        s.wsState = [this](int state, const KyString& text) { ws.emplace_back(state, text); };
        s.clientConfigState = [this](const KyString& id, bool flag) { clientConfig.emplace_back(id, flag); };
        s.assignedNetworkState = [this](const KyString& a, const KyString& b, const KyString& c) {
            network.push_back({a, b, c});
        };
        s.authState = [this](const KyString& json) { auth.push_back(json); };
        s.vpnCatalogState = [this](const KyString& json) { catalog.push_back(json); };
        s.vpnEndpointsState = [this](const KyString& json) { endpoints.push_back(json); };
        return s;
    }

    static KyString word(const KyString& json) { return jsonStringValue(parseJsonObjectOrEmpty(json), "status"); }
    KyString authWord() const { return auth.empty() ? KyString() : word(auth.back()); }
    KyJsonObject lastAuth() const { return parseJsonObjectOrEmpty(auth.back()); }
    KyJsonObject lastCatalog() const { return parseJsonObjectOrEmpty(catalog.back()); }
    KyJsonObject lastEndpoints() const { return parseJsonObjectOrEmpty(endpoints.back()); }
    /// The status words in order, a repeated word (a snapshot that changed other fields) counted once.
    std::vector<KyString> authWords() const {
        std::vector<KyString> out;
        for (const KyString& j : auth)
            if (out.empty() || out.back() != word(j)) out.push_back(word(j));
        return out;
    }
    bool logHas(const KyString& text) const {
        return std::any_of(log.begin(), log.end(), [&](const KyString& l) { return l.contains(text); });
    }
};

/// A workspace over a temporary state directory, with its own tick clock.
class DemoWorkspace : public ::testing::Test {
protected:
    VelmoDemoWorkspaceOptions options() {
        VelmoDemoWorkspaceOptions o;
        o.domain = "velnet-test";
        o.stateDirectory = dir.path() + "/state";
        o.seed = 7;
        o.catalogSize = 12;
        o.sleepMs = [this](int ms) { slept.push_back(ms); };
        o.exitNow = [this] { ++exits; };
        o.shutdownRequested = [this] { ++shutdowns; };
        return o;
    }
    void make(const VelmoDemoWorkspaceOptions& o) {
        ws.reset();
        rec = std::make_unique<Recorder>();
        ws = std::make_unique<VelmoDemoWorkspace>(o, rec->signals());
        ws->start(now);
    }
    /// Moves the clock on by ms in steps of 50 ms, as the agent's timer does.
    void advance(int ms) {
        for (int t = 0; t < ms; t += 50) ws->tick(now += 50);
    }
    void signIn() {
        ASSERT_TRUE(ws->loginUser("https://demo.velmo.net", VelmoDemoWorkspace::kDemoEmail,
                                  VelmoDemoWorkspace::kDemoPassword));
        advance(2000);
        ASSERT_EQ(rec->authWord(), "ready");
    }

    kytest::TempDir dir;
    std::int64_t now = 100000;
    std::vector<int> slept;
    int exits = 0;
    int shutdowns = 0;
    std::unique_ptr<Recorder> rec;
    std::unique_ptr<VelmoDemoWorkspace> ws;
};

} // namespace

// ---------------------------------------------------------------- sign-in

TEST_F(DemoWorkspace, StartsLoggedOutAtRestCountsOnlyWithATunnelAndStopsOnceWhenAsked) {
    make(options());
    EXPECT_EQ(rec->authWords(), std::vector<KyString>{"logged_out"});
    EXPECT_EQ(Recorder::word(rec->catalog.back()), "idle");
    EXPECT_EQ(Recorder::word(rec->endpoints.back()), "idle");
    EXPECT_EQ(rec->ws, (std::vector<std::pair<int, KyString>>{{2, "Disconnected"}}));
    ASSERT_EQ(rec->tun.size(), 1u);
    EXPECT_FALSE(rec->tun[0].first || ws->tunIsOpen() || ws->wsIsConnected());
    EXPECT_EQ(rec->stats.back(), (std::vector<int>{0, 0, 0}));
    // Counters tick once a second, only while the tunnel is up.
    advance(5000);
    EXPECT_EQ(rec->stats.size(), 1u) << "no counters without a tunnel";
    ASSERT_TRUE(ws->createTun());
    const std::size_t base = rec->stats.size();
    advance(950);
    EXPECT_EQ(rec->stats.size(), base);
    advance(100);
    ASSERT_EQ(rec->stats.size(), base + 1);
    advance(3000);
    EXPECT_EQ(rec->stats.size(), base + 4);
    for (std::size_t i = base + 1; i < rec->stats.size(); ++i)
        for (int k = 0; k < 3; ++k) EXPECT_GE(rec->stats[i][k], rec->stats[i - 1][k]);
    ASSERT_TRUE(ws->closeTun());
    const std::size_t closed = rec->stats.size();
    advance(3000);
    EXPECT_EQ(rec->stats.size(), closed);
    // A shutdown request is answered first and asked of the owner once, shortly after.
    EXPECT_TRUE(ws->requestShutdown());
    EXPECT_TRUE(ws->requestShutdown());
    EXPECT_EQ(shutdowns, 0);
    advance(1000);
    EXPECT_EQ(shutdowns, 1);
}

TEST_F(DemoWorkspace, DemoAccountSignsInAfterADelayAndIsRememberedPrivately) {
    make(options());
    ASSERT_TRUE(ws->loginUser("https://demo.velmo.net", " Demo@Velmo.net ", VelmoDemoWorkspace::kDemoPassword));
    advance(50);
    EXPECT_EQ(rec->authWord(), "authenticating") << "the answer waits for its delay";
    advance(2000);
    EXPECT_EQ(rec->authWords(), (std::vector<KyString>{"logged_out", "authenticating", "ready"}));
    const KyJsonObject auth = rec->lastAuth();
    EXPECT_EQ(jsonStringValue(auth, "email") + " " + jsonStringValue(auth, "displayName") + " " +
                  jsonStringValue(auth, "baseUrl") + jsonStringValue(auth, "error"),
              "demo@velmo.net Demo User https://demo.velmo.net");
    EXPECT_FALSE(jsonStringValue(auth, "workspaceId").isEmpty() || jsonStringValue(auth, "role").isEmpty());
    EXPECT_TRUE(auth.contains("activeHotspotId"));

    struct stat st {};
    ASSERT_EQ(::stat(ws->sessionFilePath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    KyString text;
    ASSERT_TRUE(KyFile::readAll(ws->sessionFilePath(), text));
    EXPECT_FALSE(jsonStringValue(parseJsonObjectOrEmpty(text), "token").isEmpty());
    EXPECT_TRUE(text.view().find("velmo-demo") == std::string_view::npos) << "the password must not be stored";

    // Signed in, the control link comes up on its own, and the catalog loads with the console's keys.
    EXPECT_TRUE(ws->wsIsConnected());
    EXPECT_TRUE(rec->ws.back().second.startsWith("CONTROL"));
    ASSERT_GE(rec->catalog.size(), 3u);
    EXPECT_EQ(Recorder::word(rec->catalog[rec->catalog.size() - 2]), "loading");
    EXPECT_EQ(Recorder::word(rec->catalog.back()), "ready");
    const KyJsonArray hotspots = rec->lastCatalog().value("hotspots").toArray();
    ASSERT_EQ(hotspots.size(), 12u);
    int unnamed = 0, oldOwnerKey = 0;
    for (const KyJsonValue& h : hotspots) {
        const KyJsonObject o = h.toObject();
        EXPECT_TRUE(jsonStringValue(o, "id").startsWith("hs-"));
        EXPECT_TRUE(jsonStringValue(o, "subnet").endsWith(".0/24"));
        unnamed += jsonStringValue(o, "name").isEmpty();
        oldOwnerKey += o.contains("owner") && !o.contains("ownerLabel");
    }
    EXPECT_GE(unnamed, 1);
    EXPECT_GE(oldOwnerKey, 1);
    EXPECT_TRUE(rec->lastCatalog().contains("activeHotspotId"));
}

TEST_F(DemoWorkspace, BadSignInsEndLoggedOutWithAnErrorAndNoSession) {
    struct Row { const char* name; const char* baseUrl; const char* email; const char* password; bool loginError;
                 const char* errorPart; };
    const Row rows[] = {
        {"wrong password", "", "demo@velmo.net", "nope", false, "Invalid e-mail or password"},
        {"wrong account", "", "someone@velmo.net", "velmo-demo", false, "Invalid e-mail or password"},
        {"no e-mail", "", "", "velmo-demo", false, "e-mail"},
        {"bad url", "ftp://x", "demo@velmo.net", "velmo-demo", false, "Invalid workspace URL"},
        {"server fault", "", "demo@velmo.net", "velmo-demo", true, "unavailable"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        VelmoDemoWorkspaceOptions o = options();
        o.loginError = row.loginError;
        make(o);
        ASSERT_TRUE(ws->loginUser(row.baseUrl, row.email, row.password));
        advance(2000);
        EXPECT_EQ(rec->authWords(), (std::vector<KyString>{"logged_out", "authenticating", "logged_out"}));
        EXPECT_TRUE(jsonStringValue(rec->lastAuth(), "error").contains(row.errorPart)) << rec->auth.back();
        EXPECT_EQ(jsonStringValue(rec->lastAuth(), "email"), "");
        EXPECT_FALSE(KyFile::exists(ws->sessionFilePath()));
        EXPECT_TRUE(rec->logHas("Sign-in failed"));
    }
}

TEST_F(DemoWorkspace, ARememberedSessionIsRestoredWithItsVpnAndAnUnreadableOneIgnored) {
    make(options());
    signIn();
    advance(1000);
    const KyString vpn = ws->catalog().hotspots().at(2).id;
    ASSERT_TRUE(ws->connectHotspot(vpn));
    ws.reset();

    make(options());
    EXPECT_EQ(rec->authWord(), "restoring");
    EXPECT_EQ(jsonStringValue(rec->lastAuth(), "email"), "demo@velmo.net");
    advance(3000);
    EXPECT_EQ(rec->authWords(), (std::vector<KyString>{"restoring", "ready"}));
    EXPECT_EQ(ws->activeHotspotId(), vpn);
    EXPECT_EQ(jsonStringValue(rec->lastCatalog(), "activeHotspotId"), vpn);
    EXPECT_TRUE(rec->tun.back().first);

    // An unreadable session file is ignored, not trusted.
    const KyString path = ws->sessionFilePath();
    ws.reset();
    ASSERT_TRUE(KyFile::writeAll(path, "{\"token\": \"abc\", \"email\": "));
    make(options());
    EXPECT_EQ(rec->authWords(), std::vector<KyString>{"logged_out"});
    EXPECT_TRUE(rec->logHas("Ignoring"));
    // Nor is a token saved for another account.
    ASSERT_TRUE(KyFile::writeAll(path, "{\"token\": \"abc\", \"email\": \"someone@velmo.net\"}"));
    make(options());
    EXPECT_EQ(rec->authWords(), std::vector<KyString>{"logged_out"});
}

TEST_F(DemoWorkspace, LogoutSaysLoggingOutThenLoggedOutForgetsTheSessionAndBeatsALateSignIn) {
    make(options());
    signIn();
    advance(1000);
    ASSERT_TRUE(ws->connectHotspot(ws->catalog().hotspots().front().id));
    advance(1000);
    ASSERT_TRUE(ws->logoutUser());
    EXPECT_EQ(rec->authWord(), "logging_out");
    EXPECT_FALSE(KyFile::exists(ws->sessionFilePath()));
    advance(1000);
    EXPECT_EQ(rec->authWord() + jsonStringValue(rec->lastAuth(), "error") + Recorder::word(rec->catalog.back()) +
                  rec->clientConfig.back().first,
              "logged_outidle");
    EXPECT_TRUE(rec->lastCatalog().value("hotspots").toArray().isEmpty());
    EXPECT_EQ(rec->ws.back(), std::make_pair(2, KyString("Disconnected")));
    EXPECT_FALSE(rec->tun.back().first);
    EXPECT_EQ(rec->stats.back(), (std::vector<int>{0, 0, 0}));

    ws.reset();
    make(options());
    EXPECT_EQ(rec->authWords(), std::vector<KyString>{"logged_out"});

    // A sign-out during a sign-in wins over the late answer.
    ASSERT_TRUE(ws->loginUser("", VelmoDemoWorkspace::kDemoEmail, VelmoDemoWorkspace::kDemoPassword));
    ASSERT_TRUE(ws->logoutUser());
    advance(3000);
    EXPECT_EQ(rec->authWord(), "logged_out");
    const std::vector<KyString> words = rec->authWords();
    EXPECT_EQ(std::count(words.begin(), words.end(), KyString("ready")), 0);
}

// ---------------------------------------------------------------- catalog and endpoints

TEST_F(DemoWorkspace, SameSeedSameCatalogOtherSeedOtherCatalog) {
    const VelmoDemoCatalog a(7, 40), b(7, 40), c(8, 40);
    ASSERT_EQ(a.hotspots().size(), 40u);
    for (std::size_t i = 0; i < 40; ++i) EXPECT_EQ(a.hotspots()[i].id, b.hotspots()[i].id);
    int differing = 0;
    for (std::size_t i = 0; i < 40; ++i) differing += a.hotspots()[i].id != c.hotspots()[i].id;
    EXPECT_GT(differing, 30);
    std::vector<KyString> ids;
    const VelmoDemoCatalog big(3, 500);
    for (const auto& h : big.hotspots()) ids.push_back(h.id);
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end()) << "ids must be unique";
    EXPECT_EQ(VelmoDemoCatalog(1, 100000).hotspots().size(), 500u);
    EXPECT_TRUE(VelmoDemoCatalog(1, -3).hotspots().empty());
}

TEST_F(DemoWorkspace, BigListsAreCutToFitOneSignalAndSayHowManyThereAre) {
    VelmoDemoWorkspaceOptions o = options();
    o.catalogSize = 500;
    make(o);
    signIn();
    const KyString first = ws->catalog().hotspots().front().id; // every fifth VPN is a big site
    ASSERT_GE(ws->catalog().hotspots().front().endpointCount, 60);
    ASSERT_TRUE(ws->setInspectedHotspot(first));
    advance(1000);
    for (const auto* list : {&rec->catalog, &rec->endpoints, &rec->auth})
        for (const KyString& json : *list) {
            EXPECT_LE(json.size(), static_cast<std::size_t>(o.snapshotBudget));
            bool ok = false;
            KyJsonDocument::fromJson(json.view(), &ok);
            EXPECT_TRUE(ok) << json;
        }
    EXPECT_EQ(rec->lastCatalog().value("total").toInt(), 500);
    EXPECT_GT(rec->lastCatalog().value("hotspots").toArray().size(), 10u);
    EXPECT_EQ(rec->lastEndpoints().value("total").toInt(), ws->catalog().hotspots().front().endpointCount);
    EXPECT_GT(rec->lastEndpoints().value("devices").toArray().size(), 5u);
    EXPECT_TRUE(rec->logHas("Catalog snapshot shows the first"));
}

TEST_F(DemoWorkspace, CatalogMethodsRefuseBeforeSignInThenInspectingAVpnLoadsItsDevicesAndTogglesAreReflected) {
    make(options());
    const std::size_t before = rec->log.size();
    EXPECT_EQ(std::vector<bool>({ws->refreshVpnCatalog(), ws->refreshVpnEndpoints("x"), ws->setInspectedHotspot("x"),
                                 ws->setEndpointVpnState("x", "y", true), ws->connectHotspot("x"), ws->connectWs()}),
              std::vector<bool>(6, false));
    EXPECT_EQ(rec->log.size(), before + 6) << "each refusal is a log line";
    EXPECT_EQ(rec->authWords(), std::vector<KyString>{"logged_out"});
    signIn();
    EXPECT_FALSE(ws->setInspectedHotspot("hs-missing"));
    EXPECT_EQ(jsonStringValue(rec->lastEndpoints(), "error"), "Unknown VPN: hs-missing");
    EXPECT_TRUE(ws->setInspectedHotspot(""));
    EXPECT_EQ(Recorder::word(rec->endpoints.back()), "idle");
    EXPECT_FALSE(ws->refreshVpnEndpoints("hs-missing"));
    EXPECT_FALSE(ws->connectHotspot("hs-missing"));
    const VelmoDemoHotspot& h = ws->catalog().hotspots().at(1);
    ASSERT_TRUE(ws->setInspectedHotspot(h.id));
    EXPECT_EQ(Recorder::word(rec->endpoints.back()), "loading");
    EXPECT_EQ(jsonStringValue(rec->lastEndpoints(), "hotspotId"), h.id);
    advance(1000);
    ASSERT_EQ(Recorder::word(rec->endpoints.back()), "ready");
    const KyJsonArray devices = rec->lastEndpoints().value("devices").toArray();
    ASSERT_EQ(static_cast<int>(devices.size()), h.endpointCount);
    const KyJsonObject d = devices.at(0).toObject();
    for (const char* key : {"id", "clientId", "machineName", "username", "platform", "reservedIp"})
        EXPECT_FALSE(jsonStringValue(d, key).isEmpty()) << key;
    EXPECT_TRUE(d.value("vpnEnabled").isBool());
    EXPECT_TRUE(d.value("controlOnline").isBool());
    EXPECT_TRUE(d.contains("currentIp"));

    const KyString client = jsonStringValue(d, "clientId");
    const bool was = d.value("vpnEnabled").toBool();
    ASSERT_TRUE(ws->setEndpointVpnState(h.id, client, !was));
    EXPECT_EQ(Recorder::word(rec->endpoints.back()), "refreshing");
    advance(1000);
    EXPECT_EQ(Recorder::word(rec->endpoints.back()), "ready");
    const KyJsonObject after = rec->lastEndpoints().value("devices").toArray().at(0).toObject();
    EXPECT_EQ(after.value("vpnEnabled").toBool(), !was);

    EXPECT_FALSE(ws->setEndpointVpnState(h.id, "cl-nobody", true));
    EXPECT_TRUE(rec->logHas("Unknown endpoint"));
}

// ---------------------------------------------------------------- link, tunnel, traffic

TEST_F(DemoWorkspace, JoiningAVpnRaisesTunnelAndLinkAndLeavingDropsThem) {
    make(options());
    signIn();
    const VelmoDemoHotspot& h = ws->catalog().hotspots().at(3);
    ASSERT_TRUE(ws->connectHotspot(h.id));
    EXPECT_TRUE(rec->tun.back().first);
    EXPECT_EQ(rec->ws.back().first, 0);
    ASSERT_FALSE(rec->network.empty());
    EXPECT_EQ(std::vector<KyString>({rec->clientConfig.back().first, rec->network.back()[1],
                                     jsonStringValue(rec->lastAuth(), "activeHotspotId"),
                                     jsonStringValue(rec->lastCatalog(), "activeHotspotId")}),
              std::vector<KyString>({h.id, h.subnet, h.id, h.id}));
    advance(1000);
    EXPECT_EQ(rec->ws.back().first, 1);
    EXPECT_TRUE(rec->ws.back().second.startsWith("VPN") && ws->tunIsOpen() && ws->wsIsConnected());

    ASSERT_TRUE(ws->disconnectHotspot());
    EXPECT_FALSE(rec->tun.back().first);
    EXPECT_EQ(rec->ws.back().first, 1);
    EXPECT_TRUE(rec->ws.back().second.startsWith("CONTROL"));
    EXPECT_EQ(rec->network.back(), (std::vector<KyString>{"", "", ""}));
    EXPECT_EQ(rec->clientConfig.back().first + jsonStringValue(rec->lastAuth(), "activeHotspotId"), "");

    ASSERT_TRUE(ws->disconnectWs());
    EXPECT_EQ(rec->ws.back(), std::make_pair(2, KyString("Disconnected")));
    ASSERT_TRUE(ws->connectWs());
    advance(1000);
    EXPECT_TRUE(ws->wsIsConnected());
}

TEST_F(DemoWorkspace, FilteringRaisesDropsAndLogOnlyKeepsThemAtZero) {
    const auto dropsAfter = [&](const std::vector<std::pair<const char*, const char*>>& config) {
        make(options());
        signIn();
        for (const auto& [k, v] : config) EXPECT_TRUE(ws->setRemoteConfig(k, v)) << k;
        EXPECT_TRUE(ws->connectHotspot(ws->catalog().hotspots().front().id));
        advance(10000);
        return rec->stats.back();
    };
    const std::vector<int> open = dropsAfter({});
    EXPECT_GT(open[0], 0);
    EXPECT_GT(open[1], 0);
    EXPECT_EQ(open[2], 0);
    const std::vector<int> icmp = dropsAfter({{"filter/protocol", "3"}});
    EXPECT_GT(icmp[2], (icmp[0] + icmp[1]) / 2);
    const std::vector<int> logOnly = dropsAfter({{"filter/protocol", "3"}, {"filter/forward_mode", "1"}});
    EXPECT_EQ(logOnly[2], 0);
    const std::vector<int> full = dropsAfter({{"vpn/full_mode", "true"}});
    EXPECT_GT(full[0], open[0] * 2);
    EXPECT_TRUE(rec->clientConfig.back().second) << "the flag follows full-route mode";
}

// ---------------------------------------------------------------- configuration

TEST(DemoFilter, KeysAndRangesAreCheckedAndNormalisedAndOnlyNarrowingRulesBlockTraffic) {
    struct Row { const char* key; const char* value; bool ok; const char* stored; }; // stored: under the canonical key
    const Row rows[] = {
        {"filter/protocol", "2", true, "2"}, {"filter/protocol", "4", false, "0"}, {"filter/protocol", "tcp", false, "0"},
        {"filter/forward_mode", "1", true, "1"}, {"filter/src_ip", "10.44.0.9/24", true, "10.44.0.0/24"},
        {"filter/source", "192.168.10.12", true, "192.168.10.12/32"}, {"filter/dst_ip", "", true, ""},
        {"filter/dst_ip", "300.1.1.1", false, ""}, {"filter/port_min", "1024", true, "1024"},
        {"filter/portMax", "65536", false, "65535"}, {"filter/port_max", "-1", false, "65535"},
        {"vpn/full_mode", "true", true, "true"}, {"vpn/fullRoute", "maybe", false, "false"},
        {"vpn/range_mode", "2", true, "2"},
        {"vpn/allowed_ranges", "10.44.0.9/24, 1.2.3.4", true, "10.44.0.0/24, 1.2.3.4/32"},
        {"vpn/blocked_ranges", "10.0.0.0/8, 1.2.3", false, ""}, {"vpn/blocked_ranges", " , ", true, ""},
        {"filter/enabled", "off", true, "false"}, {"filter/colour", "red", false, ""}, {"", "", false, ""},
        // Ranges normalise like the console's.
        {"filter/src_ip", " 0.0.0.0/0 ", true, "0.0.0.0/0"}, {"filter/src_ip", "255.255.255.255/0", true, "0.0.0.0/0"},
        {"filter/src_ip", "10.1.2.3 / 16", true, "10.1.0.0/16"}, {"filter/src_ip", "1.2.3.4.5", false, ""},
        {"filter/src_ip", "1.2.3.4/33", false, ""}, {"filter/src_ip", "1.2.3.x", false, ""},
        {"filter/src_ip", "1.2.3.4/", false, ""}, {"filter/src_ip", "1.2.3", false, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key + KyString(" = ") + row.value);
        VelmoDemoFilter f;
        const VelmoDemoFilter::Result r = f.apply(row.key, row.value);
        EXPECT_EQ(r.ok, row.ok) << r.message;
        EXPECT_FALSE(r.message.isEmpty());
        EXPECT_EQ(f.value(VelmoDemoFilter::canonicalKey(row.key)), row.stored);
    }
    // Only narrowing rules block traffic.
    VelmoDemoFilter f;
    EXPECT_EQ(f.blockedShare(), 0.0);
    // The pass-through values the console sends with filtering off.
    const std::pair<const char*, const char*> passThrough[] = {
        {"filter/protocol", "0"},  {"filter/forward_mode", "0"}, {"filter/src_ip", ""},       {"filter/dst_ip", ""},
        {"filter/port_min", "0"},  {"filter/port_max", "65535"}, {"vpn/full_mode", "false"},  {"vpn/range_mode", "0"},
        {"vpn/allowed_ranges", ""}, {"vpn/blocked_ranges", ""},  {"filter/enabled", "true"},
    };
    ASSERT_EQ(VelmoDemoFilter::keys().count(), 11);
    for (const auto& [key, value] : passThrough) {
        EXPECT_TRUE(VelmoDemoFilter::keys().contains(key)) << key;
        EXPECT_TRUE(f.apply(key, value).ok) << key;
    }
    EXPECT_EQ(f.blockedShare(), 0.0);
    ASSERT_TRUE(f.apply("filter/port_min", "1000").ok);
    ASSERT_TRUE(f.apply("filter/port_max", "10").ok);
    EXPECT_EQ(f.blockedShare(), 1.0) << "an empty port range lets nothing through";
    ASSERT_TRUE(f.apply("filter/enabled", "false").ok);
    EXPECT_EQ(f.blockedShare(), 0.0);
}

TEST_F(DemoWorkspace, RemoteConfigEchoesAChangeOnceAndKeepsTheOldValueOnABadOne) {
    make(options());
    const std::size_t before = rec->log.size();
    EXPECT_TRUE(ws->setRemoteConfig("filter/protocol", "1"));
    ASSERT_EQ(rec->log.size(), before + 1);
    EXPECT_TRUE(rec->log.back().contains("filter/protocol = 1 (TCP)"));
    EXPECT_TRUE(ws->setRemoteConfig("filter/protocol", "1"));
    EXPECT_EQ(rec->log.size(), before + 1) << "an unchanged value is not echoed again";
    EXPECT_FALSE(ws->setRemoteConfig("filter/port_min", "abc"));
    EXPECT_EQ(ws->filter().value("filter/port_min"), "0");
}

// ---------------------------------------------------------------- faults and shutdown

TEST_F(DemoWorkspace, SlowRepliesSleepPastTheConsoleTimeoutAndExitInCallLeavesBeforeAnswering) {
    VelmoDemoWorkspaceOptions o = options();
    o.slowReplies = true;
    make(o);
    EXPECT_TRUE(ws->setRemoteConfig("filter/protocol", "1"));
    EXPECT_TRUE(ws->clearLog());
    ASSERT_EQ(slept.size(), 2u);
    EXPECT_GT(slept[0], 2000);

    o.slowMethod = "loginUser";
    slept.clear();
    make(o);
    EXPECT_TRUE(ws->clearLog());
    EXPECT_TRUE(slept.empty());
    EXPECT_TRUE(ws->loginUser("", "a", "b"));
    EXPECT_EQ(slept.size(), 1u);

    // Exit in a call leaves before anything is answered.
    o = options();
    o.exitInCall = true;
    make(o);
    EXPECT_TRUE(ws->clearLog());
    EXPECT_EQ(exits, 0);
    const std::size_t authBefore = rec->auth.size();
    EXPECT_FALSE(ws->loginUser("", VelmoDemoWorkspace::kDemoEmail, VelmoDemoWorkspace::kDemoPassword));
    EXPECT_EQ(exits, 1);
    advance(2000);
    EXPECT_EQ(rec->auth.size(), authBefore) << "no state change after the exit point";
    // Whichever method is named, it leaves before it acts.
    for (const std::string method : {"refreshVpnEndpoints", "closeTun"}) {
        SCOPED_TRACE(method);
        o.exitMethod = KyString(method);
        make(o);
        signIn();
        ASSERT_TRUE(ws->createTun());
        const int before = exits;
        EXPECT_FALSE(method == "closeTun" ? ws->closeTun() : ws->refreshVpnEndpoints(ws->catalog().hotspots().front().id));
        EXPECT_EQ(exits, before + 1);
    }
}

TEST_F(DemoWorkspace, ReconnectingRetriesThenRestoresOrGivesUpAndAMalformedSnapshotHitsOneCatalog) {
    VelmoDemoWorkspaceOptions o = options();
    o.reconnecting = true;
    make(o);
    EXPECT_EQ(rec->authWord(), "reconnecting");
    advance(10000);
    EXPECT_EQ(rec->authWords(), (std::vector<KyString>{"reconnecting", "logged_out"}));
    EXPECT_FALSE(jsonStringValue(rec->lastAuth(), "error").isEmpty());
    EXPECT_TRUE(rec->logHas("Reconnect attempt 3 of 3 failed"));

    make(options());
    signIn();
    make(o);
    EXPECT_EQ(rec->authWord(), "reconnecting");
    advance(10000);
    EXPECT_EQ(rec->authWords(), (std::vector<KyString>{"reconnecting", "ready"}));
    EXPECT_TRUE(rec->logHas("Reconnect attempt 2 of 3 failed"));

    // The malformed-snapshot switch damages the first ready catalog only.
    o = options();
    o.malformedSnapshot = true;
    make(o);
    signIn();
    bool ok = true;
    KyJsonDocument::fromJson(rec->catalog.back().view(), &ok);
    EXPECT_FALSE(ok) << rec->catalog.back();
    EXPECT_TRUE(parseJsonObjectOrEmpty(rec->catalog.back()).isEmpty());
    ASSERT_TRUE(ws->refreshVpnCatalog());
    advance(1000);
    KyJsonDocument::fromJson(rec->catalog.back().view(), &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(Recorder::word(rec->catalog.back()), "ready");
}

// ---------------------------------------------------------------- command line

TEST(DemoCommandLine, OptionsAndTheirMistakes) {
    struct Row { std::vector<KyString> args; const char* env; bool ok; const char* domain; };
    const std::string d64(64, 'd'); // the longest domain
    const Row rows[] = {
        {{}, "", true, "velnet"}, {{}, "velnet-ci", true, "velnet-ci"}, {{}, " velnet-ci\n", true, "velnet-ci"},
        {{}, "   ", true, "velnet"}, {{"--domain", "mine"}, "velnet-ci", true, "mine"}, {{"--domain=mine"}, "", true, "mine"},
        {{"--domain"}, "", false, ""}, {{"--domain", "a|b"}, "", false, ""}, {{"--domain", ""}, "", false, ""},
        {{}, "bad domain", false, ""}, {{"--seed", "42", "--catalog-size", "300"}, "", true, "velnet"},
        {{"--seed", "-1"}, "", false, ""}, {{"--catalog-size", "501"}, "", false, ""},
        {{"--catalog-size", "ten"}, "", false, ""},
        {{"--slow-replies", "--login-error", "--malformed-snapshot", "--exit-in-call", "--reconnecting"}, "", true,
         "velnet"},
        {{"--slow-replies=loginUser", "--exit-in-call=requestShutdown"}, "", true, "velnet"},
        {{"--slow-replies=fly"}, "", false, ""}, {{"--login-error=1"}, "", false, ""},
        {{"--state-dir", "/tmp/x"}, "", true, "velnet"}, {{"--state-dir"}, "", false, ""}, {{"--verbose"}, "", false, ""},
        {{"--domain", KyString(d64)}, "", true, d64.c_str()}, {{"--domain", KyString(d64 + "d")}, "", false, ""},
        {{"--catalog-size", "0"}, "", true, "velnet"}, {{"--catalog-size", "500"}, "", true, "velnet"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(KyString::join(row.args, " ") + " env=" + row.env);
        const VelmoDemoCommandLine::Result r = VelmoDemoCommandLine::parse(row.args, row.env);
        EXPECT_EQ(r.ok, row.ok) << r.error;
        if (r.ok) { EXPECT_EQ(r.options.domain, row.domain); }
        else { EXPECT_FALSE(r.error.isEmpty()); }
    }
    const auto r = VelmoDemoCommandLine::parse({"--seed", "42", "--catalog-size", "300", "--slow-replies=loginUser",
                                                "--exit-in-call", "--state-dir", "/tmp/x"},
                                               "");
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.options.seed, 42u);
    EXPECT_EQ(r.options.catalogSize, 300);
    EXPECT_TRUE(r.options.slowReplies);
    EXPECT_EQ(r.options.slowMethod, "loginUser");
    EXPECT_TRUE(r.options.exitInCall);
    EXPECT_EQ(r.options.exitMethod, "loginUser");
    EXPECT_EQ(r.options.stateDirectory, "/tmp/x");
    EXPECT_TRUE(VelmoDemoCommandLine::parse({"-h"}, "").help);
    const VelmoDemoWorkspaceOptions faults =
        VelmoDemoCommandLine::parse({"--login-error", "--malformed-snapshot", "--reconnecting"}, "").options;
    EXPECT_TRUE(faults.loginError && faults.malformedSnapshot && faults.reconnecting);
}

TEST(DemoCommandLine, TheSessionLivesInTheUsersStateDirectoryPerDomain) {
    kytest::TempDir home;
    const kytest::ScopedEnv env{{"XDG_STATE_HOME", home.path().c_str()}};
    EXPECT_EQ(VelmoDemoWorkspace::defaultStateDirectory("velnet"), home.path() + "/velmo-demo-agent/velnet");
    EXPECT_EQ(VelmoDemoWorkspace::defaultStateDirectory("../a/b"), home.path() + "/velmo-demo-agent/.._a_b");
    EXPECT_EQ(VelmoDemoWorkspace::defaultStateDirectory(".."), home.path() + "/velmo-demo-agent/default");
    VelmoDemoWorkspaceOptions o;
    o.domain = "velnet-x";
    const VelmoDemoWorkspace ws(o, VelmoDemoSignals{});
    EXPECT_EQ(ws.sessionFilePath(), home.path() + "/velmo-demo-agent/velnet-x/session.json");
}
