// VelmoDemoWorkspace: the simulated session, catalog, link and traffic.
#include "tools/velmo-demo-agent/VelmoDemoWorkspace.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <random>

#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KySaveFile.h"
#include "core/platform/KyStandardPaths.h"
#include "core/types/KyJsonArray.h"
#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonHelpers.h"

namespace {

constexpr const char* kDisplayName = "Demo User";
constexpr const char* kWorkspaceId = "ws-velmo-demo";
constexpr const char* kRole = "admin";
/// The client id of the machine the agent runs on, as the workspace knows it.
constexpr const char* kLocalClientId = "cl-this-device";

std::uint64_t mix(std::uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

int clampInt(std::int64_t v) { return static_cast<int>(std::min<std::int64_t>(v, INT_MAX)); }

KyString hotspotTitle(const VelmoDemoHotspot& h) { return h.name.isEmpty() ? KyString("Unnamed VPN") : h.name; }

// The host part of a base URL, for texts; the default server when there is none.
KyString serverHost(const KyString& baseUrl) {
    KyString host = baseUrl;
    const std::size_t scheme = host.indexOf("://");
    if (scheme != KyString::npos) host = host.mid(scheme + 3);
    const std::size_t slash = host.indexOf('/');
    if (slash != KyString::npos) host = host.left(slash);
    return host.isEmpty() ? KyString("the default workspace server") : host;
}

bool plausibleBaseUrl(const KyString& baseUrl) {
    if (baseUrl.isEmpty()) return true;
    const KyString rest = baseUrl.startsWith("https://") ? baseUrl.mid(8)
                          : baseUrl.startsWith("http://") ? baseUrl.mid(7)
                                                          : KyString();
    return !rest.isEmpty() && !rest.contains(' ') && !rest.startsWith("/");
}

KyString sanitizeForPath(const KyString& text) {
    KyString out;
    for (char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                           c == '_' || c == '.';
        out += plain ? c : '_';
    }
    if (out.isEmpty() || out == "." || out == "..") out = "default";
    return out;
}

} // namespace

VelmoDemoWorkspace::VelmoDemoWorkspace(VelmoDemoWorkspaceOptions options, VelmoDemoSignals signals)
    : options_(std::move(options)),
      signals_(std::move(signals)),
      catalog_(options_.seed, options_.catalogSize),
      malformedPending_(options_.malformedSnapshot) {}

VelmoDemoWorkspace::~VelmoDemoWorkspace() = default;

KyList<KyString> VelmoDemoWorkspace::methodNames() {
    KyList<KyString> names;
    for (const char* name : {"createTun", "closeTun", "connectWs", "disconnectWs", "clearLog", "tunIsOpen",
                             "wsIsConnected", "setRemoteConfig", "loginUser", "logoutUser", "refreshVpnCatalog",
                             "refreshVpnEndpoints", "setInspectedHotspot", "setEndpointVpnState", "connectHotspot",
                             "disconnectHotspot", "requestShutdown"})
        names.append(name);
    return names;
}

KyString VelmoDemoWorkspace::defaultStateDirectory(const KyString& domain) {
    return KyStandardPaths::stateDirectory() + "/velmo-demo-agent/" + sanitizeForPath(domain);
}

KyString VelmoDemoWorkspace::sessionFilePath() const {
    const KyString dir =
        options_.stateDirectory.isEmpty() ? defaultStateDirectory(options_.domain) : options_.stateDirectory;
    return dir + "/session.json";
}

// ---------------------------------------------------------------- plumbing

bool VelmoDemoWorkspace::enterCall_(const char* method) {
    const auto matches = [method](const KyString& name) { return name.isEmpty() || name == method; };
    if (options_.exitInCall && matches(options_.exitMethod)) {
        std::fprintf(stderr, "velmo-demo-agent: exiting inside %s without a reply (fault switch)\n", method);
        std::fflush(stderr);
        if (options_.exitNow) options_.exitNow();
        else ::_exit(75);
        return false;
    }
    if (options_.slowReplies && matches(options_.slowMethod)) {
        if (options_.sleepMs) {
            options_.sleepMs(options_.slowReplyMs);
        } else {
            timespec left{options_.slowReplyMs / 1000, (options_.slowReplyMs % 1000) * 1000000L};
            // Resumed after a signal, so the reply is late by the whole amount.
            while (::nanosleep(&left, &left) != 0) {}
        }
    }
    return true;
}

void VelmoDemoWorkspace::after_(int delayMs, std::function<void()> run) {
    steps_.push_back(Step{nowMs_ + delayMs, stepOrder_++, std::move(run)});
}

void VelmoDemoWorkspace::log_(const KyString& line) {
    logHistory_.push_back(line);
    if (logHistory_.size() > kLogHistory) logHistory_.erase(logHistory_.begin());
    if (signals_.logLine) signals_.logLine(line);
}

void VelmoDemoWorkspace::start(std::int64_t nowMs) {
    if (started_) return;
    started_ = true;
    nowMs_ = lastStatsMs_ = lastDriftMs_ = nowMs;
    log_(KyString::format("Demo workspace: %d VPNs (seed %llu), domain ", static_cast<int>(catalog_.hotspots().size()),
                          static_cast<unsigned long long>(options_.seed)) +
         options_.domain);
    if (signals_.stats) signals_.stats(0, 0, 0);
    setTun_(false, "TUN closed");
    setWs_(2, "Disconnected");
    publishClientConfig_();
    if (signals_.assignedNetworkState) signals_.assignedNetworkState("", "", "");
    publishCatalog_();
    publishEndpoints_("idle");

    KyJsonObject saved;
    const bool haveSession = readSession_(saved);
    if (haveSession) {
        email_ = jsonStringValue(saved, "email");
        baseUrl_ = jsonStringValue(saved, "baseUrl");
        token_ = jsonStringValue(saved, "token");
        rememberedHotspotId_ = jsonStringValue(saved, "activeHotspotId");
    }
    const std::uint64_t gen = ++authGeneration_;
    if (options_.reconnecting) {
        setAuth_("reconnecting");
        log_("Retrying the saved session");
        for (int attempt = 1; attempt <= kReconnectAttempts; ++attempt) {
            after_(attempt * kReconnectAttemptMs, [this, gen, attempt, haveSession] {
                if (gen != authGeneration_) return;
                const bool last = attempt == kReconnectAttempts;
                if (last && haveSession) {
                    becomeReady_(true);
                    return;
                }
                log_(KyString::format("Reconnect attempt %d of %d failed: control server unreachable", attempt,
                                      kReconnectAttempts));
                if (last) {
                    resetSession_();
                    setAuth_("logged_out", "The saved session could not be restored. Sign in again.");
                }
            });
        }
    } else if (haveSession) {
        setAuth_("restoring");
        log_("Restoring the saved session of " + email_);
        after_(kRestoreDelayMs, [this, gen] {
            if (gen == authGeneration_) becomeReady_(true);
        });
    } else {
        publishAuth_();
    }
}

void VelmoDemoWorkspace::tick(std::int64_t nowMs) {
    if (!started_) return;
    nowMs_ = std::max(nowMs_, nowMs);
    // Due steps run in the order they fall due, and in the order they were
    // made when they fall due together; a step may add more.
    for (;;) {
        auto next = steps_.end();
        for (auto it = steps_.begin(); it != steps_.end(); ++it)
            if (it->due <= nowMs_ && (next == steps_.end() || it->due < next->due ||
                                      (it->due == next->due && it->order < next->order)))
                next = it;
        if (next == steps_.end()) break;
        std::function<void()> run = std::move(next->run);
        steps_.erase(next);
        run();
    }
    runTraffic_(nowMs_);
}

// ---------------------------------------------------------------- session

void VelmoDemoWorkspace::publishAuth_() {
    KyJsonObject o;
    o.insert("status", authStatus_);
    o.insert("error", authError_);
    const bool identified = authStatus_ == "ready" || authStatus_ == "restoring" || authStatus_ == "reconnecting" ||
                            authStatus_ == "logging_out";
    if (identified && !email_.isEmpty()) {
        o.insert("email", email_);
        o.insert("displayName", kDisplayName);
        o.insert("workspaceId", kWorkspaceId);
        o.insert("role", kRole);
        o.insert("clientId", kLocalClientId);
    }
    o.insert("baseUrl", baseUrl_);
    o.insert("activeHotspotId", activeHotspotId_);
    if (signals_.authState) signals_.authState(KyJsonDocument::generateJson(KyJsonValue(std::move(o)), KyJsonDocument::Compact));
}

void VelmoDemoWorkspace::setAuth_(const KyString& status, const KyString& error) {
    authStatus_ = status;
    authError_ = error;
    publishAuth_();
}

void VelmoDemoWorkspace::becomeReady_(bool restored) {
    setAuth_("ready");
    saveSession_();
    log_((restored ? "Session restored for " : "Signed in as ") + email_ + " at " + serverHost(baseUrl_));
    const std::uint64_t gen = authGeneration_;
    setWs_(0, "Connecting to " + serverHost(baseUrl_));
    const std::uint64_t link = ++linkGeneration_;
    after_(kLinkDelayMs, [this, gen, link] {
        if (gen != authGeneration_ || link != linkGeneration_ || !activeHotspotId_.isEmpty()) return;
        setWs_(1, "CONTROL connected to " + serverHost(baseUrl_));
    });
    loadCatalog_("loading");
}

void VelmoDemoWorkspace::resetSession_() {
    leaveHotspot_(true);
    ++linkGeneration_;
    ++catalogGeneration_;
    ++endpointGeneration_;
    setWs_(2, "Disconnected");
    catalogStatus_ = "idle";
    catalogError_.clear();
    catalogLoaded_ = false;
    inspectedHotspotId_.clear();
    endpointStatus_ = "idle";
    token_.clear();
    email_.clear();
    rememberedHotspotId_.clear();
    rx_ = tx_ = drop_ = wouldDrop_ = 0;
    if (signals_.stats) signals_.stats(0, 0, 0);
    publishCatalog_();
    publishEndpoints_("idle");
}

bool VelmoDemoWorkspace::readSession_(KyJsonObject& out) {
    const KyString path = sessionFilePath();
    if (!KyFile::exists(path)) return false;
    KyString text;
    KyString error;
    if (!KyFile::readAll(path, text, &error)) {
        log_("Ignoring the saved session: " + error);
        return false;
    }
    out = parseJsonObjectOrEmpty(text);
    if (jsonStringValue(out, "token").isEmpty() ||
        jsonStringValue(out, "email").trimmed().toLower() != KyString(kDemoEmail)) {
        log_("Ignoring an unreadable saved session at " + path);
        return false;
    }
    return true;
}

void VelmoDemoWorkspace::saveSession_() {
    if (authStatus_ != "ready" || token_.isEmpty()) return;
    const KyString path = sessionFilePath();
    KyString error;
    if (!KyDir::createPathTree(KyDir::parentPath(path), &error)) {
        log_("Could not remember the session: " + error);
        return;
    }
    KyJsonObject o;
    o.insert("v", 1);
    o.insert("token", token_);
    o.insert("email", email_);
    o.insert("baseUrl", baseUrl_);
    o.insert("activeHotspotId", rememberedHotspotId_);
    const KyString text = KyJsonDocument::generateJson(KyJsonValue(std::move(o)), KyJsonDocument::Indented);
    if (!KySaveFile::writeAtomically(path, text.view(), &error, 0600)) log_("Could not remember the session: " + error);
}

void VelmoDemoWorkspace::forgetSession_() {
    const KyString path = sessionFilePath();
    KyString error;
    if (KyFile::exists(path) && !KyFile::remove(path, &error)) log_("Could not forget the session: " + error);
}

bool VelmoDemoWorkspace::loginUser(const KyString& baseUrl, const KyString& email, const KyString& password) {
    if (!enterCall_("loginUser")) return false;
    if (authStatus_ != "logged_out") {
        // A new sign-in replaces the session; a failed one must not bring the old one back at the next start.
        forgetSession_();
        resetSession_();
    }
    const std::uint64_t gen = ++authGeneration_;
    email_ = email.trimmed();
    baseUrl_ = baseUrl.trimmed();
    setAuth_("authenticating");
    log_("Signing in " + (email_.isEmpty() ? KyString("(no e-mail)") : email_) + " at " + serverHost(baseUrl_));
    after_(kSignInDelayMs, [this, gen, password] {
        if (gen != authGeneration_) return;
        KyString error;
        if (options_.loginError) error = "Workspace server unavailable (HTTP 503). Try again later.";
        else if (!plausibleBaseUrl(baseUrl_)) error = "Invalid workspace URL: " + baseUrl_;
        else if (email_.isEmpty()) error = "Enter your e-mail address.";
        else if (email_.toLower() != KyString(kDemoEmail) || password != kDemoPassword) error = "Invalid e-mail or password.";
        if (!error.isEmpty()) {
            log_("Sign-in failed: " + error);
            email_.clear();
            setAuth_("logged_out", error);
            return;
        }
        email_ = kDemoEmail;
        std::random_device random;
        token_ = KyString::format("%08x%08x%08x%08x", random(), random(), random(), random());
        rememberedHotspotId_.clear();
        becomeReady_(false);
    });
    return true;
}

bool VelmoDemoWorkspace::logoutUser() {
    if (!enterCall_("logoutUser")) return false;
    if (authStatus_ == "logged_out") {
        publishAuth_();
        return true;
    }
    const std::uint64_t gen = ++authGeneration_;
    setAuth_("logging_out");
    log_("Signing out " + email_);
    forgetSession_();
    leaveHotspot_(true);
    after_(kLogoutDelayMs, [this, gen] {
        if (gen != authGeneration_) return;
        resetSession_();
        setAuth_("logged_out");
        log_("Signed out");
    });
    return true;
}

// ---------------------------------------------------------------- catalog

KyString VelmoDemoWorkspace::fitSnapshot_(KyJsonObject head, const char* listKey, const std::vector<KyJsonObject>& items,
                                          int* shown) const {
    head.insert(listKey, KyJsonArray());
    std::size_t used = KyJsonDocument::generateJson(KyJsonValue(head), KyJsonDocument::Compact).size();
    const std::size_t budget = static_cast<std::size_t>(std::max(options_.snapshotBudget, 0));
    KyJsonArray list;
    for (const KyJsonObject& item : items) {
        const std::size_t size = KyJsonDocument::generateJson(KyJsonValue(item), KyJsonDocument::Compact).size() +
                                 (list.isEmpty() ? 0 : 1);
        if (used + size > budget) break;
        used += size;
        list.append(KyJsonValue(item));
    }
    *shown = list.count();
    head.insert(listKey, std::move(list));
    return KyJsonDocument::generateJson(KyJsonValue(std::move(head)), KyJsonDocument::Compact);
}

int VelmoDemoWorkspace::publishCatalog_() {
    std::vector<KyJsonObject> items;
    if (catalogLoaded_)
        for (const VelmoDemoHotspot& h : catalog_.hotspots()) items.push_back(VelmoDemoCatalog::hotspotJson(h));
    KyJsonObject head;
    head.insert("status", catalogStatus_);
    head.insert("error", catalogError_);
    head.insert("activeHotspotId", activeHotspotId_);
    head.insert("total", static_cast<int>(items.size()));
    int shown = 0;
    KyString text = fitSnapshot_(std::move(head), "hotspots", items, &shown);
    if (malformedPending_ && catalogStatus_ == "ready") {
        malformedPending_ = false;
        text = text.left(text.size() / 2);
        log_("Sent a damaged catalog snapshot (fault switch)");
    }
    if (signals_.vpnCatalogState) signals_.vpnCatalogState(text);
    return shown;
}

void VelmoDemoWorkspace::loadCatalog_(const KyString& word) {
    const std::uint64_t gen = ++catalogGeneration_;
    const std::uint64_t auth = authGeneration_;
    catalogStatus_ = word;
    catalogError_.clear();
    publishCatalog_();
    after_(kCatalogDelayMs, [this, gen, auth] {
        if (gen != catalogGeneration_ || auth != authGeneration_ || authStatus_ != "ready") return;
        catalogStatus_ = "ready";
        catalogLoaded_ = true;
        const int shown = publishCatalog_();
        const int total = static_cast<int>(catalog_.hotspots().size());
        log_(KyString::format("VPN catalog ready: %d VPNs", total));
        if (shown < total)
            log_(KyString::format("Catalog snapshot shows the first %d of %d VPNs (one snapshot holds about %d bytes)",
                                  shown, total, options_.snapshotBudget));
        if (activeHotspotId_.isEmpty() && !rememberedHotspotId_.isEmpty()) {
            if (catalog_.hotspot(rememberedHotspotId_)) joinHotspot_(rememberedHotspotId_);
            else log_("The VPN of the last session is gone: " + rememberedHotspotId_);
        }
    });
}

bool VelmoDemoWorkspace::refreshVpnCatalog() {
    if (!enterCall_("refreshVpnCatalog")) return false;
    if (authStatus_ != "ready") {
        log_("Sign in before loading the VPN catalog");
        return false;
    }
    loadCatalog_("loading");
    return true;
}

// ---------------------------------------------------------------- endpoints

int VelmoDemoWorkspace::publishEndpoints_(const KyString& status, const KyString& error) {
    std::vector<KyJsonObject> items;
    if ((status == "ready" || status == "refreshing") && catalog_.hotspot(inspectedHotspotId_))
        for (const VelmoDemoEndpoint& e : catalog_.endpoints(inspectedHotspotId_))
            items.push_back(VelmoDemoCatalog::endpointJson(e));
    KyJsonObject head;
    head.insert("status", status);
    head.insert("error", error);
    head.insert("hotspotId", inspectedHotspotId_);
    head.insert("activeHotspotId", activeHotspotId_);
    head.insert("total", static_cast<int>(items.size()));
    int shown = 0;
    const KyString text = fitSnapshot_(std::move(head), "devices", items, &shown);
    if (signals_.vpnEndpointsState) signals_.vpnEndpointsState(text);
    return shown;
}

void VelmoDemoWorkspace::loadEndpoints_(const KyString& word) {
    const std::uint64_t gen = ++endpointGeneration_;
    const KyString hotspotId = inspectedHotspotId_;
    endpointStatus_ = word;
    publishEndpoints_(word);
    after_(kEndpointDelayMs, [this, gen, hotspotId] {
        if (gen != endpointGeneration_ || hotspotId != inspectedHotspotId_ || authStatus_ != "ready") return;
        endpointStatus_ = "ready";
        const int shown = publishEndpoints_("ready");
        const int total = static_cast<int>(catalog_.endpoints(hotspotId).size());
        if (shown < total)
            log_(KyString::format("Endpoint snapshot shows the first %d of %d devices of ", shown, total) + hotspotId);
    });
}

bool VelmoDemoWorkspace::setInspectedHotspot(const KyString& hotspotId) {
    if (!enterCall_("setInspectedHotspot")) return false;
    if (authStatus_ != "ready") {
        log_("Sign in before inspecting a VPN");
        return false;
    }
    ++endpointGeneration_;
    inspectedHotspotId_ = hotspotId;
    if (hotspotId.isEmpty()) {
        endpointStatus_ = "idle";
        publishEndpoints_("idle");
        return true;
    }
    const VelmoDemoHotspot* h = catalog_.hotspot(hotspotId);
    if (!h) {
        endpointStatus_ = "error";
        publishEndpoints_("error", "Unknown VPN: " + hotspotId);
        log_("Cannot inspect an unknown VPN: " + hotspotId);
        return false;
    }
    log_("Inspecting VPN " + hotspotTitle(*h));
    loadEndpoints_("loading");
    return true;
}

bool VelmoDemoWorkspace::refreshVpnEndpoints(const KyString& hotspotId) {
    if (!enterCall_("refreshVpnEndpoints")) return false;
    if (authStatus_ != "ready") {
        log_("Sign in before loading VPN users");
        return false;
    }
    const KyString id = hotspotId.isEmpty() ? inspectedHotspotId_ : hotspotId;
    if (!catalog_.hotspot(id)) {
        log_("Cannot refresh the users of an unknown VPN: " + id);
        return false;
    }
    const bool same = id == inspectedHotspotId_;
    inspectedHotspotId_ = id;
    loadEndpoints_(same ? "refreshing" : "loading");
    return true;
}

bool VelmoDemoWorkspace::setEndpointVpnState(const KyString& hotspotId, const KyString& clientId, bool enabled) {
    if (!enterCall_("setEndpointVpnState")) return false;
    if (authStatus_ != "ready") {
        log_("Sign in before changing VPN access");
        return false;
    }
    // This machine's own client: switching it on in a VPN joins that VPN,
    // switching it off leaves it.
    if (clientId == kLocalClientId) {
        if (!catalog_.hotspot(hotspotId)) {
            log_("Cannot join an unknown VPN: " + hotspotId);
            return false;
        }
        if (enabled) {
            if (hotspotId == activeHotspotId_) return true;
            rememberedHotspotId_ = hotspotId;
            joinHotspot_(hotspotId);
        } else if (hotspotId == activeHotspotId_) {
            rememberedHotspotId_.clear();
            leaveHotspot_(false);
        }
        saveSession_();
        return true;
    }
    VelmoDemoEndpoint* e = catalog_.endpoint(hotspotId, clientId);
    if (!e) {
        log_("Unknown endpoint " + clientId + " in VPN " + hotspotId);
        return false;
    }
    if (e->vpnEnabled != enabled) {
        e->vpnEnabled = enabled;
        if (e->controlOnline) e->currentIp = enabled ? e->reservedIp : KyString("203.0.113.77");
    }
    log_("VPN access " + KyString(enabled ? "on" : "off") + " for " + e->machineName + " (" + e->username + ") in " +
         hotspotTitle(*catalog_.hotspot(hotspotId)));
    if (hotspotId == inspectedHotspotId_) loadEndpoints_("refreshing");
    return true;
}

void VelmoDemoWorkspace::republishEndpoints_() {
    // Only the active id changed; an error answer keeps its text until the next selection.
    if (!inspectedHotspotId_.isEmpty() && endpointStatus_ != "error") publishEndpoints_(endpointStatus_);
}

// ---------------------------------------------------------------- link and tunnel

void VelmoDemoWorkspace::setTun_(bool open, const KyString& text) {
    tunOpen_ = open;
    if (!open) lastStatsMs_ = nowMs_;
    if (signals_.tunState) signals_.tunState(open, text);
}

void VelmoDemoWorkspace::setWs_(int state, const KyString& text) {
    wsState_ = state;
    if (signals_.wsState) signals_.wsState(state, text);
}

void VelmoDemoWorkspace::publishClientConfig_() {
    if (signals_.clientConfigState) signals_.clientConfigState(activeHotspotId_, filter_.fullRoute());
}

void VelmoDemoWorkspace::joinHotspot_(const KyString& hotspotId) {
    const VelmoDemoHotspot* h = catalog_.hotspot(hotspotId);
    if (!h) return;
    if (!activeHotspotId_.isEmpty()) leaveHotspot_(true);
    activeHotspotId_ = hotspotId;
    const std::uint64_t link = ++linkGeneration_;
    if (!tunOpen_) log_("TUN velmo0 opened");
    setTun_(true, "velmo0 " + VelmoDemoCatalog::localAddress(*h));
    publishClientConfig_();
    if (signals_.assignedNetworkState)
        signals_.assignedNetworkState(VelmoDemoCatalog::localAddress(*h), h->subnet, VelmoDemoCatalog::gateway(*h));
    setWs_(0, "Joining VPN " + hotspotTitle(*h));
    log_("Joining VPN " + hotspotTitle(*h) + " (" + h->subnet + ")");
    publishAuth_();
    publishCatalog_();
    republishEndpoints_();
    const KyString title = hotspotTitle(*h);
    const KyString subnet = h->subnet;
    after_(kLinkDelayMs, [this, link, hotspotId, title, subnet] {
        if (link != linkGeneration_ || activeHotspotId_ != hotspotId) return;
        setWs_(1, "VPN " + title + " connected (" + subnet + ")");
        log_("Connected to VPN " + title);
    });
}

void VelmoDemoWorkspace::leaveHotspot_(bool quiet) {
    if (activeHotspotId_.isEmpty()) return;
    const VelmoDemoHotspot* h = catalog_.hotspot(activeHotspotId_);
    const KyString title = h ? hotspotTitle(*h) : activeHotspotId_;
    activeHotspotId_.clear();
    ++linkGeneration_;
    setTun_(false, "TUN closed");
    publishClientConfig_();
    if (signals_.assignedNetworkState) signals_.assignedNetworkState("", "", "");
    log_("Left VPN " + title);
    if (quiet) return;
    if (authStatus_ == "ready") setWs_(1, "CONTROL connected to " + serverHost(baseUrl_));
    else setWs_(2, "Disconnected");
    publishAuth_();
    publishCatalog_();
    republishEndpoints_();
}

bool VelmoDemoWorkspace::connectHotspot(const KyString& hotspotId) {
    if (!enterCall_("connectHotspot")) return false;
    if (authStatus_ != "ready") {
        log_("Sign in before joining a VPN");
        return false;
    }
    if (!catalog_.hotspot(hotspotId)) {
        log_("Cannot join an unknown VPN: " + hotspotId);
        return false;
    }
    if (hotspotId == activeHotspotId_) return true;
    rememberedHotspotId_ = hotspotId;
    joinHotspot_(hotspotId);
    saveSession_();
    return true;
}

bool VelmoDemoWorkspace::disconnectHotspot() {
    if (!enterCall_("disconnectHotspot")) return false;
    rememberedHotspotId_.clear();
    leaveHotspot_(false);
    saveSession_();
    return true;
}

bool VelmoDemoWorkspace::createTun() {
    if (!enterCall_("createTun")) return false;
    if (tunOpen_) return true;
    const VelmoDemoHotspot* h = catalog_.hotspot(activeHotspotId_);
    setTun_(true, h ? "velmo0 " + VelmoDemoCatalog::localAddress(*h) : KyString("velmo0 up, no VPN joined"));
    log_("TUN velmo0 opened");
    return true;
}

bool VelmoDemoWorkspace::closeTun() {
    if (!enterCall_("closeTun")) return false;
    if (!tunOpen_) return true;
    setTun_(false, "TUN closed");
    log_("TUN velmo0 closed");
    return true;
}

bool VelmoDemoWorkspace::connectWs() {
    if (!enterCall_("connectWs")) return false;
    if (authStatus_ != "ready") {
        log_("Sign in before connecting the control link");
        return false;
    }
    if (wsState_ == 1) return true;
    const std::uint64_t link = ++linkGeneration_;
    setWs_(0, "Connecting to " + serverHost(baseUrl_));
    after_(kLinkDelayMs, [this, link] {
        if (link != linkGeneration_ || authStatus_ != "ready") return;
        const VelmoDemoHotspot* h = catalog_.hotspot(activeHotspotId_);
        setWs_(1, h ? "VPN " + hotspotTitle(*h) + " connected (" + h->subnet + ")"
                    : "CONTROL connected to " + serverHost(baseUrl_));
    });
    return true;
}

bool VelmoDemoWorkspace::disconnectWs() {
    if (!enterCall_("disconnectWs")) return false;
    ++linkGeneration_;
    if (wsState_ != 2) {
        setWs_(2, "Disconnected");
        log_("Control link closed");
    }
    return true;
}

bool VelmoDemoWorkspace::tunIsOpen() {
    if (!enterCall_("tunIsOpen")) return false;
    return tunOpen_;
}

bool VelmoDemoWorkspace::wsIsConnected() {
    if (!enterCall_("wsIsConnected")) return false;
    return wsState_ == 1;
}

bool VelmoDemoWorkspace::clearLog() {
    if (!enterCall_("clearLog")) return false;
    logHistory_.clear();
    return true;
}

bool VelmoDemoWorkspace::setRemoteConfig(const KyString& key, const KyString& value) {
    if (!enterCall_("setRemoteConfig")) return false;
    const bool fullRouteBefore = filter_.fullRoute();
    const VelmoDemoFilter::Result r = filter_.apply(key, value);
    if (!r.ok || r.changed) log_(r.message);
    if (r.changed && filter_.fullRoute() != fullRouteBefore) publishClientConfig_();
    return r.ok;
}

bool VelmoDemoWorkspace::requestShutdown() {
    if (!enterCall_("requestShutdown")) return false;
    log_("Shutdown requested");
    if (!shutdownAsked_) {
        shutdownAsked_ = true;
        // Later, so that the reply to this call goes out first.
        after_(kShutdownDelayMs, [this] {
            if (options_.shutdownRequested) options_.shutdownRequested();
        });
    }
    return true;
}

// ---------------------------------------------------------------- traffic

void VelmoDemoWorkspace::runTraffic_(std::int64_t nowMs) {
    if (authStatus_ == "ready" && catalogLoaded_ && nowMs - lastDriftMs_ >= kDriftPeriodMs) {
        lastDriftMs_ = nowMs;
        catalog_.drift(++driftStep_);
        if (!inspectedHotspotId_.isEmpty() && endpointStatus_ == "ready") publishEndpoints_("ready");
    }
    if (!tunOpen_) {
        lastStatsMs_ = nowMs;
        return;
    }
    std::int64_t periods = (nowMs - lastStatsMs_) / kStatsPeriodMs;
    if (periods <= 0) return;
    lastStatsMs_ += periods * kStatsPeriodMs;
    // A loop that stalled for long does not make up for every lost second.
    periods = std::min<std::int64_t>(periods, 5);
    const bool flowing = !activeHotspotId_.isEmpty() && wsState_ == 1;
    for (std::int64_t p = 0; p < periods; ++p) {
        const std::uint64_t r = mix(options_.seed * 0x51ED27ull + ++trafficStep_);
        std::int64_t rx = flowing ? 40 + static_cast<std::int64_t>(r % 61) : static_cast<std::int64_t>(r % 4);
        std::int64_t tx = flowing ? 25 + static_cast<std::int64_t>((r >> 8) % 41) : 1 + static_cast<std::int64_t>((r >> 8) % 4);
        if (flowing && filter_.fullRoute()) {
            rx *= 3;
            tx *= 3;
        }
        const std::int64_t blocked = static_cast<std::int64_t>((rx + tx) * filter_.blockedShare() + 0.5);
        rx_ += rx;
        tx_ += tx;
        if (filter_.logOnly()) wouldDrop_ += blocked;
        else drop_ += blocked;
        if (flowing && trafficStep_ % kTrafficLogPeriods == 0) {
            log_(KyString::format("Traffic: rx %lld, tx %lld, dropped %lld", static_cast<long long>(rx_),
                                  static_cast<long long>(tx_), static_cast<long long>(drop_)));
            if (filter_.logOnly() && wouldDrop_ > 0)
                log_(KyString::format("Log only: %lld packets would have been dropped", static_cast<long long>(wouldDrop_)));
        }
    }
    if (signals_.stats) signals_.stats(clampInt(rx_), clampInt(tx_), clampInt(drop_));
}
