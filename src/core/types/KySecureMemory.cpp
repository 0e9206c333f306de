// Overwriting secrets. See the header.
#include "core/types/KySecureMemory.h"

#include <string.h>

#include "core/types/KyString.h"

void kySecureZero(void* data, std::size_t n) {
    if (!data || n == 0) return;
    // glibc's explicit_bzero is an opaque call with a compiler barrier: the
    // stores stay even when the memory is freed right after.
    ::explicit_bzero(data, n);
}

__attribute__((noinline)) void kySecureZeroStack() {
    unsigned char area[16384];
    kySecureZero(area, sizeof area);
    // The frame must really be there, below the caller's.
    asm volatile("" : : "r"(area) : "memory");
}

void kySecureClear(std::string& text) {
    // Growing to the capacity reaches bytes past the end that an earlier,
    // longer value left in the same allocation; it never reallocates.
    text.resize(text.capacity());
    kySecureZero(text.data(), text.size());
    text.clear();
}

void kySecureClear(KyString& text) { kySecureClear(text.str()); }
