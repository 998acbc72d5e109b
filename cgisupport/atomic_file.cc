#include "cgisupport/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "cgisupport/file_util.h"

namespace storegen {
namespace {

mode_t NewFileMode() {
  static const mode_t mode = [] {
    mode_t mask = umask(0);
    umask(mask);
    return static_cast<mode_t>(0666 & ~mask);
  }();
  return mode;
}

// Creates the temporary file beside |path| (its name in |*tmp|) with the
// permission bits |mode|. Returns its descriptor, or -1 with errno kept.
int OpenTemporary(const std::string& path, mode_t mode, std::string* tmp) {
  std::size_t slash = path.find_last_of("/\\");
  // A short fixed name, so that even a file name of maximal length leaves
  // room for the temporary one.
  std::string templ =
      path.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".storegen-XXXXXX";
  std::vector<char> name(templ.begin(), templ.end());
  name.push_back('\0');
  int fd = mkstemp(name.data());
  if (fd < 0) return -1;
  fchmod(fd, mode);
  *tmp = name.data();
  return fd;
}

// The permission bits a file written over |path| gets: those of the file
// there, or those of a new file.
mode_t ModeFor(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : NewFileMode();
}

// Writes |data| to the descriptor |fd| of the file |name| and closes it;
// removes the file when that fails. errno is kept.
bool WriteAndClose(int fd, const std::string& name, std::string_view data) {
  bool ok = WriteFully(fd, data);
  int err = ok ? 0 : errno;
  if (close(fd) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    unlink(name.c_str());
    errno = err;
  }
  return ok;
}

}  // namespace

bool AtomicFile::Open(const std::string& path) {
  Abandon();
  std::string name;
  int fd = OpenTemporary(path, ModeFor(path), &name);
  if (fd < 0) return false;
  fp_ = fdopen(fd, "w");
  if (fp_ == nullptr) {
    int err = errno;
    close(fd);
    unlink(name.c_str());
    errno = err;
    return false;
  }
  path_ = path;
  tmp_ = std::move(name);
  return true;
}

bool AtomicFile::Write(const void* data, std::size_t n) {
  return fp_ != nullptr && (n == 0 || std::fwrite(data, 1, n, fp_) == n);
}

bool AtomicFile::Commit(Sync sync) {
  if (fp_ == nullptr) return false;
  bool ok = std::fflush(fp_) == 0 && std::ferror(fp_) == 0;
  if (ok && sync == Sync::kToDisk) ok = fsync(fileno(fp_)) == 0;
  ok = std::fclose(fp_) == 0 && ok;
  fp_ = nullptr;
  if (ok) ok = std::rename(tmp_.c_str(), path_.c_str()) == 0;
  if (!ok) unlink(tmp_.c_str());
  tmp_.clear();
  return ok;
}

void AtomicFile::Abandon() {
  if (fp_ == nullptr) return;
  std::fclose(fp_);
  fp_ = nullptr;
  unlink(tmp_.c_str());
  tmp_.clear();
}

bool WriteWholeFile(const std::string& path, std::string_view data) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd >= 0) return WriteAndClose(fd, path, data);
  if (errno != EEXIST) return false;
  // An older file (or a dangling symbolic link) is replaced in one step.
  struct stat st;
  if (stat(path.c_str(), &st) != 0) st.st_mode = NewFileMode();
  std::string tmp;
  fd = OpenTemporary(path, st.st_mode & 07777, &tmp);
  if (fd < 0 || !WriteAndClose(fd, tmp, data)) return false;
  if (std::rename(tmp.c_str(), path.c_str()) == 0) return true;
  int err = errno;
  unlink(tmp.c_str());
  errno = err;
  return false;
}

}  // namespace storegen
