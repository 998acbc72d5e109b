#include "cgisupport/run_state.h"

#include <cstdarg>

namespace storegen {

RunState PageGenState;

void VerbosePrintf(const char* format, ...) {
  if (!Verbose()) return;
  va_list args;
  va_start(args, format);
  std::vprintf(format, args);
  va_end(args);
}

uint32_t GenerationOptionsForRun() {
  return kGenRewriteLinks | (PageGenState.dynamic & (kDynProductPages | kDynListPages));
}

void ResetRunState() {
  PageGenState = RunState{};
}

}  // namespace storegen
