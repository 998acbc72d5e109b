/*
 * The floor of a static run: writing the files of a generated store, with
 * their bytes, one open/write/close each, and nothing else.
 *
 *     floor [-j 2] SRC DST [rename]
 *
 * Loads every regular file below SRC into memory first (not timed), then
 * writes each of them below DST (directories made as needed) and prints
 *
 *     files=N bytes=B seconds=S
 *
 * where S covers the writing alone. DST should not exist or be empty. With
 * "rename", each file is written under a temporary name in its directory
 * and renamed into place, as storegen replaces a page in one step: the
 * difference between the two is what that step costs.
 *
 * With -j 2 the files are written by two processes, every other file each
 * (the directories are made first, by one of them); S runs from the moment
 * both are ready until the later of the two is done.
 */
#define _XOPEN_SOURCE 700
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

struct file {
  char *rel; /* path below SRC */
  char *data;
  size_t size;
  int is_dir;
};

static struct file *files;
static size_t count, capacity;
static size_t src_len;

static void *xmalloc(size_t n) {
  void *p = malloc(n ? n : 1);
  if (p == NULL) {
    perror("floor: malloc");
    exit(1);
  }
  return p;
}

static int load(const char *path, const struct stat *st, int type, struct FTW *ftw) {
  (void)ftw;
  if (type != FTW_F && type != FTW_D) return 0;
  if (strlen(path) <= src_len) return 0; /* SRC itself */
  if (count == capacity) {
    capacity = capacity ? 2 * capacity : 4096;
    files = realloc(files, capacity * sizeof *files);
    if (files == NULL) {
      perror("floor: realloc");
      exit(1);
    }
  }
  struct file *f = &files[count++];
  f->rel = strdup(path + src_len + 1);
  f->is_dir = type == FTW_D;
  f->size = f->is_dir ? 0 : (size_t)st->st_size;
  f->data = xmalloc(f->size);
  if (!f->is_dir) {
    int fd = open(path, O_RDONLY);
    size_t done = 0;
    while (fd >= 0 && done < f->size) {
      ssize_t n = read(fd, f->data + done, f->size - done);
      if (n <= 0) break;
      done += (size_t)n;
    }
    if (fd < 0 || done != f->size) {
      fprintf(stderr, "floor: cannot read %s\n", path);
      exit(1);
    }
    close(fd);
  }
  return 0;
}

static double now(void) {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

/* Writes the files i = first, first + step, ... below |path| (whose first
 * |dst_len| + 1 bytes are DST and a '/'), through a temporary name in |tmp|
 * when |renaming|. Returns 0, or 1 on failure. */
static int write_files(char *path, char *tmp, size_t dst_len, size_t first, size_t step,
                       int renaming, unsigned long long *bytes, size_t *written) {
  for (size_t i = first; i < count; i += step) {
    struct file *f = &files[i];
    if (f->is_dir) continue;
    snprintf(path + dst_len + 1, 4096, "%s", f->rel);
    const char *target = path;
    if (renaming) {
      const char *slash = strrchr(path, '/');
      int dir_len = (int)(slash - path);
      snprintf(tmp, dst_len + 4096 + 32, "%.*s/.floor-%zu", dir_len, path, i);
      target = tmp;
    }
    int fd = open(target, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || write(fd, f->data, f->size) != (ssize_t)f->size || close(fd) != 0 ||
        (renaming && rename(tmp, path) != 0)) {
      perror(path);
      return 1;
    }
    *bytes += f->size;
    ++*written;
  }
  return 0;
}

int main(int argc, char **argv) {
  int processes = 1;
  if (argc >= 3 && strcmp(argv[1], "-j") == 0) {
    processes = atoi(argv[2]);
    argv += 2;
    argc -= 2;
  }
  if ((argc != 3 && !(argc == 4 && strcmp(argv[3], "rename") == 0)) || processes < 1 ||
      processes > 2) {
    fprintf(stderr, "usage: floor [-j 2] SRC DST [rename]\n");
    return 2;
  }
  const int renaming = argc == 4;
  src_len = strlen(argv[1]);
  while (src_len > 1 && argv[1][src_len - 1] == '/') argv[1][--src_len] = '\0';
  /* Directories come before what they hold (no FTW_DEPTH). */
  if (nftw(argv[1], load, 64, FTW_PHYS) != 0) {
    perror("floor: nftw");
    return 1;
  }
  const char *dst = argv[2];
  size_t dst_len = strlen(dst);
  char *path = xmalloc(dst_len + 4096 + 2);
  char *tmp = xmalloc(dst_len + 4096 + 32);
  memcpy(path, dst, dst_len);
  path[dst_len] = '/';

  /* The second process is started before the clock: it waits for a byte on
   * |go| and reports its count of files and bytes on |done|. */
  int go[2], done[2];
  pid_t child = -1;
  if (processes == 2) {
    if (pipe(go) != 0 || pipe(done) != 0) {
      perror("floor: pipe");
      return 1;
    }
    child = fork();
    if (child < 0) {
      perror("floor: fork");
      return 1;
    }
    if (child == 0) {
      char c;
      if (read(go[0], &c, 1) != 1) _exit(1);
      unsigned long long bytes = 0;
      size_t written = 0;
      int rc = write_files(path, tmp, dst_len, 1, 2, renaming, &bytes, &written);
      unsigned long long report[2] = {bytes, written};
      if (write(done[1], report, sizeof report) != (ssize_t)sizeof report) rc = 1;
      _exit(rc);
    }
  }

  unsigned long long bytes = 0;
  size_t written = 0;
  double start = now();
  if (mkdir(dst, 0755) != 0 && errno != EEXIST) {
    perror(dst);
    return 1;
  }
  for (size_t i = 0; i < count; ++i) {
    if (!files[i].is_dir) continue;
    snprintf(path + dst_len + 1, 4096, "%s", files[i].rel);
    if (mkdir(path, 0755) != 0 && errno != EEXIST) {
      perror(path);
      return 1;
    }
  }
  if (child > 0 && write(go[1], "g", 1) != 1) {
    perror("floor: pipe");
    return 1;
  }
  if (write_files(path, tmp, dst_len, 0, (size_t)processes, renaming, &bytes, &written) != 0)
    return 1;
  double seconds = now() - start;
  if (child > 0) {
    /* Its report comes when its last file is written; its exit (the
     * release of its copy of the loaded files) is not timed. */
    unsigned long long report[2];
    int status;
    if (read(done[0], report, sizeof report) != (ssize_t)sizeof report) {
      fprintf(stderr, "floor: the second process failed\n");
      return 1;
    }
    seconds = now() - start;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      fprintf(stderr, "floor: the second process failed\n");
      return 1;
    }
    bytes += report[0];
    written += (size_t)report[1];
  }
  printf("files=%zu bytes=%llu seconds=%.6f\n", written, bytes, seconds);
  return 0;
}
