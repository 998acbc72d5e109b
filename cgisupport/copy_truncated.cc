#include "cgisupport/copy_truncated.h"

#include <cstring>

namespace storegen {

std::size_t CopyTruncated(char* dst, std::size_t dst_size, std::string_view src) {
  if (dst == nullptr || dst_size == 0) return 0;
  std::size_t n = src.size() < dst_size - 1 ? src.size() : dst_size - 1;
  if (n > 0) std::memmove(dst, src.data(), n);
  dst[n] = '\0';
  return n;
}

std::size_t AppendTruncated(char* dst, std::size_t dst_size, std::string_view src) {
  if (dst == nullptr || dst_size == 0) return 0;
  std::size_t len = strnlen(dst, dst_size - 1);
  return len + CopyTruncated(dst + len, dst_size - len, src);
}

void AppendSlashIfMissing(char* dst, std::size_t dst_size, bool slash_when_empty) {
  if (dst == nullptr || dst_size == 0) return;
  std::string_view cur(dst, strnlen(dst, dst_size - 1));
  if (cur.empty() ? slash_when_empty : !EndsWithDirSlash(cur)) AppendTruncated(dst, dst_size, "/");
}

}  // namespace storegen
