// linux_fiber: the fiber calls of the runtime (ConvertThreadToFiber,
// CreateFiber, SwitchToFiber, DeleteFiber) built on getcontext, makecontext
// and swapcontext.
//
// A fiber is an opaque handle to a record that holds the saved context, the
// entry function and its argument, and the stack. The current fiber is
// thread-local: fibers never move between threads, and every call here acts
// on the calling thread only. Stacks are plain heap arrays with no guard page,
// so a fiber's fixed stack size is its only protection against overflow.
// Failures are logged under "ky.core.runtime.linux_fiber" and reported as a
// null handle (or, for a switch, by not switching).
#pragma once

#include <cstddef>

namespace linux_fiber {

/// Stack size used when CreateFiber is asked for 0 bytes, and the size
/// recorded for a thread fiber (which runs on the thread's own stack).
inline constexpr std::size_t kDefaultFiberStackSize = 65536;

/// Turns the calling thread's current context into a fiber and makes it the
/// current fiber. Every call makes a new record. Null on failure.
void* ConvertThreadToFiber(void* parameter);

/// A new fiber that will run entry(argument) on its own stack of stackSize
/// bytes (0 means kDefaultFiberStackSize). The entry must never return.
/// Null on failure.
void* CreateFiber(unsigned long stackSize, void (*entry)(void*), void* argument);

/// Makes fiber current and switches to it; returns when something switches
/// back. Null does nothing. Converts the thread first if it has no fiber yet.
void SwitchToFiber(void* fiber);

/// Frees a fiber that is not running: its stack (unless it is a thread fiber)
/// and its record. Clears the thread's current fiber if it was this one.
/// Nothing on the fiber's stack is unwound.
void DeleteFiber(void* fiber);

/// The calling thread's current fiber, or null.
void* GetCurrentFiber();

/// The stack size a fiber was created with (65536 for a thread fiber).
std::size_t FiberStackSize(const void* fiber);

/// True for a record made by ConvertThreadToFiber.
bool IsThreadFiber(const void* fiber);

/// The parameter given to ConvertThreadToFiber, or the argument of CreateFiber.
void* GetFiberData(const void* fiber);

} // namespace linux_fiber
