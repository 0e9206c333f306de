// KySyntaxHighlighter: the per-block store, kept in step with the document's
// edits, and the runs of highlightBlock().
#include "gui/text/KySyntaxHighlighter.h"

#include <algorithm>
#include <climits>

#include "gui/text/KyTextDocument.h"

KySyntaxHighlighter::KySyntaxHighlighter(KyObject* parent) : KyObject(parent) {}

KySyntaxHighlighter::KySyntaxHighlighter(KyTextDocument* document) : KyObject(document) {
    // highlightBlock cannot run yet: the subclass is still being built. The
    // whole document is highlighted at the first edit or the first question.
    document_ = document;
    if (document_) {
        document_->attachHighlighter_(this);
        initialPending_ = true;
    }
}

void KySyntaxHighlighter::ensureHighlighted_() const {
    // A cache filled on first use: the stored formats are not part of what
    // the highlighter means, only of how fast it answers.
    if (initialPending_) const_cast<KySyntaxHighlighter*>(this)->rehighlight();
}

KySyntaxHighlighter::~KySyntaxHighlighter() {
    if (document_) document_->detachHighlighter_(this);
}

void KySyntaxHighlighter::setDocument(KyTextDocument* document) {
    if (document == document_) return;
    if (document_) document_->detachHighlighter_(this);
    blocks_.clear();
    initialPending_ = false;
    document_ = document;
    if (document_) {
        document_->attachHighlighter_(this);
        rehighlight();
    }
}

void KySyntaxHighlighter::documentGone_() {
    document_ = nullptr;
    initialPending_ = false;
    blocks_.clear();
}

void KySyntaxHighlighter::rehighlight() {
    if (!document_) return;
    initialPending_ = false;
    const int count = document_->blockCount();
    blocks_.assign(std::size_t(count), BlockData_{});
    for (int k = 0; k < count; ++k) highlightOne_(k);
    blocksHighlighted(0, count - 1);
}

void KySyntaxHighlighter::rehighlightBlock(const KyTextBlock& block) {
    if (!document_ || block.document() != document_ || !block.isValid()) return;
    if (initialPending_) return rehighlight();
    highlightRange_(block.blockNumber(), block.blockNumber());
}

void KySyntaxHighlighter::documentChanged_(int position, int removed, int added, int oldBlockCount,
                                           bool removedWholeLines) {
    if (!document_) return;
    if (initialPending_ || int(blocks_.size()) != oldBlockCount) return rehighlight();
    const int count = document_->blockCount();
    const int first = document_->blockNumberAt(position);
    const int addedLines = added > 0 ? document_->newlinesIn_(position, added) : 0;
    const int removedLines = oldBlockCount - count + addedLines;
    if (removedLines < 0 || first + 1 + removedLines > oldBlockCount) return rehighlight();
    const auto at = [this](int k) { return blocks_.begin() + k; };
    const int length = document_->length();
    if (removed == 0 && added > 0 && document_->byteAt(position) == '\n' &&
        (position + added == length || document_->byteAt(position + added) == '\n')) {
        // New lines after the end of a line (a log's append): that line is as it was.
        blocks_.insert(at(first + 1), std::size_t(addedLines), BlockData_{});
        highlightRange_(first + 1, first + addedLines);
    } else if (added == 0 && removed > 0 && removedWholeLines) {
        // Whole lines gone (a log's trim): the line now at first is untouched.
        blocks_.erase(at(first), at(first + removedLines));
        highlightRange_(first, first - 1);
    } else {
        blocks_.erase(at(first + 1), at(first + 1 + removedLines));
        blocks_.insert(at(first + 1), std::size_t(addedLines), BlockData_{});
        highlightRange_(first, first + addedLines);
    }
}

void KySyntaxHighlighter::highlightRange_(int first, int last) {
    const int count = int(blocks_.size());
    int lo = INT_MAX;
    int hi = -1;
    for (int k = std::max(first, 0); k <= last && k < count; ++k) {
        highlightOne_(k);
        lo = std::min(lo, k);
        hi = k;
    }
    // A block is stale while the state it was given differs from what the
    // block before it now ends in.
    for (int k = std::max(last + 1, first); k < count; ++k) {
        const int handed = k > 0 ? blocks_[std::size_t(k - 1)].state : -1;
        if (blocks_[std::size_t(k)].previousState == handed) break;
        highlightOne_(k);
        lo = std::min(lo, k);
        hi = k;
    }
    if (hi >= 0) blocksHighlighted(lo, hi);
}

void KySyntaxHighlighter::highlightOne_(int block) {
    const KyString text = document_->blockText(block);
    const int handed = block > 0 ? blocks_[std::size_t(block - 1)].state : -1;
    current_ = block;
    currentLength_ = int(text.size());
    currentState_ = -1;
    pending_.clear();
    highlightBlock(text);
    BlockData_& data = blocks_[std::size_t(block)];
    data.formats = std::move(pending_);
    pending_ = {};
    data.state = currentState_;
    data.previousState = handed;
    current_ = -1;
}

void KySyntaxHighlighter::setFormat(int start, int count, const KyTextCharFormat& format) {
    if (current_ < 0) return;
    start = std::clamp(start, 0, currentLength_);
    const int end = int(std::min<long long>((long long)start + std::max(count, 0), currentLength_));
    if (end <= start) return;
    // Cut the new run out of the ranges already set, then put it in place.
    KyVector<KyTextFormatRange> next;
    next.reserve(pending_.size() + 2);
    bool placed = false;
    const auto place = [&] {
        if (!placed && !format.isEmpty()) next.append({start, end - start, format});
        placed = true;
    };
    for (const KyTextFormatRange& r : pending_) {
        if (r.end() <= start) {
            next.append(r);
            continue;
        }
        if (r.start < start) next.append({r.start, start - r.start, r.format});
        if (r.start >= end) {
            place();
            next.append(r);
            continue;
        }
        place();
        if (r.end() > end) next.append({end, r.end() - end, r.format});
    }
    place();
    pending_ = std::move(next);
}

void KySyntaxHighlighter::setFormat(int start, int count, const KyColor& color) {
    KyTextCharFormat format;
    format.setForeground(color);
    setFormat(start, count, format);
}

KyTextCharFormat KySyntaxHighlighter::format(int position) const {
    for (const KyTextFormatRange& r : pending_)
        if (position >= r.start && position < r.end()) return r.format;
    return KyTextCharFormat();
}

int KySyntaxHighlighter::previousBlockState() const {
    return current_ > 0 ? blocks_[std::size_t(current_ - 1)].state : -1;
}

KyTextBlock KySyntaxHighlighter::currentBlock() const {
    return current_ >= 0 && document_ ? document_->findBlockByNumber(current_) : KyTextBlock();
}

const KyVector<KyTextFormatRange>& KySyntaxHighlighter::formats(int blockNumber) const {
    static const KyVector<KyTextFormatRange> none;
    ensureHighlighted_();
    return blockNumber >= 0 && blockNumber < int(blocks_.size()) ? blocks_[std::size_t(blockNumber)].formats : none;
}

KyTextCharFormat KySyntaxHighlighter::formatAt(int blockNumber, int column) const {
    const KyVector<KyTextFormatRange>& ranges = formats(blockNumber);
    auto it = std::upper_bound(ranges.begin(), ranges.end(), column,
                               [](int c, const KyTextFormatRange& r) { return c < r.start; });
    if (it == ranges.begin()) return KyTextCharFormat();
    --it;
    return column < it->end() ? it->format : KyTextCharFormat();
}

int KySyntaxHighlighter::blockState(int blockNumber) const {
    ensureHighlighted_();
    return blockNumber >= 0 && blockNumber < int(blocks_.size()) ? blocks_[std::size_t(blockNumber)].state : -1;
}
