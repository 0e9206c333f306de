// VelmoPngWriter: chunks, checksums and the stored zlib stream.
#include "VelmoPngWriter.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

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

std::vector<std::uint8_t> encodeArgb(int width, int height, const std::vector<std::uint32_t>& argb) {
    if (width <= 0 || height <= 0 || argb.size() < static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
        return {};
    // An image with no see-through pixel (a screenshot) is written as RGB:
    // with stored blocks every byte counts, and a quarter of them would be 255.
    bool opaque = true;
    for (std::size_t i = 0; i < static_cast<std::size_t>(width) * height && opaque; ++i) opaque = argb[i] >> 24 == 0xFF;
    const std::size_t channels = opaque ? 3 : 4;
    std::vector<std::uint8_t> raw;
    raw.reserve(static_cast<std::size_t>(height) * (1 + static_cast<std::size_t>(width) * channels));
    for (int y = 0; y < height; ++y) {
        raw.push_back(0);  // filter: none
        for (int x = 0; x < width; ++x) {
            const std::uint32_t p = argb[static_cast<std::size_t>(y) * width + x];
            raw.push_back(static_cast<std::uint8_t>(p >> 16));
            raw.push_back(static_cast<std::uint8_t>(p >> 8));
            raw.push_back(static_cast<std::uint8_t>(p));
            if (!opaque) raw.push_back(static_cast<std::uint8_t>(p >> 24));
        }
    }
    std::vector<std::uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<std::uint8_t> header;
    putBe32(header, static_cast<std::uint32_t>(width));
    putBe32(header, static_cast<std::uint32_t>(height));
    // 8 bits, RGB or RGBA, deflate, adaptive filters, no interlace
    header.insert(header.end(), {8, static_cast<std::uint8_t>(opaque ? 2 : 6), 0, 0, 0});
    putChunk(out, "IHDR", header);
    putChunk(out, "IDAT", zlibStored(raw));
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
