// VelmoPngWriter: chunks, checksums, row filters and the zlib stream: LZ77
// over a 32 KiB window (hash chains, one step of lazy matching), written as
// one block with Huffman codes built for it, or with the fixed codes, or
// stored: whichever comes out smallest.
#include "VelmoPngWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <functional>
#include <queue>
#include <utility>

namespace velmo::png {
namespace {

const std::array<std::uint32_t, 256>& crcTable() {
    static const std::array<std::uint32_t, 256> table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    return table;
}

void putBe32(std::vector<std::uint8_t>& out, std::uint32_t v) {
    out.push_back(static_cast<std::uint8_t>(v >> 24));
    out.push_back(static_cast<std::uint8_t>(v >> 16));
    out.push_back(static_cast<std::uint8_t>(v >> 8));
    out.push_back(static_cast<std::uint8_t>(v));
}

// Length, type, data, then the CRC over type and data.
void putChunk(std::vector<std::uint8_t>& out, const char type[4], const std::vector<std::uint8_t>& data) {
    putBe32(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t typeAt = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    putBe32(out, crc32(out.data() + typeAt, 4 + data.size()));
}


// Deflate packs bits from the least significant end of each byte.
class BitWriter {
public:
    explicit BitWriter(std::vector<std::uint8_t>& out) : out_(out) {}
    void put(std::uint32_t bits, int count) {
        acc_ |= std::uint64_t(bits) << used_;
        used_ += count;
        while (used_ >= 8) {
            out_.push_back(static_cast<std::uint8_t>(acc_));
            acc_ >>= 8;
            used_ -= 8;
        }
    }
    void flush() {
        if (used_ > 0) out_.push_back(static_cast<std::uint8_t>(acc_));
        acc_ = 0;
        used_ = 0;
    }

private:
    std::vector<std::uint8_t>& out_;
    std::uint64_t acc_ = 0;
    int used_ = 0;
};

// Huffman codes are defined most significant bit first, while the writer
// packs from the low end: each code goes out bit-reversed.
std::uint32_t reversed(std::uint32_t code, int length) {
    std::uint32_t r = 0;
    for (int i = 0; i < length; ++i, code >>= 1) r = (r << 1) | (code & 1);
    return r;
}

struct Code {
    std::uint16_t bits;  // already reversed
    std::uint8_t length;
};

// The canonical code of a set of code lengths: shorter codes first, and
// within one length the symbols in order, so lengths alone describe it.
std::vector<Code> canonicalCodes(const std::vector<std::uint8_t>& lengths) {
    std::uint32_t count[16] = {}, next[16] = {};
    for (std::uint8_t l : lengths) ++count[l];
    count[0] = 0;
    for (int l = 1; l < 16; ++l) next[l] = (next[l - 1] + count[l - 1]) << 1;
    std::vector<Code> codes(lengths.size(), Code{0, 0});
    for (std::size_t s = 0; s < lengths.size(); ++s)
        if (lengths[s]) codes[s] = {static_cast<std::uint16_t>(reversed(next[lengths[s]]++, lengths[s])), lengths[s]};
    return codes;
}

// The fixed codes are the canonical codes of these lengths: literals 0-143
// in 8 bits, 144-255 in 9, symbols 256-279 in 7, 280-287 in 8; distances in 5.
const std::vector<Code>& fixedLiteralCodes() {
    static const std::vector<Code> codes = [] {
        std::vector<std::uint8_t> lengths(288, 8);
        std::fill(lengths.begin() + 144, lengths.begin() + 256, 9);
        std::fill(lengths.begin() + 256, lengths.begin() + 280, 7);
        return canonicalCodes(lengths);
    }();
    return codes;
}
const std::vector<Code>& fixedDistanceCodes() {
    static const std::vector<Code> codes = canonicalCodes(std::vector<std::uint8_t>(30, 5));
    return codes;
}

int highBit(std::uint32_t x) { return 31 - __builtin_clz(x); }

struct Symbol {
    unsigned symbol;
    unsigned extra;
    int extraBits;
};

// Lengths 3-258 and distances 1-32768 as a symbol and extra bits. Above the
// first symbols of each alphabet every pair (lengths: four) of symbols
// shares a power of two, so the symbol follows from the highest bits of
// (value - the first symbol's base).
Symbol lengthSymbol(unsigned length) {
    const unsigned l = length - 3;
    if (length == 258) return {285, 0, 0};
    if (l < 8) return {257 + l, 0, 0};
    const int b = highBit(l);
    return {257 + 4 * (b - 1) + ((l >> (b - 2)) & 3), l & ((1u << (b - 2)) - 1), b - 2};
}
Symbol distanceSymbol(unsigned distance) {
    const unsigned d = distance - 1;
    if (d < 4) return {d, 0, 0};
    const int b = highBit(d);
    return {2 * b + ((d >> (b - 1)) & 1), d & ((1u << (b - 1)) - 1), b - 1};
}

// One step of the LZ77 parse: a literal byte (length 0) or a match.
struct Token {
    std::uint16_t length;
    std::uint16_t value;  // the byte, or the match's distance
};

// The match finder: for every 3-byte prefix, a chain through the earlier
// positions of the window that start with the same hash.
class MatchFinder {
public:
    static constexpr std::size_t kWindow = 32768;
    static constexpr int kHashBits = 15;
    // Longer chains find little more in screenshots and cost time on text.
    static constexpr int kMaxChain = 96;

    explicit MatchFinder(const std::vector<std::uint8_t>& data)
        : data_(data), head_(std::size_t(1) << kHashBits, -1), prev_(kWindow, -1) {}

    void insert(std::size_t at) {
        if (at + 3 > data_.size()) return;
        const std::uint32_t h = hash_(at);
        prev_[at & (kWindow - 1)] = head_[h];
        head_[h] = static_cast<std::int32_t>(at);
    }

    // The longest earlier match for the bytes at at (length 0 when none of at
    // least 3); at itself must not be inserted yet.
    unsigned find(std::size_t at, unsigned* distance) const {
        if (at + 3 > data_.size()) return 0;
        const std::size_t limit = std::min<std::size_t>(258, data_.size() - at);
        const std::uint8_t* here = data_.data() + at;
        unsigned best = 0;
        std::int32_t candidate = head_[hash_(at)];
        for (int chain = kMaxChain; candidate >= 0 && chain > 0; --chain) {
            const std::size_t c = static_cast<std::size_t>(candidate);
            if (at - c > kWindow) break;
            const std::uint8_t* there = data_.data() + c;
            // The byte that would make this one longer than the best decides first.
            if (there[best] == here[best]) {
                std::size_t n = 0;
                while (n < limit && there[n] == here[n]) ++n;
                if (n > best) {
                    best = static_cast<unsigned>(n);
                    *distance = static_cast<unsigned>(at - c);
                    if (n == limit) break;
                }
            }
            const std::int32_t next = prev_[c & (kWindow - 1)];
            if (next >= candidate) break;  // a slot reused by a newer position: the chain ends
            candidate = next;
        }
        return best >= 3 ? best : 0;
    }

private:
    std::uint32_t hash_(std::size_t at) const {
        const std::uint32_t v = std::uint32_t(data_[at]) << 16 | std::uint32_t(data_[at + 1]) << 8 | data_[at + 2];
        return (v * 2654435761u) >> (32 - kHashBits);
    }

    const std::vector<std::uint8_t>& data_;
    std::vector<std::int32_t> head_;
    std::vector<std::int32_t> prev_;
};

// The LZ77 parse of data: greedy, with one step of lazy matching.
std::vector<Token> tokenize(const std::vector<std::uint8_t>& data) {
    // A match this long is taken at once: looking one byte further rarely pays.
    constexpr unsigned kLazyLimit = 32;
    std::vector<Token> tokens;
    tokens.reserve(data.size() / 16 + 16);
    MatchFinder finder(data);
    std::size_t at = 0;
    while (at < data.size()) {
        unsigned distance = 0;
        unsigned length = finder.find(at, &distance);
        finder.insert(at);
        if (length == 0) {
            tokens.push_back({0, data[at]});
            ++at;
            continue;
        }
        // When the match starting one byte later is longer, this byte goes
        // out as a literal and that match is taken instead.
        while (length < kLazyLimit && at + 1 < data.size()) {
            unsigned nextDistance = 0;
            const unsigned next = finder.find(at + 1, &nextDistance);
            if (next <= length) break;
            tokens.push_back({0, data[at]});
            ++at;
            finder.insert(at);
            length = next;
            distance = nextDistance;
        }
        tokens.push_back({static_cast<std::uint16_t>(length), static_cast<std::uint16_t>(distance)});
        for (std::size_t i = at + 1; i < at + length; ++i) finder.insert(i);
        at += length;
    }
    return tokens;
}

void putTokens(BitWriter& bits, const std::vector<Token>& tokens, const std::vector<Code>& literals,
               const std::vector<Code>& distances) {
    for (const Token& t : tokens) {
        if (t.length == 0) {
            bits.put(literals[t.value].bits, literals[t.value].length);
            continue;
        }
        const Symbol l = lengthSymbol(t.length);
        bits.put(literals[l.symbol].bits, literals[l.symbol].length);
        bits.put(l.extra, l.extraBits);
        const Symbol d = distanceSymbol(t.value);
        bits.put(distances[d.symbol].bits, distances[d.symbol].length);
        bits.put(d.extra, d.extraBits);
    }
    bits.put(literals[256].bits, literals[256].length);  // end of block
}

// Huffman code lengths for the symbol frequencies, none longer than limit.
// When the tree comes out too deep the frequencies are flattened and it is
// built again: at worst all weigh the same and the tree is balanced.
std::vector<std::uint8_t> huffmanLengths(std::vector<std::uint32_t> freq, int limit) {
    // Decoders want a complete code: with fewer than two symbols, two are made up.
    for (std::size_t s = 0, used = std::count_if(freq.begin(), freq.end(), [](std::uint32_t f) { return f > 0; });
         used < 2; ++s)
        if (freq[s] == 0) freq[s] = 1, ++used;
    std::vector<std::uint8_t> lengths(freq.size(), 0);
    for (int shift = 0;; ++shift) {
        using Node = std::pair<std::uint64_t, int>;  // weight, node
        std::priority_queue<Node, std::vector<Node>, std::greater<Node>> queue;
        std::vector<int> parent;
        std::vector<std::size_t> leafSymbol;
        for (std::size_t s = 0; s < freq.size(); ++s) {
            if (freq[s] == 0) continue;
            queue.push({(freq[s] >> shift) | 1, static_cast<int>(parent.size())});
            parent.push_back(-1);
            leafSymbol.push_back(s);
        }
        while (queue.size() > 1) {
            const Node a = queue.top();
            queue.pop();
            const Node b = queue.top();
            queue.pop();
            parent[a.second] = parent[b.second] = static_cast<int>(parent.size());
            queue.push({a.first + b.first, static_cast<int>(parent.size())});
            parent.push_back(-1);
        }
        int deepest = 0;
        for (std::size_t leaf = 0; leaf < leafSymbol.size(); ++leaf) {
            int depth = 0;
            for (int n = parent[leaf]; n >= 0; n = parent[n]) ++depth;
            lengths[leafSymbol[leaf]] = static_cast<std::uint8_t>(depth);
            deepest = std::max(deepest, depth);
        }
        if (deepest <= limit) return lengths;
    }
}

// One block with codes of its own, described in its header: the literal and
// distance code lengths, run-length coded (16: repeat the last 3-6 times,
// 17: 3-10 zeros, 18: 11-138 zeros) in a third Huffman code.
void putDynamicBlock(BitWriter& bits, const std::vector<Token>& tokens) {
    std::vector<std::uint32_t> literalFreq(286, 0), distanceFreq(30, 0);
    for (const Token& t : tokens) {
        if (t.length == 0) {
            ++literalFreq[t.value];
        } else {
            ++literalFreq[lengthSymbol(t.length).symbol];
            ++distanceFreq[distanceSymbol(t.value).symbol];
        }
    }
    literalFreq[256] = 1;
    const std::vector<std::uint8_t> literalLengths = huffmanLengths(literalFreq, 15);
    const std::vector<std::uint8_t> distanceLengths = huffmanLengths(distanceFreq, 15);
    std::size_t hlit = 286, hdist = 30;
    while (hlit > 257 && literalLengths[hlit - 1] == 0) --hlit;
    while (hdist > 1 && distanceLengths[hdist - 1] == 0) --hdist;
    std::vector<std::uint8_t> all(literalLengths.begin(), literalLengths.begin() + hlit);
    all.insert(all.end(), distanceLengths.begin(), distanceLengths.begin() + hdist);

    std::vector<Symbol> runs;
    for (std::size_t i = 0; i < all.size();) {
        std::size_t run = 1;
        while (i + run < all.size() && all[i + run] == all[i]) ++run;
        std::size_t left = run;
        if (all[i] == 0) {
            for (; left >= 11; left -= std::min<std::size_t>(left, 138))
                runs.push_back({18, static_cast<unsigned>(std::min<std::size_t>(left, 138) - 11), 7});
            if (left >= 3) runs.push_back({17, static_cast<unsigned>(left - 3), 3}), left = 0;
        } else {
            runs.push_back({all[i], 0, 0});
            --left;
            for (; left >= 3; left -= std::min<std::size_t>(left, 6))
                runs.push_back({16, static_cast<unsigned>(std::min<std::size_t>(left, 6) - 3), 2});
        }
        for (; left > 0; --left) runs.push_back({all[i], 0, 0});
        i += run;
    }
    std::vector<std::uint32_t> runFreq(19, 0);
    for (const Symbol& r : runs) ++runFreq[r.symbol];
    const std::vector<std::uint8_t> runLengths = huffmanLengths(runFreq, 7);
    const std::vector<Code> runCodes = canonicalCodes(runLengths);
    // The order in which the header lists the run code's lengths: the ones
    // most often unused last, so they can be left off.
    static const int kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    std::size_t hclen = 19;
    while (hclen > 4 && runLengths[kOrder[hclen - 1]] == 0) --hclen;

    bits.put(1, 1);  // BFINAL
    bits.put(2, 2);  // BTYPE 10: codes of its own
    bits.put(static_cast<std::uint32_t>(hlit - 257), 5);
    bits.put(static_cast<std::uint32_t>(hdist - 1), 5);
    bits.put(static_cast<std::uint32_t>(hclen - 4), 4);
    for (std::size_t i = 0; i < hclen; ++i) bits.put(runLengths[kOrder[i]], 3);
    for (const Symbol& r : runs) {
        bits.put(runCodes[r.symbol].bits, runCodes[r.symbol].length);
        bits.put(r.extra, r.extraBits);
    }
    putTokens(bits, tokens, canonicalCodes(literalLengths), canonicalCodes(distanceLengths));
}

// Row filters: each row goes out as None, Sub or Up, whichever leaves the
// smallest sum of bytes read as signed differences. Flat UI areas then become
// runs of zeros whether they repeat across (Sub) or down (Up).
void filterRow(const std::uint8_t* row, const std::uint8_t* above, std::size_t size, std::size_t bpp,
               std::vector<std::uint8_t>& out) {
    std::uint64_t cost[3] = {0, 0, 0};
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint8_t left = i >= bpp ? row[i - bpp] : 0;
        const std::uint8_t up = above ? above[i] : 0;
        cost[0] += std::abs(static_cast<std::int8_t>(row[i]));
        cost[1] += std::abs(static_cast<std::int8_t>(row[i] - left));
        cost[2] += std::abs(static_cast<std::int8_t>(row[i] - up));
    }
    int filter = 0;
    if (cost[1] < cost[filter]) filter = 1;
    if (cost[2] < cost[filter]) filter = 2;
    out.push_back(static_cast<std::uint8_t>(filter));
    for (std::size_t i = 0; i < size; ++i) {
        std::uint8_t predicted = 0;
        if (filter == 1) predicted = i >= bpp ? row[i - bpp] : 0;
        else if (filter == 2) predicted = above ? above[i] : 0;
        out.push_back(static_cast<std::uint8_t>(row[i] - predicted));
    }
}

}  // namespace

std::uint32_t crc32(const std::uint8_t* data, std::size_t size, std::uint32_t crc) {
    const auto& table = crcTable();
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i) crc = table[(crc ^ data[i]) & 0xFFu] ^ (crc >> 8);
    return ~crc;
}

std::uint32_t adler32(const std::uint8_t* data, std::size_t size, std::uint32_t adler) {
    constexpr std::uint32_t kMod = 65521;
    std::uint32_t a = adler & 0xFFFFu;
    std::uint32_t b = adler >> 16;
    while (size > 0) {
        // 5552 bytes is the most that can be summed before b could overflow 32 bits.
        const std::size_t n = size < 5552 ? size : 5552;
        for (std::size_t i = 0; i < n; ++i) {
            a += data[i];
            b += a;
        }
        a %= kMod;
        b %= kMod;
        data += n;
        size -= n;
    }
    return (b << 16) | a;
}

std::vector<std::uint8_t> zlibStored(const std::vector<std::uint8_t>& data) {
    std::vector<std::uint8_t> out;
    out.reserve(data.size() + data.size() / 65535 * 5 + 16);
    // CMF 0x78: deflate with a 32 KiB window; FLG 0x01 makes CMF*256+FLG a multiple of 31.
    out.push_back(0x78);
    out.push_back(0x01);
    std::size_t at = 0;
    do {
        const std::size_t n = data.size() - at < 65535 ? data.size() - at : 65535;
        const bool last = at + n == data.size();
        out.push_back(last ? 1 : 0);  // BFINAL, BTYPE 00 (stored)
        out.push_back(static_cast<std::uint8_t>(n));
        out.push_back(static_cast<std::uint8_t>(n >> 8));
        out.push_back(static_cast<std::uint8_t>(~n));
        out.push_back(static_cast<std::uint8_t>(~n >> 8));
        out.insert(out.end(), data.begin() + static_cast<std::ptrdiff_t>(at),
                   data.begin() + static_cast<std::ptrdiff_t>(at + n));
        at += n;
    } while (at < data.size());
    putBe32(out, adler32(data.data(), data.size()));
    return out;
}

std::vector<std::uint8_t> zlibCompress(const std::vector<std::uint8_t>& data) {
    // The match finder keeps positions in 32-bit slots.
    if (data.size() > 0x7FFFFFFFu) return zlibStored(data);
    const std::vector<Token> tokens = tokenize(data);
    // Codes of its own pay for their header on all but the smallest data;
    // both are written and the smaller kept.
    std::vector<std::uint8_t> best;
    for (const bool dynamic : {true, false}) {
        std::vector<std::uint8_t> out = {0x78, 0x01};
        out.reserve(data.size() / 8 + 64);
        BitWriter bits(out);
        if (dynamic) {
            putDynamicBlock(bits, tokens);
        } else {
            bits.put(1, 1);  // BFINAL
            bits.put(1, 2);  // BTYPE 01: fixed codes
            putTokens(bits, tokens, fixedLiteralCodes(), fixedDistanceCodes());
        }
        bits.flush();
        if (best.empty() || out.size() < best.size()) best.swap(out);
    }
    // Noise does not shrink, and fixed codes spend 9 bits on half the bytes:
    // such data goes out stored, as it is.
    const std::size_t storedBlocks = data.empty() ? 1 : (data.size() + 65534) / 65535;
    if (best.size() + 4 > 2 + 5 * storedBlocks + data.size() + 4) return zlibStored(data);
    putBe32(best, adler32(data.data(), data.size()));
    return best;
}

std::vector<std::uint8_t> encodeArgb(int width, int height, const std::vector<std::uint32_t>& argb) {
    if (width <= 0 || height <= 0 || argb.size() < static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
        return {};
    // An image with no see-through pixel (a screenshot) is written as RGB: a
    // quarter of its bytes would be 255.
    bool opaque = true;
    for (std::size_t i = 0; i < static_cast<std::size_t>(width) * height && opaque; ++i) opaque = argb[i] >> 24 == 0xFF;
    const std::size_t channels = opaque ? 3 : 4;
    const std::size_t stride = static_cast<std::size_t>(width) * channels;
    std::vector<std::uint8_t> pixels(stride * 2);
    std::vector<std::uint8_t> raw;
    raw.reserve(static_cast<std::size_t>(height) * (1 + stride));
    for (int y = 0; y < height; ++y) {
        // Two row buffers: this one and the one above, for the Up filter.
        std::uint8_t* row = pixels.data() + (y & 1) * stride;
        const std::uint8_t* above = y > 0 ? pixels.data() + ((y - 1) & 1) * stride : nullptr;
        std::uint8_t* o = row;
        for (int x = 0; x < width; ++x) {
            const std::uint32_t p = argb[static_cast<std::size_t>(y) * width + x];
            *o++ = static_cast<std::uint8_t>(p >> 16);
            *o++ = static_cast<std::uint8_t>(p >> 8);
            *o++ = static_cast<std::uint8_t>(p);
            if (!opaque) *o++ = static_cast<std::uint8_t>(p >> 24);
        }
        filterRow(row, above, stride, channels, raw);
    }
    std::vector<std::uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<std::uint8_t> header;
    putBe32(header, static_cast<std::uint32_t>(width));
    putBe32(header, static_cast<std::uint32_t>(height));
    // 8 bits, RGB or RGBA, deflate, adaptive filters, no interlace
    header.insert(header.end(), {8, static_cast<std::uint8_t>(opaque ? 2 : 6), 0, 0, 0});
    putChunk(out, "IHDR", header);
    putChunk(out, "IDAT", zlibCompress(raw));
    putChunk(out, "IEND", {});
    return out;
}

bool writeArgb(const std::string& path, int width, int height, const std::vector<std::uint32_t>& argb,
               std::string* error) {
    const std::vector<std::uint8_t> bytes = encodeArgb(width, height, argb);
    if (bytes.empty()) {
        if (error) *error = "empty image";
        return false;
    }
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        if (error) *error = path + ": " + std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    const bool closed = std::fclose(f) == 0;
    if (!written || !closed) {
        if (error) *error = path + ": write failed";
        return false;
    }
    return true;
}

}  // namespace velmo::png
