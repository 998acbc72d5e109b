#include "cgisupport/diagnostics.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unordered_set>
#include <vector>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/run_state.h"

namespace storegen {
namespace {

struct Diagnostics {
  std::string program = "storegen";
  std::string dir;
  std::string line_prefix;
  std::unordered_set<std::string> shown;  // lines shown, without the program name
  std::unordered_set<std::string> seen;   // FirstTime keys
  std::string* capture = nullptr;
};

Diagnostics& State() {
  static Diagnostics* state = new Diagnostics;  // outlives the run's exit handlers
  return *state;
}

std::string Line(const Where& where, std::string_view kind, std::string_view detail) {
  std::string line;
  line.reserve(where.file.size() + kind.size() + detail.size() + 16);
  if (!where.file.empty()) {
    line = where.file;
    if (where.line > 0) line.append(":").append(std::to_string(where.line));
    line += ": ";
  }
  line += kind;
  line += detail;
  return line;
}

// One write per line, so that lines of two processes never mix.
void Show(std::string text) {
  Diagnostics& d = State();
  const auto [kept, fresh] = d.shown.insert(std::move(text));
  if (!fresh) return;
  const std::string& line = *kept;
  if (d.capture != nullptr) {
    d.capture->append(line).push_back('\n');
    return;
  }
  // What the run printed so far comes first when both streams share a file.
  std::fflush(stdout);
  std::string out = d.line_prefix + d.program + ": " + line + "\n";
  for (std::string_view rest = out; !rest.empty();) {
    ssize_t n = write(STDERR_FILENO, rest.data(), rest.size());
    if (n <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(n));
  }
}

}  // namespace

void SetDiagnosticProgram(std::string_view name, std::string_view dir) {
  State().program = name;
  State().dir = dir;
}

std::string ProgramDirectoryNote() {
  return "relative paths are taken from the program's directory, " + State().dir +
         ", not from the current directory";
}

void SetDiagnosticLinePrefix(std::string_view prefix) {
  State().line_prefix = prefix;
}

void ReportError(const Where& where, std::string_view detail, const char* verbose_format, ...) {
  if (verbose_format != nullptr && Verbose()) {
    va_list args;
    va_start(args, verbose_format);
    std::vprintf(verbose_format, args);
    va_end(args);
    return;
  }
  Show(Line(where, "", detail));
}

void ReportOutOfMemory() {
  ReportError({}, "out of memory", "Out of memory\n");
}

void ReportWarning(const Where& where, std::string_view detail) {
  Show(Line(where, "warning: ", detail));
}

void ReportNote(std::string_view detail) {
  Show(std::string(detail));
}

bool FirstTime(std::string_view key) {
  return State().seen.emplace(key).second;
}

void CaptureDiagnostics(std::string* sink) {
  State().capture = sink;
}

void ReplayDiagnostics(std::string_view lines) {
  while (!lines.empty()) {
    std::size_t end = lines.find('\n');
    Show(std::string(lines.substr(0, end)));
    lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
  }
}

std::string AbsolutePathForMessage(std::string_view path) {
  if (path.empty() || IsDirSlash(path.front())) return std::string(path);
  // Little stack: a message may be given at the deepest nesting of templates.
  std::unique_ptr<char, decltype(&std::free)> cwd(getcwd(nullptr, 0), &std::free);
  std::string joined = cwd != nullptr ? cwd.get() : "";
  joined += '/';
  joined += path;
  std::vector<std::string_view> parts;
  for (std::string_view rest = joined; !rest.empty();) {
    const std::size_t sep = rest.find_first_of("/\\");
    std::string_view part = rest.substr(0, sep);
    rest.remove_prefix(sep == std::string_view::npos ? rest.size() : sep + 1);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
  }
  std::string out;
  for (std::string_view part : parts) {
    out += '/';
    out += part;
  }
  return out.empty() ? "/" : out;
}

void ResetDiagnostics() {
  State() = Diagnostics();
}

}  // namespace storegen
