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
#include <pthread.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <string>

// No domain is made here, so no test failure can be reported either.
#define KY_TEST_IPC_REPORT_LEFTOVERS(text) (std::fputs(std::string(text).c_str(), stderr))
#include "../../support/KyTestIpc.h"
#include "ipc/AppsRegistryTable.h"

namespace {

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
    if (!kytest::shmObjectExists("/ky_ipc_registry")) return;
    (void)ky::ipc::AppsRegistryTable<64>::snapshotDomains();  // drops the slots of gone processes
    kytest::ShmView table("/ky_ipc_registry");
    if (table.size() < 56) return;
    auto* mutex = reinterpret_cast<pthread_mutex_t*>(table.base() + 16);
    if (::pthread_mutex_trylock(mutex) != 0) return;
    if (table.at<uint32_t>(8) == 0) ::shm_unlink("/ky_ipc_registry");
    ::pthread_mutex_unlock(mutex);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string step = argc == 3 ? argv[1] : "";
    if (step == "before") {
        std::ofstream out(argv[2], std::ios::trunc);
        for (const std::string& name : frameworkObjects()) out << name << '\n';
        return out ? 0 : 1;
    }
    if (step != "after") {
        std::fprintf(stderr, "usage: ky_shm_fixture before|after STATE\n");
        return 2;
    }
    std::set<std::string> before;
    std::ifstream in(argv[2]);
    for (std::string line; std::getline(in, line);) before.insert(line);
    if (!before.count("ky_ipc_registry")) removeEmptyAppsTable();
    int left = 0;
    for (const std::string& name : frameworkObjects()) {
        if (before.count(name)) continue;
        std::printf("appeared during the run and still there: /dev/shm/%s\n", name.c_str());
        ++left;
    }
    const char* ci = std::getenv("CI");
    return left != 0 && ci != nullptr && *ci != '\0' ? 1 : 0;
}
