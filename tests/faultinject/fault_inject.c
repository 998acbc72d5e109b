/*
 * A preloaded library that makes one chosen file operation fail, so that
 * tests can prove that a program which rewrites files loses nothing when a
 * write fails part-way (a full disk, an I/O error).
 *
 * Counted operations: write, pwrite, writev, fsync, fdatasync, close of a
 * descriptor open for writing, and rename, on files below FAULTINJECT_DIR.
 * Streams that fopen/fdopen open for writing there are replaced by streams
 * of the same mode whose writes and close go through the counted calls
 * (stdio itself writes through internal calls a preloaded library cannot
 * see); fileno answers their descriptor.
 *
 * Environment:
 *   FAULTINJECT_DIR     absolute directory whose files are counted (required)
 *   FAULTINJECT_FAIL_AT n: the n-th counted operation fails (unset or 0: none)
 *   FAULTINJECT_MODE    "once" (default): only that operation fails;
 *                       "full": it and every later one fail, as on a disk
 *                       that has filled up; "kill": the process kills itself
 *                       with SIGKILL instead of making it (removals of files
 *                       are counted too in this mode); "term": it sends
 *                       itself SIGTERM instead, and goes on if that returns
 *   FAULTINJECT_ERRNO   "EIO" or "ENOSPC" (default) for the failure
 *   FAULTINJECT_REPORT  file that gets, at exit, "<count> <failed operation>"
 *                       ("-" when none failed)
 * A close that is made to fail still releases its descriptor, as Linux does.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

static const char* g_dir;
static size_t g_dir_len;
static long g_fail_at;
static enum { kOnce, kFull, kKill, kTerm } g_mode = kOnce;
static int g_errno = ENOSPC;
static long g_count;
static const char* g_failed = "-";

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

__attribute__((constructor)) static void Init(void) {
  g_dir = getenv("FAULTINJECT_DIR");
  g_dir_len = g_dir != NULL ? strlen(g_dir) : 0;
  const char* at = getenv("FAULTINJECT_FAIL_AT");
  g_fail_at = at != NULL ? atol(at) : 0;
  const char* mode = getenv("FAULTINJECT_MODE");
  if (mode != NULL && strcmp(mode, "full") == 0) g_mode = kFull;
  if (mode != NULL && strcmp(mode, "kill") == 0) g_mode = kKill;
  if (mode != NULL && strcmp(mode, "term") == 0) g_mode = kTerm;
  const char* err = getenv("FAULTINJECT_ERRNO");
  if (err != NULL && strcmp(err, "EIO") == 0) g_errno = EIO;
}

__attribute__((destructor)) static void Report(void) {
  const char* path = getenv("FAULTINJECT_REPORT");
  if (path == NULL) return;
  char text[128];
  int n = snprintf(text, sizeof text, "%ld %s\n", g_count, g_failed);
  /* Raw system calls: the report must not count or fail itself. */
  int fd = (int)syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd >= 0) {
    syscall(SYS_write, fd, text, (size_t)n);
    syscall(SYS_close, fd);
  }
}

static int UnderDir(const char* path) {
  if (g_dir_len == 0 || path == NULL) return 0;
  if (path[0] == '/') {
    return strncmp(path, g_dir, g_dir_len) == 0 &&
           (path[g_dir_len] == '/' || path[g_dir_len] == '\0');
  }
  char abs[PATH_MAX];
  if (getcwd(abs, sizeof abs) == NULL) return 0;
  size_t len = strlen(abs);
  if (len + 1 + strlen(path) + 1 > sizeof abs) return 0;
  abs[len] = '/';
  strcpy(abs + len + 1, path);
  return UnderDir(abs);
}

static int FdUnderDir(int fd, int writable_only) {
  if (g_dir_len == 0 || fd < 0) return 0;
  if (writable_only) {
    int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY) return 0;
  }
  char link[64], target[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  ssize_t n = readlink(link, target, sizeof target - 1);
  if (n <= 0) return 0;
  target[n] = '\0';
  return UnderDir(target);
}

/* Counts one operation; true when it is to fail. */
static int Hit(const char* what) {
  ++g_count;
  if (g_fail_at == 0 || g_count < g_fail_at || (g_count > g_fail_at && g_mode != kFull)) return 0;
  if (g_count == g_fail_at) g_failed = what;
  if (g_mode == kKill || g_mode == kTerm) {
    Report();
    raise(g_mode == kKill ? SIGKILL : SIGTERM);
    return 0;
  }
  return 1;
}

/* A counted call on descriptor |fd| that fails when its turn comes. */
#define COUNTED(type, name, params, args, fd) \
  type name params {                          \
    if (FdUnderDir(fd, 0) && Hit(#name)) {    \
      errno = g_errno;                        \
      return -1;                              \
    }                                         \
    return REAL(name) args;                   \
  }

COUNTED(ssize_t, write, (int fd, const void* buf, size_t n), (fd, buf, n), fd)
COUNTED(ssize_t, pwrite, (int fd, const void* buf, size_t n, off_t off), (fd, buf, n, off), fd)
COUNTED(ssize_t, writev, (int fd, const struct iovec* iov, int count), (fd, iov, count), fd)
COUNTED(int, fsync, (int fd), (fd), fd)
COUNTED(int, fdatasync, (int fd), (fd), fd)

int close(int fd) {
  if (FdUnderDir(fd, 1) && Hit("close")) {
    REAL(close)(fd);
    errno = g_errno;
    return -1;
  }
  return REAL(close)(fd);
}

int rename(const char* from, const char* to) {
  if ((UnderDir(from) || UnderDir(to)) && Hit("rename")) {
    errno = g_errno;
    return -1;
  }
  return REAL(rename)(from, to);
}

int renameat(int from_dir, const char* from, int to_dir, const char* to) {
  int counted = (from_dir == AT_FDCWD && UnderDir(from)) || (to_dir == AT_FDCWD && UnderDir(to));
  if (counted && Hit("rename")) {
    errno = g_errno;
    return -1;
  }
  return REAL(renameat)(from_dir, from, to_dir, to);
}

/* Removals, counted in the kill mode only: a removal never fails for want
 * of space. */
int unlink(const char* path) {
  if (g_mode == kKill && UnderDir(path)) Hit("unlink");
  return REAL(unlink)(path);
}

int unlinkat(int dir, const char* path, int flags) {
  if (g_mode == kKill && dir == AT_FDCWD && UnderDir(path)) Hit("unlink");
  return REAL(unlinkat)(dir, path, flags);
}

int remove(const char* path) {
  if (g_mode == kKill && UnderDir(path)) Hit("unlink");
  return REAL(remove)(path);
}

/* --- Streams written through the counted calls. ------------------------- */

enum { kMaxStreams = 256 };
static struct {
  FILE* fp;
  int fd;
} g_streams[kMaxStreams];

static ssize_t StreamRead(void* cookie, char* buf, size_t n) {
  return read(*(int*)cookie, buf, n);
}

static ssize_t StreamWrite(void* cookie, const char* buf, size_t n) {
  ssize_t done = write(*(int*)cookie, buf, n);
  return done < 0 ? 0 : done; /* 0 reports the error to stdio */
}

static int StreamSeek(void* cookie, off64_t* offset, int whence) {
  off64_t at = lseek64(*(int*)cookie, *offset, whence);
  if (at < 0) return -1;
  *offset = at;
  return 0;
}

static int StreamClose(void* cookie) {
  int fd = *(int*)cookie;
  free(cookie);
  for (int i = 0; i < kMaxStreams; ++i) {
    if (g_streams[i].fd == fd && g_streams[i].fp != NULL) g_streams[i].fp = NULL;
  }
  return close(fd);
}

static int Writable(const char* mode) {
  return strpbrk(mode, "wa+") != NULL;
}

/* A counted stream on |fd| with |mode|, or NULL (|fd| stays open). */
static FILE* WrapFd(int fd, const char* mode) {
  int* cookie = malloc(sizeof *cookie);
  if (cookie == NULL) {
    errno = ENOMEM;
    return NULL;
  }
  *cookie = fd;
  cookie_io_functions_t io = {StreamRead, StreamWrite, StreamSeek, StreamClose};
  FILE* fp = fopencookie(cookie, mode, io);
  if (fp == NULL) {
    free(cookie);
    return NULL;
  }
  for (int i = 0; i < kMaxStreams; ++i) {
    if (g_streams[i].fp == NULL) {
      g_streams[i].fp = fp;
      g_streams[i].fd = fd;
      break;
    }
  }
  return fp;
}

static FILE* OpenCounted(const char* path, const char* mode) {
  int flags = strchr(mode, '+') != NULL ? O_RDWR : O_WRONLY;
  if (mode[0] == 'w') flags |= O_CREAT | O_TRUNC;
  if (mode[0] == 'a') flags |= O_CREAT | O_APPEND;
  if (mode[0] == 'r' && strchr(mode, '+') == NULL) flags = O_RDONLY;
  if (strchr(mode, 'x') != NULL) flags |= O_EXCL;
  if (strchr(mode, 'e') != NULL) flags |= O_CLOEXEC;
  int fd = open(path, flags, 0666);
  if (fd < 0) return NULL;
  if (mode[0] == 'a') lseek(fd, 0, SEEK_END);
  FILE* fp = WrapFd(fd, mode);
  if (fp == NULL) REAL(close)(fd);
  return fp;
}

FILE* fopen(const char* path, const char* mode) {
  if (Writable(mode) && UnderDir(path)) return OpenCounted(path, mode);
  return REAL(fopen)(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
  if (Writable(mode) && UnderDir(path)) return OpenCounted(path, mode);
  return REAL(fopen64)(path, mode);
}

FILE* fdopen(int fd, const char* mode) {
  if (Writable(mode) && FdUnderDir(fd, 0)) return WrapFd(fd, mode);
  return REAL(fdopen)(fd, mode);
}

int fileno(FILE* fp) {
  for (int i = 0; i < kMaxStreams; ++i) {
    if (fp != NULL && g_streams[i].fp == fp) return g_streams[i].fd;
  }
  return REAL(fileno)(fp);
}
