#include "cgisupport/program_config.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/path_util.h"

namespace storegen {
namespace {

constexpr int kValueSize = 4096;

}  // namespace

std::string ProgramConfig::Locate(const char* argv0, const char* file_name, const char* env_var) {
  const char* env = std::getenv(env_var);
  if (env != nullptr && *env != '\0') return env;
  std::string self = argv0 != nullptr ? argv0 : "";
  std::size_t slash = self.find_last_of('/');
  return (slash == std::string::npos ? std::string() : self.substr(0, slash + 1)) + file_name;
}

ProgramConfig::ProgramConfig(std::string path) : path_(std::move(path)) {
  std::size_t slash = path_.find_last_of('/');
  if (slash != std::string::npos) base_ = path_.substr(0, slash + 1);
  if (base_.empty() || base_.front() != '/') {
    std::string cwd(4096, '\0');
    if (getcwd(cwd.data(), cwd.size()) != nullptr) {
      cwd.resize(cwd.find('\0'));
      base_ = cwd + "/" + base_;
    }
  }
}

bool ProgramConfig::Readable() const {
  char probe[2];
  return GetConfigItem(path_.c_str(), "", probe, sizeof probe, 0) != -1;
}

std::string ProgramConfig::Value(const char* key) const {
  auto buf = std::make_unique<char[]>(kValueSize);
  buf[0] = '\0';
  GetConfigItem(path_.c_str(), key, buf.get(), kValueSize, 0);
  return buf.get();
}

std::string ProgramConfig::PathValue(const char* key) const {
  std::string path = Value(key);
  if (path.empty()) return path;
  if (path.front() != '/') path = base_ + path;
  // Folded ("a/../b" is "b"): storegen takes a store's short name from the
  // configuration path's first '.', wherever it stands.
  std::string folded(path.size() + 1, '\0');
  std::copy(path.begin(), path.end(), folded.begin());
  ResolvePath(folded.data(), static_cast<int>(folded.size()));
  folded.resize(std::strlen(folded.c_str()));
  while (folded.size() > 1 && IsDirSlash(folded.back()))
    folded.pop_back();
  return folded;
}

}  // namespace storegen
