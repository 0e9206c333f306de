// LoopPoller: runs the polling closures of every IPC subscription of this
// process when another process says "look".
//
// A writer, after changing a channel, sends a one-byte datagram to the
// abstract socket "ky_ipc_notify_<pid>" of each listening process. The
// datagram carries nothing: it makes the I/O dispatcher of the application
// fire, the handler drains the queued datagrams (so a burst costs one pass)
// and runs all closures on the event loop; each closure decides by comparing
// sequence numbers. A lost datagram is harmless as long as another arrives.
// The per-process dispatch table in shared memory lists this image's
// dispatch function, as peers expect, but is never trusted: a wake-up calls
// only the functions this process registered itself, and an entry it did not
// write (a dead process's, or anybody's) is ignored with one log line.
//
// Threads: add, remove and notifyPid may be called from any thread. Closures
// run on the thread of the loop that owns the dispatcher, or on the caller of
// tick_(). Lock order: the task mutex, then the wake-up mutex. Dispatch-table
// entries change only by compare-exchange.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace ky::ipc::detail {

/// Per-process table of dispatch functions, in the shared object
/// "/ky_ipc_dispatch_tbl_v1_<pid>" (520 bytes, mode 0600). A table that
/// already exists when this process first maps it is a dead process's of the
/// same pid and is reset.
class LoopPollerDispatchRegistry {
public:
    static constexpr uint32_t kMagic = 0x44535031;
    static constexpr uint32_t kVersion = 1;
    static constexpr int kEntries = 64;

    struct Table {
        uint32_t magic;
        uint32_t version;
        std::atomic<uint64_t> entries[kEntries];
    };

    /// The mapped table, or null when it cannot be made (tried again next time).
    static Table* table();
    /// Removes this process's table object at exit (the mapping stays valid).
    static void release_();
};

/// The process's set of subscription closures and its wake-up socket.
class LoopPoller {
public:
    struct Task {
        std::atomic<uint8_t> active{1};
        std::function<void()> closure;
    };

    /// Wake-up socket state and the datagram sender.
    struct IpcWakeup {
        /// Sends one wake-up to pid; failures (no listener, full queue) are ignored.
        static void notifyPid(uint32_t pid);
        /// The abstract address "\0ky_ipc_notify_<pid>" and its length.
        static void fillAddr_(uint32_t pid, sockaddr_un& addr, socklen_t& len);
    };

    static LoopPoller& instance();

    /// Records a closure; binds the wake-up socket under a running application
    /// and posts one pass, so the new subscription sees what came before it.
    uint64_t add(std::function<void()> closure);
    /// Forgets a task (safe from inside its own closure); the last removal
    /// takes the process off the socket name.
    void remove(uint64_t id);
    /// Runs every active closure once on the calling thread.
    void tick_();
    /// instance().tick_(): the address kept in the dispatch table.
    static void dispatchSelf_();

    /// Number of tasks (for tests and the inspector).
    size_t taskCount() const;
    /// True while the wake-up socket is bound and watched.
    bool attached() const;

private:
    LoopPoller() = default;
    void attach_();
    void detach_();

    mutable std::mutex mutex_;
    uint64_t nextId_ = 1;
    std::map<uint64_t, std::shared_ptr<Task>> tasks_;
};

}  // namespace ky::ipc::detail
