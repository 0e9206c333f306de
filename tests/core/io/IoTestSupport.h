// Shared by the file, settings and logging tests and the helper programs they
// spawn: the child-process and temporary-directory support of all process
// tests, and the two settings contents the kill test alternates.
#pragma once

#include "../../support/KyTestProcess.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"

namespace kytest {

/// The two complete settings contents a writer alternates between. They differ
/// in every value and in their set of keys, and are large enough that a save
/// takes more than one write.
inline KyMap<KyString, KyString> alternatingContent(int which) {
    KyMap<KyString, KyString> entries;
    const KyString tag = which == 0 ? "alpha" : "beta";
    const int keys = which == 0 ? 400 : 250;
    const KyString padding(which == 0 ? 90 : 160, which == 0 ? 'a' : 'b');
    for (int i = 0; i < keys; ++i)
        entries.insert("login/key" + KyString::number(i), tag + "-" + KyString::number(i) + "-" + padding);
    entries.insert(which == 0 ? "alpha/only" : "beta/only", "line one\nline two, " + tag);
    return entries;
}

} // namespace kytest
