#include "storedata/db_warnings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "cgisupport/diagnostics.h"
#include "cgisupport/file_identity.h"

namespace storegen {
namespace {

bool IsFieldSeparator(char c) {
  return c == '\t' || c == '\r' || c == '\n';
}

// The path |fd|, the file |st| describes, was opened with, for naming it in
// a message. A file with many short lines is warned of many times: the
// answer is kept while the descriptor and the file stay the same.
const std::string& PathOf(int fd, const struct stat& st) {
  static struct {
    int fd = -1;
    FileIdentity file;
    std::string path;
  } last;
  if (last.fd == fd && last.file == FileIdentity(st)) return last.path;
  std::array<char, 4096> path;
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  ssize_t n = readlink(link.c_str(), path.data(), path.size() - 1);
  last.fd = fd;
  last.file = FileIdentity(st);
  last.path.assign(path.data(), n > 0 ? static_cast<std::size_t>(n) : 0);
  return last.path;
}

// The number (from 1) of the line that ends just before byte |end| of |fd|,
// the file |st| describes. Warnings come in file order, so the count goes on
// from the last answer when that was for the same version of the file and
// an earlier byte: a file of many short lines is read once, not once each.
int LineEndingAt(int fd, const struct stat& st, off_t end) {
  static struct {
    FileIdentity file;
    off_t at = 0;
    int line = 1;  // the number of the line that byte |at| belongs to
  } last;
  off_t at = 0;
  int line = 1;
  if (last.file == FileIdentity(st) && last.at <= end - 1) {
    at = last.at;
    line = last.line;
  }
  std::array<char, 65536> buf;
  while (at + 1 < end) {
    const std::size_t want = static_cast<std::size_t>(std::min<off_t>(end - 1 - at, buf.size()));
    ssize_t n = pread(fd, buf.data(), want, at);
    if (n <= 0) break;
    line += static_cast<int>(std::count(buf.data(), buf.data() + n, '\n'));
    at += n;
  }
  last.file = FileIdentity(st);
  last.at = at;
  last.line = line;
  return line;
}

}  // namespace

std::size_t LineFieldCount(std::string_view line) {
  std::size_t fields =
      static_cast<std::size_t>(std::count_if(line.begin(), line.end(), IsFieldSeparator));
  if (!line.empty() && !IsFieldSeparator(line.back())) ++fields;
  return fields;
}

void WarnShortLine(FILE* fp, std::string_view line, std::size_t fields, std::size_t names,
                   std::string_view first_missing) {
  const long end = std::ftell(fp);
  if (end >= 0) WarnShortLine(fileno(fp), end, line, fields, names, first_missing);
}

void WarnShortLine(int fd, off_t end, std::string_view line, std::size_t fields, std::size_t names,
                   std::string_view first_missing) {
  struct stat st;
  if (fstat(fd, &st) != 0) return;
  // A line met again, by another walk of the file, is warned of once.
  std::array<char, 80> key;
  std::snprintf(key.data(), key.size(), "short line %ju:%ju:%ld",
                static_cast<std::uintmax_t>(st.st_dev), static_cast<std::uintmax_t>(st.st_ino),
                end);
  if (!FirstTime(key.data())) return;
  Where where{PathOf(fd, st), LineEndingAt(fd, st, end)};
  std::string_view first = line.substr(0, std::min(line.find_first_of("\t\r\n"), line.size()));
  // Built in one buffer: a file of many short lines gets a warning each.
  std::string detail;
  detail.reserve(first.size() + first_missing.size() + 128);
  detail.append("\"").append(first).append("\" has ").append(std::to_string(fields));
  detail.append(" of the name line's ").append(std::to_string(names)).append(" fields: ");
  detail.append(first_missing);
  detail.append(names - fields > 1 ? " and the columns after it read" : " reads");
  detail.append(" as NA; a TAB separates every field, empty ones too");
  ReportWarning(where, detail);
}

}  // namespace storegen
