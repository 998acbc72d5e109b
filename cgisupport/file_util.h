// Portable file wrappers: lock files, recursive directory creation, directory
// search with a simple wildcard, file copy, whole-file and line reading.
// Every routine that splits paths accepts '/' and '\\' as separators.
#ifndef STOREGEN_CGISUPPORT_FILE_UTIL_H_
#define STOREGEN_CGISUPPORT_FILE_UTIL_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

namespace storegen {

// A stream closed when it goes out of scope.
struct FileCloser {
  void operator()(FILE* fp) const { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Opens (creating with permission bits |mode|) |path| read-write and takes an
// exclusive lockf lock on its first byte, retrying once a second while another
// process holds it, for up to |timeout_seconds| (0: one try). Returns the
// descriptor, or -1 (errno EACCES after a time-out). The file is never written.
int openlock(const char* path, int timeout_seconds, mode_t mode);
// Unlocks and closes |fd|; returns the result of close.
int closelock(int fd);
// Whether another process holds a lock (as openlock takes) on the first byte
// of |path|. Only looks: takes no lock and creates nothing, so it never keeps
// the holder-to-be out. A missing or unopenable file is not locked. Not for a
// process that holds a lock on |path| itself: closing the descriptor it opens
// would release that lock.
bool IsLockedElsewhere(const char* path);

// Creates |path| and any missing parents with |mode|. Returns 0 on success, if
// it already exists, or for a null or empty path; -1 on failure.
int tb_mkdir(const char* path, mode_t mode);

// One entry of a directory search.
struct tb_finddata {
  int32_t attrib;  // 0x10 for a directory, else 0
  int32_t time;    // status-change time, seconds since the epoch
  char name[256];  // entry name, terminated
};
inline constexpr int32_t kFindAttribDirectory = 0x10;

// Starts a search: "dir/pattern" ('*' wildcards, no backtracking) or a bare
// name, which lists the names containing a '.' in that directory (or in "."
// when it is not a directory). Returns a handle >= 0 with |result| filled, or
// -1 when nothing matches or the directory cannot be read.
int tb_findfirst(const char* pattern, tb_finddata* result);
// Next match: 0, or -1 when no entry is left.
int tb_findnext(int handle, tb_finddata* result);
// Ends the search and frees the handle; returns the result of closedir.
int tb_findclose(int handle);

// Copies |from| to |to| byte for byte. 0 on success, -1 when |from| cannot be
// opened, -2 when |to| cannot be created.
int tb_CopyFile(const char* from, const char* to);

// Opens |path| for reading ("r" or "rb" for the stream form) without ever
// blocking on it: a FIFO, socket or device is refused as if it were missing
// (errno ENOENT). Returns the descriptor, or the stream; -1 or null.
int OpenForReading(const char* path);
FILE* FopenForReading(const char* path, const char* mode = "r");

// Reads a whole file into *text (terminated) and an upper-cased copy into
// *upper_text; returns the byte count. On failure returns 0 after printing
// the CGI error page (open error or memory error, |program_name| as the mail
// address, null when empty). The caller frees both buffers with free().
std::size_t ReadFileToBuffer(const char* path, char** text, char** upper_text,
                             const char* program_name);

// Reads one line with fgetc into |buf| (|size| bytes): a CR is replaced by the
// byte after it; reading stops at LF, at Ctrl-D (byte 4) or once the size-th
// byte was stored, and the stopping byte's place gets the terminator (so a
// full buffer loses its last byte). Returns 1 at end of file, else 0.
int getline(char* buf, int size, FILE* fp);

// Copies |in| to |out| byte by byte until end of file.
void send_fd(FILE* in, FILE* out);
// fwrite/fread of |n| single bytes; return the count transferred.
std::size_t TB_pwrite(FILE* fp, const void* buf, std::size_t n);
std::size_t TB_pread(FILE* fp, void* buf, std::size_t n);

// Writes all of |data| to the descriptor |fd|, going on after partial writes
// and interruptions. False on an error, with errno set (EIO when the system
// wrote nothing and said no error).
bool WriteFully(int fd, std::string_view data);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_FILE_UTIL_H_
