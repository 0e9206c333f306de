// The "Monitor" tab without its widgets: the one-line summary of link and
// traffic, the state of the status light, and how a line joins the log.
//
// refreshMonitor sets the monitor label from velmoVpnConsoleMonitorSummary
// and gives the status light velmoVpnConsoleStatusLightState when it differs
// from the light's present state. velmoVpnConsoleAppendLog hands the log
// editor's document and its first visible line to
// velmoVpnConsoleAppendLogLine and, when that says so, moves the editor's
// cursor to the end and scrolls it into view.
//
// Main thread only for the log (the document belongs to its editor); the
// summary and the light are pure functions that any thread may call.
#pragma once

#include "core/types/KyString.h"

class KyTextDocument;

/// The log keeps this many lines after a trim.
inline constexpr int kVelmoVpnConsoleLogKeptBlocks = 5000;
/// A trim runs when the log holds more than this many lines, so it runs once
/// in a hundred lines rather than for every line.
inline constexpr int kVelmoVpnConsoleLogTrimAboveBlocks = 5100;
/// A reader whose first visible line lies further than this above the end
/// of the log has scrolled up to read, and is not moved by new lines.
inline constexpr int kVelmoVpnConsoleLogFollowMargin = 60;

/// Values of the status light.
inline constexpr int kVelmoVpnConsoleLightNoVpn = 0;         ///< no local VPN
inline constexpr int kVelmoVpnConsoleLightUp = 1;            ///< remote ready and tunnel open
inline constexpr int kVelmoVpnConsoleLightTunnelDown = 2;    ///< remote ready, tunnel closed
inline constexpr int kVelmoVpnConsoleLightDisconnected = 3;  ///< no agent, or the remote is not ready

/// The monitor line. Without the agent: "Agent disconnected  |  RX 0  |  TX 0
/// |  DROP 0". Otherwise "VPN <localVpnId>" (or "No local VPN"), then with a
/// local VPN the remote piece ("Remote up" when velmoVpnConsoleRemoteReady
/// holds, "Remote connecting" for wsState 0, "Remote down" otherwise), then
/// "TUN up" or "TUN down", "RX", "TX" and "DROP" with their trimmed counts,
/// all joined by "  |  ".
KyString velmoVpnConsoleMonitorSummary(bool connected, bool tunOpen, int wsState, const KyString& remoteText,
                                       const KyString& localVpnId, const KyString& rx, const KyString& tx,
                                       const KyString& drop);

/// The status light, first match: no local VPN 0; no agent 3; remote ready
/// (velmoVpnConsoleRemoteReady of the session's wsState and remote status
/// text) with the tunnel open 1, with it closed 2; otherwise 3.
int velmoVpnConsoleStatusLightState(const KyString& localVpnId, bool backendConnected, bool remoteReady, bool tunOpen);

/// Appends line to the log document as a new line and trims the log: past
/// 5100 lines, a text cursor selecting from the start up to line count - 5000
/// removes the oldest ones, leaving 5000. firstVisibleBlock is the first line
/// the log view shows, read before the append. Returns whether the view
/// follows the end: always while the log holds at most one line, otherwise
/// when firstVisibleBlock is at least the line count (before the append)
/// minus 60. A log is never undone, so the document's undo history is turned
/// off here, where it would only grow.
bool velmoVpnConsoleAppendLogLine(KyTextDocument& document, const KyString& line, int firstVisibleBlock);
