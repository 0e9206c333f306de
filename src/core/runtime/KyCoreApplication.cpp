// KyCoreApplication: construction and teardown, one loop step, the wait,
// posting, object event delivery, yield routing and the Unix signals.
//
// Runs on the owning thread except where KyCoreApplication.h says otherwise.
// Process-wide state (the instance registry, its observers, the terminate
// flag and descriptor, the yield id counter) lives in function-local statics
// or lock-free atomics, so it is usable from any thread and, for the terminate
// pair, from a signal handler.
#include "core/runtime/KyCoreApplication.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "core/io/KyDebug.h"
#include "core/io/KyFile.h"
#include "core/object/KyEvent.h"
#include "core/object/KyObject.h"
#include "core/runtime/KyIoDispatcher.h"
#include "core/runtime/KyRuntimeProfiler.h"
#include "core/runtime/KyRuntimeProfilerSession.h"
#include "core/runtime/KyRuntimeWatchdog.h"
#include "core/runtime/KyThread.h"
#include "core/runtime/linux_fiber.h"

namespace {

constexpr const char* kCategory = "ky.core.runtime.kycoreapplication";

using Clock = std::chrono::steady_clock;

// Never destroyed: loops of other threads, and their observers, may still
// use the registry while static destructors run at process exit.
std::mutex& instanceRegistryMutex() {
    static auto* m = new std::mutex;
    return *m;
}

std::map<std::thread::id, KyCoreApplication*>& instanceRegistry() {
    static auto* r = new std::map<std::thread::id, KyCoreApplication*>;
    return *r;
}

std::mutex& instanceRegistryObserversMutex_() {
    static auto* m = new std::mutex;
    return *m;
}

std::vector<KyCoreApplicationRegistryObserver*>& instanceRegistryObservers_() {
    static auto* v = new std::vector<KyCoreApplicationRegistryObserver*>;
    return *v;
}

thread_local KyCoreApplication* threadLocalInstance_ = nullptr;

// Written by the signal handler: lock-free atomics only.
std::atomic<int> unixTerminateRequested_{0};
std::atomic<int> unixTerminateEventFd_{-1};
static_assert(std::atomic<int>::is_always_lock_free);

std::atomic<uint32_t> yieldIdCounter{0};
std::atomic<uint64_t> runtimeApplicationCounter{0};
pthread_once_t signalHandlersOnce = PTHREAD_ONCE_INIT;

long long microsecondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration_cast<std::chrono::microseconds>(to - from).count();
}

void writeOne(int fd) {
    if (fd < 0) return;
    const uint64_t one = 1;
    ssize_t n;
    do {
        n = ::write(fd, &one, sizeof one);
    } while (n < 0 && errno == EINTR);
    // EAGAIN means the counter is already non-zero: the reader wakes anyway.
}

void drain(int fd) {
    uint64_t value = 0;
    while (::read(fd, &value, sizeof value) == static_cast<ssize_t>(sizeof value)) {
    }
}

std::vector<KyCoreApplicationRegistryObserver*> copyObservers() {
    std::lock_guard lock(instanceRegistryObserversMutex_());
    return instanceRegistryObservers_();
}

} // namespace

// ---------------------------------------------------------------------------
// Timers

struct KyCoreApplication::TimerRecord_ {
    KyCoreApplication* application = nullptr;
    int id = 0;
    std::function<void()> fn;
    long long intervalUs = 0;
    bool singleShot = false;
    KyFiberLane lane = KyFiberLaneDefault;
    bool inFlight = false;
    bool removed = false;
    Clock::time_point lastFire;
};

// The posted function of one timer firing. It owns the firing: run, it
// dispatches the timer; destroyed unrun (refused by a saturated pool, dropped
// for want of a slot, cleared at shutdown), it gives the firing back so the
// timer is neither stuck in flight nor kept alive after its removal.
class KyCoreApplication::TimerDispatch_ {
public:
    explicit TimerDispatch_(TimerRecord_* record) : record_(record) {}
    // std::function needs copies; the firing moves with the copy.
    TimerDispatch_(const TimerDispatch_& other) : record_(other.record_) { other.record_ = nullptr; }
    TimerDispatch_& operator=(const TimerDispatch_&) = delete;
    ~TimerDispatch_() {
        if (record_) record_->application->abandonTimerDispatch_(record_);
    }
    void operator()() {
        TimerRecord_* record = record_;
        record_ = nullptr;
        if (record) record->application->runTimer_(record);
    }

private:
    mutable TimerRecord_* record_;
};

int KyCoreApplication::addTimer(std::function<void()> fn, int intervalUs, bool singleShot, KyFiberLane lane) {
    auto record = std::make_unique<TimerRecord_>();
    record->application = this;
    record->fn = std::move(fn);
    record->intervalUs = std::max(0, intervalUs);
    record->singleShot = singleShot;
    record->lane = lane;
    record->lastFire = Clock::now();
    int id;
    {
        std::lock_guard lock(timerMutex_);
        id = nextTimerId_++;
        record->id = id;
        timers_.emplace(id, std::move(record));
        timerCount_.fetch_add(1, std::memory_order_acq_rel);
        nextTimerScan_ = Clock::time_point::min();
    }
    // A parked loop must recompute its wait.
    wakeFromAnyThread_();
    return id;
}

void KyCoreApplication::removeTimer(int timerId) {
    std::unique_ptr<TimerRecord_> doomed;
    {
        std::lock_guard lock(timerMutex_);
        auto it = timers_.find(timerId);
        if (it == timers_.end()) return;
        std::unique_ptr<TimerRecord_> record = std::move(it->second);
        timers_.erase(it);
        timerCount_.fetch_sub(1, std::memory_order_acq_rel);
        record->removed = true;
        if (record->inFlight) removedTimers_.push_back(std::move(record));
        else doomed = std::move(record);
    }
    // The timer's function (and what it captured) goes outside the lock.
}

int KyCoreApplication::timerCount() const { return timerCount_.load(std::memory_order_acquire); }

int KyCoreApplication::processTimers() {
    if (timerCount_.load(std::memory_order_acquire) == 0) return kNoTimerMicroseconds;
    std::vector<TimerRecord_*> due;
    due.swap(dueScratch_);
    due.clear();
    long long next = kNoTimerMicroseconds;
    const Clock::time_point now = Clock::now();
    {
        std::lock_guard lock(timerMutex_);
        if (now < nextTimerScan_) {
            dueScratch_.swap(due);
            if (nextTimerScan_ == Clock::time_point::max()) return kNoTimerMicroseconds;
            return static_cast<int>(std::min<long long>(microsecondsBetween(now, nextTimerScan_), kNoTimerMicroseconds));
        }
        // Due timers are only posted while the pool has room for them; the
        // rest stay due and are looked at again at the next step, instead of
        // being refused one by one.
        const KyFiberPool::Admission room = pool_.admissionSnapshot();
        int posting = 0;
        bool saturated = false;
        for (auto& [id, record] : timers_) {
            // A timer in flight waits for its dispatch to end before it is
            // looked at again, so a slow timer never piles up posts.
            if (record->inFlight) continue;
            const Clock::time_point dueAt = record->lastFire + std::chrono::microseconds(record->intervalUs);
            if (dueAt > now) {
                next = std::min(next, microsecondsBetween(now, dueAt));
                continue;
            }
            const int limit = (record->lane == 0 || record->lane == 1) ? room.base + room.reserve : room.base;
            if (room.load + posting >= limit) {
                saturated = true;
                next = 0;
                break;
            }
            ++posting;
            record->inFlight = true;
            // Keep the cadence, but a timer more than one period behind
            // skips the periods it missed instead of firing in a burst.
            record->lastFire = dueAt;
            if (record->lastFire + std::chrono::microseconds(record->intervalUs) <= now) record->lastFire = now;
            due.push_back(record.get());
        }
        if (saturated) nextTimerScan_ = Clock::time_point::min();
        else if (next >= kNoTimerMicroseconds) nextTimerScan_ = Clock::time_point::max();
        else nextTimerScan_ = now + std::chrono::microseconds(next);
    }
    for (TimerRecord_* record : due) {
        // Refused (another thread filled the pool meanwhile): the dispatch
        // object gives the firing back as it goes.
        if (!postEventOnLaneImpl_(TimerDispatch_(record), record->lane, true)) next = 0;
    }
    due.clear();
    dueScratch_.swap(due);
    return static_cast<int>(std::min<long long>(next, kNoTimerMicroseconds));
}

std::unique_ptr<KyCoreApplication::TimerRecord_> KyCoreApplication::takeRemovedTimerLocked_(TimerRecord_* record) {
    auto it = std::find_if(removedTimers_.begin(), removedTimers_.end(),
                           [record](const auto& r) { return r.get() == record; });
    if (it == removedTimers_.end()) return nullptr;
    std::unique_ptr<TimerRecord_> taken = std::move(*it);
    removedTimers_.erase(it);
    return taken;
}

void KyCoreApplication::runTimer_(TimerRecord_* record) {
    std::unique_ptr<TimerRecord_> doomed;
    {
        std::lock_guard lock(timerMutex_);
        if (record->removed) {
            doomed = takeRemovedTimerLocked_(record);
            return;
        }
    }
    // In flight, the record stays alive however the timer is removed meanwhile.
    KyFiberPool::executeCallbackSafely_(record->fn);
    std::lock_guard lock(timerMutex_);
    record->inFlight = false;
    nextTimerScan_ = Clock::time_point::min();
    if (record->removed) {
        doomed = takeRemovedTimerLocked_(record);
    } else if (record->singleShot) {
        auto it = timers_.find(record->id);
        if (it != timers_.end()) {
            doomed = std::move(it->second);
            timers_.erase(it);
            timerCount_.fetch_sub(1, std::memory_order_acq_rel);
        }
    }
    // doomed is destroyed after the lock is released (declared first).
}

void KyCoreApplication::abandonTimerDispatch_(TimerRecord_* record) {
    std::unique_ptr<TimerRecord_> doomed;
    std::lock_guard lock(timerMutex_);
    record->inFlight = false;
    nextTimerScan_ = Clock::time_point::min();
    if (record->removed) doomed = takeRemovedTimerLocked_(record);
}

// ---------------------------------------------------------------------------
// Construction and teardown

KyCoreApplication::KyCoreApplication() {
    // Built without arguments, the process's main loop still sees the command
    // line, so start-up switches ("--background", ...) reach its argument table.
    if (static_cast<pid_t>(syscall(SYS_gettid)) == getpid()) setArgumentsFromProcess_();
    construct_();
}

KyCoreApplication::KyCoreApplication(int argc, char** argv) {
    setArguments(argc, argv);
    construct_();
}

void KyCoreApplication::construct_() {
    ownerId_ = std::this_thread::get_id();
    ownerHash_ = std::hash<std::thread::id>{}(ownerId_);
    ownerHandle_ = pthread_self();
    runtimeApplicationId_ = nextRuntimeApplicationId_();

    ioDispatcher_ = std::make_unique<KyIoDispatcher>();
    ioDispatcher_->startLinuxBackend_();

    threadLocalInstance_ = this;
    {
        std::lock_guard lock(instanceRegistryMutex());
        instanceRegistry()[ownerId_] = this;
    }

    initFibers();

    const int fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) kyLogError(kCategory) << "eventfd failed for the loop's wake descriptor, errno" << errno;
    wakeFd_.store(fd, std::memory_order_release);

    pthread_once(&signalHandlersOnce, &KyCoreApplication::installUnixSignalHandlersOnce_);

    descriptor_ = runtimeApplicationDescriptor();
    for (auto* observer : copyObservers()) observer->onRuntimeApplicationRegistered(this, descriptor_);
}

void KyCoreApplication::initFibers() {
    mainFiber_ = linux_fiber::ConvertThreadToFiber(this);
    if (!mainFiber_) kyLogError(kCategory) << "Failed to convert main thread to fiber.";
    pool_.setMainFiber(mainFiber_);
    pool_.setStackSize(stackSize_ != 0 ? static_cast<std::size_t>(stackSize_) : KyFiberPool::kDefaultStackSize);
    pool_.setReserve(KyFiberPool::kDefaultReserve);
    pool_.setLimits(KyFiberPool::kDefaultMaxFibers, KyFiberPool::kDefaultMaxQueued);
    pool_.setRelay(ky::profiler::fiberDispatchRelay());
    if (auto* words = ky::profiler::fiberWatchWordsForCurrentThread())
        pool_.setPublishedWords(&words->runningFiber, &words->startMicroseconds, &words->preemptRequeue);
}

KyCoreApplication::~KyCoreApplication() {
    // 1. Telemetry sessions learn that their loop is going.
    std::vector<std::shared_ptr<KyRuntimeTelemetrySession>> telemetry;
    {
        std::lock_guard lock(sessionsMutex_);
        telemetry.swap(telemetrySessions_);
    }
    for (auto& session : telemetry)
        if (session) session->endOfLife();
    // 2.
    detachAllProfilerSessions();
    // 3.
    if (watchdog_) watchdog_->stop();
    // 4. The pool goes while the timers and queues it may refer to still exist.
    pool_.shutdown();
    const bool onOwnerThread = pthread_equal(pthread_self(), ownerHandle_) != 0;
    // The main fiber's record is only this thread's to free: another thread
    // would leave the owner's current-fiber pointer dangling.
    if (mainFiber_ && onOwnerThread) {
        pool_.setMainFiber(nullptr);
        linux_fiber::DeleteFiber(mainFiber_);
        mainFiber_ = nullptr;
    }
    // 5.
    std::map<int, std::unique_ptr<TimerRecord_>> timers;
    std::vector<std::unique_ptr<TimerRecord_>> removed;
    {
        std::lock_guard lock(timerMutex_);
        timers.swap(timers_);
        removed.swap(removedTimers_);
        timerCount_.store(0, std::memory_order_release);
    }
    timers.clear();
    removed.clear();
    // 6.
    const int fd = wakeFd_.exchange(-1, std::memory_order_acq_rel);
    if (fd >= 0) ::close(fd);
    // 7.
    const KyString descriptor = descriptor_;
    if (threadLocalInstance_ == this) threadLocalInstance_ = nullptr;
    // 8.
    {
        std::lock_guard lock(instanceRegistryMutex());
        auto& registry = instanceRegistry();
        auto it = registry.find(ownerId_);
        if (it != registry.end() && it->second == this) registry.erase(it);
    }
    for (auto* observer : copyObservers()) observer->onRuntimeApplicationUnregistered(this, descriptor);
    // 9. The dispatcher's thread is woken and joined before anything else goes.
    ioDispatcher_.reset();
    // 10. Undelivered events die with their queues.
    std::deque<PostedObjectEvent_> high;
    std::deque<PostedObjectEvent_> normal;
    {
        std::lock_guard lock(eventMutex_);
        high.swap(highEvents_);
        normal.swap(normalEvents_);
    }
    for (auto& posted : high) delete posted.event;
    for (auto& posted : normal) delete posted.event;
}

KyCoreApplication* KyCoreApplication::instance(bool create) {
    KyCoreApplication* app = threadLocalInstance_;
    if (!app && create) app = new KyCoreApplication();
    return app;
}

// ---------------------------------------------------------------------------
// The loop

int KyCoreApplication::exec(int timeoutMicroseconds) {
    bindProfilerSessions_(true);
    const Clock::time_point start = Clock::now();
    Clock::time_point last = start;
    const bool timed = timeoutMicroseconds != 0;
    while (running_.load(std::memory_order_acquire)) {
        busyMicroseconds_ = 0;
        const Clock::time_point t0 = Clock::now();
        int r = processEvent(false);
        const Clock::time_point t1 = Clock::now();
        busyMicroseconds_ = microsecondsBetween(t0, t1);
        if (timed && r != 0) {
            // A time-limited loop never waits past its limit.
            const long long left = std::max<long long>(0, timeoutMicroseconds - microsecondsBetween(start, t1));
            r = static_cast<int>(r < 0 ? left : std::min<long long>(r, left));
        }
        if (running_.load(std::memory_order_acquire) && r != 0) waitForWork_(r);
        const Clock::time_point now = Clock::now();
        const long long iteration = microsecondsBetween(last, now);
        recordIteration_(now, busyMicroseconds_, iteration);
        ky::profiler::publishRuntimeIterationSnapshot(busyMicroseconds_, iteration);
        if (timed && microsecondsBetween(start, now) >= timeoutMicroseconds) break;
        last = now;
    }
    return exitCode_.load(std::memory_order_acquire);
}

int KyCoreApplication::processEvent(bool waitIfIdle) {
    // 1. A terminate signal ends every loop of the process.
    if (unixTerminateRequested_.load(std::memory_order_acquire)) {
        terminateAllInstances_();
        if (!running_.load(std::memory_order_acquire)) return 0;
    }

    // 2.
    std::unique_lock lock(eventMutex_);
    if (waitIfIdle) {
        conditionWaiters_.fetch_add(1);
        while (running_.load(std::memory_order_acquire) && highEvents_.empty() && normalEvents_.empty() &&
               timerCount_.load(std::memory_order_acquire) == 0 && !pool_.hasWork() &&
               !unixTerminateRequested_.load(std::memory_order_acquire)) {
            eventCondition_.wait(lock);
        }
        conditionWaiters_.fetch_sub(1);
    }

    // 3. Lane 0 first.
    if (pool_.hasUrgentWork()) {
        lock.unlock();
        bindProfilerSessions_();
        if (pool_.runNextWorkItem()) return 0;
        lock.lock();
    }

    // 4. One high-priority object event.
    if (!highEvents_.empty()) {
        PostedObjectEvent_ posted = highEvents_.front();
        highEvents_.pop_front();
        lock.unlock();
        deliverPosted_(posted);
        return 0;
    }

    // 5. Timers; what they posted on lane 0 runs at once.
    lock.unlock();
    const int timerAnswer = processTimers();
    bindProfilerSessions_();
    if (pool_.runNextWorkItem()) return 0;

    // 6. Lanes 1 to 3, by credits.
    lock.lock();
    if (pool_.hasLaneWork()) {
        lock.unlock();
        if (runFiberPoolWork_()) return 0;
        lock.lock();
    }

    // 7. One normal object event.
    if (!normalEvents_.empty()) {
        PostedObjectEvent_ posted = normalEvents_.front();
        normalEvents_.pop_front();
        lock.unlock();
        deliverPosted_(posted);
        return 0;
    }

    // 8. Look once more: something may have arrived meanwhile.
    lock.unlock();
    lock.lock();
    if (!highEvents_.empty() || !normalEvents_.empty() || pool_.hasWork()) return 0;
    return timerAnswer == kNoTimerMicroseconds ? -1 : timerAnswer;
}

void KyCoreApplication::waitForWork_(int timeoutMicroseconds) {
    if (!running_.load(std::memory_order_acquire)) return;
    struct pollfd fds[3];
    nfds_t count = 0;
    const int wake = wakeFd_.load(std::memory_order_acquire);
    const int terminate = unixTerminateEventFd_.load(std::memory_order_acquire);
    int wakeIndex = -1;
    int terminateIndex = -1;
    if (wake >= 0) {
        wakeIndex = static_cast<int>(count);
        fds[count++] = {wake, POLLIN, 0};
    }
    if (terminate >= 0) {
        terminateIndex = static_cast<int>(count);
        fds[count++] = {terminate, POLLIN, 0};
    }

    int result;
    if (timeoutMicroseconds < 0) {
        // Without any descriptor nothing could wake an endless poll: look again now and then.
        result = ::poll(fds, count, count == 0 ? 10 : -1);
    } else {
        const int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
        if (timer >= 0) {
            // timerfd gives microsecond waits where poll has only milliseconds.
            struct itimerspec arm {};
            arm.it_value.tv_sec = timeoutMicroseconds / 1000000;
            arm.it_value.tv_nsec = static_cast<long>(timeoutMicroseconds % 1000000) * 1000;
            if (arm.it_value.tv_sec == 0 && arm.it_value.tv_nsec == 0) arm.it_value.tv_nsec = 1;
            if (::timerfd_settime(timer, 0, &arm, nullptr) == 0) {
                fds[count] = {timer, POLLIN, 0};
                result = ::poll(fds, count + 1, -1);
            } else {
                result = ::poll(fds, count, (timeoutMicroseconds + 999) / 1000);
            }
            ::close(timer);
        } else {
            result = ::poll(fds, count, static_cast<int>((static_cast<long long>(timeoutMicroseconds) + 999) / 1000));
        }
    }
    // EINTR (a signal arrived) simply ends this wait; the loop looks again.
    if (result <= 0) return;
    if (wakeIndex >= 0 && (fds[wakeIndex].revents & POLLIN)) drain(wake);
    if (terminateIndex >= 0 && (fds[terminateIndex].revents & POLLIN)) {
        drain(terminate);
        terminateAllInstances_();
    }
}

bool KyCoreApplication::hasPendingWork_() const {
    std::lock_guard lock(eventMutex_);
    return !highEvents_.empty() || !normalEvents_.empty() || pool_.hasWork();
}

bool KyCoreApplication::runFiberPoolWork_() {
    bindProfilerSessions_();
    return pool_.runNextWorkItem();
}

void KyCoreApplication::bindProfilerSessions_(bool evenWhenIdle) {
    // Telemetry sessions only count as active once bound, so exec binds
    // whatever it has; the per-step calls skip the lock while nothing records.
    if (!evenWhenIdle && !ky::profiler::anySessionActive()) return;
    ky::profiler::SessionList sessions;
    ky::profiler::TelemetryList telemetry;
    {
        std::lock_guard lock(sessionsMutex_);
        for (const auto& s : profilerSessions_)
            if (s && s->isAttached()) sessions.push_back(s);
        for (const auto& t : telemetrySessions_)
            if (t) telemetry.push_back(t);
    }
    if (!telemetry.empty()) ky::profiler::bindTelemetrySessionsToCurrentThread(telemetry);
    if (!sessions.empty()) ky::profiler::bindSessionsToCurrentThread(sessions);
}

void KyCoreApplication::recordIteration_(Clock::time_point now, long long busy, long long iteration) {
    std::lock_guard lock(measurementMutex_);
    busySum_ += busy;
    iterationSum_ += iteration;
    measurements_.push_back({now, busy, iteration});
    const Clock::time_point horizon = now - std::chrono::seconds(1);
    while (!measurements_.empty() && measurements_.front().when < horizon) {
        busySum_ -= measurements_.front().busyMicroseconds;
        iterationSum_ -= measurements_.front().iterationMicroseconds;
        measurements_.pop_front();
    }
}

long long KyCoreApplication::busyMicrosecondsLastSecond() const {
    std::lock_guard lock(measurementMutex_);
    return busySum_;
}

long long KyCoreApplication::iterationMicrosecondsLastSecond() const {
    std::lock_guard lock(measurementMutex_);
    return iterationSum_;
}

int KyCoreApplication::iterationsLastSecond() const {
    std::lock_guard lock(measurementMutex_);
    return static_cast<int>(measurements_.size());
}

// ---------------------------------------------------------------------------
// Posting and waking

bool KyCoreApplication::postEvent(std::function<void()> fn) {
    return postEventOnLaneImpl_(std::move(fn), KyFiberLaneDefault, true);
}

bool KyCoreApplication::postEventOnLane(std::function<void()> fn, KyFiberLane lane) {
    return postEventOnLaneImpl_(std::move(fn), lane, true);
}

bool KyCoreApplication::postEventOnLaneImpl_(std::function<void()> fn, KyFiberLane lane, bool wrapProfiler) {
    // An empty function would leave its slot waiting for a task forever.
    if (!fn) return false;
    if (wrapProfiler && ky::profiler::anySessionActive()) {
        ky::profiler::SessionList sessions = ky::profiler::autoRuntimeProfilerSessionsForCurrentThread_();
        if (!sessions.empty()) fn = ky::profiler::wrapWithSessions(std::move(fn), std::move(sessions));
    }
    if (!pool_.admit(std::move(fn), lane)) {
        kyLogWarning(kCategory).nospace() << "KyFiberPool saturated; rejecting posted event on lane=" << lane;
        return false;
    }
    signalWork_();
    return true;
}

void KyCoreApplication::signalWork_() {
    // The owning thread is running, not parked: a post it makes to itself is
    // seen by the loop's next step without a wake-up.
    if (threadLocalInstance_ == this) return;
    if (conditionWaiters_.load() > 0) {
        // Taking the mutex orders this notify after the waiter's last look.
        { std::lock_guard lock(eventMutex_); }
        eventCondition_.notify_one();
    }
    writeOne(wakeFd_.load(std::memory_order_acquire));
}

void KyCoreApplication::wakeFromAnyThread_() {
    if (conditionWaiters_.load() > 0) {
        { std::lock_guard lock(eventMutex_); }
        eventCondition_.notify_all();
    }
    writeOne(wakeFd_.load(std::memory_order_acquire));
}

void KyCoreApplication::wakeUp() { wakeFromAnyThread_(); }

void KyCoreApplication::quit() {
    running_.exchange(false, std::memory_order_acq_rel);
    wakeFromAnyThread_();
}

void KyCoreApplication::exit(int code) {
    exitCode_.store(code, std::memory_order_release);
    quit();
}

void KyCoreApplication::postEvent(KyObject* receiver, KyEvent* event, int priority) {
    if (!receiver) {
        delete event;
        return;
    }
    if (!event) return;
    if (KyObject::isLive(receiver)) {
        ky::atomic::Thread* thread = receiver->thread();
        if (thread && ky::atomic::Thread::isLive(thread)) {
            const pthread_t handle = thread->nativeHandle();
            if (handle == 0 || !pthread_equal(handle, pthread_self())) {
                // The event is owned by the forwarding task, so a task that is
                // dropped on the way does not leak it.
                struct Carried {
                    KyEvent* event = nullptr;
                    ~Carried() { delete event; }
                };
                auto carried = std::make_shared<Carried>();
                carried->event = event;
                std::function<void()> task = [receiver, carried, priority, thread] {
                    KyCoreApplication* target = ky::atomic::Thread::isLive(thread) ? thread->application() : nullptr;
                    if (!target) target = KyCoreApplication::instance(false);
                    if (!KyObject::isLive(receiver) || !target) return;
                    KyEvent* ev = carried->event;
                    carried->event = nullptr;
                    target->postEvent(receiver, ev, priority);
                };
                if (ky::atomic::Thread::postTaskIfLive_(thread, task)) return;
                // The thread went away meanwhile: queue here, as for a receiver without one.
                event = carried->event;
                carried->event = nullptr;
            }
        }
    }
    {
        std::lock_guard lock(eventMutex_);
        (priority >= 1 ? highEvents_ : normalEvents_).push_back({receiver, event, priority});
    }
    signalWork_();
}

void KyCoreApplication::deliverPosted_(PostedObjectEvent_& posted) {
    if (posted.event && KyObject::isLive(posted.receiver)) notify(posted.receiver, posted.event);
    delete posted.event;
    posted.event = nullptr;
}

// ---------------------------------------------------------------------------
// Delivery

namespace {

bool threadsAllowFilter(KyObject* filter, KyObject* receiver) {
    ky::atomic::Thread* a = filter->thread();
    ky::atomic::Thread* b = receiver->thread();
    if (!a || !b || a == b) return true;
    if (!ky::atomic::Thread::isLive(a) || !ky::atomic::Thread::isLive(b)) return true;
    const pthread_t ha = a->nativeHandle();
    const pthread_t hb = b->nativeHandle();
    return ha != 0 && hb != 0 && pthread_equal(ha, hb);
}

// Filters are copied first: a filter may install or remove filters as it runs.
bool runFilters(const KyVector<KyObject*>& installed, KyObject* receiver, KyEvent* event) {
    if (installed.empty()) return false;
    const KyVector<KyObject*> filters = installed;
    for (auto it = filters.rbegin(); it != filters.rend(); ++it) {
        KyObject* filter = *it;
        if (!filter || !KyObject::isLive(filter) || !KyObject::isLive(receiver)) continue;
        if (!threadsAllowFilter(filter, receiver)) continue;
        if (filter->eventFilter(receiver, event)) {
            event->setAccepted(true);
            return true;
        }
    }
    return false;
}

struct InDeliveryRestore {
    KyEvent* event;
    bool saved;
    ~InDeliveryRestore() { event->setInDelivery(saved); }
};

} // namespace

bool KyCoreApplication::dispatchFilters_(const KyVector<KyObject*>& filters, KyObject* receiver, KyEvent* event) {
    return runFilters(filters, receiver, event);
}

bool KyCoreApplication::notify(KyObject* receiver, KyEvent* event) {
    if (!receiver || !event || !KyObject::isLive(receiver)) return false;
    bindProfilerSessions_();
    ky::profiler::MultiRuntimeScopedSpan_ span("object_event");
    InDeliveryRestore restore{event, event->inDelivery()};
    event->setInDelivery(true);
    if (dispatchFilters_(eventFilters_, receiver, event)) return true;
    if (!KyObject::isLive(receiver)) return false;
    if (dispatchFilters_(receiver->eventFilters(), receiver, event)) return true;
    if (!KyObject::isLive(receiver)) return false;
    return receiver->event(event);
}

bool KyCoreApplication::sendEvent(KyObject* receiver, KyEvent* event) {
    if (!receiver || !KyObject::isLive(receiver)) return false;
    if (KyCoreApplication* app = instance(false)) return app->notify(receiver, event);
    if (!event) return false;
    if (runFilters(receiver->eventFilters(), receiver, event)) return true;
    if (!KyObject::isLive(receiver)) return false;
    return receiver->event(event);
}

void KyCoreApplication::installEventFilter(KyObject* filter) {
    if (!filter) return;
    eventFilters_.push_back(filter);
}

void KyCoreApplication::removeEventFilter(KyObject* filter) {
    eventFilters_.erase(std::remove(eventFilters_.begin(), eventFilters_.end(), filter), eventFilters_.end());
}

// ---------------------------------------------------------------------------
// Yield ids

int KyCoreApplication::generateYieldId() {
    return static_cast<int>(~yieldIdCounter.fetch_add(1, std::memory_order_relaxed));
}

bool KyCoreApplication::yieldCurrentFiber(int yieldId, const std::atomic<bool>* keepWaiting) {
    KyCoreApplication* app = instance(false);
    if (!app) return false;
    return app->pool_.yieldCurrent(yieldId, keepWaiting);
}

void KyCoreApplication::routeYieldWakeAcrossInstances_(int yieldId, KyFiberLane lane) {
    KyCoreApplication* current = instance(false);
    // The waiter's own thread is running, not parked: no wake-up is needed.
    if (current && current->pool_.unYield(yieldId, lane)) return;
    std::lock_guard lock(instanceRegistryMutex());
    for (auto& [id, app] : instanceRegistry()) {
        if (app == current || !app) continue;
        if (app->pool_.unYield(yieldId, lane)) {
            app->wakeFromAnyThread_();
            return;
        }
    }
}

// ---------------------------------------------------------------------------
// Unix signals

void KyCoreApplication::installUnixSignalHandlersOnce_() {
    if (unixTerminateEventFd_.load() < 0) {
        const int fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (fd < 0) kyLogError(kCategory) << "eventfd failed for the terminate descriptor, errno" << errno;
        unixTerminateEventFd_.store(fd);
    }
    struct sigaction action {};
    action.sa_handler = &KyCoreApplication::unixTerminateSignalHandler_;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (::sigaction(SIGINT, &action, nullptr) != 0 || ::sigaction(SIGTERM, &action, nullptr) != 0)
        kyLogError(kCategory) << "sigaction failed for SIGINT/SIGTERM, errno" << errno;
    ky::profiler::installWatchdogPreemptSignalHandler();
}

void KyCoreApplication::unixTerminateSignalHandler_(int) {
    // Async-signal-safe: a lock-free store and a write(2), nothing more.
    const int savedErrno = errno;
    unixTerminateRequested_.store(1);
    const int fd = unixTerminateEventFd_.load();
    if (fd >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] ssize_t n = ::write(fd, &one, sizeof one);
    }
    errno = savedErrno;
}

void KyCoreApplication::terminateAllInstances_() {
    std::lock_guard lock(instanceRegistryMutex());
    for (auto& [id, app] : instanceRegistry()) {
        if (!app) continue;
        app->running_.exchange(false, std::memory_order_acq_rel);
        app->wakeFromAnyThread_();
    }
}

bool KyCoreApplication::terminateRequested() { return unixTerminateRequested_.load() != 0; }

// ---------------------------------------------------------------------------
// Identity, registry, arguments, sessions

uint64_t KyCoreApplication::nextRuntimeApplicationId_() { return runtimeApplicationCounter.fetch_add(1) + 1; }

KyString KyCoreApplication::runtimeApplicationDescriptor() const {
    return KyString::format("{\"id\":%llu,\"pid\":%d,\"thread\":%llu,\"name\":\"%s\"}",
                            static_cast<unsigned long long>(runtimeApplicationId_), static_cast<int>(::getpid()),
                            static_cast<unsigned long long>(ownerHash_), KyDebug::threadName().toStdString().c_str());
}

void KyCoreApplication::announceRuntimeApplicationRegistered_() {
    kyLogDebug(kCategory) << "runtime application registered:" << descriptor_;
}

void KyCoreApplication::addRegistryObserver(KyCoreApplicationRegistryObserver* observer) {
    if (!observer) return;
    std::lock_guard lock(instanceRegistryObserversMutex_());
    instanceRegistryObservers_().push_back(observer);
}

void KyCoreApplication::removeRegistryObserver(KyCoreApplicationRegistryObserver* observer) {
    std::lock_guard lock(instanceRegistryObserversMutex_());
    auto& v = instanceRegistryObservers_();
    v.erase(std::remove(v.begin(), v.end(), observer), v.end());
}

std::vector<KyCoreApplication*> KyCoreApplication::registeredInstances() {
    std::vector<KyCoreApplication*> result;
    std::lock_guard lock(instanceRegistryMutex());
    for (auto& [id, app] : instanceRegistry()) result.push_back(app);
    return result;
}

void KyCoreApplication::setArguments(int argc, char** argv) {
    arguments_.clear();
    argumentList_.clear();
    for (int i = 1; i < argc && argv; ++i) {
        if (!argv[i]) continue;
        const KyString word(argv[i]);
        argumentList_.push_back(word);
        KyString body;
        if (word.startsWith("--")) body = word.mid(2);
        else if (word.startsWith("-")) body = word.mid(1);
        else continue;  // a plain word is not a key
        KyString key = body;
        KyString value;
        const std::size_t eq = body.toStdString().find('=');
        if (eq != std::string::npos) {
            key = body.left(eq);
            value = body.mid(eq + 1);
        }
        if (key.isEmpty()) continue;
        arguments_.insert(key, value);
        if (key.contains('-')) arguments_.insert(key.replaced("-", "_"), value);
    }
}

void KyCoreApplication::setArgumentsFromProcess_() {
    KyString cmdline;
    if (!KyFile::readAll("/proc/self/cmdline", cmdline, nullptr)) return;
    // NUL-separated words, the last one NUL-terminated as well.
    std::vector<std::string> words;
    for (const KyString& word : cmdline.split('\0')) words.push_back(word.toStdString());
    if (!words.empty() && words.back().empty()) words.pop_back();
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    setArguments(static_cast<int>(words.size()), argv.data());
}

bool KyCoreApplication::hasArgument(const KyString& key) const {
    return arguments_.contains(key) || arguments_.contains(key.replaced("-", "_"));
}

KyString KyCoreApplication::argument(const KyString& key) const {
    auto it = arguments_.find(key);
    if (it != arguments_.end()) return it->second;
    return arguments_.value(key.replaced("-", "_"));
}

void KyCoreApplication::attachProfilerSession(std::shared_ptr<KyRuntimeProfilerSession> session) {
    if (!session) return;
    std::lock_guard lock(sessionsMutex_);
    profilerSessions_.push_back(std::move(session));
}

void KyCoreApplication::attachTelemetrySession(std::shared_ptr<KyRuntimeTelemetrySession> session) {
    if (!session) return;
    std::lock_guard lock(sessionsMutex_);
    telemetrySessions_.push_back(std::move(session));
}

void KyCoreApplication::detachAllProfilerSessions() {
    {
        std::lock_guard lock(sessionsMutex_);
        profilerSessions_.clear();
    }
    if (threadLocalInstance_ == this) ky::profiler::unbindSessionsFromCurrentThread();
}

bool KyCoreApplication::startRuntimeWatchdog(long long thresholdMicroseconds, long long pollMicroseconds) {
    if (!watchdog_) watchdog_ = std::make_unique<KyRuntimeWatchdog>();
    return watchdog_->start(thresholdMicroseconds, pollMicroseconds);
}
