// The monitor summary, the status light and the log's append/trim/follow rules.
#include "console/VelmoVpnConsoleMonitor.h"

#include "console/VelmoVpnConsoleStatus.h"
#include "gui/text/KyTextCursor.h"
#include "gui/text/KyTextDocument.h"

KyString velmoVpnConsoleMonitorSummary(bool connected, bool tunOpen, int wsState, const KyString& remoteText,
                                       const KyString& localVpnId, const KyString& rx, const KyString& tx,
                                       const KyString& drop) {
    if (!connected) return "Agent disconnected  |  RX 0  |  TX 0  |  DROP 0";
    KyString text = localVpnId.isEmpty() ? KyString("No local VPN") : "VPN " + localVpnId;
    // The remote link only means something for a client that has its own VPN.
    if (!localVpnId.isEmpty()) {
        if (velmoVpnConsoleRemoteReady(wsState, remoteText)) text += "  |  Remote up";
        else if (wsState == 0) text += "  |  Remote connecting";
        else text += "  |  Remote down";
    }
    text += tunOpen ? "  |  TUN up" : "  |  TUN down";
    text += "  |  RX " + rx.trimmed();
    text += "  |  TX " + tx.trimmed();
    text += "  |  DROP " + drop.trimmed();
    return text;
}

int velmoVpnConsoleStatusLightState(const KyString& localVpnId, bool backendConnected, bool remoteReady, bool tunOpen) {
    if (localVpnId.isEmpty()) return kVelmoVpnConsoleLightNoVpn;
    if (!backendConnected) return kVelmoVpnConsoleLightDisconnected;
    if (remoteReady)
        return tunOpen ? kVelmoVpnConsoleLightUp : kVelmoVpnConsoleLightTunnelDown;
    return kVelmoVpnConsoleLightDisconnected;
}

bool velmoVpnConsoleAppendLogLine(KyTextDocument& document, const KyString& line, int firstVisibleBlock) {
    if (document.isUndoRedoEnabled()) document.setUndoRedoEnabled(false);
    const int blocksBefore = document.blockCount();
    const bool follow = blocksBefore <= 1 || firstVisibleBlock >= blocksBefore - kVelmoVpnConsoleLogFollowMargin;
    document.appendPlainText(line);
    const int blocks = document.blockCount();
    if (blocks > kVelmoVpnConsoleLogTrimAboveBlocks) {
        KyTextCursor cut(&document);
        cut.setPosition(document.blockPosition(blocks - kVelmoVpnConsoleLogKeptBlocks), KyTextCursor::KeepAnchor);
        cut.removeSelectedText();
    }
    return follow;
}
