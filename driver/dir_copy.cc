#include "driver/dir_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/file_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "driver/run_files.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

// Lists every entry of the current directory, names with or without a ".".
constexpr char kAllEntries[] = "./*";

// An open directory search, closed on scope exit.
class FindHandle {
 public:
  explicit FindHandle(tb_finddata* entry) : handle_(tb_findfirst(kAllEntries, entry)) {}
  ~FindHandle() {
    if (handle_ != -1) tb_findclose(handle_);
  }
  FindHandle(const FindHandle&) = delete;
  FindHandle& operator=(const FindHandle&) = delete;

  bool ok() const { return handle_ != -1; }
  bool Next(tb_finddata* entry) { return tb_findnext(handle_, entry) == 0; }

 private:
  int handle_;
};

// The directories (sources and destinations) of the copies under way. An
// entry that leads back into one of them (a symbolic link to a parent, or a
// destination inside its own source) is not copied, so a loop ends.
using DirId = std::pair<dev_t, ino_t>;
std::vector<DirId> g_active_dirs;

bool DirIdOf(const char* path, DirId* id) {
  struct stat info;
  if (stat(path, &info) != 0) return false;
  *id = {info.st_dev, info.st_ino};
  return true;
}

bool IsActive(const char* path) {
  DirId id;
  return DirIdOf(path, &id) &&
         std::find(g_active_dirs.begin(), g_active_dirs.end(), id) != g_active_dirs.end();
}

// Marks directories as being copied for the lifetime of the guard.
class ActiveDirs {
 public:
  ActiveDirs() : size_(g_active_dirs.size()) {}
  ~ActiveDirs() { g_active_dirs.resize(size_); }
  ActiveDirs(const ActiveDirs&) = delete;
  ActiveDirs& operator=(const ActiveDirs&) = delete;

  void Add(const char* path) {
    DirId id;
    if (DirIdOf(path, &id)) g_active_dirs.push_back(id);
  }

 private:
  std::size_t size_;
};

// Goes back to |dir|; a directory that vanished leaves the process where it is.
void ReturnTo(const std::string& dir) {
  if (!dir.empty() && chdir(dir.c_str()) != 0) return;
}

bool IsDotEntry(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// |dir|, a "/" unless it already ends in a separator, and |name|.
std::string JoinPath(std::string_view dir, std::string_view name) {
  std::string path(dir);
  if (!EndsWithDirSlash(path)) path += '/';
  path += name;
  return path;
}

std::string_view WithoutLeadingSlash(std::string_view name) {
  if (!name.empty() && IsDirSlash(name.front())) name.remove_prefix(1);
  return name;
}

// Copies one secure page; false when the destination could not be written.
bool CopySecurePage(std::string_view page, const std::string& secure_dir) {
  std::string_view name = WithoutLeadingSlash(page);
  std::string source = std::string(PageGenState.szOutPath) + std::string(name);
  std::string dest = secure_dir + std::string(name);
  std::size_t sep = dest.find_last_of("/\\");
  if (sep != std::string::npos) {
    tb_mkdir(dest.substr(0, sep).c_str(), 0755);
    dest[sep] = '/';
  }
  switch (tb_CopyFile(source.c_str(), dest.c_str())) {
    case -1:
      VerbosePrintf("File not found: %s\n", source.c_str());
      return true;  // a page the run did not write is not a failure
    case -2:
      ReportError(
          {dest},
          std::string("cannot write the secure copy (SecureContentPath): ") + std::strerror(errno),
          "Unable to open file %s\n", dest.c_str());
      return false;
    default:
      return true;
  }
}

}  // namespace

int CopyDirs() {
  const RunState& st = PageGenState;
  std::string from = CurrentDirectory();
  std::string set_dir(st.szTmpltSet);
  std::size_t dot = set_dir.rfind('.');
  if (dot != std::string::npos) set_dir.resize(dot);
  if (chdir(set_dir.c_str()) != 0) return 0;  // no directory, nothing to copy

  ActiveDirs active;
  active.Add(".");
  int rc = 0;
  {
    tb_finddata entry;
    FindHandle find(&entry);
    for (bool more = find.ok(); more && rc == 0; more = find.Next(&entry)) {
      if (IsDotEntry(entry.name) || (entry.attrib & kFindAttribDirectory) == 0) continue;
      if (IsActive(entry.name)) continue;
      rc = tb_CopyDirectory(entry.name, JoinPath(st.szOutPath, entry.name).c_str());
    }
  }
  ReturnTo(from);
  return rc;
}

int tb_CopyDirectory(const char* source, const char* dest) {
  if (PageGenState.pTpltSet != nullptr && PG_TpltIsDirCopyExcluded(PageGenState.pTpltSet, source)) {
    return 0;
  }
  std::string from = CurrentDirectory();
  if (chdir(source) != 0) return 0;  // not a directory after all: nothing to copy
  if (tb_mkdir(dest, 0755) != 0) {
    // Deliberately left in |source|: the caller sees where the copy stopped.
    ReportError({dest}, std::string("cannot create the directory: ") + std::strerror(errno),
                "Unable to create directory: %s\n", dest);
    return kDirNotCreatable;
  }

  ActiveDirs active;
  active.Add(".");
  active.Add(dest);
  {
    tb_finddata entry;
    FindHandle find(&entry);
    for (bool more = find.ok(); more; more = find.Next(&entry)) {
      if (IsDotEntry(entry.name)) continue;
      std::string path = JoinPath(dest, entry.name);
      if ((entry.attrib & kFindAttribDirectory) != 0) {
        if (IsActive(entry.name)) continue;
        // A failure below ends the copy of this tree without being reported
        // further up.
        if (tb_CopyDirectory(entry.name, path.c_str()) != 0) break;
        continue;
      }
      int copied = tb_CopyFile(entry.name, path.c_str());
      if (copied == -1) {
        ReportError({AbsolutePathForMessage(entry.name)},
                    std::string("cannot read the file to copy: ") + std::strerror(errno),
                    "Unable to open file %s\n", entry.name);
      }
      if (copied == -2) {
        ReportError({path}, std::string("cannot write the copy: ") + std::strerror(errno),
                    "Unable to open file %s\n", path.c_str());
      }
      if (copied != 0) break;  // the rest of this directory is skipped
    }
  }
  ReturnTo(from);
  return 0;
}

int CopySecureFiles() {
  const RunState& st = PageGenState;
  char secure[kPathSize] = {};
  if (GetConfigItem(st.szConfig, "SecureContentPath", secure, sizeof secure, 1) != 1 ||
      secure[0] == '\0') {
    VerbosePrintf("No SecureContentPath entry in store config file, skipping SecureFiles\n");
    return 0;
  }
  AppendSlashIfMissing(secure);
  if (st.pTpltSet == nullptr) return 0;

  int rc = 0;
  std::vector<char> page(2048);
  for (int more = PG_TpltGetNextDisplayName(st.pTpltSet, page.data(), 2048, kKindSecureFile);
       more == 1; more = PG_TpltGetNextDisplayName(nullptr, page.data(), 2048, kKindSecureFile)) {
    if (!CopySecurePage(page.data(), secure)) rc = kCopyFailed;
  }
  return rc;
}

}  // namespace storegen
