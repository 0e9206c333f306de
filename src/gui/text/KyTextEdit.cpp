// KyTextEdit: format runs over document positions and how edits move them.
#include "gui/text/KyTextEdit.h"

#include <algorithm>

KyTextEdit::KyTextEdit(KyWidget* parent) : KyPlainTextEdit(parent) {
    // Connected after the plain editor's own listener, so runs are moved
    // before the repaint they cause is painted (painting comes later, from the loop).
    KyObject::connect(document(), &KyTextDocument::contentsChange, this,
                      [this](int p, int r, int a) { onContentsChange_(p, r, a); }, KyObject::ConnectionDirect);
}

void KyTextEdit::onContentsChange_(int position, int removed, int added) {
    const int removedEnd = position + removed;
    KyVector<KyTextFormatRange> next;
    next.reserve(runs_.size() + 1);
    for (KyTextFormatRange r : runs_) {
        int start = r.start, end = r.end();
        // Cut the removed bytes out of the run, then shift what lies behind.
        auto mapRemoved = [&](int p) { return p <= position ? p : p >= removedEnd ? p - removed : position; };
        start = mapRemoved(start), end = mapRemoved(end);
        // Inserted bytes strictly inside a run widen it; at its edges they
        // stay outside (they get the current format below).
        auto mapAdded = [&](int p, bool isEnd) {
            return p > position || (p == position && isEnd && start < position) ? p + added : p;
        };
        const int s2 = mapAdded(start, false), e2 = mapAdded(end, true);
        if (e2 > s2) next.push_back({s2, e2 - s2, r.format});
    }
    runs_ = std::move(next);
    if (added > 0 && !current_.isEmpty()) applyFormat_(position, position + added, current_, false);
}

void KyTextEdit::applyFormat_(int start, int end, const KyTextCharFormat& format, bool merge) {
    if (end <= start) return;
    KyVector<KyTextFormatRange> next;
    next.reserve(runs_.size() + 3);
    // Runs outside keep their place; runs across an edge are split; the
    // range itself becomes pieces of (old merged with format) or format alone.
    int at = start;
    for (const KyTextFormatRange& r : runs_) {
        if (r.end() <= start || r.start >= end) {
            next.push_back(r);
            continue;
        }
        if (r.start < start) next.push_back({r.start, start - r.start, r.format});
        const int a = std::max(r.start, start), b = std::min(r.end(), end);
        if (a > at) next.push_back({at, a - at, format});
        KyTextCharFormat merged = merge ? r.format : KyTextCharFormat();
        merged.merge(format);
        next.push_back({a, b - a, merged});
        at = b;
        if (r.end() > end) next.push_back({end, r.end() - end, r.format});
    }
    if (at < end) next.push_back({at, end - at, format});
    std::sort(next.begin(), next.end(), [](const KyTextFormatRange& x, const KyTextFormatRange& y) { return x.start < y.start; });
    runs_ = std::move(next);
    const KyTextDocument* d = document();
    updateBlocks_(d->blockNumberAt(start), d->blockNumberAt(end));
}

void KyTextEdit::mergeCharFormat(const KyTextCharFormat& format) {
    const KyTextCursor c = textCursor();
    if (c.hasSelection()) applyFormat_(c.selectionStart(), c.selectionEnd(), format, true);
    current_.merge(format);
}

void KyTextEdit::append(const KyString& text, const KyTextCharFormat& format) {
    const KyTextCharFormat saved = current_;
    current_ = format;
    appendPlainText(text);
    current_ = saved;
}

KyTextCharFormat KyTextEdit::charFormatAt(int position) const {
    const auto it = std::upper_bound(runs_.begin(), runs_.end(), position,
                                     [](int p, const KyTextFormatRange& r) { return p < r.start; });
    if (it == runs_.begin()) return {};
    const KyTextFormatRange& r = *(it - 1);
    return position < r.end() ? r.format : KyTextCharFormat();
}

KyVector<KyTextFormatRange> KyTextEdit::blockFormats_(int block) const {
    const KyTextDocument* d = document();
    const int start = d->blockPosition(block);
    const int end = start + d->blockLength(block);
    KyVector<KyTextFormatRange> out;
    auto it = std::upper_bound(runs_.begin(), runs_.end(), start,
                               [](int p, const KyTextFormatRange& r) { return p < r.start; });
    if (it != runs_.begin()) --it;
    for (; it != runs_.end() && it->start < end; ++it) {
        const int a = std::max(it->start, start), b = std::min(it->end(), end);
        if (b > a) out.push_back({a - start, b - a, it->format});
    }
    return out;
}
