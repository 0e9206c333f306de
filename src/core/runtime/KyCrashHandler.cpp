// KyCrashHandler: the fatal-signal handler and the reading back of its
// reports. See the header for the files and the dump layout.
//
// Two halves with different rules. The configuration half (names, paths,
// install, takeLastCrashReport) runs on ordinary threads, under one mutex, and
// may allocate. The handler half runs inside a signal handler on any thread:
// no malloc, no stdio, no locks; it reads a block of paths prepared by the
// first half. That block is double-buffered and switched by an atomic index,
// so a crash while the name or log path changes still sees a whole block.
#include "core/runtime/KyCrashHandler.h"

#include <dirent.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "core/io/KyDebug.h"
#include "core/platform/KyStandardPaths.h"

namespace {
constexpr const char* kCategory = "ky.core.runtime.kycrashhandler";
constexpr const char* kReportFile = "crash_report.txt";
constexpr const char* kDumpFile = "crash_dump.bin";
constexpr const char* kReportedMarker = "reported";
constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr std::size_t kAltStackSize = 128 * 1024;
constexpr std::size_t kStackDumpBytes = 8 * 1024;

// ---- state of the configuration half -------------------------------------

std::mutex gConfigMutex_;
KyString gAppName_;
KyString gCrashDir_;
KyString gLogPath_;
bool gInstalled_ = false;

// ---- what the handler reads -------------------------------------------------

struct Prepared_ {
    char crashDir[PATH_MAX];
    char appName[128];
    char logPath[PATH_MAX];
    long utcOffsetSeconds;
    bool dumps;
};
Prepared_ gPrepared_[2];
std::atomic<int> gPreparedIndex_{-1};
long gUtcOffset_ = 0;
bool gDumps_ = false;
std::atomic<long> gHandlerOwner_{0};

void copyInto(char* dst, std::size_t cap, const KyString& src) {
    const std::size_t n = std::min(cap - 1, src.size());
    memcpy(dst, src.data(), n);
    dst[n] = '\0';
}

// Fills the idle block and publishes it. Caller holds gConfigMutex_.
void prepareLocked_() {
    const int next = gPreparedIndex_.load(std::memory_order_acquire) == 0 ? 1 : 0;
    Prepared_& p = gPrepared_[next];
    copyInto(p.crashDir, sizeof p.crashDir, gCrashDir_);
    copyInto(p.appName, sizeof p.appName, gAppName_);
    copyInto(p.logPath, sizeof p.logPath, gLogPath_);
    p.utcOffsetSeconds = gUtcOffset_;
    p.dumps = gDumps_;
    gPreparedIndex_.store(next, std::memory_order_release);
}

KyString defaultApplicationName_() {
    const char* name = program_invocation_short_name;
    return (name && *name) ? KyString(name) : KyString("ky");
}

void computeDirectoryLocked_() {
    if (gAppName_.isEmpty()) gAppName_ = defaultApplicationName_();
    KyString base = KyStandardPaths::stateDirectory();
    while (base.size() > 1 && base.endsWith("/")) base = base.left(base.size() - 1);
    gCrashDir_ = base + "/" + gAppName_ + "/crashes";
}

bool makePath_(const KyString& path, mode_t mode) {
    if (path.isEmpty()) return false;
    std::string partial;
    for (const KyString& piece : path.split('/')) {
        partial += '/';
        partial += piece.toStdString();
        if (piece.isEmpty()) continue;
        if (mkdir(partial.c_str(), mode) != 0 && errno != EEXIST) return false;
    }
    struct stat st{};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// ---- async-signal-safe formatting -------------------------------------------

struct Buf_ {
    char data[PATH_MAX + 256];
    std::size_t len = 0;
    void add(const char* s) {
        while (s && *s && len + 1 < sizeof data) data[len++] = *s++;
        data[len] = '\0';
    }
    void addChar(char c) {
        if (len + 1 < sizeof data) data[len++] = c;
        data[len] = '\0';
    }
    void addUnsigned(unsigned long long v, int minDigits = 1) {
        char tmp[24];
        int n = 0;
        do {
            tmp[n++] = static_cast<char>('0' + v % 10);
            v /= 10;
        } while (v && n < 24);
        while (n < minDigits && n < 24) tmp[n++] = '0';
        while (n) addChar(tmp[--n]);
    }
    void addSigned(long long v) {
        if (v < 0) {
            addChar('-');
            addUnsigned(static_cast<unsigned long long>(-(v + 1)) + 1);
        } else {
            addUnsigned(static_cast<unsigned long long>(v));
        }
    }
    void addHex(unsigned long long v) {
        add("0x");
        for (int shift = 60; shift >= 0; shift -= 4) addChar("0123456789abcdef"[(v >> shift) & 0xf]);
    }
};

struct Civil_ {
    long long year;
    unsigned month, day, hour, minute, second;
};

// Days since 1970-01-01 to a proleptic Gregorian date.
Civil_ civilFromSeconds_(long long seconds) {
    long long days = seconds / 86400;
    long long rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    const long long z = days + 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    Civil_ c{};
    c.day = doy - (153 * mp + 2) / 5 + 1;
    c.month = mp < 10 ? mp + 3 : mp - 9;
    c.year = static_cast<long long>(yoe) + era * 400 + (c.month <= 2 ? 1 : 0);
    c.hour = static_cast<unsigned>(rest / 3600);
    c.minute = static_cast<unsigned>(rest % 3600 / 60);
    c.second = static_cast<unsigned>(rest % 60);
    return c;
}

void writeAll_(int fd, const void* data, std::size_t size) {
    const char* p = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        p += n;
        size -= static_cast<std::size_t>(n);
    }
}

void writeLine_(int fd, const char* key, const char* value) {
    Buf_ b;
    b.add(key);
    b.add(value);
    b.addChar('\n');
    writeAll_(fd, b.data, b.len);
}

uintptr_t stackPointer_(const ucontext_t* uc) {
    if (!uc) return 0;
#if defined(__x86_64__)
    return static_cast<uintptr_t>(uc->uc_mcontext.gregs[REG_RSP]);
#elif defined(__aarch64__)
    return static_cast<uintptr_t>(uc->uc_mcontext.sp);
#else
    return 0;
#endif
}

void writeDump_(const char* path, int signal, const siginfo_t* info, const ucontext_t* uc, long tid) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return;
    writeAll_(fd, "KYDUMP01", 8);
    const uint32_t sig = static_cast<uint32_t>(signal);
    const uint32_t code = info ? static_cast<uint32_t>(info->si_code) : 0;
    const uint64_t addr = info ? reinterpret_cast<uint64_t>(info->si_addr) : 0;
    const uint64_t pid = static_cast<uint64_t>(getpid());
    const uint64_t tid64 = static_cast<uint64_t>(tid);
    const uint64_t sp = stackPointer_(uc);
    const uint64_t contextSize = uc ? sizeof(uc->uc_mcontext) : 0;
    writeAll_(fd, &sig, sizeof sig);
    writeAll_(fd, &code, sizeof code);
    writeAll_(fd, &addr, sizeof addr);
    writeAll_(fd, &pid, sizeof pid);
    writeAll_(fd, &tid64, sizeof tid64);
    writeAll_(fd, &sp, sizeof sp);
    writeAll_(fd, &contextSize, sizeof contextSize);
    if (uc) writeAll_(fd, &uc->uc_mcontext, sizeof(uc->uc_mcontext));
    const off_t countOffset = lseek(fd, 0, SEEK_CUR);
    uint64_t count = 0;
    writeAll_(fd, &count, sizeof count);
    // The kernel copies from our memory and reports EFAULT for an unmapped
    // page instead of faulting, so the stack can be read blindly. The raw
    // system call keeps sanitizer interceptors from vetting the bytes.
    if (sp) {
        const char* p = reinterpret_cast<const char*>(sp);
        while (count < kStackDumpBytes) {
            const ssize_t n = syscall(SYS_write, fd, p + count, 256);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            count += static_cast<uint64_t>(n);
        }
    }
    if (countOffset >= 0) pwrite(fd, &count, sizeof count, countOffset);
    close(fd);
}

void writeReport_(int signal, const siginfo_t* info, const ucontext_t* uc) {
    const long tid = syscall(SYS_gettid);
    const int index = gPreparedIndex_.load(std::memory_order_acquire);
    const Prepared_* p = index >= 0 ? &gPrepared_[index] : nullptr;

    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long offset = p ? p->utcOffsetSeconds : 0;
    const Civil_ t = civilFromSeconds_(static_cast<long long>(now.tv_sec) + offset);
    const char* name = KyCrashHandler::signalName(signal);
    // si_addr means the faulting address only for a fault the kernel raised;
    // for a signal sent by kill or abort it overlaps the sender's pid.
    const bool fault = info && info->si_code > 0 && signal != SIGABRT;
    const unsigned long long address = fault ? reinterpret_cast<unsigned long long>(info->si_addr) : 0;

    Buf_ folder;
    if (p && p->crashDir[0]) {
        mkdir(p->crashDir, 0700);
        folder.add(p->crashDir);
        folder.add("/crash_");
        folder.addUnsigned(static_cast<unsigned long long>(t.year), 4);
        folder.addUnsigned(t.month, 2);
        folder.addUnsigned(t.day, 2);
        folder.addChar('_');
        folder.addUnsigned(t.hour, 2);
        folder.addUnsigned(t.minute, 2);
        folder.addUnsigned(t.second, 2);
        folder.addChar('_');
        folder.addUnsigned(static_cast<unsigned long long>(getpid()));
        if (mkdir(folder.data, 0700) != 0 && errno != EEXIST) folder.len = 0;
    }

    Buf_ note;
    note.add("Fatal signal ");
    note.addUnsigned(static_cast<unsigned>(signal));
    note.add(" (");
    note.add(name);
    note.add(") at ");
    note.addHex(address);
    if (folder.len) {
        note.add("; crash report in ");
        note.add(folder.data);
    }
    note.addChar('\n');
    writeAll_(STDERR_FILENO, note.data, note.len);
    if (!folder.len) return;

    Buf_ reportPath;
    reportPath.add(folder.data);
    reportPath.addChar('/');
    reportPath.add(kReportFile);
    Buf_ dumpPath;
    if (p->dumps) {
        dumpPath.add(folder.data);
        dumpPath.addChar('/');
        dumpPath.add(kDumpFile);
    }

    const int fd = open(reportPath.data, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd >= 0) {
        Buf_ b;
        b.add(p->appName);
        b.add(" crash report\ntime=");
        b.addUnsigned(static_cast<unsigned long long>(t.year), 4);
        b.addChar('-');
        b.addUnsigned(t.month, 2);
        b.addChar('-');
        b.addUnsigned(t.day, 2);
        b.addChar(' ');
        b.addUnsigned(t.hour, 2);
        b.addChar(':');
        b.addUnsigned(t.minute, 2);
        b.addChar(':');
        b.addUnsigned(t.second, 2);
        b.addChar(' ');
        b.addChar(offset < 0 ? '-' : '+');
        const long absOffset = offset < 0 ? -offset : offset;
        b.addUnsigned(static_cast<unsigned long long>(absOffset / 3600), 2);
        b.addUnsigned(static_cast<unsigned long long>(absOffset % 3600 / 60), 2);
        b.add("\nsignal=");
        b.addUnsigned(static_cast<unsigned>(signal));
        b.add("\nsignal_name=");
        b.add(name);
        b.add("\ncode=");
        b.addSigned(info ? info->si_code : 0);
        b.add("\naddress=");
        b.addHex(address);
        b.add("\npid=");
        b.addUnsigned(static_cast<unsigned long long>(getpid()));
        b.add("\ntid=");
        b.addUnsigned(static_cast<unsigned long long>(tid));
        b.addChar('\n');
        writeAll_(fd, b.data, b.len);
        writeLine_(fd, "log=", p->logPath);
        writeLine_(fd, "dump=", dumpPath.data);
        writeAll_(fd, "backtrace:\n", 11);
        void* frames[64];
        const int n = backtrace(frames, 64);
        if (n > 0) backtrace_symbols_fd(frames, n, fd);
        close(fd);
    }
    if (dumpPath.len) writeDump_(dumpPath.data, signal, info, uc, tid);
}


void fatalSignalHandler_(int signal, siginfo_t* info, void* context) {
    const long tid = syscall(SYS_gettid);
    long expected = 0;
    if (!gHandlerOwner_.compare_exchange_strong(expected, tid)) {
        // A fault inside our own handler: give up on the report and die.
        if (expected == tid) KyCrashHandler::dieOfSignal(signal);
        // Another thread is writing its report and will end the process;
        // wait for that, but not for ever.
        for (int i = 0; i < 1000; ++i) {
            timespec pause{0, 10 * 1000 * 1000};
            nanosleep(&pause, nullptr);
        }
        KyCrashHandler::dieOfSignal(signal);
    }
    writeReport_(signal, info, static_cast<const ucontext_t*>(context));
    KyCrashHandler::dieOfSignal(signal);
}

// One alternate stack per thread, with a guard page under it so a handler
// that overruns it faults instead of writing into foreign memory.
struct AltStack_ {
    void* base = nullptr;
    std::size_t size = 0;
    ~AltStack_() {
        if (!base) return;
        stack_t disable{};
        disable.ss_flags = SS_DISABLE;
        sigaltstack(&disable, nullptr);
        munmap(base, size);
    }
};
thread_local AltStack_ tlsAltStack_;
}  // namespace

void KyCrashHandler::setApplicationName(const KyString& name) {
    std::lock_guard<std::mutex> lock(gConfigMutex_);
    gAppName_ = name.trimmed();
    computeDirectoryLocked_();
    prepareLocked_();
}

KyString KyCrashHandler::applicationName() {
    std::lock_guard<std::mutex> lock(gConfigMutex_);
    return gAppName_.isEmpty() ? defaultApplicationName_() : gAppName_;
}

KyString KyCrashHandler::crashDirectory() {
    KyString dir;
    {
        std::lock_guard<std::mutex> lock(gConfigMutex_);
        if (gCrashDir_.isEmpty()) {
            computeDirectoryLocked_();
            prepareLocked_();
        }
        dir = gCrashDir_;
    }
    if (!makePath_(dir, 0700)) {
        kyLogWarning(kCategory) << "Cannot create the crash directory" << dir << "-" << strerror(errno);
        return KyString();
    }
    return dir;
}

void KyCrashHandler::setLogPath(const KyString& path) {
    std::lock_guard<std::mutex> lock(gConfigMutex_);
    gLogPath_ = path;
    if (gCrashDir_.isEmpty()) computeDirectoryLocked_();
    prepareLocked_();
}

bool KyCrashHandler::installAlternateStackForCurrentThread() {
    if (tlsAltStack_.base) return true;
    const long page = sysconf(_SC_PAGESIZE) > 0 ? sysconf(_SC_PAGESIZE) : 4096;
    const std::size_t usable = std::max<std::size_t>(kAltStackSize, static_cast<std::size_t>(SIGSTKSZ));
    const std::size_t size = usable + static_cast<std::size_t>(page);
    void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) {
        kyLogError(kCategory) << "Cannot allocate the alternate signal stack:" << strerror(errno);
        return false;
    }
    mprotect(base, static_cast<std::size_t>(page), PROT_NONE);
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(base) + page;
    stack.ss_size = usable;
    stack.ss_flags = 0;
    if (sigaltstack(&stack, nullptr) != 0) {
        kyLogError(kCategory) << "sigaltstack failed:" << strerror(errno);
        munmap(base, size);
        return false;
    }
    tlsAltStack_.base = base;
    tlsAltStack_.size = size;
    return true;
}

bool KyCrashHandler::install() {
    std::lock_guard<std::mutex> lock(gConfigMutex_);
    if (gInstalled_) return true;
    if (gCrashDir_.isEmpty()) computeDirectoryLocked_();
    const bool haveDirectory = makePath_(gCrashDir_, 0700);
    if (!haveDirectory) kyLogWarning(kCategory) << "Crash reports can't be written: no directory" << gCrashDir_;

    time_t now = time(nullptr);
    struct tm local{};
    gUtcOffset_ = localtime_r(&now, &local) ? local.tm_gmtoff : 0;
    const char* dumps = getenv("KY_CRASH_DUMPS");
    gDumps_ = dumps && strcmp(dumps, "1") == 0;
    prepareLocked_();

    // The first backtrace() loads libgcc's unwinder, which allocates; do it
    // now so the handler never has to.
    void* warm[4];
    backtrace(warm, 4);
    installAlternateStackForCurrentThread();

    struct sigaction action{};
    action.sa_sigaction = &fatalSignalHandler_;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    // Everything but the fatal signals waits while a report is written.
    sigfillset(&action.sa_mask);
    for (int sig : kFatalSignals) sigdelset(&action.sa_mask, sig);
    bool ok = true;
    for (int sig : kFatalSignals) {
        if (sigaction(sig, &action, nullptr) != 0) {
            kyLogError(kCategory) << "Cannot install the handler for" << signalName(sig) << "-" << strerror(errno);
            ok = false;
        }
    }
    gInstalled_ = ok;
    return ok && haveDirectory;
}

bool KyCrashHandler::isInstalled() {
    std::lock_guard<std::mutex> lock(gConfigMutex_);
    return gInstalled_;
}

void KyCrashHandler::writeReportForSignal(int signal) {
    const long tid = syscall(SYS_gettid);
    long expected = 0;
    if (!gHandlerOwner_.compare_exchange_strong(expected, tid)) return;
    writeReport_(signal, nullptr, nullptr);
    gHandlerOwner_.store(0);
}

const char* KyCrashHandler::signalName(int signal) {
    switch (signal) {
    case SIGSEGV: return "SIGSEGV";
    case SIGBUS: return "SIGBUS";
    case SIGILL: return "SIGILL";
    case SIGFPE: return "SIGFPE";
    case SIGABRT: return "SIGABRT";
    case SIGTRAP: return "SIGTRAP";
    case SIGSYS: return "SIGSYS";
    case SIGINT: return "SIGINT";
    case SIGTERM: return "SIGTERM";
    case SIGKILL: return "SIGKILL";
    case SIGUSR1: return "SIGUSR1";
    case SIGUSR2: return "SIGUSR2";
    default: break;
    }
    static thread_local char buffer[24];
    Buf_ b;
    b.add("SIG");
    b.addSigned(signal);
    memcpy(buffer, b.data, std::min(sizeof buffer - 1, b.len + 1));
    buffer[sizeof buffer - 1] = '\0';
    return buffer;
}

namespace {
bool readFile_(const KyString& path, KyString& out) {
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return false;
    std::string data;
    char chunk[4096];
    std::size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, f)) > 0) data.append(chunk, n);
    fclose(f);
    out = KyString(std::move(data));
    return true;
}

bool fileExists_(const KyString& path) {
    struct stat st{};
    return stat(path.c_str(), &st) == 0;
}

bool parseReport_(const KyString& folder, KyCrashReport& report) {
    KyString text;
    const KyString reportPath = folder + "/" + kReportFile;
    if (!readFile_(reportPath, text)) return false;
    KyCrashReport r;
    r.folder = folder;
    r.reportPath = reportPath;
    bool inBacktrace = false;
    for (const KyString& raw : text.split('\n')) {
        const KyString line = raw.trimmed();
        if (inBacktrace) {
            if (!line.isEmpty()) r.backtrace.append(line);
            continue;
        }
        if (line == "backtrace:") {
            inBacktrace = true;
            continue;
        }
        const std::size_t eq = line.indexOf('=');
        if (eq == KyString::npos) continue;
        const KyString key = line.left(eq);
        const KyString value = line.mid(eq + 1);
        bool ok = false;
        if (key == "time") r.time = value;
        else if (key == "signal") r.signal = value.toInt(&ok);
        else if (key == "signal_name") r.signalName = value;
        else if (key == "address") r.faultAddress = value;
        else if (key == "pid") r.pid = value.toLongLong(&ok);
        else if (key == "log") r.logPath = value;
        else if (key == "dump") r.dumpPath = value;
    }
    if (r.signal <= 0) return false;
    if (!r.dumpPath.isEmpty() && !fileExists_(r.dumpPath)) r.dumpPath.clear();
    report = std::move(r);
    return true;
}
}  // namespace

bool KyCrashHandler::takeLastCrashReport(KyCrashReport& report) {
    const KyString dir = crashDirectory();
    if (dir.isEmpty()) return false;
    DIR* d = opendir(dir.c_str());
    if (!d) return false;
    KyList<KyString> folders;
    while (dirent* entry = readdir(d)) {
        const KyString name(entry->d_name);
        if (!name.startsWith("crash_")) continue;
        const KyString folder = dir + "/" + name;
        struct stat st{};
        if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
        if (!fileExists_(folder + "/" + kReportFile) || fileExists_(folder + "/" + kReportedMarker)) continue;
        folders.append(folder);
    }
    closedir(d);
    // Folder names carry the time, so the newest sorts last.
    std::sort(folders.begin(), folders.end(), [](const KyString& a, const KyString& b) { return b < a; });

    bool found = false;
    for (const KyString& folder : folders) {
        // O_EXCL makes the taking atomic: of two starts racing, one wins.
        const KyString marker = folder + "/" + kReportedMarker;
        const int fd = open(marker.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0)
            kyLogWarning(kCategory) << "Cannot mark crash report as shown:" << marker << "-" << strerror(errno);
        else
            close(fd);
        if (!found && parseReport_(folder, report)) found = true;
    }
    return found;
}

void KyCrashHandler::dieOfSignal(int signal) {
    struct sigaction action{};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(signal);
    _exit(128 + signal);
}
