// KyMutex: the framework's mutex, over a pthread mutex, and its scoped locker.
//
// A KyMutex has one of two modes, chosen at construction. A plain mutex is
// error-checking: locking it again from the thread that holds it, or unlocking
// it from a thread that does not, is refused with std::system_error instead of
// deadlocking or corrupting it. A recursive mutex may be taken again by its
// holder and is released when every lock has been matched by an unlock.
// Any thread may use a KyMutex; every failed pthread call throws
// std::system_error carrying the errno value.
#pragma once

#include <pthread.h>

/// Mutual exclusion over pthread_mutex_t, plain (error-checking) or recursive.
class KyMutex {
public:
    enum class Mode { Plain, Recursive };

    explicit KyMutex(Mode mode = Mode::Plain);
    ~KyMutex();
    KyMutex(const KyMutex&) = delete;
    KyMutex& operator=(const KyMutex&) = delete;

    /// Blocks until the calling thread holds the mutex. Throws std::system_error
    /// (EDEADLK) when a plain mutex is already held by the caller.
    void lock();
    /// Throws std::system_error (EPERM) when the caller does not hold the mutex.
    void unlock();
    /// True when the mutex was taken; false when another thread holds it.
    bool tryLock();

    // Standard spellings, so std::lock_guard, std::unique_lock and
    // std::condition_variable_any accept a KyMutex.
    bool try_lock() { return tryLock(); }

    Mode mode() const { return mode_; }
    bool isRecursive() const { return mode_ == Mode::Recursive; }

private:
    pthread_mutex_t mutex_;
    Mode mode_;
};

/// Holds a KyMutex for the lifetime of the locker (or until unlock()).
class KyMutexLocker {
public:
    explicit KyMutexLocker(KyMutex& mutex) : mutex_(&mutex) { mutex_->lock(); locked_ = true; }
    explicit KyMutexLocker(KyMutex* mutex) : mutex_(mutex) { if (mutex_) { mutex_->lock(); locked_ = true; } }
    ~KyMutexLocker() { if (locked_) mutex_->unlock(); }
    KyMutexLocker(const KyMutexLocker&) = delete;
    KyMutexLocker& operator=(const KyMutexLocker&) = delete;

    void unlock() { if (locked_) { locked_ = false; mutex_->unlock(); } }
    void relock() { if (mutex_ && !locked_) { mutex_->lock(); locked_ = true; } }
    KyMutex* mutex() const { return mutex_; }

private:
    KyMutex* mutex_;
    bool locked_ = false;
};
