// A password for tests of where the console's secrets end up: it exists in
// plain form only where the code under test puts it, so finding it in a
// process's memory, a log or /dev/shm is a copy that code missed.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "KyTestEnv.h"
#include "core/types/KyString.h"

namespace kytest {

// A password that exists in plain form only where the code under test puts
// it: the test keeps it masked, so finding it anywhere is a copy it missed.
class MaskedSecret {
public:
    static constexpr size_t kSize = 40;
    // A freed copy loses its first bytes to the allocator: the tail is what
    // is looked for.
    static constexpr size_t kTail = 16;

    MaskedSecret() {
        const char* alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
        std::random_device random;
        for (uint8_t& b : masked_) b = static_cast<uint8_t>(alphabet[random() % 62]) ^ kMask;
    }
    KyString plain() const {
        KyString text;
        text.resize(kSize);
        for (size_t i = 0; i < kSize; ++i) text[i] = static_cast<char>(masked_[i] ^ kMask);
        return text;
    }
    bool in(const char* data, size_t n) const {
        const size_t len = kSize - kTail;
        for (size_t i = 0; i + len <= n; ++i) {
            size_t k = 0;
            while (k < len && static_cast<uint8_t>(data[i + k]) == (masked_[kTail + k] ^ kMask)) ++k;
            if (k == len) return true;
        }
        return false;
    }
    bool in(const std::string& bytes) const { return in(bytes.data(), bytes.size()); }

    /// Every writable mapping of this process, read through /proc/self/mem.
    bool inOwnMemory() const { return inMemoryOf("self"); }
    /// Every writable mapping of a process (a child of this one, or "self").
    bool inMemoryOf(const std::string& pid) const {
        const int mem = ::open(("/proc/" + pid + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
        if (mem < 0) return false;
        std::ifstream maps("/proc/" + pid + "/maps");
        std::vector<char> chunk((1u << 20) + kSize);
        bool found = false;
        for (std::string line; !found && std::getline(maps, line);) {
            unsigned long start = 0, end = 0;
            char perms[8] = {};
            if (std::sscanf(line.c_str(), "%lx-%lx %7s", &start, &end, perms) != 3 || perms[1] != 'w') continue;
            if (line.find("[vvar]") != std::string::npos || line.find("[vsyscall]") != std::string::npos) continue;
            for (unsigned long at = start; !found && at < end; at += chunk.size() - kSize) {
                const size_t want = std::min<unsigned long>(chunk.size(), end - at);
                const ssize_t got = ::pread(mem, chunk.data(), want, static_cast<off_t>(at));
                if (got <= 0) break;
                found = in(chunk.data(), static_cast<size_t>(got));
            }
        }
        ::close(mem);
        return found;
    }
    /// Every object in /dev/shm that this process may read.
    bool inSharedMemory() const {
        DIR* dir = ::opendir("/dev/shm");
        if (!dir) return false;
        bool found = false;
        while (const dirent* entry = ::readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            if (in(kytest::readFile(std::string("/dev/shm/") + entry->d_name))) found = true;
        }
        ::closedir(dir);
        return found;
    }

private:
    static constexpr uint8_t kMask = 0x5a;
    uint8_t masked_[kSize];
};

} // namespace kytest
