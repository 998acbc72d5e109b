// Files that replace an older version in one step: written under a temporary
// name in the target's directory and renamed into place when complete, so a
// reader (a web server, a later run) never sees a half-written file.
#ifndef STOREGEN_PAGEGEN_ATOMIC_FILE_H_
#define STOREGEN_PAGEGEN_ATOMIC_FILE_H_

#include <cstdio>
#include <string>

namespace storegen {

class AtomicFile {
 public:
  AtomicFile() = default;
  ~AtomicFile() { Abandon(); }
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Creates the temporary file beside |path| (mode 0666 less the umask, as
  // fopen "w" would). False when it cannot be created; errno is kept.
  bool Open(const std::string& path);
  // The open stream, null before Open and after Commit/Abandon.
  FILE* fp() const { return fp_; }
  const std::string& path() const { return path_; }
  // Closes the stream and renames the file to the path given to Open. False
  // when a write or the rename failed; the temporary file is then removed and
  // an older file at the path stays as it was.
  bool Commit();
  // Closes the stream and removes the temporary file; nothing when not open.
  void Abandon();

 private:
  FILE* fp_ = nullptr;
  std::string path_;
  std::string tmp_;
};

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_ATOMIC_FILE_H_
