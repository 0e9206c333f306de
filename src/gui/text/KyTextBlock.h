// KyTextBlock: a light handle on one block (line) of a KyTextDocument.
//
// A block is the text between two newlines; the newline belongs to no block.
// The handle is the document and a block number: position, length and text
// are looked up through the document's line index when asked (each a
// logarithmic walk), so a handle never goes stale, it names "line n" of the
// document as it is now. Like an index into a container, a handle must not
// outlive its document. Belongs to the document's thread.
#pragma once

#include "core/types/KyString.h"

class KyTextDocument;

/// Block number n of a document.
class KyTextBlock {
public:
    KyTextBlock() = default;

    /// True while the document has a block with this number.
    bool isValid() const;
    const KyTextDocument* document() const { return document_; }
    int blockNumber() const { return number_; }
    /// Byte position of the block's first character.
    int position() const;
    /// Bytes of the block's text, without its newline.
    int length() const;
    /// Where the block's text ends: its newline, or the end of the document.
    int endPosition() const { return position() + length(); }
    KyString text() const;
    /// Whether pos lies in the block, its end included.
    bool contains(int pos) const;

    /// The following block (invalid after the last).
    KyTextBlock next() const { return KyTextBlock(document_, number_ + 1); }
    KyTextBlock previous() const { return KyTextBlock(document_, number_ - 1); }

    friend bool operator==(const KyTextBlock&, const KyTextBlock&) = default;

private:
    friend class KyTextDocument;
    KyTextBlock(const KyTextDocument* document, int number) : document_(document), number_(number) {}

    const KyTextDocument* document_ = nullptr;
    int number_ = -1;
};
