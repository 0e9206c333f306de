// Item models at the sizes the console uses them.
//
// Reset: the catalog list is rebuilt whole from each snapshot, about 300
// rows of seven values each; measured on a standard item model alone,
// through a sorting proxy, and with a keyed selection model riding along,
// beside the floor of building the same std::vector of structs. Mapping: a
// sorted, filtered proxy over 10 000 rows, mapped both ways per row, and the
// 40 rows a screen shows read through it, beside plain vector lookups. Also
// the costs a user triggers by hand on 10 000 rows: a sort by column and a
// filter keystroke. Painting: a 1260x700 list view over 5000 rows, one
// full frame through the widget tree, beside the floor of filling and
// drawing the text of the same visible rows straight on the painter. Scroll
// frames: a Page Down through the widget tree and the repaint after it, on
// 10 000 rows beside the same on 100 rows (a frame must not cost more for
// rows nobody sees), and a 300-row reset of a shown list with its repaint.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "../tests/support/KyTestWidgetWindow.h"
#include "../tests/support/KyTestXvfb.h"
#include "gui/modelview/KyItemSelectionModel.h"
#include "gui/modelview/KyListView.h"
#include "gui/platform/KyScopedPlatformPainter.h"
#include "gui/modelview/KySortFilterProxyModel.h"
#include "gui/modelview/KyStandardItemModel.h"

// Named before Xlib, whose KeyPress macro would take the name's place.
constexpr int kKeyPressEvent = KyWidget::Event::KeyPress;

// Xlib last: its macros (None, Status) would break the framework's headers.
#include <X11/Xlib.h>

namespace {

enum Role { IdRole = KyItemDataRole::User, SubnetRole, OwnerRole, DetailRole, SelectedRole, ActiveRole };

struct Entry {
    KyString id, name, subnet, owner, detail;
    bool selected = false;
    bool active = false;
};

Entry entry(int i) {
    Entry e;
    e.id = KyString::format("hs-%04d", i);
    e.name = KyString::format("Office %d", (i * 7919) % 1000);
    e.subnet = KyString::format("10.%d.%d.0/24", i / 250, i % 250);
    e.owner = KyString::format("owner%d@velmo.io", i % 17);
    e.detail = e.subnet + "  |  User " + e.owner;
    e.selected = i == 42;
    e.active = i == 7;
    return e;
}

KyStandardItemModel::Row rowOf(const Entry& e) {
    KyStandardItem item(e.name);
    item.setData(KyAny(e.id), IdRole);
    item.setData(KyAny(e.subnet), SubnetRole);
    item.setData(KyAny(e.owner), OwnerRole);
    item.setData(KyAny(e.detail), DetailRole);
    item.setData(KyAny(e.selected), SelectedRole);
    item.setData(KyAny(e.active), ActiveRole);
    return {item};
}

void rebuild(KyStandardItemModel& model, int rows) {
    KyVector<KyStandardItemModel::Row> all;
    all.reserve(std::size_t(rows));
    for (int i = 0; i < rows; ++i) all.append(rowOf(entry(i)));
    model.setRows(std::move(all));
}

void BM_BaselineBuildVectorOfStructs(benchmark::State& state) {
    for (auto _ : state) {
        std::vector<Entry> entries;
        entries.reserve(300);
        for (int i = 0; i < 300; ++i) entries.push_back(entry(i));
        benchmark::DoNotOptimize(entries.data());
    }
    state.SetItemsProcessed(state.iterations() * 300);
}
BENCHMARK(BM_BaselineBuildVectorOfStructs);

void BM_StandardModelReset300(benchmark::State& state) {
    KyStandardItemModel model;
    for (auto _ : state) rebuild(model, 300);
    state.SetItemsProcessed(state.iterations() * 300);
}
BENCHMARK(BM_StandardModelReset300);

void BM_StandardModelReset300ThroughSortingProxy(benchmark::State& state) {
    KyStandardItemModel model;
    KySortFilterProxyModel proxy;
    proxy.setSourceModel(&model);
    proxy.sort(0);
    for (auto _ : state) rebuild(model, 300);
    state.SetItemsProcessed(state.iterations() * 300);
}
BENCHMARK(BM_StandardModelReset300ThroughSortingProxy);

void BM_StandardModelReset300WithKeyedSelection(benchmark::State& state) {
    KyStandardItemModel model;
    KySortFilterProxyModel proxy;
    proxy.setSourceModel(&model);
    proxy.sort(0);
    KyItemSelectionModel selection(&proxy);
    selection.setResetKeyRole(IdRole);
    rebuild(model, 300);
    selection.setCurrentIndex(proxy.index(120, 0), KyItemSelectionModel::ClearAndSelect);
    for (auto _ : state) rebuild(model, 300);
    state.SetItemsProcessed(state.iterations() * 300);
    state.counters["still_selected"] = selection.selectedRowCount();
}
BENCHMARK(BM_StandardModelReset300WithKeyedSelection);

struct BigProxy {
    KyStandardItemModel model;
    KySortFilterProxyModel proxy;
    BigProxy() {
        rebuild(model, 10000);
        proxy.setSourceModel(&model);
        proxy.setFilterFixedString("office 1"); // about a tenth of the rows
        proxy.sort(0, KySortOrder::Descending);
    }
};

void BM_ProxyMapBothWays10k(benchmark::State& state) {
    BigProxy big;
    const int rows = big.proxy.rowCount();
    long sum = 0;
    for (auto _ : state)
        for (int r = 0; r < rows; ++r) {
            const KyModelIndex s = big.proxy.mapToSource(big.proxy.index(r, 0));
            sum += big.proxy.mapFromSource(s).row();
        }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * rows);
    state.counters["proxy_rows"] = rows;
}
BENCHMARK(BM_ProxyMapBothWays10k);

void BM_BaselineVectorMapBothWays10k(benchmark::State& state) {
    BigProxy big;
    const int rows = big.proxy.rowCount();
    std::vector<int> toSource(static_cast<std::size_t>(rows));
    std::vector<int> fromSource(10000, -1);
    for (int r = 0; r < rows; ++r) toSource[std::size_t(r)] = big.proxy.mapRowToSource(r);
    for (int r = 0; r < rows; ++r) fromSource[std::size_t(toSource[std::size_t(r)])] = r;
    long sum = 0;
    for (auto _ : state)
        for (int r = 0; r < rows; ++r) {
            benchmark::DoNotOptimize(toSource.data());
            sum += fromSource[std::size_t(toSource[std::size_t(r)])];
        }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * rows);
}
BENCHMARK(BM_BaselineVectorMapBothWays10k);

void BM_ProxyReadVisibleRows(benchmark::State& state) {
    // A repaint of one screen of a scrolled list: 40 rows, three roles each.
    BigProxy big;
    big.proxy.setFilterFixedString("");
    int first = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        first = (first + 997) % (big.proxy.rowCount() - 40);
        for (int r = first; r < first + 40; ++r) {
            const KyModelIndex i = big.proxy.index(r, 0);
            bytes += i.data().toString().size() + i.data(DetailRole).toString().size();
            bytes += i.data(ActiveRole).toBool();
        }
    }
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations() * 40);
}
BENCHMARK(BM_ProxyReadVisibleRows);

void BM_BaselineVectorReadVisibleRows(benchmark::State& state) {
    std::vector<Entry> entries;
    for (int i = 0; i < 10000; ++i) entries.push_back(entry(i));
    int first = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        first = (first + 997) % (10000 - 40);
        for (int r = first; r < first + 40; ++r) {
            const Entry& e = entries[std::size_t(r)];
            bytes += KyString(e.name).size() + KyString(e.detail).size() + e.active;
        }
    }
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations() * 40);
}
BENCHMARK(BM_BaselineVectorReadVisibleRows);

void BM_ProxySort10k(benchmark::State& state) {
    BigProxy big;
    big.proxy.setFilterFixedString("");
    bool descending = false;
    for (auto _ : state) {
        big.proxy.sort(0, descending ? KySortOrder::Descending : KySortOrder::Ascending);
        descending = !descending;
    }
    state.SetItemsProcessed(state.iterations() * big.proxy.rowCount());
}
BENCHMARK(BM_ProxySort10k)->Unit(benchmark::kMillisecond);

void BM_ProxyFilterKeystroke10k(benchmark::State& state) {
    // Typing the last letter of a search and taking it back again.
    BigProxy big;
    bool longer = false;
    for (auto _ : state) {
        big.proxy.setFilterFixedString(longer ? "office 12" : "office 1");
        longer = !longer;
    }
    state.SetItemsProcessed(state.iterations() * 10000);
}
BENCHMARK(BM_ProxyFilterKeystroke10k)->Unit(benchmark::kMillisecond);


// ---- Painting a list view ----

constexpr int kViewWidth = 1260;
constexpr int kViewHeight = 700;

// Counts the cells it paints, so a frame's work can be read per row.
class CountingDelegate : public KyStyledItemDelegate {
public:
    void paint(KyPainter* p, const KyStyleOptionViewItem& o, const KyModelIndex& i) const override {
        ++cells;
        KyStyledItemDelegate::paint(p, o, i);
    }
    mutable long cells = 0;
};

struct ListPaint {
    KyGuiApplication app;
    KyStandardItemModel model;
    KyWidget* root = new KyWidget;
    KyListView* view = new KyListView(root);
    kytest::WidgetWindow host{&app, root, kViewWidth, kViewHeight};
    explicit ListPaint(int rows = 5000) {
        rebuild(model, rows);
        view->setGeometry(0, 0, kViewWidth, kViewHeight);
        view->setModel(&model);
        view->setCurrentIndex(model.index(3, 0));
        host.show();
        while (host.paints == 0) app.exec(5000);
    }
    ~ListPaint() { delete root; }
    KyPlatformPaintEvent request() const {
        KyPlatformPaintEvent e;
        e.dirtyRect[2] = kViewWidth;
        e.dirtyRect[3] = kViewHeight;
        e.surfaceSize = {kViewWidth, kViewHeight};
        e.nativeWindow = e.nativeDrawable = host.id();
        e.nativeDisplay = host.window()->nativeDisplay();
        return e;
    }
};

void BM_PaintListView5000Rows(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    ListPaint s;
    Display* d = static_cast<Display*>(s.host.window()->nativeDisplay());
    const KyPlatformPaintEvent request = s.request();
    state.counters["rows"] = s.view->lastVisibleRow() - s.view->firstVisibleRow() + 1;
    for (auto _ : state) {
        s.root->paintFromPlatform_(s.app.platformIntegration(), request, true);
        XSync(d, False);
    }
}

// The floor: the same visible rows as a fill and a text each, no widgets.
void BM_BaselinePaintRowsFillAndText(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    ListPaint s;
    Display* d = static_cast<Display*>(s.host.window()->nativeDisplay());
    const KyPlatformPaintEvent request = s.request();
    const int rows = kViewHeight / 30 + 1;
    const KyFont font = s.view->resolveStyledFont();
    for (auto _ : state) {
        KyScopedPlatformPainter painter(s.app.platformIntegration(), request);
        painter->clear(KyColor(255, 255, 255));
        for (int r = 0; r < rows; ++r) {
            const KyColor fill = r == 3 ? KyColor(229, 241, 251) : KyColor(255, 255, 255);
            painter->fillRect({1, 1 + r * 30, kViewWidth - 14, 30}, fill, fill, 0);
            painter->drawText({11, 1 + r * 30, kViewWidth - 34, 30}, s.model.index(r, 0).data().toString(), DrawTextFormat::AlignVCenter,
                              KyColor(30, 30, 30), font);
        }
        painter->finalize();
        XSync(d, False);
    }
}

} // namespace

// One scroll frame as a user makes it: Page Down reaches the focused view
// through the window's key dispatch, then the window repaints. At the last
// row Home starts over, one frame like the others.
void BM_ListViewPageDownFrame(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    ListPaint s(static_cast<int>(state.range(0)));
    CountingDelegate delegate;
    s.view->setItemDelegate(&delegate);
    s.view->requestFocus();
    Display* d = static_cast<Display*>(s.host.window()->nativeDisplay());
    const KyPlatformPaintEvent request = s.request();
    const int last = s.model.rowCount() - 1;
    long frames = 0;
    for (auto _ : state) {
        KyKeyEvent key;
        key.keyCode = s.view->currentIndex().row() == last ? 0xff50 /* Home */ : 0xff56 /* Page Down */;
        KyWidget::KeyEvent press(kKeyPressEvent, key);
        s.root->dispatchKeyEventFromRoot_(&press);
        s.root->paintFromPlatform_(s.app.platformIntegration(), request, true);
        XSync(d, False);
        ++frames;
    }
    s.view->setItemDelegate(nullptr);
    state.counters["rows"] = static_cast<double>(s.model.rowCount());
    state.counters["cells_per_frame"] = frames ? static_cast<double>(delegate.cells) / static_cast<double>(frames) : 0;
}

// A shown list rebuilt from a 300-row snapshot, then the window repainted:
// what the console pays each time the catalog list is refreshed.
void BM_ListViewReset300AndRepaint(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    ListPaint s(300);
    Display* d = static_cast<Display*>(s.host.window()->nativeDisplay());
    const KyPlatformPaintEvent request = s.request();
    for (auto _ : state) {
        rebuild(s.model, 300);
        s.root->paintFromPlatform_(s.app.platformIntegration(), request, true);
        XSync(d, False);
    }
    state.SetItemsProcessed(state.iterations() * 300);
}

BENCHMARK(BM_PaintListView5000Rows)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BaselinePaintRowsFillAndText)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ListViewPageDownFrame)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ListViewReset300AndRepaint)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
