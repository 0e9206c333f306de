// The console and the demo agent as real processes against what shared
// memory can do to them: any local process may write any word of the
// domain's objects, and a killed process leaves its objects behind under a
// pid that the next process may get. Neither peer may die, spin or ignore
// SIGTERM, whatever it reads.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <ostream>
#include <set>
#include <fstream>
#include <sstream>
#include <thread>

#include "../support/KyTestConsoleLink.h"
#include "../support/KyTestLoop.h"
#include "ipc/IpcNames.h"
#include "ipc/KyProxyObjectBrowser.h"
#include "ipc/RegistryTable.h"
#include "ipc/SubscribersRegistryTable.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// ---- Raw access to the objects, as any local process has it ----

/// Maps a shared object read-write by name, without any of the framework's rules.
class RawObject {
public:
    explicit RawObject(const std::string& name) {
        const int fd = ::shm_open(name.c_str(), O_RDWR, 0);
        if (fd < 0) return;
        struct stat st{};
        if (::fstat(fd, &st) == 0 && st.st_size > 0) {
            void* p = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (p != MAP_FAILED) {
                base_ = static_cast<uint8_t*>(p);
                size_ = static_cast<size_t>(st.st_size);
            }
        }
        ::close(fd);
    }
    ~RawObject() {
        if (base_) ::munmap(base_, size_);
    }
    RawObject(const RawObject&) = delete;
    RawObject& operator=(const RawObject&) = delete;
    uint8_t* base() const { return base_; }
    size_t size() const { return size_; }
    uint64_t u64(size_t at) const {
        uint64_t v = 0;
        std::memcpy(&v, base_ + at, 8);
        return v;
    }

private:
    uint8_t* base_ = nullptr;
    size_t size_ = 0;
};

void wake(pid_t pid) {
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const std::string text = "ky_ipc_notify_" + std::to_string(pid);
    std::memcpy(addr.sun_path + 1, text.data(), text.size());
    const char one = 1;
    ::sendto(fd, &one, 1, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&addr),
             static_cast<socklen_t>(text.size() + 3));
    ::close(fd);
}

/// User plus system CPU time of a process, in clock ticks.
long cpuTicks(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t close = text.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream fields(text.substr(close + 2));
    std::string skip;
    for (int i = 3; i < 14; ++i) fields >> skip;  // state .. cmajflt
    long utime = 0, stime = 0;
    fields >> utime >> stime;
    return utime + stime;
}

bool running(pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) == 0; }

// ---- The hostile writer's table ----

constexpr uint64_t kFarAhead = 1000000000000ULL;  // 10^12
constexpr size_t kRegistryRows = 56;
constexpr size_t kQueueSlots = 128;
constexpr size_t kSlotBytes = 4112;

enum class Action { Set, Add, Fill };

/// One wrong value in one field. `bumpSeq` also raises the counter at that
/// offset by one, so that readers go and look at the damage.
struct Corruption {
    const char* label;
    std::string object;
    size_t offset;
    size_t width;
    Action action;
    uint64_t value;
    size_t bumpSeq = 0;
    bool nextSlot = false;  // offset is inside the slot of the next message (seq at 104, 100 slots)
};

size_t fieldOffset(const RawObject& o, const Corruption& c) {
    if (!c.nextSlot) return c.offset;
    return kQueueSlots + ((o.u64(104) + 1) % 100) * kSlotBytes + c.offset;
}

/// Writes the corruption; returns the bytes it replaced (and the counter's).
std::vector<uint8_t> corrupt(RawObject& o, const Corruption& c) {
    const size_t at = fieldOffset(o, c);
    std::vector<uint8_t> saved(o.base() + at, o.base() + at + c.width);
    if (c.bumpSeq) saved.insert(saved.end(), o.base() + c.bumpSeq, o.base() + c.bumpSeq + 8);
    uint8_t* field = o.base() + at;
    if (c.action == Action::Fill) {
        std::memset(field, 'A', c.width);
    } else {
        uint64_t v = c.value;
        if (c.action == Action::Add) {
            uint64_t old = 0;
            std::memcpy(&old, field, c.width);
            v += old;
        }
        std::memcpy(field, &v, c.width);
    }
    if (c.bumpSeq) {
        const uint64_t seq = o.u64(c.bumpSeq) + 1;
        std::memcpy(o.base() + c.bumpSeq, &seq, 8);
    }
    return saved;
}

void restore(RawObject& o, const Corruption& c, size_t at, const std::vector<uint8_t>& saved) {
    std::memcpy(o.base() + at, saved.data(), c.width);
    if (c.bumpSeq) std::memcpy(o.base() + c.bumpSeq, saved.data() + c.width, 8);
}

int appRowOf(const RawObject& apps, const KyString& domain) {
    uint32_t count = 0;
    std::memcpy(&count, apps.base() + 8, 4);
    const uint64_t hash = ky::ipc::detail::frameworkHash(domain);
    for (uint32_t i = 0; i < count && i < 64; ++i)
        if (apps.u64(kRegistryRows + i * 344ULL) == hash) return static_cast<int>(i);
    return -1;
}

class HostileWriter : public kytest::ConsoleLinkFixture {
protected:
    std::string shm(const char* object, const KyString& signal) const {
        return ky::ipc::detail::make_shm_name(domain_.name(), object, signal).toStdString();
    }
    std::vector<Corruption> table(pid_t console, pid_t agent, int appRow) const {
        const std::string suffix = ky::ipc::detail::sanitizeRegistrySuffix_(domain_.name()).toStdString();
        const std::string signals = "/ky_ipc_registry_" + suffix;
        const std::string subs = "/ky_ipc_subs_" + suffix;
        const size_t app = kRegistryRows + static_cast<size_t>(appRow) * 344;
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
            {"signal registry count past its rows", signals, 8, 4, Action::Set, 0xFFFFFFFF},
            {"signal row stamp in the future", signals, kRegistryRows + 16, 8, Action::Set, ~0ULL},
            {"signal row stamp zero", signals, kRegistryRows + 16, 8, Action::Set, 0},
            {"signal row pid past any pid", signals, kRegistryRows + 24, 4, Action::Set, 0xFFFFFFFF},
            {"signal row pid of the console", signals, kRegistryRows + 24, 4, Action::Set, uint64_t(console)},
            {"signal row name unterminated", signals, kRegistryRows + 224, 160, Action::Fill, 0},
            {"signal row object name unterminated", signals, kRegistryRows + 32, 64, Action::Fill, 0},
            {"subscriber registry count past its rows", subs, 8, 4, Action::Set, 0xFFFFFFFF},
            {"subscriber row stamp in the future", subs, kRegistryRows + 8, 8, Action::Set, ~0ULL},
            {"subscriber row pid past any pid", subs, kRegistryRows + 16, 4, Action::Set, 0xFFFFFFFF},
            {"subscriber row refcount zero", subs, kRegistryRows + 20, 4, Action::Set, 0},
            {"subscriber row refcount saturated", subs, kRegistryRows + 20, 4, Action::Set, 0xFFFFFFFF},
            {"subscriber row signal unterminated", subs, kRegistryRows + 152, 160, Action::Fill, 0},
            {"application row process count", "/ky_ipc_registry", app + 16, 4, Action::Set, 0xFFFFFFFF},
            {"application row pid", "/ky_ipc_registry", app + 24, 4, Action::Set, 0xFFFFFFFF},
            {"application row domain unterminated", "/ky_ipc_registry", app + 216, 64, Action::Fill, 0},
            {"signal block seq far ahead", auth, 104, 8, Action::Add, kFarAhead},
            {"signal block size past the payload", auth, 112, 4, Action::Set, 0xFFFFFFFF, 104},
            {"signal block string count past the payload", auth, 116, 4, Action::Set, 0xFFFFFFF0, 104},
            {"registry event block size", events, 112, 4, Action::Set, 4097, 104},
            {"agent request queue seq far ahead", login, 104, 8, Action::Add, kFarAhead},
            {"agent request queue head ahead of seq", login, 112, 8, Action::Add, kFarAhead},
            {"agent request slot seq wrong", login, 0, 8, Action::Set, 0xDEAD, 104, true},
            {"agent request slot size huge", login, 8, 4, Action::Set, 0xFFFFFFFF, 104, true},
            {"console request queue seq far ahead", reset, 104, 8, Action::Add, kFarAhead},
            {"console request queue head ahead of seq", reset, 112, 8, Action::Add, kFarAhead},
            {"console reply queue seq far ahead", reply, 104, 8, Action::Add, kFarAhead},
            {"console reply slot size huge", reply, 8, 4, Action::Set, 0xFFFFFFFF, 104, true},
            {"console dispatch entry foreign", consoleTable, 8 + 8, 8, Action::Set, foreign},
            {"console own dispatch entry replaced", consoleTable, 8, 8, Action::Set, foreign},
            {"agent dispatch entry foreign", agentTable, 8 + 8, 8, Action::Set, foreign},
            {"agent own dispatch entry replaced", agentTable, 8, 8, Action::Set, foreign},
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
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    kytest::Child console;
    ASSERT_TRUE(startConsole(console)) << console.err();
    ASSERT_TRUE(console.waitForError("Backend auto-connected", 30s)) << console.err();
    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    domain_.observe();  // wrong stamps and pids get rows cleaned away

    RawObject apps("/ky_ipc_registry");
    ASSERT_NE(apps.base(), nullptr);
    const int appRow = appRowOf(apps, domain_.name());
    ASSERT_GE(appRow, 0);
    const pid_t peers[] = {console.pid(), agent.pid()};
    constexpr auto kHold = 250ms;
    constexpr auto kSettle = 150ms;
    const long ticksPerSecond = ::sysconf(_SC_CLK_TCK);

    for (const Corruption& c : table(console.pid(), agent.pid(), appRow)) {
        SCOPED_TRACE(c.label);
        long before[2] = {cpuTicks(peers[0]), cpuTicks(peers[1])};
        const auto start = Clock::now();
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            RawObject o(c.object);
            if (!o.base()) ::_exit(3);
            const size_t at = fieldOffset(o, c);
            const std::vector<uint8_t> saved = corrupt(o, c);
            const auto end = Clock::now() + kHold;
            while (Clock::now() < end) {
                for (pid_t p : peers) wake(p);
                std::this_thread::sleep_for(5ms);
            }
            restore(o, c, at, saved);
            for (pid_t p : peers) wake(p);
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "cannot open " << c.object;
        std::this_thread::sleep_for(kSettle);
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        for (int i = 0; i < 2; ++i) {
            const char* who = i == 0 ? "console" : "agent";
            ASSERT_TRUE(running(peers[i])) << who << " died:\n" << (i == 0 ? console.err() : agent.err());
            const double cores = double(cpuTicks(peers[i]) - before[i]) / double(ticksPerSecond) / seconds;
            EXPECT_LT(cores, 0.5) << who << " used " << cores << " of a core";
        }
    }

    ASSERT_TRUE(user().logoutUser(5000)) << user().lastError("logoutUser");

    // SIGTERM while both peers' queues claim 10^12 waiting messages.
    RawObject login(shm(kAgentObject, "__rpc__|100|loginUser"));
    RawObject reset(shm("velnet/gui", "__rpc__|100|system/resetFactory"));
    ASSERT_TRUE(login.base() && reset.base());
    const Corruption ahead{"", "", 104, 8, Action::Add, kFarAhead};
    const std::vector<uint8_t> savedLogin = corrupt(login, ahead);
    const std::vector<uint8_t> savedReset = corrupt(reset, ahead);
    for (pid_t p : peers) wake(p);
    ASSERT_EQ(::kill(console.pid(), SIGTERM), 0);
    ASSERT_EQ(::kill(agent.pid(), SIGTERM), 0);
    EXPECT_EQ(console.finish(1s), 0) << console.err();
    EXPECT_TRUE(console.exited());
    EXPECT_EQ(agent.finish(1s), 0) << agent.err();
    EXPECT_TRUE(agent.exited());
    // Each damaged queue is repaired as often as it is damaged, and told once.
    EXPECT_EQ(count(agent.err(), "repaired ring queue " + shm(kAgentObject, "__rpc__|100|loginUser")), 1u)
        << agent.err();
    restore(login, ahead, 104, savedLogin);
    restore(reset, ahead, 104, savedReset);
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
    ASSERT_EQ(::kill(second->pid(), SIGTERM), 0);
    EXPECT_EQ(second->finish(10s), 0) << second->err();
}

// ---- Starts and stops ----

// The agent's methods: a console keeps one reply queue for each.
constexpr const char* kAgentMethods[] = {
    "createTun",   "closeTun",          "connectWs",           "disconnectWs",        "clearLog",
    "tunIsOpen",   "wsIsConnected",     "setRemoteConfig",     "loginUser",           "logoutUser",
    "refreshVpnCatalog", "refreshVpnEndpoints", "setInspectedHotspot", "setEndpointVpnState", "connectHotspot",
    "disconnectHotspot", "requestShutdown"};

struct ShmLevel {
    size_t objects = 0;
    uint64_t bytes = 0;
    bool operator==(const ShmLevel&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ShmLevel& l) {
    return out << l.objects << " objects, " << l.bytes << " bytes";
}

class ConsoleRestarts : public kytest::ConsoleLinkFixture {
protected:
    /// The objects named after one console process.
    std::set<std::string> perPid(pid_t pid) const {
        std::set<std::string> names{"/ky_ipc_dispatch_tbl_v1_" + std::to_string(pid)};
        for (const char* method : kAgentMethods)
            names.insert(ky::ipc::detail::make_shm_name(
                             domain_.name(), kAgentObject,
                             ky::ipc::detail::rpcResponseQueueNameFor_(100, method, static_cast<uint32_t>(pid)))
                             .toStdString());
        return names;
    }
    /// Framework objects that a process still maps although they were unlinked.
    static int unlinkedMappings(pid_t pid) {
        std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
        int n = 0;
        for (std::string line; std::getline(maps, line);)
            n += line.find("/dev/shm/ky_") != std::string::npos && line.find("(deleted)") != std::string::npos;
        return n;
    }
    static ShmLevel level(const std::set<std::string>& names) {
        ShmLevel l;
        for (const std::string& name : names) {
            struct stat st{};
            if (::stat(("/dev/shm" + name).c_str(), &st) != 0) continue;
            ++l.objects;
            l.bytes += static_cast<uint64_t>(st.st_size);
        }
        return l;
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
        EXPECT_EQ(level(own).objects, own.size());

        // A client that lives for one call: the agent answers it, then must
        // let go of its reply queue once it is gone.
        kytest::Child caller;
        ASSERT_TRUE(caller.start(kytest::helperPath("ky_c_peer"),
                                 {"call", domain_.name().toStdString(), kAgentObject, "tunIsOpen", ""}));
        EXPECT_EQ(caller.finish(30s), 0) << caller.out();

        ASSERT_EQ(::kill(console.pid(), endings[i]), 0);
        if (endings[i] == SIGTERM) {
            EXPECT_EQ(console.finish(30s), 0) << console.err();
            EXPECT_EQ(level(own), ShmLevel{}) << "a console that ended normally left its own objects";
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
    /// The agent's own rows are listed: its configuration signal, and its
    /// subscription to the sign-in method's requests.
    bool agentListed(pid_t agent) {
        bool config = false;
        for (const KyJsonValue& row : ky::ipc::RegistryTable<256>::snapshot(domain_.name()))
            config |= row["signal"].toString() == "__config__|VelmoVpnAgent" && row["pid"].toInt64() == agent;
        std::vector<uint32_t> pids;
        ky::ipc::SubscribersRegistryTable<512>::listSubscriberPids(domain_.name(), kAgentObject,
                                                                    "__rpc__|100|loginUser", pids);
        return config && std::count(pids.begin(), pids.end(), static_cast<uint32_t>(agent)) != 0;
    }
    /// Two heartbeats of the peer, and a margin for a loaded machine.
    static constexpr auto kTwoHeartbeats = 3s;
};

// The agent stands still until its rows are swept, then goes on: it puts
// them back within two heartbeats, a browser that announced it gone
// announces it once again, the console binds again and follows a sign-in,
// and the independent C peer reads the rows under the agent's pid.
TEST_F(StalledPeer, AnAgentWhoseRowsWereSweptIsFoundAgainWhenItGoesOn) {
    kytest::Child agent;
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    kytest::Child console;
    ASSERT_TRUE(startConsole(console)) << console.err();
    ASSERT_TRUE(console.waitForError("Backend auto-connected", 30s)) << console.err();
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

    ASSERT_EQ(::kill(agent.pid(), SIGCONT), 0);
    EXPECT_TRUE(kytest::waitUntil([&] { return agentListed(agent.pid()); }, kTwoHeartbeats));
    ASSERT_TRUE(waitForCount(console, "Backend auto-connected", 2)) << console.err();
    // Passes over the next heartbeats find the agent where it is: announced once.
    for (int pass = 0; pass < 3; ++pass) {
        ASSERT_TRUE(kytest::waitUntil([&] { return agentListed(agent.pid()); }));
        browser.refreshNow();
        std::this_thread::sleep_for(400ms);
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
    ASSERT_TRUE(startAgent(agent)) << agent.err();
    kytest::Child console;
    ASSERT_TRUE(startConsole(console)) << console.err();
    ASSERT_TRUE(console.waitForError("Backend auto-connected", 30s)) << console.err();
    domain_.observe();

    ASSERT_TRUE(kytest::stopOutsideCriticalSections(console.pid(), domain_));
    ageEveryRow();
    // The agent, never stopped, puts its own rows back at once.
    ASSERT_TRUE(kytest::waitUntil([&] { return agentListed(agent.pid()); }, kTwoHeartbeats));
    ASSERT_TRUE(user().loginUser("", "demo@velmo.net", "velmo-demo", 5000)) << user().lastError("loginUser");
    ASSERT_TRUE(kytest::waitUntil([&] {
        kytest::Child read;
        read.start(kytest::helperPath("ky_c_peer"),
                   {"read", domain_.name().toStdString(), kAgentObject, "authState", "s"});
        read.finish(30s);
        return read.out().find("\"status\":\"ready\"") != std::string::npos;
    })) << "the agent never signed the user in";
    const size_t signedOut = count(console.err(), "auth: Sign in with your user account");

    ASSERT_EQ(::kill(console.pid(), SIGCONT), 0);
    EXPECT_TRUE(console.waitForError("auth: Signed in", 30s)) << console.err();
    ASSERT_TRUE(user().logoutUser(5000)) << user().lastError("logoutUser");
    EXPECT_TRUE(waitForCount(console, "auth: Sign in with your user account", signedOut + 1)) << console.err();
    EXPECT_EQ(console.err().find("Backend lost"), std::string::npos) << console.err();
}

}  // namespace
