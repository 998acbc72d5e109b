#include "tests/faultinject/fault_runner.h"

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen::testing {

FaultRun RunWithFault(const std::vector<std::string>& argv, const std::string& dir, long fail_at,
                      const std::string& error, const std::string& report) {
  std::remove(report.c_str());
  RunOptions options;
  options.set_env["LD_PRELOAD"] = FAULTINJECT_LIB;
  options.set_env["FAULTINJECT_DIR"] = dir;
  options.set_env["FAULTINJECT_FAIL_AT"] = std::to_string(fail_at);
  options.set_env["FAULTINJECT_ERRNO"] = error;
  options.set_env["FAULTINJECT_REPORT"] = report;
  // The injector comes first in the library order; a sanitizer build's
  // runtime must accept that.
  const char* asan = std::getenv("ASAN_OPTIONS");
  options.set_env["ASAN_OPTIONS"] =
      std::string(asan != nullptr ? asan : "") + ":verify_asan_link_order=0";
  RunResult run = RunProgram(argv, options);
  EXPECT_EQ(run.signal, 0) << run.err;
  FaultRun outcome;
  outcome.out = run.out;
  char failed[32] = "";
  if (FILE* fp = std::fopen(report.c_str(), "r")) {
    if (std::fscanf(fp, "%ld %31s", &outcome.operations, failed) != 2) outcome.operations = -1;
    std::fclose(fp);
  }
  outcome.failed = failed;
  return outcome;
}

}  // namespace storegen::testing
