#include "driver/generation_run.h"

namespace storegen {

// Filled in with the page generators.
int GeneratePages() { return 0; }

}  // namespace storegen
