#include "cgisupport/dyn_lib.h"

#include <dlfcn.h>

namespace storegen {

// dlerror() is cleared before each call so that a message left by an earlier
// failure is never taken for this one's.

void* LoadDynamicLib(const char* path) {
  dlerror();
  return dlopen(path, RTLD_LAZY);
}

int UnloadDynamicLib(void* handle) {
  if (handle == nullptr) return 0;
  dlerror();
  return dlclose(handle);
}

void* GetDynamicLibFunction(void* handle, const char* name) {
  dlerror();
  return dlsym(handle, name);
}

std::string DynamicLibError() {
  const char* error = dlerror();
  return error != nullptr ? error : "";
}

}  // namespace storegen
