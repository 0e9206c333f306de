// linux_fiber: fibers on getcontext/makecontext/swapcontext.
//
// A fiber is entered the first time through swapcontext into the context that
// makecontext prepared. Every later switch between fibers that have run uses
// _setjmp/_longjmp, which saves and restores the same callee-saved registers
// and stack pointer but leaves the signal mask alone: swapcontext makes a
// rt_sigprocmask system call on every switch, and the fibers of one thread all
// share the thread's mask anyway. Under AddressSanitizer every switch goes
// through swapcontext, announced to the sanitizer, so that its view of the
// current stack stays exact.
//
// A created fiber gets its stack and its first context only when it is first
// entered: a pool warms hundreds of fibers at its first post, and most of
// them never run, so creating one costs a small record and no system call,
// and a process that never needs them never maps their stacks. Outside the
// sanitizer a context serves only that first entry (later switches resume a
// jump buffer), so it is kept at the far end of the fiber's own stack rather
// than in the record: a record is then about a quarter of a ucontext_t.
//
// Threads: everything acts on the calling thread; the current fiber is
// thread-local.

// Jumping between stacks looks like a jump into a deeper frame to the
// fortified longjmp, which would abort.
#undef _FORTIFY_SOURCE

#include "core/runtime/linux_fiber.h"

#include <setjmp.h>
#include <ucontext.h>

#include <cstdint>
#include <cstdlib>
#include <new>

#include "core/io/KyDebug.h"

#if defined(__SANITIZE_ADDRESS__) || KY_ASAN_FIBERS
#include <sanitizer/common_interface_defs.h>
#define KY_FIBER_ASAN 1
#else
#define KY_FIBER_ASAN 0
#endif

namespace linux_fiber {
namespace {

constexpr const char* kCategory = "ky.core.runtime.linux_fiber";

struct FiberRecord {
#if KY_FIBER_ASAN
    // Every switch saves and restores through it.
    ucontext_t context;
#endif
    void (*entry)(void*) = nullptr;
    void* argument = nullptr;
    char* stack = nullptr;
    std::size_t stackSize = 0;
    bool isThreadFiber = false;
    bool started = false;  // has run, so it can be resumed by _longjmp
    jmp_buf resumePoint;
#if KY_FIBER_ASAN
    const void* asanStackBottom = nullptr;
    std::size_t asanStackSize = 0;
#endif
};

thread_local FiberRecord* tCurrentFiber = nullptr;
#if KY_FIBER_ASAN
thread_local FiberRecord* tSwitchedFrom = nullptr;

ucontext_t* firstContext(FiberRecord* record) { return &record->context; }
constexpr std::size_t kFirstContextBytes = 0;
#else
// swapcontext must save the context it leaves somewhere; the fiber it
// leaves is resumed through its jump buffer, so the saved copy is never read.
thread_local ucontext_t tLeftContext;

// The first context lies at the low end of the stack block, below the
// deepest frame a fiber that does not overflow ever reaches; it is dead once
// the fiber has been entered.
constexpr std::size_t kFirstContextBytes = (sizeof(ucontext_t) + 63) & ~std::size_t{63};
ucontext_t* firstContext(FiberRecord* record) { return reinterpret_cast<ucontext_t*>(record->stack); }
#endif

// The thread's stack bounds are learnt when the sanitizer reports the stack
// that was left; a created fiber knows its own.
void noteArrival([[maybe_unused]] void* fakeStack) {
#if KY_FIBER_ASAN
    const void* fromBottom = nullptr;
    std::size_t fromSize = 0;
    __sanitizer_finish_switch_fiber(fakeStack, &fromBottom, &fromSize);
    if (tSwitchedFrom && tSwitchedFrom->isThreadFiber) {
        tSwitchedFrom->asanStackBottom = fromBottom;
        tSwitchedFrom->asanStackSize = fromSize;
    }
#endif
}

// getcontext and _setjmp return twice; kept in small functions of their own
// so that no local of a caller lives across the second return.
__attribute__((noinline)) int captureContext(ucontext_t* context) { return getcontext(context); }

void fiber_entry_trampoline(uint64_t record);

// Gives a created fiber its stack and the context that starts it, the first
// time it is entered. False (logged) when either cannot be had.
bool prepareFirstEntry(FiberRecord* record) {
    if (record->stack || record->isThreadFiber) return true;
    if (record->stackSize <= kFirstContextBytes) {
        kyLogError(kCategory) << "[linux_fiber] Fiber stack too small:" << static_cast<long long>(record->stackSize);
        return false;
    }
    // Plain heap array, not zero-filled: most of a stack is never touched.
    record->stack = new (std::nothrow) char[record->stackSize];
    if (!record->stack) {
        kyLogError(kCategory) << "[linux_fiber] Failed to allocate fiber stack";
        return false;
    }
    ucontext_t* context = firstContext(record);
    if (captureContext(context) != 0) {
        kyLogError(kCategory) << "[linux_fiber] getcontext failed while creating fiber";
        delete[] record->stack;
        record->stack = nullptr;
        return false;
    }
    context->uc_stack.ss_sp = record->stack + kFirstContextBytes;
    context->uc_stack.ss_size = record->stackSize - kFirstContextBytes;
    context->uc_link = nullptr;
#if KY_FIBER_ASAN
    record->asanStackBottom = record->stack;
    record->asanStackSize = record->stackSize;
#endif
    makecontext(context, reinterpret_cast<void (*)()>(&fiber_entry_trampoline), 1,
                static_cast<uint64_t>(reinterpret_cast<uintptr_t>(record)));
    return true;
}

#if !KY_FIBER_ASAN
// Saves from's registers and enters to: by _longjmp when to has run before,
// by swapcontext the first time.
__attribute__((noinline)) void jumpBetween(FiberRecord* from, FiberRecord* to) {
    if (_setjmp(from->resumePoint) != 0) return;  // resumed by a later switch
    if (to->started) _longjmp(to->resumePoint, 1);
    if (!prepareFirstEntry(to)) {
        tCurrentFiber = from;
        return;
    }
    to->started = true;
    if (swapcontext(&tLeftContext, firstContext(to)) != 0) {
        to->started = false;
        tCurrentFiber = from;
        kyLogError(kCategory) << "[linux_fiber] swapcontext failed while switching fibers";
    }
}
#endif

} // namespace

void fiber_entry(void* raw) {
    noteArrival(nullptr);
    auto* record = static_cast<FiberRecord*>(raw);
    record->entry(record->argument);
    // An entry must never return: the context has no successor.
    kyLogError(kCategory) << "[linux_fiber] fiber entry returned";
    std::abort();
}

namespace {
// makecontext hands its one argument over as a 64-bit register value.
void fiber_entry_trampoline(uint64_t record) {
    fiber_entry(reinterpret_cast<void*>(static_cast<uintptr_t>(record)));
}
} // namespace

void* ConvertThreadToFiber(void* parameter) {
    auto* record = new (std::nothrow) FiberRecord();
    if (!record) {
        kyLogError(kCategory) << "[linux_fiber] Failed to allocate main fiber";
        return nullptr;
    }
    record->isThreadFiber = true;
    record->argument = parameter;
    record->stackSize = kDefaultFiberStackSize;
    record->started = true;
#if KY_FIBER_ASAN
    if (captureContext(&record->context) != 0) {
        kyLogError(kCategory) << "[linux_fiber] getcontext failed while converting thread to fiber";
        delete record;
        return nullptr;
    }
#endif
    tCurrentFiber = record;
    return record;
}

void* CreateFiber(unsigned long stackSize, void (*entry)(void*), void* argument) {
    if (stackSize == 0) stackSize = kDefaultFiberStackSize;
    auto* record = new (std::nothrow) FiberRecord();
    if (!record) {
        kyLogError(kCategory) << "[linux_fiber] Failed to allocate fiber structure";
        return nullptr;
    }
    record->stackSize = stackSize;
    record->entry = entry;
    record->argument = argument;
    return record;
}

void SwitchToFiber(void* fiber) {
    if (!fiber) return;
    FiberRecord* from = tCurrentFiber;
    if (!from) {
        from = static_cast<FiberRecord*>(ConvertThreadToFiber(nullptr));
        if (!from) {
            kyLogError(kCategory) << "[linux_fiber] Unable to switch fibers: no current fiber";
            return;
        }
    }
    auto* to = static_cast<FiberRecord*>(fiber);
    if (to == from) return;
    tCurrentFiber = to;
#if KY_FIBER_ASAN
    if (!prepareFirstEntry(to)) {
        tCurrentFiber = from;
        return;
    }
    void* fakeStack = nullptr;
    tSwitchedFrom = from;
    __sanitizer_start_switch_fiber(&fakeStack, to->asanStackBottom, to->asanStackSize);
    if (swapcontext(&from->context, &to->context) != 0) {
        tCurrentFiber = from;
        noteArrival(fakeStack);
        kyLogError(kCategory) << "[linux_fiber] swapcontext failed while switching fibers";
        return;
    }
    noteArrival(fakeStack);
#else
    jumpBetween(from, to);
#endif
}

void DeleteFiber(void* fiber) {
    if (!fiber) return;
    auto* record = static_cast<FiberRecord*>(fiber);
    if (tCurrentFiber == record) tCurrentFiber = nullptr;
    delete[] record->stack;
    delete record;
}

void* GetCurrentFiber() { return tCurrentFiber; }

std::size_t FiberStackSize(const void* fiber) {
    return fiber ? static_cast<const FiberRecord*>(fiber)->stackSize : 0;
}

bool IsThreadFiber(const void* fiber) {
    return fiber && static_cast<const FiberRecord*>(fiber)->isThreadFiber;
}

void* GetFiberData(const void* fiber) {
    return fiber ? static_cast<const FiberRecord*>(fiber)->argument : nullptr;
}

} // namespace linux_fiber
