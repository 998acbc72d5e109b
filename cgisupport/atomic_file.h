// Files that replace an older version in one step: written under a temporary
// name in the target's directory and renamed into place when complete, so a
// reader (a web server, the cart, a later run) never sees a half-written
// file, and a failed write leaves the older file as it was.
#ifndef STOREGEN_CGISUPPORT_ATOMIC_FILE_H_
#define STOREGEN_CGISUPPORT_ATOMIC_FILE_H_

#include <cstdio>
#include <string>
#include <string_view>

namespace storegen {

// Called before a file that did not exist appears under its name, with that
// name; false keeps it from appearing (the write then fails). Static runs
// name every new page in their list of written files so.
using NewFileCheck = bool (*)(const std::string& path);

class AtomicFile {
 public:
  AtomicFile() = default;
  ~AtomicFile() { Abandon(); }
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Creates the temporary file beside |path| (temp_files.h), with the
  // permission bits of the file it will replace (or 0666 less the umask, as
  // fopen "w" would give a new file). False when it cannot be created; errno
  // is kept.
  bool Open(const std::string& path);
  // The open stream, null before Open and after Commit/Abandon.
  FILE* fp() const { return fp_; }
  const std::string& path() const { return path_; }
  // Writes |n| bytes; false on a write error (Commit then fails too).
  bool Write(const void* data, std::size_t n);
  // How far Commit goes: kToDisk also waits for the data to reach the disk
  // (files kept for the long run: configurations, databases); kRename only
  // guarantees that readers see the old or the complete new content (pages,
  // which a run can always write again).
  enum class Sync { kRename, kToDisk };
  // Closes the file and renames it to the path given to Open, after |check|
  // agreed when no file was there at Open. False when a write, the flush,
  // the check or the rename failed; the temporary file is then removed and
  // an older file at the path stays as it was.
  bool Commit(Sync sync = Sync::kToDisk, NewFileCheck check = nullptr);
  // Closes the stream and removes the temporary file; nothing when not open.
  void Abandon();

 private:
  FILE* fp_ = nullptr;
  std::string path_;
  std::string tmp_;
  bool existed_ = false;  // a file was at the path when it was opened
};

// Writes |data| as the whole content of |path| as AtomicFile does (a
// temporary file with the permission bits of the file it replaces, renamed
// into place), without a stream: a reader sees the old or the complete new
// content, never a part. |check| is asked first when no file was there.
// False when it fails, with errno kept; an older file then stays as it was
// and nothing new is left behind.
bool WriteWholeFile(const std::string& path, std::string_view data, NewFileCheck check = nullptr);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_ATOMIC_FILE_H_
