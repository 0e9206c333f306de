// KySecureMemory: overwriting secrets (passwords, keys) once they are used.
//
// A plain memset before a free or at the end of a scope is a dead store that
// the compiler may drop; these calls are never dropped. They wipe the bytes
// a value holds now; copies that an earlier reallocation left behind in freed
// memory are out of their reach, so code that holds a secret reserves its
// room once and copies it as little as it can. Pure functions: any thread.
#pragma once

#include <cstddef>
#include <string>

class KyString;

/// Overwrites n bytes at data with zeros, in a way the compiler keeps.
void kySecureZero(void* data, std::size_t n);
/// Overwrites the 16 KiB of stack below the caller's frame. Bytes copied
/// there by calls that have returned stay behind: the encoder's buffer, and
/// the vector registers that the dynamic linker's lazy binding or a signal
/// frame saves on the stack while a secret passes through them. Call it on a
/// stack with that much room (a fiber's has 64 KiB or more).
void kySecureZeroStack();
/// Overwrites the whole allocation of text (its capacity, not only its size)
/// and leaves it empty.
void kySecureClear(std::string& text);
void kySecureClear(KyString& text);
