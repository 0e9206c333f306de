// Fuzz target for the style-sheet language: whatever the text, parsing must
// not crash or hang and must store a number of rules bounded by the text's
// selector separators; every indexed lookup must give the answer of a plain
// scan over all rules with the same scores; merging renumbers; and the value
// readers cope with every declared value, parseColor throwing only its three
// documented errors.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "gui/widgets/StyleSheet.h"

using ky::gui::StyleSheet;

namespace {

// The lookup with no index: every rule, in order, scored as the sheet scores.
const KyString* scanAllRules(const StyleSheet& sheet, const KyList<KyString>& classChain, const KyString& property,
                             std::uint32_t state, const KyString& objectName, bool& explicitState) {
    KyList<KyString> chain;
    for (const KyString& name : classChain) {
        for (const KyString& n : {name, StyleSheet::aliasSelector_(name)})
            if (!n.isEmpty() && !chain.contains(n)) chain.append(n);
    }
    int bestScore = -1, bestSequence = -1;
    const StyleSheet::Rule* bestRule = nullptr;
    const KyString* best = nullptr;
    for (const StyleSheet::Rule& rule : sheet.rules()) {
        if (rule.stateFlags & ~state) continue;
        if (!rule.objectName.isEmpty() && rule.objectName != objectName) continue;
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
            bestRule = &rule;
        }
    }
    explicitState = bestRule && bestRule->stateFlags != 0;
    return best;
}

void readColour(const KyString& text) {
    try {
        float alpha = -1;
        (void)StyleSheet::parseColor(text, &alpha);
        if (!(alpha >= 0.0f && alpha <= 1.0f)) __builtin_trap();
    } catch (const std::runtime_error& e) {
        const char* m = e.what();
        if (std::strcmp(m, "Invalid hex color") && std::strcmp(m, "Invalid rgba") && std::strcmp(m, "Invalid rgb"))
            __builtin_trap();
    }
    KyColor kept(1, 2, 3);
    if (!StyleSheet::tryParseColor_(text, kept) && !(kept == KyColor(1, 2, 3))) __builtin_trap();
}

void readValue(const KyString& value) {
    readColour(value);
    (void)StyleSheet::parsePixelValue(value, 0);
    (void)StyleSheet::parseFontWeightValue(value, 400);
    if (auto size = StyleSheet::parseFontSize(value); size && (size->pixelSize <= 0 || size->pointSize <= 0)) __builtin_trap();
    (void)StyleSheet::parseBoxValues(value, ky::gui::StyleBox{});
    (void)StyleSheet::parseFontFamilyValue(value);
    StyleSheet::PropertyMap border;
    StyleSheet::borderShorthand_(value.view(), border);
    if (border.size() > 3) __builtin_trap();
}

void compareWithScan(const StyleSheet& sheet, const KyList<KyString>& chain, const KyString& property,
                     std::uint32_t state, const KyString& objectName) {
    bool indexedExplicit = false, scannedExplicit = false;
    const KyString* indexed = sheet.findProperty_(chain, property.view(), state, objectName.view(), &indexedExplicit);
    const KyString* scanned = scanAllRules(sheet, chain, property, state, objectName, scannedExplicit);
    if ((indexed == nullptr) != (scanned == nullptr)) __builtin_trap();
    if (indexed && (*indexed != *scanned || indexedExplicit != scannedExplicit)) __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KyString text(reinterpret_cast<const char*>(data), size);
    StyleSheet sheet;
    sheet.parseStyleSheet(text);

    // One rule per selector, plus at most one per state bit for legacy
    // spellings: never more than the separators allow.
    const std::size_t selectors = text.count(",") + text.count("{");
    if (sheet.rules().size() > 6 * selectors) __builtin_trap();

    readColour(text);
    const std::size_t limit = 48; // bounded work per input, however many rules
    for (std::size_t i = 0; i < sheet.rules().size() && i < limit; ++i) {
        const StyleSheet::Rule& rule = sheet.rules()[i];
        const auto parsed = StyleSheet::parseSelector_(rule.selector);
        if (parsed.className != rule.className || parsed.objectName != rule.objectName) __builtin_trap();
        if ((parsed.stateFlags & ~rule.stateFlags) != 0) __builtin_trap();
        const KyList<KyString> chain{rule.className, "KyFrame", "KyWidget"};
        std::size_t n = 0;
        for (const auto& [name, value] : *rule.properties) {
            if (++n > 8) break;
            readValue(value);
            compareWithScan(sheet, chain, name, rule.stateFlags, rule.objectName);
            compareWithScan(sheet, chain, name, StyleSheet::CurrentState, "");
            compareWithScan(sheet, {StyleSheet::aliasSelector_(rule.className)}, name, 0, rule.objectName);
            // The rule itself matches this query, so something must answer it.
            if (!sheet.findProperty_(chain, name.view(), rule.stateFlags, rule.objectName.view())) __builtin_trap();
            (void)sheet.getStyleProperty(rule.selector, name);
        }
    }

    // Merging renumbers after the existing rules, whatever was merged.
    StyleSheet merged = sheet;
    merged.mergeFrom(merged);
    if (merged.rules().size() != 2 * sheet.rules().size()) __builtin_trap();
    for (std::size_t i = 1; i < merged.rules().size(); ++i)
        if (merged.rules()[i].sequence <= merged.rules()[i - 1].sequence) __builtin_trap();
    if (!sheet.rules().empty()) {
        const StyleSheet::Rule& last = sheet.rules().back();
        for (const auto& [name, value] : *last.properties)
            compareWithScan(merged, {last.className}, name, last.stateFlags, last.objectName);
    }
    return 0;
}
