// A catalog snapshot to a repainted list: the demo agent's 500-VPN catalog,
// as one IPC signal carries it (about 4000 bytes) and whole in one text,
// parsed and stored the way the console's snapshot handler does, the hotspot
// model rebuilt by the console's own catalog refresh, and the "VPNs" page's
// real VpnHotspotListView repainted on the private Xvfb until the server has
// the frame (XSync). The window is 1260x700, the page as the console shows it.
// Floors in the same run: the same repaint with nothing changed (what the
// window costs by itself), and the rows the list shows drawn with raw Xlib
// calls (a tile, a switch and two text lines each, into a pixmap copied to
// the window in one go, then XSync).
#include <benchmark/benchmark.h>

#include <algorithm>

#include "../tests/support/KyTestWidgetWindow.h"
#include "../tests/support/KyTestXvfb.h"
#include "bench_demo_catalog.h"
#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "console/VpnHotspotListModel.h"
#include "console/VpnHotspotListView.h"
#include "console/VpnListRows.h"
#include "gui/widgets/KyBoxLayout.h"

// Xlib last: its macros (None, Status) would break the framework's headers.
#include <X11/Xlib.h>

namespace {

constexpr int kWidth = 1260, kHeight = 700;

const KyString& snapshot(bool whole) {
    static const KyString signalSized = demoCatalogSnapshot(4000);
    static const KyString wholeCatalog = demoCatalogSnapshot(1 << 24);
    return whole ? wholeCatalog : signalSized;
}

struct VpnsView {
    KyGuiApplication app;
    KyWidget* root = new KyWidget;
    VelmoVpnConsoleUi ui;
    VelmoVpnConsoleSession session;
    kytest::WidgetWindow host{&app, root, kWidth, kHeight};

    VpnsView() {
        root->setObjectName("consoleRoot");
        root->setStyleSheet(VelmoVpnConsoleStyle::windowCss());
        auto* page = new KyWidget(root);
        buildVelmoVpnConsoleVpnsPage(*page, ui);
        auto* layout = new KyVerticalLayout;
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(page, 1);
        root->setLayout(layout);
        session.backendConnected = true;
        session.authStatus = "ready";
        host.show();
        while (host.paints == 0) app.exec(5000);
    }
    ~VpnsView() { delete root; }
    Display* display() const { return static_cast<Display*>(host.window()->nativeDisplay()); }
    // Paints what changed, as the loop's damage flush would, and waits for the server.
    void paint() {
        KyPlatformPaintEvent e;
        e.dirtyRect[2] = kWidth, e.dirtyRect[3] = kHeight;
        e.surfaceSize = {kWidth, kHeight};
        e.nativeWindow = e.nativeDrawable = host.id();
        e.nativeDisplay = host.window()->nativeDisplay();
        root->paintFromPlatform_(app.platformIntegration(), e, false);
        XSync(display(), False);
    }
    void apply(const KyString& json) {
        velmoVpnConsoleApplyCatalogState(session, json);
        velmoVpnConsoleRefreshCatalogWidgets(ui, session);
    }
};

void BM_CatalogSnapshotToRepaintedList(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    const KyString& json = snapshot(state.range(0) != 0);
    VpnsView v;
    for (auto _ : state) {
        v.apply(json);
        v.paint();
    }
    state.counters["rows"] = v.ui.hotspotModel->rowCount();
    state.counters["bytes"] = double(json.size());
}
BENCHMARK(BM_CatalogSnapshotToRepaintedList)->ArgName("whole")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_CatalogUnchangedRepaintFloor(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    VpnsView v;
    v.apply(snapshot(false));
    v.paint();
    for (auto _ : state) v.paint();
}
BENCHMARK(BM_CatalogUnchangedRepaintFloor)->Unit(benchmark::kMicrosecond);

void BM_CatalogRowsRawXlibFloor(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    VpnsView v;
    v.apply(snapshot(true));
    v.paint();
    const KyRect area = v.ui.hotspotView->rootRect();
    const int rows = std::min(v.ui.hotspotModel->rowCount(), area.height / VpnListRows::kRowHeight + 1);
    Display* d = v.display();
    const Pixmap pixmap = XCreatePixmap(d, v.host.id(), area.width, area.height, DefaultDepth(d, DefaultScreen(d)));
    GC gc = XCreateGC(d, pixmap, 0, nullptr);
    const char title[] = "Oslo office 12", detail[] = "10.44.12.0/24  |  User Ana Lima";
    for (auto _ : state) {
        XSetForeground(d, gc, 0x101F28);
        XFillRectangle(d, pixmap, gc, 0, 0, area.width, area.height);
        for (int r = 0; r < rows; ++r) {
            const int y = r * VpnListRows::kRowHeight;
            XSetForeground(d, gc, 0x13242E);
            XFillRectangle(d, pixmap, gc, 2, y + 3, area.width - 4, VpnListRows::kRowHeight - 6);
            XSetForeground(d, gc, 0x21363F);
            XDrawRectangle(d, pixmap, gc, 2, y + 3, area.width - 5, VpnListRows::kRowHeight - 7);
            XSetForeground(d, gc, 0x1E333D);
            XFillRectangle(d, pixmap, gc, area.width - 56, y + 20, 40, 22);
            XSetForeground(d, gc, 0xD8E1E4);
            XDrawString(d, pixmap, gc, 60, y + 26, title, sizeof title - 1);
            XDrawString(d, pixmap, gc, 60, y + 44, detail, sizeof detail - 1);
        }
        XCopyArea(d, pixmap, v.host.id(), gc, 0, 0, area.width, area.height, area.x, area.y);
        XSync(d, False);
    }
    XFreeGC(d, gc);
    XFreePixmap(d, pixmap);
    state.counters["rows"] = rows;
}
BENCHMARK(BM_CatalogRowsRawXlibFloor)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
