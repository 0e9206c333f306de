// Registry tables seen from outside: the bytes another process reads through
// a plain mapping of the objects, rows of real child processes that die, stop
// or exit, the takeover and counting rules, full tables and foreign layouts.
//
// Every test works in a domain of its own and points this process (and its
// children) at an application table of its own, so the machine's
// "/ky_ipc_registry" is never touched; TearDown unlinks every object the test
// made. Ageing is done with this process's clock skew, never by sleeping.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/types/KyJsonArray.h"
#include "core/types/KyJsonObject.h"
#include "ipc/AppsRegistryTable.h"
#include "ipc/IpcNames.h"
#include "ipc/RegistryShared.h"
#include "ipc/RegistryTable.h"
#include "ipc/SubscribersRegistryTable.h"
#include "../support/KyTestIpc.h"
#include "../support/KyTestProcess.h"

namespace {

using namespace ky::ipc;
using namespace std::chrono_literals;

using Signals = RegistryTable<256>;
using Subs = SubscribersRegistryTable<512>;
using Apps = AppsRegistryTable<64>;

constexpr size_t kSignalsSize = 163896;
constexpr size_t kSubsSize = 159800;
constexpr size_t kAppsSize = 22072;

uint32_t selfPid() { return static_cast<uint32_t>(::getpid()); }

/// A plain mapping of a shared object by name, as a foreign process would make it.
struct RawObject : kytest::ShmView {
    explicit RawObject(const KyString& name) : ShmView(name.toStdString()) {}
};

/// Holds a table's process-shared mutex while the test edits rows in place.
class TableLock {
public:
    explicit TableLock(RegistryHeader* h) : h_(h) { ::pthread_mutex_lock(&h_->mutex); }
    ~TableLock() { ::pthread_mutex_unlock(&h_->mutex); }

private:
    RegistryHeader* h_;
};

KyString repeat(char c, size_t n) { return KyString(std::string(n, c)); }

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        const KyString tag = KyString::number(static_cast<long>(::getpid())) + "_" + KyString::number(++counter);
        domain_ = KyString("kyregtest_") + tag;
        appsTable_ = KyString("/ky_ipc_registry_apps_kyregtest_") + tag;
        Apps::setObjectNameForTesting_(appsTable_);
        detail::setClockSkewForTesting_(0);
        created_ = {Signals::objectName(domain_), Subs::objectName(domain_), appsTable_,
                    detail::make_shm_name(domain_, detail::registryEventsObjectName_(),
                                          detail::registryEventsSignalName_())};
    }

    void TearDown() override {
        detail::setClockSkewForTesting_(0);
        children_.clear();
        for (const KyString& name : created_) ::shm_unlink(name.c_str());
    }

    /// Starts the peer helper with the test's application table and waits for "ready".
    kytest::Child& startPeer(std::vector<std::string> args, bool loop = false) {
        args.insert(args.begin(), {"apps-table", appsTable_.toStdString()});
        if (loop) args.insert(args.begin(), "loop");
        children_.push_back(std::make_unique<kytest::Child>());
        kytest::Child& child = *children_.back();
        EXPECT_TRUE(child.start(kytest::helperPath("ky_registry_peer"), args));
        EXPECT_TRUE(child.waitForOutput(6, 30s)) << child.err();
        EXPECT_EQ(child.out(), "ready\n") << child.err();
        // A child running a loop may have made its wake-up table.
        created_.push_back(KyString("/ky_ipc_dispatch_tbl_v1_") + KyString::number(static_cast<long>(child.pid())));
        return child;
    }

    KyList<KyJsonValue> signalRowsOf(uint32_t pid) {
        KyList<KyJsonValue> rows;
        for (const KyJsonValue& v : Signals::snapshot(domain_)) {
            if (static_cast<uint32_t>(v.toObject().value("pid").toInt64()) == pid) rows.append(v);
        }
        return rows;
    }

    bool hasSignal(const KyString& signal, const KyString& domain = {}) {
        for (const KyJsonValue& v : Signals::snapshot(domain.isEmpty() ? domain_ : domain)) {
            if (v.toObject().value("signal").toString() == signal) return true;
        }
        return false;
    }

    std::vector<uint32_t> subscribers(const KyString& object, const KyString& signal) {
        std::vector<uint32_t> pids{12345};  // must be cleared by the call
        Subs::listSubscriberPids(domain_, object, signal, pids);
        return pids;
    }

    std::vector<uint32_t> appPids(const KyString& domain) {
        std::vector<uint32_t> pids;
        for (const KyJsonValue& v : Apps::snapshotDomains()) {
            const KyJsonObject o = v.toObject();
            if (o.value("domain").toString() != domain) continue;
            const KyJsonArray a = o.value("pids").toArray();
            for (size_t i = 0; i < a.size(); ++i) pids.push_back(static_cast<uint32_t>(a.at(i).toInt64()));
        }
        return pids;
    }

    RegistryEntry* signalRow(RawObject& raw, const KyString& object, const KyString& signal) {
        auto* layout = raw.as<SignalRegistryLayout>();
        const uint64_t hash = detail::frameworkHash(domain_ + "|" + object + "|" + signal);
        for (uint32_t i = 0; i < layout->header.count && i < 256; ++i) {
            if (layout->rows[i].hash == hash) return &layout->rows[i];
        }
        return nullptr;
    }

    /// Sets the clock skew so that nowMs() reads `target` right now.
    static void skewClockTo(uint64_t target) {
        detail::setClockSkewForTesting_(0);
        const uint64_t real = detail::nowMs();
        detail::setClockSkewForTesting_(static_cast<int64_t>(target) - static_cast<int64_t>(real));
    }

    KyString domain_;
    KyString appsTable_;
    std::vector<KyString> created_;
    std::vector<std::unique_ptr<kytest::Child>> children_;
};

// ---------------------------------------------------------------- layout

TEST_F(RegistryTest, ObjectsCarryTheirWireLayoutByteForByte) {
    const KyString object = "kyreg/Layout";
    // A leading zero byte in the type id shows in the snapshot's fixed-width hex.
    Signals::registerSignal(domain_, object, "stateChanged", "/ky_sig_0123456789abcdef", 0x0011223344556677ULL,
                            "bool, KyString");
    Subs::registerSubscription(domain_, object, "stateChanged", selfPid(), "viewer");

    RawObject sig(Signals::objectName(domain_));
    RawObject sub(Subs::objectName(domain_));
    RawObject app(appsTable_);
    ASSERT_TRUE(sig.ok() && sub.ok() && app.ok());
    EXPECT_EQ(sig.size(), kSignalsSize);
    EXPECT_EQ(sub.size(), kSubsSize);
    EXPECT_EQ(app.size(), kAppsSize);

    struct HeaderCase { const char* table; RawObject* raw; const char magicBytes[5]; uint32_t version; };
    const HeaderCase headers[] = {{"signals", &sig, "1GER", 2}, {"subscribers", &sub, "1BUS", 1}, {"apps", &app, "1PPA", 2}};
    for (const HeaderCase& c : headers) {
        SCOPED_TRACE(c.table);
        EXPECT_EQ(std::memcmp(c.raw->base(), c.magicBytes, 4), 0);
        EXPECT_EQ(c.raw->at<uint32_t>(4), c.version);
        EXPECT_EQ(std::memcmp(c.raw->base() + 12, "1SMT", 4), 0);
        EXPECT_GE(c.raw->at<uint32_t>(8), 1u);
    }

    // The signal table also lists the domain's own event signal: find our row by hash.
    const uint64_t hash = detail::frameworkHash(domain_ + "|" + object + "|stateChanged");
    size_t row = 0;
    const uint32_t sigCount = sig.at<uint32_t>(8);
    for (uint32_t i = 0; i < sigCount; ++i) {
        if (sig.at<uint64_t>(56 + i * 640) == hash) row = 56 + i * 640;
    }
    ASSERT_NE(row, 0u);
    EXPECT_EQ(sig.at<uint64_t>(row + 8), 0x0011223344556677ULL);
    EXPECT_NE(sig.at<uint64_t>(row + 16), 0u);
    EXPECT_EQ(sig.at<uint32_t>(row + 24), selfPid());
    EXPECT_EQ(sig.at<uint32_t>(row + 28), 0u);
    EXPECT_EQ(sig.text(row + 32), "/ky_sig_0123456789abcdef");
    EXPECT_EQ(sig.text(row + 96), domain_.toStdString());
    EXPECT_EQ(sig.text(row + 160), "kyreg/Layout");
    EXPECT_EQ(sig.text(row + 224), "stateChanged");
    EXPECT_EQ(sig.text(row + 384), "bool, KyString");

    // The snapshot names the same row's fields in a fixed order.
    KyJsonObject o;
    for (const KyJsonValue& v : signalRowsOf(selfPid()))
        if (v.toObject().value("signal").toString() == "stateChanged") o = v.toObject();
    EXPECT_EQ(o.keys(), (KyList<KyString>{"hash", "typeId", "pid", "lastSeenMs", "shmName", "domain", "object", "signal",
                                          "typeName"}));
    const std::pair<const char*, KyString> fields[] = {
        {"hash", detail::hex64(hash)}, {"typeId", "0011223344556677"}, {"shmName", "/ky_sig_0123456789abcdef"},
        {"domain", domain_},           {"object", "kyreg/Layout"},     {"typeName", "bool, KyString"}};
    for (const auto& [key, want] : fields) EXPECT_EQ(o.value(key).toString(), want) << key;
    EXPECT_TRUE(o.value("pid").isInteger());
    EXPECT_TRUE(o.value("lastSeenMs").isDouble());
    EXPECT_GT(o.value("lastSeenMs").toDouble(), 0.0);

    ASSERT_EQ(sub.at<uint32_t>(8), 1u);
    const uint64_t subHash = detail::frameworkHash(domain_ + "|kyreg/Layout|stateChanged|sub|" +
                                                   KyString::number(selfPid()) + "|subObject|viewer");
    EXPECT_EQ(sub.at<uint64_t>(56), subHash);
    EXPECT_EQ(Subs::subscriptionHash_(domain_, object, "stateChanged", selfPid(), "viewer"), subHash);
    EXPECT_NE(sub.at<uint64_t>(56 + 8), 0u);
    EXPECT_EQ(sub.at<uint32_t>(56 + 16), selfPid());
    EXPECT_EQ(sub.at<uint32_t>(56 + 20), 1u);
    EXPECT_EQ(sub.text(56 + 24), domain_.toStdString());
    EXPECT_EQ(sub.text(56 + 88), "kyreg/Layout");
    EXPECT_EQ(sub.text(56 + 152), "stateChanged");
    EXPECT_EQ(sub.text(56 + 152 + 13), "viewer");  // packed behind the signal's terminator

    ASSERT_EQ(app.at<uint32_t>(8), 1u);
    EXPECT_EQ(app.at<uint64_t>(56), detail::frameworkHash(domain_));
    EXPECT_NE(app.at<uint64_t>(56 + 8), 0u);
    EXPECT_EQ(app.at<uint32_t>(56 + 16), 1u);
    EXPECT_EQ(app.at<uint32_t>(56 + 24), selfPid());
    EXPECT_NE(app.at<uint64_t>(56 + 88), 0u);
    EXPECT_EQ(app.text(56 + 216), domain_.toStdString());
    EXPECT_EQ(app.text(56 + 280), ("/ky_ipc_registry_" + detail::sanitizeRegistrySuffix_(domain_)).toStdString());
}

// ---------------------------------------------------------------- staleness

TEST_F(RegistryTest, RowsOfAKilledProcessFallAway) {
    kytest::Child& child = startPeer({"signal", domain_.toStdString(), "kyreg/Peer", "alive", "sub",
                                      domain_.toStdString(), "kyreg/Peer", "alive", "", "domain",
                                      domain_.toStdString()});
    const uint32_t pid = static_cast<uint32_t>(child.pid());
    EXPECT_FALSE(signalRowsOf(pid).empty());
    EXPECT_EQ(subscribers("kyreg/Peer", "alive"), std::vector<uint32_t>{pid});
    const std::vector<uint32_t> before = appPids(domain_);
    EXPECT_NE(std::find(before.begin(), before.end(), pid), before.end());

    child.kill();

    EXPECT_TRUE(signalRowsOf(pid).empty());
    EXPECT_TRUE(subscribers("kyreg/Peer", "alive").empty());
    const std::vector<uint32_t> after = appPids(domain_);
    EXPECT_EQ(std::find(after.begin(), after.end(), pid), after.end());
}

TEST_F(RegistryTest, AStoppedProcessKeepsItsRowUntilItsStampIsOlderThanFifteenSeconds) {
    kytest::Child& child = startPeer({"signal", domain_.toStdString(), "kyreg/Peer", "wedged", "sub",
                                      domain_.toStdString(), "kyreg/Peer", "wedged", "", "domain",
                                      domain_.toStdString()});
    const uint32_t pid = static_cast<uint32_t>(child.pid());
    ASSERT_TRUE(child.sendSignal(SIGSTOP));

    RawObject raw(Signals::objectName(domain_));
    ASSERT_TRUE(raw.ok());
    auto* layout = raw.as<SignalRegistryLayout>();
    const RegistryEntry* row = signalRow(raw, "kyreg/Peer", "wedged");
    ASSERT_NE(row, nullptr);
    const RegistryEntry saved = *row;
    const uint64_t stamp = saved.lastSeenMs;
    const KyString hash = detail::hex64(saved.hash);
    auto listed = [&] {
        for (const KyJsonValue& v : Signals::snapshot(domain_)) {
            if (v.toObject().value("hash").toString() == hash) return true;
        }
        return false;
    };

    // Exactly 15000 ms is not yet stale. The clock moves on between the two
    // readings, so only a pass that stayed inside one millisecond counts; a
    // pass that crossed one may have dropped the row, which is then put back
    // as the child wrote it.
    bool decided = false;
    for (int attempt = 0; attempt < 1000 && !decided; ++attempt) {
        if (!signalRow(raw, "kyreg/Peer", "wedged")) {
            TableLock lock(&layout->header);
            layout->rows[layout->header.count++] = saved;
        }
        skewClockTo(stamp + 15000);
        const uint64_t before = detail::nowMs();
        const bool present = listed();
        const uint64_t after = detail::nowMs();
        if (before != stamp + 15000 || after != before) continue;
        EXPECT_TRUE(present);
        decided = true;
    }
    EXPECT_TRUE(decided);

    skewClockTo(stamp + 15001);
    EXPECT_FALSE(listed());

    // The child's other rows were stamped a moment later; well past all of them
    // they fall away too, though the process still exists.
    skewClockTo(stamp + 60000);
    EXPECT_TRUE(subscribers("kyreg/Peer", "wedged").empty());
    const std::vector<uint32_t> apps = appPids(domain_);
    EXPECT_EQ(std::find(apps.begin(), apps.end(), pid), apps.end());
    EXPECT_TRUE(child.sendSignal(0));

    child.sendSignal(SIGCONT);
}

// ---------------------------------------------------------------- registerSignal

TEST_F(RegistryTest, RegisterSignalTakesALiveOwnersRowOnlyWhenItsStampIsOlderThanFifteenSeconds) {
    kytest::Child& child = startPeer({"signal", domain_.toStdString(), "kyreg/Own", "aged", "signal",
                                      domain_.toStdString(), "kyreg/Own", "edge", "signal", domain_.toStdString(),
                                      "kyreg/Own", "unstamped"});
    const uint32_t owner = static_cast<uint32_t>(child.pid());
    RawObject raw(Signals::objectName(domain_));
    ASSERT_TRUE(raw.ok());
    auto* header = &raw.as<SignalRegistryLayout>()->header;

    struct Case {
        const char* signal;
        int64_t age;  // -1: a zero stamp
        uint32_t expectedPid;
    };
    const Case cases[] = {{"aged", 15001, selfPid()}, {"edge", 15000, owner}, {"unstamped", -1, owner}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.signal);
        RegistryEntry* row = signalRow(raw, "kyreg/Own", c.signal);
        ASSERT_NE(row, nullptr);
        bool decided = false;
        for (int attempt = 0; attempt < 1000 && !decided; ++attempt) {
            const uint64_t before = detail::nowMs();
            {
                TableLock lock(header);
                row->pid = owner;
                row->lastSeenMs = c.age < 0 ? 0 : before - static_cast<uint64_t>(c.age);
            }
            Signals::registerSignal(domain_, "kyreg/Own", c.signal, "/ky_sig_renamed", 0x77, "int");
            // An age of exactly 15000 ms is only meaningful if no millisecond passed.
            if (c.age == 15000 && detail::nowMs() != before) continue;
            decided = true;
        }
        ASSERT_TRUE(decided);
        row = signalRow(raw, "kyreg/Own", c.signal);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->pid, c.expectedPid);
        // Texts and the type id are refreshed whoever keeps the row.
        EXPECT_EQ(std::string(row->shmName), "/ky_sig_renamed");
        EXPECT_EQ(row->typeId, 0x77u);
    }
    // Cleaning, unlike registration, drops the row without a stamp.
    EXPECT_FALSE(hasSignal("unstamped"));
}

// ---------------------------------------------------------------- subscribers

TEST_F(RegistryTest, ASecondSubscriptionCountsAndTheFirstUnregisterOnlyDecrements) {
    Subs::registerSubscription(domain_, "kyreg/Sub", "tick", selfPid(), "view");
    Subs::registerSubscription(domain_, "kyreg/Sub", "tick", selfPid(), "view");
    RawObject raw(Subs::objectName(domain_));
    ASSERT_TRUE(raw.ok());
    auto* layout = raw.as<SubscriberRegistryLayout>();
    ASSERT_EQ(layout->header.count, 1u);
    EXPECT_EQ(layout->rows[0].refCount, 2u);

    Subs::unregisterSubscription(domain_, "kyreg/Sub", "tick", selfPid(), "view");
    ASSERT_EQ(layout->header.count, 1u);
    EXPECT_EQ(layout->rows[0].refCount, 1u);
    EXPECT_EQ(subscribers("kyreg/Sub", "tick"), std::vector<uint32_t>{selfPid()});

    Subs::unregisterSubscription(domain_, "kyreg/Sub", "tick", selfPid(), "view");
    EXPECT_EQ(layout->header.count, 0u);
    EXPECT_TRUE(subscribers("kyreg/Sub", "tick").empty());
    // Unknown listeners are no error.
    Subs::unregisterSubscription(domain_, "kyreg/Sub", "tick", selfPid(), "view");
    EXPECT_EQ(layout->header.count, 0u);
}

TEST_F(RegistryTest, LongSignalNamesAreCutAndStillMatch) {
    RawObject* raw = nullptr;
    std::unique_ptr<RawObject> holder;
    struct Case {
        const char* name;
        KyString signal;
        KyString sibling;  // another name that must be listed with it, or empty
        bool packsSubObject;
    };
    const Case cases[] = {
        {"short", "s", "", true},
        {"159 bytes", repeat('a', 159), "", false},
        {"160 bytes", repeat('b', 160), repeat('b', 159) + "XYZ", false},
        {"200 bytes", repeat('c', 200), repeat('c', 159), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Subs::registerSubscription(domain_, "kyreg/Long", c.signal, selfPid(), "watcher");
        if (!holder) {
            holder = std::make_unique<RawObject>(Subs::objectName(domain_));
            raw = holder.get();
            ASSERT_TRUE(raw->ok());
        }
        auto* layout = raw->as<SubscriberRegistryLayout>();
        const SubscriberEntry& row = layout->rows[layout->header.count - 1];
        const size_t stored = std::min<size_t>(c.signal.size(), 159);
        EXPECT_EQ(std::string(row.signal), c.signal.toStdString().substr(0, stored));
        if (c.packsSubObject) {
            EXPECT_EQ(std::string(row.signal + stored + 1), "watcher");
        } else {
            EXPECT_EQ(row.signal[159], '\0');
        }
        EXPECT_EQ(subscribers("kyreg/Long", c.signal), std::vector<uint32_t>{selfPid()});
        if (!c.sibling.isEmpty()) {
            EXPECT_EQ(subscribers("kyreg/Long", c.sibling), std::vector<uint32_t>{selfPid()});
        }
    }
}

// ---------------------------------------------------------------- full tables

TEST_F(RegistryTest, FullTablesRefuseNewRowsSilently) {
    for (int i = 0; i < 300; ++i) {
        Signals::registerSignal(domain_, "kyreg/Full", "sig" + KyString::number(i), "/ky_sig_x", 1, "int");
    }
    const KyList<KyJsonValue> signals = Signals::snapshot(domain_);
    EXPECT_EQ(signals.size(), 256u);
    EXPECT_FALSE(hasSignal("sig299"));

    for (int i = 0; i < 600; ++i) {
        Subs::registerSubscription(domain_, "kyreg/Full", "tick", selfPid(), "o" + KyString::number(i));
    }
    EXPECT_EQ(subscribers("kyreg/Full", "tick").size(), 512u);

    std::vector<KyString> domains;
    for (int i = 0; i < 70; ++i) {
        domains.push_back(domain_ + "_d" + KyString::number(i));
        Apps::registerDomain(domains.back());
    }
    EXPECT_EQ(Apps::snapshotDomains().size(), 64u);
    EXPECT_TRUE(appPids(domains.back()).empty());
    EXPECT_EQ(appPids(domains.front()), std::vector<uint32_t>{selfPid()});
}

TEST_F(RegistryTest, ASeventeenthProcessOfADomainIsAbsentButRenewsTheRow) {
    for (int i = 0; i < 16; ++i) startPeer({"domain", domain_.toStdString()});
    ASSERT_EQ(appPids(domain_).size(), 16u);

    RawObject raw(appsTable_);
    ASSERT_TRUE(raw.ok());
    auto* layout = raw.as<AppsRegistryLayout>();
    ASSERT_EQ(layout->header.count, 1u);
    {
        TableLock lock(&layout->header);
        layout->rows[0].lastSeenMs = 1;
    }
    Apps::registerDomain(domain_);

    const std::vector<uint32_t> pids = appPids(domain_);
    EXPECT_EQ(pids.size(), 16u);
    EXPECT_EQ(std::find(pids.begin(), pids.end(), selfPid()), pids.end());
    EXPECT_GT(layout->rows[0].lastSeenMs, 1u);
}

// ---------------------------------------------------------------- foreign tables

// Creates a signal table by hand, as an older or foreign build would have left it.
void writeForeignSignalTable(const KyString& name, uint32_t version, uint32_t clockTag) {
    const int fd = ::shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0666);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::ftruncate(fd, kSignalsSize), 0);
    void* a = ::mmap(nullptr, kSignalsSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    ASSERT_NE(a, MAP_FAILED);
    auto* layout = static_cast<SignalRegistryLayout*>(a);
    layout->header.magic = detail::kSignalRegistryMagic;
    layout->header.version = version;
    layout->header.count = 3;
    layout->header.clockTag = clockTag;
    pthread_mutexattr_t attr;
    ::pthread_mutexattr_init(&attr);
    ::pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    ::pthread_mutex_init(&layout->header.mutex, &attr);
    ::pthread_mutexattr_destroy(&attr);
    for (int i = 0; i < 3; ++i) {
        // Rows that would look alive to anyone who trusted them.
        layout->rows[i].hash = 100 + i;
        layout->rows[i].pid = static_cast<uint32_t>(::getpid());
        layout->rows[i].lastSeenMs = detail::nowMs();
        std::strcpy(layout->rows[i].signal, "old");
    }
    ::munmap(a, kSignalsSize);
}

TEST_F(RegistryTest, ATableOfAnOlderVersionOrAnotherClockLosesItsRowsAtFirstOpen) {
    struct Case { const char* domain; uint32_t version, clockTag; };
    const Case cases[] = {{"_old", 1, detail::kRegistryClockTag}, {"_clock", 2, 0x12345678}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.domain);
        // A domain per case: a process checks a table only when it first opens it.
        const KyString domain = domain_ + c.domain;
        created_.insert(created_.end(), {Signals::objectName(domain), Subs::objectName(domain),
                                         detail::make_shm_name(domain, detail::registryEventsObjectName_(),
                                                               detail::registryEventsSignalName_())});
        writeForeignSignalTable(Signals::objectName(domain), c.version, c.clockTag);
        EXPECT_TRUE(Signals::snapshot(domain).empty());
        RawObject raw(Signals::objectName(domain));
        ASSERT_TRUE(raw.ok());
        EXPECT_EQ(raw.at<uint32_t>(4), 2u);
        EXPECT_EQ(raw.at<uint32_t>(8), 0u);
        EXPECT_EQ(raw.at<uint32_t>(12), detail::kRegistryClockTag);
        for (size_t off = 56; off < 56 + 3 * 640; off += 8) ASSERT_EQ(raw.at<uint64_t>(off), 0u) << off;
        // The kept mutex still works: registration goes on as usual.
        Signals::registerSignal(domain, "kyreg/After", "fresh", "/ky_sig_y", 2, "int");
        EXPECT_TRUE(hasSignal("fresh", domain));
    }
}

// ---------------------------------------------------------------- heartbeat and exit

TEST_F(RegistryTest, AHeartbeatRenewsRowsAndANormalExitTakesTheDomainSlotOut) {
    kytest::Child& child = startPeer({"signal", domain_.toStdString(), "kyreg/Beat", "pulse", "sub",
                                      domain_.toStdString(), "kyreg/Beat", "pulse", "x"},
                                     /*loop=*/true);
    const uint32_t pid = static_cast<uint32_t>(child.pid());
    RawObject sig(Signals::objectName(domain_));
    RawObject sub(Subs::objectName(domain_));
    RawObject app(appsTable_);
    ASSERT_TRUE(sig.ok() && sub.ok() && app.ok());
    RegistryEntry* row = signalRow(sig, "kyreg/Beat", "pulse");
    ASSERT_NE(row, nullptr);
    auto* subs = sub.as<SubscriberRegistryLayout>();
    auto* apps = app.as<AppsRegistryLayout>();
    ASSERT_EQ(subs->header.count, 1u);
    ASSERT_EQ(apps->header.count, 1u);
    // Aged, but not yet stale: cleaning must leave the rows for the beat to renew.
    const uint64_t aged = detail::nowMs() - 10000;
    {
        TableLock a(&sig.as<SignalRegistryLayout>()->header);
        row->lastSeenMs = aged;
    }
    {
        TableLock b(&subs->header);
        subs->rows[0].lastSeenMs = aged;
    }
    {
        TableLock c(&apps->header);
        apps->rows[0].pidLastSeenMs[0] = aged;
    }
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    bool renewed = false;
    while (!renewed && std::chrono::steady_clock::now() < deadline) {
        {
            TableLock a(&sig.as<SignalRegistryLayout>()->header);
            TableLock b(&subs->header);
            TableLock c(&apps->header);
            renewed = row->lastSeenMs > aged && subs->rows[0].lastSeenMs > aged &&
                      apps->rows[0].pidLastSeenMs[0] > aged;
        }
        if (!renewed) std::this_thread::sleep_for(20ms);
    }
    EXPECT_TRUE(renewed);
    EXPECT_EQ(appPids(domain_), std::vector<uint32_t>{pid});

    // Let it end normally, and look before reaping: a zombie still answers
    // kill(pid, 0), so only the exit hook can have taken the slot out.
    ASSERT_TRUE(child.sendSignal(SIGTERM));
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child.pid()), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(info.si_code, CLD_EXITED);
    EXPECT_TRUE(child.sendSignal(0));
    EXPECT_TRUE(appPids(domain_).empty());
}

}  // namespace
