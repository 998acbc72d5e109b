// Recursion as deep as its input asks (list blocks nested in a template) on
// stacks of bounded size: such a routine looks how much of its thread's stack
// is left and, when it runs low, goes on on a new thread with a fresh stack,
// while the calling thread waits. One thread works at any time.
#ifndef STOREGEN_CGISUPPORT_STACK_ROOM_H_
#define STOREGEN_CGISUPPORT_STACK_ROOM_H_

#include <cstddef>
#include <functional>

namespace storegen {

// True when at least |room| bytes of the calling thread's stack are left
// below the caller (also when the stack's extent cannot be learned).
bool StackRoomLeft(std::size_t room);

// Runs |fn| on a new thread with a stack of |stack_size| bytes and waits for
// it to end. Signals meanwhile go to the new thread, as they would to this
// one. False (|fn| not run) when no thread can be started.
bool RunOnFreshStack(std::size_t stack_size, const std::function<void()>& fn);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_STACK_ROOM_H_
