// Widget base benchmarks, each beside a floor from the same run.
//
// Style: one property of a push-button-like widget four levels deep (window >
// frame > frame > button), each level with a default and a user sheet, 200
// rules in the merged cascade: cold (after a sheet change: merge root-down,
// index, resolve the snapshot), from the warm effective sheet without the
// snapshot, and from the snapshot; the floor is a std::map lookup.
// Paint: a full repaint of a 1260x820 window holding ~300 styled widgets
// (panels, bordered cards with radii, buttons and labels with text drawn
// through KyStyle) through paintFromPlatform_, against the platform floor of
// one full-surface fill, one copy and XSync.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <string>

#include "../tests/support/KyTestWidgetWindow.h"
#include "../tests/support/KyTestXvfb.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyScopedPlatformPainter.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidget.h"

// After the framework's headers: Xlib's macros (None, Status) would rename their enumerators.
#include <X11/Xlib.h>

namespace {

constexpr int kWidth = 1260;
constexpr int kHeight = 820;

const char* const kClasses[] = {"BenchButton", "QPushButton", "KyLabel", "KyLineEdit", "KyCheckBox", "KyScrollBar",
                                "KyListView", "KyFrame", "QFrame", "KyWidget", "KyMainWindow", "*"};
const char* const kStates[] = {"", ":hover", ":pressed", ":disabled", ":focus", ":checked", ":hover:checked"};
const char* const kProperties[] = {"color", "border-color", "border-width", "border-radius", "padding", "font-size"};

// One sheet of `rules` blocks; most set background-color, so the property
// looked up has many candidates, as in a real cascade of default sheets.
KyString makeSheet(int level, int rules) {
    KyString text;
    for (int i = 0; i < rules; ++i) {
        const int n = level * 131 + i * 7;
        KyString selector = kClasses[n % 12];
        if (n % 9 == 0) selector += "#item" + KyString::number(n % 5);
        selector += kStates[n % 7];
        text += selector + " { ";
        if (n % 4 != 3) text += KyString::format("background-color: rgb(%d, %d, %d); ", n % 256, (n * 3) % 256, (n * 5) % 256);
        text += KyString(kProperties[n % 6]) + ": " + KyString::number(n % 17) + "px; }\n";
    }
    return text;
}

class BenchButton : public KyWidget {
    KY_OBJECT(BenchButton, KyWidget)

public:
    using KyWidget::KyWidget;
    void paintEvent(PaintEvent* e) override {
        KyStyle::drawControl(KyStyle::PushButton, clientRect(), e->painter(), this, KyStyle::stateOf(this));
    }
};

class BenchLabel : public KyWidget {
    KY_OBJECT(BenchLabel, KyWidget)

public:
    using KyWidget::KyWidget;
    void paintEvent(PaintEvent* e) override {
        KyStyle::drawControl(KyStyle::Label, clientRect(), e->painter(), this, KyStyle::stateOf(this));
    }
};

// window > frame > frame > button, 30 default and 20 user rules on each level.
struct Cascade {
    KyWidget window;
    BenchButton* button;
    Cascade() {
        KyWidget* level = &window;
        for (int i = 0; i < 4; ++i) {
            KyWidget* w = i == 0 ? &window : i < 3 ? new KyWidget(level) : new BenchButton(level);
            w->setDefaultStyleSheet(makeSheet(i, 30));
            w->setStyleSheet(makeSheet(i + 4, 20));
            level = w;
        }
        button = static_cast<BenchButton*>(level);
    }
    int rules() { return static_cast<int>(button->getToolSheet().rules().size()); }
};

void BM_StyleFloorStdMapLookup(benchmark::State& state) {
    std::map<std::string, std::string> properties;
    for (int i = 0; i < 200; ++i) properties["property-" + std::to_string(i)] = std::to_string(i);
    const std::string key = "property-117";
    for (auto _ : state) benchmark::DoNotOptimize(properties.find(key));
}

void BM_StyleColdAfterSheetChange(benchmark::State& state) {
    Cascade c;
    KyColor colour;
    bool paint = false;
    state.counters["rules"] = c.rules();
    for (auto _ : state) {
        c.window.updateStyleTree_();
        benchmark::DoNotOptimize(c.button->resolveStyledBackground(colour, paint));
    }
}

void BM_StyleWarmSheetNoSnapshot(benchmark::State& state) {
    Cascade c;
    c.button->getToolSheet();
    for (auto _ : state) benchmark::DoNotOptimize(c.button->styleProperty("background-color"));
}

void BM_StyleFromSnapshot(benchmark::State& state) {
    Cascade c;
    KyColor colour;
    bool paint = false;
    c.button->resolveStyledBackground(colour, paint);
    for (auto _ : state) benchmark::DoNotOptimize(c.button->resolveStyledBackground(colour, paint));
}

// ---- Paint ----

const char* const kWindowSheet = R"(
    #panel { background-color: rgb(255, 255, 255); border: 1px solid rgb(218, 218, 218); border-radius: 8px; }
    #card { background-color: rgb(241, 245, 249); border: 1px solid rgb(203, 213, 225); border-radius: 6px; }
    #card:hover { background-color: rgb(229, 241, 251); }
    BenchButton { background-color: rgb(243, 243, 243); border-color: rgb(173, 173, 173); border-width: 1px;
                  border-radius: 4px; color: rgb(18, 18, 18); padding: 4px 8px; font-size: 13px; }
    BenchLabel { color: rgb(51, 65, 85); font-size: 12px; }
)";

// 12 panels, each with 6 cards holding a label and a button, plus 12 panel
// titles: 12 + 72 * 3 + 12 + a status row of 60 labels = 300 widgets.
int buildConsole(KyWidget* root) {
    int count = 0;
    root->setStyleSheet(kWindowSheet);
    for (int p = 0; p < 12; ++p) {
        auto* panel = new KyWidget(root);
        panel->setObjectName("panel");
        panel->setGeometry(10 + (p % 4) * 312, 10 + (p / 4) * 250, 300, 240);
        auto* title = new BenchLabel(panel);
        title->setProperty("Text", KyAny(KyString("Hotspot ") + KyString::number(p)));
        title->setGeometry(12, 6, 276, 22);
        count += 2;
        for (int c = 0; c < 6; ++c) {
            auto* card = new KyWidget(panel);
            card->setObjectName("card");
            card->setGeometry(10 + (c % 2) * 142, 34 + (c / 2) * 66, 136, 60);
            auto* label = new BenchLabel(card);
            label->setProperty("Text", KyAny(KyString("endpoint ") + KyString::number(c)));
            label->setGeometry(8, 4, 120, 20);
            auto* button = new BenchButton(card);
            button->setProperty("Text", KyAny(KyString("Connect")));
            button->setGeometry(8, 28, 120, 26);
            count += 3;
        }
    }
    for (int i = 0; i < 60; ++i) {
        auto* status = new BenchLabel(root);
        status->setProperty("Text", KyAny(KyString("s") + KyString::number(i)));
        status->setGeometry(10 + i * 20, 772, 18, 20);
        ++count;
    }
    return count;
}

KyPlatformPaintEvent fullRequest(kytest::WidgetWindow& host) {
    KyPlatformPaintEvent e;
    e.dirtyRect[2] = kWidth;
    e.dirtyRect[3] = kHeight;
    e.surfaceSize = {kWidth, kHeight};
    e.nativeWindow = e.nativeDrawable = host.id();
    e.nativeDisplay = host.window()->nativeDisplay();
    return e;
}

struct PaintSetup {
    KyGuiApplication app;
    KyWidget* root = new KyWidget;
    kytest::WidgetWindow host{&app, root, kWidth, kHeight};
    int widgets = buildConsole(root);
    PaintSetup() {
        host.show();
        while (host.paints == 0) app.exec(5000);
    }
    ~PaintSetup() { delete root; }
};

void BM_PaintFloorFillCopySync(benchmark::State& state) {
    PaintSetup s;
    Display* d = static_cast<Display*>(s.host.window()->nativeDisplay());
    const KyPlatformPaintEvent request = fullRequest(s.host);
    for (auto _ : state) {
        KyScopedPlatformPainter painter(s.app.platformIntegration(), request);
        painter->clear(KyColor(249, 249, 249));
        painter->finalize();
        XSync(d, False);
    }
}

void BM_PaintFullWindow300Widgets(benchmark::State& state) {
    PaintSetup s;
    Display* d = static_cast<Display*>(s.host.window()->nativeDisplay());
    const KyPlatformPaintEvent request = fullRequest(s.host);
    state.counters["widgets"] = s.widgets;
    for (auto _ : state) {
        s.root->paintFromPlatform_(s.app.platformIntegration(), request, true);
        XSync(d, False);
    }
}

BENCHMARK(BM_StyleFloorStdMapLookup);
BENCHMARK(BM_StyleColdAfterSheetChange)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StyleWarmSheetNoSnapshot);
BENCHMARK(BM_StyleFromSnapshot);
BENCHMARK(BM_PaintFloorFillCopySync)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PaintFullWindow300Widgets)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv) {
    if (!kytest::Xvfb::instance().running()) {
        std::fprintf(stderr, "bench_gui_widgets: Xvfb did not start\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
