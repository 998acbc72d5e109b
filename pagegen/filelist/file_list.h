// Generated-file lists: the run's error list (problems with their codes) and
// delete list (every page file written), and the list file "Xzq3Jpo9" through
// which a full run removes the pages of the previous one.
#ifndef STOREGEN_PAGEGEN_FILELIST_FILE_LIST_H_
#define STOREGEN_PAGEGEN_FILELIST_FILE_LIST_H_

#include <cstdint>

namespace storegen {

struct FileList {
  char* text;  // owned copy; null if copying failed
  int32_t code;
  FileList* next;
};

// The list file's name, relative to the store's output directory.
inline constexpr const char kFileListName[] = "Xzq3Jpo9";

// Appends (text, code) at the tail of *list; nothing is added when memory
// runs out.
void FileListAdd(FileList** list, const char* text, int32_t code);
// Prints "%s\t%d\n" for every entry with a text, in order, on standard output.
void OutputFileList(const FileList* list);
// Frees every entry and its text.
void FreeFileList(FileList* list);
// Appends every entry's text as a line to |list_file|, which is created even
// when the list is empty.
void WriteFileList(const FileList* list, const char* list_file);
// Removes every file named in |list_file| (trailing white space cut), then the
// list file itself; verbose: "Removing old file %s\n".
void DeleteOldFileList(const char* list_file);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_FILELIST_FILE_LIST_H_
