// Whom the console trusts with the user's password: the owner of the process
// behind the agent's registry rows.
//
// The IPC's shared objects are open to every local user (mode 0666), so any
// local account can register "velnet/VelmoVpnAgent" in the console's domain.
// Before binding, the console reads the owner of the pid that the registry
// names (/proc/<pid>): an agent run by root, by the console's own user, or by
// the service account an administrator named (the environment variable
// VELMO_TRUSTED_AGENT_USER, else the setting "agent/trustedUser" of the
// console's settings file; a user name or a numeric uid) is bound; any other
// is left alone, logged once, and shown as not trusted, and the search goes on.
//
// The registry's pid is written by the registering process itself, so this
// keeps the console away from an agent that another account runs, not from a
// local user who sets out to forge rows: the README's Security section says so.
//
// velmoVpnConsoleSendLogin is the one road of the password to the agent: it
// checks the owner again right before the call and wipes the password
// whatever happens.
//
// Threads: the console's main thread (or any thread: nothing here keeps state).
#pragma once

#include <cstdint>
#include <optional>

#include "core/types/KyString.h"

class VelmoVpnAgentProxy;

/// The environment variable naming the agent's service account.
inline constexpr const char* kVelmoVpnTrustedAgentUserVariable = "VELMO_TRUSTED_AGENT_USER";
/// The same in the console's settings file (~/.config/velmo/VelmoVpnConsole.conf).
inline constexpr const char* kVelmoVpnTrustedAgentUserKey = "agent/trustedUser";

/// Who runs a process.
struct VelmoVpnAgentOwner {
    uint32_t pid = 0;
    /// /proc/<pid> could be read; uid means nothing otherwise.
    bool known = false;
    uint32_t uid = 0;
    /// The account's name, empty when the uid has none.
    KyString userName;
    /// /proc/<pid>/comm.
    KyString processName;
};

/// The accounts whose agent the console binds besides root.
struct VelmoVpnAgentTrustPolicy {
    uint32_t ownUid = 0;
    /// The configured service account, when it names one.
    std::optional<uint32_t> serviceUid;
    /// The name as configured ("" when none), and why it names no account.
    KyString serviceUser;
    KyString configurationError;
};

/// Reads the owner of a process from /proc; known is false when it cannot.
VelmoVpnAgentOwner velmoVpnConsoleAgentOwner(uint32_t pid);
/// A user name from the passwd database or a decimal uid.
std::optional<uint32_t> velmoVpnConsoleResolveUser(const KyString& nameOrUid);
/// This process's uid and the configured service account (the variable wins
/// over the setting).
VelmoVpnAgentTrustPolicy velmoVpnConsoleAgentTrustPolicy();
/// Root, the console's own uid or the service account; an unknown owner never.
bool velmoVpnConsoleAgentTrusted(const VelmoVpnAgentOwner& owner, const VelmoVpnAgentTrustPolicy& policy);

/// "user nobody", "uid 1234" (no name), or "" when the owner is not known.
KyString velmoVpnConsoleAgentOwnerText(const VelmoVpnAgentOwner& owner);
/// The status text of an agent that is not trusted:
/// "The local agent is not trusted (runs as user nobody)", or
/// "The local agent is not trusted (its owner cannot be read)" for "".
KyString velmoVpnConsoleUntrustedAgentText(const KyString& ownerText);
/// The warning logged for it, naming uid, user, pid and process.
KyString velmoVpnConsoleUntrustedAgentWarning(const VelmoVpnAgentOwner& owner);

/// What velmoVpnConsoleSendLogin did.
enum class VelmoVpnSignInResult {
    /// The agent took the request; its authState tells the rest.
    Sent,
    /// The call failed ("rpc: timeout", a full queue...): lastError("loginUser").
    CallFailed,
    /// No agent, or its process is gone: nothing was sent.
    NoAgent,
    /// The agent's owner is not trusted: nothing was sent, a warning was logged.
    AgentNotTrusted,
};

/// Sends loginUser(baseUrl, email, password) to the agent after checking its
/// owner once more, then wipes password (the caller's buffer, typically the
/// password field's text) in every case: sent, failed, timed out or refused.
/// The encoded request is wiped by the IPC layer once it is pushed, and the
/// agent's drain wipes the shared slot. The session's own step
/// (velmoVpnConsoleBeginSignIn) comes before this call.
VelmoVpnSignInResult velmoVpnConsoleSendLogin(VelmoVpnAgentProxy* agent, const VelmoVpnAgentTrustPolicy& policy,
                                              const KyString& baseUrl, const KyString& email, KyString& password,
                                              int timeoutMs);
