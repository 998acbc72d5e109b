#include "cgisupport/stack_room.h"

#include <pthread.h>
#include <signal.h>

#include <cstdint>

namespace storegen {
namespace {

// The lowest address of the calling thread's stack; 0 until learned, 1 when
// it cannot be.
thread_local uintptr_t t_stack_low = 0;

uintptr_t StackLow() {
  if (t_stack_low != 0) return t_stack_low;
  t_stack_low = 1;
  pthread_attr_t attr;
  if (pthread_getattr_np(pthread_self(), &attr) == 0) {
    void* addr = nullptr;
    std::size_t size = 0;
    if (pthread_attr_getstack(&attr, &addr, &size) == 0 && addr != nullptr)
      t_stack_low = reinterpret_cast<uintptr_t>(addr);
    pthread_attr_destroy(&attr);
  }
  return t_stack_low;
}

struct FreshStackCall {
  const std::function<void()>* fn;
  sigset_t mask;  // the caller's signal mask
};

void* RunCall(void* arg) {
  auto* call = static_cast<FreshStackCall*>(arg);
  pthread_sigmask(SIG_SETMASK, &call->mask, nullptr);
  (*call->fn)();
  return nullptr;
}

}  // namespace

bool StackRoomLeft(std::size_t room) {
  const uintptr_t low = StackLow();
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  return low == 1 || (here > low && here - low >= room);
}

bool RunOnFreshStack(std::size_t stack_size, const std::function<void()>& fn) {
  FreshStackCall call{&fn, {}};
  // The new thread starts with every signal blocked and takes the caller's
  // mask over; the caller blocks them all until the new thread has ended.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &call.mask);
  pthread_attr_t attr;
  bool started = false;
  if (pthread_attr_init(&attr) == 0) {
    pthread_t thread;
    started = pthread_attr_setstacksize(&attr, stack_size) == 0 &&
              pthread_create(&thread, &attr, RunCall, &call) == 0;
    pthread_attr_destroy(&attr);
    if (started) pthread_join(thread, nullptr);
  }
  pthread_sigmask(SIG_SETMASK, &call.mask, nullptr);
  return started;
}

}  // namespace storegen
