// GUI platform benchmarks on a private Xvfb (the one the tests use, with
// DejaVu on its font path). Each figure sits beside a baseline from the same
// run: a full console frame through KyX11Painter against the same primitives
// drawn with raw Xlib into a pixmap and against one fill and copy; text
// drawing and measuring; the font cache hot and cold; the time from an X
// event to its callback on the sleeping loop against a raw XNextEvent; and
// start-up to the first Expose against a bare Xlib window.
#include <benchmark/benchmark.h>

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

#include "../tests/support/KyTestXvfb.h"
#include "core/io/KyDebug.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyLinuxFontCache.h"
#include "gui/platform/KyScopedPlatformPainter.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/platform/KyX11PlatformIntegration.h"
#include "gui/platform/KyX11TextRun.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kWidth = 1260;
constexpr int kHeight = 820;
const KyFont kLabelFont(L"Segoe UI", 9);
const KyString kLabel40 = "Hotspot Z\u00fcrich-West \u2014 endpoint 17 ok";

double microsecondsSince(Clock::time_point t) {
    return std::chrono::duration<double, std::micro>(Clock::now() - t).count();
}

// A GUI application with one shown window of console size, on the private server.
struct Gui {
    std::unique_ptr<KyGuiApplication> app;
    std::unique_ptr<KyPlatformWindow> window;
    std::atomic<int> painted{0};
    Clock::time_point firstPaint;
    Display* display = nullptr;

    explicit Gui(KyWindowCallbacks callbacks = {}) {
        app = std::make_unique<KyGuiApplication>();
        callbacks.paintRequested = [this](KyPlatformPaintEvent) {
            if (painted++ == 0) firstPaint = Clock::now();
        };
        window = app->platformIntegration()->createWindow("bench", kWidth, kHeight, callbacks, {});
        window->show();
        display = static_cast<Display*>(window->nativeDisplay());
        while (painted == 0) app->exec(5000);
    }
    KyPlatformPaintEvent paintEvent() const {
        KyPlatformPaintEvent e;
        e.dirtyRect[2] = kWidth;
        e.dirtyRect[3] = kHeight;
        e.surfaceSize = {kWidth, kHeight};
        e.nativeWindow = e.nativeDrawable = window->nativeHandle();
        e.nativeDisplay = display;
        return e;
    }
};

// A pixmap of the window's size and a GC for it, as a raw Xlib client keeps them.
struct RawSurface {
    Display* d;
    Pixmap pixmap;
    GC gc;
    RawSurface(Display* display, Window window) : d(display) {
        pixmap = XCreatePixmap(d, window, kWidth, kHeight, static_cast<unsigned>(DefaultDepth(d, DefaultScreen(d))));
        gc = XCreateGC(d, pixmap, 0, nullptr);
        XSetGraphicsExposures(d, gc, False);
    }
    ~RawSurface() {
        XFreeGC(d, gc);
        XFreePixmap(d, pixmap);
    }
};

// 16-bit glyph indices of a text, as a raw client prepares them once.
std::vector<XChar2b> glyphsOf(const KyString& text) {
    std::vector<XChar2b> glyphs;
    for (char32_t c : text.toUtf32()) glyphs.push_back({static_cast<unsigned char>(c >> 8), static_cast<unsigned char>(c)});
    return glyphs;
}

// The frame: a console of rows and cards, 260 fills, 100 rounded cards with
// borders and 160 labels, centred or left-aligned, each clipped to its box.
struct FrameItem {
    KyRect rect;
    KyColor fill;
    int radius;
    KyString text;
    bool centred;
};

std::vector<FrameItem> consoleFrame() {
    std::vector<FrameItem> items;
    for (int i = 0; i < 260; ++i)
        items.push_back({{(i % 13) * 96, (i / 13) * 40, 92, 36}, KyColor(230 - i % 20, 235, 245), 0, {}, false});
    for (int i = 0; i < 100; ++i)
        items.push_back({{(i % 10) * 124 + 8, (i / 10) * 80 + 10, 116, 60}, KyColor(255, 255, 255), 6, {}, false});
    for (int i = 0; i < 160; ++i)
        items.push_back({{(i % 8) * 155 + 6, (i / 8) * 40 + 4, 150, 30}, KyColor(), -1,
                         KyString("VPN ") + KyString::number(i) + " \u00b7 device online", (i % 2) == 0});
    return items;
}

void paintFrame(KyPainter& p, const std::vector<FrameItem>& items) {
    const KyColor border(200, 205, 215), ink(20, 20, 20);
    p.clear(KyColor(249, 249, 249));
    for (const FrameItem& item : items) {
        if (item.radius < 0) {
            p.drawText(item.rect, item.text,
                       item.centred ? (DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter)
                                    : KyFlagSet<DrawTextFormat>(DrawTextFormat::AlignVCenter),
                       ink, kLabelFont);
        } else if (item.radius > 0) {
            p.fillRoundedRect(item.rect, item.radius, item.fill, border, 1);
        } else {
            p.fillRect(item.rect, item.fill, border, 0);
        }
    }
}

void BM_ConsoleFrame_KyX11Painter(benchmark::State& state) {
    Gui gui;
    const auto items = consoleFrame();
    for (auto _ : state) {
        KyScopedPlatformPainter painter(gui.app->platformIntegration(), gui.paintEvent());
        paintFrame(*painter, items);
        painter->finalize();
        XSync(gui.display, False);
    }
}
BENCHMARK(BM_ConsoleFrame_KyX11Painter)->Unit(benchmark::kMicrosecond);

// The same primitives as raw Xlib calls into a pixmap: what a hand-written
// client would send for this frame, with the labels' glyph indices prepared once.
void BM_ConsoleFrame_RawXlibSamePrimitives(benchmark::State& state) {
    Gui gui;
    Display* d = gui.display;
    const Window w = gui.window->nativeHandle();
    RawSurface surface(d, w);
    const Pixmap pixmap = surface.pixmap;
    GC gc = surface.gc;
    const KyLinuxFontCache::Resolved font = KyLinuxFontCache::resolve(d, kLabelFont);
    XSetFont(d, gc, font.font->fid);
    const auto items = consoleFrame();
    std::vector<std::vector<XChar2b>> glyphs;
    for (const FrameItem& item : items) glyphs.push_back(glyphsOf(item.text));
    constexpr double pi = std::numbers::pi;
    std::vector<XPoint> points;
    for (auto _ : state) {
        XSetForeground(d, gc, 0xF9F9F9);
        XFillRectangle(d, pixmap, gc, 0, 0, kWidth, kHeight);
        for (std::size_t n = 0; n < items.size(); ++n) {
            const FrameItem& item = items[n];
            const KyRect& r = item.rect;
            if (item.radius < 0) {
                int dir, ascent, descent;
                XCharStruct overall;
                const auto& g = glyphs[n];
                XTextExtents16(font.font, g.data(), static_cast<int>(g.size()), &dir, &ascent, &descent, &overall);
                const int x = item.centred ? r.x + (r.width - overall.width) / 2 : r.x;
                const int y = r.y + (r.height - (font.font->ascent + font.font->descent)) / 2 + font.font->ascent;
                XRectangle clip{static_cast<short>(r.x), static_cast<short>(r.y), static_cast<unsigned short>(r.width),
                                static_cast<unsigned short>(r.height)};
                XSetForeground(d, gc, 0x141414);
                XSetClipRectangles(d, gc, 0, 0, &clip, 1, Unsorted);
                XDrawString16(d, pixmap, gc, x, y, g.data(), static_cast<int>(g.size()));
                XSetClipMask(d, gc, None);
            } else if (item.radius > 0) {
                const int rad = item.radius, segments = std::max(12, 3 * rad);
                const int cx[4] = {r.x + rad, r.x + r.width - rad, r.x + r.width - rad, r.x + rad};
                const int cy[4] = {r.y + rad, r.y + rad, r.y + r.height - rad, r.y + r.height - rad};
                const double start[4] = {pi, 1.5 * pi, 0, 0.5 * pi};
                points.clear();
                for (int c = 0; c < 4; ++c)
                    for (int i = 0; i <= segments; ++i) {
                        const double a = start[c] + (pi / 2) * i / segments;
                        points.push_back({static_cast<short>(cx[c] + std::lround(rad * std::cos(a))),
                                          static_cast<short>(cy[c] + std::lround(rad * std::sin(a)))});
                    }
                XSetForeground(d, gc, item.fill.rgb());
                XFillPolygon(d, pixmap, gc, points.data(), static_cast<int>(points.size()), Nonconvex, CoordModeOrigin);
                points.push_back(points.front());
                XSetForeground(d, gc, 0xC8CDD7);
                XSetLineAttributes(d, gc, 1, LineSolid, CapButt, JoinMiter);
                XDrawLines(d, pixmap, gc, points.data(), static_cast<int>(points.size()), CoordModeOrigin);
            } else {
                XSetForeground(d, gc, item.fill.rgb());
                XFillRectangle(d, pixmap, gc, r.x, r.y, static_cast<unsigned>(r.width), static_cast<unsigned>(r.height));
            }
        }
        XCopyArea(d, pixmap, w, gc, 0, 0, kWidth, kHeight, 0, 0);
        XSync(d, False);
    }
}
BENCHMARK(BM_ConsoleFrame_RawXlibSamePrimitives)->Unit(benchmark::kMicrosecond);

// The floor: one fill and one copy of the same surface.
void BM_ConsoleFrame_RawFillCopySync(benchmark::State& state) {
    Gui gui;
    Display* d = gui.display;
    const Window w = gui.window->nativeHandle();
    RawSurface surface(d, w);
    for (auto _ : state) {
        XSetForeground(d, surface.gc, 0xF9F9F9);
        XFillRectangle(d, surface.pixmap, surface.gc, 0, 0, kWidth, kHeight);
        XCopyArea(d, surface.pixmap, w, surface.gc, 0, 0, kWidth, kHeight, 0, 0);
        XSync(d, False);
    }
}
BENCHMARK(BM_ConsoleFrame_RawFillCopySync)->Unit(benchmark::kMicrosecond);

void BM_DrawText40Chars(benchmark::State& state) {
    Gui gui;
    KyScopedPlatformPainter painter(gui.app->platformIntegration(), gui.paintEvent());
    for (auto _ : state) painter->drawText({10, 10, 400, 30}, kLabel40, DrawTextFormat::AlignVCenter, KyColor(), kLabelFont);
    XSync(gui.display, False);
}
BENCHMARK(BM_DrawText40Chars);

void BM_DrawText40Chars_RawXDrawString16(benchmark::State& state) {
    Gui gui;
    Display* d = gui.display;
    GC gc = XCreateGC(d, gui.window->nativeHandle(), 0, nullptr);
    XFontStruct* font = KyLinuxFontCache::acquire(d, kLabelFont);
    XSetFont(d, gc, font->fid);
    const std::vector<XChar2b> g = glyphsOf(kLabel40);
    for (auto _ : state) XDrawString16(d, gui.window->nativeHandle(), gc, 10, 30, g.data(), static_cast<int>(g.size()));
    XSync(d, False);
    XFreeGC(d, gc);
}
BENCHMARK(BM_DrawText40Chars_RawXDrawString16);

void BM_MeasureText40Chars(benchmark::State& state) {
    Gui gui;
    const KyWidgetPlatformHandle handle{gui.display, gui.window->nativeHandle()};
    for (auto _ : state)
        benchmark::DoNotOptimize(KyWidgetPlatformAdapter::textWidthUntil(handle, kLabel40, kLabelFont, kLabel40.size(), 0));
}
BENCHMARK(BM_MeasureText40Chars);

void BM_MeasureText40Chars_RawXTextExtents16(benchmark::State& state) {
    Gui gui;
    XFontStruct* font = KyLinuxFontCache::acquire(gui.display, kLabelFont);
    const std::vector<XChar2b> g = glyphsOf(kLabel40);
    for (auto _ : state) {
        int dir, ascent, descent;
        XCharStruct overall;
        XTextExtents16(font, g.data(), static_cast<int>(g.size()), &dir, &ascent, &descent, &overall);
        benchmark::DoNotOptimize(overall.width);
    }
}
BENCHMARK(BM_MeasureText40Chars_RawXTextExtents16);

void BM_FontCacheHit_SameFont(benchmark::State& state) {
    Gui gui;
    KyLinuxFontCache::acquire(gui.display, kLabelFont);
    for (auto _ : state) benchmark::DoNotOptimize(KyLinuxFontCache::acquire(gui.display, kLabelFont));
}
BENCHMARK(BM_FontCacheHit_SameFont);

void BM_FontCacheHit_CopiedFont(benchmark::State& state) {
    Gui gui;
    KyLinuxFontCache::acquire(gui.display, kLabelFont);
    for (auto _ : state) {
        const KyFont copy = kLabelFont; // a copy forgets its handle: a keyed lookup
        benchmark::DoNotOptimize(KyLinuxFontCache::acquire(gui.display, copy));
    }
}
BENCHMARK(BM_FontCacheHit_CopiedFont);

void BM_FontLoadCold_Chain(benchmark::State& state) {
    Gui gui;
    for (auto _ : state) {
        state.PauseTiming();
        KyLinuxFontCache::forgetDisplay(gui.display);
        const KyFont font = kLabelFont;
        state.ResumeTiming();
        benchmark::DoNotOptimize(KyLinuxFontCache::acquire(gui.display, font));
    }
}
BENCHMARK(BM_FontLoadCold_Chain)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_FontLoadCold_RawXLoadQueryFont(benchmark::State& state) {
    Gui gui;
    for (auto _ : state) {
        XFontStruct* font = XLoadQueryFont(gui.display, "-*-dejavu sans-medium-r-*-*-12-*-*-*-*-*-iso10646-1");
        state.PauseTiming();
        if (font) XFreeFont(gui.display, font);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FontLoadCold_RawXLoadQueryFont)->Unit(benchmark::kMillisecond)->Iterations(20);

// Latency from an event leaving another client to its callback running on the
// sleeping loop (dispatcher watch, lane 0 pump, lane 1 callback); reported as
// counters over 200 events.
void BM_EventToCallbackLatency(benchmark::State& state) {
    std::atomic<int> seen{0};
    KyWindowCallbacks callbacks;
    callbacks.mouseMoved = [&seen](KyMouseEvent) { ++seen; };
    Gui gui(callbacks);
    const Window w = gui.window->nativeHandle();
    constexpr int kEvents = 200;
    std::vector<double> latencies;
    for (auto _ : state) {
        latencies.clear();
        std::atomic<bool> done{false};
        std::thread sender([&] {
            Display* d = XOpenDisplay(nullptr);
            for (int i = 0; i < kEvents; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2)); // the loop is asleep again
                XEvent e{};
                e.xmotion.type = MotionNotify;
                e.xmotion.window = w;
                const int before = seen.load();
                const auto t0 = Clock::now();
                XSendEvent(d, w, False, PointerMotionMask, &e);
                XFlush(d);
                while (seen.load() == before) std::this_thread::yield();
                latencies.push_back(microsecondsSince(t0));
            }
            XCloseDisplay(d);
            done = true;
        });
        while (!done) gui.app->exec(50000);
        sender.join();
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["p50_us"] = latencies[latencies.size() / 2];
    state.counters["p90_us"] = latencies[latencies.size() * 9 / 10];
}
BENCHMARK(BM_EventToCallbackLatency)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_EventToCallbackLatency_RawXNextEvent(benchmark::State& state) {
    Display* receiver = XOpenDisplay(nullptr);
    const Window w = XCreateSimpleWindow(receiver, DefaultRootWindow(receiver), 0, 0, 100, 100, 0, 0, 0);
    XSelectInput(receiver, w, PointerMotionMask);
    XSync(receiver, False);
    constexpr int kEvents = 200;
    std::vector<double> latencies;
    for (auto _ : state) {
        std::atomic<int> seen{0};
        std::thread sender([&] {
            Display* d = XOpenDisplay(nullptr);
            for (int i = 0; i < kEvents; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
                XEvent e{};
                e.xmotion.type = MotionNotify;
                e.xmotion.window = w;
                const auto t0 = Clock::now();
                XSendEvent(d, w, False, PointerMotionMask, &e);
                XFlush(d);
                while (seen.load() == i) std::this_thread::yield();
                latencies.push_back(microsecondsSince(t0));
            }
            XCloseDisplay(d);
        });
        for (int i = 0; i < kEvents; ++i) {
            XEvent e;
            XNextEvent(receiver, &e);
            ++seen;
        }
        sender.join();
    }
    XCloseDisplay(receiver);
    std::sort(latencies.begin(), latencies.end());
    state.counters["p50_us"] = latencies[latencies.size() / 2];
    state.counters["p90_us"] = latencies[latencies.size() * 9 / 10];
}
BENCHMARK(BM_EventToCallbackLatency_RawXNextEvent)->Iterations(1)->Unit(benchmark::kMillisecond);

// From nothing to a window on screen: the loop, the connection, one window,
// mapped, and its first Expose handled (in process, so the executable's own
// start, the same for both, is left out; teardown is not timed).
void BM_StartupToFirstExpose(benchmark::State& state) {
    for (auto _ : state) {
        const auto start = Clock::now();
        Gui gui;
        state.SetIterationTime(std::chrono::duration<double>(gui.firstPaint - start).count());
    }
}
BENCHMARK(BM_StartupToFirstExpose)->UseManualTime()->Unit(benchmark::kMillisecond);

// The runtime's share of the start-up above: a loop that runs its first
// posted function (the first post warms the fiber pool) and goes away.
void BM_StartupShare_CoreLoopFirstPost(benchmark::State& state) {
    for (auto _ : state) {
        const auto start = Clock::now();
        KyCoreApplication loop;
        Clock::time_point ran{};
        loop.postEvent([&ran] { ran = Clock::now(); });
        while (ran == Clock::time_point{}) loop.processEvent(false);
        state.SetIterationTime(std::chrono::duration<double>(ran - start).count());
    }
}
BENCHMARK(BM_StartupShare_CoreLoopFirstPost)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_StartupToFirstExpose_RawXlib(benchmark::State& state) {
    for (auto _ : state) {
        const auto start = Clock::now();
        Display* d = XOpenDisplay(nullptr);
        const Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, kWidth, kHeight, 0, 0, 0xF9F9F9);
        XSelectInput(d, w, ExposureMask);
        XMapWindow(d, w);
        XEvent e;
        do XNextEvent(d, &e);
        while (e.type != Expose);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        XCloseDisplay(d);
    }
}
BENCHMARK(BM_StartupToFirstExpose_RawXlib)->UseManualTime()->Unit(benchmark::kMillisecond);

// Process start to first window: this program started again with a probe
// switch, which maps one window (through KyGuiApplication, or as a bare Xlib
// client) and says "shown" once its first Expose is handled. Timed from fork
// to that line, so loading, the loop's warm-up and the connection all count.
double spawnProbeMilliseconds(const char* self, const char* probe) {
    int out[2];
    if (::pipe(out) != 0) return -1;
    const auto start = Clock::now();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(out[1], 1);
        ::execl(self, self, probe, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(out[1]);
    char buf[16];
    const bool shown = ::read(out[0], buf, sizeof buf) > 0;
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    ::close(out[0]);
    ::waitpid(pid, nullptr, 0);
    return shown ? ms : -1;
}

std::string gSelf;

void processStartup(benchmark::State& state, const char* probe) {
    for (auto _ : state) {
        const double ms = spawnProbeMilliseconds(gSelf.c_str(), probe);
        if (ms < 0) {
            state.SkipWithError("the probe did not show its window");
            return;
        }
        state.SetIterationTime(ms / 1000.0);
    }
}
void BM_ProcessStartToFirstWindow(benchmark::State& state) { processStartup(state, "--probe-ky"); }
void BM_ProcessStartToFirstWindow_BareXlib(benchmark::State& state) { processStartup(state, "--probe-xlib"); }
// The runtime's share: a process whose loop runs one posted function (the
// first post warms the fiber pool), and says "shown" then.
void BM_ProcessStartToFirstPost_CoreLoopShare(benchmark::State& state) { processStartup(state, "--probe-core"); }
BENCHMARK(BM_ProcessStartToFirstWindow)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);
BENCHMARK(BM_ProcessStartToFirstPost_CoreLoopShare)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);
BENCHMARK(BM_ProcessStartToFirstWindow_BareXlib)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);

int runProbe(const std::string& probe) {
    if (probe == "--probe-ky") {
        Gui gui;
    } else if (probe == "--probe-core") {
        KyCoreApplication loop;
        bool ran = false;
        loop.postEvent([&ran] { ran = true; });
        while (!ran) loop.processEvent(false);
    } else {
        Display* d = XOpenDisplay(nullptr);
        if (!d) return 1;
        const Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, kWidth, kHeight, 0, 0, 0xF9F9F9);
        XSelectInput(d, w, ExposureMask);
        XMapWindow(d, w);
        XEvent e;
        do XNextEvent(d, &e);
        while (e.type != Expose);
    }
    std::fputs("shown\n", stdout);
    std::fflush(stdout);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]).rfind("--probe-", 0) == 0) return runProbe(argv[1]);
    gSelf = "/proc/self/exe";
    if (char resolved[4096]; ::realpath("/proc/self/exe", resolved)) gSelf = resolved;
    if (!kytest::Xvfb::instance().running()) {
        std::fprintf(stderr, "bench_gui: Xvfb did not start\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
