// KyJsonHelpers: the two lenient readers the console uses on agent snapshots,
// where a missing or mistyped member simply reads as empty.
//
// Free functions over plain values; any thread may call them.
#pragma once

#include "core/types/KyJsonObject.h"
#include "core/types/KyString.h"

/// The member as text when it is a string; empty when it is absent, null or of
/// any other type (numbers and bools are not converted, so a mistyped member
/// reads the same as a missing one).
KyString jsonStringValue(const KyJsonObject& object, const char* key);

/// The parsed object, or an empty object when the text is malformed or its
/// root is not an object.
KyJsonObject parseJsonObjectOrEmpty(const KyString& text);
