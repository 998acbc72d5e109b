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

class AtomicFile {
 public:
  AtomicFile() = default;
  ~AtomicFile() { Abandon(); }
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  // Creates the temporary file beside |path|, with the permission bits of
  // the file it will replace (or 0666 less the umask, as fopen "w" would
  // give a new file). False when it cannot be created; errno is kept.
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
  // Closes the file and renames it to the path given to Open. False when a
  // write, the flush or the rename failed; the temporary file is then removed
  // and an older file at the path stays as it was.
  bool Commit(Sync sync = Sync::kToDisk);
  // Closes the stream and removes the temporary file; nothing when not open.
  void Abandon();

 private:
  FILE* fp_ = nullptr;
  std::string path_;
  std::string tmp_;
};

// Writes |data| as the whole content of |path|, for files that a run can
// always write again (pages). A file that exists is replaced as AtomicFile
// does (a temporary file with its permission bits, renamed into place), so a
// reader sees the old or the complete new content. A new file is created
// under its own name (0666 less the umask) and written with one write: a
// reader may meet it empty or partly written while this runs, but there was
// no older content to lose. False when it fails, with errno kept; an older
// file then stays as it was and nothing new is left behind.
bool WriteWholeFile(const std::string& path, std::string_view data);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_ATOMIC_FILE_H_
