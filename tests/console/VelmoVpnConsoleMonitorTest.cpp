// The "Monitor" tab without widgets: the summary line and the status light
// for every state of the link, the colours a log line gets, and the log's
// length and follow rule as lines arrive.
#include <gtest/gtest.h>

#include <vector>

#include "console/VelmoVpnConsoleMonitor.h"
#include "console/VelmoVpnLogSyntaxHighlighter.h"
#include "gui/text/KyTextDocument.h"

namespace {

TEST(VelmoVpnConsoleMonitor, SummaryNamesLinkTunnelAndCounters) {
    struct Row { const char* name; bool connected, tunOpen; int wsState; const char *remote, *vpn, *summary; };
    const Row rows[] = {
        {"no agent hides everything", false, true, 1, "CONTROL ok", "vpn-1",
         "Agent disconnected  |  RX 0  |  TX 0  |  DROP 0"},
        {"no local vpn, no remote piece", true, false, 1, "CONTROL ok", "",
         "No local VPN  |  TUN down  |  RX 12  |  TX 34  |  DROP 5"},
        {"remote up", true, true, 1, "  VPN linked", "vpn-1",
         "VPN vpn-1  |  Remote up  |  TUN up  |  RX 12  |  TX 34  |  DROP 5"},
        {"remote connecting", true, false, 0, "CONTROL", "vpn-1",
         "VPN vpn-1  |  Remote connecting  |  TUN down  |  RX 12  |  TX 34  |  DROP 5"},
        {"remote down", true, true, 2, "Disconnected", "vpn-1",
         "VPN vpn-1  |  Remote down  |  TUN up  |  RX 12  |  TX 34  |  DROP 5"},
        {"connected but another text", true, true, 1, "Handshake", "vpn-1",
         "VPN vpn-1  |  Remote down  |  TUN up  |  RX 12  |  TX 34  |  DROP 5"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(velmoVpnConsoleMonitorSummary(r.connected, r.tunOpen, r.wsState, r.remote, r.vpn, " 12", "34 ", "5"),
                  r.summary);
    }
}

TEST(VelmoVpnConsoleMonitor, StatusLightTakesTheFirstMatchingRow) {
    struct Row { const char* vpn; bool connected, remoteReady, tunOpen; int state; };
    const Row rows[] = {
        {"", true, true, true, 0},         {"", false, false, false, 0},       {"vpn-1", false, true, true, 3},
        {"vpn-1", true, true, true, 1},    {"vpn-1", true, true, false, 2},     {"vpn-1", true, false, true, 3},
        {"vpn-1", true, false, false, 3},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.vpn << r.connected << r.remoteReady << r.tunOpen);
        EXPECT_EQ(velmoVpnConsoleStatusLightState(r.vpn, r.connected, r.remoteReady, r.tunOpen), r.state);
    }
}

struct FormatRun {
    int start, length;
    KyColor color;
    int weight;
    bool operator==(const FormatRun&) const = default;
};

TEST(VelmoVpnLogSyntaxHighlighter, ColoursTimesAndWholeWordsLaterWinning) {
    const KyColor stamp(127, 145, 151), traffic(220, 154, 84), discovery(94, 156, 194), success(86, 176, 145),
        error(203, 102, 102);
    struct Row { const char* line; std::vector<FormatRun> runs; };
    const Row rows[] = {
        {"disconnected", {}},
        {"Disconnected", {{0, 12, error, 700}}},
        {"12:04:59 VPN TX 1200 bytes", {{0, 8, stamp, 400}, {9, 6, traffic, 400}}},
        {"12:04:5", {}},
        {"1:04:59 ready", {{8, 5, success, 400}}},
        {"ab:cd:ready", {{0, 6, stamp, 400}, {6, 5, success, 400}}},
        {"VPN RX, RTSP DISCOVERY", {{0, 6, discovery, 400}, {8, 4, traffic, 400}, {13, 9, discovery, 400}}},
        {"ERROR: login FAILED", {{0, 5, error, 700}, {13, 6, error, 700}}},
        {"Connecting... Authenticated; connected!", {{0, 10, discovery, 400}, {14, 13, success, 400}, {29, 9, success, 400}}},
        {"unready readyness already ready", {{26, 5, success, 400}}},
        {"connected_ok", {{0, 9, success, 400}}},
    };
    KyTextDocument document;
    VelmoVpnLogSyntaxHighlighter highlighter(&document);
    for (const Row& r : rows) document.appendPlainText(r.line);
    for (int block = 0; block < int(std::size(rows)); ++block) {
        SCOPED_TRACE(rows[block].line);
        std::vector<FormatRun> runs;
        for (const KyTextFormatRange& f : highlighter.formats(block))
            runs.push_back({f.start, f.length, f.format.foreground(), f.format.fontWeight()});
        EXPECT_EQ(runs, rows[block].runs);
    }
}

// A log fed as the agent feeds it, with the view pinned at firstVisible.
void feed(KyTextDocument& log, int from, int to, int firstVisible = -1) {
    for (int n = from; n <= to; ++n)
        velmoVpnConsoleAppendLogLine(log, KyString::format("12:00:00 line %d connected", n),
                                     firstVisible < 0 ? log.blockCount() - 1 : firstVisible);
}

TEST(VelmoVpnConsoleMonitor, LogIsTrimmedToFiveThousandAtLine5101) {
    KyTextDocument log;
    VelmoVpnLogSyntaxHighlighter highlighter(&log);
    feed(log, 1, 5100, 0);
    EXPECT_EQ(log.blockCount(), 5100);
    EXPECT_EQ(log.blockText(0), "12:00:00 line 1 connected");
    feed(log, 5101, 5101, 0);
    EXPECT_EQ(log.blockCount(), 5000);
    EXPECT_EQ(log.blockText(0), "12:00:00 line 102 connected");
    EXPECT_EQ(log.blockText(4999), "12:00:00 line 5101 connected");
    EXPECT_EQ(highlighter.formats(4999).size(), 2u);
    feed(log, 5102, 5200);
    EXPECT_EQ(log.blockCount(), 5099);
    EXPECT_FALSE(log.isUndoAvailable());
}

TEST(VelmoVpnConsoleMonitor, LogFollowsUnlessTheReaderScrolledUpMoreThan60Lines) {
    struct Row { int lines, firstVisible; bool follows; };
    const Row rows[] = {
        {0, -100, true}, {1, -100, true}, {2, 0, true}, {100, 40, true}, {100, 39, false}, {100, 99, true},
        {5099, 5039, true}, {5099, 0, false},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.lines << " lines, first visible " << r.firstVisible);
        KyTextDocument log;
        feed(log, 1, r.lines);
        EXPECT_EQ(velmoVpnConsoleAppendLogLine(log, "next", r.firstVisible), r.follows);
    }
}

} // namespace
