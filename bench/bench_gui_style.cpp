// Style lookup for a push button four levels deep (window > frame > frame >
// button), each level holding a default and a user sheet, 200 rules in the
// merged cascade. Measured: one cold property lookup on the effective sheet;
// the whole cold path after a sheet change (merge root-down, then the first
// lookup, which builds the index) and the merge alone; a scan of every rule
// with the same scores (what a lookup would cost without the index); parsing;
// and as the floor of the same run a std::map lookup of one property of 200.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "gui/widgets/StyleSheet.h"

using ky::gui::StyleSheet;

namespace {

const KyList<KyString> kButtonChain{"KyPushButton", "KyFrame", "KyWidget", "KyObject"};
const char* const kClasses[] = {"KyPushButton", "QPushButton", "KyLabel", "KyLineEdit", "KyCheckBox", "KyScrollBar",
                                "KyListView", "KyFrame", "QFrame", "KyWidget", "KyMainWindow", "*"};
const char* const kStates[] = {"", ":hover", ":pressed", ":disabled", ":focus", ":checked", ":hover:checked"};
const char* const kProperties[] = {"color", "border-color", "border-width", "border-radius", "padding", "font-size"};

// One sheet of `rules` blocks; most set background-color, so the looked-up
// property has many candidates, as in a real cascade of default sheets.
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

struct Cascade {
    std::vector<StyleSheet> defaults, users; // root first
    StyleSheet effective;
    Cascade() {
        for (int level = 0; level < 4; ++level) {
            defaults.emplace_back().parseStyleSheet(makeSheet(level, 30));
            users.emplace_back().parseStyleSheet(makeSheet(level + 4, 20));
        }
        merge(effective);
    }
    void merge(StyleSheet& out) const {
        out.clear();
        for (const StyleSheet& s : defaults) out.mergeFrom(s);
        for (const StyleSheet& s : users) out.mergeFrom(s);
    }
};

const Cascade& cascade() {
    static const Cascade c;
    if (c.effective.rules().size() != 200) std::abort();
    return c;
}

constexpr std::uint32_t kState = StyleSheet::StateHover;
const KyString kObject = "item3";

// The lookup's scores applied to every rule in order, with no index.
const KyString* scanAllRules(const StyleSheet& sheet, const KyString& property) {
    KyList<KyString> chain;
    for (const KyString& name : kButtonChain) {
        if (!chain.contains(name)) chain.append(name);
        if (const KyString a = StyleSheet::aliasSelector_(name); !chain.contains(a)) chain.append(a);
    }
    int bestScore = -1, bestSequence = -1;
    const KyString* best = nullptr;
    for (const StyleSheet::Rule& rule : sheet.rules()) {
        if (rule.stateFlags & ~kState) continue;
        if (!rule.objectName.isEmpty() && rule.objectName != kObject) continue;
        int score = rule.objectName.isEmpty() ? 0 : 10000;
        if (!rule.className.isEmpty() && rule.className != "*") {
            const int pos = chain.indexOf(rule.className);
            if (pos < 0) continue;
            score += 100 + chain.count() - pos;
        }
        const KyString* value = rule.find(property.view());
        if (!value) continue;
        score += 10 * __builtin_popcount(rule.stateFlags);
        if (score > bestScore || (score == bestScore && rule.sequence >= bestSequence)) {
            bestScore = score;
            bestSequence = rule.sequence;
            best = value;
        }
    }
    return best;
}

void BM_ColdLookupIndexed(benchmark::State& state) {
    const StyleSheet& sheet = cascade().effective;
    const KyString property = "background-color";
    const KyString want = *scanAllRules(sheet, property);
    if (sheet.resolveProperty_(kButtonChain, property, kState, kObject) != want) std::abort();
    for (auto _ : state) {
        KyString v = sheet.resolveProperty_(kButtonChain, property, kState, kObject);
        benchmark::DoNotOptimize(v);
    }
    state.counters["rules"] = double(sheet.rules().size());
}

void BM_ColdLookupFullScan(benchmark::State& state) {
    const StyleSheet& sheet = cascade().effective;
    const KyString property = "background-color";
    for (auto _ : state) benchmark::DoNotOptimize(scanAllRules(sheet, property));
}

void BM_CascadeRebuildAndFirstLookup(benchmark::State& state) {
    const Cascade& c = cascade();
    StyleSheet effective;
    for (auto _ : state) {
        c.merge(effective);
        KyString v = effective.resolveProperty_(kButtonChain, "background-color", kState, kObject);
        benchmark::DoNotOptimize(v);
    }
}

void BM_CascadeMergeOnly(benchmark::State& state) {
    const Cascade& c = cascade();
    StyleSheet effective;
    for (auto _ : state) {
        c.merge(effective);
        benchmark::DoNotOptimize(effective.rules().data());
    }
}

void BM_ParseDefaultSheet(benchmark::State& state) {
    const KyString text = makeSheet(0, 30);
    for (auto _ : state) {
        StyleSheet sheet;
        sheet.parseStyleSheet(text);
        benchmark::DoNotOptimize(sheet.rules().data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}

void BM_BaselineStdMapLookup(benchmark::State& state) {
    std::map<std::string, std::string> values;
    for (int i = 0; i < 199; ++i) values["property-" + std::to_string(i)] = "rgb(1, 2, 3)";
    values["background-color"] = "rgb(4, 5, 6)";
    const std::string property = "background-color";
    for (auto _ : state) {
        std::string v = values.find(property)->second;
        benchmark::DoNotOptimize(v);
    }
}

} // namespace

BENCHMARK(BM_BaselineStdMapLookup);
BENCHMARK(BM_ColdLookupIndexed);
BENCHMARK(BM_ColdLookupFullScan);
BENCHMARK(BM_CascadeRebuildAndFirstLookup);
BENCHMARK(BM_CascadeMergeOnly);
BENCHMARK(BM_ParseDefaultSheet);
BENCHMARK_MAIN();
