// Dynamic libraries (dlopen/dlsym/dlclose).
#ifndef STOREGEN_CGISUPPORT_DYN_LIB_H_
#define STOREGEN_CGISUPPORT_DYN_LIB_H_

#include <string>

namespace storegen {

// dlopen(path, RTLD_LAZY): the handle, or null.
void* LoadDynamicLib(const char* path);
// dlclose(handle); null is ignored. Returns dlclose's result (0 for null).
int UnloadDynamicLib(void* handle);
// dlsym(handle, name): the symbol's address, or null.
void* GetDynamicLibFunction(void* handle, const char* name);
// Why the last of these calls failed (dlerror), or "" when it did not.
std::string DynamicLibError();

// With |keep|, a library stays loaded after its last UnloadDynamicLib while
// its file stays the same (device, inode, size, times): a process that loads
// the same library for request after request then maps and links it once,
// and loads it anew once the file has changed. Off at the start.
void KeepDynamicLibs(bool keep);
// Lets go of the libraries kept loaded: unloaded when nothing else holds them.
void ReleaseKeptDynamicLibs();

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_DYN_LIB_H_
