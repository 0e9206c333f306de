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

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyIoDispatcher.h"

namespace ky::ipc::detail {

namespace {

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

void callTableEntries() {
    LoopPollerDispatchRegistry::Table* table = LoopPollerDispatchRegistry::table();
    if (table == nullptr) {
        LoopPoller::dispatchSelf_();
        return;
    }
    bool self = false;
    for (auto& entry : table->entries) {
        uint64_t fn = entry.load(std::memory_order_acquire);
        if (fn == 0) continue;
        if (fn == reinterpret_cast<uint64_t>(&LoopPoller::dispatchSelf_)) self = true;
        reinterpret_cast<void (*)()>(fn)();
    }
    // A full table leaves this image out of it; its closures still run.
    if (!self) LoopPoller::dispatchSelf_();
}

void ensureInTable() {
    LoopPollerDispatchRegistry::Table* table = LoopPollerDispatchRegistry::table();
    if (table == nullptr) return;
    const uint64_t self = reinterpret_cast<uint64_t>(&LoopPoller::dispatchSelf_);
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
    uint64_t self = reinterpret_cast<uint64_t>(&LoopPoller::dispatchSelf_);
    for (auto& entry : table->entries) {
        uint64_t expected = self;
        entry.compare_exchange_strong(expected, 0);
    }
}

}  // namespace

LoopPollerDispatchRegistry::Table* LoopPollerDispatchRegistry::table() {
    static std::mutex mutex;
    static Table* mapped = nullptr;
    [[maybe_unused]] static int keptFd = -1;
    std::lock_guard<std::mutex> lock(mutex);
    if (mapped != nullptr) return mapped;
    std::string name = "/ky_ipc_dispatch_tbl_v1_" + std::to_string(getpid());
    int f = shm_open(name.c_str(), O_CREAT | O_RDWR, 0666);
    if (f < 0) return nullptr;
    (void)fchmod(f, 0666);
    if (ftruncate(f, sizeof(Table)) != 0) {
        close(f);
        return nullptr;
    }
    void* p = mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_SHARED, f, 0);
    if (p == MAP_FAILED) {
        close(f);
        return nullptr;
    }
    // The descriptor stays open for the life of the process.
    keptFd = f;
    auto* t = static_cast<Table*>(p);
    if (t->magic != kMagic || t->version != kVersion) {
        std::memset(p, 0, sizeof(Table));
        t->magic = kMagic;
        t->version = kVersion;
    }
    mapped = t;
    return mapped;
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
            while (recv(sock, buf, sizeof(buf), MSG_DONTWAIT) > 0) {
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
