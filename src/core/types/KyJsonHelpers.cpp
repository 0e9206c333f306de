// KyJsonHelpers: lenient snapshot readers. See KyJsonHelpers.h.
#include "core/types/KyJsonHelpers.h"

#include <utility>

#include "core/types/KyJsonDocument.h"

KyString jsonStringValue(const KyJsonObject& object, const char* key) {
    if (!key) return KyString();
    return object[key].asString();
}

KyJsonObject parseJsonObjectOrEmpty(const KyString& text) {
    KyJsonDocument doc;
    if (!doc.loadFromJson(text.view())) return KyJsonObject();
    KyJsonObject* object = doc.root().objectPtr();
    return object ? std::move(*object) : KyJsonObject();
}
