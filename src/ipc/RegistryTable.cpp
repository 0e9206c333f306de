// RegistryTable: registration, heartbeat and listing of a domain's signals.
// See RegistryTable.h for the model.
#include "ipc/RegistryTable.h"

#include <unistd.h>

#include <cstring>

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
        objectName(domain), sizeof(Layout), detail::kSignalRegistryMagic, detail::kSignalRegistryVersion));
    return m;
}

template <size_t Rows>
uint32_t RegistryTable<Rows>::cleanupStale_locked_(Layout* layout, uint64_t now) {
    return detail::removeStaleRows_(layout->header, layout->rows, Rows, [now](const RegistryEntry& row, bool tagRight) {
        // A reply queue belongs to the process its name ends in, whoever
        // holds the row: once that process is gone, row and object go.
        if (detail::removeDeadReplyQueue_(row)) return true;
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
void RegistryTable<Rows>::heartbeatTick_(const KyString& domain) {
    Mapping m = openOrCreate_(domain);
    if (!m) return;
    const uint32_t self = static_cast<uint32_t>(::getpid());
    bool stamped = false;
    {
        // A heartbeat runs on the loop's fiber and must never wait on another
        // process: a busy table is simply skipped until the next tick.
        RegistryLock lock(&m.layout->header, RegistryLock::Try);
        if (!lock.locked()) return;
        const uint64_t now = detail::nowMs();
        if (m.layout->header.clockTag != detail::kRegistryClockTag) m.layout->header.clockTag = detail::kRegistryClockTag;
        const uint32_t count = cleanupStale_locked_(m.layout, now);
        for (uint32_t i = 0; i < count; ++i) {
            RegistryEntry& row = m.layout->rows[i];
            if (row.pid == self) {
                row.lastSeenMs = now;
                stamped = true;
            }
        }
    }
    // The event signal doubles as the domain's liveness tick for discovery.
    if (stamped) detail::notifyRegistryChangedBestEffort_(domain);
}

template <size_t Rows>
void RegistryTable<Rows>::registerSignal(const KyString& domain, const KyString& object, const KyString& signal,
                                         const KyString& shmName, uint64_t typeId, const KyString& typeName) {
    ensureHeartbeat(domain);
    AppsRegistryTable<64>::registerDomain(domain);
    // The first registration opens the domain for this process: what killed
    // processes left behind in it goes now.
    detail::sweepDeadProcessObjects_(domain);

    Mapping m = openOrCreate_(domain);
    if (!m) return;
    {
        RegistryLock lock(&m.layout->header, RegistryLock::Block);
        if (!lock.locked()) return;
        RegistryHeader& h = m.layout->header;
        const uint32_t count = detail::boundedCount_(h, Rows);
        const KyString joined = domain + "|" + object + "|" + signal;
        const uint64_t hash = detail::frameworkHash(joined);
        const uint64_t now = detail::nowMs();
        const uint32_t self = static_cast<uint32_t>(::getpid());

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
        } else {
            // A full directory leaves the signal unlisted; the channel itself
            // still works for anyone who knows its name.
            if (count >= Rows) return;
            row = &m.layout->rows[count];
            std::memset(row, 0, sizeof(*row));
            row->hash = hash;
            row->typeId = typeId;
            row->lastSeenMs = now;
            row->pid = self;
            h.count = count + 1;
        }
        detail::copyTrunc(row->shmName, sizeof(row->shmName), shmName);
        detail::copyTrunc(row->domain, sizeof(row->domain), domain);
        detail::copyTrunc(row->object, sizeof(row->object), object);
        detail::copyTrunc(row->signal, sizeof(row->signal), signal);
        detail::copyTrunc(row->typeName, sizeof(row->typeName), typeName);
    }
    // The registry's own event signal is excepted, or announcing a change
    // would register, and announce, itself again.
    if (object == detail::registryEventsObjectName_() && signal == detail::registryEventsSignalName_()) return;
    detail::notifyRegistryChangedBestEffort_(domain);
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
