#include "cgisupport/file_util.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

namespace storegen {
namespace {

bool IsSep(char c) {
  return c == '/' || c == '\\';
}

bool PathExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

// Makes |prefix| when it does not exist; false on failure.
bool MakeOne(const std::string& prefix, mode_t mode) {
  if (prefix.empty() || PathExists(prefix)) return true;
  if (errno != ENOENT) return false;
  return mkdir(prefix.c_str(), mode) == 0;
}

}  // namespace

int tb_mkdir(const char* path, mode_t mode) {
  if (path == nullptr || *path == '\0') return 0;
  std::string p(path);
  if (p.size() > 1 && IsSep(p.back())) p.pop_back();
  if (PathExists(p)) return 0;
  for (char& c : p) {
    if (c == '\\') c = '/';
  }
  // Walk back to the longest prefix that exists, then make each missing
  // component from there on.
  std::size_t start = p.size();
  while (start > 0) {
    std::size_t slash = p.rfind('/', start - 1);
    if (slash == std::string::npos) {
      start = 0;
      break;
    }
    start = slash;
    if (slash == 0 || PathExists(p.substr(0, slash))) break;
  }
  for (std::size_t i = start + 1; i < p.size(); ++i) {
    if (p[i] == '/' && !MakeOne(p.substr(0, i), mode)) return -1;
  }
  return MakeOne(p, mode) ? 0 : -1;
}

int tb_CopyFile(const char* from, const char* to) {
  std::unique_ptr<FILE, int (*)(FILE*)> in(std::fopen(from, "rb"), &std::fclose);
  if (!in) return -1;
  std::unique_ptr<FILE, int (*)(FILE*)> out(std::fopen(to, "wb"), &std::fclose);
  if (!out) return -2;
  char buf[2048];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, in.get())) > 0) {
    if (std::fwrite(buf, 1, n, out.get()) != n) return -2;
  }
  return 0;
}

}  // namespace storegen
