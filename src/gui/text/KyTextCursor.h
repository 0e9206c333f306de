// KyTextCursor: a position and an anchor in a KyTextDocument, the moves an
// editor makes with them, and the edits at them.
//
// The span between anchor and position is the selection. Moves go by code
// point, word, line (block), page-free vertical steps and the whole
// document; vertical moves keep the byte column the cursor had before the
// first of them. Every cursor is known to its document, which moves it when
// text is inserted or removed anywhere: text inserted at or before the
// cursor pushes it on, text removed around it pulls it to the cut. So an
// editor's cursor stays on its text while the log it shows is trimmed at the
// top and fed at the bottom through other cursors.
//
// Copying a cursor makes an independent cursor at the same place. A cursor
// belongs to its document's thread; one that outlives its document becomes
// null (no document, every edit refused).
#pragma once

#include <cstddef>
#include <memory>

#include "gui/text/KyTextBlock.h"

class KyTextDocument;

namespace ky::detail {
/// What the document moves on every edit.
struct TextCursorData {
    KyTextDocument* document = nullptr;
    int position = 0;
    int anchor = 0;
    int column = -1;       ///< byte column kept across vertical moves, -1 when none
    int editDepth = 0;     ///< edit blocks this cursor opened and has not closed
    std::size_t slot = 0;  ///< place in the document's table
};
} // namespace ky::detail

/// A cursor with a selection in a text document.
class KyTextCursor {
public:
    enum MoveMode { MoveAnchor, KeepAnchor };
    enum MoveOperation {
        NoMove,
        Start,
        End,
        StartOfBlock,
        EndOfBlock,
        StartOfLine, ///< lines are blocks: the same as StartOfBlock
        EndOfLine,
        PreviousBlock, ///< to the start of the block before
        NextBlock,     ///< to the start of the block after
        Up,            ///< to the block before, at the kept column
        Down,
        PreviousCharacter,
        NextCharacter,
        Left = PreviousCharacter,
        Right = NextCharacter,
        PreviousWord, ///< to the start of the word before
        NextWord,     ///< to the start of the word after
        StartOfWord,
        EndOfWord,
    };
    enum SelectionType {
        WordUnderCursor,
        LineUnderCursor,  ///< the block's text
        BlockUnderCursor, ///< the block's text and one newline next to it
        Document,
    };

    KyTextCursor();
    explicit KyTextCursor(KyTextDocument* document);
    /// At the start of block's text.
    explicit KyTextCursor(const KyTextBlock& block);
    KyTextCursor(const KyTextCursor& other);
    KyTextCursor(KyTextCursor&& other) noexcept;
    KyTextCursor& operator=(const KyTextCursor& other);
    KyTextCursor& operator=(KyTextCursor&& other) noexcept;
    ~KyTextCursor();

    bool isNull() const { return !d_ || !d_->document; }
    KyTextDocument* document() const { return d_ ? d_->document : nullptr; }

    int position() const { return d_ ? d_->position : 0; }
    int anchor() const { return d_ ? d_->anchor : 0; }
    /// Moves to pos (clamped, aligned to a code point); MoveAnchor drops the selection.
    void setPosition(int pos, MoveMode mode = MoveAnchor);
    /// Makes the move n times; false when it could not make all of them.
    bool movePosition(MoveOperation op, MoveMode mode = MoveAnchor, int n = 1);

    bool hasSelection() const { return d_ && d_->position != d_->anchor; }
    int selectionStart() const;
    int selectionEnd() const;
    KyString selectedText() const;
    void clearSelection();
    void select(SelectionType selection);

    // Edits, each one undo step (with its removal of the selection).
    /// Replaces the selection with text; "\r\n" and lone "\r" become "\n".
    void insertText(const KyString& text);
    void removeSelectedText();
    /// Removes the selection, else the code point after the cursor.
    void deleteChar();
    /// Removes the selection, else the code point before the cursor.
    void deletePreviousChar();
    /// Opens an edit block on the document; a cursor that dies closes what it opened.
    void beginEditBlock();
    void endEditBlock();

    KyTextBlock block() const;
    int blockNumber() const;
    /// Bytes from the start of the block to the cursor.
    int positionInBlock() const;
    bool atStart() const { return position() == 0; }
    bool atEnd() const;
    bool atBlockStart() const { return positionInBlock() == 0; }
    bool atBlockEnd() const;

    /// Same document, position and anchor.
    friend bool operator==(const KyTextCursor& a, const KyTextCursor& b);

private:
    bool moveOnce_(MoveOperation op, int n);
    int wordClassAt_(int pos) const;
    void attach_(KyTextDocument* document, int position, int anchor);
    void detach_();

    std::unique_ptr<ky::detail::TextCursorData> d_;
};
