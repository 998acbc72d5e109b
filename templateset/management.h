// Store-management requests answered as CGI responses: a template set's
// information page in a pop-up window, launching a generation run in the
// background, whether a run is under way, and the report of a finished run.
// Everything is written to standard output. Not reentrant.
#ifndef STOREGEN_TEMPLATESET_MANAGEMENT_H_
#define STOREGEN_TEMPLATESET_MANAGEMENT_H_

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace storegen {

// Files of a static run, in the page generator's own directory. A run holds
// lockf locks on both lock files; the companion is never removed, so runs
// stay exclusive even after a refused run removed "pgstatus.pid".
inline constexpr char kRunLockFile[] = "pgstatus.pid";
inline constexpr char kRunLockCompanionFile[] = "pgstatus.lck";
inline constexpr char kStatusLogFile[] = "pgstatus.log";
// The standard error of a run the management program started: its
// diagnostics, for the status page.
inline constexpr char kRunMessagesFile[] = "pgstatus.err";
// Held by the management program from the moment it decides to start a run
// until the run holds its own locks, so that of requests arriving together
// only one starts a run. Never removed either.
inline constexpr char kRunLaunchLockFile[] = "pgstatus.start";
// The information directory below the HTML root.
inline constexpr char kInfoDirName[] = "tb_infodir";

// The directory that holds the template sets: |store_cfg|'s
// PageGenTemplateDir (a separator appended), else |default_dir|; cut after
// its last separator, "./" when it has none. Either argument may be null.
std::string PG_TpltTemplateRoot(const char* default_dir, const char* store_cfg);

// Shows the information page of template set |set_name|: copies the set's
// InfoPage (and the pictures it shows) into the HTML root's "tb_infodir" and
// answers with a script that opens the copy in a pop-up window; the set is
// looked for in PG_TpltTemplateRoot(default_dir, store_cfg). Returns 0
// (nothing written) for an empty name; 0 after message 3002 or 18009 when
// the page cannot be copied; else 1, also when the set does not load or has
// no InfoPage (then only the content type is written). The HTML root and
// alias come from the CGI variables. Restores the current directory.
int PG_TpltDisplayInfoPage(const char* set_name, const char* default_dir, const char* store_cfg);
// The same with the HTML root and its URL alias given; an empty |html_root|
// makes the page impossible to copy (message 3002).
int PG_TpltDisplayInfoPageAt(const char* set_name, const char* default_dir, const char* store_cfg,
                             const char* html_root, const char* html_alias);

// Splits |command_line| at blanks into at most 100 words (the first is the
// program path) and runs it with PG_LaunchAndForgetArgv.
[[noreturn]] void PG_LaunchAndForget(const char* command_line);
// Flushes standard output and error, closes standard input, output and error
// (so that the web server sees a complete response; they are reopened on
// /dev/null), forks, and ends this process with status 0. The child, in a
// session of its own, executes argv[0] with |argv|; when it cannot, it ends
// with status 0 too. With |started|, this process first waits until
// started() is true or the child has ended (at most 30 seconds), so that what
// it holds (a lock, say) is kept until then. With |error_file|, the child's
// standard error goes to that file (replaced) instead of /dev/null.
[[noreturn]] void PG_LaunchAndForgetArgv(const std::vector<std::string>& argv,
                                         const std::function<bool()>& started = {},
                                         const char* error_file = nullptr);

// Whether a generation run is under way or being started, judged by the
// locks in the current directory: 1 when another process holds any of the
// run's two locks or the launch lock, else 2. Only looks (IsLockedElsewhere):
// a run that starts meanwhile is never refused because of the look. Not for
// the holder of the launch lock (looking at a lock file releases one's own
// lock on it): it asks PG_RunLocked.
int PG_ExecutionStatus();
// Whether another process holds either of the run's two locks in directory
// |dir| (empty: the current directory). Only looks.
bool PG_RunLocked(const std::string& dir = {});

// Writes the body of the report of a finished run with result |rc|: the
// success heading and a link to the store (address from |store_cfg|'s
// NonSecureDomain and |html_path|), or the failure text with the code's
// explanation (the heading first when |detail| is set); then a table with
// the -18 and -19 rows of |problems|, lines "text<TAB>code".
void PG_PrintGenError(int rc, int detail, const char* problems, const char* html_path,
                      const char* store_cfg);

// The clock of the "?seconds" stamps that keep browsers from showing a cached
// copy; null restores time(). For tests.
void SetManagementClockForTesting(std::time_t (*clock)());

}  // namespace storegen

#endif  // STOREGEN_TEMPLATESET_MANAGEMENT_H_
