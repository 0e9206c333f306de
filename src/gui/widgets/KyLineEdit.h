// KyLineEdit: the single-line text field.
//
// The text is UTF-8; the cursor and the selection are byte offsets into it,
// always on code-point boundaries, so an edit never splits a character. What
// is painted is DisplayText, derived from Text by the echo mode: a password
// field paints one "*" per character and never hands its text to the
// clipboard. The selection is an anchor and the cursor; Shift moves the cursor
// and leaves the anchor. The cursor blinks on a 500 ms timer that runs only
// while the field has focus, so an idle window with fields costs no CPU.
//
// A field with a completer offers each key to it first (see KyCompleter).
// Return emits returnPressed and editingFinished and is then left to the
// parent (a spin box commits, a dialog presses its default button).
// GUI thread only, like every widget.
#pragma once

#include <cstddef>

#include "core/types/KyString.h"
#include "gui/widgets/KyWidget.h"

class KyTimer;
class KyCompleter;

/// What a line edit paints for its text. 1 and 2 are the plain and the masked look.
enum EchoModeEnum : int { NoEcho = 0, NormalEcho = 1, PasswordEcho = 2, PasswordEchoOnEdit = 3 };

/// A single-line text field with selection, clipboard, echo modes and a blinking cursor.
class KyLineEdit : public KyWidget {
    KY_OBJECT(KyLineEdit, KyWidget)

public:
    /// setText puts the cursor at the end of the new text and drops the selection.
    KY_PROPERTY_HANDLED(KyString, Text, KyString())
    KY_PROPERTY_HANDLED(KyString, DisplayText, KyString())
    KY_PROPERTY_HANDLED(KyString, Placeholder, KyString("Enter text..."))
    KY_PROPERTY_HANDLED(EchoModeEnum, EchoMode, NormalEcho)
    KY_PROPERTY_HANDLED(bool, ReadOnly, false)
    /// A byte offset; a value inside a character or past the end is snapped back.
    KY_PROPERTY_HANDLED(int, CursorPosition, 0)
    KY_PROPERTY_INIT(int, SelectionStart, 0)
    KY_PROPERTY_INIT(int, SelectionEnd, 0)
    KY_PROPERTY_INIT(int, ScrollOffset, 0)
    KY_PROPERTY_INIT(bool, CapsLock, false)
    KY_PROPERTY_HANDLED(bool, BlinkOn, false)

    /// The user changed the text (typing, deleting, cut or paste), not setText.
    KY_SIGNAL(textEdited, const KyString&)
    KY_SIGNAL(returnPressed)
    /// Return was pressed, or the field lost focus after an edit.
    KY_SIGNAL(editingFinished)

    static constexpr int kBlinkIntervalMs = 500;

    explicit KyLineEdit(KyWidget* parent = nullptr);
    ~KyLineEdit() override;

    /// Empties the field after overwriting the bytes the text occupied, for
    /// secrets such as a password that must not linger in memory.
    void clearSecurely();

    int cursorPosition() const { return getCursorPosition(); }
    bool hasSelectedText() const { return getSelectionStart() != getSelectionEnd(); }
    KyString selectedText() const;
    /// Selects bytes [start, start + length), snapped to characters; the cursor ends at the far end.
    void setSelection(int start, int length);
    void selectAll();
    void deselect();

    /// Copies the selection; does nothing in a masked field or without a selection.
    void copySelectionToClipboard();
    void cut();
    void paste();
    /// Removes the selected text (false when there is none or the field is read-only).
    bool deleteSelection();
    /// Inserts text at the cursor, replacing any selection, as if typed.
    void insert(const KyString& text);
    /// Expands the selection around the cursor over word characters.
    void selectWordAtCursor_();

    /// Scrolls so the cursor lies inside width pixels of text (the display text).
    void ensureCursorVisible(const KyString& text, int width);
    /// The text offset (a character boundary) nearest to x in widget coordinates.
    int getCharacterIndexAtPosition(int x) const;
    /// Padding: top, right, bottom, left; sheet sides where set, defaults elsewhere.
    StyleBox resolvePadding() const;
    /// The rectangle the text is drawn and clipped in.
    KyRect innerRect() const;

    void setCompleter(KyCompleter* completer);
    KyCompleter* completer() const { return completer_; }

    KySize sizeHint() const override;

    static std::size_t previousUtf8Boundary_(const KyString& text, std::size_t pos);
    static std::size_t nextUtf8Boundary_(const KyString& text, std::size_t pos);
    /// pos clamped to the text and moved back to the start of its character.
    static std::size_t clampUtf8Boundary_(const KyString& text, std::size_t pos);
    /// "_", ASCII letters and digits, and above ASCII anything neither space nor punctuation.
    static bool isWordCodePoint_(char32_t cp);

    void paintEvent(PaintEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void mouseReleaseEvent(MouseEvent* event) override;
    void mouseDoubleClickEvent(MouseEvent* event) override;
    void on_Focus_changed(const bool& focused) override;
    void on_Enable_changed(const bool& enabled) override;
    virtual void on_Text_changed(const KyString& text);
    virtual void on_CursorPosition_changed(const int& pos);
    virtual void on_DisplayText_changed(const KyString& text);
    virtual void on_Placeholder_changed(const KyString& text);
    virtual void on_EchoMode_changed(const EchoModeEnum& mode);
    virtual void on_ReadOnly_changed(const bool& readOnly);
    virtual void on_BlinkOn_changed(const bool& on);

private:
    bool masked_() const;
    void updateDisplayText_();
    /// The byte offset in DisplayText that matches a text offset.
    std::size_t displayOffset_(std::size_t textPos) const;
    /// The text offset that matches a DisplayText offset.
    std::size_t textOffset_(std::size_t displayPos) const;
    /// Moves the cursor; the anchor follows unless extend.
    void moveCursor_(std::size_t pos, bool extend);
    void setCursorAndAnchor_(std::size_t cursor, std::size_t anchor);
    /// Replaces bytes [from, to) with text and puts the cursor after it; emits textEdited.
    void replaceRange_(std::size_t from, std::size_t to, const KyString& text);
    bool handleShortcut_(KeyEvent* event);
    void restartBlink_();
    KyFont textFont_() const;

    KyTimer* blinkTimer_ = nullptr;
    KyCompleter* completer_ = nullptr;
    std::size_t anchor_ = 0;
    bool editing_ = false;        // an edit of our own is storing Text: keep the cursor
    bool movingCursor_ = false;   // the selection is being set with the cursor
    bool dragging_ = false;
    bool editedSinceFocus_ = false;
};
