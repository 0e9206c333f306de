// The console's two busiest non-drawing paths, each beside a floor measured
// in the same run.
//
// Catalog: a vpnCatalogState snapshot of the demo agent's largest catalog
// (500 VPNs), taken from the demo workspace itself after a sign-in, stored in
// the session the way the console's snapshot task stores it and pushed
// through VpnHotspotListModel::update (one reset), then every row's roles read
// as a delegate reads them for painting. Two snapshots: the one the agent
// really sends (cut to what one IPC signal carries, about 4000 bytes) and the
// whole catalog in one text (what a larger signal would carry). Floor: parsing
// the snapshot's JSON alone.
//
// Log: one agent line appended to a 5000-line monitor log with the log's
// highlighter attached, the log trimmed back from 5101 to 5000 lines once in a
// hundred lines. Floors: the same document without a highlighter, and the
// same lines kept in a std::string with a vector of line starts, trimmed the
// same way.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench_demo_catalog.h"
#include "console/VelmoVpnConsoleMonitor.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VelmoVpnLogSyntaxHighlighter.h"
#include "console/VpnHotspotListModel.h"
#include "core/types/KyJsonHelpers.h"
#include "gui/text/KyTextDocument.h"

namespace {

const KyString& snapshot(bool whole) {
    static const KyString signalSized = demoCatalogSnapshot(4000);
    static const KyString wholeCatalog = demoCatalogSnapshot(1 << 24);
    return whole ? wholeCatalog : signalSized;
}

void BM_CatalogSnapshotParseOnly(benchmark::State& state) {
    const KyString& json = snapshot(state.range(0) != 0);
    std::size_t rows = 0;
    for (auto _ : state) {
        const KyJsonObject object = parseJsonObjectOrEmpty(json);
        const KyJsonValue* hotspots = object.valuePtr("hotspots");
        rows = hotspots && hotspots->isArray() ? hotspots->asArray().size() : 0;
        benchmark::DoNotOptimize(rows);
    }
    state.counters["rows"] = double(rows);
    state.counters["bytes"] = double(json.size());
}
BENCHMARK(BM_CatalogSnapshotParseOnly)->ArgName("whole")->Arg(0)->Arg(1);

void BM_CatalogSnapshotToModel(benchmark::State& state) {
    const KyString& json = snapshot(state.range(0) != 0);
    VelmoVpnConsoleSession session;
    VpnHotspotListModel model;
    for (auto _ : state) {
        velmoVpnConsoleApplyCatalogState(session, json);
        model.update(session.hotspotsJson, session.inspectedHotspotId, session.activeHotspotId);
        benchmark::DoNotOptimize(model.rowCount());
    }
    state.counters["rows"] = model.rowCount();
}
BENCHMARK(BM_CatalogSnapshotToModel)->ArgName("whole")->Arg(0)->Arg(1);

void BM_CatalogModelUpdateOnly(benchmark::State& state) {
    // The model's share: the snapshot parsed and stored once, the reset repeated.
    VelmoVpnConsoleSession session;
    velmoVpnConsoleApplyCatalogState(session, snapshot(state.range(0) != 0));
    VpnHotspotListModel model;
    for (auto _ : state) {
        model.update(session.hotspotsJson, session.inspectedHotspotId, session.activeHotspotId);
        benchmark::DoNotOptimize(model.rowCount());
    }
    state.counters["rows"] = model.rowCount();
}
BENCHMARK(BM_CatalogModelUpdateOnly)->ArgName("whole")->Arg(0)->Arg(1);

void BM_CatalogSnapshotToModelAndRowReads(benchmark::State& state) {
    // What a repaint asks of the model: each row's five painted values.
    const KyString& json = snapshot(state.range(0) != 0);
    VelmoVpnConsoleSession session;
    VpnHotspotListModel model;
    for (auto _ : state) {
        velmoVpnConsoleApplyCatalogState(session, json);
        model.update(session.hotspotsJson, session.inspectedHotspotId, session.activeHotspotId);
        for (int row = 0; row < model.rowCount(); ++row) {
            const KyModelIndex at = model.index(row, 0);
            for (int role : {int(VpnHotspotListModel::NameRole), int(VpnHotspotListModel::DetailRole),
                             int(VpnHotspotListModel::SelectedRole), int(VpnHotspotListModel::ActiveRole),
                             int(VpnHotspotListModel::PendingRole)})
                benchmark::DoNotOptimize(at.data(role));
        }
    }
    state.counters["rows"] = model.rowCount();
}
BENCHMARK(BM_CatalogSnapshotToModelAndRowReads)->ArgName("whole")->Arg(0)->Arg(1);

// Lines in the shapes the agent and the console write, keywords included.
KyString logLine(long i) {
    switch (i % 4) {
    case 0:
        return KyString::format("%02ld:%02ld:%02ld VPN TX %ld bytes to 10.44.0.%ld, peer connected", (i / 3600) % 24,
                                (i / 60) % 60, i % 60, 1200 + i % 300, i % 250);
    case 1: return KyString::format("Traffic: rx %ld, tx %ld, dropped %ld", i * 7, i * 5, i % 3);
    case 2: return KyString::format("%02ld:%02ld:%02ld DISCOVERY peer %ld ready", (i / 3600) % 24, (i / 60) % 60, i % 60, i);
    default: return KyString::format("Reconnect attempt %ld FAILED: control server unreachable (Disconnected)", i);
    }
}

void BM_LogLineAppendHighlighted(benchmark::State& state) {
    KyTextDocument log;
    VelmoVpnLogSyntaxHighlighter highlighter(&log);
    long i = 0;
    for (; i < kVelmoVpnConsoleLogKeptBlocks; ++i) velmoVpnConsoleAppendLogLine(log, logLine(i), int(i));
    for (auto _ : state) benchmark::DoNotOptimize(velmoVpnConsoleAppendLogLine(log, logLine(i++), log.blockCount()));
    state.SetItemsProcessed(state.iterations());
    state.counters["blocks"] = log.blockCount();
    benchmark::DoNotOptimize(highlighter.formats(log.blockCount() - 1).size());
}
BENCHMARK(BM_LogLineAppendHighlighted);

void BM_LogLineAppendPlainDocument(benchmark::State& state) {
    KyTextDocument log;
    long i = 0;
    for (; i < kVelmoVpnConsoleLogKeptBlocks; ++i) velmoVpnConsoleAppendLogLine(log, logLine(i), int(i));
    for (auto _ : state) benchmark::DoNotOptimize(velmoVpnConsoleAppendLogLine(log, logLine(i++), log.blockCount()));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LogLineAppendPlainDocument);

void BM_LogLineBaselineStringAndLineStarts(benchmark::State& state) {
    std::string text;
    std::vector<std::size_t> starts;
    const auto append = [&](const KyString& line) {
        if (!starts.empty()) text += '\n';
        starts.push_back(text.size());
        text += line.str();
        if (starts.size() <= std::size_t(kVelmoVpnConsoleLogTrimAboveBlocks)) return;
        const std::size_t drop = starts.size() - kVelmoVpnConsoleLogKeptBlocks;
        const std::size_t cut = starts[drop];
        text.erase(0, cut);
        starts.erase(starts.begin(), starts.begin() + std::ptrdiff_t(drop));
        for (std::size_t& s : starts) s -= cut;
    };
    long i = 0;
    for (; i < kVelmoVpnConsoleLogKeptBlocks; ++i) append(logLine(i));
    for (auto _ : state) append(logLine(i++));
    state.SetItemsProcessed(state.iterations());
    benchmark::DoNotOptimize(text.data());
}
BENCHMARK(BM_LogLineBaselineStringAndLineStarts);

} // namespace

BENCHMARK_MAIN();
