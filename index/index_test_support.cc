#include "index/index_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "cgisupport/run_state.h"
#include "index/index_state.h"

namespace storegen::testing {

void IndexTest::SetUp() {
  ResetIndexState();
  ResetRunState();
  std::filesystem::create_directories(Root("cgi"));
  std::filesystem::create_directories(Root("swish"));
  std::filesystem::create_directories(Root("wais"));
  old_cwd_ = std::filesystem::current_path().string();
  std::filesystem::current_path(Root("cgi"));
}

void IndexTest::TearDown() {
  std::filesystem::current_path(old_cwd_);
  ResetIndexState();
  ResetRunState();
}

void IndexTest::InstallStandIn(const std::string& name) {
  std::string path = Root("swish/" + name);
  WriteFile(path, ReadFile(TESTDATA_DIR "/record_args.sh"));
  ASSERT_EQ(chmod(path.c_str(), 0755), 0);
}

std::vector<std::string> IndexTest::RecordedArgs() const {
  return FileLines(Root("swish/args.txt"));
}

std::vector<std::string> FileLines(const std::string& path) {
  std::string text = ReadFile(path);
  std::vector<std::string> lines;
  if (text.empty()) return lines;
  EXPECT_EQ(text.back(), '\n') << path << " does not end in a line feed";
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

}  // namespace storegen::testing
