#include "fuzz/fuzz_util.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "cgisupport/diagnostics.h"

namespace storegen::fuzz {
namespace {

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
  return std::remove(path);
}

std::string& ScratchDir() {
  static std::string dir;
  return dir;
}

void RemoveScratchDir() {
  if (!ScratchDir().empty()) nftw(ScratchDir().c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

}  // namespace

std::string ScratchPath(std::string_view name) {
  std::string& dir = ScratchDir();
  if (dir.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/storegen-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    dir = pattern;
    std::atexit(RemoveScratchDir);
  }
  return dir + "/" + std::string(name);
}

void WriteWholeFile(const std::string& path, std::string_view bytes) {
  FILE* fp = std::fopen(path.c_str(), "wb");
  if (fp == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), fp) != bytes.size() ||
      std::fclose(fp) != 0) {
    std::perror(path.c_str());
    std::abort();
  }
}

std::string ReadWholeFile(const std::string& path, bool* exists) {
  std::string content;
  FILE* fp = std::fopen(path.c_str(), "rb");
  if (exists != nullptr) *exists = fp != nullptr;
  if (fp == nullptr) return content;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, fp)) > 0)
    content.append(buf, n);
  std::fclose(fp);
  return content;
}

MemoryFile::MemoryFile(std::string_view bytes) : fd_(memfd_create("storegen-fuzz", MFD_CLOEXEC)) {
  std::size_t done = 0;
  while (fd_ >= 0 && done < bytes.size()) {
    const ssize_t n = write(fd_, bytes.data() + done, bytes.size() - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  if (fd_ < 0 || done < bytes.size()) {
    std::perror("memfd");
    std::abort();
  }
  path_ = "/proc/self/fd/" + std::to_string(fd_);
}

MemoryFile::~MemoryFile() {
  close(fd_);
}

QuietMessages::QuietMessages() {
  CaptureDiagnostics(&kept_);
}

QuietMessages::~QuietMessages() {
  ResetDiagnostics();
}

InputParts SplitInput(std::string_view input) {
  InputParts parts;
  constexpr std::string_view kSeparator = "\n====\n";
  std::size_t at = input.find(kSeparator);
  if (at == std::string_view::npos) {
    parts.file = input;
    return parts;
  }
  parts.file = input.substr(0, at + 1);
  std::string_view rest = input.substr(at + kSeparator.size());
  while (!rest.empty()) {
    std::size_t lf = rest.find('\n');
    parts.script.push_back(rest.substr(0, lf));
    rest = lf == std::string_view::npos ? std::string_view() : rest.substr(lf + 1);
  }
  return parts;
}

std::vector<std::string_view> SplitTabs(std::string_view line) {
  std::vector<std::string_view> fields;
  for (;;) {
    std::size_t tab = line.find('\t');
    fields.push_back(line.substr(0, tab));
    if (tab == std::string_view::npos) return fields;
    line.remove_prefix(tab + 1);
  }
}

void SilenceStdout() {
  int fd = open("/dev/null", O_WRONLY);
  if (fd >= 0) {
    std::fflush(stdout);
    dup2(fd, STDOUT_FILENO);
    close(fd);
  }
}

void CheckFailed(const char* file, int line, const char* condition, const std::string& what) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n  %s\n", file, line, condition, what.c_str());
  std::abort();
}

}  // namespace storegen::fuzz
