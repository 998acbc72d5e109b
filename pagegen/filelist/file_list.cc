#include "pagegen/filelist/file_list.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cgisupport/atomic_file.h"
#include "cgisupport/file_util.h"
#include "cgisupport/run_state.h"

namespace storegen {
namespace {

// Removes trailing blanks, TABs, CRs and LFs in place.
void TrimTrailingSpace(char* s) {
  std::size_t n = std::strlen(s);
  while (n > 0 && (s[n - 1] == ' ' || s[n - 1] == '\t' || s[n - 1] == '\n' || s[n - 1] == '\r')) {
    s[--n] = '\0';
  }
}

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

void WriteFileList(const FileList* list, const char* list_file) {
  // The names are appended to what the list file already holds. The old
  // content and the new names go to a temporary file that replaces the list
  // in one step, so a failed write never leaves a half-written list behind;
  // the file is created even for an empty list.
  AtomicFile out;
  if (!out.Open(list_file)) return;
  if (FilePtr old{std::fopen(list_file, "rb")}) {
    char buf[4096];
    std::size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, old.get())) > 0) {
      if (!out.Write(buf, n)) return;
    }
    if (std::ferror(old.get())) return;
  }
  for (const FileList* e = list; e != nullptr; e = e->next) {
    if (e->text != nullptr && std::fprintf(out.fp(), "%s\n", e->text) < 0) return;
  }
  out.Commit();
}

void DeleteOldFileList(const char* list_file) {
  {
    FilePtr fp(std::fopen(list_file, "r"));
    if (!fp) return;
    char line[256];
    while (std::fgets(line, sizeof line, fp.get()) != nullptr) {
      TrimTrailingSpace(line);
      VerbosePrintf("Removing old file %s\n", line);
      std::remove(line);
    }
  }
  std::remove(list_file);
}

}  // namespace storegen
