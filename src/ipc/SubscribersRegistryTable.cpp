// SubscribersRegistryTable: registration, heartbeat and listing of the
// listeners of a domain. See SubscribersRegistryTable.h for the model.
#include "ipc/SubscribersRegistryTable.h"

#include <unistd.h>

#include <cstring>
#include <set>
#include <utility>
#include <vector>

#include "ipc/ChannelCore.h"
#include "ipc/IpcNames.h"

namespace ky::ipc {

using detail::RegistryLock;

namespace {

// A stored field against an argument as it would have been stored: both are
// cut to the field's width, so a signal name longer than its field still
// matches the row it registered (and any other name sharing those bytes).
bool fieldMatches(const char* field, size_t cap, const KyString& text) {
    const std::string& bytes = text.toStdString();
    const size_t want = bytes.size() < cap - 1 ? bytes.size() : cap - 1;
    return detail::boundedLength(field, cap) == want && std::memcmp(field, bytes.data(), want) == 0;
}

}  // namespace

template <size_t Rows>
typename SubscribersRegistryTable<Rows>::ProcessHooks& SubscribersRegistryTable<Rows>::ProcessHooks::instance() {
    // Leaked on purpose: heartbeats may still tick while statics are destroyed.
    static ProcessHooks* hooks = new ProcessHooks;
    return *hooks;
}

template <size_t Rows>
KyString SubscribersRegistryTable<Rows>::objectName(const KyString& domain) {
    return KyString("/ky_ipc_subs_") + detail::sanitizeRegistrySuffix_(domain);
}

template <size_t Rows>
uint64_t SubscribersRegistryTable<Rows>::subscriptionHash_(const KyString& domain, const KyString& object,
                                                           const KyString& signal, uint32_t pid,
                                                           const KyString& subObject) {
    KyString text = domain + "|" + object + "|" + signal + "|sub|" + KyString::number(pid);
    if (!subObject.isEmpty()) text += KyString("|subObject|") + subObject;
    return detail::frameworkHash(text);
}

template <size_t Rows>
typename SubscribersRegistryTable<Rows>::Mapping SubscribersRegistryTable<Rows>::openOrCreate_(
    const KyString& domain) {
    Mapping m;
    m.layout = static_cast<Layout*>(detail::openOrCreateRegistry_(objectName(domain), sizeof(Layout), sizeof(SubscriberEntry),
                                                                  detail::kSubscriberRegistryMagic,
                                                                  detail::kSubscriberRegistryVersion));
    return m;
}

template <size_t Rows>
uint32_t SubscribersRegistryTable<Rows>::cleanupStale_locked_(Layout* layout, uint64_t now) {
    return detail::removeStaleRows_(layout->header, layout->rows, Rows, [now](const SubscriberEntry& row, bool tagRight) {
        // A row without registrations is as dead as one without a process.
        return row.refCount == 0 || detail::registryRowStale_(row.lastSeenMs, row.pid, tagRight, now);
    });
}

template <size_t Rows>
void SubscribersRegistryTable<Rows>::ensureHeartbeat(const KyString& domain) {
    ProcessHooks& hooks = ProcessHooks::instance();
    detail::ensureRegistryHeartbeat_(hooks.mtx_, hooks.heartbeats_, domain, [domain] { heartbeatTick_(domain); });
}

template <size_t Rows>
void SubscribersRegistryTable<Rows>::heartbeatTick_(const KyString& domain) {
    Mapping m = openOrCreate_(domain);
    if (!m) return;
    const uint32_t self = static_cast<uint32_t>(::getpid());
    std::vector<std::pair<uint64_t, RememberedSubscription>> mine;
    {
        ProcessHooks& hooks = ProcessHooks::instance();
        std::lock_guard<std::mutex> lock(hooks.mtx_);
        for (const auto& [hash, what] : hooks.subscribed_)
            if (what.domain == domain) mine.emplace_back(hash, what);
    }
    bool restored = false;
    {
        // Never wait on another process from the loop's fiber.
        RegistryLock lock(&m.layout->header, RegistryLock::Try);
        if (!lock.locked()) return;
        const uint64_t now = detail::nowMs();
        if (m.layout->header.clockTag != detail::kRegistryClockTag)
            m.layout->header.clockTag = detail::kRegistryClockTag;
        uint32_t count = cleanupStale_locked_(m.layout, now);
        std::set<uint64_t> present;
        for (uint32_t i = 0; i < count; ++i) {
            present.insert(m.layout->rows[i].hash);
            if (m.layout->rows[i].pid == self) m.layout->rows[i].lastSeenMs = now;
        }
        for (const auto& [hash, what] : mine) {
            if (present.count(hash) != 0 || count >= Rows) continue;
            fillNewRow_(m.layout->rows[count], hash, what, self, what.registrations, now);
            m.layout->header.count = ++count;
            restored = true;
        }
    }
    if (!restored) return;
    // Publishers stopped waking this process while its rows were gone: one
    // pass reads every channel again, and delivers what changed meanwhile.
    detail::notifyRegistryChangedBestEffort_(domain);
    detail::schedulePollerPass_();
}

template <size_t Rows>
void SubscribersRegistryTable<Rows>::packSignal_(SubscriberEntry& row, const KyString& signal,
                                                 const KyString& subObject) {
    // The subscriber object rides behind the signal's terminator, where the
    // bounded comparisons of the signal field never look.
    constexpr size_t cap = sizeof(row.signal);
    detail::copyTrunc(row.signal, cap, signal);
    const void* zero = std::memchr(row.signal, 0, cap);
    if (!zero) {
        row.signal[cap - 1] = 0;
        return;
    }
    const size_t t = static_cast<size_t>(static_cast<const char*>(zero) - row.signal);
    if (t < cap - 1) detail::copyTrunc(row.signal + t + 1, cap - t - 1, subObject);
}

template <size_t Rows>
void SubscribersRegistryTable<Rows>::fillNewRow_(SubscriberEntry& row, uint64_t hash,
                                                 const RememberedSubscription& what, uint32_t pid, uint32_t refCount,
                                                 uint64_t now) {
    std::memset(&row, 0, sizeof(row));
    row.hash = hash;
    row.lastSeenMs = now;
    row.pid = pid;
    row.refCount = refCount;
    detail::copyTrunc(row.domain, sizeof(row.domain), what.domain);
    detail::copyTrunc(row.object, sizeof(row.object), what.object);
    packSignal_(row, what.signal, what.subObject);
}

template <size_t Rows>
void SubscribersRegistryTable<Rows>::registerSubscription(const KyString& domain, const KyString& object,
                                                          const KyString& signal, uint32_t pid,
                                                          const KyString& subObject) {
    ensureHeartbeat(domain);
    const uint64_t hash = subscriptionHash_(domain, object, signal, pid, subObject);
    if (pid == static_cast<uint32_t>(::getpid())) {
        ProcessHooks& hooks = ProcessHooks::instance();
        std::lock_guard<std::mutex> lock(hooks.mtx_);
        RememberedSubscription& r = hooks.subscribed_[hash];
        r = RememberedSubscription{domain, object, signal, subObject,
                                   r.registrations == 0xFFFFFFFFu ? r.registrations : r.registrations + 1};
    }
    Mapping m = openOrCreate_(domain);
    if (!m) return;
    RegistryLock lock(&m.layout->header, RegistryLock::Block);
    if (!lock.locked()) return;
    RegistryHeader& h = m.layout->header;
    const uint64_t now = detail::nowMs();
    const uint32_t count = cleanupStale_locked_(m.layout, now);

    SubscriberEntry* row = nullptr;
    for (uint32_t i = 0; i < count; ++i) {
        if (m.layout->rows[i].hash == hash) {
            row = &m.layout->rows[i];
            break;
        }
    }
    if (row) {
        row->lastSeenMs = now;
        row->pid = pid;
        if (row->refCount != 0xFFFFFFFFu) ++row->refCount;
        detail::copyTrunc(row->domain, sizeof(row->domain), domain);
        detail::copyTrunc(row->object, sizeof(row->object), object);
        packSignal_(*row, signal, subObject);
    } else {
        if (count >= Rows) return;  // a full table is silent
        fillNewRow_(m.layout->rows[count], hash, RememberedSubscription{domain, object, signal, subObject, 1}, pid, 1,
                    now);
        h.count = count + 1;
    }
}

template <size_t Rows>
void SubscribersRegistryTable<Rows>::unregisterSubscription(const KyString& domain, const KyString& object,
                                                            const KyString& signal, uint32_t pid,
                                                            const KyString& subObject) {
    const uint64_t hash = subscriptionHash_(domain, object, signal, pid, subObject);
    if (pid == static_cast<uint32_t>(::getpid())) {
        ProcessHooks& hooks = ProcessHooks::instance();
        std::lock_guard<std::mutex> lock(hooks.mtx_);
        auto it = hooks.subscribed_.find(hash);
        if (it != hooks.subscribed_.end() && --it->second.registrations == 0) hooks.subscribed_.erase(it);
    }
    Mapping m = openOrCreate_(domain);
    if (!m) return;
    RegistryLock lock(&m.layout->header, RegistryLock::Block);
    if (!lock.locked()) return;
    RegistryHeader& h = m.layout->header;
    uint32_t count = cleanupStale_locked_(m.layout, detail::nowMs());
    for (uint32_t i = 0; i < count; ++i) {
        SubscriberEntry& row = m.layout->rows[i];
        if (row.hash != hash) continue;
        if (row.refCount > 1) {
            --row.refCount;
        } else {
            detail::removeRowSwapLast_(m.layout->rows, count, i);
            h.count = count;
        }
        return;
    }
}

template <size_t Rows>
void SubscribersRegistryTable<Rows>::listSubscriberPids(const KyString& domain, const KyString& object,
                                                        const KyString& signal, std::vector<uint32_t>& out) {
    out.clear();
    Mapping m = openOrCreate_(domain);
    if (!m) return;
    RegistryLock lock(&m.layout->header, RegistryLock::Block);
    if (!lock.locked()) return;
    const uint32_t count = cleanupStale_locked_(m.layout, detail::nowMs());
    for (uint32_t i = 0; i < count; ++i) {
        const SubscriberEntry& row = m.layout->rows[i];
        if (row.pid == 0) continue;
        if (!fieldMatches(row.domain, sizeof(row.domain), domain)) continue;
        if (!fieldMatches(row.object, sizeof(row.object), object)) continue;
        if (!fieldMatches(row.signal, sizeof(row.signal), signal)) continue;
        out.push_back(row.pid);
    }
}

template class SubscribersRegistryTable<512>;

}  // namespace ky::ipc
