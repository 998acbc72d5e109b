// Helpers shared by the fuzz harnesses: a scratch directory of the process's
// own (the readers under test take file names), whole-file reads and writes,
// splitting an input into its parts, and checks that report as crashes.
#ifndef STOREGEN_FUZZ_FUZZ_UTIL_H_
#define STOREGEN_FUZZ_FUZZ_UTIL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace storegen::fuzz {

// |name| inside a directory that belongs to this process alone (made on first
// use, removed at exit), so that parallel fuzzing jobs never share files.
std::string ScratchPath(std::string_view name);

// Replaces the content of |path| with |bytes|. Aborts when it cannot: a
// harness that cannot write its input would go on testing nothing.
void WriteWholeFile(const std::string& path, std::string_view bytes);
// The content of |path|; |exists| (when given) tells whether it could be read.
std::string ReadWholeFile(const std::string& path, bool* exists = nullptr);

// A regular file that lives in memory only, with no directory entry, holding
// |bytes|: path() names it for the routines that open files by name. Gone
// when the object is destroyed.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  int fd_;
  std::string path_;
};

// For the lifetime of the object, the program's messages on standard error
// (warnings about the input, error messages) are kept instead of written,
// and at its end they are forgotten. A message is shown once per process, so
// the record of those shown would grow input after input, and libFuzzer takes
// memory that grows during an input for a leak and searches the whole heap
// for it after every such input.
class QuietMessages {
 public:
  QuietMessages();
  ~QuietMessages();
  QuietMessages(const QuietMessages&) = delete;
  QuietMessages& operator=(const QuietMessages&) = delete;

 private:
  std::string kept_;
};

// Splits |input| at the first line "====" into the part before it (a file's
// content) and the lines after it (a script of edits or look-ups). Without
// the separator the whole input is the first part.
struct InputParts {
  std::string_view file;
  std::vector<std::string_view> script;
};
InputParts SplitInput(std::string_view input);

// Splits |line| at TAB characters (every TAB separates).
std::vector<std::string_view> SplitTabs(std::string_view line);

// Sends standard output to /dev/null: several routines print diagnostics, and
// a fuzzer's own progress goes to standard error.
void SilenceStdout();

// Prints |what| with the failed condition and aborts, which libFuzzer reports
// as a crash and saves the input that caused it.
[[noreturn]] void CheckFailed(const char* file, int line, const char* condition,
                              const std::string& what);

}  // namespace storegen::fuzz

#define FUZZ_CHECK(cond, what)                                                     \
  do {                                                                             \
    if (!(cond)) ::storegen::fuzz::CheckFailed(__FILE__, __LINE__, #cond, (what)); \
  } while (0)

#endif  // STOREGEN_FUZZ_FUZZ_UTIL_H_
