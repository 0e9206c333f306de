// RegistryShared: opening of registry tables, the staleness rule, the table
// lock and the registry event signal. See RegistryShared.h for the model.
#include "ipc/RegistryShared.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyEventLoop.h"
#include "ipc/IpcNames.h"
#include "ipc/Registry.h"
#include "ipc/Signal.h"

namespace ky::ipc::detail {

namespace {

// Mappings live until the process ends: rows are handed out as raw pointers
// into them, and an unmapped table under a running heartbeat would crash it.
// The map itself is leaked on purpose so that exit hooks may still use it
// after static destructors have run.
struct MappingCache {
    std::mutex gMtx;
    std::map<KyString, void*> mappings;
};

MappingCache& mappingCache() {
    static MappingCache* cache = new MappingCache;
    return *cache;
}

void* mapTable(const KyString& name, size_t size) {
    int fd = -1;
    do {
        fd = ::shm_open(name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return nullptr;
    // The umask would otherwise keep other users of the machine out.
    (void)::fchmod(fd, 0666);
    // Every opener sets the size: it never changes, and a creator that died
    // between shm_open and ftruncate leaves an empty object behind.
    int rc = 0;
    do {
        rc = ::ftruncate(fd, static_cast<off_t>(size));
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        ::close(fd);
        return nullptr;
    }
    void* addr = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    return addr == MAP_FAILED ? nullptr : addr;
}

void initSharedMutex(pthread_mutex_t* mutex) {
    pthread_mutexattr_t attr;
    if (::pthread_mutexattr_init(&attr) != 0) return;
    ::pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    ::pthread_mutex_init(mutex, &attr);
    ::pthread_mutexattr_destroy(&attr);
}

}  // namespace

KyString registryEventsObjectName_() { return KyString("__ky_ipc__"); }

KyString registryEventsSignalName_() { return KyString("__registryChanged__"); }

void* openOrCreateRegistry_(const KyString& name, size_t size, size_t rowSize, uint32_t magic, uint32_t version) {
    MappingCache& cache = mappingCache();
    {
        std::lock_guard<std::mutex> lock(cache.gMtx);
        auto it = cache.mappings.find(name);
        if (it != cache.mappings.end()) return it->second;
    }
    void* addr = mapTable(name, size);
    if (!addr) return nullptr;
    auto* header = static_cast<RegistryHeader*>(addr);
    // Rows past the count are never read, and a row is wholly written when it
    // is added. So a new table (all zero from ftruncate) needs only its
    // header cleared, and dropping rows only the rows in use: clearing every
    // row would make the whole table resident in whichever process opens the
    // domain first.
    // A registry holds nothing worth keeping, so a table of another format is
    // taken over rather than refused.
    if (header->magic != magic || header->version != version) {
        const bool fresh = header->magic == 0 && header->version == 0;
        std::memset(addr, 0, fresh ? sizeof(RegistryHeader) : size);
        header->magic = magic;
        header->version = version;
        initSharedMutex(&header->mutex);
    }
    // Stamps of another clock cannot be compared with ours: drop every row,
    // but leave the mutex, which other processes may be holding.
    if (header->clockTag != kRegistryClockTag) {
        const size_t capacity = (size - sizeof(RegistryHeader)) / rowSize;
        const size_t inUse = std::min<size_t>(__atomic_load_n(&header->count, __ATOMIC_RELAXED), capacity);
        std::memset(static_cast<char*>(addr) + sizeof(RegistryHeader), 0, inUse * rowSize);
        header->count = 0;
        header->clockTag = kRegistryClockTag;
    }
    std::lock_guard<std::mutex> lock(cache.gMtx);
    auto [it, inserted] = cache.mappings.emplace(name, addr);
    if (!inserted) {
        // Another thread mapped it first; its mapping is the one handed out.
        ::munmap(addr, size);
    }
    return it->second;
}

namespace {

// Every heartbeat of the process, so that a pass after a stall can run them
// at once; and when one last ran. Leaked on purpose: heartbeats may tick
// while statics are destroyed.
struct Heartbeats {
    std::mutex mtx;
    std::vector<std::pair<std::weak_ptr<std::atomic<bool>>, std::function<void()>>> ticks;
    std::atomic<uint64_t> lastBeatMs{0};
};

Heartbeats& heartbeats() {
    static Heartbeats* beats = new Heartbeats;
    return *beats;
}

}  // namespace

std::shared_ptr<std::atomic<bool>> installRegistryHeartbeat_(std::function<void()> tick) {
    // Checked here rather than left to the loop, which would log each time a
    // thread without a loop registers: registries stay silent.
    if (!KyCoreApplication::instance(false)) return nullptr;
    auto beat = [tick = std::move(tick)] {
        heartbeats().lastBeatMs.store(nowMs(), std::memory_order_relaxed);
        tick();
    };
    auto flag = KyEventLoop::installSlowRuntime(kRegistryHeartbeatMs, beat);
    if (!flag || !flag->load()) return nullptr;
    Heartbeats& beats = heartbeats();
    std::lock_guard<std::mutex> lock(beats.mtx);
    beats.ticks.emplace_back(flag, std::move(beat));
    uint64_t expected = 0;
    beats.lastBeatMs.compare_exchange_strong(expected, nowMs());
    return flag;
}

void healAfterStall_() {
    Heartbeats& beats = heartbeats();
    const uint64_t last = beats.lastBeatMs.load(std::memory_order_relaxed);
    const uint64_t now = nowMs();
    if (last == 0 || now < last || now - last <= kRegistryStaleMs) return;
    // Once: the beats below renew the stamp.
    uint64_t expected = last;
    if (!beats.lastBeatMs.compare_exchange_strong(expected, now)) return;
    std::vector<std::function<void()>> due;
    {
        std::lock_guard<std::mutex> lock(beats.mtx);
        std::erase_if(beats.ticks, [](const auto& t) {
            const auto flag = t.first.lock();
            return !flag || !flag->load();
        });
        for (const auto& t : beats.ticks) due.push_back(t.second);
    }
    for (const auto& tick : due) tick();
}

bool registryRowStale_(uint64_t stamp, uint32_t pid, bool clockTagRight, uint64_t now) {
    if (stamp == 0 || pid == 0) return true;
    if (clockTagRight && now >= stamp && now - stamp > kRegistryStaleMs) return true;
    return processGone_(pid);
}

RegistryLock::RegistryLock(RegistryHeader* header, Mode mode) : header_(nullptr) {
    if (!header) return;
    const int rc = mode == Try ? ::pthread_mutex_trylock(&header->mutex) : ::pthread_mutex_lock(&header->mutex);
    if (rc == 0) header_ = header;
}

RegistryLock::~RegistryLock() { unlock(); }

void RegistryLock::unlock() {
    if (!header_) return;
    ::pthread_mutex_unlock(&header_->mutex);
    header_ = nullptr;
}

namespace {

// The event signal of one domain. Created outside the notifier mutex: its
// construction registers the signal, which locks the shared tables.
struct Notifier {
    explicit Notifier(const KyString& domain)
        : registry{domain, registryEventsObjectName_()}, signal(registry, registryEventsSignalName_()) {}
    Registry registry;
    Signal<uint64_t> signal;
};

struct NotifierMap {
    std::mutex mtx;
    std::map<KyString, std::shared_ptr<Notifier>> byDomain;
};

NotifierMap& notifiers() {
    static NotifierMap* map = new NotifierMap;
    return *map;
}

}  // namespace

void notifyRegistryChangedBestEffort_(const KyString& domain) {
    if (domain.isEmpty()) return;
    try {
        NotifierMap& map = notifiers();
        std::shared_ptr<Notifier> notifier;
        {
            std::lock_guard<std::mutex> lock(map.mtx);
            auto it = map.byDomain.find(domain);
            if (it != map.byDomain.end()) notifier = it->second;
        }
        if (!notifier) {
            auto made = std::make_shared<Notifier>(domain);
            std::lock_guard<std::mutex> lock(map.mtx);
            notifier = map.byDomain.emplace(domain, std::move(made)).first->second;
        }
        notifier->signal.publish(nowMs());
    } catch (...) {
        // Best effort: a domain whose event channel cannot be opened simply
        // goes without change notices.
    }
}

void ensureRegistryHeartbeat_(std::mutex& mtx, std::map<KyString, std::shared_ptr<std::atomic<bool>>>& heartbeats,
                              const KyString& domain, std::function<void()> tick) {
    {
        std::lock_guard<std::mutex> lock(mtx);
        if (heartbeats.count(domain)) return;
    }
    auto flag = installRegistryHeartbeat_(std::move(tick));
    if (!flag) return;
    std::lock_guard<std::mutex> lock(mtx);
    if (!heartbeats.emplace(domain, flag).second) flag->store(false);
}

}  // namespace ky::ipc::detail
