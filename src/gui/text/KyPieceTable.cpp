// KyPieceTable: the treap of pieces and the walks that answer positions,
// newlines and text.
#include "gui/text/KyPieceTable.h"

#include <algorithm>
#include <cstring>

namespace {

void indexNewlines(const std::string& text, std::size_t from, std::vector<std::size_t>& out) {
    const char* base = text.data();
    const char* p = base + from;
    const char* end = base + text.size();
    while (p < end) {
        const void* hit = std::memchr(p, '\n', std::size_t(end - p));
        if (!hit) break;
        const char* nl = static_cast<const char*>(hit);
        out.push_back(std::size_t(nl - base));
        p = nl + 1;
    }
}

} // namespace

KyPieceTable::KyPieceTable() = default;

KyPieceTable::KyPieceTable(std::string original) { reset(std::move(original)); }

void KyPieceTable::reset(std::string original) {
    nodes_.clear();
    free_.clear();
    root_ = kNil;
    buffers_[0] = std::move(original);
    buffers_[1].clear();
    newlines_[0].clear();
    newlines_[1].clear();
    indexNewlines(buffers_[0], 0, newlines_[0]);
    if (!buffers_[0].empty()) root_ = makeNode_(0, 0, buffers_[0].size());
}

void KyPieceTable::compact() { reset(toString()); }

std::uint32_t KyPieceTable::makeNode_(std::uint8_t buffer, std::size_t start, std::size_t length) {
    std::uint32_t t;
    if (!free_.empty()) {
        t = free_.back();
        free_.pop_back();
        nodes_[t] = Node_{};
    } else {
        t = static_cast<std::uint32_t>(nodes_.size());
        nodes_.emplace_back();
    }
    // xorshift: priorities only need to be well spread, not secret.
    seed_ ^= seed_ << 13;
    seed_ ^= seed_ >> 7;
    seed_ ^= seed_ << 17;
    nodes_[t].priority = static_cast<std::uint32_t>(seed_ >> 32);
    nodes_[t].buffer = buffer;
    setSpan_(t, start, length);
    pull_(t);
    return t;
}

void KyPieceTable::setSpan_(std::uint32_t t, std::size_t start, std::size_t length) {
    Node_& n = nodes_[t];
    const std::vector<std::size_t>& nl = newlines_[n.buffer];
    const auto first = std::lower_bound(nl.begin(), nl.end(), start);
    const auto last = std::lower_bound(first, nl.end(), start + length);
    n.start = start;
    n.length = length;
    n.nlFirst = std::size_t(first - nl.begin());
    n.nlCount = std::size_t(last - first);
}

void KyPieceTable::pull_(std::uint32_t t) {
    Node_& n = nodes_[t];
    const Sum_ l = sum_(n.left);
    const Sum_ r = sum_(n.right);
    n.sum.bytes = l.bytes + n.length + r.bytes;
    n.sum.newlines = l.newlines + n.nlCount + r.newlines;
}

std::uint32_t KyPieceTable::merge_(std::uint32_t a, std::uint32_t b) {
    if (a == kNil) return b;
    if (b == kNil) return a;
    if (nodes_[a].priority > nodes_[b].priority) {
        const std::uint32_t r = merge_(nodes_[a].right, b);
        nodes_[a].right = r;
        pull_(a);
        return a;
    }
    const std::uint32_t l = merge_(a, nodes_[b].left);
    nodes_[b].left = l;
    pull_(b);
    return b;
}

void KyPieceTable::split_(std::uint32_t t, std::size_t pos, std::uint32_t& left, std::uint32_t& right) {
    if (t == kNil) {
        left = right = kNil;
        return;
    }
    const std::size_t leftBytes = sum_(nodes_[t].left).bytes;
    const std::size_t length = nodes_[t].length;
    if (pos <= leftBytes) {
        std::uint32_t l, r;
        split_(nodes_[t].left, pos, l, r);
        nodes_[t].left = r;
        pull_(t);
        left = l;
        right = t;
    } else if (pos >= leftBytes + length) {
        std::uint32_t l, r;
        split_(nodes_[t].right, pos - leftBytes - length, l, r);
        nodes_[t].right = l;
        pull_(t);
        left = t;
        right = r;
    } else {
        // The cut falls inside this piece: it keeps the head, a new piece
        // takes the tail and goes right with the rest.
        const std::size_t head = pos - leftBytes;
        const std::uint32_t tail = makeNode_(nodes_[t].buffer, nodes_[t].start + head, length - head);
        setSpan_(t, nodes_[t].start, head);
        const std::uint32_t rest = nodes_[t].right;
        nodes_[t].right = kNil;
        pull_(t);
        left = t;
        right = merge_(tail, rest);
    }
}

void KyPieceTable::release_(std::uint32_t t) {
    if (t == kNil) return;
    release_(nodes_[t].left);
    release_(nodes_[t].right);
    free_.push_back(t);
}

bool KyPieceTable::growPieceEndingAt_(std::uint32_t t, std::size_t pos, std::size_t bufferEnd, std::size_t bytes,
                                      std::size_t newlines) {
    if (t == kNil) return false;
    const std::size_t leftBytes = sum_(nodes_[t].left).bytes;
    const std::size_t end = leftBytes + nodes_[t].length;
    bool grown = false;
    if (pos <= leftBytes) {
        grown = growPieceEndingAt_(nodes_[t].left, pos, bufferEnd, bytes, newlines);
    } else if (pos == end) {
        Node_& n = nodes_[t];
        if (n.buffer != 1 || n.start + n.length != bufferEnd) return false;
        n.length += bytes;
        n.nlCount += newlines;
        grown = true;
    } else if (pos > end) {
        grown = growPieceEndingAt_(nodes_[t].right, pos - end, bufferEnd, bytes, newlines);
    }
    if (grown) pull_(t);
    return grown;
}

void KyPieceTable::insert(std::size_t pos, std::string_view text) {
    if (text.empty()) return;
    pos = std::min(pos, length());
    std::string& added = buffers_[1];
    const std::size_t start = added.size();
    const std::size_t newlinesBefore = newlines_[1].size();
    added.append(text);
    indexNewlines(added, start, newlines_[1]);
    const std::size_t newlines = newlines_[1].size() - newlinesBefore;
    // Typing and appending continue the piece they just made.
    if (pos > 0 && growPieceEndingAt_(root_, pos, start, text.size(), newlines)) return;
    const std::uint32_t piece = makeNode_(1, start, text.size());
    std::uint32_t l, r;
    split_(root_, pos, l, r);
    root_ = merge_(merge_(l, piece), r);
}

void KyPieceTable::remove(std::size_t pos, std::size_t count) {
    pos = std::min(pos, length());
    count = std::min(count, length() - pos);
    if (count == 0) return;
    std::uint32_t a, rest, gone, c;
    split_(root_, pos, a, rest);
    split_(rest, count, gone, c);
    release_(gone);
    root_ = merge_(a, c);
}

char KyPieceTable::byteAt(std::size_t pos) const {
    std::uint32_t t = root_;
    while (t != kNil) {
        const Node_& n = nodes_[t];
        const std::size_t leftBytes = sum_(n.left).bytes;
        if (pos < leftBytes) {
            t = n.left;
        } else if (pos < leftBytes + n.length) {
            return buffers_[n.buffer][n.start + (pos - leftBytes)];
        } else {
            pos -= leftBytes + n.length;
            t = n.right;
        }
    }
    return '\0';
}

void KyPieceTable::collect_(std::uint32_t t, std::size_t base, std::size_t from, std::size_t to,
                            std::string& out) const {
    if (t == kNil || to <= base || from >= base + nodes_[t].sum.bytes) return;
    const Node_& n = nodes_[t];
    const std::size_t pieceStart = base + sum_(n.left).bytes;
    const std::size_t pieceEnd = pieceStart + n.length;
    collect_(n.left, base, from, to, out);
    const std::size_t a = std::max(from, pieceStart);
    const std::size_t b = std::min(to, pieceEnd);
    if (a < b) out.append(buffers_[n.buffer], n.start + (a - pieceStart), b - a);
    collect_(n.right, pieceEnd, from, to, out);
}

void KyPieceTable::appendText(std::string& out, std::size_t pos, std::size_t count) const {
    const std::size_t total = length();
    pos = std::min(pos, total);
    count = std::min(count, total - pos);
    if (count == 0) return;
    out.reserve(out.size() + count);
    collect_(root_, 0, pos, pos + count, out);
}

std::string KyPieceTable::text(std::size_t pos, std::size_t count) const {
    std::string out;
    appendText(out, pos, count);
    return out;
}

std::size_t KyPieceTable::newlinePosition(std::size_t k) const {
    std::uint32_t t = root_;
    std::size_t base = 0;
    while (t != kNil) {
        const Node_& n = nodes_[t];
        const Sum_ left = sum_(n.left);
        if (k < left.newlines) {
            t = n.left;
        } else if (k < left.newlines + n.nlCount) {
            const std::size_t offset = newlines_[n.buffer][n.nlFirst + (k - left.newlines)];
            return base + left.bytes + (offset - n.start);
        } else {
            k -= left.newlines + n.nlCount;
            base += left.bytes + n.length;
            t = n.right;
        }
    }
    return length();
}

std::size_t KyPieceTable::newlinesUpTo_(const Node_& n, std::size_t offset) const {
    const std::vector<std::size_t>& nl = newlines_[n.buffer];
    const auto first = nl.begin() + std::ptrdiff_t(n.nlFirst);
    return std::size_t(std::lower_bound(first, first + std::ptrdiff_t(n.nlCount), n.start + offset) - first);
}

std::size_t KyPieceTable::newlinesBefore(std::size_t pos) const {
    std::size_t count = 0;
    std::uint32_t t = root_;
    while (t != kNil) {
        const Node_& n = nodes_[t];
        const Sum_ left = sum_(n.left);
        if (pos <= left.bytes) {
            t = n.left;
        } else if (pos <= left.bytes + n.length) {
            return count + left.newlines + newlinesUpTo_(n, pos - left.bytes);
        } else {
            count += left.newlines + n.nlCount;
            pos -= left.bytes + n.length;
            t = n.right;
        }
    }
    return count;
}
