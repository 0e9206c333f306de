// KyPieceTable: the storage under KyTextDocument, text kept as pieces of two
// buffers with an index of its lines.
//
// The original buffer holds the text the table was reset with; the added
// buffer only grows, taking every inserted text. The document is the
// sequence of pieces (a buffer, a start, a length), held in a treap ordered
// by position whose nodes also sum the bytes and the newlines below them.
// Each buffer keeps the sorted offsets of its newlines, so a piece knows its
// newlines by two binary searches and never scans its bytes. Every query
// ("the n-th newline", "newlines before a position", "the byte at") and
// every edit is a walk down the treap: logarithmic in the number of pieces,
// whatever the document's length. An insert right after the last inserted
// text grows that piece instead of adding one, so appending and typing keep
// the piece count flat.
//
// compact() rewrites the live text as the new original buffer; the document
// does so when dead bytes in the buffers outgrow the live text. Positions
// are bytes. A plain value owned by one document: no locking.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Piece table with a newline index.
class KyPieceTable {
public:
    KyPieceTable();
    explicit KyPieceTable(std::string original);

    /// Drops everything; original becomes the one piece.
    void reset(std::string original);
    /// The live text as the new original buffer, in one piece.
    void compact();

    std::size_t length() const { return sum_(root_).bytes; }
    std::size_t newlineCount() const { return sum_(root_).newlines; }
    std::size_t pieceCount() const { return nodes_.size() - free_.size(); }
    /// Bytes held by both buffers, live or not.
    std::size_t bufferBytes() const { return buffers_[0].size() + buffers_[1].size(); }

    /// pos at most length().
    void insert(std::size_t pos, std::string_view text);
    /// pos + count at most length().
    void remove(std::size_t pos, std::size_t count);

    /// The byte at pos (pos below length()).
    char byteAt(std::size_t pos) const;
    /// Appends bytes pos..pos+count-1 (clamped) to out.
    void appendText(std::string& out, std::size_t pos, std::size_t count) const;
    std::string text(std::size_t pos, std::size_t count) const;
    std::string toString() const { return text(0, length()); }

    /// Position of newline k (0-based; k below newlineCount()).
    std::size_t newlinePosition(std::size_t k) const;
    /// How many newlines lie in bytes 0..pos-1.
    std::size_t newlinesBefore(std::size_t pos) const;

private:
    static constexpr std::uint32_t kNil = 0xFFFFFFFFu;
    struct Sum_ {
        std::size_t bytes = 0;
        std::size_t newlines = 0;
    };
    struct Node_ {
        std::uint32_t left = kNil;
        std::uint32_t right = kNil;
        std::uint32_t priority = 0;
        std::uint8_t buffer = 0;
        std::size_t start = 0;
        std::size_t length = 0;
        std::size_t nlFirst = 0; ///< index of the piece's first newline in its buffer's list
        std::size_t nlCount = 0;
        Sum_ sum;                ///< this piece and everything below it
    };

    Sum_ sum_(std::uint32_t t) const { return t == kNil ? Sum_{} : nodes_[t].sum; }
    std::uint32_t makeNode_(std::uint8_t buffer, std::size_t start, std::size_t length);
    void setSpan_(std::uint32_t t, std::size_t start, std::size_t length);
    void pull_(std::uint32_t t);
    std::uint32_t merge_(std::uint32_t a, std::uint32_t b);
    /// Splits t into the first pos bytes and the rest, cutting a piece if needed.
    void split_(std::uint32_t t, std::size_t pos, std::uint32_t& left, std::uint32_t& right);
    void release_(std::uint32_t t);
    bool growPieceEndingAt_(std::uint32_t t, std::size_t pos, std::size_t bufferEnd, std::size_t bytes,
                            std::size_t newlines);
    void collect_(std::uint32_t t, std::size_t base, std::size_t from, std::size_t to, std::string& out) const;
    std::size_t newlinesUpTo_(const Node_& n, std::size_t offset) const;

    std::vector<Node_> nodes_;
    std::vector<std::uint32_t> free_;
    std::uint32_t root_ = kNil;
    std::string buffers_[2];                ///< original, added
    std::vector<std::size_t> newlines_[2];  ///< newline offsets of each buffer, ascending
    std::uint64_t seed_ = 0x9E3779B97F4A7C15ULL;
};
