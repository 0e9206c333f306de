// KyJsonDocument: parse into a scratch value, commit on success; generate
// through KyJsonWriter. See KyJsonDocument.h for the model.
#include "core/types/KyJsonDocument.h"

#include <string>
#include <utility>

#include "core/types/KyJsonParser.h"
#include "core/types/KyJsonWriter.h"

bool KyJsonDocument::loadFromJson(std::string_view text) {
    KyJsonValue parsed;
    KyJsonParser::Error error;
    if (!KyJsonParser::parse(text, parsed, error)) {
        errorLine_ = error.line;
        errorColumn_ = error.column;
        errorOffset_ = error.offset;
        errorString_ = KyString::format("line %d, column %d: %s", error.line, error.column, error.message);
        return false;
    }
    root_ = std::move(parsed);
    errorString_.clear();
    errorLine_ = 0;
    errorColumn_ = 0;
    errorOffset_ = 0;
    return true;
}

KyJsonDocument KyJsonDocument::fromJson(std::string_view text, bool* ok) {
    KyJsonDocument doc;
    const bool loaded = doc.loadFromJson(text);
    if (ok) *ok = loaded;
    return doc;
}

KyString KyJsonDocument::generateJson(Format format) const { return generateJson(root_, format); }

KyString KyJsonDocument::generateJson(const KyJsonValue& value, Format format) {
    std::string out;
    out.reserve(256);
    KyJsonWriter::write(value, format, out);
    return KyString(std::move(out));
}

void KyJsonDocument::clear() {
    root_ = KyJsonValue();
    errorString_.clear();
    errorLine_ = 0;
    errorColumn_ = 0;
    errorOffset_ = 0;
}
