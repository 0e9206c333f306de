// The console and the demo agent as real processes against what shared
// memory can do to them: any local process may write any word of the
// domain's objects, and a killed process leaves its objects behind under a
// pid that the next process may get. Neither peer may die, spin or ignore
// SIGTERM, whatever it reads.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>

#include "../support/KyTestConsoleLink.h"
#include "../support/KyTestLoop.h"
#include "ipc/IpcNames.h"
#include "ipc/KyProxyObjectBrowser.h"
#include "ipc/LoopPoller.h"
#include "ipc/RegistryTable.h"
#include "ipc/SubscribersRegistryTable.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using kytest::ShmView;

std::string procFile(pid_t pid, const char* name) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/" + name);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

/// User plus system CPU time of a process, in clock ticks (fields 14 and 15 of its stat).
long cpuTicks(pid_t pid) {
    const std::string stat = procFile(pid, "stat");
    long user = 0, system = 0;
    std::sscanf(stat.c_str() + stat.rfind(')') + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user,
                &system);
    return user + system;
}

void wake(pid_t pid) { ky::ipc::detail::LoopPoller::IpcWakeup::notifyPid(static_cast<uint32_t>(pid)); }

// ---- The hostile writer's table ----

constexpr uint64_t kFarAhead = 1000000000000ULL;  // 10^12
constexpr size_t kRows = 56;                      // first row of every registry table
constexpr char kSet = 'S', kAdd = 'A', kFill = 'F';

/// One wrong value in one field: set, added, or the field filled with 'A'.
/// `bumpSeq` also raises the object's counter (at 104), so readers go and
/// look at the damage; `nextSlot` places the field in the slot of the next
/// message of a 100-slot queue.
struct Corruption {
    const char* label;
    std::string object;
    size_t offset;
    size_t width;
    char action;
    uint64_t value;
    bool bumpSeq = false;
    bool nextSlot = false;
};

/// Writes the damage and returns how to undo it (offset and old bytes, then the old counter).
std::pair<size_t, std::vector<uint8_t>> corrupt(ShmView& o, const Corruption& c) {
    const size_t at = c.nextSlot ? 128 + ((o.at<uint64_t>(104) + 1) % 100) * 4112 + c.offset : c.offset;
    std::vector<uint8_t> saved(o.base() + at, o.base() + at + c.width);
    saved.insert(saved.end(), o.base() + 104, o.base() + 112);
    uint64_t v = c.value + (c.action == kAdd ? o.at<uint64_t>(at) : 0);
    if (c.action == kFill) std::memset(o.base() + at, 'A', c.width);
    else std::memcpy(o.base() + at, &v, c.width);
    if (c.bumpSeq) {
        v = o.at<uint64_t>(104) + 1;
        std::memcpy(o.base() + 104, &v, 8);
    }
    return {at, saved};
}

void restore(ShmView& o, const Corruption& c, const std::pair<size_t, std::vector<uint8_t>>& undo) {
    std::memcpy(o.base() + undo.first, undo.second.data(), c.width);
    if (c.bumpSeq) std::memcpy(o.base() + 104, undo.second.data() + c.width, 8);
}

class HostileWriter : public kytest::ConsoleLinkFixture {
protected:
    std::string shm(const char* object, const KyString& signal) const {
        return ky::ipc::detail::make_shm_name(domain_.name(), object, signal).toStdString();
    }
    std::vector<Corruption> table(pid_t console, pid_t agent) const {
        const std::string suffix = ky::ipc::detail::sanitizeRegistrySuffix_(domain_.name()).toStdString();
        const std::string signals = "/ky_ipc_registry_" + suffix;
        const std::string subs = "/ky_ipc_subs_" + suffix;
        const ShmView apps("/ky_ipc_registry");
        size_t app = 0;  // this domain's row of the application table
        for (uint32_t i = 0; i < std::min(apps.at<uint32_t>(8), 64u); ++i)
            if (apps.at<uint64_t>(kRows + i * 344) == ky::ipc::detail::frameworkHash(domain_.name())) app = kRows + i * 344;
        const std::string appsTable = app ? "/ky_ipc_registry" : "(the domain has no application row)";
        const std::string auth = shm(kAgentObject, "authState");
        const std::string events = shm("__ky_ipc__", "__registryChanged__");
        const std::string login = shm(kAgentObject, "__rpc__|100|loginUser");
        const std::string reset = shm("velnet/gui", "__rpc__|100|system/resetFactory");
        const std::string reply =
            shm(kAgentObject, ky::ipc::detail::rpcResponseQueueNameFor_(100, "loginUser", static_cast<uint32_t>(console)));
        const std::string consoleTable = "/ky_ipc_dispatch_tbl_v1_" + std::to_string(console);
        const std::string agentTable = "/ky_ipc_dispatch_tbl_v1_" + std::to_string(agent);
        const uint64_t foreign = 0x4141414141414141ULL;
        return {
            {"signal registry count past its rows", signals, 8, 4, kSet, 0xFFFFFFFF},
            {"signal row stamp in the future", signals, kRows + 16, 8, kSet, ~0ULL},
            {"signal row stamp zero", signals, kRows + 16, 8, kSet, 0},
            {"signal row pid past any pid", signals, kRows + 24, 4, kSet, 0xFFFFFFFF},
            {"signal row pid of the console", signals, kRows + 24, 4, kSet, uint64_t(console)},
            {"signal row name unterminated", signals, kRows + 224, 160, kFill, 0},
            {"signal row object name unterminated", signals, kRows + 32, 64, kFill, 0},
            {"subscriber registry count past its rows", subs, 8, 4, kSet, 0xFFFFFFFF},
            {"subscriber row stamp in the future", subs, kRows + 8, 8, kSet, ~0ULL},
            {"subscriber row pid past any pid", subs, kRows + 16, 4, kSet, 0xFFFFFFFF},
            {"subscriber row refcount zero", subs, kRows + 20, 4, kSet, 0},
            {"subscriber row refcount saturated", subs, kRows + 20, 4, kSet, 0xFFFFFFFF},
            {"subscriber row signal unterminated", subs, kRows + 152, 160, kFill, 0},
            {"application row process count", appsTable, app + 16, 4, kSet, 0xFFFFFFFF},
            {"application row pid", appsTable, app + 24, 4, kSet, 0xFFFFFFFF},
            {"application row domain unterminated", appsTable, app + 216, 64, kFill, 0},
            {"signal block seq far ahead", auth, 104, 8, kAdd, kFarAhead},
            {"signal block size past the payload", auth, 112, 4, kSet, 0xFFFFFFFF, true},
            {"signal block string count past the payload", auth, 116, 4, kSet, 0xFFFFFFF0, true},
            {"registry event block size", events, 112, 4, kSet, 4097, true},
            {"agent request queue seq far ahead", login, 104, 8, kAdd, kFarAhead},
            {"agent request queue head ahead of seq", login, 112, 8, kAdd, kFarAhead},
            {"agent request slot seq wrong", login, 0, 8, kSet, 0xDEAD, true, true},
            {"agent request slot size huge", login, 8, 4, kSet, 0xFFFFFFFF, true, true},
            {"console request queue seq far ahead", reset, 104, 8, kAdd, kFarAhead},
            {"console request queue head ahead of seq", reset, 112, 8, kAdd, kFarAhead},
            {"console reply queue seq far ahead", reply, 104, 8, kAdd, kFarAhead},
            {"console reply slot size huge", reply, 8, 4, kSet, 0xFFFFFFFF, true, true},
            {"console dispatch entry foreign", consoleTable, 8 + 8, 8, kSet, foreign},
            {"console own dispatch entry replaced", consoleTable, 8, 8, kSet, foreign},
            {"agent dispatch entry foreign", agentTable, 8 + 8, 8, kSet, foreign},
            {"agent own dispatch entry replaced", agentTable, 8, 8, kSet, foreign},
        };
    }
};

// A child writes one wrong value at a time into the live objects of the
// domain, wakes both peers again and again, and restores the field. Over
// each row neither peer may die or use more than half a core; at the end
// the agent still answers, and SIGTERM ends both within a second while their
// queues' counters are still wrong.
TEST_F(HostileWriter, NeitherPeerDiesSpinsOrIgnoresSigtermWhateverSharedMemorySays) {
    kytest::Child agent;
    kytest::Child console;
    ASSERT_TRUE(startBound(agent, console));
    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    domain_.observe();  // wrong stamps and pids get rows cleaned away
    const pid_t peers[] = {console.pid(), agent.pid()};

    for (const Corruption& c : table(console.pid(), agent.pid())) {
        SCOPED_TRACE(c.label);
        const long before[2] = {cpuTicks(peers[0]), cpuTicks(peers[1])};
        const auto start = Clock::now();
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ShmView o(c.object);
            if (!o.base()) ::_exit(3);
            const auto undo = corrupt(o, c);
            for (const auto end = Clock::now() + 250ms; Clock::now() < end; std::this_thread::sleep_for(5ms))
                for (pid_t p : peers) wake(p);
            restore(o, c, undo);
            for (pid_t p : peers) wake(p);
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "cannot open " << c.object;
        std::this_thread::sleep_for(150ms);  // the measured window: damage, repair and what follows
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        for (int i = 0; i < 2; ++i) {
            const char* who = i == 0 ? "console" : "agent";
            ASSERT_EQ(::waitpid(peers[i], nullptr, WNOHANG), 0) << who << " died:\n"
                                                               << (i == 0 ? console.err() : agent.err());
            const double cores = double(cpuTicks(peers[i]) - before[i]) / double(::sysconf(_SC_CLK_TCK)) / seconds;
            EXPECT_LT(cores, 0.5) << who << " used " << cores << " of a core";
        }
    }
    ASSERT_TRUE(user().logoutUser(5000)) << user().lastError("logoutUser");

    // SIGTERM while both peers' queues claim 10^12 waiting messages.
    ShmView login(shm(kAgentObject, "__rpc__|100|loginUser"));
    ShmView reset(shm("velnet/gui", "__rpc__|100|system/resetFactory"));
    ASSERT_TRUE(login.base() && reset.base());
    const Corruption ahead{"", "", 104, 8, kAdd, kFarAhead};
    const auto undoLogin = corrupt(login, ahead);
    const auto undoReset = corrupt(reset, ahead);
    for (pid_t p : peers) wake(p);
    ASSERT_TRUE(console.sendSignal(SIGTERM));
    ASSERT_TRUE(agent.sendSignal(SIGTERM));
    EXPECT_EQ(console.finish(1s), 0) << console.err();
    EXPECT_TRUE(console.exited());
    EXPECT_EQ(agent.finish(1s), 0) << agent.err();
    EXPECT_TRUE(agent.exited());
    // Each damaged queue is repaired as often as it is damaged, and told once.
    EXPECT_EQ(count(agent.err(), "repaired ring queue " + shm(kAgentObject, "__rpc__|100|loginUser")), 1u)
        << agent.err();
    restore(login, ahead, undoLogin);
    restore(reset, ahead, undoReset);
}

// A console killed with SIGKILL leaves its dispatch table behind; the next
// console that gets the same pid must start, bind and serve, not call the
// dead one's addresses.
TEST_F(HostileWriter, AConsoleOnTheSamePidAsAKilledOneStartsAndBinds) {
    std::ofstream probe("/proc/sys/kernel/ns_last_pid");
    if (!probe) GTEST_SKIP() << "/proc/sys/kernel/ns_last_pid is not writable here (needs root): pid reuse not forced";
    probe.close();
    kytest::Child agent;
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    // Another process of the machine may take the pid first; a console that
    // lands elsewhere sweeps the dead one's table, so each try starts over.
    std::unique_ptr<kytest::Child> second;
    pid_t pid = 0;
    for (int attempt = 0; attempt < 20 && (!second || second->pid() != pid); ++attempt) {
        second.reset();
        kytest::Child first;
        ASSERT_TRUE(startConsole(first)) << first.err();
        pid = first.pid();
        // Killed outside any table's critical section: a mutex held by the
        // dead would block the domain for good, by design.
        ASSERT_TRUE(kytest::stopOutsideCriticalSections(pid, domain_));
        first.kill();
        ASSERT_TRUE(kytest::shmObjectExists("/ky_ipc_dispatch_tbl_v1_" + std::to_string(pid)));
        second = std::make_unique<kytest::Child>();
        std::ofstream("/proc/sys/kernel/ns_last_pid") << (pid - 1);
        ASSERT_TRUE(second->start(kytest::helperPath("../../src/console/VelmoVpnConsole"), {}, env(),
                                  {"KY_LOGGING_RULES", "KY_DEBUG_RULES", "VELMO_CONSOLE_FAIL_AT_START"}));
        domain_.trackPid(static_cast<uint32_t>(second->pid()));
    }
    if (second->pid() != pid) GTEST_SKIP() << "other processes took the killed console's pid 20 times";
    ASSERT_TRUE(second->waitForError("Backend auto-connected", 30s)) << second->err();
    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    EXPECT_TRUE(second->waitForError("auth: Signed in", 30s)) << second->err();
    ASSERT_TRUE(second->sendSignal(SIGTERM));
    EXPECT_EQ(second->finish(10s), 0) << second->err();
}

// ---- Starts and stops ----

// The agent's methods: a console keeps one reply queue for each.
constexpr const char* kAgentMethods[] = {
    "createTun",   "closeTun",          "connectWs",           "disconnectWs",        "clearLog",
    "tunIsOpen",   "wsIsConnected",     "setRemoteConfig",     "loginUser",           "logoutUser",
    "refreshVpnCatalog", "refreshVpnEndpoints", "setInspectedHotspot", "setEndpointVpnState", "connectHotspot",
    "disconnectHotspot", "requestShutdown"};

using ShmLevel = std::pair<size_t, uint64_t>;  // objects, bytes

class ConsoleRestarts : public kytest::ConsoleLinkFixture {
protected:
    /// The objects named after one console process.
    std::set<std::string> perPid(pid_t pid) const {
        std::set<std::string> names{"/ky_ipc_dispatch_tbl_v1_" + std::to_string(pid)};
        for (const char* method : kAgentMethods) {
            const KyString queue = ky::ipc::detail::rpcResponseQueueNameFor_(100, method, static_cast<uint32_t>(pid));
            names.insert(ky::ipc::detail::make_shm_name(domain_.name(), kAgentObject, queue).toStdString());
        }
        return names;
    }
    static ShmLevel level(const std::set<std::string>& names) {
        ShmLevel l;
        for (const std::string& name : names) {
            struct stat st{};
            if (::stat(("/dev/shm" + name).c_str(), &st) == 0) ++l.first, l.second += static_cast<uint64_t>(st.st_size);
        }
        return l;
    }
    /// Framework objects that a process still maps although they were unlinked.
    static size_t unlinkedMappings(pid_t pid) {
        const std::string maps = procFile(pid, "maps");
        size_t n = 0;
        for (size_t at = maps.find("/dev/shm/ky_"); at != std::string::npos; at = maps.find("/dev/shm/ky_", at + 1))
            n += maps.compare(maps.find('\n', at) - 9, 9, "(deleted)") == 0;
        return n;
    }
};

// One agent and a console started and stopped again and again, ended by
// SIGTERM and by SIGKILL in turn: the domain's objects, counted in /dev/shm
// with their bytes, are back to where the first start left them at every
// start, and a console that ended normally took its own objects along.
TEST_F(ConsoleRestarts, SharedMemoryStaysFlatWhetherTheConsoleEndsBySigtermOrSigkill) {
    kytest::Child agent;
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    std::set<std::string> names;
    ShmLevel first;
    const int endings[] = {SIGTERM, SIGKILL, SIGTERM, SIGKILL, SIGTERM};
    for (size_t i = 0; i < std::size(endings); ++i) {
        SCOPED_TRACE("start " + std::to_string(i + 1));
        kytest::Child console;
        ASSERT_TRUE(startConsole(console)) << console.err();
        ASSERT_TRUE(console.waitForError("Backend auto-connected", 30s)) << console.err();
        const std::set<std::string> own = perPid(console.pid());
        domain_.observe();
        names.insert(domain_.knownNames().begin(), domain_.knownNames().end());
        names.insert(own.begin(), own.end());
        const ShmLevel now = level(names);
        if (i == 0) first = now;
        EXPECT_EQ(now, first);
        EXPECT_EQ(level(own).first, own.size());

        // A client that lives for one call: the agent answers it, then must
        // let go of its reply queue once it is gone.
        kytest::Child caller;
        ASSERT_TRUE(caller.start(kytest::helperPath("ky_c_peer"),
                                 {"call", domain_.name().toStdString(), kAgentObject, "tunIsOpen", ""}));
        EXPECT_EQ(caller.finish(30s), 0) << caller.out();

        if (endings[i] == SIGKILL) {
            ASSERT_TRUE(kytest::stopOutsideCriticalSections(console.pid(), domain_));
        }
        ASSERT_TRUE(console.sendSignal(endings[i]));
        if (endings[i] == SIGTERM) {
            EXPECT_EQ(console.finish(30s), 0) << console.err();
            EXPECT_EQ(level(own), ShmLevel()) << "a console that ended normally left its own objects";
        } else {
            console.finish(30s);
        }
    }
    // Nor does the agent keep the memory of its gone clients' rings mapped.
    EXPECT_TRUE(kytest::waitUntil([&] { return unlinkedMappings(agent.pid()) == 0; }))
        << unlinkedMappings(agent.pid()) << " rings of gone clients still mapped by the agent";
}

// ---- Stalls ----

class StalledPeer : public kytest::ConsoleLinkFixture {
protected:
    /// Runs the staleness rule of both tables as a process 16 s ahead of
    /// this one would: every row ages out, the stopped peer's included.
    void ageEveryRow() {
        ky::ipc::detail::setClockSkewForTesting_(ky::ipc::detail::kRegistryStaleMs + 1000);
        (void)ky::ipc::RegistryTable<256>::snapshot(domain_.name());
        std::vector<uint32_t> pids;
        ky::ipc::SubscribersRegistryTable<512>::listSubscriberPids(domain_.name(), "", "", pids);
        ky::ipc::detail::setClockSkewForTesting_(0);
    }
    /// The last heartbeat stamp of the agent's configuration row (0 when it is not listed).
    uint64_t agentStamp(pid_t agent = 0) {
        for (const KyJsonValue& row : ky::ipc::RegistryTable<256>::snapshot(domain_.name()))
            if (row["signal"].toString() == "__config__|VelmoVpnAgent" && (!agent || row["pid"].toInt64() == agent))
                return static_cast<uint64_t>(row["lastSeenMs"].toDouble());
        return 0;
    }
    /// The agent's own rows are listed: its configuration signal, and its
    /// subscription to the sign-in method's requests.
    bool agentListed(pid_t agent) {
        const bool config = agentStamp(agent) != 0;
        std::vector<uint32_t> pids;
        ky::ipc::SubscribersRegistryTable<512>::listSubscriberPids(domain_.name(), kAgentObject,
                                                                    "__rpc__|100|loginUser", pids);
        return config && std::count(pids.begin(), pids.end(), static_cast<uint32_t>(agent)) != 0;
    }
    /// Two heartbeats of the peer, with room for a loaded machine.
    static constexpr auto kTwoHeartbeats = 5s;
};

// The agent stands still until its rows are swept, then goes on: it puts
// them back within two heartbeats, a browser that announced it gone
// announces it once again, the console binds again and follows a sign-in,
// and the independent C peer reads the rows under the agent's pid.
TEST_F(StalledPeer, AnAgentWhoseRowsWereSweptIsFoundAgainWhenItGoesOn) {
    kytest::Child agent;
    kytest::Child console;
    ASSERT_TRUE(startBound(agent, console));
    domain_.observe();
    KyProxyObjectBrowser<VelmoVpnAgentProxy> browser(domain_.name(), "*", "test");
    int appeared = 0;
    int disappeared = 0;
    KyObject::connect(&browser, &KyProxyObjectBrowser<VelmoVpnAgentProxy>::remoteAppeared,
                      [&](auto) { ++appeared; });
    KyObject::connect(&browser, &KyProxyObjectBrowser<VelmoVpnAgentProxy>::remoteDisappeared,
                      [&](auto) { ++disappeared; });
    browser.refreshNow();
    ASSERT_EQ(appeared, 1);

    ASSERT_TRUE(kytest::stopOutsideCriticalSections(agent.pid(), domain_));
    ageEveryRow();
    browser.refreshNow();
    EXPECT_EQ(disappeared, 1);
    ASSERT_TRUE(console.waitForError("Backend lost", 30s)) << console.err();

    ASSERT_TRUE(agent.sendSignal(SIGCONT));
    EXPECT_TRUE(kytest::waitUntil([&] { return agentListed(agent.pid()); }, kTwoHeartbeats));
    ASSERT_TRUE(waitForCount(console, "Backend auto-connected", 2)) << console.err();
    // Passes over the next three heartbeats find the agent where it is: announced once.
    for (int beat = 0; beat < 3; ++beat) {
        const uint64_t stamp = agentStamp();
        ASSERT_TRUE(kytest::waitUntil([&] { return agentStamp() > stamp; }));
        browser.refreshNow();
    }
    EXPECT_EQ(appeared, 2);
    EXPECT_EQ(disappeared, 1);

    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    EXPECT_TRUE(console.waitForError("auth: Signed in", 30s)) << console.err();
    kytest::Child rows;
    ASSERT_TRUE(rows.start(kytest::helperPath("ky_c_peer"), {"registry", domain_.name().toStdString()}));
    EXPECT_EQ(rows.finish(30s), 0);
    EXPECT_NE(rows.out().find("row pid=" + std::to_string(agent.pid()) + " object=" + kAgentObject +
                              " signal=__config__|VelmoVpnAgent"),
              std::string::npos)
        << rows.out();
}

// The console stands still until its rows are swept; meanwhile the user
// signs in elsewhere. When it goes on it learns the session it missed, and
// it hears the agent's next change.
TEST_F(StalledPeer, AConsoleWhoseRowsWereSweptCatchesUpAndHearsTheAgentAgain) {
    kytest::Child agent;
    kytest::Child console;
    ASSERT_TRUE(startBound(agent, console));
    domain_.observe();

    ASSERT_TRUE(kytest::stopOutsideCriticalSections(console.pid(), domain_));
    ageEveryRow();
    // The agent, never stopped, puts its own rows back at its next heartbeat.
    ASSERT_TRUE(kytest::waitUntil([&] { return agentListed(agent.pid()); }));
    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    ASSERT_TRUE(kytest::waitUntil([&] {
        kytest::Child read;
        read.start(kytest::helperPath("ky_c_peer"),
                   {"read", domain_.name().toStdString(), kAgentObject, "authState", "s"});
        read.finish(30s);
        return read.out().find("\"status\":\"ready\"") != std::string::npos;
    })) << "the agent never signed the user in";
    const size_t signedOut = count(console.err(), "auth: Sign in with your user account");

    ASSERT_TRUE(console.sendSignal(SIGCONT));
    EXPECT_TRUE(console.waitForError("auth: Signed in", 30s)) << console.err();
    ASSERT_TRUE(user().logoutUser(5000)) << user().lastError("logoutUser");
    EXPECT_TRUE(waitForCount(console, "auth: Sign in with your user account", signedOut + 1)) << console.err();
    EXPECT_EQ(console.err().find("Backend lost"), std::string::npos) << console.err();
}

}  // namespace
