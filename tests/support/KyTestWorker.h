// Shared by the tests that need a second loop: a started ky::atomic::Thread
// whose loop the test can hold still inside a task, so it can tell "posted"
// from "ran" without looking at a clock. The test's own thread drives it.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>

#include "core/object/KyObject.h"
#include "core/runtime/KyThread.h"

namespace kytest {

/// A worker thread with its own loop; quit and joined with the test.
class Worker {
public:
    explicit Worker(const char* name = "TestWorker") : thread(KyString(name)) { thread.start(); }
    ~Worker() {
        release();
        thread.quit();
        thread.wait();
    }
    /// Builds a T on the worker, so the worker owns it.
    template <typename T, typename... Args> T* make(Args... args) {
        T* object = nullptr;
        KyObject::executeBlockingOnThread(&thread, [&] { object = new T(args...); });
        return object;
    }
    void destroy(KyObject* object) { KyObject::executeBlockingOnThread(&thread, [object] { delete object; }); }
    /// Blocks the worker's loop inside a task until release(); once per worker.
    void hold() {
        auto entered = std::make_shared<std::promise<void>>();
        auto enteredFuture = entered->get_future();
        thread.postTask([gate = gate_, entered] {
            entered->set_value();
            gate.wait_for(std::chrono::seconds(60));
        });
        enteredFuture.wait();
    }
    void release() {
        if (!released_.exchange(true)) gatePromise_.set_value();
    }
    /// Returns once every task posted before this call has run on the worker.
    void drain() { KyObject::executeBlockingOnThread(&thread, [] {}); }
    /// Posts fn to the worker, counting it until it has run (see pending()).
    void post(std::function<void()> fn) {
        ++pending_;
        thread.postTask([this, fn = std::move(fn)] {
            fn();
            --pending_;
        });
    }
    int pending() const { return pending_.load(); }
    bool isWorker(pthread_t id) const { return pthread_equal(id, thread.nativeHandle()) != 0; }

    ky::atomic::Thread thread;

private:
    std::promise<void> gatePromise_;
    std::shared_future<void> gate_{gatePromise_.get_future().share()};
    std::atomic<bool> released_{false};
    std::atomic<int> pending_{0};
};

} // namespace kytest
