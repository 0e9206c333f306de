// LoopPoller: task map, dispatch table, wake-up socket and sender.
#include "ipc/LoopPoller.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyIoDispatcher.h"
#include "ipc/ProcessObjects.h"
#include "ipc/RegistryShared.h"

namespace ky::ipc::detail {

namespace {

constexpr const char* kCategory = "ky.ipc.looppoller";
// Datagrams taken per wake-up: a sender that never stops must not keep the
// loop in one handler; what is left fires the watch again.
constexpr int kMaxDatagramsPerWake = 1024;

struct WakeupState {
    std::mutex mutex;
    std::atomic<bool> attached{false};
    int watchId = 0;
    int fd = -1;
    // The application whose dispatcher watches the socket: a later
    // application (tests make several in turn) must bind and watch anew.
    uint64_t applicationId = 0;
    KyCoreApplication* application = nullptr;
};

WakeupState& wakeup() {
    static WakeupState* state = new WakeupState;  // outlives every static destructor
    return *state;
}

struct SenderSocket {
    std::mutex mutex;
    int fd = -1;
};

SenderSocket& sender() {
    static SenderSocket* s = new SenderSocket;
    return *s;
}

// The functions this process put in its dispatch table: the only ones a
// wake-up ever calls. The table lives in shared memory, so an entry there is
// a number anyone with write access may have set, or one a dead process of
// the same pid left behind; calling it would jump wherever it points. With
// one program image the list holds dispatchSelf_ alone.
constexpr int kMaxRegisteredDispatch = 4;
std::atomic<uint64_t> gRegisteredDispatch[kMaxRegisteredDispatch];
std::atomic<bool> gForeignEntryLogged{false};

uint64_t selfDispatchAddress() { return reinterpret_cast<uint64_t>(&LoopPoller::dispatchSelf_); }

void registerDispatch(uint64_t fn) {
    for (auto& slot : gRegisteredDispatch) {
        if (slot.load(std::memory_order_acquire) == fn) return;
    }
    for (auto& slot : gRegisteredDispatch) {
        uint64_t expected = 0;
        if (slot.compare_exchange_strong(expected, fn)) return;
    }
}

bool isRegisteredDispatch(uint64_t fn) {
    for (const auto& slot : gRegisteredDispatch) {
        if (slot.load(std::memory_order_acquire) == fn) return true;
    }
    return false;
}

void callTableEntries() {
    // Foreign entries are only looked at, never called: one log line per
    // process tells that somebody wrote into the table.
    if (LoopPollerDispatchRegistry::Table* table = LoopPollerDispatchRegistry::table()) {
        for (const auto& entry : table->entries) {
            const uint64_t fn = entry.load(std::memory_order_acquire);
            if (fn == 0 || isRegisteredDispatch(fn)) continue;
            if (!gForeignEntryLogged.exchange(true)) {
                kyLogWarning(kCategory) << "ignoring dispatch table entries that this process did not register";
            }
            break;
        }
    }
    // A full or missing table leaves this image out of it; its closures still run.
    for (const auto& slot : gRegisteredDispatch) {
        const uint64_t fn = slot.load(std::memory_order_acquire);
        if (fn != 0) reinterpret_cast<void (*)()>(fn)();
    }
}

void ensureInTable() {
    const uint64_t self = selfDispatchAddress();
    registerDispatch(self);
    LoopPollerDispatchRegistry::Table* table = LoopPollerDispatchRegistry::table();
    if (table == nullptr) return;
    for (auto& entry : table->entries) {
        if (entry.load(std::memory_order_acquire) == self) return;
    }
    for (auto& entry : table->entries) {
        uint64_t expected = 0;
        if (entry.compare_exchange_strong(expected, self)) return;
    }
}

void clearFromTable() {
    LoopPollerDispatchRegistry::Table* table = LoopPollerDispatchRegistry::table();
    if (table == nullptr) return;
    const uint64_t self = selfDispatchAddress();
    for (auto& entry : table->entries) {
        uint64_t expected = self;
        entry.compare_exchange_strong(expected, 0);
    }
}

// The process's own table. Only its owner may read or write it: nobody else
// has a reason to, and its entries are addresses inside this process.
struct DispatchTableState {
    std::mutex mutex;
    LoopPollerDispatchRegistry::Table* mapped = nullptr;
    int fd = -1;     // kept open for the life of the process
    pid_t pid = 0;   // the process that mapped it (a forked child maps its own)
};

DispatchTableState& dispatchTable() {
    static DispatchTableState* state = new DispatchTableState;  // used by exit hooks
    return *state;
}

std::string dispatchTableName(pid_t pid) { return "/ky_ipc_dispatch_tbl_v1_" + std::to_string(pid); }

}  // namespace

LoopPollerDispatchRegistry::Table* LoopPollerDispatchRegistry::table() {
    DispatchTableState& st = dispatchTable();
    std::lock_guard<std::mutex> lock(st.mutex);
    const pid_t self = ::getpid();
    if (st.mapped != nullptr && st.pid == self) return st.mapped;
    if (st.mapped != nullptr) {
        // Inherited through fork: that table is the parent's.
        ::munmap(st.mapped, sizeof(Table));
        if (st.fd >= 0) ::close(st.fd);
        st.mapped = nullptr;
        st.fd = -1;
    }
    const std::string name = dispatchTableName(self);
    int f;
    do {
        f = ::shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    } while (f < 0 && errno == EINTR);
    bool adopted = false;
    if (f < 0 && errno == EEXIST) {
        // No live process but this one has our pid: the table is a dead
        // process's, left behind by a kill, and is taken over below.
        do {
            f = ::shm_open(name.c_str(), O_RDWR | O_CLOEXEC, 0600);
        } while (f < 0 && errno == EINTR);
        adopted = true;
    }
    if (f < 0) return nullptr;
    (void)::fchmod(f, 0600);
    if (::ftruncate(f, sizeof(Table)) != 0) {
        ::close(f);
        return nullptr;
    }
    void* p = ::mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_SHARED, f, 0);
    if (p == MAP_FAILED) {
        ::close(f);
        return nullptr;
    }
    auto* t = static_cast<Table*>(p);
    // Whatever a table holds at our first look is not ours: a fresh one is
    // zero, an adopted one carries a dead process's addresses.
    std::memset(p, 0, sizeof(Table));
    t->magic = kMagic;
    t->version = kVersion;
    if (adopted) kyLogDebug(kCategory) << "took over the dispatch table of a dead process:" << name;
    // Named after this process: it goes when the process ends.
    ensureProcessExitHook_();
    st.fd = f;
    st.pid = self;
    st.mapped = t;
    return t;
}

void LoopPollerDispatchRegistry::release_() {
    DispatchTableState& st = dispatchTable();
    std::lock_guard<std::mutex> lock(st.mutex);
    if (st.mapped == nullptr || st.pid != ::getpid()) return;
    // Unlinked but still mapped: a wake-up that runs after this point still
    // finds the table, and nobody else ever looks for it again.
    ::shm_unlink(dispatchTableName(st.pid).c_str());
}

static_assert(sizeof(LoopPollerDispatchRegistry::Table) == 520);

LoopPoller& LoopPoller::instance() {
    static LoopPoller poller;
    return poller;
}

void LoopPoller::IpcWakeup::fillAddr_(uint32_t pid, sockaddr_un& addr, socklen_t& len) {
    std::memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    std::string text = "ky_ipc_notify_" + std::to_string(pid);
    if (text.size() > 106) text.resize(106);
    std::memcpy(addr.sun_path + 1, text.data(), text.size());
    len = static_cast<socklen_t>(text.size() + 3);
}

void LoopPoller::IpcWakeup::notifyPid(uint32_t pid) {
    SenderSocket& s = sender();
    int fd;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.fd < 0) s.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        fd = s.fd;
    }
    if (fd < 0) return;
    sockaddr_un addr;
    socklen_t len = 0;
    fillAddr_(pid, addr, len);
    const char one = 1;
    ssize_t rc;
    do {
        rc = sendto(fd, &one, 1, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&addr), len);
    } while (rc < 0 && errno == EINTR);
    // No listener or a full receive queue: the listener's next pass of any
    // cause picks the change up.
}

uint64_t LoopPoller::add(std::function<void()> closure) {
    ensureInTable();
    auto task = std::make_shared<Task>();
    task->closure = std::move(closure);
    uint64_t id;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        id = nextId_++;
        tasks_.emplace(id, std::move(task));
        attach_();
    }
    if (KyCoreApplication* app = KyCoreApplication::instance()) {
        app->postEventOnLane([] { callTableEntries(); }, KyFiberLaneDefault);
    }
    return id;
}

void LoopPoller::attach_() {
    WakeupState& w = wakeup();
    KyCoreApplication* app = KyCoreApplication::instance();
    if (app == nullptr || app->ioDispatcher() == nullptr) return;
    std::lock_guard<std::mutex> lock(w.mutex);
    if (w.attached.load() && w.applicationId == app->runtimeApplicationId() && w.application == app) return;
    if (w.attached.load()) {
        // The application that watched the socket has gone; its dispatcher
        // went with it, so only the socket is left to close.
        if (w.fd >= 0) close(w.fd);
        w.fd = -1;
        w.watchId = 0;
        w.attached.store(false);
    }
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    sockaddr_un addr;
    socklen_t len = 0;
    IpcWakeup::fillAddr_(static_cast<uint32_t>(getpid()), addr, len);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0) {
        close(fd);
        w.fd = -1;
        return;
    }
    const uint64_t appId = app->runtimeApplicationId();
    // The epoll thread calls this only while the dispatcher, and so the
    // application that owns it, exists. Run the drain on the loop, not
    // inside the I/O wait.
    auto dispatcher = [app](std::function<void()> fn) {
        app->postEventOnLaneImpl_(std::move(fn), KyFiberLaneUrgent, true);
    };
    auto handler = [](int sock, uint32_t events) {
        if (events & KyIoDispatcher::Readable) {
            char buf[64];
            // Every queued wake-up collapses into this one pass.
            for (int i = 0; i < kMaxDatagramsPerWake && recv(sock, buf, sizeof(buf), MSG_DONTWAIT) > 0; ++i) {
            }
        }
        callTableEntries();
    };
    int watchId = app->ioDispatcher()->watchFd(fd, KyIoDispatcher::Readable, dispatcher, handler);
    w.fd = fd;
    w.watchId = watchId;
    w.applicationId = appId;
    w.application = app;
    if (watchId != 0) {
        w.attached.store(true);
    } else {
        close(fd);
        w.fd = -1;
    }
}

void LoopPoller::detach_() {
    WakeupState& w = wakeup();
    std::lock_guard<std::mutex> lock(w.mutex);
    if (!w.attached.load()) return;
    KyCoreApplication* app = KyCoreApplication::instance();
    if (app != nullptr && app == w.application && app->runtimeApplicationId() == w.applicationId &&
        app->ioDispatcher() != nullptr) {
        app->ioDispatcher()->unwatch(w.watchId);
    }
    if (w.fd >= 0) close(w.fd);
    w.fd = -1;
    w.watchId = 0;
    w.application = nullptr;
    w.attached.store(false);
}

void LoopPoller::remove(uint64_t id) {
    std::shared_ptr<Task> task;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = tasks_.find(id);
        if (it == tasks_.end()) return;
        task = it->second;
        tasks_.erase(it);
        if (tasks_.empty()) {
            clearFromTable();
            detach_();
        }
    }
    task->active.store(0, std::memory_order_release);
}

void LoopPoller::tick_() {
    // A process that stood still past the staleness limit puts its rows back
    // first, so no closure acts on tables that lost them.
    healAfterStall_();
    std::vector<std::shared_ptr<Task>> snapshot;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        snapshot.reserve(tasks_.size());
        for (auto& [id, task] : tasks_) snapshot.push_back(task);
    }
    for (auto& task : snapshot) {
        if (task->active.load(std::memory_order_acquire) != 0) task->closure();
    }
}

void LoopPoller::dispatchSelf_() { instance().tick_(); }

size_t LoopPoller::taskCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return tasks_.size();
}

bool LoopPoller::attached() const { return wakeup().attached.load(); }

}  // namespace ky::ipc::detail
