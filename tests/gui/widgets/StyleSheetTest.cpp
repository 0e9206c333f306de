// StyleSheet: what a sheet's text means to the widgets that read it: the
// grammar, selector scores and ties, legacy state spellings, shorthands, the
// cascade merged root-down, and the value forms of colours, lengths, weights,
// font sizes and boxes.
#include <gtest/gtest.h>

#include <stdexcept>

#include "gui/widgets/StyleSheet.h"

using ky::gui::StyleBox;
using ky::gui::StyleSheet;

namespace {

constexpr std::uint32_t kHover = StyleSheet::StateHover, kPressed = StyleSheet::StatePressed,
                        kChecked = StyleSheet::StateChecked, kFocus = StyleSheet::StateFocus;

// Class chain of a push button, most derived first.
const KyList<KyString> kButton{"KyPushButton", "KyFrame", "KyWidget", "KyObject"};
const KyList<KyString> kLabel{"KyLabel", "KyFrame", "KyWidget", "KyObject"};

struct Query {
    const char* name;
    const char* sheet;
    const char* property;
    std::uint32_t state;
    const char* object;
    const char* want;
};

void expectResolves(const StyleSheet& sheet, const Query& q, const KyList<KyString>& chain) {
    EXPECT_EQ(sheet.resolveProperty_(chain, q.property, q.state, q.object), q.want) << q.name;
}

} // namespace

TEST(StyleSheet, SheetTextResolvesByScoreStateAndOrder) {
    const Query rows[] = {
        {"later equal rule wins", "KyLabel{color:red} KyLabel{color:blue}", "color", 0, "", "blue"},
        {"two state bits score 20 over a later one-bit rule",
         "KyLabel:hover:checked{color:red} KyLabel:hover{color:blue} KyLabel{color:gray}", "color", kHover | kChecked, "", "red"},
        {"state rule needs every bit", "KyLabel:hover:checked{color:red} KyLabel{color:gray}", "color", kHover, "", "gray"},
        {"object name beats any class", "#title{color:red} KyLabel:hover:checked{color:blue}", "color", kHover | kChecked, "title", "red"},
        {"other object name never matches", "KyLabel#other{color:red} KyLabel{color:blue}", "color", 0, "title", "blue"},
        {"derived class beats base class", "KyLabel{color:red} KyFrame{color:blue}", "color", 0, "", "red"},
        {"star matches but scores nothing", "KyObject{color:red} *{color:blue}", "color", 0, "", "red"},
        {"class chain miss", "KyPushButton{color:red}", "color", 0, "", ""},
        {"Q spelling reaches the Ky class", "QLabel{color:red}", "color", 0, "", "red"},
        {"comma list makes one rule each", "KyPushButton, KyLabel:hover { color: red }", "color", kHover, "", "red"},
        {"hover- prefix files under hover", "KyLabel{hover-background-color:red; background-color:blue}", "background-color", kHover, "", "red"},
        {"hover- prefix absent without hover", "KyLabel{hover-background-color:red; background-color:blue}", "background-color", 0, "", "blue"},
        {"-pressed suffix files under pressed", "KyLabel{color-pressed:red}", "color", kPressed, "", "red"},
        {"legacy spelling stays readable as written", "KyLabel{focus-border-color:red}", "focus-border-color", 0, "", "red"},
        {"legacy spelling in a state rule, later plain wins", "KyLabel:hover{hover-color:red; color:blue}", "color", kHover, "", "blue"},
        {"block comment dropped", "/* KyLabel{color:red} */ KyLabel{color:/*x*/blue}", "color", 0, "", "blue"},
        {"line comment keeps newline", "KyLabel{color:blue; // color:red\n font-size:3px}", "font-size", 0, "", "3px"},
        {"comment marks inside quotes stay", "KyLabel{font-family:\"a//b /*c*/\"}", "font-family", 0, "", "\"a//b /*c*/\""},
        {"brace in quotes ends the block", "KyLabel{font-family:\"a}\"; color:red}", "font-family", 0, "", "\"a"},
        {"semicolon in parentheses", "KyLabel{image:url(a;b); color:red}", "image", 0, "", "url(a;b)"},
        {"name lower-cased, value keeps case", "KyLabel{ COLOR : Red }", "color", 0, "", "Red"},
        {"chunk without colon dropped", "KyLabel{color red; font-size:2px}", "font-size", 0, "", "2px"},
        {"missing brace ends the parse", "KyLabel{color:red} KyLabel{color:blue", "color", 0, "", "red"},
        {"background shorthand", "KyLabel{background: #112233}", "background-color", 0, "", "#112233"},
        {"border width", "KyLabel{border: 2px dashed rgb(1, 2, 3)}", "border-width", 0, "", "2px"},
        {"border style", "KyLabel{border: 2px dashed rgb(1, 2, 3)}", "border-style", 0, "", "dashed"},
        {"border colour kept whole", "KyLabel{border: 2px dashed rgb(1, 2, 3)}", "border-color", 0, "", "rgb(1, 2, 3)"},
        {"border none", "KyLabel{border: none}", "border-style", 0, "", "none"},
        {"border 0px width", "KyLabel{border: 0px}", "border-width", 0, "", "0"},
        {"border side", "KyLabel{border-top: 1px solid red}", "border-top-color", 0, "", "red"},
        {"border side none", "KyLabel{border-left: 0}", "border-left-style", 0, "", "none"},
        {"border right", "KyLabel{border-right: 2px}", "border-right-width", 0, "", "2px"},
        {"border bottom", "KyLabel{border-bottom: dotted}", "border-bottom-style", 0, "", "dotted"},
        {"semicolon in quotes", "KyLabel{font-family:\"a;b\"; color:red}", "font-family", 0, "", "\"a;b\""},
        {"block without selector adds nothing", "KyLabel{color:red}{color:blue}", "color", 0, "", "red"},
    };
    for (const Query& q : rows) {
        StyleSheet sheet;
        sheet.parseStyleSheet(q.sheet);
        expectResolves(sheet, q, kLabel);
    }
}

TEST(StyleSheet, ExplicitStateTellsWhetherTheWinnerCarriesState) {
    StyleSheet sheet;
    sheet.parseStyleSheet("KyPushButton { color: black } KyPushButton:hover { color: blue }");
    bool explicitState = true;
    EXPECT_EQ(sheet.resolveProperty_(kButton, "color", kHover | kFocus, "", &explicitState), "blue");
    EXPECT_TRUE(explicitState);
    EXPECT_EQ(sheet.resolveProperty_(kButton, "color", kFocus, "", &explicitState), "black");
    EXPECT_FALSE(explicitState);
}

TEST(StyleSheet, CascadeMergesDefaultsThenUserSheetsRootDown) {
    // Window > frame > button, each with a default and a user sheet, merged
    // as the widget does: defaults root-down, then user sheets root-down.
    const char* defaults[] = {"KyWidget { color: gray; padding: 1px }", "", "KyPushButton { color: black; border-width: 1px }"};
    const char* users[] = {"KyPushButton { color: navy; border-width: 3px } #ok { padding: 9px }",
                           "KyPushButton { border-width: 4px }", ""};
    StyleSheet effective;
    for (const char* const* level : {defaults, users})
        for (int i = 0; i < 3; ++i) {
            StyleSheet sheet;
            sheet.parseStyleSheet(level[i]);
            effective.mergeFrom(sheet);
        }
    const Query rows[] = {
        {"user sheet on the window beats the control's default", "", "color", 0, "", "navy"},
        {"deeper user sheet wins equal selectors", "", "border-width", 0, "", "4px"},
        {"ancestor rule reaches only matching widgets", "", "padding", 0, "", "1px"},
        {"object selector from the window", "", "padding", 0, "ok", "9px"},
    };
    for (const Query& q : rows) expectResolves(effective, q, kButton);
    // The same sheet asked about another widget's chain.
    expectResolves(effective, {"a label sees only the window's default", "", "color", 0, "", "gray"}, kLabel);
    // Renumbered, not restarted: sequence numbers keep rising across merges.
    for (std::size_t i = 1; i < effective.rules().size(); ++i)
        EXPECT_GT(effective.rules()[i].sequence, effective.rules()[i - 1].sequence);
}

TEST(StyleSheet, DirectLookupBySelectorTextAndAlias) {
    StyleSheet sheet;
    sheet.parseStyleSheet("QScrollBar::handle { background: red } KyLabel { color: red } KyLabel { color: blue }");
    EXPECT_EQ(sheet.getStyleProperty("KyScrollBar::handle", "background-color"), "red");
    EXPECT_EQ(sheet.getStyleProperty("KyLabel", "color"), "blue");
    EXPECT_EQ(sheet.getStyleProperty("KyLabel", "padding"), "");
    // A part selector never applies to the plain widget.
    EXPECT_EQ(sheet.resolveProperty_({"KyScrollBar"}, "background-color", 0, ""), "");
}

TEST(StyleSheet, SelectorsAndNameSpellings) {
    struct Row { const char* text; const char* cls; const char* object; const char* pseudo; std::uint32_t flags; };
    const Row rows[] = {
        {" KyLabel#title ", "KyLabel", "title", "", 0}, {"#title:focus", "", "title", "", kFocus},
        {"*:hover", "*", "", "", kHover}, {"KyLabel:HOVER : checked", "KyLabel", "", "", kHover | kChecked},
        {"KyScrollBar::handle:pressed", "KyScrollBar::handle", "", "handle", kPressed},
    };
    for (const Row& r : rows) {
        const auto p = StyleSheet::parseSelector_(r.text);
        EXPECT_EQ(p.className, r.cls) << r.text;
        EXPECT_EQ(p.objectName, r.object) << r.text;
        EXPECT_EQ(p.pseudoState, r.pseudo) << r.text;
        EXPECT_EQ(p.stateFlags, r.flags) << r.text;
    }
    const std::pair<const char*, const char*> aliases[] = {
        {"KyLabel", "QLabel"}, {"QLabel", "KyLabel"}, {"Ky", "Ky"}, {"KyA", "QA"}, {"Label", "Label"}, {"KyLabel:hover", "QLabel:hover"}};
    for (const auto& [name, want] : aliases) EXPECT_EQ(StyleSheet::aliasSelector_(name), want) << name;
    KyString plain;
    EXPECT_EQ(StyleSheet::legacyStateAlias_("disabled-color", &plain), StyleSheet::StateDisabled);
    EXPECT_EQ(plain, "color");
    EXPECT_EQ(StyleSheet::legacyStateAlias_("background-color-unchecked"), 0u);
    EXPECT_EQ(StyleSheet::legacyStateAlias_("hover-"), 0u);
}

TEST(StyleSheet, ColoursInEveryForm) {
    struct Row { const char* name; const char* text; KyColor want; float alpha; };
    const Row rows[] = {
        {"hex", " #11aAff ", {17, 170, 255}, 1}, {"empty", "", {}, 1}, {"transparent", "transparent", {}, 0},
        {"rgb clamps", "rgb(300, -5, 7)", {255, 0, 7}, 1}, {"rgba 0..255 alpha", "rgba(0,0,0,128)", {}, 128 / 255.0f},
        {"rgba fraction alpha", "rgba(1, 2, 3, 0.5)", {1, 2, 3}, 0.5f}, {"rgba negative alpha", "rgba(1,2,3,-1)", {1, 2, 3}, 0},
        {"gradient first stop", "linear-gradient(#112233, #445566)", {17, 34, 51}, 1},
        {"gradient direction is an unknown name", "linear-gradient(to bottom, #112233, #445566)", {}, 1},
        {"gradient stop as function", "linear-gradient(rgba(9, 8, 7, 0), red)", {9, 8, 7}, 0},
        {"named", "Gold", {255, 215, 0}, 1}, {"unknown name is black", "chartreuse", {}, 1},
    };
    for (const Row& r : rows) {
        float alpha = -1;
        EXPECT_EQ(StyleSheet::parseColor(r.text, &alpha), r.want) << r.name;
        EXPECT_FLOAT_EQ(alpha, r.alpha) << r.name;
    }
    const std::pair<const char*, const char*> errors[] = {
        {"#abc", "Invalid hex color"}, {"#1122zz", "Invalid hex color"}, {"linear-gradient(#abc, red)", "Invalid hex color"},
        {"rgba(1, 2, 3)", "Invalid rgba"}, {"rgba(1, 2, x, 1)", "Invalid rgba"}, {"rgb(1, 2)", "Invalid rgb"}};
    for (const auto& [text, message] : errors) {
        try {
            (void)StyleSheet::parseColor(text);
            ADD_FAILURE() << "no error for " << text;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), message) << text;
        }
    }
    // A guarded reader of `color: #abc` keeps the colour it had.
    StyleSheet sheet;
    sheet.parseStyleSheet("KyLabel { color: #abc }");
    KyColor colour(1, 2, 3);
    float alpha = 0.25f;
    EXPECT_FALSE(StyleSheet::tryParseColor_(sheet.resolveProperty_(kLabel, "color", 0, ""), colour, &alpha));
    EXPECT_EQ(colour, KyColor(1, 2, 3));
    EXPECT_FLOAT_EQ(alpha, 0.25f);
    // The named table, as sheets spell it.
    const char* names = "red 255 0 0 green 0 255 0 blue 0 0 255 yellow 255 255 0 black 0 0 0 white 255 255 255 "
                        "gray 128 128 128 cyan 0 255 255 magenta 255 0 255 orange 255 165 0 purple 128 0 128 "
                        "brown 165 42 42 pink 255 192 203 lime 0 255 0 olive 128 128 0 navy 0 0 128 teal 0 128 128 "
                        "maroon 128 0 0 silver 192 192 192 gold 255 215 0";
    const KyList<KyString> words = KyString(names).split(' ');
    for (std::size_t i = 0; i + 3 < words.size(); i += 4)
        EXPECT_EQ(StyleSheet::parseColor(words[i]), KyColor(words[i + 1].toInt(), words[i + 2].toInt(), words[i + 3].toInt())) << words[i];
    EXPECT_EQ(StyleSheet::namedColors().size(), 20u);
}

TEST(StyleSheet, LengthsWeightsFontSizesAndBoxes) {
    const std::pair<const char*, int> lengths[] = {
        {"12px", 12}, {" 12pt", 12}, {"12em", 12}, {"12%", 12}, {"-3px", -3}, {"4px 8px", 4}, {"", 7}, {"px", 7}, {"12.5px", 7}, {"9999999999px", 7}};
    for (const auto& [text, want] : lengths) EXPECT_EQ(StyleSheet::parsePixelValue(text, 7), want) << text;
    const std::pair<const char*, int> weights[] = {
        {"normal", 400}, {"Medium", 500}, {"semibold", 600}, {"demibold", 600}, {"BOLD", 700}, {"extrabold", 800},
        {"ultrabold", 800}, {"light", 300}, {"thin", 100}, {"950", 900}, {"650", 600}, {"300", 300}, {"299", 1}, {"heavy", 1}};
    for (const auto& [text, want] : weights) EXPECT_EQ(StyleSheet::parseFontWeightValue(text, 1), want) << text;
    const std::pair<int, int> points[] = {{14, 11}, {1, 1}, {2, 2}, {12, 9}, {16, 12}};
    for (const auto& [pixels, point] : points) EXPECT_EQ(StyleSheet::fontSizeFromPixels(pixels)->pointSize, point) << pixels;
    EXPECT_EQ(StyleSheet::parseFontSize("14px")->pixelSize, 14);
    EXPECT_FALSE(StyleSheet::parseFontSize("0px"));
    const StyleBox fallback{{5, 6, 7, 8}};
    const std::pair<const char*, StyleBox> boxes[] = {
        {"3px", {{3, 3, 3, 3}}}, {"4px 8px", {{4, 8, 4, 8}}}, {"1 2 3", {{1, 2, 3, 2}}}, {"1 2 3 4 5", {{1, 2, 3, 4}}},
        {"", fallback}, {"x 2px", {{5, 2, 7, 2}}}};
    for (const auto& [text, want] : boxes) EXPECT_EQ(StyleSheet::parseBoxValues(text, fallback), want) << text;
    EXPECT_EQ(StyleSheet::parseFontFamilyValue(" 'Segoe UI' "), "Segoe UI");
}
