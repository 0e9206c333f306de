// ProxyObjectBase: discovery over the signal registry and the liveness of a
// remote object. See ProxyObjectBase.h for the model.
#include "ipc/ProxyObjectBase.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <utility>

#include "core/types/KyMap.h"
#include "ipc/IpcNames.h"
#include "ipc/RegistryTable.h"

namespace ky::ipc {

namespace {

constexpr std::string_view kRpcPrefix = "__rpc__|";
constexpr std::string_view kConfigPrefix = "__config__|";
constexpr std::string_view kRpcReplyPrefix = "__rpc_ret__|";

// Paths served by this process, counted per (domain, path): two remote
// objects of one path may overlap while one replaces the other.
struct ServedPaths {
    std::mutex mtx;
    std::map<std::pair<KyString, KyString>, int> counts;
};

ServedPaths& servedPaths() {
    // Leaked on purpose: remote objects may be destroyed by exit hooks after
    // static destructors have run.
    static ServedPaths* paths = new ServedPaths;
    return *paths;
}

KyString rowText(const KyJsonValue& row, std::string_view key) { return row[key].toString(); }

// Splits "<capacity>|<method>" into its two parts; false when there is no "|".
bool splitMethodKey(const KyString& key, KyString& capacity, KyString& method) {
    const size_t bar = key.indexOf('|');
    if (bar == KyString::npos) return false;
    capacity = key.left(bar);
    method = key.mid(bar + 1);
    return true;
}

}  // namespace

KyList<KyString> discoverRpcTargets(const KyString& domain, const KyList<RpcRequestSpec>& specs,
                                    bool requireTypeMatch) {
    if (domain.isEmpty()) return {};
    return detail::discoverRpcTargetsIn_(RegistryTable<256>::snapshot(domain), domain, specs, requireTypeMatch);
}

ProxyObjectBase::ProxyObjectBase(const KyString& domain, const KyString& object, const KyString& clientInfo)
    : domain_(domain), object_(object), clientInfo_(clientInfo) {}

ProxyObjectBase::~ProxyObjectBase() = default;

uint32_t ProxyObjectBase::remotePid_() const { return detail::remotePidOf_(domain_, object_); }

namespace detail {

KyList<KyString> discoverRpcTargetsIn_(const KyList<KyJsonValue>& rows, const KyString& domain,
                                       const KyList<RpcRequestSpec>& specs, bool requireTypeMatch) {
    KyList<KyString> targets;
    if (domain.isEmpty()) return targets;

    KyMap<KyString, KyString> required;
    for (const RpcRequestSpec& spec : specs) required.insert(spec.name, detail::hex64(spec.typeId));
    // A queue of another capacity has another name, so its server cannot be
    // reached from this process however well its methods match.
    const KyString capacity = KyString::number(rpcQueueCapacityStorage_());

    // object -> (method name -> typeId text)
    KyMap<KyString, KyMap<KyString, KyString>> offered;
    for (const KyJsonValue& row : rows) {
        const KyString signal = rowText(row, "signal");
        if (!signal.startsWith(kRpcPrefix)) continue;
        // Domains whose names sanitise alike share one table; keep to ours.
        if (rowText(row, "domain") != domain) continue;
        const KyString object = rowText(row, "object");
        if (object.isEmpty()) continue;
        KyString rowCapacity;
        KyString method;
        if (!splitMethodKey(signal.mid(kRpcPrefix.size()), rowCapacity, method)) continue;
        if (rowCapacity != capacity) continue;
        if (!required.isEmpty() && !required.contains(method)) continue;
        offered[object].insert(method, rowText(row, "typeId"));
    }

    for (const auto& [object, methods] : offered) {
        bool match = true;
        for (const auto& [name, typeId] : required) {
            auto it = methods.find(name);
            if (it == methods.end() || (requireTypeMatch && it->second != typeId)) {
                match = false;
                break;
            }
        }
        if (match) targets.append(domain + "/" + object);
    }
    std::sort(targets.begin(), targets.end());
    return targets;
}

uint32_t remotePidOf_(const KyString& domain, const KyString& object) {
    if (domain.isEmpty() || object.isEmpty()) return 0;
    return remotePidIn_(RegistryTable<256>::snapshot(domain), domain, object);
}

uint32_t remotePidIn_(const KyList<KyJsonValue>& rows, const KyString& domain, const KyString& object) {
    if (domain.isEmpty() || object.isEmpty()) return 0;
    const uint32_t self = static_cast<uint32_t>(::getpid());
    // Asked once: the rows a client leaves under the object carry its own
    // pid, and they must not make a vanished server look alive.
    const bool servedHere = isObjectServedHere_(domain, object);
    uint32_t configPid = 0;
    uint32_t rpcPid = 0;
    uint32_t anyPid = 0;
    for (const KyJsonValue& row : rows) {
        if (rowText(row, "object") != object) continue;
        if (rowText(row, "domain") != domain) continue;
        const KyString signal = rowText(row, "signal");
        // A reply queue is always a client's: another console's replies must
        // not make a vanished server look alive.
        if (signal.startsWith(kRpcReplyPrefix)) continue;
        const uint32_t pid = rowPid_(row);
        if (pid == 0) continue;
        if (pid == self) {
            if (!servedHere) continue;
        } else if (processGone_(pid)) {
            continue;
        }
        if (configPid == 0 && signal.startsWith(kConfigPrefix)) configPid = pid;
        if (rpcPid == 0 && signal.startsWith(kRpcPrefix)) rpcPid = pid;
        if (anyPid == 0) anyPid = pid;
    }
    if (configPid != 0) return configPid;
    if (rpcPid != 0) return rpcPid;
    return anyPid;
}

uint32_t rowPid_(const KyJsonValue& row) {
    const KyJsonValue& v = row["pid"];
    if (v.isBool()) return v.toBool() ? 1u : 0u;
    if (v.isInteger()) {
        const int64_t pid = v.toInt64();
        return (pid > 0 && pid <= static_cast<int64_t>(UINT32_MAX)) ? static_cast<uint32_t>(pid) : 0u;
    }
    if (v.isDouble()) {
        const double d = v.toDouble();
        if (!std::isfinite(d) || d < 1.0 || d > static_cast<double>(UINT32_MAX)) return 0;
        return static_cast<uint32_t>(d);
    }
    return 0;
}

void markObjectServed_(const KyString& domain, const KyString& path, bool served) {
    ServedPaths& paths = servedPaths();
    std::lock_guard<std::mutex> lock(paths.mtx);
    const auto key = std::make_pair(domain, path);
    if (served) {
        ++paths.counts[key];
        return;
    }
    auto it = paths.counts.find(key);
    if (it == paths.counts.end()) return;
    if (--it->second <= 0) paths.counts.erase(it);
}

bool isObjectServedHere_(const KyString& domain, const KyString& path) {
    ServedPaths& paths = servedPaths();
    std::lock_guard<std::mutex> lock(paths.mtx);
    return paths.counts.count(std::make_pair(domain, path)) != 0;
}

}  // namespace detail
}  // namespace ky::ipc
