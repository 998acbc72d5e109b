#include "cgisupport/file_util.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "cgisupport/atomic_file.h"
#include "cgisupport/cgi_pages.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/str_util.h"

namespace storegen {
namespace {

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};
using DirPtr = std::unique_ptr<DIR, DirCloser>;

bool PathExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// Makes |prefix| when it does not exist; false on failure.
bool MakeOne(const std::string& prefix, mode_t mode) {
  if (prefix.empty() || PathExists(prefix)) return true;
  if (errno != ENOENT) return false;
  return mkdir(prefix.c_str(), mode) == 0;
}

// An open directory search: the stream, the directory as given (entry times
// are taken from it) and the name pattern.
struct FindHandle {
  DirPtr dir;
  std::string dir_path;
  std::string pattern;
};

// Searches under way, indexed by handle; a finished search leaves an empty
// slot that the next search reuses. Process-wide, not reentrant.
std::vector<std::unique_ptr<FindHandle>>& FindTable() {
  static std::vector<std::unique_ptr<FindHandle>> table;
  return table;
}

FindHandle* LookupFind(int handle) {
  auto& table = FindTable();
  if (handle < 0 || static_cast<std::size_t>(handle) >= table.size()) return nullptr;
  return table[handle].get();
}

// The search wildcard: without '*' the name must equal the pattern. With it,
// literal characters match one for one and a '*' skips the name up to the
// first character equal to the one after the star (or to the end when the
// star is last), without backtracking; both must end together. So "*.*"
// wants a '.', and "*.html" does not match "a.html.bak".
bool MatchesPattern(const char* pattern, const char* name) {
  if (*pattern == '\0') return false;
  if (std::strchr(pattern, '*') == nullptr) return std::strcmp(pattern, name) == 0;
  while (*pattern != '\0') {
    if (*pattern == '*') {
      ++pattern;
      while (*name != '\0' && *name != *pattern)
        ++name;
      continue;
    }
    if (*pattern != *name) return false;
    ++pattern;
    ++name;
  }
  return *name == '\0';
}

}  // namespace

int openlock(const char* path, int timeout_seconds, mode_t mode) {
  int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, mode);
  if (fd < 0) return -1;
  const std::time_t deadline = std::time(nullptr) + timeout_seconds;
  for (;;) {
    if (lockf(fd, F_TLOCK, 1) == 0) return fd;
    if (errno != EAGAIN && errno != EACCES) {
      int error = errno;
      close(fd);
      errno = error;
      return -1;
    }
    // Held by another process: wait in one-second steps up to the deadline.
    if (std::time(nullptr) >= deadline) break;
    sleep(1);
  }
  close(fd);
  errno = EACCES;
  return -1;
}

int closelock(int fd) {
  lockf(fd, F_ULOCK, 1);
  return close(fd);
}

bool IsLockedElsewhere(const char* path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  struct flock probe = {};
  probe.l_type = F_WRLCK;
  probe.l_whence = SEEK_SET;
  probe.l_start = 0;
  probe.l_len = 1;
  bool locked = fcntl(fd, F_GETLK, &probe) == 0 && probe.l_type != F_UNLCK;
  close(fd);
  return locked;
}

int tb_mkdir(const char* path, mode_t mode) {
  if (path == nullptr || *path == '\0') return 0;
  std::string p(path);
  if (p.size() > 1 && IsDirSlash(p.back())) p.pop_back();
  if (PathExists(p)) return 0;
  for (char& c : p) {
    if (c == '\\') c = '/';
  }
  // Walk back to the longest prefix that exists, then make each missing
  // component from there on.
  std::size_t start = p.size();
  while (start > 0) {
    std::size_t slash = p.rfind('/', start - 1);
    if (slash == std::string::npos) {
      start = 0;
      break;
    }
    start = slash;
    if (slash == 0 || PathExists(p.substr(0, slash))) break;
  }
  for (std::size_t i = start + 1; i < p.size(); ++i) {
    if (p[i] == '/' && !MakeOne(p.substr(0, i), mode)) return -1;
  }
  return MakeOne(p, mode) ? 0 : -1;
}

int tb_findfirst(const char* pattern, tb_finddata* result) {
  if (pattern == nullptr || result == nullptr) return -1;
  std::string arg(pattern);
  std::size_t sep = arg.rfind('/');
  if (sep == std::string::npos) sep = arg.rfind('\\');
  auto handle = std::make_unique<FindHandle>();
  if (sep != std::string::npos) {
    handle->dir_path = sep == 0 ? arg.substr(0, 1) : arg.substr(0, sep);
    handle->pattern = arg.substr(sep + 1);
  } else {
    // A bare name is never a pattern: it lists the directory it names, or
    // the current one.
    handle->dir_path = PathExists(arg) ? arg : ".";
    handle->pattern = "*.*";
  }
  handle->dir.reset(opendir(handle->dir_path.c_str()));
  if (!handle->dir) return -1;

  auto& table = FindTable();
  std::size_t slot = 0;
  while (slot < table.size() && table[slot] != nullptr)
    ++slot;
  if (slot == table.size()) table.emplace_back();
  table[slot] = std::move(handle);
  int id = static_cast<int>(slot);
  if (tb_findnext(id, result) != 0) {
    tb_findclose(id);
    return -1;
  }
  return id;
}

int tb_findnext(int handle, tb_finddata* result) {
  FindHandle* find = LookupFind(handle);
  if (find == nullptr || result == nullptr) return -1;
  while (const dirent* entry = readdir(find->dir.get())) {
    if (!MatchesPattern(find->pattern.c_str(), entry->d_name)) continue;
    // The directory test opens the bare name, relative to the current
    // directory, as callers that search "." expect.
    DirPtr probe(opendir(entry->d_name));
    result->attrib = probe ? kFindAttribDirectory : 0;
    struct stat st;
    std::string full = find->dir_path + "/" + entry->d_name;
    result->time = stat(full.c_str(), &st) == 0 ? static_cast<int32_t>(st.st_ctime) : 0;
    CopyTruncated(result->name, entry->d_name);
    return 0;
  }
  return -1;
}

int tb_findclose(int handle) {
  FindHandle* find = LookupFind(handle);
  if (find == nullptr) return -1;
  int rc = closedir(find->dir.release());
  FindTable()[handle].reset();
  return rc;
}

int OpenForReading(const char* path) {
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat st;
  if (fstat(fd, &st) != 0 || S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode) || S_ISCHR(st.st_mode) ||
      S_ISBLK(st.st_mode)) {
    close(fd);
    errno = ENOENT;
    return -1;
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

FILE* FopenForReading(const char* path, const char* mode) {
  int fd = OpenForReading(path);
  if (fd < 0) return nullptr;
  FILE* fp = fdopen(fd, mode);
  if (fp == nullptr) close(fd);
  return fp;
}

int tb_CopyFile(const char* from, const char* to) {
  FilePtr in(FopenForReading(from, "rb"));
  if (!in) return -1;
  // The copy is made under a temporary name beside |to| and renamed into
  // place when complete, so that a reader of |to| (a web server serving a
  // store's pictures) never finds it half-written, and a failed copy leaves
  // an older |to| as it was.
  AtomicFile out;
  if (!out.Open(to)) return -2;
  char buf[2048];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, in.get())) > 0) {
    if (!out.Write(buf, n)) return -2;
  }
  // A source that cannot be read (a directory, an I/O error) is no copy.
  if (std::ferror(in.get())) return -1;
  return out.Commit(AtomicFile::Sync::kRename) ? 0 : -2;
}

std::size_t ReadFileToBuffer(const char* path, char** text, char** upper_text,
                             const char* program_name) {
  *text = nullptr;
  *upper_text = nullptr;
  const char* mail = program_name != nullptr && *program_name != '\0' ? program_name : nullptr;
  FilePtr in(FopenForReading(path));
  if (!in) {
    ReadFileOpenError(mail, path);
    return 0;
  }
  std::string content;
  try {
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, in.get())) > 0)
      content.append(buf, n);
  } catch (const std::bad_alloc&) {
    ReadFileMemoryError(mail);
    return 0;
  }
  const std::size_t size = content.size();
  std::unique_ptr<char, decltype(&std::free)> plain(static_cast<char*>(std::malloc(size + 1)),
                                                    &std::free);
  std::unique_ptr<char, decltype(&std::free)> upper(static_cast<char*>(std::malloc(size + 1)),
                                                    &std::free);
  if (!plain || !upper) {
    ReadFileMemoryError(mail);
    return 0;
  }
  std::memcpy(plain.get(), content.data(), size);
  plain.get()[size] = '\0';
  buffertouppercopy(upper.get(), plain.get(), size);
  *text = plain.release();
  *upper_text = upper.release();
  return size;
}

int getline(char* buf, int size, FILE* fp) {
  if (size <= 0) return std::feof(fp) ? 1 : 0;
  for (int i = 0;; ++i) {
    int c = std::fgetc(fp);
    if (c == '\r') c = std::fgetc(fp);
    // The place of the stopping byte takes the terminator, so a full buffer
    // gives up the last byte it read.
    if (c == EOF || c == '\n' || c == 4 || i == size - 1) {
      buf[i] = '\0';
      return std::feof(fp) ? 1 : 0;
    }
    buf[i] = static_cast<char>(c);
  }
}

void send_fd(FILE* in, FILE* out) {
  for (int c; (c = std::fgetc(in)) != EOF;) {
    std::fputc(c, out);
  }
}

std::size_t TB_pwrite(FILE* fp, const void* buf, std::size_t n) {
  return std::fwrite(buf, 1, n, fp);
}

std::size_t TB_pread(FILE* fp, void* buf, std::size_t n) {
  return std::fread(buf, 1, n, fp);
}

bool WriteFully(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) errno = EIO;
    if (n <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace storegen
