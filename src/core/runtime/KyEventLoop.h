// KyEventLoop: a nested loop that waits inside a posted function while the
// thread's outer loop goes on serving.
//
// On a pooled fiber, exec() yields the fiber under a fresh yield id; quit()
// and exit() wake that id on lane 0, so a nested loop always resumes ahead of
// lanes 1 to 3. On the thread's main fiber (no pooled fiber to leave), exec()
// runs the thread's loop steps itself until the nested loop is ended or the
// whole loop stops. exec() runs on the loop's owning thread; quit() and exit()
// may be called from any thread. kysleep and installSlowRuntime build on the
// same yield and on the timer table.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "core/object/KyObject.h"

class KyCoreApplication;

/// A nested loop: waits in exec() until quit() or exit().
class KyEventLoop : public KyObject {
public:
    explicit KyEventLoop(KyObject* parent = nullptr);
    ~KyEventLoop() override;

    /// Waits until quit()/exit(); returns the exit code. Calling it again
    /// while it already waits returns -1 at once.
    int exec();
    void quit();
    void exit(int code);
    bool isRunning() const;

    /// Sleeps ms without stopping the thread's loop (on a pooled fiber it
    /// yields; on the main fiber it runs loop steps until the time is up;
    /// on a thread without a loop it simply sleeps).
    static void kysleep(int ms);
    /// Runs fn every ms on the calling thread's loop, on lane 3, until the
    /// returned flag is set to false; the cycle then ends at its next turn.
    /// Without a loop on the calling thread the flag comes back false.
    static std::shared_ptr<std::atomic<bool>> installSlowRuntime(int ms, std::function<void()> fn);

    /// What exec() and its wakers share; it outlives the loop object, so a
    /// wake-up from another thread or a loop deleted while waiting is safe.
    struct State {
        std::atomic<bool> running{false};
        std::atomic<int> yieldId{0};
        std::atomic<int> exitCode{0};
        std::atomic<KyCoreApplication*> application{nullptr};
    };

private:
    std::shared_ptr<State> state_;
};
