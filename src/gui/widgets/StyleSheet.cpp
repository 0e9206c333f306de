// StyleSheet: parsing, merging and the indexed property lookup.
//
// The grammar is deliberately small: comments are dropped outside quotes, a
// block runs from the next '{' to the next '}' (not quote-aware, so a '}'
// inside quotes ends the block), and lists split on ',' and ';' outside
// quotes and parentheses. Every selector of a list becomes its own rule, but
// all rules made from one block share a single immutable declaration map, so
// memory stays linear in the text however long the selector list.
#include "gui/widgets/StyleSheet.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <stdexcept>

#include "core/io/KyDebug.h"

namespace ky::gui {

namespace {

constexpr std::string_view kCategory = "ky.gui.widgets.stylesheet";

// Nested gradients are unwrapped one level per pass; a value nested deeper
// than this is no colour anyone wrote, and the cap keeps a hostile value from
// costing a pass per byte.
constexpr int kMaxGradientDepth = 32;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }
bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }

std::string_view trimView(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
    return s;
}

std::string lowerCopy(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = lowerAscii(c);
    return out;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
    return true;
}

bool startsWithIgnoreCase(std::string_view s, std::string_view prefix) {
    return s.size() >= prefix.size() && equalsIgnoreCase(s.substr(0, prefix.size()), prefix);
}

// Tracks quotes and parenthesis depth while scanning, so separators inside
// "a;b" or url(a;b) are not separators.
struct NestingScanner {
    char quote = 0;
    int depth = 0;
    // Feeds one character; true when it is at top level (outside quotes and
    // parentheses) and is not itself a quote or parenthesis.
    bool topLevel(char c) {
        if (quote) {
            if (c == quote) quote = 0;
            return false;
        }
        if (c == '"' || c == '\'') { quote = c; return false; }
        if (c == '(') { ++depth; return false; }
        if (c == ')') { if (depth > 0) --depth; return false; }
        return depth == 0;
    }
};

// Pieces between top-level separators, trimmed, empty ones dropped.
std::vector<std::string_view> splitOutside(std::string_view text, char sep) {
    std::vector<std::string_view> out;
    NestingScanner scan;
    std::size_t start = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (scan.topLevel(text[i]) && text[i] == sep) {
            if (auto piece = trimView(text.substr(start, i - start)); !piece.empty()) out.push_back(piece);
            start = i + 1;
        }
    }
    if (auto piece = trimView(text.substr(start)); !piece.empty()) out.push_back(piece);
    return out;
}

std::size_t findOutside(std::string_view text, char target) {
    NestingScanner scan;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (scan.topLevel(text[i]) && text[i] == target) return i;
    return std::string_view::npos;
}

// The text without /* */ and // comments, which count only outside quotes;
// a line comment leaves its newline.
std::string stripComments(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    char quote = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote) {
            if (c == quote) quote = 0;
            out.push_back(c);
            continue;
        }
        if (c == '/' && i + 1 < text.size() && text[i + 1] == '*') {
            const std::size_t end = text.find("*/", i + 2);
            if (end == std::string_view::npos) break;
            i = end + 1;
            continue;
        }
        if (c == '/' && i + 1 < text.size() && text[i + 1] == '/') {
            const std::size_t end = text.find('\n', i + 2);
            if (end == std::string_view::npos) break;
            i = end - 1;
            continue;
        }
        if (c == '"' || c == '\'') quote = c;
        out.push_back(c);
    }
    return out;
}

// A decimal number, optionally signed, optionally followed by '%', and nothing
// else. Reads "C"-locale decimals whatever the process locale.
bool parseComponent(std::string_view text, double& value, bool& percent) {
    text = trimView(text);
    percent = !text.empty() && text.back() == '%';
    if (percent) text = trimView(text.substr(0, text.size() - 1));
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.empty() || !(isDigit(text.front()) || text.front() == '.')) return false;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
    if (ec == std::errc::result_out_of_range) value = 1e300;
    else if (ec != std::errc() || end != text.data() + text.size()) return false;
    if (negative) value = -value;
    return true;
}

[[noreturn]] void throwColor(const char* message) { throw std::runtime_error(message); }

// Components of rgb(...) / rgba(...), split on commas.
std::vector<std::string_view> functionArguments(std::string_view text) {
    const std::size_t open = text.find('(');
    std::size_t close = text.rfind(')');
    if (close == std::string_view::npos || close < open) close = text.size();
    std::vector<std::string_view> parts;
    std::string_view inner = text.substr(open + 1, close - open - 1);
    std::size_t start = 0;
    for (std::size_t i = 0; i <= inner.size(); ++i) {
        if (i == inner.size() || inner[i] == ',') {
            parts.push_back(inner.substr(start, i - start));
            start = i + 1;
        }
    }
    return parts;
}

int channel(std::string_view text, const char* error) {
    double v = 0;
    bool percent = false;
    if (!parseComponent(text, v, percent)) throwColor(error);
    if (percent) v = v * 255.0 / 100.0;
    if (!(v > 0)) return 0; // also NaN
    if (v > 255) return 255;
    return int(std::lround(v));
}

float alphaComponent(std::string_view text) {
    double v = 0;
    bool percent = false;
    if (!parseComponent(text, v, percent)) throwColor("Invalid rgba");
    if (percent) v /= 100.0;
    else if (v > 1) v /= 255.0; // 0..255 alphas, as in rgba(0, 0, 0, 128)
    if (!(v > 0)) return 0.0f;
    return v > 1 ? 1.0f : float(v);
}

int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    c = lowerAscii(c);
    return (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
}

// Strict decimal integer after cutting the unit: "12px" -> 12, "12.5px" fails.
bool parseLength(std::string_view text, int& out) {
    text = trimView(text);
    std::size_t cut = 0;
    while (cut < text.size() && !isAsciiLetter(text[cut]) && text[cut] != '%') ++cut;
    text = trimView(text.substr(0, cut));
    if (text.empty()) return false;
    bool ok = false;
    const int v = KyString(text).toInt(&ok);
    if (ok) out = v;
    return ok;
}

// Stores one declaration, expanding the shorthands into their longhands.
void putDeclaration(StyleSheet::PropertyMap& map, const KyString& name, const KyString& value) {
    if (name == "background") {
        map.insert("background-color", value);
    } else if (name == "border") {
        StyleSheet::borderShorthand_(value, map);
    } else if (name.startsWith("border-")) {
        const std::string_view side = name.view().substr(7);
        if (side == "top" || side == "right" || side == "bottom" || side == "left")
            StyleSheet::borderSideShorthand_(side, value, map);
        else
            map.insert(name, value);
    } else {
        map.insert(name, value);
    }
}

void writeBorder(std::string_view prefix, std::string_view value, StyleSheet::PropertyMap& out) {
    const KyString base(prefix);
    value = trimView(value);
    if (equalsIgnoreCase(value, "none") || value == "0" || equalsIgnoreCase(value, "0px")) {
        out.insert(base + "-width", "0");
        out.insert(base + "-style", "none");
        return;
    }
    KyString width, style;
    KyList<KyString> colour;
    bool hasWidth = false, hasStyle = false;
    for (const KyString& token : StyleSheet::splitSpace_(value)) {
        const std::string word = lowerCopy(token.view());
        if (word == "solid" || word == "dashed" || word == "dotted" || word == "none") {
            style = KyString(word);
            hasStyle = true;
        } else if (isDigit(token[0])) {
            width = token;
            hasWidth = true;
        } else {
            colour.append(token);
        }
    }
    if (hasWidth) out.insert(base + "-width", width);
    if (hasStyle) out.insert(base + "-style", style);
    if (!colour.isEmpty()) out.insert(base + "-color", KyString::join(colour, " "));
}

} // namespace

// ---------------------------------------------------------------------------
// The property index: for each property, the groups of rules (one group per
// shared declaration map) that set it, with each rule's match data laid out
// flat so a lookup touches no strings but the class and object names.

struct StyleSheet::IndexEntry_ {
    const KyString* value;
    std::uint32_t first; // into Index_::keys
    std::uint32_t count;
};

struct StyleSheet::RuleKey_ {
    std::string_view className;
    std::string_view objectName;
    std::uint32_t stateFlags;
    std::int32_t sequence;
    std::int32_t baseScore; // object and state parts of the score
    std::uint8_t classKind; // 0 none, 1 "*", 2 a name
};

struct StyleSheet::Index_ {
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
    };
    std::vector<RuleKey_> keys;
    std::unordered_map<std::string, std::vector<IndexEntry_>, Hash, std::equal_to<>> byProperty;
};

const KyString* StyleSheet::Rule::find(std::string_view property) const {
    if (!properties) return nullptr;
    const auto it = properties->find(KyString(property));
    return it == properties->end() ? nullptr : &it->second;
}

StyleSheet::StyleSheet(const StyleSheet& other)
    : rules_(other.rules_), nextSequence_(other.nextSequence_), direct_(other.direct_) {}

StyleSheet& StyleSheet::operator=(const StyleSheet& other) {
    if (this != &other) {
        rules_ = other.rules_;
        nextSequence_ = other.nextSequence_;
        direct_ = other.direct_;
        // The index points into this sheet's own rule strings.
        indexCache_.reset();
    }
    return *this;
}

void StyleSheet::clear() {
    rules_.clear();
    nextSequence_ = 0;
    direct_.clear();
    indexCache_.reset();
}

void StyleSheet::parseStyleSheet(const KyString& text) {
    clear();
    const std::string clean = stripComments(text.view());
    const std::string_view view(clean);
    std::size_t pos = 0;
    while (pos < view.size()) {
        const std::size_t open = view.find('{', pos);
        if (open == std::string_view::npos) break;
        const std::size_t close = view.find('}', open + 1);
        if (close == std::string_view::npos) break;
        parseBlock_(view.substr(pos, open - pos), view.substr(open + 1, close - open - 1));
        pos = close + 1;
    }
}

void StyleSheet::parseBlock_(std::string_view selectorText, std::string_view declarationText) {
    const std::vector<std::string_view> selectors = splitOutside(selectorText, ',');
    if (selectors.empty()) return;

    struct Declaration {
        KyString name, value, plain;
        std::uint32_t bit;
    };
    std::vector<Declaration> declarations;
    std::uint32_t legacyBits = 0;
    for (std::string_view chunk : splitOutside(declarationText, ';')) {
        const std::size_t colon = findOutside(chunk, ':');
        if (colon == std::string_view::npos) continue;
        Declaration d{KyString(lowerCopy(trimView(chunk.substr(0, colon)))), KyString(trimView(chunk.substr(colon + 1))), {}, 0};
        if (d.name.isEmpty()) continue;
        d.bit = legacyStateAlias_(d.name.view(), &d.plain);
        legacyBits |= d.bit;
        declarations.push_back(std::move(d));
    }

    // The map of a selector whose own state already holds some legacy bits:
    // those spellings also fill the plain name there, in declaration order,
    // so `KyLabel:hover { hover-color: red; color: blue }` ends blue.
    std::shared_ptr<const PropertyMap> mainMaps[32];
    auto mainMap = [&](std::uint32_t foldBits) {
        std::shared_ptr<const PropertyMap>& slot = mainMaps[foldBits & 31u];
        if (!slot) {
            PropertyMap map;
            for (const Declaration& d : declarations) {
                putDeclaration(map, d.name, d.value);
                if (d.bit & foldBits) putDeclaration(map, d.plain, d.value);
            }
            slot = std::make_shared<const PropertyMap>(std::move(map));
        }
        return slot;
    };
    // A legacy spelling for a state the selector lacks is filed as a rule of
    // its own: the same selector with that bit, holding the plain name.
    std::shared_ptr<const PropertyMap> stateMaps[32];
    auto stateMap = [&](std::uint32_t bit) {
        std::shared_ptr<const PropertyMap>& slot = stateMaps[std::countr_zero(bit)];
        if (!slot) {
            PropertyMap map;
            for (const Declaration& d : declarations)
                if (d.bit == bit) putDeclaration(map, d.plain, d.value);
            slot = std::make_shared<const PropertyMap>(std::move(map));
        }
        return slot;
    };

    const std::shared_ptr<const PropertyMap> written = mainMap(0);
    for (std::string_view text : selectors) {
        const KyString selector(text);
        const ParsedSelector_ parsed = parseSelector_(selector);
        rules_.push_back(Rule{selector, parsed.className, parsed.objectName, parsed.stateFlags, nextSequence_++,
                              mainMap(parsed.stateFlags & legacyBits)});
        for (std::uint32_t bits = legacyBits & ~parsed.stateFlags; bits; bits &= bits - 1) {
            const std::uint32_t bit = bits & (~bits + 1);
            rules_.push_back(Rule{selector, parsed.className, parsed.objectName, parsed.stateFlags | bit,
                                  nextSequence_++, stateMap(bit)});
        }
        direct_[selector].push_back(written);
    }
    indexCache_.reset();
}

void StyleSheet::mergeFrom(const StyleSheet& other) {
    if (&other == this) {
        const StyleSheet copy(other);
        mergeFrom(copy);
        return;
    }
    rules_.reserve(rules_.size() + other.rules_.size());
    for (const Rule& rule : other.rules_) {
        rules_.push_back(rule);
        rules_.back().sequence = nextSequence_++;
    }
    for (const auto& [selector, maps] : other.direct_) {
        auto& mine = direct_[selector];
        mine.insert(mine.end(), maps.begin(), maps.end());
    }
    indexCache_.reset();
}

KyString StyleSheet::getStyleProperty(const KyString& selector, const KyString& property) const {
    auto lookup = [&](const KyString& key) -> const KyString* {
        const auto it = direct_.find(key);
        if (it == direct_.end()) return nullptr;
        // Later declarations under the same selector replace earlier ones.
        for (auto map = it->second.rbegin(); map != it->second.rend(); ++map)
            if (const auto hit = (*map)->find(property); hit != (*map)->end()) return &hit->second;
        return nullptr;
    };
    if (const KyString* v = lookup(selector)) return *v;
    const KyString alias = aliasSelector_(selector);
    if (alias != selector)
        if (const KyString* v = lookup(alias)) return *v;
    return KyString();
}

StyleSheet::PropertyMap StyleSheet::directProperties(const KyString& selector) const {
    PropertyMap out;
    if (const auto it = direct_.find(selector); it != direct_.end())
        for (const auto& map : it->second)
            for (const auto& [name, value] : *map) out.insert(name, value);
    return out;
}

const StyleSheet::Index_& StyleSheet::index_() const {
    if (indexCache_) return *indexCache_;
    auto index = std::make_shared<Index_>();
    // Group rules by their shared declaration map, keeping first-seen order.
    std::unordered_map<const PropertyMap*, std::vector<std::uint32_t>> members;
    std::vector<const PropertyMap*> order;
    for (std::uint32_t i = 0; i < rules_.size(); ++i) {
        const PropertyMap* map = rules_[i].properties.get();
        if (!map || map->empty()) continue;
        auto [it, fresh] = members.try_emplace(map);
        if (fresh) order.push_back(map);
        it->second.push_back(i);
    }
    index->keys.reserve(rules_.size());
    for (const PropertyMap* map : order) {
        const auto first = std::uint32_t(index->keys.size());
        for (std::uint32_t i : members[map]) {
            const Rule& r = rules_[i];
            const std::uint8_t kind = r.className.isEmpty() ? 0 : (r.className == "*" ? 1 : 2);
            const int base = (r.objectName.isEmpty() ? 0 : 10000) + 10 * std::popcount(r.stateFlags);
            index->keys.push_back(RuleKey_{r.className.view(), r.objectName.view(), r.stateFlags, r.sequence, base, kind});
        }
        const auto count = std::uint32_t(index->keys.size()) - first;
        for (const auto& [name, value] : *map) index->byProperty[name.toStdString()].push_back({&value, first, count});
    }
    indexCache_ = std::move(index);
    return *indexCache_;
}

const KyString* StyleSheet::findProperty_(const KyList<KyString>& classChain, std::string_view property,
                                          std::uint32_t stateFlags, std::string_view objectName,
                                          bool* explicitOut) const {
    if (explicitOut) *explicitOut = false;
    const Index_& index = index_();
    const auto found = index.byProperty.find(property);
    if (found == index.byProperty.end()) return nullptr;

    // The chain with each name's other spelling right after it, without
    // repeats; a name's rank is the chain length minus its position.
    std::string aliases[16];
    std::vector<std::string> moreAliases;
    std::string_view inlineNames[32];
    std::vector<std::string_view> moreNames;
    std::string_view* names = inlineNames;
    if (classChain.size() > 16) {
        moreAliases.resize(classChain.size());
        moreNames.resize(classChain.size() * 2);
        names = moreNames.data();
    }
    std::string* aliasStore = classChain.size() > 16 ? moreAliases.data() : aliases;
    std::size_t count = 0;
    auto add = [&](std::string_view name) {
        if (name.empty()) return;
        for (std::size_t i = 0; i < count; ++i)
            if (names[i] == name) return;
        names[count++] = name;
    };
    for (std::size_t i = 0; i < classChain.size(); ++i) {
        const std::string_view name = classChain[i].view();
        add(name);
        std::string& alias = aliasStore[i];
        if (name.size() >= 3 && name.substr(0, 2) == "Ky") alias.assign("Q").append(name.substr(2));
        else if (!name.empty() && name.front() == 'Q') alias.assign("Ky").append(name.substr(1));
        else continue;
        add(alias);
    }

    int bestScore = -1;
    std::int32_t bestSequence = -1;
    const KyString* best = nullptr;
    std::uint32_t bestFlags = 0;
    for (const IndexEntry_& entry : found->second) {
        for (std::uint32_t k = entry.first; k < entry.first + entry.count; ++k) {
            const RuleKey_& rule = index.keys[k];
            if (rule.stateFlags & ~stateFlags) continue;
            if (!rule.objectName.empty() && rule.objectName != objectName) continue;
            int score = rule.baseScore;
            if (rule.classKind == 2) {
                std::size_t pos = 0;
                while (pos < count && names[pos] != rule.className) ++pos;
                if (pos == count) continue;
                score += 100 + int(count - pos);
            }
            if (score > bestScore || (score == bestScore && rule.sequence >= bestSequence)) {
                bestScore = score;
                bestSequence = rule.sequence;
                best = entry.value;
                bestFlags = rule.stateFlags;
            }
        }
    }
    if (explicitOut) *explicitOut = best && bestFlags != 0;
    return best;
}

KyString StyleSheet::resolveProperty_(const KyList<KyString>& classChain, const KyString& property,
                                      std::uint32_t stateFlags, const KyString& objectName, bool* explicitOut) const {
    const KyString* v = findProperty_(classChain, property.view(), stateFlags, objectName.view(), explicitOut);
    return v ? *v : KyString();
}

// ---------------------------------------------------------------------------
// Selectors and names.

std::uint32_t StyleSheet::stateBit(std::string_view word) {
    if (word == "hover") return StateHover;
    if (word == "pressed") return StatePressed;
    if (word == "disabled") return StateDisabled;
    if (word == "focus") return StateFocus;
    if (word == "checked") return StateChecked;
    return 0;
}

StyleSheet::ParsedSelector_ StyleSheet::parseSelector_(const KyString& selector) {
    ParsedSelector_ out;
    std::string_view text = trimView(selector.view());
    // States come off the right end one by one; an unknown word stops the walk
    // and stays in the selector text, so `KyScrollBar::handle` never matches
    // the plain scroll bar and is reached by its own text.
    for (std::size_t colon; (colon = text.rfind(':')) != std::string_view::npos;) {
        const std::string word = lowerCopy(trimView(text.substr(colon + 1)));
        const std::uint32_t bit = stateBit(word);
        if (!bit) {
            out.pseudoState = KyString(word);
            break;
        }
        out.stateFlags |= bit;
        text = trimView(text.substr(0, colon));
    }
    const std::size_t hash = text.find('#');
    if (hash == std::string_view::npos) {
        out.className = KyString(text);
    } else {
        out.className = KyString(trimView(text.substr(0, hash)));
        out.objectName = KyString(trimView(text.substr(hash + 1)));
    }
    return out;
}

KyString StyleSheet::aliasSelector_(const KyString& name) {
    if (name.size() >= 3 && name.startsWith("Ky")) return "Q" + name.mid(2);
    if (name.startsWith("Q")) return "Ky" + name.mid(1);
    return name;
}

std::uint32_t StyleSheet::legacyStateAlias_(std::string_view property, KyString* plainOut) {
    static constexpr std::string_view kWords[] = {"hover", "pressed", "checked", "disabled", "focus"};
    for (std::string_view word : kWords) {
        const std::size_t n = word.size() + 1;
        if (property.size() <= n) continue;
        if (property.substr(0, word.size()) == word && property[word.size()] == '-') {
            if (plainOut) *plainOut = KyString(property.substr(n));
            return stateBit(word);
        }
        if (property.substr(property.size() - word.size()) == word && property[property.size() - n] == '-') {
            if (plainOut) *plainOut = KyString(property.substr(0, property.size() - n));
            return stateBit(word);
        }
    }
    return 0;
}

// ---------------------------------------------------------------------------
// Values.

const KyMap<KyString, KyColor>& StyleSheet::namedColors() {
    static const KyMap<KyString, KyColor> table{
        {"red", {255, 0, 0}},       {"green", {0, 255, 0}},     {"blue", {0, 0, 255}},      {"yellow", {255, 255, 0}},
        {"black", {0, 0, 0}},       {"white", {255, 255, 255}}, {"gray", {128, 128, 128}},  {"cyan", {0, 255, 255}},
        {"magenta", {255, 0, 255}}, {"orange", {255, 165, 0}},  {"purple", {128, 0, 128}},  {"brown", {165, 42, 42}},
        {"pink", {255, 192, 203}},  {"lime", {0, 255, 0}},      {"olive", {128, 128, 0}},   {"navy", {0, 0, 128}},
        {"teal", {0, 128, 128}},    {"maroon", {128, 0, 0}},    {"silver", {192, 192, 192}}, {"gold", {255, 215, 0}},
    };
    return table;
}

KyColor StyleSheet::parseColor(const KyString& text, float* alphaOut) {
    if (alphaOut) *alphaOut = 1.0f;
    std::string_view t = trimView(text.view());
    for (int depth = 0;; ++depth) {
        if (t.empty()) return KyColor();
        if (equalsIgnoreCase(t, "transparent")) {
            if (alphaOut) *alphaOut = 0.0f;
            return KyColor();
        }
        // A gradient paints as its first colour stop.
        if (depth < kMaxGradientDepth && lowerCopy(t).find("linear-gradient") != std::string::npos) {
            const std::size_t open = t.find('(');
            if (open != std::string_view::npos) {
                std::size_t close = t.rfind(')');
                if (close == std::string_view::npos || close < open) close = t.size();
                const std::string_view inner = t.substr(open + 1, close - open - 1);
                const std::size_t comma = findOutside(inner, ',');
                t = trimView(inner.substr(0, comma));
                continue;
            }
        }
        break;
    }
    if (t.front() == '#') {
        if (t.size() != 7) throwColor("Invalid hex color");
        int d[6];
        for (int i = 0; i < 6; ++i)
            if ((d[i] = hexValue(t[1 + i])) < 0) throwColor("Invalid hex color");
        return KyColor(d[0] * 16 + d[1], d[2] * 16 + d[3], d[4] * 16 + d[5]);
    }
    if (startsWithIgnoreCase(t, "rgba(")) {
        const auto parts = functionArguments(t);
        if (parts.size() < 4) throwColor("Invalid rgba");
        const KyColor c(channel(parts[0], "Invalid rgba"), channel(parts[1], "Invalid rgba"), channel(parts[2], "Invalid rgba"));
        const float a = alphaComponent(parts[3]);
        if (alphaOut) *alphaOut = a;
        return c;
    }
    if (startsWithIgnoreCase(t, "rgb(")) {
        const auto parts = functionArguments(t);
        if (parts.size() < 3) throwColor("Invalid rgb");
        return KyColor(channel(parts[0], "Invalid rgb"), channel(parts[1], "Invalid rgb"), channel(parts[2], "Invalid rgb"));
    }
    const auto& names = namedColors();
    const auto it = names.find(KyString(lowerCopy(t)));
    return it == names.end() ? KyColor() : it->second;
}

bool StyleSheet::tryParseColor_(const KyString& text, KyColor& colour, float* alphaOut) {
    try {
        float alpha = 1.0f;
        const KyColor parsed = parseColor(text, &alpha);
        colour = parsed;
        if (alphaOut) *alphaOut = alpha;
        return true;
    } catch (const std::runtime_error& e) {
        kyLogDebug(kCategory) << "colour kept, value" << text << "is not a colour:" << e.what();
        return false;
    }
}

int StyleSheet::parsePixelValue(const KyString& text, int fallback) {
    int v = fallback;
    return parseLength(text.view(), v) ? v : fallback;
}

int StyleSheet::parseFontWeightValue(const KyString& text, int fallback) {
    const std::string word = lowerCopy(trimView(text.view()));
    if (word == "normal") return 400;
    if (word == "medium") return 500;
    if (word == "semibold" || word == "demibold") return 600;
    if (word == "bold") return 700;
    if (word == "extrabold" || word == "ultrabold") return 800;
    if (word == "light") return 300;
    if (word == "thin") return 100;
    bool ok = false;
    const int n = KyString(word).toInt(&ok);
    if (!ok) return fallback;
    for (int step = 900; step >= 400; step -= 100)
        if (n >= step) return step;
    return n > 299 ? 300 : fallback;
}

std::optional<StyleFontSize> StyleSheet::fontSizeFromPixels(int pixels) {
    if (pixels <= 0) return std::nullopt;
    const long long scaled = static_cast<long long>(pixels) * 72;
    return StyleFontSize{pixels, scaled <= 143 ? 1 : int((scaled + 48) / 96)};
}

std::optional<StyleFontSize> StyleSheet::parseFontSize(const KyString& text) {
    return fontSizeFromPixels(parsePixelValue(text, 0));
}

StyleBox StyleSheet::parseBoxValues(const KyString& text, const StyleBox& fallback) {
    // Which written value fills each side, for one to four values.
    static constexpr int kSource[4][4] = {{0, 0, 0, 0}, {0, 1, 0, 1}, {0, 1, 2, 1}, {0, 1, 2, 3}};
    const KyList<KyString> tokens = splitSpace_(text.view());
    if (tokens.isEmpty()) return fallback;
    const std::size_t n = std::min<std::size_t>(tokens.size(), 4);
    int values[4] = {};
    bool ok[4] = {};
    for (std::size_t i = 0; i < n; ++i) ok[i] = parseLength(tokens[i].view(), values[i]);
    StyleBox out;
    for (int side = 0; side < 4; ++side) {
        const int src = kSource[n - 1][side];
        out.v[side] = ok[src] ? values[src] : fallback.v[side];
    }
    return out;
}

KyString StyleSheet::parseFontFamilyValue(const KyString& text) {
    std::string_view t = trimView(text.view());
    while (!t.empty() && (t.front() == '"' || t.front() == '\'')) t.remove_prefix(1);
    while (!t.empty() && (t.back() == '"' || t.back() == '\'')) t.remove_suffix(1);
    return KyString(trimView(t));
}

KyList<KyString> StyleSheet::splitSpace_(std::string_view text) {
    KyList<KyString> out;
    int depth = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        const bool end = i == text.size();
        const char c = end ? ' ' : text[i];
        if (c == '(') ++depth;
        else if (c == ')' && depth > 0) --depth;
        if (end || (depth == 0 && isBlank(c))) {
            if (i > start) out.append(KyString(text.substr(start, i - start)));
            start = i + 1;
        }
    }
    return out;
}

void StyleSheet::borderShorthand_(std::string_view value, PropertyMap& out) { writeBorder("border", value, out); }

void StyleSheet::borderSideShorthand_(std::string_view side, std::string_view value, PropertyMap& out) {
    writeBorder(std::string("border-").append(side), value, out);
}

} // namespace ky::gui
