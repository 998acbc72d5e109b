// Test fixture of the index module: a temporary installation with the
// program's directory "cgi" (the current directory during a test) and its
// siblings "swish" and "wais", and helpers to read the files written there.
#ifndef STOREGEN_INDEX_INDEX_TEST_SUPPORT_H_
#define STOREGEN_INDEX_INDEX_TEST_SUPPORT_H_

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen::testing {

class IndexTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Paths below the temporary root.
  std::string Root(const std::string& relative) const { return root_.Path(relative); }
  // Installs the recording stand-in indexer as ../swish/<name>.
  void InstallStandIn(const std::string& name = "swish");
  // The arguments the stand-in recorded, one per element.
  std::vector<std::string> RecordedArgs() const;

  ScopedTempDir root_;
  std::string old_cwd_;
};

// The lines of |path| (each must end in LF; a failure is added otherwise).
std::vector<std::string> FileLines(const std::string& path);

}  // namespace storegen::testing

#endif  // STOREGEN_INDEX_INDEX_TEST_SUPPORT_H_
