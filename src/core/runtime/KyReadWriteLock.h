// KyReadWriteLock: a readers-writer lock over pthread_rwlock_t that knows, per
// thread, what the calling thread holds.
//
// Each thread keeps a thread-local table from lock to ThreadLockState (its read
// and write depth on that lock), so unlock() needs no argument and nesting is
// safe. The recursion rules:
//   - A thread that holds the write lock may take it again, and may take the
//     read lock; both only deepen its hold, no pthread call is made.
//   - A thread that holds the read lock may take it again (no pthread call, so
//     a waiting writer cannot wedge a nested read).
//   - A thread that holds only the read lock and asks for the write lock would
//     wait for itself forever; lockForWrite() refuses with std::system_error
//     (EDEADLK) instead. tryLockForWrite() returns false.
//   - unlock() releases the innermost hold: nested reads taken under a write
//     go first, then write depth. The pthread lock is released when the
//     thread's depth reaches zero. unlock() with nothing held throws
//     std::system_error (EPERM).
// Any thread may use the lock. A failed pthread call throws std::system_error.
//
// lockForReadUntracked()/unlockUntracked() are the bare read side, without the
// thread's table: for short internal sections that run no foreign code and
// never take another hold of the same lock (a thread that holds the write
// lock and asks for an untracked read waits for itself). They do not show in
// heldByCurrentThread().
#pragma once

#include <pthread.h>

/// Readers-writer lock with per-thread recursion bookkeeping.
class KyReadWriteLock {
public:
    /// What one thread holds of one lock.
    struct ThreadLockState {
        int reads = 0;
        int writes = 0;
    };

    KyReadWriteLock();
    ~KyReadWriteLock();
    KyReadWriteLock(const KyReadWriteLock&) = delete;
    KyReadWriteLock& operator=(const KyReadWriteLock&) = delete;

    void lockForRead();
    void lockForWrite();
    bool tryLockForRead();
    bool tryLockForWrite();
    void unlock();

    /// Bare read hold: no recursion rules, no bookkeeping. See the file comment.
    void lockForReadUntracked();
    /// Releases a hold taken by lockForReadUntracked().
    void unlockUntracked();

    /// The calling thread's hold on this lock.
    ThreadLockState heldByCurrentThread() const;

private:
    pthread_rwlock_t lock_;
};

/// Holds the read side of a KyReadWriteLock for its lifetime.
class KyReadLocker {
public:
    explicit KyReadLocker(KyReadWriteLock& lock) : lock_(&lock) { lock_->lockForRead(); }
    ~KyReadLocker() { if (lock_) lock_->unlock(); }
    KyReadLocker(const KyReadLocker&) = delete;
    KyReadLocker& operator=(const KyReadLocker&) = delete;
    void unlock() { if (lock_) { lock_->unlock(); lock_ = nullptr; } }

private:
    KyReadWriteLock* lock_;
};

/// Holds the untracked read side of a KyReadWriteLock for its lifetime.
class KyUntrackedReadLocker {
public:
    explicit KyUntrackedReadLocker(KyReadWriteLock& lock) : lock_(lock) { lock_.lockForReadUntracked(); }
    ~KyUntrackedReadLocker() { lock_.unlockUntracked(); }
    KyUntrackedReadLocker(const KyUntrackedReadLocker&) = delete;
    KyUntrackedReadLocker& operator=(const KyUntrackedReadLocker&) = delete;

private:
    KyReadWriteLock& lock_;
};

/// Holds the write side of a KyReadWriteLock for its lifetime.
class KyWriteLocker {
public:
    explicit KyWriteLocker(KyReadWriteLock& lock) : lock_(&lock) { lock_->lockForWrite(); }
    ~KyWriteLocker() { if (lock_) lock_->unlock(); }
    KyWriteLocker(const KyWriteLocker&) = delete;
    KyWriteLocker& operator=(const KyWriteLocker&) = delete;
    void unlock() { if (lock_) { lock_->unlock(); lock_ = nullptr; } }

private:
    KyReadWriteLock* lock_;
};
