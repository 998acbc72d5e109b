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
