#include "pagegen/filelist/file_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "cgisupport/atomic_file.h"
#include "cgisupport/file_identity.h"
#include "cgisupport/file_util.h"
#include "cgisupport/run_state.h"

namespace storegen {
namespace {

// The list last appended to and its last entry. Cleared whenever a list is
// freed, so it never points into freed entries.
struct TailCache {
  FileList** list = nullptr;
  FileList* tail = nullptr;
};
TailCache g_tail_cache;

}  // namespace

void FileListAdd(FileList** list, const char* text, int32_t code) {
  if (list == nullptr) return;
  auto* entry = static_cast<FileList*>(std::calloc(1, sizeof(FileList)));
  if (entry == nullptr) return;
  entry->text = text != nullptr ? strdup(text) : nullptr;
  entry->code = code;
  // A run appends tens of thousands of names: resume from the tail the last
  // append to this list left, instead of walking the list every time.
  FileList** tail = list;
  if (g_tail_cache.list == list && g_tail_cache.tail != nullptr && *list != nullptr) {
    tail = &g_tail_cache.tail->next;
  }
  while (*tail != nullptr)
    tail = &(*tail)->next;
  *tail = entry;
  g_tail_cache = {list, entry};
}

void OutputFileList(const FileList* list) {
  for (const FileList* e = list; e != nullptr; e = e->next) {
    if (e->text != nullptr) std::printf("%s\t%d\n", e->text, e->code);
  }
}

void FreeFileList(FileList* list) {
  g_tail_cache = {};  // the cached tail may belong to this list
  while (list != nullptr) {
    FileList* next = list->next;
    std::free(list->text);
    std::free(list);
    list = next;
  }
}

namespace {

// The list of the run under way; |file| is empty when none was begun.
struct RunList {
  std::string file;
  std::string base_dir;
  std::size_t start_size = 0;  // the list's length when the run began
  int fd = -1;                 // open for appending, from the first new page on
};
RunList g_run;

// The list's text; false when there is none (or it is not a file).
bool ReadList(const std::string& file, std::string* text) {
  text->clear();
  int fd = OpenForReading(file.c_str());
  if (fd < 0) return false;
  struct stat st;
  bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && ReadWholeFile(fd, st.st_size, text);
  close(fd);
  return ok;
}

// Calls visit(name) for every name of a list's text, as a reader of lines
// into 256 bytes takes them: a longer line comes in pieces of 255 bytes;
// trailing blanks, TABs, CRs and LFs are cut.
template <typename Visit>
void ForEachName(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const std::size_t eol = text.find('\n');
    const std::size_t n =
        std::min<std::size_t>(eol == std::string_view::npos ? text.size() : eol + 1, 255);
    std::string_view name = text.substr(0, n);
    text.remove_prefix(n);
    while (!name.empty() && std::strchr(" \t\r\n", name.back()) != nullptr)
      name.remove_suffix(1);
    visit(name);
  }
}

// The names of |list|, sorted, to be searched with Holds: 16 bytes a page.
std::vector<std::string_view> SortedNames(const FileList* list) {
  std::vector<std::string_view> names;
  for (const FileList* e = list; e != nullptr; e = e->next) {
    if (e->text != nullptr) names.emplace_back(e->text);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool Holds(const std::vector<std::string_view>& sorted, std::string_view name) {
  return std::binary_search(sorted.begin(), sorted.end(), name);
}

// True when |text| is the names of |written| and nothing else, one a line.
bool NamesExactly(std::string_view text, const FileList* written) {
  for (const FileList* e = written; e != nullptr; e = e->next) {
    if (e->text == nullptr) continue;
    const std::string_view name = e->text;
    if (!text.starts_with(name) || text.size() == name.size() || text[name.size()] != '\n')
      return false;
    text.remove_prefix(name.size() + 1);
  }
  return text.empty();
}

// Removes every file named in |text| that is neither one of |written| nor
// the same file as one of them under another name.
void RemoveOthers(std::string_view text, const FileList* written, const std::string& base_dir) {
  const std::vector<std::string_view> mine = SortedNames(written);
  std::vector<std::string> others;
  struct stat st;
  ForEachName(text, [&](std::string_view name) {
    if (name.empty() || Holds(mine, name)) return;
    std::string path(name);
    if (path[0] != '/' && !base_dir.empty()) path = base_dir + "/" + path;
    if (lstat(path.c_str(), &st) == 0) others.push_back(std::move(path));
  });
  if (others.empty()) return;
  std::set<std::pair<dev_t, ino_t>> kept;
  for (const FileList* e = written; e != nullptr; e = e->next) {
    if (e->text != nullptr && lstat(e->text, &st) == 0) kept.emplace(st.st_dev, st.st_ino);
  }
  for (const std::string& path : others) {
    if (lstat(path.c_str(), &st) == 0 && !kept.contains({st.st_dev, st.st_ino}))
      std::remove(path.c_str());
  }
}

}  // namespace

void BeginFileList(const std::string& list_file, const std::string& base_dir, bool full_run) {
  std::string text;
  ReadList(list_file, &text);
  if (full_run && Verbose()) {
    ForEachName(text, [](std::string_view name) {
      VerbosePrintf("Removing old file %.*s\n", static_cast<int>(name.size()), name.data());
    });
  }
  if (g_run.fd >= 0) close(g_run.fd);
  g_run = RunList{list_file, base_dir, text.size(), -1};
}

bool RecordNewPage(const std::string& path) {
  if (g_run.file.empty()) return true;
  if (g_run.fd < 0) {
    // Never blocks on a list file that is not a file.
    int fd = open(g_run.file.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    // A last line without its line feed gets one, so that names never run
    // together.
    struct stat st;
    char last = '\n';
    bool ok = fstat(fd, &st) == 0;
    if (ok && !S_ISREG(st.st_mode)) {
      ok = false;
      errno = EINVAL;
    }
    if (ok && st.st_size > 0) ok = pread(fd, &last, 1, st.st_size - 1) == 1;
    if (ok && last != '\n') ok = WriteFully(fd, "\n");
    if (!ok) {
      const int err = errno;
      close(fd);
      errno = err;
      return false;
    }
    g_run.fd = fd;
  }
  iovec line[2] = {{const_cast<char*>(path.data()), path.size()}, {const_cast<char*>("\n"), 1}};
  const ssize_t n = writev(g_run.fd, line, 2);
  if (n == static_cast<ssize_t>(path.size() + 1)) return true;
  if (n >= 0) {
    // A full disk cut the line short: it is taken back, unless another
    // process of the run has appended behind it since.
    const off_t end = lseek(g_run.fd, 0, SEEK_CUR);
    struct stat st;
    if (n > 0 && end >= n && fstat(g_run.fd, &st) == 0 && st.st_size == end)
      ftruncate(g_run.fd, end - n);
    errno = ENOSPC;
  }
  return false;
}

bool FinishFileList(const FileList* written, ListEnd how) {
  const RunList run = std::exchange(g_run, RunList{});
  if (run.fd >= 0) close(run.fd);
  if (run.file.empty()) return true;
  // The list as it was at the beginning; the names after it are the run's
  // new pages.
  std::string old_part;
  const bool exists = ReadList(run.file, &old_part);
  const std::size_t size_now = old_part.size();
  old_part.resize(std::min(run.start_size, size_now));
  std::vector<std::string_view> listed;
  if (how == ListEnd::kReplace) {
    if (exists && size_now == old_part.size() && NamesExactly(old_part, written)) return true;
    RemoveOthers(old_part, written, run.base_dir);
    std::string().swap(old_part);
  } else if (how == ListEnd::kKeep) {
    if (!old_part.empty() && old_part.back() != '\n') old_part += '\n';
    ForEachName(old_part, [&](std::string_view name) { listed.push_back(name); });
    std::sort(listed.begin(), listed.end());
  }
  AtomicFile out;
  bool ok = out.Open(run.file) && out.Write(old_part.data(), old_part.size());
  for (const FileList* e = written; ok && e != nullptr; e = e->next) {
    if (e->text == nullptr || Holds(listed, e->text)) continue;
    ok = out.Write(e->text, std::strlen(e->text)) && out.Write("\n", 1);
  }
  return ok && out.Commit();
}

}  // namespace storegen
