#include "cgisupport/path_util.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"

namespace storegen {
namespace {

constexpr int kConfigValueSize = 256;

// Output characters of safe file names, indexed by input byte. Letters,
// digits, '-' and '_' stand for themselves, a blank becomes '_' and '/'
// becomes '-'. Each escaped range gets a table of its own that is one-to-one
// within the range (the escape letter in front tells the ranges apart):
// bytes 128-191 and 192-255 run through "0-9A-Za-z-_" in order, and the other
// bytes below 128 (controls and punctuation) run through the same alphabet in
// byte order. These characters name generated pages: never change them.
constexpr char kSafeNameTable[257] =
    // 0x00-0x3f: controls, blank, punctuation, digits
    "0123456789ABCDEF"
    "GHIJKLMNOPQRSTUV"
    "_WXYZabcdefgh-i-"
    "0123456789jklmno"
    // 0x40-0x7f: '@', letters, punctuation
    "pABCDEFGHIJKLMNO"
    "PQRSTUVWXYZqrst_"
    "uabcdefghijklmno"
    "pqrstuvwxyzvwxyz"
    // 0x80-0xbf
    "0123456789ABCDEF"
    "GHIJKLMNOPQRSTUV"
    "WXYZabcdefghijkl"
    "mnopqrstuvwxyz-_"
    // 0xc0-0xff
    "0123456789ABCDEF"
    "GHIJKLMNOPQRSTUV"
    "WXYZabcdefghijkl"
    "mnopqrstuvwxyz-_";

bool IsPlainNameByte(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
         c == '_' || c == ' ' || c == '/';
}

// The path components of |path| ('/' and '\\' both separate; empty ones are
// skipped), each with the offset where it starts.
struct Component {
  std::size_t offset;
  std::string_view text;
};

std::vector<Component> Components(std::string_view path) {
  std::vector<Component> out;
  std::size_t i = 0;
  while (i < path.size()) {
    while (i < path.size() && IsDirSlash(path[i]))
      ++i;
    std::size_t begin = i;
    while (i < path.size() && !IsDirSlash(path[i]))
      ++i;
    if (i > begin) out.push_back({begin, path.substr(begin, i - begin)});
  }
  return out;
}

std::string_view WithoutTrailingSlashes(std::string_view s) {
  while (EndsWithDirSlash(s))
    s.remove_suffix(1);
  return s;
}

// Splits the two CGI variables into the HTML root and its alias: the run of
// whole trailing components that both share is cut from each. False when
// either variable is unset or empty.
bool SplitHtmlRoot(std::string* root, std::string* alias) {
  const char* info = std::getenv("PATH_INFO");
  const char* translated = std::getenv("PATH_TRANSLATED");
  if (info == nullptr || *info == '\0' || translated == nullptr || *translated == '\0')
    return false;
  std::string_view info_view(info);
  std::string_view translated_view(translated);
  std::vector<Component> a = Components(info_view);
  std::vector<Component> b = Components(translated_view);
  std::size_t shared = 0;
  while (shared < a.size() && shared < b.size() &&
         a[a.size() - 1 - shared].text == b[b.size() - 1 - shared].text)
    ++shared;
  std::size_t info_cut = shared == 0 ? info_view.size() : a[a.size() - shared].offset;
  std::size_t translated_cut = shared == 0 ? translated_view.size() : b[b.size() - shared].offset;
  *alias = WithoutTrailingSlashes(info_view.substr(0, info_cut));
  *root = WithoutTrailingSlashes(translated_view.substr(0, translated_cut));
  return true;
}

}  // namespace

char* ResolvePath(char* path, int limit) {
  if (path == nullptr || limit <= 0 || *path == '\0') return path;
  std::string_view given(path, strnlen(path, static_cast<std::size_t>(limit)));
  std::string base;
  if (!IsDirSlash(given.front())) {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd) != nullptr) base = cwd;
  }
  std::vector<std::string_view> parts;
  std::string joined = base + "/" + std::string(given);
  for (const Component& c : Components(joined)) {
    if (c.text == ".") continue;
    if (c.text == "..") {
      if (!parts.empty()) parts.pop_back();
      continue;
    }
    parts.push_back(c.text);
  }
  std::string out;
  for (std::string_view part : parts) {
    out += '/';
    out += part;
  }
  if (out.empty()) out = "/";
  CopyTruncated(path, static_cast<std::size_t>(limit), out);
  return path;
}

char* GetExeName(const char* path, char* dst, int dst_size) {
  if (dst == nullptr || dst_size <= 0) return dst;
  std::string_view p = path != nullptr ? path : "";
  std::size_t sep = p.rfind('/');
  if (sep == std::string_view::npos) sep = p.rfind('\\');
  if (sep != std::string_view::npos) p.remove_prefix(sep + 1);
  CopyTruncated(dst, static_cast<std::size_t>(dst_size), p);
  return dst;
}

char* GetTillboxName(const char* config_file, char* dst, int dst_size) {
  char name[kConfigValueSize] = "Tillbox";
  char ext[kConfigValueSize] = ".exe";
  GetConfigItem(config_file, "TillboxName", name, sizeof name, 0);
  GetConfigItem(config_file, "TillboxExtension", ext, sizeof ext, 0);
  std::string full = name;
  if (ext[0] != '.') full += '.';
  full += ext;
  if (dst != nullptr && dst_size > 0) CopyTruncated(dst, static_cast<std::size_t>(dst_size), full);
  return dst;
}

void GetPathInfo(char* dst, std::size_t dst_size) {
  if (dst == nullptr || dst_size == 0) return;
  const char* info = std::getenv("PATH_INFO");
  std::size_t n = CopyTruncated(dst, dst_size, info != nullptr ? info : "");
  for (std::size_t i = 0; i < n; ++i) {
    if (dst[i] == '\\') dst[i] = '/';
  }
}

int GetHTMLRoot(char* dst, std::size_t dst_size) {
  std::string root, alias;
  if (!SplitHtmlRoot(&root, &alias)) return 0;
  CopyTruncated(dst, dst_size, root);
  return 1;
}

int GetHTMLRootAlias(char* dst, std::size_t dst_size) {
  std::string root, alias;
  if (!SplitHtmlRoot(&root, &alias)) return 0;
  CopyTruncated(dst, dst_size, alias);
  return 1;
}

char* GetSafeFileName(const char* src, char* dst, int dst_size, const char* prefix,
                      const char* suffix) {
  if (dst == nullptr || dst_size <= 0) return dst;
  const std::size_t size = static_cast<std::size_t>(dst_size);
  // The name is composed in full first: the escape loop tests the length once
  // per input byte, so a two-character escape may reach one byte beyond the
  // last free place. Only the bytes that fit in |dst| are then copied. Its
  // buffer serves every call (a run makes a name for every page and link).
  static auto* buffer = new std::string();  // lives until the process ends
  std::string& name = *buffer;
  name.assign(prefix != nullptr ? prefix : "");
  if (name.size() > size - 1) name.resize(size - 1);
  for (const char* p = src != nullptr ? src : ""; *p != '\0' && name.size() < size - 1; ++p) {
    unsigned char c = static_cast<unsigned char>(*p);
    if (c == '\r' || c == '\n') continue;
    if (c >= 192) {
      name += 'C';
    } else if (c >= 128) {
      name += 'B';
    } else if (!IsPlainNameByte(c)) {
      name += 'A';
    }
    name += kSafeNameTable[c];
  }
  // The suffix is cut so that a spare byte stays free before the terminator.
  if (suffix != nullptr && name.size() + 2 < size)
    name.append(suffix, strnlen(suffix, size - name.size() - 2));
  CopyTruncated(dst, size, name);
  return dst;
}

}  // namespace storegen
