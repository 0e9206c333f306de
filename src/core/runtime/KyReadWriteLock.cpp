// KyReadWriteLock: pthread_rwlock_t plus the calling thread's table of holds.
// The recursion rules are in the header.
#include "core/runtime/KyReadWriteLock.h"

#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using Hold = std::pair<const KyReadWriteLock*, KyReadWriteLock::ThreadLockState>;

// A thread holds few locks at once, so a flat table beats a hash map here, and
// an entry is dropped as soon as its depth reaches zero: no allocation after
// the first use, and nothing left behind for a lock that is destroyed.
std::vector<Hold>& holds() {
    thread_local std::vector<Hold> table;
    return table;
}

Hold* findHold(const KyReadWriteLock* lock) {
    for (Hold& h : holds())
        if (h.first == lock) return &h;
    return nullptr;
}

KyReadWriteLock::ThreadLockState* find(const KyReadWriteLock* lock) {
    Hold* h = findHold(lock);
    return h ? &h->second : nullptr;
}

KyReadWriteLock::ThreadLockState& findOrAdd(const KyReadWriteLock* lock) {
    if (KyReadWriteLock::ThreadLockState* s = find(lock)) return *s;
    holds().emplace_back(lock, KyReadWriteLock::ThreadLockState{});
    return holds().back().second;
}

void dropIfFree(const KyReadWriteLock* lock) {
    auto& table = holds();
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (table[i].first != lock) continue;
        if (table[i].second.reads == 0 && table[i].second.writes == 0) {
            table[i] = table.back();
            table.pop_back();
        }
        return;
    }
}

[[noreturn]] void fail(int rc, const char* what) { throw std::system_error(rc, std::generic_category(), what); }

} // namespace

KyReadWriteLock::KyReadWriteLock() {
    const int rc = pthread_rwlock_init(&lock_, nullptr);
    if (rc != 0) fail(rc, "KyReadWriteLock: pthread_rwlock_init");
}

KyReadWriteLock::~KyReadWriteLock() {
    dropIfFree(this);
    pthread_rwlock_destroy(&lock_);
}

void KyReadWriteLock::lockForRead() {
    ThreadLockState* held = find(this);
    if (held && (held->reads > 0 || held->writes > 0)) {
        ++held->reads;
        return;
    }
    const int rc = pthread_rwlock_rdlock(&lock_);
    if (rc != 0) fail(rc, "KyReadWriteLock: lockForRead");
    if (held)
        ++held->reads;
    else
        holds().emplace_back(this, ThreadLockState{1, 0});
}

void KyReadWriteLock::lockForReadUntracked() {
    const int rc = pthread_rwlock_rdlock(&lock_);
    if (rc != 0) fail(rc, "KyReadWriteLock: lockForReadUntracked");
}

void KyReadWriteLock::unlockUntracked() {
    const int rc = pthread_rwlock_unlock(&lock_);
    if (rc != 0) fail(rc, "KyReadWriteLock: unlockUntracked");
}

bool KyReadWriteLock::tryLockForRead() {
    ThreadLockState* held = find(this);
    if (held && (held->reads > 0 || held->writes > 0)) {
        ++held->reads;
        return true;
    }
    const int rc = pthread_rwlock_tryrdlock(&lock_);
    if (rc == EBUSY || rc == EAGAIN) return false;
    if (rc != 0) fail(rc, "KyReadWriteLock: tryLockForRead");
    ++findOrAdd(this).reads;
    return true;
}

void KyReadWriteLock::lockForWrite() {
    ThreadLockState* held = find(this);
    if (held && held->writes > 0) {
        ++held->writes;
        return;
    }
    if (held && held->reads > 0) fail(EDEADLK, "KyReadWriteLock: lockForWrite while holding the read lock");
    const int rc = pthread_rwlock_wrlock(&lock_);
    if (rc != 0) fail(rc, "KyReadWriteLock: lockForWrite");
    ++findOrAdd(this).writes;
}

bool KyReadWriteLock::tryLockForWrite() {
    ThreadLockState* held = find(this);
    if (held && held->writes > 0) {
        ++held->writes;
        return true;
    }
    if (held && held->reads > 0) return false;
    const int rc = pthread_rwlock_trywrlock(&lock_);
    if (rc == EBUSY) return false;
    if (rc != 0) fail(rc, "KyReadWriteLock: tryLockForWrite");
    ++findOrAdd(this).writes;
    return true;
}

void KyReadWriteLock::unlock() {
    Hold* hold = findHold(this);
    ThreadLockState* held = hold ? &hold->second : nullptr;
    if (!held || (held->reads == 0 && held->writes == 0)) fail(EPERM, "KyReadWriteLock: unlock without a hold");
    // Reads taken under a write are the innermost holds.
    if (held->reads > 0)
        --held->reads;
    else
        --held->writes;
    if (held->reads > 0 || held->writes > 0) return;
    // The entry is free now: drop it in place rather than searching again.
    auto& table = holds();
    *hold = table.back();
    table.pop_back();
    const int rc = pthread_rwlock_unlock(&lock_);
    if (rc != 0) fail(rc, "KyReadWriteLock: unlock");
}

KyReadWriteLock::ThreadLockState KyReadWriteLock::heldByCurrentThread() const {
    const ThreadLockState* held = find(this);
    return held ? *held : ThreadLockState{};
}
