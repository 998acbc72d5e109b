// The program's entry: command line, run modes, start-up and shut-down.
#ifndef STOREGEN_DRIVER_STARTUP_H_
#define STOREGEN_DRIVER_STARTUP_H_

namespace storegen {

// Runs the program with its command line; returns the exit status.
int PageGenMain(int argc, char** argv);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_STARTUP_H_
