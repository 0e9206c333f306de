// Child process for the crash handler's tests: installs the handler under the
// name given, then dies in the way asked for.
//   ky_crash_helper <application name> null|abort|overflow|poolfiber|thread|fpe|none
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdint>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyCrashHandler.h"

namespace {
volatile std::uintptr_t gZero = 0;
volatile bool gDeeper = true;
volatile int gDivisor = 0;
ucontext_t gMainContext;
ucontext_t gFiberContext;

__attribute__((no_sanitize("address", "undefined"))) void storeToNull() {
    *reinterpret_cast<volatile int*>(gZero) = 0;
}

// Recursion that is not instrumented, so it runs off the heap-array stack
// into unmapped memory rather than into a sanitizer report.
__attribute__((noinline, no_sanitize("address", "undefined"))) int recurse(int depth) {
    volatile char pad[512];
    pad[0] = static_cast<char>(depth);
    if (gDeeper) return recurse(depth + 1) + pad[0];
    return pad[0];
}

void fiberEntry() { recurse(0); }

void* threadEntry(void*) {
    storeToNull();
    return nullptr;
}

__attribute__((no_sanitize("undefined"))) int divide(int a) { return a / gDivisor; }
}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    KyCrashHandler::setApplicationName(argv[1]);
    if (!KyCrashHandler::install()) return 3;
    const char* mode = argv[2];
    if (strcmp(mode, "null") == 0) {
        storeToNull();
    } else if (strcmp(mode, "abort") == 0) {
        abort();
    } else if (strcmp(mode, "overflow") == 0) {
        // A fiber stack as the pool makes them: a plain heap array, no guard page.
        static constexpr std::size_t kStack = 64 * 1024;
        char* stack = new char[kStack];
        getcontext(&gFiberContext);
        gFiberContext.uc_stack.ss_sp = stack;
        gFiberContext.uc_stack.ss_size = kStack;
        gFiberContext.uc_link = &gMainContext;
        makecontext(&gFiberContext, fiberEntry, 0);
        swapcontext(&gMainContext, &gFiberContext);
    } else if (strcmp(mode, "poolfiber") == 0) {
        // The same overflow inside posted work on a real loop's pooled fiber.
        KyCoreApplication app;
        app.postEvent([] { recurse(0); });
        app.exec(30 * 1000 * 1000);
    } else if (strcmp(mode, "thread") == 0) {
        pthread_t thread;
        pthread_create(&thread, nullptr, threadEntry, nullptr);
        pthread_join(thread, nullptr);
    } else if (strcmp(mode, "fpe") == 0) {
        printf("%d\n", divide(argc));
    } else if (strcmp(mode, "none") == 0) {
        return 0;
    }
    return 4;
}
