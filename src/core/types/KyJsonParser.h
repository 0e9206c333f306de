// KyJsonParser: the strict RFC 8259 reader behind KyJsonDocument::loadFromJson.
//
// One pass over the bytes with no per-character virtual calls: strings are
// copied in runs between escapes, UTF-8 is checked in place, numbers are
// converted without allocating, and finished values move once into
// containers sized to fit. Nesting is bounded by KyJsonDocument::kMaxDepth and walked with an
// explicit stack, so parsing needs little machine stack whatever the text.
// Stateless between calls; any thread may parse.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/types/KyJsonValue.h"

/// Strict JSON text reader with located errors.
namespace ky::detail {
// Bytes a JSON string holds as they are, for both reading and writing:
// printable ASCII other than '"' and '\\'.
struct JsonPlainTable {
    bool plain[256];
    constexpr JsonPlainTable() : plain() {
        for (int c = 0x20; c < 0x80; ++c) plain[c] = c != '"' && c != '\\';
    }
};
inline constexpr JsonPlainTable kJsonPlainBytes;
} // namespace ky::detail

class KyJsonParser {
public:
    /// Where and why a parse failed.
    struct Error {
        const char* message = nullptr; ///< static English text, nullptr on success
        std::size_t offset = 0;        ///< byte offset in the text
        int line = 0;                  ///< from 1
        int column = 0;                ///< from 1, in bytes
    };

    /// Parses the whole text into out. On failure out holds a partial value
    /// that the caller must discard, and error says what went wrong where.
    static bool parse(std::string_view text, KyJsonValue& out, Error& error);
};
