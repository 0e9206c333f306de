// The monitor log's hot path and the editor's lookups on the text document.
//
// Log: one agent line appended to a read-only log and highlighted with the
// monitor's rules, the log trimmed back to its size whenever it passes it by
// 100 lines (5100 -> 5000 for the console), measured per appended line at
// three log sizes to show that the cost does not follow the length. Beside it,
// in the same run: the same lines appended to a std::string with a
// std::vector of line offsets and trimmed the same way (the storage floor),
// and the highlighting rules alone on the line (the colouring floor).
// Editor: the text of the 40 blocks a screen shows, and a keystroke in the
// middle of a 5000-line document, each beside the std::string equivalent.
// Log view: one line appended to a 5000-line read-only code editor that
// follows the end, highlighted, trimmed, and the frame it damages painted,
// beside the floor of the same document work plus one fill and text.
#include <benchmark/benchmark.h>

#include <cctype>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "../tests/support/KyTestWidgetWindow.h"
#include "../tests/support/KyTestXvfb.h"
#include "gui/platform/KyScopedPlatformPainter.h"
#include "gui/text/KyCodeEditor.h"
#include "gui/text/KySyntaxHighlighter.h"
#include "gui/text/KyTextCursor.h"
#include "gui/text/KyTextDocument.h"

// Xlib last: its macros (None, Status) would break the framework's headers.
#include <X11/Xlib.h>

namespace {

const KyColor kStamp(127, 145, 151), kTraffic(220, 154, 84), kDiscovery(94, 156, 194), kSuccess(86, 176, 145),
    kError(203, 102, 102);

const std::pair<const char*, KyColor> kRules[] = {
    {"VPN TX", kTraffic}, {"VPN RX", kDiscovery}, {"RTSP", kTraffic}, {"DISCOVERY", kDiscovery},
    {"ERROR", kError}, {"FAILED", kError}, {"Disconnected", kError}, {"Connecting", kDiscovery},
    {"Authenticated", kSuccess}, {"connected", kSuccess}, {"ready", kSuccess},
};

// The monitor's rules: a leading time, then whole-word keywords, later ones winning.
template <typename SetFormat> void applyLogRules(const KyString& text, SetFormat&& setFormat) {
    if (text.size() > 7 && text[2] == ':' && text[5] == ':') setFormat(0, 8, kStamp);
    for (const auto& [word, color] : kRules) {
        const std::size_t n = std::strlen(word);
        for (std::size_t at = text.indexOf(word); at != KyString::npos; at = text.indexOf(word, at + n)) {
            const bool before = at > 0 && std::isalnum(static_cast<unsigned char>(text[at - 1]));
            const bool after = at + n < text.size() && std::isalnum(static_cast<unsigned char>(text[at + n]));
            if (!before && !after) setFormat(int(at), int(n), color);
        }
    }
}

class LogHighlighter : public KySyntaxHighlighter {
public:
    using KySyntaxHighlighter::KySyntaxHighlighter;

protected:
    void highlightBlock(const KyString& text) override {
        applyLogRules(text, [this](int s, int n, const KyColor& c) { setFormat(s, n, c); });
    }
};

KyString logLine(long i) {
    return KyString::format("%02ld:%02ld:%02ld VPN TX %ld bytes to 10.44.0.%ld, peer connected, ready", (i / 3600) % 24,
                            (i / 60) % 60, i % 60, 1200 + i % 300, i % 250);
}

// Appends the line and trims the way the console's log does.
void appendToLog(KyTextDocument& doc, const KyString& line, int keep) {
    doc.appendPlainText(line);
    if (doc.blockCount() <= keep + 100) return;
    KyTextCursor cut(&doc);
    cut.movePosition(KyTextCursor::NextBlock, KyTextCursor::KeepAnchor, doc.blockCount() - keep);
    cut.removeSelectedText();
}

void BM_LogAppendHighlightTrim(benchmark::State& state) {
    const int keep = static_cast<int>(state.range(0));
    KyTextDocument doc;
    doc.setUndoRedoEnabled(false); // a read-only log never undoes
    LogHighlighter highlighter(&doc);
    long i = 0;
    for (; i < keep; ++i) appendToLog(doc, logLine(i), keep);
    for (auto _ : state) appendToLog(doc, logLine(i++), keep);
    state.SetItemsProcessed(state.iterations());
    state.counters["blocks"] = doc.blockCount();
    state.counters["pieces"] = doc.pieceCount();
    benchmark::DoNotOptimize(highlighter.formats(doc.blockCount() - 1).size());
}
BENCHMARK(BM_LogAppendHighlightTrim)->Arg(500)->Arg(5000)->Arg(50000);

void BM_LogAppendWithUndoHistory(benchmark::State& state) {
    // The same with the history left on, as an editable document keeps it.
    KyTextDocument doc;
    LogHighlighter highlighter(&doc);
    long i = 0;
    for (; i < 5000; ++i) appendToLog(doc, logLine(i), 5000);
    for (auto _ : state) appendToLog(doc, logLine(i++), 5000);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LogAppendWithUndoHistory);

void BM_BaselineStringAndLineOffsets(benchmark::State& state) {
    const std::size_t keep = static_cast<std::size_t>(state.range(0));
    std::string text;
    std::vector<std::size_t> starts;
    const auto append = [&](const KyString& line) {
        if (!starts.empty()) text += '\n';
        starts.push_back(text.size());
        text += line.str();
        if (starts.size() <= keep + 100) return;
        const std::size_t drop = starts.size() - keep;
        const std::size_t cut = starts[drop];
        text.erase(0, cut);
        starts.erase(starts.begin(), starts.begin() + std::ptrdiff_t(drop));
        for (std::size_t& s : starts) s -= cut;
    };
    long i = 0;
    for (; i < long(keep); ++i) append(logLine(i));
    for (auto _ : state) append(logLine(i++));
    state.SetItemsProcessed(state.iterations());
    benchmark::DoNotOptimize(text.data());
}
BENCHMARK(BM_BaselineStringAndLineOffsets)->Arg(500)->Arg(5000)->Arg(50000);

void BM_BaselineHighlightRulesAlone(benchmark::State& state) {
    std::vector<KyTextFormatRange> ranges;
    long i = 0;
    for (auto _ : state) {
        ranges.clear();
        applyLogRules(logLine(i++), [&](int s, int n, const KyColor& c) {
            KyTextCharFormat f;
            f.setForeground(c);
            ranges.push_back({s, n, f});
        });
        benchmark::DoNotOptimize(ranges.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BaselineHighlightRulesAlone);

const KyString& fiveThousandLines() {
    static const KyString text = [] {
        KyString t;
        for (long i = 0; i < 5000; ++i) t += logLine(i) + (i + 1 < 5000 ? "\n" : "");
        return t;
    }();
    return text;
}

void BM_VisibleBlocksText(benchmark::State& state) {
    // What a repaint of a scrolled log asks: 40 consecutive lines somewhere.
    KyTextDocument doc(fiveThousandLines());
    int first = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        first = (first + 997) % (doc.blockCount() - 40);
        for (KyTextBlock b = doc.findBlockByNumber(first); b.blockNumber() < first + 40; b = b.next())
            bytes += b.text().size();
    }
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations() * 40);
}
BENCHMARK(BM_VisibleBlocksText);

void BM_BaselineVisibleLinesFromString(benchmark::State& state) {
    const std::string text = fiveThousandLines().str();
    std::vector<std::size_t> starts{0};
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\n') starts.push_back(i + 1);
    int first = 0;
    std::size_t bytes = 0;
    for (auto _ : state) {
        first = (first + 997) % (int(starts.size()) - 40);
        for (int n = first; n < first + 40; ++n)
            bytes += std::string(text, starts[std::size_t(n)], starts[std::size_t(n) + 1] - 1 - starts[std::size_t(n)]).size();
    }
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(state.iterations() * 40);
}
BENCHMARK(BM_BaselineVisibleLinesFromString);

void BM_KeystrokeInTheMiddle(benchmark::State& state) {
    KyTextDocument doc(fiveThousandLines());
    KyTextCursor cursor(doc.findBlockByNumber(2500));
    for (auto _ : state) cursor.insertText("k");
    state.SetItemsProcessed(state.iterations());
    state.counters["pieces"] = doc.pieceCount();
    state.counters["undo_steps"] = doc.availableUndoSteps();
}
BENCHMARK(BM_KeystrokeInTheMiddle);

void BM_BaselineKeystrokeInTheMiddleOfAString(benchmark::State& state) {
    std::string text = fiveThousandLines().str();
    std::size_t at = text.size() / 2;
    for (auto _ : state) text.insert(at++, 1, 'k');
    benchmark::DoNotOptimize(text.data());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BaselineKeystrokeInTheMiddleOfAString);


// ---- The log view ----

struct LogView {
    KyGuiApplication app;
    KyWidget* root = new KyWidget;
    KyCodeEditor* edit = new KyCodeEditor(root);
    kytest::WidgetWindow host{&app, root, 1260, 700};
    // The document owns its highlighter.
    LogHighlighter* highlighter = new LogHighlighter(edit->document());
    LogView() {
        edit->setGeometry(0, 0, 1260, 700);
        edit->setReadOnly(true);
        edit->document()->setUndoRedoEnabled(false);
        edit->setHighlighter(highlighter);
        for (long i = 0; i < 5000; ++i) edit->appendPlainText(logLine(i));
        host.show();
        while (host.paints == 0) app.exec(5000);
    }
    ~LogView() { delete root; }
    // Paints what the append damaged, as the loop's Expose would.
    void paintDamage() {
        KyPlatformPaintEvent e;
        const KyRect r = edit->viewportRect();
        e.dirtyRect[0] = r.x, e.dirtyRect[1] = r.y, e.dirtyRect[2] = r.width, e.dirtyRect[3] = r.height;
        e.surfaceSize = {1260, 700};
        e.nativeWindow = e.nativeDrawable = host.id();
        e.nativeDisplay = host.window()->nativeDisplay();
        root->paintFromPlatform_(app.platformIntegration(), e, false);
        XSync(static_cast<Display*>(host.window()->nativeDisplay()), False);
    }
};

void BM_LogViewAppendOneLineAndPaint(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    LogView v;
    long i = 5000;
    for (auto _ : state) {
        v.edit->appendPlainText(logLine(i++));
        if (v.edit->document()->blockCount() > 5100) {
            KyTextCursor cut(v.edit->document());
            cut.movePosition(KyTextCursor::NextBlock, KyTextCursor::KeepAnchor, v.edit->document()->blockCount() - 5000);
            cut.removeSelectedText();
        }
        v.paintDamage();
    }
    state.counters["following"] = v.edit->isFollowingEnd();
}
BENCHMARK(BM_LogViewAppendOneLineAndPaint)->Unit(benchmark::kMicrosecond);

// The floor: the same document work, and the viewport repainted as one
// fill and a text per visible line straight on the painter.
void BM_BaselineLogAppendAndRawPaint(benchmark::State& state) {
    if (!kytest::Xvfb::instance().running()) return state.SkipWithError("no Xvfb");
    LogView v;
    v.edit->setHighlighter(nullptr);
    KyTextDocument doc;
    doc.setUndoRedoEnabled(false);
    LogHighlighter highlighter(&doc);
    for (long i = 0; i < 5000; ++i) doc.appendPlainText(logLine(i));
    KyPlatformPaintEvent e;
    e.dirtyRect[2] = 1260, e.dirtyRect[3] = 700;
    e.surfaceSize = {1260, 700};
    e.nativeWindow = e.nativeDrawable = v.host.id();
    e.nativeDisplay = v.host.window()->nativeDisplay();
    const KyFont font = v.edit->resolveStyledFont();
    const int lines = 700 / 20;
    long i = 5000;
    for (auto _ : state) {
        appendToLog(doc, logLine(i++), 5000);
        KyScopedPlatformPainter painter(v.app.platformIntegration(), e);
        painter->clear(KyColor(255, 255, 255));
        const int first = doc.blockCount() - lines;
        for (int l = 0; l < lines; ++l)
            painter->drawText({60, l * 20, 1180, 20}, doc.blockText(first + l), DrawTextFormat::AlignVCenter,
                              KyColor(30, 30, 30), font);
        painter->finalize();
        XSync(static_cast<Display*>(v.host.window()->nativeDisplay()), False);
    }
}
BENCHMARK(BM_BaselineLogAppendAndRawPaint)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
