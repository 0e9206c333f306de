// Fuzz target for the JSON layer: whatever the bytes, parsing must not crash
// or hang; whatever parses must generate compact and indented text that parses
// back to a deep-equal value; path lookups and the lenient object reader must
// cope with any tree.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonHelpers.h"

namespace {

void requireSameAfterReparse(const KyJsonDocument& doc, KyJsonDocument::Format format) {
    const KyString text = doc.generateJson(format);
    KyJsonDocument again;
    if (!again.loadFromJson(text)) __builtin_trap();
    if (!(again == doc)) __builtin_trap();
    // Generation is a function of the value: the second text equals the first.
    if (again.generateJson(format) != text) __builtin_trap();
}

// Paths built from the first members and items of the tree, so lookups hit.
void exercisePaths(KyJsonDocument& doc) {
    KyString path;
    const KyJsonValue* v = &doc.root();
    for (int depth = 0; depth < 8 && v; ++depth) {
        if (const KyJsonObject* o = v->objectPtr()) {
            if (o->isEmpty()) break;
            path += "/" + o->keyAt(o->size() / 2);
        } else if (const KyJsonArray* a = v->arrayPtr()) {
            if (a->isEmpty()) break;
            path += "/" + KyString::number(static_cast<unsigned long>(a->size() - 1));
        } else {
            break;
        }
        v = static_cast<const KyJsonDocument&>(doc).find(path);
    }
    KyJsonDocument copy = doc;
    KyJsonValue* created = copy.find(path + "/fuzz/leaf", true);
    if (created) {
        *created = "x";
        const KyJsonValue* back = copy.find(path + "/fuzz/leaf");
        if (!back || back->asString() != "x") __builtin_trap();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    KyJsonDocument doc;
    const bool ok = doc.loadFromJson(text);
    const KyJsonObject object = parseJsonObjectOrEmpty(KyString(text));
    if (!ok) {
        if (!object.isEmpty() || doc.errorLine() < 1 || doc.errorColumn() < 1) __builtin_trap();
        return 0;
    }
    // The lenient reader agrees with the strict one: the same object, or empty.
    if (doc.isObject() ? !(object == doc.root().asObject()) : !object.isEmpty()) __builtin_trap();
    requireSameAfterReparse(doc, KyJsonDocument::Compact);
    requireSameAfterReparse(doc, KyJsonDocument::Indented);
    exercisePaths(doc);
    if (doc.isObject())
        for (const KyJsonObject::Member& m : doc.root().asObject()) (void)jsonStringValue(object, m.key.c_str());
    return 0;
}
