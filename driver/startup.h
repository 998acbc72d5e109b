// The program's entry: command line, run modes, start-up and shut-down.
#ifndef STOREGEN_DRIVER_STARTUP_H_
#define STOREGEN_DRIVER_STARTUP_H_

namespace storegen {

// Runs the program with its command line and returns the exit status: 0 or
// the generation run's result, or a negative start-up code (-1 .. -16, -50).
// Registers ShutdownPageGen to run at exit and changes into the program's
// own directory first; every other path ends through ShutdownPageGen.
int PageGenMain(int argc, char** argv);

// Releases what the run holds, once: the shop home name, the SKU list, the
// error and delete lists, the attribute database, the template set, the
// product API, the status log, the run lock; then removes the program
// directory's "pgstatus.pid". Returns 0; later calls do nothing and return
// non-zero.
int ShutdownPageGen();

}  // namespace storegen

#endif  // STOREGEN_DRIVER_STARTUP_H_
