// KyTimer: start, stop and expiry over the owning thread's timer table.
//
// The timer entry is made and removed on the owning thread; calls from other
// threads are posted there. The entry's function only runs while the entry
// exists (removeTimer keeps an in-flight dispatch from calling it), and it
// looks at the timer's liveness before and after every listener, since a
// listener may delete the timer.
#include "core/runtime/KyTimer.h"

#include <climits>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"

namespace {

constexpr const char* kCategory = "ky.core.runtime.kytimer";

int msToUs(int ms) {
    if (ms <= 0) return 0;
    return ms > INT_MAX / 1000 ? INT_MAX : ms * 1000;
}

bool isRegistered(KyCoreApplication* app) {
    if (!app) return false;
    for (KyCoreApplication* known : KyCoreApplication::registeredInstances())
        if (known == app) return true;
    return false;
}

} // namespace

KyTimer::KyTimer(KyObject* parent) : KyObject(parent) {}

KyTimer::~KyTimer() {
    const int id = timerId_.exchange(0);
    KyCoreApplication* app = application_.exchange(nullptr);
    // The loop may have gone before its timer object.
    if (id != 0 && (app == KyCoreApplication::instance(false) || isRegistered(app))) app->removeTimer(id);
}

void KyTimer::onOwnerThread_(std::function<void()> call) {
    ky::atomic::Thread* owner = thread();
    ky::atomic::Thread* current = ky::atomic::Thread::currentThread();
    const bool foreign = owner && owner != current &&
                         !(owner->nativeHandle() != 0 && pthread_equal(owner->nativeHandle(), pthread_self()));
    if (foreign) {
        KyTimer* self = this;
        std::function<void()> task = [self, call] {
            if (KyObject::isLive(self)) call();
        };
        if (ky::atomic::Thread::postTaskIfLive_(owner, task)) return;
    }
    call();
}

void KyTimer::start() {
    onOwnerThread_([this] { startNow_(); });
}

void KyTimer::start(int ms) {
    onOwnerThread_([this, ms] {
        if (!isActive()) intervalMs_ = ms;
        startNow_();
    });
}

void KyTimer::stop() {
    onOwnerThread_([this] { stopNow_(); });
}

bool KyTimer::isActive() const { return timerId_.load(std::memory_order_acquire) != 0; }

void KyTimer::setInterval(int ms) {
    intervalMs_ = ms;
}

void KyTimer::setSingleShot(bool singleShot) { singleShot_ = singleShot; }

void KyTimer::setLane(KyFiberLane lane) { lane_ = lane; }

void KyTimer::connectTimeout(std::function<void()> callback) {
    if (callback) callbacks_.push_back(std::move(callback));
}

void KyTimer::startNow_() {
    stopNow_();
    KyCoreApplication* app = KyCoreApplication::instance(false);
    if (!app) {
        kyLogWarning(kCategory) << "KyTimer::start: no event loop on this thread";
        return;
    }
    KyTimer* self = this;
    application_.store(app, std::memory_order_release);
    timerId_.store(app->addTimer([self] { self->fire_(); }, msToUs(intervalMs_), singleShot_, lane_),
                   std::memory_order_release);
}

void KyTimer::stopNow_() {
    const int id = timerId_.exchange(0);
    KyCoreApplication* app = application_.exchange(nullptr);
    if (id != 0 && app) app->removeTimer(id);
}

void KyTimer::fire_() {
    if (!KyObject::isLive(this)) return;
    if (singleShot_) {
        // The table drops a single-shot entry once this dispatch ends.
        timerId_.store(0, std::memory_order_release);
        application_.store(nullptr, std::memory_order_release);
    }
    // Copied: a listener may add listeners or delete the timer.
    const std::vector<std::function<void()>> callbacks = callbacks_;
    for (const auto& callback : callbacks) {
        callback();
        if (!KyObject::isLive(this)) return;
    }
    timeout();
}

bool KyTimer::singleShot(int ms, std::function<void()> fn) {
    KyCoreApplication* app = KyCoreApplication::instance(false);
    if (!app || !fn) {
        kyLogWarning(kCategory) << "KyTimer::singleShot: no event loop on this thread";
        return false;
    }
    app->addTimer(std::move(fn), msToUs(ms), true, KyFiberLaneDefault);
    return true;
}
