// Whom the console trusts with the user's password. See the header.
#include "console/VelmoVpnConsoleAgentTrust.h"

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "console/VelmoVpnAgentProxy.h"
#include "core/io/KyDebug.h"
#include "core/io/KySettings.h"
#include "core/platform/KyStandardPaths.h"
#include "core/types/KySecureMemory.h"
#include "ipc/IpcNames.h"

namespace {

constexpr const char* kCategory = "velmo.console";

bool pidAlive_(uint32_t pid) { return !ky::ipc::detail::processGone_(pid); }

KyString userNameOf_(uint32_t uid) {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(static_cast<uid_t>(uid), &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return KyString();
    return KyString(found->pw_name);
}

} // namespace

VelmoVpnAgentOwner velmoVpnConsoleAgentOwner(uint32_t pid) {
    VelmoVpnAgentOwner owner;
    owner.pid = pid;
    if (pid == 0) return owner;
    const std::string dir = "/proc/" + std::to_string(pid);
    // The credentials, not the owner of the /proc directory: a process that
    // makes itself non-dumpable has its /proc entries shown as root's.
    std::ifstream status(dir + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("Uid:", 0) != 0) continue;
        // Real, effective, saved and file-system uids: the effective one
        // rules what the process may do.
        unsigned long real = 0, effective = 0;
        if (std::sscanf(line.c_str() + 4, "%lu %lu", &real, &effective) == 2) {
            owner.known = true;
            owner.uid = static_cast<uint32_t>(effective);
        }
        break;
    }
    if (!owner.known) return owner;
    owner.userName = userNameOf_(owner.uid);
    std::ifstream comm(dir + "/comm");
    std::string name;
    std::getline(comm, name);
    owner.processName = KyString(name);
    return owner;
}

std::optional<uint32_t> velmoVpnConsoleResolveUser(const KyString& nameOrUid) {
    const KyString text = nameOrUid.trimmed();
    if (text.isEmpty()) return std::nullopt;
    bool numeric = false;
    const unsigned long long uid = text.toULongLong(&numeric);
    if (numeric) {
        if (uid > 0xfffffffeULL) return std::nullopt;
        return static_cast<uint32_t>(uid);
    }
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwnam_r(text.c_str(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return std::nullopt;
    return static_cast<uint32_t>(found->pw_uid);
}

VelmoVpnAgentTrustPolicy velmoVpnConsoleAgentTrustPolicy() {
    VelmoVpnAgentTrustPolicy policy;
    policy.ownUid = static_cast<uint32_t>(::geteuid());
    KyString configured = KyStandardPaths::environment(kVelmoVpnTrustedAgentUserVariable).trimmed();
    if (configured.isEmpty()) {
        KySettings settings("velmo", "VelmoVpnConsole");
        configured = settings.value(kVelmoVpnTrustedAgentUserKey).trimmed();
    }
    policy.serviceUser = configured;
    if (configured.isEmpty()) return policy;
    policy.serviceUid = velmoVpnConsoleResolveUser(configured);
    if (!policy.serviceUid)
        policy.configurationError = KyString("the agent's service account \"") + configured +
                                    "\" is neither a user of this machine nor a uid";
    return policy;
}

bool velmoVpnConsoleAgentTrusted(const VelmoVpnAgentOwner& owner, const VelmoVpnAgentTrustPolicy& policy) {
    if (!owner.known) return false;
    return owner.uid == 0 || owner.uid == policy.ownUid || (policy.serviceUid && owner.uid == *policy.serviceUid);
}

KyString velmoVpnConsoleAgentOwnerText(const VelmoVpnAgentOwner& owner) {
    if (!owner.known) return KyString();
    if (!owner.userName.isEmpty()) return KyString("user ") + owner.userName;
    return KyString("uid ") + KyString::number(owner.uid);
}

KyString velmoVpnConsoleUntrustedAgentText(const KyString& ownerText) {
    if (ownerText.isEmpty()) return "The local agent is not trusted (its owner cannot be read)";
    return KyString("The local agent is not trusted (runs as ") + ownerText + ")";
}

KyString velmoVpnConsoleUntrustedAgentWarning(const VelmoVpnAgentOwner& owner) {
    KyString line = KyString("Not binding the local agent: process ") + KyString::number(owner.pid);
    if (!owner.processName.isEmpty()) line += KyString(" (") + owner.processName + ")";
    if (!owner.known) return line + " has an owner that cannot be read";
    line += KyString(" runs as uid ") + KyString::number(owner.uid);
    if (!owner.userName.isEmpty()) line += KyString(" (") + owner.userName + ")";
    line += KyString(", which is neither root, this console's user nor the service account named by ") +
            kVelmoVpnTrustedAgentUserVariable;
    return line;
}

VelmoVpnSignInResult velmoVpnConsoleSendLogin(VelmoVpnAgentProxy* agent, const VelmoVpnAgentTrustPolicy& policy,
                                              const KyString& baseUrl, const KyString& email, KyString& password,
                                              int timeoutMs) {
    // Whatever the road out of here, the password does not stay behind: not
    // in the caller's buffer, and not on this stack, where the call's
    // encoder and the registers saved during it left copies.
    struct Wipe {
        KyString& text;
        ~Wipe() {
            kySecureClear(text);
            kySecureZeroStack();
        }
    } wipe{password};

    if (!agent) return VelmoVpnSignInResult::NoAgent;
    const uint32_t pid = agent->remotePid_();
    if (!pidAlive_(pid)) return VelmoVpnSignInResult::NoAgent;
    // The agent may have been replaced since the bind: the registry row goes
    // to whichever process took the object over.
    const VelmoVpnAgentOwner owner = velmoVpnConsoleAgentOwner(pid);
    if (!velmoVpnConsoleAgentTrusted(owner, policy)) {
        kyLogWarning(kCategory) << velmoVpnConsoleUntrustedAgentWarning(owner) + "; the sign-in was not sent";
        return VelmoVpnSignInResult::AgentNotTrusted;
    }
    return agent->loginUser(baseUrl, email, password, timeoutMs) ? VelmoVpnSignInResult::Sent
                                                                  : VelmoVpnSignInResult::CallFailed;
}
