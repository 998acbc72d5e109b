// What identifies one version of a file, for the caches that keep a file's
// text or values while it is unchanged (store configurations, templates,
// small databases). A cache stats the file on every use and reads it again
// when its identity differs; a file changed very recently is read again on
// every use, since it may change once more without its times moving.
#ifndef STOREGEN_CGISUPPORT_FILE_IDENTITY_H_
#define STOREGEN_CGISUPPORT_FILE_IDENTITY_H_

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <string>

namespace storegen {

// Device, inode, size and the nanosecond modification and status-change
// times of a stat result. Equal identities mean the same, unchanged file.
struct FileIdentity {
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = 0;
  timespec mtime{};
  timespec ctime{};

  FileIdentity() = default;
  explicit FileIdentity(const struct stat& st)
      : dev(st.st_dev), ino(st.st_ino), size(st.st_size), mtime(st.st_mtim), ctime(st.st_ctim) {}
  bool operator==(const FileIdentity& o) const;
};

// True when the file was modified or had its status changed within the
// last two seconds: file systems keep times to a clock tick or a second, so
// such a file must not be taken as unchanged on its identity alone.
bool ChangedRecently(const FileIdentity& id);

// Seconds by which the clock that ChangedRecently reads runs ahead of the
// real one: 0, except in tests that let time pass without waiting.
extern time_t g_settle_clock_ahead;

// Reads the whole regular file open as |fd|, |size| bytes by its fstat, into
// |text|, from its start and without moving the descriptor's offset. False on a read error, or when
// the file's length no longer matches |size| (it changed while being read).
bool ReadWholeFile(int fd, off_t size, std::string* text);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_FILE_IDENTITY_H_
