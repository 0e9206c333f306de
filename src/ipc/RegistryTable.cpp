// RegistryTable: registration, heartbeat and listing of a domain's signals.
// See RegistryTable.h for the model.
#include "ipc/RegistryTable.h"

#include <unistd.h>

#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "core/types/KyJsonObject.h"
#include "ipc/AppsRegistryTable.h"
#include "ipc/IpcNames.h"
#include "ipc/ProcessObjects.h"

namespace ky::ipc {

using detail::RegistryLock;

template <size_t Rows>
typename RegistryTable<Rows>::ProcessHooks& RegistryTable<Rows>::ProcessHooks::instance() {
    // Leaked on purpose: heartbeats may still tick while statics are destroyed.
    static ProcessHooks* hooks = new ProcessHooks;
    return *hooks;
}

template <size_t Rows>
KyString RegistryTable<Rows>::objectName(const KyString& domain) {
    return KyString("/ky_ipc_registry_") + detail::sanitizeRegistrySuffix_(domain);
}

template <size_t Rows>
typename RegistryTable<Rows>::Mapping RegistryTable<Rows>::openOrCreate_(const KyString& domain) {
    Mapping m;
    m.layout = static_cast<Layout*>(detail::openOrCreateRegistry_(
        objectName(domain), sizeof(Layout), sizeof(RegistryEntry), detail::kSignalRegistryMagic, detail::kSignalRegistryVersion));
    return m;
}

template <size_t Rows>
uint32_t RegistryTable<Rows>::cleanupStale_locked_(Layout* layout, uint64_t now) {
    return detail::removeStaleRows_(layout->header, layout->rows, Rows, [now](const RegistryEntry& row, bool tagRight) {
        // A reply queue belongs to the process its name ends in, whoever
        // holds the row: it lives and goes with that process, and so does
        // the queue's object.
        if (const std::optional<bool> stale = detail::replyQueueRowStale_(row)) return *stale;
        return detail::registryRowStale_(row.lastSeenMs, row.pid, tagRight, now);
    });
}

template <size_t Rows>
bool RegistryTable<Rows>::cleanIfFree_(const KyString& domain) {
    Mapping m = openOrCreate_(domain);
    if (!m) return true;
    RegistryLock lock(&m.layout->header, RegistryLock::Try);
    if (!lock.locked()) return false;
    cleanupStale_locked_(m.layout, detail::nowMs());
    return true;
}

template <size_t Rows>
void RegistryTable<Rows>::ensureHeartbeat(const KyString& domain) {
    ProcessHooks& hooks = ProcessHooks::instance();
    detail::ensureRegistryHeartbeat_(hooks.mtx_, hooks.heartbeats_, domain, [domain] { heartbeatTick_(domain); });
}

template <size_t Rows>
uint64_t RegistryTable<Rows>::rowHash_(const KyString& domain, const KyString& object, const KyString& signal) {
    return detail::frameworkHash(domain + "|" + object + "|" + signal);
}

template <size_t Rows>
void RegistryTable<Rows>::fillTexts_(RegistryEntry& row, const RememberedSignal& what) {
    detail::copyTrunc(row.shmName, sizeof(row.shmName), what.shmName);
    detail::copyTrunc(row.domain, sizeof(row.domain), what.domain);
    detail::copyTrunc(row.object, sizeof(row.object), what.object);
    detail::copyTrunc(row.signal, sizeof(row.signal), what.signal);
    detail::copyTrunc(row.typeName, sizeof(row.typeName), what.typeName);
}

template <size_t Rows>
void RegistryTable<Rows>::fillNewRow_(RegistryEntry& row, uint64_t hash, const RememberedSignal& what, uint32_t pid,
                                      uint64_t now) {
    std::memset(&row, 0, sizeof(row));
    row.hash = hash;
    row.typeId = what.typeId;
    row.lastSeenMs = now;
    row.pid = pid;
    fillTexts_(row, what);
}

template <size_t Rows>
void RegistryTable<Rows>::holdSignal_(const KyString& domain, const KyString& object, const KyString& signal,
                                      const KyString& shmName, uint64_t typeId, const KyString& typeName) {
    const bool owned = register_(domain, object, signal, shmName, typeId, typeName);
    ProcessHooks& hooks = ProcessHooks::instance();
    std::lock_guard<std::mutex> lock(hooks.mtx_);
    RememberedSignal& r = hooks.registered_[rowHash_(domain, object, signal)];
    r = RememberedSignal{domain, object, signal, shmName, typeId, typeName, r.holders + 1, owned || r.owned};
}

template <size_t Rows>
void RegistryTable<Rows>::releaseSignal_(const KyString& domain, const KyString& object, const KyString& signal) {
    ProcessHooks& hooks = ProcessHooks::instance();
    std::lock_guard<std::mutex> lock(hooks.mtx_);
    auto it = hooks.registered_.find(rowHash_(domain, object, signal));
    if (it != hooks.registered_.end() && --it->second.holders <= 0) hooks.registered_.erase(it);
}

template <size_t Rows>
void RegistryTable<Rows>::heartbeatTick_(const KyString& domain) {
    Mapping m = openOrCreate_(domain);
    if (!m) return;
    const uint32_t self = static_cast<uint32_t>(::getpid());
    std::vector<std::pair<uint64_t, RememberedSignal>> mine;
    {
        ProcessHooks& hooks = ProcessHooks::instance();
        std::lock_guard<std::mutex> lock(hooks.mtx_);
        for (const auto& [hash, what] : hooks.registered_)
            if (what.domain == domain) mine.emplace_back(hash, what);
    }
    bool stamped = false;
    bool restored = false;
    std::vector<std::pair<uint64_t, bool>> ownership;  // what this pass learnt of remembered rows
    {
        // A heartbeat runs on the loop's fiber and must never wait on another
        // process: a busy table is simply skipped until the next tick.
        RegistryLock lock(&m.layout->header, RegistryLock::Try);
        if (!lock.locked()) return;
        const uint64_t now = detail::nowMs();
        if (m.layout->header.clockTag != detail::kRegistryClockTag) m.layout->header.clockTag = detail::kRegistryClockTag;
        uint32_t count = cleanupStale_locked_(m.layout, now);
        std::map<uint64_t, uint32_t> present;  // row hash -> its pid
        for (uint32_t i = 0; i < count; ++i) {
            RegistryEntry& row = m.layout->rows[i];
            present.emplace(row.hash, row.pid);
            if (row.pid == self) {
                row.lastSeenMs = now;
                stamped = true;
            }
        }
        // Rows of its own, of channels this process still holds, cleaned away
        // while it stood still: put back as a first registration would. A row
        // another live process holds is that process's (a server's signal
        // that this client opened): it is left to its owner.
        for (const auto& [hash, what] : mine) {
            const auto it = present.find(hash);
            if (it != present.end()) {
                if ((it->second == self) != what.owned) ownership.emplace_back(hash, it->second == self);
                continue;
            }
            if (!what.owned || count >= Rows) continue;
            fillNewRow_(m.layout->rows[count], hash, what, self, now);
            m.layout->header.count = ++count;
            restored = true;
        }
    }
    if (!ownership.empty()) {
        ProcessHooks& hooks = ProcessHooks::instance();
        std::lock_guard<std::mutex> lock(hooks.mtx_);
        for (const auto& [hash, owned] : ownership) {
            auto it = hooks.registered_.find(hash);
            if (it != hooks.registered_.end()) it->second.owned = owned;
        }
    }
    // The event signal doubles as the domain's liveness tick for discovery;
    // restored rows make browsers look again.
    if (stamped || restored) detail::notifyRegistryChangedBestEffort_(domain);
}

template <size_t Rows>
void RegistryTable<Rows>::registerSignal(const KyString& domain, const KyString& object, const KyString& signal,
                                         const KyString& shmName, uint64_t typeId, const KyString& typeName) {
    register_(domain, object, signal, shmName, typeId, typeName);
}

template <size_t Rows>
bool RegistryTable<Rows>::register_(const KyString& domain, const KyString& object, const KyString& signal,
                                    const KyString& shmName, uint64_t typeId, const KyString& typeName) {
    ensureHeartbeat(domain);
    AppsRegistryTable<64>::registerDomain(domain);
    // The first registration opens the domain for this process: what killed
    // processes left behind in it goes now.
    detail::sweepDeadProcessObjects_(domain);

    Mapping m = openOrCreate_(domain);
    if (!m) return false;
    bool owned = false;
    {
        RegistryLock lock(&m.layout->header, RegistryLock::Block);
        if (!lock.locked()) return false;
        RegistryHeader& h = m.layout->header;
        const uint32_t count = detail::boundedCount_(h, Rows);
        const uint64_t hash = rowHash_(domain, object, signal);
        const uint64_t now = detail::nowMs();
        const uint32_t self = static_cast<uint32_t>(::getpid());
        const RememberedSignal what{domain, object, signal, shmName, typeId, typeName, 0};

        RegistryEntry* row = nullptr;
        for (uint32_t i = 0; i < count; ++i) {
            if (m.layout->rows[i].hash == hash) {
                row = &m.layout->rows[i];
                break;
            }
        }
        if (row) {
            row->typeId = typeId;
            bool take = row->pid == self || row->pid == 0 || detail::processGone_(row->pid);
            // A live owner keeps its row until its stamp has really aged; a
            // zero stamp is not an age and a stamp from the future is not old.
            if (!take) take = row->lastSeenMs != 0 && now >= row->lastSeenMs && now - row->lastSeenMs > detail::kRegistryStaleMs;
            if (take) {
                row->lastSeenMs = now;
                row->pid = self;
            }
            owned = row->pid == self;
            fillTexts_(*row, what);
        } else {
            // A full directory leaves the signal unlisted; the channel itself
            // still works for anyone who knows its name.
            if (count >= Rows) return false;
            fillNewRow_(m.layout->rows[count], hash, what, self, now);
            h.count = count + 1;
            owned = true;
        }
    }
    // The registry's own event signal is excepted, or announcing a change
    // would register, and announce, itself again.
    if (object == detail::registryEventsObjectName_() && signal == detail::registryEventsSignalName_()) return owned;
    detail::notifyRegistryChangedBestEffort_(domain);
    return owned;
}

template <size_t Rows>
KyList<KyJsonValue> RegistryTable<Rows>::snapshot(const KyString& domain) {
    KyList<KyJsonValue> out;
    Mapping m = openOrCreate_(domain);
    if (!m) return out;
    RegistryLock lock(&m.layout->header, RegistryLock::Block);
    if (!lock.locked()) return out;
    const uint32_t count = cleanupStale_locked_(m.layout, detail::nowMs());
    for (uint32_t i = 0; i < count; ++i) {
        const RegistryEntry& row = m.layout->rows[i];
        KyJsonObject o;
        o.insert("hash", detail::hex64(row.hash));
        o.insert("typeId", detail::hex64(row.typeId));
        o.insert("pid", row.pid);
        o.insert("lastSeenMs", static_cast<double>(row.lastSeenMs));
        o.insert("shmName", detail::boundedText(row.shmName, sizeof(row.shmName)));
        o.insert("domain", detail::boundedText(row.domain, sizeof(row.domain)));
        o.insert("object", detail::boundedText(row.object, sizeof(row.object)));
        o.insert("signal", detail::boundedText(row.signal, sizeof(row.signal)));
        o.insert("typeName", detail::boundedText(row.typeName, sizeof(row.typeName)));
        out.append(KyJsonValue(std::move(o)));
    }
    return out;
}

template class RegistryTable<256>;

}  // namespace ky::ipc
