// KyWidget's style: the sheet cascade, the resolved snapshot per state and
// the resolveStyled* queries read through it.
//
// The effective sheet of a widget is every default sheet from the root down
// to the widget, then every user sheet from the root down, so a user sheet on
// a window beats a control's default and, at equal specificity, the deepest
// and latest rule wins. It is rebuilt by the first query after a change; the
// snapshots are rebuilt only when dropped.
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "gui/widgets/KyWidget.h"
#include "gui/widgets/KyWidgetPerf.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

using ky::gui::StyleSheet;

namespace {

// The value of one property for one widget and state, or null.
struct Resolver {
    const StyleSheet& sheet;
    const KyList<KyString>& chain;
    const KyString& objectName;
    std::uint32_t state;
    const KyString* find(std::string_view property) const {
        return sheet.findProperty_(chain, property, state, objectName.view());
    }
};

int lengthOf(const KyString* value, int fallback) {
    return value ? StyleSheet::parsePixelValue(*value, fallback) : fallback;
}

} // namespace

void KyWidget::setDefaultStyleSheet(const KyString& text) {
    if (text == defaultSheetText_) return;
    defaultSheetText_ = text;
    style_->defaultSheet.parseStyleSheet(text);
    updateStyleTree_();
}

void KyWidget::on_StyleSheet_changed(const KyString& text) {
    style_->userSheet.parseStyleSheet(text);
    updateStyleTree_();
}

void KyWidget::updateStyleTree_() {
    invalidateEffectiveStyleCacheRecursive_();
    update();
}

void KyWidget::invalidateEffectiveStyleCacheRecursive_() {
    style_->effectiveDirty = true;
    invalidateStyleCache_();
    for (KyWidget* child : childWidgets()) child->invalidateEffectiveStyleCacheRecursive_();
}

void KyWidget::invalidateStyleCache_() {
    style_->currentValid = false;
    style_->byMask.clear();
}

void KyWidget::on_ObjectName_changed(const KyString&) {
    style_->selectorsValid = false;
    invalidateStyleCache_();
    update();
}

const KyList<KyString>& KyWidget::styleSelectors_() const {
    StyleCache_& s = *style_;
    // The class is asked for, not assumed: a chain read while a subclass was
    // still being built would name the base class.
    if (!s.selectorsValid || s.selectorsClass != className()) {
        s.selectors = classHierarchy();
        s.selectorsClass = className();
        s.selectorsValid = true;
    }
    return s.selectors;
}

namespace {
// Cascades by the sheets that make them. A window's widgets mostly carry the
// same chain (the window's sheet, a few class defaults), so one merged and
// indexed sheet serves them all: a console of a few hundred widgets merges
// a few dozen cascades instead of one each. Entries are immutable and keyed
// by content, so they never go stale; the set of distinct chains is small.
// GUI thread only, like every widget.
std::unordered_map<std::string, std::shared_ptr<const StyleSheet>>& cascadeCache() {
    static std::unordered_map<std::string, std::shared_ptr<const StyleSheet>> cache;
    return cache;
}
} // namespace

const StyleSheet& KyWidget::getToolSheet() const {
    StyleCache_& s = *style_;
    if (!s.effectiveDirty && s.effective) return *s.effective;
    ky::gui::perf::ScopeTimer timer("style.mergeCascade");
    std::vector<const KyWidget*> chain;
    for (const KyWidget* w = this; w; w = w->parentWidget()) chain.push_back(w);
    // Defaults root first, then user sheets root first; a separator no sheet
    // text holds keeps the pieces apart in the key.
    std::string key;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
        if (!(*it)->style_->defaultSheet.isEmpty()) key.append((*it)->defaultSheetText_.view()).push_back('\x1d');
    key.push_back('\x1e');
    for (auto it = chain.rbegin(); it != chain.rend(); ++it)
        if (!(*it)->style_->userSheet.isEmpty()) key.append((*it)->getStyleSheet().view()).push_back('\x1d');
    std::shared_ptr<const StyleSheet>& cached = cascadeCache()[key];
    if (!cached) {
        auto merged = std::make_shared<StyleSheet>();
        for (auto it = chain.rbegin(); it != chain.rend(); ++it)
            if (!(*it)->style_->defaultSheet.isEmpty()) merged->mergeFrom((*it)->style_->defaultSheet);
        for (auto it = chain.rbegin(); it != chain.rend(); ++it)
            if (!(*it)->style_->userSheet.isEmpty()) merged->mergeFrom((*it)->style_->userSheet);
        cached = std::move(merged);
    }
    s.effective = cached;
    s.effectiveDirty = false;
    return *s.effective;
}

std::uint32_t KyWidget::styleStateFlags_() const {
    auto dynamicFlag = [this](const char* name) {
        const KyString key(name);
        return propertyExist(key) && property(key).toBool();
    };
    std::uint32_t flags = 0;
    if (getHover()) flags |= StyleSheet::StateHover;
    if (dynamicFlag("Pressed")) flags |= StyleSheet::StatePressed;
    if (!getEnable()) flags |= StyleSheet::StateDisabled;
    if (getFocus()) flags |= StyleSheet::StateFocus;
    if (dynamicFlag("Checked")) flags |= StyleSheet::StateChecked;
    return flags;
}

KyString KyWidget::resolveStyleProperty_(const StyleSheet& sheet, const KyString& name, std::uint32_t state) const {
    if (state == CurrentState) state = styleStateFlags_();
    return sheet.resolveProperty_(styleSelectors_(), name, state, getObjectName());
}

KyString KyWidget::styleProperty(const KyString& name, std::uint32_t state) const {
    return resolveStyleProperty_(getToolSheet(), name, state);
}

bool KyWidget::hasExplicitStyledStateProperty(std::uint32_t state, const KyString& name) const {
    if (state == CurrentState) state = styleStateFlags_();
    bool isExplicit = false;
    const KyString* value =
        getToolSheet().findProperty_(styleSelectors_(), name.view(), state, getObjectName().view(), &isExplicit);
    return value && isExplicit;
}

const KyWidget::ResolvedStyleSnapshot_& KyWidget::styleSnapshot_(std::uint32_t state) const {
    StyleCache_& s = *style_;
    const bool current = state == CurrentState;
    if (current) {
        state = styleStateFlags_();
        if (s.currentValid && s.currentMask == state) return s.current;
    } else if (auto it = s.byMask.find(state); it != s.byMask.end()) {
        return it->second;
    }
    ky::gui::perf::addCount("style.snapshotBuilds");
    ResolvedStyleSnapshot_ snap;
    const Resolver r{getToolSheet(), styleSelectors_(), getObjectName(), state};

    if (const KyString* v = r.find("background-color")) {
        float alpha = 1.0f;
        if (StyleSheet::tryParseColor_(*v, snap.background, &alpha)) {
            snap.hasBackground = true;
            snap.backgroundAlpha = alpha;
            snap.paintBackground = alpha > 0.0f;
        }
    }
    if (const KyString* v = r.find("border-color"))
        snap.hasBorderColor = StyleSheet::tryParseColor_(*v, snap.borderColor);
    if (const KyString* v = r.find("border-width")) {
        snap.hasBorderWidth = true;
        snap.borderWidth = std::max(0, StyleSheet::parsePixelValue(*v, 0));
    }
    if (const KyString* v = r.find("border-style")) snap.borderStyleNone = v->trimmed().toLower() == "none";
    if (const KyString* v = r.find("border-radius")) {
        snap.hasRadius = true;
        snap.radius = StyleSheet::parseBoxValues(*v, {});
    }
    static const char* const kCorners[4] = {"border-top-left-radius", "border-top-right-radius",
                                            "border-bottom-right-radius", "border-bottom-left-radius"};
    for (int i = 0; i < 4; ++i)
        if (const KyString* v = r.find(kCorners[i])) {
            snap.hasRadius = true;
            snap.radius.v[i] = std::max(0, StyleSheet::parsePixelValue(*v, snap.radius.v[i]));
        }
    if (const KyString* v = r.find("color")) snap.hasTextColor = StyleSheet::tryParseColor_(*v, snap.textColor);
    if (const KyString* v = r.find("padding")) {
        snap.hasPadding = true;
        snap.padding = StyleSheet::parseBoxValues(*v, {});
    }
    static const char* const kSides[4] = {"padding-top", "padding-right", "padding-bottom", "padding-left"};
    for (int i = 0; i < 4; ++i)
        if (const KyString* v = r.find(kSides[i])) {
            snap.hasPadding = true;
            snap.padding.v[i] = StyleSheet::parsePixelValue(*v, snap.padding.v[i]);
        }
    if (const KyString* v = r.find("min-width")) snap.hasMinWidth = true, snap.minWidth = lengthOf(v, 0);
    if (const KyString* v = r.find("min-height")) snap.hasMinHeight = true, snap.minHeight = lengthOf(v, 0);
    if (const KyString* v = r.find("max-width"))
        snap.hasMaxWidth = true, snap.maxWidth = lengthOf(v, ResolvedStyleSnapshot_::kNoMaximum);
    if (const KyString* v = r.find("max-height"))
        snap.hasMaxHeight = true, snap.maxHeight = lengthOf(v, ResolvedStyleSnapshot_::kNoMaximum);
    if (const KyString* v = r.find("font-family")) {
        snap.fontFamily = StyleSheet::parseFontFamilyValue(*v);
        snap.hasFontFamily = !snap.fontFamily.isEmpty();
    }
    if (const KyString* v = r.find("font-size"))
        if (auto size = StyleSheet::parseFontSize(*v)) snap.hasFontSize = true, snap.fontSize = *size;
    if (const KyString* v = r.find("font-weight"))
        snap.hasFontWeight = true, snap.fontWeight = StyleSheet::parseFontWeightValue(*v, getFont().weight);
    if (const KyString* v = r.find("box-shadow")) snap.hasBoxShadow = true, snap.boxShadow = *v;

    if (current) {
        s.current = std::move(snap);
        s.currentMask = state;
        s.currentValid = true;
        return s.current;
    }
    return s.byMask[state] = std::move(snap);
}

bool KyWidget::resolveStyledBackground(KyColor& colour, bool& paint, std::uint32_t state) const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_(state);
    if (!s.hasBackground) return false;
    colour = s.background;
    paint = s.paintBackground;
    return true;
}

bool KyWidget::resolveStyledBorder(KyColor& colour, int& width, std::uint32_t state) const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_(state);
    if (s.hasBorderColor) colour = s.borderColor;
    width = s.effectiveBorderWidth();
    return s.hasBorderColor || s.hasBorderWidth;
}

ky::gui::StyleBox KyWidget::resolveStyledBorderCorners(std::uint32_t state) const { return styleSnapshot_(state).radius; }

bool KyWidget::resolveStyledTextColor(KyColor& colour, std::uint32_t state) const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_(state);
    if (!s.hasTextColor) return false;
    colour = s.textColor;
    return true;
}

ky::gui::StyleBox KyWidget::resolveStyledPadding(std::uint32_t state) const { return styleSnapshot_(state).padding; }

KyFont KyWidget::resolveStyledFont(std::uint32_t state) const {
    const ResolvedStyleSnapshot_& s = styleSnapshot_(state);
    KyFont font = getFont();
    if (s.hasFontFamily) font.family = s.fontFamily.toWString();
    if (s.hasFontSize) {
        font.pixelSize = s.fontSize.pixelSize;
        font.pointSize = s.fontSize.pointSize;
    }
    if (s.hasFontWeight) font.weight = s.fontWeight;
    return font;
}

KyString KyWidget::resolveStyledBoxShadow(std::uint32_t state) const { return styleSnapshot_(state).boxShadow; }
