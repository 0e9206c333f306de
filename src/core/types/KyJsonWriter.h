// KyJsonWriter: the generator behind KyJsonDocument::generateJson.
//
// Appends JSON text for a value to a byte string, compact or indented by four
// spaces. Escaping works on runs of plain bytes; doubles go through the
// shortest round-trip conversion. Stateless; any thread may write.
#pragma once

#include <string>
#include <string_view>

#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonValue.h"

/// JSON text generation for values, strings and numbers.
class KyJsonWriter {
public:
    static void write(const KyJsonValue& value, KyJsonDocument::Format format, std::string& out);
    /// A quoted, escaped JSON string; invalid UTF-8 is written as U+FFFD.
    static void writeString(std::string_view text, std::string& out);
    /// Shortest round-trip text with a '.' or exponent; NaN and infinities as null.
    static void writeDouble(double value, std::string& out);
};
