#include "cgisupport/temp_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "cgisupport/file_identity.h"
#include "cgisupport/file_util.h"

namespace storegen {
namespace {

// The temporary files of this process that exist, kept where a signal
// handler can read them: a slot's name is complete before it is marked used.
// A process has a few at a time (a page, a text-block cache, a rewritten
// configuration); one that finds no free slot is still cleaned up by the
// next run.
struct LiveSlot {
  std::atomic<bool> used{false};
  char name[PATH_MAX];
};
constexpr int kLiveSlots = 16;
LiveSlot g_live[kLiveSlots];

void Remember(const std::string& name) {
  if (name.size() >= PATH_MAX) return;
  for (LiveSlot& slot : g_live) {
    if (slot.used.load(std::memory_order_relaxed)) continue;
    std::memcpy(slot.name, name.c_str(), name.size() + 1);
    slot.used.store(true, std::memory_order_release);
    return;
  }
}

bool AnyLive() {
  for (const LiveSlot& slot : g_live) {
    if (slot.used.load()) return true;
  }
  return false;
}

// The run's record of directories: its descriptor (open for appending),
// its path, and the directories already in it.
struct Record {
  int fd = -1;
  std::string path;
  bool keep = false;  // it must outlive the run
  std::unordered_set<std::string> dirs;
  std::string last;  // the directory noted last, looked at before the set
};
Record g_record;

// This process's id, asked of the system once per process.
pid_t g_pid = 0;

pid_t OwnPid() {
  static const bool forget_in_children = pthread_atfork(nullptr, nullptr, [] { g_pid = 0; }) == 0;
  if (g_pid == 0 || !forget_in_children) g_pid = getpid();
  return g_pid;
}

mode_t Umask() {
  static const mode_t mask = [] {
    mode_t m = umask(0);
    umask(m);
    return m;
  }();
  return mask;
}

// Adds |dir| to the run's record unless it is there already. False when it
// could not be written (errno kept): a temporary file made there could then
// be left behind unnoticed.
bool Note(std::string_view dir) {
  if (g_record.fd < 0 || dir == g_record.last) return true;
  std::string key(dir);
  if (!g_record.dirs.contains(key)) {
    if (!WriteFully(g_record.fd, key + "\n")) return false;
    g_record.dirs.insert(key);
  }
  g_record.last = std::move(key);
  return true;
}

// The directory and process of the temporary files made last, and the start
// of their names: the directory, "/", the prefix, the process id and "-".
struct Stem {
  std::string dir;
  pid_t pid = 0;
  std::string text;
};
Stem g_stem;

// The process id in a temporary file's name, or 0.
pid_t OwnerOf(std::string_view name) {
  name.remove_prefix(sizeof kTemporaryPrefix - 1);
  pid_t pid = 0;
  for (char c : name) {
    if (c == '-') return pid;
    if (c < '0' || c > '9' || pid > 100000000) return 0;
    pid = pid * 10 + (c - '0');
  }
  return 0;
}

// True when process |pid| (not this one) runs: a process that has ended but
// was not reaped yet does not.
bool Alive(pid_t pid) {
  if (pid <= 0 || pid == getpid() || (kill(pid, 0) != 0 && errno != EPERM)) return false;
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  FilePtr stat_file(std::fopen(path, "r"));
  char state = 0;
  // "pid (name) state ...": the name may hold blanks and parentheses.
  if (stat_file != nullptr) {
    char line[512];
    if (std::fgets(line, sizeof line, stat_file.get()) != nullptr) {
      if (const char* end = std::strrchr(line, ')'); end != nullptr && end[1] == ' ')
        state = end[2];
    }
  }
  return state != 'Z' && state != 'X';
}

// Removes the temporary files in |dir| whose process has ended; sets *busy
// when some belong to a process that is still alive.
int Sweep(const std::string& dir, bool* busy) {
  DIR* d = opendir(dir.c_str());
  if (d == nullptr) return 0;
  int removed = 0;
  while (const dirent* entry = readdir(d)) {
    std::string_view name = entry->d_name;
    if (!name.starts_with(kTemporaryPrefix)) continue;
    if (Alive(OwnerOf(name))) {
      *busy = true;
    } else if (unlinkat(dirfd(d), entry->d_name, 0) == 0) {
      ++removed;
    }
  }
  closedir(d);
  return removed;
}

}  // namespace

int CreateTemporary(const std::string& path, mode_t mode, std::string* name) {
  static uint64_t counter = 0;
  const std::size_t slash = path.find_last_of("/\\");
  std::string_view dir;
  if (slash != std::string::npos) dir = std::string_view(path).substr(0, slash == 0 ? 1 : slash);
  std::string absolute;
  if (dir.empty() || dir[0] != '/') {
    // Kept absolute, so that a change of directory cannot make a name lead
    // elsewhere.
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) return -1;
    absolute = dir.empty() ? std::string(cwd) : std::string(cwd) + "/" + std::string(dir);
    dir = absolute;
  }
  if (!Note(dir)) return -1;
  if (dir != g_stem.dir || g_stem.pid != OwnPid()) {
    g_stem.dir = dir;
    g_stem.pid = OwnPid();
    g_stem.text = g_stem.dir + (dir.back() == '/' ? "" : "/") + kTemporaryPrefix +
                  std::to_string(g_stem.pid) + "-";
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    name->assign(g_stem.text);
    name->append(std::to_string(++counter));
    // Known before it exists: a signal that ends the process right after
    // the file was made must find it.
    Remember(*name);
    int fd = open(name->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd < 0) {
      const int err = errno;
      ForgetTemporary(*name);
      if (err == EEXIST) continue;  // left by an earlier process of this id
      errno = err;
      return -1;
    }
    if ((mode & ~Umask()) != mode) fchmod(fd, mode);
    return fd;
  }
  errno = EEXIST;
  return -1;
}

void ForgetTemporary(const std::string& name) {
  for (LiveSlot& slot : g_live) {
    if (slot.used.load(std::memory_order_relaxed) && name == slot.name) {
      slot.used.store(false, std::memory_order_release);
      return;
    }
  }
}

void RemoveLiveTemporaries() {
  for (LiveSlot& slot : g_live) {
    if (slot.used.load(std::memory_order_acquire)) unlink(slot.name);
  }
}

void DisownLiveTemporaries() {
  for (LiveSlot& slot : g_live)
    slot.used.store(false);
}

int BeginTemporaryRecord(const std::string& record) {
  if (g_record.fd >= 0) close(g_record.fd);
  g_record = Record();
  int fd = open(record.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (fd < 0) return 0;
  std::string text;
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0)
    ReadWholeFile(fd, st.st_size, &text);
  int removed = 0;
  std::vector<std::string> busy_dirs;
  std::unordered_set<std::string> swept;
  for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
    end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    std::string dir = text.substr(at, end - at);
    if (dir.empty() || !swept.insert(dir).second) continue;
    bool busy = false;
    removed += Sweep(dir, &busy);
    if (busy) busy_dirs.push_back(dir);
  }
  g_record.fd = fd;
  g_record.path = record;
  g_record.keep = !busy_dirs.empty();
  if (ftruncate(fd, 0) == 0) {
    for (const std::string& dir : busy_dirs)
      Note(dir);
  }
  return removed;
}

void KeepTemporaryRecord() {
  g_record.keep = true;
}

void EndTemporaryRecord() {
  if (g_record.fd < 0) return;
  if (!g_record.keep && !AnyLive()) unlink(g_record.path.c_str());
  close(g_record.fd);
  g_record = Record();
}

}  // namespace storegen
