// The Monitor page's log: one agent line appended through
// velmoVpnConsoleAppendLog to the page's own editor (read-only, highlighted,
// console sheet), then the whole 1260x700 window painted and synced with the
// server (an upper bound of what the append's damage costs).
// The same run measures it on a log of 50 to 100 lines (reset now and then,
// outside the timing) and on a log of 5000 to 5100 lines (trimmed once in a
// hundred lines, inside the timing), following the end, and once more on
// the long log with the reader scrolled up, where nothing in view changes.
// The cost must not follow the length of the log.
#include <benchmark/benchmark.h>

#include "../tests/support/KyTestWidgetWindow.h"
#include "../tests/support/KyTestXvfb.h"
#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "gui/text/KyCodeEditor.h"
#include "gui/widgets/KyBoxLayout.h"

// Xlib last: its macros (None, Status) would break the framework's headers.
#include <X11/Xlib.h>

namespace {

KyString logLine(long i) {
    switch (i % 4) {
    case 0: return KyString::format("12:%02ld:%02ld VPN TX %ld bytes to 10.44.0.%ld", i / 60 % 60, i % 60, 1200 + i % 300, i % 250);
    case 1: return KyString::format("12:%02ld:%02ld DISCOVERY peer %ld ready", i / 60 % 60, i % 60, i);
    case 2: return KyString::format("Traffic: rx %ld, tx %ld, dropped %ld", i * 7, i * 5, i % 3);
    default: return KyString::format("12:%02ld:%02ld Reconnect %ld FAILED (Disconnected)", i / 60 % 60, i % 60, i);
    }
}

struct MonitorView {
    KyGuiApplication app;
    KyWidget* root = new KyWidget;
    VelmoVpnConsoleUi ui;
    kytest::WidgetWindow host{&app, root, 1260, 700};
    long next = 0;

    explicit MonitorView(int lines) {
        root->setObjectName("consoleRoot");
        root->setStyleSheet(VelmoVpnConsoleStyle::windowCss());
        auto* page = new KyWidget(root);
        buildVelmoVpnConsoleMonitorPage(*page, ui);
        auto* layout = new KyVerticalLayout;
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(page, 1);
        root->setLayout(layout);
        fill(lines);
        host.show();
        while (host.paints == 0) app.exec(5000);
    }
    ~MonitorView() { delete root; }
    void fill(int lines) {
        ui.logEditor->clear();
        for (int i = 0; i < lines; ++i) velmoVpnConsoleAppendLog(ui.logEditor, logLine(next++));
        paint(true);
    }
    // Paints the whole window, as an Expose of all of it would.
    void paint(bool force = false) {
        KyPlatformPaintEvent e;
        e.dirtyRect[2] = 1260, e.dirtyRect[3] = 700;
        e.surfaceSize = {1260, 700};
        e.nativeWindow = e.nativeDrawable = host.id();
        e.nativeDisplay = host.window()->nativeDisplay();
        root->paintFromPlatform_(app.platformIntegration(), e, force);
        XSync(static_cast<Display*>(host.window()->nativeDisplay()), False);
    }
};

// range(0): lines in the log; range(1): 1 when the reader has scrolled up.
void BM_MonitorLogAppendHighlightPaint(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    const int lines = int(state.range(0));
    MonitorView v(lines);
    KyCodeEditor* log = v.ui.logEditor;
    if (state.range(1)) log->setVerticalValue(log->verticalMaximum() / 2);
    for (auto _ : state) {
        velmoVpnConsoleAppendLog(log, logLine(v.next++));
        v.paint();
        if (lines < 5000 && log->document()->blockCount() >= 2 * lines) {
            state.PauseTiming();
            v.fill(lines);
            state.ResumeTiming();
        }
    }
    state.counters["blocks"] = log->document()->blockCount();
    state.counters["following"] = log->isFollowingEnd();
}
BENCHMARK(BM_MonitorLogAppendHighlightPaint)
    ->ArgNames({"lines", "scrolledUp"})
    ->Args({50, 0})
    ->Args({5000, 0})
    ->Args({5000, 1})
    ->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
