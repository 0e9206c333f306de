// The PNG encoder of the icon and screenshot tools: its checksums against
// published check values, and its files read back by a small reader of our
// own that walks the chunks, inflates stored and fixed-Huffman blocks, undoes
// the row filters and compares every pixel.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "VelmoPngWriter.h"

namespace {

std::uint32_t be32(const std::vector<std::uint8_t>& b, std::size_t at) {
    return std::uint32_t(b[at]) << 24 | std::uint32_t(b[at + 1]) << 16 | std::uint32_t(b[at + 2]) << 8 | b[at + 3];
}

struct ChecksumCase {
    const char* name;
    std::string bytes;
    std::uint32_t crc;
    std::uint32_t adler;
};

TEST(VelmoPngWriter, ChecksumsMatchTheirCheckValues) {
    const ChecksumCase cases[] = {
        {"Empty", "", 0x00000000u, 0x00000001u},
        {"CheckString", "123456789", 0xCBF43926u, 0x091E01DEu},
        {"Wikipedia", "Wikipedia", 0xADAAC02Eu, 0x11E60398u},
        {"IendChunkType", "IEND", 0xAE426082u, 0x02D70121u},
        // Past 5552 bytes the Adler sums are reduced on the way.
        {"LongRun", std::string(100000, '\xFF'), 0x68C6CEC4u, 0x149A302Cu},
    };
    for (const ChecksumCase& c : cases) {
        const auto* data = reinterpret_cast<const std::uint8_t*>(c.bytes.data());
        EXPECT_EQ(velmo::png::crc32(data, c.bytes.size()), c.crc) << c.name;
        EXPECT_EQ(velmo::png::adler32(data, c.bytes.size()), c.adler) << c.name;
    }
}

// A canonical Huffman code read from its code lengths, decoded bit by bit.
struct Huffman {
    explicit Huffman(const std::vector<int>& lengths) {
        for (int l = 1; l < 16; ++l)
            for (std::size_t s = 0; s < lengths.size(); ++s)
                if (lengths[s] == l) ++count[l], symbols.push_back(int(s));
    }
    int count[16] = {};
    std::vector<int> symbols;  // by length, then by symbol
};

// An inflater for all three block types, written from the format with its
// own tables; false on anything it does not understand.
class Inflater {
public:
    explicit Inflater(const std::vector<std::uint8_t>& in) : in_(in) {}

    bool run(std::vector<std::uint8_t>& out) {
        static const int lengthBase[] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                         31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
        static const int lengthExtra[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                          2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
        static const int distBase[] = {1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
                                       193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
        static const int order[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
        for (bool last = false; !last;) {
            last = bits_(1);
            const int type = bits_(2);
            if (type == 0) {
                bit_ = (bit_ + 7) / 8 * 8;
                const unsigned len = bits_(16), nlen = bits_(16);
                if ((len ^ 0xFFFF) != nlen || bit_ / 8 + len > in_.size()) return false;
                out.insert(out.end(), in_.begin() + bit_ / 8, in_.begin() + bit_ / 8 + len);
                bit_ += 8 * len;
                continue;
            }
            std::vector<int> lengths;
            std::size_t literals = 288;
            if (type == 1) {
                lengths.assign(288, 8);
                std::fill(lengths.begin() + 144, lengths.begin() + 256, 9);
                std::fill(lengths.begin() + 256, lengths.begin() + 280, 7);
                lengths.insert(lengths.end(), 30, 5);
            } else if (type == 2) {
                literals = bits_(5) + 257;
                const std::size_t distances = bits_(5) + 1, runCodes = bits_(4) + 4;
                std::vector<int> runLengths(19, 0);
                for (std::size_t i = 0; i < runCodes; ++i) runLengths[order[i]] = bits_(3);
                const Huffman runs(runLengths);
                while (lengths.size() < literals + distances && bit_ <= 8 * in_.size()) {
                    const int r = decode_(runs);
                    if (r < 16) lengths.push_back(r);
                    else if (r == 16 && !lengths.empty()) lengths.insert(lengths.end(), 3 + bits_(2), lengths.back());
                    else if (r == 17) lengths.insert(lengths.end(), 3 + bits_(3), 0);
                    else if (r == 18) lengths.insert(lengths.end(), 11 + bits_(7), 0);
                    else return false;
                }
                if (lengths.size() != literals + distances) return false;
            } else {
                return false;
            }
            const Huffman literal({lengths.begin(), lengths.begin() + literals});
            const Huffman distance({lengths.begin() + literals, lengths.end()});
            while (bit_ <= 8 * in_.size()) {
                const int symbol = decode_(literal);
                if (symbol < 0 || symbol > 285) return false;
                if (symbol < 256) out.push_back(std::uint8_t(symbol));
                if (symbol <= 256) {
                    if (symbol == 256) break;
                    continue;
                }
                const unsigned length = lengthBase[symbol - 257] + bits_(lengthExtra[symbol - 257]);
                const int code = decode_(distance);
                if (code < 0 || code > 29) return false;
                const unsigned dist = distBase[code] + bits_(code < 4 ? 0 : code / 2 - 1);
                if (dist > out.size()) return false;
                for (unsigned i = 0; i < length; ++i) out.push_back(out[out.size() - dist]);
            }
            if (bit_ > 8 * in_.size()) return false;
        }
        at = (bit_ + 7) / 8;
        return true;
    }
    std::size_t at = 0;  // the first byte after the last block

private:
    unsigned bits_(int n) {
        unsigned v = 0;
        for (int i = 0; i < n; ++i, ++bit_)
            if (bit_ / 8 < in_.size()) v |= unsigned(in_[bit_ / 8] >> (bit_ % 8) & 1) << i;
        return v;
    }
    // Codes of one length are consecutive numbers, following on from the
    // shorter ones doubled: walk the lengths until the code falls in a range.
    int decode_(const Huffman& h) {
        int code = 0, first = 0, index = 0;
        for (int l = 1; l < 16; ++l) {
            code |= int(bits_(1));
            if (code - first < h.count[l]) return h.symbols[index + code - first];
            index += h.count[l];
            first = (first + h.count[l]) << 1;
            code <<= 1;
        }
        return -1;
    }
    const std::vector<std::uint8_t>& in_;
    std::size_t bit_ = 2 * 8;  // after the zlib header
};

struct Decoded {
    int width = 0, height = 0, colourType = 0;
    std::vector<std::uint32_t> argb;
};

// Reads a file the way any PNG reader walks it; failures are test failures.
void decode(const std::vector<std::uint8_t>& file, Decoded& image) {
    ASSERT_GT(file.size(), 8u);
    ASSERT_EQ(0, std::memcmp(file.data(), "\x89PNG\r\n\x1a\n", 8));
    std::vector<std::uint8_t> stream;
    std::string types;
    for (std::size_t at = 8; at + 12 <= file.size();) {
        const std::uint32_t n = be32(file, at);
        ASSERT_LE(at + 12 + n, file.size());
        types += std::string(reinterpret_cast<const char*>(&file[at + 4]), 4) + " ";
        ASSERT_EQ(velmo::png::crc32(&file[at + 4], 4 + n), be32(file, at + 8 + n)) << types;
        if (types.ends_with("IHDR ")) {
            image.width = int(be32(file, at + 8));
            image.height = int(be32(file, at + 12));
            ASSERT_EQ(file[at + 16], 8);  // bit depth
            image.colourType = file[at + 17];
        }
        if (types.ends_with("IDAT ")) stream.assign(file.begin() + at + 8, file.begin() + at + 8 + n);
        at += 12 + n;
    }
    ASSERT_EQ(types, "IHDR IDAT IEND ");
    ASSERT_GE(stream.size(), 6u);
    ASSERT_EQ((stream[0] * 256 + stream[1]) % 31, 0);
    ASSERT_EQ(stream[0] & 0x0F, 8);  // deflate
    std::vector<std::uint8_t> raw;
    Inflater inflater(stream);
    ASSERT_TRUE(inflater.run(raw));
    ASSERT_EQ(inflater.at + 4, stream.size());
    ASSERT_EQ(be32(stream, inflater.at), velmo::png::adler32(raw.data(), raw.size()));
    const std::size_t bpp = image.colourType == 2 ? 3 : 4;
    const std::size_t stride = image.width * bpp;
    ASSERT_EQ(raw.size(), image.height * (1 + stride));
    for (int y = 0; y < image.height; ++y) {
        std::uint8_t* row = &raw[y * (1 + stride) + 1];
        const std::uint8_t filter = row[-1];
        ASSERT_LE(filter, 2) << "row " << y;
        for (std::size_t i = 0; i < stride; ++i) {
            if (filter == 1 && i >= bpp) row[i] += row[i - bpp];
            if (filter == 2 && y > 0) row[i] += row[i - 1 - stride];
        }
        for (int x = 0; x < image.width; ++x) {
            const std::uint8_t* p = row + x * bpp;
            image.argb.push_back((bpp == 4 ? std::uint32_t(p[3]) << 24 : 0xFF000000u) | p[0] << 16 | p[1] << 8 | p[2]);
        }
    }
}

struct ImageCase {
    const char* name;
    int width, height;
    std::uint32_t (*pixel)(int x, int y);
    std::size_t maxFileSize;
};

std::uint32_t noise(int x, int y) {
    std::uint32_t v = std::uint32_t(x * 7919 + y * 104729) * 2654435761u;
    return v ^ v >> 15;
}

TEST(VelmoPngWriter, ImagesReadBackPixelForPixel) {
    const ImageCase cases[] = {
        // A dark window with a lighter bar: a few bytes per row at most.
        {"FlatDarkWindow", 1600, 1000, [](int, int y) { return y < 40 ? 0xFF2B2F36u : 0xFF1E2127u; }, 40000},
        {"Gradient", 300, 200, [](int x, int y) { return 0xFF000000u | std::uint32_t(x & 255) << 16 | (y & 255) << 8 | 0x40; }, 20000},
        // Text-like strokes in one colour on a flat ground.
        {"Strokes", 400, 300, [](int x, int y) { return (noise(x / 3, y / 9) & 7) == 0 && y % 9 < 7 ? 0xFFE0E0E0u : 0xFF202020u; }, 30000},
        // Noise does not shrink: it goes out stored, no larger than that.
        {"NoiseWithAlpha", 200, 100, [](int x, int y) { return noise(x, y); }, 200 * 100 * 4 + 100 + 64},
        {"OnePixel", 1, 1, [](int, int) { return 0x80FF0000u; }, 80},
        {"WideRow", 5000, 1, [](int x, int) { return 0xFF000000u | std::uint32_t(x / 50) << 8; }, 2500},
    };
    for (const ImageCase& c : cases) {
        std::vector<std::uint32_t> argb;
        for (int y = 0; y < c.height; ++y)
            for (int x = 0; x < c.width; ++x) argb.push_back(c.pixel(x, y));
        const std::vector<std::uint8_t> file = velmo::png::encodeArgb(c.width, c.height, argb);
        Decoded image;
        decode(file, image);
        ASSERT_FALSE(HasFailure()) << c.name;
        EXPECT_EQ(image.width, c.width) << c.name;
        EXPECT_EQ(image.height, c.height) << c.name;
        const bool opaque = std::all_of(argb.begin(), argb.end(), [](std::uint32_t p) { return p >> 24 == 0xFF; });
        EXPECT_EQ(image.colourType, opaque ? 2 : 6) << c.name;
        EXPECT_TRUE(image.argb == argb) << c.name;
        EXPECT_LE(file.size(), c.maxFileSize) << c.name;
    }
    EXPECT_TRUE(velmo::png::encodeArgb(0, 5, {}).empty());
}

TEST(VelmoPngWriter, CompressedStreamsInflateToTheirData) {
    std::mt19937 random(7);
    std::vector<std::uint8_t> longMatches;  // runs and repeats at every distance up to the window's end
    const auto repeat = [&](std::size_t distance, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) longMatches.push_back(std::uint8_t(longMatches[longMatches.size() - distance]));
    };
    for (int i = 0; i < 4000; ++i) longMatches.push_back(std::uint8_t(random()));
    for (std::size_t d : {1u, 2u, 3u, 300u, 4000u}) repeat(d, 600);
    while (longMatches.size() < 40000) longMatches.push_back(std::uint8_t(random() % 3));
    repeat(32768, 259);
    struct StreamCase {
        const char* name;
        std::vector<std::uint8_t> data;
        int blockType;  // of the first block: 0 stored, 1 fixed codes, 2 codes of its own
    };
    const StreamCase cases[] = {
        {"Empty", {}, 1},
        {"OneByte", {42}, 1},
        {"Noise", std::vector<std::uint8_t>(longMatches.begin(), longMatches.begin() + 4000), 0},
        {"LongMatches", longMatches, 2},
    };
    for (const auto& [name, data, blockType] : cases) {
        const std::vector<std::uint8_t> stream = velmo::png::zlibCompress(data);
        ASSERT_GE(stream.size(), 7u) << name;
        EXPECT_EQ(stream[2] >> 1 & 3, blockType) << name;
        std::vector<std::uint8_t> out;
        Inflater inflater(stream);
        ASSERT_TRUE(inflater.run(out)) << name;
        EXPECT_TRUE(out == data) << name;
        ASSERT_EQ(inflater.at + 4, stream.size()) << name;
        EXPECT_EQ(be32(stream, inflater.at), velmo::png::adler32(data.data(), data.size())) << name;
    }
}

}  // namespace
