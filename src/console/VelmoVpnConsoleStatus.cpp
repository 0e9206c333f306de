// Session words to decisions, texts and colours. See the header for the model.
#include "console/VelmoVpnConsoleStatus.h"

#include "gui/widgets/KyLabel.h"

namespace {

bool isPendingAuthWord_(const KyString& authStatus) {
    return authStatus == "restoring" || authStatus == "reconnecting" || authStatus == "authenticating";
}

} // namespace

KyString velmoVpnConsoleDefaultBaseUrl() { return KyString("https://workspace.velmo.net"); }

KyString velmoVpnConsoleDefaultServerHost() { return velmoVpnConsoleUrlHost(velmoVpnConsoleDefaultBaseUrl()); }

KyString velmoVpnConsoleUrlHost(const KyString& url) {
    const KyString trimmed = url.trimmed();
    std::string_view rest = trimmed.view();
    // A "://" only introduces the authority when nothing path-like precedes it;
    // "host/a://b" is a host with an odd path, not a scheme.
    const std::size_t scheme = rest.find("://");
    if (scheme != std::string_view::npos && rest.substr(0, scheme).find_first_of("/?#") == std::string_view::npos)
        rest.remove_prefix(scheme + 3);
    rest = rest.substr(0, rest.find_first_of("/?#"));
    const std::size_t at = rest.rfind('@');
    if (at != std::string_view::npos) rest.remove_prefix(at + 1);
    if (!rest.empty() && rest.front() == '[') {
        const std::size_t close = rest.find(']');
        return close == std::string_view::npos ? KyString() : KyString(rest.substr(0, close + 1));
    }
    return KyString(rest.substr(0, rest.find(':')));
}

bool velmoVpnConsoleIsSessionReady(bool connected, const KyString& authStatus) {
    return connected && authStatus == "ready";
}

bool velmoVpnConsoleShouldShowLoading(bool connected, const KyString& authStatus, bool bootstrapDone) {
    if (velmoVpnConsoleIsSessionReady(connected, authStatus)) return false;
    // The agent is still deciding: the login form would only flash up.
    if (isPendingAuthWord_(authStatus)) return true;
    return !(connected && bootstrapDone);
}

int velmoVpnConsoleStatusTone(bool hasError, bool ready) {
    if (hasError) return 3;
    return ready ? 2 : 0;
}

KyColor velmoVpnConsoleToneColor(int tone) {
    switch (tone) {
    case 1: return KyColor(249, 220, 185);
    case 2: return KyColor(207, 241, 228);
    case 3: return KyColor(248, 214, 214);
    case 4: return KyColor(214, 235, 248);
    case 5: return KyColor(245, 229, 200);
    default: return KyColor(201, 216, 220);
    }
}

KyString velmoVpnConsoleStatusLabelCss(int tone, int fontSize) {
    const KyColor c = velmoVpnConsoleToneColor(tone);
    return KyString::format("KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(%d, %d, %d); "
                            "font-size: %dpx; font-weight: 600; }",
                            c.red(), c.green(), c.blue(), fontSize);
}

KyString velmoVpnConsoleLoadingTitleText(bool connected, const KyString& authStatus) {
    if (!connected) return "Opening native console";
    if (authStatus == "restoring") return "Restoring secure session";
    if (authStatus == "reconnecting") return "Reconnecting secure session";
    if (authStatus == "authenticating") return "Signing in";
    return "Checking secure session";
}

KyString velmoVpnConsoleLoadingDetailText(bool connected, const KyString& authStatus) {
    if (!connected) return "Please wait while the console reaches VelmoVpnAgent on the local machine.";
    if (authStatus == "restoring")
        return "Your previous user session is being restored before the main console opens.";
    if (authStatus == "reconnecting")
        return "Your saved session is being retried automatically. You only need to sign in again after a "
               "deliberate logout or an invalidated token.";
    if (authStatus == "authenticating")
        return KyString("The console is contacting ") + velmoVpnConsoleDefaultServerHost() +
               " and loading the VPN inventory.";
    return "Please wait while the console checks the saved session and decides whether to reopen the VPN "
           "dashboard or show sign-in.";
}

KyString velmoVpnConsoleLoadingStatusText(bool connected, const KyString& authStatus, int frame) {
    KyString text;
    if (!connected)
        text = "Looking for the local VPN agent";
    else if (authStatus == "restoring")
        text = "Restoring your last session";
    else if (authStatus == "reconnecting")
        text = "Reconnecting your last session";
    else if (authStatus == "authenticating")
        text = "Validating your credentials";
    else
        text = "Querying the VPN server";
    // Masking the two low bits keeps negative frames in 0..3 as well.
    text.append(std::string(static_cast<std::size_t>(frame & 3), '.'));
    return text;
}

void velmoVpnConsoleApplyLoadingLabels(KyLabel* title, KyLabel* status, KyLabel* detail, bool connected,
                                       const KyString& authStatus, int frame) {
    if (!title || !status || !detail) return;
    const auto assign = [](KyLabel* label, const KyString& text) {
        if (label->getText() != text) label->setText(text);
    };
    assign(title, velmoVpnConsoleLoadingTitleText(connected, authStatus));
    assign(status, velmoVpnConsoleLoadingStatusText(connected, authStatus, frame));
    assign(detail, velmoVpnConsoleLoadingDetailText(connected, authStatus));
}

KyString velmoVpnConsoleAuthStatusText(bool connected, const KyString& authStatus, const KyString& authError) {
    if (!connected) return "Client agent disconnected";
    if (!authError.isEmpty()) return authError;
    if (authStatus == "authenticating") return "Signing in...";
    if (authStatus == "restoring") return "Restoring session...";
    if (authStatus == "reconnecting") return "Reconnecting saved session...";
    if (authStatus == "logging_out") return "Signing out...";
    if (authStatus == "ready") return "Signed in";
    return "Sign in with your user account";
}

KyString velmoVpnConsoleCatalogStatusText(const KyString& catalogStatus, const KyString& catalogError) {
    if (!catalogError.isEmpty()) return catalogError;
    if (catalogStatus == "loading") return "Loading VPN catalog...";
    if (catalogStatus == "ready") return "VPN catalog ready";
    return "No VPN catalog loaded";
}

KyString velmoVpnConsoleEndpointStatusText(const KyString& inspectedHotspotId, const KyString& endpointStatus,
                                           const KyString& endpointError) {
    if (inspectedHotspotId.isEmpty()) return "Select a VPN to inspect its users";
    if (!endpointError.isEmpty()) return endpointError;
    if (endpointStatus == "loading") return "Loading VPN users...";
    if (endpointStatus == "refreshing") return "Refreshing VPN users...";
    if (endpointStatus == "ready") return "VPN users ready";
    return "VPN user inventory not loaded";
}

bool velmoVpnConsoleRemoteReady(int wsState, const KyString& remoteStatusText) {
    if (wsState != 1) return false;
    const KyString text = remoteStatusText.trimmed();
    return text.startsWith("CONTROL") || text.startsWith("VPN");
}

void velmoVpnConsoleOpenRelevantWindow(bool ready, bool loading, const std::function<void()>& openConsole,
                                       const std::function<void()>& openLoading,
                                       const std::function<void()>& openLogin) {
    const std::function<void()>& chosen = ready ? openConsole : (loading ? openLoading : openLogin);
    if (chosen) chosen();
}
