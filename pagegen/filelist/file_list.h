// Generated-file lists: the run's error list (problems with their codes) and
// delete list (every page file written), and the list file "Xzq3Jpo9" through
// which a full run removes the pages of the previous one.
#ifndef STOREGEN_PAGEGEN_FILELIST_FILE_LIST_H_
#define STOREGEN_PAGEGEN_FILELIST_FILE_LIST_H_

#include <cstdint>
#include <string>

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
// The list file of a static run's output directory. It names every page file
// the runs wrote, at every moment: a page that did not exist is named in it
// before it appears (RecordNewPage), and the pages of earlier runs that a
// run no longer writes are removed only when the run has written all of its
// own (FinishFileList). A run that fails or is killed thus leaves every page
// of the store in place and named.
//
// Begins the run's list |list_file|. A full run (|full_run|) prints, in
// verbose mode, "Removing old file %s\n" for each name the list holds (they
// are removed at its end, if at all). Names that are not absolute are taken
// relative to |base_dir|.
void BeginFileList(const std::string& list_file, const std::string& base_dir, bool full_run);

// Names the page |path|, which does not exist yet, in the list (a
// NewFileCheck). True when it is named, or when no list was begun; false
// with errno set when the list cannot take it.
bool RecordNewPage(const std::string& path);

// How a run's list ends.
enum class ListEnd {
  kAppend,   // the list as it was at its beginning, then the run's pages
  kKeep,     // the same, without the pages the list named already
  kReplace,  // the run's pages alone, the other pages it named removed
};

// Ends the run's list. |written| are the pages of the run, in order; with
// kReplace, every file named in the list that is not one of them (nor the
// same file under another name) is removed, then the list is replaced by
// their names. The list is replaced in one step; false (errno set) when it
// could not be written, in which case it stays as it stood.
bool FinishFileList(const FileList* written, ListEnd how);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_FILELIST_FILE_LIST_H_
