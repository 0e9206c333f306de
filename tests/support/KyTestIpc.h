// KyTestIpc: a unique IPC domain per test, and the proof that the test's
// processes left nothing of theirs behind in /dev/shm.
//
// The framework keeps a domain's shared channels (signal blocks, request
// queues, registries) on purpose: the next start reuses them. A test's domain
// is never started again, so the domain removes them at the end. Objects that
// belong to one process (reply queues and dispatch tables, named after their
// pid) are the framework's own to remove: at the process's normal exit, or by
// the sweep of whoever opens the domain after a kill. At the end the domain
// runs that sweep itself, as the next process would, and fails the test for
// every per-pid object of a process that is gone which is still there; then
// it unlinks everything it knows of the domain (the test process's own reply
// queues included: its exit hook then finds them gone). Names are read raw
// from the signal registry (no cleaning, so rows of dead children still name
// their channels); observe() records them earlier, for tests whose rows may
// be cleaned away before the end. The test process's own dispatch table is
// left to its exit hook. The machine-wide application registry is shared
// with every other process and is left alone.
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>

#include "core/types/KyString.h"
#include "ipc/IpcNames.h"
#include "ipc/ProcessObjects.h"

// How a domain reports what gone processes left behind: a test failure, unless
// the includer (a benchmark, without GoogleTest) says otherwise.
#ifndef KY_TEST_IPC_REPORT_LEFTOVERS
#include <gtest/gtest.h>
#define KY_TEST_IPC_REPORT_LEFTOVERS(text) ADD_FAILURE() << (text)
#endif

namespace kytest {

inline bool shmObjectExists(const std::string& name) {
    struct stat st{};
    return ::stat(("/dev/shm" + name).c_str(), &st) == 0;
}

/// A shared object mapped read-write by name, raw, as any local process may
/// map it; empty (null base) when it cannot be.
class ShmView {
public:
    explicit ShmView(const std::string& name) {
        const int fd = shm_open(name.c_str(), O_RDWR, 0);
        struct stat st{};
        if (fd < 0 || fstat(fd, &st) != 0 || st.st_size <= 0) {
            if (fd >= 0) close(fd);
            return;
        }
        void* p = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        close(fd);
        if (p != MAP_FAILED) base_ = static_cast<uint8_t*>(p), size_ = static_cast<size_t>(st.st_size);
    }
    ~ShmView() {
        if (base_) munmap(base_, size_);
    }
    ShmView(const ShmView&) = delete;
    ShmView& operator=(const ShmView&) = delete;
    bool ok() const { return base_ != nullptr; }
    uint8_t* base() const { return base_; }
    size_t size() const { return size_; }
    template <typename T>
    T at(size_t offset) const {
        T v{};
        std::memcpy(&v, base_ + offset, sizeof v);
        return v;
    }
    std::string text(size_t offset) const { return reinterpret_cast<const char*>(base_ + offset); }
    template <typename Layout> Layout* as() const { return reinterpret_cast<Layout*>(base_); }

private:
    uint8_t* base_ = nullptr;
    size_t size_ = 0;
};

class IpcDomain {
public:
    explicit IpcDomain(const char* tag = "t") {
        static std::atomic<int> counter{0};
        name_ = KyString("kytest-") + KyString(tag) + KyString("-") + KyString::number(static_cast<long long>(getpid())) +
                KyString("-") + KyString::number(static_cast<long long>(counter.fetch_add(1)));
    }
    ~IpcDomain() { cleanup(); }
    IpcDomain(const IpcDomain&) = delete;
    IpcDomain& operator=(const IpcDomain&) = delete;

    const KyString& name() const { return name_; }
    /// A channel object to remove at the end (object, signal or queue name).
    void track(const KyString& object, const KyString& signal) {
        names_.insert(ky::ipc::detail::make_shm_name(name_, object, signal).toStdString());
    }
    void trackName(const std::string& shmName) { names_.insert(shmName); }
    /// A child process of the test: its dispatch table must be gone at the end.
    void trackPid(uint32_t pid) {
        if (pid != static_cast<uint32_t>(getpid())) pids_.insert(pid);
    }
    /// Every object name known so far (tracked, or seen by observe()).
    const std::set<std::string>& knownNames() const { return names_; }
    /// Records every channel the domain's signal registry names now.
    void observe() {
        const ShmView table("/ky_ipc_registry_" + ky::ipc::detail::sanitizeRegistrySuffix_(name_).toStdString());
        if (table.size() < 56) return;
        // Rows are 640 bytes from offset 56: the channel's name at 32, its signal's at 224.
        for (uint32_t i = 0; i < table.at<uint32_t>(8) && 56 + (i + 1) * 640ULL <= table.size(); ++i) {
            const char* row = reinterpret_cast<const char*>(table.base()) + 56 + i * 640ULL;
            const std::string shm(row + 32, strnlen(row + 32, 64));
            names_.insert(shm);
            if (const uint32_t owner = ky::ipc::detail::replyQueueOwnerPid_(row + 224, 160)) perPid_.emplace(shm, owner);
        }
    }

    /// Sweeps as the next process would, fails the test for what a gone
    /// process left behind, then removes the domain's objects.
    void cleanup() {
        observe();
        ky::ipc::detail::sweepDeadProcessObjects_(name_, true);
        std::string left;
        for (const auto& [shm, owner] : perPid_)
            if (ky::ipc::detail::processGone_(owner) && shmObjectExists(shm))
                left += " " + shm + " (reply queue of gone pid " + std::to_string(owner) + ")";
        for (uint32_t pid : pids_) {
            const std::string table = "/ky_ipc_dispatch_tbl_v1_" + std::to_string(pid);
            if (ky::ipc::detail::processGone_(pid) && shmObjectExists(table)) left += " " + table;
            names_.insert(table);
        }
        // A child killed inside the table's critical section leaves it locked
        // for good (by design): then no sweep could run, and there is no verdict.
        if (!left.empty() && !signalTableLocked_()) {
            KY_TEST_IPC_REPORT_LEFTOVERS("domain " + name_.toStdString() + " left objects of gone processes behind:" +
                                         left);
        }
        const std::string suffix = ky::ipc::detail::sanitizeRegistrySuffix_(name_).toStdString();
        names_.insert("/ky_ipc_registry_" + suffix);
        names_.insert("/ky_ipc_subs_" + suffix);
        for (const std::string& n : names_) shm_unlink(n.c_str());
        names_.clear();
        perPid_.clear();
        pids_.clear();
    }

private:
    bool signalTableLocked_() const {
        const ShmView table("/ky_ipc_registry_" + ky::ipc::detail::sanitizeRegistrySuffix_(name_).toStdString());
        if (table.size() < 56) return false;
        auto* mutex = reinterpret_cast<pthread_mutex_t*>(table.base() + 16);
        if (pthread_mutex_trylock(mutex) != 0) return true;
        pthread_mutex_unlock(mutex);
        return false;
    }

    KyString name_;
    std::set<std::string> names_;
    std::set<std::pair<std::string, uint32_t>> perPid_;  // reply queues and their owners
    std::set<uint32_t> pids_;
};

/// Stops a process (SIGSTOP) at a moment when it holds no mutex of the
/// domain's objects known so far (plus its registries and the application
/// table). A process stopped inside a critical section keeps every writer of
/// that object waiting until it goes on (the mutexes are not robust, by
/// design), which is not the stall a test of stalls means. False when no
/// such moment came in many tries.
inline bool stopOutsideCriticalSections(pid_t pid, IpcDomain& domain) {
    if (pid <= 0) return false;  // kill(-1) would stop every process
    domain.observe();
    const std::string suffix = ky::ipc::detail::sanitizeRegistrySuffix_(domain.name()).toStdString();
    std::set<std::string> names = domain.knownNames();
    names.insert({"/ky_ipc_registry_" + suffix, "/ky_ipc_subs_" + suffix, "/ky_ipc_registry"});
    // Every layout keeps its mutex at offset 16; a dispatch table has none.
    const auto held = [](const std::string& name) {
        const ShmView o(name);
        if (name.find("dispatch_tbl") != std::string::npos || o.size() < 56) return false;
        auto* mutex = reinterpret_cast<pthread_mutex_t*>(o.base() + 16);
        if (pthread_mutex_trylock(mutex) != 0) return true;
        pthread_mutex_unlock(mutex);
        return false;
    };
    for (int attempt = 0; attempt < 500; ++attempt) {
        if (::kill(pid, SIGSTOP) != 0) return false;
        for (int i = 0; i < 2000; ++i) {  // until the kernel shows it stopped
            std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
            const std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
            if (text.find(") T ") != std::string::npos) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (std::none_of(names.begin(), names.end(), held)) return true;
        ::kill(pid, SIGCONT);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

}  // namespace kytest
