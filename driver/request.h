// Dynamic requests served by a process that stays: one "-p" or "-f" request
// after another, each answered as the program started for it alone would
// answer it, with the process-wide state put back in its start state in
// between.
#ifndef STOREGEN_DRIVER_REQUEST_H_
#define STOREGEN_DRIVER_REQUEST_H_

#include <string>
#include <vector>

namespace storegen {

// Runs the request with the command line |args| (args[0] is the program's
// path: its directory becomes the program directory, as when the program is
// started) in this process. What the program would write to its standard
// output goes to |out_fd|, and what it would write to standard error to
// |err_fd| (-1: the process's own). Returns what the program's main would
// return (the exit status is its low byte), -3 for a command line that is
// not a dynamic request, or -1 when the output cannot be redirected.
// Standard output and error and the current directory are given back, and
// ResetProcessState has run (ResetRequestState with |keep_file_caches|),
// when it returns. With |keep_file_caches| the positions of the products
// of list pages are kept for later requests as well.
int RunDynamicRequest(const std::vector<std::string>& args, int out_fd, int err_fd = -1,
                      bool keep_file_caches = false);

// Puts the state of one request back in its start state and frees what it
// holds, keeping what the file caches hold: the run record and the objects it owns (shop home name,
// SKU list, template set, attribute pool, error and delete lists), the product list kept from a
// static run, the product API (library unloaded, entry points unbound), the item-list cursor, the
// search index's state, the template engine's counters, strtok_noskip's position, the messages
// shown on standard error, the CGI page stream and the shut-down's once-only flag. The program
// directory is fixed anew by each run's start. Call it between runs only.
//
// The file caches (the product reader's kept files, the configuration cache,
// the kept template texts and their pieces, the product libraries kept
// loaded, the kept list positions) stay: each checks the identity of
// its file (device, inode, size, times) at every use and reads a changed file
// anew, so a request served after this answers as a process of its own would.
// State that does not check its files that way belongs here.
void ResetRequestState();

// ResetRequestState, and the file caches emptied as well: every piece of
// process-wide state back in its start state.
void ResetProcessState();

}  // namespace storegen

#endif  // STOREGEN_DRIVER_REQUEST_H_
