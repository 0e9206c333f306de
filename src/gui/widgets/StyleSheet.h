// StyleSheet: the toolkit's CSS-like style language, parsed into rules and
// answered by selector, state and property.
//
// A sheet owns its rules in parse order, a direct map from selector text to
// declarations (for readers that ask by selector, such as a widget reading a
// sub-part), and a per-property index that it builds lazily on the first
// lookup after the rules change, so a lookup visits only the rules that name
// the property. Parsing runs once per change of text; widgets merge their own
// and their ancestors' sheets into one effective sheet with mergeFrom and read
// it through resolveProperty_. The value helpers (colours, lengths, weights,
// font sizes, one-to-four value boxes) are pure and used by the resolved
// snapshot of a widget.
//
// A sheet belongs to the GUI thread, like the widget that holds it: lookups
// fill the index in place, so one sheet must not be read from two threads at
// once. Only parseColor throws (std::runtime_error with "Invalid hex color",
// "Invalid rgba" or "Invalid rgb"); tryParseColor_ is the guarded form.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/types/KyColor.h"
#include "core/types/KyList.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"
#include "core/types/KyVector.h"

namespace ky::gui {

/// Sizes that a `font-size` of n pixels gives a font.
struct StyleFontSize {
    int pixelSize = 0;
    int pointSize = 0;
    friend bool operator==(const StyleFontSize&, const StyleFontSize&) = default;
};

/// Four lengths in the CSS order of their property: top, right, bottom, left
/// for `padding`; top-left, top-right, bottom-right, bottom-left for
/// `border-radius`.
struct StyleBox {
    int v[4] = {0, 0, 0, 0};
    int top() const { return v[0]; }
    int right() const { return v[1]; }
    int bottom() const { return v[2]; }
    int left() const { return v[3]; }
    int topLeft() const { return v[0]; }
    int topRight() const { return v[1]; }
    int bottomRight() const { return v[2]; }
    int bottomLeft() const { return v[3]; }
    friend bool operator==(const StyleBox&, const StyleBox&) = default;
};

/// Parsed style text: rules in order, selector lookups and property resolution.
class StyleSheet {
public:
    using PropertyMap = KyMap<KyString, KyString>;

    /// State bits, the same in selectors (`:hover`) and in a widget's state.
    enum StateFlag : std::uint32_t {
        StateHover = 1,
        StatePressed = 2,
        StateDisabled = 4,
        StateFocus = 8,
        StateChecked = 16,
    };
    /// The state mask a widget's own queries use to mean "my current state";
    /// the widget replaces it before asking a sheet, which would take it as
    /// every state at once.
    static constexpr std::uint32_t CurrentState = 0xFFFFFFFFu;

    /// One selector of a block with its declarations. Every selector of a
    /// comma list gets its own rule and sequence number; rules made from one
    /// block share one immutable declaration map.
    struct Rule {
        KyString selector;              ///< trimmed selector text as written
        KyString className;             ///< "" (any class), "*" or a class name
        KyString objectName;            ///< "" (any object) or the name after '#'
        std::uint32_t stateFlags = 0;
        std::int32_t sequence = 0;      ///< parse order; later wins ties
        std::shared_ptr<const PropertyMap> properties;

        /// The value of a property in this rule, or null.
        const KyString* find(std::string_view property) const;
    };

    /// What parseSelector_ reads from one selector.
    struct ParsedSelector_ {
        KyString className;
        KyString objectName;
        KyString pseudoState;           ///< a trailing pseudo-state that is not a state bit
        std::uint32_t stateFlags = 0;
    };

    StyleSheet();
    StyleSheet(const StyleSheet& other);
    StyleSheet& operator=(const StyleSheet& other);
    StyleSheet(StyleSheet&&) noexcept;
    StyleSheet& operator=(StyleSheet&&) noexcept;
    ~StyleSheet();

    /// Clears the sheet and parses text into it. Malformed text never fails:
    /// parsing stops silently at the first block without both braces.
    void parseStyleSheet(const KyString& text);
    /// Appends other's rules after this sheet's, renumbering their sequence
    /// numbers to follow this sheet's, and merges other's direct map (its
    /// declarations replace this sheet's under the same selector and name).
    void mergeFrom(const StyleSheet& other);
    void clear();

    bool isEmpty() const { return rules_.isEmpty(); }
    const KyVector<Rule>& rules() const { return rules_; }
    /// Declarations as written under one selector's text, later ones over
    /// earlier ones (the direct map's view of that selector).
    PropertyMap directProperties(const KyString& selector) const;

    /// The value under selector (or its Ky/Q alias) and property from the
    /// direct map, or empty.
    KyString getStyleProperty(const KyString& selector, const KyString& property) const;

    /// The value of property for a widget whose class chain (most derived
    /// first), state and object name are given, or empty when no rule sets it.
    /// Object name scores 10000, a class 100 plus its rank in the chain, each
    /// state bit 10; equal scores go to the later rule. explicitOut, when
    /// given, tells whether the winning rule carries state bits.
    KyString resolveProperty_(const KyList<KyString>& classChain, const KyString& property, std::uint32_t stateFlags,
                              const KyString& objectName, bool* explicitOut = nullptr) const;
    /// As resolveProperty_, but a pointer to the stored value (null when
    /// unset); valid until the sheet changes.
    const KyString* findProperty_(const KyList<KyString>& classChain, std::string_view property,
                                  std::uint32_t stateFlags, std::string_view objectName,
                                  bool* explicitOut = nullptr) const;

    // Selectors and names.
    static ParsedSelector_ parseSelector_(const KyString& selector);
    /// "KyLabel" <-> "QLabel": the other spelling of a class name, or the
    /// name itself when it has none.
    static KyString aliasSelector_(const KyString& name);
    /// The state bit of a legacy property spelling ("hover-color",
    /// "color-hover") and its plain name; 0 when the name is not one.
    static std::uint32_t legacyStateAlias_(std::string_view property, KyString* plainOut = nullptr);
    /// The bit of a pseudo-state word ("hover" -> StateHover), or 0.
    static std::uint32_t stateBit(std::string_view word);

    // Values.
    /// A colour in any sheet form; alphaOut (0..1) is set when given. Throws
    /// std::runtime_error "Invalid hex color", "Invalid rgba" or "Invalid rgb".
    static KyColor parseColor(const KyString& text, float* alphaOut = nullptr);
    /// parseColor that keeps colour (and alpha) as they were when the text is
    /// not a colour; returns whether it parsed.
    static bool tryParseColor_(const KyString& text, KyColor& colour, float* alphaOut = nullptr);
    /// The named colours ("red", "gold", ...), lower case.
    static const KyMap<KyString, KyColor>& namedColors();
    /// A length: the leading decimal integer, units ignored ("12px", "12%"
    /// are 12); fallback for empty or malformed text.
    static int parsePixelValue(const KyString& text, int fallback);
    /// A font weight by word ("bold") or number rounded down to a step.
    static int parseFontWeightValue(const KyString& text, int fallback);
    /// Pixel and point size for a `font-size` of n pixels; none when n <= 0.
    static std::optional<StyleFontSize> fontSizeFromPixels(int pixels);
    /// fontSizeFromPixels of a `font-size` value.
    static std::optional<StyleFontSize> parseFontSize(const KyString& text);
    /// One to four lengths in CSS order; sides the text leaves malformed keep
    /// fallback's, and empty text gives fallback.
    static StyleBox parseBoxValues(const KyString& text, const StyleBox& fallback);
    /// A `font-family` value trimmed of blanks and quotes.
    static KyString parseFontFamilyValue(const KyString& text);

    /// Splits on blanks outside parentheses ("1px solid rgb(1, 2, 3)" is three parts).
    static KyList<KyString> splitSpace_(std::string_view text);
    /// Writes `border-width`, `border-style` and `border-color` from a `border` value.
    static void borderShorthand_(std::string_view value, PropertyMap& out);
    /// The same for one side ("top", "right", "bottom", "left").
    static void borderSideShorthand_(std::string_view side, std::string_view value, PropertyMap& out);

private:
    struct RuleKey_;
    struct IndexEntry_;
    struct PropertyIndex_;
    struct Index_;
    struct DirectIndex_;

    void parseBlock_(std::string_view selectors, std::string_view declarations);
    void changed_();
    const Index_& index_() const;
    const DirectIndex_& directIndex_() const;

    KyVector<Rule> rules_;
    std::int32_t nextSequence_ = 0;
    // Every (selector text, declarations as written) in order: the direct
    // map's source, sharing the rules' maps rather than copying them.
    std::vector<std::pair<KyString, std::shared_ptr<const PropertyMap>>> written_;
    // Built by the first query after a change; the property index also keeps
    // the class ids of the last class chain asked about, since one widget's
    // sheet is asked about the same chain for every property it reads.
    mutable std::unique_ptr<Index_> indexCache_;
    mutable std::unique_ptr<DirectIndex_> directCache_;
};

} // namespace ky::gui
