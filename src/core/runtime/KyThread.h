// ky::atomic::Thread: a thread that runs its own KyCoreApplication, and the
// unit that KyObjects belong to.
//
// A started Thread runs threadEntry() on its own std::thread:
//   1. names itself for the log (KyDebug::setThreadName) and becomes the
//      calling thread's currentThread();
//   2. constructs its KyCoreApplication on that thread;
//   3. under the pending-task mutex, publishes the application and moves the
//      tasks posted so far to it (lane 2), so they run in posting order once
//      the loop starts;
//   4. runs exec() until quit();
//   5. leaves the live set (from here on postTaskToThread falls back to the
//      caller), withdraws the application and runs, on this thread, any task
//      that reached the pending list in between, so no task is left nowhere;
//   6. destroys the application on its own thread.
// The process's first thread is adopted as "MainThread" the first time it asks
// for currentThread(); it has no std::thread, and learns of the application
// that runs on it from the loop registry (KyCoreApplicationRegistryObserver):
// an application registered on an adopted thread is published there and gets
// its pending tasks; when it unregisters it is withdrawn. Other threads that
// were not started here have no Thread.
//
// postTask, quit, attachObject, detachObject, isLive and currentThread may be
// called from any thread; start and wait from any thread but the Thread itself.
// Lock order: the object liveness lock (KyObject), then the live-thread lock,
// then a Thread's pending-task or attached-object mutex, then the
// application's own locks.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include "core/runtime/KyFiberLane.h"
#include "core/types/KyString.h"

class KyCoreApplication;
class KyObject;

namespace ky::atomic {

/// A thread with its own event loop; objects created on it belong to it.
class Thread {
public:
    explicit Thread(const KyString& name = KyString());
    /// Quits the loop and joins the thread when it still runs.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// The Thread of the calling thread: the one that started it, the adopted
    /// main thread, or null for a thread that was not started by a Thread.
    static Thread* currentThread();
    /// True while the pointer names a Thread that is started and has not
    /// finished its loop (the adopted main thread is always live).
    static bool isLive(const Thread* thread);
    /// A started thread, created once per process and never stopped, that
    /// takes tasks for callers that have no Thread of their own.
    static Thread* sharedFallbackThread();
    /// The Thread registered for a std::thread id, or null.
    static Thread* fromThreadId(std::thread::id id);

    /// Starts the thread and its loop. False when it already runs.
    bool start();
    /// Posts the request that ends the loop; the thread then tears down.
    void quit();
    /// Joins the thread. False when called on the thread itself or when it was
    /// never started.
    bool wait();
    bool join() { return wait(); }
    /// True from start() until the thread has torn its loop down.
    bool isRunning() const { return running_.load(std::memory_order_acquire); }

    /// The native handle; 0 before start() (the adopted main thread has its own).
    pthread_t nativeHandle() const { return nativeHandle_.load(std::memory_order_acquire); }
    /// The thread's application; null until its loop exists and after it is torn down.
    KyCoreApplication* application() const { return application_.load(std::memory_order_acquire); }
    KyString name() const;
    /// Renames the thread; takes effect in the log at the next start().
    void setName(const KyString& name);

    /// Runs task on this thread: given to the loop on lane 2 when it exists,
    /// kept in the pending list until then.
    void postTask(std::function<void()> task);

    void attachObject(KyObject* object);
    void detachObject(KyObject* object);
    bool hasObject(const KyObject* object) const;
    std::size_t attachedObjectCount() const;

    /// Posts task to thread when it is live, under the live-thread lock so the
    /// Thread cannot be destroyed meanwhile. False when it is not live.
    static bool postTaskIfLive_(const Thread* thread, std::function<void()>& task);
    /// Detaches object from thread when the thread is live; nothing otherwise.
    static void detachObjectIfLive_(const Thread* thread, KyObject* object);
    /// Attaches object to thread when the thread is live. False otherwise.
    static bool attachObjectIfLive_(const Thread* thread, KyObject* object);

protected:
    /// The body of a started thread; see the order at the top of this file.
    virtual void threadEntry();

private:
    struct AdoptTag_ {};
    Thread(AdoptTag_, const KyString& name);

    class RegistryObserver_;
    friend class RegistryObserver_;

    void flushPendingTasks();
    void flushPendingTasksLocked_();
    /// Publishes application (under the pending mutex) and flushes the pending tasks to it.
    void publishApplication_(KyCoreApplication* application);
    /// Withdraws application if it is the published one.
    void withdrawApplication_(KyCoreApplication* application);
    static void ensureRegistryObserver_();
    static void registerLiveThread_(Thread* thread);
    static void unregisterLiveThread_(Thread* thread);
    static void registerThreadInstance(std::thread::id id, Thread* thread);
    static void unregisterThreadInstance_(std::thread::id id, Thread* thread);
    static Thread* adoptMainThread_();

    std::mutex joinMutex_;
    std::thread thread_;
    std::atomic<pthread_t> nativeHandle_{0};
    std::atomic<bool> running_{false};
    std::atomic<KyCoreApplication*> application_{nullptr};
    bool adopted_ = false;

    mutable std::mutex pendingMutex_;
    std::vector<std::pair<std::function<void()>, KyFiberLane>> pendingTasks_;
    KyString name_;

    mutable std::mutex objectsMutex_;
    std::unordered_set<KyObject*> objects_;
};

} // namespace ky::atomic
