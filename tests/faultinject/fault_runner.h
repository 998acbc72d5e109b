// Runs a program under the fault injector (tests/faultinject/fault_inject.c).
#ifndef STOREGEN_TESTS_FAULTINJECT_FAULT_RUNNER_H_
#define STOREGEN_TESTS_FAULTINJECT_FAULT_RUNNER_H_

#include <string>
#include <vector>

namespace storegen::testing {

struct FaultRun {
  long operations = -1;  // write points counted; -1 when the report is missing
  std::string failed;    // the operation made to fail, "-" for none
  std::string out;       // the program's standard output
};

// Runs |argv| with the injector counting the files below |dir| and failing
// operation |fail_at| (0: none) with |error| ("ENOSPC" or "EIO"); the
// injector's report goes to the file |report|.
FaultRun RunWithFault(const std::vector<std::string>& argv, const std::string& dir, long fail_at,
                      const std::string& error, const std::string& report);

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_FAULTINJECT_FAULT_RUNNER_H_
