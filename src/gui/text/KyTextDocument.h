// KyTextDocument: the text of an editor or a log, its blocks (lines), its
// undo history, and the notices that views, cursors and highlighters follow.
//
// Text lives in a KyPieceTable, so inserting anywhere, appending at the end,
// removing from the start, and the block lookups ("block n", "block count",
// "position of block n", "block at a position") cost a walk down a balanced
// tree, independent of the document's length. Positions are byte offsets
// into UTF-8 text; edits are clamped to the text and widened to whole code
// points, and inserted bytes that are not UTF-8 become U+FFFD, so the text
// is always valid UTF-8. Blocks are split at '\n' only.
//
// Every edit is one undo step, except that typing (one code point at a time,
// next to the previous one, no newline) and deleting one code point at a time
// join the step before them, and everything between beginEditBlock() and the
// matching endEditBlock() is one step. The history keeps copies of the text
// it needs, so the buffers can be compacted at any time: when dead bytes
// outgrow the live text (and 1 MiB), the live text becomes the new original
// buffer. A log that never undoes turns the history off.
//
// After each edit, in this order: text cursors are moved, attached
// highlighters re-highlight the blocks they must, then contentsChange
// (position, bytes removed, bytes added), blockCountChanged when the count
// moved, and contentsChanged are emitted. Belongs to the thread that made it
// (the main thread for anything on screen); no locking.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/object/KyObject.h"
#include "gui/text/KyPieceTable.h"
#include "gui/text/KyTextBlock.h"

class KySyntaxHighlighter;
namespace ky::detail {
struct TextCursorData;
}

/// Plain UTF-8 text with a line index and an undo history.
class KyTextDocument : public KyObject {
    KY_OBJECT(KyTextDocument, KyObject)

public:
    /// Documents stop growing below 2 GiB: positions are ints.
    static constexpr int kMaxLength = 0x7FFFFFF0;

    explicit KyTextDocument(KyObject* parent = nullptr);
    explicit KyTextDocument(const KyString& text, KyObject* parent = nullptr);
    ~KyTextDocument() override;

    // The whole text.
    /// Replaces the text; the undo history is dropped and cursors go to 0.
    void setPlainText(const KyString& text);
    KyString toPlainText() const;
    void clear() { setPlainText(KyString()); }
    bool isEmpty() const { return length() == 0; }
    /// Bytes of text.
    int length() const { return static_cast<int>(table_.length()); }
    /// Bytes position..position+count-1, clamped.
    KyString text(int position, int count) const;
    /// The byte at position, '\0' outside the text.
    char byteAt(int position) const;

    // Blocks.
    int blockCount() const { return static_cast<int>(table_.newlineCount()) + 1; }
    /// The block holding position (clamped to the text).
    int blockNumberAt(int position) const;
    /// Where block n starts, -1 when there is no block n.
    int blockPosition(int n) const;
    /// Bytes of block n without its newline, 0 when there is no block n.
    int blockLength(int n) const;
    KyString blockText(int n) const;
    KyTextBlock findBlockByNumber(int n) const { return KyTextBlock(this, n); }
    KyTextBlock findBlock(int position) const { return KyTextBlock(this, blockNumberAt(position)); }
    KyTextBlock firstBlock() const { return KyTextBlock(this, 0); }
    KyTextBlock lastBlock() const { return KyTextBlock(this, blockCount() - 1); }

    // Code points.
    /// Start of the code point after the one at position (length() at the end).
    int nextCodePoint(int position) const;
    /// Start of the code point before position (0 at the start).
    int previousCodePoint(int position) const;
    /// position clamped to the text and moved back to a code-point start.
    int alignToCodePoint(int position) const;

    // Editing.
    /// Inserts text at position (clamped, aligned); false when the document would pass kMaxLength.
    bool insert(int position, const KyString& text);
    /// Removes count bytes from position, widened to whole code points; false when nothing was there.
    bool remove(int position, int count);
    /// Adds text as a new last block (into block 0 of an empty document), as one step.
    void appendPlainText(const KyString& text);
    /// Edits until the matching endEditBlock() form one undo step. Nests.
    void beginEditBlock();
    void endEditBlock();
    bool isInEditBlock() const { return editDepth_ > 0; }

    // Undo.
    bool isUndoRedoEnabled() const { return undoEnabled_; }
    /// Turning it off drops the history.
    void setUndoRedoEnabled(bool enabled);
    bool isUndoAvailable() const { return !undo_.empty(); }
    bool isRedoAvailable() const { return !redo_.empty(); }
    int availableUndoSteps() const { return static_cast<int>(undo_.size()); }
    int availableRedoSteps() const { return static_cast<int>(redo_.size()); }
    /// Reverts the last step; returns where a cursor belongs afterwards, or -1
    /// when there is nothing to undo (or an edit block is open).
    int undo();
    /// Repeats the last undone step; same result as undo().
    int redo();
    void clearUndoRedoStacks();
    /// Whether the text differs from the last setModified(false) (undo back to that point clears it).
    bool isModified() const { return modified_; }
    void setModified(bool modified);

    // Storage figures, for diagnostics and benchmarks.
    int pieceCount() const { return static_cast<int>(table_.pieceCount()); }
    std::size_t bufferBytes() const { return table_.bufferBytes(); }

    KY_SIGNAL(contentsChange, int, int, int)
    KY_SIGNAL(contentsChanged)
    KY_SIGNAL(blockCountChanged, int)
    KY_SIGNAL(undoAvailable, bool)
    KY_SIGNAL(redoAvailable, bool)
    KY_SIGNAL(modificationChanged, bool)

private:
    friend class KyTextCursor;
    friend class KySyntaxHighlighter;

    struct Command_ {
        bool insert = true;
        int position = 0;
        std::string text;
    };
    struct Step_ {
        std::vector<Command_> commands;
        bool typing = false; ///< may take the next keystroke
    };
    /// Restores the flags and signals after the history moved.
    struct HistoryNotice_ {
        explicit HistoryNotice_(KyTextDocument* d);
        ~HistoryNotice_();
        KyTextDocument* d;
        bool undo, redo;
    };

    bool insert_(int position, std::string_view text, bool record);
    bool remove_(int position, int count, bool record);
    void record_(Command_ command);
    bool mergeTyping_(const Command_& command);
    void changed_(int position, int removed, int added, int oldBlockCount, bool removedWholeLines);
    void updateModified_();
    void compactIfWasteful_();
    int newlinesIn_(int position, int count) const;

    void registerCursor_(ky::detail::TextCursorData* cursor);
    void unregisterCursor_(ky::detail::TextCursorData* cursor);
    void attachHighlighter_(KySyntaxHighlighter* highlighter);
    void detachHighlighter_(KySyntaxHighlighter* highlighter);

    KyPieceTable table_;
    std::vector<Step_> undo_;
    std::vector<Step_> redo_;
    int editDepth_ = 0;
    bool editStepOpen_ = false;
    bool undoEnabled_ = true;
    bool modified_ = false;
    bool dirty_ = false; ///< an edit since the modified flag was last worked out
    long cleanStep_ = 0; ///< undo depth of the unmodified text; -1 when it cannot come back
    std::vector<ky::detail::TextCursorData*> cursors_;
    std::vector<KySyntaxHighlighter*> highlighters_;
};
