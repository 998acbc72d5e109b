// The program's entry: command line, run modes, start-up and shut-down.
#ifndef STOREGEN_DRIVER_STARTUP_H_
#define STOREGEN_DRIVER_STARTUP_H_

namespace storegen {

// Runs the program with its command line and returns the exit status: 0 or
// the generation run's result, or a negative start-up code (-1 .. -16, -50).
// Registers ShutdownPageGen to run at exit and changes into the program's
// own directory first; every other path ends through ShutdownPageGen.
int PageGenMain(int argc, char** argv);

// PageGenMain; |in_process| for a run in a process that goes on afterwards:
// ShutdownPageGen is not registered to run at exit, and a command line that
// is not a dynamic request ("-p" or "-f") ends with -3 once it is parsed,
// before any lock is taken.
int RunPageGen(int argc, char** argv, bool in_process);

// Releases what the run holds, once: the shop home name, the SKU list, the
// error and delete lists, the attribute database, the template set, the
// product API, the status log, the run lock; then removes the program
// directory's "pgstatus.pid". Returns 0; later calls do nothing and return
// non-zero until ResetShutdown.
int ShutdownPageGen();

// The objects the run record owns, freed and cleared (the first part of
// ShutdownPageGen); the record's files and locks are left alone.
void ReleaseRunObjects();

// Lets ShutdownPageGen run again, for the next run in this process.
void ResetShutdown();

}  // namespace storegen

#endif  // STOREGEN_DRIVER_STARTUP_H_
