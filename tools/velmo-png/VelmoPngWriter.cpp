// VelmoPngWriter: chunks, checksums, row filters and the zlib stream: LZ77
// over a 32 KiB window (hash chains, one step of lazy matching) written with
// the fixed Huffman codes, or stored blocks when those come out smaller.
#include "VelmoPngWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cstdlib>

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

struct FixedCode {
    std::uint16_t bits;  // already reversed
    std::uint8_t length;
};

// The fixed literal/length code: 0-143 in 8 bits from 0x30, 144-255 in 9 bits
// from 0x190, 256-279 in 7 bits from 0, 280-287 in 8 bits from 0xC0.
const std::array<FixedCode, 288>& fixedLiteralCodes() {
    static const std::array<FixedCode, 288> table = [] {
        std::array<FixedCode, 288> t{};
        for (std::uint32_t s = 0; s < 288; ++s) {
            std::uint32_t code;
            int length;
            if (s < 144) code = 0x30 + s, length = 8;
            else if (s < 256) code = 0x190 + s - 144, length = 9;
            else if (s < 280) code = s - 256, length = 7;
            else code = 0xC0 + s - 280, length = 8;
            t[s] = {static_cast<std::uint16_t>(reversed(code, length)), static_cast<std::uint8_t>(length)};
        }
        return t;
    }();
    return table;
}

int highBit(std::uint32_t x) { return 31 - __builtin_clz(x); }

// A match of length 3-258 at distance 1-32768: its length symbol and extra
// bits, then its 5-bit distance code and extra bits. Above the first
// symbols of each alphabet every pair of codes shares a power of two, so the
// code follows from the highest bits of (value - base of the first code).
void putMatch(BitWriter& bits, unsigned length, unsigned distance) {
    const auto& lit = fixedLiteralCodes();
    const unsigned l = length - 3;
    if (length == 258) {
        bits.put(lit[285].bits, lit[285].length);
    } else if (l < 8) {
        bits.put(lit[257 + l].bits, lit[257 + l].length);
    } else {
        const int b = highBit(l);
        const unsigned symbol = 257 + 4 * (b - 1) + ((l >> (b - 2)) & 3);
        bits.put(lit[symbol].bits, lit[symbol].length);
        bits.put(l & ((1u << (b - 2)) - 1), b - 2);
    }
    const unsigned d = distance - 1;
    if (d < 4) {
        bits.put(reversed(d, 5), 5);
    } else {
        const int b = highBit(d);
        const unsigned code = 2 * b + ((d >> (b - 1)) & 1);
        bits.put(reversed(code, 5), 5);
        bits.put(d & ((1u << (b - 1)) - 1), b - 1);
    }
}

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

// One final block of fixed Huffman codes holding the whole of data.
void putFixedBlock(BitWriter& bits, const std::vector<std::uint8_t>& data) {
    // A match this long is taken at once: looking one byte further rarely pays.
    constexpr unsigned kLazyLimit = 32;
    const auto& lit = fixedLiteralCodes();
    bits.put(1, 1);  // BFINAL
    bits.put(1, 2);  // BTYPE 01: fixed codes
    MatchFinder finder(data);
    std::size_t at = 0;
    while (at < data.size()) {
        unsigned distance = 0;
        unsigned length = finder.find(at, &distance);
        finder.insert(at);
        if (length == 0) {
            bits.put(lit[data[at]].bits, lit[data[at]].length);
            ++at;
            continue;
        }
        // Lazy matching: when the match starting one byte later is longer,
        // this byte goes out as a literal and that match is taken instead.
        while (length < kLazyLimit && at + 1 < data.size()) {
            unsigned nextDistance = 0;
            const unsigned next = finder.find(at + 1, &nextDistance);
            if (next <= length) break;
            bits.put(lit[data[at]].bits, lit[data[at]].length);
            ++at;
            finder.insert(at);
            length = next;
            distance = nextDistance;
        }
        putMatch(bits, length, distance);
        for (std::size_t i = at + 1; i < at + length; ++i) finder.insert(i);
        at += length;
    }
    bits.put(lit[256].bits, lit[256].length);  // end of block
    bits.flush();
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
    std::vector<std::uint8_t> out;
    out.reserve(data.size() / 8 + 64);
    out.push_back(0x78);
    out.push_back(0x01);
    BitWriter bits(out);
    putFixedBlock(bits, data);
    // Noise does not shrink, and fixed codes spend 9 bits on half the bytes:
    // such data goes out stored, as it is.
    const std::size_t storedBlocks = data.empty() ? 1 : (data.size() + 65534) / 65535;
    if (out.size() + 4 > 2 + 5 * storedBlocks + data.size() + 4) return zlibStored(data);
    putBe32(out, adler32(data.data(), data.size()));
    return out;
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
