// Temporary files. Every file the programs replace is first written under a
// temporary name in its own directory, ".storegen-" followed by the writing
// process's id, "-" and a counter, and renamed into place when complete.
//
// A process keeps the names of its temporary files that still exist, so that
// a signal handler can remove them (RemoveLiveTemporaries). A run that holds
// the run lock also keeps a record file naming every directory in which it
// made one: a run that is killed leaves that record behind, and the next run
// removes what the killed one left in those directories
// (BeginTemporaryRecord). A run that ends normally removes the record, so
// directories are looked through only after a run was killed.
#ifndef STOREGEN_CGISUPPORT_TEMP_FILES_H_
#define STOREGEN_CGISUPPORT_TEMP_FILES_H_

#include <sys/types.h>

#include <string>

namespace storegen {

inline constexpr char kTemporaryPrefix[] = ".storegen-";

// Creates a temporary file in the directory of |path| with the permission
// bits |mode| (exactly, whatever the umask). Returns its descriptor, open for
// writing, with its name in |*name|; -1 with errno kept when it cannot be
// made.
int CreateTemporary(const std::string& path, mode_t mode, std::string* name);
// The temporary file |name| was renamed into place or removed.
void ForgetTemporary(const std::string& name);

// Removes this process's temporary files. Safe to call from a signal
// handler.
void RemoveLiveTemporaries();
// In a child process just forked: the temporary files that exist belong to
// the parent, not to this process.
void DisownLiveTemporaries();

// Starts the run's record |record| (a file in the program's directory): the
// temporary files that the runs named in it left behind are removed, except
// those of processes still alive, and every directory in which this process
// makes a temporary file from now on is added to it before the file is made.
// Returns the number of files removed.
int BeginTemporaryRecord(const std::string& record);
// Keeps the record at its end although this process removed every temporary
// file it made: another process of the run ended abnormally.
void KeepTemporaryRecord();
// Ends the record: it is removed, unless it must be kept (a temporary file of
// this process still exists, or one named in it belongs to a process still
// alive, or KeepTemporaryRecord was called).
void EndTemporaryRecord();

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_TEMP_FILES_H_
