// ky_shm_fixture: holds a whole test run to leaving /dev/shm as it found it.
//
//   ky_shm_fixture before STATE   notes the framework's objects ("ky_*") there now
//   ky_shm_fixture after STATE    removes the machine's application table when
//                                 the run made it and no live process is in it
//                                 any more, then names every framework object
//                                 that appeared during the run and is still there
//
// CTest runs "before" ahead of the first test and "after" behind the last.
// Every test's own domain is cleaned by the test; this step sees what no test
// owns: the application table, and objects of domains that nobody cleaned.
// Where the machine is the run's own (CI set in the environment) a leftover
// fails the step; on a shared machine other programs' objects come and go
// in /dev/shm meanwhile, so it is only named.
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <string>

#include "ipc/AppsRegistryTable.h"

namespace {

constexpr const char* kAppsTable = "ky_ipc_registry";

std::set<std::string> frameworkObjects() {
    std::set<std::string> names;
    if (DIR* dir = ::opendir("/dev/shm")) {
        while (const dirent* e = ::readdir(dir))
            if (std::strncmp(e->d_name, "ky_", 3) == 0) names.insert(e->d_name);
        ::closedir(dir);
    }
    return names;
}

// Unlinks the application table when it holds no row, under its own mutex so
// that no process is registering at that moment.
void removeEmptyAppsTable() {
    struct stat st{};
    if (::stat((std::string("/dev/shm/") + kAppsTable).c_str(), &st) != 0) return;
    // Drops the slots of processes that are gone (the product's own cleaning).
    (void)ky::ipc::AppsRegistryTable<64>::snapshotDomains();
    const int fd = ::shm_open((std::string("/") + kAppsTable).c_str(), O_RDWR, 0);
    if (fd < 0) return;
    void* p = ::mmap(nullptr, 56, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (p == MAP_FAILED) return;
    auto* mutex = reinterpret_cast<pthread_mutex_t*>(static_cast<char*>(p) + 16);
    if (::pthread_mutex_trylock(mutex) == 0) {
        uint32_t count = 0;
        std::memcpy(&count, static_cast<char*>(p) + 8, 4);
        if (count == 0) ::shm_unlink((std::string("/") + kAppsTable).c_str());
        ::pthread_mutex_unlock(mutex);
    }
    ::munmap(p, 56);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: ky_shm_fixture before|after STATE\n");
        return 2;
    }
    const std::string step = argv[1];
    if (step == "before") {
        std::ofstream out(argv[2], std::ios::trunc);
        for (const std::string& name : frameworkObjects()) out << name << '\n';
        return out ? 0 : 1;
    }
    if (step != "after") return 2;
    std::set<std::string> before;
    std::ifstream in(argv[2]);
    for (std::string line; std::getline(in, line);) before.insert(line);
    if (!before.count(kAppsTable)) removeEmptyAppsTable();
    int left = 0;
    for (const std::string& name : frameworkObjects()) {
        if (before.count(name)) continue;
        std::printf("appeared during the run and still there: /dev/shm/%s\n", name.c_str());
        ++left;
    }
    const char* ci = std::getenv("CI");
    return left != 0 && ci != nullptr && *ci != '\0' ? 1 : 0;
}
