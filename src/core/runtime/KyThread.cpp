// ky::atomic::Thread: start-up and tear-down of a thread's loop, the live-thread
// set, the adopted main thread and the pending-task hand-over. The model and
// the thread rules are in KyThread.h.
#include "core/runtime/KyThread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <exception>
#include <system_error>
#include <unordered_map>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyReadWriteLock.h"

namespace ky::atomic {

namespace {

constexpr const char* kCategory = "ky.core.runtime.kythread";

// The calling thread's Thread; t_lookedUp marks a foreign thread that was
// already found to have none, so it does not ask again.
thread_local Thread* t_current = nullptr;
thread_local bool t_lookedUp = false;

// Process-wide tables, never freed: threads may still ask about them while
// static destructors run.
struct Registry {
    KyReadWriteLock liveLock;
    std::unordered_set<const Thread*> live;
    std::mutex instancesMutex;
    std::unordered_map<std::thread::id, Thread*> instances;
};

Registry& registry() {
    static auto* r = new Registry();
    return *r;
}

bool isProcessMainThread() { return ::syscall(SYS_gettid) == ::getpid(); }

void runSafely(std::function<void()>& task) {
    try {
        if (task) task();
    } catch (const std::exception& e) {
        kyLogError(kCategory) << "Task left by a finished loop threw:" << e.what();
    } catch (...) {
        kyLogError(kCategory) << "Task left by a finished loop threw an unknown exception";
    }
}

} // namespace

/// Hears of every loop that registers or unregisters; an adopted thread learns
/// its application here, since nobody else constructs it on its behalf.
class Thread::RegistryObserver_ final : public KyCoreApplicationRegistryObserver {
public:
    void onRuntimeApplicationRegistered(KyCoreApplication* application, const KyString&) override {
        Thread* t = t_current;
        if (t && t->adopted_) t->publishApplication_(application);
    }
    void onRuntimeApplicationUnregistered(KyCoreApplication* application, const KyString&) override {
        if (Thread* t = t_current) t->withdrawApplication_(application);
    }
};

void Thread::ensureRegistryObserver_() {
    // Kept for the whole process, like the registry that calls it.
    static RegistryObserver_* observer = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        observer = new RegistryObserver_();
        KyCoreApplication::addRegistryObserver(observer);
    });
}

// ---------------------------------------------------------------------------
// Construction

Thread::Thread(const KyString& name) : name_(name.isEmpty() ? KyString("KyThread") : name) {}

Thread::Thread(AdoptTag_, const KyString& name) : adopted_(true), name_(name) {
    nativeHandle_.store(pthread_self(), std::memory_order_release);
    running_.store(true, std::memory_order_release);
}

Thread::~Thread() {
    if (isRunning()) {
        if (pthread_equal(pthread_self(), nativeHandle())) {
            // Deleted by its own task: it cannot join itself; the loop still ends.
            kyLogError(kCategory) << "Thread" << name() << "deleted from its own thread; detaching it";
            quit();
            std::lock_guard lock(joinMutex_);
            if (thread_.joinable()) thread_.detach();
        } else {
            quit();
            wait();
        }
    } else {
        wait();
    }
    unregisterLiveThread_(this);
}

Thread* Thread::currentThread() {
    if (t_current) return t_current;
    if (t_lookedUp) return nullptr;
    t_lookedUp = true;
    if (Thread* known = fromThreadId(std::this_thread::get_id())) return known;
    return isProcessMainThread() ? adoptMainThread_() : nullptr;
}

Thread* Thread::adoptMainThread_() {
    static Thread* mainThread = [] {
        auto* t = new Thread(AdoptTag_{}, KyString("MainThread"));
        registerLiveThread_(t);
        registerThreadInstance(std::this_thread::get_id(), t);
        return t;
    }();
    t_current = mainThread;
    KyDebug::setThreadName(mainThread->name());
    ensureRegistryObserver_();
    // A loop made before anybody asked for the main Thread is picked up now;
    // later ones arrive through the registry observer.
    if (KyCoreApplication* app = KyCoreApplication::instance(false)) mainThread->publishApplication_(app);
    return mainThread;
}

Thread* Thread::sharedFallbackThread() {
    static std::once_flag once;
    static Thread* fallback = nullptr;
    std::call_once(once, [] {
        auto* t = new Thread(KyString("KyFallbackCoreThread"));
        if (t->start())
            fallback = t;
        else
            delete t;
    });
    return fallback;
}

Thread* Thread::fromThreadId(std::thread::id id) {
    Registry& r = registry();
    std::lock_guard lock(r.instancesMutex);
    auto it = r.instances.find(id);
    return it == r.instances.end() ? nullptr : it->second;
}

// ---------------------------------------------------------------------------
// Live set and instance map

bool Thread::isLive(const Thread* thread) {
    if (!thread) return false;
    Registry& r = registry();
    KyReadLocker lock(r.liveLock);
    return r.live.count(thread) != 0;
}

void Thread::registerLiveThread_(Thread* thread) {
    Registry& r = registry();
    KyWriteLocker lock(r.liveLock);
    r.live.insert(thread);
}

void Thread::unregisterLiveThread_(Thread* thread) {
    Registry& r = registry();
    KyWriteLocker lock(r.liveLock);
    r.live.erase(thread);
}

void Thread::registerThreadInstance(std::thread::id id, Thread* thread) {
    Registry& r = registry();
    std::lock_guard lock(r.instancesMutex);
    r.instances[id] = thread;
}

void Thread::unregisterThreadInstance_(std::thread::id id, Thread* thread) {
    Registry& r = registry();
    std::lock_guard lock(r.instancesMutex);
    auto it = r.instances.find(id);
    if (it != r.instances.end() && it->second == thread) r.instances.erase(it);
}

bool Thread::postTaskIfLive_(const Thread* thread, std::function<void()>& task) {
    if (!thread) return false;
    Registry& r = registry();
    // Held across the post so the Thread cannot be destroyed under us.
    KyReadLocker lock(r.liveLock);
    if (!r.live.count(thread)) return false;
    const_cast<Thread*>(thread)->postTask(std::move(task));
    return true;
}

void Thread::detachObjectIfLive_(const Thread* thread, KyObject* object) {
    if (!thread) return;
    Registry& r = registry();
    KyReadLocker lock(r.liveLock);
    if (r.live.count(thread)) const_cast<Thread*>(thread)->detachObject(object);
}

bool Thread::attachObjectIfLive_(const Thread* thread, KyObject* object) {
    if (!thread) return false;
    Registry& r = registry();
    KyReadLocker lock(r.liveLock);
    if (!r.live.count(thread)) return false;
    const_cast<Thread*>(thread)->attachObject(object);
    return true;
}

// ---------------------------------------------------------------------------
// Running

bool Thread::start() {
    if (adopted_) return false;
    std::lock_guard lock(joinMutex_);
    if (isRunning()) return false;
    // A previous run has ended its loop; collect it before starting anew.
    if (thread_.joinable()) thread_.join();
    ensureRegistryObserver_();
    running_.store(true, std::memory_order_release);
    // Live before the thread exists: tasks posted from now on wait in the
    // pending list and run once the loop starts.
    registerLiveThread_(this);
    try {
        thread_ = std::thread([this] { threadEntry(); });
    } catch (const std::system_error& e) {
        unregisterLiveThread_(this);
        running_.store(false, std::memory_order_release);
        kyLogError(kCategory) << "Could not start thread" << name() << ":" << e.what();
        return false;
    }
    nativeHandle_.store(thread_.native_handle(), std::memory_order_release);
    return true;
}

void Thread::threadEntry() {
    // 1.
    t_current = this;
    t_lookedUp = true;
    nativeHandle_.store(pthread_self(), std::memory_order_release);
    const std::thread::id id = std::this_thread::get_id();
    registerThreadInstance(id, this);
    KyDebug::setThreadName(name());
    // 2.
    KyCoreApplication* app = nullptr;
    try {
        app = new KyCoreApplication();
    } catch (const std::exception& e) {
        kyLogError(kCategory) << "Thread" << name() << "could not create its loop:" << e.what();
    }
    // 3-4.
    if (app) {
        publishApplication_(app);
        app->exec(0);
    }
    // 5. Once out of the live set nobody posts here through postTaskToThread;
    // what reached the pending list meanwhile runs now rather than nowhere.
    unregisterLiveThread_(this);
    std::vector<std::pair<std::function<void()>, KyFiberLane>> leftovers;
    {
        std::lock_guard lock(pendingMutex_);
        application_.store(nullptr, std::memory_order_release);
        leftovers.swap(pendingTasks_);
    }
    for (auto& entry : leftovers) runSafely(entry.first);
    // 6. The loop is destroyed on its own thread.
    delete app;
    unregisterThreadInstance_(id, this);
    t_current = nullptr;
    running_.store(false, std::memory_order_release);
}

void Thread::quit() {
    auto stop = [] {
        if (KyCoreApplication* app = KyCoreApplication::instance(false)) app->quit();
    };
    std::lock_guard lock(pendingMutex_);
    if (KyCoreApplication* app = application_.load(std::memory_order_acquire)) {
        // A full pool must not keep a thread from stopping.
        if (!app->postEventOnLane(stop, KyFiberLaneDefault)) app->quit();
        return;
    }
    pendingTasks_.emplace_back(std::move(stop), KyFiberLaneDefault);
}

bool Thread::wait() {
    if (adopted_) return false;
    const pthread_t self = pthread_self();
    std::lock_guard lock(joinMutex_);
    if (!thread_.joinable()) return false;
    if (pthread_equal(self, thread_.native_handle())) return false;
    thread_.join();
    return true;
}

KyString Thread::name() const {
    std::lock_guard lock(pendingMutex_);
    return name_;
}

void Thread::setName(const KyString& name) {
    std::lock_guard lock(pendingMutex_);
    name_ = name;
}

// ---------------------------------------------------------------------------
// Tasks

void Thread::postTask(std::function<void()> task) {
    if (!task) return;
    std::lock_guard lock(pendingMutex_);
    // Under the pending mutex, so a task can't slip in behind a flush and overtake the ones before it.
    if (KyCoreApplication* app = application_.load(std::memory_order_acquire)) {
        app->postEventOnLane(std::move(task), KyFiberLaneDefault);
        return;
    }
    pendingTasks_.emplace_back(std::move(task), KyFiberLaneDefault);
}

void Thread::flushPendingTasks() {
    std::lock_guard lock(pendingMutex_);
    flushPendingTasksLocked_();
}

void Thread::flushPendingTasksLocked_() {
    KyCoreApplication* app = application_.load(std::memory_order_acquire);
    if (!app) return;
    for (auto& [task, lane] : pendingTasks_) app->postEventOnLane(std::move(task), lane);
    pendingTasks_.clear();
}

void Thread::publishApplication_(KyCoreApplication* application) {
    // Publishing and flushing in one hold of the mutex: a task posted meanwhile
    // cannot reach the loop ahead of the ones that were waiting.
    std::lock_guard lock(pendingMutex_);
    application_.store(application, std::memory_order_release);
    flushPendingTasksLocked_();
}

void Thread::withdrawApplication_(KyCoreApplication* application) {
    std::lock_guard lock(pendingMutex_);
    if (application_.load(std::memory_order_acquire) == application)
        application_.store(nullptr, std::memory_order_release);
}

// ---------------------------------------------------------------------------
// Attached objects

void Thread::attachObject(KyObject* object) {
    if (!object) return;
    std::lock_guard lock(objectsMutex_);
    objects_.insert(object);
}

void Thread::detachObject(KyObject* object) {
    std::lock_guard lock(objectsMutex_);
    objects_.erase(object);
}

bool Thread::hasObject(const KyObject* object) const {
    std::lock_guard lock(objectsMutex_);
    return objects_.count(const_cast<KyObject*>(object)) != 0;
}

std::size_t Thread::attachedObjectCount() const {
    std::lock_guard lock(objectsMutex_);
    return objects_.size();
}

} // namespace ky::atomic
