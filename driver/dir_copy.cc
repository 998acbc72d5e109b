#include "driver/dir_copy.h"

namespace storegen {

// Filled in with the directory copy.
int CopyDirs() { return 0; }
int tb_CopyDirectory(const char*, const char*) { return 0; }
int CopySecureFiles() { return 0; }

}  // namespace storegen
