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
#include <unordered_map>
#include <utility>

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
// The indexes. For each property, the rules that set it, in buckets by class:
// a lookup opens only the buckets of the classes in the widget's chain and of
// rules that match any class. Inside a bucket the rules are sorted by score,
// best first, so the first one whose state and object fit is the bucket's
// answer. Rules that share one declaration map are listed one by one, except
// for a block with a very long selector list, which stays one group scanned
// whole: that keeps the index linear in the sheet's text.

namespace {

constexpr std::uint32_t kAnyClass = 0;               // no class, or "*": matches, scores 0
constexpr std::uint32_t kMixedClasses = 0xFFFFFFFFu; // a group whose rules name different classes
constexpr std::uint32_t kListedGroupLimit = 16;      // groups up to this size are listed rule by rule

// Selectors carry at most the five state bits.
int stateBitCount(std::uint32_t flags) {
    int n = 0;
    for (; flags; flags &= flags - 1) ++n;
    return n;
}

struct StringHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
};
template <typename V> using StringMap = std::unordered_map<std::string, V, StringHash, std::equal_to<>>;

} // namespace

struct StyleSheet::RuleKey_ {
    std::string_view objectName;
    std::uint32_t stateFlags;
    std::int32_t sequence;
    std::int32_t baseScore; // the object and state parts of the score
    std::uint32_t classId;
};

// A group of rules sharing one declaration map, scanned whole.
struct StyleSheet::IndexEntry_ {
    const KyString* value;
    std::uint32_t first; // the group's rules in Index_::keys
    std::uint32_t count;
};

struct StyleSheet::PropertyIndex_ {
    struct Candidate {
        RuleKey_ rule;
        const KyString* value;
    };
    struct Bucket {
        std::uint32_t classId;
        std::uint32_t begin, end; // into candidates
    };
    std::vector<Candidate> candidates;
    std::vector<Bucket> buckets;
    std::vector<IndexEntry_> wideGroups;
};

struct StyleSheet::Index_ {
    std::vector<RuleKey_> keys;
    StringMap<std::uint32_t> classIds; // named classes, from 1
    StringMap<PropertyIndex_> byProperty;
    // The last class chain asked about and its (class id, class score) pairs.
    mutable std::vector<KyString> chain;
    mutable std::vector<std::pair<std::uint32_t, int>> chainScores;
    mutable bool chainKnown = false;

    const std::vector<std::pair<std::uint32_t, int>>& scoresFor(const KyList<KyString>& classChain) const;
};

struct StyleSheet::DirectIndex_ {
    StringMap<std::vector<const PropertyMap*>> bySelector; // in written order
};

const KyString* StyleSheet::Rule::find(std::string_view property) const {
    if (!properties) return nullptr;
    const auto it = properties->find(KyString(property));
    return it == properties->end() ? nullptr : &it->second;
}

StyleSheet::StyleSheet() = default;
StyleSheet::~StyleSheet() = default;
StyleSheet::StyleSheet(StyleSheet&&) noexcept = default;
StyleSheet& StyleSheet::operator=(StyleSheet&&) noexcept = default;

// A copy rebuilds its own indexes: they point into the rules' strings.
StyleSheet::StyleSheet(const StyleSheet& other)
    : rules_(other.rules_), nextSequence_(other.nextSequence_), written_(other.written_) {}

StyleSheet& StyleSheet::operator=(const StyleSheet& other) {
    if (this != &other) {
        rules_ = other.rules_;
        nextSequence_ = other.nextSequence_;
        written_ = other.written_;
        changed_();
    }
    return *this;
}

void StyleSheet::changed_() {
    indexCache_.reset();
    directCache_.reset();
}

void StyleSheet::clear() {
    rules_.clear();
    nextSequence_ = 0;
    written_.clear();
    changed_();
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
        written_.emplace_back(selector, written);
    }
    changed_();
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
    written_.insert(written_.end(), other.written_.begin(), other.written_.end());
    changed_();
}

const StyleSheet::DirectIndex_& StyleSheet::directIndex_() const {
    if (!directCache_) {
        auto index = std::make_unique<DirectIndex_>();
        for (const auto& [selector, map] : written_) index->bySelector[selector.toStdString()].push_back(map.get());
        directCache_ = std::move(index);
    }
    return *directCache_;
}

KyString StyleSheet::getStyleProperty(const KyString& selector, const KyString& property) const {
    const DirectIndex_& direct = directIndex_();
    auto lookup = [&](const KyString& key) -> const KyString* {
        const auto it = direct.bySelector.find(key.view());
        if (it == direct.bySelector.end()) return nullptr;
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
    const DirectIndex_& direct = directIndex_();
    if (const auto it = direct.bySelector.find(selector.view()); it != direct.bySelector.end())
        for (const PropertyMap* map : it->second)
            for (const auto& [name, value] : *map) out.insert(name, value);
    return out;
}

const StyleSheet::Index_& StyleSheet::index_() const {
    if (indexCache_) return *indexCache_;
    auto index = std::make_unique<Index_>();

    // Group rules by their shared declaration map, in first-seen order, and
    // lay each group's rules out contiguously in keys.
    std::unordered_map<const PropertyMap*, std::uint32_t> groupOf;
    groupOf.reserve(rules_.size());
    std::vector<std::uint32_t> ruleGroup(rules_.size(), kMixedClasses);
    std::vector<std::uint32_t> groupCount, groupRule;
    for (std::uint32_t i = 0; i < rules_.size(); ++i) {
        const PropertyMap* map = rules_[i].properties.get();
        if (!map || map->empty()) continue;
        const auto [it, fresh] = groupOf.try_emplace(map, std::uint32_t(groupCount.size()));
        if (fresh) {
            groupCount.push_back(0);
            groupRule.push_back(i);
        }
        ruleGroup[i] = it->second;
        ++groupCount[it->second];
    }
    std::vector<std::uint32_t> groupStart(groupCount.size());
    std::uint32_t total = 0;
    for (std::size_t g = 0; g < groupCount.size(); ++g) groupStart[g] = std::exchange(total, total + groupCount[g]);
    index->keys.resize(total);
    std::vector<std::uint32_t> fill(groupStart);
    for (std::uint32_t i = 0; i < rules_.size(); ++i) {
        if (ruleGroup[i] == kMixedClasses) continue;
        const Rule& r = rules_[i];
        std::uint32_t classId = kAnyClass;
        if (!r.className.isEmpty() && r.className != "*") {
            auto known = index->classIds.find(r.className.view());
            if (known == index->classIds.end())
                known = index->classIds.emplace(r.className.toStdString(), std::uint32_t(index->classIds.size() + 1)).first;
            classId = known->second;
        }
        const int base = (r.objectName.isEmpty() ? 0 : 10000) + 10 * stateBitCount(r.stateFlags);
        index->keys[fill[ruleGroup[i]]++] = RuleKey_{r.objectName.view(), r.stateFlags, r.sequence, base, classId};
    }

    for (std::size_t g = 0; g < groupCount.size(); ++g) {
        for (const auto& [name, value] : *rules_[groupRule[g]].properties) {
            auto it = index->byProperty.find(name.view());
            if (it == index->byProperty.end()) it = index->byProperty.try_emplace(name.toStdString()).first;
            PropertyIndex_& property = it->second;
            if (groupCount[g] > kListedGroupLimit) {
                property.wideGroups.push_back(IndexEntry_{&value, groupStart[g], groupCount[g]});
                continue;
            }
            for (std::uint32_t k = groupStart[g]; k < groupStart[g] + groupCount[g]; ++k)
                property.candidates.push_back({index->keys[k], &value});
        }
    }
    // By class, then best score first, and among equal scores the later rule.
    for (auto& [name, property] : index->byProperty) {
        auto& c = property.candidates;
        std::sort(c.begin(), c.end(), [](const PropertyIndex_::Candidate& a, const PropertyIndex_::Candidate& b) {
            if (a.rule.classId != b.rule.classId) return a.rule.classId < b.rule.classId;
            if (a.rule.baseScore != b.rule.baseScore) return a.rule.baseScore > b.rule.baseScore;
            return a.rule.sequence > b.rule.sequence;
        });
        for (std::uint32_t i = 0; i < c.size(); ++i) {
            if (property.buckets.empty() || property.buckets.back().classId != c[i].rule.classId)
                property.buckets.push_back({c[i].rule.classId, i, i});
            property.buckets.back().end = i + 1;
        }
    }
    indexCache_ = std::move(index);
    return *indexCache_;
}

// The chain with each name's other spelling right after it, without repeats;
// a class scores 100 plus the chain length minus its position. Only classes
// some rule names get an entry.
const std::vector<std::pair<std::uint32_t, int>>& StyleSheet::Index_::scoresFor(const KyList<KyString>& classChain) const {
    if (chainKnown && chain.size() == classChain.size() && std::equal(chain.begin(), chain.end(), classChain.begin()))
        return chainScores;
    std::vector<KyString> names;
    names.reserve(classChain.size() * 2);
    auto add = [&](const KyString& name) {
        if (!name.isEmpty() && std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    };
    for (const KyString& name : classChain) {
        add(name);
        add(aliasSelector_(name));
    }
    chainScores.clear();
    for (std::size_t pos = 0; pos < names.size(); ++pos)
        if (const auto it = classIds.find(names[pos].view()); it != classIds.end())
            chainScores.emplace_back(it->second, 100 + int(names.size() - pos));
    chain.assign(classChain.begin(), classChain.end());
    chainKnown = true;
    return chainScores;
}

const KyString* StyleSheet::findProperty_(const KyList<KyString>& classChain, std::string_view property,
                                          std::uint32_t stateFlags, std::string_view objectName,
                                          bool* explicitOut) const {
    if (explicitOut) *explicitOut = false;
    const Index_& rules = index_();
    const auto found = rules.byProperty.find(property);
    if (found == rules.byProperty.end()) return nullptr;
    const auto& chainScores = rules.scoresFor(classChain);
    auto classScore = [&](std::uint32_t classId) {
        if (classId == kAnyClass) return 0;
        for (const auto& [id, score] : chainScores)
            if (id == classId) return score;
        return -1;
    };

    int bestScore = -1;
    std::int32_t bestSequence = -1;
    const KyString* best = nullptr;
    std::uint32_t bestFlags = 0;
    auto consider = [&](const RuleKey_& rule, int cls, const KyString* value) {
        if (rule.stateFlags & ~stateFlags) return false;
        if (!rule.objectName.empty() && rule.objectName != objectName) return false;
        const int score = rule.baseScore + cls;
        if (score > bestScore || (score == bestScore && rule.sequence >= bestSequence)) {
            bestScore = score;
            bestSequence = rule.sequence;
            best = value;
            bestFlags = rule.stateFlags;
        }
        return true;
    };
    const PropertyIndex_& index = found->second;
    for (const PropertyIndex_::Bucket& bucket : index.buckets) {
        const int cls = classScore(bucket.classId);
        // The bucket's best possible score is its first rule's.
        if (cls < 0 || cls + index.candidates[bucket.begin].rule.baseScore < bestScore) continue;
        for (std::uint32_t i = bucket.begin; i < bucket.end; ++i)
            if (consider(index.candidates[i].rule, cls, index.candidates[i].value)) break;
    }
    for (const IndexEntry_& group : index.wideGroups) {
        for (std::uint32_t k = group.first; k < group.first + group.count; ++k) {
            const RuleKey_& rule = rules.keys[k];
            if (const int cls = classScore(rule.classId); cls >= 0) consider(rule, cls, group.value);
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
