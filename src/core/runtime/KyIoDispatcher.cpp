// KyIoDispatcher: the epoll thread and the one-shot watch bookkeeping. See
// the header for the model; this file keeps the lifetimes straight. The watch
// table and the epoll descriptor live in a shared core, so a posted function
// that runs (or is dropped) after the dispatcher is gone finds the core
// stopped and does nothing.
#include "core/runtime/KyIoDispatcher.h"

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <exception>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "core/io/KyDebug.h"

namespace {
constexpr const char* kCategory = "ky.core.runtime.kyiodispatcher";
constexpr uint64_t kWakeKey = 0;

static_assert(KyIoDispatcher::Readable == EPOLLIN);
static_assert(KyIoDispatcher::Priority == EPOLLPRI);
static_assert(KyIoDispatcher::Writable == EPOLLOUT);
static_assert(KyIoDispatcher::Error == EPOLLERR);
static_assert(KyIoDispatcher::HangUp == EPOLLHUP);
static_assert(KyIoDispatcher::PeerClosed == EPOLLRDHUP);

KyString errnoText(int error) {
    char buffer[128];
    return KyString(strerror_r(error, buffer, sizeof buffer));
}
}  // namespace

struct KyIoDispatcher::Core_ {
    struct Watch_ {
        int id = 0;
        int fd = -1;
        uint32_t events = 0;
        Dispatcher dispatcher;
        Handler handler;
        bool alive = true;  // guarded by Core_::mutex
    };

    mutable std::mutex mutex;
    int epollFd = -1;
    int wakeFd = -1;
    bool stopping = false;
    std::thread thread;
    int nextId = 1;
    std::map<int, std::shared_ptr<Watch_>> watches;
    std::atomic<long long> dispatches{0};

    // Re-arms the one-shot registration; the epoll descriptor is only used
    // under the mutex, so a close cannot race a re-arm onto a reused number.
    void rearm(const std::shared_ptr<Watch_>& watch) {
        std::lock_guard<std::mutex> lock(mutex);
        if (!watch->alive || epollFd < 0) return;
        epoll_event ev{};
        ev.events = watch->events | EPOLLONESHOT;
        ev.data.u64 = static_cast<uint64_t>(watch->id);
        if (epoll_ctl(epollFd, EPOLL_CTL_MOD, watch->fd, &ev) != 0) {
            const int error = errno;
            // ENOENT/EBADF: the owner closed the descriptor without unwatching.
            kyLogWarning(kCategory) << "Cannot re-arm watch" << watch->id << "on fd" << watch->fd << "-"
                                    << errnoText(error);
        }
    }

    class Ticket_;
    void run(const std::shared_ptr<Core_>& self);
};

/// The posted half of one readiness report. Runs the handler once; re-arms the
/// watch when it has run, or when it is destroyed without running (a loop
/// that refused the post), so the watch never stays disarmed.
class KyIoDispatcher::Core_::Ticket_ {
public:
    Ticket_(std::shared_ptr<Core_> core, std::shared_ptr<Watch_> watch, uint32_t revents)
        : core_(std::move(core)), watch_(std::move(watch)), revents_(revents) {}
    ~Ticket_() {
        if (!done_) core_->rearm(watch_);
    }
    void run() {
        if (done_.exchange(true)) return;
        bool alive;
        {
            std::lock_guard<std::mutex> lock(core_->mutex);
            alive = watch_->alive;
        }
        if (!alive) return;
        try {
            watch_->handler(watch_->fd, revents_);
        } catch (const std::exception& e) {
            kyLogError(kCategory) << "Unhandled exception in I/O handler:" << e.what();
        } catch (...) {
            kyLogError(kCategory) << "Unhandled unknown exception in I/O handler";
        }
        core_->rearm(watch_);
    }

private:
    std::shared_ptr<Core_> core_;
    std::shared_ptr<Watch_> watch_;
    uint32_t revents_;
    std::atomic<bool> done_{false};
};


void KyIoDispatcher::Core_::run(const std::shared_ptr<Core_>& self) {
    epoll_event events[64];
    for (;;) {
        const int n = epoll_wait(epollFd, events, 64, -1);
        if (n < 0) {
            if (errno == EINTR) continue;
            kyLogError(kCategory) << "epoll_wait failed:" << errnoText(errno);
            return;
        }
        for (int i = 0; i < n; ++i) {
            if (events[i].data.u64 == kWakeKey) {
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    if (stopping) return;
                }
                uint64_t value;
                while (read(wakeFd, &value, sizeof value) == static_cast<ssize_t>(sizeof value)) {
                }
                continue;
            }
            std::shared_ptr<Watch_> watch;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (stopping) return;
                auto it = watches.find(static_cast<int>(events[i].data.u64));
                if (it == watches.end() || !it->second->alive) continue;
                watch = it->second;
            }
            dispatches.fetch_add(1, std::memory_order_relaxed);
            auto ticket = std::make_shared<Ticket_>(self, watch, static_cast<uint32_t>(events[i].events));
            try {
                watch->dispatcher([ticket] { ticket->run(); });
            } catch (const std::exception& e) {
                kyLogError(kCategory) << "I/O dispatcher function failed:" << e.what();
            } catch (...) {
                kyLogError(kCategory) << "I/O dispatcher function failed with an unknown exception";
            }
        }
        std::lock_guard<std::mutex> lock(mutex);
        if (stopping) return;
    }
}

KyIoDispatcher::KyIoDispatcher() : core_(std::make_shared<Core_>()) {}

KyIoDispatcher::~KyIoDispatcher() {
    stopLinuxBackend_();
    std::lock_guard<std::mutex> lock(core_->mutex);
    for (auto& entry : core_->watches) entry.second->alive = false;
    core_->watches.clear();
    if (core_->epollFd >= 0) close(core_->epollFd);
    if (core_->wakeFd >= 0) close(core_->wakeFd);
    core_->epollFd = -1;
    core_->wakeFd = -1;
}

bool KyIoDispatcher::startLinuxBackend_() {
    std::lock_guard<std::mutex> lock(core_->mutex);
    if (core_->thread.joinable()) return true;
    if (core_->epollFd < 0) {
        core_->epollFd = epoll_create1(EPOLL_CLOEXEC);
        if (core_->epollFd < 0) {
            kyLogError(kCategory) << "epoll_create1 failed:" << errnoText(errno);
            return false;
        }
    }
    if (core_->wakeFd < 0) {
        core_->wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (core_->wakeFd < 0) {
            kyLogError(kCategory) << "eventfd failed:" << errnoText(errno);
            return false;
        }
        epoll_event ev{};
        ev.events = EPOLLIN;
        ev.data.u64 = kWakeKey;
        if (epoll_ctl(core_->epollFd, EPOLL_CTL_ADD, core_->wakeFd, &ev) != 0) {
            kyLogError(kCategory) << "Cannot watch the wake eventfd:" << errnoText(errno);
            close(core_->wakeFd);
            core_->wakeFd = -1;
            return false;
        }
    }
    core_->stopping = false;
    // The thread starts with the asynchronous signals blocked (it inherits the
    // mask), so termination and preemption signals go to the loop threads.
    sigset_t all, previous;
    sigfillset(&all);
    for (int sig : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS})
        sigdelset(&all, sig);
    pthread_sigmask(SIG_BLOCK, &all, &previous);
    try {
        std::shared_ptr<Core_> self = core_;
        core_->thread = std::thread([self] {
            KyDebug::setThreadName("KyIoDispatcher");
            self->run(self);
        });
    } catch (const std::system_error& e) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        kyLogError(kCategory) << "Cannot start the I/O dispatcher thread:" << e.what();
        return false;
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return true;
}

void KyIoDispatcher::stopLinuxBackend_() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(core_->mutex);
        if (!core_->thread.joinable()) return;
        core_->stopping = true;
        const uint64_t one = 1;
        ssize_t written;
        do {
            written = write(core_->wakeFd, &one, sizeof one);
        } while (written < 0 && errno == EINTR);
        thread = std::move(core_->thread);
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        // Stopped from a dispatcher function on the epoll thread itself: it
        // leaves its loop on its own when the call returns.
        thread.detach();
        return;
    }
    thread.join();
}

bool KyIoDispatcher::isRunning() const {
    std::lock_guard<std::mutex> lock(core_->mutex);
    return core_->thread.joinable() && !core_->stopping;
}

int KyIoDispatcher::watchFd(int fd, uint32_t events, Dispatcher dispatcher, Handler handler) {
    if (fd < 0 || fcntl(fd, F_GETFD) < 0) {
        kyLogWarning(kCategory) << "Refusing to watch invalid descriptor" << fd;
        return 0;
    }
    if (!dispatcher || !handler) {
        kyLogWarning(kCategory) << "Refusing to watch descriptor" << fd << "without dispatcher and handler";
        return 0;
    }
    if (!isRunning() && !startLinuxBackend_()) return 0;

    auto watch = std::make_shared<Core_::Watch_>();
    watch->fd = fd;
    watch->events = events & ~static_cast<uint32_t>(EPOLLONESHOT | EPOLLET);
    watch->dispatcher = std::move(dispatcher);
    watch->handler = std::move(handler);

    std::lock_guard<std::mutex> lock(core_->mutex);
    if (core_->epollFd < 0) return 0;
    watch->id = core_->nextId++;
    if (core_->nextId <= 0) core_->nextId = 1;
    epoll_event ev{};
    ev.events = watch->events | EPOLLONESHOT;
    ev.data.u64 = static_cast<uint64_t>(watch->id);
    if (epoll_ctl(core_->epollFd, EPOLL_CTL_ADD, fd, &ev) != 0) {
        const int error = errno;
        if (error == EEXIST)
            kyLogWarning(kCategory) << "Descriptor" << fd << "is watched already";
        else
            kyLogWarning(kCategory) << "Cannot watch descriptor" << fd << "-" << errnoText(error);
        return 0;
    }
    // A watch on the same number that epoll no longer knew belonged to a
    // descriptor closed without unwatch; it must not remove the new one.
    for (auto it = core_->watches.begin(); it != core_->watches.end();) {
        if (it->second->fd == fd) {
            it->second->alive = false;
            it = core_->watches.erase(it);
        } else {
            ++it;
        }
    }
    core_->watches.emplace(watch->id, watch);
    return watch->id;
}

bool KyIoDispatcher::unwatch(int id) {
    std::lock_guard<std::mutex> lock(core_->mutex);
    auto it = core_->watches.find(id);
    if (it == core_->watches.end()) return false;
    it->second->alive = false;
    if (core_->epollFd >= 0 && epoll_ctl(core_->epollFd, EPOLL_CTL_DEL, it->second->fd, nullptr) != 0) {
        const int error = errno;
        if (error != ENOENT && error != EBADF)
            kyLogWarning(kCategory) << "Cannot remove descriptor" << it->second->fd << "-" << errnoText(error);
    }
    core_->watches.erase(it);
    return true;
}

int KyIoDispatcher::watchCount() const {
    std::lock_guard<std::mutex> lock(core_->mutex);
    return static_cast<int>(core_->watches.size());
}

long long KyIoDispatcher::dispatchCount() const {
    return core_->dispatches.load(std::memory_order_relaxed);
}
