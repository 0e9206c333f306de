// KyTimer: a repeating or single-shot timer object over its thread's timer
// table.
//
// A KyTimer belongs to the thread that created it (its KyObject thread). The
// timer's function runs on that thread as posted work on the timer's lane.
// start() and stop() may be called from any thread: a call from a thread that
// is not the owner is posted to the owner and returns at once, before the
// timer runs. Listeners are told through the timeout() signal and through the
// callbacks added with connectTimeout.
#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "core/object/KyObject.h"
#include "core/runtime/KyFiberLane.h"

class KyCoreApplication;

/// A timer that calls timeout() every interval (once when single-shot).
class KyTimer : public KyObject {
public:
    explicit KyTimer(KyObject* parent = nullptr);
    ~KyTimer() override;

    /// Starts (or restarts) with the current interval.
    void start();
    /// Stores ms as the interval when the timer is not running, then starts.
    void start(int ms);
    void stop();
    bool isActive() const;

    int interval() const { return intervalMs_; }
    void setInterval(int ms);
    bool isSingleShot() const { return singleShot_; }
    void setSingleShot(bool singleShot);
    KyFiberLane lane() const { return lane_; }
    /// The lane the timer's function is posted on (2 by default).
    void setLane(KyFiberLane lane);

    /// Adds a function called on every timeout, before the timeout() signal.
    void connectTimeout(std::function<void()> callback);
    void setCallback(std::function<void()> callback) { connectTimeout(std::move(callback)); }

    /// Emitted on every expiry.
    KY_SIGNAL(timeout)

    /// Runs fn once after ms on the calling thread's loop. Without a loop on
    /// the calling thread nothing is scheduled (logged) and false is returned.
    static bool singleShot(int ms, std::function<void()> fn);

private:
    void startNow_();
    void stopNow_();
    /// Runs call on the owner thread: now when that is the calling thread (or
    /// there is no live owner), otherwise posted to the owner.
    void onOwnerThread_(std::function<void()> call);
    void fire_();

    int intervalMs_ = 0;
    bool singleShot_ = false;
    KyFiberLane lane_ = KyFiberLaneDefault;
    std::atomic<int> timerId_{0};
    std::atomic<KyCoreApplication*> application_{nullptr};
    std::vector<std::function<void()>> callbacks_;
};
