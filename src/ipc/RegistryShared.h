// RegistryShared: what the three registry tables have in common — the 56-byte
// header, the row records, opening and checking a table object, the staleness
// rule, swap-with-last removal and the registry event signal.
//
// The records below are the bytes another process reads: every size and
// offset is pinned by a static_assert. A table object is opened once per
// process and name and stays mapped for the whole run; the cache that holds
// the mappings is guarded by a plain mutex that is never held across the
// table's own process-shared mutex. Everything here may be called from any
// thread, never throws and never logs: the registries are best effort.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <memory>
#include <atomic>

#include "core/types/KyString.h"
#include "ipc/IpcNames.h"

namespace ky::ipc {

/// Header shared by every registry table (56 bytes).
struct RegistryHeader {
    uint32_t magic;
    uint32_t version;
    uint32_t count;     // rows in use, packed from index 0
    uint32_t clockTag;  // kRegistryClockTag when all stamps are CLOCK_MONOTONIC ms
    pthread_mutex_t mutex;
};

/// One signal of a domain (640 bytes).
struct RegistryEntry {
    uint64_t hash;  // framework hash of domain|object|signal
    uint64_t typeId;
    uint64_t lastSeenMs;
    uint32_t pid;
    uint32_t padding;
    char shmName[64];
    char domain[64];
    char object[64];
    char signal[160];
    char typeName[256];
};

/// One listening (process, subscriber object) of a signal (312 bytes).
struct SubscriberEntry {
    uint64_t hash;  // subscriptionHash_
    uint64_t lastSeenMs;
    uint32_t pid;
    uint32_t refCount;
    char domain[64];
    char object[64];
    char signal[160];  // signal name, zero, then the subscriber object's name, zero
};

/// One live domain of the machine with up to 16 of its processes (344 bytes).
struct AppEntry {
    uint64_t hash;  // framework hash of the domain
    uint64_t lastSeenMs;
    uint32_t pidCount;
    uint32_t padding;
    uint32_t pids[16];
    uint64_t pidLastSeenMs[16];
    char domain[64];
    char shmName[64];
};

/// A whole table object: header then a fixed array of rows.
template <typename Row, size_t Rows>
struct RegistryLayout {
    RegistryHeader header;
    Row rows[Rows];
};

static_assert(sizeof(pthread_mutex_t) == 40, "the tables embed a 40-byte pthread mutex");
static_assert(sizeof(RegistryHeader) == 56);
static_assert(offsetof(RegistryHeader, magic) == 0);
static_assert(offsetof(RegistryHeader, version) == 4);
static_assert(offsetof(RegistryHeader, count) == 8);
static_assert(offsetof(RegistryHeader, clockTag) == 12);
static_assert(offsetof(RegistryHeader, mutex) == 16);

static_assert(sizeof(RegistryEntry) == 640);
static_assert(offsetof(RegistryEntry, hash) == 0);
static_assert(offsetof(RegistryEntry, typeId) == 8);
static_assert(offsetof(RegistryEntry, lastSeenMs) == 16);
static_assert(offsetof(RegistryEntry, pid) == 24);
static_assert(offsetof(RegistryEntry, padding) == 28);
static_assert(offsetof(RegistryEntry, shmName) == 32);
static_assert(offsetof(RegistryEntry, domain) == 96);
static_assert(offsetof(RegistryEntry, object) == 160);
static_assert(offsetof(RegistryEntry, signal) == 224);
static_assert(offsetof(RegistryEntry, typeName) == 384);

static_assert(sizeof(SubscriberEntry) == 312);
static_assert(offsetof(SubscriberEntry, hash) == 0);
static_assert(offsetof(SubscriberEntry, lastSeenMs) == 8);
static_assert(offsetof(SubscriberEntry, pid) == 16);
static_assert(offsetof(SubscriberEntry, refCount) == 20);
static_assert(offsetof(SubscriberEntry, domain) == 24);
static_assert(offsetof(SubscriberEntry, object) == 88);
static_assert(offsetof(SubscriberEntry, signal) == 152);

static_assert(sizeof(AppEntry) == 344);
static_assert(offsetof(AppEntry, hash) == 0);
static_assert(offsetof(AppEntry, lastSeenMs) == 8);
static_assert(offsetof(AppEntry, pidCount) == 16);
static_assert(offsetof(AppEntry, padding) == 20);
static_assert(offsetof(AppEntry, pids) == 24);
static_assert(offsetof(AppEntry, pidLastSeenMs) == 88);
static_assert(offsetof(AppEntry, domain) == 216);
static_assert(offsetof(AppEntry, shmName) == 280);

using SignalRegistryLayout = RegistryLayout<RegistryEntry, 256>;
using SubscriberRegistryLayout = RegistryLayout<SubscriberEntry, 512>;
using AppsRegistryLayout = RegistryLayout<AppEntry, 64>;
static_assert(sizeof(SignalRegistryLayout) == 163896);
static_assert(sizeof(SubscriberRegistryLayout) == 159800);
static_assert(sizeof(AppsRegistryLayout) == 22072);
static_assert(offsetof(SignalRegistryLayout, rows) == 56);
static_assert(offsetof(SubscriberRegistryLayout, rows) == 56);
static_assert(offsetof(AppsRegistryLayout, rows) == 56);

namespace detail {

inline constexpr uint32_t kRegistryClockTag = 0x544D5331;  // "1SMT"
inline constexpr uint32_t kSignalRegistryMagic = 0x52454731;
inline constexpr uint32_t kSignalRegistryVersion = 2;
inline constexpr uint32_t kSubscriberRegistryMagic = 0x53554231;
inline constexpr uint32_t kSubscriberRegistryVersion = 1;
inline constexpr uint32_t kAppsRegistryMagic = 0x41505031;
inline constexpr uint32_t kAppsRegistryVersion = 2;
/// A row whose stamp is older than this is stale (15 missed heartbeats).
inline constexpr uint64_t kRegistryStaleMs = 15000;
/// Period of every registry heartbeat.
inline constexpr int kRegistryHeartbeatMs = 1000;

/// "__ky_ipc__": the object under which a domain's registry event signal lives.
KyString registryEventsObjectName_();
/// "__registryChanged__": the registry event signal, a Signal<uint64_t> of stamps.
KyString registryEventsSignalName_();

/// Publishes nowMs() on the domain's registry event signal; never throws.
/// An empty domain does nothing.
void notifyRegistryChangedBestEffort_(const KyString& domain);

/// Maps the table object `name` (creating it when missing), wipes a table of
/// another magic or version, empties one of another clock (clearing its rows
/// of rowSize bytes that were in use), and keeps the mapping for the rest of
/// the run (one per object name). Null on any failure.
void* openOrCreateRegistry_(const KyString& name, size_t size, size_t rowSize, uint32_t magic, uint32_t version);

/// Runs tick every kRegistryHeartbeatMs on the calling thread's loop; null,
/// without a message, when the thread has no loop.
std::shared_ptr<std::atomic<bool>> installRegistryHeartbeat_(std::function<void()> tick);

/// Called before each pass over this process's channels: when no heartbeat
/// has run for longer than the staleness limit, the process stood still and
/// others may have cleaned its rows away, so every heartbeat runs now (and
/// puts them back) before any closure looks at the tables.
void healAfterStall_();
/// Installs tick as the domain's heartbeat unless heartbeats already holds
/// one; without a loop on this thread nothing is recorded, so a later caller
/// that has one installs it.
void ensureRegistryHeartbeat_(std::mutex& mtx, std::map<KyString, std::shared_ptr<std::atomic<bool>>>& heartbeats,
                              const KyString& domain, std::function<void()> tick);

/// The staleness rule of every registry row: a zero stamp or pid, then age
/// beyond kRegistryStaleMs (only when the clock tag is right and the stamp is
/// not in the future), then a process that no longer exists.
bool registryRowStale_(uint64_t stamp, uint32_t pid, bool clockTagRight, uint64_t now);

/// Locks a table's process-shared mutex for a scope; `locked()` tells whether
/// it was obtained (a failed lock leaves the operation without effect).
class RegistryLock {
public:
    enum Mode { Block, Try };
    RegistryLock(RegistryHeader* header, Mode mode);
    ~RegistryLock();
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;
    bool locked() const { return header_ != nullptr; }
    /// Releases early (before a notification that must run unlocked).
    void unlock();

private:
    RegistryHeader* header_;
};

/// A table's row count as a bound: read once and cut to the capacity. The
/// count is a number in shared memory that a writer outside the lock may set
/// to anything at any moment, so loops never re-read it.
inline uint32_t boundedCount_(const RegistryHeader& h, uint32_t capacity) {
    const uint32_t count = __atomic_load_n(&h.count, __ATOMIC_RELAXED);
    return count < capacity ? count : capacity;
}

/// Swap-with-last: copies the last row over row i and shortens the table.
template <typename Row>
void removeRowSwapLast_(Row* rows, uint32_t& count, uint32_t i) {
    if (i >= count) return;
    if (i != count - 1) rows[i] = rows[count - 1];
    --count;
}

/// Removes every row for which stale(row, tagRight) holds, by swap-with-last;
/// the row moved into a freed slot is tested in its turn. Works on a bounded
/// copy of the count (a foreign writer's count past the rows is clamped) and
/// returns the count it stored back.
template <typename Row, typename Stale>
uint32_t removeStaleRows_(RegistryHeader& h, Row* rows, uint32_t capacity, Stale stale) {
    const ProcessGoneMemo memo;
    uint32_t count = boundedCount_(h, capacity);
    const bool tagRight = h.clockTag == kRegistryClockTag;
    uint32_t i = 0;
    while (i < count) {
        if (stale(rows[i], tagRight)) {
            removeRowSwapLast_(rows, count, i);
        } else {
            ++i;
        }
    }
    h.count = count;
    return count;
}

}  // namespace detail
}  // namespace ky::ipc
