// KyMutex: pthread mutex calls, each checked; failures become std::system_error.
#include "core/runtime/KyMutex.h"

#include <cerrno>
#include <system_error>

namespace {

void check(int rc, const char* what) {
    if (rc != 0) throw std::system_error(rc, std::generic_category(), what);
}

} // namespace

KyMutex::KyMutex(Mode mode) : mode_(mode) {
    pthread_mutexattr_t attr;
    check(pthread_mutexattr_init(&attr), "KyMutex: pthread_mutexattr_init");
    // A plain mutex checks its owner, so a relock by the holder is an error
    // that can be reported rather than a silent deadlock.
    const int type = mode == Mode::Recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK;
    int rc = pthread_mutexattr_settype(&attr, type);
    if (rc == 0) rc = pthread_mutex_init(&mutex_, &attr);
    pthread_mutexattr_destroy(&attr);
    check(rc, "KyMutex: pthread_mutex_init");
}

KyMutex::~KyMutex() {
    // Destroying a held mutex is the owner's bug; there is no one to report it to here.
    pthread_mutex_destroy(&mutex_);
}

void KyMutex::lock() { check(pthread_mutex_lock(&mutex_), "KyMutex: lock"); }

void KyMutex::unlock() { check(pthread_mutex_unlock(&mutex_), "KyMutex: unlock"); }

bool KyMutex::tryLock() {
    const int rc = pthread_mutex_trylock(&mutex_);
    if (rc == 0) return true;
    if (rc == EBUSY) return false;
    check(rc, "KyMutex: tryLock");
    return false;
}
