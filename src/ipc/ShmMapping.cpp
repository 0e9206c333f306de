// ShmMapping: creating, opening, checking and initialising channel objects.
#include "ipc/ShmMapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace ky::ipc::detail {

namespace {

// Offsets shared by both channel layouts.
constexpr size_t kTypeIdOffset = 8;
constexpr size_t kMutexOffset = 16;
constexpr size_t kCondOffset = 56;
constexpr size_t kSeqOffset = 104;

// The counters of both layouts end before this offset (a queue's first slot
// starts at it).
constexpr size_t kHeaderBytes = 128;
using OneSlotQueue = ShmQueueLayout<4096, 1>;
static_assert(offsetof(OneSlotQueue, slots) == kHeaderBytes &&
              offsetof(ShmLayout<4096>, payload) <= kHeaderBytes);

// Only the header is written. A new object comes from ftruncate all zero, and
// the rest of an adopted one is never read before a writer fills it: a signal
// payload is read only up to the size its publisher stored, a queue slot only
// between head and seq. Zeroing the whole object would make every page of a
// ring resident in the creator (and, through fault-around, in its peers) for
// slots that stay empty while the queue is idle.
void initialise(uint8_t* base, const ChannelObjectSpec& spec, uint64_t typeId) {
    std::memset(base, 0, spec.size < kHeaderBytes ? spec.size : kHeaderBytes);
    std::memcpy(base, &spec.magic, 4);
    std::memcpy(base + 4, &spec.version, 4);
    std::memcpy(base + kTypeIdOffset, &typeId, 8);
    pthread_mutexattr_t mattr;
    pthread_mutexattr_init(&mattr);
    pthread_mutexattr_setpshared(&mattr, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(reinterpret_cast<pthread_mutex_t*>(base + kMutexOffset), &mattr);
    pthread_mutexattr_destroy(&mattr);
    pthread_condattr_t cattr;
    pthread_condattr_init(&cattr);
    pthread_condattr_setpshared(&cattr, PTHREAD_PROCESS_SHARED);
    pthread_cond_init(reinterpret_cast<pthread_cond_t*>(base + kCondOffset), &cattr);
    pthread_condattr_destroy(&cattr);
    std::memcpy(base + kSeqOffset, &spec.initialSeq, 8);
}

int openRetrying(const char* name, int flags) {
    int fd;
    do {
        fd = shm_open(name, flags, 0666);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// An opener must not map past the end of the object (a queue of other
// capacity under the same name, or a creator that died before sizing it):
// the first access would kill the process. A creator still between its open
// and its ftruncate gets a short grace.
bool waitForFullSize(int fd, size_t size) {
    for (int attempt = 0; attempt < 50; ++attempt) {
        struct stat st{};
        if (fstat(fd, &st) != 0) return false;
        if (static_cast<size_t>(st.st_size) >= size) return true;
        if (st.st_size != 0) return false;
        usleep(1000);
    }
    return false;
}

}  // namespace

void* openChannelObject_(const KyString& name, const ChannelObjectSpec& spec, uint64_t typeId,
                         ChannelObjectIdentity* identity) {
    const char* cname = name.toStdString().c_str();
    bool creator = true;
    int fd = openRetrying(cname, O_CREAT | O_EXCL | O_RDWR);
    if (fd >= 0) {
        // The process's umask may have cut the mode: every local process must
        // be able to open the channel.
        (void)fchmod(fd, 0666);
        int rc;
        do {
            rc = ftruncate(fd, static_cast<off_t>(spec.size));
        } while (rc != 0 && errno == EINTR);
        if (rc != 0) {
            close(fd);
            shm_unlink(cname);
            throw std::runtime_error("ftruncate(shm) failed");
        }
    } else if (errno == EEXIST) {
        creator = false;
        fd = openRetrying(cname, O_RDWR);
        if (fd < 0) throw std::runtime_error("shm_open(existing) failed");
        (void)fchmod(fd, 0666);
        if (!waitForFullSize(fd, spec.size)) {
            close(fd);
            throw std::runtime_error("SHM layout mismatch (object smaller than its layout)");
        }
    } else {
        throw std::runtime_error("shm_open failed");
    }

    if (identity != nullptr) {
        struct stat st{};
        if (fstat(fd, &st) == 0) *identity = {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino)};
    }
    void* mapped = mmap(nullptr, spec.size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED) throw std::runtime_error("mmap failed");
    auto* base = static_cast<uint8_t*>(mapped);

    if (creator) {
        initialise(base, spec, typeId);
        return base;
    }
    uint32_t magic = 0;
    uint32_t version = 0;
    std::memcpy(&magic, base, 4);
    std::memcpy(&version, base + 4, 4);
    if (magic == 0 && version == 0) {
        // The creator died (or has not yet run) before initialising: adopt it.
        initialise(base, spec, typeId);
        return base;
    }
    if (magic != spec.magic || version != spec.version) {
        munmap(mapped, spec.size);
        throw std::runtime_error("SHM layout mismatch (magic/version)");
    }
    uint64_t storedType = 0;
    std::memcpy(&storedType, base + kTypeIdOffset, 8);
    if (storedType != typeId) {
        munmap(mapped, spec.size);
        throw std::runtime_error("SHM type mismatch (subscriber/publisher types differ)");
    }
    return base;
}

bool channelObjectStillNamed_(const KyString& name, const ChannelObjectIdentity& identity) {
    const int fd = openRetrying(name.toStdString().c_str(), O_RDONLY);
    if (fd < 0) return false;
    struct stat st{};
    const bool same = fstat(fd, &st) == 0 && static_cast<uint64_t>(st.st_dev) == identity.device &&
                      static_cast<uint64_t>(st.st_ino) == identity.inode;
    close(fd);
    return same;
}

void unmapChannelObject_(void* base, size_t size) {
    if (base != nullptr) munmap(base, size);
}

}  // namespace ky::ipc::detail
