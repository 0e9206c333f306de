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

// An inflater for stored and fixed-Huffman blocks, written from the format
// with its own tables; false on anything it does not understand.
class Inflater {
public:
    explicit Inflater(const std::vector<std::uint8_t>& in) : in_(in) {}

    bool run(std::vector<std::uint8_t>& out) {
        static const unsigned lengthBase[] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                              31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
        static const unsigned lengthExtra[] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                               2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
        static const unsigned distBase[] = {1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
                                            193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
        for (bool last = false; !last;) {
            last = bits_(1);
            const unsigned type = bits_(2);
            if (type == 0) {
                bit_ = (bit_ + 7) / 8 * 8;
                const unsigned len = bits_(16), nlen = bits_(16);
                if ((len ^ 0xFFFF) != nlen || bit_ / 8 + len > in_.size()) return false;
                out.insert(out.end(), in_.begin() + bit_ / 8, in_.begin() + bit_ / 8 + len);
                bit_ += 8 * len;
            } else if (type == 1) {
                for (;;) {
                    const unsigned symbol = fixedSymbol_();
                    if (symbol < 256) {
                        out.push_back(static_cast<std::uint8_t>(symbol));
                        continue;
                    }
                    if (symbol == 256) break;
                    if (symbol > 285) return false;
                    const unsigned length = lengthBase[symbol - 257] + bits_(lengthExtra[symbol - 257]);
                    unsigned code = 0;
                    for (int i = 0; i < 5; ++i) code = code << 1 | bits_(1);
                    if (code > 29) return false;
                    const unsigned distance = distBase[code] + bits_(code < 4 ? 0 : code / 2 - 1);
                    if (distance > out.size() || distance > 32768) return false;
                    for (unsigned i = 0; i < length; ++i) out.push_back(out[out.size() - distance]);
                }
            } else {
                return false;
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
    unsigned fixedSymbol_() {
        unsigned code = 0;
        for (int i = 0; i < 7; ++i) code = code << 1 | bits_(1);
        if (code <= 0x17) return 256 + code;
        code = code << 1 | bits_(1);
        if (code >= 0x30 && code <= 0xBF) return code - 0x30;
        if (code >= 0xC0 && code <= 0xC7) return 280 + code - 0xC0;
        return 144 + (code << 1 | bits_(1)) - 0x190;
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
    for (int i = 0; i < 4000; ++i) longMatches.push_back(std::uint8_t(random()));
    for (std::size_t d : {1u, 2u, 3u, 300u, 4000u}) longMatches.insert(longMatches.end(), longMatches.end() - d, longMatches.end() - d + 600);
    while (longMatches.size() < 40000) longMatches.push_back(std::uint8_t(random() % 3));
    longMatches.insert(longMatches.end(), longMatches.end() - 32768, longMatches.end() - 32768 + 259);
    struct StreamCase {
        const char* name;
        std::vector<std::uint8_t> data;
        bool fixedCodes;  // the first block uses the fixed codes (else: stored)
    };
    const StreamCase cases[] = {
        {"Empty", {}, true},
        {"OneByte", {42}, true},
        {"Noise", std::vector<std::uint8_t>(longMatches.begin(), longMatches.begin() + 4000), false},
        {"LongMatches", longMatches, true},
    };
    for (const auto& [name, data, fixedCodes] : cases) {
        const std::vector<std::uint8_t> stream = velmo::png::zlibCompress(data);
        ASSERT_GE(stream.size(), 7u) << name;
        EXPECT_EQ((stream[2] >> 1 & 3) == 1, fixedCodes) << name;
        std::vector<std::uint8_t> out;
        Inflater inflater(stream);
        ASSERT_TRUE(inflater.run(out)) << name;
        EXPECT_TRUE(out == data) << name;
        ASSERT_EQ(inflater.at + 4, stream.size()) << name;
        EXPECT_EQ(be32(stream, inflater.at), velmo::png::adler32(data.data(), data.size())) << name;
    }
}

}  // namespace
