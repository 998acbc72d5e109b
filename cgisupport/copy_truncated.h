// The one way text enters a caller's fixed-size buffer: cut and terminated.
#ifndef STOREGEN_CGISUPPORT_COPY_TRUNCATED_H_
#define STOREGEN_CGISUPPORT_COPY_TRUNCATED_H_

#include <cstddef>
#include <string_view>

namespace storegen {

// Copies |src| into |dst| (|dst_size| bytes), cut to dst_size - 1 bytes and
// terminated. Returns the number of bytes copied; writes nothing when
// |dst_size| is 0.
std::size_t CopyTruncated(char* dst, std::size_t dst_size, std::string_view src);

template <std::size_t N>
std::size_t CopyTruncated(char (&dst)[N], std::string_view src) {
  return CopyTruncated(dst, N, src);
}

// Appends |src| to the terminated text already in |dst|, keeping the whole
// at most dst_size - 1 bytes. Returns the new length.
std::size_t AppendTruncated(char* dst, std::size_t dst_size, std::string_view src);

template <std::size_t N>
std::size_t AppendTruncated(char (&dst)[N], std::string_view src) {
  return AppendTruncated(dst, N, src);
}

// True when |c| is '/' or '\\': paths accept either separator.
constexpr bool IsDirSlash(char c) {
  return c == '/' || c == '\\';
}

// True when |s| is non-empty and its last byte is '/' or '\\'.
constexpr bool EndsWithDirSlash(std::string_view s) {
  return !s.empty() && IsDirSlash(s.back());
}

// Appends "/" to the terminated text in |dst| unless it already ends in a
// separator (an empty text stays empty unless |slash_when_empty|).
void AppendSlashIfMissing(char* dst, std::size_t dst_size, bool slash_when_empty = false);

template <std::size_t N>
void AppendSlashIfMissing(char (&dst)[N], bool slash_when_empty = false) {
  AppendSlashIfMissing(dst, N, slash_when_empty);
}

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_COPY_TRUNCATED_H_
