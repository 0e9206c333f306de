// KySyntaxHighlighter: colours the blocks of a KyTextDocument through a
// subclass's highlightBlock(), and keeps the result per block for the editor
// that paints them.
//
// For every block the highlighter stores the format ranges that
// highlightBlock() set (sorted, never overlapping: a later setFormat wins
// where it overlaps an earlier one) and an integer state handed to the next
// block, as multi-line constructs (comments, strings) need. On each edit the
// document tells the highlighter what changed before anyone else hears of
// it; the highlighter then runs highlightBlock() only for the blocks whose
// text changed, and for the blocks after them as long as the state a block
// ends in differs from the one its successor was highlighted with. Appending
// a line to a log highlights that line; trimming lines off its top
// highlights nothing. blocksHighlighted(first, last) names the blocks whose
// formats were recomputed, so an editor can repaint just those.
//
// Belongs to its document's thread. A highlighter made with a document is
// that document's child and dies with it; since highlightBlock() cannot run
// while the subclass is being built, that document is highlighted whole at
// its first edit or the first question about formats.
#pragma once

#include <deque>

#include "core/object/KyObject.h"
#include "gui/text/KyTextBlock.h"
#include "gui/text/KyTextCharFormat.h"

class KyTextDocument;

/// Base of the highlighters that colour a document.
class KySyntaxHighlighter : public KyObject {
    KY_OBJECT(KySyntaxHighlighter, KyObject)

public:
    explicit KySyntaxHighlighter(KyObject* parent = nullptr);
    /// Attached to document, which becomes the parent.
    explicit KySyntaxHighlighter(KyTextDocument* document);
    ~KySyntaxHighlighter() override;

    KyTextDocument* document() const { return document_; }
    /// Leaves the old document and highlights the whole new one (null: none).
    void setDocument(KyTextDocument* document);
    /// Highlights every block again (after the rules changed).
    void rehighlight();
    /// Highlights block again, and the blocks after it whose state then changes.
    void rehighlightBlock(const KyTextBlock& block);

    /// The ranges of block n, sorted by start (empty for a block out of range).
    const KyVector<KyTextFormatRange>& formats(int blockNumber) const;
    /// The format at byte column of block n (empty where none is set).
    KyTextCharFormat formatAt(int blockNumber, int column) const;
    /// The state block n ended in; -1 unless highlightBlock set one.
    int blockState(int blockNumber) const;

    KY_SIGNAL(blocksHighlighted, int, int)

protected:
    /// Colours one block: call setFormat for its runs and setCurrentBlockState if needed.
    virtual void highlightBlock(const KyString& text) = 0;

    /// Only inside highlightBlock: format for bytes start..start+count-1 of the block (clamped).
    void setFormat(int start, int count, const KyTextCharFormat& format);
    void setFormat(int start, int count, const KyColor& color);
    /// The format set so far at position of the current block.
    KyTextCharFormat format(int position) const;
    /// The state the block before ended in (-1 for the first block or none set).
    int previousBlockState() const;
    /// Starts at -1 for every run of highlightBlock.
    int currentBlockState() const { return currentState_; }
    void setCurrentBlockState(int state) { currentState_ = state; }
    KyTextBlock currentBlock() const;

private:
    friend class KyTextDocument;
    struct BlockData_ {
        KyVector<KyTextFormatRange> formats;
        int state = -1;
        int previousState = -1; ///< the state handed in when this block was highlighted
    };

    void documentChanged_(int position, int removed, int added, int oldBlockCount, bool removedWholeLines);
    void documentGone_();
    /// Highlights dirty blocks first..last, then on while states ripple; -1..-2 for none dirty from first.
    void highlightRange_(int first, int last);
    void highlightOne_(int block);
    void ensureHighlighted_() const;

    KyTextDocument* document_ = nullptr;
    std::deque<BlockData_> blocks_;
    bool initialPending_ = false; ///< attached in the constructor, not highlighted yet
    int current_ = -1;
    int currentLength_ = 0;
    int currentState_ = -1;
    KyVector<KyTextFormatRange> pending_;
};
