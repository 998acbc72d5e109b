// Runs a callable when the scope ends, whichever way it ends: for process-wide
// counters that a recursive routine raises on entry and must lower again.
#ifndef STOREGEN_CGISUPPORT_SCOPE_EXIT_H_
#define STOREGEN_CGISUPPORT_SCOPE_EXIT_H_

#include <utility>

namespace storegen {

template <class F>
class ScopeExit {
 public:
  explicit ScopeExit(F f) : f_(std::move(f)) {}
  ~ScopeExit() { f_(); }
  ScopeExit(const ScopeExit&) = delete;
  ScopeExit& operator=(const ScopeExit&) = delete;

 private:
  F f_;
};

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_SCOPE_EXIT_H_
