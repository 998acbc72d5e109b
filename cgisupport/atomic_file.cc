#include "cgisupport/atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cgisupport/file_util.h"
#include "cgisupport/temp_files.h"

namespace storegen {
namespace {

// The permission bits a file written over |path| gets: those of the file
// there, or those fopen "w" gives a new file. |*existed| tells which.
mode_t ModeFor(const std::string& path, bool* existed) {
  static const mode_t new_file = [] {
    mode_t mask = umask(0);
    umask(mask);
    return static_cast<mode_t>(0666 & ~mask);
  }();
  struct stat st;
  *existed = stat(path.c_str(), &st) == 0;
  return *existed ? (st.st_mode & 07777) : new_file;
}

// Removes the temporary file |tmp|, keeping errno.
void Discard(const std::string& tmp) {
  const int err = errno;
  unlink(tmp.c_str());
  ForgetTemporary(tmp);
  errno = err;
}

// Renames the complete temporary file |tmp| to |path|, once |check| agreed
// when |path| is new; removes it when that fails.
bool Publish(const std::string& tmp, const std::string& path, bool existed, NewFileCheck check) {
  if (!existed && check != nullptr && !check(path)) {
    Discard(tmp);
    return false;
  }
  if (std::rename(tmp.c_str(), path.c_str()) != 0) {
    Discard(tmp);
    return false;
  }
  ForgetTemporary(tmp);
  return true;
}

}  // namespace

bool AtomicFile::Open(const std::string& path) {
  Abandon();
  std::string name;
  int fd = CreateTemporary(path, ModeFor(path, &existed_), &name);
  if (fd < 0) return false;
  fp_ = fdopen(fd, "w");
  if (fp_ == nullptr) {
    close(fd);
    Discard(name);
    return false;
  }
  path_ = path;
  tmp_ = std::move(name);
  return true;
}

bool AtomicFile::Write(const void* data, std::size_t n) {
  return fp_ != nullptr && (n == 0 || std::fwrite(data, 1, n, fp_) == n);
}

bool AtomicFile::Commit(Sync sync, NewFileCheck check) {
  if (fp_ == nullptr) return false;
  bool ok = std::fflush(fp_) == 0 && std::ferror(fp_) == 0;
  if (ok && sync == Sync::kToDisk) ok = fsync(fileno(fp_)) == 0;
  int err = ok ? 0 : errno;
  if (std::fclose(fp_) != 0 && ok) {
    ok = false;
    err = errno;
  }
  fp_ = nullptr;
  const std::string tmp = std::move(tmp_);
  tmp_.clear();
  if (!ok) {
    errno = err;
    Discard(tmp);
    return false;
  }
  return Publish(tmp, path_, existed_, check);
}

void AtomicFile::Abandon() {
  if (fp_ == nullptr) return;
  std::fclose(fp_);
  fp_ = nullptr;
  Discard(tmp_);
  tmp_.clear();
}

bool WriteWholeFile(const std::string& path, std::string_view data, NewFileCheck check) {
  bool existed = false;
  std::string tmp;
  int fd = CreateTemporary(path, ModeFor(path, &existed), &tmp);
  if (fd < 0) return false;
  bool ok = WriteFully(fd, data);
  int err = ok ? 0 : errno;
  if (close(fd) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    errno = err;
    Discard(tmp);
    return false;
  }
  return Publish(tmp, path, existed, check);
}

}  // namespace storegen
