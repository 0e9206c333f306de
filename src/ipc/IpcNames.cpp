// IpcNames: hash, hexadecimal form, object names, fixed-field texts, clock.
#include "ipc/IpcNames.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

namespace ky::ipc::detail {

namespace {
std::atomic<int64_t> gClockSkewMs{0};

// The answers of the thread's open ProcessGoneMemo (pid, gone); a table has
// few distinct processes, so a short list beats a map.
struct PidAnswers {
    bool active = false;
    uint32_t pids[16];
    bool gone[16];
    unsigned count = 0;
};
thread_local PidAnswers tPidAnswers;

bool isSuffixByte(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
}
}  // namespace

uint64_t frameworkHash(const void* data, size_t size, uint64_t start) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    uint64_t h = start;
    for (size_t i = 0; i < size; ++i) {
        h ^= bytes[i];
        h *= kFrameworkHashPrime;
    }
    return h;
}

uint64_t frameworkHash(const KyString& text) {
    const std::string& bytes = text.toStdString();
    return frameworkHash(bytes.data(), bytes.size());
}

KyString hex64(uint64_t value) {
    static const char digits[] = "0123456789abcdef";
    char out[16];
    for (int i = 15; i >= 0; --i) {
        out[i] = digits[value & 0xF];
        value >>= 4;
    }
    return KyString(std::string(out, 16));
}

KyString make_shm_name(const KyString& domain, const KyString& object, const KyString& signal) {
    // Only the joined text is hashed, so the name has a fixed length
    // whatever the three names are.
    std::string joined;
    joined.reserve(domain.toStdString().size() + object.toStdString().size() + signal.toStdString().size() + 2);
    joined += domain.toStdString();
    joined += '|';
    joined += object.toStdString();
    joined += '|';
    joined += signal.toStdString();
    return KyString("/ky_sig_") + hex64(frameworkHash(joined.data(), joined.size()));
}

KyString sanitizeRegistrySuffix_(const KyString& domain) {
    std::string s = domain.toStdString();
    for (char& c : s) {
        if (!isSuffixByte(static_cast<unsigned char>(c))) c = '_';
    }
    size_t first = s.find_first_not_of('_');
    if (first == std::string::npos) return KyString("root");
    size_t last = s.find_last_not_of('_');
    s = s.substr(first, last - first + 1);
    if (s.size() <= 32) return KyString(s);
    // Two long domains that differ only past the cut stay apart through the
    // hash of the whole original text.
    return KyString(s.substr(0, 32)) + KyString("_") + hex64(frameworkHash(domain));
}

void copyTrunc(char* dst, size_t cap, const KyString& src) {
    if (dst == nullptr || cap == 0) return;
    const std::string& bytes = src.toStdString();
    size_t n = bytes.size() < cap - 1 ? bytes.size() : cap - 1;
    std::memcpy(dst, bytes.data(), n);
    dst[n] = '\0';
}

size_t boundedLength(const char* field, size_t cap) {
    const void* zero = std::memchr(field, 0, cap);
    return zero ? static_cast<size_t>(static_cast<const char*>(zero) - field) : cap;
}

bool boundedEquals(const char* field, size_t cap, const KyString& text) {
    const std::string& bytes = text.toStdString();
    size_t n = boundedLength(field, cap);
    return n == bytes.size() && std::memcmp(field, bytes.data(), n) == 0;
}

KyString boundedText(const char* field, size_t cap) {
    return KyString(std::string(field, boundedLength(field, cap)));
}

uint64_t nowMs() {
    timespec ts{};
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) return 0;
    int64_t ms = static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    ms += gClockSkewMs.load(std::memory_order_relaxed);
    return ms > 0 ? static_cast<uint64_t>(ms) : 0;
}

void setClockSkewForTesting_(int64_t ms) { gClockSkewMs.store(ms, std::memory_order_relaxed); }

bool processGone_(uint32_t pid) {
    // A pid past INT32_MAX is no process: as a pid_t it would be negative,
    // and kill would ask about a whole process group (or every process).
    if (pid == 0 || pid > 0x7FFFFFFFu) return true;
    PidAnswers& memo = tPidAnswers;
    if (memo.active) {
        for (unsigned i = 0; i < memo.count; ++i)
            if (memo.pids[i] == pid) return memo.gone[i];
    }
    const bool gone = ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
    if (memo.active && memo.count < 16) {
        memo.pids[memo.count] = pid;
        memo.gone[memo.count] = gone;
        ++memo.count;
    }
    return gone;
}

ProcessGoneMemo::ProcessGoneMemo() : outer_(!tPidAnswers.active) {
    if (!outer_) return;
    tPidAnswers.active = true;
    tPidAnswers.count = 0;
}

ProcessGoneMemo::~ProcessGoneMemo() {
    if (!outer_) return;
    tPidAnswers.active = false;
    tPidAnswers.count = 0;
}

}  // namespace ky::ipc::detail
