// The PNG encoder of the icon and screenshot tools: its checksums against
// published check values, and a file's bytes as any PNG reader walks them.
#include <gtest/gtest.h>

#include <cstring>
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

TEST(VelmoPngWriter, FileHoldsRowsInStoredBlocksWithValidChunks) {
    // 200 x 100 RGBA rows are 80100 bytes: two stored blocks.
    const int w = 200, h = 100;
    std::vector<std::uint32_t> argb(static_cast<std::size_t>(w) * h);
    for (std::size_t i = 0; i < argb.size(); ++i) argb[i] = 0x80000000u | static_cast<std::uint32_t>(i * 2654435761u) >> 8;
    const std::vector<std::uint8_t> file = velmo::png::encodeArgb(w, h, argb);
    ASSERT_GT(file.size(), 8u);
    EXPECT_EQ(0, std::memcmp(file.data(), "\x89PNG\r\n\x1a\n", 8));
    std::vector<std::uint8_t> stream;
    std::string types;
    for (std::size_t at = 8; at + 12 <= file.size();) {
        const std::uint32_t n = be32(file, at);
        ASSERT_LE(at + 12 + n, file.size());
        types += std::string(reinterpret_cast<const char*>(&file[at + 4]), 4) + " ";
        EXPECT_EQ(velmo::png::crc32(&file[at + 4], 4 + n), be32(file, at + 8 + n)) << types;
        if (types.ends_with("IHDR ")) {
            EXPECT_EQ(be32(file, at + 8), std::uint32_t(w));
            EXPECT_EQ(be32(file, at + 12), std::uint32_t(h));
            EXPECT_EQ(file[at + 16], 8);  // bit depth
            EXPECT_EQ(file[at + 17], 6);  // RGBA
        }
        if (types.ends_with("IDAT ")) stream.assign(file.begin() + at + 8, file.begin() + at + 8 + n);
        at += 12 + n;
    }
    EXPECT_EQ(types, "IHDR IDAT IEND ");
    // Inflate the stored blocks by hand and compare with the rows.
    ASSERT_GE(stream.size(), 6u);
    EXPECT_EQ((stream[0] * 256 + stream[1]) % 31, 0);
    std::vector<std::uint8_t> raw;
    std::size_t at = 2;
    for (bool last = false; !last;) {
        ASSERT_LE(at + 5, stream.size());
        last = stream[at] & 1;
        const std::size_t len = stream[at + 1] | stream[at + 2] << 8;
        ASSERT_EQ(len ^ 0xFFFF, std::size_t(stream[at + 3] | stream[at + 4] << 8));
        raw.insert(raw.end(), stream.begin() + at + 5, stream.begin() + at + 5 + len);
        at += 5 + len;
    }
    ASSERT_EQ(raw.size(), std::size_t(h) * (1 + w * 4));
    EXPECT_EQ(be32(stream, at), velmo::png::adler32(raw.data(), raw.size()));
    const std::size_t px = 7 * (1 + w * 4) + 1 + 13 * 4;  // row 7, column 13
    const std::uint32_t want = argb[7 * w + 13];
    EXPECT_EQ(raw[px] << 16 | raw[px + 1] << 8 | raw[px + 2] | std::uint32_t(raw[px + 3]) << 24, want);
    EXPECT_TRUE(velmo::png::encodeArgb(0, 5, {}).empty());
}

TEST(VelmoPngWriter, OpaqueImageIsWrittenAsRgb) {
    const std::vector<std::uint8_t> file = velmo::png::encodeArgb(3, 2, std::vector<std::uint32_t>(6, 0xFF102030u));
    ASSERT_EQ(file.size(), 88u);  // signature, IHDR, IDAT of 2 rows of 1 + 3 x 3 bytes, IEND
    EXPECT_EQ(file[25], 2);       // colour type: RGB
    EXPECT_EQ(file[8 + 25 + 8 + 7 + 1], 0x10);  // first pixel's red, after the filter byte
}

}  // namespace
