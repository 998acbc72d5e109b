#include "cgisupport/file_identity.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace storegen {
namespace {

constexpr std::time_t kRecentChangeSeconds = 2;

bool SameTime(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

time_t g_settle_clock_ahead = 0;

bool FileIdentity::operator==(const FileIdentity& o) const {
  return dev == o.dev && ino == o.ino && size == o.size && SameTime(mtime, o.mtime) &&
         SameTime(ctime, o.ctime);
}

bool ChangedRecently(const FileIdentity& id) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::max(id.mtime.tv_sec, id.ctime.tv_sec) + kRecentChangeSeconds >=
         now.tv_sec + g_settle_clock_ahead;
}

bool ReadWholeFile(int fd, off_t size, std::string* text) {
  text->resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < text->size()) {
    ssize_t n = pread(fd, text->data() + done, text->size() - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  char more;
  return pread(fd, &more, 1, size) == 0;  // nothing beyond |size|
}

}  // namespace storegen
