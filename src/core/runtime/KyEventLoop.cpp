// KyEventLoop: nested waiting on a yielded fiber, or on the main fiber by
// running the thread's loop steps; kysleep and the slow cycle.
//
// exec() runs on the loop's owning thread; quit() and exit() may come from
// any thread and reach the waiter through its shared State and the yield
// routing of KyCoreApplication.
#include "core/runtime/KyEventLoop.h"

#include <chrono>
#include <climits>
#include <thread>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"

namespace {

constexpr const char* kCategory = "ky.core.runtime.kyeventloop";

int msToUs(int ms) {
    if (ms <= 0) return 0;
    return ms > INT_MAX / 1000 ? INT_MAX : ms * 1000;
}

} // namespace

KyEventLoop::KyEventLoop(KyObject* parent) : KyObject(parent), state_(std::make_shared<State>()) {}

KyEventLoop::~KyEventLoop() {
    // A waiter must not be stranded by its loop object going away.
    if (state_->running.load(std::memory_order_acquire)) quit();
}

bool KyEventLoop::isRunning() const { return state_->running.load(std::memory_order_acquire); }

int KyEventLoop::exec() {
    const std::shared_ptr<State> state = state_;
    KyCoreApplication* app = KyCoreApplication::instance(false);
    if (!app) {
        kyLogWarning(kCategory) << "KyEventLoop::exec: no event loop on this thread";
        return -1;
    }
    if (state->running.load(std::memory_order_acquire)) return -1;
    const int yieldId = KyCoreApplication::generateYieldId();
    // The id is published before the flag, so a waker that sees the flag set
    // also sees the id.
    state->yieldId.store(yieldId, std::memory_order_release);
    state->application.store(app, std::memory_order_release);
    state->exitCode.store(0, std::memory_order_release);
    state->running.store(true, std::memory_order_release);

    // On a pooled fiber: leave it until a waker routes the id, on lane 0.
    if (!KyCoreApplication::yieldCurrentFiber(yieldId, &state->running)) {
        // On the main fiber there is nothing to leave: serve the loop here.
        while (state->running.load(std::memory_order_acquire) && app->isRunning()) {
            const int r = app->processEvent(false);
            if (r != 0 && state->running.load(std::memory_order_acquire) && app->isRunning()) app->waitForWork_(r);
        }
        state->running.store(false, std::memory_order_release);
    }
    state->yieldId.store(0, std::memory_order_release);
    return state->exitCode.load(std::memory_order_acquire);
}

void KyEventLoop::quit() { exit(0); }

void KyEventLoop::exit(int code) {
    const std::shared_ptr<State> state = state_;
    state->exitCode.store(code, std::memory_order_release);
    if (!state->running.exchange(false, std::memory_order_acq_rel)) return;
    KyCoreApplication::routeYieldWakeAcrossInstances_(state->yieldId.load(std::memory_order_acquire),
                                                      KyFiberLaneUrgent);
    // A waiter on a main fiber may be parked in the loop's wait.
    if (KyCoreApplication* app = state->application.load(std::memory_order_acquire)) app->wakeUp();
}

void KyEventLoop::kysleep(int ms) {
    KyCoreApplication* app = KyCoreApplication::instance(false);
    if (!app) {
        if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        return;
    }
    if (app->fiberPool().isOnPooledFiber()) {
        const int yieldId = KyCoreApplication::generateYieldId();
        auto waiting = std::make_shared<std::atomic<bool>>(true);
        app->addTimer(
            [yieldId, waiting] {
                if (waiting->exchange(false))
                    KyCoreApplication::routeYieldWakeAcrossInstances_(yieldId, KyFiberLaneUrgent);
            },
            msToUs(ms), true, KyFiberLaneUrgent);
        if (KyCoreApplication::yieldCurrentFiber(yieldId, waiting.get())) return;
        waiting->store(false);
    }
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(std::max(0, ms));
    while (app->isRunning()) {
        const Clock::time_point now = Clock::now();
        if (now >= deadline) break;
        const int r = app->processEvent(false);
        if (r == 0) continue;
        const long long left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
        if (left <= 0) break;
        const long long bound = r < 0 ? left : std::min<long long>(r, left);
        app->waitForWork_(static_cast<int>(std::min<long long>(bound, INT_MAX)));
    }
}

std::shared_ptr<std::atomic<bool>> KyEventLoop::installSlowRuntime(int ms, std::function<void()> fn) {
    auto flag = std::make_shared<std::atomic<bool>>(true);
    KyCoreApplication* app = KyCoreApplication::instance(false);
    if (!app || !fn) {
        kyLogWarning(kCategory) << "installSlowRuntime: no event loop on this thread";
        flag->store(false);
        return flag;
    }
    // The id is known only after addTimer; the cycle's first turn comes later,
    // on this same thread, so it always finds the id in place.
    auto timerId = std::make_shared<int>(0);
    *timerId = app->addTimer(
        [app, flag, timerId, fn = std::move(fn)] {
            if (flag->load(std::memory_order_acquire)) fn();
            if (!flag->load(std::memory_order_acquire)) app->removeTimer(*timerId);
        },
        msToUs(ms), false, KyFiberLaneBackground);
    return flag;
}
