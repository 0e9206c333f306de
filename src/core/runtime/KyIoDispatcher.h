// KyIoDispatcher: watches file descriptors with epoll on a thread of its own
// and hands every readiness to the loop that asked for it.
//
// Each KyCoreApplication owns one dispatcher; startLinuxBackend_ creates the
// epoll set, a wake eventfd and the epoll thread. The epoll thread never runs
// a handler: for a ready descriptor it builds a small function and gives it to
// the watch's `dispatcher`, which the caller makes post to its own loop (for
// example `[app](auto fn) { app->postEventOnLane(std::move(fn), 1); }`), so the
// handler runs on the owning loop.
//
// Readiness model: every watch is registered one-shot. After one readiness is
// reported the descriptor is disarmed until the handler has run (or the posted
// function was dropped without running); then it is re-armed with the same
// interest. Re-arming is level-triggered, so a handler may read only part of
// what is pending and will be called again, and a slow loop receives at most
// one outstanding dispatch per watch instead of a flood.
//
// Threads: watchFd and unwatch are safe from any thread, also from inside a
// handler or a dispatcher. After unwatch returns, no new dispatch for that id
// starts and a dispatch already posted does not call the handler; a handler
// already running on another thread is not waited for. One descriptor may be
// watched once at a time. The destructor wakes the epoll thread through the
// eventfd and joins it; posted functions that outlive the dispatcher do
// nothing. The epoll thread blocks the asynchronous signals, so SIGINT,
// SIGTERM and SIGUSR2 reach the loop threads, not it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

/// Epoll-backed readiness watcher whose handlers run on the caller's loop.
class KyIoDispatcher {
public:
    /// Interest and readiness bits; the values are those of epoll.
    static constexpr uint32_t Readable = 0x001;
    static constexpr uint32_t Priority = 0x002;
    static constexpr uint32_t Writable = 0x004;
    static constexpr uint32_t Error = 0x008;
    static constexpr uint32_t HangUp = 0x010;
    static constexpr uint32_t PeerClosed = 0x2000;

    /// Receives the function that runs the handler; must hand it to the owning loop.
    using Dispatcher = std::function<void(std::function<void()>)>;
    /// Called on the owning loop with the descriptor and the ready bits.
    using Handler = std::function<void(int fd, uint32_t revents)>;

    KyIoDispatcher();
    /// Stops the epoll thread (wakes and joins it) and forgets every watch.
    ~KyIoDispatcher();
    KyIoDispatcher(const KyIoDispatcher&) = delete;
    KyIoDispatcher& operator=(const KyIoDispatcher&) = delete;

    /// Creates the epoll set and starts the epoll thread; true when it runs
    /// (also when it ran already). Failures are logged and give false.
    bool startLinuxBackend_();
    /// Wakes and joins the epoll thread; watches stay registered but idle.
    void stopLinuxBackend_();
    bool isRunning() const;

    /// Watches fd for events (Readable, Writable, ...). Returns a non-zero id,
    /// or 0 (logged) for a bad descriptor, a descriptor already watched, an
    /// empty dispatcher or handler, or an epoll failure. Starts the backend if
    /// it is not running yet.
    int watchFd(int fd, uint32_t events, Dispatcher dispatcher, Handler handler);
    /// Removes a watch by id; false for an unknown id.
    bool unwatch(int id);
    /// Number of live watches.
    int watchCount() const;
    /// Readiness reports handed to dispatchers since construction.
    long long dispatchCount() const;

private:
    struct Core_;
    std::shared_ptr<Core_> core_;
};
