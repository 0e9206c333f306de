// KyGuiApplication: the eight steps of a GUI loop pass.
#include "gui/platform/KyGuiApplication.h"

#include <algorithm>
#include <chrono>

#include "core/runtime/KyRuntimeProfiler.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/platform/KyX11PlatformIntegration.h"

namespace {
using Clock = std::chrono::steady_clock;
long long microsecondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration_cast<std::chrono::microseconds>(to - from).count();
}
} // namespace

KyGuiApplication::KyGuiApplication() { construct_(); }

KyGuiApplication::KyGuiApplication(int argc, char** argv) : KyCoreApplication(argc, argv) { construct_(); }

void KyGuiApplication::construct_() {
    auto platform = std::make_unique<KyX11PlatformIntegration>();
    platform->initialize(this);
    platform_ = std::move(platform);
}

KyGuiApplication::~KyGuiApplication() {
    if (platform_) platform_->shutdown();
    platform_.reset();
}

KyGuiApplication* KyGuiApplication::instance() {
    return dynamic_cast<KyGuiApplication*>(KyCoreApplication::instance(false));
}

void KyGuiApplication::pumpPlatform_() {
    if (!platform_) return;
    ky::profiler::MultiRuntimeScopedSpan_ span("platform_pump");
    platform_->processPlatformEvents();
}

void KyGuiApplication::paintPending() {
    if (!platform_) return;
    // The map's Expose, then the frame the flush asks for: each needs the
    // server to have caught up first.
    platform_->sync();
    pumpPlatform_();
    KyWidgetPlatformAdapter::flushDamage();
    platform_->sync();
    pumpPlatform_();
}

int KyGuiApplication::exec(int maxDurationMicroseconds) {
    bindProfilerSessions_(true);
    const Clock::time_point start = Clock::now();
    Clock::time_point last = start;
    const bool timed = maxDurationMicroseconds != 0;
    while (isRunning()) {
        // 1.
        setBusyMicroseconds_(0);
        const Clock::time_point t0 = Clock::now();
        // 2.
        pumpPlatform_();
        // 3.
        int wait = 0;
        while (isRunning() && (wait = processEvent(false)) == 0) {
        }
        // 4.
        KyWidgetPlatformAdapter::flushDamage();
        // 5. Paints the flush's Expose in this same pass when the server is quick.
        pumpPlatform_();
        // 6. The second pump may have posted input and paint may have
        // invalidated: a post to this thread's own loop wakes nobody, so look
        // again rather than sleep on it.
        if (wait != 0 && (hasPendingWork_() || KyWidgetPlatformAdapter::hasReadyDamage())) wait = 0;
        const Clock::time_point t1 = Clock::now();
        const long long busy = microsecondsBetween(t0, t1);
        setBusyMicroseconds_(busy);
        if (timed && wait != 0) {
            // A time-limited loop never waits past its limit.
            const long long left = std::max<long long>(0, maxDurationMicroseconds - microsecondsBetween(start, t1));
            wait = static_cast<int>(wait < 0 ? left : std::min<long long>(wait, left));
        }
        if (isRunning() && wait != 0) waitForWork_(wait);
        // 7.
        const Clock::time_point now = Clock::now();
        const long long iteration = microsecondsBetween(last, now);
        recordIteration_(now, busy, iteration);
        ky::profiler::publishRuntimeIterationSnapshot(busy, iteration);
        // 8.
        if (timed && microsecondsBetween(start, now) >= maxDurationMicroseconds) break;
        last = now;
    }
    return exitCode();
}
