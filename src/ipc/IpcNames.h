// IpcNames: the framework hash and the names, texts and clock that every
// shared object of the IPC layer is built from.
//
// Everything here is a wire rule: another process computes the same names
// from the same texts, so the functions are pure and byte-exact. The hash is
// FNV-1a over the stored UTF-8 bytes with the 64-bit prime and a private start
// value. All stamps in shared memory are milliseconds of CLOCK_MONOTONIC
// (nowMs); tests may skew this process's clock to age rows without sleeping.
// Every function may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/types/KyString.h"

namespace ky::ipc::detail {

/// Start value of the framework hash (the empty text hashes to it).
inline constexpr uint64_t kFrameworkHashStart = 0x14650FB0739D0383ULL;
inline constexpr uint64_t kFrameworkHashPrime = 0x100000001B3ULL;

uint64_t frameworkHash(const void* data, size_t size, uint64_t start = kFrameworkHashStart);
uint64_t frameworkHash(const KyString& text);

/// 16 lower-case hexadecimal digits, zero-filled.
KyString hex64(uint64_t value);

/// "/ky_sig_" + hex64(hash(domain + "|" + object + "|" + signal)): 24 characters always.
KyString make_shm_name(const KyString& domain, const KyString& object, const KyString& signal);

/// A domain as a safe object-name suffix: [A-Za-z0-9._-] kept, others "_",
/// "_" trimmed at both ends, "root" when empty, long names cut to 32 bytes
/// plus "_" and the hash of the original.
KyString sanitizeRegistrySuffix_(const KyString& domain);

/// Copies at most cap - 1 bytes and always terminates; null or cap 0 does nothing.
void copyTrunc(char* dst, size_t cap, const KyString& src);

/// Length of a zero-terminated text inside a fixed field of `cap` bytes.
size_t boundedLength(const char* field, size_t cap);
/// Compares a fixed field (bounded, zero-terminated) with a text.
bool boundedEquals(const char* field, size_t cap, const KyString& text);
/// The fixed field as a KyString (bytes up to the first zero or cap).
KyString boundedText(const char* field, size_t cap);

/// CLOCK_MONOTONIC in milliseconds (seconds x 1000 + ns / 1000000), plus the
/// test skew; 0 when the clock cannot be read.
uint64_t nowMs();
/// Adds `ms` to every later nowMs() of this process (tests age rows with it).
void setClockSkewForTesting_(int64_t ms);

/// True when no process `pid` exists: pid 0, a number no pid_t can hold, or
/// kill(pid, 0) failing with ESRCH (EPERM means alive).
bool processGone_(uint32_t pid);

/// For its scope, processGone_ on this thread asks the kernel about each pid
/// once: a pass over a table meets the same few processes in every row, and
/// the registry passes run at every heartbeat. A process that dies during
/// the pass is found by the next one. An inner memo defers to the outer one.
class ProcessGoneMemo {
public:
    ProcessGoneMemo();
    ~ProcessGoneMemo();
    ProcessGoneMemo(const ProcessGoneMemo&) = delete;
    ProcessGoneMemo& operator=(const ProcessGoneMemo&) = delete;

private:
    bool outer_;
};

}  // namespace ky::ipc::detail
