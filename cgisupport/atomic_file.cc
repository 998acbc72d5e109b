#include "cgisupport/atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

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

}  // namespace

bool AtomicFile::Open(const std::string& path) {
  Abandon();
  std::size_t slash = path.find_last_of("/\\");
  // A short fixed name, so that even a file name of maximal length leaves
  // room for the temporary one.
  std::string templ =
      path.substr(0, slash == std::string::npos ? 0 : slash + 1) + ".storegen-XXXXXX";
  std::vector<char> name(templ.begin(), templ.end());
  name.push_back('\0');
  int fd = mkstemp(name.data());
  if (fd < 0) return false;
  struct stat st;
  fchmod(fd, stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : NewFileMode());
  fp_ = fdopen(fd, "w");
  if (fp_ == nullptr) {
    int err = errno;
    close(fd);
    unlink(name.data());
    errno = err;
    return false;
  }
  path_ = path;
  tmp_ = name.data();
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

}  // namespace storegen
