// Saves one settings file in a tight loop, alternating two complete contents,
// until killed. After each successful save it writes one byte to stdout so the
// test knows saves are happening.
#include <unistd.h>

#include <cstdio>

#include "../IoTestSupport.h"
#include "core/io/KySettings.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: settings_writer <file>\n");
        return 2;
    }
    KySettings settings{KyString(argv[1])};
    for (int round = 0;; ++round) {
        settings.clear();
        for (const auto& [key, value] : kytest::alternatingContent(round % 2)) settings.setValue(key, value);
        if (!settings.save()) {
            std::fprintf(stderr, "save failed: %s\n", settings.errorString().c_str());
            return 1;
        }
        const char tick = '.';
        if (::write(1, &tick, 1) != 1) return 0; // the test stopped listening
    }
}
