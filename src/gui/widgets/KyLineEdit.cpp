// KyLineEdit: editing, keys, mouse, clipboard and painting of the text field.
#include "gui/widgets/KyLineEdit.h"

#include <X11/keysym.h>

#include <algorithm>
#include <cstring>
#include <cwctype>

#include "core/runtime/KyTimer.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyStyle.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

constexpr KyColor kFill{255, 255, 255};
constexpr KyColor kBorder{220, 224, 232};
constexpr KyColor kDisabledFill{245, 245, 245};
constexpr KyColor kDisabledBorder{210, 210, 210};
constexpr KyColor kPlaceholder{160, 160, 160};
constexpr KyColor kPlaceholderDisabled{150, 150, 150};
constexpr KyColor kFocusBorder{59, 130, 246};
constexpr KyColor kSelection{191, 219, 254};
constexpr KyColor kText{24, 28, 36};
constexpr int kDefaultPaddingV = 4;
constexpr int kDefaultPaddingH = 8;

const char* const kDefaultSheet =
    "KyLineEdit { background-color: rgb(255, 255, 255); border-color: rgb(220, 224, 232); border-width: 1px;"
    " border-radius: 6px; padding: 4px 8px; color: rgb(24, 28, 36); font-size: 14px;"
    " focus-border-color: rgb(59, 130, 246); selection-background-color: rgb(191, 219, 254);"
    " placeholder-color: rgb(160, 160, 160); }"
    "KyLineEdit:hover { border-color: rgb(148, 163, 184); }"
    "KyLineEdit:disabled { background-color: rgb(245, 245, 245); border-color: rgb(210, 210, 210);"
    " color: rgb(150, 150, 150); placeholder-color: rgb(150, 150, 150); }";

bool sheetColor(const KyWidget* w, const char* name, KyColor& out) {
    const KyString value = w->styleProperty(name);
    return !value.isEmpty() && ky::gui::StyleSheet::tryParseColor_(value, out);
}

// The code point that starts at pos (a boundary), or 0 past the end.
char32_t codePointAt(const KyString& text, std::size_t pos) {
    if (pos >= text.size()) return 0;
    const std::size_t end = text.nextCodePoint(pos);
    const std::u32string cps = text.mid(pos, end - pos).toUtf32();
    return cps.empty() ? 0 : cps[0];
}

// Overwrites a string's bytes where they lie before it lets them go.
void scrub(std::string& bytes) {
    if (bytes.empty()) return;
    volatile char* p = bytes.data();
    for (std::size_t i = 0; i < bytes.size(); ++i) p[i] = 0;
}

KyPlatformIntegration* platform() {
    KyGuiApplication* app = KyGuiApplication::instance();
    return app ? app->platformIntegration() : nullptr;
}

} // namespace

KyLineEdit::KyLineEdit(KyWidget* parent) : KyWidget(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    setCursor(IBeamCursor);
    setFocusPolicy(StrongFocus);
    // A short secret typed into the field then stays in one buffer, which
    // clearSecurely overwrites; growing would leave copies in freed memory.
    Text_.reserve(64);
    blinkTimer_ = new KyTimer(this);
    blinkTimer_->setInterval(kBlinkIntervalMs);
    blinkTimer_->connectTimeout([this] { setBlinkOn(!getBlinkOn()); });
    resize(200, 32);
}

KyLineEdit::~KyLineEdit() {
    if (completer_ && KyObject::isLive(completer_) && completer_->widget() == this) completer_->setWidget(nullptr);
}

// ---------------------------------------------------------------------------
// UTF-8 positions

std::size_t KyLineEdit::previousUtf8Boundary_(const KyString& text, std::size_t pos) {
    pos = std::min(pos, text.size());
    if (pos == 0) return 0;
    --pos;
    while (pos > 0 && (static_cast<unsigned char>(text[pos]) & 0xC0) == 0x80) --pos;
    return pos;
}

std::size_t KyLineEdit::nextUtf8Boundary_(const KyString& text, std::size_t pos) {
    if (pos >= text.size()) return text.size();
    ++pos;
    while (pos < text.size() && (static_cast<unsigned char>(text[pos]) & 0xC0) == 0x80) ++pos;
    return pos;
}

std::size_t KyLineEdit::clampUtf8Boundary_(const KyString& text, std::size_t pos) {
    pos = std::min(pos, text.size());
    while (pos > 0 && pos < text.size() && (static_cast<unsigned char>(text[pos]) & 0xC0) == 0x80) --pos;
    return pos;
}

bool KyLineEdit::isWordCodePoint_(char32_t cp) {
    if (cp == U'_') return true;
    if (cp < 0x80) return (cp >= U'a' && cp <= U'z') || (cp >= U'A' && cp <= U'Z') || (cp >= U'0' && cp <= U'9');
    const auto wc = static_cast<wint_t>(cp);
    return !std::iswspace(wc) && !std::iswpunct(wc);
}

// ---------------------------------------------------------------------------
// Text, echo and selection

bool KyLineEdit::masked_() const {
    const EchoModeEnum mode = getEchoMode();
    return mode == NoEcho || mode == PasswordEcho || mode == PasswordEchoOnEdit;
}

void KyLineEdit::updateDisplayText_() {
    KyString display;
    switch (getEchoMode()) {
    case NoEcho: break;
    case PasswordEcho: display = KyString(getText().codePointCount(), '*'); break;
    // Shown while the user types into the focused field, masked otherwise.
    case PasswordEchoOnEdit:
        display = hasFocus() ? getText() : KyString(getText().codePointCount(), '*');
        break;
    default: display = getText(); break;
    }
    if (display == getDisplayText()) return;
    // The old display may be the secret itself (echo on edit): overwrite it.
    scrub(const_cast<std::string&>(getDisplayText().str()));
    setDisplayText(display);
    scrub(display.str());
}

std::size_t KyLineEdit::displayOffset_(std::size_t textPos) const {
    const KyString& text = getText();
    textPos = std::min(textPos, text.size());
    if (getEchoMode() == NoEcho) return 0;
    if (getDisplayText() == text) return textPos;
    // Masked: one "*" per character before the position.
    std::size_t count = 0;
    for (std::size_t pos = 0; pos < textPos; pos = nextUtf8Boundary_(text, pos)) ++count;
    return count;
}

std::size_t KyLineEdit::textOffset_(std::size_t displayPos) const {
    const KyString& text = getText();
    if (getEchoMode() == NoEcho) return getCursorPosition();
    if (getDisplayText() == text) return clampUtf8Boundary_(text, displayPos);
    std::size_t pos = 0;
    for (std::size_t i = 0; i < displayPos && pos < text.size(); ++i) pos = nextUtf8Boundary_(text, pos);
    return pos;
}

void KyLineEdit::on_Text_changed(const KyString&) {
    if (!editing_) setCursorAndAnchor_(getText().size(), getText().size());
    updateDisplayText_();
    update();
}

void KyLineEdit::on_DisplayText_changed(const KyString&) { update(); }
void KyLineEdit::on_Placeholder_changed(const KyString&) { update(); }

void KyLineEdit::on_EchoMode_changed(const EchoModeEnum&) { updateDisplayText_(); update(); }

void KyLineEdit::on_ReadOnly_changed(const bool&) { update(); }

void KyLineEdit::on_BlinkOn_changed(const bool&) { update(); }

KyString KyLineEdit::selectedText() const {
    const int s = getSelectionStart(), e = getSelectionEnd();
    return getText().mid(static_cast<std::size_t>(s), static_cast<std::size_t>(e - s));
}

void KyLineEdit::setCursorAndAnchor_(std::size_t cursor, std::size_t anchor) {
    const KyString& text = getText();
    cursor = clampUtf8Boundary_(text, cursor);
    anchor_ = clampUtf8Boundary_(text, anchor);
    movingCursor_ = true;
    setCursorPosition(static_cast<int>(cursor));
    movingCursor_ = false;
    setSelectionStart(static_cast<int>(std::min(cursor, anchor_)));
    setSelectionEnd(static_cast<int>(std::max(cursor, anchor_)));
    update();
}

void KyLineEdit::moveCursor_(std::size_t pos, bool extend) { setCursorAndAnchor_(pos, extend ? anchor_ : pos); }

void KyLineEdit::on_CursorPosition_changed(const int& pos) {
    CursorPosition_ = static_cast<int>(clampUtf8Boundary_(getText(), static_cast<std::size_t>(std::max(0, pos))));
    if (movingCursor_) return;
    // Set from outside: the selection collapses onto the cursor.
    anchor_ = static_cast<std::size_t>(CursorPosition_);
    setSelectionStart(CursorPosition_);
    setSelectionEnd(CursorPosition_);
    update();
}

void KyLineEdit::setSelection(int start, int length) {
    const KyString& text = getText();
    const long long a = std::clamp<long long>(start, 0, static_cast<long long>(text.size()));
    const long long b = std::clamp<long long>(static_cast<long long>(start) + length, 0, static_cast<long long>(text.size()));
    setCursorAndAnchor_(static_cast<std::size_t>(b), static_cast<std::size_t>(a));
}

void KyLineEdit::selectAll() { setCursorAndAnchor_(getText().size(), 0); }

void KyLineEdit::deselect() { moveCursor_(static_cast<std::size_t>(getCursorPosition()), false); }

void KyLineEdit::replaceRange_(std::size_t from, std::size_t to, const KyString& inserted) {
    KyString text = getText();
    from = clampUtf8Boundary_(text, from);
    to = clampUtf8Boundary_(text, std::max(from, to));
    const std::string_view bytes = inserted.view();
    text.remove(from, to - from);
    text.insert(from, bytes);
    // The new text is copied into the field's own buffer (its reserved room
    // holds it), after the old bytes there were overwritten: a password's
    // characters leave no tail behind, and the working copy is scrubbed too.
    editing_ = true;
    scrub(Text_.str());
    setText(text);
    scrub(text.str());
    editing_ = false;
    setCursorAndAnchor_(from + bytes.size(), from + bytes.size());
    editedSinceFocus_ = true;
    textEdited(getText());
}

bool KyLineEdit::deleteSelection() {
    if (getReadOnly() || !hasSelectedText()) return false;
    replaceRange_(static_cast<std::size_t>(getSelectionStart()), static_cast<std::size_t>(getSelectionEnd()), KyString());
    return true;
}

void KyLineEdit::insert(const KyString& text) {
    if (getReadOnly()) return;
    // One line: a pasted line break ends the text there.
    KyString line = text;
    const std::size_t nl = line.view().find_first_of("\r\n");
    if (nl != std::string_view::npos) line = line.left(nl);
    if (!line.isValidUtf8()) line = KyString::fromUtf32(line.toUtf32());
    if (line.isEmpty() && !hasSelectedText()) return;
    replaceRange_(static_cast<std::size_t>(getSelectionStart()), static_cast<std::size_t>(getSelectionEnd()), line);
}

void KyLineEdit::clearSecurely() {
    const std::size_t n = getText().size();
    if (n > 0) {
        // Storing NULs of the same length writes over the bytes in place: the
        // field's buffer, the display copy and the property table's copy.
        const bool signals = setSignalsEnabled(false);
        editing_ = true;
        setText(KyString(n, '\0'));
        editing_ = false;
        setSignalsEnabled(signals);
    }
    setText(KyString());
}

void KyLineEdit::selectWordAtCursor_() {
    const KyString& text = getText();
    // A masked field has no words to show: select all of it.
    if (masked_()) {
        selectAll();
        return;
    }
    std::size_t start = clampUtf8Boundary_(text, static_cast<std::size_t>(getCursorPosition()));
    std::size_t end = start;
    while (start > 0) {
        const std::size_t prev = previousUtf8Boundary_(text, start);
        if (!isWordCodePoint_(codePointAt(text, prev))) break;
        start = prev;
    }
    while (end < text.size() && isWordCodePoint_(codePointAt(text, end))) end = nextUtf8Boundary_(text, end);
    // Between two non-word characters the one under the cursor is the "word".
    if (start == end && end < text.size()) end = nextUtf8Boundary_(text, end);
    setCursorAndAnchor_(end, start);
}

// ---------------------------------------------------------------------------
// Clipboard

void KyLineEdit::copySelectionToClipboard() {
    if (masked_() || !hasSelectedText()) return;
    if (KyPlatformIntegration* p = platform()) p->setClipboardText(selectedText());
}

void KyLineEdit::cut() {
    if (masked_() || getReadOnly() || !hasSelectedText()) return;
    copySelectionToClipboard();
    deleteSelection();
}

void KyLineEdit::paste() {
    if (getReadOnly()) return;
    KyPlatformIntegration* p = platform();
    if (!p) return;
    const KyString text = p->clipboardText();
    if (!text.isEmpty()) insert(text);
}

// ---------------------------------------------------------------------------
// Geometry

KyFont KyLineEdit::textFont_() const { return resolveStyledFont(); }

KyLineEdit::StyleBox KyLineEdit::resolvePadding() const {
    StyleBox out{{kDefaultPaddingV, kDefaultPaddingH, kDefaultPaddingV, kDefaultPaddingH}};
    const StyleBox sheet = resolveStyledPadding();
    static const char* const kSides[4] = {"padding-top", "padding-right", "padding-bottom", "padding-left"};
    const bool all = !styleProperty("padding").isEmpty();
    for (int i = 0; i < 4; ++i)
        if (all || !styleProperty(kSides[i]).isEmpty()) out.v[i] = std::max(0, sheet.v[i]);
    return out;
}

KyRect KyLineEdit::innerRect() const {
    const StyleBox pad = resolvePadding();
    KyColor ignored;
    int border = 1;
    if (!resolveStyledBorder(ignored, border)) border = 1;
    border = std::max(0, border);
    return {pad.left() + border, pad.top() + border, std::max(0, width() - pad.left() - pad.right() - 2 * border),
            std::max(0, height() - pad.top() - pad.bottom() - 2 * border)};
}

KySize KyLineEdit::sizeHint() const {
    const KyFont font = textFont_();
    const int px = font.pixelSize > 0 ? font.pixelSize : std::max(1, font.pointSize) * 96 / 72;
    const StyleBox pad = resolvePadding();
    const int line = px * 14 / 10;
    const int w = std::max(120, 12 * px) + pad.left() + pad.right() + 2;
    const int h = line + pad.top() + pad.bottom() + 2;
    return {std::clamp(w, minimumSize().width, maximumSize().width), std::clamp(h, minimumSize().height, maximumSize().height)};
}

int KyLineEdit::getCharacterIndexAtPosition(int x) const {
    const KyString& display = getDisplayText();
    if (display.isEmpty()) return 0;
    const KyRect inner = innerRect();
    const KyFont font = textFont_();
    const int fallback = static_cast<int>(display.codePointCount()) * 8;
    const int local = x - inner.x + getScrollOffset();
    if (local <= 0) return 0;
    std::size_t index = KyWidgetPlatformAdapter::characterIndexAtPosition(nativeHandle(), display, font, local, fallback);
    index = clampUtf8Boundary_(display, index);
    if (index < display.size()) {
        // Past the middle of a character the cursor goes after it.
        const std::size_t next = nextUtf8Boundary_(display, index);
        const int left = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), display, font, index, fallback);
        const int right = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), display, font, next, fallback);
        if (local * 2 > left + right) index = next;
    }
    return static_cast<int>(textOffset_(index));
}

void KyLineEdit::ensureCursorVisible(const KyString& text, int width) {
    if (width <= 0) return;
    const KyFont font = textFont_();
    const int fallback = static_cast<int>(text.codePointCount()) * 8;
    const int cursorX = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), text, font,
                                                                displayOffset_(getCursorPosition()), fallback);
    const int total = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), text, font, text.size(), fallback);
    int offset = getScrollOffset();
    if (cursorX - offset > width - 1) offset = cursorX - width + 1;
    if (cursorX < offset) offset = cursorX;
    // Text that shrank pulls back, so no empty room is left after its end.
    offset = std::min(offset, std::max(0, total - width + 1));
    setScrollOffset(std::max(0, offset));
}

// ---------------------------------------------------------------------------
// Painting

void KyLineEdit::paintEvent(PaintEvent* event) {
    KyPainter* p = event->painter();
    if (!p || !isVisibleInHierarchy()) return;
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const bool enabled = isEnabled();
    KyColor fill = enabled ? kFill : kDisabledFill;
    bool paintFill = true;
    if (s.hasBackground) fill = s.background, paintFill = s.paintBackground;
    KyColor border = enabled ? kBorder : kDisabledBorder;
    if (s.hasBorderColor) border = s.borderColor;
    const int borderWidth = s.hasBorderWidth || s.borderStyleNone ? s.effectiveBorderWidth() : 1;
    const bool focused = hasFocus() && enabled;
    if (focused) {
        border = kFocusBorder;
        sheetColor(this, "focus-border-color", border);
    }
    const KyRect box{0, 0, width(), height()};
    KyStyle::paintBox(p, box, fill, paintFill, border, borderWidth, s.radius);
    if (focused && borderWidth > 0) {
        // A second line inside the border makes focus read at a glance.
        StyleBox radii = s.radius;
        for (int& r : radii.v) r = std::max(0, r - borderWidth);
        KyStyle::strokeRoundedRect(p, {borderWidth, borderWidth, width() - 2 * borderWidth - 1, height() - 2 * borderWidth - 1},
                                   radii, border, 1);
    }

    const KyRect inner = innerRect();
    if (inner.isEmpty()) return;
    const KyFont font = textFont_();
    const KyString& display = getDisplayText();
    p->pushClipRect(inner);
    if (display.isEmpty() && getText().isEmpty()) {
        KyColor colour = enabled ? kPlaceholder : kPlaceholderDisabled;
        sheetColor(this, "placeholder-color", colour);
        p->drawText(inner, getPlaceholder(), DrawTextFormat::AlignVCenter, colour, font);
    }
    ensureCursorVisible(display, inner.width);
    const int offset = getScrollOffset();
    const int fallback = static_cast<int>(display.codePointCount()) * 8;
    auto xAt = [&](std::size_t textPos) {
        return inner.x - offset +
               KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), display, font, displayOffset_(textPos), fallback);
    };
    if (hasSelectedText() && !display.isEmpty()) {
        KyColor selection = kSelection;
        sheetColor(this, "selection-background-color", selection);
        const int x1 = xAt(static_cast<std::size_t>(getSelectionStart()));
        const int x2 = xAt(static_cast<std::size_t>(getSelectionEnd()));
        const int lineH = std::min(inner.height, std::max(1, (font.pixelSize > 0 ? font.pixelSize : 14) * 14 / 10));
        p->fillRect({x1, inner.y + (inner.height - lineH) / 2, std::max(1, x2 - x1), lineH}, selection, selection, 0);
    }
    KyColor textColour = enabled ? kText : kPlaceholderDisabled;
    if (s.hasTextColor) textColour = s.textColor;
    if (!display.isEmpty()) {
        // The text rectangle starts at the scrolled origin and is wide enough
        // for all of it; the clip above keeps it inside the field.
        const int total = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), display, font, display.size(), fallback);
        p->drawText({inner.x - offset, inner.y, std::max(total + 2, inner.width + offset), inner.height}, display,
                    DrawTextFormat::AlignVCenter, textColour, font);
    }
    if (focused && getBlinkOn()) {
        const int x = std::min(xAt(static_cast<std::size_t>(getCursorPosition())), inner.x + inner.width - 1);
        const int lineH = std::min(inner.height, std::max(1, (font.pixelSize > 0 ? font.pixelSize : 14) * 12 / 10));
        const int top = inner.y + (inner.height - lineH) / 2;
        p->drawLine(x, top, x, top + lineH - 1, textColour, 1);
    }
    p->popClipRect();
}

// ---------------------------------------------------------------------------
// Focus and blinking

void KyLineEdit::restartBlink_() {
    if (!hasFocus()) return;
    blinkTimer_->start();
    setBlinkOn(true);
    update();
}

void KyLineEdit::on_Focus_changed(const bool& focused) {
    KyWidget::on_Focus_changed(focused);
    if (focused) {
        editedSinceFocus_ = false;
        restartBlink_();
    } else {
        blinkTimer_->stop();
        setBlinkOn(false);
        dragging_ = false;
        if (editedSinceFocus_) {
            editedSinceFocus_ = false;
            editingFinished();
        }
    }
    if (getEchoMode() == PasswordEchoOnEdit) updateDisplayText_();
}

void KyLineEdit::on_Enable_changed(const bool& enabled) {
    KyWidget::on_Enable_changed(enabled);
    if (!enabled) clearFocus();
}

// ---------------------------------------------------------------------------
// Keys

bool KyLineEdit::handleShortcut_(KeyEvent* e) {
    const int key = e->keyCode();
    if (KyWidgetPlatformAdapter::matchesShortcutKey(key, 'c')) copySelectionToClipboard();
    else if (KyWidgetPlatformAdapter::matchesShortcutKey(key, 'x')) cut();
    else if (KyWidgetPlatformAdapter::matchesShortcutKey(key, 'v')) paste();
    else if (KyWidgetPlatformAdapter::matchesShortcutKey(key, 'a')) selectAll();
    else return false;
    return true;
}

void KyLineEdit::keyPressEvent(KeyEvent* e) {
    if (!hasFocus() || !isEnabled()) {
        e->ignore();
        return;
    }
    if (completer_ && completer_->handleEditorKeyPress(e)) {
        e->accept();
        return;
    }
    const int key = e->keyCode();
    const bool shift = e->shift();
    const KyString& text = getText();
    const std::size_t cursor = static_cast<std::size_t>(getCursorPosition());
    if (e->ctrl()) {
        if (!handleShortcut_(e)) {
            e->ignore();
            return;
        }
    } else {
        switch (key) {
        case XK_Left:
            if (hasSelectedText() && !shift) moveCursor_(static_cast<std::size_t>(getSelectionStart()), false);
            else moveCursor_(previousUtf8Boundary_(text, cursor), shift);
            break;
        case XK_Right:
            if (hasSelectedText() && !shift) moveCursor_(static_cast<std::size_t>(getSelectionEnd()), false);
            else moveCursor_(nextUtf8Boundary_(text, cursor), shift);
            break;
        case XK_Home: moveCursor_(0, shift); break;
        case XK_End: moveCursor_(text.size(), shift); break;
        case XK_BackSpace:
            if (getReadOnly()) break;
            if (!deleteSelection() && cursor > 0) replaceRange_(previousUtf8Boundary_(text, cursor), cursor, KyString());
            break;
        case XK_Delete:
            if (getReadOnly()) break;
            if (!deleteSelection() && cursor < text.size()) replaceRange_(cursor, nextUtf8Boundary_(text, cursor), KyString());
            break;
        case XK_Caps_Lock: setCapsLock(!getCapsLock()); break;
        case XK_Return:
        case XK_KP_Enter:
            returnPressed();
            editedSinceFocus_ = false;
            editingFinished();
            // Left to the parent: a spin box commits, a dialog presses its default button.
            e->ignore();
            return;
        default: {
            wchar_t ch = 0;
            bool printable = KyWidgetPlatformAdapter::translateCharacter(key, shift, getCapsLock(), ch);
            if (!printable && e->hasText() && e->text() >= 0x20 && e->text() != 0x7F) ch = e->text(), printable = true;
            if (!printable || e->alt() || getReadOnly()) {
                e->ignore();
                return;
            }
            insert(KyString::fromCodePoint(static_cast<char32_t>(ch)));
            break;
        }
        }
    }
    e->accept();
    restartBlink_();
    update();
}

// ---------------------------------------------------------------------------
// Mouse

void KyLineEdit::mousePressEvent(MouseEvent* e) {
    if (e->button() != 1 || !isEnabled()) {
        e->ignore();
        return;
    }
    // The press that follows a double click keeps the word it selected.
    if (e->clickCount() >= 2) return;
    const std::size_t pos = static_cast<std::size_t>(getCharacterIndexAtPosition(e->x()));
    moveCursor_(pos, e->shift());
    dragging_ = true;
    restartBlink_();
}

void KyLineEdit::mouseMoveEvent(MouseEvent* e) {
    if (!dragging_) {
        e->ignore();
        return;
    }
    moveCursor_(static_cast<std::size_t>(getCharacterIndexAtPosition(e->x())), true);
}

void KyLineEdit::mouseReleaseEvent(MouseEvent* e) {
    if (!dragging_ && e->button() != 1) {
        e->ignore();
        return;
    }
    dragging_ = false;
}

void KyLineEdit::mouseDoubleClickEvent(MouseEvent* e) {
    if (e->button() != 1 || !isEnabled()) {
        e->ignore();
        return;
    }
    moveCursor_(static_cast<std::size_t>(getCharacterIndexAtPosition(e->x())), false);
    selectWordAtCursor_();
    dragging_ = false;
}

void KyLineEdit::setCompleter(KyCompleter* completer) {
    if (completer_ == completer) return;
    KyCompleter* old = completer_;
    completer_ = completer;
    if (old && KyObject::isLive(old) && old->widget() == this) old->setWidget(nullptr);
    if (completer && completer->widget() != this) completer->setWidget(this);
}
