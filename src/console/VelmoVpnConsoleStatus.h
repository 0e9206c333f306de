// The one place where the agent's session words are read. authStatus,
// catalogStatus and endpointStatus hold whatever word the agent last sent
// ("logged_out", "restoring", "reconnecting", "authenticating", "ready",
// "logging_out"; "idle", "loading", "refreshing", "ready"); these functions turn
// them into decisions (is the session usable, is the loading surface wanted)
// and into the texts and colours the user sees. Words are compared exactly and
// case-sensitively, nothing is trimmed, and any word not named falls into the
// last row of its table, so an agent that learns a new word never breaks the
// console.
//
// Every function is pure and stateless, except velmoVpnConsoleApplyLoadingLabels,
// which writes the loading surface's labels and so runs on the GUI thread.
// They are called from refreshSessionUi on the main thread, many times a
// second, but nothing stops another thread from calling the pure ones.
#pragma once

#include <functional>

#include "core/types/KyColor.h"
#include "core/types/KyString.h"

class KyLabel;

/// The workspace server the console signs in to when the user gave none.
KyString velmoVpnConsoleDefaultBaseUrl();
/// The host name of velmoVpnConsoleDefaultBaseUrl(), as the loading text names it.
KyString velmoVpnConsoleDefaultServerHost();
/// The host part of a URL: after "scheme://" (when present), before the first
/// '/', '?' or '#', without "user@" and without ":port". A bracketed IPv6
/// literal keeps its brackets. Empty when there is no host.
KyString velmoVpnConsoleUrlHost(const KyString& url);

/// True exactly when the agent link is up and authStatus is "ready".
bool velmoVpnConsoleIsSessionReady(bool connected, const KyString& authStatus);
/// Whether the loading surface should be up: never for a ready session; always
/// while the agent restores, reconnects or authenticates; otherwise until both
/// the link is up and the grace time of the first seconds is over.
bool velmoVpnConsoleShouldShowLoading(bool connected, const KyString& authStatus, bool bootstrapDone);

/// 3 when hasError, else 2 when ready, else 0.
int velmoVpnConsoleStatusTone(bool hasError, bool ready);
/// Text colour of a tone; tones outside 1 to 5 take the colour of tone 0.
KyColor velmoVpnConsoleToneColor(int tone);
/// The style sheet of a status label in a tone: transparent, borderless,
/// semi-bold text of fontSize pixels in the tone's colour.
KyString velmoVpnConsoleStatusLabelCss(int tone, int fontSize = 12);

/// Title of the loading surface ("Opening native console", "Signing in", ...).
KyString velmoVpnConsoleLoadingTitleText(bool connected, const KyString& authStatus);
/// The explaining sentence under the loading title.
KyString velmoVpnConsoleLoadingDetailText(bool connected, const KyString& authStatus);
/// The loading status line with frame & 3 dots behind it (frame 7 and -1 give
/// three dots, as 3 does).
KyString velmoVpnConsoleLoadingStatusText(bool connected, const KyString& authStatus, int frame);
/// Puts the three loading texts into their labels, title, status and detail
/// in that order, each only when it differs (an unchanged label neither
/// repaints nor emits TextChanged). Does nothing when a label is missing.
void velmoVpnConsoleApplyLoadingLabels(KyLabel* title, KyLabel* status, KyLabel* detail, bool connected,
                                       const KyString& authStatus, int frame);

/// The auth status line. Without the link it says so; otherwise a non-empty
/// authError is shown verbatim and hides every status word.
KyString velmoVpnConsoleAuthStatusText(bool connected, const KyString& authStatus, const KyString& authError);
/// The catalog status line; a non-empty error is shown verbatim.
KyString velmoVpnConsoleCatalogStatusText(const KyString& catalogStatus, const KyString& catalogError);
/// The endpoint status line. Without a selected VPN it asks for one, even
/// when an error is pending; otherwise a non-empty error is shown verbatim.
KyString velmoVpnConsoleEndpointStatusText(const KyString& inspectedHotspotId, const KyString& endpointStatus,
                                           const KyString& endpointError);

/// True only when wsState is 1 (connected) and the trimmed text begins with
/// "CONTROL" or "VPN".
bool velmoVpnConsoleRemoteReady(int wsState, const KyString& remoteStatusText);

/// Calls openConsole when ready, else openLoading when loading, else
/// openLogin. An empty callable is skipped and no other one is tried instead.
void velmoVpnConsoleOpenRelevantWindow(bool ready, bool loading, const std::function<void()>& openConsole,
                                       const std::function<void()>& openLoading,
                                       const std::function<void()>& openLogin);
