// VelmoPngWriter: a minimal PNG encoder for the project's build tools (the
// hicolor icons) and its screenshot tool, with no compression library.
//
// Images are written as 8-bit RGBA (RGB when no pixel is see-through), each
// row with the None, Sub or Up filter that suits it, inside a zlib stream of
// one deflate block: LZ77 matches over a 32 KiB window in Huffman codes of
// the block's own (or the fixed codes, for tiny data), which turn the flat
// areas of a screenshot into a few bits per row; data that does not shrink
// goes out in "stored" blocks instead. The CRC-32 of each chunk and the
// Adler-32 of the zlib stream are computed here. Pure functions, any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velmo::png {

/// CRC-32 (ISO 3309, reflected polynomial 0xEDB88320) of size bytes, continuing from crc
/// (start with 0).
std::uint32_t crc32(const std::uint8_t* data, std::size_t size, std::uint32_t crc = 0);
/// Adler-32 of size bytes, continuing from adler (start with 1).
std::uint32_t adler32(const std::uint8_t* data, std::size_t size, std::uint32_t adler = 1);
/// A zlib stream (RFC 1950) of stored deflate blocks holding data as it is.
std::vector<std::uint8_t> zlibStored(const std::vector<std::uint8_t>& data);
/// A zlib stream (RFC 1950) of data compressed in one deflate block, with
/// its own or the fixed Huffman codes, or zlibStored(data) when that comes out smaller.
std::vector<std::uint8_t> zlibCompress(const std::vector<std::uint8_t>& data);

/// The PNG file of a width x height image given as 0xAARRGGBB pixels, row by
/// row (straight, not premultiplied alpha). Empty for an empty or short image.
std::vector<std::uint8_t> encodeArgb(int width, int height, const std::vector<std::uint32_t>& argb);
/// encodeArgb written to path; false (with the reason in error) when it cannot be.
bool writeArgb(const std::string& path, int width, int height, const std::vector<std::uint32_t>& argb,
               std::string* error = nullptr);

}  // namespace velmo::png
