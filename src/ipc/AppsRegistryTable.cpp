// AppsRegistryTable: registration, heartbeat, exit hook and listing of the
// machine's live domains. See AppsRegistryTable.h for the model.
#include "ipc/AppsRegistryTable.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/types/KyJsonArray.h"
#include "core/types/KyJsonObject.h"
#include "ipc/IpcNames.h"
#include "ipc/ProcessObjects.h"

namespace ky::ipc {

using detail::RegistryLock;

namespace {

constexpr uint32_t kMaxPidsPerDomain = 16;

// A row's slot count as a bound (read once, cut to the slots there are).
uint32_t boundedPidCount(const AppEntry& row) {
    const uint32_t n = __atomic_load_n(&row.pidCount, __ATOMIC_RELAXED);
    return n < kMaxPidsPerDomain ? n : kMaxPidsPerDomain;
}

// Swap-with-last inside the two parallel slot arrays of a row.
void removeSlot(AppEntry& row, uint32_t j) {
    const uint32_t n = boundedPidCount(row);
    if (j >= n) return;
    const uint32_t last = n - 1;
    row.pids[j] = row.pids[last];
    row.pidLastSeenMs[j] = row.pidLastSeenMs[last];
    row.pids[last] = 0;
    row.pidLastSeenMs[last] = 0;
    row.pidCount = last;
}

}  // namespace

template <size_t Rows>
typename AppsRegistryTable<Rows>::ProcessHooks& AppsRegistryTable<Rows>::ProcessHooks::instance() {
    // Leaked on purpose: the exit hook runs after static destructors may have.
    static ProcessHooks* hooks = new ProcessHooks;
    return *hooks;
}

template <size_t Rows>
KyString AppsRegistryTable<Rows>::objectName() {
    ProcessHooks& hooks = ProcessHooks::instance();
    std::lock_guard<std::mutex> lock(hooks.mtx_);
    return hooks.objectName_;
}

template <size_t Rows>
void AppsRegistryTable<Rows>::setObjectNameForTesting_(const KyString& name) {
    ProcessHooks& hooks = ProcessHooks::instance();
    std::lock_guard<std::mutex> lock(hooks.mtx_);
    hooks.objectName_ = name;
}

template <size_t Rows>
typename AppsRegistryTable<Rows>::Mapping AppsRegistryTable<Rows>::openOrCreate_() {
    Mapping m;
    m.layout = static_cast<Layout*>(detail::openOrCreateRegistry_(objectName(), sizeof(Layout), sizeof(AppEntry),
                                                                  detail::kAppsRegistryMagic,
                                                                  detail::kAppsRegistryVersion));
    return m;
}

template <size_t Rows>
uint32_t AppsRegistryTable<Rows>::cleanupStale_locked_(Layout* layout, uint64_t now) {
    RegistryHeader& h = layout->header;
    uint32_t count = detail::boundedCount_(h, static_cast<uint32_t>(Rows));
    const bool tagRight = h.clockTag == detail::kRegistryClockTag;
    uint32_t i = 0;
    while (i < count) {
        AppEntry& row = layout->rows[i];
        uint32_t slots = boundedPidCount(row);
        row.pidCount = slots;
        uint32_t j = 0;
        while (j < slots) {
            if (detail::registryRowStale_(row.pidLastSeenMs[j], row.pids[j], tagRight, now)) {
                removeSlot(row, j);
                slots = boundedPidCount(row);
            } else {
                ++j;
            }
        }
        if (slots == 0) {
            detail::removeRowSwapLast_(layout->rows, count, i);
        } else {
            ++i;
        }
    }
    h.count = count;
    return count;
}

template <size_t Rows>
void AppsRegistryTable<Rows>::touchRow_locked_(Layout* layout, const KyString& domain, uint32_t pid, uint64_t now) {
    RegistryHeader& h = layout->header;
    const uint64_t hash = detail::frameworkHash(domain);
    const KyString shmName = KyString("/ky_ipc_registry_") + detail::sanitizeRegistrySuffix_(domain);
    const uint32_t count = detail::boundedCount_(h, static_cast<uint32_t>(Rows));
    for (uint32_t i = 0; i < count; ++i) {
        AppEntry& row = layout->rows[i];
        if (row.hash != hash) continue;
        row.lastSeenMs = now;
        detail::copyTrunc(row.domain, sizeof(row.domain), domain);
        detail::copyTrunc(row.shmName, sizeof(row.shmName), shmName);
        const uint32_t slots = boundedPidCount(row);
        for (uint32_t j = 0; j < slots; ++j) {
            if (row.pids[j] == pid) {
                row.pidLastSeenMs[j] = now;
                return;
            }
        }
        // A domain of sixteen processes keeps the seventeenth out, silently.
        if (slots < kMaxPidsPerDomain) {
            row.pids[slots] = pid;
            row.pidLastSeenMs[slots] = now;
            row.pidCount = slots + 1;
        }
        return;
    }
    if (count >= Rows) return;  // a full table is silent
    AppEntry& row = layout->rows[count];
    std::memset(&row, 0, sizeof(row));
    row.hash = hash;
    row.lastSeenMs = now;
    row.pidCount = 1;
    row.pids[0] = pid;
    row.pidLastSeenMs[0] = now;
    detail::copyTrunc(row.domain, sizeof(row.domain), domain);
    detail::copyTrunc(row.shmName, sizeof(row.shmName), shmName);
    h.count = count + 1;
}

template <size_t Rows>
void AppsRegistryTable<Rows>::ensureHeartbeat(const KyString& domain) {
    ProcessHooks& hooks = ProcessHooks::instance();
    detail::ensureRegistryHeartbeat_(hooks.mtx_, hooks.heartbeats_, domain, [domain] { heartbeatTick_(domain); });
}

template <size_t Rows>
void AppsRegistryTable<Rows>::heartbeatTick_(const KyString& domain) {
    Mapping m = openOrCreate_();
    if (!m) return;
    // Never wait on another process from the loop's fiber.
    RegistryLock lock(&m.layout->header, RegistryLock::Try);
    if (!lock.locked()) return;
    const uint64_t now = detail::nowMs();
    if (m.layout->header.clockTag != detail::kRegistryClockTag) m.layout->header.clockTag = detail::kRegistryClockTag;
    cleanupStale_locked_(m.layout, now);
    touchRow_locked_(m.layout, domain, static_cast<uint32_t>(::getpid()), now);
}

template <size_t Rows>
void AppsRegistryTable<Rows>::registerDomain(const KyString& domain) {
    detail::ensureProcessExitHook_();
    {
        ProcessHooks& hooks = ProcessHooks::instance();
        std::lock_guard<std::mutex> lock(hooks.mtx_);
        hooks.domains_.insert(domain);
    }
    ensureHeartbeat(domain);

    Mapping m = openOrCreate_();
    if (!m) return;
    RegistryLock lock(&m.layout->header, RegistryLock::Block);
    if (!lock.locked()) return;
    const uint64_t now = detail::nowMs();
    cleanupStale_locked_(m.layout, now);
    touchRow_locked_(m.layout, domain, static_cast<uint32_t>(::getpid()), now);
}

template <size_t Rows>
void AppsRegistryTable<Rows>::ProcessHooks::onExit_() {
    cleanup_(true);
    // Objects named after this process are of no use to anybody once it
    // is gone; the shared channels stay for the next start.
    detail::removeOwnedObjects_();
}

template <size_t Rows>
void AppsRegistryTable<Rows>::ProcessHooks::cleanup_(bool tryOnly) {
    ProcessHooks& hooks = instance();
    std::vector<KyString> domains;
    {
        std::lock_guard<std::mutex> lock(hooks.mtx_);
        domains.assign(hooks.domains_.begin(), hooks.domains_.end());
    }
    const uint32_t self = static_cast<uint32_t>(::getpid());
    for (const KyString& domain : domains) {
        Mapping m = openOrCreate_();
        if (!m) continue;
        RegistryLock lock(&m.layout->header, tryOnly ? RegistryLock::Try : RegistryLock::Block);
        if (!lock.locked()) continue;
        RegistryHeader& h = m.layout->header;
        const uint64_t now = detail::nowMs();
        uint32_t count = cleanupStale_locked_(m.layout, now);
        const uint64_t hash = detail::frameworkHash(domain);
        for (uint32_t i = 0; i < count; ++i) {
            AppEntry& row = m.layout->rows[i];
            if (row.hash != hash) continue;
            const uint32_t slots = boundedPidCount(row);
            for (uint32_t j = 0; j < slots; ++j) {
                if (row.pids[j] == self) {
                    removeSlot(row, j);
                    break;
                }
            }
            if (boundedPidCount(row) > 0) {
                row.lastSeenMs = now;
            } else {
                detail::removeRowSwapLast_(m.layout->rows, count, i);
                h.count = count;
            }
            break;
        }
    }
    std::lock_guard<std::mutex> lock(hooks.mtx_);
    for (auto& [domain, flag] : hooks.heartbeats_) {
        if (flag) flag->store(false);
    }
}

template <size_t Rows>
KyList<KyJsonValue> AppsRegistryTable<Rows>::snapshotDomains() {
    KyList<KyJsonValue> out;
    Mapping m = openOrCreate_();
    if (!m) return out;
    RegistryLock lock(&m.layout->header, RegistryLock::Block);
    if (!lock.locked()) return out;
    const uint32_t count = cleanupStale_locked_(m.layout, detail::nowMs());
    for (uint32_t i = 0; i < count; ++i) {
        const AppEntry& row = m.layout->rows[i];
        KyJsonArray pids;
        const uint32_t slots = boundedPidCount(row);
        for (uint32_t j = 0; j < slots; ++j) pids.append(KyJsonValue(row.pids[j]));
        KyJsonObject o;
        o.insert("domain", detail::boundedText(row.domain, sizeof(row.domain)));
        o.insert("shmName", detail::boundedText(row.shmName, sizeof(row.shmName)));
        o.insert("lastSeenMs", static_cast<double>(row.lastSeenMs));
        o.insert("pids", KyJsonValue(std::move(pids)));
        out.append(KyJsonValue(std::move(o)));
    }
    return out;
}

template class AppsRegistryTable<64>;

}  // namespace ky::ipc
