// Shared by the tests that steer code through the environment (state and
// config homes, logging rules): variables set or removed for one test and put
// back as they were when it ends, and a file read whole. Test thread only.
#pragma once

#include <stdlib.h>

#include <fstream>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kytest {

/// Sets (value given) or removes (nullptr) each variable; restores them all on destruction.
class ScopedEnv {
public:
    ScopedEnv(std::initializer_list<std::pair<const char*, const char*>> vars) {
        for (const auto& [name, value] : vars) set(name, value);
    }
    ~ScopedEnv() { restore(); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;
    void set(const char* name, const char* value) {
        const char* old = std::getenv(name);
        saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
        if (value) ::setenv(name, value, 1);
        else ::unsetenv(name);
    }
    /// Puts every variable back now (for code that must reread them before the test ends).
    void restore() {
        for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
            if (it->second) ::setenv(it->first.c_str(), it->second->c_str(), 1);
            else ::unsetenv(it->first.c_str());
        }
        saved_.clear();
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

/// The bytes of a file, empty when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

} // namespace kytest
