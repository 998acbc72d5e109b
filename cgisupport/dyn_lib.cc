#include "cgisupport/dyn_lib.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <map>

#include "cgisupport/file_identity.h"

namespace storegen {
namespace {

// A library kept loaded: the version of its file, and the extra handle that
// holds it.
struct KeptLib {
  FileIdentity identity;
  void* handle = nullptr;
};

struct KeptLibs {
  bool keep = false;
  std::map<std::string, KeptLib> libs;  // by path
};

KeptLibs& Kept() {
  static auto* kept = new KeptLibs();  // lives until the process ends
  return *kept;
}

}  // namespace

// dlerror() is cleared before each call so that a message left by an earlier
// failure is never taken for this one's.

void* LoadDynamicLib(const char* path) {
  KeptLibs& kept = Kept();
  struct stat st;
  // A file changed in the last moments may change again without its
  // identity showing it: not kept.
  const bool keep =
      kept.keep && path != nullptr && stat(path, &st) == 0 && !ChangedRecently(FileIdentity(st));
  auto it = path != nullptr ? kept.libs.find(path) : kept.libs.end();
  if (it != kept.libs.end() && (!keep || !(it->second.identity == FileIdentity(st)))) {
    // Let go first, so that the file is loaded anew rather than the old
    // library found by its name.
    dlclose(it->second.handle);
    kept.libs.erase(it);
    it = kept.libs.end();
  }
  dlerror();
  void* handle = dlopen(path, RTLD_LAZY);
  if (keep && handle != nullptr && it == kept.libs.end()) {
    if (void* extra = dlopen(path, RTLD_LAZY)) kept.libs[path] = {FileIdentity(st), extra};
  }
  return handle;
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

void KeepDynamicLibs(bool keep) {
  Kept().keep = keep;
}

void ReleaseKeptDynamicLibs() {
  for (auto& [path, lib] : Kept().libs)
    dlclose(lib.handle);
  Kept().libs.clear();
}

}  // namespace storegen
