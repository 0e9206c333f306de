// JSON layer throughput on an agent-like catalog snapshot of about 60 KB, the
// size the console re-reads on every catalog update: parsing, compact and
// indented generation, the console's own read path, and a plain byte scan of
// the same text as the floor to compare against. All report bytes/second.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>

#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonHelpers.h"

namespace {

KyJsonValue hotspot(int i) {
    const KyString n = KyString::number(i);
    KyJsonArray tags{i % 3 == 0 ? "eu" : "us", i % 7 == 0 ? "vip" : "std"};
    return KyJsonObject{
        {"id", KyString::format("hs-%04d-%02x", i, i % 256)},
        {"name", "Caf\xc3\xa9 \"" + n + "\""},
        {"subnet", KyString::format("10.%d.%d.0/24", i / 250, i % 250)},
        {"ownerLabel", i % 5 == 0 ? KyString() : "Owner " + n},
        {"owner", "u" + n + "@velmo.io"},
        {"memberCount", i * 3 % 41},
        {"online", i % 2 == 0},
        {"createdAt", static_cast<long long>(1700000000000LL + i * 86400123LL)},
        {"latencyMs", 12.5 + i * 0.25},
        {"tags", tags},
    };
}

const std::string& snapshotText() {
    static const std::string text = [] {
        KyJsonArray hotspots;
        for (int i = 0; i < 300; ++i) hotspots.append(hotspot(i));
        KyJsonObject root{{"status", "ready"}, {"error", ""}, {"activeHotspotId", "hs-0042-2a"}, {"hotspots", hotspots}};
        return KyJsonDocument(KyJsonValue(root)).generateJson(KyJsonDocument::Compact).toStdString();
    }();
    return text;
}

void BM_ParseSnapshot(benchmark::State& state) {
    const std::string& text = snapshotText();
    for (auto _ : state) {
        KyJsonDocument doc;
        const bool ok = doc.loadFromJson(text);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(doc.root().objectPtr());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
    state.counters["snapshot_bytes"] = static_cast<double>(text.size());
}

void BM_ConsoleReadsCatalog(benchmark::State& state) {
    // What the catalog handler does: lenient parse, then walk every entry.
    const KyString text(snapshotText());
    for (auto _ : state) {
        const KyJsonObject root = parseJsonObjectOrEmpty(text);
        std::size_t total = 0;
        for (const KyJsonValue& entry : root["hotspots"].asArray()) {
            const KyJsonObject& o = entry.asObject();
            total += jsonStringValue(o, "id").size() + jsonStringValue(o, "name").size() +
                     jsonStringValue(o, "subnet").size() + jsonStringValue(o, "ownerLabel").size();
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void generate(benchmark::State& state, KyJsonDocument::Format format) {
    KyJsonDocument doc;
    doc.loadFromJson(snapshotText());
    std::size_t bytes = 0;
    for (auto _ : state) {
        const KyString out = doc.generateJson(format);
        bytes = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
    state.counters["output_bytes"] = static_cast<double>(bytes);
}

void BM_GenerateCompact(benchmark::State& state) { generate(state, KyJsonDocument::Compact); }
void BM_GenerateIndented(benchmark::State& state) { generate(state, KyJsonDocument::Indented); }

void BM_BaselineByteScan(benchmark::State& state) {
    // Floor: touch every byte once with a trivial test, no structure at all.
    const std::string& text = snapshotText();
    for (auto _ : state) {
        std::size_t quotes = 0;
        std::size_t braces = 0;
        for (char c : text) {
            quotes += c == '"';
            braces += c == '{';
        }
        benchmark::DoNotOptimize(quotes);
        benchmark::DoNotOptimize(braces);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void BM_BaselineMemchr(benchmark::State& state) {
    const std::string& text = snapshotText();
    for (auto _ : state) {
        std::size_t quotes = 0;
        const char* p = text.data();
        const char* end = p + text.size();
        while ((p = static_cast<const char*>(std::memchr(p, '"', static_cast<std::size_t>(end - p)))) != nullptr) {
            ++quotes;
            ++p;
        }
        benchmark::DoNotOptimize(quotes);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

} // namespace

BENCHMARK(BM_ParseSnapshot);
BENCHMARK(BM_ConsoleReadsCatalog);
BENCHMARK(BM_GenerateCompact);
BENCHMARK(BM_GenerateIndented);
BENCHMARK(BM_BaselineByteScan);
BENCHMARK(BM_BaselineMemchr);

BENCHMARK_MAIN();
