// KyProxyObjectBrowser: the discovery pass, the object filter and the
// registry subscription of every browser. See KyProxyObjectBrowser.h.
#include "ipc/KyProxyObjectBrowser.h"

#include <exception>

#include "core/io/KyDebug.h"
#include "core/runtime/KyThread.h"
#include "ipc/IpcNames.h"
#include "ipc/RegistryShared.h"
#include "ipc/RegistryTable.h"

namespace {

const char* const kLogCategory = "ky.ipc.proxy";

}  // namespace

KyProxyObjectBrowserBase::KyProxyObjectBrowserBase(const KyString& domain, const KyString& objectFilter,
                                                   const KyString& clientInfo, bool requireTypeMatch,
                                                   KyObject* parent)
    : KyObject(parent),
      domain_(domain),
      objectFilter_(objectFilter),
      clientInfo_(clientInfo),
      requireTypeMatch_(requireTypeMatch),
      eventsRegistry_{domain, ky::ipc::detail::registryEventsObjectName_()} {}

KyProxyObjectBrowserBase::~KyProxyObjectBrowserBase() {
    // The subscription goes first: its closure refers to this browser.
    subscription_.stop();
    events_.reset();
    // The typed half is already gone, so instances are deleted as plain
    // objects; their destructors are virtual and delete the proxies.
    KyMap<KyString, KyObject*> instances;
    instances.swap(instances_);
    for (auto& [target, instance] : instances) delete instance;
}

KyString KyProxyObjectBrowserBase::normalizePath_(const KyString& path) {
    KyString s = path.trimmed();
    s.replace("\\", "/");
    while (s.contains("//")) s.replace("//", "/");
    size_t begin = 0;
    size_t end = s.size();
    while (begin < end && s[begin] == '/') ++begin;
    while (end > begin && s[end - 1] == '/') --end;
    return s.mid(begin, end - begin);
}

bool KyProxyObjectBrowserBase::matchesObjectFilter_(const KyString& path, const KyString& filter) {
    const KyString p = normalizePath_(path);
    const KyString f = normalizePath_(filter);
    // An empty filter is taken as "everything", like "*": a browser built
    // without a filter should not silently find nothing.
    if (f.isEmpty() || f == "*") return true;
    if (f.endsWith("/*")) {
        const KyString prefix = f.left(f.size() - 2);
        return p == prefix || p.startsWith(prefix + "/");
    }
    if (f.startsWith("*/")) {
        const KyString suffix = f.mid(2);
        return p == suffix || p.endsWith(KyString("/") + suffix);
    }
    if (p == f) return true;
    const size_t slash = p.lastIndexOf('/');
    const KyString last = slash == KyString::npos ? p : p.mid(slash + 1);
    return last == f;
}

int KyProxyObjectBrowserBase::pidStateBestEffort_(uint32_t pid) { return ky::ipc::detail::processGone_(pid) ? 1 : 0; }

void KyProxyObjectBrowserBase::refreshNow() {
    // A slot that refreshes from inside a pass gets one more pass afterwards
    // instead of a nested one that would change the map under our feet.
    if (refreshing_) {
        refreshAgain_ = true;
        return;
    }
    // Reset on every way out (a throwing slot included), unless a slot
    // deleted the browser on the way.
    struct PassFlag {
        KyProxyObjectBrowserBase* browser;
        const KyObject* key;  // taken while alive: a dead browser is only compared, never converted
        ~PassFlag() {
            if (KyObject::isLive(key)) browser->refreshing_ = false;
        }
    } flag{this, this};
    refreshing_ = true;
    do {
        refreshAgain_ = false;
        if (!refreshPass_()) return;
    } while (refreshAgain_);
}

bool KyProxyObjectBrowserBase::refreshPass_() {
    const KyObject* self = this;
    KyList<ky::ipc::RpcRequestSpec> specs;
    appendSpecs_(specs);
    // One reading of the table serves discovery and every liveness check
    // of this pass; only a new instance's own proxy reads it again.
    const KyList<KyJsonValue> rows =
        domain_.isEmpty() ? KyList<KyJsonValue>() : ky::ipc::RegistryTable<256>::snapshot(domain_);
    const KyList<KyString> found = ky::ipc::detail::discoverRpcTargetsIn_(rows, domain_, specs, requireTypeMatch_);

    const KyString domain = normalizePath_(domain_);
    KyMap<KyString, KyString> seen;  // normalised target -> object path as registered
    for (const KyString& raw : found) {
        const KyString target = normalizePath_(raw);
        const size_t slash = target.indexOf('/');
        if (slash == KyString::npos) continue;
        if (target.left(slash) != domain) continue;
        if (!matchesObjectFilter_(target.mid(slash + 1), objectFilter_)) continue;
        // The proxy must name the object exactly as its rows do; the
        // normalised form is only the key and the instance's name.
        const KyString object = raw.startsWith(domain_ + "/") ? raw.mid(domain_.size() + 1) : target.mid(slash + 1);
        if (KyObject* known = instanceOf_(target)) {
            // Rows may outlive their server (our own under its object):
            // the proxy's remote pid, read from this pass's rows, decides.
            const ky::ipc::ProxyObjectBase* proxy = proxyOf_(known);
            if (ky::ipc::detail::remotePidIn_(rows, proxy->domain(), proxy->object()) == 0) continue;
        }
        seen.insert(target, object);
    }

    for (const auto& [target, object] : seen) {
        if (instances_.contains(target)) continue;
        // Checked before a proxy is built: building one registers its
        // queues, which starts another pass, so a target with no live
        // server must not be built at every pass.
        const uint32_t pid = ky::ipc::detail::remotePidIn_(rows, domain_, object);
        if (pidStateBestEffort_(pid) != 0) continue;
        auto rejected = rejected_.find(target);
        if (rejected != rejected_.end() && rejected->second == pid) continue;
        KyObject* instance = nullptr;
        try {
            instance = createInstance_(domain_, object, target);
        } catch (const std::exception&) {
            instance = nullptr;
        }
        if (!instance) {
            rejected_.insert(target, pid);
            continue;
        }
        rejected_.remove(target);
        instance->setObjectName(target);
        if (pidStateBestEffort_(proxyOf_(instance)->remotePid_()) != 0) {
            delete instance;
            continue;
        }
        instances_.insert(target, instance);
        announceAppeared_(instance);
        if (!KyObject::isLive(self)) return false;
    }

    const KyList<KyString> known = instances_.keys();
    for (const KyString& target : known) {
        if (seen.contains(target)) continue;
        if (!dropInstance_(target)) return false;
    }
    return true;
}

bool KyProxyObjectBrowserBase::dropInstance_(const KyString& target) {
    auto it = instances_.find(target);
    if (it == instances_.end()) return true;
    KyObject* instance = it->second;
    instances_.erase(it);
    const KyObject* self = this;
    announceDisappeared_(instance);
    // A slot may have deleted the instance through its parent, the browser.
    if (!KyObject::isLive(self)) return false;
    if (KyObject::isLive(instance)) delete instance;
    return true;
}

void KyProxyObjectBrowserBase::clear() {
    subscription_.stop();
    rejected_.clear();
    const KyList<KyString> known = instances_.keys();
    for (const KyString& target : known) {
        if (!dropInstance_(target)) return;
    }
}

void KyProxyObjectBrowserBase::subscribeRegistryChanges_() {
    subscription_.stop();
    if (domain_.isEmpty()) return;
    try {
        if (!events_)
            events_ = std::make_unique<ky::ipc::Signal<uint64_t>>(eventsRegistry_,
                                                                   ky::ipc::detail::registryEventsSignalName_());
        KyObject* self = this;
        subscription_ = events_->connect([self](const uint64_t&) {
            if (!KyObject::isLive(self)) return;
            ky::atomic::Thread* owner = self->thread();
            // The poller runs on the loop that polls, which need not be the
            // browser's; the pass belongs to the browser's thread.
            if (owner && owner != ky::atomic::Thread::currentThread() && ky::atomic::Thread::isLive(owner)) {
                KyObject::postTaskToThread(owner, [self] {
                    if (KyObject::isLive(self)) static_cast<KyProxyObjectBrowserBase*>(self)->refreshNow();
                });
                return;
            }
            static_cast<KyProxyObjectBrowserBase*>(self)->refreshNow();
        });
    } catch (const std::exception& e) {
        kyLogWarning(kLogCategory) << "Cannot watch the registry of domain " << domain_ << ": " << e.what();
    }
}
