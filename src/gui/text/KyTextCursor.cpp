// KyTextCursor: moves over the document's code points, words and blocks, and
// edits through the document.
#include "gui/text/KyTextCursor.h"

#include <algorithm>

#include "gui/text/KyTextDocument.h"

namespace {

enum WordClass { Space = 0, Word = 1, Punctuation = 2 };

KyString plainNewlines(const KyString& text) {
    if (!text.contains('\r')) return text;
    return text.replaced("\r\n", "\n").replaced("\r", "\n");
}

} // namespace

KyTextCursor::KyTextCursor() = default;

KyTextCursor::KyTextCursor(KyTextDocument* document) { attach_(document, 0, 0); }

KyTextCursor::KyTextCursor(const KyTextBlock& block) {
    if (!block.isValid()) return;
    const int pos = block.position();
    attach_(const_cast<KyTextDocument*>(block.document()), pos, pos);
}

KyTextCursor::KyTextCursor(const KyTextCursor& other) {
    if (!other.isNull()) attach_(other.d_->document, other.d_->position, other.d_->anchor);
    if (d_) d_->column = other.d_->column;
}

KyTextCursor::KyTextCursor(KyTextCursor&& other) noexcept : d_(std::move(other.d_)) {}

KyTextCursor& KyTextCursor::operator=(const KyTextCursor& other) {
    if (this == &other) return *this;
    detach_();
    if (!other.isNull()) {
        attach_(other.d_->document, other.d_->position, other.d_->anchor);
        d_->column = other.d_->column;
    }
    return *this;
}

KyTextCursor& KyTextCursor::operator=(KyTextCursor&& other) noexcept {
    if (this == &other) return *this;
    detach_();
    d_ = std::move(other.d_);
    return *this;
}

KyTextCursor::~KyTextCursor() { detach_(); }

void KyTextCursor::attach_(KyTextDocument* document, int position, int anchor) {
    if (!document) return;
    d_ = std::make_unique<ky::detail::TextCursorData>();
    d_->document = document;
    d_->position = document->alignToCodePoint(position);
    d_->anchor = document->alignToCodePoint(anchor);
    document->registerCursor_(d_.get());
}

void KyTextCursor::detach_() {
    if (!d_) return;
    if (KyTextDocument* doc = d_->document) {
        // Edit blocks a cursor opened end with it, so the history cannot stay open.
        for (; d_->editDepth > 0; --d_->editDepth) doc->endEditBlock();
        doc->unregisterCursor_(d_.get());
    }
    d_.reset();
}

// ---- Position and selection ----

void KyTextCursor::setPosition(int pos, MoveMode mode) {
    if (isNull()) return;
    d_->position = d_->document->alignToCodePoint(pos);
    if (mode == MoveAnchor) d_->anchor = d_->position;
    d_->column = -1;
}

int KyTextCursor::selectionStart() const { return std::min(position(), anchor()); }
int KyTextCursor::selectionEnd() const { return std::max(position(), anchor()); }

KyString KyTextCursor::selectedText() const {
    if (!hasSelection() || isNull()) return KyString();
    return d_->document->text(selectionStart(), selectionEnd() - selectionStart());
}

void KyTextCursor::clearSelection() {
    if (d_) d_->anchor = d_->position;
}

KyTextBlock KyTextCursor::block() const {
    return isNull() ? KyTextBlock() : d_->document->findBlock(d_->position);
}

int KyTextCursor::blockNumber() const { return isNull() ? 0 : d_->document->blockNumberAt(d_->position); }

int KyTextCursor::positionInBlock() const {
    return isNull() ? 0 : d_->position - d_->document->blockPosition(blockNumber());
}

bool KyTextCursor::atEnd() const { return isNull() || d_->position >= d_->document->length(); }

bool KyTextCursor::atBlockEnd() const {
    return isNull() || positionInBlock() >= d_->document->blockLength(blockNumber());
}

bool operator==(const KyTextCursor& a, const KyTextCursor& b) {
    return a.document() == b.document() && a.position() == b.position() && a.anchor() == b.anchor();
}

// ---- Moves ----

int KyTextCursor::wordClassAt_(int pos) const {
    const unsigned char c = static_cast<unsigned char>(d_->document->byteAt(pos));
    // Every letter outside ASCII counts as part of a word.
    if (c >= 0x80 || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_')
        return Word;
    if (c <= ' ' || c == 0x7F) return Space;
    return Punctuation;
}

bool KyTextCursor::movePosition(MoveOperation op, MoveMode mode, int n) {
    if (isNull() || n < 0) return false;
    bool moved = true;
    switch (op) {
    case PreviousBlock:
    case NextBlock:
    case Up:
    case Down:
        // Block steps jump straight to their target: a trim of thousands of
        // log lines is one lookup, not thousands.
        moved = moveOnce_(op, n);
        break;
    default:
        for (int i = 0; i < n && moved; ++i) moved = moveOnce_(op, 1);
    }
    // Only vertical moves keep the column they started from.
    if (op != Up && op != Down) d_->column = -1;
    if (mode == MoveAnchor) d_->anchor = d_->position;
    return moved;
}

bool KyTextCursor::moveOnce_(MoveOperation op, int n) {
    KyTextDocument* doc = d_->document;
    const int pos = d_->position;
    const int len = doc->length();
    const int block = doc->blockNumberAt(pos);
    const int blockStart = doc->blockPosition(block);
    int to = pos;
    bool ok = true;
    switch (op) {
    case NoMove:
        break;
    case Start:
        to = 0;
        break;
    case End:
        to = len;
        break;
    case StartOfBlock:
    case StartOfLine:
        to = blockStart;
        break;
    case EndOfBlock:
    case EndOfLine:
        to = blockStart + doc->blockLength(block);
        break;
    case PreviousBlock:
    case NextBlock:
    case Up:
    case Down: {
        const bool back = op == PreviousBlock || op == Up;
        const int target = std::clamp(back ? block - n : block + n, 0, doc->blockCount() - 1);
        ok = target == (back ? block - n : block + n);
        if (target == block) {
            ok = ok && n == 0;
            break;
        }
        if (op == PreviousBlock || op == NextBlock) {
            to = doc->blockPosition(target);
            break;
        }
        if (d_->column < 0) d_->column = pos - blockStart;
        const int targetStart = doc->blockPosition(target);
        to = doc->alignToCodePoint(targetStart + std::min(d_->column, doc->blockLength(target)));
        break;
    }
    case PreviousCharacter:
        ok = pos > 0;
        to = doc->previousCodePoint(pos);
        break;
    case NextCharacter:
        ok = pos < len;
        to = doc->nextCodePoint(pos);
        break;
    case NextWord: {
        ok = pos < len;
        const int cls = ok ? wordClassAt_(to) : Space;
        if (cls != Space)
            while (to < len && wordClassAt_(to) == cls) to = doc->nextCodePoint(to);
        while (to < len && wordClassAt_(to) == Space) ++to;
        break;
    }
    case PreviousWord: {
        ok = pos > 0;
        while (to > 0 && wordClassAt_(to - 1) == Space) --to;
        if (to > 0) {
            const int cls = wordClassAt_(doc->previousCodePoint(to));
            while (to > 0 && wordClassAt_(doc->previousCodePoint(to)) == cls) to = doc->previousCodePoint(to);
        }
        break;
    }
    case StartOfWord:
        while (to > 0 && wordClassAt_(doc->previousCodePoint(to)) == Word) to = doc->previousCodePoint(to);
        break;
    case EndOfWord:
        while (to < len && wordClassAt_(to) == Word) to = doc->nextCodePoint(to);
        break;
    }
    d_->position = to;
    return ok;
}

void KyTextCursor::select(SelectionType selection) {
    if (isNull()) return;
    KyTextDocument* doc = d_->document;
    switch (selection) {
    case WordUnderCursor:
        movePosition(StartOfWord);
        movePosition(EndOfWord, KeepAnchor);
        break;
    case LineUnderCursor:
        movePosition(StartOfBlock);
        movePosition(EndOfBlock, KeepAnchor);
        break;
    case BlockUnderCursor: {
        const int block = blockNumber();
        const int start = doc->blockPosition(block);
        const int end = start + doc->blockLength(block);
        // The newline after the block, or before it for the last block.
        if (block + 1 < doc->blockCount()) {
            d_->anchor = start;
            d_->position = end + 1;
        } else {
            d_->anchor = block > 0 ? start - 1 : start;
            d_->position = end;
        }
        d_->column = -1;
        break;
    }
    case Document:
        d_->anchor = 0;
        d_->position = doc->length();
        d_->column = -1;
        break;
    }
}

// ---- Edits ----

void KyTextCursor::insertText(const KyString& text) {
    if (isNull()) return;
    KyTextDocument* doc = d_->document;
    const KyString plain = plainNewlines(text);
    const bool replacing = hasSelection();
    if (replacing) {
        doc->beginEditBlock();
        doc->remove(selectionStart(), selectionEnd() - selectionStart());
    }
    // The document moves this cursor (and its anchor) past what goes in.
    d_->anchor = d_->position;
    doc->insert(d_->position, plain);
    if (replacing) doc->endEditBlock();
    d_->column = -1;
}

void KyTextCursor::removeSelectedText() {
    if (isNull() || !hasSelection()) return;
    d_->document->remove(selectionStart(), selectionEnd() - selectionStart());
    d_->column = -1;
}

void KyTextCursor::deleteChar() {
    if (isNull()) return;
    if (hasSelection()) return removeSelectedText();
    const int next = d_->document->nextCodePoint(d_->position);
    d_->document->remove(d_->position, next - d_->position);
    d_->column = -1;
}

void KyTextCursor::deletePreviousChar() {
    if (isNull()) return;
    if (hasSelection()) return removeSelectedText();
    const int previous = d_->document->previousCodePoint(d_->position);
    d_->document->remove(previous, d_->position - previous);
    d_->column = -1;
}

void KyTextCursor::beginEditBlock() {
    if (isNull()) return;
    ++d_->editDepth;
    d_->document->beginEditBlock();
}

void KyTextCursor::endEditBlock() {
    if (isNull() || d_->editDepth == 0) return;
    --d_->editDepth;
    d_->document->endEditBlock();
}
