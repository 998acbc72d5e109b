// The files a run keeps in the program's own directory: the run lock
// ("pgstatus.pid" plus a companion lock file that is never removed), the
// status log "pgstatus.log" (names shared with the management side in
// templateset/management.h) and the record of the directories that hold the
// run's temporary files (cgisupport/temp_files.h). The directory is fixed once at start-up, so
// these files are found there whatever the current directory is later.
#ifndef STOREGEN_DRIVER_RUN_FILES_H_
#define STOREGEN_DRIVER_RUN_FILES_H_

#include <string>

namespace storegen {

// The current working directory, or an empty string when it cannot be
// determined (removed, or longer than PATH_MAX).
std::string CurrentDirectory();

// Changes into the directory of the program named by |argv0| (the part up to
// its last separator; a bare name is looked up through /proc/self/exe) and
// fixes that directory as the program directory. When the change fails, the
// current directory is taken instead. Returns true when the change succeeded.
bool EnterProgramDirectory(const char* argv0);

// The program directory without a trailing separator; empty before
// EnterProgramDirectory.
const std::string& ProgramDirectory();

// ProgramDirectory() + "/" + |name|, or |name| alone before the directory is
// fixed.
std::string ProgramFile(const char* name);

// The record of the directories that hold a run's temporary files.
inline constexpr char kTemporaryRecordFile[] = "pgstatus.tmpdirs";

// Takes both locks of a static run (lock file and companion, mode 0644,
// no waiting). Returns true with PageGenState.fdPID set when both are held;
// false when either is held elsewhere (nothing of this process stays locked).
// With the locks, removes what a killed run left of its temporary files and
// begins this run's record of them.
bool TakeRunLock();

// Ends the record of temporary files (when this process holds the locks),
// releases the lock file's lock (when PageGenState.fdPID is not -1, which it
// becomes), removes the program directory's "pgstatus.pid" in any case, and
// then releases the companion lock if this process holds it.
void ReleaseRunLock();

// Makes SIGTERM, SIGINT and SIGHUP (the last two unless they are ignored)
// end the process cleanly: its temporary files are removed and, when it
// holds the run lock, the lock file too; then the signal ends it as it would
// have. Files already replaced stay as they are.
void EndOnStopSignals();

// "-b": sends standard output to the status log from here on, and keeps it
// in PageGenState.fpRedirect. The output is held in a private file until
// SettleStatusLog decides whose it is, so that a run refused for want of the
// lock never touches the log of the run under way. When no private file can
// be made, the log is opened at once, as before (null when it cannot be).
void RedirectOutputToStatusLog();

// Decides where held "-b" output goes, when there is any: while another
// process holds a run lock (this one holding none), back to the standard output the program started
// with (WithdrawStatusLog); otherwise into the program directory's
// "pgstatus.log", which it replaces and where the rest of the output goes.
void SettleStatusLog();

// Gives held "-b" output back to the standard output the program started
// with, which gets the rest of the output too; the status log is not
// touched. Does nothing unless output is held.
void WithdrawStatusLog();

}  // namespace storegen

#endif  // STOREGEN_DRIVER_RUN_FILES_H_
